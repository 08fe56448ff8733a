// qel_stream and qel_string (growable bytes) and the two comparisons.
//
// Both records are (bytes, length, capacity); every byte below capacity is
// defined (zeroed when the buffer grows).  Bad lengths (negative, or a
// positive length with NULL bytes) change nothing, except for the shrinks,
// where a negative n means 0.
#include "qel_std.h"
#include "qel_std_bytes.h"

namespace {

using qel_detail::used_bytes;

// Requires a buffer record; an empty buffer.
template <typename S>
void init(S *s) {
  s->bytes = nullptr;
  s->length = 0;
  s->capacity = 0;
}

// Requires an initialised buffer; length becomes min(length, max(n, 0)).
template <typename S>
void shrink(S *s, int64_t n) {
  if (n < 0) n = 0;
  if (s->length > n) s->length = n;
}

// Requires nothing; whether c is ASCII whitespace (space, \t \n \v \f \r).
bool is_space(char c) { return c == ' ' || (c >= '\t' && c <= '\r'); }

}  // namespace

// Requires an uninitialised or terminated record; an empty stream.
extern "C" QEL_API void qel_stream_init(qel_stream *s) { init(s); }

// Requires an initialised stream; releases its bytes.
extern "C" QEL_API void qel_stream_term(qel_stream *s) { qel_detail::bytes_release(s); }

// Requires an initialised stream and length readable bytes (may lie in the
// stream); the contents become a copy of them.
extern "C" QEL_API void qel_stream_copy(qel_stream *s, const char *bytes, int64_t length) {
  qel_detail::bytes_copy(s, bytes, length);
}

// Requires initialised streams; dst's contents become a copy of src's.
extern "C" QEL_API void qel_stream_clone(const qel_stream *src, qel_stream *dst) {
  if (src == dst) return;
  qel_detail::bytes_copy(dst, src->bytes, used_bytes(src));
}

// Requires an initialised stream and length readable bytes (may lie in the
// stream); appends a copy behind the bytes in use (growth by a factor).
extern "C" QEL_API void qel_stream_append(qel_stream *s, const char *bytes, int64_t length) {
  qel_detail::bytes_append(s, bytes, length);
}

// Requires an initialised stream; capacity of at least n bytes in all (at
// least 1.5 times the old one when it grows), contents kept.
extern "C" QEL_API void qel_stream_expand(qel_stream *s, int64_t n) {
  if (n <= s->capacity || n > qel_detail::kMaxBytes) return;
  int64_t cap = s->capacity + s->capacity / 2;
  qel_detail::bytes_reserve_exact(s, cap > n ? cap : n);
}

// Requires an initialised stream; zeroes bytes offset..offset+n-1 (clipped
// to the capacity) and cuts length to at most offset.  Negative offset or n:
// nothing changes.
extern "C" QEL_API void qel_stream_zero(qel_stream *s, int64_t offset, int64_t n) {
  if (offset < 0 || n < 0) return;
  if (offset < s->capacity) {
    const int64_t end = n > s->capacity - offset ? s->capacity : offset + n;
    if (end > offset) std::memset(s->bytes + offset, 0, static_cast<size_t>(end - offset));
  }
  if (s->length > offset) s->length = offset;
}

// Requires an initialised stream; length becomes min(length, max(n, 0)).
extern "C" QEL_API void qel_stream_shrink(qel_stream *s, int64_t n) { shrink(s, n); }

// Requires an initialised stream and any string record (it need not be
// initialised); exchanges bytes, length and capacity and touches nothing else.
extern "C" QEL_API void qel_stream_swap_string(qel_stream *s, qel_string *str) {
  char *bytes = s->bytes;
  int64_t length = s->length;
  int64_t capacity = s->capacity;
  s->bytes = str->bytes;
  s->length = str->length;
  s->capacity = str->capacity;
  str->bytes = bytes;
  str->length = length;
  str->capacity = capacity;
}

// Requires an uninitialised or terminated record; an empty string.
extern "C" QEL_API void qel_string_init(qel_string *s) { init(s); }

// Requires an initialised string; releases its bytes.
extern "C" QEL_API void qel_string_term(qel_string *s) { qel_detail::bytes_release(s); }

// Requires an initialised string and length readable bytes (may lie in the
// string); the contents become a copy of them.
extern "C" QEL_API void qel_string_copy(qel_string *s, const char *bytes, int64_t length) {
  qel_detail::bytes_copy(s, bytes, length);
}

// Requires an initialised string; length becomes min(length, max(n, 0)).
extern "C" QEL_API void qel_string_shrink(qel_string *s, int64_t n) { shrink(s, n); }

// Requires a string holding its bytes (initialised, or swapped in from a
// stream); removes leading and trailing ASCII whitespace in place.
extern "C" QEL_API void qel_string_trim(qel_string *s) {
  if (s->bytes == nullptr) return;
  int64_t end = used_bytes(s);
  int64_t start = 0;
  while (start < end && is_space(s->bytes[start])) start++;
  while (end > start && is_space(s->bytes[end - 1])) end--;
  if (start > 0 && end > start) std::memmove(s->bytes, s->bytes + start, static_cast<size_t>(end - start));
  s->length = end - start;
}

// Requires view non-NULL and length readable bytes; 0 when the view holds
// exactly these bytes, 1 otherwise (also for negative lengths).
extern "C" QEL_API int qel_char_compare(const qel_char_view *view, const char *bytes, int64_t length) {
  if (view->length != length || length < 0) return 1;
  if (length == 0) return 0;
  if (view->bytes == nullptr || bytes == nullptr) return 1;
  return std::memcmp(view->bytes, bytes, static_cast<size_t>(length)) == 0 ? 0 : 1;
}

// Requires the given lengths readable at a and b (a negative length, or a
// NULL pointer, counts as empty); -1, 0 or 1 by unsigned bytes over the
// common length, then the shorter first.
extern "C" QEL_API int qel_mem_cmp(const void *a, int64_t a_length, const void *b, int64_t b_length) {
  const size_t an = a == nullptr || a_length < 0 ? 0 : static_cast<size_t>(a_length);
  const size_t bn = b == nullptr || b_length < 0 ? 0 : static_cast<size_t>(b_length);
  return qel_detail::compare_bytes(static_cast<const char *>(a), an, static_cast<const char *>(b), bn);
}
