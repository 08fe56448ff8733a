// Arrow arrays made by hand for the import tests: every buffer and child is
// owned by the test, and release is a no-op the importer must never call.
#ifndef QEL_TEST_ARROW_HAND_H
#define QEL_TEST_ARROW_HAND_H

#include <qel_arrow.h>

#include <cstdlib>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace hand {

struct col {
  ArrowSchema s{};
  ArrowArray a{};
  std::string format, name;
  std::vector<std::vector<uint8_t>> bytes;  // the buffers (empty: NULL)
  std::vector<const void *> buffers;
  std::vector<std::unique_ptr<col>> kids;
  std::vector<ArrowSchema *> skids;
  std::vector<ArrowArray *> akids;
  std::unique_ptr<col> dict;

  // Points the structs at the parts above (offset and null count kept).
  col &wire(int64_t length) {
    buffers.clear();
    skids.clear();
    akids.clear();
    for (auto &b : bytes) buffers.push_back(b.empty() ? nullptr : b.data());
    for (auto &k : kids) {
      skids.push_back(&k->s);
      akids.push_back(&k->a);
    }
    s = {format.c_str(),
         name.c_str(),
         nullptr,
         0,
         static_cast<int64_t>(kids.size()),
         skids.data(),
         dict ? &dict->s : nullptr,
         [](ArrowSchema *) {},
         nullptr};
    a = {length,
         a.null_count,
         a.offset,
         static_cast<int64_t>(buffers.size()),
         static_cast<int64_t>(kids.size()),
         buffers.data(),
         akids.data(),
         dict ? &dict->a : nullptr,
         [](ArrowArray *) {},
         nullptr};
    return *this;
  }
};

// A schema from "name:code name:code* ..." ('*' marks the multi form).
inline qel_schema *schema(const char *members) {
  qel_schema *s = qel_var_schema_new();
  for (const char *p = members; *p != '\0';) {
    const char *colon = std::strchr(p, ':');
    char *end = nullptr;
    const auto code = static_cast<uint32_t>(std::strtoul(colon + 1, &end, 10));
    qel_var_schema_add(s, p, colon - p, code, *end == '*');
    p = end + (*end == '*');
    p += *p == ' ';
  }
  return s;
}

template <typename T>
std::vector<uint8_t> raw(const std::vector<T> &v) {
  std::vector<uint8_t> out(v.size() * sizeof(T));
  if (!v.empty()) std::memcpy(out.data(), v.data(), out.size());
  return out;
}

inline std::unique_ptr<col> make(const char *format, const char *name, std::vector<std::vector<uint8_t>> bytes,
                                 int64_t length, std::vector<std::unique_ptr<col>> kids = {}) {
  auto c = std::make_unique<col>();
  c->format = format;
  c->name = name;
  c->bytes = std::move(bytes);
  c->kids = std::move(kids);
  c->wire(length);
  return c;
}

template <typename T>
std::unique_ptr<col> numbers(const char *format, std::vector<T> values, const char *name = "") {
  return make(format, name, {{}, raw(values)}, static_cast<int64_t>(values.size()));
}

inline std::unique_ptr<col> strings(const char *format, const std::vector<std::string> &values, const char *name = "") {
  std::vector<int32_t> offsets{0};
  std::string data;
  for (const auto &v : values) offsets.push_back(static_cast<int32_t>((data += v).size()));
  return make(format, name, {{}, raw(offsets), std::vector<uint8_t>(data.begin(), data.end())},
              static_cast<int64_t>(values.size()));
}

inline std::unique_ptr<col> list(std::unique_ptr<col> item, const std::vector<int32_t> &offsets,
                                 const char *name = "") {
  std::vector<std::unique_ptr<col>> kids;
  kids.push_back(std::move(item));
  return make("+l", name, {{}, raw(offsets)}, static_cast<int64_t>(offsets.size()) - 1, std::move(kids));
}

}  // namespace hand

#endif
