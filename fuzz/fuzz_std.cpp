// Model driver of the support containers: operation sequences decoded from
// the input run on two of each value array (qel_arrayd, qel_arrayx,
// qel_array), two hashes, two streams, a string and a pointer array, and each
// is compared with a plain model after every operation.  The 32-bit and
// 64-bit arrays go through the exported calls or the shared inline core at
// random, so both paths answer to the same model.
//
// The rules modelled: reads outside 0..count-1 give 0 (qel_array: NULL, 0,
// tag 0) and writes there do nothing; entries gained by growth are zero and
// entries cut off by a direct write of `count` stay until the next change;
// entry_insert gives the lowest equal entry or a new one with buf 0, also
// after values written directly and expand(0); qsort
// nonzero ascending, 0 descending, entries move whole; find and bfind (on an
// ascending array) give the lowest index; a hash key inserted again reuses
// its newest entry when that entry's value is NULL, walks run in insertion
// order; stream zero(off, n) wipes within the capacity and cuts the length to
// off; trim removes leading and trailing ASCII whitespace.
#include <qel_std.h>

#include <string>
#include <vector>

#include "fuzz_common.h"
#include "qel_std_inline.h"

namespace {

using fz::Arr;
using fz::Num;
using fz::Reader;
using fz::Slot;
using fz::St;

constexpr int64_t kMaxCount = 1024;

uint64_t pick_buf(Reader &r) { return r.u8() < 200 ? r.u8() % 4u : r.u64(); }

// The calls of each array kind; `core` picks the shared inline core where it
// has the operation.
#define FZ_ARRAY_CALLS(P)                                                      \
  using A = qel_##P;                                                           \
  static constexpr const char *name = "qel_" #P;                               \
  static void init(A *a) { qel_##P##_init(a, 0); }                             \
  static void term(A *a) { qel_##P##_term(a); }                                \
  static void append_array(A *d, const A *s) { qel_##P##_append_array(d, s); } \
  static void clone(const A *s, A *d) { qel_##P##_clone(s, 0, d, 0, 0); }      \
  static void expand(A *a, int64_t n) { qel_##P##_expand(a, n); }              \
  static void remove_all(A *a) { qel_##P##_remove_all(a); }                    \
  static void qsort(A *a, int f) { qel_##P##_qsort(a, f); }

#define FZ_VALUE_CALLS(P, V)                                                            \
  static void append(A *a, uint64_t v, uint64_t b, bool core) {                         \
    core ? qel_detail::append(a, V(v), b) : qel_##P##_append(a, V(v), b);               \
  }                                                                                     \
  static int get_at(const A *a, int64_t i, uint64_t *o, bool core) {                    \
    V x = 0x5A5A5A5A;                                                                   \
    const int ret = core ? qel_detail::get_at(a, i, &x) : qel_##P##_get_at(a, i, &x);   \
    *o = static_cast<uint64_t>(x);                                                      \
    return ret;                                                                         \
  }                                                                                     \
  static void set_at(A *a, int64_t i, uint64_t v, uint64_t b, bool core) {              \
    core ? qel_detail::set_at(a, i, V(v), b) : qel_##P##_set_at(a, i, V(v), b);         \
  }                                                                                     \
  static int64_t find(const A *a, uint64_t v) { return qel_##P##_find_index(a, V(v)); } \
  static int64_t bfind(const A *a, uint64_t v, bool core) {                             \
    return core ? qel_detail::bfind_index(a, V(v)) : qel_##P##_bfind_index(a, V(v));    \
  }                                                                                     \
  static auto *insert(A *a, uint64_t v, bool core) {                                    \
    return core ? qel_detail::entry_insert(a, V(v)) : qel_##P##_entry_insert(a, V(v));  \
  }

struct D {
  FZ_ARRAY_CALLS(arrayd)
  FZ_VALUE_CALLS(arrayd, uint32_t)
  static constexpr Num k = Num::u32;
  static uint64_t pick(Reader &r) { return fz::pick_u32(r); }
  static int order(const Slot &x, const Slot &y) { return (x.v > y.v) - (x.v < y.v); }
};

struct X {
  FZ_ARRAY_CALLS(arrayx)
  FZ_VALUE_CALLS(arrayx, int64_t)
  static constexpr Num k = Num::i64;
  static uint64_t pick(Reader &r) { return static_cast<uint64_t>(fz::pick_i64(r)); }
  static int order(const Slot &x, const Slot &y) {
    return (static_cast<int64_t>(x.v) > static_cast<int64_t>(y.v)) -
           (static_cast<int64_t>(x.v) < static_cast<int64_t>(y.v));
  }
};

struct S {
  FZ_ARRAY_CALLS(array)
  static constexpr Num k = Num::none;
  static int order(const Slot &x, const Slot &y) { return fz::bytes_order(x.s, y.s); }
};

template <class T>
struct Model {
  typename T::A a;
  Arr m;
  Model() { T::init(&a); }
  ~Model() { T::term(&a); }
  Model(const Model &) = delete;
  Model &operator=(const Model &) = delete;
  void check() { fz::check_array(a, m, T::k, T::name); }
};

// Bytes for a string array: from the input, or a tail of an entry of one of
// the two arrays (possibly the destination's own pool).
fz::Text pick_bytes(Reader &r, Model<S> &self, Model<S> &other) {
  const unsigned how = r.pick(5);
  Model<S> &from = how == 1 ? other : self;
  fz::Text t;
  if (how <= 1 && from.m.count > 0) {
    const qel_array_entry &e = from.a.entries[r.u8() % from.m.count];
    if (fz::inside(r, from.a.pool.bytes + e.offset, e.length, t)) return t;
  }
  return fz::outside(r, how == 4 ? 2 : 1 + (r.u8() & 2), false);
}

template <class T>
void array_op(Reader &r, Model<T> &x, Model<T> &other) {
  constexpr bool str = T::k == Num::none;
  auto &a = x.a;
  Arr &m = x.m;
  const bool core = r.flag();
  const unsigned sub = r.pick(16);
  FZ_TRACE("%s %p: op %u%s (count %ld, capacity %ld)", T::name, (void *)&x, sub, core ? " (core)" : "", m.count,
           a.capacity);
  // The value of an append, set, insert or search: often one already held.
  auto value = [&](fz::Text &t) -> uint64_t {
    if constexpr (str) {
      t = pick_bytes(r, x, other);
      return 0;
    } else {
      return m.count > 0 && r.flag() ? m.at(r.u8() % m.count).v : T::pick(r);
    }
  };
  fz::Text t;
  switch (sub) {
    case 0:
    case 1: {  // append
      if (m.count >= kMaxCount) return;
      const uint64_t v = value(t), b = str ? (r.flag() ? r.u32() : r.u8() % 3u) : pick_buf(r);
      if constexpr (str) qel_array_append(&a, t.p(), t.len, static_cast<uint32_t>(b));
      else T::append(&a, v, b, core);
      m.push(v, t.value, b);
      break;
    }
    case 2:
    case 3: {  // append_array or clone, of the other array or of itself
      Model<T> &src = r.flag() ? x : other;
      if (m.count + src.m.count > kMaxCount) return;
      const std::vector<Slot> add(src.m.slots.begin(), src.m.slots.begin() + src.m.count);
      if (sub == 2) {
        T::append_array(&a, &src.a);
      } else {
        T::clone(&src.a, &a);
        m.sorted = src.m.sorted;
        m.count = 0;
      }
      for (const Slot &s : add) m.push(s.v, s.s, s.buf);
      m.forget_above();
      m.sorted = sub == 3 ? src.m.sorted : m.sorted && add.empty();
      if (&src != &x) src.check();
      break;
    }
    case 4: {  // expand
      const int64_t n = static_cast<int64_t>(r.u16() % (kMaxCount + 1)) - (r.flag() ? 8 : 0);
      T::expand(&a, n);
      FZ_CHECK(a.capacity >= n, "%s: expand(%ld) left capacity %ld", T::name, n, a.capacity);
      break;
    }
    case 5: {  // remove_all, or term and init
      if (r.u8() % 4 != 0) return;
      if (r.flag()) {
        T::remove_all(&a);
        m.count = 0;
        m.sorted = true;
        m.forget_above();
      } else {
        T::term(&a);
        T::init(&a);
        m.clear();
      }
      break;
    }
    case 6: {  // get_at, any index
      const int64_t i = fz::pick_index(r, m.count);
      const bool in = i >= 0 && i < m.count;
      if constexpr (str) {
        const char *p = "x";
        int64_t len = 99;
        const uint32_t tag = qel_array_get_at(&a, i, &p, &len);
        const Slot want = in ? m.at(i) : Slot{};
        FZ_CHECK(std::string(p ? p : "", static_cast<size_t>(len)) == want.s &&
                     tag == static_cast<uint32_t>(want.buf) && (in || p == nullptr),
                 "qel_array: get_at(%ld) gave %ld bytes, tag %u", i, len, tag);
      } else {
        uint64_t out = 0;
        const int ret = T::get_at(&a, i, &out, core);
        FZ_CHECK(ret == in && out == (in ? m.at(i).v : 0), "%s: get_at(%ld) gave %lx, ret %d", T::name, i, out, ret);
      }
      break;
    }
    case 7:
    case 8: {  // set_at, any index (bytes possibly from the own pool, even the same entry)
      const int64_t i = fz::pick_index(r, m.count);
      const uint64_t v = value(t), b = str ? (r.flag() ? r.u32() : r.u8() % 3u) : pick_buf(r);
      if constexpr (str) qel_array_set_at(&a, i, t.p(), t.len, static_cast<uint32_t>(b));
      else T::set_at(&a, i, v, b, core);
      if (i >= 0 && i < m.count) m.set(i, v, t.value, b);
      if constexpr (str) other.check();
      break;
    }
    case 9: {  // find_index / bfind_index
      const uint64_t v = value(t);
      const int64_t want = m.lowest(v, t.value, str);
      int64_t got, bgot;
      if constexpr (str) {
        got = qel_array_find_index(&a, t.p(), t.len);
        bgot = qel_array_bfind_index(&a, t.p(), t.len);
      } else {
        got = T::find(&a, v);
        bgot = T::bfind(&a, v, core);
      }
      FZ_CHECK(got == want, "%s: find_index gave %ld, lowest is %ld", T::name, got, want);
      FZ_CHECK(m.sorted
                   ? bgot == want
                   : bgot == -1 || (bgot >= 0 && bgot < m.count && (str ? m.at(bgot).s == t.value : m.at(bgot).v == v)),
               "%s: bfind_index gave %ld, lowest is %ld (sorted %d)", T::name, bgot, want, m.sorted);
      return;
    }
    case 10:
    case 11: {  // entry_insert (numbers: now and then a run of new values), then maybe write the entry's buf
      const uint64_t base = r.u64(), mask = T::k == Num::u32 ? 0xFFFFFFFFu : ~uint64_t{0};
      for (int k = 0, n = !str && r.u8() < 24 ? 64 : 1; k < n && m.count < kMaxCount; ++k) {
        const uint64_t v = k == 0 ? value(t) : (base + static_cast<uint64_t>(k)) & mask;
        int64_t at = m.lowest(v, t.value, str);
        decltype(a.entries) e;
        if constexpr (str) e = qel_array_entry_insert(&a, t.p(), t.len);
        else e = T::insert(&a, v, core);
        if (at < 0) m.push(v, t.value, 0), at = m.count - 1;
        FZ_CHECK(e == a.entries + at, "%s: entry_insert gave entry %ld, expected %ld", T::name, (e - a.entries), at);
        if (r.flag()) e->buf = m.at(at).buf = pick_buf(r);
      }
      break;
    }
    case 12: {  // qsort
      const int flag = static_cast<int>(r.pick(3));
      T::qsort(&a, flag);
      fz::check_sort(a, m, T::k, flag != 0, T::order, T::name);
      break;
    }
    case 13: {  // direct write of count, up to the capacity
      if (a.capacity == 0) return;
      const int64_t n = static_cast<int64_t>(r.u16() % static_cast<uint64_t>(a.capacity + 1));
      fz::expose(a, m, T::k, n, T::name);
      a.count = n;
      break;
    }
    case 14: {  // direct write of an entry's buf below the capacity; strings: update_at of the tag, any index
      if constexpr (!str) {
        if (a.capacity != 0 && r.u8() < 96) {  // or of a value, then expand(0) as qel_std.h asks after such writes
          const int64_t i = m.count > 0 && r.flag() ? r.u8() % m.count : r.u16() % a.capacity;
          const uint64_t v = value(t);
          a.entries[i].value = static_cast<decltype(a.entries[i].value)>(v);
          T::expand(&a, 0);
          if (m.at(i).st != St::unknown) m.at(i) = Slot{St::known, v, {}, m.at(i).buf};
          m.sorted = m.sorted && i >= m.count;
          break;
        }
      }
      if constexpr (str) {
        if (r.flag()) {
          const int64_t i = fz::pick_index(r, m.count);
          const uint32_t tag = r.u32();
          qel_array_update_at(&a, i, tag);
          if (i < 0 || i >= m.count) break;
          FZ_CHECK(static_cast<uint32_t>(a.entries[i].buf) == tag, "qel_array: update_at(%ld) left another tag", i);
          m.at(i).buf = a.entries[i].buf;  // the upper half is not specified
          break;
        }
      }
      if (a.capacity == 0) return;
      const int64_t i = r.u16() % a.capacity;
      const uint64_t b = pick_buf(r);
      a.entries[i].buf = b;
      if (m.at(i).st == St::zero) m.at(i) = Slot{St::known, 0, {}, b};
      else m.at(i).buf = b;
      break;
    }
    default: {  // refill as the variants do: expand, write entries 0..n-1, set count
      const int64_t n = r.u8() % 48;
      T::expand(&a, n);
      x.check();
      qel_detail::drop_lookup(&a);  // as every direct rewrite of entries does
      for (int64_t i = 0; i < n; ++i) {
        const uint64_t v = str ? 0 : value(t), b = pick_buf(r);
        std::string s;
        if constexpr (str) {
          s = fz::pick_string(r);
          a.entries[i].offset = static_cast<uint32_t>(a.pool.length);
          a.entries[i].length = static_cast<uint32_t>(s.size());
          qel_stream_append(&a.pool, s.data(), static_cast<int64_t>(s.size()));
        } else {
          a.entries[i].value = static_cast<decltype(a.entries[i].value)>(v);
        }
        a.entries[i].buf = b;
        m.at(i) = Slot{St::known, v, s, b};
      }
      for (int64_t i = n; i < m.count; ++i) m.at(i).st = St::unknown;
      a.count = m.count = n;
      m.sorted = n < 2;
      break;
    }
  }
  x.check();
}

// ---------------------------------------------------------------------------
// qel_hash: entries in insertion order, values fake pointers never followed

char g_values[256];

struct Hash {
  qel_hash h;
  std::vector<std::pair<std::string, void *>> e;
  Hash() { qel_hash_init(&h, 1, 0); }
  ~Hash() { qel_hash_term(&h); }
  Hash(const Hash &) = delete;
  Hash &operator=(const Hash &) = delete;

  int64_t newest(const std::string &k) const {
    for (int64_t i = static_cast<int64_t>(e.size()) - 1; i >= 0; --i)
      if (e[static_cast<size_t>(i)].first == k) return i;
    return -1;
  }
  void insert(const std::string &k, void *v) {
    const int64_t at = newest(k);
    if (at >= 0 && e[static_cast<size_t>(at)].second == nullptr) e[static_cast<size_t>(at)].second = v;
    else e.emplace_back(k, v);
  }
  std::string key(const qel_hash_entry *x) const { return std::string(h.key_pool + x->key_offset, x->key_length); }
  // Walks the hash against the model; each visited entry may be changed by `visit`.
  template <class F>
  void walk(F visit) {
    void *cursor = nullptr;
    size_t i = 0;
    for (qel_hash_entry *x = qel_hash_entry_first(&h, &cursor); x; x = qel_hash_entry_next(&h, &cursor, x), ++i) {
      FZ_CHECK(i < e.size() && key(x) == e[i].first && x->value == e[i].second, "qel_hash: walk entry %zu differs", i);
      visit(x, i);
    }
    FZ_CHECK(i == e.size(), "qel_hash: walk visited %zu entries, model %zu", i, e.size());
  }
};

void *pick_value(Reader &r) {
  const uint8_t v = r.u8();
  return v % 8 == 0 ? nullptr : &g_values[v];
}

void hash_op(Reader &r, Hash &m, Hash &other) {
  const unsigned sub = r.pick(5);
  FZ_TRACE("qel_hash %p: op %u (%zu entries)", (void *)&m, sub, m.e.size());
  switch (sub) {
    case 0:
    case 1: {  // insert
      if (m.e.size() >= static_cast<size_t>(kMaxCount)) return;
      const std::string k = fz::pick_string(r, r.flag() ? 6 : 24);
      void *v = pick_value(r);
      qel_hash_entry *x =
          qel_hash_insert(&m.h, k.empty() && r.flag() ? nullptr : k.data(), static_cast<int64_t>(k.size()), v);
      m.insert(k, v);
      FZ_CHECK(x != nullptr && m.key(x) == k && x->value == v, "qel_hash: insert returned a wrong entry");
      break;
    }
    case 2: {  // get through the export and the core, with a key present, a prefix of one, or another
      std::string k = fz::pick_string(r, 6);
      if (!m.e.empty() && r.flag()) {
        k = m.e[r.u8() % m.e.size()].first;
        if (r.u8() % 4 == 0 && !k.empty()) k.pop_back();
      }
      const int64_t at = m.newest(k);
      void *want = at >= 0 ? m.e[static_cast<size_t>(at)].second : nullptr;
      const int64_t n = static_cast<int64_t>(k.size());
      FZ_CHECK(qel_hash_get(&m.h, k.data(), n) == want && qel_detail::hash_get(&m.h, k.data(), n) == want &&
                   qel_hash_get(&m.h, nullptr, n + 1) == nullptr &&
                   qel_detail::hash_get(&m.h, nullptr, n + 1) == nullptr,
               "qel_hash: get of a key of %ld bytes differs", n);
      break;
    }
    case 3:  // walk, writing visited values, while the other hash grows
      m.walk([&](qel_hash_entry *x, size_t i) {
        const uint8_t what = r.u8() % 4;
        if (what == 1 || what == 2) x->value = m.e[i].second = what == 1 ? nullptr : pick_value(r);
        if (what == 3 && other.e.size() < static_cast<size_t>(kMaxCount)) {
          void *v = pick_value(r);
          other.insert(m.key(x), v);
          qel_hash_insert(&other.h, m.h.key_pool + x->key_offset, x->key_length, v);
        }
      });
      other.walk([](qel_hash_entry *, size_t) {});
      break;
    default:  // term + init
      if (r.u8() % 8 != 0) return;
      qel_hash_term(&m.h);
      qel_hash_init(&m.h, 1, 0);
      m.e.clear();
      break;
  }
  m.walk([](qel_hash_entry *, size_t) {});
}

// ---------------------------------------------------------------------------
// qel_arrays (pointers freed through a destructor), qel_stream, qel_string

std::vector<void *> g_destroyed;
void destroy(void *element) { g_destroyed.push_back(element); }

void ptr_op(Reader &r, qel_arrays &a, std::vector<void *> &m) {
  const unsigned sub = r.pick(4);
  if (sub < 2 && m.size() < static_cast<size_t>(kMaxCount)) {
    m.push_back(&g_values[r.u8()]);
    qel_arrays_append(&a, m.back());
  } else if (sub == 2) {
    const int64_t i = fz::pick_index(r, static_cast<int64_t>(m.size()));
    void *want = i >= 0 && i < static_cast<int64_t>(m.size()) ? m[static_cast<size_t>(i)] : nullptr;
    FZ_CHECK(qel_arrays_get_at(&a, i) == want, "qel_arrays: get_at(%ld) differs", i);
  } else if (sub == 3) {  // free_all: every element in order, the array stays usable
    g_destroyed.clear();
    qel_arrays_free_all(&a, destroy);
    FZ_CHECK(g_destroyed == m, "qel_arrays: free_all visited %zu elements, model %zu", g_destroyed.size(), m.size());
    m.clear();
  }
  FZ_CHECK(
      a.count == static_cast<int64_t>(m.size()) && a.capacity >= a.count && std::equal(m.begin(), m.end(), a.entries),
      "qel_arrays: %ld elements, model %zu", a.count, m.size());
}

std::string trimmed(const std::string &s) {
  auto sp = [](char c) { return c == ' ' || (c >= '\t' && c <= '\r'); };
  size_t b = 0, e = s.size();
  while (b < e && sp(s[b])) ++b;
  while (e > b && sp(s[e - 1])) --e;
  return s.substr(b, e - b);
}

struct Stream {
  qel_stream s;
  std::string v;
  Stream() { qel_stream_init(&s); }
  ~Stream() { qel_stream_term(&s); }
  Stream(const Stream &) = delete;
  Stream &operator=(const Stream &) = delete;
};

template <class B>
void check_bytes(const B &b, const std::string &v, const char *what) {
  FZ_CHECK(b.length == static_cast<int64_t>(v.size()) && (v.empty() || std::memcmp(b.bytes, v.data(), v.size()) == 0),
           "%s: %ld bytes, model %zu", what, b.length, v.size());
}

void stream_op(Reader &r, Stream &m, Stream &other, qel_string &str, std::string &strv) {
  const unsigned sub = r.pick(9);
  FZ_TRACE("qel_stream %p: op %u (length %zu)", (void *)&m, sub, m.v.size());
  fz::Text t;
  if (sub < 2 && !(r.flag() && fz::inside(r, m.s.bytes, m.s.length, t))) t = fz::outside(r, 2, false);
  switch (sub) {
    case 0:  // copy or append, possibly of its own bytes
    case 1:
      if (m.v.size() > 4096) return;
      (sub == 0 ? qel_stream_copy : qel_stream_append)(&m.s, t.p(), t.len);
      m.v = (sub == 0 ? std::string() : m.v) + t.value;
      break;
    case 2: {  // clone, of itself or of the other
      Stream &src = r.flag() ? m : other;
      qel_stream_clone(&src.s, &m.s);
      m.v = src.v;
      break;
    }
    case 3: {  // expand
      const int64_t n = static_cast<int64_t>(r.u16() % 5000) - 4;
      qel_stream_expand(&m.s, n);
      FZ_CHECK(m.s.capacity >= n, "qel_stream: expand(%ld) left capacity %ld", n, m.s.capacity);
      break;
    }
    case 4: {  // zero(off, n) within or beyond the capacity
      const int64_t off = r.u8() % 64, n = r.u8() % 80;
      qel_stream_zero(&m.s, off, n);
      for (int64_t i = off; i < std::min(off + n, m.s.capacity); ++i)
        FZ_CHECK(m.s.bytes[i] == 0, "qel_stream: zero(%ld, %ld) left byte %ld", off, n, i);
      if (static_cast<int64_t>(m.v.size()) > off) m.v.resize(static_cast<size_t>(off));
      break;
    }
    case 5: {  // shrink
      const int64_t n = static_cast<int64_t>(r.u8() % 48) - 8;
      qel_stream_shrink(&m.s, n);
      m.v.resize(std::min(m.v.size(), static_cast<size_t>(std::max<int64_t>(n, 0))));
      break;
    }
    case 6: {  // swap into an uninitialised string, trim, swap back (as the variant trims)
      qel_string local;
      std::memset(&local, 0xA5, sizeof local);
      const qel_string before = local;
      qel_stream_swap_string(&m.s, &local);
      qel_string_trim(&local);
      qel_stream_swap_string(&m.s, &local);
      FZ_CHECK(std::memcmp(&local, &before, sizeof local) == 0, "qel_stream_swap_string: local string not restored");
      m.v = trimmed(m.v);
      break;
    }
    case 7: {  // qel_string: copy (possibly of its own bytes), shrink, trim
      const unsigned how = r.pick(3);
      if (how == 0) {
        if (!(r.flag() && fz::inside(r, str.bytes, str.length, t))) t = fz::outside(r, 2, false);
        qel_string_copy(&str, t.p(), t.len);
        strv = t.value;
      } else if (how == 1) {
        const int64_t n = static_cast<int64_t>(r.u8() % 24) - 4;
        qel_string_shrink(&str, n);
        strv.resize(std::min(strv.size(), static_cast<size_t>(std::max<int64_t>(n, 0))));
      } else {
        qel_string_trim(&str);
        strv = trimmed(strv);
      }
      check_bytes(str, strv, "qel_string");
      return;
    }
    default: {  // comparisons; NULL or a negative length compares as no bytes
      const std::string a = fz::pick_string(r, 6), b = r.flag() ? a : fz::pick_string(r, 6);
      const bool null = r.u8() < 32, negative = r.u8() < 32;
      const int c = qel_mem_cmp(a.data(), negative ? -1 : static_cast<int64_t>(a.size()), null ? nullptr : b.data(),
                                static_cast<int64_t>(b.size()));
      FZ_CHECK(fz::sign(c) == fz::bytes_order(negative ? "" : a, null ? "" : b), "qel_mem_cmp gave %d", c);
      const qel_char_view view{a.data(), static_cast<int64_t>(a.size())};
      FZ_CHECK((qel_char_compare(&view, b.data(), static_cast<int64_t>(b.size())) == 0) == (a == b),
               "qel_char_compare");
      return;
    }
  }
  FZ_CHECK(m.s.capacity >= m.s.length, "qel_stream: capacity %ld below length", m.s.capacity);
  check_bytes(m.s, m.v, "qel_stream");
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) { return 0; }

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Reader r(data, size);
  Model<D> ad[2];
  Model<X> ax[2];
  Model<S> as[2];
  Hash hs[2];
  Stream ss[2];
  qel_arrays ps;
  qel_arrays_init(&ps, 0);
  std::vector<void *> pm;
  qel_string str;
  qel_string_init(&str);
  std::string strv;
  for (int step = 0; step < 4096 && !r.empty(); ++step) {
    const uint8_t op = r.u8();
    const unsigned i = (op >> 3) & 1u;
    switch (op % 8) {
      case 0:
      case 1: array_op(r, ad[i], ad[1 - i]); break;
      case 2: array_op(r, ax[i], ax[1 - i]); break;
      case 3:
      case 4: array_op(r, as[i], as[1 - i]); break;
      case 5:
      case 6: hash_op(r, hs[i], hs[1 - i]); break;
      default:
        if (((op >> 4) & 3u) == 3u) ptr_op(r, ps, pm);
        else stream_op(r, ss[i], ss[1 - i], str, strv);
        break;
    }
  }
  qel_arrays_term(&ps);
  qel_string_term(&str);
  return 0;
}

#ifndef QEL_FUZZ
QEL_MODEL_TEST(std)
#endif
