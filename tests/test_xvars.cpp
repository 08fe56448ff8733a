// The column set: lifecycle, whole entries, value-by-value accessors, caller
// values and the 32-bit limits.
#include <gtest/gtest.h>
#include <qel.h>

#include <cstdint>
#include <limits>
#include <string>
#include <vector>

#include "internal/qel_xvar_internal.h"
#include "xvar_test_util.h"

using namespace qel_test;

namespace {

// Starts (index values) of every entry.
std::vector<uint32_t> starts(const qel_xvars *xs) {
  std::vector<uint32_t> out;
  for (int64_t i = 0; i < xs->index.count; ++i) out.push_back(xs->index.entries[i].value);
  return out;
}

Xvar long_array(std::initializer_list<int64_t> values, uint64_t first_buf = 0) {
  Xvar v = make_xvar(2, 1);
  for (int64_t x : values) {
    qel_xvar_add_long(v.get(), x);
    if (first_buf) qel_xvar_set_buf(v.get(), -1, first_buf++);
  }
  return v;
}

// ---- lifecycle ----

TEST(XvarsLifecycle, NewColumnIsEmpty) {
  Xvars xs = make_xvars(2, 1);
  EXPECT_EQ(qel_xvars_size(xs.get()), 0);
  EXPECT_EQ(qel_xvars_type(xs.get()), 2u);
  EXPECT_EQ(qel_xvars_multi(xs.get()), 1);
  EXPECT_EQ(qel_xvars_get_size(xs.get(), 0), 0);
  Xvar x = long_array({1, 2});
  qel_xvars_fetch_var(xs.get(), 0, x.get());
  EXPECT_EQ(qel_xvar_size(x.get()), 2);
  EXPECT_EQ(qel_xvars_multi(make_xvars(2, 200).get()), -56);
}

TEST(XvarsLifecycle, ChangeAndShrink) {
  Xvars xs = make_xvars(2, 1);
  Xvar a = long_array({1, 2, 3});
  qel_xvars_add_var(xs.get(), a.get());
  qel_xvars_change(xs.get(), 2, 1);
  EXPECT_EQ(qel_xvars_size(xs.get()), 1);
  qel_xvars_change(xs.get(), 2, 2);  // another nonzero byte still re-forms
  EXPECT_EQ(qel_xvars_size(xs.get()), 0);
  qel_xvars_change(xs.get(), 2, 1);
  qel_xvars_add_var(xs.get(), a.get());
  qel_xvars_add_var(xs.get(), a.get());
  qel_xvars_shrink(xs.get());
  EXPECT_EQ(qel_xvars_size(xs.get()), 0);
  qel_xvars_add_var(xs.get(), a.get());
  EXPECT_EQ(starts(xs.get()), std::vector<uint32_t>{0});
  qel_xvars_change(xs.get(), 5, 0);
  EXPECT_EQ(qel_xvars_size(xs.get()), 0);
  EXPECT_EQ(qel_xvars_type(xs.get()), 5u);
}

TEST(XvarsLifecycle, CodesWithoutStorageAreInert) {
  for (uint32_t type : {0u, 6u, 1000u}) {
    for (uint8_t multi : {uint8_t{0}, uint8_t{1}}) {
      Xvars xs = make_xvars(type, multi);
      Xvar x = make_xvar(type, multi);
      qel_xvars_add_var(xs.get(), x.get());
      qel_xvars_add_integer(xs.get(), 0, 1);
      qel_xvars_add_string(xs.get(), 0, "a", 1);
      qel_xvars_fetch_var(xs.get(), 0, x.get());
      qel_xvars_shrink(xs.get());
      EXPECT_EQ(qel_xvars_size(xs.get()), 0);
      qel_xvars_change(xs.get(), 1, multi);
      qel_xvars_change(xs.get(), type, multi);
    }
  }
}

// ---- whole entries ----

TEST(XvarsWholeEntries, MultiLongColumnRoundTrip) {
  Xvars xs = make_xvars(2, 1);
  Xvar a = long_array({1, 2});
  Xvar b = long_array({3, 4, 5}, 1);
  qel_xvars_add_var(xs.get(), a.get());
  qel_xvars_add_var(xs.get(), b.get());
  EXPECT_EQ(starts(xs.get()), (std::vector<uint32_t>{0, 2}));
  EXPECT_EQ(qel_xvars_get_size(xs.get(), 1), 3);
  EXPECT_EQ(qel_xvars_get_buf(xs.get(), 1, 2), 3u);

  Xvar out = make_xvar(2, 1);
  for (int i = 0; i < 10; ++i) qel_xvar_add_long(out.get(), 100 + i);
  qel_xvars_fetch_var(xs.get(), 1, out.get());
  ASSERT_EQ(qel_xvar_size(out.get()), 3);
  for (int64_t k = 0; k < 3; ++k) {
    EXPECT_EQ(qel_xvar_get_long(out.get(), k), 3 + k);
    EXPECT_EQ(qel_xvar_get_buf(out.get(), k), static_cast<uint64_t>(k + 1));
  }

  // Keyed inserts see the fetched values, also when the count did not change.
  Xvar keyed = make_xvar(2, 1);
  uint64_t *slot = nullptr;
  for (int64_t x : {100, 101, 102}) qel_xvar_add_long_x(keyed.get(), x, &slot);
  qel_xvars_fetch_var(xs.get(), 1, keyed.get());
  qel_xvar_add_long_x(keyed.get(), 4, &slot);
  ASSERT_NE(slot, nullptr);
  EXPECT_EQ(*slot, 2u);
  EXPECT_EQ(qel_xvar_size(keyed.get()), 3);
  qel_xvar_add_long_x(keyed.get(), 100, &slot);
  EXPECT_EQ(qel_xvar_size(keyed.get()), 4);
}

TEST(XvarsWholeEntries, MultiStringsGoBehindTheLightVariantsPool) {
  Xvars xs = make_xvars(5, 1);
  Xvar in = make_xvar(5, 1);
  qel_xvar_add_string(in.get(), "ab", 2);
  qel_xvar_add_string(in.get(), "c", 1);
  qel_xvar_set_buf(in.get(), 1, 8);
  qel_xvars_add_var(xs.get(), in.get());

  Xvar out = make_xvar(5, 1);
  qel_xvar_add_string(out.get(), "wxyz", 4);
  qel_xvars_fetch_var(xs.get(), 0, out.get());
  ASSERT_EQ(qel_xvar_size(out.get()), 2);
  EXPECT_EQ(out->data.array.entries[0].offset, 4u);
  EXPECT_EQ(out->data.array.entries[1].offset, 6u);
  EXPECT_EQ(out->data.array.pool.length, 7);
  EXPECT_EQ(xvar_string(out.get(), 0), "ab");
  EXPECT_EQ(xvar_string(out.get(), 1), "c");
  EXPECT_EQ(qel_xvar_get_buf(out.get(), 1), 8u);
  uint64_t *slot = nullptr;
  qel_xvar_add_string_x(out.get(), "c", 1, &slot);  // found among the fetched values
  ASSERT_NE(slot, nullptr);
  EXPECT_EQ(*slot, 8u);
  EXPECT_EQ(qel_xvar_size(out.get()), 2);
}

TEST(XvarsWholeEntries, MismatchedFormsAndEntriesChangeNothing) {
  Xvars xs = make_xvars(2, 1);
  Xvar two = make_xvar(2, 2);
  qel_xvar_add_long(two.get(), 1);
  qel_xvars_add_var(xs.get(), two.get());  // multi byte 2 vs 1
  Xvar single = make_xvar(2, 0);
  qel_xvars_add_var(xs.get(), single.get());
  Xvar other = make_xvar(4, 1);
  qel_xvars_add_var(xs.get(), other.get());
  EXPECT_EQ(qel_xvars_size(xs.get()), 0);

  Xvar a = long_array({1});
  qel_xvars_add_var(xs.get(), a.get());
  qel_xvars_fetch_var(xs.get(), 0, two.get());
  qel_xvars_fetch_var(xs.get(), 0, other.get());
  EXPECT_EQ(qel_xvar_size(two.get()), 1);
  EXPECT_EQ(qel_xvar_get_long(two.get(), 0), 1);
  EXPECT_EQ(qel_xvar_size(other.get()), 0);
  Xvar out = long_array({42});
  for (int64_t bad : {int64_t{-1}, int64_t{1}, std::numeric_limits<int64_t>::min()}) {
    qel_xvars_fetch_var(xs.get(), bad, out.get());
    EXPECT_EQ(qel_xvar_get_long(out.get(), 0), 42);
    EXPECT_EQ(qel_xvars_get_size(xs.get(), bad), 0);
  }
}

// ---- value by value ----

// Numbers never touch a string column, strings never a number column, and
// value-by-value adds never a single one.
TEST(XvarsValues, WrongKindOrFormIsIgnored) {
  Xvars single = make_xvars(2, 0);
  qel_xvars_add_integer(single.get(), 0, 1);
  EXPECT_EQ(qel_xvars_size(single.get()), 0);
  Xvars strings = make_xvars(5, 1);
  qel_xvars_add_string(strings.get(), 0, "12", 2);
  qel_xvars_add_integer(strings.get(), 0, 1);
  qel_xvars_add_double(strings.get(), 1, 1.0);
  qel_xvars_set_integer(strings.get(), 0, 0, 5);
  EXPECT_EQ(qel_xvars_size(strings.get()), 1);
  EXPECT_EQ(qel_xvars_get_size(strings.get(), 0), 1);
  EXPECT_EQ(qel_xvars_get_integer(strings.get(), 0, 0), 0);
  EXPECT_EQ(qel_xvars_get_float(strings.get(), 0, 0), 0.0f);
  EXPECT_EQ(xvars_string(strings.get(), 0, 0), "12");
  Xvars longs = make_xvars(2, 1);
  qel_xvars_add_long(longs.get(), 0, 1);
  qel_xvars_add_string(longs.get(), 0, "a", 1);
  qel_xvars_set_string(longs.get(), 0, 0, "a", 1);
  EXPECT_EQ(qel_xvars_get_size(longs.get(), 0), 1);
  EXPECT_EQ(qel_xvars_get_long(longs.get(), 0, 0), 1);
  EXPECT_EQ(xvars_string(longs.get(), 0, 0), "<null>");
}

TEST(XvarsValues, StoreAndReadConversions) {
  Xvars u = make_xvars(1, 1);
  qel_xvars_add_integer(u.get(), 0, -1);
  qel_xvars_add_float(u.get(), 0, 2.9f);
  qel_xvars_add_float(u.get(), 0, -2.9f);
  qel_xvars_add_double(u.get(), 0, std::numeric_limits<double>::quiet_NaN());
  EXPECT_EQ(qel_xvars_get_integer(u.get(), 0, 0), 4294967295);
  EXPECT_EQ(qel_xvars_get_float(u.get(), 0, 0), 4294967296.0f);
  EXPECT_EQ(qel_xvars_get_double(u.get(), 0, 0), 4294967295.0);
  EXPECT_EQ(qel_xvars_get_integer(u.get(), 0, 1), 2);
  EXPECT_EQ(qel_xvars_get_long(u.get(), 0, 2), 4294967294);
  EXPECT_EQ(qel_xvars_get_integer(u.get(), 0, 3), 0);

  Xvars f = make_xvars(3, 1);
  qel_xvars_add_double(f.get(), 0, 0.0);
  qel_xvars_set_double(f.get(), 0, 0, 0.1);
  EXPECT_EQ(qel_xvars_get_double(f.get(), 0, 0), 0.10000000149011612);

  Xvars d = make_xvars(4, 1);
  qel_xvars_add_integer(d.get(), 0, (int64_t{1} << 53) + 1);
  EXPECT_EQ(qel_xvars_get_integer(d.get(), 0, 0), 9007199254740992);
}

TEST(XvarsValues, StringsAddSetGet) {
  Xvars xs = make_xvars(5, 1);
  qel_xvars_add_string(xs.get(), 0, "abc", -1);
  qel_xvars_add_string(xs.get(), 0, nullptr, -1);
  qel_xvars_add_string(xs.get(), 0, "a\0b", 3);
  qel_xvars_add_string(xs.get(), 0, nullptr, 2);  // no bytes: refused, entry unchanged
  qel_xvars_add_string(xs.get(), 3, "x", 1);       // not last nor next
  ASSERT_EQ(qel_xvars_get_size(xs.get(), 0), 3);
  EXPECT_EQ(xvars_string(xs.get(), 0, 0), "abc");
  EXPECT_EQ(xvars_string(xs.get(), 0, 1).size(), 0u);
  EXPECT_NE(xvars_string(xs.get(), 0, 1), "<null>");
  EXPECT_EQ(xvars_string(xs.get(), 0, 2), std::string("a\0b", 3));
  EXPECT_EQ(xvars_string(xs.get(), 0, 3), "<null>");
  EXPECT_EQ(xvars_string(xs.get(), -1, 0), "<null>");

  qel_xvars_set_buf(xs.get(), 0, 0, 7);
  qel_xvars_set_string(xs.get(), 0, 0, "a longer replacement", -1);
  EXPECT_EQ(xvars_string(xs.get(), 0, 0), "a longer replacement");
  EXPECT_EQ(qel_xvars_get_buf(xs.get(), 0, 0), 0u);
  EXPECT_EQ(xvars_string(xs.get(), 0, 2), std::string("a\0b", 3));
  // From the column's own pool.
  const char *p = nullptr;
  int64_t n = 0;
  qel_xvars_get_string(xs.get(), 0, 0, &p, &n);
  qel_xvars_add_string(xs.get(), 1, p + 2, 6);
  EXPECT_EQ(xvars_string(xs.get(), 1, 0), "longer");
  qel_xvars_set_string(xs.get(), 0, 3, "no", 2);  // pos = count: nothing
  EXPECT_EQ(qel_xvars_get_size(xs.get(), 0), 3);
}

// ---- limits ----

TEST(XvarsLimits, Predicates) {
  using namespace qel::light;
  EXPECT_TRUE(values_fit(0, 0));
  EXPECT_TRUE(values_fit(kMaxValues - 16, 16));
  EXPECT_FALSE(values_fit(kMaxValues - 16, 17));
  EXPECT_FALSE(values_fit(kMaxValues + 1, 0));
  EXPECT_FALSE(values_fit(std::numeric_limits<int64_t>::max(), std::numeric_limits<int64_t>::max()));
  EXPECT_TRUE(bytes_fit(1, kMaxPoolBytes - 1));
  EXPECT_FALSE(bytes_fit(1, kMaxPoolBytes));
  EXPECT_FALSE(bytes_fit(0, -1));
}

// A full column, faked through its header: every append must be refused
// before any container call (which would need 2^32 real entries).
TEST(XvarsLimits, FullColumnRefusesAppendsWhole) {
  Xvars xs = make_xvars(1, 1);
  qel_xvars_add_integer(xs.get(), 0, 1);
  const int64_t real = xs->data.arrayd.count;
  xs->data.arrayd.count = qel::light::kMaxValues;
  Xvar row = make_xvar(1, 1);
  qel_xvar_add_integer(row.get(), 2);
  qel_xvars_add_var(xs.get(), row.get());
  qel_xvars_add_integer(xs.get(), 0, 3);
  qel_xvars_add_integer(xs.get(), 1, 3);
  EXPECT_EQ(qel_xvars_size(xs.get()), 1);
  EXPECT_EQ(qel_xvars_get_size(xs.get(), 0), 1);
  xs->data.arrayd.count = real;
  Xvar empty = make_xvar(1, 1);
  qel_xvars_add_var(xs.get(), empty.get());
  qel_xvars_add_var(xs.get(), row.get());
  EXPECT_EQ(starts(xs.get()), (std::vector<uint32_t>{0, 1, 1}));
}

TEST(XvarsLimits, FullPoolRefusesStringsWhole) {
  Xvars xs = make_xvars(5, 1);
  qel_xvars_add_string(xs.get(), 0, "abc", 3);
  qel_stream &pool = xs->data.array.pool;
  const int64_t real = pool.length;
  pool.length = qel::light::kMaxPoolBytes - 1;
  qel_xvars_add_string(xs.get(), 0, "xy", 2);
  qel_xvars_add_string(xs.get(), 1, "xy", 2);
  Xvar row = make_xvar(5, 1);
  qel_xvar_add_string(row.get(), "xy", 2);
  qel_xvars_add_var(xs.get(), row.get());
  EXPECT_EQ(qel_xvars_size(xs.get()), 1);
  EXPECT_EQ(qel_xvars_get_size(xs.get(), 0), 1);
  EXPECT_EQ(xs->data.array.count, 1);
  pool.length = real;

  // A light variant's pool that cannot take the entry's bytes refuses the fetch.
  Xvar out = make_xvar(5, 1);
  qel_xvar_add_string(out.get(), "keep", 4);
  qel_stream &opool = out->data.array.pool;
  const int64_t oreal = opool.length;
  opool.length = qel::light::kMaxPoolBytes - 2;
  qel_xvars_fetch_var(xs.get(), 0, out.get());
  opool.length = oreal;
  EXPECT_EQ(qel_xvar_size(out.get()), 1);
  EXPECT_EQ(xvar_string(out.get(), 0), "keep");
}

}  // namespace
