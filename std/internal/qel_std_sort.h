// qel_std_sort.h - stable sorts of fixed-size records by integer keys.
//
// Private to libqel_std.  A least-significant-digit radix sort (8-bit
// digits, all histograms in one pass, passes whose digit is the same for
// every record skipped) and an insertion sort for short runs.  Both are
// stable, so equal keys keep their order.
#ifndef QEL_STD_SORT_H
#define QEL_STD_SORT_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#pragma GCC visibility push(hidden)

namespace qel_detail {

// Below this many records an insertion sort beats the radix passes.
inline constexpr size_t kRadixThreshold = 48;

// Requires n records at a; sorts them stably by key(record) ascending.
template <typename T, typename KeyFn>
void insertion_sort(T *a, size_t n, KeyFn key) {
  for (size_t i = 1; i < n; i++) {
    T moving = a[i];
    auto k = key(moving);
    size_t j = i;
    while (j > 0 && k < key(a[j - 1])) {
      a[j] = a[j - 1];
      j--;
    }
    a[j] = moving;
  }
}

// Requires n records at a and room for n more at tmp; sorts a stably by the
// Digits-byte number whose byte d (0 = least significant) is digit(rec, d).
template <typename T, unsigned Digits, typename DigitFn>
void radix_sort(T *a, T *tmp, size_t n, DigitFn digit) {
  size_t counts[Digits][256];
  std::memset(counts, 0, sizeof counts);
  for (size_t i = 0; i < n; i++)
    for (unsigned d = 0; d < Digits; d++) counts[d][digit(a[i], d)]++;
  if (n == 0) return;
  T *src = a;
  T *dst = tmp;
  for (unsigned d = 0; d < Digits; d++) {
    size_t *c = counts[d];
    if (c[digit(a[0], d)] == n) continue;  // every record has this digit
    size_t sum = 0;
    for (unsigned v = 0; v < 256; v++) {
      size_t here = c[v];
      c[v] = sum;
      sum += here;
    }
    for (size_t i = 0; i < n; i++) dst[c[digit(src[i], d)]++] = src[i];
    T *t = src;
    src = dst;
    dst = t;
  }
  if (src != a) std::memcpy(static_cast<void *>(a), static_cast<const void *>(src), n * sizeof(T));
}

}  // namespace qel_detail

#pragma GCC visibility pop

#endif  // QEL_STD_SORT_H
