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

TEST(XvarsWholeEntries, SingleIntegerColumn) {
  Xvars xs = make_xvars(1, 0);
  Xvar x = make_xvar(1, 0);
  for (int64_t v : {5, 6, 7}) {
    qel_xvar_set_integer(x.get(), 0, v);
    qel_xvar_set_buf(x.get(), 0, 99);  // a single's buf is not kept
    qel_xvars_add_var(xs.get(), x.get());
  }
  EXPECT_EQ(starts(xs.get()), (std::vector<uint32_t>{0, 1, 2}));
  EXPECT_EQ(xs->data.arrayd.entries[1].buf, 0u);
  Xvar out = make_xvar(1, 0);
  qel_xvar_set_buf(out.get(), 0, 4);
  qel_xvars_fetch_var(xs.get(), 1, out.get());
  EXPECT_EQ(qel_xvar_get_integer(out.get(), 0), 6);
  EXPECT_EQ(qel_xvar_get_buf(out.get(), 0), 4u);
  EXPECT_EQ(qel_xvars_get_size(xs.get(), 1), 0);
  EXPECT_EQ(qel_xvars_get_integer(xs.get(), 2, 1234), 7);
}

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
  // The fetched array is an ordinary array again: keyed inserts see the new values.
  uint64_t *slot = nullptr;
  qel_xvar_add_long_x(out.get(), 4, &slot);
  ASSERT_NE(slot, nullptr);
  EXPECT_EQ(*slot, 2u);
  EXPECT_EQ(qel_xvar_size(out.get()), 3);
  qel_xvar_add_long_x(out.get(), 100, &slot);
  EXPECT_EQ(qel_xvar_size(out.get()), 4);
}

TEST(XvarsWholeEntries, EmptyEntries) {
  Xvars xs = make_xvars(4, 1);
  Xvar empty = make_xvar(4, 1);
  Xvar one = make_xvar(4, 1);
  qel_xvar_add_double(one.get(), 1.5);
  qel_xvars_add_var(xs.get(), empty.get());
  qel_xvars_add_var(xs.get(), one.get());
  qel_xvars_add_var(xs.get(), empty.get());
  EXPECT_EQ(starts(xs.get()), (std::vector<uint32_t>{0, 0, 1}));
  Xvar out = make_xvar(4, 1);
  qel_xvar_add_double(out.get(), 9.0);
  qel_xvars_fetch_var(xs.get(), 2, out.get());
  EXPECT_EQ(qel_xvar_size(out.get()), 0);
  qel_xvars_fetch_var(xs.get(), 1, out.get());
  EXPECT_EQ(qel_xvar_get_double(out.get(), 0), 1.5);
  qel_xvars_set_buf(xs.get(), 0, -1, 7);  // no values: nothing
  EXPECT_EQ(qel_xvars_get_buf(xs.get(), 0, -1), 0u);
  EXPECT_EQ(qel_xvars_get_buf(xs.get(), 0, 0), 0u);
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

TEST(XvarsWholeEntries, SingleStringsReplaceAndKeepBuf) {
  Xvars xs = make_xvars(5, 0);
  Xvar in = make_xvar(5, 0);
  qel_xvars_add_var(xs.get(), in.get());  // an empty string
  qel_xvar_set_string(in.get(), 0, std::string("z\0y", 3).c_str(), 3);
  qel_xvars_add_var(xs.get(), in.get());
  Xvar out = make_xvar(5, 0);
  qel_xvar_set_string(out.get(), 0, "previous", -1);
  qel_xvar_set_buf(out.get(), 0, 3);
  qel_xvars_fetch_var(xs.get(), 1, out.get());
  EXPECT_EQ(xvar_string(out.get(), 0), std::string("z\0y", 3));
  EXPECT_EQ(qel_xvar_get_buf(out.get(), 0), 3u);
  qel_xvars_fetch_var(xs.get(), 0, out.get());
  EXPECT_EQ(xvar_length(out.get(), 0), 0);
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

TEST(XvarsNumbers, AddGrowsTheLastEntryOrBeginsOne) {
  Xvars xs = make_xvars(2, 1);
  qel_xvars_add_integer(xs.get(), -1, 1);  // nothing
  qel_xvars_add_integer(xs.get(), 0, 10);
  qel_xvars_add_integer(xs.get(), 0, 11);
  qel_xvars_add_integer(xs.get(), 2, 99);  // neither last nor next: nothing
  qel_xvars_add_integer(xs.get(), 1, 12);
  qel_xvars_add_long(xs.get(), 0, 99);  // no longer the last: nothing
  EXPECT_EQ(starts(xs.get()), (std::vector<uint32_t>{0, 2}));
  EXPECT_EQ(qel_xvars_get_size(xs.get(), 0), 2);
  EXPECT_EQ(qel_xvars_get_integer(xs.get(), 0, 1), 11);
  EXPECT_EQ(qel_xvars_get_integer(xs.get(), 1, 0), 12);
  EXPECT_EQ(xs->data.arrayx.count, 3);
}

TEST(XvarsNumbers, AddServesOnlyMultiNumberColumns) {
  Xvars single = make_xvars(2, 0);
  qel_xvars_add_integer(single.get(), 0, 1);
  EXPECT_EQ(qel_xvars_size(single.get()), 0);
  Xvars strings = make_xvars(5, 1);
  qel_xvars_add_string(strings.get(), 0, "a", 1);
  qel_xvars_add_integer(strings.get(), 0, 1);
  qel_xvars_add_double(strings.get(), 1, 1.0);
  EXPECT_EQ(qel_xvars_size(strings.get()), 1);
  EXPECT_EQ(qel_xvars_get_size(strings.get(), 0), 1);
}

TEST(XvarsNumbers, PositionsAreCheckedInTheMultiFormOnly) {
  Xvars xs = make_xvars(4, 1);
  qel_xvars_add_double(xs.get(), 0, 1.0);
  qel_xvars_add_double(xs.get(), 1, 2.0);
  qel_xvars_add_double(xs.get(), 1, 3.0);
  qel_xvars_set_double(xs.get(), 0, 1, 9.0);  // pos = count: nothing (would be entry 1's value)
  qel_xvars_set_double(xs.get(), 1, -1, 9.0);
  EXPECT_EQ(qel_xvars_get_double(xs.get(), 1, 0), 2.0);
  EXPECT_EQ(qel_xvars_get_double(xs.get(), 0, 1), 0.0);
  EXPECT_EQ(qel_xvars_get_double(xs.get(), 1, -1), 0.0);
  EXPECT_EQ(qel_xvars_get_double(xs.get(), 2, 0), 0.0);
  qel_xvars_set_double(xs.get(), 1, 1, 4.5);
  EXPECT_EQ(qel_xvars_get_double(xs.get(), 1, 1), 4.5);

  Xvars one = make_xvars(4, 0);
  Xvar x = make_xvar(4, 0);
  qel_xvar_set_double(x.get(), 0, 1.25);
  qel_xvars_add_var(one.get(), x.get());
  qel_xvars_set_double(one.get(), 0, 77, 2.5);
  EXPECT_EQ(qel_xvars_get_double(one.get(), 0, -5), 2.5);
}

TEST(XvarsNumbers, StoreAndReadConversions) {
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
  qel_xvars_set_double(f.get(), 0, 0, 1e39);
  EXPECT_EQ(qel_xvars_get_float(f.get(), 0, 0), std::numeric_limits<float>::infinity());
  EXPECT_EQ(qel_xvars_get_integer(f.get(), 0, 0), std::numeric_limits<int64_t>::min());

  Xvars d = make_xvars(4, 1);
  qel_xvars_add_integer(d.get(), 0, (int64_t{1} << 53) + 1);
  EXPECT_EQ(qel_xvars_get_integer(d.get(), 0, 0), 9007199254740992);
  qel_xvars_add_float(d.get(), 0, 0.1f);
  EXPECT_EQ(qel_xvars_get_double(d.get(), 0, 1), static_cast<double>(0.1f));
  EXPECT_EQ(bits(qel_xvars_get_float(d.get(), 0, 1)), bits(0.1f));

  Xvars l = make_xvars(2, 1);
  qel_xvars_add_double(l.get(), 0, -7.99);
  qel_xvars_add_integer(l.get(), 0, (int64_t{1} << 24) + 1);
  EXPECT_EQ(qel_xvars_get_long(l.get(), 0, 0), -7);
  EXPECT_EQ(qel_xvars_get_float(l.get(), 0, 1), 16777216.0f);
}

TEST(XvarsNumbers, OtherTypesReadZero) {
  Xvars s = make_xvars(5, 1);
  qel_xvars_add_string(s.get(), 0, "12", 2);
  qel_xvars_set_integer(s.get(), 0, 0, 5);
  EXPECT_EQ(qel_xvars_get_integer(s.get(), 0, 0), 0);
  EXPECT_EQ(qel_xvars_get_float(s.get(), 0, 0), 0.0f);
  EXPECT_EQ(xvars_string(s.get(), 0, 0), "12");
}

// ---- strings ----

TEST(XvarsStrings, AddSetGet) {
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

TEST(XvarsStrings, SingleColumnIgnoresPos) {
  Xvars xs = make_xvars(5, 0);
  Xvar x = make_xvar(5, 0);
  qel_xvar_set_string(x.get(), 0, "one", -1);
  qel_xvars_add_var(xs.get(), x.get());
  qel_xvars_add_string(xs.get(), 1, "two", -1);  // single: nothing
  qel_xvars_set_string(xs.get(), 0, 42, "uno", -1);
  EXPECT_EQ(qel_xvars_size(xs.get()), 1);
  EXPECT_EQ(xvars_string(xs.get(), 0, -9), "uno");
}

TEST(XvarsStrings, OtherTypesGiveNull) {
  Xvars xs = make_xvars(2, 1);
  qel_xvars_add_long(xs.get(), 0, 1);
  qel_xvars_add_string(xs.get(), 0, "a", 1);
  EXPECT_EQ(qel_xvars_get_size(xs.get(), 0), 1);
  EXPECT_EQ(xvars_string(xs.get(), 0, 0), "<null>");
}

// ---- caller values ----

TEST(XvarsBuf, NegativePosIsTheLastValue) {
  Xvars xs = make_xvars(3, 1);
  for (int i = 0; i < 3; ++i) qel_xvars_add_float(xs.get(), 0, 1.0f);
  qel_xvars_set_buf(xs.get(), 0, -1, 7);
  EXPECT_EQ(qel_xvars_get_buf(xs.get(), 0, 2), 7u);
  EXPECT_EQ(qel_xvars_get_buf(xs.get(), 0, -5), 7u);
  qel_xvars_set_buf(xs.get(), 0, 3, 8);
  EXPECT_EQ(qel_xvars_get_buf(xs.get(), 0, 3), 0u);
  qel_xvars_set_buf(xs.get(), 1, 0, 8);
  EXPECT_EQ(qel_xvars_get_buf(xs.get(), 1, 0), 0u);
  qel_xvars_set_float(xs.get(), 0, 2, 2.0f);  // a set clears the caller value
  EXPECT_EQ(qel_xvars_get_buf(xs.get(), 0, 2), 0u);
  EXPECT_EQ(qel_xvars_get_float(xs.get(), 0, 2), 2.0f);
}

TEST(XvarsBuf, SingleColumnsKeepNone) {
  Xvars xs = make_xvars(1, 0);
  Xvar x = make_xvar(1, 0);
  qel_xvar_set_buf(x.get(), 0, 5);
  qel_xvars_add_var(xs.get(), x.get());
  qel_xvars_set_buf(xs.get(), 0, 0, 9);
  EXPECT_EQ(qel_xvars_get_buf(xs.get(), 0, 0), 0u);
  EXPECT_EQ(xs->data.arrayd.entries[0].buf, 0u);
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
