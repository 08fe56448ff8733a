// The light variant: one number or byte string, or an array of them, each
// with a 64-bit caller value.  Codes 1 and 3 keep 32 bits, 2 and 4 keep 64
// bits, 5 keeps byte strings; any other code has no storage.
#include <qel.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <type_traits>

#include "internal/qel_convert.h"
#include "internal/qel_xvar_internal.h"
#include "qel_std_inline.h"
#include "qel_require.h"

namespace {

using namespace qel::light;

// ---- lifecycle steps ----

// Requires: type and multi set, data zeroed or released.  Prepares empty storage.
void qel_xvar_init(qel_xvar *v) {
  if (v->multi) {
    switch (v->type) {
      case QEL_XVAR_UINT32:
      case QEL_XVAR_FLOAT: qel_arrayd_init(&v->data.arrayd, 0); break;
      case QEL_XVAR_INT64:
      case QEL_XVAR_DOUBLE: qel_arrayx_init(&v->data.arrayx, 0); break;
      case QEL_XVAR_BYTES: qel_array_init(&v->data.array, 0); break;
      default: break;
    }
    return;
  }
  switch (v->type) {
    case QEL_XVAR_UINT32:
    case QEL_XVAR_FLOAT: v->data.single.value.bits32 = 0; break;
    case QEL_XVAR_INT64:
    case QEL_XVAR_DOUBLE: v->data.single.value.bits64 = 0; break;
    case QEL_XVAR_BYTES: qel_string_init(&v->data.single.value.string); break;
    default: return;
  }
  v->data.single.buf = 0;
}

// Requires: storage prepared for type and multi.  Releases it; type and multi stay.
void qel_xvar_free_x(qel_xvar *v) {
  if (v->multi) {
    switch (v->type) {
      case QEL_XVAR_UINT32:
      case QEL_XVAR_FLOAT: qel_arrayd_term(&v->data.arrayd); break;
      case QEL_XVAR_INT64:
      case QEL_XVAR_DOUBLE: qel_arrayx_term(&v->data.arrayx); break;
      case QEL_XVAR_BYTES: qel_array_term(&v->data.array); break;
      default: break;
    }
    return;
  }
  switch (v->type) {
    case QEL_XVAR_UINT32:
    case QEL_XVAR_FLOAT: v->data.single.value.bits32 = 0; break;
    case QEL_XVAR_INT64:
    case QEL_XVAR_DOUBLE: v->data.single.value.bits64 = 0; break;
    case QEL_XVAR_BYTES: qel_string_term(&v->data.single.value.string); break;
    default: return;
  }
  v->data.single.buf = 0;
}

// Requires: an array header whose entries below capacity exist.  Entry count
// after a shrink: n = 0 empties, negative n changes nothing, else min(n, capacity).
template <class A>
void shrink_array(A &a, int64_t n, void (*remove_all)(A *)) {
  if (n == 0) remove_all(&a);
  else if (n > 0) a.count = n < a.capacity ? n : a.capacity;
}

// ---- numbers ----

// Requires: an array header.  Value of entry i, 0 outside 0..count-1 (and
// beyond the capacity).
template <class A>
auto value_at(const A &a, int64_t i) -> decltype(a.entries->value) {
  return qel_detail::in_range(&a, i) ? a.entries[i].value : 0;
}

// Requires: a valid record; C is int64_t, float or double.  Appends in the multi form.
template <class C>
[[gnu::noinline]] void add_number_any(qel_xvar *v, C value) {
  if (!v->multi) return;
  switch (v->type) {
    case QEL_XVAR_UINT32:
    case QEL_XVAR_FLOAT: qel_detail::append(&v->data.arrayd, to_bits32(v->type, value), 0); break;
    case QEL_XVAR_INT64:
    case QEL_XVAR_DOUBLE: qel_detail::append(&v->data.arrayx, to_bits64(v->type, value), 0); break;
    default: break;
  }
}

// The code a caller kind C meets with no conversion beyond its own bits
// (an integer: the signed 64-bit code), and that code's array.
template <class C>
inline constexpr uint32_t kNativeCode = std::is_same_v<C, double>  ? QEL_XVAR_DOUBLE
                                        : std::is_same_v<C, float> ? QEL_XVAR_FLOAT
                                                                   : QEL_XVAR_INT64;
template <class C>
auto *native_array(qel_xvar *v) {
  if constexpr (is_narrow(kNativeCode<C>)) return &v->data.arrayd;
  else return &v->data.arrayx;
}
template <class C>
const auto *native_array(const qel_xvar *v) {
  if constexpr (is_narrow(kNativeCode<C>)) return &v->data.arrayd;
  else return &v->data.arrayx;
}
// Requires C's native code; the bits stored for value.
template <class C>
auto native_bits(C value) {
  if constexpr (is_narrow(kNativeCode<C>)) return to_bits32(kNativeCode<C>, value);
  else return to_bits64(kNativeCode<C>, value);
}

// Requires: a valid record.  An array of the caller kind's own code takes a
// straight path with no jump taken (the append's rare cases are one tail
// call); everything else goes through the full dispatch.
template <class C>
inline void add_number(qel_xvar *v, C value) {
  if (v->type != kNativeCode<C> || !v->multi) [[unlikely]]
    return add_number_any(v, value);
  qel_detail::append(native_array<C>(v), native_bits(value), 0);
}

// Requires: a valid record; buf_out NULL or writable.  Keyed insert in the multi form.
template <class C>
void add_number_x(qel_xvar *v, C value, uint64_t **buf_out) {
  uint64_t *found = nullptr;
  if (v->multi) {
    switch (v->type) {
      case QEL_XVAR_UINT32:
      case QEL_XVAR_FLOAT: {
        qel_arrayd_entry *e = qel_arrayd_entry_insert(&v->data.arrayd, to_bits32(v->type, value));
        if (e) found = &e->buf;
        break;
      }
      case QEL_XVAR_INT64:
      case QEL_XVAR_DOUBLE: {
        qel_arrayx_entry *e = qel_arrayx_entry_insert(&v->data.arrayx, to_bits64(v->type, value));
        if (e) found = &e->buf;
        break;
      }
      default: break;
    }
  }
  if (buf_out) *buf_out = found;
}

// Requires: a valid record.  Overwrites one value; the single form ignores index.
template <class C>
void set_number(qel_xvar *v, int64_t index, C value) {
  const uint32_t t = v->type;
  if (!is_number(t)) return;
  if (!v->multi) {
    if (is_narrow(t)) v->data.single.value.bits32 = to_bits32(t, value);
    else v->data.single.value.bits64 = static_cast<uint64_t>(to_bits64(t, value));
  } else if (is_narrow(t)) {
    qel_detail::set_at(&v->data.arrayd, index, to_bits32(t, value), 0);
  } else {
    qel_detail::set_at(&v->data.arrayx, index, to_bits64(t, value), 0);
  }
}

// Requires: a valid record.  One value in the caller's kind; 0 when there is none.
template <class R>
[[gnu::noinline]] R get_number_any(const qel_xvar *v, int64_t index) {
  const uint32_t t = v->type;
  if (!is_number(t)) return R{0};
  if (is_narrow(t)) {
    const uint32_t bits = v->multi ? value_at(v->data.arrayd, index) : v->data.single.value.bits32;
    return from_bits32<R>(t, bits);
  }
  const int64_t bits = v->multi ? value_at(v->data.arrayx, index) : static_cast<int64_t>(v->data.single.value.bits64);
  return from_bits64<R>(t, bits);
}

// Requires: a valid record.  As add_number: an element of the caller kind's
// own code is read on a straight path.
template <class R>
inline R get_number(const qel_xvar *v, int64_t index) {
  if (v->type != kNativeCode<R> || !v->multi || !qel_detail::in_range(native_array<R>(v), index)) [[unlikely]]
    return get_number_any<R>(v, index);
  const auto bits = native_array<R>(v)->entries[index].value;
  if constexpr (is_narrow(kNativeCode<R>)) return from_bits32<R>(kNativeCode<R>, bits);
  else return from_bits64<R>(kNativeCode<R>, bits);
}

// ---- caller values ----

// Requires: an array header.  The caller value of entry index (negative: the
// last entry in use), or NULL when that is not below the capacity.
template <class A>
uint64_t *buf_slot(const A &a, int64_t index) {
  if (index < 0) index = qel_detail::in_use(&a) - 1;
  if (index < 0 || index >= a.capacity) return nullptr;
  return &a.entries[index].buf;
}

// Requires: a valid record.  The caller value addressed by index, or NULL.
uint64_t *buf_of(const qel_xvar *v, int64_t index) {
  if (!v->multi) return const_cast<uint64_t *>(&v->data.single.buf);
  switch (v->type) {
    case QEL_XVAR_UINT32:
    case QEL_XVAR_FLOAT: return buf_slot(v->data.arrayd, index);
    case QEL_XVAR_INT64:
    case QEL_XVAR_DOUBLE: return buf_slot(v->data.arrayx, index);
    case QEL_XVAR_BYTES: return buf_slot(v->data.array, index);
    default: return nullptr;
  }
}

// Requires: s a valid string; bytes readable for length.  True when the bytes
// lie inside the string's own allocation.
bool inside(const qel_string &s, const char *bytes, int64_t length) {
  if (!s.bytes || length <= 0) return false;
  const std::less_equal<const char *> le;
  return le(s.bytes, bytes) && le(bytes, s.bytes + s.capacity);
}

}  // namespace

// ---- lifecycle ----

// Requires nothing.  A new record with empty storage for (type, multi).
extern "C" QEL_API qel_xvar *qel_xvar_new(uint32_t type, uint8_t multi) {
  auto *v = static_cast<qel_xvar *>(qel_malloc(sizeof(qel_xvar)));
  if (!v) return nullptr;
  std::memset(v, 0, sizeof *v);
  v->type = type;
  v->multi = multi;
  qel_xvar_init(v);
  return v;
}

// Requires a valid record.  Re-forms it empty unless type and multi byte are unchanged.
extern "C" QEL_API void qel_xvar_change(qel_xvar *v, uint32_t type, uint8_t multi) {
  QEL_REQUIRE(v != nullptr);
  if (v->type == type && v->multi == multi) return;
  qel_xvar_free_x(v);
  std::memset(&v->data, 0, sizeof v->data);
  v->type = type;
  v->multi = multi;
  qel_xvar_init(v);
}

// Requires a record from qel_xvar_new; it is not used afterwards.
extern "C" QEL_API void qel_xvar_free(qel_xvar *v) {
  QEL_REQUIRE(v != nullptr);
  qel_xvar_free_x(v);
  qel_free(v);
}

// Requires a valid record.  Single: clears value (a string is cut to n) and buf.
// Multi: see shrink_array.
extern "C" QEL_API void qel_xvar_shrink(qel_xvar *v, int64_t n) {
  QEL_REQUIRE(v != nullptr);
  if (v->multi) {
    switch (v->type) {
      case QEL_XVAR_UINT32:
      case QEL_XVAR_FLOAT: shrink_array(v->data.arrayd, n, qel_arrayd_remove_all); break;
      case QEL_XVAR_INT64:
      case QEL_XVAR_DOUBLE: shrink_array(v->data.arrayx, n, qel_arrayx_remove_all); break;
      case QEL_XVAR_BYTES: shrink_array(v->data.array, n, qel_array_remove_all); break;
      default: break;
    }
    return;
  }
  switch (v->type) {
    case QEL_XVAR_UINT32:
    case QEL_XVAR_FLOAT: v->data.single.value.bits32 = 0; break;
    case QEL_XVAR_INT64:
    case QEL_XVAR_DOUBLE: v->data.single.value.bits64 = 0; break;
    case QEL_XVAR_BYTES: qel_string_shrink(&v->data.single.value.string, n); break;
    default: return;
  }
  v->data.single.buf = 0;
}

// Requires a valid record.  Entries in use of an array; 0 for the single form.
extern "C" QEL_API int64_t qel_xvar_size(const qel_xvar *v) {
  QEL_REQUIRE(v != nullptr);
  if (!v->multi) return 0;
  switch (v->type) {
    case QEL_XVAR_UINT32:
    case QEL_XVAR_FLOAT: return qel_detail::in_use(&v->data.arrayd);
    case QEL_XVAR_INT64:
    case QEL_XVAR_DOUBLE: return qel_detail::in_use(&v->data.arrayx);
    case QEL_XVAR_BYTES: return qel_detail::in_use(&v->data.array);
    default: return 0;
  }
}

// Requires a valid record.
extern "C" QEL_API uint32_t qel_xvar_type(const qel_xvar *v) {
  QEL_REQUIRE(v != nullptr);
  return v->type;
}

// Requires a valid record.  The multi byte, sign-extended.
extern "C" QEL_API int qel_xvar_multi(const qel_xvar *v) {
  QEL_REQUIRE(v != nullptr);
  return static_cast<int8_t>(v->multi);
}

// ---- numbers ----

// Requires a valid record.  Appends to an array of codes 1 to 4.
extern "C" QEL_API void qel_xvar_add_integer(qel_xvar *v, int64_t value) {
  QEL_REQUIRE(v != nullptr);
  add_number(v, value);
}
extern "C" QEL_API void qel_xvar_add_long(qel_xvar *v, int64_t value) {
  QEL_REQUIRE(v != nullptr);
  add_number(v, value);
}
extern "C" QEL_API void qel_xvar_add_float(qel_xvar *v, float value) {
  QEL_REQUIRE(v != nullptr);
  add_number(v, value);
}
extern "C" QEL_API void qel_xvar_add_double(qel_xvar *v, double value) {
  QEL_REQUIRE(v != nullptr);
  add_number(v, value);
}

// Requires a valid record; buf_out NULL or writable.  Keyed insert; *buf_out
// gets the entry's caller value address, or NULL.
extern "C" QEL_API void qel_xvar_add_integer_x(qel_xvar *v, int64_t value, uint64_t **buf_out) {
  QEL_REQUIRE(v != nullptr);
  add_number_x(v, value, buf_out);
}
extern "C" QEL_API void qel_xvar_add_long_x(qel_xvar *v, int64_t value, uint64_t **buf_out) {
  QEL_REQUIRE(v != nullptr);
  add_number_x(v, value, buf_out);
}
extern "C" QEL_API void qel_xvar_add_float_x(qel_xvar *v, float value, uint64_t **buf_out) {
  QEL_REQUIRE(v != nullptr);
  add_number_x(v, value, buf_out);
}
extern "C" QEL_API void qel_xvar_add_double_x(qel_xvar *v, double value, uint64_t **buf_out) {
  QEL_REQUIRE(v != nullptr);
  add_number_x(v, value, buf_out);
}

// Requires a valid record.  Overwrites a value of codes 1 to 4; buf stays in the single form.
extern "C" QEL_API void qel_xvar_set_integer(qel_xvar *v, int64_t index, int64_t value) {
  QEL_REQUIRE(v != nullptr);
  set_number(v, index, value);
}
extern "C" QEL_API void qel_xvar_set_long(qel_xvar *v, int64_t index, int64_t value) {
  QEL_REQUIRE(v != nullptr);
  set_number(v, index, value);
}
extern "C" QEL_API void qel_xvar_set_float(qel_xvar *v, int64_t index, float value) {
  QEL_REQUIRE(v != nullptr);
  set_number(v, index, value);
}
extern "C" QEL_API void qel_xvar_set_double(qel_xvar *v, int64_t index, double value) {
  QEL_REQUIRE(v != nullptr);
  set_number(v, index, value);
}

// Requires a valid record.  A value of codes 1 to 4 in the caller's kind, else 0.
extern "C" QEL_API int64_t qel_xvar_get_integer(const qel_xvar *v, int64_t index) {
  QEL_REQUIRE(v != nullptr);
  return get_number<int64_t>(v, index);
}
extern "C" QEL_API int64_t qel_xvar_get_long(const qel_xvar *v, int64_t index) {
  QEL_REQUIRE(v != nullptr);
  return get_number<int64_t>(v, index);
}
extern "C" QEL_API float qel_xvar_get_float(const qel_xvar *v, int64_t index) {
  QEL_REQUIRE(v != nullptr);
  return get_number<float>(v, index);
}
extern "C" QEL_API double qel_xvar_get_double(const qel_xvar *v, int64_t index) {
  QEL_REQUIRE(v != nullptr);
  return get_number<double>(v, index);
}

// ---- strings ----

// Requires a valid record; str readable for length bytes (or NULL-terminated
// when length is negative).  Appends to a string array.
extern "C" QEL_API void qel_xvar_add_string(qel_xvar *v, const char *str, int64_t length) {
  QEL_REQUIRE(v != nullptr);
  if (!v->multi || v->type != QEL_XVAR_BYTES) return;
  if (!resolve_string(str, length)) return;
  qel_array_append(&v->data.array, str, length, 0);
}

// Requires: as qel_xvar_add_string; buf_out NULL or writable.  Keyed insert.
extern "C" QEL_API void qel_xvar_add_string_x(qel_xvar *v, const char *str, int64_t length, uint64_t **buf_out) {
  QEL_REQUIRE(v != nullptr);
  uint64_t *found = nullptr;
  if (v->multi && v->type == QEL_XVAR_BYTES && resolve_string(str, length)) {
    qel_array_entry *e = qel_array_entry_insert(&v->data.array, str, length);
    if (e < v->data.array.entries + v->data.array.count) found = &e->buf;  // else refused
  }
  if (buf_out) *buf_out = found;
}

// Requires: as qel_xvar_add_string.  Replaces the string (single) or entry index (array).
extern "C" QEL_API void qel_xvar_set_string(qel_xvar *v, int64_t index, const char *str, int64_t length) {
  QEL_REQUIRE(v != nullptr);
  if (!resolve_string(str, length) || v->type != QEL_XVAR_BYTES) return;
  if (v->multi) {
    qel_array_set_at(&v->data.array, index, str, length, 0);
    return;
  }
  qel_string *s = &v->data.single.value.string;
  if (!inside(*s, str, length)) {
    qel_string_copy(s, str, length);
    return;
  }
  // The bytes are the string's own: copy them out before it may move.
  char *copy = static_cast<char *>(qel_malloc(static_cast<size_t>(length)));
  std::memcpy(copy, str, static_cast<size_t>(length));
  qel_string_copy(s, copy, length);
  qel_free(copy);
}

// Requires a valid record; both outputs NULL or writable.  The bytes stay the
// record's, valid until it next changes; NULL and 0 when there is no string.
extern "C" QEL_API void qel_xvar_get_string(const qel_xvar *v, int64_t index, const char **str_out,
                                            int64_t *length_out) {
  QEL_REQUIRE(v != nullptr);
  const char *bytes = nullptr;
  int64_t length = 0;
  if (v->type == QEL_XVAR_BYTES) {
    if (!v->multi) {
      bytes = v->data.single.value.string.bytes;
      length = v->data.single.value.string.length;
    } else {
      qel_array_get_at(&v->data.array, index, &bytes, &length);
    }
  }
  if (str_out) *str_out = bytes;
  if (length_out) *length_out = length;
}

// ---- caller values ----

// Requires a valid record.  Single: buf, any code.  Multi (codes 1 to 5): entry
// index, negative meaning the last in use, ignored at or above the capacity.
extern "C" QEL_API void qel_xvar_set_buf(qel_xvar *v, int64_t index, uint64_t value) {
  QEL_REQUIRE(v != nullptr);
  if (uint64_t *slot = buf_of(v, index)) *slot = value;
}

// Requires a valid record.  As qel_xvar_set_buf; 0 where that would do nothing.
extern "C" QEL_API uint64_t qel_xvar_get_buf(const qel_xvar *v, int64_t index) {
  QEL_REQUIRE(v != nullptr);
  const uint64_t *slot = buf_of(v, index);
  return slot ? *slot : 0;
}
