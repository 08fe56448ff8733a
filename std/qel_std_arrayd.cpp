// qel_arrayd: an array of 32-bit values, each with a caller value (the
// shared implementation is qel_std_number_array.h).
#include "qel_std_number_array.h"

using namespace qel_detail::numbers;

// Requires an uninitialised or terminated record; an empty array.
extern "C" QEL_API void qel_arrayd_init(qel_arrayd *a, int zero) {
  (void)zero;
  init(a);
}
// Requires an initialised array; releases its storage.
extern "C" QEL_API void qel_arrayd_term(qel_arrayd *a) { term(a); }
// Requires an initialised array; adds one entry at the end.
extern "C" QEL_API void qel_arrayd_append(qel_arrayd *a, uint32_t value, uint64_t buf) {
  qel_detail::append(a, value, buf);
}
// Requires initialised arrays (src may be dst); appends src's entries.
extern "C" QEL_API void qel_arrayd_append_array(qel_arrayd *dst, const qel_arrayd *src) { append_array(dst, src); }
// Requires initialised arrays; dst becomes a copy of src.
extern "C" QEL_API void qel_arrayd_clone(const qel_arrayd *src, int zero1, qel_arrayd *dst, int zero2, int zero3) {
  (void)zero1, (void)zero2, (void)zero3;
  clone(src, dst);
}
// Requires an initialised array; capacity of at least n entries.
extern "C" QEL_API void qel_arrayd_expand(qel_arrayd *a, int64_t n) { expand(a, n); }
// Requires an initialised array; empties it.
extern "C" QEL_API void qel_arrayd_remove_all(qel_arrayd *a) { remove_all(a); }
// Requires an initialised array and out non-NULL; 1 and the value, or 0 and 0.
extern "C" QEL_API int qel_arrayd_get_at(const qel_arrayd *a, int64_t index, uint32_t *out) {
  return qel_detail::get_at(a, index, out);
}
// Requires an initialised array; overwrites entry index when in use.
extern "C" QEL_API void qel_arrayd_set_at(qel_arrayd *a, int64_t index, uint32_t value, uint64_t buf) {
  qel_detail::set_at(a, index, value, buf);
}
// Requires an initialised array; lowest position of value, or -1.
extern "C" QEL_API int64_t qel_arrayd_find_index(const qel_arrayd *a, uint32_t value) { return find_index(a, value); }
// Requires an array sorted ascending; lowest position of value, or -1.
extern "C" QEL_API int64_t qel_arrayd_bfind_index(const qel_arrayd *a, uint32_t value) {
  return qel_detail::bfind_index(a, value);
}
// Requires an initialised array; the entry for value, never NULL.
extern "C" QEL_API qel_arrayd_entry *qel_arrayd_entry_insert(qel_arrayd *a, uint32_t value) {
  return qel_detail::entry_insert(a, value);
}
// Requires an initialised array; stable sort, ascending for nonzero flag.
extern "C" QEL_API void qel_arrayd_qsort(qel_arrayd *a, int flag) { sort(a, flag); }
