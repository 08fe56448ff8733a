// Shortest round-trip formatting of floats and doubles, and integer digits.
//
// The digits come from the free-format algorithm of Steele, White, Burger and
// Dybvig: the value and the half-gaps to its neighbours are exact ratios of
// integers, and digits are generated until the remainder falls inside the
// rounding interval, so the result is the shortest decimal that reads back
// to the same value under round-to-nearest-even.  The integers fit in 128
// bits for every value of everyday magnitude; the rest take a small bignum.
// No libc call is made, so the locale never shows.
#include <bit>
#include <cstdint>
#include <cstring>

#include "qel_bignum.h"
#include "qel_json_number.h"

namespace qel::json {

namespace {

// Unsigned 64-bit and 128-bit integers with the operations the digit loop
// needs (the same as bignum's), for the fast paths.
template <typename U>
struct fixed {
  U v = 0;
  void set(uint64_t x) { v = x; }
  void mul_add(uint32_t m, uint32_t a = 0) { v = v * m + a; }
  void mul_pow10(int n) {
    for (; n > 0; --n) v *= 10;
  }
  void shift_left(int n) { v <<= n; }
  void add(const fixed &b) { v += b.v; }
  void sub(const fixed &b) { v -= b.v; }
  int compare(const fixed &b) const { return v < b.v ? -1 : v > b.v ? 1 : 0; }
};

// Requires the sum to fit; a + b compared with c.
template <typename N>
int sum_compare(const N &a, const N &b, const N &c) {
  N s = a;
  s.add(b);
  return s.compare(c);
}

// Requires a positive value f * 2^e (f < 2^p; f >= 2^(p-1) unless e is the
// format's least exponent min_e) and N wide enough for it.  Writes its
// shortest digits (no leading or trailing zero) and returns their count;
// *point gets the position of the decimal point: value = 0.DIGITS * 10^point.
template <typename N>
int shortest_digits(uint64_t f, int e, int p, int min_e, char *digits, int *point) {
  const bool even = (f & 1) == 0;  // the reader's ties go to even: bounds included
  const bool lower_closer = f == (uint64_t{1} << (p - 1)) && e > min_e;
  N r, s, mp, mm;  // value = r / s; half-gaps up and down = mp / s, mm / s
  r.set(f);
  if (e >= 0) {
    r.shift_left(e + (lower_closer ? 2 : 1));
    s.set(lower_closer ? 4 : 2);
    mp.set(1);
    mp.shift_left(e + (lower_closer ? 1 : 0));
    mm.set(1);
    mm.shift_left(e);
  } else {
    r.shift_left(lower_closer ? 2 : 1);
    s.set(1);
    s.shift_left(lower_closer ? 2 - e : 1 - e);
    mp.set(lower_closer ? 2 : 1);
    mm.set(1);
  }
  // Estimate of the point from the binary exponent, then exact fix-ups.
  const int log2v = e + 63 - std::countl_zero(f);
  int k = ((log2v * 78913) >> 18) + 1;
  if (k >= 0) {
    s.mul_pow10(k);
  } else {
    r.mul_pow10(-k);
    mp.mul_pow10(-k);
    mm.mul_pow10(-k);
  }
  for (;;) {  // the upper bound must lie below 10^k
    const int c = sum_compare(r, mp, s);
    if (even ? c < 0 : c <= 0) break;
    s.mul_add(10);
    ++k;
  }
  for (;;) {  // and at or above 10^(k-1)
    N hi = r;
    hi.add(mp);
    hi.mul_add(10);
    const int c = hi.compare(s);
    if (even ? c >= 0 : c > 0) break;
    r.mul_add(10);
    mp.mul_add(10);
    mm.mul_add(10);
    --k;
  }
  int n = 0;
  for (;;) {
    r.mul_add(10);
    mp.mul_add(10);
    mm.mul_add(10);
    int d = 0;
    while (r.compare(s) >= 0) {
      r.sub(s);
      ++d;
    }
    const int lo = r.compare(mm);
    const int hi = sum_compare(r, mp, s);
    const bool low_ok = even ? lo <= 0 : lo < 0;
    const bool high_ok = even ? hi >= 0 : hi > 0;
    if (!low_ok && !high_ok) {
      digits[n++] = static_cast<char>('0' + d);
      continue;
    }
    if (low_ok && high_ok) {
      N twice = r;
      twice.shift_left(1);
      if (twice.compare(s) >= 0) ++d;  // nearer the upper digit (a tie either way reads back)
    } else if (high_ok) {
      ++d;
    }
    digits[n++] = static_cast<char>('0' + d);
    break;
  }
  while (n > 1 && digits[n - 1] == '0') --n;
  *point = k;
  return n;
}

// Requires 1 <= n digits with no leading zero; writes the number in the
// positional form for points -5 .. 21 and in exponent form otherwise, except
// that a whole number takes the positional form only below 10^18 (readers
// that would keep a longer digit string as a 64-bit integer get no wrong
// value), with ".0" so that readers telling integers from floats read a
// float (an exponent form already reads as one).
int emit(bool negative, const char *digits, int n, int point, char *out) {
  char *o = out;
  if (negative) *o++ = '-';
  if (n <= point && point <= 18) {
    std::memcpy(o, digits, static_cast<size_t>(n));
    o += n;
    for (int i = n; i < point; ++i) *o++ = '0';
    *o++ = '.';
    *o++ = '0';
  } else if (0 < point && point <= 21 && n > point) {
    std::memcpy(o, digits, static_cast<size_t>(point));
    o += point;
    *o++ = '.';
    std::memcpy(o, digits + point, static_cast<size_t>(n - point));
    o += n - point;
  } else if (-6 < point && point <= 0) {
    *o++ = '0';
    *o++ = '.';
    for (int i = point; i < 0; ++i) *o++ = '0';
    std::memcpy(o, digits, static_cast<size_t>(n));
    o += n;
  } else {
    *o++ = digits[0];
    if (n > 1) {
      *o++ = '.';
      std::memcpy(o, digits + 1, static_cast<size_t>(n - 1));
      o += n - 1;
    }
    *o++ = 'e';
    int x = point - 1;
    if (x < 0) {
      *o++ = '-';
      x = -x;
    }
    char tmp[8];
    int t = 0;
    do {
      tmp[t++] = static_cast<char>('0' + x % 10);
      x /= 10;
    } while (x != 0);
    while (t > 0) *o++ = tmp[--t];
  }
  return static_cast<int>(o - out);
}

// Requires a finite nonzero value f * 2^e as in shortest_digits: its text.
int format_binary(bool negative, uint64_t f, int e, int p, int min_e, char *out) {
  char digits[24];
  int point = 0, n = 0;
  // Integers below 2^p print exactly: their unit gap makes every digit needed.
  if (e <= 0 && e > -p && (f & ((uint64_t{1} << -e) - 1)) == 0) {
    n = format_u64(f >> -e, digits);
    point = n;
    while (n > 1 && digits[n - 1] == '0') --n;
    return emit(negative, digits, n, point, out);
  }
  // 64-bit or 128-bit integers suffice when s * 10^(k+1) and r stay 4 bits
  // below their width.
  const int log2v = e + 63 - std::countl_zero(f);
  const int k_hi = ((log2v * 78913) >> 18) + 2;
  const int s_bits = e >= 0 ? 3 : 3 - e;
  const int r_bits = 64 - std::countl_zero(f) + (e >= 0 ? e : 0) + 2;
  const int need = (k_hi > 0 ? s_bits + (k_hi * 10 + 2) / 3 : s_bits) + 8;
  if (need <= 60 && r_bits <= 52) n = shortest_digits<fixed<uint64_t>>(f, e, p, min_e, digits, &point);
  else if (need <= 124 && r_bits <= 116) n = shortest_digits<fixed<unsigned __int128>>(f, e, p, min_e, digits, &point);
  else n = shortest_digits<bignum<48>>(f, e, p, min_e, digits, &point);
  return emit(negative, digits, n, point, out);
}

}  // namespace

int format_double(double d, char *out) {
  const uint64_t bits = std::bit_cast<uint64_t>(d);
  const bool negative = (bits >> 63) != 0;
  const int biased = static_cast<int>((bits >> 52) & 0x7FF);
  uint64_t f = bits & ((uint64_t{1} << 52) - 1);
  if (biased == 0 && f == 0) {
    std::memcpy(out, negative ? "-0.0" : "0.0", negative ? 4 : 3);
    return negative ? 4 : 3;
  }
  int e = -1074;
  if (biased != 0) {
    f |= uint64_t{1} << 52;
    e = biased - 1075;
  }
  return format_binary(negative, f, e, 53, -1074, out);
}

int format_float(float x, char *out) {
  const uint32_t bits = std::bit_cast<uint32_t>(x);
  const bool negative = (bits >> 31) != 0;
  const int biased = static_cast<int>((bits >> 23) & 0xFF);
  uint64_t f = bits & ((1u << 23) - 1);
  if (biased == 0 && f == 0) {
    std::memcpy(out, negative ? "-0.0" : "0.0", negative ? 4 : 3);
    return negative ? 4 : 3;
  }
  int e = -149;
  if (biased != 0) {
    f |= uint64_t{1} << 23;
    e = biased - 150;
  }
  return format_binary(negative, f, e, 24, -149, out);
}

int format_u64(uint64_t u, char *out) {
  static constexpr char kPairs[] =
      "00010203040506070809101112131415161718192021222324252627282930313233343536373839"
      "40414243444546474849505152535455565758596061626364656667686970717273747576777879"
      "8081828384858687888990919293949596979899";
  char tmp[20];
  int t = 20;
  while (u >= 100) {
    const unsigned pair = static_cast<unsigned>(u % 100) * 2;
    u /= 100;
    tmp[--t] = kPairs[pair + 1];
    tmp[--t] = kPairs[pair];
  }
  if (u >= 10) {
    tmp[--t] = kPairs[u * 2 + 1];
    tmp[--t] = kPairs[u * 2];
  } else {
    tmp[--t] = static_cast<char>('0' + u);
  }
  std::memcpy(out, tmp + t, static_cast<size_t>(20 - t));
  return 20 - t;
}

int format_i64(int64_t v, char *out) {
  if (v >= 0) return format_u64(static_cast<uint64_t>(v), out);
  out[0] = '-';
  return 1 + format_u64(0 - static_cast<uint64_t>(v), out + 1);
}

}  // namespace qel::json
