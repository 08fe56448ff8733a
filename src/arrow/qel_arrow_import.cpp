// Import of Arrow arrays into full variants.  The input is checked first
// (qel_arrow_columns.cpp); the rows are then read into a fresh variant of the
// destination's code, form and schema, which replaces the destination's
// storage only once every row was read, so a failed import changes nothing.
#include <cmath>
#include <cstring>
#if defined(__SSE2__)
#include <emmintrin.h>
#endif

#include "arrow/qel_arrow_columns.h"
#include "arrow/qel_arrow_export.h"
#include "internal/qel_convert.h"
#include "internal/qel_var_internal.h"
#include "qel_std_inline.h"

using qel::storage;
using qel::storage_of;

namespace qel::arrow {
namespace {

// A number as read from any numeric column.
struct number {
  enum class cls : uint8_t { sint, uint, f32, f64 } c;
  int64_t i;   // sint, and uint up to INT64_MAX
  uint64_t u;  // uint above INT64_MAX
  float f;
  double d;
};

template <typename S>
number make_number(S v) {
  number n{};
  if constexpr (std::is_same_v<S, float>) {
    n.c = number::cls::f32;
    n.f = v;
  } else if constexpr (std::is_same_v<S, double>) {
    n.c = number::cls::f64;
    n.d = v;
  } else if constexpr (std::is_signed_v<S>) {
    n.c = number::cls::sint;
    n.i = v;
  } else if (static_cast<uint64_t>(v) <= static_cast<uint64_t>(INT64_MAX)) {
    n.c = number::cls::sint;
    n.i = static_cast<int64_t>(v);
  } else {
    n.c = number::cls::uint;
    n.u = static_cast<uint64_t>(v);
  }
  return n;
}

constexpr double kTwo64 = 18446744073709551616.0;

// Requires a number: as an integer within [lo, hi] exactly, or false.
bool exact_int(const number &n, int64_t lo, int64_t hi, int64_t *out) {
  int64_t v = 0;
  switch (n.c) {
    case number::cls::sint: v = n.i; break;
    case number::cls::uint: return false;  // above INT64_MAX: no destination holds it
    case number::cls::f32:
    case number::cls::f64: {
      const double d = n.c == number::cls::f32 ? static_cast<double>(n.f) : n.d;
      v = conv::truncate(d);
      if (static_cast<double>(v) != d) return false;
      break;
    }
  }
  if (v < lo || v > hi) return false;
  *out = v;
  return true;
}

// Requires a number: as a float exactly (or rounded for a double with
// `round`), or false.
bool exact_float(const number &n, bool round, float *out) {
  switch (n.c) {
    case number::cls::sint: {
      const float f = conv::to_float(n.i);
      if (conv::truncate(f) != n.i) return false;
      *out = f;
      return true;
    }
    case number::cls::uint: {
      const auto f = static_cast<float>(n.u);
      if (!(static_cast<double>(f) < kTwo64) || static_cast<uint64_t>(f) != n.u) return false;
      *out = f;
      return true;
    }
    case number::cls::f32: *out = n.f; return true;
    case number::cls::f64: {
      const float f = conv::to_float(n.d);
      if (std::isnan(n.d) || static_cast<double>(f) == n.d || (round && !std::isinf(f))) {
        *out = f;
        return true;
      }
      return false;
    }
  }
  return false;
}

// Requires a number: as a double exactly, or false.
bool exact_double(const number &n, double *out) {
  switch (n.c) {
    case number::cls::sint: {
      const double d = conv::to_double(n.i);
      if (conv::truncate(d) != n.i) return false;
      *out = d;
      return true;
    }
    case number::cls::uint: {
      const auto d = static_cast<double>(n.u);
      if (!(d < kTwo64) || static_cast<uint64_t>(d) != n.u) return false;
      *out = d;
      return true;
    }
    case number::cls::f32: *out = static_cast<double>(n.f); return true;
    case number::cls::f64: *out = n.d; return true;
  }
  return false;
}

// Requires a number code: the stored bits of n (32-bit class in the low
// half), or false when the code cannot hold it exactly.
bool number_bits(uint32_t type, const number &n, bool round, uint64_t *bits) {
  switch (type) {
    case 4: {
      int64_t v = 0;
      if (!exact_int(n, INT64_MIN, INT64_MAX, &v)) return false;
      *bits = static_cast<uint64_t>(v);
      return true;
    }
    case 5: {
      float f = 0;
      if (!exact_float(n, round, &f)) return false;
      *bits = conv::float_bits(f);
      return true;
    }
    case 6: {
      double d = 0;
      if (!exact_double(n, &d)) return false;
      *bits = static_cast<uint64_t>(conv::double_bits(d));
      return true;
    }
    default: {
      int64_t v = 0;
      if (!exact_int(n, 0, 0xFFFFFFFF, &v)) return false;
      *bits = static_cast<uint64_t>(v);
      return true;
    }
  }
}

// Requires n values of the entries' kind at src and room for n entries at
// out: entries of those values with caller value 0 (any alignment of src).
template <typename Entry>
void scatter(Entry *__restrict out, const char *__restrict src, int64_t n) {
  using value_t = decltype(out->value);
  int64_t i = 0;
#if defined(__SSE2__)
  if constexpr (sizeof(value_t) == 8) {
    // Two values a step, each widened to its whole 16-byte entry.
    const __m128i zero = _mm_setzero_si128();
    for (; i + 2 <= n; i += 2) {
      const __m128i two = _mm_loadu_si128(reinterpret_cast<const __m128i *>(src + i * 8));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(&out[i]), _mm_unpacklo_epi64(two, zero));
      _mm_storeu_si128(reinterpret_cast<__m128i *>(&out[i + 1]), _mm_unpackhi_epi64(two, zero));
    }
  }
#endif
  for (; i < n; ++i) {
    value_t v;
    std::memcpy(&v, src + i * static_cast<int64_t>(sizeof v), sizeof v);
    out[i].value = v;
    out[i].buf = 0;
  }
}

bool is_numeric(ckind k) { return k >= ckind::boolean && k <= ckind::f64; }
bool is_bytes(ckind k) { return k == ckind::bin32 || k == ckind::bin64 || k == ckind::view; }
bool is_list(ckind k) { return k == ckind::list32 || k == ckind::list64 || k == ckind::fixed_list; }

// Requires a numeric column and 0 <= p: the number at physical position p.
template <typename S>
S read_at(const column *c, int64_t p) {
  if constexpr (std::is_same_v<S, bool>) {
    return ((static_cast<const uint8_t *>(c->values)[p >> 3] >> (p & 7)) & 1) != 0;
  } else {
    return load<S>(c->values, p);
  }
}

// Requires a numeric column: the number at row r.
number number_at(const column *c, int64_t r) {
  const int64_t p = c->offset + r;
  switch (c->kind) {
    case ckind::boolean: return make_number(static_cast<uint8_t>(read_at<bool>(c, p)));
    case ckind::i8: return make_number(read_at<int8_t>(c, p));
    case ckind::u8: return make_number(read_at<uint8_t>(c, p));
    case ckind::i16: return make_number(read_at<int16_t>(c, p));
    case ckind::u16: return make_number(read_at<uint16_t>(c, p));
    case ckind::i32: return make_number(read_at<int32_t>(c, p));
    case ckind::u32: return make_number(read_at<uint32_t>(c, p));
    case ckind::i64: return make_number(read_at<int64_t>(c, p));
    case ckind::u64: return make_number(read_at<uint64_t>(c, p));
    case ckind::f32: return make_number(read_at<float>(c, p));
    default: return make_number(read_at<double>(c, p));
  }
}

// What a value slot of a column holds.
enum class got : uint8_t { value, null, error };

class importer {
 public:
  importer(reporter &rep, void *context, qel_schema_resolver resolver, unsigned flags)
      : rep_(rep), context_(context), resolver_(resolver), flags_(flags) {}

  // Requires a fresh array variant: appends the rows of c.
  bool top(const column *c, qel_var *arr) {
    if ((flags_ & QEL_ARROW_CALLER_VALUES) != 0 && storage_of(arr->type) != storage::record &&
        c->kind == ckind::strukt && c->dict == nullptr)
      return with_bufs(c, arr);
    return rows(c, 0, c->length, arr, true);
  }

 private:
  bool skip_nulls() const { return (flags_ & QEL_ARROW_SKIP_NULLS) != 0; }
  bool round() const { return (flags_ & QEL_ARROW_ROUND_FLOATS) != 0; }

  // Requires 0 <= r < c->length: resolves a dictionary and nulls, leaving in
  // *src and *at where the value is.
  got locate(const column *c, int64_t r, const column **src, int64_t *at) {
    if (c->is_null(r)) return got::null;
    if (c->dict == nullptr) {
      *src = c;
      *at = r;
      return got::value;
    }
    const int64_t idx = c->index_at(r);
    if (idx < 0 || idx >= c->dict->length) {
      rep_.fail(QEL_ARROW_ERR_INVALID, row_, "dictionary index %lld outside its %lld values",
                static_cast<long long>(idx), static_cast<long long>(c->dict->length));
      return got::error;
    }
    if (c->dict->is_null(idx)) return got::null;
    *src = c->dict;
    *at = idx;
    return got::value;
  }

  // Requires nothing: the outcome of a null (skipped, or an error).
  bool null_met() {
    if (skip_nulls()) return true;
    return rep_.fail(QEL_ARROW_ERR_NULL, row_, "a null (QEL_ARROW_SKIP_NULLS skips them)");
  }

  bool mismatch(const column *c, const char *expected) {
    const column *v = c->dict != nullptr ? c->dict : c;
    return rep_.fail(QEL_ARROW_ERR_TYPE, row_, "expected %s, found %s (\"%.20s\")", expected, kind_name(v->kind),
                     v->schema->format);
  }

  // Requires a column whose values may be read as bytes: the bytes at
  // position r of src (a value, not a dictionary).
  bool bytes_at(const column *src, int64_t r, const char **p, int64_t *n) {
    if (src->kind == ckind::view) {
      const int64_t at = (src->offset + r) * 16;
      const auto len = load<int32_t>(src->values, at / 4);
      if (len < 0) return rep_.fail(QEL_ARROW_ERR_INVALID, row_, "a view of negative length");
      if (len <= 12) {
        *p = static_cast<const char *>(src->values) + at + 4;
        *n = len;
        return true;
      }
      const auto buf = load<int32_t>(src->values, at / 4 + 2);
      const auto off = load<int32_t>(src->values, at / 4 + 3);
      if (buf < 0 || buf >= src->n_variadic || off < 0 || int64_t{off} + len > load<int64_t>(src->variadic_sizes, buf))
        return rep_.fail(QEL_ARROW_ERR_INVALID, row_, "a view outside its data buffers");
      *p = load<const char *>(src->variadic, buf) + off;
      *n = len;
      return true;
    }
    int64_t b = 0, e = 0;
    src->list_range(r, &b, &e);
    *n = e - b;
    *p = *n != 0 ? src->data + b : "";  // the data buffer may be NULL when every string is empty
    return true;
  }

  // Requires a column row not null: stores it in the single variant m.
  bool single(const column *c, int64_t r, qel_var *m) {
    if (m->multi != 0) return list_into(c, r, m);
    const column *src = nullptr;
    int64_t at = 0;
    const got g = locate(c, r, &src, &at);
    if (g == got::error) return false;
    if (g == got::null) return null_met();
    switch (storage_of(m->type)) {
      case storage::bits32:
      case storage::bits64: {
        if (!is_numeric(src->kind)) return mismatch(c, "a number");
        uint64_t bits = 0;
        if (!number_bits(m->type, number_at(src, at), round(), &bits)) return range(m->type);
        if (storage_of(m->type) == storage::bits32) m->data.bits32 = static_cast<uint32_t>(bits);
        else m->data.bits64 = bits;
        return true;
      }
      case storage::bytes: {
        if (!is_bytes(src->kind)) return mismatch(c, "bytes");
        const char *p = nullptr;
        int64_t n = 0;
        if (!bytes_at(src, at, &p, &n)) return false;
        qel_stream_copy(&m->data.stream, p, n);
        return true;
      }
      case storage::record:
        if (src->kind != ckind::strukt) return mismatch(c, "a struct");
        return record(src, at, m);
    }
    return false;
  }

  bool range(uint32_t type) {
    const char *what = type == 4   ? "a signed 64-bit integer"
                       : type == 5 ? "a float"
                       : type == 6 ? "a double"
                                   : "an integer from 0 to 4294967295";
    return rep_.fail(QEL_ARROW_ERR_RANGE, row_, "a value that is not exactly %s", what);
  }

  // Requires a list column row not null and an array m: m's elements
  // become the list's.
  bool list_into(const column *c, int64_t r, qel_var *m) {
    const column *src = nullptr;
    int64_t at = 0;
    const got g = locate(c, r, &src, &at);
    if (g == got::error) return false;
    if (g == got::null) return null_met();
    if (!is_list(src->kind)) return mismatch(c, "a list");
    int64_t b = 0, e = 0;
    src->list_range(at, &b, &e);
    return rows(&src->children[0], b, e, m, false);
  }

  // Requires a struct column position and a single record: reads the
  // children into its members.
  bool record(const column *c, int64_t r, qel_var *rec) {
    const int64_t row = c->offset + r;  // the children's row
    for (int64_t k = 0; k < c->n_children; ++k) {
      const column *child = &c->children[k];
      const char *name = child->name;
      const int64_t len = child->name_len;
      const size_t mark = rep_.enter(name, len);
      qel_var *m = member(rec, name, len, &c->member_hint[k]);
      bool ok = true;
      if (m != nullptr) {
        ok = single(child, row, m);
      } else if (rep_.code() == QEL_ARROW_OK) {
        ok = caller_values(child, row, rec, name, len);
      } else {
        ok = false;
      }
      rep_.leave(mark);
      if (!ok) return false;
    }
    return true;
  }

  // Requires a single record: member `name`, found through the hint first
  // (records made from one schema list their members in one order),
  // created when only the schema lists it; NULL when neither has it.
  qel_var *member(qel_var *rec, const char *name, int64_t len, int64_t *hint) {
    const qel_hash *h = &rec->data.members;
    auto named = [&](int64_t i) -> qel_var * {
      const qel_hash_entry *e = qel_detail::hash_entry_at(h, static_cast<uint32_t>(i));
      if (e->value == nullptr || e->key_length != len) return nullptr;
      const char *key = h->key_pool + e->key_offset;
      for (int64_t k = 0; k < len; ++k)
        if (key[k] != name[k]) return nullptr;
      return static_cast<qel_var *>(e->value);
    };
    const int64_t count = h->priv_count;
    if (*hint >= 0 && *hint < count)
      if (qel_var *m = named(*hint)) return m;
    for (int64_t i = 0; i < count; ++i)
      if (qel_var *m = named(i)) {
        *hint = i;
        return m;
      }
    uint32_t type = 0;
    uint8_t multi = 0;
    if (rec->schema == nullptr || qel_var_schema_find(rec->schema, name, len, &type, &multi) < 0) return nullptr;
    qel_var *made = qel_var_new_x(type, multi, context_, resolver_);
    qel_hash_entry *e = qel_hash_insert(&rec->data.members, name, len, made);
    if (e == nullptr || e->value != made) {
      qel_var_free(made);
      rep_.fail(QEL_ARROW_ERR_RANGE, row_, "a member the record cannot hold");
      return nullptr;
    }
    return made;
  }

  // Requires a child that names no member: a caller-value child "m.buf"
  // of a member m (with QEL_ARROW_CALLER_VALUES), skipped (with
  // QEL_ARROW_SKIP_UNKNOWN), or an error.
  bool caller_values(const column *child, int64_t row, qel_var *rec, const char *name, int64_t len) {
    if ((flags_ & QEL_ARROW_CALLER_VALUES) != 0 && len > 4 && std::memcmp(name + len - 4, ".buf", 4) == 0) {
      auto *m = static_cast<qel_var *>(qel_detail::hash_get(&rec->data.members, name, len - 4));
      if (m != nullptr && storage_of(m->type) != storage::record) return bufs_into(child, row, m);
    }
    if ((flags_ & QEL_ARROW_SKIP_UNKNOWN) != 0) return true;
    return rep_.fail(QEL_ARROW_ERR_UNKNOWN, row_, "a column the record has no member for");
  }

  // Requires a value variant m: its caller values from row `row` of c (a
  // uint64 column for a single m, a list of them for an array).
  bool bufs_into(const column *c, int64_t row, qel_var *m) {
    if (c->is_null(row)) return true;
    if (m->multi == 0) {
      if (c->kind != ckind::u64 || c->dict != nullptr) return mismatch(c, "uint64 caller values");
      m->buf = load<uint64_t>(c->values, c->offset + row);
      return true;
    }
    if (!is_list(c->kind) || c->dict != nullptr) return mismatch(c, "a list of uint64 caller values");
    int64_t b = 0, e = 0;
    c->list_range(row, &b, &e);
    return set_bufs(&c->children[0], b, e, m);
  }

  // Requires rows [b, e) of c: the caller values of m's last e - b elements.
  bool set_bufs(const column *c, int64_t b, int64_t e, qel_var *m) {
    if (c->kind != ckind::u64 || c->dict != nullptr) return mismatch(c, "uint64 caller values");
    const int64_t base = qel_var_size(m) - (e - b);
    if (base < 0) return rep_.fail(QEL_ARROW_ERR_INVALID, row_, "more caller values than values");
    for (int64_t i = b; i < e; ++i)
      if (!c->is_null(i)) qel_var_set_buf(m, base + i - b, load<uint64_t>(c->values, c->offset + i));
    return true;
  }

  // Requires a fresh value array and a struct {value, value.buf}.
  bool with_bufs(const column *c, qel_var *arr) {
    const column *values = nullptr, *bufs = nullptr;
    for (int64_t k = 0; k < c->n_children; ++k) {
      const char *name = c->children[k].name;
      if (std::strcmp(name, "value") == 0) values = &c->children[k];
      if (std::strcmp(name, "value.buf") == 0) bufs = &c->children[k];
    }
    if (values == nullptr || c->n_children != (bufs != nullptr ? 2 : 1))
      return rep_.fail(QEL_ARROW_ERR_TYPE, -1, "expected a struct of \"value\" and \"value.buf\"");
    if (!rows(values, c->offset, c->offset + c->length, arr, true)) return false;
    return bufs == nullptr || set_bufs(bufs, c->offset, c->offset + c->length, arr);
  }

  // Requires a record array's elements: room for n more (one allocation
  // instead of one per doubling).
  static void reserve(qel_arrays *vars, int64_t n) {
    const int64_t want = qel_detail::in_use(vars) + n;
    if (want <= vars->capacity) return;
    vars->entries = qel_detail::resize_entries(vars->entries, vars->capacity, want);
    vars->capacity = want;
  }

  // Requires an array variant: a new element, made as qel_json_read makes it.
  qel_var *new_element(qel_var *arr) {
    qel_var *e = nullptr;
    if (resolver_ != nullptr) {
      e = qel_var_new_x(arr->type, 0, context_, resolver_);
    } else {
      e = qel_var_alloc(arr->type, 0, arr->schema);
      qel_var_init_at(e, context_, nullptr, nullptr);
    }
    qel_arrays_append(&arr->data.vars, e);  // owned by the array from here on
    return e;
  }

  // Requires rows [b, e) of c and a fresh array variant: appends them.
  bool rows(const column *c, int64_t b, int64_t e, qel_var *arr, bool top) {
    const column *v = c->dict != nullptr ? c->dict : c;
    const storage cls = storage_of(arr->type);
    if (v->kind != ckind::null) {
      if ((cls == storage::bits32 || cls == storage::bits64) && !is_numeric(v->kind)) return mismatch(c, "numbers");
      if (cls == storage::bytes && !is_bytes(v->kind)) return mismatch(c, "bytes");
      if (cls == storage::record && v->kind != ckind::strukt) return mismatch(c, "structs");
    }
    switch (cls) {
      case storage::bits32: return numbers(c, b, e, &arr->data.arrayd, arr->type, top);
      case storage::bits64: return numbers(c, b, e, &arr->data.arrayx, arr->type, top);
      case storage::bytes: return strings(c, b, e, &arr->data.array, top);
      case storage::record:
        reserve(&arr->data.vars, e - b);
        for (int64_t i = b; i < e; ++i) {
          if (top) row_ = i;
          qel_var *elem = new_element(arr);
          const column *src = nullptr;
          int64_t at = 0;
          const got g = locate(c, i, &src, &at);
          if (g == got::error) return false;
          if (g == got::null) {
            if (!null_met()) return false;
            continue;
          }
          if (!record(src, at, elem)) return false;
        }
        return true;
    }
    return false;
  }

  // Requires a fresh qel_arrayd or qel_arrayx and numeric (or null) rows.
  template <typename A>
  bool numbers(const column *c, int64_t b, int64_t e, A *arr, uint32_t type, bool top) {
    const int64_t n = e - b;
    const int64_t base = qel_detail::in_use(arr);
    if (base + n > arr->capacity) {  // every new entry is written below, so no zero fill first
      arr->entries = static_cast<decltype(arr->entries)>(
          qel_detail::xrealloc(arr->entries, static_cast<size_t>(base + n) * sizeof(arr->entries[0])));
      arr->capacity = base + n;
    }
    auto *out = arr->entries + base;
    using value_t = decltype(out->value);
    const column *v = c->dict != nullptr ? c->dict : c;
    // Plain columns of the stored kind: a straight copy.
    if (c->dict == nullptr && c->validity == nullptr &&
        ((type == 6 && v->kind == ckind::f64) || (type == 4 && v->kind == ckind::i64) ||
         (type == 5 && v->kind == ckind::f32))) {
      scatter(out, static_cast<const char *>(c->values) + (c->offset + b) * static_cast<int64_t>(sizeof(value_t)), n);
      arr->count = base + n;
      return true;
    }
    for (int64_t i = 0; i < n; ++i) {
      if (top) row_ = b + i;
      const column *src = nullptr;
      int64_t at = 0;
      const got g = locate(c, b + i, &src, &at);
      uint64_t bits = 0;
      if (g == got::error) return false;
      if (g == got::null) {
        if (!null_met()) return false;
      } else if (!number_bits(type, number_at(src, at), round(), &bits)) {
        return range(type);
      }
      out[i].value = static_cast<value_t>(bits);
      out[i].buf = 0;
    }
    arr->count = base + n;
    return true;
  }

  // Requires a fresh qel_array and byte (or null) rows.
  bool strings(const column *c, int64_t b, int64_t e, qel_array *arr, bool top) {
    qel_detail::reserve_exact(arr, qel_detail::in_use(arr) + (e - b));
    for (int64_t i = b; i < e; ++i) {
      if (top) row_ = i;
      const column *src = nullptr;
      int64_t at = 0;
      const got g = locate(c, i, &src, &at);
      const char *p = "";
      int64_t len = 0;
      if (g == got::error) return false;
      if (g == got::null) {
        if (!null_met()) return false;
      } else if (!bytes_at(src, at, &p, &len)) {
        return false;
      }
      const int64_t before = arr->count;
      qel_array_append(arr, p, len, 0);
      if (arr->count == before) return rep_.fail(QEL_ARROW_ERR_RANGE, row_, "strings beyond the array's 4 GiB");
    }
    return true;
  }

  reporter &rep_;
  void *context_;
  qel_schema_resolver resolver_;
  unsigned flags_;
  int64_t row_ = -1;
};

}  // namespace

// Requires a fresh array variant: reads the checked columns into it.
int import_into(reporter &rep, const column *root, void *context, qel_schema_resolver resolver, unsigned flags,
                qel_var *work) {
  importer im(rep, context, resolver, flags);
  return im.top(root, work) ? QEL_ARROW_OK : rep.code();
}

}  // namespace qel::arrow

namespace {

// Requires a multi variant: a fresh, empty variant of its code, form and
// schema, for an import to fill.
qel_var *fresh_like(const qel_var *dst) {
  qel_var *work = qel_var_alloc(dst->type, dst->multi, dst->schema);
  qel_var_init_at(work, nullptr, nullptr, nullptr);
  return work;
}

// Requires a filled work variant of dst's code and form: moves it into dst,
// keeping dst's caller value, and frees what is left of it.
void commit(qel_var *dst, qel_var *work) {
  work->buf = dst->buf;
  qel_var_move_storage(dst, work);
  qel_var_free(work);
}

}  // namespace

extern "C" QEL_API int qel_arrow_import(qel_var *dst, const ArrowSchema *schema, const ArrowArray *array, void *context,
                                        qel_schema_resolver resolver, unsigned flags, qel_arrow_error *err) {
  qel::arrow::reporter rep(flags, err);
  if (dst->multi == 0) {
    rep.fail(QEL_ARROW_ERR_TYPE, -1, "expected a destination in the multi form, found code %u in the single form",
             dst->type);
    return rep.code();
  }
  qel::arrow::column *root = qel::arrow::columns_open(rep, schema, array);
  if (root == nullptr) return rep.code();
  qel_var *work = fresh_like(dst);
  const int rc = qel::arrow::import_into(rep, root, context, resolver, flags, work);
  qel::arrow::columns_free(root);
  if (rc != QEL_ARROW_OK) {
    qel_var_free(work);
    return rc;
  }
  commit(dst, work);
  return QEL_ARROW_OK;
}

extern "C" QEL_API int qel_arrow_import_stream(qel_var *dst, ArrowArrayStream *stream, void *context,
                                               qel_schema_resolver resolver, unsigned flags, qel_arrow_error *err) {
  qel::arrow::reporter rep(flags, err);
  if (dst->multi == 0) {
    rep.fail(QEL_ARROW_ERR_TYPE, -1, "expected a destination in the multi form, found code %u in the single form",
             dst->type);
    return rep.code();
  }
  if (stream == nullptr || stream->release == nullptr) {
    rep.fail(QEL_ARROW_ERR_STREAM, -1, "a missing or released stream");
    return rep.code();
  }
  ArrowSchema schema;
  schema.release = nullptr;
  if (stream->get_schema(stream, &schema) != 0 || schema.release == nullptr) {
    const char *why = stream->get_last_error != nullptr ? stream->get_last_error(stream) : nullptr;
    rep.fail(QEL_ARROW_ERR_STREAM, -1, "get_schema failed: %.120s", why != nullptr ? why : "no reason given");
    if (schema.release != nullptr) schema.release(&schema);
    return rep.code();
  }
  qel_var *work = fresh_like(dst);
  int rc = QEL_ARROW_OK;
  for (;;) {
    ArrowArray chunk;
    chunk.release = nullptr;
    if (stream->get_next(stream, &chunk) != 0) {
      const char *why = stream->get_last_error != nullptr ? stream->get_last_error(stream) : nullptr;
      rep.fail(QEL_ARROW_ERR_STREAM, -1, "get_next failed: %.120s", why != nullptr ? why : "no reason given");
      if (chunk.release != nullptr) chunk.release(&chunk);
      rc = rep.code();
      break;
    }
    if (chunk.release == nullptr) break;  // the end
    qel::arrow::column *root = qel::arrow::columns_open(rep, &schema, &chunk);
    rc = root != nullptr ? qel::arrow::import_into(rep, root, context, resolver, flags, work) : rep.code();
    qel::arrow::columns_free(root);
    chunk.release(&chunk);
    if (rc != QEL_ARROW_OK) break;
  }
  schema.release(&schema);
  if (rc != QEL_ARROW_OK) {
    qel_var_free(work);
    return rc;
  }
  commit(dst, work);
  return QEL_ARROW_OK;
}
