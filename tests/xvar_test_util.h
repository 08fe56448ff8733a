// Helpers shared by the light variant and column set tests.
#ifndef QEL_TESTS_XVAR_TEST_UTIL_H
#define QEL_TESTS_XVAR_TEST_UTIL_H

#include <qel.h>

#include <bit>
#include <cstdint>
#include <memory>
#include <string>

namespace qel_test {

struct XvarFree {
  void operator()(qel_xvar *v) const { qel_xvar_free(v); }
};
struct XvarsFree {
  void operator()(qel_xvars *xs) const { qel_xvars_free(xs); }
};
using Xvar = std::unique_ptr<qel_xvar, XvarFree>;
using Xvars = std::unique_ptr<qel_xvars, XvarsFree>;

inline Xvar make_xvar(uint32_t type, uint8_t multi) { return Xvar(qel_xvar_new(type, multi)); }
inline Xvars make_xvars(uint32_t type, uint8_t multi) { return Xvars(qel_xvars_new(type, multi)); }

// The string at index of a light variant; "<null>" when the getter gave NULL.
inline std::string xvar_string(const qel_xvar *v, int64_t index) {
  const char *p = nullptr;
  int64_t n = -1;
  qel_xvar_get_string(v, index, &p, &n);
  if (!p) return n == 0 ? "<null>" : "<bad length>";
  return std::string(p, static_cast<size_t>(n));
}

// The length that the getter reports for index of a light variant.
inline int64_t xvar_length(const qel_xvar *v, int64_t index) {
  const char *p = nullptr;
  int64_t n = -1;
  qel_xvar_get_string(v, index, &p, &n);
  return n;
}

// The string at (entry, pos) of a column set; "<null>" when the getter gave NULL.
inline std::string xvars_string(const qel_xvars *xs, int64_t entry, int64_t pos) {
  const char *p = nullptr;
  int64_t n = -1;
  qel_xvars_get_string(xs, entry, pos, &p, &n);
  if (!p) return n == 0 ? "<null>" : "<bad length>";
  return std::string(p, static_cast<size_t>(n));
}

inline uint32_t bits(float f) { return std::bit_cast<uint32_t>(f); }
inline uint64_t bits(double d) { return std::bit_cast<uint64_t>(d); }

}  // namespace qel_test

#endif
