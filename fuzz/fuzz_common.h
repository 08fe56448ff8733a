// Helpers shared by the fuzz targets: an input reader that never fails,
// value pickers that favour collisions and limits, a failure macro, and the
// reference conversions between number kinds, written here independently of
// the library so that the models do not inherit its mistakes.
#ifndef QEL_FUZZ_COMMON_H
#define QEL_FUZZ_COMMON_H

#include <bit>
#include <cmath>
#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <string>

namespace fz {

// Reads the input front to back; past the end every read gives 0, so every
// input decodes to some operation sequence.
class Reader {
 public:
  Reader(const uint8_t *data, size_t size) : p_(data), n_(size) {}
  bool empty() const { return n_ == 0; }
  uint8_t u8() {
    if (n_ == 0) return 0;
    --n_;
    return *p_++;
  }
  uint16_t u16() { return static_cast<uint16_t>(u8() | (u8() << 8)); }
  uint32_t u32() {
    uint32_t v = 0;
    for (int i = 0; i < 4; ++i) v |= static_cast<uint32_t>(u8()) << (8 * i);
    return v;
  }
  uint64_t u64() {
    uint64_t v = 0;
    for (int i = 0; i < 8; ++i) v |= static_cast<uint64_t>(u8()) << (8 * i);
    return v;
  }
  // A choice among n (n > 0).
  unsigned pick(unsigned n) { return u8() % n; }
  bool flag() { return (u8() & 1) != 0; }

 private:
  const uint8_t *p_;
  size_t n_;
};

[[noreturn]] inline void fail(const char *file, int line, const char *what, const char *detail) {
  std::fprintf(stderr, "\n*** model mismatch at %s:%d: %s\n    %s\n", file, line, what, detail ? detail : "");
  std::fflush(stderr);
  std::abort();
}

// Set QEL_FUZZ_TRACE=1 to print every decoded operation (for minimised
// reproducers).
inline bool tracing() {
  static const bool on = std::getenv("QEL_FUZZ_TRACE") != nullptr;
  return on;
}

}  // namespace fz

#define FZ_TRACE(...)                          \
  do {                                         \
    if (::fz::tracing()) {                     \
      std::fprintf(stderr, __VA_ARGS__);       \
      std::fputc('\n', stderr);               \
    }                                          \
  } while (0)

// CHECK(condition, printf-style detail...): a mismatch between the library and
// the model aborts, so libFuzzer keeps the input as a crash.
#define FZ_CHECK(cond, ...)                                                   \
  do {                                                                        \
    if (!(cond)) {                                                            \
      char fz_detail_[512];                                                   \
      std::snprintf(fz_detail_, sizeof fz_detail_, __VA_ARGS__);              \
      ::fz::fail(__FILE__, __LINE__, #cond, fz_detail_);                      \
    }                                                                         \
  } while (0)

namespace fz {

// ---- value pickers: mostly small values (so that equal keys are common),
// sometimes limits, sometimes raw bits ----

inline uint32_t pick_u32(Reader &r) {
  static const uint32_t kSpecial[] = {0u, 1u, 2u, 0x7FFFFFFFu, 0x80000000u, 0xFFFFFFFFu, 0xFFFFFFFEu,
                                      0x3F800000u /* 1.0f */, 0x7FC00000u /* NaN */, 0x80000000u};
  const uint8_t sel = r.u8();
  if (sel < 150) return sel % 8u;
  if (sel < 220) return kSpecial[sel % (sizeof kSpecial / sizeof kSpecial[0])];
  return r.u32();
}

inline int64_t pick_i64(Reader &r) {
  static const int64_t kSpecial[] = {0,
                                     1,
                                     -1,
                                     -2,
                                     INT64_MAX,
                                     INT64_MIN,
                                     0xFFFFFFFFll,
                                     0x100000000ll,
                                     0x3FF0000000000000ll /* 1.0 */,
                                     (int64_t)0x8000000000000000ull /* -0.0 */,
                                     0x7FF8000000000000ll /* NaN */,
                                     9007199254740993ll};
  const uint8_t sel = r.u8();
  if (sel < 150) return static_cast<int64_t>(sel % 8u) - 2;
  if (sel < 220) return kSpecial[sel % (sizeof kSpecial / sizeof kSpecial[0])];
  return static_cast<int64_t>(r.u64());
}

inline double pick_double(Reader &r) {
  static const double kSpecial[] = {0.0,
                                    -0.0,
                                    0.5,
                                    -2.75,
                                    2.9,
                                    -2.9,
                                    0.1,
                                    1e300,
                                    -1e300,
                                    4294967295.0,
                                    4294967296.0,
                                    9223372036854775808.0,
                                    -9223372036854775808.0,
                                    3.4028235677973366e38 /* just above FLT_MAX */,
                                    std::numeric_limits<double>::infinity(),
                                    -std::numeric_limits<double>::infinity(),
                                    std::numeric_limits<double>::quiet_NaN(),
                                    std::numeric_limits<double>::denorm_min()};
  const uint8_t sel = r.u8();
  if (sel < 120) return static_cast<double>(static_cast<int>(sel % 8u) - 3);
  if (sel < 220) return kSpecial[sel % (sizeof kSpecial / sizeof kSpecial[0])];
  return std::bit_cast<double>(r.u64());
}

inline float pick_float(Reader &r) {
  const uint8_t sel = r.u8();
  if (sel < 200) {
    const double d = pick_double(r);
    // Narrow through the reference conversion (defined for every double).
    if (std::isnan(d)) return std::numeric_limits<float>::quiet_NaN();
    if (d >= 0x1.ffffffp127) return std::numeric_limits<float>::infinity();
    if (d <= -0x1.ffffffp127) return -std::numeric_limits<float>::infinity();
    return static_cast<float>(d);
  }
  return std::bit_cast<float>(r.u32());
}

// Short byte strings over a tiny alphabet (collisions, zero bytes, spaces),
// sometimes raw bytes.
inline std::string pick_string(Reader &r, size_t max_len = 8) {
  static const char kAlphabet[] = {'a', 'b', '\0', ' ', '\t', 'z', '\xff', 'a'};
  const uint8_t head = r.u8();
  const size_t len = head % (max_len + 1);
  std::string s;
  s.reserve(len);
  const bool raw = (head & 0x80) != 0 && (head & 0x40) != 0;
  for (size_t i = 0; i < len; ++i) {
    const uint8_t b = r.u8();
    s.push_back(raw ? static_cast<char>(b) : kAlphabet[b % sizeof kAlphabet]);
  }
  return s;
}

// An index: mostly small, sometimes negative or far out of range.
inline int64_t pick_index(Reader &r, int64_t count) {
  const uint8_t sel = r.u8();
  if (sel < 160) return count > 0 ? static_cast<int64_t>(r.u8()) % (count + 2) : static_cast<int64_t>(r.u8() % 3);
  static const int64_t kOdd[] = {-1, -2, INT64_MIN, INT64_MAX, 0x100000000ll, -0x100000000ll};
  if (sel < 230) return kOdd[sel % 6];
  return static_cast<int64_t>(r.u64());
}

// ---- reference conversions (the rules of the library's documentation) ----

// Round toward zero to int64; NaN and out-of-range give INT64_MIN.
inline int64_t truncate(double d) {
  if (!(d >= -9223372036854775808.0 && d < 9223372036854775808.0)) return INT64_MIN;
  return static_cast<int64_t>(d);
}
inline uint32_t low32(int64_t v) { return static_cast<uint32_t>(static_cast<uint64_t>(v)); }
// Nearest float, ties to even; beyond the float range an infinity.
inline float narrow(double d) {
  if (d >= 0x1.ffffffp127) return std::numeric_limits<float>::infinity();
  if (d <= -0x1.ffffffp127) return -std::numeric_limits<float>::infinity();
  return static_cast<float>(d);
}
inline uint32_t fbits(float f) { return std::bit_cast<uint32_t>(f); }
inline float bitsf(uint32_t b) { return std::bit_cast<float>(b); }
inline uint64_t dbits(double d) { return std::bit_cast<uint64_t>(d); }
inline double bitsd(uint64_t b) { return std::bit_cast<double>(b); }

// Equality of floating results by bits, except that any NaN equals any NaN
// (NaN payloads are not part of the contract of conversions).
inline bool same_float(float a, float b) { return (std::isnan(a) && std::isnan(b)) || fbits(a) == fbits(b); }
inline bool same_double(double a, double b) { return (std::isnan(a) && std::isnan(b)) || dbits(a) == dbits(b); }

// Byte order of the string arrays: unsigned bytes over the common length,
// then the shorter first.
inline int bytes_order(const std::string &a, const std::string &b) {
  const size_t n = a.size() < b.size() ? a.size() : b.size();
  const int c = n ? std::memcmp(a.data(), b.data(), n) : 0;
  if (c != 0) return c < 0 ? -1 : 1;
  if (a.size() != b.size()) return a.size() < b.size() ? -1 : 1;
  return 0;
}

inline int sign(int64_t v) { return (v > 0) - (v < 0); }

inline std::string hex(const char *p, int64_t n) {
  std::string s;
  char b[4];
  for (int64_t i = 0; i < n && i < 24; ++i) {
    std::snprintf(b, sizeof b, "%02x", static_cast<unsigned char>(p[i]));
    s += b;
  }
  return s;
}

}  // namespace fz

#endif
