// qel_var_qsort, qel_var_find, qel_var_bfind and qel_var_cmp through the
// exported interface.
#include <gtest/gtest.h>

#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "varx_test_util.h"

namespace {

using namespace varx_test;

constexpr float kNaNf = std::numeric_limits<float>::quiet_NaN();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();

// A multi variant of code 5 or 6 holding `values`, caller value k on entry k.
var_ptr floats(uint32_t type, const std::vector<double> &values) {
  var_ptr v = make(type, 1);
  for (size_t k = 0; k < values.size(); ++k) {
    qel_var_add_double(v.get(), values[k]);
    qel_var_set_buf(v.get(), static_cast<int64_t>(k), k);
  }
  return v;
}

// ---- sorting ----

TEST(VarQsort, FloatAndDoubleGoldenOrders) {
  const std::vector<double> values{3, 1, 3, 2, 3, 1, 2, 3, 1, 2};
  for (const uint32_t type : {5u, 6u}) {
    var_ptr up = floats(type, values);
    qel_var_qsort(up.get(), 1);
    EXPECT_EQ(bufs(up.get()), (std::vector<uint64_t>{1, 8, 5, 3, 6, 9, 7, 2, 0, 4})) << type;
    var_ptr down = floats(type, values);
    qel_var_qsort(down.get(), 0);
    EXPECT_EQ(bufs(down.get()), (std::vector<uint64_t>{7, 2, 4, 0, 3, 9, 6, 8, 5, 1})) << type;
  }
}

TEST(VarQsort, AnyNonzeroFlagIsAscending) {
  for (const int flag : {2, -1}) {
    var_ptr v = floats(5, {0.5, -1.0, 2.0});
    qel_var_qsort(v.get(), flag);
    // As bit patterns -1.0 would sort last.
    EXPECT_EQ(qel_var_get_float(v.get(), 0), -1.0f);
    EXPECT_EQ(qel_var_get_float(v.get(), 1), 0.5f);
    EXPECT_EQ(qel_var_get_float(v.get(), 2), 2.0f);
  }
}

TEST(VarQsort, NaNExamplesThroughTheVariant) {
  var_ptr v = floats(6, {kNaN, 3, 1});
  qel_var_qsort(v.get(), 1);
  EXPECT_EQ(bufs(v.get()), (std::vector<uint64_t>{2, 1, 0}));
  var_ptr w = floats(5, {3, kNaN, 1});
  qel_var_qsort(w.get(), 1);
  EXPECT_EQ(bufs(w.get()), (std::vector<uint64_t>{1, 2, 0}));
  EXPECT_TRUE(std::isnan(qel_var_get_float(w.get(), 0)));
}

TEST(VarQsort, LeavesSinglesAndRecordsAlone) {
  var_ptr single = make(5, 0);
  qel_var_set_float(single.get(), 0, 2.5f);
  qel_var_set_buf(single.get(), 0, 77);
  qel_var_qsort(single.get(), 1);
  EXPECT_EQ(qel_var_get_float(single.get(), 0), 2.5f);
  EXPECT_EQ(qel_var_get_buf(single.get(), 0), 77u);

  var_ptr records = make(12, 1);
  qel_var *first = qel_var_add_new(records.get());
  qel_var *second = qel_var_add_new(records.get());
  qel_var_qsort(records.get(), 0);
  EXPECT_EQ(qel_var_get_var_x(records.get(), 0), first);
  EXPECT_EQ(qel_var_get_var_x(records.get(), 1), second);
}

TEST(VarQsort, IntegerAndStringArraysGoToTheContainers) {
  // 32-bit codes order unsigned, code 4 signed; caller values move along.
  var_ptr u = make(9, 1);
  for (const int64_t x : {3, -1, 1}) qel_var_add_integer(u.get(), x);
  for (int64_t k = 0; k < 3; ++k) qel_var_set_buf(u.get(), k, static_cast<uint64_t>(k));
  qel_var_qsort(u.get(), 1);
  EXPECT_EQ(qel_var_get_integer(u.get(), 0), 1);
  EXPECT_EQ(qel_var_get_integer(u.get(), 2), 0xFFFFFFFF);
  EXPECT_EQ(bufs(u.get()), (std::vector<uint64_t>{2, 0, 1}));

  var_ptr s = make(4, 1);
  for (const int64_t x : {-1, 5, -7}) qel_var_add_long(s.get(), x);
  qel_var_qsort(s.get(), 0);
  EXPECT_EQ(qel_var_get_long(s.get(), 0), 5);
  EXPECT_EQ(qel_var_get_long(s.get(), 2), -7);

  var_ptr t = make(8, 1);
  for (const char *x : {"pear", "apple", "fig"}) qel_var_add_string(t.get(), x, -1);
  qel_var_qsort(t.get(), 1);
  EXPECT_EQ(string_at(t.get(), 0), "apple");
  EXPECT_EQ(string_at(t.get(), 2), "pear");
}

TEST(VarQsort, KeyedInsertAfterAFloatSortFindsTheMovedEntry) {
  for (const uint32_t type : {5u, 6u}) {
    var_ptr v = make(type, 1);
    for (const double x : {3.0, 1.0, 2.0, 5.0, 4.0}) {
      qel_var_add_double_x(v.get(), x);
      const uint64_t tag = 100 + static_cast<uint64_t>(x);
      if (type == 5) {
        const uint32_t key = float_bits(static_cast<float>(x));
        qel_var_set_buf(v.get(), qel_var_find(v.get(), &key, 0), tag);
      } else {
        const int64_t key = double_bits(x);
        qel_var_set_buf(v.get(), qel_var_find(v.get(), &key, 0), tag);
      }
    }
    qel_var_qsort(v.get(), 0);
    EXPECT_EQ(qel_var_get_double(v.get(), 0), 5.0);
    for (const double x : {3.0, 1.0, 5.0}) EXPECT_EQ(qel_var_add_double_x(v.get(), x), 100 + static_cast<uint64_t>(x));
    EXPECT_EQ(qel_var_size(v.get()), 5);
  }
}

// ---- search ----

// Float keys are searched as bit patterns, which order like the values only
// for non-negative numbers; integers and strings in full range.
TEST(VarSearch, BinarySearchAfterAnAscendingSort) {
  std::mt19937 rng(5);
  var_ptr f = make(5, 1), d = make(6, 1), u = make(1, 1), l = make(4, 1), s = make(7, 1);
  std::vector<int> keys;
  for (int k = 0; k < 500; ++k) keys.push_back(static_cast<int>(rng() % 100000) - 50000);
  for (const int x : keys) {
    qel_var_add_float(f.get(), static_cast<float>(std::abs(x)) / 8);
    qel_var_add_double(d.get(), std::abs(x) / 3.0);
    qel_var_add_integer(u.get(), x);
    qel_var_add_long(l.get(), x);
    const std::string str = std::to_string(x);
    qel_var_add_string(s.get(), str.data(), static_cast<int64_t>(str.size()));
  }
  for (qel_var *v : {f.get(), d.get(), u.get(), l.get(), s.get()}) qel_var_qsort(v, 1);
  for (const int x : keys) {
    const uint32_t fk = float_bits(static_cast<float>(std::abs(x)) / 8);
    const int64_t dk = double_bits(std::abs(x) / 3.0);
    const auto uk = static_cast<uint32_t>(x);
    const int64_t lk = x;
    const std::string sk = std::to_string(x);
    int64_t at = qel_var_bfind(f.get(), &fk, 0);
    ASSERT_GE(at, 0);
    EXPECT_EQ(qel_var_get_float(f.get(), at), static_cast<float>(std::abs(x)) / 8);
    at = qel_var_bfind(d.get(), &dk, 0);
    ASSERT_GE(at, 0);
    EXPECT_EQ(qel_var_get_double(d.get(), at), std::abs(x) / 3.0);
    at = qel_var_bfind(u.get(), &uk, 0);
    ASSERT_GE(at, 0);
    EXPECT_EQ(qel_var_get_integer(u.get(), at), static_cast<int64_t>(uk));
    at = qel_var_bfind(l.get(), &lk, 0);
    ASSERT_GE(at, 0);
    EXPECT_EQ(qel_var_get_long(l.get(), at), x);
    at = qel_var_bfind(s.get(), sk.data(), static_cast<int64_t>(sk.size()));
    ASSERT_GE(at, 0);
    EXPECT_EQ(string_at(s.get(), at), sk);
  }
}

TEST(VarSearch, KeysAreReadInTheStorageWidthAsBits) {
  var_ptr f = floats(5, {-0.0, 1.0, kNaN});
  const uint32_t plus_zero = float_bits(0.0f), minus_zero = float_bits(-0.0f), one = float_bits(1.0f);
  const uint32_t nan = float_bits(kNaNf);
  EXPECT_EQ(qel_var_find(f.get(), &plus_zero, 0), -1);
  EXPECT_EQ(qel_var_find(f.get(), &minus_zero, 0), 0);
  EXPECT_EQ(qel_var_find(f.get(), &one, 0), 1);
  EXPECT_EQ(qel_var_find(f.get(), &nan, 0), 2);

  // A key that is not aligned for its width is read all the same.
  alignas(8) unsigned char raw[16] = {};
  var_ptr d = floats(6, {1.5, -2.25});
  const int64_t bits = double_bits(-2.25);
  std::memcpy(raw + 3, &bits, sizeof bits);
  EXPECT_EQ(qel_var_find(d.get(), raw + 3, 0), 1);
  qel_var_qsort(d.get(), 1);
  EXPECT_EQ(qel_var_bfind(d.get(), raw + 3, 0), 0);
}

TEST(VarSearch, UnsearchableVariantsGiveMinusOne) {
  const uint32_t key = 0;
  var_ptr single = make(1, 0);
  EXPECT_EQ(qel_var_find(single.get(), &key, 0), -1);
  EXPECT_EQ(qel_var_bfind(single.get(), &key, 0), -1);
  var_ptr records = make(12, 1);
  qel_var_add_new(records.get());
  EXPECT_EQ(qel_var_find(records.get(), &key, 0), -1);
  EXPECT_EQ(qel_var_bfind(records.get(), &key, 0), -1);
  var_ptr zero_code = make(0, 1);
  EXPECT_EQ(qel_var_find(zero_code.get(), nullptr, 0), -1);
  // A numeric array never reads a NULL key.
  var_ptr ints = make(2, 1);
  qel_var_add_integer(ints.get(), 0);
  EXPECT_EQ(qel_var_find(ints.get(), nullptr, 0), -1);
  EXPECT_EQ(qel_var_bfind(ints.get(), nullptr, 0), -1);
}

TEST(VarSearch, StringKeysAreBytesWithTheirLength) {
  var_ptr s = make(7, 1);
  qel_var_add_string(s.get(), "ab", 2);
  qel_var_add_string(s.get(), "abc", 3);
  qel_var_add_string(s.get(), "a\0b", 3);
  EXPECT_EQ(qel_var_find(s.get(), "abcd", 3), 1);
  EXPECT_EQ(qel_var_find(s.get(), "abcd", 2), 0);
  EXPECT_EQ(qel_var_find(s.get(), "a\0b", 3), 2);
  EXPECT_EQ(qel_var_find(s.get(), "b", 1), -1);
}

// ---- comparison ----

TEST(VarCmp, FormThenTypeCode) {
  var_ptr single4 = make(4, 0), single6 = make(6, 0), multi4 = make(4, 1);
  var_ptr multi_ff = make(4, 0xFF), multi2 = make(4, 2);
  qel_var_set_long(single4.get(), 0, 1000);
  EXPECT_EQ(qel_var_cmp(single4.get(), single6.get()), -2);
  EXPECT_EQ(qel_var_cmp(single6.get(), single4.get()), 2);
  EXPECT_EQ(qel_var_cmp(single4.get(), multi4.get()), -1);
  EXPECT_EQ(qel_var_cmp(multi4.get(), single4.get()), 1);
  EXPECT_EQ(qel_var_cmp(multi_ff.get(), multi4.get()), -2);  // 0xFF reads as -1
  EXPECT_EQ(qel_var_cmp(multi4.get(), multi2.get()), -1);
  var_ptr top = make(0xFFFFFFFFu, 0), zero = make(0, 0);
  EXPECT_EQ(qel_var_cmp(top.get(), zero.get()), -1);  // 32-bit difference read signed
}

TEST(VarCmp, SingleValues) {
  var_ptr a = make(1, 0), b = make(1, 0);
  qel_var_set_integer(a.get(), 0, 0xFFFFFFFF);
  qel_var_set_integer(b.get(), 0, 1);
  EXPECT_EQ(qel_var_cmp(a.get(), b.get()), 1);
  EXPECT_EQ(qel_var_cmp(b.get(), a.get()), -1);
  qel_var_set_integer(b.get(), 0, -1);
  EXPECT_EQ(qel_var_cmp(a.get(), b.get()), 0);

  var_ptr l = make(4, 0), m = make(4, 0);
  qel_var_set_long(l.get(), 0, -1);
  qel_var_set_long(m.get(), 0, 1);
  EXPECT_EQ(qel_var_cmp(l.get(), m.get()), 1);  // unsigned

  var_ptr f = make(5, 0), g = make(5, 0);
  qel_var_set_float(f.get(), 0, kNaNf);
  qel_var_set_float(g.get(), 0, 1.0f);
  EXPECT_EQ(qel_var_cmp(f.get(), g.get()), 0);
  EXPECT_EQ(qel_var_cmp(g.get(), f.get()), 0);
  qel_var_set_float(f.get(), 0, -2.0f);
  EXPECT_EQ(qel_var_cmp(f.get(), g.get()), -1);
  qel_var_set_float(f.get(), 0, -0.0f);
  qel_var_set_float(g.get(), 0, 0.0f);
  EXPECT_EQ(qel_var_cmp(f.get(), g.get()), 0);

  var_ptr d = make(6, 0), e = make(6, 0);
  qel_var_set_double(d.get(), 0, 2.5);
  qel_var_set_double(e.get(), 0, -3.0);
  EXPECT_EQ(qel_var_cmp(d.get(), e.get()), 1);

  var_ptr s = make(7, 0), t = make(7, 0);
  qel_var_set_string(s.get(), 0, "abc", 3);
  qel_var_set_string(t.get(), 0, "abd", 3);
  EXPECT_LT(qel_var_cmp(s.get(), t.get()), 0);
  qel_var_set_string(t.get(), 0, "ab", 2);
  EXPECT_GT(qel_var_cmp(s.get(), t.get()), 0);
  qel_var_set_string(t.get(), 0, "abc", 3);
  EXPECT_EQ(qel_var_cmp(s.get(), t.get()), 0);
  var_ptr empty1 = make(8, 0), empty2 = make(8, 0);
  EXPECT_EQ(qel_var_cmp(empty1.get(), empty2.get()), 0);
}

TEST(VarCmp, RecordsCompareEqualWhateverTheirMembers) {
  var_ptr a = make(12, 0), b = make(12, 0), one = make(1, 0);
  qel_var_set_integer(one.get(), 0, 5);
  qel_var_set_val(a.get(), "x", 1, one.get());
  EXPECT_EQ(qel_var_cmp(a.get(), b.get()), 0);
  var_ptr ra = make(12, 1), rb = make(12, 1);
  qel_var_add_new(ra.get());
  EXPECT_EQ(qel_var_cmp(ra.get(), rb.get()), 0);
}

TEST(VarCmp, ArraysElementByElementThenLength) {
  auto ints = [](uint32_t type, std::vector<int64_t> xs) {
    var_ptr v = make(type, 1);
    for (const int64_t x : xs) qel_var_add_long(v.get(), x);
    return v;
  };
  // First difference decides, whatever the lengths.
  EXPECT_EQ(qel_var_cmp(ints(2, {1, 2, 9}).get(), ints(2, {1, 3}).get()), -1);
  // Unsigned, as for single values.
  EXPECT_EQ(qel_var_cmp(ints(2, {-1}).get(), ints(2, {7}).get()), 1);
  EXPECT_EQ(qel_var_cmp(ints(4, {0, -1}).get(), ints(4, {0, 1}).get()), 1);
  // A prefix orders first; equal arrays give 0; empty arrays too.
  EXPECT_EQ(qel_var_cmp(ints(4, {1, 2}).get(), ints(4, {1, 2, 0}).get()), -1);
  EXPECT_EQ(qel_var_cmp(ints(4, {1, 2, 0}).get(), ints(4, {1, 2}).get()), 1);
  EXPECT_EQ(qel_var_cmp(ints(3, {4, 5}).get(), ints(3, {4, 5}).get()), 0);
  EXPECT_EQ(qel_var_cmp(ints(3, {}).get(), ints(3, {}).get()), 0);

  // Floats by value: NaN pairs are no difference, -0.0 equals +0.0.
  EXPECT_EQ(qel_var_cmp(floats(5, {kNaN, -0.0, 1}).get(), floats(5, {1, 0.0, 2}).get()), -1);
  EXPECT_EQ(qel_var_cmp(floats(6, {-1.0}).get(), floats(6, {0.5}).get()), -1);
  EXPECT_EQ(qel_var_cmp(floats(6, {kNaN, 2}).get(), floats(6, {kNaN, 2}).get()), 0);

  // Strings by bytes, a shorter string first.
  var_ptr s = make(8, 1), t = make(8, 1);
  for (const char *x : {"same", "ab"}) qel_var_add_string(s.get(), x, -1);
  for (const char *x : {"same", "abc"}) qel_var_add_string(t.get(), x, -1);
  EXPECT_LT(qel_var_cmp(s.get(), t.get()), 0);
  EXPECT_GT(qel_var_cmp(t.get(), s.get()), 0);
  qel_var_add_string(s.get(), "c", 1);  // now "same","ab","c" vs "same","abc"
  EXPECT_LT(qel_var_cmp(s.get(), t.get()), 0);
}

}  // namespace
