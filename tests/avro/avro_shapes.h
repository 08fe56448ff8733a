// The records of the Avro tests: 20 = id:4 n:1 score:6 ratio:5 name:7 tags:8*
// kids:21* child:21, 21 = x:5* s:7 next:21 (nests into itself).
#ifndef QEL_TEST_AVRO_SHAPES_H
#define QEL_TEST_AVRO_SHAPES_H

#include <qel.h>

#include <cstring>

namespace avro_shapes {

inline qel_schema *g_rec, *g_child;
inline qel_schema *resolve(void *, uint32_t type) { return type == 20 ? g_rec : type == 21 ? g_child : nullptr; }
inline qel_var *at(const qel_var *r, const char *n) {
  return qel_var_get_val(r, n, static_cast<int64_t>(std::strlen(n)));
}

inline void make() {
  g_rec = qel_var_schema_new();
  g_child = qel_var_schema_new();
  const struct {
    qel_schema *s;
    const char *n;
    uint32_t t;
    uint8_t m;
  } members[] = {{g_rec, "id", 4, 0},   {g_rec, "n", 1, 0},    {g_rec, "score", 6, 0},  {g_rec, "ratio", 5, 0},
                 {g_rec, "name", 7, 0}, {g_rec, "tags", 8, 1}, {g_rec, "kids", 21, 1},  {g_rec, "child", 21, 0},
                 {g_child, "x", 5, 1},  {g_child, "s", 7, 0},  {g_child, "next", 21, 0}};
  for (const auto &m : members) qel_var_schema_add(m.s, m.n, static_cast<int64_t>(std::strlen(m.n)), m.t, m.m);
}

inline void free_all() { qel_var_schema_free(g_rec), qel_var_schema_free(g_child); }

}  // namespace avro_shapes

#endif
