// Keyed inserts: keys chosen against the index probe no more than random ones.
#include <gtest/gtest.h>
#include "qel_std_inline.h"

namespace {

// Word `half` of key j: random; an integer whose unkeyed mix ends in 32 zero bits (the
// inverse steps); a string whose second word undoes the first in an unkeyed chain.
uint64_t random_key(uint64_t j, int half) { return qel_detail::mix64(half ? ~j : j); }
uint64_t home_zero(uint64_t j, int) {
  uint64_t y = ((j << 32) ^ (j >> 1)) * 0x9cb4b2f8129337dbULL;
  y = (y ^ (y >> 33)) * 0x4f74430c22a54005ULL;
  return y ^ (y >> 33);
}
uint64_t cancelling(uint64_t j, int half) {
  const uint64_t s = (0x243f6a8885a308d3ULL ^ (16 * 0x9e3779b97f4a7c15ULL) ^ j) * 0xbf58476d1ce4e5b9ULL;
  return half ? s ^ (s >> 31) : j;
}

// Inserts 10^5 keys (strings of two words, or integers); the probes it takes to
// find them all again: the sum of each slot's distance from its home slot.
template <typename A>
uint64_t probe_work(A &a, uint64_t (*word)(uint64_t, int)) {
  constexpr bool strings = std::is_same_v<A, qel_array>;
  for (uint64_t j = 0; j < 100000; ++j) {
    const uint64_t k[2] = {word(j, 0), word(j, 1)};
    if constexpr (strings) qel_array_entry_insert(&a, reinterpret_cast<const char *>(k), 16);
    else qel_arrayx_entry_insert(&a, static_cast<int64_t>(k[0]));
  }
  EXPECT_EQ(a.count, 100000);
  const auto *lk = static_cast<const qel_detail::lookup *>(a.priv_lookup);
  const uint64_t *s = qel_detail::lookup_slots(lk);
  uint64_t work = 0;
  for (uint64_t i = 0; i <= lk->mask; ++i)
    if (s[2 * i + 1] != 0) work += (i - (strings ? s[2 * i] : qel_detail::ihome(lk, s[2 * i]))) & lk->mask;
  return work;
}

TEST(Keyed, ChosenKeysCostNoMoreThanRandomOnes) {
  qel_arrayx x[2];
  qel_array s[2];
  for (int i = 0; i < 2; ++i) qel_arrayx_init(&x[i], 0), qel_array_init(&s[i], 0);
  EXPECT_LE(probe_work(x[0], home_zero), 3 * probe_work(x[1], random_key));
  EXPECT_LE(probe_work(s[0], cancelling), 3 * probe_work(s[1], random_key));
  for (int i = 0; i < 2; ++i) qel_arrayx_term(&x[i]), qel_array_term(&s[i]);
}

}  // namespace
