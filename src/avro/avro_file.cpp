// Avro object container files in memory: a header (magic, metadata map with
// avro.schema and avro.codec, sync marker), then blocks of objects, each
// block its object count, its byte size, the objects (raw deflate with the
// deflate codec) and the sync marker again.
#include <cstring>

#include "avro/avro_read.h"

#if QEL_AVRO_ZLIB
#include <zlib.h>
#endif

namespace {

using qel::avro::put_bytes;
using qel::avro::put_long;
using qel::avro::set_error;

constexpr char kMagic[4] = {'O', 'b', 'j', 1};

// Reads the plain parts of a container (header, block frames).
struct cursor {
  const unsigned char *begin, *p, *end;
  int code = QEL_AVRO_OK;
  const char *why = "";

  bool fail(int c, const char *w) {
    code = c;
    why = w;
    return false;
  }
  bool long_at(int64_t *out) {
    uint64_t z = 0;
    for (int shift = 0; shift < 70; shift += 7) {
      if (p >= end) return fail(QEL_AVRO_ERR_TRUNCATED, "expected a varint, found the end of the input");
      const unsigned b = *p++;
      if (shift == 63 && b > 1) return fail(QEL_AVRO_ERR_INVALID, "expected a varint of at most 64 bits");
      z |= static_cast<uint64_t>(b & 0x7F) << shift;
      if ((b & 0x80) == 0) {
        *out = static_cast<int64_t>((z >> 1) ^ (~(z & 1) + 1));
        return true;
      }
    }
    return false;
  }
  bool size_at(int64_t *out) {
    if (!long_at(out)) return false;
    if (*out < 0) return fail(QEL_AVRO_ERR_INVALID, "expected a size, found a negative number");
    return *out <= end - p || fail(QEL_AVRO_ERR_TRUNCATED, "expected as many bytes as the size says");
  }
  bool bytes_at(const char **s, int64_t *n) {
    if (!size_at(n)) return false;
    *s = reinterpret_cast<const char *>(p);
    p += *n;
    return true;
  }
  int64_t offset() const { return p - begin; }
};

// Requires nothing: a 64-bit finaliser (splitmix64's).
uint64_t mix(uint64_t z) {
  z = (z ^ (z >> 30)) * 0xBF58476D1CE4E5B9ull;
  z = (z ^ (z >> 27)) * 0x94D049BB133111EBull;
  return z ^ (z >> 31);
}

bool is(const char *s, int64_t n, const char *w) {
  return n == static_cast<int64_t>(std::strlen(w)) && std::memcmp(s, w, static_cast<size_t>(n)) == 0;
}

#if QEL_AVRO_ZLIB
void *z_alloc(void *, unsigned items, unsigned size) { return qel_malloc(static_cast<size_t>(items) * size); }
void z_free(void *, void *p) { qel_free(p); }

// Requires nothing: raw deflate of n bytes at s appended to out.
void deflate_into(const char *s, int64_t n, qel_stream *out) {
  z_stream z{};
  z.zalloc = z_alloc;
  z.zfree = z_free;
  deflateInit2(&z, Z_DEFAULT_COMPRESSION, Z_DEFLATED, -15, 8, Z_DEFAULT_STRATEGY);
  const auto bound = static_cast<int64_t>(deflateBound(&z, static_cast<uLong>(n)));
  char *to = qel::avro::room(out, bound);
  z.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(s));
  z.avail_in = static_cast<uInt>(n);
  z.next_out = reinterpret_cast<Bytef *>(to);
  z.avail_out = static_cast<uInt>(bound);
  deflate(&z, Z_FINISH);
  out->length += static_cast<int64_t>(z.total_out);
  deflateEnd(&z);
}

// Requires nothing: n bytes of raw deflate at s inflated into out (emptied
// first), at most `limit` bytes; false on bad data or more than that.
bool inflate_into(const char *s, int64_t n, int64_t limit, qel_stream *out) {
  qel_stream_shrink(out, 0);
  z_stream z{};
  z.zalloc = z_alloc;
  z.zfree = z_free;
  if (inflateInit2(&z, -15) != Z_OK) return false;
  z.next_in = reinterpret_cast<Bytef *>(const_cast<char *>(s));
  z.avail_in = static_cast<uInt>(n);
  int rc = Z_OK;
  while (rc == Z_OK) {
    if (out->length >= limit) break;
    const int64_t step = out->length < 65536 ? 65536 : out->length;
    const int64_t chunk = step < limit - out->length ? step : limit - out->length;
    char *to = qel::avro::room(out, chunk);
    z.next_out = reinterpret_cast<Bytef *>(to);
    z.avail_out = static_cast<uInt>(chunk);
    rc = inflate(&z, Z_NO_FLUSH);
    out->length += chunk - static_cast<int64_t>(z.avail_out);
    if (rc == Z_BUF_ERROR && z.avail_in == 0) break;  // input ended early
  }
  inflateEnd(&z);
  return rc == Z_STREAM_END;  // bytes after the end are allowed: Python's avro leaves 3 of zlib's checksum there
}
#endif

// Requires an open reader: the next block's frame (count, data) after
// r->offset; decompresses into `scratch`. Returns QEL_AVRO_OK, QEL_AVRO_END
// or an error.
int next_frame(const qel_avro_file_reader *r, int64_t *count, const char **data, int64_t *size, int64_t *after,
               qel_stream *scratch, qel_avro_error *err) {
  if (r->offset >= r->length) return QEL_AVRO_END;
  cursor c{reinterpret_cast<const unsigned char *>(r->bytes),
           reinterpret_cast<const unsigned char *>(r->bytes) + r->offset,
           reinterpret_cast<const unsigned char *>(r->bytes) + r->length};
  if (!c.long_at(count) || !c.bytes_at(data, size)) return set_error(err, c.code, c.offset(), nullptr, c.why);
  if (*count < 0) return set_error(err, QEL_AVRO_ERR_INVALID, r->offset, nullptr, "expected a block count");
  if (c.end - c.p < 16 || std::memcmp(c.p, r->sync, 16) != 0)
    return set_error(err, QEL_AVRO_ERR_INVALID, c.offset(), nullptr, "expected the sync marker after the block");
  *after = c.offset() + 16;
  if (r->codec == QEL_AVRO_CODEC_DEFLATE) {
#if QEL_AVRO_ZLIB
    const int64_t limit = *size > (int64_t{1} << 20) ? int64_t{1} << 30 : *size * 1032 + 1024;
    if (!inflate_into(*data, *size, limit, scratch))
      return set_error(err, QEL_AVRO_ERR_CODEC, r->offset, nullptr, "expected a block of valid deflate data");
    *data = scratch->bytes != nullptr ? scratch->bytes : "";
    *size = scratch->length;
#else
    (void)scratch;
#endif
  }
  return QEL_AVRO_OK;
}

}  // namespace

extern "C" int qel_avro_file_begin(qel_avro_file_writer *w, uint32_t type, void *context, qel_schema_resolver resolver,
                                   qel_avro_namer namer, int codec, const uint8_t *sync, unsigned flags,
                                   qel_stream *out) {
#if QEL_AVRO_ZLIB
  const bool known = codec == QEL_AVRO_CODEC_NULL || codec == QEL_AVRO_CODEC_DEFLATE;
#else
  const bool known = codec == QEL_AVRO_CODEC_NULL;
#endif
  if (!known) return QEL_AVRO_ERR_CODEC;
  qel_stream text;
  qel_stream_init(&text);
  const int rc = qel_avro_schema(type, 0, context, resolver, namer, flags, &text);
  if (rc != QEL_AVRO_OK) {
    qel_stream_term(&text);
    return rc;
  }
  const char *schema = text.bytes;
  const int64_t schema_len = text.length;
  w->codec = codec;
  w->flags = flags;
  w->context = context;
  w->resolver = resolver;
  if (sync != nullptr) {
    std::memcpy(w->sync, sync, 16);
  } else {
    uint64_t h = 0xcbf29ce484222325ull;  // FNV-1a of the schema, then the addresses mixed in
    for (int64_t i = 0; i < schema_len; ++i) h = (h ^ static_cast<unsigned char>(schema[i])) * 0x100000001b3ull;
    const uint64_t a = mix(h ^ reinterpret_cast<uintptr_t>(w));
    const uint64_t b = mix(a ^ reinterpret_cast<uintptr_t>(out) ^ 0x9E3779B97F4A7C15ull);
    std::memcpy(w->sync, &a, 8);
    std::memcpy(w->sync + 8, &b, 8);
  }
  put_bytes(out, kMagic, 4);
  put_long(out, 2);
  put_long(out, 11);
  put_bytes(out, "avro.schema", 11);
  put_long(out, schema_len);
  put_bytes(out, schema, schema_len);
  const char *name = codec == QEL_AVRO_CODEC_NULL ? "null" : "deflate";
  put_long(out, 10);
  put_bytes(out, "avro.codec", 10);
  put_long(out, static_cast<int64_t>(std::strlen(name)));
  put_bytes(out, name, static_cast<int64_t>(std::strlen(name)));
  put_long(out, 0);
  put_bytes(out, w->sync, 16);
  qel_stream_term(&text);
  return QEL_AVRO_OK;
}

extern "C" int qel_avro_file_append(const qel_avro_file_writer *w, const qel_var *records, qel_stream *out,
                                    qel_avro_error *err) {
  qel::avro::clear_error(err);
  const int64_t count = records->multi != 0 ? qel_var_size(records) : 1;
  int64_t objects = count;
  if (count == 0) return QEL_AVRO_OK;
  qel_stream body;
  qel_stream_init(&body);
  int rc = QEL_AVRO_OK;
  if (records->multi != 0 && qel::storage_of(records->type) == qel::storage::record) {
    for (int64_t i = 0; i < count && rc == QEL_AVRO_OK; ++i) {
      objects -= records->data.vars.entries[i] == nullptr ? 1 : 0;  // an empty slot is no element
      rc = qel::avro::write_element(records, i, &body, w->context, w->resolver, w->flags, err);
    }
  } else {
    rc = qel::avro::write_datum(records, &body, w->context, w->resolver, w->flags, err);
    if (records->multi != 0) {  // the array's items alone: drop its block count and end mark
      int64_t head = 1;
      for (uint64_t z = static_cast<uint64_t>(count) << 1; z >= 0x80; z >>= 7) ++head;
      std::memmove(body.bytes, body.bytes + head, static_cast<size_t>(body.length - head - 1));
      body.length -= head + 1;
    }
  }
  if (rc == QEL_AVRO_OK && objects > 0) {
    put_long(out, objects);
#if QEL_AVRO_ZLIB
    if (w->codec == QEL_AVRO_CODEC_DEFLATE) {
      qel_stream packed;
      qel_stream_init(&packed);
      deflate_into(body.bytes != nullptr ? body.bytes : "", body.length, &packed);
      qel_stream_term(&body);
      body = packed;
    }
#endif
    put_long(out, body.length);
    put_bytes(out, body.bytes, body.length);
    put_bytes(out, w->sync, 16);
  }
  qel_stream_term(&body);
  return rc;
}

extern "C" int qel_avro_file_open(qel_avro_file_reader *r, const char *bytes, int64_t len, qel_avro_error *err) {
  qel::avro::clear_error(err);
  std::memset(r, 0, sizeof *r);
  if (bytes == nullptr || len < 0) {
    bytes = "";
    len = 0;
  }
  cursor c{reinterpret_cast<const unsigned char *>(bytes), reinterpret_cast<const unsigned char *>(bytes),
           reinterpret_cast<const unsigned char *>(bytes) + len};
  if (len < 4 || std::memcmp(bytes, kMagic, 4) != 0)
    return set_error(err, QEL_AVRO_ERR_INVALID, 0, nullptr, "expected the magic bytes of an Avro container");
  c.p += 4;
  const char *schema = nullptr, *codec = "null";
  int64_t schema_len = 0, codec_len = 4;
  for (;;) {
    int64_t n = 0;
    if (!c.long_at(&n)) return set_error(err, c.code, c.offset(), nullptr, c.why);
    if (n == 0) break;
    if (n < 0) {
      int64_t size = 0;
      if (n == INT64_MIN || !c.size_at(&size))
        return set_error(err, c.code != 0 ? c.code : QEL_AVRO_ERR_INVALID, c.offset(), nullptr, "expected a count");
      n = -n;
    }
    for (int64_t i = 0; i < n; ++i) {
      const char *key = nullptr, *value = nullptr;
      int64_t key_len = 0, value_len = 0;
      if (!c.bytes_at(&key, &key_len) || !c.bytes_at(&value, &value_len))
        return set_error(err, c.code, c.offset(), nullptr, c.why);
      if (is(key, key_len, "avro.schema")) schema = value, schema_len = value_len;
      if (is(key, key_len, "avro.codec")) codec = value, codec_len = value_len;
    }
  }
  if (c.end - c.p < 16) return set_error(err, QEL_AVRO_ERR_TRUNCATED, c.offset(), nullptr, "expected the sync marker");
  std::memcpy(r->sync, c.p, 16);
  c.p += 16;
  if (schema == nullptr) return set_error(err, QEL_AVRO_ERR_SCHEMA, c.offset(), nullptr, "expected avro.schema");
  if (is(codec, codec_len, "null")) {
    r->codec = QEL_AVRO_CODEC_NULL;
  } else if (is(codec, codec_len, "deflate")) {
#if QEL_AVRO_ZLIB
    r->codec = QEL_AVRO_CODEC_DEFLATE;
#else
    return set_error(err, QEL_AVRO_ERR_CODEC, 0, nullptr, "the deflate codec needs a library built with zlib");
#endif
  } else {
    return set_error(err, QEL_AVRO_ERR_CODEC, 0, nullptr, "expected the codec null or deflate");
  }
  r->type = qel_avro_type_parse(schema, schema_len, err);
  if (r->type == nullptr) return err != nullptr ? err->code : QEL_AVRO_ERR_SCHEMA;
  r->bytes = bytes;
  r->length = len;
  r->offset = c.offset();
  r->schema = schema;
  r->schema_length = schema_len;
  return QEL_AVRO_OK;
}

extern "C" void qel_avro_file_close(qel_avro_file_reader *r) {
  qel_avro_type_free(r->type);
  r->type = nullptr;
}

// Requires an open reader: checks (apply false) or reads (apply true) the
// blocks from r->offset into dst, one block or all of them; *after: where the
// next block starts.
int read_blocks(const qel_avro_file_reader *r, qel_var *dst, qel::avro::reader &rd, bool all, bool apply,
                int64_t *after, qel_avro_error *err) {
  qel_stream scratch;
  qel_stream_init(&scratch);
  int rc = QEL_AVRO_OK;
  qel_avro_file_reader at = *r;
  for (bool first = true;; first = false) {
    int64_t count = 0, size = 0;
    const char *data = nullptr;
    rc = next_frame(&at, &count, &data, &size, after, &scratch, err);
    if (rc == QEL_AVRO_END) {
      if (all) rc = first ? rd.items(at.type->root, dst, 0, true, apply) : QEL_AVRO_OK;  // no block: no records
      break;
    }
    if (rc != QEL_AVRO_OK) break;
    rd.input(data, size, at.offset, at.codec == QEL_AVRO_CODEC_NULL);
    rc = rd.items(at.type->root, dst, count, first, apply);
    at.offset = *after;
    if (rc != QEL_AVRO_OK || !all) break;
  }
  qel_stream_term(&scratch);
  return rc;
}

extern "C" int qel_avro_file_next(qel_avro_file_reader *r, qel_var *dst, void *context, qel_schema_resolver resolver,
                                  unsigned flags, qel_avro_error *err) {
  qel::avro::clear_error(err);
  if (r->type == nullptr) return QEL_AVRO_END;
  const int64_t budget = 65536 + 64 * r->length;
  qel::avro::reader rd(context, resolver, flags, err, budget);
  int64_t after = 0;
  int rc = read_blocks(r, dst, rd, false, false, &after, err);
  if (rc != QEL_AVRO_OK) return rc;
  rd.restart(budget);
  rc = read_blocks(r, dst, rd, false, true, &after, err);
  if (rc == QEL_AVRO_OK) r->offset = after;
  return rc;
}

extern "C" int qel_avro_file_read(qel_var *dst, const char *bytes, int64_t len, void *context,
                                  qel_schema_resolver resolver, unsigned flags, qel_avro_error *err) {
  qel_avro_file_reader r;
  int rc = qel_avro_file_open(&r, bytes, len, err);
  if (rc != QEL_AVRO_OK) return rc;
  const int64_t budget = 65536 + 64 * len;
  qel::avro::reader rd(context, resolver, flags, err, budget);
  int64_t after = 0;
  rc = read_blocks(&r, dst, rd, true, false, &after, err);
  if (rc == QEL_AVRO_OK) {
    rd.restart(budget);
    rc = read_blocks(&r, dst, rd, true, true, &after, err);
  }
  qel_avro_file_close(&r);
  return rc;
}
