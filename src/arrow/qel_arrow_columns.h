// An imported array checked once, before any value is read: each column's
// format parsed, its buffers counted, its lengths and offsets checked against
// what its children and data promise, so that the reader never reads outside
// them.  Views and dictionary indexes are checked as they are read.
#ifndef QEL_ARROW_COLUMNS_H
#define QEL_ARROW_COLUMNS_H

#include <qel_arrow.h>

#include <cstdint>
#include <cstring>

#include "arrow/qel_arrow_export.h"

namespace qel::arrow {

// Requires element i of a T buffer: its value, whatever the buffer's
// alignment (producers should align buffers, but need not).
template <typename T>
inline T load(const void *buffer, int64_t i) {
  T v;
  std::memcpy(&v, static_cast<const char *>(buffer) + i * static_cast<int64_t>(sizeof(T)), sizeof(T));
  return v;
}

enum class ckind : uint8_t {
  null,
  boolean,
  i8,
  u8,
  i16,
  u16,
  i32,
  u32,
  i64,
  u64,
  f32,
  f64,
  bin32,  // z, u
  bin64,  // Z, U
  view,   // vz, vu
  list32,
  list64,
  fixed_list,
  strukt
};

struct column {
  const ArrowSchema *schema;
  const char *name;  // the schema's name ("" for none)
  int64_t name_len;
  ckind kind;
  int64_t offset;
  int64_t length;
  const uint8_t *validity;  // NULL: no nulls
  const void *values;       // numbers and views: the values; bin and lists: the offsets
  const char *data;         // bin: the bytes
  const char *const *variadic;
  const int64_t *variadic_sizes;
  int64_t n_variadic;
  int64_t list_size;  // fixed_list
  column *children;
  int64_t n_children;
  column *dict;          // the dictionary's values (kind is then the index type)
  int64_t *member_hint;  // strukt: per child, the member position last found

  // Requires 0 <= i < length.
  bool is_null(int64_t i) const {
    if (kind == ckind::null) return true;
    if (validity == nullptr) return false;
    const int64_t p = offset + i;
    return ((validity[p >> 3] >> (p & 7)) & 1) == 0;
  }
  // Requires an integer kind and 0 <= i < length: the value at row i.
  int64_t index_at(int64_t i) const;
  // Requires a list kind and 0 <= i < length: the child rows of row i.
  void list_range(int64_t i, int64_t *begin, int64_t *end) const;
};

// Requires a reporter: the checked column tree of schema and array, made in
// one block (free with columns_free), or NULL after reporting why not.
column *columns_open(reporter &rep, const ArrowSchema *schema, const ArrowArray *array);
void columns_free(column *root);

// Requires a kind: its name for messages.
const char *kind_name(ckind k);

}  // namespace qel::arrow

#endif
