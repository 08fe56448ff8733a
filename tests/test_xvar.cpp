// The light variant: lifecycle, number conversions, strings, caller values.
#include <gtest/gtest.h>
#include <qel.h>

#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>
#include <string>

#include "xvar_test_util.h"

using namespace qel_test;

namespace {

constexpr int64_t kMin64 = std::numeric_limits<int64_t>::min();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// ---- lifecycle ----

TEST(XvarLifecycle, NewRecordsAreEmptyForEveryCode) {
  for (uint32_t type : {0u, 1u, 2u, 3u, 4u, 5u, 7u, 0xFFFFFFFFu}) {
    for (uint8_t multi : {uint8_t{0}, uint8_t{1}, uint8_t{255}}) {
      Xvar v = make_xvar(type, multi);
      ASSERT_NE(v, nullptr);
      EXPECT_EQ(qel_xvar_type(v.get()), type);
      EXPECT_EQ(qel_xvar_size(v.get()), 0);
      EXPECT_EQ(qel_xvar_get_integer(v.get(), 0), 0);
      EXPECT_EQ(qel_xvar_get_buf(v.get(), 0), 0u) << "type " << type << " multi " << int{multi};
    }
  }
  EXPECT_EQ(qel_xvar_multi(make_xvar(1, 1).get()), 1);
  EXPECT_EQ(qel_xvar_multi(make_xvar(1, 255).get()), -1);
  EXPECT_EQ(qel_xvar_multi(make_xvar(1, 0).get()), 0);
}

TEST(XvarLifecycle, ChangeKeepsContentsOnlyForTheSameTypeAndByte) {
  Xvar v = make_xvar(2, 1);
  qel_xvar_add_long(v.get(), 7);
  qel_xvar_change(v.get(), 2, 1);
  EXPECT_EQ(qel_xvar_size(v.get()), 1);
  qel_xvar_change(v.get(), 2, 2);  // both bytes mean multi, yet it re-forms
  EXPECT_EQ(qel_xvar_size(v.get()), 0);
  EXPECT_EQ(qel_xvar_multi(v.get()), 2);

  Xvar s = make_xvar(4, 0);
  qel_xvar_set_double(s.get(), 0, 2.5);
  qel_xvar_set_buf(s.get(), 0, 9);
  qel_xvar_change(s.get(), 4, 0);
  EXPECT_EQ(qel_xvar_get_double(s.get(), 0), 2.5);
  EXPECT_EQ(qel_xvar_get_buf(s.get(), 0), 9u);
  qel_xvar_change(s.get(), 3, 0);
  EXPECT_EQ(qel_xvar_get_double(s.get(), 0), 0.0);
  EXPECT_EQ(qel_xvar_get_buf(s.get(), 0), 0u);
}

TEST(XvarLifecycle, ChangeToACodeWithoutStorageLeavesBufZero) {
  Xvar o = make_xvar(7, 0);
  qel_xvar_set_buf(o.get(), 0, 42);
  qel_xvar_change(o.get(), 8, 0);  // buf goes with the old type
  EXPECT_EQ(qel_xvar_get_buf(o.get(), 0), 0u);

  // An array's header shares bytes with the single form's buf.
  Xvar v = make_xvar(5, 1);
  for (int i = 0; i < 20; ++i) qel_xvar_add_string(v.get(), "some bytes", -1);
  qel_xvar_change(v.get(), 7, 0);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), 0), 0u);
  qel_xvar_set_buf(v.get(), 9, 42);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), 0), 42u);
  qel_xvar_change(v.get(), 0, 1);
  EXPECT_EQ(qel_xvar_size(v.get()), 0);
  qel_xvar_set_buf(v.get(), 0, 1);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), 0), 0u);
}

TEST(XvarLifecycle, ShrinkArrays) {
  Xvar v = make_xvar(1, 1);
  for (uint64_t i = 0; i < 5; ++i) {
    qel_xvar_add_integer(v.get(), static_cast<int64_t>(10 + i));
    qel_xvar_set_buf(v.get(), -1, 100 + i);
  }
  qel_xvar_shrink(v.get(), -3);  // negative: nothing
  EXPECT_EQ(qel_xvar_size(v.get()), 5);
  qel_xvar_shrink(v.get(), 2);
  ASSERT_EQ(qel_xvar_size(v.get()), 2);
  EXPECT_EQ(qel_xvar_get_integer(v.get(), 1), 11);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), 1), 101u);
  EXPECT_EQ(qel_xvar_get_integer(v.get(), 2), 0);  // beyond the count
  qel_xvar_shrink(v.get(), 5);                      // raised again, entries kept
  EXPECT_EQ(qel_xvar_get_integer(v.get(), 4), 14);
  qel_xvar_shrink(v.get(), int64_t{1} << 40);  // capped at the capacity
  const int64_t cap = v->data.arrayd.capacity;
  EXPECT_EQ(qel_xvar_size(v.get()), cap);
  EXPECT_EQ(qel_xvar_get_integer(v.get(), cap - 1), cap > 5 ? 0 : 14);  // zero-filled beyond
  qel_xvar_shrink(v.get(), 0);
  EXPECT_EQ(qel_xvar_size(v.get()), 0);
  qel_xvar_add_integer(v.get(), 3);
  EXPECT_EQ(qel_xvar_get_integer(v.get(), 0), 3);
}

TEST(XvarLifecycle, ShrinkSingles) {
  Xvar n = make_xvar(2, 0);
  qel_xvar_set_long(n.get(), 0, 77);
  qel_xvar_set_buf(n.get(), 0, 5);
  qel_xvar_shrink(n.get(), 0);
  EXPECT_EQ(qel_xvar_get_long(n.get(), 0), 0);
  EXPECT_EQ(qel_xvar_get_buf(n.get(), 0), 0u);

  Xvar s = make_xvar(5, 0);
  qel_xvar_set_string(s.get(), 0, "hello", 5);
  qel_xvar_set_buf(s.get(), 0, 5);
  qel_xvar_shrink(s.get(), 3);
  EXPECT_EQ(xvar_string(s.get(), 0), "hel");
  EXPECT_EQ(qel_xvar_get_buf(s.get(), 0), 0u);
  qel_xvar_shrink(s.get(), -1);
  EXPECT_EQ(xvar_length(s.get(), 0), 0);

  Xvar o = make_xvar(9, 0);
  qel_xvar_set_buf(o.get(), 0, 5);
  qel_xvar_shrink(o.get(), 0);  // no storage: nothing, buf included
  EXPECT_EQ(qel_xvar_get_buf(o.get(), 0), 5u);
}

// ---- numbers ----

TEST(XvarNumbers, Type1IsUnsigned32) {
  Xvar v = make_xvar(1, 0);
  qel_xvar_set_integer(v.get(), 0, -1);
  EXPECT_EQ(qel_xvar_get_integer(v.get(), 0), 4294967295);
  EXPECT_EQ(qel_xvar_get_double(v.get(), 0), 4294967295.0);
  EXPECT_EQ(qel_xvar_get_float(v.get(), 0), 4294967296.0f);
  qel_xvar_set_long(v.get(), 7, 4294967297);
  EXPECT_EQ(qel_xvar_get_long(v.get(), 0), 1);
  qel_xvar_set_float(v.get(), 0, -2.7f);
  EXPECT_EQ(qel_xvar_get_integer(v.get(), 0), 4294967294);
  qel_xvar_set_double(v.get(), 0, kNaN);  // truncation fails: sign bit only, low 32 bits 0
  EXPECT_EQ(qel_xvar_get_integer(v.get(), 0), 0);
  qel_xvar_set_double(v.get(), 0, 4294967296.0 + 5.9);
  EXPECT_EQ(qel_xvar_get_integer(v.get(), 0), 5);
}

TEST(XvarNumbers, Type2TruncatesTowardZero) {
  Xvar v = make_xvar(2, 0);
  qel_xvar_set_float(v.get(), 0, -2.7f);
  EXPECT_EQ(qel_xvar_get_integer(v.get(), 0), -2);
  for (double bad : {kNaN, kInf, -kInf, 9223372036854775808.0, -1e19}) {
    qel_xvar_set_double(v.get(), 0, bad);
    EXPECT_EQ(qel_xvar_get_long(v.get(), 0), kMin64) << bad;
  }
  qel_xvar_set_double(v.get(), 0, -9223372036854775808.0);  // exactly representable
  EXPECT_EQ(qel_xvar_get_long(v.get(), 0), kMin64);
  qel_xvar_set_double(v.get(), 0, 9223372036854774784.0);  // largest double below 2^63
  EXPECT_EQ(qel_xvar_get_long(v.get(), 0), 9223372036854774784);
  qel_xvar_set_long(v.get(), 0, (int64_t{1} << 53) + 1);
  EXPECT_EQ(qel_xvar_get_double(v.get(), 0), 9007199254740992.0);
  EXPECT_EQ(qel_xvar_get_float(v.get(), 0), 9007199254740992.0f);
}

TEST(XvarNumbers, FloatAndDoubleTypes) {
  Xvar f = make_xvar(3, 1);
  qel_xvar_add_double(f.get(), 0.1);
  qel_xvar_add_integer(f.get(), 16777217);  // rounds to even
  qel_xvar_add_double(f.get(), 1e300);      // beyond float: infinity
  qel_xvar_add_double(f.get(), -1e300);
  EXPECT_EQ(qel_xvar_get_double(f.get(), 0), 0.10000000149011612);
  EXPECT_EQ(qel_xvar_get_integer(f.get(), 1), 16777216);
  EXPECT_EQ(qel_xvar_get_float(f.get(), 2), std::numeric_limits<float>::infinity());
  EXPECT_EQ(qel_xvar_get_float(f.get(), 3), -std::numeric_limits<float>::infinity());
  EXPECT_EQ(qel_xvar_get_integer(f.get(), 2), kMin64);
  qel_xvar_set_double(f.get(), 0, 0.1);  // set and add store the same bits
  EXPECT_EQ(bits(qel_xvar_get_float(f.get(), 0)), bits(0.1f));

  Xvar d = make_xvar(4, 0);
  qel_xvar_set_double(d.get(), 0, -3.99);
  EXPECT_EQ(qel_xvar_get_integer(d.get(), 0), -3);
  qel_xvar_set_float(d.get(), 0, 0.1f);  // widened exactly
  EXPECT_EQ(qel_xvar_get_double(d.get(), 0), static_cast<double>(0.1f));
  qel_xvar_set_double(d.get(), 0, -0.0);
  EXPECT_EQ(bits(qel_xvar_get_double(d.get(), 0)), bits(-0.0));
  qel_xvar_set_double(d.get(), 0, kNaN);
  EXPECT_TRUE(std::isnan(qel_xvar_get_float(d.get(), 0)));
}

TEST(XvarNumbers, ArraysAppendSetAndRead) {
  Xvar v = make_xvar(2, 1);
  qel_xvar_add_integer(v.get(), 5);
  EXPECT_EQ(qel_xvar_get_integer(v.get(), qel_xvar_size(v.get()) - 1), 5);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), 0), 0u);
  qel_xvar_set_buf(v.get(), 0, 8);
  qel_xvar_set_integer(v.get(), 0, 6);  // set passes caller value 0
  EXPECT_EQ(qel_xvar_get_integer(v.get(), 0), 6);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), 0), 0u);
  qel_xvar_set_integer(v.get(), 1, 9);   // outside: nothing
  qel_xvar_set_integer(v.get(), -1, 9);  // negative: nothing
  EXPECT_EQ(qel_xvar_size(v.get()), 1);
  EXPECT_EQ(qel_xvar_get_integer(v.get(), 0), 6);
  EXPECT_EQ(qel_xvar_get_integer(v.get(), 1), 0);
  EXPECT_EQ(qel_xvar_get_double(v.get(), -1), 0.0);
}

TEST(XvarNumbers, KeyedInsertHandsOutTheEntrysCallerValue) {
  Xvar v = make_xvar(1, 1);
  uint64_t *slot = nullptr;
  qel_xvar_add_double_x(v.get(), 2.5, &slot);  // stored as 2
  ASSERT_NE(slot, nullptr);
  *slot = 77;
  EXPECT_EQ(qel_xvar_get_integer(v.get(), 0), 2);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), 0), 77u);
  qel_xvar_add_integer_x(v.get(), 2, &slot);  // the same value: the same entry
  ASSERT_NE(slot, nullptr);
  EXPECT_EQ(*slot, 77u);
  EXPECT_EQ(qel_xvar_size(v.get()), 1);
  qel_xvar_add_float_x(v.get(), 3.0f, nullptr);  // NULL output tolerated
  EXPECT_EQ(qel_xvar_size(v.get()), 2);
}

// The keyed insert must see the array as it is after shrink, refill and set.
TEST(XvarNumbers, KeyedInsertAfterShrinkRefillAndSet) {
  Xvar v = make_xvar(2, 1);
  uint64_t *slot = nullptr;
  for (int64_t x : {1, 2, 3}) qel_xvar_add_long_x(v.get(), x, &slot);
  qel_xvar_shrink(v.get(), 1);
  qel_xvar_add_long(v.get(), 5);
  qel_xvar_add_long(v.get(), 6);  // the count is 3 again, values 1, 5, 6
  qel_xvar_add_long_x(v.get(), 2, &slot);
  EXPECT_EQ(qel_xvar_size(v.get()), 4);
  EXPECT_EQ(qel_xvar_get_long(v.get(), 3), 2);
  qel_xvar_set_long(v.get(), 0, 7);
  qel_xvar_add_long_x(v.get(), 7, &slot);
  ASSERT_NE(slot, nullptr);
  *slot = 70;
  EXPECT_EQ(qel_xvar_size(v.get()), 4);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), 0), 70u);
  qel_xvar_add_long_x(v.get(), 1, &slot);  // 1 is gone: a new entry
  EXPECT_EQ(qel_xvar_size(v.get()), 5);
}

// Adds need an array of codes 1 to 4 (strings: code 5); other codes read 0.
TEST(XvarNumbers, WrongTypeOrFormDoesNothing) {
  Xvar single = make_xvar(2, 0);
  qel_xvar_set_integer(single.get(), 123, 4);  // the single form ignores indexes
  EXPECT_EQ(qel_xvar_get_integer(single.get(), -50), 4);
  uint64_t dummy = 0;
  for (uint32_t type : {2u, 5u, 0u, 6u}) {
    for (uint8_t multi : {uint8_t{0}, uint8_t{1}}) {
      if (type == 2 && multi) continue;
      Xvar v = make_xvar(type, multi);
      qel_xvar_add_integer(v.get(), 1);
      qel_xvar_add_double(v.get(), 1.0);
      if (type != 2) qel_xvar_set_integer(v.get(), 0, 1);
      uint64_t *slot = &dummy;
      qel_xvar_add_integer_x(v.get(), 1, &slot);
      EXPECT_EQ(slot, nullptr);
      EXPECT_EQ(qel_xvar_size(v.get()), 0);
      if (type == 2) continue;
      EXPECT_EQ(qel_xvar_get_integer(v.get(), 0), 0);
      EXPECT_EQ(qel_xvar_get_float(v.get(), 0), 0.0f);
      EXPECT_EQ(qel_xvar_get_double(v.get(), 0), 0.0);
    }
  }
  for (uint8_t multi : {uint8_t{0}, uint8_t{1}}) {  // strings on a number variant
    Xvar v = make_xvar(1, multi);
    qel_xvar_add_string(v.get(), "abc", -1);
    qel_xvar_set_string(v.get(), 0, "abc", -1);
    EXPECT_EQ(xvar_string(v.get(), 0), "<null>");
    EXPECT_EQ(qel_xvar_size(v.get()), 0);
  }
}

// ---- strings ----

TEST(XvarStrings, AddMeasuresOnlyNegativeLengths) {
  Xvar v = make_xvar(5, 1);
  qel_xvar_add_string(v.get(), "abc", -1);
  qel_xvar_add_string(v.get(), "abc", 2);
  qel_xvar_add_string(v.get(), nullptr, -1);
  qel_xvar_add_string(v.get(), "a\0b", 3);
  qel_xvar_add_string(v.get(), nullptr, 4);  // names no bytes: refused
  ASSERT_EQ(qel_xvar_size(v.get()), 4);
  EXPECT_EQ(xvar_string(v.get(), 0), "abc");
  EXPECT_EQ(xvar_string(v.get(), 1), "ab");
  EXPECT_EQ(xvar_length(v.get(), 2), 0);
  EXPECT_EQ(xvar_string(v.get(), 3), std::string("a\0b", 3));
  EXPECT_EQ(xvar_string(v.get(), 4), "<null>");
}

TEST(XvarStrings, SingleFormKeepsOneString) {
  Xvar v = make_xvar(5, 0);
  qel_xvar_add_string(v.get(), "abc", -1);  // single: nothing
  EXPECT_EQ(xvar_length(v.get(), 0), 0);
  qel_xvar_set_string(v.get(), 0, "hello", 5);
  qel_xvar_set_buf(v.get(), 0, 11);
  qel_xvar_set_string(v.get(), 3, "xyz", -1);
  EXPECT_EQ(xvar_string(v.get(), 99), "xyz");
  EXPECT_EQ(qel_xvar_get_buf(v.get(), 0), 11u);
}

TEST(XvarStrings, SetFromItsOwnBytes) {
  Xvar v = make_xvar(5, 0);
  qel_xvar_set_string(v.get(), 0, "abcdef", 6);
  const char *p = nullptr;
  int64_t n = 0;
  qel_xvar_get_string(v.get(), 0, &p, &n);
  qel_xvar_set_string(v.get(), 0, p + 2, 3);
  EXPECT_EQ(xvar_string(v.get(), 0), "cde");

  Xvar a = make_xvar(5, 1);
  qel_xvar_add_string(a.get(), "first", -1);
  qel_xvar_add_string(a.get(), "second", -1);
  qel_xvar_get_string(a.get(), 1, &p, &n);
  qel_xvar_set_string(a.get(), 0, p, n);
  EXPECT_EQ(xvar_string(a.get(), 0), "second");
  qel_xvar_set_string(a.get(), 5, "x", 1);  // outside: nothing
  EXPECT_EQ(qel_xvar_size(a.get()), 2);
  EXPECT_EQ(xvar_string(a.get(), 5), "<null>");
}

TEST(XvarStrings, KeyedInsertFindsEqualBytes) {
  Xvar v = make_xvar(5, 1);
  uint64_t *slot = nullptr;
  qel_xvar_add_string_x(v.get(), "key", -1, &slot);
  ASSERT_NE(slot, nullptr);
  *slot = 5;
  qel_xvar_add_string_x(v.get(), "key!", 3, &slot);
  ASSERT_NE(slot, nullptr);
  EXPECT_EQ(*slot, 5u);
  EXPECT_EQ(qel_xvar_size(v.get()), 1);

  Xvar s = make_xvar(5, 0);
  uint64_t dummy = 0;
  slot = &dummy;
  qel_xvar_add_string_x(s.get(), "key", -1, &slot);
  EXPECT_EQ(slot, nullptr);
}

// ---- caller values ----

TEST(XvarBuf, SingleFormAnyCode) {
  for (uint32_t type : {0u, 1u, 5u, 7u}) {
    Xvar v = make_xvar(type, 0);
    qel_xvar_set_buf(v.get(), 9, 42);
    EXPECT_EQ(qel_xvar_get_buf(v.get(), 0), 42u);
  }
  Xvar v = make_xvar(3, 0);
  qel_xvar_set_buf(v.get(), 0, 42);
  qel_xvar_set_float(v.get(), 0, 1.5f);  // setters keep buf
  EXPECT_EQ(qel_xvar_get_buf(v.get(), 0), 42u);
}

TEST(XvarBuf, ArrayIndexesUpToTheCapacity) {
  Xvar v = make_xvar(5, 1);
  qel_xvar_set_buf(v.get(), -1, 5);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), -1), 0u);
  for (uint64_t i = 0; i < 3; ++i) {
    qel_xvar_add_string(v.get(), "s", 1);
    qel_xvar_set_buf(v.get(), -1, i + 1);
  }
  EXPECT_EQ(qel_xvar_get_buf(v.get(), -1), 3u);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), -7), 3u);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), 0), 1u);
  const int64_t cap = v->data.array.capacity;
  ASSERT_GE(cap, 3);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), cap - 1), cap > 3 ? 0u : 3u);  // zero-filled, or the last
  qel_xvar_set_buf(v.get(), cap, 9);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), cap), 0u);
  EXPECT_EQ(xvar_string(v.get(), 2), "s");  // values untouched
  qel_xvar_shrink(v.get(), 1);  // entries 1 and 2 stay below the capacity
  qel_xvar_set_buf(v.get(), 2, 9);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), 2), 9u);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), -1), 1u);  // the last in use
  EXPECT_EQ(qel_xvar_size(v.get()), 1);
}

TEST(XvarBuf, ArraysOfCodesWithoutStorageIgnoreIt) {
  Xvar v = make_xvar(6, 1);
  qel_xvar_set_buf(v.get(), 0, 5);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), 0), 0u);
  EXPECT_EQ(qel_xvar_get_buf(v.get(), -1), 0u);
}

}  // namespace
