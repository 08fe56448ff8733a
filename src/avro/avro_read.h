// The Avro datum reader: bytes of a writer schema resolved into a full
// variant in two passes over the same bytes.  The first checks everything
// (encoding, types, ranges, counts, the members a record would get) without
// touching the destination; the second, which then cannot fail, writes
// straight into it.  So a failed read changes nothing, and a good one needs
// no undo log or copy: strings and arrays are rewritten in their own storage.
#ifndef QEL_AVRO_READ_H
#define QEL_AVRO_READ_H

#include "avro/avro_type.h"
#include "internal/qel_var_internal.h"

namespace qel::avro {

// What a value is read into: a variant, or in the checking pass one that the
// writing pass will create (v NULL), known by its code, form and schema.
struct target {
  qel_var *v;
  uint32_t type;
  uint8_t multi;
  const qel_schema *schema;
};

class reader {
 public:
  reader(void *context, qel_schema_resolver resolver, unsigned flags, qel_avro_error *err, int64_t budget);

  // Requires nothing: the bytes read next; errors report offsets from base,
  // or base itself for bytes that are not the input's own (inflated ones).
  void input(const char *bytes, int64_t len, int64_t base, bool own = true);
  // Requires a variant: one datum of w checked (apply false) or read into it
  // (apply true, after a check of the same bytes); *used: bytes taken (NULL:
  // all of them must be).
  int datum(const node *w, qel_var *v, int64_t *used, bool apply);
  // Requires an array variant: `count` items of w checked or appended (its
  // old elements dropped first when `fresh_start`); the input must end there.
  int items(const node *w, qel_var *v, int64_t count, bool fresh_start, bool apply);
  // Requires nothing: the budget of zero-byte items back to `budget`, for the
  // writing pass.
  void restart(int64_t budget) {
    budget_ = budget;
    next_ = 0;
  }
  int code() const { return code_; }

 private:
  bool fail(int code, const path_step *at, const char *message);
  bool deeper(int depth, const path_step *at);
  bool read_long(int64_t *out, const path_step *at);
  bool read_length(int64_t *out, const path_step *at);
  bool read_bytes(const node *w, const char **s, int64_t *n, const path_step *at);
  bool branch(const node **w, const path_step *at);
  bool scalar(const node *w, uint32_t type, uint64_t *bits, const path_step *at);
  bool count_of(const node *items, int64_t *count, const path_step *at);
  bool skip(const node *w, const path_step *at, int depth);
  const qel_schema *schema_of(uint32_t type) const;
  template <bool Apply>
  bool value(const node *w, const target &t, const path_step *at, int depth);
  template <bool Apply>
  bool array(const node *w, const target &t, const path_step *at, int depth);
  template <bool Apply>
  bool element(const node *w, const target &t, int64_t index, int64_t *pool, const path_step *up, int depth);
  template <bool Apply>
  bool record(const node *w, const target &t, const path_step *up, int depth);
  template <bool Apply>
  bool member(const target &t, int64_t i, const field &f, target *m);

  const unsigned char *begin_ = nullptr;
  const unsigned char *p_ = nullptr;
  const unsigned char *end_ = nullptr;
  int64_t base_ = 0;
  bool own_ = true;
  void *context_;
  qel_schema_resolver resolver_;
  unsigned flags_;
  qel_avro_error *err_;
  int64_t budget_;     // items of zero-byte encodings still allowed
  int64_t pool_ = 0;   // string bytes of the array items() appends to
  int64_t index_ = 0;  // items() of the checking pass: the array's size so far
  int code_ = QEL_AVRO_OK;
  vec<qel_var *> found_;  // checking pass: each member found in place, in order (NULL: none)
  int64_t next_ = 0;      // writing pass: the next of found_
};

}  // namespace qel::avro

#endif
