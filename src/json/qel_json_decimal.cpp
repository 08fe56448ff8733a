// Exact conversion of JSON number tokens to integers, floats and doubles.
//
// Floating results are the nearest representable value, ties to even,
// computed from the exact value of the decimal: one IEEE operation on exact
// operands when the digits and the power of ten are both exact doubles or
// floats (Clinger's fast path), exact 128-bit arithmetic for up to 19 digits
// and powers of ten up to 10^27, and big integers for everything else (only
// the first 800 significant digits are kept, plus a sticky digit: every
// halfway point between two doubles has fewer).  No libc call is made.
#include <bit>
#include <cstdint>

#include "qel_bignum.h"
#include "qel_json_number.h"

namespace qel::json {

namespace {

struct binary_format {
  int precision;  // significand bits, the hidden one included
  int bias;
  int min_lsb;  // exponent of the least subnormal
  int max_exp;  // largest unbiased exponent
};
constexpr binary_format kDouble{53, 1023, -1074, 1023};
constexpr binary_format kFloat{24, 127, -149, 127};

constexpr int kMaxDigits = 800;

// The significant digits of a token and its power of ten: value = D * 10^exp10.
struct decimal {
  uint8_t digit[kMaxDigits + 1];
  int count = 0;  // 0 for a zero value
  int64_t exp10 = 0;
};

// Requires a well-formed token; its digits without leading or trailing zeros,
// the first kMaxDigits of them, with one more digit 1 when later nonzero
// digits were dropped (a value strictly between, rounding alike).
void take_digits(const number_token &t, decimal &d) {
  const int64_t total = t.int_count + t.frac_count;
  int64_t dropped = 0;
  bool sticky = false;
  for (int64_t i = 0; i < total; ++i) {
    const char c = i < t.int_count ? t.int_digits[i] : t.frac_digits[i - t.int_count];
    if (d.count == 0 && c == '0') continue;
    if (d.count < kMaxDigits) {
      d.digit[d.count++] = static_cast<uint8_t>(c - '0');
    } else {
      ++dropped;
      sticky |= c != '0';
    }
  }
  d.exp10 = t.exponent - t.frac_count + dropped;
  if (sticky) {  // right after the kept digits, zeros included: D.1 * 10^dropped
    d.digit[d.count++] = 1;
    --d.exp10;
    return;
  }
  while (d.count > 0 && d.digit[d.count - 1] == 0) {
    --d.count;
    ++d.exp10;
  }
}

// Requires m > 0, and m >= 2^(precision+1) when sticky: value = (m + s) *
// 2^e with 0 <= s < 1 and s > 0 exactly when sticky.  Stores the bits of the
// nearest value (ties to even, subnormals included); false on overflow.
bool round_binary(uint64_t m, int64_t e, bool sticky, const binary_format &f, uint64_t *bits) {
  const int p = f.precision;
  int64_t shift = (64 - std::countl_zero(m)) - p;
  if (e + shift < f.min_lsb) shift = f.min_lsb - e;
  uint64_t kept = 0;
  if (shift <= 0) {
    kept = m << -shift;
  } else if (shift <= 64) {
    const uint64_t rem = shift == 64 ? m : m & ((uint64_t{1} << shift) - 1);
    const uint64_t half = uint64_t{1} << (shift - 1);
    kept = shift == 64 ? 0 : m >> shift;
    if (rem > half || (rem == half && (sticky || (kept & 1) != 0))) ++kept;
  }  // beyond 64 bits the value is below half the least subnormal: zero
  int64_t e2 = e + shift;
  if (kept == uint64_t{1} << p) {
    kept >>= 1;
    ++e2;
  }
  if (kept == 0) {
    *bits = 0;
    return true;
  }
  if (e2 + p - 1 > f.max_exp) return false;
  const uint64_t hidden = uint64_t{1} << (p - 1);
  const uint64_t biased = kept >= hidden ? static_cast<uint64_t>(e2 + p - 1 + f.bias) : 0;
  *bits = (biased << (p - 1)) | (kept & (hidden - 1));
  return true;
}

// Requires q > 0: reduces it to 64 bits (value = m * 2^shift), folding the
// dropped bits into *sticky.
uint64_t narrow128(unsigned __int128 q, int *shift, bool *sticky) {
  *shift = 0;
  const auto high = static_cast<uint64_t>(q >> 64);
  if (high == 0) return static_cast<uint64_t>(q);
  const int s = 64 - std::countl_zero(high);
  *sticky |= (q & ((static_cast<unsigned __int128>(1) << s) - 1)) != 0;
  *shift = s;
  return static_cast<uint64_t>(q >> s);
}

constexpr uint64_t pow5(int n) {
  uint64_t v = 1;
  for (int i = 0; i < n; ++i) v *= 5;
  return v;
}

// Requires d.count in 1..19 and |d.exp10| <= 27: the exact value rounded.
bool convert_wide(const decimal &d, uint64_t w, const binary_format &f, uint64_t *bits) {
  bool sticky = false;
  int shift = 0;
  if (d.exp10 >= 0) {
    const unsigned __int128 v = static_cast<unsigned __int128>(w) * pow5(static_cast<int>(d.exp10));
    const uint64_t m = narrow128(v, &shift, &sticky);
    return round_binary(m, d.exp10 + shift, sticky, f, bits);
  }
  // w / 10^k = (w * 2^(a+64) / 5^k) * 2^-(a+64+k); the quotient has 65+ bits.
  const int k = static_cast<int>(-d.exp10);
  const int a = std::countl_zero(w);
  const unsigned __int128 n = static_cast<unsigned __int128>(w << a) << 64;
  const uint64_t div = pow5(k);
  const unsigned __int128 q = n / div;
  sticky = (n % div) != 0;
  const uint64_t m = narrow128(q, &shift, &sticky);
  return round_binary(m, static_cast<int64_t>(shift) - a - 64 - k, sticky, f, bits);
}

using big = bignum<140>;

// Requires d.count >= 1 and a value within the format's reach (checked by the
// caller): the exact value rounded, through big integers.
bool convert_big(const decimal &d, const binary_format &f, uint64_t *bits) {
  big n, s;
  n.set(0);
  for (int i = 0; i < d.count;) {
    uint32_t chunk = 0, scale = 1;
    for (int j = 0; j < 9 && i < d.count; ++j, ++i) {
      chunk = chunk * 10 + d.digit[i];
      scale *= 10;
    }
    n.mul_add(scale, chunk);
  }
  s.set(1);
  if (d.exp10 >= 0) n.mul_pow10(static_cast<int>(d.exp10));
  else s.mul_pow10(static_cast<int>(-d.exp10));
  // Scale so that the quotient lies in [2^62, 2^64).
  const int b = n.bit_length() - s.bit_length();
  const int t = 63 - b;
  if (t >= 0) n.shift_left(t);
  else s.shift_left(-t);
  big d_shift = s;
  d_shift.shift_left(63);
  uint64_t q = 0;
  for (int i = 63; i >= 0; --i) {
    if (n.compare(d_shift) >= 0) {
      n.sub(d_shift);
      q |= uint64_t{1} << i;
    }
    d_shift.shift_right1();
  }
  return round_binary(q, -t, !n.is_zero(), f, bits);
}

// Requires a well-formed token: the bits of the nearest value (sign
// included), or false when it overflows the format.
bool convert(const number_token &t, const binary_format &f, uint64_t *bits) {
  decimal d;
  take_digits(t, d);
  const uint64_t sign = t.negative ? uint64_t{1} << (f.precision == 53 ? 63 : 31) : 0;
  // value lies in [10^(count-1+exp10), 10^(count+exp10)).
  const int64_t magnitude = d.count + d.exp10;
  const int64_t max_magnitude = f.precision == 53 ? 309 : 39;    // 10^308 < DBL_MAX < 10^309
  const int64_t min_magnitude = f.precision == 53 ? -324 : -45;  // 10^-324 < half the least subnormal
  if (d.count == 0 || magnitude < min_magnitude) {
    *bits = sign;
    return true;
  }
  if (magnitude > max_magnitude + 1) return false;
  uint64_t b = 0;
  bool ok = false;
  if (d.count <= 19 && d.exp10 >= -27 && d.exp10 <= 27) {
    uint64_t w = 0;
    for (int i = 0; i < d.count; ++i) w = w * 10 + d.digit[i];
    ok = convert_wide(d, w, f, &b);
  } else {
    ok = convert_big(d, f, &b);
  }
  *bits = b | sign;
  return ok;
}

}  // namespace

conv_result token_to_int(const number_token &t, int64_t lo, int64_t hi, int64_t *out) {
  decimal d;
  take_digits(t, d);
  if (d.count == 0) {
    *out = 0;
    return conv_result::ok;
  }
  if (d.exp10 < 0) return conv_result::not_integer;
  if (d.count + d.exp10 > 19) return conv_result::out_of_range;
  uint64_t mag = 0;
  for (int i = 0; i < d.count; ++i) mag = mag * 10 + d.digit[i];
  for (int64_t i = 0; i < d.exp10; ++i) mag *= 10;  // at most 19 digits: below 2^64
  if (t.negative) {
    if (lo == 0 || mag > static_cast<uint64_t>(-(lo + 1)) + 1) return conv_result::out_of_range;
    *out = static_cast<int64_t>(0 - mag);
    return conv_result::ok;
  }
  if (mag > static_cast<uint64_t>(hi)) return conv_result::out_of_range;
  *out = static_cast<int64_t>(mag);
  return conv_result::ok;
}

conv_result token_to_double(const number_token &t, double *out) {
  // Clinger's fast path: exact digits and an exact power of ten.
  static constexpr double kPow10[] = {1e0,  1e1,  1e2,  1e3,  1e4,  1e5,  1e6,  1e7,  1e8,  1e9,  1e10, 1e11,
                                      1e12, 1e13, 1e14, 1e15, 1e16, 1e17, 1e18, 1e19, 1e20, 1e21, 1e22};
  if (t.int_count + t.frac_count <= 15 && t.exponent >= -22 + t.frac_count && t.exponent <= 22 + t.frac_count) {
    uint64_t w = 0;
    for (int64_t i = 0; i < t.int_count; ++i) w = w * 10 + static_cast<uint64_t>(t.int_digits[i] - '0');
    for (int64_t i = 0; i < t.frac_count; ++i) w = w * 10 + static_cast<uint64_t>(t.frac_digits[i] - '0');
    const int64_t e = t.exponent - t.frac_count;
    double v = static_cast<double>(w);  // below 10^15: exact
    v = e >= 0 ? v * kPow10[e] : v / kPow10[-e];
    *out = t.negative ? -v : v;
    return conv_result::ok;
  }
  uint64_t bits = 0;
  if (!convert(t, kDouble, &bits)) return conv_result::out_of_range;
  *out = std::bit_cast<double>(bits);
  return conv_result::ok;
}

conv_result token_to_float(const number_token &t, float *out) {
  uint64_t bits = 0;
  if (!convert(t, kFloat, &bits)) return conv_result::out_of_range;
  *out = std::bit_cast<float>(static_cast<uint32_t>(bits));
  return conv_result::ok;
}

}  // namespace qel::json
