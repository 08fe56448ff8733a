// Other JSON readers and writers agree with qel's text.  `write`: records,
// each line followed by its values as bits and hex bytes (json_cross.py checks
// Python reads them so); `read`: records from stdin written back (Python's
// text must give qel's again); `jsonc`: both ways with json-c, in process.
#include <qel_json.h>

#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <random>
#include <string>
#include <vector>
#ifdef QEL_CROSS_JSONC
#include <json-c/json.h>
#endif

#include "test_support.h"

namespace {

qel_schema *g_rec;
qel_schema *resolve(void *, uint32_t t) { return t == 20 ? g_rec : nullptr; }
qel_var *member(qel_var *r, const char *n) { return qel_var_get_val(r, n, static_cast<int64_t>(std::strlen(n))); }

std::string text_of(const qel_var *v) {
  qel_stream s;
  qel_stream_init(&s);
  qel_json_write(v, &s, 0);
  std::string out(s.bytes != nullptr ? s.bytes : "", static_cast<size_t>(s.length));
  qel_stream_term(&s);
  return out;
}

std::string string_of(const qel_var *v) {
  const char *s = nullptr;
  int64_t n = 0;
  qel_var_get_string(v, 0, &s, &n);
  return std::string(s != nullptr ? s : "", static_cast<size_t>(n));
}

std::string hex(const std::string &b) {
  static const char digits[] = "0123456789abcdef";
  std::string h;
  for (const char c : b) h += {digits[(c >> 4) & 15], digits[c & 15]};
  return h;
}

// Records with finite random doubles and floats of every magnitude and
// strings of escapes, control characters and 2- to 4-byte UTF-8.
std::vector<qel_var *> records() {
  static const char *pieces[] = {
      "a", "\"", "\\", "/", "\n", "\x01", "\x7f", "\xc3\xa9", "\xe2\x82\xac", "\xf0\x9f\x98\x80", " "};
  std::mt19937_64 rng(2026);
  std::vector<qel_var *> out;
  for (int i = 0; i < 300; ++i) {
    qel_var *r = qel_var_new_x(20, 0, nullptr, resolve);
    double d;
    do d = i % 2 ? std::bit_cast<double>(rng()) : static_cast<double>(rng() % 2000001) / 1000.0 - 1000.0;
    while (d - d != 0);
    float f;
    do f = std::bit_cast<float>(static_cast<uint32_t>(rng()));
    while (f - f != 0);
    qel_var_set_double(member(r, "score"), 0, d);
    qel_var_set_float(member(r, "ratio"), 0, f);
    qel_var_set_long(member(r, "id"), 0, static_cast<int64_t>(rng()));
    qel_var_set_integer(member(r, "count"), 0, static_cast<int64_t>(rng() >> 32));
    std::string name;
    for (int k = static_cast<int>(rng() % 8); k > 0; --k) name += pieces[rng() % 11];
    qel_var_set_string(member(r, "name"), 0, name.data(), static_cast<int64_t>(name.size()));
    for (int k = static_cast<int>(rng() % 3); k > 0; --k)
      qel_var_add_double(member(r, "vals"),
                         std::ldexp(static_cast<double>(rng() % 1000), static_cast<int>(rng() % 40) - 20));
    out.push_back(r);
  }
  return out;
}

// The values of a record as Python can check them: bit patterns and hex bytes.
std::string values_of(qel_var *r) {
  char buf[200];
  std::snprintf(buf, sizeof buf,
                "{\"score\":\"%016llx\",\"ratio\":\"%08x\",\"id\":\"%lld\",\"count\":\"%lld\",\"name\":\"",
                static_cast<unsigned long long>(std::bit_cast<uint64_t>(qel_var_get_double(member(r, "score"), 0))),
                std::bit_cast<uint32_t>(qel_var_get_float(member(r, "ratio"), 0)),
                static_cast<long long>(qel_var_get_long(member(r, "id"), 0)),
                static_cast<long long>(qel_var_get_long(member(r, "count"), 0)));
  return buf + hex(string_of(member(r, "name"))) + "\"}";
}

// Requires JSON text of a record: qel's own text of what it reads, or "".
std::string reread(const char *text, size_t len) {
  qel_var *r = qel_var_new_x(20, 0, nullptr, resolve);
  qel_json_error err;
  const int rc = qel_json_read(r, text, static_cast<int64_t>(len), nullptr, resolve, 0, &err);
  const std::string out = rc == QEL_JSON_OK ? text_of(r) : std::string("read failed: ") + err.message;
  qel_var_free(r);
  return out;
}

}  // namespace

int main(int argc, char **argv) {
  g_rec = qel_test::schema_of(
      {{"id", 4, 0}, {"count", 1, 0}, {"score", 6, 0}, {"ratio", 5, 0}, {"name", 7, 0}, {"vals", 6, 1}});
  const std::string mode = argc > 1 ? argv[1] : "";
  int failures = 0;
  if (mode == "read") {
    std::string line;
    for (int c; (c = std::getchar()) != EOF; line = c == '\n' ? "" : line + static_cast<char>(c))
      if (c == '\n') std::printf("%s\n", reread(line.data(), line.size()).c_str());
  } else {
    for (qel_var *r : records()) {
      const std::string text = text_of(r);
      if (mode == "write") std::printf("%s\n%s\n", text.c_str(), values_of(r).c_str());
#ifdef QEL_CROSS_JSONC
      if (mode == "jsonc") {
        json_object *o = json_tokener_parse(text.c_str());
        json_object *x = nullptr;
        const bool same = o != nullptr && json_object_object_get_ex(o, "score", &x) &&
                          std::bit_cast<uint64_t>(json_object_get_double(x)) ==
                              std::bit_cast<uint64_t>(qel_var_get_double(member(r, "score"), 0)) &&
                          json_object_object_get_ex(o, "id", &x) &&
                          json_object_get_int64(x) == qel_var_get_long(member(r, "id"), 0) &&
                          json_object_object_get_ex(o, "name", &x) &&
                          std::string(json_object_get_string(x), static_cast<size_t>(json_object_get_string_len(x))) ==
                              string_of(member(r, "name"));
        const char *back = o != nullptr ? json_object_to_json_string_ext(o, JSON_C_TO_STRING_PLAIN) : "";
        if (!same || reread(back, std::strlen(back)) != text) {
          std::fprintf(stderr, "json-c disagrees:\n  qel    %s\n  json-c %s\n", text.c_str(), back);
          ++failures;
        }
        json_object_put(o);
      }
#endif
      qel_var_free(r);
    }
  }
  qel_var_schema_free(g_rec);
  return failures != 0;
}
