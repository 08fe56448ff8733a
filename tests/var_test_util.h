// Helpers for the full-variant tests: reach members and elements through the
// containers directly (so the tests do not depend on the member shortcuts),
// and compare whole trees.
#ifndef QEL_VAR_TEST_UTIL_H
#define QEL_VAR_TEST_UTIL_H

#include <qel.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

namespace vt {

inline qel_var *member(const qel_var *rec, const char *name) {
  return static_cast<qel_var *>(
      qel_hash_get(&rec->data.members, name, static_cast<int64_t>(std::strlen(name))));
}

// Names of the members in hash order (entries with a NULL value skipped).
inline std::vector<std::string> member_names(const qel_var *rec) {
  std::vector<std::string> names;
  auto *h = const_cast<qel_hash *>(&rec->data.members);
  void *cursor = nullptr;
  for (qel_hash_entry *e = qel_hash_entry_first(h, &cursor); e != nullptr; e = qel_hash_entry_next(h, &cursor, e))
    if (e->value != nullptr) names.emplace_back(h->key_pool + e->key_offset, e->key_length);
  return names;
}

// Adds a member the way a caller's own code would, bypassing schemas.
inline qel_var *add_member(qel_var *rec, const char *name, qel_var *m) {
  qel_hash_insert(&rec->data.members, name, static_cast<int64_t>(std::strlen(name)), m);
  return m;
}

inline qel_var *element(const qel_var *arr, int64_t i) {
  return static_cast<qel_var *>(qel_arrays_get_at(&arr->data.vars, i));
}

inline void push_element(qel_var *arr, qel_var *e) { qel_arrays_append(&arr->data.vars, e); }

inline std::string str(const qel_var *v, int64_t index = 0) {
  const char *text = nullptr;
  int64_t length = 0;
  qel_var_get_string(v, index, &text, &length);
  return text != nullptr ? std::string(text, static_cast<size_t>(length)) : std::string();
}

// Collects every node of a tree (for checking that two trees share none).
inline void nodes(const qel_var *v, std::vector<const qel_var *> &out) {
  out.push_back(v);
  const uint32_t t = v->type;
  if (t != 0 && t <= 9) return;
  if (v->multi != 0) {
    for (int64_t i = 0; i < v->data.vars.count; ++i) nodes(element(v, i), out);
    return;
  }
  for (const std::string &n : member_names(v)) nodes(member(v, n.c_str()), out);
}

// True when a and b hold the same type codes, multi bytes, values, strings,
// members (by name) and elements, recursively; a single variant's buf too.
// With extra_ok, a may hold members that b lacks (at any depth).
inline bool same_tree(const qel_var *a, const qel_var *b, std::string *why = nullptr, bool extra_ok = false) {
  auto fail = [&](const std::string &m) {
    if (why != nullptr) *why = m;
    return false;
  };
  if (a->type != b->type) return fail("type " + std::to_string(a->type) + " vs " + std::to_string(b->type));
  if (a->multi != b->multi) return fail("multi");
  if (a->multi == 0 && a->buf != b->buf) return fail("buf");
  const uint32_t t = a->type;
  const bool record = t == 0 || t > 9;
  if (!record) {
    const int64_t n = a->multi != 0 ? qel_var_size(a) : 1;
    if (qel_var_size(a) != qel_var_size(b)) return fail("size");
    for (int64_t i = 0; i < n; ++i) {
      if (t == 7 || t == 8) {
        if (str(a, i) != str(b, i)) return fail("string " + std::to_string(i));
      } else {
        const double x = qel_var_get_double(a, i), y = qel_var_get_double(b, i);
        if (!(x == y || (std::isnan(x) && std::isnan(y)))) return fail("value " + std::to_string(i));
      }
    }
    return true;
  }
  if (a->multi != 0) {
    if (qel_var_size(a) != qel_var_size(b)) return fail("element count");
    for (int64_t i = 0; i < qel_var_size(a); ++i)
      if (!same_tree(element(a, i), element(b, i), why, extra_ok)) return false;
    return true;
  }
  std::vector<std::string> na = member_names(a), nb = member_names(b);
  if (extra_ok ? na.size() < nb.size() : na.size() != nb.size()) return fail("member count");
  for (const std::string &n : nb) {
    const qel_var *ma = member(a, n.c_str());
    if (ma == nullptr) return fail("missing member " + n);
    if (!same_tree(ma, member(b, n.c_str()), why, extra_ok)) return false;
  }
  return true;
}

inline bool share_nodes(const qel_var *a, const qel_var *b) {
  std::vector<const qel_var *> x, y;
  nodes(a, x);
  nodes(b, y);
  for (const qel_var *p : x)
    for (const qel_var *q : y)
      if (p == q) return true;
  return false;
}

}  // namespace vt

#endif
