// Full variant: capacity and reset.  Each step dispatches on the storage
// class and form of the variant and leaves the work to the support
// containers.
#include <qel.h>

#include <cstdint>
#include <cstring>

#include "internal/qel_var_internal.h"
#include "qel_require.h"
#include "qel_std_inline.h"

using qel::storage;
using qel::storage_of;

namespace {

// Requires a value array (arrayd, arrayx or array); count := min(capacity, n).
template <typename Array>
void set_count(Array *a, int64_t n) {
  a->count = n < a->capacity ? n : a->capacity;
}

}  // namespace

// Requires a variant; reserves room for n values (bytes of a single string).
extern "C" QEL_API void qel_var_expand(qel_var *var, int64_t n) {
  QEL_REQUIRE(var != nullptr);
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
extern "C" QEL_API void qel_var_zero(qel_var *var) {
  QEL_REQUIRE(var != nullptr);
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
extern "C" QEL_API void qel_var_shrink(qel_var *var, int64_t n) {
  QEL_REQUIRE(var != nullptr);
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
extern "C" QEL_API void qel_var_trim(qel_var *var) {
  QEL_REQUIRE(var != nullptr);
  if (var->multi != 0 || storage_of(var->type) != storage::bytes) return;
  // The two exchanges only swap fields; zeroing the holder keeps the first
  // one from reading indeterminate values.
  qel_string local;
  std::memset(&local, 0, sizeof local);
  qel_stream_swap_string(&var->data.stream, &local);
  qel_string_trim(&local);
  qel_stream_swap_string(&var->data.stream, &local);
}
