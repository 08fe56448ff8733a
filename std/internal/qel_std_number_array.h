// The integer value arrays, qel_arrayd (32-bit values) and qel_arrayx
// (signed 64-bit values): one implementation through templates, which
// qel_std_arrayd.cpp and qel_std_arrayx.cpp export.  Appends, reads and
// writes are the inline functions of qel_std_inline.h.  Sorting is a
// stable LSD radix sort (insertion sort for short arrays): qel_arrayd
// orders values as unsigned 32-bit numbers, qel_arrayx as signed 64-bit
// numbers; a nonzero flag sorts ascending, 0 descending, and equal values
// keep their order in either direction.
#ifndef QEL_STD_NUMBER_ARRAY_H
#define QEL_STD_NUMBER_ARRAY_H

#include "qel_std.h"
#include "qel_std_inline.h"
#include "qel_std_sort.h"

namespace qel_detail::numbers {

using qel_detail::in_use;
using qel_detail::lookup;

template <typename A>
struct traits;

template <>
struct traits<qel_arrayd> {
  using Entry = qel_arrayd_entry;
  using Value = uint32_t;
  using Key = uint32_t;
  static constexpr unsigned kDigits = 4;
  // Sort key: unsigned order as is.
  static Key order(Value v) { return v; }
};

template <>
struct traits<qel_arrayx> {
  using Entry = qel_arrayx_entry;
  using Value = int64_t;
  using Key = uint64_t;
  static constexpr unsigned kDigits = 8;
  // Sort key: flipping the sign bit turns signed order into unsigned order.
  static Key order(Value v) { return static_cast<uint64_t>(v) ^ (uint64_t{1} << 63); }
};

// Requires an uninitialised or terminated record; an empty array.
template <typename A>
void init(A *a) {
  a->entries = nullptr;
  a->count = 0;
  a->capacity = 0;
  a->priv_lookup = nullptr;
}

// Requires an initialised array; releases entries and index.
template <typename A>
void term(A *a) {
  qel_detail::drop_lookup(a);
  std::free(a->entries);
  init(a);
}

// Requires initialised arrays (src may be dst); appends src's entries.
template <typename A>
void append_array(A *dst, const A *src) {
  const int64_t n = in_use(src);
  const int64_t base = in_use(dst);
  dst->count = base;
  if (n == 0) return;
  if (n > qel_detail::kMaxEntries - base) qel_detail::out_of_memory();
  if (base + n > dst->capacity) {
    int64_t cap = qel_detail::next_capacity(dst->capacity, base + n);
    dst->entries = qel_detail::resize_entries(dst->entries, dst->capacity, cap);
    dst->capacity = cap;
  }
  // src->entries is read after the growth: src may be dst.
  std::memcpy(static_cast<void *>(dst->entries + base), static_cast<const void *>(src->entries),
              static_cast<size_t>(n) * sizeof(dst->entries[0]));
  dst->count = base + n;
  if (dst->priv_lookup != nullptr) {
    auto *lk = static_cast<lookup *>(dst->priv_lookup);
    if (lk->count != base) {
      qel_detail::drop_lookup(dst);
      return;
    }
    for (int64_t i = base; i < base + n; i++) lk = qel_detail::ilookup_add(lk, dst->entries, i);
    dst->priv_lookup = lk;
  }
}

// Requires initialised arrays; dst becomes a copy of src's entries in use.
template <typename A>
void clone(const A *src, A *dst) {
  if (src == dst) return;
  qel_detail::drop_lookup(dst);
  const int64_t n = in_use(src);
  qel_detail::reserve_exact(dst, n);
  if (n > 0)
    std::memcpy(static_cast<void *>(dst->entries), static_cast<const void *>(src->entries),
                static_cast<size_t>(n) * sizeof(dst->entries[0]));
  if (dst->capacity > n)
    std::memset(static_cast<void *>(dst->entries + n), 0,
                static_cast<size_t>(dst->capacity - n) * sizeof(dst->entries[0]));
  dst->count = n;
}

// Requires an initialised array; capacity of at least n entries in all.
// Never less than 1.5 times the old capacity when it grows, so repeated
// small expands stay amortised O(1).
template <typename A>
void expand(A *a, int64_t n) {
  qel_detail::drop_lookup(a);
  if (n <= a->capacity || n > qel_detail::kMaxEntries) return;
  int64_t cap = a->capacity + a->capacity / 2;
  qel_detail::reserve_exact(a, cap > n ? cap : n);
}

// Requires an initialised array; count 0, storage kept.
template <typename A>
void remove_all(A *a) {
  qel_detail::drop_lookup(a);
  a->count = 0;
}

// Requires an initialised array; lowest position holding value, or -1.
// Found through the keyed-insert index while it is current (expected O(1)
// for a value put in by keyed insert); anything else, a miss included, is
// left to the linear search.
template <typename A>
int64_t find_index(const A *a, typename traits<A>::Value value) {
  if (const auto *e = qel_detail::indexed_entry(a, value)) return e - a->entries;
  const int64_t n = in_use(a);
  for (int64_t i = 0; i < n; i++)
    if (a->entries[i].value == value) return i;
  return -1;
}

// Requires an initialised array; sorts it stably, ascending for a nonzero
// flag, descending for 0.  Entries move whole.
template <typename A>
void sort(A *a, int flag) {
  using T = traits<A>;
  using Entry = typename T::Entry;
  using Key = typename T::Key;
  qel_detail::drop_lookup(a);
  const auto n = static_cast<size_t>(in_use(a));
  if (n < 2) return;
  // Descending is ascending by the complemented key, which keeps stability.
  const Key flip = flag != 0 ? Key{0} : static_cast<Key>(~Key{0});
  auto key = [flip](const Entry &e) { return static_cast<Key>(T::order(e.value) ^ flip); };
  if (n <= qel_detail::kRadixThreshold) {
    qel_detail::insertion_sort(a->entries, n, key);
    return;
  }
  auto *tmp = static_cast<Entry *>(qel_detail::xmalloc(n * sizeof(Entry)));
  qel_detail::radix_sort<Entry, T::kDigits>(a->entries, tmp, n, [key](const Entry &e, unsigned d) {
    return static_cast<unsigned>((key(e) >> (8 * d)) & 0xffu);
  });
  std::free(tmp);
}

}  // namespace qel_detail::numbers

#endif
