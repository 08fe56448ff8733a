// The Avro schema (JSON text) of a qel shape.  Each record code is defined
// once, where it is first met; later it is referred to by name.  A
// single-record member that leads back to its holder is ["null", name]
// (nullable_members; the writer makes the same choice).
#include <cinttypes>
#include <cstdio>

#include "avro/avro_internal.h"
#include "internal/qel_var_internal.h"

namespace {

using qel::avro::put_bytes;
using qel::avro::vec;

class schema_writer {
 public:
  schema_writer(void *context, qel_schema_resolver resolver, qel_avro_namer namer, unsigned flags, qel_stream *out)
      : context_(context), resolver_(resolver), namer_(namer), flags_(flags), out_(out), nullable_(context, resolver) {
    qel_stream_init(&pool_);
  }
  ~schema_writer() { qel_stream_term(&pool_); }
  schema_writer(const schema_writer &) = delete;
  schema_writer &operator=(const schema_writer &) = delete;

  // Requires nothing: the schema of (type, multi).
  int shape(uint32_t type, uint8_t multi) {
    if (multi == 0) return single(type);
    put("{\"type\":\"array\",\"items\":");
    const int rc = single(type);
    put("}");
    return rc;
  }

 private:
  struct name_entry {
    uint32_t code;
    int64_t at;  // in pool_
    int64_t length;
  };

  void put(const char *s) { put_bytes(out_, s, static_cast<int64_t>(std::strlen(s))); }
  void put_quoted(const char *s, int64_t n) {
    put("\"");
    put_bytes(out_, s, n);
    put("\"");
  }

  int single(uint32_t type) {
    switch (qel::storage_of(type)) {
      case qel::storage::bits32: put(type == 5 ? "\"float\"" : "\"long\""); return QEL_AVRO_OK;
      case qel::storage::bits64: put(type == 6 ? "\"double\"" : "\"long\""); return QEL_AVRO_OK;
      case qel::storage::bytes: put((flags_ & QEL_AVRO_STRINGS) != 0 ? "\"string\"" : "\"bytes\""); return QEL_AVRO_OK;
      case qel::storage::record: return record(type);
    }
    return QEL_AVRO_OK;
  }

  // Requires nothing: the entry naming `code`, made (and its name checked)
  // when first asked for; NULL for a name Avro does not take or one already
  // given to another code.
  const name_entry *name_of(uint32_t code) {
    for (int64_t i = 0; i < names_.size(); ++i)
      if (names_[i].code == code) return &names_[i];
    const char *given = namer_ != nullptr ? namer_(context_, code) : nullptr;
    char fallback[24];
    if (given == nullptr) {
      std::snprintf(fallback, sizeof fallback, "qel_%" PRIu32, code);
      given = fallback;
    }
    const auto n = static_cast<int64_t>(std::strlen(given));
    if (!qel::avro::valid_name(given, n)) return nullptr;
    for (int64_t i = 0; i < names_.size(); ++i)
      if (names_[i].length == n && std::memcmp(pool_.bytes + names_[i].at, given, static_cast<size_t>(n)) == 0)
        return nullptr;
    names_.push(name_entry{code, pool_.length, n});
    qel_stream_append(&pool_, given, n);
    return &names_.back();
  }

  int record(uint32_t code) {
    bool known = false;
    for (int64_t i = 0; i < names_.size() && !known; ++i) known = names_[i].code == code;
    const name_entry *e = name_of(code);
    if (e == nullptr) return QEL_AVRO_ERR_NAME;
    if (known) {
      put_quoted(pool_.bytes + e->at, e->length);
      return QEL_AVRO_OK;
    }
    if (path_.size() >= QEL_AVRO_MAX_DEPTH) return QEL_AVRO_ERR_DEPTH;
    const int64_t name_at = e->at, name_len = e->length;  // e moves as names_ grows
    put("{\"type\":\"record\",\"name\":");
    put_quoted(pool_.bytes + name_at, name_len);
    put(",\"fields\":[");
    const qel_schema *schema = resolver_ != nullptr ? resolver_(context_, code) : static_cast<qel_schema *>(context_);
    path_.push(code);
    const int64_t count = schema != nullptr ? qel_var_schema_size(schema) : 0;
    for (int64_t i = 0; i < count; ++i) {
      const char *name = nullptr;
      int64_t len = 0;
      uint32_t type = 0;
      uint8_t multi = 0;
      qel_var_schema_get_at(schema, i, &name, &len, &type, &multi);
      if (!qel::avro::valid_name(name, len)) return QEL_AVRO_ERR_NAME;
      for (int64_t j = 0; j < i; ++j) {
        const char *other = nullptr;
        int64_t other_len = 0;
        uint32_t t = 0;
        uint8_t m = 0;
        qel_var_schema_get_at(schema, j, &other, &other_len, &t, &m);
        if (other_len == len && std::memcmp(other, name, static_cast<size_t>(len)) == 0) return QEL_AVRO_ERR_NAME;
      }
      put(i == 0 ? "{\"name\":" : ",{\"name\":");
      put_quoted(name, len);
      put(",\"type\":");
      int rc = QEL_AVRO_OK;
      if (multi == 0 && qel::storage_of(type) == qel::storage::record && nullable_(code, type)) {
        put("[\"null\",");
        rc = record(type);
        put("]");
      } else {
        rc = shape(type, multi);
      }
      if (rc != QEL_AVRO_OK) return rc;
      put("}");
    }
    path_.pop();
    put("]}");
    return QEL_AVRO_OK;
  }

  void *context_;
  qel_schema_resolver resolver_;
  qel_avro_namer namer_;
  unsigned flags_;
  qel_stream *out_;
  qel_stream pool_;  // record names, back to back
  vec<name_entry> names_;
  vec<uint32_t> path_;  // record codes being defined, outermost first
  qel::avro::nullable_members nullable_;
};

}  // namespace

extern "C" int qel_avro_schema(uint32_t type, uint8_t multi, void *context, qel_schema_resolver resolver,
                               qel_avro_namer namer, unsigned flags, qel_stream *out) {
  const int64_t start = out->length;
  schema_writer w(context, resolver, namer, flags, out);
  const int rc = w.shape(type, multi);
  if (rc != QEL_AVRO_OK) out->length = start;
  return rc;
}
