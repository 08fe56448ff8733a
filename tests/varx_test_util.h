// Helpers shared by the full variant extension tests.
#ifndef QEL_TESTS_VARX_TEST_UTIL_H
#define QEL_TESTS_VARX_TEST_UTIL_H

#include <qel.h>

#include <bit>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

namespace varx_test {

struct var_deleter {
  void operator()(qel_var *v) const { qel_var_free(v); }
};
using var_ptr = std::unique_ptr<qel_var, var_deleter>;

inline var_ptr make(uint32_t type, uint8_t multi) { return var_ptr(qel_var_new(type, multi)); }

// Caller values of entries 0..count-1.
inline std::vector<uint64_t> bufs(const qel_var *v) {
  std::vector<uint64_t> out;
  for (int64_t k = 0; k < qel_var_size(v); ++k) out.push_back(qel_var_get_buf(v, k));
  return out;
}

// Entry k's string.
inline std::string string_at(const qel_var *v, int64_t k) {
  const char *bytes = nullptr;
  int64_t len = 0;
  qel_var_get_string(v, k, &bytes, &len);
  return bytes != nullptr ? std::string(bytes, static_cast<size_t>(len)) : std::string();
}

inline uint32_t float_bits(float f) { return std::bit_cast<uint32_t>(f); }
inline int64_t double_bits(double d) { return std::bit_cast<int64_t>(d); }

}  // namespace varx_test

#endif
