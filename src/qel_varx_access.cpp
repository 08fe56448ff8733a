// Full variant: capacity and reset, keyed insertion, raw buffer access and
// member shortcuts.  Everything here dispatches on the storage class and form
// of the variant and leaves the work to the support containers.
#include <qel.h>

#include <cstdint>
#include <cstring>

#include "internal/qel_convert.h"
#include "internal/qel_var_internal.h"
#include "qel_std_internal.h"

namespace {

using qel::storage;
using qel::storage_of;
namespace conv = qel::conv;

// Requires nothing; true for the codes the member shortcuts serve.
constexpr bool is_record_code(uint32_t type) { return type >= 10; }

// Requires a value array (arrayd, arrayx or array); count := min(capacity, n).
template <typename Array>
void set_count(Array *a, int64_t n) {
  a->count = n < a->capacity ? n : a->capacity;
}

// Requires a value array; resolves the caller-value index rule (negative means
// the last entry in use, the bound is the capacity); -1 when nothing is there.
template <typename Array>
int64_t buf_slot(const Array &a, int64_t index) {
  if (index < 0) index = qel_detail::in_use(&a) - 1;
  if (index < 0 || index >= a.capacity) return -1;
  return index;
}

// Requires a value array; writes the caller value of entry index if it exists.
template <typename Array>
void write_buf(Array *a, int64_t index, uint64_t value) {
  const int64_t slot = buf_slot(*a, index);
  if (slot >= 0) a->entries[slot].buf = value;
}

// Requires a value array; the caller value of entry index, or 0.
template <typename Array>
uint64_t read_buf(const Array &a, int64_t index) {
  const int64_t slot = buf_slot(a, index);
  return slot >= 0 ? a.entries[slot].buf : 0;
}

// Requires a multi variant; keyed insert of a 32-bit key, its caller value.
uint64_t insert32(qel_var *var, uint32_t key) { return qel_detail::entry_insert(&var->data.arrayd, key)->buf; }

// Requires a multi variant; keyed insert of a 64-bit key, its caller value.
uint64_t insert64(qel_var *var, int64_t key) { return qel_detail::entry_insert(&var->data.arrayx, key)->buf; }

// The keyed adders go straight to the keyed insert's common cases for the
// codes of the caller kind's own kind (integer: 1 to 3, float: 5, double: 6):
// one probe finds the key or the slot a new one takes, with no frame and no
// call.  Everything else is the full dispatch of the *_any steps.

// Requires a variant; inserts the converted value unless present, and gives
// the caller value of its entry (0 when nothing was done).
[[gnu::noinline]] uint64_t add_integer_x_any(qel_var *var, int64_t value) {
  if (var->multi == 0) return 0;
  switch (var->type) {
    case 1:
    case 2:
    case 3:
    case 9: return insert32(var, conv::low32(value));
    case 5: return insert32(var, conv::float_bits(conv::to_float(value)));
    case 4: return insert64(var, value);
    case 6: return insert64(var, conv::double_bits(conv::to_double(value)));
    default: return 0;
  }
}

// Requires a variant; as add_integer_x_any for a float.
[[gnu::noinline]] uint64_t add_float_x_any(qel_var *var, float value) {
  if (var->multi == 0) return 0;
  switch (var->type) {
    case 1:
    case 2:
    case 3:
    case 9: return insert32(var, conv::low32(conv::truncate(value)));
    case 5: return insert32(var, conv::float_bits(value));
    case 4: return insert64(var, conv::truncate(value));
    case 6: return insert64(var, conv::double_bits(static_cast<double>(value)));
    default: return 0;
  }
}

// Requires a variant; as add_integer_x_any for a double.
[[gnu::noinline]] uint64_t add_double_x_any(qel_var *var, double value) {
  if (var->multi == 0) return 0;
  switch (var->type) {
    case 1:
    case 2:
    case 3:
    case 9: return insert32(var, conv::low32(conv::truncate(value)));
    case 5: return insert32(var, conv::float_bits(conv::to_float(value)));
    case 4: return insert64(var, conv::truncate(value));
    case 6: return insert64(var, conv::double_bits(value));
    default: return 0;
  }
}

}  // namespace

extern "C" {

// ---- capacity and reset ----

// Requires a variant; reserves room for n values (bytes of a single string).
QEL_API void qel_var_expand(qel_var *var, int64_t n) {
  if (var->multi == 0) {
    if (storage_of(var->type) == storage::bytes) qel_stream_expand(&var->data.stream, n);
    return;
  }
  switch (storage_of(var->type)) {
    case storage::bits32: qel_arrayd_expand(&var->data.arrayd, n); break;
    case storage::bits64: qel_arrayx_expand(&var->data.arrayx, n); break;
    case storage::bytes: qel_array_expand(&var->data.array, n); break;
    case storage::record: break;
  }
}

// Requires a variant; clears a single numeric value or a single string's bytes.
QEL_API void qel_var_zero(qel_var *var) {
  if (var->multi != 0) return;
  switch (storage_of(var->type)) {
    case storage::bits32: var->data.bits32 = 0; break;
    case storage::bits64: var->data.bits64 = 0; break;
    case storage::bytes: qel_stream_zero(&var->data.stream, 0, var->data.stream.capacity); break;
    case storage::record: break;
  }
}

// Requires a variant and n >= 0 (a negative n changes nothing); cuts an array
// to n entries (clears it for n = 0), clears a single value.
QEL_API void qel_var_shrink(qel_var *var, int64_t n) {
  if (n < 0) return;
  const storage cls = storage_of(var->type);
  if (var->multi == 0) {
    switch (cls) {
      case storage::bits32: var->data.bits32 = 0; break;
      case storage::bits64: var->data.bits64 = 0; break;
      case storage::bytes: qel_stream_shrink(&var->data.stream, n); break;
      case storage::record: qel_var_hash_free(var); break;
    }
    return;
  }
  switch (cls) {
    case storage::bits32:
      if (n == 0) qel_arrayd_remove_all(&var->data.arrayd);
      else set_count(&var->data.arrayd, n);
      break;
    case storage::bits64:
      if (n == 0) qel_arrayx_remove_all(&var->data.arrayx);
      else set_count(&var->data.arrayx, n);
      break;
    case storage::bytes:
      if (n == 0) qel_array_remove_all(&var->data.array);
      else set_count(&var->data.array, n);
      break;
    case storage::record: qel_arrays_free_all(&var->data.vars, qel_var_term); break;
  }
}

// Requires a variant; trims a single byte string in place.
QEL_API void qel_var_trim(qel_var *var) {
  if (var->multi != 0 || storage_of(var->type) != storage::bytes) return;
  // The two exchanges only swap fields; zeroing the holder keeps the first
  // one from reading indeterminate values.
  qel_string local;
  std::memset(&local, 0, sizeof local);
  qel_stream_swap_string(&var->data.stream, &local);
  qel_string_trim(&local);
  qel_stream_swap_string(&var->data.stream, &local);
}

// ---- keyed insertion ----

// Requires a variant; inserts the converted value unless present, and gives
// the caller value of its entry (0 when nothing was done).
QEL_API uint64_t qel_var_add_integer_x(qel_var *var, int64_t value) {
  if (var->type - 1u < 3u && var->multi != 0) [[likely]]
    if (const auto *e = qel_detail::insert_fast(&var->data.arrayd, conv::low32(value))) return e->buf;
  return add_integer_x_any(var, value);
}

// Requires a variant; the same as qel_var_add_integer_x.
QEL_API uint64_t qel_var_add_long_x(qel_var *var, int64_t value) { return qel_var_add_integer_x(var, value); }

// Requires a variant; as qel_var_add_integer_x for a float.
QEL_API uint64_t qel_var_add_float_x(qel_var *var, float value) {
  if (var->type == 5 && var->multi != 0) [[likely]]
    if (const auto *e = qel_detail::insert_fast(&var->data.arrayd, conv::float_bits(value))) return e->buf;
  return add_float_x_any(var, value);
}

// Requires a variant; as qel_var_add_integer_x for a double.
QEL_API uint64_t qel_var_add_double_x(qel_var *var, double value) {
  if (var->type == 6 && var->multi != 0) [[likely]]
    if (const auto *e = qel_detail::insert_fast(&var->data.arrayx, conv::double_bits(value))) return e->buf;
  return add_double_x_any(var, value);
}

// Requires a variant, and bytes of len bytes (len < 0: measured, NULL as 0);
// keyed insert into a byte-string array, the entry's caller value.
QEL_API uint64_t qel_var_add_string_x(qel_var *var, const char *bytes, int64_t len) {
  if (var->multi == 0 || storage_of(var->type) != storage::bytes) return 0;
  if (len < 0) len = bytes != nullptr ? static_cast<int64_t>(std::strlen(bytes)) : 0;
  // A string the array cannot take gives the entry past the count, which
  // holds no key and whose caller value is not this call's to report.
  const qel_array *a = &var->data.array;
  const qel_array_entry *e = qel_array_entry_insert(&var->data.array, bytes, len);
  return e < a->entries + a->count ? e->buf : 0;
}

// ---- raw buffer access ----

// Requires a variant; where a single value's bytes are, NULL for arrays and records.
QEL_API void *qel_var_buffer(qel_var *var) {
  if (var->multi != 0) return nullptr;
  switch (storage_of(var->type)) {
    case storage::bits32: return &var->data.bits32;
    case storage::bits64: return &var->data.bits64;
    case storage::bytes: return var->data.stream.bytes;
    case storage::record: break;
  }
  return nullptr;
}

// Requires a variant; bytes allocated for a single value, 0 for arrays and records.
QEL_API int64_t qel_var_buf_size(const qel_var *var) {
  if (var->multi != 0) return 0;
  switch (storage_of(var->type)) {
    case storage::bits32: return 4;
    case storage::bits64: return 8;
    case storage::bytes: return var->data.stream.capacity;
    case storage::record: break;
  }
  return 0;
}

// Requires a variant; bytes in use by a single value, 0 for arrays and records.
QEL_API int64_t qel_var_buf_len(const qel_var *var) {
  if (var->multi != 0) return 0;
  switch (storage_of(var->type)) {
    case storage::bits32: return 4;
    case storage::bits64: return 8;
    case storage::bytes: return var->data.stream.length;
    case storage::record: break;
  }
  return 0;
}

// Requires a variant; sets the caller value of a single variant or of array
// entry index (negative: the last in use; up to the capacity).
QEL_API void qel_var_set_buf(qel_var *var, int64_t index, uint64_t value) {
  if (var->multi == 0) {
    var->buf = value;
    return;
  }
  switch (storage_of(var->type)) {
    case storage::bits32: write_buf(&var->data.arrayd, index, value); break;
    case storage::bits64: write_buf(&var->data.arrayx, index, value); break;
    case storage::bytes: write_buf(&var->data.array, index, value); break;
    case storage::record: break;
  }
}

// Requires a variant; the caller value qel_var_set_buf would write, or 0.
QEL_API uint64_t qel_var_get_buf(const qel_var *var, int64_t index) {
  if (var->multi == 0) return var->buf;
  switch (storage_of(var->type)) {
    case storage::bits32: return read_buf(var->data.arrayd, index);
    case storage::bits64: return read_buf(var->data.arrayx, index);
    case storage::bytes: return read_buf(var->data.array, index);
    case storage::record: break;
  }
  return 0;
}

// ---- member shortcuts (record codes 10 and up) ----

// Requires a variant and a src that is not var nor inside it; makes member
// `name` of a single record a deep copy of src, creating it if absent.
QEL_API void qel_var_set_val(qel_var *var, const char *name, int64_t len, const qel_var *src) {
  if (!is_record_code(var->type) || var->multi != 0) return;
  auto *member = static_cast<qel_var *>(qel_detail::hash_get(&var->data.members, name, len));
  if (member == nullptr) {
    member = qel_var_new(src->type, src->multi);
    if (qel_hash_insert(&var->data.members, name, len, member) == nullptr) {
      qel_var_free(member);  // a name the hash cannot hold
      return;
    }
  }
  qel_var_copy(member, src);
}

// Requires a variant; member `name` of a single record (borrowed), or NULL.
QEL_API qel_var *qel_var_get_val(const qel_var *var, const char *name, int64_t len) {
  if (!is_record_code(var->type) || var->multi != 0) return nullptr;
  return static_cast<qel_var *>(qel_detail::hash_get(&var->data.members, name, len));
}

// Requires a variant; appends a member-less record of the array's code and
// schema to a record array and returns it (borrowed), else NULL.
QEL_API qel_var *qel_var_add_new(qel_var *var) {
  if (!is_record_code(var->type) || var->multi == 0) return nullptr;
  qel_var *element = qel_var_new(var->type, 0);
  element->schema = var->schema;
  qel_arrays_append(&var->data.vars, element);
  return element;
}

// Requires a variant, and context and resolver as for qel_var_new_x; appends
// a record made as qel_var_new_x(code, 0, context, resolver) makes it, members
// and all, to a record array and returns it (borrowed), else NULL.
QEL_API qel_var *qel_var_add_new_x(qel_var *var, void *context, qel_schema_resolver resolver) {
  if (!is_record_code(var->type) || var->multi == 0) return nullptr;
  qel_var *element = qel_var_new_x(var->type, 0, context, resolver);
  qel_arrays_append(&var->data.vars, element);
  return element;
}

// Requires a variant and a src that is not var nor inside it; appends a deep
// copy of src to a record array.
QEL_API void qel_var_add_var_x(qel_var *var, const qel_var *src) {
  qel_var *element = qel_var_add_new(var);
  if (element != nullptr) qel_var_copy(element, src);
}

// Requires a variant and a src that is not inside the target; copies src into
// element index of a record array, or into a single record itself.
QEL_API void qel_var_set_var_x(qel_var *var, int64_t index, const qel_var *src) {
  if (!is_record_code(var->type)) return;
  if (var->multi == 0) {
    qel_var_copy(var, src);
    return;
  }
  auto *element = static_cast<qel_var *>(qel_arrays_get_at(&var->data.vars, index));
  if (element != nullptr) qel_var_copy(element, src);
}

// Requires a variant; element index of a record array or a single record
// itself (borrowed), else NULL.
QEL_API qel_var *qel_var_get_var_x(const qel_var *var, int64_t index) {
  if (!is_record_code(var->type)) return nullptr;
  if (var->multi == 0) return const_cast<qel_var *>(var);
  return static_cast<qel_var *>(qel_arrays_get_at(&var->data.vars, index));
}

}  // extern "C"
