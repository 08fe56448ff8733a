// Avro exchange.  `avroc DIR`: Avro C's datums of the same values are qel's
// byte for byte, Avro C reads qel's datums and files, qel reads Avro C's files.
// For avro_cross.py: `write FILE CODEC` and `read FILE` print the records.
#include <qel_avro.h>

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <fstream>
#include <iterator>
#include <limits>
#include <string>

#include "avro_shapes.h"

#if QEL_CROSS_AVRO_C
#include <avro.h>
#endif

namespace {

using avro_shapes::at;
using avro_shapes::resolve;

// Makes rec's self-nested member "next" a record with members.
void nest(qel_var *rec) {
  qel_var *inner = qel_var_new_x(21, 0, nullptr, resolve);
  qel_var_set_string(at(inner, "s"), 0, "inner", 5);
  qel_var_copy(at(rec, "next"), inner);
  qel_var_free(inner);
}

// Records of every shape: zero, extremes, NaN and infinities, empty and
// binary strings, nested and self-nested records, arrays of records.
qel_var *sample() {
  const float fmax = std::numeric_limits<float>::max(), nanf = std::numeric_limits<float>::quiet_NaN();
  const double inf = std::numeric_limits<double>::infinity();
  qel_var *all = qel_var_new_x(20, 1, nullptr, resolve);
  for (int i = 0; i < 4; ++i) {
    qel_var *r = qel_var_new_x(20, 0, nullptr, resolve);
    const int64_t ids[] = {0, INT64_MIN, INT64_MAX, -1};
    const double scores[] = {0.0, std::nan(""), -0.0, 1e308};
    const float ratios[] = {0.0f, -static_cast<float>(inf), 1e-45f, nanf};
    qel_var_set_long(at(r, "id"), 0, ids[i]);
    qel_var_set_long(at(r, "n"), 0, i == 1 ? 4294967295 : i);
    qel_var_set_double(at(r, "score"), 0, scores[i]);
    qel_var_set_float(at(r, "ratio"), 0, ratios[i]);
    qel_var_set_string(at(r, "name"), 0, "\0bin\xff\xc3\xa9", i == 0 ? 0 : 6 + i % 2);
    for (int t = 0; t < i; ++t) qel_var_add_string(at(r, "tags"), "tag\0\x80", t * 2);
    for (int k = 0; k < i; ++k) {
      qel_var *kid = qel_var_new_x(21, 0, nullptr, resolve);
      qel_var_add_float(at(kid, "x"), k == 0 ? fmax : -0.0f);
      qel_var_add_float(at(kid, "x"), static_cast<float>(k) / 3);
      qel_var_set_string(at(kid, "s"), 0, "kid", k);
      if (k == 1) nest(kid);
      qel_var_add_var_x(at(r, "kids"), kid);
      qel_var_free(kid);
    }
    if (i >= 2) nest(at(r, "child"));
    qel_var_add_var_x(all, r);
    qel_var_free(r);
  }
  return all;
}

// Prints v as JSON: bytes in hex, floats in %a, records as objects.
void dump(const qel_var *v, std::string &o) {
  const bool record = v->type == 0 || v->type >= 10, bytes = v->type == 7 || v->type == 8;
  if (record && v->multi == 0) {
    for (int64_t i = 0; i < qel_var_member_count(v); ++i) {
      const char *name = nullptr;
      int64_t len = 0;
      const qel_var *m = qel_var_member_at(v, i, &name, &len);
      o += (i > 0 ? ",\"" : "{\"") + std::string(name, static_cast<size_t>(len)) + "\":";
      dump(m, o);
    }
    o += qel_var_member_count(v) > 0 ? "}" : "{}";
    return;
  }
  o += v->multi != 0 ? "[" : "";
  for (int64_t i = 0, n = v->multi != 0 ? qel_var_size(v) : 1; i < n; ++i) {
    char b[64];
    const char *s = nullptr;
    int64_t len = 0;
    o += i > 0 ? "," : "";
    if (record) {
      dump(static_cast<const qel_var *>(qel_arrays_get_at(&v->data.vars, i)), o);
    } else if (bytes) {
      qel_var_get_string(v, i, &s, &len);
      o += '"';
      for (int64_t k = 0; k < len; ++k) std::snprintf(b, sizeof b, "%02x", static_cast<unsigned char>(s[k])), o += b;
      o += '"';
    } else {
      if (v->type == 5 || v->type == 6) std::snprintf(b, sizeof b, "\"%a\"", qel_var_get_double(v, i));
      else std::snprintf(b, sizeof b, "%" PRId64, qel_var_get_long(v, i));
      o += b;
    }
  }
  o += v->multi != 0 ? "]" : "";
}

std::string file_bytes(const char *path) {
  std::ifstream f(path, std::ios::binary);
  return std::string(std::istreambuf_iterator<char>(f), std::istreambuf_iterator<char>());
}

int fail(const char *what, const qel_avro_error &err) {
  std::fprintf(stderr, "%s: %d at %" PRId64 " (%s): %s\n", what, err.code, err.offset, err.path, err.message);
  return 1;
}

// Writes the sample as a container file of one block per record.
int write_file(const char *path, int codec, const qel_var *all, qel_avro_error &err) {
  qel_stream file;
  qel_stream_init(&file);
  qel_avro_file_writer w;
  int rc = qel_avro_file_begin(&w, 20, nullptr, resolve, nullptr, codec, nullptr, 0, &file);
  for (int64_t i = 0; i < qel_var_size(all) && rc == QEL_AVRO_OK; ++i)
    rc = qel_avro_file_append(&w, static_cast<const qel_var *>(qel_arrays_get_at(&all->data.vars, i)), &file, &err);
  FILE *f = std::fopen(path, "wb");
  if (f == nullptr ||
      std::fwrite(file.bytes, 1, static_cast<size_t>(file.length), f) != static_cast<size_t>(file.length))
    rc = -2;
  if (f != nullptr) std::fclose(f);
  qel_stream_term(&file);
  return rc;
}

#if QEL_CROSS_AVRO_C
// Avro C's generic value of the same values, by the schema's shape.
void to_avro(const qel_var *v, int64_t i, avro_value_t *a) {
  switch (a->iface->get_type(a->iface, a->self)) {  // not the macro: its ?: trips -Wsign-conversion
    case AVRO_RECORD: {
      size_t n = 0;
      avro_value_get_size(a, &n);
      for (size_t f = 0; f < n; ++f) {
        avro_value_t field;
        const char *name = nullptr;
        avro_value_get_by_index(a, f, &field, &name);
        to_avro(at(v, name), 0, &field);
      }
    } break;
    case AVRO_UNION: {
      avro_value_t branch;
      const bool some = qel_var_member_count(v) > 0;
      avro_value_set_branch(a, some ? 1 : 0, &branch);
      if (some) to_avro(v, 0, &branch);
      break;
    }
    case AVRO_ARRAY:
      for (int64_t k = 0; k < qel_var_size(v); ++k) {
        avro_value_t e;
        avro_value_append(a, &e, nullptr);
        if (v->type >= 10) to_avro(static_cast<const qel_var *>(qel_arrays_get_at(&v->data.vars, k)), 0, &e);
        else to_avro(v, k, &e);
      }
      break;
    case AVRO_INT64: avro_value_set_long(a, qel_var_get_long(v, i)); break;
    case AVRO_FLOAT: avro_value_set_float(a, qel_var_get_float(v, i)); break;
    case AVRO_DOUBLE: avro_value_set_double(a, qel_var_get_double(v, i)); break;
    default: {
      const char *s = nullptr;
      int64_t n = 0;
      qel_var_get_string(v, i, &s, &n);
      avro_value_set_bytes(a, const_cast<char *>(s != nullptr ? s : ""), static_cast<size_t>(n));
    }
  }
}

std::string avro_bytes(avro_value_t *a) {
  static char buf[1 << 16];
  avro_writer_t w = avro_writer_memory(buf, sizeof buf);
  std::string out;
  if (avro_value_write(w, a) == 0) out.assign(buf, static_cast<size_t>(avro_writer_tell(w)));
  avro_writer_free(w);
  return out;
}

int avro_c(const std::string &dir, const qel_var *all) {
  qel_stream s, q;
  qel_stream_init(&s);
  qel_stream_init(&q);
  qel_avro_error err{};
  qel_avro_schema(20, 0, nullptr, resolve, nullptr, 0, &s);
  avro_schema_t schema = nullptr;
  if (avro_schema_from_json_length(s.bytes, static_cast<size_t>(s.length), &schema) != 0) {
    std::fprintf(stderr, "Avro C refuses qel's schema: %s\n", avro_strerror());
    return 1;
  }
  avro_value_iface_t *iface = avro_generic_class_from_schema(schema);
  int bad = 0;
  std::string expected[4];
  for (int64_t i = 0; i < qel_var_size(all); ++i) {
    const auto *r = static_cast<const qel_var *>(qel_arrays_get_at(&all->data.vars, i));
    q.length = 0;
    if (qel_avro_write(r, &q, nullptr, resolve, 0, &err) != QEL_AVRO_OK) return fail("qel write", err);
    const std::string ours(q.bytes, static_cast<size_t>(q.length));
    avro_value_t mine, read;
    avro_generic_value_new(iface, &mine);
    avro_generic_value_new(iface, &read);
    to_avro(r, 0, &mine);
    expected[i] = avro_bytes(&mine);
    avro_reader_t rd = avro_reader_memory(ours.data(), static_cast<int64_t>(ours.size()));
    const int rrc = avro_value_read(rd, &read);
    if (expected[i] != ours) std::fprintf(stderr, "record %" PRId64 ": Avro C's datum differs from qel's\n", i), ++bad;
    if (rrc != 0 || avro_bytes(&read) != ours)
      std::fprintf(stderr, "record %" PRId64 ": Avro C reads qel's datum differently\n", i), ++bad;
    avro_reader_free(rd);
    avro_value_decref(&mine);
    avro_value_decref(&read);
  }
  for (const char *codec : {"null", "deflate"}) {
    const std::string qel_path = dir + "/qel_" + codec + ".avro", c_path = dir + "/avroc_" + codec + ".avro";
    if (write_file(qel_path.c_str(), codec[0] == 'n' ? QEL_AVRO_CODEC_NULL : QEL_AVRO_CODEC_DEFLATE, all, err) != 0)
      return fail("qel container", err);
    avro_file_reader_t fr;
    if (avro_file_reader(qel_path.c_str(), &fr) != 0) return std::fprintf(stderr, "%s\n", avro_strerror()), 1;
    avro_value_t v;
    avro_generic_value_new(iface, &v);
    int n = 0;
    for (; n < 5 && avro_file_reader_read_value(fr, &v) == 0; ++n)
      if (n >= 4 || avro_bytes(&v) != expected[n]) std::fprintf(stderr, "%s: record %d differs\n", codec, n), ++bad;
    if (n != 4) std::fprintf(stderr, "%s: Avro C read %d records of qel's file\n", codec, n), ++bad;
    avro_file_reader_close(fr);
    avro_file_writer_t fw;
    std::remove(c_path.c_str());
    if (avro_file_writer_create_with_codec(c_path.c_str(), schema, &fw, codec, 0) != 0)
      return std::fprintf(stderr, "%s\n", avro_strerror()), 1;
    for (int64_t i = 0; i < qel_var_size(all); ++i) {
      avro_value_reset(&v);
      to_avro(static_cast<const qel_var *>(qel_arrays_get_at(&all->data.vars, i)), 0, &v);
      avro_file_writer_append_value(fw, &v);
    }
    avro_file_writer_close(fw);
    avro_value_decref(&v);
    const std::string theirs = file_bytes(c_path.c_str());
    qel_var *back = qel_var_new_x(20, 1, nullptr, resolve);
    if (qel_avro_file_read(back, theirs.data(), static_cast<int64_t>(theirs.size()), nullptr, resolve, 0, &err) != 0)
      return fail("qel reading Avro C's file", err);
    if (!qel_var_equal(back, all)) std::fprintf(stderr, "%s: qel reads Avro C's file differently\n", codec), ++bad;
    qel_var_free(back);
  }
  avro_value_iface_decref(iface);
  avro_schema_decref(schema);
  qel_stream_term(&s);
  qel_stream_term(&q);
  return bad != 0;
}
#endif

}  // namespace

int main(int argc, char **argv) {
  avro_shapes::make();
  qel_var *all = sample();
  const std::string mode = argc > 2 ? argv[1] : "";
  qel_avro_error err{};
  int rc = 2;
  std::string out;
  if (mode == "write" && argc > 3) {
    rc = write_file(argv[2], std::strcmp(argv[3], "deflate") == 0 ? QEL_AVRO_CODEC_DEFLATE : QEL_AVRO_CODEC_NULL, all,
                    err);
    dump(all, out);
  } else if (mode == "read") {
    const std::string bytes = file_bytes(argv[2]);
    qel_var *back = qel_var_new_x(20, 1, nullptr, resolve);
    rc = qel_avro_file_read(back, bytes.data(), static_cast<int64_t>(bytes.size()), nullptr, resolve, 0, &err);
    dump(back, out);
    qel_var_free(back);
  } else if (mode == "avroc") {
#if QEL_CROSS_AVRO_C
    rc = avro_c(argv[2], all);
#else
    std::puts("skipped: Avro C (libavro-dev) was not found at configure time; run bench/install-peers.sh as root");
    rc = 77;
#endif
  }
  if (rc != 0 && rc != 77 && mode != "avroc") fail(mode.c_str(), err);
  if (!out.empty() && rc == 0) std::puts(out.c_str());
  qel_var_free(all);  // the schemas stay to the end
  return rc;
}
