// Fixed-capacity unsigned big integers for the exact number conversions of
// the JSON text: little-endian 32-bit limbs with a tracked length, so small
// values cost a few limbs.  Lives on the caller's stack; no allocation.
#ifndef QEL_INTERNAL_BIGNUM_H
#define QEL_INTERNAL_BIGNUM_H

#include <cstdint>

namespace qel::json {

template <int Limbs>
struct bignum {
  uint32_t limb[static_cast<unsigned>(Limbs)];
  int size = 0;  // limbs in use; limb[size - 1] != 0 unless size == 0

  // Requires nothing; this becomes v.
  void set(uint64_t v) {
    size = 0;
    while (v != 0) {
      limb[size++] = static_cast<uint32_t>(v);
      v >>= 32;
    }
  }
  bool is_zero() const { return size == 0; }
  // Requires nothing; the number of significant bits.
  int bit_length() const {
    if (size == 0) return 0;
    return 32 * (size - 1) + (32 - __builtin_clz(limb[size - 1]));
  }
  // Requires the product to fit in Limbs limbs; this *= m, then += add.
  void mul_add(uint32_t m, uint32_t add = 0) {
    uint64_t carry = add;
    for (int i = 0; i < size; ++i) {
      const uint64_t p = static_cast<uint64_t>(limb[i]) * m + carry;
      limb[i] = static_cast<uint32_t>(p);
      carry = p >> 32;
    }
    if (carry != 0) limb[size++] = static_cast<uint32_t>(carry);
    if (m == 0) size = 0;
  }
  // Requires the result to fit; this *= 10^n.
  void mul_pow10(int n) {
    for (; n >= 9; n -= 9) mul_add(1000000000u);
    static constexpr uint32_t kSmall[] = {1, 10, 100, 1000, 10000, 100000, 1000000, 10000000, 100000000};
    if (n > 0) mul_add(kSmall[n]);
  }
  // Requires the result to fit; this <<= n bits.
  void shift_left(int n) {
    if (size == 0 || n == 0) return;
    const int words = n / 32, bits = n % 32;
    if (bits != 0) {
      uint32_t carry = 0;
      for (int i = 0; i < size; ++i) {
        const uint32_t v = limb[i];
        limb[i] = (v << bits) | carry;
        carry = v >> (32 - bits);
      }
      if (carry != 0) limb[size++] = carry;
    }
    if (words != 0) {
      for (int i = size - 1; i >= 0; --i) limb[i + words] = limb[i];
      for (int i = 0; i < words; ++i) limb[i] = 0;
      size += words;
    }
  }
  // Requires nothing; this >>= 1.
  void shift_right1() {
    for (int i = 0; i < size; ++i) limb[i] = (limb[i] >> 1) | (i + 1 < size ? limb[i + 1] << 31 : 0u);
    if (size > 0 && limb[size - 1] == 0) --size;
  }
  // Requires the sum to fit; this += b.
  void add(const bignum &b) {
    uint64_t carry = 0;
    const int n = size > b.size ? size : b.size;
    for (int i = 0; i < n; ++i) {
      const uint64_t s = carry + (i < size ? limb[i] : 0u) + (i < b.size ? b.limb[i] : 0u);
      limb[i] = static_cast<uint32_t>(s);
      carry = s >> 32;
    }
    size = n;
    if (carry != 0) limb[size++] = static_cast<uint32_t>(carry);
  }
  // Requires this >= b; this -= b.
  void sub(const bignum &b) {
    int64_t borrow = 0;
    for (int i = 0; i < size; ++i) {
      int64_t d = static_cast<int64_t>(limb[i]) - (i < b.size ? b.limb[i] : 0u) - borrow;
      borrow = d < 0;
      limb[i] = static_cast<uint32_t>(d + (borrow << 32));
    }
    while (size > 0 && limb[size - 1] == 0) --size;
  }
  // Requires nothing; -1, 0 or 1 as this <, == or > b.
  int compare(const bignum &b) const {
    if (size != b.size) return size < b.size ? -1 : 1;
    for (int i = size - 1; i >= 0; --i)
      if (limb[i] != b.limb[i]) return limb[i] < b.limb[i] ? -1 : 1;
    return 0;
  }
};

// Requires nothing; a + b compared with c: -1, 0 or 1 (no temporaries kept).
template <int L>
int compare_sum(const bignum<L> &a, const bignum<L> &b, const bignum<L> &c) {
  bignum<L> s = a;
  s.add(b);
  return s.compare(c);
}

}  // namespace qel::json

#endif
