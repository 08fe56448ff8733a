// UTF-8 checking, for the formats whose text must be UTF-8.
#ifndef QEL_INTERNAL_UTF8_H
#define QEL_INTERNAL_UTF8_H

#include <cstdint>

namespace qel {

// Requires p < end and *p >= 0x80: the length (2 to 4) of the well-formed
// UTF-8 sequence at p (no overlong forms, no surrogates, nothing above
// U+10FFFF), or 0 when the bytes there are not one.
inline int utf8_sequence(const unsigned char *p, const unsigned char *end) {
  const unsigned char c = p[0];
  const int64_t left = end - p;
  auto cont = [](unsigned char b) { return (b & 0xC0u) == 0x80u; };
  if (c >= 0xC2 && c <= 0xDF) return left >= 2 && cont(p[1]) ? 2 : 0;
  if (c >= 0xE0 && c <= 0xEF) {
    if (left < 3 || !cont(p[2])) return 0;
    const unsigned char lo = c == 0xE0 ? 0xA0 : 0x80, hi = c == 0xED ? 0x9F : 0xBF;
    return p[1] >= lo && p[1] <= hi ? 3 : 0;
  }
  if (c >= 0xF0 && c <= 0xF4) {
    if (left < 4 || !cont(p[2]) || !cont(p[3])) return 0;
    const unsigned char lo = c == 0xF0 ? 0x90 : 0x80, hi = c == 0xF4 ? 0x8F : 0xBF;
    return p[1] >= lo && p[1] <= hi ? 4 : 0;
  }
  return 0;
}

// Requires n readable bytes at p (p may be NULL when n is 0): whether they
// are well-formed UTF-8 throughout.
inline bool is_utf8(const char *p, int64_t n) {
  const auto *q = reinterpret_cast<const unsigned char *>(p);
  const unsigned char *end = q + n;
  while (q < end) {
    if (*q < 0x80) {
      ++q;
      continue;
    }
    const int len = utf8_sequence(q, end);
    if (len == 0) return false;
    q += len;
  }
  return true;
}

}  // namespace qel

#endif
