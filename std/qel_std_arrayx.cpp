// qel_arrayx: an array of signed 64-bit values, each with a caller value
// (the shared implementation is qel_std_number_array.h).
#include "qel_std_number_array.h"

using namespace qel_detail::numbers;

// Requires an uninitialised or terminated record; an empty array.
extern "C" QEL_API void qel_arrayx_init(qel_arrayx *a, int zero) {
  (void)zero;
  init(a);
}
// Requires an initialised array; releases its storage.
extern "C" QEL_API void qel_arrayx_term(qel_arrayx *a) { term(a); }
// Requires an initialised array; adds one entry at the end.
extern "C" QEL_API void qel_arrayx_append(qel_arrayx *a, int64_t value, uint64_t buf) {
  qel_detail::append(a, value, buf);
}
// Requires initialised arrays (src may be dst); appends src's entries.
extern "C" QEL_API void qel_arrayx_append_array(qel_arrayx *dst, const qel_arrayx *src) { append_array(dst, src); }
// Requires initialised arrays; dst becomes a copy of src.
extern "C" QEL_API void qel_arrayx_clone(const qel_arrayx *src, int zero1, qel_arrayx *dst, int zero2, int zero3) {
  (void)zero1, (void)zero2, (void)zero3;
  clone(src, dst);
}
// Requires an initialised array; capacity of at least n entries.
extern "C" QEL_API void qel_arrayx_expand(qel_arrayx *a, int64_t n) { expand(a, n); }
// Requires an initialised array; empties it.
extern "C" QEL_API void qel_arrayx_remove_all(qel_arrayx *a) { remove_all(a); }
// Requires an initialised array and out non-NULL; 1 and the value, or 0 and 0.
extern "C" QEL_API int qel_arrayx_get_at(const qel_arrayx *a, int64_t index, int64_t *out) {
  return qel_detail::get_at(a, index, out);
}
// Requires an initialised array; overwrites entry index when in use.
extern "C" QEL_API void qel_arrayx_set_at(qel_arrayx *a, int64_t index, int64_t value, uint64_t buf) {
  qel_detail::set_at(a, index, value, buf);
}
// Requires an initialised array; lowest position of value, or -1.
extern "C" QEL_API int64_t qel_arrayx_find_index(const qel_arrayx *a, int64_t value) { return find_index(a, value); }
// Requires an array sorted ascending; lowest position of value, or -1.
extern "C" QEL_API int64_t qel_arrayx_bfind_index(const qel_arrayx *a, int64_t value) {
  return qel_detail::bfind_index(a, value);
}
// Requires an initialised array; the entry for value, never NULL.
extern "C" QEL_API qel_arrayx_entry *qel_arrayx_entry_insert(qel_arrayx *a, int64_t value) {
  return qel_detail::entry_insert(a, value);
}
// Requires an initialised array; stable sort, ascending for nonzero flag.
extern "C" QEL_API void qel_arrayx_qsort(qel_arrayx *a, int flag) { sort(a, flag); }
