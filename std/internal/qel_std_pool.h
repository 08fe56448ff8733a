// qel_std_pool.h - how a qel_array entry maps to bytes of its pool.
//
// Private to libqel_std.  Callers may write entries and the pool directly,
// so every reader goes through entry_view(), which treats an entry reaching
// outside the bytes in use as the empty string instead of reading past them.
#ifndef QEL_STD_POOL_H
#define QEL_STD_POOL_H

#include "qel_std_bytes.h"

#pragma GCC visibility push(hidden)

namespace qel_detail {

// A pool holds at most this many bytes: offsets and lengths are 32-bit.
inline constexpr int64_t kPoolLimit = UINT32_MAX;

// One string of a qel_array: its bytes (NULL only when n is 0) and length.
struct view {
  const char *p;
  size_t n;
};

// Requires an initialised array; the bytes of e, empty when e lies outside
// the pool's bytes in use.
inline view entry_view(const qel_array *a, const qel_array_entry &e) {
  const int64_t used = used_bytes(&a->pool);
  if (static_cast<int64_t>(e.offset) + static_cast<int64_t>(e.length) > used || a->pool.bytes == nullptr)
    return view{nullptr, 0};
  return view{a->pool.bytes + e.offset, e.length};
}

// Requires nothing; whether (bytes, length) is a string an array can take:
// length 0 to 4 GiB - 1, and bytes not NULL unless length is 0.
inline bool storable(const char *bytes, int64_t length) {
  return length >= 0 && length <= kPoolLimit && (bytes != nullptr || length == 0);
}

}  // namespace qel_detail

#pragma GCC visibility pop

#endif  // QEL_STD_POOL_H
