// The float and double quicksort of qel_var_qsort (codes 5 and 6).
//
// One algorithm, fixed to the step because the order it leaves equal values
// and NaNs in is part of the interface: median of three, a partition whose
// scans test their bound before they read a value, a skip over the pivot's
// equals, the longer part set aside on a 30-pair stack and the shorter sorted
// next, and a selection pass for segments of 8 entries or fewer.  The
// descending sort is the ascending one with its two ordering tests mirrored.
// Because the order is the contract, the algorithm keeps its worst case: a
// sequence built against the median of three (a "median-of-3 killer") makes
// every partition split off a few entries only, so the sort takes time
// quadratic in n (some 10^10 steps, seconds, for 10^5 doubles) where random
// input takes n log n.  Changing the pivot rule would change the order of
// equal values and NaNs, so it stays.
// Entries move whole (value and caller value together, 16 bytes at a time);
// nothing is allocated.  The scans look at a block of entries per step and
// branch once per block, not once per entry: where a scan stops is exactly
// where the entry-by-entry loop would stop, without a mispredicted jump for
// every stop.
//
// Kept in a header so the tests can drive it on arrays they build by hand.
#ifndef QEL_INTERNAL_FLOAT_SORT_H
#define QEL_INTERNAL_FLOAT_SORT_H

#include <qel_std.h>

#include <bit>
#include <cstdint>
#include <type_traits>

namespace qel::fsort {

// Segments at stack depth k hold at most n / 2^k entries, and only segments
// of more than 8 entries are pushed, so 30 pairs cover n <= 2^33.
inline constexpr int kStackPairs = 30;
inline constexpr int64_t kMaxEntries = int64_t{1} << 33;
inline constexpr int64_t kSelectionMax = 8;
inline constexpr int kScanBlock = 8;

// The three tests every comparison of the sort is made of.  All are ordered
// comparisons: false whenever either side is a NaN.
template <typename F, bool Ascending>
struct order {
  // x sorts after y.
  static bool after(F x, F y) {
    if constexpr (Ascending) return x > y;
    else return x < y;
  }
  // x sorts at or before y (not the negation of after: NaNs fail both).
  static bool at_or_before(F x, F y) {
    if constexpr (Ascending) return x <= y;
    else return x >= y;
  }
  static bool equal(F x, F y) { return x == y; }
};

// The stored value of an entry read as the float it holds.
template <typename F, typename Entry>
inline F value_of(const Entry &e) {
  static_assert(sizeof(e.value) == sizeof(F), "entry value width must match the float type");
  return std::bit_cast<F>(e.value);
}

// Requires two valid entries (may be the same one); exchanges them whole.
template <typename Entry>
inline void exchange(Entry *a, Entry *b) {
  static_assert(sizeof(Entry) == 16 && std::is_trivially_copyable_v<Entry>);
  const Entry saved = *a;
  *a = *b;
  *b = saved;
}

// Requires entries lo..hi valid, lo <= hi; finishes a short segment by
// carrying the entry that sorts last to the moving end (lowest index wins
// among equal candidates).
template <typename F, bool Ascending, typename Entry>
inline void selection_pass(Entry *a, int64_t lo, int64_t hi) {
  using ord = order<F, Ascending>;
  for (int64_t e = hi; e > lo; --e) {
    int64_t m = lo;
    F mv = value_of<F>(a[lo]);
    for (int64_t p = lo + 1; p <= e; ++p) {
      const F pv = value_of<F>(a[p]);
      if (ord::after(pv, mv)) {
        m = p;
        mv = pv;
      }
    }
    exchange(a + m, a + e);
  }
}

// Requires entries from..to valid (none when from > to); the first k in
// from..to whose value passes `stop`, or to + 1.  Reads nothing outside.
template <typename F, typename Entry, typename Stop>
inline int64_t first_stop(const Entry *a, int64_t from, int64_t to, Stop stop) {
  while (to - from + 1 >= kScanBlock) {
    unsigned mask = 0;
    for (int t = 0; t < kScanBlock; ++t) mask |= static_cast<unsigned>(stop(value_of<F>(a[from + t]))) << t;
    if (mask != 0) return from + std::countr_zero(mask);
    from += kScanBlock;
  }
  for (; from <= to; ++from)
    if (stop(value_of<F>(a[from]))) return from;
  return to + 1;
}

// Requires entries to..from valid (none when from < to); the last k in
// to..from whose value passes `stop`, or to - 1.  Reads nothing outside.
template <typename F, typename Entry, typename Stop>
inline int64_t last_stop(const Entry *a, int64_t from, int64_t to, Stop stop) {
  while (from - to + 1 >= kScanBlock) {
    unsigned mask = 0;
    for (int t = 0; t < kScanBlock; ++t) mask |= static_cast<unsigned>(stop(value_of<F>(a[from - t]))) << t;
    if (mask != 0) return from - std::countr_zero(mask);
    from -= kScanBlock;
  }
  for (; from >= to; --from)
    if (stop(value_of<F>(a[from]))) return from;
  return to - 1;
}

// Requires entries up to `last` valid; `do ++i; while (i <= last && !stop(a[i]));`.
template <typename F, typename Entry, typename Stop>
inline int64_t scan_up(const Entry *a, int64_t i, int64_t last, Stop stop) {
  return i + 1 > last ? i + 1 : first_stop<F>(a, i + 1, last, stop);
}

// Requires entries down to `bound + 1` valid; `do --j; while (j > bound && !stop(a[j]));`.
template <typename F, typename Entry, typename Stop>
inline int64_t scan_down(const Entry *a, int64_t j, int64_t bound, Stop stop) {
  return j - 1 <= bound ? j - 1 : last_stop<F>(a, j - 1, bound + 1, stop);
}

// Requires `a` to point at n entries (n <= kMaxEntries; larger arrays are
// left as they are).  Sorts them in place: ascending with Ascending, else
// descending.
template <typename F, bool Ascending, typename Entry>
void quicksort(Entry *a, int64_t n) {
  static_assert(std::is_same_v<F, float> || std::is_same_v<F, double>);
  using ord = order<F, Ascending>;
  if (n < 2 || n > kMaxEntries) return;

  int64_t lo_stack[kStackPairs];
  int64_t hi_stack[kStackPairs];
  int depth = 0;
  int64_t lo = 0;
  int64_t hi = n - 1;

  for (;;) {
    const int64_t size = hi - lo + 1;
    if (size <= kSelectionMax) {
      selection_pass<F, Ascending>(a, lo, hi);
    } else {
      // Pivot: order first, middle and last.
      int64_t mid = lo + size / 2;
      if (ord::after(value_of<F>(a[lo]), value_of<F>(a[mid]))) exchange(a + lo, a + mid);
      if (ord::after(value_of<F>(a[lo]), value_of<F>(a[hi]))) exchange(a + lo, a + hi);
      if (ord::after(value_of<F>(a[mid]), value_of<F>(a[hi]))) exchange(a + mid, a + hi);
      // The pivot entry only ever moves by an exchange that updates mid, so
      // its value can stay in a register.
      const F pivot = value_of<F>(a[mid]);
      const auto above = [pivot](F x) { return !ord::at_or_before(x, pivot); };
      const auto not_above = [pivot](F x) { return !ord::after(x, pivot); };
      const auto unequal = [pivot](F x) { return !ord::equal(x, pivot); };

      // Partition: every scan moves first, then tests its bound, then reads.
      int64_t i = lo;
      int64_t j = hi;
      for (;;) {
        if (mid > i) i = scan_up<F>(a, i, mid - 1, above);  // stops at mid at the latest
        if (mid <= i) i = scan_up<F>(a, i, hi, above);
        j = scan_down<F>(a, j, mid, not_above);
        if (j < i) break;
        exchange(a + i, a + j);
        if (mid == j) mid = i;
      }

      // Shorten the lower part by the pivot's equals at its upper end.
      ++j;
      if (mid < j) j = scan_down<F>(a, j, mid, unequal);
      if (mid >= j) j = scan_down<F>(a, j, lo, unequal);

      // Set the longer part aside, go on with the shorter one.
      if (j - lo >= hi - i) {
        if (lo < j) {
          lo_stack[depth] = lo;
          hi_stack[depth] = j;
          ++depth;
        }
        if (i < hi) {
          lo = i;
          continue;
        }
      } else {
        if (i < hi) {
          lo_stack[depth] = i;
          hi_stack[depth] = hi;
          ++depth;
        }
        if (lo < j) {
          hi = j;
          continue;
        }
      }
    }
    // Pop the next pending segment.
    if (--depth < 0) return;
    lo = lo_stack[depth];
    hi = hi_stack[depth];
  }
}

}  // namespace qel::fsort

#endif
