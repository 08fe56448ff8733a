// The column set: many light variants of one type code and form stored back
// to back in one value array `data`, with an index entry per light variant
// (value = start position in data, buf = count of values).  Entries are only
// appended; only the last one grows.  Positions are 32-bit, so a column holds
// fewer than 2^32 values and a string column's pool stays below 4 GiB: an
// append that would pass either limit is refused whole.
#include <qel.h>

#include <cstdint>
#include <cstring>

#include "internal/qel_convert.h"
#include "internal/qel_xvar_internal.h"
#include "qel_std_inline.h"
#include "qel_require.h"

namespace {

using namespace qel::light;
using qel::conv::low32;

// ---- index and positions ----

// Requires nothing.  Values of an index entry (its buf, cut to 32 bits).
int64_t entry_count(const qel_arrayd_entry &e) { return static_cast<int64_t>(e.buf & 0xFFFFFFFFu); }

// Requires a valid column set.  Values in data; 0 for codes without storage.
int64_t data_count(const qel_xvars *xs) {
  switch (xs->type) {
    case QEL_XVAR_UINT32:
    case QEL_XVAR_FLOAT: return xs->data.arrayd.count;
    case QEL_XVAR_INT64:
    case QEL_XVAR_DOUBLE: return xs->data.arrayx.count;
    case QEL_XVAR_BYTES: return xs->data.array.count;
    default: return 0;
  }
}

// Requires a valid column set.  The index entry `entry`, or NULL when out of range.
const qel_arrayd_entry *entry_at(const qel_xvars *xs, int64_t entry) {
  if (entry < 0 || entry >= xs->index.count) return nullptr;
  return &xs->index.entries[entry];
}

// Requires a valid column set.  Position in data of (entry, pos): the single
// form ignores pos, the multi form needs 0 <= pos < count.  -1 when there is
// no such value.
int64_t locate(const qel_xvars *xs, int64_t entry, int64_t pos) {
  const qel_arrayd_entry *e = entry_at(xs, entry);
  if (!e) return -1;
  int64_t at = e->value;
  if (xs->multi) {
    if (pos < 0 || pos >= entry_count(*e)) return -1;
    at += pos;
  }
  return at < data_count(xs) ? at : -1;
}

// Where a value-by-value add goes.
enum class target { none, fresh, last };

// Requires a valid column set.  `entry` must be the entry count (a new entry)
// or the last entry; anything else is refused.
target add_target(const qel_xvars *xs, int64_t entry) {
  const int64_t n = xs->index.count;
  if (entry == n) return target::fresh;
  if (n > 0 && entry == n - 1) return target::last;
  return target::none;
}

// Requires: one value was just appended to data, which held `before` values.
// Records it in the index: a new entry of one value, or one more in the last.
void commit_add(qel_xvars *xs, target t, int64_t before) {
  if (t == target::fresh) qel_detail::append(&xs->index, low32(before), 1);
  else xs->index.entries[xs->index.count - 1].buf += 1;
}

// Requires: a string array.  Total bytes of entries [from, from + n), or -1
// when one of them lies outside the pool.
int64_t string_bytes(const qel_array &a, int64_t from, int64_t n) {
  int64_t total = 0;
  for (int64_t k = from; k < from + n; ++k) {
    const qel_array_entry &e = a.entries[k];
    if (int64_t{e.offset} + int64_t{e.length} > a.pool.length) return -1;
    total += e.length;
  }
  return total;
}

// ---- numbers ----

// Requires a valid column set; C is int64_t, float or double.  Appends one
// value to the last entry or a new one (multi form, codes 1 to 4).
template <class C>
void add_number(qel_xvars *xs, int64_t entry, C value) {
  const uint32_t t = xs->type;
  if (!xs->multi || !is_number(t)) return;
  const target where = add_target(xs, entry);
  const int64_t before = data_count(xs);
  if (where == target::none || !values_fit(before, 1)) return;
  if (is_narrow(t)) qel_detail::append(&xs->data.arrayd, to_bits32(t, value), 0);
  else qel_detail::append(&xs->data.arrayx, to_bits64(t, value), 0);
  if (data_count(xs) == before + 1) commit_add(xs, where, before);
}

// Requires a valid column set.  Overwrites one value; its caller value becomes 0.
template <class C>
void set_number(qel_xvars *xs, int64_t entry, int64_t pos, C value) {
  const uint32_t t = xs->type;
  if (!is_number(t)) return;
  const int64_t at = locate(xs, entry, pos);
  if (at < 0) return;
  if (is_narrow(t)) {
    xs->data.arrayd.entries[at].value = to_bits32(t, value);
    xs->data.arrayd.entries[at].buf = 0;
  } else {
    xs->data.arrayx.entries[at].value = to_bits64(t, value);
    xs->data.arrayx.entries[at].buf = 0;
  }
}

// Requires a valid column set.  One value in the caller's kind; 0 when there is none.
template <class R>
R get_number(const qel_xvars *xs, int64_t entry, int64_t pos) {
  const uint32_t t = xs->type;
  if (!is_number(t)) return R{0};
  const int64_t at = locate(xs, entry, pos);
  if (at < 0) return R{0};
  if (is_narrow(t)) return from_bits32<R>(t, xs->data.arrayd.entries[at].value);
  return from_bits64<R>(t, xs->data.arrayx.entries[at].value);
}

// ---- whole entries ----

// Requires: a multi column of codes 1 to 4 holding `before` values, and the
// same kind of array `src`.  Appends all of src's entries as one new entry.
template <class A>
void add_array(qel_xvars *xs, A &data, const A &src, void (*append_array)(A *, const A *)) {
  const int64_t before = data.count;
  const int64_t n = qel_detail::in_use(&src);
  if (!values_fit(before, n)) return;
  append_array(&data, &src);
  if (data.count != before + n) return;
  qel_detail::append(&xs->index, low32(before), static_cast<uint64_t>(n));
}

// Requires: a string column holding `before` values, multi form, and x a
// multi string light variant.  Appends all its strings as one new entry.
void add_strings(qel_xvars *xs, const qel_array &src) {
  qel_array &data = xs->data.array;
  const int64_t before = data.count;
  const int64_t n = qel_detail::in_use(&src);
  if (!values_fit(before, n)) return;
  // The source pool bounds its live bytes; count them only when that bound is too big.
  if (!bytes_fit(data.pool.length, src.pool.length)) {
    const int64_t total = string_bytes(src, 0, n);
    if (total < 0 || !bytes_fit(data.pool.length, total)) return;
  }
  qel_array_append_array(&data, &src);
  if (data.count != before + n) return;
  qel_detail::append(&xs->index, low32(before), static_cast<uint64_t>(n));
}

// Requires: x a multi light variant whose array is of kind A, and `data`
// holding n entries from s.  Makes x's array exactly those n entries.
template <class A>
void fetch_array(const A &data, int64_t s, int64_t n, A &dst, void (*expand)(A *, int64_t)) {
  // The entries are rewritten in place, so the keyed-insert index goes either way.
  if (n > dst.capacity) expand(&dst, n);
  else if (dst.priv_lookup) qel_detail::drop_lookup(&dst);
  if (n > 0) std::memcpy(dst.entries, data.entries + s, static_cast<size_t>(n) * sizeof *dst.entries);
  dst.count = n;
}

// Requires: as fetch_array for strings.  Appends the n strings' bytes behind
// x's pool and makes x's array exactly those n entries.  Refused whole when
// x's pool would pass the 32-bit limit.
void fetch_strings(const qel_array &data, int64_t s, int64_t n, qel_array &dst) {
  const int64_t total = string_bytes(data, s, n);
  if (total < 0 || !bytes_fit(dst.pool.length, total)) return;
  qel_array_expand(&dst, n);
  const int64_t need = dst.pool.length + total;
  if (need > dst.pool.capacity) {
    // Grow by a factor: repeated fetches into one light variant keep appending.
    const int64_t grown = dst.pool.capacity + dst.pool.capacity / 2;
    qel_stream_expand(&dst.pool, need > grown ? need : grown);
  }
  for (int64_t k = 0; k < n; ++k) {
    const qel_array_entry &from = data.entries[s + k];
    qel_array_entry &to = dst.entries[k];
    to.offset = low32(dst.pool.length);
    if (from.length) qel_stream_append(&dst.pool, data.pool.bytes + from.offset, from.length);
    to.length = from.length;
    to.buf = from.buf;
  }
  dst.count = n;
}

// ---- caller values ----

// Requires a valid column set.  Address of the caller value at (entry, pos) of
// a multi column, negative pos meaning the entry's last value; NULL if none.
uint64_t *buf_of(const qel_xvars *xs, int64_t entry, int64_t pos) {
  if (!xs->multi || !has_storage(xs->type)) return nullptr;
  const qel_arrayd_entry *e = entry_at(xs, entry);
  if (!e) return nullptr;
  const int64_t count = entry_count(*e);
  if (pos < 0) pos = count - 1;
  if (pos < 0 || pos >= count) return nullptr;
  const int64_t at = int64_t{e->value} + pos;
  if (at >= data_count(xs)) return nullptr;
  switch (xs->type) {
    case QEL_XVAR_UINT32:
    case QEL_XVAR_FLOAT: return &xs->data.arrayd.entries[at].buf;
    case QEL_XVAR_INT64:
    case QEL_XVAR_DOUBLE: return &xs->data.arrayx.entries[at].buf;
    default: return &xs->data.array.entries[at].buf;
  }
}

// ---- lifecycle steps ----

// Requires: type and multi set, index and data zeroed or released.
void qel_xvars_init(qel_xvars *xs) {
  qel_arrayd_init(&xs->index, 0);
  switch (xs->type) {
    case QEL_XVAR_UINT32:
    case QEL_XVAR_FLOAT: qel_arrayd_init(&xs->data.arrayd, 0); break;
    case QEL_XVAR_INT64:
    case QEL_XVAR_DOUBLE: qel_arrayx_init(&xs->data.arrayx, 0); break;
    case QEL_XVAR_BYTES: qel_array_init(&xs->data.array, 0); break;
    default: break;
  }
}

// Requires: index and data prepared by qel_xvars_init.  Releases them.
void qel_xvars_free_x(qel_xvars *xs) {
  qel_arrayd_term(&xs->index);
  switch (xs->type) {
    case QEL_XVAR_UINT32:
    case QEL_XVAR_FLOAT: qel_arrayd_term(&xs->data.arrayd); break;
    case QEL_XVAR_INT64:
    case QEL_XVAR_DOUBLE: qel_arrayx_term(&xs->data.arrayx); break;
    case QEL_XVAR_BYTES: qel_array_term(&xs->data.array); break;
    default: break;
  }
}

}  // namespace

// ---- lifecycle ----

// Requires nothing.  A new, empty column set.
extern "C" QEL_API qel_xvars *qel_xvars_new(uint32_t type, uint8_t multi) {
  auto *xs = static_cast<qel_xvars *>(qel_malloc(sizeof(qel_xvars)));
  if (!xs) return nullptr;
  std::memset(xs, 0, sizeof *xs);
  xs->type = type;
  xs->multi = multi;
  qel_xvars_init(xs);
  return xs;
}

// Requires a valid column set.  Re-forms it empty unless type and multi byte are unchanged.
extern "C" QEL_API void qel_xvars_change(qel_xvars *xs, uint32_t type, uint8_t multi) {
  QEL_REQUIRE(xs != nullptr);
  if (xs->type == type && xs->multi == multi) return;
  qel_xvars_free_x(xs);
  std::memset(&xs->index, 0, sizeof xs->index);
  std::memset(&xs->data, 0, sizeof xs->data);
  xs->type = type;
  xs->multi = multi;
  qel_xvars_init(xs);
}

// Requires a column set from qel_xvars_new; it is not used afterwards.
extern "C" QEL_API void qel_xvars_free(qel_xvars *xs) {
  QEL_REQUIRE(xs != nullptr);
  qel_xvars_free_x(xs);
  qel_free(xs);
}

// Requires a valid column set.  Drops every entry; type and form stay.
extern "C" QEL_API void qel_xvars_shrink(qel_xvars *xs) {
  QEL_REQUIRE(xs != nullptr);
  qel_arrayd_remove_all(&xs->index);
  switch (xs->type) {
    case QEL_XVAR_UINT32:
    case QEL_XVAR_FLOAT: qel_arrayd_remove_all(&xs->data.arrayd); break;
    case QEL_XVAR_INT64:
    case QEL_XVAR_DOUBLE: qel_arrayx_remove_all(&xs->data.arrayx); break;
    case QEL_XVAR_BYTES: qel_array_remove_all(&xs->data.array); break;
    default: break;
  }
}

// Requires a valid column set.  Number of entries.
extern "C" QEL_API int64_t qel_xvars_size(const qel_xvars *xs) {
  QEL_REQUIRE(xs != nullptr);
  return xs->index.count;
}

// Requires a valid column set.
extern "C" QEL_API uint32_t qel_xvars_type(const qel_xvars *xs) {
  QEL_REQUIRE(xs != nullptr);
  return xs->type;
}

// Requires a valid column set.  The multi byte, sign-extended.
extern "C" QEL_API int qel_xvars_multi(const qel_xvars *xs) {
  QEL_REQUIRE(xs != nullptr);
  return static_cast<int8_t>(xs->multi);
}

// Requires a valid column set and light variant.  Appends x as one new entry
// when its type code and multi byte are the column's; a single x's buf is not kept.
extern "C" QEL_API void qel_xvars_add_var(qel_xvars *xs, const qel_xvar *x) {
  QEL_REQUIRE(xs != nullptr);
  QEL_REQUIRE(x != nullptr);
  if (x->type != xs->type || x->multi != xs->multi || !has_storage(xs->type)) return;
  if (xs->multi) {
    switch (xs->type) {
      case QEL_XVAR_UINT32:
      case QEL_XVAR_FLOAT: add_array(xs, xs->data.arrayd, x->data.arrayd, qel_arrayd_append_array); break;
      case QEL_XVAR_INT64:
      case QEL_XVAR_DOUBLE: add_array(xs, xs->data.arrayx, x->data.arrayx, qel_arrayx_append_array); break;
      default: add_strings(xs, x->data.array); break;
    }
    return;
  }
  const int64_t before = data_count(xs);
  if (!values_fit(before, 1)) return;
  switch (xs->type) {
    case QEL_XVAR_UINT32:
    case QEL_XVAR_FLOAT: qel_detail::append(&xs->data.arrayd, x->data.single.value.bits32, 0); break;
    case QEL_XVAR_INT64:
    case QEL_XVAR_DOUBLE:
      qel_detail::append(&xs->data.arrayx, static_cast<int64_t>(x->data.single.value.bits64), 0);
      break;
    default: {
      const qel_string &s = x->data.single.value.string;
      if (s.length < 0 || !bytes_fit(xs->data.array.pool.length, s.length)) return;
      qel_array_append(&xs->data.array, s.bytes ? s.bytes : kEmpty, s.length, 0);
      break;
    }
  }
  if (data_count(xs) == before + 1) qel_detail::append(&xs->index, low32(before), 1);
}

// Requires a valid column set and light variant.  Copies entry `entry` into x
// when x has the column's type code and multi byte.  Single: the value (x's
// buf stays).  Multi: x's array becomes the entry's values with their caller
// values; string bytes go behind what x's pool held.
extern "C" QEL_API void qel_xvars_fetch_var(const qel_xvars *xs, int64_t entry, qel_xvar *x) {
  QEL_REQUIRE(xs != nullptr);
  QEL_REQUIRE(x != nullptr);
  if (x->type != xs->type || x->multi != xs->multi || !has_storage(xs->type)) return;
  const qel_arrayd_entry *e = entry_at(xs, entry);
  if (!e) return;
  const int64_t s = e->value;
  const int64_t n = xs->multi ? entry_count(*e) : 1;
  if (s + n > data_count(xs)) return;
  if (xs->multi) {
    switch (xs->type) {
      case QEL_XVAR_UINT32:
      case QEL_XVAR_FLOAT: fetch_array(xs->data.arrayd, s, n, x->data.arrayd, qel_arrayd_expand); break;
      case QEL_XVAR_INT64:
      case QEL_XVAR_DOUBLE: fetch_array(xs->data.arrayx, s, n, x->data.arrayx, qel_arrayx_expand); break;
      default: fetch_strings(xs->data.array, s, n, x->data.array); break;
    }
    return;
  }
  switch (xs->type) {
    case QEL_XVAR_UINT32:
    case QEL_XVAR_FLOAT: x->data.single.value.bits32 = xs->data.arrayd.entries[s].value; break;
    case QEL_XVAR_INT64:
    case QEL_XVAR_DOUBLE: x->data.single.value.bits64 = static_cast<uint64_t>(xs->data.arrayx.entries[s].value); break;
    default: {
      const qel_array &a = xs->data.array;
      const qel_array_entry &v = a.entries[s];
      if (int64_t{v.offset} + int64_t{v.length} > a.pool.length) return;
      qel_string_copy(&x->data.single.value.string, v.length ? a.pool.bytes + v.offset : kEmpty, v.length);
      break;
    }
  }
}

// Requires a valid column set.  Values of a multi entry; 0 for the single form
// and for entries out of range.
extern "C" QEL_API int64_t qel_xvars_get_size(const qel_xvars *xs, int64_t entry) {
  QEL_REQUIRE(xs != nullptr);
  if (!xs->multi) return 0;
  const qel_arrayd_entry *e = entry_at(xs, entry);
  return e ? entry_count(*e) : 0;
}

// ---- numbers ----

// Requires a valid column set.  Appends to the last entry (entry = size - 1)
// or a new one (entry = size) of a multi column of codes 1 to 4.
extern "C" QEL_API void qel_xvars_add_integer(qel_xvars *xs, int64_t entry, int64_t value) {
  QEL_REQUIRE(xs != nullptr);
  add_number(xs, entry, value);
}
extern "C" QEL_API void qel_xvars_add_long(qel_xvars *xs, int64_t entry, int64_t value) {
  QEL_REQUIRE(xs != nullptr);
  add_number(xs, entry, value);
}
extern "C" QEL_API void qel_xvars_add_float(qel_xvars *xs, int64_t entry, float value) {
  QEL_REQUIRE(xs != nullptr);
  add_number(xs, entry, value);
}
extern "C" QEL_API void qel_xvars_add_double(qel_xvars *xs, int64_t entry, double value) {
  QEL_REQUIRE(xs != nullptr);
  add_number(xs, entry, value);
}

// Requires a valid column set.  Overwrites an existing value of codes 1 to 4.
extern "C" QEL_API void qel_xvars_set_integer(qel_xvars *xs, int64_t entry, int64_t pos, int64_t value) {
  QEL_REQUIRE(xs != nullptr);
  set_number(xs, entry, pos, value);
}
extern "C" QEL_API void qel_xvars_set_long(qel_xvars *xs, int64_t entry, int64_t pos, int64_t value) {
  QEL_REQUIRE(xs != nullptr);
  set_number(xs, entry, pos, value);
}
extern "C" QEL_API void qel_xvars_set_float(qel_xvars *xs, int64_t entry, int64_t pos, float value) {
  QEL_REQUIRE(xs != nullptr);
  set_number(xs, entry, pos, value);
}
extern "C" QEL_API void qel_xvars_set_double(qel_xvars *xs, int64_t entry, int64_t pos, double value) {
  QEL_REQUIRE(xs != nullptr);
  set_number(xs, entry, pos, value);
}

// Requires a valid column set.  A value in the caller's kind; 0 when there is none.
extern "C" QEL_API int64_t qel_xvars_get_integer(const qel_xvars *xs, int64_t entry, int64_t pos) {
  QEL_REQUIRE(xs != nullptr);
  return get_number<int64_t>(xs, entry, pos);
}
extern "C" QEL_API int64_t qel_xvars_get_long(const qel_xvars *xs, int64_t entry, int64_t pos) {
  QEL_REQUIRE(xs != nullptr);
  return get_number<int64_t>(xs, entry, pos);
}
extern "C" QEL_API float qel_xvars_get_float(const qel_xvars *xs, int64_t entry, int64_t pos) {
  QEL_REQUIRE(xs != nullptr);
  return get_number<float>(xs, entry, pos);
}
extern "C" QEL_API double qel_xvars_get_double(const qel_xvars *xs, int64_t entry, int64_t pos) {
  QEL_REQUIRE(xs != nullptr);
  return get_number<double>(xs, entry, pos);
}

// ---- strings ----

// Requires a valid column set; str readable for len bytes (NUL-terminated when
// len is negative).  Appends to the last or a new entry of a multi string column.
extern "C" QEL_API void qel_xvars_add_string(qel_xvars *xs, int64_t entry, const char *str, int64_t len) {
  QEL_REQUIRE(xs != nullptr);
  if (!xs->multi || xs->type != QEL_XVAR_BYTES) return;
  const target where = add_target(xs, entry);
  if (where == target::none || !resolve_string(str, len)) return;
  qel_array &data = xs->data.array;
  const int64_t before = data.count;
  if (!values_fit(before, 1) || !bytes_fit(data.pool.length, len)) return;
  qel_array_append(&data, str, len, 0);
  if (data.count == before + 1) commit_add(xs, where, before);
}

// Requires: as qel_xvars_add_string.  Replaces an existing string; its caller value becomes 0.
extern "C" QEL_API void qel_xvars_set_string(qel_xvars *xs, int64_t entry, int64_t pos, const char *str, int64_t len) {
  QEL_REQUIRE(xs != nullptr);
  if (!resolve_string(str, len) || xs->type != QEL_XVAR_BYTES) return;
  const int64_t at = locate(xs, entry, pos);
  if (at >= 0) qel_array_set_at(&xs->data.array, at, str, len, 0);
}

// Requires a valid column set; both outputs NULL or writable.  The bytes stay
// the column's, valid until it next changes; NULL and 0 when there is none.
extern "C" QEL_API void qel_xvars_get_string(const qel_xvars *xs, int64_t entry, int64_t pos, const char **str_out,
                                             int64_t *length_out) {
  QEL_REQUIRE(xs != nullptr);
  const char *bytes = nullptr;
  int64_t length = 0;
  if (xs->type == QEL_XVAR_BYTES) {
    const int64_t at = locate(xs, entry, pos);
    if (at >= 0) {
      const qel_array &a = xs->data.array;
      const qel_array_entry &v = a.entries[at];
      if (int64_t{v.offset} + int64_t{v.length} <= a.pool.length) {
        bytes = a.pool.bytes ? a.pool.bytes + v.offset : kEmpty;
        length = v.length;
      }
    }
  }
  if (str_out) *str_out = bytes;
  if (length_out) *length_out = length;
}

// ---- caller values ----

// Requires a valid column set.  Sets the caller value at (entry, pos) of a
// multi column; negative pos is the entry's last value.
extern "C" QEL_API void qel_xvars_set_buf(qel_xvars *xs, int64_t entry, int64_t pos, uint64_t value) {
  QEL_REQUIRE(xs != nullptr);
  if (uint64_t *slot = buf_of(xs, entry, pos)) *slot = value;
}

// Requires a valid column set.  As qel_xvars_set_buf; 0 where that would do nothing.
extern "C" QEL_API uint64_t qel_xvars_get_buf(const qel_xvars *xs, int64_t entry, int64_t pos) {
  QEL_REQUIRE(xs != nullptr);
  const uint64_t *slot = buf_of(xs, entry, pos);
  return slot ? *slot : 0;
}
