// The pieces every export is made of: the run's flags and error, and the
// builders of value arrays, lists and structs that the full variant, light
// variant, column set and stream exports share.
#ifndef QEL_ARROW_EXPORT_H
#define QEL_ARROW_EXPORT_H

#include <qel_arrow.h>

#include <cstddef>
#include <cstdint>

namespace qel::arrow {

// What one value array holds, and so its Arrow format.
enum class vkind : uint8_t { u32, i64, f32, f64, bytes };

// Requires a full variant code of the 32-bit, 64-bit or byte-string class.
vkind full_kind(uint32_t type);
// Requires a light code 1 to 5.
vkind light_kind(uint32_t type);

// One export or import: its flags, the path of the column being made, and the error.
class reporter {
 public:
  reporter(unsigned flags, qel_arrow_error *err);

  unsigned flags() const { return flags_; }
  int code() const { return code_; }
  bool utf8() const { return (flags_ & QEL_ARROW_UTF8) != 0; }
  bool bufs() const { return (flags_ & QEL_ARROW_CALLER_VALUES) != 0; }

  // Requires nothing; records the first error (code, top-level row, the
  // current path and a printf message) and returns false.
  [[gnu::format(printf, 4, 5)]] bool fail(int code, int64_t row, const char *format, ...);

  // Requires name to stay valid until leave(): enters member `name` (len
  // bytes) of the current path (only remembered: the path is spelled out
  // when an error needs it).  Returns the mark to restore with leave().
  size_t enter(const char *name, int64_t len) {
    const size_t mark = depth_;
    if (depth_ < kDepth) {
      names_[depth_] = name;
      lens_[depth_] = len;
    }
    ++depth_;
    return mark;
  }
  void leave(size_t mark) { depth_ = mark; }

 private:
  static constexpr size_t kDepth = 64;
  unsigned flags_;
  qel_arrow_error *err_;
  int code_ = QEL_ARROW_OK;
  size_t depth_ = 0;
  const char *names_[kDepth];
  int64_t lens_[kDepth];
};

// A run of entries of one value array (qel_arrayd, qel_arrayx or qel_array,
// as the kind says): entries [begin, begin + count), all belonging to
// top-level row `row`, or, when row is -1, each to the row of its index.
// `arr` NULL marks a null row (count 0).
struct segment {
  const void *arr;
  int64_t begin;
  int64_t count;
  int64_t row;
};

// Requires segments within their arrays and total their counts' sum: a
// value array of all their entries in order, named `name`.
bool export_segments(reporter &ex, vkind k, const segment *segs, int64_t n_segs, int64_t total, const char *name,
                     int64_t name_len, ArrowSchema *s, ArrowArray *a);

// As export_segments, for the caller values of the entries ("L").
void export_segment_bufs(vkind k, const segment *segs, int64_t n_segs, int64_t total, const char *name,
                         int64_t name_len, ArrowSchema *s, ArrowArray *a);

// Requires n_segs rows as segments: a list array, a null row where a
// segment's arr is NULL ("+l", or "+L" past 2^31 - 1 entries), whose child
// the caller makes (child schema and array returned not yet live) and whose
// flags are `flags`.
void list_make(const segment *segs, int64_t n_segs, int64_t total, const char *name, int64_t name_len, int64_t flags,
               ArrowSchema *s, ArrowArray *a);

// A single full variant's value at each row (NULL: null), numbers or
// strings of full code `type`; rows maps to top-level rows (NULL: itself).
bool export_singles(reporter &ex, uint32_t type, qel_var *const *vals, int64_t n, const int64_t *rows, const char *name,
                    int64_t name_len, int64_t flags, ArrowSchema *s, ArrowArray *a);
void export_single_bufs(qel_var *const *vals, int64_t n, const char *name, int64_t name_len, ArrowSchema *s,
                        ArrowArray *a);

// Single records at each row (NULL: null row), their members those of
// `schema` in its order: a struct array.
bool export_records(reporter &ex, qel_var *const *recs, int64_t n, const int64_t *rows, const qel_schema *schema,
                    const char *name, int64_t name_len, int64_t flags, ArrowSchema *s, ArrowArray *a);

// Requires a full variant: its element count (0 in the single form).
int64_t var_rows(const qel_var *v);

// Requires a full variant: the whole export of qel_arrow_export_var, of
// elements [begin, begin + n) of a multi variant (the stream's chunks).
bool export_var_rows(reporter &ex, const qel_var *v, int64_t begin, int64_t n, ArrowSchema *s, ArrowArray *a);

// Requires a live schema and array: wraps them as child "value" of a struct
// whose second child the caller makes ("value.buf"), returned not yet live.
void wrap_with_bufs(ArrowSchema *s, ArrowArray *a, ArrowSchema **buf_schema, ArrowArray **buf_array);

// Requires a live schema and array: with QEL_ARROW_TABLE, and unless they
// are a struct already, wraps them as the one child of a struct.
void table_of(const reporter &ex, ArrowSchema *s, ArrowArray *a);

// Requires a valid pointer for a byte run: whether it is well-formed UTF-8.

}  // namespace qel::arrow

#endif
