// UTF-8 checking shared by the JSON writer and reader.
#ifndef QEL_INTERNAL_JSON_TEXT_H
#define QEL_INTERNAL_JSON_TEXT_H

#include <cstdint>

namespace qel::json {

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

}  // namespace qel::json

#endif
