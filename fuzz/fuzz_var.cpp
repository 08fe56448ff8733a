// Fuzz target for the full variant (qel_var) and its extensions: operation
// sequences decoded from the input run on a pool of four variants, and every
// variant tree is compared, after every operation, with a model of the
// documented semantics kept here (records, members, elements, values, caller
// values, schemas, resolver calls).  Records come from a fixed set of
// schemas, two of which nest into themselves (directly and through another
// schema).  Aliasing is exercised: the same variant as source and
// destination, and string bytes taken from the variant's own storage.
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
//  - the float and double sorts follow the library's documented quicksort
//    step by step, so their order (ties and NaNs included) is checked
//    exactly; the other sorts are checked for order and contents.
#include <qel.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <utility>
#include <vector>

#include "fuzz_common.h"

namespace {

using fz::Reader;

enum class Cls { b32, b64, bytes, record };

Cls cls(uint32_t t) {
  if (t <= 9) {
    const uint32_t bit = 1u << t;
    if (bit & 0x22eu) return Cls::b32;
    if (bit & 0x50u) return Cls::b64;
    if (bit & 0x180u) return Cls::bytes;
  }
  return Cls::record;
}

// ---------------------------------------------------------------------------
// Schemas and the resolver

struct MemberDef {
  const char *name;
  uint32_t type;
  uint8_t multi;
};

struct SchemaDef {
  qel_schema *schema = nullptr;
  std::vector<MemberDef> members;
};

SchemaDef g_a, g_b, g_self;  // codes 20, 21, 22
int g_context_tag;           // the resolver's context

std::vector<uint32_t> g_real_calls, g_model_calls;

const SchemaDef *def_of(const qel_schema *s) {
  if (s == nullptr) return nullptr;
  if (s == g_a.schema) return &g_a;
  if (s == g_b.schema) return &g_b;
  if (s == g_self.schema) return &g_self;
  return nullptr;
}

qel_schema *resolve(uint32_t type) {
  switch (type) {
    case 20: return g_a.schema;
    case 21: return g_b.schema;
    case 22: return g_self.schema;
    case 8: return g_b.schema;  // a non-record code: only stored
    default: return nullptr;
  }
}

qel_schema *real_resolver(void *context, uint32_t type) {
  FZ_CHECK(context == &g_context_tag, "resolver called with context %p", context);
  g_real_calls.push_back(type);
  return resolve(type);
}

void make_schema(SchemaDef &d, std::vector<MemberDef> members) {
  d.schema = qel_var_schema_new();
  d.members = std::move(members);
  for (const MemberDef &m : d.members)
    qel_var_schema_add(d.schema, m.name, static_cast<int64_t>(std::strlen(m.name)), m.type, m.multi);
  // Member codes are 16 bits in a schema.
  for (MemberDef &m : d.members) m.type &= 0xFFFFu;
}

// ---------------------------------------------------------------------------
// The model

enum class St : uint8_t { known, zero, unknown };

struct MSlot {
  St st = St::zero;
  uint64_t v = 0;  // 32-bit class: low 32 bits
  std::string s;
  uint64_t buf = 0;
};

struct MVar {
  uint32_t type = 0;
  uint8_t multi = 0;
  qel_schema *schema = nullptr;
  uint64_t buf = 0;
  uint64_t num = 0;  // single numeric value (bits)
  std::string str;   // single byte string
  std::vector<std::pair<std::string, std::unique_ptr<MVar>>> members;  // hash entries, NULL value = nullptr
  std::vector<MSlot> slots;  // multi value arrays: one slot per position below the capacity seen
  int64_t count = 0;
  int64_t cap_seen = 0;
  bool sorted = true;  // ascending by the container's own order, as far as known
  std::vector<std::unique_ptr<MVar>> elems;  // multi records

  Cls c() const { return cls(type); }
  bool arr() const { return multi != 0; }
  bool value_array() const { return multi != 0 && c() != Cls::record; }
};

using Path = std::vector<const qel_schema *>;

void m_init(MVar &m, void *ctx, bool with_resolver, Path &path);

std::unique_ptr<MVar> m_new_x(uint32_t type, uint8_t multi, void *ctx, bool with_resolver, Path &path) {
  auto m = std::make_unique<MVar>();
  m->type = type;
  m->multi = multi;
  if (with_resolver) {
    g_model_calls.push_back(type);
    m->schema = resolve(type);
  } else {
    m->schema = static_cast<qel_schema *>(ctx);
  }
  m_init(*m, ctx, with_resolver, path);
  return m;
}

MVar *m_hash_get(const MVar &m, const std::string &name) {
  for (size_t i = m.members.size(); i-- > 0;)
    if (m.members[i].first == name) return m.members[i].second.get();
  return nullptr;
}

void m_hash_insert(MVar &m, const std::string &name, std::unique_ptr<MVar> v) {
  for (size_t i = m.members.size(); i-- > 0;) {
    if (m.members[i].first == name) {
      if (!m.members[i].second) {
        m.members[i].second = std::move(v);
        return;
      }
      break;
    }
  }
  m.members.emplace_back(name, std::move(v));
}

void m_init(MVar &m, void *ctx, bool with_resolver, Path &path) {
  m.slots.clear();
  m.count = 0;
  m.cap_seen = 0;
  m.sorted = true;
  m.elems.clear();
  m.members.clear();
  if (m.arr()) return;
  m.num = 0;
  m.str.clear();
  m.buf = 0;
  if (m.c() != Cls::record || m.schema == nullptr) return;
  const SchemaDef *d = def_of(m.schema);
  if (d == nullptr) return;
  if (std::find(path.begin(), path.end(), m.schema) != path.end() || path.size() >= 256) return;
  path.push_back(m.schema);
  for (const MemberDef &md : d->members) {
    auto member = m_new_x(md.type, md.multi, ctx, with_resolver, path);
    m_hash_insert(m, md.name, std::move(member));
  }
  path.pop_back();
}

void m_init_plain(MVar &m) {
  Path p;
  m_init(m, nullptr, false, p);
}

std::unique_ptr<MVar> m_new(uint32_t type, uint8_t multi) {
  auto m = std::make_unique<MVar>();
  m->type = type;
  m->multi = multi;
  m_init_plain(*m);
  return m;
}

void m_free_x(MVar &m) {
  m.slots.clear();
  m.count = 0;
  m.cap_seen = 0;
  m.elems.clear();
  m.members.clear();
  if (!m.arr()) {
    m.num = 0;
    m.str.clear();
    m.buf = 0;
  }
}

// Slots above the count that the model knew become unknown after an
// operation that changed the container (it may have rewritten them).
void m_touch(MVar &m) {
  for (int64_t i = m.count; i < static_cast<int64_t>(m.slots.size()); ++i)
    if (m.slots[static_cast<size_t>(i)].st == St::known) m.slots[static_cast<size_t>(i)].st = St::unknown;
}

void m_push(MVar &m, uint64_t v, const std::string &s, uint64_t buf) {
  if (static_cast<int64_t>(m.slots.size()) <= m.count) m.slots.resize(static_cast<size_t>(m.count + 1));
  m.slots[static_cast<size_t>(m.count)] = MSlot{St::known, v, s, buf};
  ++m.count;
  m.sorted = false;
  m_touch(m);
}

// ---- conversions: stored bits from the caller's kinds, and back ----

uint64_t store_int(uint32_t t, int64_t v) {
  switch (t) {
    case 1: case 2: case 3: case 9: return fz::low32(v);
    case 5: return fz::fbits(static_cast<float>(v));
    case 4: return static_cast<uint64_t>(v);
    case 6: return fz::dbits(static_cast<double>(v));
    default: return 0;
  }
}
uint64_t store_float(uint32_t t, float f) {
  switch (t) {
    case 1: case 2: case 3: case 9: return fz::low32(fz::truncate(static_cast<double>(f)));
    case 5: return fz::fbits(f);
    case 4: return static_cast<uint64_t>(fz::truncate(static_cast<double>(f)));
    case 6: return fz::dbits(static_cast<double>(f));
    default: return 0;
  }
}
uint64_t store_double(uint32_t t, double d) {
  switch (t) {
    case 1: case 2: case 3: case 9: return fz::low32(fz::truncate(d));
    case 5: return fz::fbits(fz::narrow(d));
    case 4: return static_cast<uint64_t>(fz::truncate(d));
    case 6: return fz::dbits(d);
    default: return 0;
  }
}
int64_t read_int(uint32_t t, uint64_t b) {
  switch (t) {
    case 1: case 2: case 3: case 9: return static_cast<int64_t>(b & 0xFFFFFFFFu);
    case 5: return fz::truncate(static_cast<double>(fz::bitsf(static_cast<uint32_t>(b))));
    case 4: return static_cast<int64_t>(b);
    case 6: return fz::truncate(fz::bitsd(b));
    default: return 0;
  }
}
float read_float(uint32_t t, uint64_t b) {
  switch (t) {
    case 1: case 2: case 3: case 9: return static_cast<float>(static_cast<uint32_t>(b));
    case 5: return fz::bitsf(static_cast<uint32_t>(b));
    case 4: return static_cast<float>(static_cast<int64_t>(b));
    case 6: return fz::narrow(fz::bitsd(b));
    default: return 0.0f;
  }
}
double read_double(uint32_t t, uint64_t b) {
  switch (t) {
    case 1: case 2: case 3: case 9: return static_cast<double>(static_cast<uint32_t>(b));
    case 5: return static_cast<double>(fz::bitsf(static_cast<uint32_t>(b)));
    case 4: return static_cast<double>(static_cast<int64_t>(b));
    case 6: return fz::bitsd(b);
    default: return 0.0;
  }
}
bool numeric(uint32_t t) { return t >= 1 && t <= 9 && t != 7 && t != 8; }

// Value at index (0 when out of range) of a numeric variant, as stored bits.
uint64_t m_num_at(const MVar &m, int64_t i) {
  if (!m.arr()) return m.num;
  if (i < 0 || i >= m.count) return 0;
  return m.slots[static_cast<size_t>(i)].v;
}
std::string m_str_at(const MVar &m, int64_t i, bool *null_out) {
  *null_out = false;
  if (m.c() != Cls::bytes) {
    *null_out = true;
    return std::string();
  }
  if (!m.arr()) return m.str;
  if (i < 0 || i >= m.count) {
    *null_out = true;
    return std::string();
  }
  return m.slots[static_cast<size_t>(i)].s;
}

void m_add_bits(MVar &m, uint64_t bits) {
  if (!m.arr() || !numeric(m.type)) return;
  m_push(m, bits, std::string(), 0);
}
void m_set_bits(MVar &m, int64_t i, uint64_t bits) {
  if (!numeric(m.type)) return;
  if (!m.arr()) {
    m.num = bits;
    return;
  }
  if (i < 0 || i >= m.count) return;
  m.slots[static_cast<size_t>(i)] = MSlot{St::known, bits, std::string(), 0};
  m.sorted = false;
  m_touch(m);
}
void m_add_string(MVar &m, const std::string &s) {
  if (!m.arr() || m.c() != Cls::bytes) return;
  m_push(m, 0, s, 0);
}
void m_set_string(MVar &m, int64_t i, const std::string &s) {
  if (m.c() != Cls::bytes) return;
  if (!m.arr()) {
    m.str = s;
    return;
  }
  if (i < 0 || i >= m.count) return;
  m.slots[static_cast<size_t>(i)] = MSlot{St::known, 0, s, 0};
  m.sorted = false;
  m_touch(m);
}

void m_copy(MVar &dst, const MVar &src);

std::unique_ptr<MVar> m_deep_element(const MVar &e) {
  auto n = m_new(e.type, e.multi);
  n->schema = e.schema;
  m_copy(*n, e);
  return n;
}

void m_copy(MVar &dst, const MVar &src) {
  if (&dst == &src) return;
  if (dst.type != src.type || dst.multi != src.multi) {
    m_free_x(dst);
    dst.type = src.type;
    dst.multi = src.multi;
    dst.schema = src.schema;
    m_init_plain(dst);
  }
  if (!src.arr()) {
    switch (src.c()) {
      case Cls::b32:
      case Cls::b64: dst.num = src.num; break;
      case Cls::bytes: dst.str = src.str; break;
      case Cls::record:
        for (const auto &entry : src.members) {
          if (!entry.second) continue;
          MVar *d = m_hash_get(dst, entry.first);
          if (d == nullptr) {
            auto created = std::make_unique<MVar>();
            created->type = entry.second->type;
            created->multi = entry.second->multi;
            created->schema = entry.second->schema;
            m_init_plain(*created);
            d = created.get();
            m_hash_insert(dst, entry.first, std::move(created));
          }
          m_copy(*d, *entry.second);
        }
        break;
    }
    dst.buf = src.buf;
    return;
  }
  if (src.c() == Cls::record) {
    std::vector<std::unique_ptr<MVar>> fresh;
    for (const auto &e : src.elems) fresh.push_back(m_deep_element(*e));
    dst.elems = std::move(fresh);
    return;
  }
  std::vector<MSlot> live(src.slots.begin(), src.slots.begin() + src.count);
  if (dst.slots.size() < live.size()) dst.slots.resize(live.size());
  for (size_t i = 0; i < live.size(); ++i) dst.slots[i] = live[i];
  dst.count = src.count;
  dst.sorted = src.sorted;
  m_touch(dst);
}

void m_append(MVar &dst, const MVar &src) {
  // Snapshot the source first: it may be dst itself.
  const bool single = !src.arr();
  std::vector<MSlot> vals;
  std::vector<std::unique_ptr<MVar>> recs;
  if (src.c() == Cls::record) {
    if (single) recs.push_back(m_deep_element(src));
    else
      for (const auto &e : src.elems) recs.push_back(m_deep_element(*e));
  } else if (single) {
    vals.push_back(MSlot{St::known, src.num, src.str, 0});
  } else {
    for (int64_t i = 0; i < src.count; ++i) {
      MSlot s = src.slots[static_cast<size_t>(i)];
      s.buf = 0;
      vals.push_back(s);
    }
  }
  if (dst.type != src.type || !dst.arr()) {
    const uint32_t t = src.type;
    qel_schema *s = src.schema;
    m_free_x(dst);
    dst.type = t;
    dst.multi = 1;
    dst.schema = s;
    m_init_plain(dst);
  }
  if (dst.c() == Cls::record) {
    for (auto &e : recs) dst.elems.push_back(std::move(e));
    return;
  }
  for (const MSlot &s : vals) m_push(dst, s.v, s.s, 0);
}

// ---- the float and double quicksort, step by step as documented ----

template <class F, bool Asc>
void ref_float_sort(std::vector<MSlot> &a, int64_t n) {
  auto val = [&](int64_t i) -> F {
    if constexpr (sizeof(F) == 4) return fz::bitsf(static_cast<uint32_t>(a[static_cast<size_t>(i)].v));
    else return fz::bitsd(a[static_cast<size_t>(i)].v);
  };
  auto after = [&](int64_t x, int64_t y) { return Asc ? val(x) > val(y) : val(x) < val(y); };
  auto at_or_before = [&](int64_t x, int64_t y) { return Asc ? val(x) <= val(y) : val(x) >= val(y); };
  auto equal = [&](int64_t x, int64_t y) { return val(x) == val(y); };
  auto swap = [&](int64_t x, int64_t y) { std::swap(a[static_cast<size_t>(x)], a[static_cast<size_t>(y)]); };
  if (n < 2) return;
  int64_t lo = 0, hi = n - 1, depth = 0;
  int64_t lo_stack[30], hi_stack[30];
  for (;;) {
    const int64_t size = hi - lo + 1;
    bool pop = false;
    if (size <= 8) {
      for (int64_t e = hi; e > lo; --e) {
        int64_t m = lo;
        for (int64_t p = lo + 1; p <= e; ++p)
          if (after(p, m)) m = p;
        swap(m, e);
      }
      pop = true;
    } else {
      int64_t mid = lo + size / 2;
      if (after(lo, mid)) swap(lo, mid);
      if (after(lo, hi)) swap(lo, hi);
      if (after(mid, hi)) swap(mid, hi);
      int64_t i = lo, j = hi;
      for (;;) {
        if (mid > i) {
          do ++i;
          while (i < mid && at_or_before(i, mid));
        }
        if (mid <= i) {
          do ++i;
          while (i <= hi && at_or_before(i, mid));
        }
        do --j;
        while (j > mid && after(j, mid));
        if (j < i) break;
        swap(i, j);
        if (mid == j) mid = i;
      }
      j = j + 1;
      if (mid < j) {
        do --j;
        while (j > mid && equal(j, mid));
      }
      if (mid >= j) {
        do --j;
        while (j > lo && equal(j, mid));
      }
      if (j - lo >= hi - i) {
        if (lo < j) {
          FZ_CHECK(depth < 30, "reference sort stack overflow");
          lo_stack[depth] = lo;
          hi_stack[depth] = j;
          ++depth;
        }
        if (i < hi) lo = i;
        else pop = true;
      } else {
        if (i < hi) {
          FZ_CHECK(depth < 30, "reference sort stack overflow");
          lo_stack[depth] = i;
          hi_stack[depth] = hi;
          ++depth;
        }
        if (lo < j) hi = j;
        else pop = true;
      }
    }
    if (pop) {
      --depth;
      if (depth < 0) return;
      lo = lo_stack[depth];
      hi = hi_stack[depth];
    }
  }
}

// ---------------------------------------------------------------------------
// Comparing the library's variants with the model

int64_t g_total = 0;  // values and variants in the pool, to bound the work

uint64_t real_bits(uint32_t t, const void *entry) {
  if (cls(t) == Cls::b32) return static_cast<const qel_arrayd_entry *>(entry)->value;
  return static_cast<uint64_t>(static_cast<const qel_arrayx_entry *>(entry)->value);
}

bool same_value(uint32_t t, uint64_t a, uint64_t b) {
  if (t == 5) return fz::same_float(fz::bitsf(static_cast<uint32_t>(a)), fz::bitsf(static_cast<uint32_t>(b)));
  if (t == 6) return fz::same_double(fz::bitsd(a), fz::bitsd(b));
  return a == b;
}

std::string bytes_of(const qel_array &a, int64_t i, const char *where) {
  const qel_array_entry &e = a.entries[i];
  FZ_CHECK(static_cast<int64_t>(e.offset) + e.length <= a.pool.length,
           "%s: string entry %lld (offset %u, length %u) outside the pool of %lld bytes", where, (long long)i, e.offset,
           e.length, (long long)a.pool.length);
  return std::string(a.pool.bytes ? a.pool.bytes + e.offset : "", e.length);
}

template <class A>
void sync_array(const A &a, MVar &m, const char *where) {
  FZ_CHECK(a.count == m.count, "%s: count %lld, model %lld", where, (long long)a.count, (long long)m.count);
  FZ_CHECK(a.capacity >= a.count, "%s: capacity %lld below count", where, (long long)a.capacity);
  if (a.capacity > m.cap_seen) {
    // The array grew: the entries gained are zero; entries cut off earlier
    // keep defined contents, which the model forgets.
    if (static_cast<int64_t>(m.slots.size()) < a.capacity) m.slots.resize(static_cast<size_t>(a.capacity));
    for (int64_t i = std::max(m.count, m.cap_seen); i < a.capacity; ++i) m.slots[static_cast<size_t>(i)] = MSlot{};
    for (int64_t i = m.count; i < m.cap_seen; ++i)
      if (m.slots[static_cast<size_t>(i)].st == St::known) m.slots[static_cast<size_t>(i)].st = St::unknown;
  }
  m.cap_seen = a.capacity;
  if (static_cast<int64_t>(m.slots.size()) < a.capacity) m.slots.resize(static_cast<size_t>(a.capacity));
}

void verify(qel_var *r, MVar &m, const std::string &where);

void verify_members(qel_var *r, MVar &m, const std::string &where) {
  std::vector<std::pair<std::string, qel_var *>> real;
  void *cursor = nullptr;
  for (qel_hash_entry *e = qel_hash_entry_first(&r->data.members, &cursor); e;
       e = qel_hash_entry_next(&r->data.members, &cursor, e)) {
    if (e->value == nullptr) continue;
    real.emplace_back(std::string(r->data.members.key_pool + e->key_offset, e->key_length),
                      static_cast<qel_var *>(e->value));
  }
  size_t k = 0;
  for (auto &entry : m.members) {
    if (!entry.second) continue;
    FZ_CHECK(k < real.size(), "%s: member %s missing", where.c_str(), entry.first.c_str());
    FZ_CHECK(real[k].first == entry.first, "%s: member %zu is '%s', model '%s'", where.c_str(), k,
             real[k].first.c_str(), entry.first.c_str());
    verify(real[k].second, *entry.second, where + "." + entry.first);
    ++k;
  }
  FZ_CHECK(k == real.size(), "%s: %zu members, model %zu", where.c_str(), real.size(), k);
}

void verify(qel_var *r, MVar &m, const std::string &where) {
  const char *w = where.c_str();
  ++g_total;
  FZ_CHECK(r->type == m.type && r->multi == m.multi, "%s: type/multi %u/%u, model %u/%u", w, r->type, r->multi, m.type,
           m.multi);
  FZ_CHECK(qel_var_type(r) == m.type && qel_var_multi(r) == static_cast<int8_t>(m.multi), "%s: type/multi readers",
           w);
  FZ_CHECK(qel_var_schema(r) == m.schema, "%s: schema %p, model %p", w, (void *)qel_var_schema(r), (void *)m.schema);
  if (!m.arr()) {
    FZ_CHECK(qel_var_size(r) == 0, "%s: size of a single variant is %lld", w, (long long)qel_var_size(r));
    FZ_CHECK(r->buf == m.buf, "%s: buf %llx, model %llx", w, (unsigned long long)r->buf, (unsigned long long)m.buf);
    switch (m.c()) {
      case Cls::b32:
        FZ_CHECK(same_value(m.type, r->data.bits32, m.num & 0xFFFFFFFFu), "%s: value %x, model %llx", w,
                 r->data.bits32, (unsigned long long)m.num);
        m.num = r->data.bits32;
        break;
      case Cls::b64:
        FZ_CHECK(same_value(m.type, r->data.bits64, m.num), "%s: value %llx, model %llx", w,
                 (unsigned long long)r->data.bits64, (unsigned long long)m.num);
        m.num = r->data.bits64;
        break;
      case Cls::bytes: {
        const qel_stream &s = r->data.stream;
        FZ_CHECK(s.length == static_cast<int64_t>(m.str.size()) && s.capacity >= s.length,
                 "%s: string length %lld (capacity %lld), model %zu", w, (long long)s.length, (long long)s.capacity,
                 m.str.size());
        FZ_CHECK(m.str.empty() || std::memcmp(s.bytes, m.str.data(), m.str.size()) == 0, "%s: string bytes %s, model %s",
                 w, fz::hex(s.bytes, s.length).c_str(), fz::hex(m.str.data(), (int64_t)m.str.size()).c_str());
        break;
      }
      case Cls::record: verify_members(r, m, where); break;
    }
    return;
  }
  switch (m.c()) {
    case Cls::b32:
    case Cls::b64: {
      const bool d = m.c() == Cls::b32;
      const int64_t count = d ? r->data.arrayd.count : r->data.arrayx.count;
      FZ_CHECK(qel_var_size(r) == count, "%s: size %lld, count %lld", w, (long long)qel_var_size(r), (long long)count);
      if (d) sync_array(r->data.arrayd, m, w);
      else sync_array(r->data.arrayx, m, w);
      g_total += m.count;
      for (int64_t i = 0; i < m.cap_seen; ++i) {
        const void *e = d ? static_cast<const void *>(r->data.arrayd.entries + i)
                          : static_cast<const void *>(r->data.arrayx.entries + i);
        const uint64_t bits = real_bits(m.type, e);
        const uint64_t buf = d ? r->data.arrayd.entries[i].buf : r->data.arrayx.entries[i].buf;
        MSlot &s = m.slots[static_cast<size_t>(i)];
        if (i < m.count) {
          FZ_CHECK(same_value(m.type, bits, s.v) && buf == s.buf, "%s[%lld]: (%llx,%llx), model (%llx,%llx)", w,
                   (long long)i, (unsigned long long)bits, (unsigned long long)buf, (unsigned long long)s.v,
                   (unsigned long long)s.buf);
          s.v = bits;
        } else if (s.st == St::zero) {
          FZ_CHECK(bits == 0 && buf == 0, "%s[%lld]: entry above the count %lld not zero-filled", w, (long long)i,
                   (long long)m.count);
        }
      }
      break;
    }
    case Cls::bytes: {
      const qel_array &a = r->data.array;
      FZ_CHECK(qel_var_size(r) == a.count, "%s: size %lld, count %lld", w, (long long)qel_var_size(r),
               (long long)a.count);
      sync_array(a, m, w);
      g_total += m.count;
      for (int64_t i = 0; i < m.cap_seen; ++i) {
        MSlot &s = m.slots[static_cast<size_t>(i)];
        if (i < m.count) {
          const std::string got = bytes_of(a, i, w);
          FZ_CHECK(got == s.s && a.entries[i].buf == s.buf, "%s[%lld]: %s/%llx, model %s/%llx", w, (long long)i,
                   fz::hex(got.data(), (int64_t)got.size()).c_str(), (unsigned long long)a.entries[i].buf,
                   fz::hex(s.s.data(), (int64_t)s.s.size()).c_str(), (unsigned long long)s.buf);
        } else if (s.st == St::zero) {
          FZ_CHECK(a.entries[i].offset == 0 && a.entries[i].length == 0 && a.entries[i].buf == 0,
                   "%s[%lld]: string entry above the count %lld not zero-filled", w, (long long)i, (long long)m.count);
        }
      }
      break;
    }
    case Cls::record: {
      const qel_arrays &a = r->data.vars;
      FZ_CHECK(a.count == static_cast<int64_t>(m.elems.size()) && qel_var_size(r) == a.count,
               "%s: %lld elements, model %zu", w, (long long)a.count, m.elems.size());
      for (size_t i = 0; i < m.elems.size(); ++i)
        verify(static_cast<qel_var *>(a.entries[i]), *m.elems[i], where + "[" + std::to_string(i) + "]");
      break;
    }
  }
}

// ---------------------------------------------------------------------------
// The pool and the operations

constexpr int kPool = 4;
constexpr int64_t kBudget = 2500;

struct Pool {
  qel_var *v[kPool] = {};
  std::unique_ptr<MVar> m[kPool];
};

const uint32_t kTypes[] = {0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 20, 21, 22, 23, 0xFFFFFFFFu, 20, 21, 22, 7, 5, 6, 1, 4};
const uint8_t kMultis[] = {0, 1, 0, 1, 2, 0xFF, 0, 1};

uint32_t pick_type(Reader &r) { return kTypes[r.pick(sizeof kTypes / sizeof kTypes[0])]; }
uint8_t pick_multi(Reader &r) { return kMultis[r.pick(sizeof kMultis / sizeof kMultis[0])]; }

const char *const kNames[] = {"id", "tags", "child", "kids", "f", "x", "name", "vals",
                              "back", "value", "next", "list", "w", "zz", "", "big"};

struct Handle {
  int slot;
  qel_var *r;
  MVar *m;
};

// A variant of the pool, or a member or element some levels down.
Handle pick_handle(Reader &r, Pool &p, int slot) {
  Handle h{slot, p.v[slot], p.m[slot].get()};
  const unsigned steps = r.pick(4);
  for (unsigned s = 0; s < steps && s < 2; ++s) {
    if (h.m->c() != Cls::record) break;
    if (!h.m->arr()) {
      std::vector<size_t> live;
      for (size_t i = 0; i < h.m->members.size(); ++i)
        if (h.m->members[i].second) live.push_back(i);
      if (live.empty()) break;
      const size_t k = r.u8() % live.size();
      // The k-th non-empty member of the real hash matches the model's (verified).
      size_t seen = 0;
      qel_var *child = nullptr;
      void *cursor = nullptr;
      for (qel_hash_entry *e = qel_hash_entry_first(&h.r->data.members, &cursor); e;
           e = qel_hash_entry_next(&h.r->data.members, &cursor, e)) {
        if (e->value == nullptr) continue;
        if (seen++ == k) {
          child = static_cast<qel_var *>(e->value);
          break;
        }
      }
      FZ_CHECK(child != nullptr, "member walk lost a member");
      h.r = child;
      h.m = h.m->members[live[k]].second.get();
    } else {
      if (h.m->elems.empty()) break;
      const size_t k = r.u8() % h.m->elems.size();
      h.r = static_cast<qel_var *>(h.r->data.vars.entries[k]);
      h.m = h.m->elems[k].get();
    }
  }
  FZ_TRACE("  handle in v%d: code %u multi %u%s", slot, h.m->type, h.m->multi, h.r == p.v[slot] ? "" : " (nested)");
  return h;
}

// A second handle for a two-variant operation: the very same variant, or one
// in another slot (never a member of the first or the other way round).
Handle pick_other(Reader &r, Pool &p, const Handle &first, bool allow_same) {
  const int slot = static_cast<int>(r.pick(kPool));
  if (slot == first.slot) {
    if (allow_same) {
      FZ_TRACE("  second handle: the same variant");
      return first;
    }
    return pick_handle(r, p, (slot + 1) % kPool);
  }
  return pick_handle(r, p, slot);
}

// String arguments: input bytes with an explicit length, a NUL-terminated
// text measured by the library (length -1), NULL, or bytes that live in a
// variant's own storage (possibly the destination's).
struct Text {
  const char *ext = nullptr;  // bytes outside (in a variant), or NULL
  bool own = false;           // the bytes are `owned` (resolved at use: Text is copied)
  int64_t len = 0;
  std::string value;          // what the library should store
  std::string owned;
  const char *p() const { return own ? owned.c_str() : ext; }
};

bool storage_bytes(const Handle &h, Reader &r, Text &t) {
  if (h.m->c() != Cls::bytes) return false;
  if (!h.m->arr()) {
    const qel_stream &s = h.r->data.stream;
    if (s.length == 0) return false;
    const int64_t off = r.u8() % s.length;
    t.ext = s.bytes + off;
    t.len = s.length - off;
  } else {
    if (h.m->count == 0) return false;
    const int64_t i = r.u8() % h.m->count;
    const qel_array &a = h.r->data.array;
    const qel_array_entry &e = a.entries[i];
    if (e.length == 0) return false;
    const uint32_t off = r.u8() % e.length;
    t.ext = a.pool.bytes + e.offset + off;
    t.len = e.length - off;
  }
  t.value.assign(t.ext, static_cast<size_t>(t.len));
  return true;
}

Text pick_text(Reader &r, Pool &p, const Handle &dst, bool allow_measure = true) {
  Text t;
  switch (r.pick(6)) {
    case 0:
      if (storage_bytes(dst, r, t)) return t;
      break;
    case 1: {
      Handle other = pick_handle(r, p, static_cast<int>(r.pick(kPool)));
      if (storage_bytes(other, r, t)) return t;
      break;
    }
    case 2:
      if (allow_measure) {
        t.owned = fz::pick_string(r, 12);
        t.own = true;
        t.len = -1 - static_cast<int64_t>(r.u8() % 3);
        t.value = std::string(t.owned.c_str());  // up to the first zero byte
        return t;
      }
      break;
    case 3:
      t.len = allow_measure && r.flag() ? -1 : 0;
      return t;
    default:
      break;
  }
  t.owned = fz::pick_string(r, r.flag() ? 24 : 6);
  t.own = true;
  t.len = static_cast<int64_t>(t.owned.size());
  t.value = t.owned;
  return t;
}

void check_resolver_calls() {
  FZ_CHECK(g_real_calls == g_model_calls, "resolver called %zu times, model %zu (first difference matters)",
           g_real_calls.size(), g_model_calls.size());
  g_real_calls.clear();
  g_model_calls.clear();
}

void verify_pool(Pool &p) {
  check_resolver_calls();
  g_total = 0;
  for (int i = 0; i < kPool; ++i) verify(p.v[i], *p.m[i], "v" + std::to_string(i));
}

void op(Reader &r, Pool &p) {
  const uint8_t code = r.u8();
  const int slot = static_cast<int>(r.pick(kPool));
  const bool room = g_total < kBudget;
  FZ_TRACE("op %u on slot %d (v%d is code %u multi %u)", code % 32u, slot, slot, p.m[slot]->type, p.m[slot]->multi);
  switch (code % 32) {
    case 0:
    case 31: {  // free and new
      qel_var_free(p.v[slot]);
      const uint32_t t = pick_type(r);
      const uint8_t mu = pick_multi(r);
      FZ_TRACE("  new(%u, %u)", t, mu);
      p.v[slot] = qel_var_new(t, mu);
      p.m[slot] = m_new(t, mu);
      break;
    }
    case 1: {  // free and new_x: with the resolver, or a context used as the schema
      if (!room) return;
      qel_var_free(p.v[slot]);
      const uint32_t t = pick_type(r);
      const uint8_t mu = pick_multi(r);
      const unsigned how = r.pick(5);
      FZ_TRACE("  new_x(%u, %u) context mode %u", t, mu, how);
      Path path;
      if (how == 0) {
        p.v[slot] = qel_var_new_x(t, mu, &g_context_tag, real_resolver);
        p.m[slot] = m_new_x(t, mu, &g_context_tag, true, path);
      } else {
        qel_schema *ctx = how == 1 ? nullptr : how == 2 ? g_a.schema : how == 3 ? g_b.schema : g_self.schema;
        p.v[slot] = qel_var_new_x(t, mu, ctx, nullptr);
        p.m[slot] = m_new_x(t, mu, ctx, false, path);
      }
      break;
    }
    case 2: {  // change / change_x of any variant of the trees
      if (!room) return;
      Handle h = pick_handle(r, p, slot);
      const uint32_t t = r.flag() ? h.m->type : pick_type(r);
      const uint8_t mu = r.flag() ? h.m->multi : pick_multi(r);
      const unsigned how = r.pick(3);
      const bool same = h.m->type == t && h.m->multi == mu;
      FZ_TRACE("  change%s(%u, %u)", how ? "_x" : "", t, mu);
      if (how == 0) {
        qel_var_change(h.r, t, mu);
        if (!same) {
          m_free_x(*h.m);
          h.m->type = t;
          h.m->multi = mu;
          m_init_plain(*h.m);
        }
      } else {
        void *ctx = how == 1 ? static_cast<void *>(&g_context_tag) : static_cast<void *>(g_self.schema);
        qel_var_change_x(h.r, t, mu, ctx, how == 1 ? real_resolver : nullptr);
        if (!same) {
          m_free_x(*h.m);
          h.m->type = t;
          h.m->multi = mu;
          Path path;
          if (how == 1) {
            g_model_calls.push_back(t);
            h.m->schema = resolve(t);
          } else {
            h.m->schema = g_self.schema;
          }
          m_init(*h.m, ctx, how == 1, path);
        }
      }
      break;
    }
    case 3: {  // copy
      if (!room) return;
      Handle d = pick_handle(r, p, slot);
      Handle s = pick_other(r, p, d, true);
      qel_var_copy(d.r, s.r);
      m_copy(*d.m, *s.m);
      break;
    }
    case 4: {  // append (to itself only as an array)
      if (!room) return;
      Handle d = pick_handle(r, p, slot);
      Handle s = pick_other(r, p, d, d.m->arr());
      qel_var_append(d.r, s.r);
      m_append(*d.m, *s.m);
      break;
    }
    case 5: {  // add_var
      if (!room) return;
      Handle d = pick_handle(r, p, slot);
      Handle s = pick_other(r, p, d, true);
      qel_var_add_var(d.r, s.r);
      if (d.m->arr() && d.m->type == s.m->type && d.m->c() != Cls::record) {
        if (!s.m->arr()) {
          m_push(*d.m, s.m->num, s.m->str, 0);
        } else {
          std::vector<MSlot> live(s.m->slots.begin(), s.m->slots.begin() + s.m->count);
          for (const MSlot &x : live) m_push(*d.m, x.v, x.s, x.buf);
        }
      }
      break;
    }
    case 6: {  // set_var
      Handle d = pick_handle(r, p, slot);
      Handle s = pick_other(r, p, d, true);
      const int64_t i = fz::pick_index(r, d.m->count);
      qel_var_set_var(d.r, i, s.r);
      if (d.m->type == s.m->type && d.m->c() != Cls::record) {
        if (d.m->c() == Cls::bytes) {
          bool null_value;
          const std::string v = m_str_at(*s.m, 0, &null_value);
          m_set_string(*d.m, i, v);
        } else {
          m_set_bits(*d.m, i, m_num_at(*s.m, 0));
        }
      }
      break;
    }
    case 7: {  // get_var (into itself only when single)
      Handle s = pick_handle(r, p, slot);
      Handle d = pick_other(r, p, s, !s.m->arr());
      const int64_t i = fz::pick_index(r, s.m->count);
      uint64_t bits = 0;
      std::string str;
      if (s.m->c() == Cls::bytes) {
        bool null_value;
        str = m_str_at(*s.m, i, &null_value);
      } else if (s.m->c() != Cls::record) {
        bits = m_num_at(*s.m, i);
      }
      qel_var_get_var(s.r, i, d.r);
      if (d.m->type != s.m->type || d.m->arr()) {
        m_free_x(*d.m);
        d.m->type = s.m->type;
        d.m->multi = 0;
        m_init_plain(*d.m);
      }
      if (d.m->c() == Cls::bytes) d.m->str = str;
      else if (d.m->c() != Cls::record) d.m->num = bits;
      break;
    }
    case 8: {  // add a number, in one of the four kinds
      if (!room) return;
      Handle h = pick_handle(r, p, slot);
      switch (r.pick(4)) {
        case 0: {
          const int64_t v = fz::pick_i64(r);
          qel_var_add_integer(h.r, v);
          m_add_bits(*h.m, store_int(h.m->type, v));
          break;
        }
        case 1: {
          const int64_t v = fz::pick_i64(r);
          qel_var_add_long(h.r, v);
          m_add_bits(*h.m, store_int(h.m->type, v));
          break;
        }
        case 2: {
          const float v = fz::pick_float(r);
          qel_var_add_float(h.r, v);
          m_add_bits(*h.m, store_float(h.m->type, v));
          break;
        }
        default: {
          const double v = fz::pick_double(r);
          qel_var_add_double(h.r, v);
          m_add_bits(*h.m, store_double(h.m->type, v));
          break;
        }
      }
      break;
    }
    case 9: {  // set a number at any index
      Handle h = pick_handle(r, p, slot);
      const int64_t i = fz::pick_index(r, h.m->count);
      switch (r.pick(4)) {
        case 0: {
          const int64_t v = fz::pick_i64(r);
          qel_var_set_integer(h.r, i, v);
          m_set_bits(*h.m, i, store_int(h.m->type, v));
          break;
        }
        case 1: {
          const int64_t v = fz::pick_i64(r);
          qel_var_set_long(h.r, i, v);
          m_set_bits(*h.m, i, store_int(h.m->type, v));
          break;
        }
        case 2: {
          const float v = fz::pick_float(r);
          qel_var_set_float(h.r, i, v);
          m_set_bits(*h.m, i, store_float(h.m->type, v));
          break;
        }
        default: {
          const double v = fz::pick_double(r);
          qel_var_set_double(h.r, i, v);
          m_set_bits(*h.m, i, store_double(h.m->type, v));
          break;
        }
      }
      break;
    }
    case 10: {  // get a number at any index, in all four kinds
      Handle h = pick_handle(r, p, slot);
      const int64_t i = fz::pick_index(r, h.m->count);
      const uint64_t bits = numeric(h.m->type) ? m_num_at(*h.m, i) : 0;
      const uint32_t t = numeric(h.m->type) ? h.m->type : 0;
      const int64_t gi = qel_var_get_integer(h.r, i), gl = qel_var_get_long(h.r, i);
      const float gf = qel_var_get_float(h.r, i);
      const double gd = qel_var_get_double(h.r, i);
      FZ_CHECK(gi == read_int(t, bits) && gl == gi, "get_integer/long(%lld) of code %u gave %lld/%lld, model %lld",
               (long long)i, h.m->type, (long long)gi, (long long)gl, (long long)read_int(t, bits));
      FZ_CHECK(fz::same_float(gf, read_float(t, bits)), "get_float(%lld) of code %u gave %a, model %a", (long long)i,
               h.m->type, (double)gf, (double)read_float(t, bits));
      FZ_CHECK(fz::same_double(gd, read_double(t, bits)), "get_double(%lld) of code %u gave %a, model %a",
               (long long)i, h.m->type, gd, read_double(t, bits));
      return;
    }
    case 11: {  // add_string
      if (!room) return;
      Handle h = pick_handle(r, p, slot);
      Text t = pick_text(r, p, h);
      qel_var_add_string(h.r, t.p(), t.len);
      m_add_string(*h.m, t.value);
      break;
    }
    case 12: {  // set_string at any index
      Handle h = pick_handle(r, p, slot);
      const int64_t i = fz::pick_index(r, h.m->count);
      Text t = pick_text(r, p, h);
      qel_var_set_string(h.r, i, t.p(), t.len);
      m_set_string(*h.m, i, t.value);
      break;
    }
    case 13: {  // get_string at any index
      Handle h = pick_handle(r, p, slot);
      const int64_t i = fz::pick_index(r, h.m->count);
      const char *text = "junk";
      int64_t len = 77;
      qel_var_get_string(h.r, i, &text, &len);
      bool null_value;
      const std::string want = m_str_at(*h.m, i, &null_value);
      if (null_value) {
        FZ_CHECK(text == nullptr && len == 0, "get_string(%lld) of code %u gave %p/%lld, expected NULL/0",
                 (long long)i, h.m->type, (const void *)text, (long long)len);
      } else {
        FZ_CHECK(len == static_cast<int64_t>(want.size()) && (len == 0 || std::memcmp(text, want.data(), want.size()) == 0),
                 "get_string(%lld) gave %lld bytes, model %zu", (long long)i, (long long)len, want.size());
      }
      return;
    }
    case 14: {  // expand
      Handle h = pick_handle(r, p, slot);
      const int64_t n = static_cast<int64_t>(r.u16() % 600) - 4;
      qel_var_expand(h.r, n);
      if (!h.m->arr() && h.m->c() == Cls::bytes) {
        FZ_CHECK(qel_var_buf_size(h.r) >= n, "expand(%lld) of a string left capacity %lld", (long long)n,
                 (long long)qel_var_buf_size(h.r));
      } else if (h.m->value_array()) {
        const int64_t cap = h.m->c() == Cls::b32   ? h.r->data.arrayd.capacity
                            : h.m->c() == Cls::b64 ? h.r->data.arrayx.capacity
                                                   : h.r->data.array.capacity;
        FZ_CHECK(cap >= n, "expand(%lld) of an array left capacity %lld", (long long)n, (long long)cap);
      }
      break;
    }
    case 15: {  // zero
      Handle h = pick_handle(r, p, slot);
      qel_var_zero(h.r);
      if (!h.m->arr()) {
        if (h.m->c() == Cls::bytes) {
          h.m->str.clear();
          const qel_stream &s = h.r->data.stream;
          for (int64_t i = 0; i < s.capacity; ++i) FZ_CHECK(s.bytes[i] == 0, "zero left byte %lld", (long long)i);
        } else if (h.m->c() != Cls::record) {
          h.m->num = 0;
        }
      }
      break;
    }
    case 16: {  // shrink, any n
      Handle h = pick_handle(r, p, slot);
      const uint8_t sel = r.u8();
      const int64_t n = sel < 200 ? static_cast<int64_t>(sel % 40) - 4 : (sel & 1 ? INT64_MAX : INT64_MIN);
      qel_var_shrink(h.r, n);
      MVar &m = *h.m;
      if (n < 0) {
        // Outside the documented limits; the library's choice: nothing
        // changes, in either form.
      } else if (!m.arr()) {
        if (m.c() == Cls::bytes) {
          const size_t keep = static_cast<size_t>(std::max<int64_t>(n, 0));
          if (m.str.size() > keep) m.str.resize(keep);
        } else if (m.c() == Cls::record) {
          for (auto &e : m.members) e.second.reset();
        } else {
          m.num = 0;
        }
      } else if (m.c() == Cls::record) {
        m.elems.clear();
      } else if (n == 0) {
        m.count = 0;
        m.sorted = true;
        m_touch(m);
      } else {
        const int64_t cap = m.c() == Cls::b32   ? h.r->data.arrayd.capacity
                            : m.c() == Cls::b64 ? h.r->data.arrayx.capacity
                                                : h.r->data.array.capacity;
        FZ_CHECK(cap == m.cap_seen, "shrink moved the capacity");
        const int64_t k = std::min(cap, n);
        for (int64_t i = m.count; i < k; ++i) {  // exposed entries
          MSlot &s = m.slots[static_cast<size_t>(i)];
          uint64_t bits = 0, buf = 0;
          std::string str;
          if (m.c() == Cls::bytes) {
            str = bytes_of(h.r->data.array, i, "shrink");
            buf = h.r->data.array.entries[i].buf;
            if (s.st == St::zero)
              FZ_CHECK(h.r->data.array.entries[i].offset == 0 && str.empty() && buf == 0,
                       "shrink exposed string entry %lld that is not zero", (long long)i);
          } else {
            const void *e = m.c() == Cls::b32 ? static_cast<const void *>(h.r->data.arrayd.entries + i)
                                              : static_cast<const void *>(h.r->data.arrayx.entries + i);
            bits = real_bits(m.type, e);
            buf = m.c() == Cls::b32 ? h.r->data.arrayd.entries[i].buf : h.r->data.arrayx.entries[i].buf;
            if (s.st == St::zero)
              FZ_CHECK(bits == 0 && buf == 0, "shrink exposed entry %lld that is not zero", (long long)i);
          }
          if (s.st == St::known)
            FZ_CHECK(same_value(m.type, bits, s.v) && str == s.s && buf == s.buf,
                     "shrink exposed entry %lld that changed while above the count", (long long)i);
          s = MSlot{St::known, bits, str, buf};
        }
        if (k > m.count) m.sorted = false;
        m.count = k;
      }
      break;
    }
    case 17: {  // trim
      Handle h = pick_handle(r, p, slot);
      qel_var_trim(h.r);
      if (!h.m->arr() && h.m->c() == Cls::bytes) {
        std::string &s = h.m->str;
        auto sp = [](char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; };
        size_t b = 0, e = s.size();
        while (b < e && sp(s[b])) ++b;
        while (e > b && sp(s[e - 1])) --e;
        s = s.substr(b, e - b);
      }
      break;
    }
    case 18: {  // qsort
      Handle h = pick_handle(r, p, slot);
      const int flag = static_cast<int>(r.pick(3));
      qel_var_qsort(h.r, flag);
      MVar &m = *h.m;
      if (!m.value_array()) break;
      if (m.type == 5 || m.type == 6) {
        if (m.type == 5) {
          if (flag) ref_float_sort<float, true>(m.slots, m.count);
          else ref_float_sort<float, false>(m.slots, m.count);
        } else {
          if (flag) ref_float_sort<double, true>(m.slots, m.count);
          else ref_float_sort<double, false>(m.slots, m.count);
        }
        m.sorted = m.count < 2;
        m_touch(m);
        break;
      }
      // The containers' sorts: check order and contents, then take the order.
      std::vector<MSlot> got;
      for (int64_t i = 0; i < m.count; ++i) {
        MSlot s;
        s.st = St::known;
        if (m.c() == Cls::bytes) {
          s.s = bytes_of(h.r->data.array, i, "qsort");
          s.buf = h.r->data.array.entries[i].buf;
        } else if (m.c() == Cls::b32) {
          s.v = h.r->data.arrayd.entries[i].value;
          s.buf = h.r->data.arrayd.entries[i].buf;
        } else {
          s.v = static_cast<uint64_t>(h.r->data.arrayx.entries[i].value);
          s.buf = h.r->data.arrayx.entries[i].buf;
        }
        got.push_back(s);
      }
      auto order = [&](const MSlot &x, const MSlot &y) -> int {
        if (m.c() == Cls::bytes) return fz::bytes_order(x.s, y.s);
        if (m.c() == Cls::b32) return x.v < y.v ? -1 : x.v > y.v ? 1 : 0;
        const int64_t a = static_cast<int64_t>(x.v), b = static_cast<int64_t>(y.v);
        return a < b ? -1 : a > b ? 1 : 0;
      };
      for (size_t i = 1; i < got.size(); ++i)
        FZ_CHECK(flag ? order(got[i - 1], got[i]) <= 0 : order(got[i - 1], got[i]) >= 0,
                 "qsort(%d) of code %u out of order at %zu", flag, m.type, i);
      auto key = [](const MSlot &s) { return std::make_tuple(s.v, s.s, s.buf); };
      std::vector<std::tuple<uint64_t, std::string, uint64_t>> a, b;
      for (int64_t i = 0; i < m.count; ++i) a.push_back(key(m.slots[static_cast<size_t>(i)]));
      for (const MSlot &s : got) b.push_back(key(s));
      std::sort(a.begin(), a.end());
      std::sort(b.begin(), b.end());
      FZ_CHECK(a == b, "qsort(%d) of code %u lost or changed entries", flag, m.type);
      for (size_t i = 0; i < got.size(); ++i) m.slots[i] = got[i];
      m.sorted = flag != 0 || m.count < 2;
      m_touch(m);
      break;
    }
    case 19: {  // find / bfind
      Handle h = pick_handle(r, p, slot);
      MVar &m = *h.m;
      uint64_t key_bits = (m.count > 0 && r.flag()) ? m.slots[r.u8() % static_cast<size_t>(m.count)].v
                                                     : static_cast<uint64_t>(fz::pick_i64(r));
      Text t = pick_text(r, p, h, false);
      if (m.c() == Cls::bytes && m.count > 0 && r.flag()) {
        t.owned = m.slots[r.u8() % static_cast<size_t>(m.count)].s;
        t.own = true;
        t.len = static_cast<int64_t>(t.owned.size());
        t.value = t.owned;
      }
      if (m.c() == Cls::b32) key_bits &= 0xFFFFFFFFu;
      const uint32_t k32 = static_cast<uint32_t>(key_bits);
      const int64_t k64 = static_cast<int64_t>(key_bits);
      const void *key = m.c() == Cls::bytes ? static_cast<const void *>(t.p())
                        : m.c() == Cls::b32 ? static_cast<const void *>(&k32)
                                            : static_cast<const void *>(&k64);
      const int64_t got = qel_var_find(h.r, key, t.len);
      const int64_t bgot = qel_var_bfind(h.r, key, t.len);
      int64_t want = -1;
      if (m.value_array()) {
        for (int64_t i = 0; i < m.count && want < 0; ++i) {
          const MSlot &s = m.slots[static_cast<size_t>(i)];
          if (m.c() == Cls::bytes ? s.s == t.value : s.v == key_bits) want = i;
        }
      }
      FZ_CHECK(got == want, "find in code %u (multi %u) gave %lld, model %lld", m.type, m.multi, (long long)got,
               (long long)want);
      if (!m.value_array() || (m.sorted && m.type != 5 && m.type != 6)) {
        FZ_CHECK(bgot == want, "bfind in sorted code %u gave %lld, model %lld", m.type, (long long)bgot,
                 (long long)want);
      } else if (bgot != -1) {
        FZ_CHECK(bgot >= 0 && bgot < m.count, "bfind gave %lld", (long long)bgot);
        const MSlot &s = m.slots[static_cast<size_t>(bgot)];
        FZ_CHECK(m.c() == Cls::bytes ? s.s == t.value : s.v == key_bits, "bfind gave %lld, which does not hold the key",
                 (long long)bgot);
      }
      return;
    }
    case 20: {  // cmp
      Handle a = pick_handle(r, p, slot);
      Handle b = pick_other(r, p, a, true);
      const int got = qel_var_cmp(a.r, b.r);
      const MVar &x = *a.m, &y = *b.m;
      if (x.multi != y.multi) {
        const int want = static_cast<int8_t>(x.multi) - static_cast<int8_t>(y.multi);
        FZ_CHECK(got == want, "cmp of multi %u and %u gave %d", x.multi, y.multi, got);
        return;
      }
      if (x.type != y.type) {
        const int want = static_cast<int32_t>(x.type - y.type);
        FZ_CHECK(got == want, "cmp of codes %u and %u gave %d", x.type, y.type, got);
        return;
      }
      auto one = [&](uint64_t u, uint64_t v, const std::string &s, const std::string &t2) -> int {
        switch (x.type) {
          case 1: case 2: case 3: case 9: {
            const uint32_t p1 = static_cast<uint32_t>(u), p2 = static_cast<uint32_t>(v);
            return p1 > p2 ? 1 : p1 < p2 ? -1 : 0;
          }
          case 4: return u > v ? 1 : u < v ? -1 : 0;
          case 5: {
            const float f1 = fz::bitsf(static_cast<uint32_t>(u)), f2 = fz::bitsf(static_cast<uint32_t>(v));
            return f1 > f2 ? 1 : f2 > f1 ? -1 : 0;
          }
          case 6: {
            const double d1 = fz::bitsd(u), d2 = fz::bitsd(v);
            return d1 > d2 ? 1 : d2 > d1 ? -1 : 0;
          }
          case 7: case 8: return fz::bytes_order(s, t2);
          default: return 0;
        }
      };
      int want = 0;
      if (!x.arr()) {
        want = one(x.num, y.num, x.str, y.str);
      } else if (x.c() != Cls::record) {
        const int64_t n = std::min(x.count, y.count);
        for (int64_t i = 0; i < n && want == 0; ++i) {
          const MSlot &s = x.slots[static_cast<size_t>(i)], &t2 = y.slots[static_cast<size_t>(i)];
          want = one(s.v, t2.v, s.s, t2.s);
        }
        if (want == 0) want = fz::sign(x.count - y.count);
      }
      FZ_CHECK(fz::sign(got) == want, "cmp of code %u (multi %u) gave %d, model sign %d", x.type, x.multi, got, want);
      return;
    }
    case 21: {  // keyed adds
      if (!room) return;
      Handle h = pick_handle(r, p, slot);
      MVar &m = *h.m;
      uint64_t got = 0, want = 0;
      const unsigned kind = r.pick(5);
      bool is_key = false;
      uint64_t key = 0;
      Text t;
      switch (kind) {
        case 0: case 1: {
          const int64_t v = (m.count > 0 && r.flag()) ? read_int(m.type, m.slots[r.u8() % static_cast<size_t>(m.count)].v)
                                                      : fz::pick_i64(r);
          got = kind == 0 ? qel_var_add_integer_x(h.r, v) : qel_var_add_long_x(h.r, v);
          is_key = numeric(m.type);
          key = store_int(m.type, v);
          break;
        }
        case 2: {
          const float v = fz::pick_float(r);
          got = qel_var_add_float_x(h.r, v);
          is_key = numeric(m.type);
          key = store_float(m.type, v);
          break;
        }
        case 3: {
          const double v = fz::pick_double(r);
          got = qel_var_add_double_x(h.r, v);
          is_key = numeric(m.type);
          key = store_double(m.type, v);
          break;
        }
        default: {
          t = pick_text(r, p, h);
          got = qel_var_add_string_x(h.r, t.p(), t.len);
          is_key = m.c() == Cls::bytes;
          break;
        }
      }
      if (m.arr() && is_key) {
        int64_t at = -1;
        for (int64_t i = 0; i < m.count && at < 0; ++i) {
          const MSlot &s = m.slots[static_cast<size_t>(i)];
          if (kind == 4 ? s.s == t.value : s.v == key) at = i;
        }
        if (at >= 0) want = m.slots[static_cast<size_t>(at)].buf;
        else m_push(m, kind == 4 ? 0 : key, kind == 4 ? t.value : std::string(), 0);
      }
      FZ_CHECK(got == want, "keyed add (kind %u) on code %u gave %llu, model %llu", kind, m.type,
               (unsigned long long)got, (unsigned long long)want);
      break;
    }
    case 22: {  // raw buffer readers, and writing a number through the buffer
      Handle h = pick_handle(r, p, slot);
      MVar &m = *h.m;
      void *b = qel_var_buffer(h.r);
      const int64_t size = qel_var_buf_size(h.r), len = qel_var_buf_len(h.r);
      if (m.arr() || m.c() == Cls::record) {
        FZ_CHECK(b == nullptr && size == 0 && len == 0, "buffer of code %u multi %u gave %p/%lld/%lld", m.type,
                 m.multi, b, (long long)size, (long long)len);
        return;
      }
      if (m.c() == Cls::bytes) {
        FZ_CHECK(len == static_cast<int64_t>(m.str.size()) && size >= len && b == h.r->data.stream.bytes,
                 "buffer of a string gave %lld/%lld", (long long)size, (long long)len);
        return;
      }
      const int64_t w = m.c() == Cls::b32 ? 4 : 8;
      FZ_CHECK(size == w && len == w, "buffer of code %u gave size %lld len %lld", m.type, (long long)size,
               (long long)len);
      const char *lo = reinterpret_cast<const char *>(h.r), *bp = static_cast<const char *>(b);
      FZ_CHECK(bp >= lo && bp + w <= lo + sizeof(qel_var), "buffer of code %u points outside the variant", m.type);
      uint64_t now = 0;
      std::memcpy(&now, b, static_cast<size_t>(w));
      FZ_CHECK(same_value(m.type, now, m.num), "buffer of code %u holds %llx, model %llx", m.type,
               (unsigned long long)now, (unsigned long long)m.num);
      if (r.flag()) {
        const uint64_t v = static_cast<uint64_t>(fz::pick_i64(r));
        std::memcpy(b, &v, static_cast<size_t>(w));
        m.num = w == 4 ? (v & 0xFFFFFFFFu) : v;
      }
      break;
    }
    case 23: {  // set_buf / get_buf at any index, capacity rules
      Handle h = pick_handle(r, p, slot);
      MVar &m = *h.m;
      int64_t i = fz::pick_index(r, m.cap_seen > m.count ? m.cap_seen : m.count);
      const bool set = r.flag();
      const uint64_t v = r.flag() ? r.u64() : r.u8();
      if (set) qel_var_set_buf(h.r, i, v);
      const uint64_t got = qel_var_get_buf(h.r, i);
      if (!m.arr()) {
        if (set) m.buf = v;
        FZ_CHECK(got == m.buf, "get_buf of a single variant gave %llx, model %llx", (unsigned long long)got,
                 (unsigned long long)m.buf);
        break;
      }
      if (m.c() == Cls::record) {
        FZ_CHECK(got == 0, "get_buf of a record array gave %llx", (unsigned long long)got);
        break;
      }
      if (i < 0) i = m.count - 1;
      if (i < 0 || i >= m.cap_seen) {
        FZ_CHECK(got == 0, "get_buf(%lld) outside the capacity %lld gave %llx", (long long)i, (long long)m.cap_seen,
                 (unsigned long long)got);
        break;
      }
      MSlot &s = m.slots[static_cast<size_t>(i)];
      if (set) {
        if (s.st == St::zero) s = MSlot{St::known, 0, std::string(), v};
        else s.buf = v;
      }
      if (s.st != St::unknown)
        FZ_CHECK(got == s.buf, "get_buf(%lld) gave %llx, model %llx", (long long)i, (unsigned long long)got,
                 (unsigned long long)s.buf);
      break;
    }
    case 24: {  // set_val
      if (!room) return;
      Handle h = pick_handle(r, p, slot);
      Handle s = pick_other(r, p, h, false);
      const std::string name = kNames[r.pick(16)];
      qel_var_set_val(h.r, name.data(), static_cast<int64_t>(name.size()), s.r);
      MVar &m = *h.m;
      if (!m.arr() && m.type >= 10) {
        MVar *d = m_hash_get(m, name);
        if (d == nullptr) {
          auto created = m_new(s.m->type, s.m->multi);
          d = created.get();
          m_hash_insert(m, name, std::move(created));
        }
        m_copy(*d, *s.m);
      }
      break;
    }
    case 25: {  // get_val
      Handle h = pick_handle(r, p, slot);
      const std::string name = kNames[r.pick(16)];
      qel_var *got = qel_var_get_val(h.r, name.data(), static_cast<int64_t>(name.size()));
      MVar *want = (!h.m->arr() && h.m->type >= 10) ? m_hash_get(*h.m, name) : nullptr;
      FZ_CHECK((got == nullptr) == (want == nullptr), "get_val(%s) on code %u multi %u gave %p", name.c_str(),
               h.m->type, h.m->multi, (void *)got);
      if (got) {
        const int64_t total = g_total;
        verify(got, *want, "get_val(" + name + ")");
        g_total = total;
      }
      return;
    }
    case 26: {  // add_new
      if (!room) return;
      Handle h = pick_handle(r, p, slot);
      qel_var *got = qel_var_add_new(h.r);
      if (h.m->arr() && h.m->type >= 10) {
        auto e = m_new(h.m->type, 0);
        e->schema = h.m->schema;
        FZ_CHECK(got != nullptr && got == h.r->data.vars.entries[h.r->data.vars.count - 1],
                 "add_new did not return the new last element");
        h.m->elems.push_back(std::move(e));
      } else {
        FZ_CHECK(got == nullptr, "add_new on code %u multi %u gave an element", h.m->type, h.m->multi);
      }
      break;
    }
    case 27: {  // add_var_x
      if (!room) return;
      Handle h = pick_handle(r, p, slot);
      Handle s = pick_other(r, p, h, false);
      qel_var_add_var_x(h.r, s.r);
      if (h.m->arr() && h.m->type >= 10) {
        auto e = m_new(h.m->type, 0);
        e->schema = h.m->schema;
        m_copy(*e, *s.m);
        h.m->elems.push_back(std::move(e));
      }
      break;
    }
    case 28: {  // set_var_x
      if (!room) return;
      Handle h = pick_handle(r, p, slot);
      Handle s = pick_other(r, p, h, !h.m->arr());
      const int64_t i = fz::pick_index(r, static_cast<int64_t>(h.m->elems.size()));
      qel_var_set_var_x(h.r, i, s.r);
      if (h.m->type >= 10) {
        if (!h.m->arr()) m_copy(*h.m, *s.m);
        else if (i >= 0 && i < static_cast<int64_t>(h.m->elems.size())) m_copy(*h.m->elems[static_cast<size_t>(i)], *s.m);
      }
      break;
    }
    case 29: {  // get_var_x
      Handle h = pick_handle(r, p, slot);
      const int64_t i = fz::pick_index(r, static_cast<int64_t>(h.m->elems.size()));
      qel_var *got = qel_var_get_var_x(h.r, i);
      qel_var *want = nullptr;
      if (h.m->type >= 10) {
        if (!h.m->arr()) want = h.r;
        else if (i >= 0 && i < static_cast<int64_t>(h.m->elems.size()))
          want = static_cast<qel_var *>(h.r->data.vars.entries[i]);
      }
      FZ_CHECK(got == want, "get_var_x(%lld) on code %u multi %u gave %p, expected %p", (long long)i, h.m->type,
               h.m->multi, (void *)got, (void *)want);
      return;
    }
    default: {  // schema readers on the fixed schemas
      const SchemaDef *d = r.pick(3) == 0 ? &g_a : r.flag() ? &g_b : &g_self;
      const std::string name = kNames[r.pick(16)];
      uint32_t t = 12345;
      uint8_t mu = 77;
      const int idx = qel_var_schema_find(d->schema, name.data(), static_cast<int64_t>(name.size()), &t, &mu);
      int want = -1;
      for (size_t i = 0; i < d->members.size() && want < 0; ++i)
        if (name == d->members[i].name) want = static_cast<int>(i);
      FZ_CHECK(idx == want, "schema_find(%s) gave %d, model %d", name.c_str(), idx, want);
      if (want >= 0)
        FZ_CHECK(t == d->members[static_cast<size_t>(want)].type && mu == d->members[static_cast<size_t>(want)].multi,
                 "schema_find(%s) gave type %u multi %u", name.c_str(), t, mu);
      else
        FZ_CHECK(t == 12345 && mu == 77, "schema_find(%s) wrote its outputs without a match", name.c_str());
      FZ_CHECK(qel_var_schema_size(d->schema) == static_cast<int64_t>(d->members.size()), "schema_size");
      return;
    }
  }
  verify_pool(p);
}

void self_test() {
  // The reference quicksort against the documented golden orders.
  const uint32_t vals[] = {3, 1, 3, 2, 3, 1, 2, 3, 1, 2};
  const uint64_t asc[] = {1, 8, 5, 3, 6, 9, 7, 2, 0, 4}, desc[] = {7, 2, 4, 0, 3, 9, 6, 8, 5, 1};
  for (int dir = 0; dir < 2; ++dir) {
    std::vector<MSlot> f(10), d(10);
    for (int i = 0; i < 10; ++i) {
      f[static_cast<size_t>(i)] = MSlot{St::known, fz::fbits(static_cast<float>(vals[i])), "", static_cast<uint64_t>(i)};
      d[static_cast<size_t>(i)] = MSlot{St::known, fz::dbits(static_cast<double>(vals[i])), "", static_cast<uint64_t>(i)};
    }
    if (dir) {
      ref_float_sort<float, true>(f, 10);
      ref_float_sort<double, true>(d, 10);
    } else {
      ref_float_sort<float, false>(f, 10);
      ref_float_sort<double, false>(d, 10);
    }
    for (int i = 0; i < 10; ++i) {
      const uint64_t want = dir ? asc[i] : desc[i];
      FZ_CHECK(f[static_cast<size_t>(i)].buf == want && d[static_cast<size_t>(i)].buf == want,
               "reference quicksort golden order, direction %d, position %d", dir, i);
    }
  }
  // NaN, 3, 1 ascending gives 1, 3, NaN; 3, NaN, 1 gives NaN, 1, 3.
  const float nan = std::numeric_limits<float>::quiet_NaN();
  const float in1[] = {nan, 3, 1}, in2[] = {3, nan, 1};
  std::vector<MSlot> a(3), b(3);
  for (int i = 0; i < 3; ++i) {
    a[static_cast<size_t>(i)] = MSlot{St::known, fz::fbits(in1[i]), "", 0};
    b[static_cast<size_t>(i)] = MSlot{St::known, fz::fbits(in2[i]), "", 0};
  }
  ref_float_sort<float, true>(a, 3);
  ref_float_sort<float, true>(b, 3);
  FZ_CHECK(fz::bitsf((uint32_t)a[0].v) == 1 && fz::bitsf((uint32_t)a[1].v) == 3 && std::isnan(fz::bitsf((uint32_t)a[2].v)),
           "reference quicksort NaN example 1");
  FZ_CHECK(std::isnan(fz::bitsf((uint32_t)b[0].v)) && fz::bitsf((uint32_t)b[1].v) == 1 && fz::bitsf((uint32_t)b[2].v) == 3,
           "reference quicksort NaN example 2");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  self_test();
  make_schema(g_a, {{"id", 4, 0}, {"tags", 7, 1}, {"child", 21, 0}, {"kids", 20, 1}, {"f", 5, 0}});
  make_schema(g_b, {{"x", 6, 0}, {"name", 8, 0}, {"vals", 1, 1}, {"back", 20, 0}, {"big", 70000, 0}});
  make_schema(g_self, {{"value", 5, 0}, {"next", 22, 0}, {"list", 22, 1}, {"w", 9, 0xFF}});
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Reader r(data, size);
  Pool p;
  for (int i = 0; i < kPool; ++i) {
    const uint32_t t = pick_type(r);
    const uint8_t mu = pick_multi(r);
    Path path;
    p.v[i] = qel_var_new_x(t, mu, &g_context_tag, real_resolver);
    p.m[i] = m_new_x(t, mu, &g_context_tag, true, path);
  }
  verify_pool(p);
  for (int step = 0; step < 2048 && !r.empty(); ++step) op(r, p);
  for (int i = 0; i < kPool; ++i) qel_var_free(p.v[i]);
  g_real_calls.clear();
  g_model_calls.clear();
  return 0;
}
