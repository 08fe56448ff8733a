// Fuzz target for the support containers: qel_arrayd, qel_arrayx, qel_array,
// qel_arrays, qel_hash, qel_stream and qel_string, driven by operation sequences decoded
// from the input and checked, entry by entry, against std::vector /
// std::string models kept here.
//
// The rules modelled (the containers' documented contract):
//  - _get_at outside 0..count-1 gives 0 (qel_array: NULL, 0, tag 0); _set_at,
//    qel_array_update_at there do nothing.
//  - Entries gained when an array grows are zero (qel_array: offset 0,
//    length 0, buf 0).  Entries cut off by a direct write of `count` stay as
//    they were until the next operation that changes the array; any entry
//    exposed by raising `count` is defined and, for qel_array, lies inside
//    the pool in use.
//  - _entry_insert is a unique insert in insertion order: the lowest-index
//    equal entry, or a new entry with buf 0 at the end.
//  - _qsort nonzero ascending, 0 descending; arrayd unsigned, arrayx signed,
//    qel_array bytewise then shorter first; entries move whole.
//  - _find_index / _bfind_index give the lowest index holding the value
//    (bfind on an ascending array), else -1.
//  - qel_hash: a key inserted again reuses its newest entry if that entry's
//    value is NULL, else adds an entry; get gives the newest entry's value;
//    walks run in insertion order and survive value writes and changes to
//    other hashes.
//  - qel_stream_zero(off, n) wipes off..off+n-1 within the capacity and cuts
//    length to min(length, off); _shrink(n) gives min(length, max(n, 0));
//    qel_string_trim removes leading and trailing ASCII whitespace.
#include <qel_std.h>

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "fuzz_common.h"

namespace {

using fz::Reader;

constexpr int64_t kMaxCount = 1024;  // keeps every input fast

enum class St : uint8_t { known, zero, unknown };

// ---------------------------------------------------------------------------
// qel_arrayd / qel_arrayx

struct TraitsD {
  using A = qel_arrayd;
  using E = qel_arrayd_entry;
  using V = uint32_t;
  static void init(A *a) { qel_arrayd_init(a, 0); }
  static void term(A *a) { qel_arrayd_term(a); }
  static void append(A *a, V v, uint64_t b) { qel_arrayd_append(a, v, b); }
  static void append_array(A *d, const A *s) { qel_arrayd_append_array(d, s); }
  static void clone(const A *s, A *d) { qel_arrayd_clone(s, 0, d, 0, 0); }
  static void expand(A *a, int64_t n) { qel_arrayd_expand(a, n); }
  static void remove_all(A *a) { qel_arrayd_remove_all(a); }
  static int get_at(const A *a, int64_t i, V *o) { return qel_arrayd_get_at(a, i, o); }
  static void set_at(A *a, int64_t i, V v, uint64_t b) { qel_arrayd_set_at(a, i, v, b); }
  static int64_t find(const A *a, V v) { return qel_arrayd_find_index(a, v); }
  static int64_t bfind(const A *a, V v) { return qel_arrayd_bfind_index(a, v); }
  static E *insert(A *a, V v) { return qel_arrayd_entry_insert(a, v); }
  static void qsort(A *a, int f) { qel_arrayd_qsort(a, f); }
  static V pick(Reader &r) { return fz::pick_u32(r); }
  static const char *name() { return "qel_arrayd"; }
};

struct TraitsX {
  using A = qel_arrayx;
  using E = qel_arrayx_entry;
  using V = int64_t;
  static void init(A *a) { qel_arrayx_init(a, 0); }
  static void term(A *a) { qel_arrayx_term(a); }
  static void append(A *a, V v, uint64_t b) { qel_arrayx_append(a, v, b); }
  static void append_array(A *d, const A *s) { qel_arrayx_append_array(d, s); }
  static void clone(const A *s, A *d) { qel_arrayx_clone(s, 0, d, 0, 0); }
  static void expand(A *a, int64_t n) { qel_arrayx_expand(a, n); }
  static void remove_all(A *a) { qel_arrayx_remove_all(a); }
  static int get_at(const A *a, int64_t i, V *o) { return qel_arrayx_get_at(a, i, o); }
  static void set_at(A *a, int64_t i, V v, uint64_t b) { qel_arrayx_set_at(a, i, v, b); }
  static int64_t find(const A *a, V v) { return qel_arrayx_find_index(a, v); }
  static int64_t bfind(const A *a, V v) { return qel_arrayx_bfind_index(a, v); }
  static E *insert(A *a, V v) { return qel_arrayx_entry_insert(a, v); }
  static void qsort(A *a, int f) { qel_arrayx_qsort(a, f); }
  static V pick(Reader &r) { return fz::pick_i64(r); }
  static const char *name() { return "qel_arrayx"; }
};

uint64_t pick_buf(Reader &r) {
  const uint8_t sel = r.u8();
  if (sel < 200) return sel % 4u;
  return r.u64();
}

// Model of one value array: one slot per position up to the capacity.
template <class T>
struct NumArr {
  using V = typename T::V;
  struct Slot {
    St st = St::zero;
    V value = 0;
    uint64_t buf = 0;
  };
  typename T::A a;
  std::vector<Slot> slots;  // size == capacity as last seen
  int64_t count = 0;
  bool sorted = true;  // ascending by the container's order, as far as known

  NumArr() { T::init(&a); sync_capacity(0, true); }
  ~NumArr() { T::term(&a); }
  NumArr(const NumArr &) = delete;
  NumArr &operator=(const NumArr &) = delete;

  // After an operation: follow the capacity, apply the zero-fill rule, and
  // forget stale entries unless the operation kept them.
  void sync_capacity(int64_t cap0, bool keeps_beyond) {
    const int64_t cap = a.capacity;
    FZ_CHECK(a.count == count, "%s: count %lld, model %lld", T::name(), (long long)a.count, (long long)count);
    FZ_CHECK(cap >= a.count, "%s: capacity %lld below count %lld", T::name(), (long long)cap, (long long)a.count);
    FZ_CHECK(cap == 0 || a.entries != nullptr, "%s: no entries with capacity %lld", T::name(), (long long)cap);
    if (static_cast<int64_t>(slots.size()) < cap) slots.resize(static_cast<size_t>(cap));
    if (cap > cap0) {
      // The array grew: the new entries are zero; entries cut off earlier
      // keep defined contents (old or zero), which the model forgets.
      for (int64_t i = std::max(count, cap0); i < cap; ++i) slots[static_cast<size_t>(i)] = Slot{};
      for (int64_t i = count; i < std::min(cap0, cap); ++i)
        if (slots[static_cast<size_t>(i)].st == St::known) slots[static_cast<size_t>(i)].st = St::unknown;
    } else if (!keeps_beyond) {
      for (int64_t i = count; i < cap; ++i)
        if (slots[static_cast<size_t>(i)].st == St::known) slots[static_cast<size_t>(i)].st = St::unknown;
    }
    slots.resize(static_cast<size_t>(cap));
  }

  void verify() const {
    FZ_CHECK(a.count == count, "%s: count %lld, model %lld", T::name(), (long long)a.count, (long long)count);
    FZ_CHECK(static_cast<int64_t>(slots.size()) == a.capacity, "%s: capacity changed silently", T::name());
    for (int64_t i = 0; i < a.capacity; ++i) {
      const Slot &s = slots[static_cast<size_t>(i)];
      const auto &e = a.entries[i];
      if (i < count) {
        FZ_CHECK(s.st == St::known, "%s: model slot %lld not known", T::name(), (long long)i);
        FZ_CHECK(e.value == s.value && e.buf == s.buf, "%s: entry %lld is (%llx,%llx), model (%llx,%llx)", T::name(),
                 (long long)i, (unsigned long long)e.value, (unsigned long long)e.buf, (unsigned long long)s.value,
                 (unsigned long long)s.buf);
      } else if (s.st == St::zero) {
        FZ_CHECK(e.value == 0 && e.buf == 0, "%s: entry %lld above count %lld not zero-filled (%llx,%llx)", T::name(),
                 (long long)i, (long long)count, (unsigned long long)e.value, (unsigned long long)e.buf);
      }
    }
  }

  int64_t lowest(V v) const {
    for (int64_t i = 0; i < count; ++i)
      if (slots[static_cast<size_t>(i)].value == v) return i;
    return -1;
  }

  void model_append(V v, uint64_t b) {
    if (static_cast<int64_t>(slots.size()) <= count) slots.resize(static_cast<size_t>(count + 1));
    slots[static_cast<size_t>(count)] = Slot{St::known, v, b};
    ++count;
  }
};

template <class T>
void num_op(Reader &r, NumArr<T> &m, NumArr<T> &other) {
  using V = typename T::V;
  using Slot = typename NumArr<T>::Slot;
  auto &a = m.a;
  const int64_t cap0 = a.capacity;
  bool keeps_beyond = false;
  const unsigned sub = r.pick(16);
  FZ_TRACE("%s %p: op %u (count %lld, capacity %lld)", T::name(), (void *)&m, sub, (long long)m.count,
           (long long)cap0);
  switch (sub) {
    case 0:
    case 1: {  // append
      if (m.count >= kMaxCount) return;
      const V v = T::pick(r);
      const uint64_t b = pick_buf(r);
      T::append(&a, v, b);
      m.model_append(v, b);
      m.sorted = false;
      break;
    }
    case 2: {  // append_array, possibly of the array to itself
      const bool self = r.flag();
      NumArr<T> &src = self ? m : other;
      if (m.count + src.count > kMaxCount) return;
      std::vector<Slot> add(src.slots.begin(), src.slots.begin() + src.count);
      T::append_array(&a, &src.a);
      for (const Slot &s : add) m.model_append(s.value, s.buf);
      m.sorted = m.sorted && add.empty();
      if (!self) other.verify();
      break;
    }
    case 3: {  // clone other -> this, or this -> this
      const bool self = r.flag();
      NumArr<T> &src = self ? m : other;
      std::vector<Slot> copy(src.slots.begin(), src.slots.begin() + src.count);
      T::clone(&src.a, &a);
      if (static_cast<int64_t>(m.slots.size()) < static_cast<int64_t>(copy.size())) m.slots.resize(copy.size());
      for (size_t i = 0; i < copy.size(); ++i) m.slots[i] = copy[i];
      m.count = static_cast<int64_t>(copy.size());
      m.sorted = self ? m.sorted : src.sorted;
      break;
    }
    case 4: {  // expand
      const int64_t n = static_cast<int64_t>(r.u16() % (kMaxCount + 1)) - (r.flag() ? 8 : 0);
      T::expand(&a, n);
      FZ_CHECK(a.capacity >= n, "%s: expand(%lld) left capacity %lld", T::name(), (long long)n, (long long)a.capacity);
      keeps_beyond = true;
      break;
    }
    case 5: {  // remove_all
      if (r.u8() % 4 != 0) return;
      T::remove_all(&a);
      m.count = 0;
      m.sorted = true;
      break;
    }
    case 6: {  // get_at, any index
      const int64_t i = fz::pick_index(r, m.count);
      V out = static_cast<V>(0x5A5A5A5A);
      const int ret = T::get_at(&a, i, &out);
      if (i >= 0 && i < m.count) {
        FZ_CHECK(ret == 1 && out == m.slots[static_cast<size_t>(i)].value, "%s: get_at(%lld) gave %llx ret %d",
                 T::name(), (long long)i, (unsigned long long)out, ret);
      } else {
        FZ_CHECK(ret == 0 && out == 0, "%s: get_at(%lld) out of range gave %llx ret %d", T::name(), (long long)i,
                 (unsigned long long)out, ret);
      }
      keeps_beyond = true;
      break;
    }
    case 7: {  // set_at, any index
      const int64_t i = fz::pick_index(r, m.count);
      const V v = T::pick(r);
      const uint64_t b = pick_buf(r);
      T::set_at(&a, i, v, b);
      if (i >= 0 && i < m.count) {
        m.slots[static_cast<size_t>(i)] = Slot{St::known, v, b};
        m.sorted = false;
      }
      break;
    }
    case 8: {  // find_index / bfind_index
      const V v = (m.count > 0 && r.flag()) ? m.slots[r.u8() % static_cast<size_t>(m.count)].value : T::pick(r);
      const int64_t want = m.lowest(v);
      const int64_t got = T::find(&a, v);
      FZ_CHECK(got == want, "%s: find_index(%llx) gave %lld, lowest is %lld", T::name(), (unsigned long long)v,
               (long long)got, (long long)want);
      const int64_t bgot = T::bfind(&a, v);
      if (m.sorted) {
        FZ_CHECK(bgot == want, "%s: bfind_index(%llx) on a sorted array gave %lld, lowest is %lld", T::name(),
                 (unsigned long long)v, (long long)bgot, (long long)want);
      } else {
        FZ_CHECK(bgot == -1 || (bgot >= 0 && bgot < m.count && m.slots[static_cast<size_t>(bgot)].value == v),
                 "%s: bfind_index(%llx) gave %lld, which does not hold the value", T::name(), (unsigned long long)v,
                 (long long)bgot);
      }
      keeps_beyond = true;
      break;
    }
    case 9:
    case 10: {  // entry_insert, then maybe write the entry's buf
      if (m.count >= kMaxCount) return;
      const V v = (m.count > 0 && r.flag()) ? m.slots[r.u8() % static_cast<size_t>(m.count)].value : T::pick(r);
      const int64_t want = m.lowest(v);
      auto *e = T::insert(&a, v);
      FZ_CHECK(e != nullptr, "%s: entry_insert returned NULL", T::name());
      int64_t at = want;
      if (want < 0) {
        m.model_append(v, 0);
        at = m.count - 1;
        m.sorted = false;
      }
      FZ_CHECK(e == a.entries + at, "%s: entry_insert(%llx) returned entry %lld, expected %lld", T::name(),
               (unsigned long long)v, (long long)(e - a.entries), (long long)at);
      if (r.flag()) {
        const uint64_t b = pick_buf(r);
        e->buf = b;
        m.slots[static_cast<size_t>(at)].buf = b;
      }
      break;
    }
    case 11: {  // qsort
      const int flag = static_cast<int>(r.pick(3));
      std::vector<std::pair<V, uint64_t>> before;
      for (int64_t i = 0; i < m.count; ++i)
        before.emplace_back(m.slots[static_cast<size_t>(i)].value, m.slots[static_cast<size_t>(i)].buf);
      T::qsort(&a, flag);
      FZ_CHECK(a.count == m.count, "%s: qsort changed the count", T::name());
      std::vector<std::pair<V, uint64_t>> after;
      for (int64_t i = 0; i < a.count; ++i) after.emplace_back(a.entries[i].value, a.entries[i].buf);
      for (size_t i = 1; i < after.size(); ++i) {
        const bool ok = flag ? !(after[i].first < after[i - 1].first) : !(after[i - 1].first < after[i].first);
        FZ_CHECK(ok, "%s: qsort(%d) out of order at %zu", T::name(), flag, i);
      }
      std::sort(before.begin(), before.end());
      std::vector<std::pair<V, uint64_t>> sorted_after = after;
      std::sort(sorted_after.begin(), sorted_after.end());
      FZ_CHECK(before == sorted_after, "%s: qsort(%d) lost or changed entries", T::name(), flag);
      for (size_t i = 0; i < after.size(); ++i) m.slots[i] = Slot{St::known, after[i].first, after[i].second};
      m.sorted = flag != 0 || m.count < 2;
      break;
    }
    case 12: {  // direct write of count, up to the capacity
      if (a.capacity == 0) return;
      const int64_t k = static_cast<int64_t>(r.u16() % static_cast<uint64_t>(a.capacity + 1));
      FZ_TRACE("  count := %lld", (long long)k);
      for (int64_t i = m.count; i < k; ++i) {
        Slot &s = m.slots[static_cast<size_t>(i)];
        const auto &e = a.entries[i];
        if (s.st == St::zero) {
          FZ_CHECK(e.value == 0 && e.buf == 0, "%s: entry %lld exposed by a count raise is not zero", T::name(),
                   (long long)i);
        } else if (s.st == St::known) {
          FZ_CHECK(e.value == s.value && e.buf == s.buf, "%s: entry %lld changed while above the count", T::name(),
                   (long long)i);
        }
        s = Slot{St::known, e.value, e.buf};
      }
      if (k > m.count) m.sorted = false;
      a.count = k;
      m.count = k;
      keeps_beyond = true;
      break;
    }
    case 13: {  // direct write of an entry's buf, below the capacity
      if (a.capacity == 0) return;
      const int64_t i = static_cast<int64_t>(r.u16() % static_cast<uint64_t>(a.capacity));
      const uint64_t b = pick_buf(r);
      a.entries[i].buf = b;
      Slot &s = m.slots[static_cast<size_t>(i)];
      if (s.st == St::zero) s = Slot{St::known, 0, b};
      else s.buf = b;
      keeps_beyond = true;
      break;
    }
    case 14: {  // refill: expand, write entries 0..n-1 directly, set count
      const int64_t n = static_cast<int64_t>(r.u8() % 48);
      T::expand(&a, n);
      FZ_CHECK(a.capacity >= n, "%s: expand(%lld) left capacity %lld", T::name(), (long long)n, (long long)a.capacity);
      m.sync_capacity(cap0, true);
      m.verify();
      for (int64_t k = 0; k < n; ++k) {
        const V v = T::pick(r);
        const uint64_t b = pick_buf(r);
        a.entries[k].value = v;
        a.entries[k].buf = b;
        m.slots[static_cast<size_t>(k)] = Slot{St::known, v, b};
      }
      for (int64_t k = n; k < m.count; ++k) m.slots[static_cast<size_t>(k)].st = St::known;  // stale, as written
      a.count = n;
      m.count = n;
      m.sorted = n < 2;
      m.sync_capacity(a.capacity, true);
      m.verify();
      return;
    }
    default: {  // term + init
      if (r.u8() % 8 != 0) return;
      T::term(&a);
      T::init(&a);
      m.slots.clear();
      m.count = 0;
      m.sorted = true;
      m.sync_capacity(0, true);
      m.verify();
      return;
    }
  }
  m.sync_capacity(cap0, keeps_beyond);
  FZ_TRACE("  -> count %lld, capacity %lld", (long long)a.count, (long long)a.capacity);
  m.verify();
}

// ---------------------------------------------------------------------------
// qel_array

struct StrArr {
  struct Slot {
    St st = St::zero;
    std::string s;
    uint64_t buf = 0;
  };
  qel_array a;
  std::vector<Slot> slots;
  int64_t count = 0;
  bool sorted = true;

  StrArr() {
    qel_array_init(&a, 0);
    sync_capacity(0, true);
  }
  ~StrArr() { qel_array_term(&a); }
  StrArr(const StrArr &) = delete;
  StrArr &operator=(const StrArr &) = delete;

  std::string bytes_of(int64_t i) const {
    const qel_array_entry &e = a.entries[i];
    FZ_CHECK(static_cast<int64_t>(e.offset) + e.length <= a.pool.length,
             "qel_array: entry %lld (offset %u, length %u) outside the pool of %lld bytes", (long long)i, e.offset,
             e.length, (long long)a.pool.length);
    return std::string(a.pool.bytes ? a.pool.bytes + e.offset : "", e.length);
  }

  void sync_capacity(int64_t cap0, bool keeps_beyond) {
    const int64_t cap = a.capacity;
    FZ_CHECK(a.count == count, "qel_array: count %lld, model %lld", (long long)a.count, (long long)count);
    FZ_CHECK(cap >= a.count, "qel_array: capacity %lld below count %lld", (long long)cap, (long long)a.count);
    FZ_CHECK(a.pool.length >= 0 && a.pool.length <= a.pool.capacity, "qel_array: pool length %lld capacity %lld",
             (long long)a.pool.length, (long long)a.pool.capacity);
    if (static_cast<int64_t>(slots.size()) < cap) slots.resize(static_cast<size_t>(cap));
    if (cap > cap0) {
      // The array grew: the new entries are zero; entries cut off earlier
      // keep defined contents (old or zero), which the model forgets.
      for (int64_t i = std::max(count, cap0); i < cap; ++i) slots[static_cast<size_t>(i)] = Slot{};
      for (int64_t i = count; i < std::min(cap0, cap); ++i)
        if (slots[static_cast<size_t>(i)].st == St::known) slots[static_cast<size_t>(i)].st = St::unknown;
    } else if (!keeps_beyond) {
      for (int64_t i = count; i < cap; ++i)
        if (slots[static_cast<size_t>(i)].st == St::known) slots[static_cast<size_t>(i)].st = St::unknown;
    }
    slots.resize(static_cast<size_t>(cap));
  }

  void verify() const {
    FZ_CHECK(a.count == count, "qel_array: count %lld, model %lld", (long long)a.count, (long long)count);
    FZ_CHECK(static_cast<int64_t>(slots.size()) == a.capacity, "qel_array: capacity changed silently");
    for (int64_t i = 0; i < a.capacity; ++i) {
      const Slot &s = slots[static_cast<size_t>(i)];
      const qel_array_entry &e = a.entries[i];
      if (i < count) {
        const std::string got = bytes_of(i);
        FZ_CHECK(got == s.s && e.buf == s.buf, "qel_array: entry %lld is %s/%llx, model %s/%llx", (long long)i,
                 fz::hex(got.data(), (int64_t)got.size()).c_str(), (unsigned long long)e.buf,
                 fz::hex(s.s.data(), (int64_t)s.s.size()).c_str(), (unsigned long long)s.buf);
        const char *p = reinterpret_cast<const char *>(1);
        int64_t len = -5;
        const uint32_t tag = qel_array_get_at(&a, i, &p, &len);
        FZ_CHECK(len == static_cast<int64_t>(s.s.size()) && (len == 0 || std::memcmp(p, s.s.data(), s.s.size()) == 0) &&
                     tag == static_cast<uint32_t>(s.buf),
                 "qel_array: get_at(%lld) disagrees with the entry", (long long)i);
      } else if (s.st == St::zero) {
        FZ_CHECK(e.offset == 0 && e.length == 0 && e.buf == 0,
                 "qel_array: entry %lld above count %lld not zero-filled (%u,%u,%llx)", (long long)i, (long long)count,
                 e.offset, e.length, (unsigned long long)e.buf);
      }
    }
  }

  int64_t lowest(const std::string &v) const {
    for (int64_t i = 0; i < count; ++i)
      if (slots[static_cast<size_t>(i)].s == v) return i;
    return -1;
  }

  void model_append(const std::string &v, uint64_t b) {
    if (static_cast<int64_t>(slots.size()) <= count) slots.resize(static_cast<size_t>(count + 1));
    slots[static_cast<size_t>(count)] = Slot{St::known, v, b};
    ++count;
  }
};

// Bytes for an append or set: from the input, or a piece of an entry of one
// of the arrays (possibly the destination's own pool, which may move while
// the bytes are copied).
struct Bytes {
  const char *ext = nullptr;  // bytes in an array's pool, or NULL
  bool own = false;           // the bytes are `owned` (resolved at use: Bytes is copied)
  int64_t len = 0;
  std::string value;
  std::string owned;
  const char *p() const { return own ? owned.data() : ext; }
};

Bytes pick_bytes(Reader &r, StrArr &self, StrArr &other) {
  Bytes b;
  const unsigned how = r.pick(4);
  StrArr &from = how == 1 ? other : self;
  if (how <= 1 && from.count > 0) {
    const int64_t i = r.u8() % from.count;
    const qel_array_entry &e = from.a.entries[i];
    const uint32_t skip = e.length ? r.u8() % (e.length + 1) : 0;
    b.ext = from.a.pool.bytes + e.offset + skip;
    b.len = e.length - skip;
    b.value.assign(b.ext, static_cast<size_t>(b.len));
    return b;
  }
  b.owned = fz::pick_string(r, how == 3 ? 40 : 8);
  b.value = b.owned;
  b.own = !(b.owned.empty() && r.flag());
  b.len = static_cast<int64_t>(b.owned.size());
  return b;
}

void str_op(Reader &r, StrArr &m, StrArr &other) {
  using Slot = StrArr::Slot;
  qel_array &a = m.a;
  const int64_t cap0 = a.capacity;
  bool keeps_beyond = false;
  const unsigned sub = r.pick(17);
  FZ_TRACE("qel_array %p: op %u (count %lld, capacity %lld, pool %lld)", (void *)&m, sub, (long long)m.count,
           (long long)cap0, (long long)a.pool.length);
  switch (sub) {
    case 0:
    case 1: {  // append (bytes possibly from the own pool)
      if (m.count >= kMaxCount) return;
      Bytes b = pick_bytes(r, m, other);
      const uint32_t tag = r.flag() ? r.u32() : r.u8() % 3u;
      qel_array_append(&a, b.p(), b.len, tag);
      m.model_append(b.value, tag);
      m.sorted = false;
      other.verify();
      break;
    }
    case 2: {  // append_array, possibly to itself
      const bool self = r.flag();
      StrArr &src = self ? m : other;
      if (m.count + src.count > kMaxCount) return;
      std::vector<Slot> add(src.slots.begin(), src.slots.begin() + src.count);
      qel_array_append_array(&a, &src.a);
      for (const Slot &s : add) m.model_append(s.s, s.buf);
      m.sorted = m.sorted && add.empty();
      if (!self) other.verify();
      break;
    }
    case 3: {  // clone
      const bool self = r.flag();
      StrArr &src = self ? m : other;
      std::vector<Slot> copy(src.slots.begin(), src.slots.begin() + src.count);
      qel_array_clone(&src.a, 0, &a, 0, 0);
      if (m.slots.size() < copy.size()) m.slots.resize(copy.size());
      for (size_t i = 0; i < copy.size(); ++i) m.slots[i] = copy[i];
      m.count = static_cast<int64_t>(copy.size());
      m.sorted = self ? m.sorted : src.sorted;
      if (!self) other.verify();
      break;
    }
    case 4: {  // expand
      const int64_t n = static_cast<int64_t>(r.u16() % (kMaxCount + 1)) - (r.flag() ? 8 : 0);
      qel_array_expand(&a, n);
      FZ_CHECK(a.capacity >= n, "qel_array: expand(%lld) left capacity %lld", (long long)n, (long long)a.capacity);
      keeps_beyond = true;
      break;
    }
    case 5: {  // remove_all
      if (r.u8() % 4 != 0) return;
      qel_array_remove_all(&a);
      m.count = 0;
      m.sorted = true;
      break;
    }
    case 6: {  // get_at out of range
      const int64_t i = fz::pick_index(r, m.count);
      if (i >= 0 && i < m.count) return;  // in range: verify() covers it
      const char *p = "x";
      int64_t len = 99;
      const uint32_t tag = qel_array_get_at(&a, i, &p, &len);
      FZ_CHECK(p == nullptr && len == 0 && tag == 0, "qel_array: get_at(%lld) out of range gave %p/%lld/%u",
               (long long)i, (const void *)p, (long long)len, tag);
      keeps_beyond = true;
      break;
    }
    case 7:
    case 8: {  // set_at (bytes possibly from the own pool, even the same entry)
      const int64_t i = fz::pick_index(r, m.count);
      Bytes b = pick_bytes(r, m, other);
      const uint32_t tag = r.flag() ? r.u32() : r.u8() % 3u;
      qel_array_set_at(&a, i, b.p(), b.len, tag);
      if (i >= 0 && i < m.count) {
        m.slots[static_cast<size_t>(i)] = Slot{St::known, b.value, tag};
        m.sorted = false;
      }
      other.verify();
      break;
    }
    case 9: {  // update_at: only the tag
      const int64_t i = fz::pick_index(r, m.count);
      const uint32_t tag = r.u32();
      qel_array_update_at(&a, i, tag);
      if (i >= 0 && i < m.count) {
        Slot &s = m.slots[static_cast<size_t>(i)];
        FZ_CHECK(static_cast<uint32_t>(a.entries[i].buf) == tag, "qel_array: update_at(%lld) did not set the tag",
                 (long long)i);
        s.buf = a.entries[i].buf;  // the upper half is not specified
      }
      break;
    }
    case 10: {  // find / bfind
      Bytes b = pick_bytes(r, m, other);
      const int64_t want = m.lowest(b.value);
      const int64_t got = qel_array_find_index(&a, b.p(), b.len);
      FZ_CHECK(got == want, "qel_array: find_index gave %lld, lowest is %lld", (long long)got, (long long)want);
      const int64_t bgot = qel_array_bfind_index(&a, b.p(), b.len);
      if (m.sorted) {
        FZ_CHECK(bgot == want, "qel_array: bfind_index on a sorted array gave %lld, lowest is %lld", (long long)bgot,
                 (long long)want);
      } else {
        FZ_CHECK(bgot == -1 || (bgot >= 0 && bgot < m.count && m.slots[static_cast<size_t>(bgot)].s == b.value),
                 "qel_array: bfind_index gave %lld, which does not hold the bytes", (long long)bgot);
      }
      keeps_beyond = true;
      break;
    }
    case 11:
    case 12: {  // entry_insert (bytes possibly from the own pool)
      if (m.count >= kMaxCount) return;
      Bytes b = pick_bytes(r, m, other);
      const int64_t want = m.lowest(b.value);
      qel_array_entry *e = qel_array_entry_insert(&a, b.p(), b.len);
      FZ_CHECK(e != nullptr, "qel_array: entry_insert returned NULL");
      int64_t at = want;
      if (want < 0) {
        m.model_append(b.value, 0);
        at = m.count - 1;
        m.sorted = false;
      }
      FZ_CHECK(e == a.entries + at, "qel_array: entry_insert returned entry %lld, expected %lld",
               (long long)(e - a.entries), (long long)at);
      if (r.flag()) {
        const uint64_t nb = pick_buf(r);
        e->buf = nb;
        m.slots[static_cast<size_t>(at)].buf = nb;
      }
      break;
    }
    case 13: {  // qsort
      const int flag = static_cast<int>(r.pick(3));
      std::vector<std::pair<std::string, uint64_t>> before;
      for (int64_t i = 0; i < m.count; ++i)
        before.emplace_back(m.slots[static_cast<size_t>(i)].s, m.slots[static_cast<size_t>(i)].buf);
      qel_array_qsort(&a, flag);
      FZ_CHECK(a.count == m.count, "qel_array: qsort changed the count");
      std::vector<std::pair<std::string, uint64_t>> after;
      for (int64_t i = 0; i < a.count; ++i) after.emplace_back(m.bytes_of(i), a.entries[i].buf);
      for (size_t i = 1; i < after.size(); ++i) {
        const int c = fz::bytes_order(after[i - 1].first, after[i].first);
        FZ_CHECK(flag ? c <= 0 : c >= 0, "qel_array: qsort(%d) out of order at %zu", flag, i);
      }
      std::sort(before.begin(), before.end());
      auto sorted_after = after;
      std::sort(sorted_after.begin(), sorted_after.end());
      FZ_CHECK(before == sorted_after, "qel_array: qsort(%d) lost or changed entries", flag);
      for (size_t i = 0; i < after.size(); ++i) m.slots[i] = Slot{St::known, after[i].first, after[i].second};
      m.sorted = flag != 0 || m.count < 2;
      break;
    }
    case 14: {  // direct write of count
      if (a.capacity == 0) return;
      const int64_t k = static_cast<int64_t>(r.u16() % static_cast<uint64_t>(a.capacity + 1));
      FZ_TRACE("  count := %lld", (long long)k);
      for (int64_t i = m.count; i < k; ++i) {
        Slot &s = m.slots[static_cast<size_t>(i)];
        const qel_array_entry &e = a.entries[i];
        if (s.st == St::zero) {
          FZ_CHECK(e.offset == 0 && e.length == 0 && e.buf == 0,
                   "qel_array: entry %lld exposed by a count raise is not zero", (long long)i);
        }
        const std::string got = m.bytes_of(i);  // checks it lies in the pool
        if (s.st == St::known) {
          FZ_CHECK(got == s.s && e.buf == s.buf, "qel_array: entry %lld changed while above the count", (long long)i);
        }
        s = Slot{St::known, got, e.buf};
      }
      if (k > m.count) m.sorted = false;
      a.count = k;
      m.count = k;
      keeps_beyond = true;
      break;
    }
    case 15: {  // direct write of a buf below the capacity
      if (a.capacity == 0) return;
      const int64_t i = static_cast<int64_t>(r.u16() % static_cast<uint64_t>(a.capacity));
      const uint64_t b = pick_buf(r);
      a.entries[i].buf = b;
      Slot &s = m.slots[static_cast<size_t>(i)];
      if (s.st == St::zero) s = Slot{St::known, std::string(), b};
      else s.buf = b;
      keeps_beyond = true;
      break;
    }
    default: {  // refill as the column set does: expand, append bytes to the pool, write entries, set count
      const int64_t n = static_cast<int64_t>(r.u8() % 24);
      qel_array_expand(&a, n);
      FZ_CHECK(a.capacity >= n, "qel_array: expand(%lld) left capacity %lld", (long long)n, (long long)a.capacity);
      m.sync_capacity(cap0, true);
      m.verify();
      for (int64_t k = 0; k < n; ++k) {
        const std::string s = fz::pick_string(r);
        const uint64_t b = pick_buf(r);
        a.entries[k].offset = static_cast<uint32_t>(a.pool.length);
        qel_stream_append(&a.pool, s.data(), static_cast<int64_t>(s.size()));
        a.entries[k].length = static_cast<uint32_t>(s.size());
        a.entries[k].buf = b;
        m.slots[static_cast<size_t>(k)] = Slot{St::known, s, b};
      }
      a.count = n;
      m.count = n;
      m.sorted = n < 2;
      m.sync_capacity(a.capacity, true);
      m.verify();
      return;
    }
  }
  m.sync_capacity(cap0, keeps_beyond);
  FZ_TRACE("  -> count %lld, capacity %lld, pool %lld", (long long)a.count, (long long)a.capacity,
           (long long)a.pool.length);
  m.verify();
}

// ---------------------------------------------------------------------------
// qel_hash

char g_values[256];  // fake, never dereferenced member values

struct HashModel {
  struct Entry {
    std::string key;
    void *value;
  };
  qel_hash h;
  std::vector<Entry> entries;  // insertion order

  HashModel() { qel_hash_init(&h, 1, 0); }
  ~HashModel() { qel_hash_term(&h); }
  HashModel(const HashModel &) = delete;
  HashModel &operator=(const HashModel &) = delete;

  int64_t newest(const std::string &k) const {
    for (int64_t i = static_cast<int64_t>(entries.size()) - 1; i >= 0; --i)
      if (entries[static_cast<size_t>(i)].key == k) return i;
    return -1;
  }

  std::string key_of(const qel_hash_entry *e) const { return std::string(h.key_pool + e->key_offset, e->key_length); }

  void verify() {
    void *cursor = nullptr;
    size_t i = 0;
    for (qel_hash_entry *e = qel_hash_entry_first(&h, &cursor); e; e = qel_hash_entry_next(&h, &cursor, e), ++i) {
      FZ_CHECK(i < entries.size(), "qel_hash: walk visits more than %zu entries", entries.size());
      FZ_CHECK(key_of(e) == entries[i].key && e->value == entries[i].value, "qel_hash: walk entry %zu differs", i);
    }
    FZ_CHECK(i == entries.size(), "qel_hash: walk visited %zu entries, model %zu", i, entries.size());
  }
};

void *pick_value(Reader &r) {
  const uint8_t v = r.u8();
  return v % 8 == 0 ? nullptr : &g_values[v];
}

void hash_op(Reader &r, HashModel &m, HashModel &other) {
  const unsigned sub = r.pick(5);
  FZ_TRACE("qel_hash %p: op %u (%zu entries)", (void *)&m, sub, m.entries.size());
  switch (sub) {
    case 0:
    case 1: {  // insert
      if (m.entries.size() >= static_cast<size_t>(kMaxCount)) return;
      const std::string k = fz::pick_string(r, r.flag() ? 6 : 24);
      void *v = pick_value(r);
      const int64_t at = m.newest(k);
      qel_hash_entry *e = qel_hash_insert(&m.h, k.empty() && r.flag() ? nullptr : k.data(),
                                          static_cast<int64_t>(k.size()), v);
      if (at >= 0 && m.entries[static_cast<size_t>(at)].value == nullptr) {
        m.entries[static_cast<size_t>(at)].value = v;
      } else {
        m.entries.push_back({k, v});
      }
      FZ_CHECK(e != nullptr && m.key_of(e) == k && e->value == v, "qel_hash: insert returned a wrong entry");
      break;
    }
    case 2: {  // get, with a key present or not
      std::string k;
      if (!m.entries.empty() && r.flag()) {
        k = m.entries[r.u8() % m.entries.size()].key;
        if (r.u8() % 4 == 0 && !k.empty()) k.pop_back();  // a prefix of a present key
      } else {
        k = fz::pick_string(r, 6);
      }
      const int64_t at = m.newest(k);
      void *want = at >= 0 ? m.entries[static_cast<size_t>(at)].value : nullptr;
      void *got = qel_hash_get(&m.h, k.data(), static_cast<int64_t>(k.size()));
      FZ_CHECK(got == want, "qel_hash: get(%s) gave %p, model %p", fz::hex(k.data(), (int64_t)k.size()).c_str(), got,
               want);
      break;
    }
    case 3: {  // walk, writing visited values, while the other hash grows
      void *cursor = nullptr;
      size_t i = 0;
      for (qel_hash_entry *e = qel_hash_entry_first(&m.h, &cursor); e;
           e = qel_hash_entry_next(&m.h, &cursor, e), ++i) {
        FZ_CHECK(i < m.entries.size() && m.key_of(e) == m.entries[i].key && e->value == m.entries[i].value,
                 "qel_hash: walk entry %zu differs", i);
        const uint8_t what = r.u8();
        if (what % 4 == 1) {
          e->value = nullptr;
          m.entries[i].value = nullptr;
        } else if (what % 4 == 2) {
          void *v = pick_value(r);
          e->value = v;
          m.entries[i].value = v;
        } else if (what % 4 == 3 && other.entries.size() < static_cast<size_t>(kMaxCount)) {
          const std::string k = m.key_of(e);
          void *v = pick_value(r);
          const int64_t at = other.newest(k);
          qel_hash_insert(&other.h, m.h.key_pool + e->key_offset, e->key_length, v);
          if (at >= 0 && other.entries[static_cast<size_t>(at)].value == nullptr)
            other.entries[static_cast<size_t>(at)].value = v;
          else
            other.entries.push_back({k, v});
        }
      }
      FZ_CHECK(i == m.entries.size(), "qel_hash: walk visited %zu entries, model %zu", i, m.entries.size());
      other.verify();
      break;
    }
    default: {  // term + init
      if (r.u8() % 8 != 0) return;
      qel_hash_term(&m.h);
      qel_hash_init(&m.h, 1, 0);
      m.entries.clear();
      break;
    }
  }
  m.verify();
}

// ---------------------------------------------------------------------------
// qel_arrays: pointers, freed through a destructor

std::vector<void *> g_destroyed;  // elements handed to the destructor, in order

void destroy(void *element) { g_destroyed.push_back(element); }

struct PtrModel {
  qel_arrays a;
  std::vector<void *> v;
  PtrModel() { qel_arrays_init(&a, 0); }
  ~PtrModel() { qel_arrays_term(&a); }
  PtrModel(const PtrModel &) = delete;
  PtrModel &operator=(const PtrModel &) = delete;
  void verify() const {
    FZ_CHECK(a.count == static_cast<int64_t>(v.size()) && a.capacity >= a.count, "qel_arrays: count %lld, model %zu",
             (long long)a.count, v.size());
    for (size_t i = 0; i < v.size(); ++i)
      FZ_CHECK(a.entries[i] == v[i] && qel_arrays_get_at(&a, static_cast<int64_t>(i)) == v[i],
               "qel_arrays: element %zu differs", i);
  }
};

void ptr_op(Reader &r, PtrModel &m) {
  const unsigned sub = r.pick(4);
  FZ_TRACE("qel_arrays %p: op %u (%zu elements)", (void *)&m, sub, m.v.size());
  switch (sub) {
    case 0:
    case 1: {
      if (m.v.size() >= static_cast<size_t>(kMaxCount)) return;
      void *e = &g_values[r.u8()];
      qel_arrays_append(&m.a, e);
      m.v.push_back(e);
      break;
    }
    case 2: {  // get_at outside the array gives NULL
      const int64_t i = fz::pick_index(r, static_cast<int64_t>(m.v.size()));
      void *got = qel_arrays_get_at(&m.a, i);
      void *want = (i >= 0 && i < static_cast<int64_t>(m.v.size())) ? m.v[static_cast<size_t>(i)] : nullptr;
      FZ_CHECK(got == want, "qel_arrays: get_at(%lld) gave %p, model %p", (long long)i, got, want);
      break;
    }
    default: {  // free_all: the destructor sees every element in order, the array stays usable
      g_destroyed.clear();
      qel_arrays_free_all(&m.a, destroy);
      FZ_CHECK(g_destroyed == m.v, "qel_arrays: free_all visited %zu elements, model %zu", g_destroyed.size(),
               m.v.size());
      m.v.clear();
      break;
    }
  }
  m.verify();
}

// ---------------------------------------------------------------------------
// qel_stream, qel_string and the comparisons

bool is_ascii_space(char c) { return c == ' ' || c == '\t' || c == '\n' || c == '\v' || c == '\f' || c == '\r'; }

std::string trimmed(const std::string &s) {
  size_t b = 0, e = s.size();
  while (b < e && is_ascii_space(s[b])) ++b;
  while (e > b && is_ascii_space(s[e - 1])) --e;
  return s.substr(b, e - b);
}

struct StreamModel {
  qel_stream s;
  std::string v;
  StreamModel() { qel_stream_init(&s); }
  ~StreamModel() { qel_stream_term(&s); }
  StreamModel(const StreamModel &) = delete;
  StreamModel &operator=(const StreamModel &) = delete;
  void verify() const {
    FZ_CHECK(s.length == static_cast<int64_t>(v.size()) && s.capacity >= s.length,
             "qel_stream: length %lld capacity %lld, model %zu", (long long)s.length, (long long)s.capacity, v.size());
    FZ_CHECK(v.empty() || std::memcmp(s.bytes, v.data(), v.size()) == 0, "qel_stream: bytes differ");
  }
};

void stream_op(Reader &r, StreamModel &m, StreamModel &other, qel_string &str, std::string &strv) {
  const unsigned sub = r.pick(9);
  FZ_TRACE("qel_stream %p: op %u (length %zu)", (void *)&m, sub, m.v.size());
  switch (sub) {
    case 0: {  // copy, possibly from its own bytes
      std::string add;
      const char *p;
      if (!m.v.empty() && r.flag()) {
        const size_t off = r.u8() % m.v.size();
        add = m.v.substr(off);
        p = m.s.bytes + off;
      } else {
        add = fz::pick_string(r, 40);
        p = add.data();
      }
      qel_stream_copy(&m.s, p, static_cast<int64_t>(add.size()));
      m.v = add;
      break;
    }
    case 1: {  // append, possibly its own bytes
      if (m.v.size() > 4096) return;
      std::string add;
      const char *p;
      if (!m.v.empty() && r.flag()) {
        const size_t off = r.u8() % m.v.size();
        add = m.v.substr(off);
        p = m.s.bytes + off;
      } else {
        add = fz::pick_string(r, 40);
        p = add.data();
      }
      qel_stream_append(&m.s, p, static_cast<int64_t>(add.size()));
      m.v += add;
      break;
    }
    case 2: {  // clone
      if (r.flag()) {
        qel_stream_clone(&m.s, &m.s);
      } else {
        qel_stream_clone(&other.s, &m.s);
        m.v = other.v;
      }
      break;
    }
    case 3: {  // expand
      const int64_t n = static_cast<int64_t>(r.u16() % 5000) - 4;
      qel_stream_expand(&m.s, n);
      FZ_CHECK(m.s.capacity >= n, "qel_stream: expand(%lld) left capacity %lld", (long long)n, (long long)m.s.capacity);
      break;
    }
    case 4: {  // zero(off, n) within or beyond the capacity
      const int64_t off = r.u8() % 64;
      const int64_t n = r.u8() % 80;
      qel_stream_zero(&m.s, off, n);
      const int64_t end = std::min(off + n, m.s.capacity);
      for (int64_t i = off; i < end; ++i)
        FZ_CHECK(m.s.bytes[i] == 0, "qel_stream: zero(%lld, %lld) left byte %lld", (long long)off, (long long)n,
                 (long long)i);
      if (static_cast<int64_t>(m.v.size()) > off) m.v.resize(static_cast<size_t>(off));
      break;
    }
    case 5: {  // shrink
      const int64_t n = static_cast<int64_t>(r.u8() % 48) - 8;
      qel_stream_shrink(&m.s, n);
      const int64_t keep = std::max<int64_t>(n, 0);
      if (static_cast<int64_t>(m.v.size()) > keep) m.v.resize(static_cast<size_t>(keep));
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
    case 7: {  // qel_string operations
      switch (r.pick(3)) {
        case 0: {
          std::string t = fz::pick_string(r, 16);
          if (!strv.empty() && r.flag()) {
            const size_t off = r.u8() % strv.size();
            t = strv.substr(off);
            qel_string_copy(&str, str.bytes + off, static_cast<int64_t>(t.size()));
          } else {
            qel_string_copy(&str, t.data(), static_cast<int64_t>(t.size()));
          }
          strv = t;
          break;
        }
        case 1: {
          const int64_t n = static_cast<int64_t>(r.u8() % 24) - 4;
          qel_string_shrink(&str, n);
          const int64_t keep = std::max<int64_t>(n, 0);
          if (static_cast<int64_t>(strv.size()) > keep) strv.resize(static_cast<size_t>(keep));
          break;
        }
        default:
          qel_string_trim(&str);
          strv = trimmed(strv);
          break;
      }
      FZ_CHECK(str.length == static_cast<int64_t>(strv.size()) &&
                   (strv.empty() || std::memcmp(str.bytes, strv.data(), strv.size()) == 0),
               "qel_string: contents differ from the model");
      break;
    }
    default: {  // comparisons
      const std::string a = fz::pick_string(r, 6), b = r.flag() ? a : fz::pick_string(r, 6);
      const int c = qel_mem_cmp(a.data(), static_cast<int64_t>(a.size()), b.data(), static_cast<int64_t>(b.size()));
      FZ_CHECK(fz::sign(c) == fz::bytes_order(a, b), "qel_mem_cmp gave %d", c);
      const qel_char_view view{a.data(), static_cast<int64_t>(a.size())};
      const int e = qel_char_compare(&view, b.data(), static_cast<int64_t>(b.size()));
      FZ_CHECK((e == 0) == (a == b), "qel_char_compare gave %d", e);
      return;
    }
  }
  m.verify();
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  Reader r(data, size);
  NumArr<TraitsD> ad[2];
  NumArr<TraitsX> ax[2];
  StrArr as[2];
  HashModel hs[2];
  StreamModel ss[2];
  PtrModel ps;
  qel_string str;
  qel_string_init(&str);
  std::string strv;
  for (int step = 0; step < 4096 && !r.empty(); ++step) {
    const uint8_t op = r.u8();
    const unsigned which = (op >> 3) & 1u;
    switch (op % 8) {
      case 0:
      case 1:
        num_op(r, ad[which], ad[1 - which]);
        break;
      case 2:
        num_op(r, ax[which], ax[1 - which]);
        break;
      case 3:
      case 4:
        str_op(r, as[which], as[1 - which]);
        break;
      case 5:
      case 6:
        hash_op(r, hs[which], hs[1 - which]);
        break;
      default:
        if (((op >> 4) & 3u) == 3u) ptr_op(r, ps);
        else stream_op(r, ss[which], ss[1 - which], str, strv);
        break;
    }
  }
  qel_string_term(&str);
  return 0;
}
