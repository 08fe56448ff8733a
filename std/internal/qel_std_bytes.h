// qel_std_bytes.h - growable byte buffers (qel_stream, qel_string, pools).
//
// Private to libqel_std.  qel_stream and qel_string share one layout
// (bytes, length, capacity), so one set of templates serves both, and the
// string pool of qel_array is a qel_stream.  Bytes between length and
// capacity are always defined: zero-filled whenever a buffer grows.
#ifndef QEL_STD_BYTES_H
#define QEL_STD_BYTES_H

#include "qel_std_inline.h"

#pragma GCC visibility push(hidden)

namespace qel_detail {

// Largest byte buffer: beyond any real memory, small enough never to overflow.
inline constexpr int64_t kMaxBytes = INT64_MAX / 4;

// Requires nothing; whether p lies inside the size bytes at base (false for
// NULL).  Compares addresses as integers, which is defined for any pointers.
inline bool points_into(const void *p, const void *base, int64_t size) {
  if (p == nullptr || base == nullptr || size <= 0) return false;
  auto pp = reinterpret_cast<uintptr_t>(p);
  auto bb = reinterpret_cast<uintptr_t>(base);
  return pp >= bb && pp - bb < static_cast<uintptr_t>(size);
}

// Requires a buffer record; its length clamped to 0..capacity.
template <typename S>
inline int64_t used_bytes(const S *s) {
  int64_t n = s->length;
  if (n < 0) return 0;
  return n < s->capacity ? n : s->capacity;
}

// Requires an initialised buffer and needed <= kMaxBytes; capacity of
// exactly max(capacity, needed), new bytes zeroed.
template <typename S>
inline void bytes_reserve_exact(S *s, int64_t needed) {
  if (needed <= s->capacity) return;
  s->bytes = static_cast<char *>(xrealloc(s->bytes, static_cast<size_t>(needed)));
  std::memset(s->bytes + s->capacity, 0, static_cast<size_t>(needed - s->capacity));
  s->capacity = needed;
}

// Requires an initialised buffer and needed <= kMaxBytes; capacity of at
// least needed, grown by a factor of 1.5 (at least 16 bytes).
template <typename S>
inline void bytes_reserve(S *s, int64_t needed) {
  if (needed <= s->capacity) return;
  int64_t cap = s->capacity + s->capacity / 2;
  if (cap < 16) cap = 16;
  if (cap < needed) cap = needed;
  if (cap > kMaxBytes) cap = kMaxBytes;
  bytes_reserve_exact(s, cap);
}

// Requires an initialised buffer; length bytes at src readable (src may lie
// inside the buffer itself).  Appends them; false (and no change) for a
// negative length, NULL src with a positive length, or a size beyond reach.
template <typename S>
inline bool bytes_append(S *s, const char *src, int64_t length) {
  if (length < 0 || (src == nullptr && length > 0)) return false;
  int64_t used = used_bytes(s);
  if (length > kMaxBytes - used) return false;
  if (length == 0) {
    s->length = used;
    return true;
  }
  if (used + length > s->capacity) {
    if (points_into(src, s->bytes, s->capacity)) {
      auto off = reinterpret_cast<uintptr_t>(src) - reinterpret_cast<uintptr_t>(s->bytes);
      bytes_reserve(s, used + length);
      src = s->bytes + off;
    } else {
      bytes_reserve(s, used + length);
    }
  }
  std::memmove(s->bytes + used, src, static_cast<size_t>(length));
  s->length = used + length;
  return true;
}

// Requires an initialised buffer; length bytes at src readable (may alias).
// Replaces the contents; false (and no change) on the same bad input as
// bytes_append.
template <typename S>
inline bool bytes_copy(S *s, const char *src, int64_t length) {
  if (length < 0 || (src == nullptr && length > 0) || length > kMaxBytes) return false;
  if (length > s->capacity) {
    if (points_into(src, s->bytes, s->capacity)) {
      auto off = reinterpret_cast<uintptr_t>(src) - reinterpret_cast<uintptr_t>(s->bytes);
      bytes_reserve_exact(s, length);
      src = s->bytes + off;
    } else {
      bytes_reserve_exact(s, length);
    }
  }
  if (length > 0) std::memmove(s->bytes, src, static_cast<size_t>(length));
  s->length = length;
  return true;
}

// Requires a buffer record; releases the bytes and leaves it empty.
template <typename S>
inline void bytes_release(S *s) {
  std::free(s->bytes);
  s->bytes = nullptr;
  s->length = 0;
  s->capacity = 0;
}

// Requires `an` bytes readable at a and `bn` at b (either may be NULL when its
// length is 0); byte order: unsigned bytes over the common length, then the
// shorter first.  Negative, 0 or positive.
inline int compare_bytes(const char *a, size_t an, const char *b, size_t bn) {
  size_t common = an < bn ? an : bn;
  if (common != 0) {
    int c = std::memcmp(a, b, common);
    if (c != 0) return c < 0 ? -1 : 1;
  }
  if (an == bn) return 0;
  return an < bn ? -1 : 1;
}

}  // namespace qel_detail

#pragma GCC visibility pop

#endif  // QEL_STD_BYTES_H
