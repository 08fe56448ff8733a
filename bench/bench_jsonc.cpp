// json-c rows (built when libjson-c-dev is found) of the workloads it can do:
// 1 (an array of int64 or double objects), 3 (objects built and filled by
// name, then released), 4 (json_object_object_get_ex on a 16-member object)
// and 5 (json_object_deep_copy, then release).
#include <json-c/json.h>

#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "bench_common.h"
#include "bench_data.h"
#include "bench_records.h"

namespace {

using qb::kRecords;
using qb::kValues;

void jsonc_append_read_int(benchmark::State &state) {
  const std::vector<int64_t> &in = qb::int_values();
  for (auto _ : state) {
    json_object *a = json_object_new_array();
    for (int64_t x : in) json_object_array_add(a, json_object_new_int64(x));
    int64_t sum = 0;
    for (int64_t i = 0; i < kValues; ++i)
      sum += json_object_get_int64(json_object_array_get_idx(a, static_cast<size_t>(i)));
    qb::keep(sum);
    json_object_put(a);
  }
}

void jsonc_append_read_double(benchmark::State &state) {
  const std::vector<double> &in = qb::double_values();
  for (auto _ : state) {
    json_object *a = json_object_new_array();
    for (double x : in) json_object_array_add(a, json_object_new_double(x));
    uint64_t sum = 0;
    for (int64_t i = 0; i < kValues; ++i)
      sum += std::bit_cast<uint64_t>(json_object_get_double(json_object_array_get_idx(a, static_cast<size_t>(i))));
    qb::keep(sum);
    json_object_put(a);
  }
}

void jsonc_records(benchmark::State &state) {
  const auto &in = qb::record_inputs();
  std::vector<json_object *> built(static_cast<size_t>(kRecords));
  for (auto _ : state) {
    const size_t before = qb::heap_in_use();
    for (int64_t i = 0; i < kRecords; ++i) built[static_cast<size_t>(i)] = qb::jsonc_record(in[static_cast<size_t>(i)]);
    qb::note_heap("3.records", "json-c", before, kRecords);
    for (json_object *o : built) json_object_put(o);
  }
}

void jsonc_lookup(benchmark::State &state) {
  json_object *o = json_object_new_object();
  for (const std::string &n : qb::member_names()) json_object_object_add(o, n.c_str(), json_object_new_int64(0));
  qb::run_lookups(state, [o](std::string_view k) {
    json_object *v = nullptr;
    json_object_object_get_ex(o, k.data(), &v);  // the names are NUL-terminated
    return v;
  });
  json_object_put(o);
}

void jsonc_copy(benchmark::State &state) {
  json_object *src = qb::jsonc_record(qb::record_inputs()[0]);
  for (auto _ : state) {
    for (int64_t i = 0; i < kRecords; ++i) {
      json_object *dst = nullptr;
      json_object_deep_copy(src, &dst, nullptr);
      qb::keep(dst);
      json_object_put(dst);
    }
  }
  json_object_put(src);
}

}  // namespace

json_object *qb::jsonc_record(const qb::record_data &d) {
  json_object *o = json_object_new_object();
  json_object_object_add(o, "id", json_object_new_int64(d.id));
  json_object_object_add(o, "score", json_object_new_double(d.score));
  json_object_object_add(o, "count", json_object_new_int64(d.count));
  json_object_object_add(o, "ratio", json_object_new_double(d.ratio));
  json_object_object_add(o, "name", json_object_new_string_len(d.name.data(), static_cast<int>(d.name.size())));
  json_object_object_add(o, "tag", json_object_new_string_len(d.tag.data(), static_cast<int>(d.tag.size())));
  json_object *tags = json_object_new_array();
  for (const std::string &t : d.tags)
    json_object_array_add(tags, json_object_new_string_len(t.data(), static_cast<int>(t.size())));
  json_object_object_add(o, "tags", tags);
  json_object *child = json_object_new_object();
  json_object_object_add(child, "x", json_object_new_int64(d.x));
  json_object_object_add(child, "y", json_object_new_double(d.y));
  json_object_object_add(o, "child", child);
  return o;
}

void qb::register_jsonc() {
  add("1.code1", "json-c", jsonc_append_read_int, kValues);
  add("1.code6", "json-c", jsonc_append_read_double, kValues);
  add("3.records", "json-c", jsonc_records, kRecords);
  add("4.lookup", "json-c", jsonc_lookup, kLookups);
  add("5.copy", "json-c", jsonc_copy, kRecords);
}
