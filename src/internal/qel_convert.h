// Conversions between the caller's number kinds and the stored kinds, shared
// by every family.  All are defined for every input: no float-to-integer cast
// is ever made on a NaN or an out-of-range value.
#ifndef QEL_INTERNAL_CONVERT_H
#define QEL_INTERNAL_CONVERT_H

#include <bit>
#include <cstdint>
#include <limits>

static_assert(std::numeric_limits<float>::is_iec559, "IEEE 754 single float required");
static_assert(std::numeric_limits<double>::is_iec559, "IEEE 754 double required");

namespace qel::conv {

inline constexpr int64_t kTruncFail = std::numeric_limits<int64_t>::min();

// Round toward zero to int64; NaN and out-of-range give INT64_MIN.
constexpr int64_t truncate(double d) {
  // [-2^63, 2^63) is exactly the range whose truncation fits; NaN fails both tests.
  if (!(d >= -9223372036854775808.0 && d < 9223372036854775808.0)) return kTruncFail;
  return static_cast<int64_t>(d);
}
constexpr int64_t truncate(float f) { return truncate(static_cast<double>(f)); }

// Low 32 bits of the two's-complement value.
constexpr uint32_t low32(int64_t v) { return static_cast<uint32_t>(static_cast<uint64_t>(v)); }

// Nearest float (ties to even); beyond the float range an infinity of its sign.
constexpr float to_float(double d) {
  // FLT_MAX plus half an ulp: at or beyond it, ties-to-even rounds to infinity.
  constexpr double kOverflow = 0x1.ffffffp127;
  if (d >= kOverflow) return std::numeric_limits<float>::infinity();
  if (d <= -kOverflow) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(d);  // in range, infinite or NaN: exact IEEE rounding
}
constexpr float to_float(int64_t v) { return static_cast<float>(v); }
constexpr float to_float(uint32_t u) { return static_cast<float>(u); }
constexpr double to_double(int64_t v) { return static_cast<double>(v); }

constexpr uint32_t float_bits(float f) { return std::bit_cast<uint32_t>(f); }
constexpr float bits_float(uint32_t b) { return std::bit_cast<float>(b); }
constexpr int64_t double_bits(double d) { return std::bit_cast<int64_t>(d); }
constexpr double bits_double(int64_t b) { return std::bit_cast<double>(b); }

static_assert(truncate(-7.9) == -7);
static_assert(truncate(1e300) == kTruncFail);
static_assert(truncate(std::numeric_limits<double>::quiet_NaN()) == kTruncFail);
static_assert(truncate(-9223372036854775808.0) == kTruncFail);
static_assert(low32(-1) == 0xFFFFFFFFu);
static_assert(to_float(int64_t{16777217}) == 16777216.0f);

// The bits a full variant stores for a caller's value (int64_t, float or
// double) in each stored kind: 32-bit integer, float, 64-bit integer, double.
constexpr uint32_t to_u32(int64_t v) { return low32(v); }
constexpr uint32_t to_u32(float f) { return low32(truncate(f)); }
constexpr uint32_t to_u32(double d) { return low32(truncate(d)); }
constexpr uint32_t to_f32(int64_t v) { return float_bits(to_float(v)); }
constexpr uint32_t to_f32(float f) { return float_bits(f); }
constexpr uint32_t to_f32(double d) { return float_bits(to_float(d)); }
constexpr int64_t to_i64(int64_t v) { return v; }
constexpr int64_t to_i64(float f) { return truncate(f); }
constexpr int64_t to_i64(double d) { return truncate(d); }
constexpr int64_t to_f64(int64_t v) { return double_bits(to_double(v)); }
constexpr int64_t to_f64(float f) { return double_bits(static_cast<double>(f)); }
constexpr int64_t to_f64(double d) { return double_bits(d); }

}  // namespace qel::conv

#endif
