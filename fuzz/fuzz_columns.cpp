// Fuzz target for the light variant (qel_xvar) and the column set
// (qel_xvars): operation sequences decoded from the input run on three light
// variants and two column sets, and after every operation each is compared
// with a model kept here: a plain value/vector model for the light variants
// and a vector of vectors for the column sets (index entries, values, caller
// values and string pools included).
//
// Rules modelled (the documented behaviour, with the choices the library
// made): conversions exactly as tabled; out-of-range reads give 0 / 0.0 /
// NULL with length 0 and out-of-range writes do nothing; add_x hands back the
// caller value of the lowest equal entry or of a new entry with caller value
// 0; shrink with a negative n on an array does nothing; entries exposed by a
// count raise are zero when the array grew, never outside the pool; fetch of
// a multi string entry appends its bytes behind the light variant's pool.
#include <qel.h>

#include <algorithm>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "fuzz_common.h"

namespace {

using fz::Reader;

enum class St : uint8_t { known, zero, unknown };

struct Val {
  St st = St::zero;
  uint64_t v = 0;
  std::string s;
  uint64_t buf = 0;
};

// Storage of a light variant type: 32-bit (1, 3), 64-bit (2, 4), string (5).
enum class K { none, d, x, s };
K kind(uint32_t t) {
  switch (t) {
    case 1: case 3: return K::d;
    case 2: case 4: return K::x;
    case 5: return K::s;
    default: return K::none;
  }
}

uint64_t store_int(uint32_t t, int64_t v) {
  switch (t) {
    case 1: return fz::low32(v);
    case 2: return static_cast<uint64_t>(v);
    case 3: return fz::fbits(static_cast<float>(v));
    case 4: return fz::dbits(static_cast<double>(v));
    default: return 0;
  }
}
uint64_t store_float(uint32_t t, float f) {
  switch (t) {
    case 1: return fz::low32(fz::truncate(static_cast<double>(f)));
    case 2: return static_cast<uint64_t>(fz::truncate(static_cast<double>(f)));
    case 3: return fz::fbits(f);
    case 4: return fz::dbits(static_cast<double>(f));
    default: return 0;
  }
}
uint64_t store_double(uint32_t t, double d) {
  switch (t) {
    case 1: return fz::low32(fz::truncate(d));
    case 2: return static_cast<uint64_t>(fz::truncate(d));
    case 3: return fz::fbits(fz::narrow(d));
    case 4: return fz::dbits(d);
    default: return 0;
  }
}
int64_t read_int(uint32_t t, uint64_t b) {
  switch (t) {
    case 1: return static_cast<int64_t>(b & 0xFFFFFFFFu);
    case 2: return static_cast<int64_t>(b);
    case 3: return fz::truncate(static_cast<double>(fz::bitsf(static_cast<uint32_t>(b))));
    case 4: return fz::truncate(fz::bitsd(b));
    default: return 0;
  }
}
float read_float(uint32_t t, uint64_t b) {
  switch (t) {
    case 1: return static_cast<float>(static_cast<uint32_t>(b));
    case 2: return static_cast<float>(static_cast<int64_t>(b));
    case 3: return fz::bitsf(static_cast<uint32_t>(b));
    case 4: return fz::narrow(fz::bitsd(b));
    default: return 0.0f;
  }
}
double read_double(uint32_t t, uint64_t b) {
  switch (t) {
    case 1: return static_cast<double>(static_cast<uint32_t>(b));
    case 2: return static_cast<double>(static_cast<int64_t>(b));
    case 3: return static_cast<double>(fz::bitsf(static_cast<uint32_t>(b)));
    case 4: return fz::bitsd(b);
    default: return 0.0;
  }
}
bool same_bits(uint32_t t, uint64_t a, uint64_t b) {
  if (t == 3) return fz::same_float(fz::bitsf(static_cast<uint32_t>(a)), fz::bitsf(static_cast<uint32_t>(b)));
  if (t == 4) return fz::same_double(fz::bitsd(a), fz::bitsd(b));
  return a == b;
}

constexpr int64_t kMaxValues = 1024;

// ---------------------------------------------------------------------------
// Light variant model

struct XModel {
  qel_xvar *x = nullptr;
  uint32_t type = 0;
  uint8_t multi = 0;
  uint64_t num = 0;
  std::string str;
  uint64_t buf = 0;
  std::vector<Val> slots;
  int64_t count = 0;
  int64_t cap_seen = 0;

  bool arr() const { return multi != 0; }
  K k() const { return kind(type); }

  int64_t cap() const {
    switch (k()) {
      case K::d: return x->data.arrayd.capacity;
      case K::x: return x->data.arrayx.capacity;
      case K::s: return x->data.array.capacity;
      default: return 0;
    }
  }
  uint64_t real_bits(int64_t i) const {
    return k() == K::d ? x->data.arrayd.entries[i].value : static_cast<uint64_t>(x->data.arrayx.entries[i].value);
  }
  uint64_t &real_buf(int64_t i) const {
    switch (k()) {
      case K::d: return x->data.arrayd.entries[i].buf;
      case K::x: return x->data.arrayx.entries[i].buf;
      default: return x->data.array.entries[i].buf;
    }
  }
  std::string real_str(int64_t i) const {
    const qel_array &a = x->data.array;
    const qel_array_entry &e = a.entries[i];
    FZ_CHECK(static_cast<int64_t>(e.offset) + e.length <= a.pool.length,
             "xvar: string entry %lld (offset %u, length %u) outside the pool of %lld bytes", (long long)i, e.offset,
             e.length, (long long)a.pool.length);
    return std::string(a.pool.bytes ? a.pool.bytes + e.offset : "", e.length);
  }

  // Storage initialised for the current type and form (init).
  void reset() {
    slots.clear();
    count = 0;
    cap_seen = 0;
    if (!arr()) {
      num = 0;
      str.clear();
      if (k() != K::none) buf = 0;
    }
  }

  void touch() {
    for (int64_t i = count; i < static_cast<int64_t>(slots.size()); ++i)
      if (slots[static_cast<size_t>(i)].st == St::known) slots[static_cast<size_t>(i)].st = St::unknown;
  }
  void push(uint64_t v, const std::string &s, uint64_t b) {
    if (static_cast<int64_t>(slots.size()) <= count) slots.resize(static_cast<size_t>(count + 1));
    slots[static_cast<size_t>(count)] = Val{St::known, v, s, b};
    ++count;
    touch();
  }

  void verify() {
    FZ_CHECK(x->type == type && x->multi == multi, "xvar: type/multi %u/%u, model %u/%u", x->type, x->multi, type,
             multi);
    FZ_CHECK(qel_xvar_type(x) == type && qel_xvar_multi(x) == static_cast<int8_t>(multi), "xvar: type/multi readers");
    if (!arr()) {
      FZ_CHECK(qel_xvar_size(x) == 0, "xvar: size of a single variant %lld", (long long)qel_xvar_size(x));
      FZ_CHECK(x->data.single.buf == buf, "xvar: buf %llx, model %llx", (unsigned long long)x->data.single.buf,
               (unsigned long long)buf);
      switch (k()) {
        case K::d:
          FZ_CHECK(same_bits(type, x->data.single.value.bits32, num), "xvar: value %x, model %llx",
                   x->data.single.value.bits32, (unsigned long long)num);
          num = x->data.single.value.bits32;
          break;
        case K::x:
          FZ_CHECK(same_bits(type, x->data.single.value.bits64, num), "xvar: value %llx, model %llx",
                   (unsigned long long)x->data.single.value.bits64, (unsigned long long)num);
          num = x->data.single.value.bits64;
          break;
        case K::s: {
          const qel_string &s = x->data.single.value.string;
          FZ_CHECK(s.length == static_cast<int64_t>(str.size()) &&
                       (str.empty() || std::memcmp(s.bytes, str.data(), str.size()) == 0),
                   "xvar: string %s, model %s", fz::hex(s.bytes, s.length).c_str(),
                   fz::hex(str.data(), (int64_t)str.size()).c_str());
          break;
        }
        default: break;
      }
      return;
    }
    if (k() == K::none) {
      FZ_CHECK(qel_xvar_size(x) == 0, "xvar: size of an array without storage");
      return;
    }
    FZ_CHECK(qel_xvar_size(x) == count, "xvar: size %lld, model %lld", (long long)qel_xvar_size(x), (long long)count);
    const int64_t c = cap();
    FZ_CHECK(c >= count, "xvar: capacity %lld below count %lld", (long long)c, (long long)count);
    if (c > cap_seen) {
      // Grown: the entries gained are zero; older ones above the count are
      // defined but forgotten by the model.
      slots.resize(static_cast<size_t>(std::max<int64_t>(c, static_cast<int64_t>(slots.size()))));
      for (int64_t i = std::max(count, cap_seen); i < c; ++i) slots[static_cast<size_t>(i)] = Val{};
      for (int64_t i = count; i < cap_seen; ++i)
        if (slots[static_cast<size_t>(i)].st == St::known) slots[static_cast<size_t>(i)].st = St::unknown;
    }
    cap_seen = c;
    if (static_cast<int64_t>(slots.size()) < c) slots.resize(static_cast<size_t>(c));
    for (int64_t i = 0; i < c; ++i) {
      Val &s = slots[static_cast<size_t>(i)];
      if (i < count) {
        if (k() == K::s) {
          const std::string got = real_str(i);
          FZ_CHECK(got == s.s && real_buf(i) == s.buf, "xvar[%lld]: %s/%llx, model %s/%llx", (long long)i,
                   fz::hex(got.data(), (int64_t)got.size()).c_str(), (unsigned long long)real_buf(i),
                   fz::hex(s.s.data(), (int64_t)s.s.size()).c_str(), (unsigned long long)s.buf);
        } else {
          FZ_CHECK(same_bits(type, real_bits(i), s.v) && real_buf(i) == s.buf, "xvar[%lld]: (%llx,%llx), model (%llx,%llx)",
                   (long long)i, (unsigned long long)real_bits(i), (unsigned long long)real_buf(i),
                   (unsigned long long)s.v, (unsigned long long)s.buf);
          s.v = real_bits(i);
        }
      } else if (s.st == St::zero) {
        const bool zero = k() == K::s ? (x->data.array.entries[i].offset == 0 && x->data.array.entries[i].length == 0 &&
                                         x->data.array.entries[i].buf == 0)
                                      : (real_bits(i) == 0 && real_buf(i) == 0);
        FZ_CHECK(zero, "xvar[%lld]: entry above the count %lld not zero-filled", (long long)i, (long long)count);
      }
    }
  }
};

// ---------------------------------------------------------------------------
// Column set model: a vector of vectors

struct SModel {
  qel_xvars *xs = nullptr;
  uint32_t type = 0;
  uint8_t multi = 0;
  std::vector<std::vector<Val>> entries;
  int64_t total = 0;

  bool arr() const { return multi != 0; }
  K k() const { return kind(type); }

  void verify() const {
    FZ_CHECK(xs->type == type && xs->multi == multi, "xvars: type/multi %u/%u, model %u/%u", xs->type, xs->multi, type,
             multi);
    FZ_CHECK(qel_xvars_type(xs) == type && qel_xvars_multi(xs) == static_cast<int8_t>(multi), "xvars: readers");
    FZ_CHECK(qel_xvars_size(xs) == static_cast<int64_t>(entries.size()), "xvars: size %lld, model %zu",
             (long long)qel_xvars_size(xs), entries.size());
    if (k() == K::none) return;
    const qel_arrayd &ix = xs->index;
    FZ_CHECK(ix.count == static_cast<int64_t>(entries.size()), "xvars: index count %lld", (long long)ix.count);
    int64_t start = 0;
    for (size_t e = 0; e < entries.size(); ++e) {
      FZ_CHECK(ix.entries[e].value == static_cast<uint32_t>(start) && ix.entries[e].buf == entries[e].size(),
               "xvars: index entry %zu is (start %u, count %llu), model (%lld, %zu)", e, ix.entries[e].value,
               (unsigned long long)ix.entries[e].buf, (long long)start, entries[e].size());
      const int64_t want_size = arr() ? static_cast<int64_t>(entries[e].size()) : 0;
      FZ_CHECK(qel_xvars_get_size(xs, static_cast<int64_t>(e)) == want_size, "xvars: get_size(%zu)", e);
      for (size_t p = 0; p < entries[e].size(); ++p) {
        const int64_t at = start + static_cast<int64_t>(p);
        const Val &v = entries[e][p];
        switch (k()) {
          case K::d:
            FZ_CHECK(same_bits(type, xs->data.arrayd.entries[at].value, v.v) && xs->data.arrayd.entries[at].buf == v.buf,
                     "xvars: value %zu/%zu is (%x,%llx), model (%llx,%llx)", e, p, xs->data.arrayd.entries[at].value,
                     (unsigned long long)xs->data.arrayd.entries[at].buf, (unsigned long long)v.v,
                     (unsigned long long)v.buf);
            break;
          case K::x:
            FZ_CHECK(same_bits(type, static_cast<uint64_t>(xs->data.arrayx.entries[at].value), v.v) &&
                         xs->data.arrayx.entries[at].buf == v.buf,
                     "xvars: value %zu/%zu differs", e, p);
            break;
          default: {
            const qel_array &a = xs->data.array;
            const qel_array_entry &en = a.entries[at];
            FZ_CHECK(static_cast<int64_t>(en.offset) + en.length <= a.pool.length,
                     "xvars: string %zu/%zu outside the pool", e, p);
            FZ_CHECK(std::string(a.pool.bytes ? a.pool.bytes + en.offset : "", en.length) == v.s && en.buf == v.buf,
                     "xvars: string %zu/%zu differs", e, p);
            break;
          }
        }
      }
      start += static_cast<int64_t>(entries[e].size());
    }
    const int64_t data_count = k() == K::d ? xs->data.arrayd.count : k() == K::x ? xs->data.arrayx.count : xs->data.array.count;
    FZ_CHECK(data_count == start, "xvars: %lld values, model %lld", (long long)data_count, (long long)start);
  }

  // The value addressed by (entry, pos) as the set/get accessors resolve it.
  Val *at(int64_t entry, int64_t pos) {
    if (entry < 0 || entry >= static_cast<int64_t>(entries.size())) return nullptr;
    std::vector<Val> &e = entries[static_cast<size_t>(entry)];
    if (!arr()) return e.empty() ? nullptr : &e[0];
    if (pos < 0 || pos >= static_cast<int64_t>(e.size())) return nullptr;
    return &e[static_cast<size_t>(pos)];
  }
  // The entry a value-by-value add goes to, or NULL.
  std::vector<Val> *add_target(int64_t entry) {
    const int64_t n = static_cast<int64_t>(entries.size());
    if (entry == n) {
      entries.emplace_back();
      return &entries.back();
    }
    if (n > 0 && entry == n - 1) return &entries.back();
    return nullptr;
  }
};

// ---------------------------------------------------------------------------

const uint32_t kTypes[] = {1, 2, 3, 4, 5, 1, 2, 3, 4, 5, 0, 6, 7};
const uint8_t kMultis[] = {0, 1, 1, 0, 2, 0xFF};

struct World {
  XModel x[3];
  SModel s[2];
};

void make_x(XModel &m, uint32_t t, uint8_t mu) {
  m.x = qel_xvar_new(t, mu);
  m.type = t;
  m.multi = mu;
  m.buf = 0;
  m.reset();
}

void make_s(SModel &m, uint32_t t, uint8_t mu) {
  m.xs = qel_xvars_new(t, mu);
  m.type = t;
  m.multi = mu;
  m.entries.clear();
  m.total = 0;
}

struct Text {
  const char *ext = nullptr;  // bytes in a light variant or a column set, or NULL
  bool own = false;           // the bytes are `owned` (resolved at use: Text is copied)
  int64_t len = 0;
  std::string value;          // what the library should store
  std::string owned;
  const char *p() const { return own ? owned.c_str() : ext; }
};

// Input bytes with a length, a measured text, NULL, or bytes that live in the
// light variant's own storage or in a column set's pool.
Text pick_text(Reader &r, World &w, XModel *self) {
  Text t;
  const unsigned how = r.pick(6);
  if (how == 0 && self && self->arr() && self->k() == K::s && self->count > 0) {
    const int64_t i = r.u8() % self->count;
    const qel_array &a = self->x->data.array;
    t.ext = a.pool.bytes + a.entries[i].offset;
    t.len = a.entries[i].length;
    t.value.assign(t.ext, static_cast<size_t>(t.len));
    return t;
  }
  if (how == 0 && self && !self->arr() && self->k() == K::s && !self->str.empty()) {
    const qel_string &s = self->x->data.single.value.string;
    const int64_t off = r.u8() % s.length;
    t.ext = s.bytes + off;
    t.len = s.length - off;
    t.value.assign(t.ext, static_cast<size_t>(t.len));
    return t;
  }
  if (how == 1) {
    SModel &s = w.s[r.pick(2)];
    if (s.k() == K::s && s.xs->data.array.count > 0) {
      const qel_array &a = s.xs->data.array;
      const int64_t i = r.u8() % a.count;
      t.ext = a.pool.bytes + a.entries[i].offset;
      t.len = a.entries[i].length;
      t.value.assign(t.ext, static_cast<size_t>(t.len));
      return t;
    }
  }
  if (how == 2) {
    t.owned = fz::pick_string(r, 12);
    t.own = true;
    t.len = -1;
    t.value = std::string(t.owned.c_str());
    return t;
  }
  if (how == 3) {
    t.len = r.flag() ? -1 : 0;
    return t;
  }
  t.owned = fz::pick_string(r, r.flag() ? 20 : 6);
  t.own = true;
  t.len = static_cast<int64_t>(t.owned.size());
  t.value = t.owned;
  return t;
}

void x_op(Reader &r, World &w, XModel &m) {
  const uint8_t code = r.u8();
  FZ_TRACE("xvar %p (type %u multi %u count %lld): op %u", (void *)&m, m.type, m.multi, (long long)m.count,
           code % 14u);
  switch (code % 14) {
    case 0: {  // free and new
      if (r.u8() % 4 != 0) return;
      qel_xvar_free(m.x);
      make_x(m, kTypes[r.pick(sizeof kTypes / sizeof kTypes[0])], kMultis[r.pick(sizeof kMultis)]);
      break;
    }
    case 1: {  // change
      const uint32_t t = r.flag() ? m.type : kTypes[r.pick(sizeof kTypes / sizeof kTypes[0])];
      const uint8_t mu = r.flag() ? m.multi : kMultis[r.pick(sizeof kMultis)];
      FZ_TRACE("  change(%u, %u)", t, mu);
      qel_xvar_change(m.x, t, mu);
      if (t != m.type || mu != m.multi) {
        // Re-forming drops the old contents and caller values; the library
        // clears the storage, so buf reads 0 whatever the new type.
        m.type = t;
        m.multi = mu;
        m.buf = 0;
        m.reset();
      }
      break;
    }
    case 2: {  // shrink, any n
      const uint8_t sel = r.u8();
      const int64_t n = sel < 220 ? static_cast<int64_t>(sel % 40) - 4 : (sel & 1 ? INT64_MAX : INT64_MIN);
      qel_xvar_shrink(m.x, n);
      if (m.k() == K::none) break;
      if (!m.arr()) {
        if (m.k() == K::s) {
          const size_t keep = static_cast<size_t>(std::max<int64_t>(n, 0));
          if (m.str.size() > keep) m.str.resize(keep);
        } else {
          m.num = 0;
        }
        m.buf = 0;
      } else if (n == 0) {
        m.count = 0;
        m.touch();
      } else if (n > 0) {
        const int64_t c = m.cap();
        FZ_CHECK(c == m.cap_seen, "xvar: shrink moved the capacity");
        const int64_t k = std::min(c, n);
        for (int64_t i = m.count; i < k; ++i) {
          Val &s = m.slots[static_cast<size_t>(i)];
          Val got{St::known, 0, std::string(), m.real_buf(i)};
          if (m.k() == K::s) got.s = m.real_str(i);
          else got.v = m.real_bits(i);
          if (s.st == St::zero)
            FZ_CHECK(got.v == 0 && got.s.empty() && got.buf == 0 &&
                         (m.k() != K::s || m.x->data.array.entries[i].offset == 0),
                     "xvar: shrink exposed entry %lld that is not zero", (long long)i);
          if (s.st == St::known)
            FZ_CHECK(same_bits(m.type, got.v, s.v) && got.s == s.s && got.buf == s.buf,
                     "xvar: shrink exposed entry %lld that changed above the count", (long long)i);
          s = got;
        }
        m.count = k;
      }
      break;
    }
    case 3: {  // numeric add
      if (m.count >= kMaxValues) return;
      uint64_t bits = 0;
      switch (r.pick(4)) {
        case 0: { const int64_t v = fz::pick_i64(r); qel_xvar_add_integer(m.x, v); bits = store_int(m.type, v); break; }
        case 1: { const int64_t v = fz::pick_i64(r); qel_xvar_add_long(m.x, v); bits = store_int(m.type, v); break; }
        case 2: { const float v = fz::pick_float(r); qel_xvar_add_float(m.x, v); bits = store_float(m.type, v); break; }
        default: { const double v = fz::pick_double(r); qel_xvar_add_double(m.x, v); bits = store_double(m.type, v); break; }
      }
      if (m.arr() && m.type >= 1 && m.type <= 4) m.push(bits, std::string(), 0);
      break;
    }
    case 4: {  // numeric add_x, then maybe write through the pointer
      if (m.count >= kMaxValues) return;
      uint64_t *bp = reinterpret_cast<uint64_t *>(8);
      uint64_t bits = 0;
      const bool reuse = m.count > 0 && r.flag();
      const uint64_t existing = reuse ? m.slots[r.u8() % static_cast<size_t>(m.count)].v : 0;
      switch (r.pick(4)) {
        case 0: {
          const int64_t v = reuse ? read_int(m.type, existing) : fz::pick_i64(r);
          qel_xvar_add_integer_x(m.x, v, &bp);
          bits = store_int(m.type, v);
          break;
        }
        case 1: {
          const int64_t v = fz::pick_i64(r);
          qel_xvar_add_long_x(m.x, v, &bp);
          bits = store_int(m.type, v);
          break;
        }
        case 2: {
          const float v = fz::pick_float(r);
          qel_xvar_add_float_x(m.x, v, &bp);
          bits = store_float(m.type, v);
          break;
        }
        default: {
          const double v = reuse ? read_double(m.type, existing) : fz::pick_double(r);
          qel_xvar_add_double_x(m.x, v, &bp);
          bits = store_double(m.type, v);
          break;
        }
      }
      if (!m.arr() || m.type < 1 || m.type > 4) {
        FZ_CHECK(bp == nullptr, "xvar: add_x on type %u multi %u gave a pointer", m.type, m.multi);
        break;
      }
      int64_t at = -1;
      for (int64_t i = 0; i < m.count && at < 0; ++i)
        if (m.slots[static_cast<size_t>(i)].v == bits) at = i;
      if (at < 0) {
        m.push(bits, std::string(), 0);
        at = m.count - 1;
      }
      FZ_CHECK(bp == &m.real_buf(at), "xvar: add_x gave the caller value of entry %lld? expected %lld",
               (long long)(bp ? (reinterpret_cast<char *>(bp) - reinterpret_cast<char *>(&m.real_buf(0))) / 16 : -1),
               (long long)at);
      if (r.flag()) {
        const uint64_t nb = r.u8();
        *bp = nb;
        m.slots[static_cast<size_t>(at)].buf = nb;
      }
      break;
    }
    case 5: {  // numeric set, any index
      const int64_t i = fz::pick_index(r, m.count);
      uint64_t bits = 0;
      switch (r.pick(4)) {
        case 0: { const int64_t v = fz::pick_i64(r); qel_xvar_set_integer(m.x, i, v); bits = store_int(m.type, v); break; }
        case 1: { const int64_t v = fz::pick_i64(r); qel_xvar_set_long(m.x, i, v); bits = store_int(m.type, v); break; }
        case 2: { const float v = fz::pick_float(r); qel_xvar_set_float(m.x, i, v); bits = store_float(m.type, v); break; }
        default: { const double v = fz::pick_double(r); qel_xvar_set_double(m.x, i, v); bits = store_double(m.type, v); break; }
      }
      if (m.type < 1 || m.type > 4) break;
      if (!m.arr()) {
        m.num = bits;
      } else if (i >= 0 && i < m.count) {
        m.slots[static_cast<size_t>(i)] = Val{St::known, bits, std::string(), 0};
        m.touch();
      }
      break;
    }
    case 6: {  // numeric get, any index, all four kinds
      const int64_t i = fz::pick_index(r, m.count);
      const uint32_t t = (m.type >= 1 && m.type <= 4) ? m.type : 0;
      const uint64_t bits = !m.arr() ? m.num : (i >= 0 && i < m.count ? m.slots[static_cast<size_t>(i)].v : 0);
      const int64_t gi = qel_xvar_get_integer(m.x, i), gl = qel_xvar_get_long(m.x, i);
      const float gf = qel_xvar_get_float(m.x, i);
      const double gd = qel_xvar_get_double(m.x, i);
      FZ_CHECK(gi == read_int(t, bits) && gl == gi, "xvar: get_integer(%lld) of type %u gave %lld, model %lld",
               (long long)i, m.type, (long long)gi, (long long)read_int(t, bits));
      FZ_CHECK(fz::same_float(gf, read_float(t, bits)), "xvar: get_float(%lld) of type %u gave %a, model %a",
               (long long)i, m.type, (double)gf, (double)read_float(t, bits));
      FZ_CHECK(fz::same_double(gd, read_double(t, bits)), "xvar: get_double(%lld) of type %u gave %a, model %a",
               (long long)i, m.type, gd, read_double(t, bits));
      return;
    }
    case 7: {  // add_string
      if (m.count >= kMaxValues) return;
      Text t = pick_text(r, w, &m);
      qel_xvar_add_string(m.x, t.p(), t.len);
      if (m.arr() && m.k() == K::s) m.push(0, t.value, 0);
      break;
    }
    case 8: {  // add_string_x
      if (m.count >= kMaxValues) return;
      Text t = pick_text(r, w, &m);
      uint64_t *bp = reinterpret_cast<uint64_t *>(8);
      qel_xvar_add_string_x(m.x, t.p(), t.len, &bp);
      if (!m.arr() || m.k() != K::s) {
        FZ_CHECK(bp == nullptr, "xvar: add_string_x on type %u multi %u gave a pointer", m.type, m.multi);
        break;
      }
      int64_t at = -1;
      for (int64_t i = 0; i < m.count && at < 0; ++i)
        if (m.slots[static_cast<size_t>(i)].s == t.value) at = i;
      if (at < 0) {
        m.push(0, t.value, 0);
        at = m.count - 1;
      }
      FZ_CHECK(bp == &m.real_buf(at), "xvar: add_string_x did not give the caller value of entry %lld",
               (long long)at);
      if (r.flag()) {
        const uint64_t nb = r.u8();
        *bp = nb;
        m.slots[static_cast<size_t>(at)].buf = nb;
      }
      break;
    }
    case 9: {  // set_string, any index
      const int64_t i = fz::pick_index(r, m.count);
      Text t = pick_text(r, w, &m);
      qel_xvar_set_string(m.x, i, t.p(), t.len);
      if (m.k() != K::s) break;
      if (!m.arr()) {
        m.str = t.value;
      } else if (i >= 0 && i < m.count) {
        m.slots[static_cast<size_t>(i)] = Val{St::known, 0, t.value, 0};
        m.touch();
      }
      break;
    }
    case 10: {  // get_string, any index
      const int64_t i = fz::pick_index(r, m.count);
      const char *p = "junk";
      int64_t len = 5;
      qel_xvar_get_string(m.x, i, &p, &len);
      bool null_value = m.k() != K::s || (m.arr() && (i < 0 || i >= m.count));
      if (null_value) {
        FZ_CHECK(p == nullptr && len == 0, "xvar: get_string(%lld) of type %u gave %p/%lld", (long long)i, m.type,
                 (const void *)p, (long long)len);
      } else {
        const std::string &want = m.arr() ? m.slots[static_cast<size_t>(i)].s : m.str;
        FZ_CHECK(len == static_cast<int64_t>(want.size()) && (len == 0 || std::memcmp(p, want.data(), want.size()) == 0),
                 "xvar: get_string(%lld) differs", (long long)i);
      }
      return;
    }
    default: {  // set_buf / get_buf, any index, capacity rules
      const int64_t limit = std::max(m.cap_seen, m.count);
      int64_t i = fz::pick_index(r, limit);
      const bool set = r.flag();
      const uint64_t v = r.flag() ? r.u64() : r.u8();
      FZ_TRACE("  %s_buf(%lld, %llx)", set ? "set" : "get", (long long)i, (unsigned long long)v);
      if (set) qel_xvar_set_buf(m.x, i, v);
      const uint64_t got = qel_xvar_get_buf(m.x, i);
      if (!m.arr()) {
        if (set) m.buf = v;
        FZ_CHECK(got == m.buf, "xvar: get_buf gave %llx, model %llx", (unsigned long long)got,
                 (unsigned long long)m.buf);
        break;
      }
      if (m.k() == K::none) {
        FZ_CHECK(got == 0, "xvar: get_buf of an array without storage gave %llx", (unsigned long long)got);
        break;
      }
      if (i < 0) i = m.count - 1;
      if (i < 0 || i >= m.cap_seen) {
        FZ_CHECK(got == 0, "xvar: get_buf(%lld) outside the capacity gave %llx", (long long)i, (unsigned long long)got);
        break;
      }
      Val &s = m.slots[static_cast<size_t>(i)];
      if (set) {
        if (s.st == St::zero) s = Val{St::known, 0, std::string(), v};
        else s.buf = v;
      }
      if (s.st != St::unknown)
        FZ_CHECK(got == s.buf, "xvar: get_buf(%lld) gave %llx, model %llx", (long long)i, (unsigned long long)got,
                 (unsigned long long)s.buf);
      break;
    }
  }
  m.verify();
}

void s_op(Reader &r, World &w, SModel &m) {
  const uint8_t code = r.u8();
  FZ_TRACE("xvars %p (type %u multi %u, %zu entries): op %u", (void *)&m, m.type, m.multi, m.entries.size(),
           code % 12u);
  switch (code % 12) {
    case 0: {  // free and new, change, shrink
      const unsigned how = r.pick(4);
      const uint32_t t = kTypes[r.pick(sizeof kTypes / sizeof kTypes[0])];
      const uint8_t mu = kMultis[r.pick(sizeof kMultis)];
      if (how == 0) {
        qel_xvars_free(m.xs);
        make_s(m, t, mu);
      } else if (how == 1) {
        const uint32_t t2 = r.flag() ? m.type : t;
        const uint8_t mu2 = r.flag() ? m.multi : mu;
        qel_xvars_change(m.xs, t2, mu2);
        if (t2 != m.type || mu2 != m.multi) {
          m.type = t2;
          m.multi = mu2;
          m.entries.clear();
          m.total = 0;
        }
      } else if (how == 2) {
        qel_xvars_shrink(m.xs);
        m.entries.clear();
        m.total = 0;
      } else {
        return;
      }
      break;
    }
    case 1:
    case 2: {  // add_var of a light variant
      XModel &x = w.x[r.pick(3)];
      FZ_TRACE("  add_var(xvar %p: type %u multi %u count %lld)", (void *)&x, x.type, x.multi, (long long)x.count);
      if (m.total + x.count >= kMaxValues) return;
      qel_xvars_add_var(m.xs, x.x);
      if (x.type != m.type || x.multi != m.multi || m.k() == K::none) break;
      std::vector<Val> e;
      if (!x.arr()) {
        e.push_back(Val{St::known, x.num, x.str, 0});
      } else {
        for (int64_t i = 0; i < x.count; ++i) e.push_back(x.slots[static_cast<size_t>(i)]);
      }
      m.total += static_cast<int64_t>(e.size());
      m.entries.push_back(std::move(e));
      break;
    }
    case 3:
    case 4: {  // fetch_var into a light variant
      XModel &x = w.x[r.pick(3)];
      const int64_t entry = fz::pick_index(r, static_cast<int64_t>(m.entries.size()));
      const int64_t cap0 = x.arr() ? x.cap() : 0;
      const int64_t count0 = x.count;
      const int64_t pool0 = (x.arr() && x.k() == K::s) ? x.x->data.array.pool.length : 0;
      FZ_TRACE("  fetch_var(%lld) into xvar %p (type %u multi %u count %lld, pool %lld)", (long long)entry,
               (void *)&x, x.type, x.multi, (long long)x.count, (long long)pool0);
      qel_xvars_fetch_var(m.xs, entry, x.x);
      if (fz::tracing() && x.arr() && x.k() == K::s) {
        const qel_array &xa = x.x->data.array;
        FZ_TRACE("  -> count %lld, pool %lld", (long long)xa.count, (long long)xa.pool.length);
        for (int64_t i = 0; i < xa.count; ++i)
          FZ_TRACE("     entry %lld: offset %u length %u", (long long)i, xa.entries[i].offset, xa.entries[i].length);
      }
      const bool applies = x.type == m.type && x.multi == m.multi && entry >= 0 &&
                           entry < static_cast<int64_t>(m.entries.size()) && m.k() != K::none;
      if (applies) {
        const std::vector<Val> &e = m.entries[static_cast<size_t>(entry)];
        if (!x.arr()) {
          if (x.k() == K::s) x.str = e[0].s;
          else x.num = e[0].v;
        } else {
          const int64_t n = static_cast<int64_t>(e.size());
          const int64_t c = x.cap();
          FZ_CHECK(c >= n, "fetch: capacity %lld below %lld", (long long)c, (long long)n);
          if (static_cast<int64_t>(x.slots.size()) < c) x.slots.resize(static_cast<size_t>(c));
          // Entries gained by the expand are zero; those from n up to the
          // old capacity are left as they were, which the model forgets.
          for (int64_t i = std::max(count0, cap0); i < c; ++i) x.slots[static_cast<size_t>(i)] = Val{};
          for (int64_t i = n; i < std::min(cap0, c); ++i)
            if (x.slots[static_cast<size_t>(i)].st == St::known) x.slots[static_cast<size_t>(i)].st = St::unknown;
          x.cap_seen = c;
          int64_t pool = pool0;
          for (int64_t i = 0; i < n; ++i) {
            x.slots[static_cast<size_t>(i)] = e[static_cast<size_t>(i)];
            x.slots[static_cast<size_t>(i)].st = St::known;
            if (x.k() == K::s) {
              FZ_CHECK(x.x->data.array.entries[i].offset == static_cast<uint32_t>(pool),
                       "fetch: string %lld placed at %u, expected behind the pool at %lld", (long long)i,
                       x.x->data.array.entries[i].offset, (long long)pool);
              pool += static_cast<int64_t>(e[static_cast<size_t>(i)].s.size());
            }
          }
          if (x.k() == K::s)
            FZ_CHECK(x.x->data.array.pool.length == pool, "fetch: pool holds %lld bytes, expected %lld",
                     (long long)x.x->data.array.pool.length, (long long)pool);
          x.count = n;
        }
      }
      x.verify();
      break;
    }
    case 5: {  // numeric add by entry
      if (m.total >= kMaxValues) return;
      const int64_t n = static_cast<int64_t>(m.entries.size());
      const uint8_t sel = r.u8();
      const int64_t entry = sel < 150 ? n : sel < 230 ? n - 1 : static_cast<int64_t>(sel % 5) - 2;
      uint64_t bits = 0;
      switch (r.pick(4)) {
        case 0: { const int64_t v = fz::pick_i64(r); qel_xvars_add_integer(m.xs, entry, v); bits = store_int(m.type, v); break; }
        case 1: { const int64_t v = fz::pick_i64(r); qel_xvars_add_long(m.xs, entry, v); bits = store_int(m.type, v); break; }
        case 2: { const float v = fz::pick_float(r); qel_xvars_add_float(m.xs, entry, v); bits = store_float(m.type, v); break; }
        default: { const double v = fz::pick_double(r); qel_xvars_add_double(m.xs, entry, v); bits = store_double(m.type, v); break; }
      }
      if (!m.arr() || m.type < 1 || m.type > 4) break;
      if (std::vector<Val> *e = m.add_target(entry)) {
        e->push_back(Val{St::known, bits, std::string(), 0});
        ++m.total;
      }
      break;
    }
    case 6: {  // numeric set by entry and position
      const int64_t entry = fz::pick_index(r, static_cast<int64_t>(m.entries.size()));
      const int64_t pos = fz::pick_index(r, 4);
      uint64_t bits = 0;
      switch (r.pick(4)) {
        case 0: { const int64_t v = fz::pick_i64(r); qel_xvars_set_integer(m.xs, entry, pos, v); bits = store_int(m.type, v); break; }
        case 1: { const int64_t v = fz::pick_i64(r); qel_xvars_set_long(m.xs, entry, pos, v); bits = store_int(m.type, v); break; }
        case 2: { const float v = fz::pick_float(r); qel_xvars_set_float(m.xs, entry, pos, v); bits = store_float(m.type, v); break; }
        default: { const double v = fz::pick_double(r); qel_xvars_set_double(m.xs, entry, pos, v); bits = store_double(m.type, v); break; }
      }
      if (m.type < 1 || m.type > 4) break;
      if (Val *v = m.at(entry, pos)) *v = Val{St::known, bits, std::string(), 0};
      break;
    }
    case 7: {  // numeric get by entry and position
      const int64_t entry = fz::pick_index(r, static_cast<int64_t>(m.entries.size()));
      const int64_t pos = fz::pick_index(r, 4);
      const Val *v = (m.type >= 1 && m.type <= 4) ? m.at(entry, pos) : nullptr;
      const uint32_t t = v ? m.type : 0;
      const uint64_t bits = v ? v->v : 0;
      const int64_t gi = qel_xvars_get_integer(m.xs, entry, pos), gl = qel_xvars_get_long(m.xs, entry, pos);
      const float gf = qel_xvars_get_float(m.xs, entry, pos);
      const double gd = qel_xvars_get_double(m.xs, entry, pos);
      FZ_CHECK(gi == read_int(t, bits) && gl == gi, "xvars: get_integer(%lld, %lld) of type %u gave %lld, model %lld",
               (long long)entry, (long long)pos, m.type, (long long)gi, (long long)read_int(t, bits));
      FZ_CHECK(fz::same_float(gf, read_float(t, bits)), "xvars: get_float(%lld, %lld) gave %a", (long long)entry,
               (long long)pos, (double)gf);
      FZ_CHECK(fz::same_double(gd, read_double(t, bits)), "xvars: get_double(%lld, %lld) gave %a", (long long)entry,
               (long long)pos, gd);
      return;
    }
    case 8: {  // add_string by entry
      if (m.total >= kMaxValues) return;
      const int64_t n = static_cast<int64_t>(m.entries.size());
      const uint8_t sel = r.u8();
      const int64_t entry = sel < 150 ? n : sel < 230 ? n - 1 : static_cast<int64_t>(sel % 5) - 2;
      Text t = pick_text(r, w, nullptr);
      qel_xvars_add_string(m.xs, entry, t.p(), t.len);
      if (!m.arr() || m.type != 5) break;
      if (std::vector<Val> *e = m.add_target(entry)) {
        e->push_back(Val{St::known, 0, t.value, 0});
        ++m.total;
      }
      break;
    }
    case 9: {  // set_string by entry and position (bytes possibly from its own pool)
      const int64_t entry = fz::pick_index(r, static_cast<int64_t>(m.entries.size()));
      const int64_t pos = fz::pick_index(r, 4);
      Text t = pick_text(r, w, nullptr);
      qel_xvars_set_string(m.xs, entry, pos, t.p(), t.len);
      if (m.type != 5) break;
      if (Val *v = m.at(entry, pos)) *v = Val{St::known, 0, t.value, 0};
      break;
    }
    case 10: {  // get_string by entry and position
      const int64_t entry = fz::pick_index(r, static_cast<int64_t>(m.entries.size()));
      const int64_t pos = fz::pick_index(r, 4);
      const char *p = "junk";
      int64_t len = 5;
      qel_xvars_get_string(m.xs, entry, pos, &p, &len);
      const Val *v = m.type == 5 ? m.at(entry, pos) : nullptr;
      if (!v) {
        FZ_CHECK(p == nullptr && len == 0, "xvars: get_string(%lld, %lld) gave %p/%lld", (long long)entry,
                 (long long)pos, (const void *)p, (long long)len);
      } else {
        FZ_CHECK(len == static_cast<int64_t>(v->s.size()) && (len == 0 || std::memcmp(p, v->s.data(), v->s.size()) == 0),
                 "xvars: get_string(%lld, %lld) differs", (long long)entry, (long long)pos);
      }
      return;
    }
    default: {  // set_buf / get_buf by entry and position
      const int64_t entry = fz::pick_index(r, static_cast<int64_t>(m.entries.size()));
      int64_t pos = fz::pick_index(r, 4);
      const bool set = r.flag();
      const uint64_t v = r.flag() ? r.u64() : r.u8();
      if (set) qel_xvars_set_buf(m.xs, entry, pos, v);
      const uint64_t got = qel_xvars_get_buf(m.xs, entry, pos);
      Val *target = nullptr;
      if (m.arr() && m.k() != K::none && entry >= 0 && entry < static_cast<int64_t>(m.entries.size())) {
        std::vector<Val> &e = m.entries[static_cast<size_t>(entry)];
        if (pos < 0) pos = static_cast<int64_t>(e.size()) - 1;
        if (pos >= 0 && pos < static_cast<int64_t>(e.size())) target = &e[static_cast<size_t>(pos)];
      }
      if (target && set) target->buf = v;
      FZ_CHECK(got == (target ? target->buf : 0), "xvars: get_buf(%lld, %lld) gave %llx, model %llx", (long long)entry,
               (long long)pos, (unsigned long long)got, (unsigned long long)(target ? target->buf : 0));
      break;
    }
  }
  m.verify();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Reader r(data, size);
  World w;
  for (XModel &x : w.x) make_x(x, kTypes[r.pick(sizeof kTypes / sizeof kTypes[0])], kMultis[r.pick(sizeof kMultis)]);
  for (SModel &s : w.s) make_s(s, kTypes[r.pick(sizeof kTypes / sizeof kTypes[0])], kMultis[r.pick(sizeof kMultis)]);
  for (XModel &x : w.x) x.verify();
  for (SModel &s : w.s) s.verify();
  for (int step = 0; step < 4096 && !r.empty(); ++step) {
    const uint8_t which = r.u8();
    if (which % 2 == 0) x_op(r, w, w.x[(which >> 1) % 3]);
    else s_op(r, w, w.s[(which >> 1) % 2]);
  }
  for (XModel &x : w.x) qel_xvar_free(x.x);
  for (SModel &s : w.s) qel_xvars_free(s.xs);
  return 0;
}
