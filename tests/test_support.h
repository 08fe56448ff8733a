// What the hand-written tests share: GoogleTest prints a full variant as
// its JSON text (NaN and the infinities as null, bytes that are not UTF-8
// escaped), so that a failed EXPECT_EQ of two variants shows what they hold
// instead of two addresses; the limits the tables use; schemas from a list;
// a record's member names in order; a resolver that logs what it is asked.
#ifndef QEL_TESTS_TEST_SUPPORT_H
#define QEL_TESTS_TEST_SUPPORT_H

#include <cstdint>
#include <initializer_list>
#include <limits>
#include <ostream>
#include <qel.hpp>
#include <qel_json.h>
#include <string>
#include <utility>
#include <vector>

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

namespace qel_test {
constexpr int64_t kMin = std::numeric_limits<int64_t>::min();
constexpr double kNaN = std::numeric_limits<double>::quiet_NaN();
constexpr double kInf = std::numeric_limits<double>::infinity();

// A new schema listing these members in order (the caller frees it).
struct member {
  const char *name;
  uint32_t type;
  uint8_t multi;
};
inline qel_schema *schema_of(std::initializer_list<member> members) {
  qel_schema *s = qel_var_schema_new();
  for (const member &m : members)
    qel_var_schema_add(s, m.name, static_cast<int64_t>(std::char_traits<char>::length(m.name)), m.type, m.multi);
  return s;
}

inline std::vector<std::string> names(qel::var_cref v) {
  std::vector<std::string> out;
  for (auto m : v.members()) out.emplace_back(m.name);
  return out;
}
// A C resolver over a table of codes and schemas that logs the codes asked.
struct Resolver {
  std::vector<uint32_t> calls;
  std::vector<std::pair<uint32_t, qel_schema *>> map;
  static qel_schema *resolve(void *context, uint32_t type) {
    auto *self = static_cast<Resolver *>(context);
    self->calls.push_back(type);
    for (const auto &[code, schema] : self->map)
      if (code == type) return schema;
    return nullptr;
  }
};
}  // namespace qel_test

#endif
