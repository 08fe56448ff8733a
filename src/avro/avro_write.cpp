// One full variant as an Avro datum, appended to a byte stream.  A record is
// written by the schema the resolver gives for its code (the one
// qel_avro_schema describes): members in schema order, found through the
// member hash (straight from its entry at the same position when the record
// was built from that schema, as it almost always is).
#include <cstring>

#include "avro/avro_internal.h"
#include "internal/qel_utf8.h"
#include "internal/qel_var_internal.h"
#include "qel_std_inline.h"

namespace {

using qel::avro::path_step;
using qel::avro::put_bytes;
using qel::avro::put_long;

// The record codes above a value, innermost first (on the walk's stack).
struct code_path {
  const code_path *up;
  uint32_t code;
};

class writer {
 public:
  writer(qel_stream *out, void *context, qel_schema_resolver resolver, unsigned flags, qel_avro_error *err)
      : out_(out),
        context_(context),
        resolver_(resolver),
        flags_(flags),
        err_(err),
        start_(out->length),
        nullable_(context, resolver) {}

  // Requires a variant: writes it, or returns the error.
  int value(const qel_var *v, const code_path *codes, const path_step *at, int depth) {
    if (depth > QEL_AVRO_MAX_DEPTH) return fail(QEL_AVRO_ERR_DEPTH, at, "values nested deeper than the limit");
    if (v->multi != 0) return array(v, codes, at, depth);
    switch (qel::storage_of(v->type)) {
      case qel::storage::bits32:
        if (v->type == 5) {
          put_le(v->data.bits32, 4);
        } else {
          put_long(out_, static_cast<int64_t>(v->data.bits32));
        }
        return QEL_AVRO_OK;
      case qel::storage::bits64:
        if (v->type == 6) {
          put_le(v->data.bits64, 8);
        } else {
          put_long(out_, static_cast<int64_t>(v->data.bits64));
        }
        return QEL_AVRO_OK;
      case qel::storage::bytes: return string(v->data.stream.bytes, v->data.stream.length, at);
      case qel::storage::record: return record(v, codes, at, depth);
    }
    return QEL_AVRO_OK;
  }

 private:
  int fail(int code, const path_step *at, const char *message) {
    return qel::avro::set_error(err_, code, out_->length - start_, at, message);
  }

  void put_le(uint64_t bits, int n) {
    char *p = qel::avro::room(out_, 8);
    for (int i = 0; i < n; ++i) p[i] = static_cast<char>(bits >> (8 * i));
    out_->length += n;
  }

  int string(const char *s, int64_t n, const path_step *at) {
    if ((flags_ & QEL_AVRO_STRINGS) != 0 && !qel::is_utf8(s, n))
      return fail(QEL_AVRO_ERR_UTF8, at, "expected a UTF-8 string");
    put_long(out_, n);
    put_bytes(out_, s, n);
    return QEL_AVRO_OK;
  }

  int array(const qel_var *v, const code_path *codes, const path_step *at, int depth) {
    int64_t n = qel_var_size(v), items = n;
    if (qel::storage_of(v->type) == qel::storage::record)  // an empty slot is no element (as in JSON)
      for (int64_t i = 0; i < n; ++i) items -= v->data.vars.entries[i] == nullptr;
    if (items > 0) put_long(out_, items);
    switch (qel::storage_of(v->type)) {
      case qel::storage::bits32:
        for (int64_t i = 0; i < n; ++i) {
          const uint32_t bits = v->data.arrayd.entries[i].value;
          if (v->type == 5) {
            put_le(bits, 4);
          } else {
            put_long(out_, static_cast<int64_t>(bits));
          }
        }
        break;
      case qel::storage::bits64:
        for (int64_t i = 0; i < n; ++i) {
          const int64_t bits = v->data.arrayx.entries[i].value;
          if (v->type == 6) {
            put_le(static_cast<uint64_t>(bits), 8);
          } else {
            put_long(out_, bits);
          }
        }
        break;
      case qel::storage::bytes:
        for (int64_t i = 0; i < n; ++i) {
          const char *s = nullptr;
          int64_t len = 0;
          qel_array_get_at(&v->data.array, i, &s, &len);
          const path_step step{at, nullptr, i};
          const int rc = string(s, len, &step);
          if (rc != QEL_AVRO_OK) return rc;
        }
        break;
      case qel::storage::record:
        for (int64_t i = 0; i < n; ++i) {
          const int rc = element(v, i, codes, at, depth + 1);
          if (rc != QEL_AVRO_OK) return rc;
        }
        break;
    }
    put_long(out_, 0);
    return QEL_AVRO_OK;
  }

 public:
  // Requires a record array: its element i (none for an empty slot), as a
  // record of the array's code.
  int element(const qel_var *v, int64_t i, const code_path *codes, const path_step *at, int depth) {
    const auto *e = static_cast<const qel_var *>(v->data.vars.entries[i]);
    if (e == nullptr) return QEL_AVRO_OK;
    const path_step step{at, nullptr, i};
    if (e->type == v->type && e->multi == 0) return record(e, codes, &step, depth);
    if ((flags_ & QEL_AVRO_LOOSE_MEMBERS) == 0)
      return fail(QEL_AVRO_ERR_MEMBERS, &step, "expected an element of the array's code");
    return zero(v->type, 0, codes, &step, depth);
  }

 private:
  // Requires a single record: member `i` of its schema, named n bytes at
  // name, or NULL.
  static const qel_var *member(const qel_var *v, int64_t i, const char *name, int64_t n) {
    const qel_hash *h = &v->data.members;
    const qel_hash_entry *e = qel_detail::hash_entry_at(h, static_cast<uint32_t>(i));
    if (e != nullptr && e->key_length == n && qel::avro::same_name(h->key_pool + e->key_offset, name, n))
      return static_cast<const qel_var *>(e->value);
    return static_cast<const qel_var *>(qel_detail::hash_get(h, name, n));
  }

  // Requires a single record variant (an element of a record array too).
  int record(const qel_var *v, const code_path *codes, const path_step *at, int depth) {
    if (depth > QEL_AVRO_MAX_DEPTH) return fail(QEL_AVRO_ERR_DEPTH, at, "values nested deeper than the limit");
    const code_path here{codes, v->type};
    const bool loose = (flags_ & QEL_AVRO_LOOSE_MEMBERS) != 0;
    const qel_schema *schema = schema_of(v->type);
    const int64_t count = schema != nullptr ? schema->count : 0;
    int64_t matched = 0;
    for (int64_t i = 0; i < count; ++i) {
      const char *name = nullptr;
      int64_t len = 0;
      uint32_t type = 0;
      uint8_t multi = 0;
      qel::avro::schema_member(schema, i, &name, &len, &type, &multi);
      const path_step step{at, name, len};
      const qel_var *m = member(v, i, name, len);
      const bool ok = m != nullptr && m->type == type && m->multi == multi;
      matched += ok ? 1 : 0;
      if (!ok && !loose) return fail(QEL_AVRO_ERR_MEMBERS, &step, "expected the member its schema lists");
      int rc = QEL_AVRO_OK;
      if (multi == 0 && qel::storage_of(type) == qel::storage::record && nullable_(v->type, type)) {
        const bool some = ok && qel_var_member_count(m) > 0;
        put_long(out_, some ? 1 : 0);  // ["null", record]
        if (some) rc = record(m, &here, &step, depth + 1);
      } else if (ok) {
        rc = value(m, &here, &step, depth + 1);
      } else {
        rc = zero(type, multi, &here, &step, depth + 1);
      }
      if (rc != QEL_AVRO_OK) return rc;
    }
    if (!loose && matched != v->data.members.priv_count) {
      int64_t present = 0;  // members that were not shrunk away
      for (int64_t i = 0; i < qel_var_member_count(v); ++i)
        present += qel_var_member_at(v, i, nullptr, nullptr) != nullptr;
      if (present != matched) return fail(QEL_AVRO_ERR_MEMBERS, at, "expected only the members its schema lists");
    }
    return QEL_AVRO_OK;
  }

  // Requires a shape that is not a union position: its zero value.
  int zero(uint32_t type, uint8_t multi, const code_path *codes, const path_step *at, int depth) {
    if (depth > QEL_AVRO_MAX_DEPTH) return fail(QEL_AVRO_ERR_DEPTH, at, "values nested deeper than the limit");
    if (multi != 0) {
      put_long(out_, 0);
      return QEL_AVRO_OK;
    }
    switch (qel::storage_of(type)) {
      case qel::storage::bits32: type == 5 ? put_le(0, 4) : put_long(out_, 0); return QEL_AVRO_OK;
      case qel::storage::bits64: type == 6 ? put_le(0, 8) : put_long(out_, 0); return QEL_AVRO_OK;
      case qel::storage::bytes: put_long(out_, 0); return QEL_AVRO_OK;
      case qel::storage::record: break;
    }
    const code_path here{codes, type};
    const qel_schema *schema = schema_of(type);
    const int64_t count = schema != nullptr ? schema->count : 0;
    for (int64_t i = 0; i < count; ++i) {
      const char *name = nullptr;
      int64_t len = 0;
      uint32_t t = 0;
      uint8_t m = 0;
      qel::avro::schema_member(schema, i, &name, &len, &t, &m);
      if (m == 0 && qel::storage_of(t) == qel::storage::record && nullable_(type, t)) {
        put_long(out_, 0);  // ["null", record]: null
        continue;
      }
      const path_step step{at, name, len};
      const int rc = zero(t, m, &here, &step, depth + 1);
      if (rc != QEL_AVRO_OK) return rc;
    }
    return QEL_AVRO_OK;
  }

  const qel_schema *schema_of(uint32_t code) const {
    return resolver_ != nullptr ? resolver_(context_, code) : static_cast<const qel_schema *>(context_);
  }

  qel_stream *out_;
  void *context_;
  qel_schema_resolver resolver_;
  unsigned flags_;
  qel_avro_error *err_;
  int64_t start_;
  qel::avro::nullable_members nullable_;
};

}  // namespace

int qel::avro::write_datum(const qel_var *v, qel_stream *out, void *context, qel_schema_resolver resolver,
                           unsigned flags, qel_avro_error *err) {
  writer w(out, context, resolver, flags, err);
  return w.value(v, nullptr, nullptr, 0);
}

int qel::avro::write_element(const qel_var *array, int64_t i, qel_stream *out, void *context,
                             qel_schema_resolver resolver, unsigned flags, qel_avro_error *err) {
  writer w(out, context, resolver, flags, err);
  return w.element(array, i, nullptr, nullptr, 1);
}

extern "C" int qel_avro_write(const qel_var *v, qel_stream *out, void *context, qel_schema_resolver resolver,
                              unsigned flags, qel_avro_error *err) {
  qel::avro::clear_error(err);
  const int64_t start = out->length;
  const int rc = qel::avro::write_datum(v, out, context, resolver, flags, err);
  if (rc != QEL_AVRO_OK) out->length = start;
  return rc;
}
