// Arrow arrays made by hand for the import tests: every buffer and child is
// owned by the test, and release is a no-op the importer must never call.
#ifndef QEL_TEST_ARROW_HAND_H
#define QEL_TEST_ARROW_HAND_H

#include <qel_arrow.h>

#include <cstdint>
#include <cstring>
#include <memory>
#include <string>
#include <vector>

namespace hand {

inline void no_schema_release(ArrowSchema *) {}
inline void no_array_release(ArrowArray *) {}

struct col {
  ArrowSchema s{};
  ArrowArray a{};
  std::string format, name;
  std::vector<std::vector<uint8_t>> bytes;
  std::vector<const void *> buffers;
  std::vector<std::unique_ptr<col>> kids;
  std::vector<ArrowSchema *> skids;
  std::vector<ArrowArray *> akids;
  std::unique_ptr<col> dict;

  // Requires the parts above filled: points the structs at them.
  col &wire(int64_t length) {
    buffers.clear();
    for (auto &b : bytes) buffers.push_back(b.empty() ? nullptr : b.data());
    skids.clear();
    akids.clear();
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
         no_schema_release,
         nullptr};
    a = {length,
         0,
         0,
         static_cast<int64_t>(buffers.size()),
         static_cast<int64_t>(kids.size()),
         buffers.data(),
         akids.data(),
         dict ? &dict->a : nullptr,
         no_array_release,
         nullptr};
    return *this;
  }
  // Marks rows null (a validity bitmap over offset + length rows).
  col &nulls(std::initializer_list<int64_t> rows) {
    std::vector<uint8_t> bits(static_cast<size_t>((a.offset + a.length + 7) / 8 + 1), 0xFF);
    for (int64_t r : rows) bits[static_cast<size_t>(r >> 3)] &= static_cast<uint8_t>(~(1u << (r & 7)));
    bytes[0] = bits;
    a.null_count = static_cast<int64_t>(rows.size());
    const int64_t len = a.length, off = a.offset, nc = a.null_count;
    wire(len);
    a.offset = off;
    a.null_count = nc;
    return *this;
  }
};

template <typename T>
std::vector<uint8_t> raw(const std::vector<T> &v) {
  std::vector<uint8_t> out(v.size() * sizeof(T));
  if (!v.empty()) std::memcpy(out.data(), v.data(), out.size());
  return out;
}

template <typename T>
std::unique_ptr<col> numbers(const char *format, std::vector<T> values, const char *name = "") {
  auto c = std::make_unique<col>();
  c->format = format;
  c->name = name;
  c->bytes = {{}, raw(values)};
  c->wire(static_cast<int64_t>(values.size()));
  return c;
}

inline std::unique_ptr<col> strings(const char *format, const std::vector<std::string> &values, const char *name = "") {
  auto c = std::make_unique<col>();
  c->format = format;
  c->name = name;
  std::vector<int32_t> offsets{0};
  std::string data;
  for (const auto &v : values) {
    data += v;
    offsets.push_back(static_cast<int32_t>(data.size()));
  }
  c->bytes = {{}, raw(offsets), std::vector<uint8_t>(data.begin(), data.end())};
  c->wire(static_cast<int64_t>(values.size()));
  return c;
}

inline std::unique_ptr<col> list(std::unique_ptr<col> item, const std::vector<int32_t> &offsets,
                                 const char *name = "") {
  auto c = std::make_unique<col>();
  c->format = "+l";
  c->name = name;
  c->bytes = {{}, raw(offsets)};
  c->kids.push_back(std::move(item));
  c->wire(static_cast<int64_t>(offsets.size()) - 1);
  return c;
}

inline std::unique_ptr<col> record(std::vector<std::unique_ptr<col>> kids, int64_t length, const char *name = "") {
  auto c = std::make_unique<col>();
  c->format = "+s";
  c->name = name;
  c->bytes = {{}};
  c->kids = std::move(kids);
  c->wire(length);
  return c;
}

}  // namespace hand

#endif
