// GoogleTest prints a full variant as its JSON text (NaN and the
// infinities as null, bytes that are not UTF-8 escaped), so that a failed
// EXPECT_EQ of two variants shows what they hold instead of two addresses.
#ifndef QEL_TESTS_PRINT_VAR_H
#define QEL_TESTS_PRINT_VAR_H

#include <ostream>
#include <qel.hpp>
#include <qel_json.h>

inline void PrintTo(const qel_var *v, std::ostream *os) {
  if (v == nullptr) {
    *os << "(null qel_var)";
    return;
  }
  qel::stream text;
  const int rc = qel_json_write(v, text.get(), QEL_JSON_NONFINITE_NULL | QEL_JSON_ESCAPE_BYTES);
  if (rc != QEL_JSON_OK) *os << "(qel_var of code " << v->type << " not written as JSON: error " << rc << ")";
  else *os << text.view();
}

namespace qel {
inline void PrintTo(const var &v, std::ostream *os) { ::PrintTo(v.get(), os); }
inline void PrintTo(var_ref v, std::ostream *os) { ::PrintTo(v.get(), os); }
inline void PrintTo(var_cref v, std::ostream *os) { ::PrintTo(v.get(), os); }
}  // namespace qel

#endif
