// Model driver of the light variant (qel_xvar) and the column set
// (qel_xvars): operation sequences decoded from the input run on three light
// variants and two column sets, each compared after every operation with a
// model (a value or a vector of values for a light variant, a vector of
// vectors for a column set, caller values and string pools included).
// Values go in and out through the C calls or the C++ owners at random, so
// both answer to the same model.
//
// Rules modelled: conversions as tabled; out-of-range reads give 0 / 0.0 /
// NULL with length 0 and out-of-range writes do nothing; add_x gives the
// caller value of the lowest equal entry or of a new entry with caller value
// 0; shrink with a negative n on an array does nothing; entries exposed by a
// count raise are zero where the array grew; fetch of a multi string entry
// places its bytes behind the light variant's pool.
#include <qel.h>

#include <qel.hpp>
#include <string>
#include <string_view>
#include <vector>

#include "fuzz_common.h"

namespace {

using namespace fz;

Num kind_of(uint32_t t) {
  static const Num kNum[] = {Num::none, Num::u32, Num::i64, Num::f32, Num::f64};
  return t >= 1 && t <= 4 ? kNum[t] : Num::none;
}
constexpr int64_t kMaxValues = 1024;

struct XModel {
  qel::xvar x;
  uint32_t type = 0;
  uint8_t multi = 0;
  uint64_t num = 0, buf = 0;
  std::string str;
  Arr a;

  bool arr() const { return multi != 0; }
  bool strings() const { return type == 5; }
  bool storage() const { return type >= 1 && type <= 5; }
  Num k() const { return kind_of(type); }
  void make(uint32_t t, uint8_t mu) {
    x = qel::xvar(t, mu);
    type = t, multi = mu;
    reset();
  }
  void reset() {
    a.clear();
    num = buf = 0;
    str.clear();
  }
  int64_t cap() const {
    const qel_xvar *p = x.get();
    return !arr() || !storage()                 ? 0
           : strings()                          ? p->data.array.capacity
           : k() == Num::u32 || k() == Num::f32 ? p->data.arrayd.capacity
                                                : p->data.arrayx.capacity;
  }
  template <class F>
  void with_array(F f) {
    qel_xvar *p = x.get();
    if (strings()) f(p->data.array);
    else if (k() == Num::u32 || k() == Num::f32) f(p->data.arrayd);
    else f(p->data.arrayx);
  }
  uint64_t *buf_at(int64_t i) {
    uint64_t *b = nullptr;
    with_array([&](auto &arr) { b = &arr.entries[i].buf; });
    return b;
  }

  void check() {
    const qel_xvar *p = x.get();
    FZ_CHECK(p->type == type && p->multi == multi && x.type() == type && x.multi() == static_cast<int8_t>(multi),
             "xvar: type/multi %u/%u, model %u/%u", p->type, p->multi, type, multi);
    if (!arr()) {
      FZ_CHECK(x.size() == 0 && p->data.single.buf == buf, "xvar: size %ld buf %lx, model buf %lx", x.size(),
               p->data.single.buf, buf);
      if (strings()) {
        const qel_string &s = p->data.single.value.string;
        FZ_CHECK(std::string_view(s.bytes ? s.bytes : "", static_cast<size_t>(s.length)) == str,
                 "xvar: string of %ld bytes, model %zu", s.length, str.size());
      } else if (storage()) {
        const uint64_t got =
            k() == Num::u32 || k() == Num::f32 ? p->data.single.value.bits32 : p->data.single.value.bits64;
        FZ_CHECK(fz::same_value(k(), got, num), "xvar: value %lx, model %lx", got, num);
        num = got;
      }
      return;
    }
    FZ_CHECK(x.size() == (storage() ? a.count : 0), "xvar: size %ld, model %ld", x.size(), a.count);
    if (storage()) with_array([&](auto &arr) { fz::check_array(arr, a, k(), "xvar"); });
  }
};

struct SModel {
  qel::xvars xs;
  uint32_t type = 0;
  uint8_t multi = 0;
  std::vector<std::vector<Slot>> entries;
  int64_t total = 0;

  bool arr() const { return multi != 0; }
  Num k() const { return kind_of(type); }
  void make(uint32_t t, uint8_t mu) {
    xs = qel::xvars(t, mu);
    type = t, multi = mu;
    entries.clear();
    total = 0;
  }

  void check() const {
    const qel_xvars *p = xs.get();
    FZ_CHECK(p->type == type && p->multi == multi && xs.type() == type && xs.multi() == static_cast<int8_t>(multi) &&
                 xs.size() == static_cast<int64_t>(entries.size()),
             "xvars: type/multi %u/%u size %ld, model %u/%u %zu", p->type, p->multi, xs.size(), type, multi,
             entries.size());
    if (type < 1 || type > 5) return;
    FZ_CHECK(p->index.count == static_cast<int64_t>(entries.size()), "xvars: index count %ld", p->index.count);
    int64_t start = 0;
    for (size_t e = 0; e < entries.size(); ++e) {
      FZ_CHECK(
          p->index.entries[e].value == static_cast<uint32_t>(start) && p->index.entries[e].buf == entries[e].size(),
          "xvars: index entry %zu is (%u, %lu), model (%ld, %zu)", e, p->index.entries[e].value,
          p->index.entries[e].buf, start, entries[e].size());
      FZ_CHECK(xs.entry_size(static_cast<int64_t>(e)) == (arr() ? static_cast<int64_t>(entries[e].size()) : 0),
               "xvars: get_size(%zu)", e);
      for (size_t i = 0; i < entries[e].size(); ++i, ++start) {
        Slot got = type == 5                            ? fz::entry(p->data.array, start)
                   : k() == Num::u32 || k() == Num::f32 ? fz::entry(p->data.arrayd, start)
                                                        : fz::entry(p->data.arrayx, start);
        FZ_CHECK(fz::same_slot(type == 5 ? Num::none : k(), entries[e][i], got), "xvars: value %zu/%zu differs", e, i);
      }
    }
    const int64_t n = type == 5                            ? p->data.array.count
                      : k() == Num::u32 || k() == Num::f32 ? p->data.arrayd.count
                                                           : p->data.arrayx.count;
    FZ_CHECK(n == start, "xvars: %ld values, model %ld", n, start);
  }

  // The value addressed by (entry, pos) as the accessors resolve it.
  Slot *at(int64_t entry, int64_t pos) {
    if (entry < 0 || entry >= static_cast<int64_t>(entries.size())) return nullptr;
    std::vector<Slot> &e = entries[static_cast<size_t>(entry)];
    if (!arr()) return e.empty() ? nullptr : &e[0];
    return pos >= 0 && pos < static_cast<int64_t>(e.size()) ? &e[static_cast<size_t>(pos)] : nullptr;
  }
  // The entry a value-by-value add goes to (the last one, or a new one), or NULL.
  std::vector<Slot> *add_target(int64_t entry) {
    const int64_t n = static_cast<int64_t>(entries.size());
    if (entry == n) return &entries.emplace_back();
    return n > 0 && entry == n - 1 ? &entries.back() : nullptr;
  }
};

const uint32_t kTypes[] = {1, 2, 3, 4, 5, 1, 2, 3, 4, 5, 0, 6, 7};
const uint8_t kMultis[] = {0, 1, 1, 0, 2, 0xFF};

struct World {
  XModel x[3];
  SModel s[2];
};

// Input bytes, a measured text, NULL, or bytes in the light variant's own
// storage or in a column set's pool.
Text pick_text(Reader &r, World &w, XModel *self) {
  const unsigned how = r.pick(6);
  Text t;
  if (how == 0 && self && self->strings()) {
    qel_xvar *p = self->x.get();
    if (!self->arr() && fz::inside(r, p->data.single.value.string.bytes, p->data.single.value.string.length, t))
      return t;
    if (self->arr() && self->a.count > 0) {
      const qel_array_entry &e = p->data.array.entries[r.u8() % self->a.count];
      if (fz::inside(r, p->data.array.pool.bytes + e.offset, e.length, t)) return t;
    }
  }
  SModel &s = w.s[r.pick(2)];
  const qel_array &a = s.xs.get()->data.array;
  if (how == 1 && s.type == 5 && a.count > 0) {
    const qel_array_entry &e = a.entries[r.u8() % a.count];
    if (fz::inside(r, a.pool.bytes + e.offset, e.length, t)) return t;
  }
  return fz::outside(r, how >= 2 ? how - 2 : 2);
}

// One step on a light variant: what the driver decoded, and the operations.
struct XStep {
  Reader &r;
  World &w;
  XModel &m;
  const uint8_t code;
  const bool cpp;
  qel_xvar *const x;
  const int64_t i;

  // Free and new.
  bool free_new() {
    if (r.u8() % 4 == 0) m.make(r.of(kTypes), r.of(kMultis));
    return true;
  }
  // Change (to a new pair: the contents and caller values are dropped).
  bool change() {
    const uint32_t t = r.flag() ? m.type : r.of(kTypes);
    const uint8_t mu = r.flag() ? m.multi : r.of(kMultis);
    m.x.change(t, mu);
    if (t != m.type || mu != m.multi) m.type = t, m.multi = mu, m.reset();
    return true;
  }
  // Shrink, any n.
  bool shrink() {
    const uint8_t sel = r.u8();
    const int64_t n = sel < 220 ? static_cast<int64_t>(sel % 40) - 4 : (sel & 1 ? INT64_MAX : INT64_MIN);
    m.x.shrink(n);
    if (!m.storage()) return true;
    if (!m.arr()) {
      if (static_cast<int64_t>(m.str.size()) > n) m.str.resize(static_cast<size_t>(std::max<int64_t>(n, 0)));
      m.num = m.buf = 0;
    } else if (n == 0) {
      m.a.count = 0;
      m.a.forget_above();
    } else if (n > 0) {
      m.with_array([&](auto &arr) { fz::expose(arr, m.a, m.k(), std::min(n, arr.capacity), "xvar shrink"); });
    }
    return true;
  }
  // Add or add_x of a number or a string (add_x: then maybe a write through the pointer).
  bool add() {
    if (m.a.count >= kMaxValues) return false;
    const bool bytes = code >= 7, keyed = code == 4 || code == 8;
    fz::Number n = fz::pick_number(r);
    if (m.a.count > 0 && r.flag()) n.i = fz::read_int(m.k(), m.a.at(r.u8() % m.a.count).v), n.kind &= 1;
    const Text t = bytes ? pick_text(r, w, &m) : Text{};
    uint64_t *bp = reinterpret_cast<uint64_t *>(8);
    if (bytes && keyed) {
      qel_xvar_add_string_x(x, t.p(), t.len, &bp);
    } else if (bytes) {
      cpp &&t.len >= 0 && t.p() ? m.x.add(std::string_view(t.p(), static_cast<size_t>(t.len)))
                                : qel_xvar_add_string(x, t.p(), t.len);
    } else if (!keyed) {
      switch (n.kind) {
        case 0: qel_xvar_add_integer(x, n.i); break;
        case 1: cpp ? m.x.add(n.i) : qel_xvar_add_long(x, n.i); break;
        case 2: cpp ? m.x.add(n.f) : qel_xvar_add_float(x, n.f); break;
        default: cpp ? m.x.add(n.d) : qel_xvar_add_double(x, n.d); break;
      }
    } else {
      switch (n.kind) {
        case 0: qel_xvar_add_integer_x(x, n.i, &bp); break;
        case 1: cpp ? void(bp = m.x.add_x(n.i)) : qel_xvar_add_long_x(x, n.i, &bp); break;
        case 2: cpp ? void(bp = m.x.add_x(n.f)) : qel_xvar_add_float_x(x, n.f, &bp); break;
        default: cpp ? void(bp = m.x.add_x(n.d)) : qel_xvar_add_double_x(x, n.d, &bp); break;
      }
    }
    const bool applies = m.arr() && (bytes ? m.strings() : m.k() != Num::none);
    const uint64_t bits = bytes ? 0 : n.bits(m.k());
    if (!keyed) {
      if (applies) m.a.push(bits, t.value, 0);
      return true;
    }
    FZ_CHECK(applies || bp == nullptr, "xvar: add_x on type %u multi %u gave a pointer", m.type, m.multi);
    if (!applies) return true;
    int64_t at = m.a.lowest(bits, t.value, bytes);
    if (at < 0) m.a.push(bits, t.value, 0), at = m.a.count - 1;
    FZ_CHECK(bp == m.buf_at(at), "xvar: add_x did not give the caller value of entry %ld", at);
    if (r.flag()) *bp = m.a.at(at).buf = r.u8();
    return true;
  }
  // Numeric set, any index.
  bool set() {
    const fz::Number n = fz::pick_number(r);
    switch (n.kind) {
      case 0: qel_xvar_set_integer(x, i, n.i); break;
      case 1: cpp ? m.x.set(i, n.i) : qel_xvar_set_long(x, i, n.i); break;
      case 2: cpp ? m.x.set(i, n.f) : qel_xvar_set_float(x, i, n.f); break;
      default: cpp ? m.x.set(i, n.d) : qel_xvar_set_double(x, i, n.d); break;
    }
    if (m.k() == Num::none) return true;
    if (!m.arr()) m.num = n.bits(m.k());
    else if (i >= 0 && i < m.a.count) m.a.set(i, n.bits(m.k()), {}, 0);
    return true;
  }
  // Numeric get, any index, in all four kinds, through C and C++.
  bool get() {
    const bool in = !m.arr() || (i >= 0 && i < m.a.count);
    const Num k = in ? m.k() : Num::none;
    const uint64_t bits = !m.arr() ? m.num : in ? m.a.at(i).v : 0;
    fz::check_reads(k, bits, qel_xvar_get_integer(x, i), m.x.get<int64_t>(i), qel_xvar_get_float(x, i),
                    qel_xvar_get_double(x, i), "xvar get");
    fz::check_reads(k, bits, qel_xvar_get_long(x, i), qel_xvar_get_long(x, i), m.x.get<float>(i), m.x.get<double>(i),
                    "xvar C++ get");
    return false;
  }
  // set_string, any index.
  bool set_string() {
    Text t = pick_text(r, w, &m);
    qel_xvar_set_string(x, i, t.p(), t.len);
    if (!m.strings()) return true;
    if (!m.arr()) m.str = t.value;
    else if (i >= 0 && i < m.a.count) m.a.set(i, 0, t.value, 0);
    return true;
  }
  // get_string, any index, through C and C++.
  bool get_string() {
    const char *p = "junk";
    int64_t len = 5;
    qel_xvar_get_string(x, i, &p, &len);
    const std::string_view v = m.x.get<std::string_view>(i);
    if (!m.strings() || (m.arr() && (i < 0 || i >= m.a.count))) {
      FZ_CHECK(p == nullptr && len == 0 && v.empty(), "xvar: get_string(%ld) of type %u gave %p/%ld", i, m.type,
               (const void *)p, len);
    } else {
      const std::string &want = m.arr() ? m.a.at(i).s : m.str;
      FZ_CHECK(std::string_view(p ? p : "", static_cast<size_t>(len)) == want && v == want,
               "xvar: get_string(%ld) differs", i);
    }
    return false;
  }
  // set_buf / get_buf, any index, up to and past the capacity.
  bool buf() {
    int64_t j = r.flag() ? i : static_cast<int64_t>(r.u8()) % (m.a.cap + 2);
    const bool set = r.flag();
    const uint64_t v = r.flag() ? r.u64() : r.u8();
    if (set) cpp ? m.x.set_buf(j, v) : qel_xvar_set_buf(x, j, v);
    const uint64_t got = cpp ? m.x.get_buf(j) : qel_xvar_get_buf(x, j);
    if (!m.arr()) {
      if (set) m.buf = v;
      FZ_CHECK(got == m.buf, "xvar: get_buf gave %lx, model %lx", got, m.buf);
      return true;
    }
    if (j < 0) j = m.a.count - 1;
    if (!m.storage() || j < 0 || j >= m.a.cap) {
      FZ_CHECK(got == 0, "xvar: get_buf(%ld) outside the capacity gave %lx", j, got);
      return true;
    }
    Slot &s = m.a.at(j);
    if (set && s.st == St::zero) s = Slot{St::known, 0, {}, v};
    if (set) s.buf = v;
    FZ_CHECK(s.st == St::unknown || got == s.buf, "xvar: get_buf(%ld) gave %lx, model %lx", j, got, s.buf);
    return true;
  }
};

const fz::Operation<XStep> kXOps[] = {
    {"free_new", &XStep::free_new},
    {"change", &XStep::change},
    {"shrink", &XStep::shrink},
    {"add", &XStep::add},
    {"add_x", &XStep::add},
    {"set", &XStep::set},
    {"get", &XStep::get},
    {"add_string", &XStep::add},
    {"add_string_x", &XStep::add},
    {"set_string", &XStep::set_string},
    {"get_string", &XStep::get_string},
    {"buf", &XStep::buf},
    {"buf", &XStep::buf},
    {"buf", &XStep::buf},
};

void x_op(Reader &r, World &w, XModel &m) {
  const auto code = static_cast<uint8_t>(r.u8() % std::size(kXOps));
  const bool cpp = r.flag();
  qel_xvar *x = m.x.get();
  FZ_TRACE("xvar %p (type %u multi %u count %ld): %s%s", (void *)&m, m.type, m.multi, m.a.count, kXOps[code].name,
           cpp ? " (C++)" : "");
  const int64_t i = fz::pick_index(r, m.a.count);
  XStep o{r, w, m, code, cpp, x, i};
  if ((o.*kXOps[code].run)()) m.check();
}

// One step on a column set: what the driver decoded, and the operations.
struct SStep {
  Reader &r;
  World &w;
  SModel &m;
  const uint8_t code;
  const bool cpp;
  qel_xvars *const xs;
  const int64_t entry;
  const int64_t pos;

  // Free and new, change, clear.
  bool renew() {
    const unsigned how = r.pick(4);
    const uint32_t t = r.flag() ? m.type : r.of(kTypes);
    const uint8_t mu = r.flag() ? m.multi : r.of(kMultis);
    if (how == 0) {
      m.make(t, mu);
    } else if (how == 1) {
      m.xs.change(t, mu);
      if (t != m.type || mu != m.multi) m.type = t, m.multi = mu, m.entries.clear(), m.total = 0;
    } else if (how == 2) {
      m.xs.clear();
      m.entries.clear(), m.total = 0;
    }
    return true;
  }
  // add_var of a light variant.
  bool add_var() {
    XModel &x = w.x[r.pick(3)];
    if (m.total + x.a.count >= kMaxValues) return false;
    cpp ? m.xs.add_var(x.x) : qel_xvars_add_var(xs, x.x.get());
    if (x.type != m.type || x.multi != m.multi || (m.k() == Num::none && m.type != 5)) return true;
    std::vector<Slot> e;
    if (!x.arr()) e.push_back(Slot{St::known, x.num, x.str, 0});
    else e.assign(x.a.slots.begin(), x.a.slots.begin() + x.a.count);
    m.total += static_cast<int64_t>(e.size());
    m.entries.push_back(std::move(e));
    return true;
  }
  // fetch_var into a light variant.
  bool fetch_var() {
    XModel &x = w.x[r.pick(3)];
    int64_t pool0 = x.arr() && x.strings() ? x.x.get()->data.array.pool.length : 0;
    cpp ? m.xs.fetch(entry, x.x) : qel_xvars_fetch_var(xs, entry, x.x.get());
    if (x.type == m.type && x.multi == m.multi && entry >= 0 && entry < static_cast<int64_t>(m.entries.size()) &&
        x.storage()) {
      const std::vector<Slot> &e = m.entries[static_cast<size_t>(entry)];
      if (!x.arr()) {
        x.num = e[0].v;
        x.str = e[0].s;
      } else {
        const int64_t n = static_cast<int64_t>(e.size());
        FZ_CHECK(x.cap() >= n, "fetch: capacity %ld below %ld", x.cap(), n);
        x.a.slots.resize(std::max(x.a.slots.size(), e.size()));
        std::copy(e.begin(), e.end(), x.a.slots.begin());
        x.a.count = n;
        x.a.forget_above();
        for (int64_t i = 0; i < n && x.strings(); pool0 += static_cast<int64_t>(e[static_cast<size_t>(i++)].s.size()))
          FZ_CHECK(x.x.get()->data.array.entries[i].offset == static_cast<uint32_t>(pool0),
                   "fetch: string %ld not placed behind the pool", i);
        FZ_CHECK(!x.strings() || x.x.get()->data.array.pool.length == pool0,
                 "fetch: pool holds %ld bytes, expected %ld", x.x.get()->data.array.pool.length, pool0);
      }
    }
    x.check();
    return true;
  }
  // Numeric or string add by entry (mostly the last or a new one).
  bool add() {
    if (m.total >= kMaxValues) return false;
    const int64_t n = static_cast<int64_t>(m.entries.size());
    const uint8_t sel = r.u8();
    const int64_t to = sel < 150 ? n : sel < 230 ? n - 1 : static_cast<int64_t>(sel % 5) - 2;
    Slot v{St::known, 0, {}, 0};
    bool applies = m.arr() && m.k() != Num::none;
    if (code == 5) {
      const fz::Number num = fz::pick_number(r);
      switch (num.kind) {
        case 0: qel_xvars_add_integer(xs, to, num.i); break;
        case 1: cpp ? m.xs.add(to, num.i) : qel_xvars_add_long(xs, to, num.i); break;
        case 2: cpp ? m.xs.add(to, num.f) : qel_xvars_add_float(xs, to, num.f); break;
        default: cpp ? m.xs.add(to, num.d) : qel_xvars_add_double(xs, to, num.d); break;
      }
      v.v = num.bits(m.k());
    } else {
      const Text t = pick_text(r, w, nullptr);
      qel_xvars_add_string(xs, to, t.p(), t.len);
      v.s = t.value;
      applies = m.arr() && m.type == 5;
    }
    if (std::vector<Slot> *e = applies ? m.add_target(to) : nullptr) e->push_back(v), ++m.total;
    return true;
  }
  // Numeric or string set by entry and position.
  bool set() {
    Slot v{St::known, 0, {}, 0};
    bool applies = m.k() != Num::none;
    if (code == 6) {
      const fz::Number num = fz::pick_number(r);
      switch (num.kind) {
        case 0: qel_xvars_set_integer(xs, entry, pos, num.i); break;
        case 1: cpp ? m.xs.set(entry, pos, num.i) : qel_xvars_set_long(xs, entry, pos, num.i); break;
        case 2: cpp ? m.xs.set(entry, pos, num.f) : qel_xvars_set_float(xs, entry, pos, num.f); break;
        default: cpp ? m.xs.set(entry, pos, num.d) : qel_xvars_set_double(xs, entry, pos, num.d); break;
      }
      v.v = num.bits(m.k());
    } else {
      const Text t = pick_text(r, w, nullptr);
      qel_xvars_set_string(xs, entry, pos, t.p(), t.len);
      v.s = t.value;
      applies = m.type == 5;
    }
    if (Slot *s = applies ? m.at(entry, pos) : nullptr) *s = v;
    return true;
  }
  // Numeric get by entry and position, through C and C++.
  bool get() {
    const Slot *v = m.k() != Num::none ? m.at(entry, pos) : nullptr;
    const Num k = v ? m.k() : Num::none;
    const uint64_t bits = v ? v->v : 0;
    fz::check_reads(k, bits, qel_xvars_get_integer(xs, entry, pos), qel_xvars_get_long(xs, entry, pos),
                    qel_xvars_get_float(xs, entry, pos), qel_xvars_get_double(xs, entry, pos), "xvars get");
    fz::check_reads(k, bits, m.xs.get<int64_t>(entry, pos), m.xs.get<int64_t>(entry, pos), m.xs.get<float>(entry, pos),
                    m.xs.get<double>(entry, pos), "xvars C++ get");
    return false;
  }
  // get_string by entry and position.
  bool get_string() {
    const char *p = "junk";
    int64_t len = 5;
    qel_xvars_get_string(xs, entry, pos, &p, &len);
    const Slot *v = m.type == 5 ? m.at(entry, pos) : nullptr;
    FZ_CHECK(v ? std::string_view(p ? p : "", static_cast<size_t>(len)) == v->s &&
                     m.xs.get<std::string_view>(entry, pos) == v->s
               : p == nullptr && len == 0,
             "xvars: get_string(%ld, %ld) gave %p/%ld", entry, pos, (const void *)p, len);
    return false;
  }
  // set_buf / get_buf by entry and position.
  bool buf() {
    const bool set = r.flag();
    const uint64_t v = r.flag() ? r.u64() : r.u8();
    if (set) cpp ? m.xs.set_buf(entry, pos, v) : qel_xvars_set_buf(xs, entry, pos, v);
    const uint64_t got = cpp ? m.xs.get_buf(entry, pos) : qel_xvars_get_buf(xs, entry, pos);
    Slot *target = nullptr;
    if (m.arr() && m.type >= 1 && m.type <= 5 && entry >= 0 && entry < static_cast<int64_t>(m.entries.size())) {
      std::vector<Slot> &e = m.entries[static_cast<size_t>(entry)];
      const int64_t p = pos < 0 ? static_cast<int64_t>(e.size()) - 1 : pos;
      if (p >= 0 && p < static_cast<int64_t>(e.size())) target = &e[static_cast<size_t>(p)];
    }
    if (target && set) target->buf = v;
    FZ_CHECK(got == (target ? target->buf : 0), "xvars: get_buf(%ld, %ld) gave %lx", entry, pos, got);
    return true;
  }
};

const fz::Operation<SStep> kSOps[] = {
    {"renew", &SStep::renew},
    {"add_var", &SStep::add_var},
    {"add_var", &SStep::add_var},
    {"fetch_var", &SStep::fetch_var},
    {"fetch_var", &SStep::fetch_var},
    {"add", &SStep::add},
    {"set", &SStep::set},
    {"get", &SStep::get},
    {"add_string", &SStep::add},
    {"set_string", &SStep::set},
    {"get_string", &SStep::get_string},
    {"buf", &SStep::buf},
};

void s_op(Reader &r, World &w, SModel &m) {
  const auto code = static_cast<uint8_t>(r.u8() % std::size(kSOps));
  const bool cpp = r.flag();
  qel_xvars *xs = m.xs.get();
  FZ_TRACE("xvars %p (type %u multi %u, %zu entries): %s%s", (void *)&m, m.type, m.multi, m.entries.size(),
           kSOps[code].name, cpp ? " (C++)" : "");
  const int64_t entry = fz::pick_index(r, static_cast<int64_t>(m.entries.size()));
  const int64_t pos = fz::pick_index(r, 4);
  SStep o{r, w, m, code, cpp, xs, entry, pos};
  if ((o.*kSOps[code].run)()) m.check();
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Reader r(data, size);
  World w;
  for (XModel &x : w.x) x.make(r.of(kTypes), r.of(kMultis)), x.check();
  for (SModel &s : w.s) s.make(r.of(kTypes), r.of(kMultis)), s.check();
  for (int step = 0; step < 4096 && !r.empty(); ++step) {
    const uint8_t which = r.u8();
    if (which % 2 == 0) x_op(r, w, w.x[(which >> 1) % 3]);
    else s_op(r, w, w.s[(which >> 1) % 2]);
  }
  return 0;
}

#ifndef QEL_FUZZ
QEL_MODEL_TEST(columns)
#endif
