// Numbers of the JSON text: shortest round-trip formatting of floats and
// doubles, integer formatting, and exact conversion of a JSON number token to
// an integer, a float or a double.  Pure integer arithmetic throughout: no
// libc call, so no locale can change a digit or the decimal point.
#ifndef QEL_INTERNAL_JSON_NUMBER_H
#define QEL_INTERNAL_JSON_NUMBER_H

#include <cstdint>

namespace qel::json {

// Longest text any formatter below writes (sign, 17 digits, point, exponent).
inline constexpr int kNumberMax = 32;

// Requires a finite double and room for kNumberMax bytes at out; writes the
// shortest decimal that reads back to exactly d and returns its length.
int format_double(double d, char *out);
// Requires a finite float and room for kNumberMax bytes; the shortest decimal
// that reads back, as a float, to exactly f.
int format_float(float f, char *out);
// Requires room for 20 bytes; decimal digits of u, returns the length.
int format_u64(uint64_t u, char *out);
// Requires room for 21 bytes; decimal text of v, returns the length.
int format_i64(int64_t v, char *out);

// A JSON number token taken apart: sign, the digits before the point, the
// digits after it, and the exponent (clamped to +-10^9, beyond any range).
struct number_token {
  bool negative;
  const char *int_digits;
  int64_t int_count;  // at least 1
  const char *frac_digits;
  int64_t frac_count;  // 0 when there is no fraction
  int64_t exponent;
};

enum class conv_result { ok, not_integer, out_of_range };

// Requires a well-formed token; its exact value when that is an integer in
// [lo, hi] (lo <= 0 <= hi; unsigned ranges up to 2^63 - 1).
conv_result token_to_int(const number_token &t, int64_t lo, int64_t hi, int64_t *out);
// Requires a well-formed token; the nearest double (ties to even), or
// out_of_range when that is an infinity.
conv_result token_to_double(const number_token &t, double *out);
// Requires a well-formed token; the nearest float, or out_of_range.
conv_result token_to_float(const number_token &t, float *out);

}  // namespace qel::json

#endif
