// Model driver of the full variant (qel_var) and its extensions: operation
// sequences decoded from the input run on a pool of four variants, and every
// variant tree is compared, after every operation, with a model of the
// documented semantics (records, members, elements, values, caller values,
// schemas, resolver calls).  Records come from a fixed set of schemas, two of
// which nest into themselves (directly and through another schema).  The
// same variant is used as source and destination, copies and appends also
// run between a variant and one inside it (which must act as an independent
// copy of the source would), and string bytes are taken from a variant's own
// storage.  Numbers go in and out through the C calls
// or the C++ layer at random.
//
// Decisions modelled beyond the plain algorithms:
//  - a single record member whose schema is already being built higher up on
//    the same path gets its schema but no members;
//  - appending records adds a deep copy of each source record as an element;
//  - qel_var_copy(v, v) changes nothing; qel_var_append(v, v) on an array and
//    qel_var_add_var(v, v) double it;
//  - out-of-range reads give 0 / NULL, writes do nothing; shrink with a
//    negative n does nothing; cmp of arrays goes element by element, a
//    prefix ordering first;
//  - JSON: any variant's text, read into a fresh variant of the same shape,
//    gives the same text (elements of record arrays are made by the reader
//    through the resolver, so only those matching such an element count);
//  - Arrow: a multi variant exported and imported into a fresh variant of
//    the same shape (or through a stream) is qel_var_equal to it, when its
//    records list exactly their schemas' members and its elements match
//    those the importer makes; a failed import changes nothing;
//  - Avro: a variant that matches the resolver's schemas (else the write is
//    refused, appending nothing) reads back from its datum into a fresh
//    variant of the same shape as an equal one (elements as for JSON);
//  - sorts are checked for order (floats: when no NaN is held) and contents;
//    the exact order of ties and NaNs is pinned by the hand-written goldens;
//    sort_by, stable, is checked against a stable sort of the model.
#include <qel.h>
#include <qel_arrow.h>
#include <qel_avro.h>
#include <qel_json.h>

#include <algorithm>
#include <cmath>
#include <map>
#include <memory>
#include <qel.hpp>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "fuzz_common.h"

namespace {

using fz::Arr;
using fz::Num;
using fz::Reader;
using fz::Slot;
using fz::St;
using fz::Text;

enum class Cls { b32, b64, bytes, record };

Cls cls(uint32_t t) {
  if (t == 1 || t == 2 || t == 3 || t == 5 || t == 9) return Cls::b32;
  if (t == 4 || t == 6) return Cls::b64;
  return t == 7 || t == 8 ? Cls::bytes : Cls::record;
}
Num kind_of(uint32_t t) {
  if (t == 1 || t == 2 || t == 3 || t == 9) return Num::u32;
  return t == 4 ? Num::i64 : t == 5 ? Num::f32 : t == 6 ? Num::f64 : Num::none;
}

// ---------------------------------------------------------------------------
// Schemas and the resolver

struct MemberDef {
  const char *name;
  uint32_t type;
  uint8_t multi;
};

struct SchemaDef {
  qel::schema schema;
  std::vector<MemberDef> members;
};

SchemaDef g_a, g_b, g_self;  // codes 20, 21, 22
int g_context_tag;           // the resolver's context
std::vector<uint32_t> g_real_calls, g_model_calls;

const SchemaDef *def_of(const qel_schema *s) {
  for (const SchemaDef *d : {&g_a, &g_b, &g_self})
    if (s != nullptr && s == d->schema.get()) return d;
  return nullptr;
}

qel_schema *resolve(uint32_t type) {
  switch (type) {
    case 20: return g_a.schema.get();
    case 21:
    case 8: return g_b.schema.get();  // 8: a non-record code, only stored
    case 22: return g_self.schema.get();
    default: return nullptr;
  }
}

qel_schema *real_resolver(void *context, uint32_t type) {
  FZ_CHECK(context == &g_context_tag, "resolver called with context %p", context);
  g_real_calls.push_back(type);
  return resolve(type);
}

void make_schema(SchemaDef &d, std::vector<MemberDef> members) {
  d.schema = qel::schema();
  d.members = std::move(members);
  for (MemberDef &m : d.members) {
    qel_var_schema_add(d.schema.get(), m.name, static_cast<int64_t>(std::strlen(m.name)), m.type, m.multi);
    m.type &= 0xFFFFu;  // member codes are 16 bits in a schema
  }
}

// ---------------------------------------------------------------------------
// The model

struct MVar {
  uint32_t type = 0;
  uint8_t multi = 0;
  qel_schema *schema = nullptr;
  uint64_t buf = 0, num = 0;                                           // single: caller value, numeric value (bits)
  std::string str;                                                     // single byte string
  std::vector<std::pair<std::string, std::unique_ptr<MVar>>> members;  // hash entries, NULL value = nullptr
  Arr a;                                                               // value arrays
  std::vector<std::unique_ptr<MVar>> elems;                            // record arrays

  Cls c() const { return cls(type); }
  Num k() const { return kind_of(type); }
  bool arr() const { return multi != 0; }
  bool value_array() const { return multi != 0 && c() != Cls::record; }
  bool numeric() const { return k() != Num::none; }
  bool record_code() const { return type >= 10; }
};

using Path = std::vector<const qel_schema *>;

MVar *m_hash_get(const MVar &m, const std::string &name) {
  for (size_t i = m.members.size(); i-- > 0;)
    if (m.members[i].first == name) return m.members[i].second.get();
  return nullptr;
}

void m_hash_insert(MVar &m, const std::string &name, std::unique_ptr<MVar> v) {
  for (size_t i = m.members.size(); i-- > 0;) {
    if (m.members[i].first != name) continue;
    if (!m.members[i].second) {
      m.members[i].second = std::move(v);
      return;
    }
    break;
  }
  m.members.emplace_back(name, std::move(v));
}

// Drops the storage (free_x): values, members, elements; a single's buf.
void m_free_x(MVar &m) {
  m.a.clear();
  m.elems.clear();
  m.members.clear();
  if (!m.arr()) m.num = m.buf = 0, m.str.clear();
}

std::unique_ptr<MVar> m_new_x(uint32_t type, uint8_t multi, void *ctx, bool with_resolver, Path &path);

// Fresh storage for the current code and form; a single record gets one
// member per schema entry unless its schema is already on the path.
void m_init(MVar &m, void *ctx, bool with_resolver, Path &path) {
  m_free_x(m);
  const SchemaDef *d = def_of(m.schema);
  if (m.arr() || m.c() != Cls::record || d == nullptr) return;
  if (std::find(path.begin(), path.end(), m.schema) != path.end() || path.size() >= 256) return;
  path.push_back(m.schema);
  for (const MemberDef &md : d->members)
    m_hash_insert(m, md.name, m_new_x(md.type, md.multi, ctx, with_resolver, path));
  path.pop_back();
}

std::unique_ptr<MVar> m_new_x(uint32_t type, uint8_t multi, void *ctx, bool with_resolver, Path &path) {
  auto m = std::make_unique<MVar>();
  m->type = type;
  m->multi = multi;
  if (with_resolver) g_model_calls.push_back(type);
  m->schema = with_resolver ? resolve(type) : static_cast<qel_schema *>(ctx);
  m_init(*m, ctx, with_resolver, path);
  return m;
}

// Re-forming without a context: members of the record's schema get none.
void m_init_plain(MVar &m) {
  Path p;
  m_init(m, nullptr, false, p);
}

std::unique_ptr<MVar> m_new(uint32_t type, uint8_t multi, qel_schema *schema = nullptr) {
  auto m = std::make_unique<MVar>();
  m->type = type;
  m->multi = multi;
  m->schema = schema;
  m_init_plain(*m);
  return m;
}

void m_reform(MVar &m, uint32_t type, uint8_t multi) {
  m_free_x(m);
  m.type = type;
  m.multi = multi;
  m_init_plain(m);
}

// Value at index (0 when out of range) of a numeric variant, as stored bits.
uint64_t m_num_at(const MVar &m, int64_t i) {
  if (!m.arr()) return m.num;
  return i >= 0 && i < m.a.count ? m.a.at(i).v : 0;
}
// String at index; *null_out when the read gives NULL.
std::string m_str_at(const MVar &m, int64_t i, bool *null_out) {
  *null_out = m.c() != Cls::bytes || (m.arr() && (i < 0 || i >= m.a.count));
  if (*null_out) return std::string();
  return m.arr() ? m.a.slots[static_cast<size_t>(i)].s : m.str;
}

void m_add(MVar &m, uint64_t bits, const std::string &s, bool bytes) {
  if (m.arr() && (bytes ? m.c() == Cls::bytes : m.numeric())) m.a.push(bits, s, 0);
}
void m_set(MVar &m, int64_t i, uint64_t bits, const std::string &s, bool bytes) {
  if (bytes ? m.c() != Cls::bytes : !m.numeric()) return;
  if (!m.arr()) m.num = bits, m.str = s;
  else if (i >= 0 && i < m.a.count) m.a.set(i, bits, s, 0);
}

void m_copy(MVar &dst, const MVar &src);

// A new element: made without a schema (no members), then given the schema.
std::unique_ptr<MVar> m_element(const MVar &e) {
  auto n = m_new(e.type, e.multi);
  n->schema = e.schema;
  return n;
}

std::unique_ptr<MVar> m_deep_element(const MVar &e) {
  auto n = m_element(e);
  m_copy(*n, e);
  return n;
}

void m_copy(MVar &dst, const MVar &src) {
  if (&dst == &src) return;
  if (dst.type != src.type || dst.multi != src.multi) {
    dst.schema = src.schema;
    m_reform(dst, src.type, src.multi);
  }
  if (!src.arr()) {
    dst.num = src.num;
    dst.str = src.str;
    dst.buf = src.buf;
    if (src.c() != Cls::record) return;
    for (const auto &entry : src.members) {
      if (!entry.second) continue;
      MVar *d = m_hash_get(dst, entry.first);
      if (d == nullptr) {
        auto created = m_new(entry.second->type, entry.second->multi, entry.second->schema);
        d = created.get();
        m_hash_insert(dst, entry.first, std::move(created));
      }
      m_copy(*d, *entry.second);
    }
    return;
  }
  if (src.c() == Cls::record) {
    std::vector<std::unique_ptr<MVar>> fresh;
    for (const auto &e : src.elems) fresh.push_back(m_deep_element(*e));
    dst.elems = std::move(fresh);
    return;
  }
  const std::vector<Slot> live(src.a.slots.begin(), src.a.slots.begin() + src.a.count);
  dst.a.slots.resize(std::max(dst.a.slots.size(), live.size()));
  std::copy(live.begin(), live.end(), dst.a.slots.begin());
  dst.a.count = src.a.count;
  dst.a.sorted = src.a.sorted;
  dst.a.forget_above();
}

// An exact, independent copy: what a source inside the destination (or
// holding it) must act like.
std::unique_ptr<MVar> m_replica(const MVar &m) {
  auto n = std::make_unique<MVar>();
  n->type = m.type, n->multi = m.multi, n->schema = m.schema;
  n->buf = m.buf, n->num = m.num, n->str = m.str, n->a = m.a;
  for (const auto &[name, v] : m.members) n->members.emplace_back(name, v ? m_replica(*v) : nullptr);
  for (const auto &e : m.elems) n->elems.push_back(m_replica(*e));
  return n;
}

void m_append(MVar &dst, const MVar &src) {
  // Snapshot the source first: it may be dst itself.
  std::vector<Slot> vals;
  std::vector<std::unique_ptr<MVar>> recs;
  if (src.c() == Cls::record) {
    if (!src.arr()) recs.push_back(m_deep_element(src));
    for (const auto &e : src.elems) recs.push_back(m_deep_element(*e));
  } else if (!src.arr()) {
    vals.push_back(Slot{St::known, src.num, src.str, 0});
  } else {
    vals.assign(src.a.slots.begin(), src.a.slots.begin() + src.a.count);
  }
  if (dst.type != src.type || !dst.arr()) {
    dst.schema = src.schema;
    m_reform(dst, src.type, 1);
  }
  for (auto &e : recs) dst.elems.push_back(std::move(e));
  for (const Slot &s : vals) dst.a.push(s.v, s.s, 0);
}

// ---------------------------------------------------------------------------
// Comparing the library's variants with the model

int64_t g_total = 0;  // values and variants in the pool, to bound the work

// The member walk of a single record, entries without a member skipped.
std::vector<std::pair<std::string, qel_var *>> real_members(qel_var *r) {
  std::vector<std::pair<std::string, qel_var *>> out;
  for (int64_t k = 0, n = qel_var_member_count(r); k < n; ++k) {
    const char *name = nullptr;
    int64_t len = -1;
    if (qel_var *v = qel_var_member_at(r, k, &name, &len)) out.emplace_back(std::string(name, size_t(len)), v);
  }
  return out;
}

// Deep equality as qel_var_equal defines it: code and multi byte, values as
// stored bits or bytes, the members qel_var_get_val finds by name, elements.
bool m_equal(const MVar &x, const MVar &y) {
  if (x.type != y.type || x.multi != y.multi) return false;
  if (x.c() == Cls::record && !x.arr()) {
    auto visible = [](const MVar &m) {
      std::map<std::string, const MVar *> out;
      for (const auto &e : m.members) out[e.first] = e.second.get();  // the newest entry of a name
      std::erase_if(out, [](const auto &e) { return e.second == nullptr; });
      return out;
    };
    const auto a = visible(x), b = visible(y);
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](const auto &p, const auto &q) { return p.first == q.first && m_equal(*p.second, *q.second); });
  }
  if (x.c() == Cls::record)
    return std::equal(x.elems.begin(), x.elems.end(), y.elems.begin(), y.elems.end(),
                      [](const auto &p, const auto &q) { return m_equal(*p, *q); });
  if (!x.arr()) return x.num == y.num && x.str == y.str;
  if (x.a.count != y.a.count) return false;
  for (int64_t k = 0; k < x.a.count; ++k)
    if (x.c() == Cls::bytes ? x.a.at(k).s != y.a.at(k).s : x.a.at(k).v != y.a.at(k).v) return false;
  return true;
}

void verify(qel_var *r, MVar &m, const std::string &where) {
  const char *w = where.c_str();
  ++g_total;
  FZ_CHECK(r->type == m.type && r->multi == m.multi && qel_var_type(r) == m.type &&
               qel_var_multi(r) == static_cast<int8_t>(m.multi) && qel_var_schema(r) == m.schema,
           "%s: type/multi/schema %u/%u/%p, model %u/%u/%p", w, r->type, r->multi, (void *)r->schema, m.type, m.multi,
           (void *)m.schema);
  const bool walkable = !m.arr() && m.c() == Cls::record;
  FZ_CHECK(qel_var_member_count(r) == (walkable ? static_cast<int64_t>(m.members.size()) : 0) &&
               qel_var_member_at(r, walkable ? qel_var_member_count(r) : 0, nullptr, nullptr) == nullptr,
           "%s: %ld member entries, model %zu", w, qel_var_member_count(r), walkable ? m.members.size() : 0);
  if (!m.arr()) {
    FZ_CHECK(qel_var_size(r) == 0 && r->buf == m.buf, "%s: size %ld buf %lx, model buf %lx", w, qel_var_size(r), r->buf,
             m.buf);
    if (m.c() == Cls::b32 || m.c() == Cls::b64) {
      const uint64_t got = m.c() == Cls::b32 ? r->data.bits32 : r->data.bits64;
      FZ_CHECK(fz::same_value(m.k(), got, m.num), "%s: value %lx, model %lx", w, got, m.num);
      m.num = got;
    } else if (m.c() == Cls::bytes) {
      const qel_stream &s = r->data.stream;
      FZ_CHECK(
          s.capacity >= s.length && std::string_view(s.bytes ? s.bytes : "", static_cast<size_t>(s.length)) == m.str,
          "%s: string of %ld bytes, model %zu", w, s.length, m.str.size());
    } else {
      for (size_t k = 0; k < m.members.size(); ++k) {  // the walk, entries without a member included
        const auto &[name, member] = m.members[k];
        const char *got = nullptr;
        int64_t len = -1;
        qel_var *v = qel_var_member_at(r, static_cast<int64_t>(k), &got, &len);
        FZ_CHECK(std::string_view(got, size_t(len)) == name && (v != nullptr) == (member != nullptr),
                 "%s: member entry %zu is not '%s'", w, k, name.c_str());
        if (v != nullptr) verify(v, *member, where + "." + name);
      }
    }
    return;
  }
  if (m.c() == Cls::record) {
    const qel_arrays &a = r->data.vars;
    FZ_CHECK(a.count == static_cast<int64_t>(m.elems.size()) && qel_var_size(r) == a.count,
             "%s: %ld elements, model %zu", w, a.count, m.elems.size());
    for (size_t i = 0; i < m.elems.size(); ++i)
      verify(static_cast<qel_var *>(a.entries[i]), *m.elems[i], where + "[" + std::to_string(i) + "]");
    return;
  }
  FZ_CHECK(qel_var_size(r) == m.a.count, "%s: size %ld, model %ld", w, qel_var_size(r), m.a.count);
  if (m.c() == Cls::b32) fz::check_array(r->data.arrayd, m.a, m.k(), w);
  else if (m.c() == Cls::b64) fz::check_array(r->data.arrayx, m.a, m.k(), w);
  else fz::check_array(r->data.array, m.a, Num::none, w);
  g_total += m.a.count;
}

int64_t real_capacity(const qel_var *r) {
  switch (cls(r->type)) {
    case Cls::b32: return r->data.arrayd.capacity;
    case Cls::b64: return r->data.arrayx.capacity;
    default: return r->data.array.capacity;
  }
}

// ---------------------------------------------------------------------------
// The pool and the operations

constexpr int kPool = 4;
constexpr int64_t kBudget = 2500;

struct Pool {
  qel::var v[kPool];
  std::unique_ptr<MVar> m[kPool];
};

const uint32_t kTypes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 20, 21, 22, 23, 0xFFFFFFFFu, 20, 21, 22, 7, 5, 6, 1, 4};
const uint8_t kMultis[] = {0, 1, 0, 1, 2, 0xFF, 0, 1};
const char *const kNames[] = {"id",   "tags",  "child", "kids", "f", "x",  "name", "vals",
                              "back", "value", "next",  "list", "w", "zz", "",     "big"};

struct Handle {
  int slot;
  qel_var *r;
  MVar *m;
};

// A variant of the pool, or a member or element some levels down.
Handle pick_handle(Reader &r, Pool &p, int slot) {
  Handle h{slot, p.v[slot].get(), p.m[slot].get()};
  for (unsigned s = 0, steps = r.pick(4); s < steps && s < 2 && h.m->c() == Cls::record; ++s) {
    if (!h.m->arr()) {
      const auto real = real_members(h.r);
      if (real.empty()) break;
      const size_t k = r.u8() % real.size();
      h.r = real[k].second;
      h.m = m_hash_get(*h.m, real[k].first);
    } else {
      if (h.m->elems.empty()) break;
      const size_t k = r.u8() % h.m->elems.size();
      h.r = static_cast<qel_var *>(h.r->data.vars.entries[k]);
      h.m = h.m->elems[k].get();
    }
  }
  FZ_TRACE("  handle in v%d: code %u multi %u%s", slot, h.m->type, h.m->multi,
           h.r == p.v[slot].get() ? "" : " (nested)");
  return h;
}

// A second handle: the very same variant, or one in another slot (never a
// member of the first or the other way round).
Handle pick_other(Reader &r, Pool &p, const Handle &first, bool allow_same) {
  const int slot = static_cast<int>(r.pick(kPool));
  if (slot != first.slot) return pick_handle(r, p, slot);
  return allow_same ? first : pick_handle(r, p, (slot + 1) % kPool);
}

// Bytes in a string variant's own storage.
bool storage_bytes(const Handle &h, Reader &r, Text &t) {
  if (h.m->c() != Cls::bytes) return false;
  if (!h.m->arr()) return fz::inside(r, h.r->data.stream.bytes, h.r->data.stream.length, t);
  if (h.m->a.count == 0) return false;
  const qel_array &a = h.r->data.array;
  const qel_array_entry &e = a.entries[r.u8() % h.m->a.count];
  return fz::inside(r, a.pool.bytes + e.offset, e.length, t);
}

Text pick_text(Reader &r, Pool &p, const Handle &dst, bool allow_measure = true) {
  const unsigned how = r.pick(6);
  Text t;
  if (how == 0 && storage_bytes(dst, r, t)) return t;
  if (how == 1 && storage_bytes(pick_handle(r, p, static_cast<int>(r.pick(kPool))), r, t)) return t;
  return fz::outside(r, how == 2 ? 0 : how == 3 ? 1 : 2, allow_measure);
}

// ---------------------------------------------------------------------------
// JSON round trip: a variant's text read into a fresh variant of the same
// shape gives the same text again (so the same values, floats bit for bit).

qel_schema *json_resolver(void *, uint32_t type) { return resolve(type); }

// Requires nothing: whether the bytes are UTF-8 (decoded to code points:
// no overlong form, no surrogate, nothing above U+10FFFF).
bool valid_utf8(const char *p, int64_t n) {
  for (int64_t i = 0; i < n;) {
    const auto c = static_cast<unsigned char>(p[i]);
    const int len = c < 0x80 ? 1 : (c >> 5) == 6 ? 2 : (c >> 4) == 14 ? 3 : (c >> 3) == 30 ? 4 : 0;
    if (len == 0 || i + len > n) return false;
    uint32_t cp = len == 1 ? c : c & (0x7Fu >> len);
    for (int k = 1; k < len; ++k) {
      const auto b = static_cast<unsigned char>(p[i + k]);
      if ((b >> 6) != 2) return false;
      cp = cp << 6 | (b & 0x3Fu);
    }
    const uint32_t least[] = {0, 0, 0x80, 0x800, 0x10000};
    if (cp < least[len] || cp > 0x10FFFF || (cp >= 0xD800 && cp <= 0xDFFF)) return false;
    i += len;
  }
  return true;
}

struct JsonScan {
  bool nonfinite = false, bad_utf8 = false, elements_fit = true;
  int depth = 0;  // arrays and objects nested
};

// Requires a variant (a fresh one for `fresh`): whether both have the same
// codes, forms and member names in order, down to (not into) record arrays.
bool same_shape(const qel_var *a, const qel_var *b) {
  if (a->type != b->type || a->multi != b->multi) return false;
  if (cls(a->type) != Cls::record || a->multi != 0) return true;
  const auto ma = real_members(const_cast<qel_var *>(a)), mb = real_members(const_cast<qel_var *>(b));
  if (ma.size() != mb.size()) return false;
  for (size_t i = 0; i < ma.size(); ++i)
    if (ma[i].first != mb[i].first || !same_shape(ma[i].second, mb[i].second)) return false;
  return true;
}

// Requires a variant: what its JSON holds and whether each record-array
// element matches the element a reader makes for it.
void json_scan(const qel_var *v, int level, JsonScan &s) {
  const Cls c = cls(v->type);
  if (c == Cls::record || v->multi != 0) s.depth = std::max(s.depth, level + 1);
  const int64_t n = v->multi != 0 ? qel_var_size(v) : 1;
  if (c == Cls::b32 || c == Cls::b64) {
    for (int64_t i = 0; i < n && v->type >= 5 && v->type <= 6; ++i)
      s.nonfinite |= !std::isfinite(qel_var_get_double(v, i));
  } else if (c == Cls::bytes) {
    for (int64_t i = 0; i < n; ++i) {
      const char *t = nullptr;
      int64_t len = 0;
      qel_var_get_string(v, i, &t, &len);
      s.bad_utf8 |= !valid_utf8(t, len);
    }
  } else if (v->multi != 0) {
    for (int64_t i = 0; i < v->data.vars.count; ++i) {
      const auto *e = static_cast<const qel_var *>(v->data.vars.entries[i]);
      if (e == nullptr) continue;
      qel_var *fresh = qel_var_new_x(v->type, 0, &g_context_tag, json_resolver);
      s.elements_fit &= same_shape(e, fresh);
      qel_var_free(fresh);
      json_scan(e, level + 1, s);
    }
  } else {
    for (const auto &m : real_members(const_cast<qel_var *>(v))) {
      s.bad_utf8 |= !valid_utf8(m.first.data(), static_cast<int64_t>(m.first.size()));
      json_scan(m.second, level + 1, s);
    }
  }
}

// Requires a variant: a fresh tree of the same codes, forms and member
// names, holding nothing (record arrays: no elements, src's schema).
qel_var *json_shape(const qel_var *src) {
  qel_var *v = qel_var_new(src->type, src->multi);
  if (cls(src->type) == Cls::record && src->multi != 0) v->schema = src->schema;
  if (cls(src->type) == Cls::record && src->multi == 0)
    for (const auto &m : real_members(const_cast<qel_var *>(src)))
      qel_hash_insert(&v->data.members, m.first.data(), static_cast<int64_t>(m.first.size()), json_shape(m.second));
  return v;
}

std::string json_text(const qel_var *v, unsigned flags, int *rc) {
  qel_stream s;
  qel_stream_init(&s);
  qel_stream_append(&s, "<", 1);
  *rc = qel_json_write(v, &s, flags);
  FZ_CHECK(*rc == QEL_JSON_OK || s.length == 1, "json write failed (%d) but appended", *rc);
  std::string out(s.bytes + 1, static_cast<size_t>(s.length - 1));
  qel_stream_term(&s);
  return out;
}

void json_round_trip(const Handle &h, Reader &r) {
  const unsigned flags = r.flag() ? QEL_JSON_INDENT : 0;
  JsonScan s;
  json_scan(h.r, 0, s);
  int rc = 0;
  const std::string text = json_text(h.r, flags, &rc);
  if (s.nonfinite || s.bad_utf8) {
    FZ_CHECK((s.nonfinite && rc == QEL_JSON_ERR_NONFINITE) || (s.bad_utf8 && rc == QEL_JSON_ERR_UTF8),
             "json write gave %d for nonfinite %d, bad UTF-8 %d", rc, s.nonfinite, s.bad_utf8);
    return;
  }
  FZ_CHECK(rc == QEL_JSON_OK, "json write failed: %d", rc);
  qel_var *fresh = json_shape(h.r);
  int rc2 = 0;
  const std::string before = json_text(fresh, 0, &rc2);
  qel_json_error err;
  const int rr =
      qel_json_read(fresh, text.data(), static_cast<int64_t>(text.size()), &g_context_tag, json_resolver, 0, &err);
  const std::string after = json_text(fresh, flags, &rc2);
  if (s.depth > QEL_JSON_MAX_DEPTH) {
    FZ_CHECK(rr == QEL_JSON_ERR_DEPTH, "json read of %d levels gave %d", s.depth, rr);
  } else if (s.elements_fit) {
    FZ_CHECK(rr == QEL_JSON_OK && after == text && qel_var_equal(fresh, h.r),
             "json round trip: read %d (%s)\n    wrote %s\n    reread %s", rr, err.message, text.substr(0, 150).c_str(),
             after.substr(0, 150).c_str());
  }
  FZ_CHECK(rr == QEL_JSON_OK || json_text(fresh, 0, &rc2) == before, "failed json read (%d) changed it", rr);
  qel_var_free(fresh);
}

// Requires a variant and the schema its members are listed by: whether each
// record holds exactly those members, in order, all the way down (a record
// array's elements: the array's schema), which is what an Arrow struct carries.
bool schemas_agree(const qel_var *v, const qel_schema *s) {
  if (cls(v->type) != Cls::record) return true;
  if (v->multi != 0) {
    for (int64_t i = 0; i < v->data.vars.count; ++i)
      if (!schemas_agree(static_cast<const qel_var *>(v->data.vars.entries[i]), v->schema)) return false;
    return true;
  }
  if (qel_var_member_count(v) != (s != nullptr ? qel_var_schema_size(s) : 0)) return false;
  for (int64_t k = 0; k < qel_var_member_count(v); ++k) {
    const char *a = nullptr, *b = nullptr;
    int64_t la = 0, lb = 0;
    uint32_t t = 0;
    uint8_t mu = 0;
    const qel_var *m = qel_var_member_at(v, k, &a, &la);
    qel_var_schema_get_at(s, k, &b, &lb, &t, &mu);
    if (m == nullptr || la != lb || std::memcmp(a, b, static_cast<size_t>(la)) != 0 || !schemas_agree(m, m->schema))
      return false;
  }
  return true;
}

void arrow_round_trip(const qel_var *v, Reader &r) {
  const unsigned flags = (r.flag() ? QEL_ARROW_CALLER_VALUES : 0) | (r.flag() ? QEL_ARROW_UTF8 : 0);
  const bool stream = r.flag();
  const int64_t chunk = r.pick(4);
  ArrowSchema s{};
  ArrowArray a{};
  ArrowArrayStream st{};
  qel_arrow_error err;
  const int rc =
      stream ? qel_arrow_export_stream(v, chunk, flags, &st, &err) : qel_arrow_export_var(v, flags, &s, &a, &err);
  FZ_CHECK(err.code == rc, "arrow export gave %d, error %d", rc, err.code);
  if (rc != QEL_ARROW_OK) {
    FZ_CHECK(rc == QEL_ARROW_ERR_SHAPE || (rc == QEL_ARROW_ERR_UTF8 && (flags & QEL_ARROW_UTF8) != 0),
             "arrow export gave %d (%s)", rc, err.message);
    FZ_CHECK(v->multi != 0 || rc == QEL_ARROW_ERR_SHAPE, "single form exported with %d", rc);
    FZ_CHECK(st.release == nullptr && s.release == nullptr && a.release == nullptr, "failed export left a release");
    return;
  }
  JsonScan scan;
  json_scan(v, 0, scan);
  qel_var *fresh = json_shape(v);
  int rc2 = 0;
  const std::string before = json_text(fresh, 0, &rc2);
  const int ri = stream ? qel_arrow_import_stream(fresh, &st, &g_context_tag, json_resolver, flags, &err)
                        : qel_arrow_import(fresh, &s, &a, &g_context_tag, json_resolver, flags, &err);
  if (scan.elements_fit && scan.depth < 200 && schemas_agree(v, v->schema))
    FZ_CHECK(ri == QEL_ARROW_OK && qel_var_equal(fresh, v), "arrow round trip (stream %d): import %d (%s)", stream, ri,
             err.message);
  FZ_CHECK(ri == QEL_ARROW_OK || json_text(fresh, 0, &rc2) == before, "failed arrow import (%d) changed it", ri);
  if (stream) st.release(&st);
  if (s.release != nullptr) s.release(&s);
  if (a.release != nullptr) a.release(&a);
  qel_var_free(fresh);
}

// A single record goes as the two rows of a record array.
void arrow_round_trip(const Handle &h, Reader &r) {
  if (h.r->multi != 0 || cls(h.r->type) != Cls::record || h.r->type < 10) return arrow_round_trip(h.r, r);
  qel_var *rows = qel_var_new_x(h.r->type, 1, &g_context_tag, json_resolver);
  qel_var_add_var_x(rows, h.r);
  qel_var_add_var_x(rows, h.r);
  arrow_round_trip(rows, r);
  qel_var_free(rows);
}

// Avro round trip through the datum and the schema qel gives for the shape.
void avro_round_trip(const Handle &h) {
  qel_stream s, text;
  qel_stream_init(&s);
  qel_stream_init(&text);
  qel_stream_append(&s, "<", 1);
  qel_avro_error err;
  const int rc = qel_avro_write(h.r, &s, &g_context_tag, json_resolver, 0, &err);
  FZ_CHECK(rc == err.code && (rc == QEL_AVRO_OK || rc == QEL_AVRO_ERR_MEMBERS || rc == QEL_AVRO_ERR_DEPTH) &&
               (rc == QEL_AVRO_OK || s.length == 1),
           "avro write gave %d (%s) with %ld bytes", rc, err.message, s.length);
  qel_avro_schema(h.r->type, h.r->multi, &g_context_tag, json_resolver, nullptr, 0, &text);
  qel_avro_type *type = qel_avro_type_parse(text.bytes, text.length, &err);
  FZ_CHECK(type != nullptr, "qel's own schema of code %u is refused: %s", h.r->type, err.message);
  if (rc == QEL_AVRO_OK) {
    qel_var *fresh = json_shape(h.r);  // as for JSON: the same members; elements made by the reader
    JsonScan scan;
    json_scan(h.r, 0, scan);
    const int rr =
        qel_avro_read(fresh, s.bytes + 1, s.length - 1, nullptr, type, &g_context_tag, json_resolver, 0, &err);
    bool holes = false;  // empty record-array slots are not written
    for (int64_t i = 0; h.r->multi != 0 && cls(h.r->type) == Cls::record && i < h.r->data.vars.count; ++i)
      holes |= h.r->data.vars.entries[i] == nullptr;
    FZ_CHECK(rr == QEL_AVRO_OK && (holes || !scan.elements_fit || qel_var_equal(fresh, h.r)),
             "avro round trip: read %d (%s at %s)", rr, err.message, err.path);
    qel_var_free(fresh);
  }
  qel_avro_type_free(type);
  qel_stream_term(&s);
  qel_stream_term(&text);
}

void verify_pool(Pool &p) {
  FZ_CHECK(g_real_calls == g_model_calls, "resolver called %zu times, model %zu", g_real_calls.size(),
           g_model_calls.size());
  g_real_calls.clear();
  g_model_calls.clear();
  g_total = 0;
  for (int i = 0; i < kPool; ++i) verify(p.v[i].get(), *p.m[i], "v" + std::to_string(i));
}

// Order of two stored values of code t (bits, or bytes for strings); the
// 64-bit integers sort signed and compare (qel_var_cmp) unsigned.
int order(uint32_t t, const Slot &x, const Slot &y, bool cmp = false) {
  switch (kind_of(t)) {
    case Num::u32: return (x.v > y.v) - (x.v < y.v);
    case Num::i64:
      if (cmp) return (x.v > y.v) - (x.v < y.v);
      return (static_cast<int64_t>(x.v) > static_cast<int64_t>(y.v)) -
             (static_cast<int64_t>(x.v) < static_cast<int64_t>(y.v));
    case Num::f32: return (fz::bitsf(x.v) > fz::bitsf(y.v)) - (fz::bitsf(x.v) < fz::bitsf(y.v));
    case Num::f64: return (fz::bitsd(x.v) > fz::bitsd(y.v)) - (fz::bitsd(x.v) < fz::bitsd(y.v));
    default: return cls(t) == Cls::bytes ? fz::bytes_order(x.s, y.s) : 0;
  }
}

// A coarse key of an entry, so that sort_by meets many ties: the value's
// bits (a string's length) mixed with the caller value, or a record
// element's member count.
uint64_t sort_key(const qel_var *e, bool record) {
  if (record) return static_cast<uint64_t>(qel_var_member_count(e)) % 3;
  const uint64_t bits = cls(e->type) == Cls::b32   ? e->data.bits32
                        : cls(e->type) == Cls::b64 ? e->data.bits64
                                                   : static_cast<uint64_t>(e->data.stream.length);
  return (bits ^ qel_var_get_buf(e, 0)) & 3;
}
uint64_t sort_key(const Slot &s, Cls c) { return ((c == Cls::bytes ? s.s.size() : s.v) ^ s.buf) & 3; }
int by_key(const qel_var *a, const qel_var *b, void *record) {
  const uint64_t x = sort_key(a, record != nullptr), y = sort_key(b, record != nullptr);
  return (x > y) - (x < y);
}

// The operations op() decodes, by code, under the names traces print.
constexpr const char *kOps[32] = {
    "renew",      "renew_x",    "change",     "copy",       "append",     "add_var",    "set_var",    "get_var",
    "add_number", "set_number", "get_number", "add_string", "set_string", "get_string", "expand",     "zero",
    "shrink",     "trim",       "sort",       "find",       "cmp",        "add_x",      "buffer",     "buf",
    "set_val",    "get_val",    "add_new",    "add_var_x",  "set_var_x",  "get_var_x",  "round_trip", "renew"};

void op(Reader &r, Pool &p) {
  const uint8_t code = r.u8() % 32;
  const int slot = static_cast<int>(r.pick(kPool));
  const bool room = g_total < kBudget, cpp = r.flag();
  FZ_TRACE("%s on slot %d (v%d is code %u multi %u)%s", kOps[code], slot, slot, p.m[slot]->type, p.m[slot]->multi,
           cpp ? " C++" : "");
  Handle h = pick_handle(r, p, slot);  // the variant most operations work on
  const int64_t i = fz::pick_index(r, h.m->value_array() ? h.m->a.count : static_cast<int64_t>(h.m->elems.size()));
  switch (code) {
    case 0:
    case 31: {  // free and new
      const uint32_t t = r.of(kTypes);
      const uint8_t mu = r.of(kMultis);
      p.v[slot] = qel::var::make(t, mu);
      p.m[slot] = m_new(t, mu);
      break;
    }
    case 1: {  // free and new_x: with the resolver, or a context used as the schema
      if (!room) return;
      const uint32_t t = r.of(kTypes);
      const uint8_t mu = r.of(kMultis);
      const unsigned how = r.pick(5);
      qel_schema *ctx = how < 2    ? nullptr
                        : how == 2 ? g_a.schema.get()
                        : how == 3 ? g_b.schema.get()
                                   : g_self.schema.get();
      Path path;
      p.v[slot].reset(how == 0 ? qel_var_new_x(t, mu, &g_context_tag, real_resolver)
                               : qel_var_new_x(t, mu, ctx, nullptr));
      p.m[slot] = how == 0 ? m_new_x(t, mu, &g_context_tag, true, path) : m_new_x(t, mu, ctx, false, path);
      break;
    }
    case 2: {  // change / change_x of any variant of the trees
      if (!room) return;
      const uint32_t t = r.flag() ? h.m->type : r.of(kTypes);
      const uint8_t mu = r.flag() ? h.m->multi : r.of(kMultis);
      const unsigned how = r.pick(3);
      if (how == 0) qel_var_change(h.r, t, mu);
      else
        qel_var_change_x(h.r, t, mu, how == 1 ? static_cast<void *>(&g_context_tag) : g_self.schema.get(),
                         how == 1 ? real_resolver : nullptr);
      if (h.m->type == t && h.m->multi == mu) break;
      if (how == 0) {
        m_reform(*h.m, t, mu);
        break;
      }
      m_free_x(*h.m);
      h.m->type = t;
      h.m->multi = mu;
      if (how == 1) g_model_calls.push_back(t);
      h.m->schema = how == 1 ? resolve(t) : g_self.schema.get();
      Path path;
      m_init(*h.m, how == 1 ? static_cast<void *>(&g_context_tag) : g_self.schema.get(), how == 1, path);
      break;
    }
    case 3: {  // copy, also from inside the destination or from a tree holding it
      if (!room) return;
      Handle &d = h, s = r.flag() ? pick_handle(r, p, d.slot) : pick_other(r, p, d, true);
      cpp ? qel::var_ref(d.r).copy_from(s.r) : qel_var_copy(d.r, s.r);
      if (d.m != s.m) m_copy(*d.m, *m_replica(*s.m));  // as from an independent copy
      break;
    }
    case 4: {  // append, also within one tree
      if (!room) return;
      Handle &d = h, s = r.flag() ? pick_handle(r, p, d.slot) : pick_other(r, p, d, true);
      qel_var_append(d.r, s.r);
      m_append(*d.m, *s.m);
      break;
    }
    case 5: {  // add_var
      if (!room) return;
      Handle &d = h, s = pick_other(r, p, d, true);
      qel_var_add_var(d.r, s.r);
      if (!d.m->value_array() || d.m->type != s.m->type) break;
      if (!s.m->arr()) {
        d.m->a.push(s.m->num, s.m->str, 0);
        break;
      }
      const std::vector<Slot> live(s.m->a.slots.begin(), s.m->a.slots.begin() + s.m->a.count);
      for (const Slot &x : live) d.m->a.push(x.v, x.s, x.buf);
      break;
    }
    case 6: {  // set_var
      Handle &d = h, s = pick_other(r, p, d, true);
      qel_var_set_var(d.r, i, s.r);
      bool null_value;
      if (d.m->type == s.m->type && d.m->c() != Cls::record)
        m_set(*d.m, i, m_num_at(*s.m, 0), m_str_at(*s.m, 0, &null_value), d.m->c() == Cls::bytes);
      break;
    }
    case 7: {  // get_var (into itself only when single)
      Handle &s = h, d = pick_other(r, p, s, !s.m->arr());
      bool null_value;
      const std::string str = m_str_at(*s.m, i, &null_value);
      const uint64_t bits = s.m->numeric() ? m_num_at(*s.m, i) : 0;
      const uint32_t t = s.m->type;
      qel_var_get_var(s.r, i, d.r);
      if (d.m->type != t || d.m->arr()) m_reform(*d.m, t, 0);
      d.m->str = str;
      d.m->num = bits;
      break;
    }
    case 8:
    case 9: {  // add a number, or set one at any index, in one of the four kinds
      if (!room) return;
      const fz::Number n = fz::pick_number(r);
      qel::var_ref v(h.r);
      if (code == 8) {
        switch (n.kind) {
          case 0: qel_var_add_integer(h.r, n.i); break;
          case 1: cpp ? v.add(n.i) : qel_var_add_long(h.r, n.i); break;
          case 2: cpp ? v.add(n.f) : qel_var_add_float(h.r, n.f); break;
          default: cpp ? v.add(n.d) : qel_var_add_double(h.r, n.d); break;
        }
        m_add(*h.m, n.bits(h.m->k()), {}, false);
      } else {
        switch (n.kind) {
          case 0: qel_var_set_integer(h.r, i, n.i); break;
          case 1: cpp ? v.set(i, n.i) : qel_var_set_long(h.r, i, n.i); break;
          case 2: cpp ? v.set(i, n.f) : qel_var_set_float(h.r, i, n.f); break;
          default: cpp ? v.set(i, n.d) : qel_var_set_double(h.r, i, n.d); break;
        }
        m_set(*h.m, i, n.bits(h.m->k()), {}, false);
      }
      break;
    }
    case 10: {  // get a number at any index, in all four kinds, through C and C++
      const qel::var_ref v(h.r);
      const Num k = h.m->numeric() && (!h.m->arr() || (i >= 0 && i < h.m->a.count)) ? h.m->k() : Num::none;
      const uint64_t bits = m_num_at(*h.m, i);
      fz::check_reads(k, bits, qel_var_get_integer(h.r, i), qel_var_get_long(h.r, i), qel_var_get_float(h.r, i),
                      qel_var_get_double(h.r, i), "get");
      fz::check_reads(k, bits, v.get<int64_t>(i), v.get<int64_t>(i), v.get<float>(i), v.get<double>(i), "C++ get");
      return;
    }
    case 11:
    case 12: {  // add_string, or set_string at any index
      if (!room) return;
      const Text t = pick_text(r, p, h);
      if (code == 11) qel_var_add_string(h.r, t.p(), t.len), m_add(*h.m, 0, t.value, true);
      else qel_var_set_string(h.r, i, t.p(), t.len), m_set(*h.m, i, 0, t.value, true);
      break;
    }
    case 13: {  // get_string at any index, through C and C++
      const char *text = "junk";
      int64_t len = 77;
      qel_var_get_string(h.r, i, &text, &len);
      bool null_value;
      const std::string want = m_str_at(*h.m, i, &null_value);
      FZ_CHECK(null_value ? text == nullptr && len == 0
                          : std::string_view(text ? text : "", static_cast<size_t>(len)) == want,
               "get_string(%ld) of code %u gave %p/%ld", i, h.m->type, (const void *)text, len);
      FZ_CHECK(qel::var_ref(h.r).get<std::string_view>(i) == want, "C++ get<string_view>(%ld) differs", i);
      return;
    }
    case 14: {  // expand
      const int64_t n = static_cast<int64_t>(r.u16() % 600) - 4;
      qel_var_expand(h.r, n);
      if (!h.m->arr() && h.m->c() == Cls::bytes)
        FZ_CHECK(qel_var_buf_size(h.r) >= n, "expand(%ld) of a string left capacity %ld", n, qel_var_buf_size(h.r));
      else if (h.m->value_array())
        FZ_CHECK(real_capacity(h.r) >= n, "expand(%ld) of an array left capacity %ld", n, real_capacity(h.r));
      break;
    }
    case 15: {  // zero
      qel_var_zero(h.r);
      if (h.m->arr() || h.m->c() == Cls::record) break;
      h.m->num = 0;
      h.m->str.clear();
      const qel_stream &s = h.r->data.stream;
      for (int64_t k = 0; h.m->c() == Cls::bytes && k < s.capacity; ++k)
        FZ_CHECK(s.bytes[k] == 0, "zero left byte %ld", k);
      break;
    }
    case 16: {  // shrink, any n
      const uint8_t sel = r.u8();
      const int64_t n = sel < 200 ? static_cast<int64_t>(sel % 40) - 4 : (sel & 1 ? INT64_MAX : INT64_MIN);
      qel_var_shrink(h.r, n);
      MVar &m = *h.m;
      if (n < 0) break;  // nothing changes, in either form
      if (!m.arr()) {
        if (m.str.size() > static_cast<size_t>(n)) m.str.resize(static_cast<size_t>(n));
        if (m.c() == Cls::record)
          for (auto &e : m.members) e.second.reset();
        if (m.c() != Cls::bytes) m.num = 0;
      } else if (m.c() == Cls::record) {
        m.elems.clear();
      } else if (n == 0) {
        m.a.count = 0;
        m.a.sorted = true;
        m.a.forget_above();
      } else {
        FZ_CHECK(real_capacity(h.r) == m.a.cap, "shrink moved the capacity");
        const int64_t k = std::min(m.a.cap, n);
        if (m.c() == Cls::b32) fz::expose(h.r->data.arrayd, m.a, m.k(), k, "shrink");
        else if (m.c() == Cls::b64) fz::expose(h.r->data.arrayx, m.a, m.k(), k, "shrink");
        else fz::expose(h.r->data.array, m.a, Num::none, k, "shrink");
      }
      break;
    }
    case 17: {  // trim
      qel_var_trim(h.r);
      if (h.m->arr() || h.m->c() != Cls::bytes) break;
      std::string &s = h.m->str;
      auto sp = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
      while (!s.empty() && sp(s.back())) s.pop_back();
      s.erase(0, std::min(s.size(), static_cast<size_t>(std::find_if_not(s.begin(), s.end(), sp) - s.begin())));
      break;
    }
    case 18: {  // qsort, or the stable sort_by (C, or C++ with a "before" lambda)
      MVar &mm = *h.m;
      if (r.flag() && mm.arr()) {
        const bool record = mm.c() == Cls::record;
        void *ctx = record ? &mm : nullptr;
        if (cpp)
          qel::var_ref(h.r).sort_by(
              [&](qel::var_cref a, qel::var_cref b) { return by_key(a.get(), b.get(), ctx) < 0; });
        else qel_var_sort_by(h.r, by_key, ctx);
        if (record)
          std::stable_sort(mm.elems.begin(), mm.elems.end(), [](const auto &a, const auto &b) {
            return (a->multi == 0 && a->c() == Cls::record ? a->members.size() % 3 : 0) <
                   (b->multi == 0 && b->c() == Cls::record ? b->members.size() % 3 : 0);
          });
        else
          std::stable_sort(mm.a.slots.begin(), mm.a.slots.begin() + mm.a.count,
                           [&mm](const Slot &a, const Slot &b) { return sort_key(a, mm.c()) < sort_key(b, mm.c()); });
        mm.a.sorted = false;
        break;
      }
      const int flag = static_cast<int>(r.pick(3));
      qel_var_qsort(h.r, flag);
      MVar &m = *h.m;
      auto by = [&m](const Slot &x, const Slot &y) { return order(m.type, x, y); };
      if (m.value_array() && m.c() == Cls::bytes)
        fz::check_sort(h.r->data.array, m.a, Num::none, flag != 0, by, "qsort");
      if (m.value_array() && m.c() == Cls::b32) fz::check_sort(h.r->data.arrayd, m.a, m.k(), flag != 0, by, "qsort");
      if (m.value_array() && m.c() == Cls::b64) fz::check_sort(h.r->data.arrayx, m.a, m.k(), flag != 0, by, "qsort");
      break;
    }
    case 19: {  // find / bfind
      MVar &m = *h.m;
      uint64_t key_bits =
          m.a.count > 0 && r.flag() ? m.a.at(r.u8() % m.a.count).v : static_cast<uint64_t>(fz::pick_i64(r));
      Text t = pick_text(r, p, h, false);
      if (m.c() == Cls::bytes && m.a.count > 0 && r.flag()) {
        t.owned = t.value = m.a.at(r.u8() % m.a.count).s;
        t.own = true;
        t.len = static_cast<int64_t>(t.owned.size());
      }
      if (m.c() == Cls::b32) key_bits &= 0xFFFFFFFFu;
      const uint32_t k32 = static_cast<uint32_t>(key_bits);
      const int64_t k64 = static_cast<int64_t>(key_bits);
      const void *key = m.c() == Cls::bytes ? static_cast<const void *>(t.p())
                        : m.c() == Cls::b32 ? static_cast<const void *>(&k32)
                                            : static_cast<const void *>(&k64);
      const int64_t got = qel_var_find(h.r, key, t.len), bgot = qel_var_bfind(h.r, key, t.len);
      const int64_t want = m.value_array() ? m.a.lowest(key_bits, t.value, m.c() == Cls::bytes) : -1;
      FZ_CHECK(got == want, "find in code %u (multi %u) gave %ld, model %ld", m.type, m.multi, got, want);
      FZ_CHECK(!m.value_array() || m.a.sorted
                   ? bgot == want
                   : bgot == -1 || (bgot >= 0 && bgot < m.a.count &&
                                    (m.c() == Cls::bytes ? m.a.at(bgot).s == t.value : m.a.at(bgot).v == key_bits)),
               "bfind in code %u gave %ld, model %ld", m.type, bgot, want);
      return;
    }
    case 20: {  // cmp
      Handle &a = h, b = pick_other(r, p, a, true);
      const int got = qel_var_cmp(a.r, b.r);
      const MVar &x = *a.m, &y = *b.m;
      int want = 0;
      if (x.multi != y.multi) {
        want = static_cast<int8_t>(x.multi) - static_cast<int8_t>(y.multi);
      } else if (x.type != y.type) {
        want = static_cast<int32_t>(x.type - y.type);
      } else if (!x.arr()) {
        want = order(x.type, Slot{St::known, x.num, x.str, 0}, Slot{St::known, y.num, y.str, 0}, true);
      } else if (x.c() != Cls::record) {
        for (int64_t k = 0; k < std::min(x.a.count, y.a.count) && want == 0; ++k)
          want = order(x.type, x.a.slots[static_cast<size_t>(k)], y.a.slots[static_cast<size_t>(k)], true);
        if (want == 0) want = fz::sign(x.a.count - y.a.count);
      }
      const bool exact = x.multi != y.multi || x.type != y.type;
      FZ_CHECK(exact ? got == want : fz::sign(got) == want, "cmp of code %u/%u (multi %u/%u) gave %d, model %d", x.type,
               y.type, x.multi, y.multi, got, want);
      const bool same = m_equal(x, y);
      FZ_CHECK(qel_var_equal(a.r, b.r) == same && qel_var_equal(b.r, a.r) == same &&
                   (qel::var_ref(a.r) == qel::var_cref(b.r)) == same,
               "equal of code %u/%u (multi %u/%u) gave %d, model %d", x.type, y.type, x.multi, y.multi,
               qel_var_equal(a.r, b.r), same);
      // A copy of a with one thing changed, unequal unless it already held
      // that: a value zeroed, a string's bytes made 'x', or member `name`
      // made a copy of b.
      const int64_t k = x.arr() && x.a.count > 0 ? r.u8() % x.a.count : 0;
      const std::string name = r.of(kNames);
      qel::var c(x.type, x.multi);
      qel_var_copy(c.get(), a.r);
      auto mc = m_new(x.type, x.multi);
      m_copy(*mc, x);
      if (x.c() != Cls::record && (!x.arr() || x.a.count > 0)) {
        std::string s = x.arr() ? x.a.at(k).s : x.str;
        std::fill(s.begin(), s.end(), 'x');
        if (x.c() == Cls::bytes) qel_var_set_string(c.get(), k, s.data(), static_cast<int64_t>(s.size()));
        else qel_var_set_integer(c.get(), k, 0);
        if (x.arr()) mc->a.at(k) = Slot{St::known, 0, s, 0};
        else mc->num = 0, mc->str = s;
      } else if (!x.arr() && x.record_code()) {
        qel_var_set_val(c.get(), name.data(), static_cast<int64_t>(name.size()), b.r);
        MVar *d = m_hash_get(*mc, name);
        if (d == nullptr) m_hash_insert(*mc, name, m_new(y.type, y.multi)), d = m_hash_get(*mc, name);
        m_copy(*d, y);
      }
      const bool near = m_equal(x, *mc);
      FZ_CHECK(qel_var_equal(a.r, c.get()) == near && qel_var_equal(c.get(), a.r) == near,
               "equal of code %u multi %u and a changed copy gave %d, model %d", x.type, x.multi,
               qel_var_equal(a.r, c.get()), near);
      return;
    }
    case 21: {  // keyed adds
      if (!room) return;
      MVar &m = *h.m;
      fz::Number n = fz::pick_number(r);
      if (m.a.count > 0 && n.kind < 2 && r.flag()) n.i = fz::read_int(m.k(), m.a.at(r.u8() % m.a.count).v);
      const bool bytes = r.pick(5) == 0;
      Text t;
      uint64_t got;
      if (bytes) {
        t = pick_text(r, p, h);
        got = qel_var_add_string_x(h.r, t.p(), t.len);
      } else {
        switch (n.kind) {
          case 0: got = qel_var_add_integer_x(h.r, n.i); break;
          case 1: got = cpp ? qel::var_ref(h.r).add_x(n.i) : qel_var_add_long_x(h.r, n.i); break;
          case 2: got = cpp ? qel::var_ref(h.r).add_x(n.f) : qel_var_add_float_x(h.r, n.f); break;
          default: got = cpp ? qel::var_ref(h.r).add_x(n.d) : qel_var_add_double_x(h.r, n.d); break;
        }
      }
      uint64_t want = 0;
      if (m.arr() && (bytes ? m.c() == Cls::bytes : m.numeric())) {
        const uint64_t key = bytes ? 0 : n.bits(m.k());
        const int64_t at = m.a.lowest(key, t.value, bytes);
        if (at >= 0) want = m.a.at(at).buf;
        else m.a.push(key, t.value, 0);
      }
      FZ_CHECK(got == want, "keyed add on code %u gave %lu, model %lu", m.type, got, want);
      break;
    }
    case 22: {  // raw buffer readers, and writing a number through the buffer
      MVar &m = *h.m;
      void *b = qel_var_buffer(h.r);
      const int64_t size = qel_var_buf_size(h.r), len = qel_var_buf_len(h.r);
      if (m.arr() || m.c() == Cls::record) {
        FZ_CHECK(b == nullptr && size == 0 && len == 0, "buffer of code %u multi %u gave %p/%ld/%ld", m.type, m.multi,
                 b, size, len);
        return;
      }
      if (m.c() == Cls::bytes) {
        FZ_CHECK(len == static_cast<int64_t>(m.str.size()) && size >= len && b == h.r->data.stream.bytes,
                 "buffer of a string gave %ld/%ld", size, len);
        return;
      }
      const int64_t w = m.c() == Cls::b32 ? 4 : 8;
      const char *lo = reinterpret_cast<const char *>(h.r), *bp = static_cast<const char *>(b);
      FZ_CHECK(size == w && len == w && bp >= lo && bp + w <= lo + sizeof(qel_var),
               "buffer of code %u: size %ld len %ld", m.type, size, len);
      uint64_t now = 0;
      std::memcpy(&now, b, static_cast<size_t>(w));
      FZ_CHECK(fz::same_value(m.k(), now, m.num), "buffer of code %u holds %lx, model %lx", m.type, now, m.num);
      if (r.flag()) {
        const uint64_t v = static_cast<uint64_t>(fz::pick_i64(r));
        std::memcpy(b, &v, static_cast<size_t>(w));
        m.num = w == 4 ? (v & 0xFFFFFFFFu) : v;
      }
      break;
    }
    case 23: {  // set_buf / get_buf at any index, up to and past the capacity
      MVar &m = *h.m;
      int64_t j = r.flag() ? i : static_cast<int64_t>(r.u8()) % (m.a.cap + 2);
      const bool set = r.flag();
      const uint64_t v = r.flag() ? r.u64() : r.u8();
      if (set) qel_var_set_buf(h.r, j, v);
      const uint64_t got = cpp ? qel::var_ref(h.r).get_buf(j) : qel_var_get_buf(h.r, j);
      if (!m.arr()) {
        if (set) m.buf = v;
        FZ_CHECK(got == m.buf, "get_buf of a single variant gave %lx, model %lx", got, m.buf);
        break;
      }
      if (j < 0) j = m.a.count - 1;
      if (m.c() == Cls::record || j < 0 || j >= m.a.cap) {
        FZ_CHECK(got == 0, "get_buf(%ld) outside the capacity %ld gave %lx", j, m.a.cap, got);
        break;
      }
      Slot &s = m.a.at(j);
      if (set && s.st == St::zero) s = Slot{St::known, 0, {}, v};
      if (set) s.buf = v;
      FZ_CHECK(s.st == St::unknown || got == s.buf, "get_buf(%ld) gave %lx, model %lx", j, got, s.buf);
      break;
    }
    case 24: {  // set_val
      if (!room) return;
      Handle s = pick_other(r, p, h, false);
      const std::string name = r.of(kNames);
      qel_var_set_val(h.r, name.data(), static_cast<int64_t>(name.size()), s.r);
      if (h.m->arr() || !h.m->record_code()) break;
      MVar *d = m_hash_get(*h.m, name);
      if (d == nullptr) {
        auto created = m_new(s.m->type, s.m->multi);
        d = created.get();
        m_hash_insert(*h.m, name, std::move(created));
      }
      m_copy(*d, *s.m);
      break;
    }
    case 25: {  // get_val, through C and C++
      const std::string name = r.of(kNames);
      qel_var *got = qel_var_get_val(h.r, name.data(), static_cast<int64_t>(name.size()));
      MVar *want = !h.m->arr() && h.m->record_code() ? m_hash_get(*h.m, name) : nullptr;
      FZ_CHECK((got == nullptr) == (want == nullptr) && qel::var_ref(h.r).member(name).get() == got,
               "get_val(%s) on code %u multi %u gave %p", name.c_str(), h.m->type, h.m->multi, (void *)got);
      return;
    }
    case 26:
    case 27: {  // add_new, add_new_x (members made through the resolver), or add_var_x
      if (!room) return;
      Handle s = pick_other(r, p, h, false);
      const bool full = code == 26 && r.flag();
      qel_var *got = code != 26 ? nullptr
                     : full     ? qel_var_add_new_x(h.r, &g_context_tag, real_resolver)
                                : qel_var_add_new(h.r);
      if (code == 27) qel_var_add_var_x(h.r, s.r);
      const bool applies = h.m->arr() && h.m->record_code();
      if (code == 26)
        FZ_CHECK(applies ? got == h.r->data.vars.entries[h.r->data.vars.count - 1] : got == nullptr,
                 "add_new on code %u multi %u gave %p", h.m->type, h.m->multi, (void *)got);
      if (!applies) break;
      Path path;
      if (full) {
        h.m->elems.push_back(m_new_x(h.m->type, 0, &g_context_tag, true, path));
        break;
      }
      auto e = m_new(h.m->type, 0);
      e->schema = h.m->schema;
      if (code == 27) m_copy(*e, *s.m);
      h.m->elems.push_back(std::move(e));
      break;
    }
    case 28: {  // set_var_x
      if (!room) return;
      Handle s = pick_other(r, p, h, !h.m->arr());
      qel_var_set_var_x(h.r, i, s.r);
      if (!h.m->record_code()) break;
      if (!h.m->arr()) m_copy(*h.m, *s.m);
      else if (i >= 0 && i < static_cast<int64_t>(h.m->elems.size())) m_copy(*h.m->elems[static_cast<size_t>(i)], *s.m);
      break;
    }
    case 29: {  // get_var_x, through C and C++
      qel_var *got = qel_var_get_var_x(h.r, i), *want = nullptr;
      if (h.m->record_code() && !h.m->arr()) want = h.r;
      if (h.m->record_code() && h.m->arr() && i >= 0 && i < static_cast<int64_t>(h.m->elems.size()))
        want = static_cast<qel_var *>(h.r->data.vars.entries[i]);
      FZ_CHECK(got == want && qel::var_ref(h.r).element(i).get() == want,
               "get_var_x(%ld) on code %u multi %u gave %p, expected %p", i, h.m->type, h.m->multi, (void *)got,
               (void *)want);
      return;
    }
    default: {  // JSON round trip of the variant, or schema readers on the fixed schemas
      if (r.flag()) {
        json_round_trip(h, r);
        arrow_round_trip(h, r);
        avro_round_trip(h);
        return;
      }
      const SchemaDef *d = r.pick(3) == 0 ? &g_a : r.flag() ? &g_b : &g_self;
      const std::string name = r.of(kNames);
      uint32_t t = 12345;
      uint8_t mu = 77;
      const int idx = qel_var_schema_find(d->schema.get(), name.data(), static_cast<int64_t>(name.size()), &t, &mu);
      int want = -1;
      for (size_t k = 0; k < d->members.size() && want < 0; ++k)
        if (name == d->members[k].name) want = static_cast<int>(k);
      const MemberDef md = want >= 0 ? d->members[static_cast<size_t>(want)] : MemberDef{"", 12345, 77};
      FZ_CHECK(idx == want && t == md.type && mu == md.multi &&
                   qel_var_schema_size(d->schema.get()) == static_cast<int64_t>(d->members.size()),
               "schema_find(%s) gave %d (type %u multi %u), model %d", name.c_str(), idx, t, mu, want);
      return;
    }
  }
  verify_pool(p);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  make_schema(g_a, {{"id", 4, 0}, {"tags", 7, 1}, {"child", 21, 0}, {"kids", 20, 1}, {"f", 5, 0}});
  make_schema(g_b, {{"x", 6, 0}, {"name", 8, 0}, {"vals", 1, 1}, {"back", 20, 0}, {"big", 70000, 0}});
  make_schema(g_self, {{"value", 5, 0}, {"next", 22, 0}, {"list", 22, 1}, {"w", 9, 0xFF}});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Reader r(data, size);
  Pool p;
  for (int i = 0; i < kPool; ++i) {
    const uint32_t t = r.of(kTypes);
    const uint8_t mu = r.of(kMultis);
    Path path;
    p.v[i].reset(qel_var_new_x(t, mu, &g_context_tag, real_resolver));
    p.m[i] = m_new_x(t, mu, &g_context_tag, true, path);
  }
  verify_pool(p);
  for (int step = 0; step < 2048 && !r.empty(); ++step) op(r, p);
  g_real_calls.clear();
  g_model_calls.clear();
  return 0;
}

#ifndef QEL_FUZZ
QEL_MODEL_TEST(var)
#endif
