// Full variant: the numeric accessors and their conversions, in both forms.
#include <gtest/gtest.h>
#include <qel.h>

#include <bit>
#include <cmath>
#include <cstdint>
#include <cstring>
#include <limits>

namespace {

constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

enum kind { k_integer, k_long, k_float, k_double };

// Writes one value through one of the set functions, in the single form or
// into element 1 of a three-element array; then reads it back in all kinds.
struct readback {
  int64_t i;
  float f;
  double d;
};

readback write_and_read(uint32_t code, bool multi, kind k, double value) {
  qel_var *v = qel_var_new(code, multi ? 1 : 0);
  const int64_t at = multi ? 1 : 0;
  if (multi)
    for (int n = 0; n < 3; ++n) qel_var_add_long(v, 0);
  switch (k) {  // integer rows hold exact integers
    case k_integer: qel_var_set_integer(v, at, static_cast<int64_t>(value)); break;
    case k_long: qel_var_set_long(v, at, static_cast<int64_t>(value)); break;
    case k_float: qel_var_set_float(v, at, static_cast<float>(value)); break;
    case k_double: qel_var_set_double(v, at, value); break;
  }
  readback r{qel_var_get_integer(v, at), qel_var_get_float(v, at), qel_var_get_double(v, at)};
  EXPECT_EQ(qel_var_get_long(v, at), r.i);  // integer and long are one operation
  qel_var_free(v);
  return r;
}

bool same(double a, double b) { return a == b || (std::isnan(a) && std::isnan(b)); }

// Every row is checked in both forms and, where it says so, through both
// integer kinds.
struct row {
  uint32_t code;
  kind k;
  double in;
  int64_t i;
  float f;
  double d;
};

TEST(VarConvert, WritesAndReadsFollowTheTables) {
  const float f01 = 0.1f;
  const row rows[] = {
      // 32-bit integer codes: modulo 2^32, read back unsigned
      {1, k_integer, -1, 4294967295, 4294967296.0f, 4294967295.0},
      {9, k_long, -1, 4294967295, 4294967296.0f, 4294967295.0},
      {2, k_float, -2.75, 0xFFFFFFFE, 4294967296.0f, 4294967294.0},
      {3, k_double, 1e300, 0, 0.0f, 0.0},
      {3, k_double, kNaN, 0, 0.0f, 0.0},
      {2, k_double, 4294967296.0 + 7.9, 7, 7.0f, 7.0},
      {1, k_double, -0.99, 0, 0.0f, 0.0},
      // float code: nearest float, ties to even
      {5, k_integer, 16777219, 16777220, 16777220.0f, 16777220.0},
      {5, k_integer, -3, -3, -3.0f, -3.0},
      {5, k_double, 0.1, 0, f01, static_cast<double>(f01)},
      {5, k_double, -2.5, -2, -2.5f, -2.5},
      {5, k_double, 1e300, kMin, static_cast<float>(kInf), kInf},
      {5, k_double, -1e300, kMin, static_cast<float>(-kInf), -kInf},
      {5, k_double, 3.4028235e38, kMin, std::numeric_limits<float>::max(),  // just above FLT_MAX
       static_cast<double>(std::numeric_limits<float>::max())},
      {5, k_double, 0x1.ffffffp127, kMin, static_cast<float>(kInf), kInf},  // FLT_MAX + half an ulp
      {5, k_double, kNaN, kMin, std::numeric_limits<float>::quiet_NaN(), kNaN},
      {5, k_float, 9.3e18, kMin, 9.3e18f, static_cast<double>(9.3e18f)},
      // 64-bit integer code
      {4, k_float, -2.75, -2, -2.0f, -2.0},
      {4, k_double, 1e300, kMin, -9223372036854775808.0f, -9223372036854775808.0},
      {4, k_double, -7.9, -7, -7.0f, -7.0},
      {4, k_double, kNaN, kMin, -9223372036854775808.0f, -9223372036854775808.0},
      {4, k_double, kInf, kMin, -9223372036854775808.0f, -9223372036854775808.0},
      {4, k_double, 9223372036854775808.0, kMin, -9223372036854775808.0f, -9223372036854775808.0},
      {4, k_double, -9223372036854775808.0, kMin, -9223372036854775808.0f, -9223372036854775808.0},
      {4, k_double, 9223372036854774784.0, 9223372036854774784, 9223372036854775808.0f, 9223372036854774784.0},
      // double code
      {6, k_float, 0.1, 0, f01, static_cast<double>(f01)},  // exact widening
      {6, k_double, -7.9, -7, -7.9f, -7.9},
      {6, k_double, kNaN, kMin, std::numeric_limits<float>::quiet_NaN(), kNaN},
      {6, k_double, 1e300, kMin, static_cast<float>(kInf), 1e300},
      {6, k_double, 1e-50, 0, 0.0f, 1e-50},
  };
  for (const row &r : rows) {
    for (bool multi : {false, true}) {
      const readback got = write_and_read(r.code, multi, r.k, r.in);
      EXPECT_EQ(got.i, r.i) << "code " << r.code << " in " << r.in << " multi " << multi;
      EXPECT_TRUE(same(got.f, r.f)) << "code " << r.code << " in " << r.in << " got " << got.f;
      EXPECT_TRUE(same(got.d, r.d)) << "code " << r.code << " in " << r.in << " got " << got.d;
    }
  }
}

TEST(VarConvert, IntegerWritesUseAllSixtyFourBits) {
  const struct { uint32_t code; int64_t in; int64_t i; double d; } rows[] = {
      {1, (int64_t{1} << 32) + 5, 5, 5.0},
      {2, kMin, 0, 0.0},
      {3, std::numeric_limits<int64_t>::max(), 4294967295, 4294967295.0},
      {4, kMin, kMin, -9223372036854775808.0},
      {4, (int64_t{1} << 53) + 1, (int64_t{1} << 53) + 1, 9007199254740992.0},  // tie to even
      {6, (int64_t{1} << 53) + 3, (int64_t{1} << 53) + 4, 9007199254740996.0},
      {6, std::numeric_limits<int64_t>::max(), kMin, 9223372036854775808.0},  // rounds up past the range
      {4, 16777217, 16777217, 16777217.0},
  };
  for (const auto &r : rows) {
    for (bool multi : {false, true}) {
      qel_var *v = qel_var_new(r.code, multi ? 1 : 0);
      if (multi) qel_var_add_integer(v, r.in);
      else qel_var_set_integer(v, 0, r.in);
      EXPECT_EQ(qel_var_get_integer(v, 0), r.i) << r.code << " " << r.in;
      EXPECT_EQ(qel_var_get_double(v, 0), r.d) << r.code << " " << r.in;
      qel_var_free(v);
    }
  }
  qel_var *v = qel_var_new(4, 0);
  qel_var_set_long(v, 0, 16777217);
  EXPECT_EQ(qel_var_get_float(v, 0), 16777216.0f);
  qel_var_free(v);
}

TEST(VarConvert, AddsConvertLikeSets) {
  qel_var *f = qel_var_new(5, 1);
  qel_var_add_double(f, 0.1);
  qel_var_add_float(f, 0.1f);
  qel_var_add_integer(f, 16777219);
  qel_var_add_long(f, -1);
  ASSERT_EQ(qel_var_size(f), 4);
  EXPECT_EQ(qel_var_get_float(f, 0), 0.1f);
  EXPECT_EQ(qel_var_get_float(f, 1), 0.1f);
  EXPECT_EQ(qel_var_get_float(f, 2), 16777220.0f);
  EXPECT_EQ(qel_var_get_double(f, 3), -1.0);
  for (int64_t i = 0; i < 4; ++i) EXPECT_EQ(f->data.arrayd.entries[i].buf, 0u);
  qel_var_free(f);

  qel_var *u = qel_var_new(2, 1);
  qel_var_add_float(u, -2.75f);
  qel_var_add_double(u, kNaN);
  qel_var_add_long(u, -1);
  EXPECT_EQ(qel_var_get_integer(u, 0), 0xFFFFFFFE);
  EXPECT_EQ(qel_var_get_integer(u, 1), 0);
  EXPECT_EQ(qel_var_get_integer(u, 2), 4294967295);
  qel_var_free(u);
}

TEST(VarConvert, FloatAndDoubleBitsSurviveUnchanged) {
  // A negative zero and a NaN payload go in and come out as the same bits.
  qel_var *f = qel_var_new(5, 0);
  qel_var_set_float(f, 0, -0.0f);
  EXPECT_TRUE(std::signbit(qel_var_get_float(f, 0)));
  qel_var_free(f);
  qel_var *d = qel_var_new(6, 1);
  const double payload = std::bit_cast<double>(uint64_t{0x7FF8000000000123});
  qel_var_add_double(d, payload);
  EXPECT_EQ(std::bit_cast<uint64_t>(qel_var_get_double(d, 0)), 0x7FF8000000000123u);
  qel_var_free(d);
}

TEST(VarConvert, AddOnASingleVariantDoesNothing) {
  qel_var *v = qel_var_new(1, 0);
  qel_var_set_integer(v, 0, 9);
  qel_var_add_integer(v, 5);
  qel_var_add_long(v, 5);
  qel_var_add_float(v, 5);
  qel_var_add_double(v, 5);
  EXPECT_EQ(qel_var_get_integer(v, 0), 9);
  EXPECT_EQ(qel_var_size(v), 0);
  qel_var_free(v);
}

TEST(VarConvert, SingleFormIgnoresTheIndexAndKeepsBuf) {
  qel_var *v = qel_var_new(6, 0);
  v->buf = 12;
  qel_var_set_double(v, 1234, 2.5);
  EXPECT_EQ(qel_var_get_double(v, -7), 2.5);
  EXPECT_EQ(v->buf, 12u);
  qel_var_free(v);
}

TEST(VarConvert, OutOfRangeIndexesReadZeroAndWriteNothing) {
  for (uint32_t code : {1u, 4u, 5u, 6u}) {
    qel_var *v = qel_var_new(code, 1);
    EXPECT_EQ(qel_var_get_long(v, 0), 0) << code;  // empty array
    qel_var_add_long(v, 11);
    qel_var_add_long(v, 22);
    for (int64_t bad : {int64_t{-1}, int64_t{2}, int64_t{1000}, kMin}) {
      EXPECT_EQ(qel_var_get_integer(v, bad), 0) << code << " " << bad;
      EXPECT_EQ(qel_var_get_float(v, bad), 0.0f);
      EXPECT_EQ(qel_var_get_double(v, bad), 0.0);
      qel_var_set_long(v, bad, 99);
      qel_var_set_double(v, bad, 99.0);
    }
    EXPECT_EQ(qel_var_size(v), 2);
    EXPECT_EQ(qel_var_get_long(v, 0), 11);
    EXPECT_EQ(qel_var_get_long(v, 1), 22);
    qel_var_free(v);
  }
}

TEST(VarConvert, SetOnAnElementReplacesValueAndClearsItsBuf) {
  qel_var *v = qel_var_new(4, 1);
  qel_var_add_long(v, 1);
  qel_var_add_long(v, 2);
  v->data.arrayx.entries[0].buf = 5;
  v->data.arrayx.entries[1].buf = 6;
  qel_var_set_long(v, 1, 20);
  EXPECT_EQ(qel_var_get_long(v, 1), 20);
  EXPECT_EQ(v->data.arrayx.entries[1].buf, 0u);
  EXPECT_EQ(v->data.arrayx.entries[0].buf, 5u);
  qel_var_free(v);
}

TEST(VarConvert, StringAndRecordCodesIgnoreNumbers) {
  for (uint32_t code : {0u, 7u, 8u, 10u, 12u, 0xFFFFFFFFu}) {
    for (uint8_t multi : {uint8_t{0}, uint8_t{1}}) {
      qel_var *v = qel_var_new(code, multi);
      qel_var_add_integer(v, 1);
      qel_var_add_long(v, 1);
      qel_var_add_float(v, 1);
      qel_var_add_double(v, 1);
      qel_var_set_integer(v, 0, 1);
      qel_var_set_long(v, 0, 1);
      qel_var_set_float(v, 0, 1);
      qel_var_set_double(v, 0, 1);
      EXPECT_EQ(qel_var_size(v), 0) << code;
      EXPECT_EQ(qel_var_get_integer(v, 0), 0) << code;
      EXPECT_EQ(qel_var_get_long(v, 0), 0) << code;
      EXPECT_EQ(qel_var_get_float(v, 0), 0.0f) << code;
      EXPECT_EQ(qel_var_get_double(v, 0), 0.0) << code;
      if (code == 7 || code == 8) {
        const char *t = nullptr;
        int64_t n = -1;
        qel_var_get_string(v, 0, &t, &n);
        EXPECT_EQ(n, 0);
      }
      qel_var_free(v);
    }
  }
}

}  // namespace
