// Keyed inserts: 10^5 keys chosen against the index cost no more probing than
// 10^5 random ones (within 3x), counted, not timed; direct writes and expand.
#include <gtest/gtest.h>
#include <qel.h>

#include <cstring>
#include <utility>

#include "qel_std_internal.h"

namespace {

constexpr uint64_t kKeys = 100000;
constexpr uint64_t kH0 = 0x243f6a8885a308d3ULL ^ (16 * 0x9e3779b97f4a7c15ULL);  // of 16 bytes, unkeyed
using Words = std::pair<uint64_t, uint64_t>;
using Make = Words (*)(uint64_t);

uint64_t xorshift31(uint64_t s) { return s ^ (s >> 31); }

uint64_t splitmix(uint64_t z) {
  z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ULL;
  z = (z ^ (z >> 27)) * 0x94d049bb133111ebULL;
  return z ^ (z >> 31);
}

// x with mix64(x) == y: xorshift by 33 undoes itself; inverse factors mod 2^64.
uint64_t unmix64(uint64_t y) {
  y = (y ^ (y >> 33)) * 0x9cb4b2f8129337dbULL;
  y = (y ^ (y >> 33)) * 0x4f74430c22a54005ULL;
  return y ^ (y >> 33);
}

// Inserts key(0..kKeys-1) as integers (first word) or 16-byte strings, then every
// seventh again; the sum over the index's slots of each one's distance from home.
template <typename A>
uint64_t probe_work(Make key) {
  A a;
  constexpr bool strings = std::is_same_v<A, qel_array>;
  auto insert = [&](uint64_t j) {
    const auto [w0, w1] = key(j);
    if constexpr (strings) {
      char k[16];
      std::memcpy(k, &w0, 8);
      std::memcpy(k + 8, &w1, 8);
      return qel_array_entry_insert(&a, k, 16) - a.entries;
    } else {
      return qel_arrayx_entry_insert(&a, static_cast<int64_t>(w0)) - a.entries;
    }
  };
  if constexpr (strings) qel_array_init(&a, 0);
  else qel_arrayx_init(&a, 0);
  for (uint64_t j = 0; j < kKeys; ++j) insert(j);
  for (uint64_t j = 0; j < kKeys; j += 7) EXPECT_EQ(insert(j), j);
  EXPECT_EQ(a.count, static_cast<int64_t>(kKeys));
  const auto *lk = static_cast<const qel_detail::lookup *>(a.priv_lookup);
  const uint64_t *s = qel_detail::lookup_slots(lk);
  uint64_t work = 0;
  for (uint64_t i = 0; i <= lk->mask; ++i)
    if (s[2 * i + 1] != 0) work += (i - (strings ? s[2 * i] : qel_detail::ihome(lk, s[2 * i]))) & lk->mask;
  if constexpr (strings) qel_array_term(&a);
  else qel_arrayx_term(&a);
  return work;
}

// Random keys, and keys chosen against an unkeyed index: integers whose mix
// ends in 32 zero bits, or that differ in their high bits only; strings whose
// second word undoes the first in a multiply-xorshift chain, or of two equal
// words differing in their high bits.
Words random_words(uint64_t j) { return {splitmix(j), splitmix(~j)}; }
Words home_zero(uint64_t j) { return {unmix64(j << 32), 0}; }
Words high_bits(uint64_t j) { return {j << 47, 0}; }
Words cancelling(uint64_t j) { return {j, xorshift31((kH0 ^ j) * 0xbf58476d1ce4e5b9ULL)}; }
Words equal_words(uint64_t j) { return {j << 40, j << 40}; }

TEST(Keyed, ChosenKeysCostNoMoreThanRandomOnes) {
  const uint64_t integers = probe_work<qel_arrayx>(random_words), strings = probe_work<qel_array>(random_words);
  for (const Make m : {home_zero, high_bits}) EXPECT_LE(probe_work<qel_arrayx>(m), 3 * integers);
  for (const Make m : {cancelling, equal_words}) EXPECT_LE(probe_work<qel_array>(m), 3 * strings);
}

// Keyed 5, 7; count 0, entry 0 written 7, count 2: unseen by the index, so
// qel_std.h asks for expand(0); then every find gives entry 0.
TEST(Keyed, ValueWrittenBelowItsEntryIsFoundFirstAfterExpand) {
  qel_var *v = qel_var_new(1, 1), *s = qel_var_new(7, 1);
  for (const char *x : {"5", "7"}) qel_var_add_integer_x(v, *x - '0'), qel_var_add_string_x(s, x, 1);
  v->data.arrayd.count = s->data.array.count = 0;
  v->data.arrayd.entries[0].value = 7;
  s->data.array.entries[0] = s->data.array.entries[1];
  v->data.arrayd.count = s->data.array.count = 2;
  qel_var_expand(v, 0), qel_var_expand(s, 0);
  const uint32_t seven = 7;
  const std::pair<int64_t, int64_t> first{0, 0};
  EXPECT_EQ(std::pair(qel_var_find(v, &seven, 0), qel_arrayd_find_index(&v->data.arrayd, 7)), first);
  EXPECT_EQ(std::pair(qel_var_find(s, "7", 1), qel_array_find_index(&s->data.array, "7", 1)), first);
  qel_var_free(v), qel_var_free(s);
}

}  // namespace
