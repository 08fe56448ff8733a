// Export of light variants and column sets: a light variant is one value
// array, a column set a list array over its values (one list per entry) or,
// in the single form, one value per entry.
#include <cstring>

#include "arrow/qel_arrow_export.h"
#include "arrow/qel_arrow_nodes.h"
#include "internal/qel_utf8.h"
#include "internal/qel_xvar_internal.h"
#include "qel_std_inline.h"

namespace qel::arrow {
namespace {

using qel::light::has_storage;

// Requires a light code 1 to 5 and the union of its arrays.
template <typename Data>
const void *light_array(uint32_t type, const Data &d) {
  if (type == QEL_XVAR_BYTES) return &d.array;
  if (qel::light::is_narrow(type)) return &d.arrayd;
  return &d.arrayx;
}

template <typename Data>
int64_t light_count(uint32_t type, const Data &d) {
  if (type == QEL_XVAR_BYTES) return qel_detail::in_use(&d.array);
  if (qel::light::is_narrow(type)) return qel_detail::in_use(&d.arrayd);
  return qel_detail::in_use(&d.arrayx);
}

// A single light variant: an array of its one value.
bool export_one(reporter &ex, const qel_xvar *x, ArrowSchema *s, ArrowArray *a) {
  const vkind k = light_kind(x->type);
  if (k != vkind::bytes) {
    schema_make(s, k == vkind::u32 ? "I" : k == vkind::i64 ? "l" : k == vkind::f32 ? "f" : "g", "value", 5, 0, 0);
    array_make(a, 1, 2, 0);
    if (k == vkind::u32 || k == vkind::f32)
      *static_cast<uint32_t *>(array_buffer(a, 1, 4)) = x->data.single.value.bits32;
    else *static_cast<uint64_t *>(array_buffer(a, 1, 8)) = x->data.single.value.bits64;
  } else {
    const qel_string &str = x->data.single.value.string;
    const int64_t len = str.length > 0 ? str.length : 0;
    if (ex.utf8() && !qel::is_utf8(str.bytes, len)) return ex.fail(QEL_ARROW_ERR_UTF8, 0, "bytes that are not UTF-8");
    const bool large = len > 0x7FFFFFFF;
    schema_make(s, large ? (ex.utf8() ? "U" : "Z") : (ex.utf8() ? "u" : "z"), "value", 5, 0, 0);
    array_make(a, 1, 3, 0);
    if (large) {
      auto *off = static_cast<int64_t *>(array_buffer(a, 1, 16));
      off[0] = 0;
      off[1] = len;
    } else {
      auto *off = static_cast<int32_t *>(array_buffer(a, 1, 8));
      off[0] = 0;
      off[1] = static_cast<int32_t>(len);
    }
    char *data = static_cast<char *>(array_buffer(a, 2, static_cast<size_t>(len)));
    if (len > 0) std::memcpy(data, str.bytes, static_cast<size_t>(len));
  }
  if (ex.bufs()) {
    ArrowSchema *bs = nullptr;
    ArrowArray *ba = nullptr;
    wrap_with_bufs(s, a, &bs, &ba);
    schema_make(bs, "L", "value.buf", 9, 0, 0);
    array_make(ba, 1, 2, 0);
    *static_cast<uint64_t *>(array_buffer(ba, 1, 8)) = x->data.single.buf;
  }
  return true;
}

}  // namespace
}  // namespace qel::arrow

using qel::arrow::segment;

extern "C" QEL_API int qel_arrow_export_xvar(const qel_xvar *x, unsigned flags, ArrowSchema *schema, ArrowArray *array,
                                             qel_arrow_error *err) {
  qel::arrow::reporter ex(flags, err);
  schema->release = nullptr;
  array->release = nullptr;
  bool ok = false;
  if (!qel::light::has_storage(x->type)) {
    ok = ex.fail(QEL_ARROW_ERR_SHAPE, -1, "expected a light variant of code 1 to 5, found code %u", x->type);
  } else if (x->multi == 0) {
    ok = qel::arrow::export_one(ex, x, schema, array);
  } else {
    const qel::arrow::vkind k = qel::arrow::light_kind(x->type);
    const int64_t n = qel::arrow::light_count(x->type, x->data);
    const segment seg{qel::arrow::light_array(x->type, x->data), 0, n, -1};
    ok = qel::arrow::export_segments(ex, k, &seg, 1, n, "value", 5, schema, array);
    if (ok && ex.bufs()) {
      ArrowSchema *bs = nullptr;
      ArrowArray *ba = nullptr;
      qel::arrow::wrap_with_bufs(schema, array, &bs, &ba);
      qel::arrow::export_segment_bufs(k, &seg, 1, n, "value.buf", 9, bs, ba);
    }
  }
  if (ok) return QEL_ARROW_OK;
  qel::arrow::release_both(schema, array);
  return ex.code();
}

extern "C" QEL_API int qel_arrow_export_xvars(const qel_xvars *xs, unsigned flags, ArrowSchema *schema,
                                              ArrowArray *array, qel_arrow_error *err) {
  qel::arrow::reporter ex(flags, err);
  schema->release = nullptr;
  array->release = nullptr;
  if (!qel::light::has_storage(xs->type)) {
    ex.fail(QEL_ARROW_ERR_SHAPE, -1, "expected a column set of code 1 to 5, found code %u", xs->type);
    return ex.code();
  }
  const qel::arrow::vkind k = qel::arrow::light_kind(xs->type);
  const void *values = qel::arrow::light_array(xs->type, xs->data);
  const int64_t n = qel_detail::in_use(&xs->index);
  const int64_t held = qel::arrow::light_count(xs->type, xs->data);
  auto *segs = static_cast<segment *>(qel_malloc(static_cast<size_t>(n) * sizeof(segment)));
  int64_t total = 0;
  for (int64_t e = 0; e < n; ++e) {
    const qel_arrayd_entry &ie = xs->index.entries[e];
    // Entries stay within the values in use even if a caller cut them.
    const int64_t start = ie.value < held ? ie.value : held;
    const int64_t want = xs->multi != 0 ? static_cast<int64_t>(ie.buf & 0xFFFFFFFFu) : 1;
    const int64_t count = want < held - start ? want : held - start;
    segs[e] = {values, start, count, e};
    total += count;
  }
  bool ok = true;
  ArrowSchema *vs = schema;
  ArrowArray *va = array;
  if (xs->multi != 0) {
    qel::arrow::list_make(segs, n, total, "value", 5, 0, schema, array);
    vs = schema->children[0];
    va = array->children[0];
  }
  ok = qel::arrow::export_segments(ex, k, segs, n, total, xs->multi != 0 ? "item" : "value", xs->multi != 0 ? 4 : 5, vs,
                                   va);
  if (ok && ex.bufs()) {
    ArrowSchema *bs = nullptr;
    ArrowArray *ba = nullptr;
    qel::arrow::wrap_with_bufs(schema, array, &bs, &ba);
    if (xs->multi != 0) {
      qel::arrow::list_make(segs, n, total, "value.buf", 9, 0, bs, ba);
      qel::arrow::export_segment_bufs(k, segs, n, total, "item", 4, bs->children[0], ba->children[0]);
    } else {
      qel::arrow::export_segment_bufs(k, segs, n, total, "value.buf", 9, bs, ba);
    }
  }
  qel_free(segs);
  if (ok) {
    qel::arrow::table_of(ex, schema, array);
    return QEL_ARROW_OK;
  }
  qel::arrow::release_both(schema, array);
  return ex.code();
}
