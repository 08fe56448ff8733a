// Full variant: keyed insertion.  An adder of the caller's own kind goes
// straight to the keyed insert's common cases (one probe finds the key or
// the slot a new one takes, with no frame and no call); everything else is
// the full dispatch of add_x_any.
#include <qel.h>

#include <cstdint>
#include <cstring>

#include "internal/qel_convert.h"
#include "internal/qel_var_internal.h"
#include "qel_require.h"
#include "qel_std_inline.h"

namespace conv = qel::conv;
using qel::storage;
using qel::storage_of;

namespace {

// Requires nothing; QEL_VAR_UINT32 and the two codes after it, which store
// alike (code 9 does too, by the slow path).
constexpr bool plain_u32(uint32_t type) { return type - QEL_VAR_UINT32 < 3u; }

// Requires a multi variant; keyed insert of a 32-bit key, its caller value.
uint64_t insert32(qel_var *var, uint32_t key) { return qel_detail::entry_insert(&var->data.arrayd, key)->buf; }

// Requires a multi variant; keyed insert of a 64-bit key, its caller value.
uint64_t insert64(qel_var *var, int64_t key) { return qel_detail::entry_insert(&var->data.arrayx, key)->buf; }

// Requires a variant, T int64_t, float or double; inserts the value
// converted to the stored kind unless present, and gives the caller value of
// its entry (0 when nothing was done).
template <class T>
[[gnu::noinline]] uint64_t add_x_any(qel_var *var, T value) {
  if (var->multi == 0) return 0;
  switch (storage_of(var->type)) {
    case storage::bits32: return insert32(var, var->type == QEL_VAR_FLOAT ? conv::to_f32(value) : conv::to_u32(value));
    case storage::bits64: return insert64(var, var->type == QEL_VAR_DOUBLE ? conv::to_f64(value) : conv::to_i64(value));
    default: return 0;
  }
}

}  // namespace

// Requires a variant; inserts the converted value unless present, and gives
// the caller value of its entry (0 when nothing was done).
extern "C" QEL_API uint64_t qel_var_add_integer_x(qel_var *var, int64_t value) {
  QEL_REQUIRE(var != nullptr);
  if (plain_u32(var->type) && var->multi != 0) [[likely]]
    if (const auto *e = qel_detail::insert_fast(&var->data.arrayd, conv::low32(value))) return e->buf;
  return add_x_any(var, value);
}

// Requires a variant; the same as qel_var_add_integer_x.
extern "C" QEL_API uint64_t qel_var_add_long_x(qel_var *var, int64_t value) {
  QEL_REQUIRE(var != nullptr);
  return qel_var_add_integer_x(var, value);
}

// Requires a variant; as qel_var_add_integer_x for a float.
extern "C" QEL_API uint64_t qel_var_add_float_x(qel_var *var, float value) {
  QEL_REQUIRE(var != nullptr);
  if (var->type == QEL_VAR_FLOAT && var->multi != 0) [[likely]]
    if (const auto *e = qel_detail::insert_fast(&var->data.arrayd, conv::float_bits(value))) return e->buf;
  return add_x_any(var, value);
}

// Requires a variant; as qel_var_add_integer_x for a double.
extern "C" QEL_API uint64_t qel_var_add_double_x(qel_var *var, double value) {
  QEL_REQUIRE(var != nullptr);
  if (var->type == QEL_VAR_DOUBLE && var->multi != 0) [[likely]]
    if (const auto *e = qel_detail::insert_fast(&var->data.arrayx, conv::double_bits(value))) return e->buf;
  return add_x_any(var, value);
}

// Requires a variant, and bytes of len bytes (len < 0: measured, NULL as 0);
// keyed insert into a byte-string array, the entry's caller value.
extern "C" QEL_API uint64_t qel_var_add_string_x(qel_var *var, const char *bytes, int64_t len) {
  QEL_REQUIRE(var != nullptr);
  if (var->multi == 0 || storage_of(var->type) != storage::bytes) return 0;
  if (len < 0) len = bytes != nullptr ? static_cast<int64_t>(std::strlen(bytes)) : 0;
  // A string the array cannot take gives the entry past the count, which
  // holds no key and whose caller value is not this call's to report.
  const qel_array *a = &var->data.array;
  const qel_array_entry *e = qel_array_entry_insert(&var->data.array, bytes, len);
  return e < a->entries + a->count ? e->buf : 0;
}
