// The full variant's core: lifecycle, creation and release of a record's
// members, the numeric and string accessors and the variant-to-variant moves.
// Deep copy and append are in qel_var_copy.cpp.
#include "internal/qel_convert.h"
#include "internal/qel_var_internal.h"
#include "qel_std_inline.h"
#include "qel_require.h"

#include <cstdint>
#include <cstring>
#include <new>
#include <type_traits>

namespace conv = qel::conv;
using conv::to_f32;
using conv::to_f64;
using conv::to_i64;
using conv::to_u32;
using qel::storage;
using qel::storage_of;

namespace {

// ---- stored value -> caller kind (T is int64_t, float or double) ----

template <class T>
T from_u32(uint32_t u) {
  if constexpr (std::is_same_v<T, int64_t>) return u;
  else if constexpr (std::is_same_v<T, float>) return conv::to_float(u);
  else return static_cast<double>(u);
}
template <class T>
T from_f32(float f) {
  if constexpr (std::is_same_v<T, int64_t>) return conv::truncate(f);
  else if constexpr (std::is_same_v<T, float>) return f;
  else return static_cast<double>(f);
}
template <class T>
T from_i64(int64_t n) {
  if constexpr (std::is_same_v<T, int64_t>) return n;
  else if constexpr (std::is_same_v<T, float>) return conv::to_float(n);
  else return conv::to_double(n);
}
template <class T>
T from_f64(double d) {
  if constexpr (std::is_same_v<T, int64_t>) return conv::truncate(d);
  else if constexpr (std::is_same_v<T, float>) return conv::to_float(d);
  else return d;
}

// ---- raw slots ----
// Array elements go through the containers' inline core (the same code as
// their exported get_at/set_at/append, without a call into libqel_std).
// Outside 0..count-1 a read gives 0 and a write does nothing.

// Requires a variant of the 32-bit class.
inline uint32_t get32(const qel_var *var, int64_t index) {
  if (var->multi == 0) return var->data.bits32;
  uint32_t bits;
  qel_detail::get_at(&var->data.arrayd, index, &bits);
  return bits;
}
// Requires a variant of the 64-bit class.
inline int64_t get64(const qel_var *var, int64_t index) {
  if (var->multi == 0) return static_cast<int64_t>(var->data.bits64);
  int64_t bits;
  qel_detail::get_at(&var->data.arrayx, index, &bits);
  return bits;
}
// Requires a variant of the 32-bit class.
inline void put32(qel_var *var, int64_t index, uint32_t bits) {
  if (var->multi == 0) var->data.bits32 = bits;
  else qel_detail::set_at(&var->data.arrayd, index, bits, 0);
}
// Requires a variant of the 64-bit class.
inline void put64(qel_var *var, int64_t index, int64_t bits) {
  if (var->multi == 0) var->data.bits64 = static_cast<uint64_t>(bits);
  else qel_detail::set_at(&var->data.arrayx, index, bits, 0);
}

// ---- the typed accessors, one dispatch per call ----
// The dispatch finds the stored kind in a few compares and predictable jumps
// (a switch here compiles to a jump table, whose indirect jump costs more
// than the whole access).  The code that matches the caller's kind comes
// first, so its path is the shortest: a double meets QEL_VAR_DOUBLE by one
// compare; the other codes go through their storage class.

// Tags naming the stored kind a dispatch found.
struct u32_kind {};
struct f32_kind {};
struct i64_kind {};
struct f64_kind {};
struct no_kind {};

// Requires T int64_t, float or double and f callable with every tag; calls
// f with the stored kind of a type code (no_kind for strings and records).
template <class T, class F>
inline decltype(auto) by_kind(uint32_t type, F &&f) {
  if constexpr (std::is_same_v<T, double>) {
    if (type == QEL_VAR_DOUBLE) return f(f64_kind{});
  } else if constexpr (std::is_same_v<T, float>) {
    if (type == QEL_VAR_FLOAT) return f(f32_kind{});
  } else {
    if (type == QEL_VAR_UINT32) return f(u32_kind{});
  }
  const storage cls = storage_of(type);
  if (cls == storage::bits32) return type == QEL_VAR_FLOAT ? f(f32_kind{}) : f(u32_kind{});
  if (cls == storage::bits64) return type == QEL_VAR_DOUBLE ? f(f64_kind{}) : f(i64_kind{});
  return f(no_kind{});
}

// Requires a variant; appends the converted value to a numeric array.
template <class T>
[[gnu::noinline]] void add_value_any(qel_var *var, T v) {
  if (var->multi == 0) return;
  by_kind<T>(var->type, [&](auto k) {
    using K = decltype(k);
    if constexpr (std::is_same_v<K, u32_kind>) qel_detail::append(&var->data.arrayd, to_u32(v), 0);
    else if constexpr (std::is_same_v<K, f32_kind>) qel_detail::append(&var->data.arrayd, to_f32(v), 0);
    else if constexpr (std::is_same_v<K, i64_kind>) qel_detail::append(&var->data.arrayx, to_i64(v), 0);
    else if constexpr (std::is_same_v<K, f64_kind>) qel_detail::append(&var->data.arrayx, to_f64(v), 0);
    // 0, 7, 8 and the record codes: nothing
  });
}

// Requires a variant; stores the converted value (single form ignores index).
template <class T>
[[gnu::noinline]] void set_value_any(qel_var *var, int64_t index, T v) {
  by_kind<T>(var->type, [&](auto k) {
    using K = decltype(k);
    if constexpr (std::is_same_v<K, u32_kind>) put32(var, index, to_u32(v));
    else if constexpr (std::is_same_v<K, f32_kind>) put32(var, index, to_f32(v));
    else if constexpr (std::is_same_v<K, i64_kind>) put64(var, index, to_i64(v));
    else if constexpr (std::is_same_v<K, f64_kind>) put64(var, index, to_f64(v));
  });
}

// Requires a variant; the stored value converted to T, or 0.
template <class T>
[[gnu::noinline]] T get_value_any(const qel_var *var, int64_t index) {
  return by_kind<T>(var->type, [&](auto k) -> T {
    using K = decltype(k);
    if constexpr (std::is_same_v<K, u32_kind>) return from_u32<T>(get32(var, index));
    else if constexpr (std::is_same_v<K, f32_kind>) return from_f32<T>(conv::bits_float(get32(var, index)));
    else if constexpr (std::is_same_v<K, i64_kind>) return from_i64<T>(get64(var, index));
    else if constexpr (std::is_same_v<K, f64_kind>) return from_f64<T>(conv::bits_double(get64(var, index)));
    else return T{};
  });
}

// The array and the codes that a caller kind meets with no conversion beyond
// its own bits: a double code 6, a float code 5, an integer codes 1 to 3.
template <class T>
struct native;
template <>
struct native<double> {
  static bool has(uint32_t type) { return type == QEL_VAR_DOUBLE; }
  static qel_arrayx *array(qel_var *var) { return &var->data.arrayx; }
  static const qel_arrayx *array(const qel_var *var) { return &var->data.arrayx; }
  static int64_t bits(double d) { return to_f64(d); }
  static double value(int64_t b) { return conv::bits_double(b); }
  static int64_t single(const qel_var *var) { return static_cast<int64_t>(var->data.bits64); }
  static void set_single(qel_var *var, int64_t b) { var->data.bits64 = static_cast<uint64_t>(b); }
};
template <>
struct native<float> {
  static bool has(uint32_t type) { return type == QEL_VAR_FLOAT; }
  static qel_arrayd *array(qel_var *var) { return &var->data.arrayd; }
  static const qel_arrayd *array(const qel_var *var) { return &var->data.arrayd; }
  static uint32_t bits(float f) { return to_f32(f); }
  static float value(uint32_t b) { return conv::bits_float(b); }
  static uint32_t single(const qel_var *var) { return var->data.bits32; }
  static void set_single(qel_var *var, uint32_t b) { var->data.bits32 = b; }
};
template <>
struct native<int64_t> {
  static bool has(uint32_t type) { return type - 1u < 3u; }
  static qel_arrayd *array(qel_var *var) { return &var->data.arrayd; }
  static const qel_arrayd *array(const qel_var *var) { return &var->data.arrayd; }
  static uint32_t bits(int64_t v) { return to_u32(v); }
  static int64_t value(uint32_t b) { return b; }
  static uint32_t single(const qel_var *var) { return var->data.bits32; }
  static void set_single(qel_var *var, uint32_t b) { var->data.bits32 = b; }
};

// Requires a variant.  An array of the caller kind's own codes takes a
// straight path with no jump taken (the append's own rare cases are one tail
// call); everything else goes through the full dispatch.
template <class T>
inline void add_value(qel_var *var, T v) {
  using N = native<T>;
  if (__builtin_expect(N::has(var->type) && var->multi != 0, 1))
    return qel_detail::append(N::array(var), N::bits(v), 0);
  add_value_any(var, v);
}

// Requires a variant.  As add_value: a value of the caller kind's own codes,
// single or in range of an array without a keyed-insert index, is written on
// a straight path with no stack frame.
template <class T>
inline void set_value(qel_var *var, int64_t index, T v) {
  using N = native<T>;
  if (N::has(var->type)) [[likely]] {
    if (var->multi == 0) return N::set_single(var, N::bits(v));
    auto *a = N::array(var);
    if (qel_detail::in_range(a, index) && a->priv_lookup == nullptr) [[likely]] {
      a->entries[index].value = N::bits(v);
      a->entries[index].buf = 0;
      return;
    }
  }
  set_value_any(var, index, v);
}

// Requires a variant.  As add_value: a value of the caller kind's own codes,
// single or in range of an array, is read on a straight path.
template <class T>
inline T get_value(const qel_var *var, int64_t index) {
  using N = native<T>;
  if (N::has(var->type)) [[likely]] {
    if (var->multi == 0) return N::value(N::single(var));
    if (qel_detail::in_range(N::array(var), index)) [[likely]]
      return N::value(N::array(var)->entries[index].value);
  }
  return get_value_any<T>(var, index);
}

// ---- strings ----

// Requires nothing: applies the length rule (negative = strlen, NULL = 0).
// False when the bytes cannot be read: NULL with a positive length.
inline bool measure(const char *text, int64_t &length) {
  if (length < 0) {
    length = text != nullptr ? static_cast<int64_t>(std::strlen(text)) : 0;
    return true;
  }
  return text != nullptr || length == 0;
}

// Requires n >= 0 readable bytes at src: a private copy of them, on the stack
// when small, so they survive changes to the storage they came from.
class byte_copy {
 public:
  byte_copy(const char *src, int64_t n)
      : bytes_(n <= static_cast<int64_t>(sizeof local_) ? local_
                                                        : static_cast<char *>(qel_malloc(static_cast<size_t>(n)))),
        length_(n) {
    if (n > 0) std::memcpy(bytes_, src, static_cast<size_t>(n));
  }
  ~byte_copy() {
    if (bytes_ != local_) qel_free(bytes_);
  }
  byte_copy(const byte_copy &) = delete;
  byte_copy &operator=(const byte_copy &) = delete;
  const char *bytes() const { return bytes_; }
  int64_t length() const { return length_; }

 private:
  char local_[256];
  char *bytes_;
  int64_t length_;
};

// Requires two initialised arrays of one kind: appends src to dst, also when
// they are the same array (then through a copy of its entries).
void append_all(qel_arrayd *dst, const qel_arrayd *src) {
  if (dst != src) return qel_arrayd_append_array(dst, src);
  qel_arrayd copy;
  qel_arrayd_init(&copy, 0);
  qel_arrayd_clone(src, 0, &copy, 0, 0);
  qel_arrayd_append_array(dst, &copy);
  qel_arrayd_term(&copy);
}
void append_all(qel_arrayx *dst, const qel_arrayx *src) {
  if (dst != src) return qel_arrayx_append_array(dst, src);
  qel_arrayx copy;
  qel_arrayx_init(&copy, 0);
  qel_arrayx_clone(src, 0, &copy, 0, 0);
  qel_arrayx_append_array(dst, &copy);
  qel_arrayx_term(&copy);
}
void append_all(qel_array *dst, const qel_array *src) {
  if (dst != src) return qel_array_append_array(dst, src);
  qel_array copy;
  qel_array_init(&copy, 0);
  qel_array_clone(src, 0, &copy, 0, 0);
  qel_array_append_array(dst, &copy);
  qel_array_term(&copy);
}

}  // namespace

// ---- lifecycle ----

// Requires room for a qel_var at place; the record alone, storage not yet
// initialised.
qel_var *qel_var_at(void *place, uint32_t type, uint8_t multi, qel_schema *schema) {
  qel_var *var = ::new (place) qel_var;
  var->type = type;
  var->multi = multi;
  var->schema = schema;
  var->buf = 0;
  return var;
}

// Requires nothing; the record alone in a block of its own.
qel_var *qel_var_alloc(uint32_t type, uint8_t multi, qel_schema *schema) {
  return qel_var_at(qel_malloc(sizeof(qel_var)), type, multi, schema);
}

// Requires type and multi set, data uninitialised; path NULL at the top.
void qel_var_init_at(qel_var *var, void *context, qel_schema_resolver resolver, const qel::build_path *path) {
  const storage cls = storage_of(var->type);
  if (var->multi != 0) {
    switch (cls) {
      case storage::bits32: qel_arrayd_init(&var->data.arrayd, 0); return;
      case storage::bits64: qel_arrayx_init(&var->data.arrayx, 0); return;
      case storage::bytes: qel_array_init(&var->data.array, 0); return;
      case storage::record: qel_arrays_init(&var->data.vars, 0); return;
    }
  }
  switch (cls) {
    case storage::bits32: var->data.bits32 = 0; break;
    case storage::bits64: var->data.bits64 = 0; break;
    case storage::bytes: qel_stream_init(&var->data.stream); break;
    case storage::record:
      qel_hash_init(&var->data.members, 1, 0);
      qel_var_members_new(var, context, resolver, path);
      break;
  }
  var->buf = 0;
}

// Requires type and multi set, data uninitialised.
void qel_var_init(qel_var *var, void *context, qel_schema_resolver resolver) {
  qel_var_init_at(var, context, resolver, nullptr);
}

// Requires initialised storage; releases it, keeping type, multi and schema.
void qel_var_free_x(qel_var *var) {
  const storage cls = storage_of(var->type);
  if (cls == storage::record) return qel_var_record_free_x(var);
  if (var->multi != 0) {
    switch (cls) {
      case storage::bits32: qel_arrayd_term(&var->data.arrayd); return;
      case storage::bits64: qel_arrayx_term(&var->data.arrayx); return;
      case storage::bytes: qel_array_term(&var->data.array); return;
      case storage::record: return;
    }
  }
  switch (cls) {
    case storage::bits32: var->data.bits32 = 0; break;
    case storage::bits64: var->data.bits64 = 0; break;
    case storage::bytes: qel_stream_term(&var->data.stream); break;
    case storage::record: break;
  }
  var->buf = 0;
}

// Requires two variants of one type code and multi byte, src from qel_var_alloc.
void qel_var_move_storage(qel_var *dst, qel_var *src) {
  qel_var_free_x(dst);
  dst->data = src->data;
  dst->buf = src->buf;
  src->type = 1;  // a single 32-bit value holds nothing to release
  src->multi = 0;
  src->data.bits32 = 0;
}

// Requires a variant or NULL; the element destructor of record arrays.
void qel_var_term(void *var) {
  if (var != nullptr) qel_var_free(static_cast<qel_var *>(var));
}

// Requires nothing; a variant with no schema and a fresh value.
extern "C" QEL_API qel_var *qel_var_new(uint32_t type, uint8_t multi) {
  qel_var *var = qel_var_alloc(type, multi, nullptr);
  qel_var_init_at(var, nullptr, nullptr, nullptr);
  return var;
}

// Requires a variant; re-forms it unless type and multi byte already match.
extern "C" QEL_API void qel_var_change(qel_var *var, uint32_t type, uint8_t multi) {
  QEL_REQUIRE(var != nullptr);
  if (var->type == type && var->multi == multi) return;
  qel_var_free_x(var);
  var->type = type;
  var->multi = multi;
  qel_var_init_at(var, nullptr, nullptr, nullptr);
}

// Requires a variant (NULL is not one).
extern "C" QEL_API void qel_var_free(qel_var *var) {
  QEL_REQUIRE(var != nullptr);
  if (storage_of(var->type) == storage::record) return qel_var_free_tree(var);
  qel_var_free_x(var);
  qel_free(var);
}

// Requires a variant.
extern "C" QEL_API uint32_t qel_var_type(const qel_var *var) {
  QEL_REQUIRE(var != nullptr);
  return var->type;
}

// Requires a variant; the multi byte sign-extended.
extern "C" QEL_API int qel_var_multi(const qel_var *var) {
  QEL_REQUIRE(var != nullptr);
  return static_cast<int8_t>(var->multi);
}

// Requires a variant; 0 in the single form, else the element count.
extern "C" QEL_API int64_t qel_var_size(const qel_var *var) {
  QEL_REQUIRE(var != nullptr);
  if (var->multi == 0) return 0;
  switch (storage_of(var->type)) {
    case storage::bits32: return qel_detail::in_use(&var->data.arrayd);
    case storage::bits64: return qel_detail::in_use(&var->data.arrayx);
    case storage::bytes: return qel_detail::in_use(&var->data.array);
    case storage::record: return var->data.vars.count;
  }
  return 0;
}

// ---- numbers ----

// Requires a variant (all twelve below).
extern "C" QEL_API void qel_var_add_integer(qel_var *var, int64_t value) {
  QEL_REQUIRE(var != nullptr);
  add_value(var, value);
}
extern "C" QEL_API void qel_var_add_long(qel_var *var, int64_t value) {
  QEL_REQUIRE(var != nullptr);
  add_value(var, value);
}
extern "C" QEL_API void qel_var_add_float(qel_var *var, float value) {
  QEL_REQUIRE(var != nullptr);
  add_value(var, value);
}
extern "C" QEL_API void qel_var_add_double(qel_var *var, double value) {
  QEL_REQUIRE(var != nullptr);
  add_value(var, value);
}
extern "C" QEL_API void qel_var_set_integer(qel_var *var, int64_t index, int64_t value) {
  QEL_REQUIRE(var != nullptr);
  set_value(var, index, value);
}
extern "C" QEL_API void qel_var_set_long(qel_var *var, int64_t index, int64_t value) {
  QEL_REQUIRE(var != nullptr);
  set_value(var, index, value);
}
extern "C" QEL_API void qel_var_set_float(qel_var *var, int64_t index, float value) {
  QEL_REQUIRE(var != nullptr);
  set_value(var, index, value);
}
extern "C" QEL_API void qel_var_set_double(qel_var *var, int64_t index, double value) {
  QEL_REQUIRE(var != nullptr);
  set_value(var, index, value);
}
extern "C" QEL_API int64_t qel_var_get_integer(const qel_var *var, int64_t index) {
  QEL_REQUIRE(var != nullptr);
  return get_value<int64_t>(var, index);
}
extern "C" QEL_API int64_t qel_var_get_long(const qel_var *var, int64_t index) {
  QEL_REQUIRE(var != nullptr);
  return get_value<int64_t>(var, index);
}
extern "C" QEL_API float qel_var_get_float(const qel_var *var, int64_t index) {
  QEL_REQUIRE(var != nullptr);
  return get_value<float>(var, index);
}
extern "C" QEL_API double qel_var_get_double(const qel_var *var, int64_t index) {
  QEL_REQUIRE(var != nullptr);
  return get_value<double>(var, index);
}

// ---- strings ----

// Requires a variant and length readable bytes at text (negative: measured).
extern "C" QEL_API void qel_var_add_string(qel_var *var, const char *text, int64_t length) {
  QEL_REQUIRE(var != nullptr);
  if (var->multi == 0 || storage_of(var->type) != storage::bytes) return;
  if (!measure(text, length)) return;
  qel_array_append(&var->data.array, text, length, 0);  // safe with bytes from its own pool
}

// Requires a variant and length readable bytes at text (negative: measured).
extern "C" QEL_API void qel_var_set_string(qel_var *var, int64_t index, const char *text, int64_t length) {
  QEL_REQUIRE(var != nullptr);
  if (storage_of(var->type) != storage::bytes) return;
  if (!measure(text, length)) return;
  // Both containers accept bytes from their own storage.
  if (var->multi != 0) qel_array_set_at(&var->data.array, index, text, length, 0);
  else qel_stream_copy(&var->data.stream, text, length);
}

// Requires a variant and two outputs; NULL and 0 unless a string is there.
extern "C" QEL_API void qel_var_get_string(const qel_var *var, int64_t index, const char **text_out,
                                           int64_t *length_out) {
  QEL_REQUIRE(var != nullptr);
  *text_out = nullptr;
  *length_out = 0;
  if (storage_of(var->type) != storage::bytes) return;
  if (var->multi != 0) {
    qel_array_get_at(&var->data.array, index, text_out, length_out);
  } else {
    *text_out = var->data.stream.bytes;
    *length_out = var->data.stream.length;
  }
}

// ---- variant to variant ----

// Requires two variants (may be the same): appends src's value or values to
// the array dst of the same type code.
extern "C" QEL_API void qel_var_add_var(qel_var *dst, const qel_var *src) {
  QEL_REQUIRE(dst != nullptr);
  QEL_REQUIRE(src != nullptr);
  if (dst->multi == 0 || dst->type != src->type) return;
  const storage cls = storage_of(src->type);
  if (src->multi == 0) {
    // Appending the stored bits is the matching get/add pair without the round trip.
    switch (cls) {
      case storage::bits32: qel_detail::append(&dst->data.arrayd, src->data.bits32, 0); return;
      case storage::bits64: qel_detail::append(&dst->data.arrayx, static_cast<int64_t>(src->data.bits64), 0); return;
      case storage::bytes:
        qel_array_append(&dst->data.array, src->data.stream.bytes, src->data.stream.length, 0);
        return;
      case storage::record: return;
    }
  }
  switch (cls) {
    case storage::bits32: append_all(&dst->data.arrayd, &src->data.arrayd); return;
    case storage::bits64: append_all(&dst->data.arrayx, &src->data.arrayx); return;
    case storage::bytes: append_all(&dst->data.array, &src->data.array); return;
    case storage::record: return;
  }
}

// Requires two variants (may be the same): stores src's first value into dst
// (element index of an array dst) when the type codes agree.
extern "C" QEL_API void qel_var_set_var(qel_var *dst, int64_t index, const qel_var *src) {
  QEL_REQUIRE(dst != nullptr);
  QEL_REQUIRE(src != nullptr);
  if (dst->type != src->type) return;
  switch (storage_of(src->type)) {
    case storage::bits32: put32(dst, index, get32(src, 0)); return;
    case storage::bits64: put64(dst, index, get64(src, 0)); return;
    case storage::bytes: {
      const char *text = nullptr;
      int64_t length = 0;
      qel_var_get_string(src, 0, &text, &length);
      qel_var_set_string(dst, index, text, length);
      return;
    }
    case storage::record: return;
  }
}

// Requires two variants (may overlap): makes dst a single variant of src's
// type code holding src's value at index.
extern "C" QEL_API void qel_var_get_var(const qel_var *src, int64_t index, qel_var *dst) {
  QEL_REQUIRE(src != nullptr);
  QEL_REQUIRE(dst != nullptr);
  const bool reform = dst->type != src->type || dst->multi != 0;
  // Every value is read before dst is re-formed: src may be dst itself or
  // live inside it.
  switch (storage_of(src->type)) {
    case storage::bits32: {
      const uint32_t bits = get32(src, index);
      if (reform) qel_var_change(dst, src->type, 0);
      dst->data.bits32 = bits;
      return;
    }
    case storage::bits64: {
      const int64_t bits = get64(src, index);
      if (reform) qel_var_change(dst, src->type, 0);
      dst->data.bits64 = static_cast<uint64_t>(bits);
      return;
    }
    case storage::bytes: {
      const char *text = nullptr;
      int64_t length = 0;
      qel_var_get_string(src, index, &text, &length);
      if (!reform) return qel_stream_copy(&dst->data.stream, text, length);
      const byte_copy value(text, length);
      qel_var_change(dst, src->type, 0);
      qel_stream_copy(&dst->data.stream, value.bytes(), value.length());
      return;
    }
    case storage::record:
      if (reform) qel_var_change(dst, src->type, 0);
      return;
  }
}
