// An ArrowArrayStream over a full variant in the multi form: the schema is
// made once when the stream is, each chunk when the consumer asks for it.
#include <cerrno>
#include <cstdio>
#include <cstring>

#include "arrow/qel_arrow_export.h"
#include "arrow/qel_arrow_nodes.h"

namespace qel::arrow {
namespace {

struct stream_state {
  const qel_var *source;
  unsigned flags;
  int64_t next;   // first row of the next chunk
  int64_t chunk;  // rows per chunk
  ArrowSchema schema;
  char last_error[256];
};

// The schema handed out is the stream's own, borrowed: releasing it only
// marks it released.  (DuckDB's scan never releases what get_schema gives.)
void borrowed_release(ArrowSchema *s) { s->release = nullptr; }

int get_schema(ArrowArrayStream *st, ArrowSchema *out) {
  auto *ss = static_cast<stream_state *>(st->private_data);
  *out = ss->schema;
  out->release = borrowed_release;
  out->private_data = nullptr;
  return 0;
}

int get_next(ArrowArrayStream *st, ArrowArray *out) {
  auto *ss = static_cast<stream_state *>(st->private_data);
  out->release = nullptr;
  const int64_t rows = var_rows(ss->source);
  if (ss->next >= rows) return 0;  // the end: a released array
  const int64_t n = rows - ss->next < ss->chunk ? rows - ss->next : ss->chunk;
  qel_arrow_error err;
  reporter ex(ss->flags, &err);
  ArrowSchema s;
  s.release = nullptr;
  if (!export_var_rows(ex, ss->source, ss->next, n, &s, out)) {
    release_both(&s, out);
    std::snprintf(ss->last_error, sizeof ss->last_error, "%s", err.message);
    return EINVAL;
  }
  const bool same = schema_same(&s, &ss->schema);
  s.release(&s);
  if (!same) {
    out->release(out);
    std::snprintf(ss->last_error, sizeof ss->last_error,
                  "rows %lld to %lld: nested records list other members than the stream's schema",
                  static_cast<long long>(ss->next), static_cast<long long>(ss->next + n - 1));
    return EINVAL;
  }
  ss->next += n;
  return 0;
}

const char *get_last_error(ArrowArrayStream *st) {
  auto *ss = static_cast<stream_state *>(st->private_data);
  return ss->last_error[0] != '\0' ? ss->last_error : nullptr;
}

void release(ArrowArrayStream *st) {
  auto *ss = static_cast<stream_state *>(st->private_data);
  ss->schema.release(&ss->schema);
  qel_free(ss);
  st->release = nullptr;
}

}  // namespace
}  // namespace qel::arrow

extern "C" QEL_API int qel_arrow_export_stream(const qel_var *v, int64_t chunk_rows, unsigned flags,
                                               ArrowArrayStream *out, qel_arrow_error *err) {
  out->release = nullptr;
  qel::arrow::reporter ex(flags, err);
  ArrowSchema s;
  ArrowArray a;
  s.release = nullptr;
  a.release = nullptr;
  // The whole export checks every value now; its schema is the stream's.
  if (!qel::arrow::export_var_rows(ex, v, 0, qel::arrow::var_rows(v), &s, &a)) {
    qel::arrow::release_both(&s, &a);
    return ex.code();
  }
  a.release(&a);
  auto *ss = static_cast<qel::arrow::stream_state *>(qel_malloc(sizeof(qel::arrow::stream_state)));
  ss->source = v;
  ss->flags = flags;
  ss->next = 0;
  ss->chunk = chunk_rows > 0 ? chunk_rows : INT64_MAX;
  ss->schema = s;
  ss->last_error[0] = '\0';
  out->get_schema = qel::arrow::get_schema;
  out->get_next = qel::arrow::get_next;
  out->get_last_error = qel::arrow::get_last_error;
  out->release = qel::arrow::release;
  out->private_data = ss;
  return QEL_ARROW_OK;
}
