// Steps shared by the light variant and the column set: the stored form of
// each type code, the conversions between it and the caller's number kinds,
// string argument resolution and the 32-bit limits.  Header-only, hidden.
#ifndef QEL_INTERNAL_XVAR_H
#define QEL_INTERNAL_XVAR_H

#include <qel.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

#include "internal/qel_convert.h"

namespace qel::light {

// Requires nothing.  Numbers: QEL_XVAR_UINT32 to QEL_XVAR_DOUBLE.
constexpr bool is_number(uint32_t type) { return type >= QEL_XVAR_UINT32 && type <= QEL_XVAR_DOUBLE; }
// Requires nothing.  Codes with storage: QEL_XVAR_UINT32 to QEL_XVAR_BYTES.
constexpr bool has_storage(uint32_t type) { return type >= QEL_XVAR_UINT32 && type <= QEL_XVAR_BYTES; }
// Requires nothing.  The 32-bit codes keep qel_arrayd entries; the 64-bit ones qel_arrayx.
constexpr bool is_narrow(uint32_t type) { return type == QEL_XVAR_UINT32 || type == QEL_XVAR_FLOAT; }

// ---- writing: caller kind -> stored bits ----

// Requires a narrow code (1 or 3).  The 32 bits stored for a caller value.
constexpr uint32_t to_bits32(uint32_t type, int64_t v) {
  return type == QEL_XVAR_UINT32 ? conv::low32(v) : conv::float_bits(conv::to_float(v));
}
constexpr uint32_t to_bits32(uint32_t type, float v) {
  return type == QEL_XVAR_UINT32 ? conv::low32(conv::truncate(v)) : conv::float_bits(v);
}
constexpr uint32_t to_bits32(uint32_t type, double v) {
  return type == QEL_XVAR_UINT32 ? conv::low32(conv::truncate(v)) : conv::float_bits(conv::to_float(v));
}

// Requires a wide code (2 or 4).  The 64 bits stored for a caller value.
constexpr int64_t to_bits64(uint32_t type, int64_t v) {
  return type == QEL_XVAR_INT64 ? v : conv::double_bits(conv::to_double(v));
}
constexpr int64_t to_bits64(uint32_t type, float v) {
  return type == QEL_XVAR_INT64 ? conv::truncate(v) : conv::double_bits(static_cast<double>(v));
}
constexpr int64_t to_bits64(uint32_t type, double v) {
  return type == QEL_XVAR_INT64 ? conv::truncate(v) : conv::double_bits(v);
}

// ---- reading: stored bits -> caller kind (R is int64_t, float or double) ----

// Requires a narrow code (1 or 3).
template <class R>
constexpr R from_bits32(uint32_t type, uint32_t bits) {
  static_assert(std::is_same_v<R, int64_t> || std::is_same_v<R, float> || std::is_same_v<R, double>);
  if (type == QEL_XVAR_UINT32) {
    if constexpr (std::is_same_v<R, int64_t>) return static_cast<int64_t>(bits);
    else if constexpr (std::is_same_v<R, float>) return conv::to_float(bits);
    else return static_cast<double>(bits);
  }
  const float f = conv::bits_float(bits);
  if constexpr (std::is_same_v<R, int64_t>) return conv::truncate(f);
  else if constexpr (std::is_same_v<R, float>) return f;
  else return static_cast<double>(f);
}

// Requires a wide code (2 or 4).
template <class R>
constexpr R from_bits64(uint32_t type, int64_t bits) {
  static_assert(std::is_same_v<R, int64_t> || std::is_same_v<R, float> || std::is_same_v<R, double>);
  if (type == QEL_XVAR_INT64) {
    if constexpr (std::is_same_v<R, int64_t>) return bits;
    else if constexpr (std::is_same_v<R, float>) return conv::to_float(bits);
    else return conv::to_double(bits);
  }
  const double d = conv::bits_double(bits);
  if constexpr (std::is_same_v<R, int64_t>) return conv::truncate(d);
  else if constexpr (std::is_same_v<R, float>) return conv::to_float(d);
  else return d;
}

// ---- strings ----

// A valid address for an empty string, so no container ever copies from NULL.
inline constexpr char kEmpty[1] = {0};

// Requires nothing.  Resolves a caller's (bytes, length): a negative length is
// measured with strlen (NULL measures 0).  Returns false for NULL with a
// positive length, which names no bytes; otherwise `bytes` is non-NULL after.
inline bool resolve_string(const char *&bytes, int64_t &length) {
  if (length < 0) length = bytes ? static_cast<int64_t>(std::strlen(bytes)) : 0;
  if (!bytes) {
    if (length != 0) return false;
    bytes = kEmpty;
  }
  return true;
}

// ---- 32-bit limits ----

// Positions in a column and offsets in any string pool are unsigned 32-bit.
inline constexpr int64_t kMaxValues = 0xFFFFFFFFll;     // a column holds fewer than 2^32 values
inline constexpr int64_t kMaxPoolBytes = 0xFFFFFFFFll;  // every pool offset, its end included, fits 32 bits

// Requires nothing.  True when `have` values plus `more` stay within kMaxValues.
constexpr bool values_fit(int64_t have, int64_t more) {
  return have >= 0 && more >= 0 && have <= kMaxValues && more <= kMaxValues - have;
}
// Requires nothing.  True when a pool of `have` bytes can take `more` bytes.
constexpr bool bytes_fit(int64_t have, int64_t more) {
  return have >= 0 && more >= 0 && have <= kMaxPoolBytes && more <= kMaxPoolBytes - have;
}

static_assert(values_fit(0, kMaxValues) && !values_fit(1, kMaxValues) && !values_fit(kMaxValues, 1));
static_assert(!values_fit(-1, 0) && !values_fit(0, -1));
static_assert(bytes_fit(kMaxPoolBytes - 3, 3) && !bytes_fit(kMaxPoolBytes - 3, 4));
static_assert(to_bits32(QEL_XVAR_UINT32, int64_t{-1}) == 0xFFFFFFFFu);
static_assert(from_bits32<int64_t>(QEL_XVAR_UINT32, 0xFFFFFFFFu) == 4294967295);
static_assert(to_bits32(QEL_XVAR_UINT32, -2.9) == 0xFFFFFFFEu);

}  // namespace qel::light

#endif
