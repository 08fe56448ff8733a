// Full variant: sorting, search and comparison.
//
// Integer and string arrays are sorted and searched by the support
// containers; float and double arrays are sorted here, by the quicksort of
// internal/qel_float_sort.h, which fixes the order of equal values and NaNs.
#include <qel.h>

#include <bit>
#include <cstdint>
#include <cstring>

#include "internal/qel_convert.h"
#include "internal/qel_float_sort.h"
#include "internal/qel_var_internal.h"
#include "qel_std_inline.h"
#include "qel_require.h"

namespace {

using qel::storage;
using qel::storage_of;

// Requires a multi float array; sorts it, ascending for a nonzero flag.
void sort_floats(qel_arrayd *a, int flag) {
  const int64_t n = qel_detail::in_use(a);
  if (n < 2) return;
  qel_detail::drop_lookup(a);  // the keyed-insert index knows the old positions
  if (flag != 0) qel::fsort::quicksort<float, true>(a->entries, n);
  else qel::fsort::quicksort<float, false>(a->entries, n);
}

// Requires a multi double array; sorts it, ascending for a nonzero flag.
void sort_doubles(qel_arrayx *a, int flag) {
  const int64_t n = qel_detail::in_use(a);
  if (n < 2) return;
  qel_detail::drop_lookup(a);  // the keyed-insert index knows the old positions
  if (flag != 0) qel::fsort::quicksort<double, true>(a->entries, n);
  else qel::fsort::quicksort<double, false>(a->entries, n);
}

// Requires nothing; -1, 0 or 1 as a orders before, with or after b.
template <typename T>
int three_way(T a, T b) {
  return a > b ? 1 : (a < b ? -1 : 0);
}

// Requires nothing; 1 if a > b, -1 if b > a, else 0 (so 0 when either is NaN).
template <typename F>
int float_order(F a, F b) {
  if (a > b) return 1;
  if (b > a) return -1;
  return 0;
}

// Requires two arrays of the same kind; compares entry values one by one with
// `cmp`, the first difference deciding and a prefix ordering first.
template <typename Array, typename Cmp>
int compare_arrays(const Array &a, const Array &b, Cmp cmp) {
  const int64_t na = qel_detail::in_use(&a);
  const int64_t nb = qel_detail::in_use(&b);
  const int64_t common = na < nb ? na : nb;
  for (int64_t k = 0; k < common; ++k) {
    const int r = cmp(a.entries[k].value, b.entries[k].value);
    if (r != 0) return r;
  }
  return three_way(na, nb);
}

// Requires two byte-string arrays; as compare_arrays, by qel_mem_cmp.
int compare_string_arrays(const qel_array &a, const qel_array &b) {
  const int64_t na = qel_detail::in_use(&a);
  const int64_t nb = qel_detail::in_use(&b);
  const int64_t common = na < nb ? na : nb;
  for (int64_t k = 0; k < common; ++k) {
    const char *ab = nullptr;
    const char *bb = nullptr;
    int64_t al = 0;
    int64_t bl = 0;
    qel_array_get_at(&a, k, &ab, &al);
    qel_array_get_at(&b, k, &bb, &bl);
    const int r = qel_mem_cmp(ab, al, bb, bl);
    if (r != 0) return r;
  }
  return three_way(na, nb);
}

// Requires nothing; 32-bit values ordered as unsigned integers.
int compare_u32(uint32_t x, uint32_t y) { return three_way(x, y); }
// Requires nothing; 64-bit values ordered as unsigned integers (-1 after 1).
int compare_i64_unsigned(int64_t x, int64_t y) { return three_way(static_cast<uint64_t>(x), static_cast<uint64_t>(y)); }
// Requires nothing; stored float bits ordered as floats.
int compare_float_bits(uint32_t x, uint32_t y) {
  return float_order(qel::conv::bits_float(x), qel::conv::bits_float(y));
}
// Requires nothing; stored double bits ordered as doubles.
int compare_double_bits(int64_t x, int64_t y) {
  return float_order(qel::conv::bits_double(x), qel::conv::bits_double(y));
}

// Requires two single variants of the same type code; the value rules.
int compare_single(const qel_var *a, const qel_var *b) {
  switch (a->type) {
    case 1:
    case 2:
    case 3:
    case 9: return compare_u32(a->data.bits32, b->data.bits32);
    case 4: return three_way(a->data.bits64, b->data.bits64);
    case 5: return compare_float_bits(a->data.bits32, b->data.bits32);
    case 6: return float_order(std::bit_cast<double>(a->data.bits64), std::bit_cast<double>(b->data.bits64));
    case 7:
    case 8:
      return qel_mem_cmp(a->data.stream.bytes, a->data.stream.length, b->data.stream.bytes, b->data.stream.length);
    default: return 0;  // records: members are not compared
  }
}

// Requires two multi variants with the same type code; element by element.
int compare_multi(const qel_var *a, const qel_var *b) {
  switch (a->type) {
    case 1:
    case 2:
    case 3:
    case 9: return compare_arrays(a->data.arrayd, b->data.arrayd, compare_u32);
    case 4: return compare_arrays(a->data.arrayx, b->data.arrayx, compare_i64_unsigned);
    case 5: return compare_arrays(a->data.arrayd, b->data.arrayd, compare_float_bits);
    case 6: return compare_arrays(a->data.arrayx, b->data.arrayx, compare_double_bits);
    case 7:
    case 8: return compare_string_arrays(a->data.array, b->data.array);
    default: return 0;  // record arrays compare equal
  }
}

// Requires a searchable key pointer for numeric codes; the search's result.
template <bool Binary>
int64_t search(const qel_var *var, const void *key, int64_t len) {
  if (var->multi == 0) return -1;
  switch (storage_of(var->type)) {
    case storage::bits32: {
      if (key == nullptr) return -1;
      uint32_t k;
      std::memcpy(&k, key, sizeof k);
      return Binary ? qel_detail::bfind_index(&var->data.arrayd, k) : qel_arrayd_find_index(&var->data.arrayd, k);
    }
    case storage::bits64: {
      if (key == nullptr) return -1;
      int64_t k;
      std::memcpy(&k, key, sizeof k);
      return Binary ? qel_detail::bfind_index(&var->data.arrayx, k) : qel_arrayx_find_index(&var->data.arrayx, k);
    }
    case storage::bytes: {
      const char *bytes = static_cast<const char *>(key);
      return Binary ? qel_array_bfind_index(&var->data.array, bytes, len)
                    : qel_array_find_index(&var->data.array, bytes, len);
    }
    case storage::record: break;
  }
  return -1;
}

}  // namespace

// Requires a variant; sorts a multi variant's values in place (nonzero flag
// ascending), each caller value moving with its value.
extern "C" QEL_API void qel_var_qsort(qel_var *var, int flag) {
  QEL_REQUIRE(var != nullptr);
  if (var->multi == 0) return;
  switch (var->type) {
    case 1:
    case 2:
    case 3:
    case 9: qel_arrayd_qsort(&var->data.arrayd, flag); break;
    case 4: qel_arrayx_qsort(&var->data.arrayx, flag); break;
    case 5: sort_floats(&var->data.arrayd, flag); break;
    case 6: sort_doubles(&var->data.arrayx, flag); break;
    case 7:
    case 8: qel_array_qsort(&var->data.array, flag); break;
    default: break;  // records are not sorted
  }
}

// Requires a variant, and a key of the storage width (or bytes for 7, 8);
// linear search, -1 when the variant cannot be searched.  A numeric key the
// keyed-insert index holds is found there first, with no call.
extern "C" QEL_API int64_t qel_var_find(const qel_var *var, const void *key, int64_t len) {
  QEL_REQUIRE(var != nullptr);
  if (var->multi != 0 && key != nullptr) {
    const storage cls = storage_of(var->type);
    if (cls == storage::bits32) {
      uint32_t k;
      std::memcpy(&k, key, sizeof k);
      if (const qel_arrayd_entry *e = qel_detail::indexed_entry(&var->data.arrayd, k))
        return e - var->data.arrayd.entries;
    } else if (cls == storage::bits64) {
      int64_t k;
      std::memcpy(&k, key, sizeof k);
      if (const qel_arrayx_entry *e = qel_detail::indexed_entry(&var->data.arrayx, k))
        return e - var->data.arrayx.entries;
    }
  }
  return search<false>(var, key, len);
}

// Requires a variant sorted ascending; binary search, -1 when the variant
// cannot be searched.
extern "C" QEL_API int64_t qel_var_bfind(const qel_var *var, const void *key, int64_t len) {
  QEL_REQUIRE(var != nullptr);
  return search<true>(var, key, len);
}

// Requires two variants; orders by multi byte, then type code, then value.
extern "C" QEL_API int qel_var_cmp(const qel_var *a, const qel_var *b) {
  QEL_REQUIRE(a != nullptr);
  QEL_REQUIRE(b != nullptr);
  if (a->multi != b->multi) return static_cast<int8_t>(a->multi) - static_cast<int8_t>(b->multi);
  if (a->type != b->type) return static_cast<int32_t>(a->type - b->type);
  return a->multi == 0 ? compare_single(a, b) : compare_multi(a, b);
}
