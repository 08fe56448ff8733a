// The support containers as qel_std.h lets callers use them: entries and
// counts written directly, then read by the arrays, the keyed index and the
// variants built on them.
#include <gtest/gtest.h>

#include "test_support.h"

namespace {

// ---- entries and counts written directly, as qel_std.h allows

TEST(DirectWrites, StaleKeyedIndexAndCountsOutsideTheStorage) {
  // Keyed 1, 2, 3; cut, entry 2 rewritten to 9, raised back: the index still
  // names entry 2 for 3, which the entry contradicts, so it is rebuilt.
  qel_arrayd d;
  qel_arrayd_init(&d, 0);
  qel_arrayd_expand(&d, 8);
  for (uint32_t v : {1u, 2u, 3u}) qel_arrayd_entry_insert(&d, v);
  d.count = 2;
  d.entries[2].value = 9;
  d.count = 3;
  EXPECT_EQ(qel_arrayd_entry_insert(&d, 3) - d.entries, 3);
  EXPECT_EQ(qel_arrayd_entry_insert(&d, 9) - d.entries, 2);
  qel_arrayd_term(&d);
  // Strings: entry 1 pointed at "be" of the pool "abef".
  qel_array s;
  qel_array_init(&s, 0);
  for (const char *x : {"ab", "ef"}) qel_array_entry_insert(&s, x, 2);
  s.count = 1;
  s.entries[1].offset = 1;
  s.count = 2;
  EXPECT_EQ(qel_array_entry_insert(&s, "ef", 2) - s.entries, 2);
  EXPECT_EQ(qel_array_entry_insert(&s, "be", 2) - s.entries, 1);
  s.count = -1;  // a count outside 0..capacity reads as the nearest end
  EXPECT_EQ(qel_array_entry_insert(&s, "z", 1) - s.entries, 0);
  qel_array_term(&s);

  qel::var f(qel::code::f32, qel::form::multi), empty(qel::code::f32, qel::form::multi);
  f.add_all({2.0f, 1.0f});
  qel_arrayd &fa = f.get()->data.arrayd;
  fa.count = -1;
  EXPECT_EQ(f.size(), 0);
  EXPECT_EQ(qel_var_cmp(f.get(), empty.get()), 0);
  fa.count = fa.capacity + 1;  // 2, 1, then zeros
  EXPECT_EQ(f.size(), fa.capacity);
  f.sort();
  EXPECT_EQ(f.get<float>(fa.capacity - 1), 2.0f);
  f.set_buf(-1, 9);  // the last entry in use
  EXPECT_EQ(f.get_buf(fa.capacity - 1), 9u);
  qel::xvar x(qel::xcode::i64, qel::form::multi);
  x.add(1);
  qel_arrayx &xa = x.get()->data.arrayx;
  xa.count = xa.capacity + 2;
  EXPECT_EQ(x.size(), xa.capacity);
  EXPECT_EQ(x.get<int64_t>(xa.capacity), 0);
  qel::xvars xs(qel::xcode::i64, qel::form::multi);
  qel_xvars_add_var(xs.get(), x.get());
  EXPECT_EQ(qel_xvars_get_size(xs.get(), 0), xa.capacity);
}

}  // namespace
