// Full variant: raw buffer access and caller values.
#include <qel.h>

#include <cstdint>
#include <cstring>

#include "internal/qel_var_internal.h"
#include "qel_require.h"
#include "qel_std_inline.h"

using qel::storage;
using qel::storage_of;

namespace {

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

}  // namespace

// Requires a variant; where a single value's bytes are, NULL for arrays and records.
extern "C" QEL_API void *qel_var_buffer(qel_var *var) {
  QEL_REQUIRE(var != nullptr);
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
extern "C" QEL_API int64_t qel_var_buf_size(const qel_var *var) {
  QEL_REQUIRE(var != nullptr);
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
extern "C" QEL_API int64_t qel_var_buf_len(const qel_var *var) {
  QEL_REQUIRE(var != nullptr);
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
extern "C" QEL_API void qel_var_set_buf(qel_var *var, int64_t index, uint64_t value) {
  QEL_REQUIRE(var != nullptr);
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
extern "C" QEL_API uint64_t qel_var_get_buf(const qel_var *var, int64_t index) {
  QEL_REQUIRE(var != nullptr);
  if (var->multi == 0) return var->buf;
  switch (storage_of(var->type)) {
    case storage::bits32: return read_buf(var->data.arrayd, index);
    case storage::bits64: return read_buf(var->data.arrayx, index);
    case storage::bytes: return read_buf(var->data.array, index);
    case storage::record: break;
  }
  return 0;
}
