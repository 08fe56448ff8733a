// Avro datums read into full variants by Avro's resolution rules: the
// writer's schema drives the walk over the bytes, the destination's type
// code, form and schema say what each value may become.  Recursion is
// bounded by QEL_AVRO_MAX_DEPTH; counts and lengths are checked against the
// bytes left before anything is allocated.  One walk serves both passes
// (Apply false: check; true: write).
#include "avro/avro_read.h"

#include <cmath>
#include <cstring>

#include "internal/qel_convert.h"
#include "internal/qel_utf8.h"
#include "qel_std_inline.h"

namespace qel::avro {

reader::reader(void *context, qel_schema_resolver resolver, unsigned flags, qel_avro_error *err, int64_t budget)
    : context_(context), resolver_(resolver), flags_(flags), err_(err), budget_(budget) {}

void reader::input(const char *bytes, int64_t len, int64_t base, bool own) {
  own_ = own;
  begin_ = p_ = reinterpret_cast<const unsigned char *>(bytes);
  end_ = begin_ + len;
  base_ = base;
}

bool reader::fail(int code, const path_step *at, const char *message) {
  if (code_ != QEL_AVRO_OK) return false;
  code_ = code;
  set_error(err_, code, own_ ? base_ + (p_ - begin_) : base_, at, message);
  return false;
}

bool reader::deeper(int depth, const path_step *at) {
  return depth <= QEL_AVRO_MAX_DEPTH || fail(QEL_AVRO_ERR_DEPTH, at, "expected values nested at most 1000 deep");
}

bool reader::read_long(int64_t *out, const path_step *at) {
  uint64_t z = 0;
  for (int shift = 0; shift < 70; shift += 7) {
    if (p_ >= end_) return fail(QEL_AVRO_ERR_TRUNCATED, at, "expected a varint, found the end of the input");
    const unsigned b = *p_++;
    if (shift == 63 && b > 1) return fail(QEL_AVRO_ERR_INVALID, at, "expected a varint of at most 64 bits");
    z |= static_cast<uint64_t>(b & 0x7F) << shift;
    if ((b & 0x80) == 0) {
      *out = static_cast<int64_t>((z >> 1) ^ (~(z & 1) + 1));
      return true;
    }
  }
  return false;  // not reached: the tenth byte ends the loop
}

bool reader::read_length(int64_t *out, const path_step *at) {
  const unsigned char *start = p_;
  if (!read_long(out, at)) return false;
  if (*out < 0) {
    p_ = start;
    return fail(QEL_AVRO_ERR_INVALID, at, "expected a length, found a negative number");
  }
  if (*out > end_ - p_) return fail(QEL_AVRO_ERR_TRUNCATED, at, "expected as many bytes as the length says");
  return true;
}

bool reader::read_bytes(const node *w, const char **s, int64_t *n, const path_step *at) {
  if (w->k != kind::bytes && w->k != kind::string)
    return fail(QEL_AVRO_ERR_TYPE, at, "expected bytes or a string from the writer");
  if (!read_length(n, at)) return false;
  const unsigned char *q = p_, *end = p_ + *n;
  if (w->k == kind::string) {
    while (q < end) {
      if (*q < 0x80) {
        ++q;
        continue;
      }
      const int len = qel::utf8_sequence(q, end);
      if (len == 0) {
        p_ = q;
        return fail(QEL_AVRO_ERR_UTF8, at, "expected a UTF-8 string");
      }
      q += len;
    }
  }
  *s = reinterpret_cast<const char *>(p_);
  p_ = end;
  return true;
}

// Requires nothing: steps *w into the union branch the datum names (no change
// for other types).
bool reader::branch(const node **w, const path_step *at) {
  if ((*w)->k != kind::choice) return true;
  const unsigned char *start = p_;
  int64_t i = 0;
  if (!read_long(&i, at)) return false;
  if (i < 0 || i >= (*w)->count) {
    p_ = start;
    return fail(QEL_AVRO_ERR_INVALID, at, "expected a union branch the schema has");
  }
  *w = (*w)->branches[i];
  if ((*w)->k == kind::choice) return fail(QEL_AVRO_ERR_INVALID, at, "expected no union directly inside a union");
  return true;
}

// Requires a number code: the stored bits of the writer's value (32-bit
// class in the low half).
bool reader::scalar(const node *w, uint32_t type, uint64_t *bits, const path_step *at) {
  const unsigned char *start = p_;
  if (w->k == kind::float32 || w->k == kind::float64) {
    const int n = w->k == kind::float32 ? 4 : 8;
    if (type != 6 && !(type == 5 && n == 4))
      return fail(QEL_AVRO_ERR_TYPE, at,
                  type == 5 ? "expected a float or an integer from the writer" : "expected an integer from the writer");
    if (end_ - p_ < n) return fail(QEL_AVRO_ERR_TRUNCATED, at, "expected the bytes of a floating-point number");
    uint64_t b = 0;
    for (int i = 0; i < n; ++i) b |= static_cast<uint64_t>(p_[i]) << (8 * i);
    p_ += n;
    if (type == 6 && n == 4)
      b = static_cast<uint64_t>(conv::double_bits(static_cast<double>(conv::bits_float(static_cast<uint32_t>(b)))));
    *bits = b;
    return true;
  }
  if (w->k != kind::int32 && w->k != kind::int64)
    return fail(QEL_AVRO_ERR_TYPE, at, "expected a number from the writer");
  int64_t v = 0;
  if (!read_long(&v, at)) return false;
  if (w->k == kind::int32 && (v < INT32_MIN || v > INT32_MAX)) {
    p_ = start;
    return fail(QEL_AVRO_ERR_INVALID, at, "expected an int within 32 bits");
  }
  bool exact = true;
  switch (type) {
    case 4: *bits = static_cast<uint64_t>(v); break;
    case 5: {
      const auto f = static_cast<float>(v);
      exact = f >= -0x1p63f && f < 0x1p63f && static_cast<int64_t>(f) == v;
      *bits = conv::float_bits(f);
      break;
    }
    case 6: {
      const auto d = static_cast<double>(v);
      exact = d >= -0x1p63 && d < 0x1p63 && static_cast<int64_t>(d) == v;
      *bits = static_cast<uint64_t>(conv::double_bits(d));
      break;
    }
    default: exact = v >= 0 && v <= 0xFFFFFFFF; *bits = static_cast<uint64_t>(v);
  }
  if (exact) return true;
  p_ = start;
  return fail(QEL_AVRO_ERR_RANGE, at,
              type == 5 || type == 6 ? "expected an integer the destination holds exactly"
                                     : "expected an integer from 0 to 4294967295");
}

const qel_schema *reader::schema_of(uint32_t type) const {
  return resolver_ != nullptr ? resolver_(context_, type) : static_cast<const qel_schema *>(context_);
}

template <bool Apply>
bool reader::value(const node *w, const target &t, const path_step *at, int depth) {
  if (!deeper(depth, at) || !branch(&w, at)) return false;
  if (w->k == kind::null)
    return (flags_ & QEL_AVRO_NULL_ERROR) == 0 || fail(QEL_AVRO_ERR_NULL, at, "expected a value, found null");
  if (t.multi != 0) return array<Apply>(w, t, at, depth);
  switch (storage_of(t.type)) {
    case storage::bits32:
    case storage::bits64: {
      uint64_t bits = 0;
      if (!scalar(w, t.type, &bits, at)) return false;
      if (!Apply) return true;
      if (storage_of(t.type) == storage::bits32) {
        t.v->data.bits32 = static_cast<uint32_t>(bits);
      } else {
        t.v->data.bits64 = bits;
      }
      return true;
    }
    case storage::bytes: {
      const char *s = nullptr;
      int64_t n = 0;
      if (!read_bytes(w, &s, &n, at)) return false;
      if (Apply) qel_stream_copy(&t.v->data.stream, s, n);
      return true;
    }
    case storage::record:
      if (w->k != kind::record) return fail(QEL_AVRO_ERR_TYPE, at, "expected a record from the writer");
      return record<Apply>(w, t, at, depth);
  }
  return false;
}

// Requires the items' schema: the next block's item count (0 at the end),
// checked against the bytes left.
bool reader::count_of(const node *items, int64_t *count, const path_step *at) {
  const unsigned char *start = p_;
  if (!read_long(count, at)) return false;
  if (*count < 0) {
    int64_t size = 0;
    if (*count == INT64_MIN) return fail(QEL_AVRO_ERR_INVALID, at, "expected a block count");
    *count = -*count;
    if (!read_length(&size, at)) return false;
  }
  const int64_t left = end_ - p_;
  if (items->min_size > 0 ? *count > left / items->min_size : *count > budget_) {
    p_ = start;
    return fail(QEL_AVRO_ERR_TRUNCATED, at, "expected a block count the bytes left can hold");
  }
  if (items->min_size == 0) budget_ -= *count;
  return true;
}

template <bool Apply>
bool reader::array(const node *w, const target &t, const path_step *at, int depth) {
  if (w->k != kind::array) return fail(QEL_AVRO_ERR_TYPE, at, "expected an array from the writer");
  if (Apply) {
    qel_var *v = t.v;
    switch (storage_of(v->type)) {
      case storage::bits32: qel_arrayd_remove_all(&v->data.arrayd); break;
      case storage::bits64: qel_arrayx_remove_all(&v->data.arrayx); break;
      case storage::bytes: qel_array_remove_all(&v->data.array); break;
      case storage::record: qel_arrays_free_all(&v->data.vars, qel_var_term); break;
    }
  }
  int64_t index = 0, pool = 0;
  for (;;) {
    int64_t count = 0;
    if (!count_of(w->items, &count, at)) return false;
    if (count == 0) return true;
    for (int64_t i = 0; i < count; ++i, ++index)
      if (!element<Apply>(w->items, t, index, &pool, at, depth + 1)) return false;
  }
}

// Requires an array target: appends item `index` (*pool: the string bytes
// appended so far, held below the array's 4 GiB).
template <bool Apply>
bool reader::element(const node *w, const target &t, int64_t index, int64_t *pool, const path_step *up, int depth) {
  const path_step at{up, nullptr, index};
  if (!deeper(depth, &at) || !branch(&w, &at)) return false;
  const bool null = w->k == kind::null;
  if (null && (flags_ & QEL_AVRO_NULL_ERROR) != 0) return fail(QEL_AVRO_ERR_NULL, &at, "expected a value, found null");
  switch (storage_of(t.type)) {
    case storage::bits32:
    case storage::bits64: {
      uint64_t bits = 0;
      if (!null && !scalar(w, t.type, &bits, &at)) return false;
      if (!Apply) return true;
      if (storage_of(t.type) == storage::bits32) {
        qel_detail::append(&t.v->data.arrayd, static_cast<uint32_t>(bits), 0);
      } else {
        qel_detail::append(&t.v->data.arrayx, static_cast<int64_t>(bits), 0);
      }
      return true;
    }
    case storage::bytes: {
      const char *s = nullptr;
      int64_t n = 0;
      if (!null && !read_bytes(w, &s, &n, &at)) return false;
      *pool += n;
      if (*pool > UINT32_MAX) return fail(QEL_AVRO_ERR_RANGE, &at, "expected strings that fit the array");
      if (Apply) qel_array_append(&t.v->data.array, s, n, 0);
      return true;
    }
    case storage::record: {
      if (!null && w->k != kind::record) return fail(QEL_AVRO_ERR_TYPE, &at, "expected a record from the writer");
      target e{nullptr, t.type, 0, resolver_ != nullptr ? resolver_(context_, t.type) : t.schema};
      if (Apply) {
        if (resolver_ != nullptr) {
          e.v = qel_var_new_x(t.type, 0, context_, resolver_);
        } else {
          e.v = qel_var_alloc(t.type, 0, t.v->schema);
          qel_var_init_at(e.v, context_, nullptr, nullptr);
        }
        qel_arrays_append(&t.v->data.vars, e.v);  // owned by the array from here on
      }
      return null || record<Apply>(w, e, &at, depth);
    }
  }
  return false;
}

template <bool Apply>
bool reader::record(const node *w, const target &t, const path_step *up, int depth) {
  for (int64_t i = 0; i < w->count; ++i) {
    const field &f = w->fields[i];
    const path_step at{up, f.name, f.length};
    target m{};
    if (!(member<Apply>(t, i, f, &m) ? value<Apply>(f.type, m, &at, depth + 1) : skip(f.type, &at, depth + 1)))
      return false;
  }
  return true;
}

// Requires a single-record target: in *m the member that field f (the i-th)
// is read into, when the record has it or its schema lists it (the writing
// pass then creates it); false when neither, and the field is skipped.
template <bool Apply>
bool reader::member(const target &t, int64_t i, const field &f, target *m) {
  qel_hash *h = t.v != nullptr ? &t.v->data.members : nullptr;
  qel_var *found = Apply && next_ < found_.size() ? found_[next_++] : nullptr;  // the check pass looked already
  if (found == nullptr && h != nullptr) {
    const qel_hash_entry *e = qel_detail::hash_entry_at(h, static_cast<uint32_t>(i));
    found = e != nullptr && e->key_length == f.length && same_name(h->key_pool + e->key_offset, f.name, f.length)
                ? static_cast<qel_var *>(e->value)
                : static_cast<qel_var *>(qel_detail::hash_get(h, f.name, f.length));
  }
  if (!Apply) found_.push(found);
  if (found != nullptr) {
    *m = target{found, found->type, found->multi, found->schema};
    return true;
  }
  const qel_schema *schema = t.v != nullptr ? t.v->schema : t.schema;
  uint32_t type = 0;
  uint8_t multi = 0;
  if (schema == nullptr || qel_var_schema_find(schema, f.name, f.length, &type, &multi) < 0) return false;
  *m = target{nullptr, type, multi, nullptr};
  const bool record = multi == 0 && storage_of(type) == storage::record;
  if (record) m->schema = schema_of(type);
  if (!Apply) return true;
  if (record) {  // members only as the datum gives them
    m->v = qel_var_alloc(type, 0, nullptr);
    qel_var_init_at(m->v, nullptr, nullptr, nullptr);
    m->v->schema = const_cast<qel_schema *>(m->schema);
  } else {
    m->v = qel_var_new_x(type, multi, context_, resolver_);
  }
  qel_hash_entry *e = qel_hash_insert(h, f.name, f.length, m->v);
  if (e->value == nullptr) e->value = m->v;  // the name was there without a member (shrunk away)
  return true;
}

bool reader::skip(const node *w, const path_step *at, int depth) {
  if (!deeper(depth, at) || !branch(&w, at)) return false;
  int64_t n = 0;
  switch (w->k) {
    case kind::null: return true;
    case kind::boolean:
      if (p_ >= end_) return fail(QEL_AVRO_ERR_TRUNCATED, at, "expected a boolean");
      if (*p_ > 1) return fail(QEL_AVRO_ERR_INVALID, at, "expected a boolean byte 0 or 1");
      ++p_;
      return true;
    case kind::int32:
    case kind::int64:
    case kind::enumeration: {
      const unsigned char *start = p_;
      if (!read_long(&n, at)) return false;
      const bool bad =
          w->k == kind::int32 ? n < INT32_MIN || n > INT32_MAX : w->k == kind::enumeration && (n < 0 || n >= w->count);
      if (bad) p_ = start;
      return !bad || fail(QEL_AVRO_ERR_INVALID, at, "expected an int in range");
    }
    case kind::float32:
    case kind::float64:
    case kind::fixed: {
      const int64_t size = w->k == kind::fixed ? w->count : w->k == kind::float32 ? 4 : 8;
      if (end_ - p_ < size) return fail(QEL_AVRO_ERR_TRUNCATED, at, "expected more bytes");
      p_ += size;
      return true;
    }
    case kind::bytes:
    case kind::string: {
      const char *s = nullptr;
      return read_bytes(w, &s, &n, at);
    }
    case kind::record:
      for (int64_t i = 0; i < w->count; ++i) {
        const path_step step{at, w->fields[i].name, w->fields[i].length};
        if (!skip(w->fields[i].type, &step, depth + 1)) return false;
      }
      return true;
    case kind::array:
    case kind::map: {
      int64_t index = 0;
      for (;;) {
        if (!count_of(w->items, &n, at)) return false;
        if (n == 0) return true;
        for (int64_t i = 0; i < n; ++i, ++index) {
          const path_step step{at, nullptr, index};
          const char *s = nullptr;
          int64_t len = 0;
          static const node kKey{kind::string, 0, nullptr, nullptr, nullptr, 1};
          if (w->k == kind::map && !read_bytes(&kKey, &s, &len, &step)) return false;
          if (!skip(w->items, &step, depth + 1)) return false;
        }
      }
    }
    case kind::choice: break;  // branch() stepped in
  }
  return false;
}

int reader::datum(const node *w, qel_var *v, int64_t *used, bool apply) {
  const target t{v, v->type, v->multi, v->schema};
  if (!(apply ? value<true>(w, t, nullptr, 0) : value<false>(w, t, nullptr, 0))) return code_;
  if (used != nullptr) {
    *used = p_ - begin_;
  } else if (p_ != end_) {
    fail(QEL_AVRO_ERR_INVALID, nullptr, "expected the end of the input after the datum");
  }
  return code_;
}

int reader::items(const node *w, qel_var *v, int64_t count, bool fresh_start, bool apply) {
  const target t{v, v->type, v->multi, v->schema};
  if (fresh_start) pool_ = index_ = 0;
  if (apply && fresh_start) {
    switch (storage_of(v->type)) {
      case storage::bits32: qel_arrayd_remove_all(&v->data.arrayd); break;
      case storage::bits64: qel_arrayx_remove_all(&v->data.arrayx); break;
      case storage::bytes: qel_array_remove_all(&v->data.array); break;
      case storage::record: qel_arrays_free_all(&v->data.vars, qel_var_term); break;
    }
  }
  const int64_t left = end_ - p_;
  if (w->min_size > 0 ? count > left / w->min_size : count > budget_) {
    fail(QEL_AVRO_ERR_TRUNCATED, nullptr, "expected a block count the bytes left can hold");
    return code_;
  }
  if (w->min_size == 0) budget_ -= count;
  const int64_t base = apply ? qel_var_size(v) : index_;
  index_ = base + count;
  for (int64_t i = 0; i < count; ++i)
    if (!(apply ? element<true>(w, t, base + i, &pool_, nullptr, 1)
                : element<false>(w, t, base + i, &pool_, nullptr, 1)))
      return code_;
  if (p_ != end_) fail(QEL_AVRO_ERR_INVALID, nullptr, "expected the block to end after its objects");
  return code_;
}

}  // namespace qel::avro

extern "C" int qel_avro_read(qel_var *dst, const char *bytes, int64_t len, int64_t *used, const qel_avro_type *writer,
                             void *context, qel_schema_resolver resolver, unsigned flags, qel_avro_error *err) {
  qel::avro::clear_error(err);
  if (used != nullptr) *used = 0;
  if (bytes == nullptr || len < 0) {
    bytes = "";
    len = 0;
  }
  if (writer == nullptr || writer->root == nullptr)
    return qel::avro::set_error(err, QEL_AVRO_ERR_SCHEMA, 0, nullptr, "expected a parsed writer schema");
  const int64_t budget = 65536 + 64 * len;
  qel::avro::reader r(context, resolver, flags, err, budget);
  r.input(bytes, len, 0);
  int64_t taken = 0;
  int rc = r.datum(writer->root, dst, used != nullptr ? &taken : nullptr, false);
  if (rc != QEL_AVRO_OK) return rc;
  r.input(bytes, len, 0);
  r.restart(budget);
  rc = r.datum(writer->root, dst, used != nullptr ? &taken : nullptr, true);
  if (rc == QEL_AVRO_OK && used != nullptr) *used = taken;
  return rc;
}
