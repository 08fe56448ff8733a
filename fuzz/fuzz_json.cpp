// Fuzz target for the JSON reader: the input's first byte picks a destination
// shape and the reader's flags, the rest is the text.  Every read either fails
// with a well-formed error and leaves the destination exactly as it was, or
// succeeds; then what qel writes of the result reads back into a fresh
// destination of the same shape and writes the very same text again.  A
// fresh record reads the text as an array's one element does.
#include <qel.h>
#include <qel_json.h>

#include <cstdint>
#include <cstring>
#include <string>

#include "fuzz_common.h"

namespace {

qel_schema *g_rec,
    *g_child;  // 20: id:4 n:1 score:6 ratio:5 name:7 tags:8* kids:21* child:21 w:9*; 21: x:5* s:7 next:21
qel_schema *resolver(void *, uint32_t type) { return type == 20 ? g_rec : type == 21 ? g_child : nullptr; }

const struct {
  uint32_t type;
  uint8_t multi;
} kShapes[] = {{20, 0}, {20, 0}, {20, 1}, {21, 0}, {1, 1}, {4, 0}, {5, 1}, {6, 1}, {7, 1}, {8, 0}};

qel_var *make(unsigned shape) { return qel_var_new_x(kShapes[shape].type, kShapes[shape].multi, nullptr, resolver); }

std::string text_of(const qel_var *v) {
  qel_stream s;
  qel_stream_init(&s);
  const int rc = qel_json_write(v, &s, QEL_JSON_NONFINITE_NULL | QEL_JSON_ESCAPE_BYTES);
  FZ_CHECK(rc == QEL_JSON_OK, "write failed: %d", rc);
  std::string out(s.bytes != nullptr ? s.bytes : "", static_cast<size_t>(s.length));
  qel_stream_term(&s);
  return out;
}

}  // namespace

extern "C" int LLVMFuzzerInitialize(int *, char ***) {
  if (g_rec != nullptr) return 0;
  g_rec = qel_var_schema_new();
  g_child = qel_var_schema_new();
  const struct {
    const char *n;
    qel_schema *s;
    uint32_t t;
    uint8_t m;
  } members[] = {{"id", g_rec, 4, 0},   {"n", g_rec, 1, 0},    {"score", g_rec, 6, 0}, {"ratio", g_rec, 5, 0},
                 {"name", g_rec, 7, 0}, {"tags", g_rec, 8, 1}, {"kids", g_rec, 21, 1}, {"child", g_rec, 21, 0},
                 {"w", g_rec, 9, 0xFF}, {"x", g_child, 5, 1},  {"s", g_child, 7, 0},   {"next", g_child, 21, 0}};
  for (const auto &m : members) qel_var_schema_add(m.s, m.n, static_cast<int64_t>(std::strlen(m.n)), m.t, m.m);
  return 0;
}

extern "C" int LLVMFuzzerTestOneInput(const uint8_t *data, size_t size) {
  if (size == 0) return 0;
  const unsigned shape = data[0] % (sizeof kShapes / sizeof kShapes[0]);
  const unsigned flags = ((data[0] & 0x80) != 0 ? QEL_JSON_SKIP_UNKNOWN : 0) |
                         ((data[0] & 0x40) != 0 ? QEL_JSON_REQUIRE_MEMBERS : 0) |
                         ((data[0] & 0x20) != 0 ? QEL_JSON_REJECT_NULL : 0);
  const char *text = reinterpret_cast<const char *>(data + 1);
  const auto len = static_cast<int64_t>(size - 1);
  qel_var *dst = make(shape);
  if (shape == 1) {  // a destination holding values already
    qel_var_set_long(qel_var_get_val(dst, "id", 2), 0, 42);
    qel_var_add_string(qel_var_get_val(dst, "tags", 4), "t", 1);
  }
  const std::string before = text_of(dst);
  qel_json_error err;
  const int rc = qel_json_read(dst, text, len, nullptr, resolver, flags, &err);
  FZ_CHECK(err.code == rc, "error code %d, result %d", err.code, rc);
  if (rc != QEL_JSON_OK) {
    FZ_CHECK(rc >= QEL_JSON_ERR_UTF8 && rc <= QEL_JSON_ERR_NULL, "read gave %d", rc);
    FZ_CHECK(rc != QEL_JSON_ERR_MISSING || (flags & QEL_JSON_REQUIRE_MEMBERS) != 0, "missing member without the flag");
    FZ_CHECK(rc != QEL_JSON_ERR_NULL || (flags & QEL_JSON_REJECT_NULL) != 0, "null refused without the flag");
    FZ_CHECK(err.offset >= 0 && err.offset <= len && err.line >= 1 && err.column >= 1 && err.column <= err.offset + 1,
             "error at %lld (line %lld, column %lld) of %lld bytes", (long long)err.offset, (long long)err.line,
             (long long)err.column, (long long)len);
    const std::string place = "line " + std::to_string(err.line) + ", column " + std::to_string(err.column) + ": ";
    FZ_CHECK(err.message == place + qel_json_error_cause(&err), "message %s", err.message);
    FZ_CHECK(text_of(dst) == before, "failed read (%d: %s) changed the destination", rc, err.message);
  } else {
    const std::string after = text_of(dst);
    qel_var *again = make(shape);
    const int rc2 = qel_json_read(again, after.data(), static_cast<int64_t>(after.size()), nullptr, resolver, 0, &err);
    FZ_CHECK(rc2 == QEL_JSON_OK && text_of(again) == after, "qel's own text %s read back with %d (%s)",
             after.substr(0, 200).c_str(), rc2, err.message);
    qel_var_free(again);
  }
  if (shape == 0 || shape == 3) {
    // A fresh record reads a text as the one element of an array reads it
    // (made afresh there, so read in place: no undo log, no replica).
    const std::string wrapped = "[" + std::string(text, static_cast<size_t>(len)) + "]";
    qel_var *array = qel_var_new_x(kShapes[shape].type, 1, nullptr, resolver);
    const int rc_array =
        qel_json_read(array, wrapped.data(), static_cast<int64_t>(wrapped.size()), nullptr, resolver, flags, &err);
    const size_t first = wrapped.find_first_not_of(" \t\r\n", 1);
    const bool null_text = wrapped.compare(first, 4, "null") == 0;  // kept as is alone, no element
    if (rc == QEL_JSON_OK && rc_array != QEL_JSON_ERR_DEPTH && !null_text)
      FZ_CHECK(rc_array == QEL_JSON_OK && text_of(array) == "[" + text_of(dst) + "]",
               "as an element (%d: %s) the text reads otherwise", rc_array, err.message);
    if (rc_array == QEL_JSON_OK && qel_var_size(array) == 1)
      FZ_CHECK(rc == QEL_JSON_OK, "read as an element, but not on its own (%d)", rc);
    qel_var_free(array);
  }
  qel_var_free(dst);
  return 0;
}

#ifndef QEL_FUZZ
QEL_MODEL_TEST(json)
#endif
