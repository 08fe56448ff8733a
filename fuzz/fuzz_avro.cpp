// Fuzz target for the Avro reader: the input's first byte picks a writer
// schema, a destination and the flags (or the container reader), the rest
// is the bytes.  Every read either fails with a well-formed error and leaves
// the destination exactly as it was, or succeeds; then qel's own datum of
// the result reads back into a fresh destination and writes the same bytes.
#include <qel.h>
#include <qel_avro.h>
#include <qel_json.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "../tests/avro/avro_shapes.h"
#include "fuzz_common.h"

namespace {

using avro_shapes::resolve;

const char *const kForeign =  // another writer's record: unions, an enum, a map, fixed, a recursive record
    R"({"type":"record","name":"w","namespace":"x.y","fields":[{"name":"m","type":{"type":"map","values":)"
    R"(["null","string",{"type":"fixed","name":"f","size":3}]}},{"name":"id","type":["null","int"]},)"
    R"({"name":"name","type":"string"},{"name":"e","type":{"type":"enum","name":"E","symbols":["a","b"]}},)"
    R"({"name":"score","type":"float"},{"name":"kids","type":{"type":"array","items":{"type":"record","name":"k",)"
    R"("fields":[{"name":"next","type":["null","k"]},{"name":"x","type":{"type":"array","items":"int"}},)"
    R"({"name":"b","type":"boolean"}]}}},{"name":"child","type":["null","k"]}]})";

struct Shape {
  int schema;  // 0: qel's own of the destination, 1: kForeign, 2: array of ["null","long"], 3: "bytes"
  uint32_t type;
  uint8_t multi;
};
const Shape kShapes[] = {{0, 20, 0}, {1, 20, 0}, {0, 21, 1}, {2, 4, 1}, {2, 1, 1}, {2, 5, 1}, {3, 7, 0}, {0, 6, 1}};
qel_avro_type *g_types[4], *g_own[8];  // writer schemas 1 to 3; the destinations' own

// Requires nothing: the JSON text of v (which shows records without members
// too), or qel's datum of it.
std::string bytes_of(const qel_var *v, bool json = true) {
  qel_stream s;
  qel_stream_init(&s);
  qel_avro_error err{};
  const int rc = json ? qel_json_write(v, &s, QEL_JSON_NONFINITE_NULL | QEL_JSON_ESCAPE_BYTES)
                      : qel_avro_write(v, &s, nullptr, resolve, QEL_AVRO_LOOSE_MEMBERS, &err);
  FZ_CHECK(rc == 0, "write failed: %d %s", rc, err.message);
  std::string out(s.bytes != nullptr ? s.bytes : "", static_cast<size_t>(s.length));
  qel_stream_term(&s);
  return out;
}

void check_error(int rc, const qel_avro_error &err, int64_t len) {
  FZ_CHECK(err.code == rc && rc >= QEL_AVRO_ERR_SCHEMA && rc <= QEL_AVRO_ERR_CODEC && rc != QEL_AVRO_ERR_MEMBERS,
           "read gave %d (error code %d)", rc, err.code);
  FZ_CHECK(err.offset >= 0 && err.offset <= len && err.message[0] != '\0', "error at %lld of %lld: %s",
           static_cast<long long>(err.offset), static_cast<long long>(len), err.message);
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  if (avro_shapes::g_rec != nullptr) return 0;
  avro_shapes::make();
  qel_stream s;
  qel_stream_init(&s);
  for (int i = 0; i < 8; ++i) {
    s.length = 0;
    qel_avro_schema(kShapes[i].type, kShapes[i].multi, nullptr, resolve, nullptr, 0, &s);
    g_own[i] = qel_avro_type_parse(s.bytes, s.length, nullptr);
  }
  g_types[1] = qel_avro_type_parse(kForeign, -1, nullptr);
  g_types[2] = qel_avro_type_parse(R"({"type":"array","items":["null","long"]})", -1, nullptr);
  g_types[3] = qel_avro_type_parse("\"bytes\"", -1, nullptr);
  qel_stream_term(&s);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  const bool container = (data[0] & 0x40) != 0;
  const unsigned flags = (data[0] & 0x80) != 0 ? QEL_AVRO_NULL_ERROR : 0;
  const unsigned pick = data[0] % 8;
  const Shape shape = kShapes[pick];
  const qel_avro_type *writer = shape.schema == 0 ? g_own[pick] : g_types[shape.schema];
  const char *bytes = reinterpret_cast<const char *>(data + 1);
  const auto len = static_cast<int64_t>(size - 1);
  qel_var *dst = qel_var_new_x(shape.type, container ? 1 : shape.multi, nullptr, resolve);
  if (shape.type == 20 && !container) qel_var_add_string(qel_var_get_val(dst, "tags", 4), "t", 1);
  const std::string before = bytes_of(dst);
  qel_avro_error err;
  int rc = QEL_AVRO_OK;
  if (container && (data[0] & 0x20) != 0) {  // block by block
    qel_avro_file_reader r;
    rc = qel_avro_file_open(&r, bytes, len, &err);
    for (int blocks = 0; rc == QEL_AVRO_OK; ++blocks) {
      const std::string held = bytes_of(dst);
      rc = qel_avro_file_next(&r, dst, nullptr, resolve, flags, &err);
      if (rc != QEL_AVRO_OK) FZ_CHECK(bytes_of(dst) == held, "failed block read (%d) changed the destination", rc);
      FZ_CHECK(rc != QEL_AVRO_OK || r.offset <= len, "block %d ends at %lld", blocks, static_cast<long long>(r.offset));
    }
    if (rc != QEL_AVRO_END) check_error(rc, err, len);
    qel_avro_file_close(&r);
    qel_var_free(dst);
    return 0;
  }
  if (container) {
    rc = qel_avro_file_read(dst, bytes, len, nullptr, resolve, flags, &err);
  } else {
    rc = qel_avro_read(dst, bytes, len, nullptr, writer, nullptr, resolve, flags, &err);
  }
  if (rc != QEL_AVRO_OK) {
    check_error(rc, err, len);
    FZ_CHECK(bytes_of(dst) == before, "failed read (%d: %s) changed the destination", rc, err.message);
  } else if (!container) {
    const std::string ours = bytes_of(dst, false);
    qel_var *again = qel_var_new_x(shape.type, shape.multi, nullptr, resolve);
    const int rc2 = qel_avro_read(again, ours.data(), static_cast<int64_t>(ours.size()), nullptr, g_own[pick], nullptr,
                                  resolve, 0, &err);
    FZ_CHECK(rc2 == QEL_AVRO_OK && bytes_of(again, false) == ours, "own datum read back with %d (%s)", rc2,
             err.message);
    qel_var_free(again);
  }
  qel_var_free(dst);
  return 0;
}

#ifndef QEL_FUZZ
QEL_MODEL_TEST(avro)
#endif
