// Workload 3: build, fill by name and free 10^5 records of the 8-member
//   schema (bench_data.h) through a resolver: all records are built, then
//   all are freed.  Anchor: the faster of json-c and Avro C (their rows are
//   in bench_jsonc.cpp and bench_avro.cpp); a plain C++ struct for
//   orientation.  Every arm also notes the heap its 10^5 records hold once
//   they all exist (the table's heap column).
// Workload 4: member lookup by name in a 16-member record, 10^7 times.
//   Anchor: the fastest hash map in the run (std::unordered_map, and
//   absl::flat_hash_map when Abseil is there); std::map for orientation.
// Workload 5: deep copy of one filled record of workload 3 into a fresh
//   variant (made, filled by the copy and freed), 10^5 times.  Anchor: the
//   faster of json-c and Avro C; the C++ struct's copy for orientation.
#include <qel.h>

#include <bit>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <unordered_map>
#include <vector>

#include "bench_common.h"
#include "bench_data.h"
#include "bench_records.h"

#if QEL_BENCH_ABSL
#include <absl/container/flat_hash_map.h>
#endif

namespace {

using qb::kLookups;
using qb::kRecords;

// ---- schemas and resolver ----

struct schemas {
  qel_schema *record = nullptr;  // code 20
  qel_schema *child = nullptr;   // code 21
  qel_schema *wide = nullptr;    // code 30: the 16 members of workload 4
};

qel_schema *resolve(void *context, uint32_t type) {
  auto *s = static_cast<schemas *>(context);
  switch (type) {
    case 20: return s->record;
    case 21: return s->child;
    case 30: return s->wide;
    default: return nullptr;
  }
}

// (qel_var_schema_add takes the name's length as given: it does not measure.)
schemas *the_schemas() {
  static schemas s = [] {
    schemas out;
    out.record = qel_var_schema_new();
    qel_var_schema_add(out.record, "id", 2, 4, 0);
    qel_var_schema_add(out.record, "score", 5, 6, 0);
    qel_var_schema_add(out.record, "count", 5, 1, 0);
    qel_var_schema_add(out.record, "ratio", 5, 5, 0);
    qel_var_schema_add(out.record, "name", 4, 7, 0);
    qel_var_schema_add(out.record, "tag", 3, 8, 0);
    qel_var_schema_add(out.record, "tags", 4, 7, 1);
    qel_var_schema_add(out.record, "child", 5, 21, 0);
    out.child = qel_var_schema_new();
    qel_var_schema_add(out.child, "x", 1, 4, 0);
    qel_var_schema_add(out.child, "y", 1, 6, 0);
    out.wide = qel_var_schema_new();
    for (const std::string &n : qb::member_names())
      qel_var_schema_add(out.wide, n.data(), static_cast<int64_t>(n.size()), 4, 0);
    return out;
  }();
  return &s;
}

template <size_t N>
qel_var *member(const qel_var *r, const char (&name)[N]) {
  return qel_var_get_val(r, name, static_cast<int64_t>(N - 1));
}

}  // namespace

// Requires nothing; a record of code 20 built and filled by name from d.
qel_var *qb::qel_record_from(const record_data &d) {
  qel_var *r = qel_var_new_x(20, 0, the_schemas(), resolve);
  qel_var_set_long(member(r, "id"), 0, d.id);
  qel_var_set_double(member(r, "score"), 0, d.score);
  qel_var_set_integer(member(r, "count"), 0, d.count);
  qel_var_set_float(member(r, "ratio"), 0, d.ratio);
  qel_var_set_string(member(r, "name"), 0, d.name.data(), static_cast<int64_t>(d.name.size()));
  qel_var_set_string(member(r, "tag"), 0, d.tag.data(), static_cast<int64_t>(d.tag.size()));
  qel_var *tags = member(r, "tags");
  for (const std::string &t : d.tags) qel_var_add_string(tags, t.data(), static_cast<int64_t>(t.size()));
  qel_var *child = member(r, "child");
  qel_var_set_long(member(child, "x"), 0, d.x);
  qel_var_set_double(member(child, "y"), 0, d.y);
  return r;
}

qel_schema *qb::qel_record_resolver(void *context, uint32_t type) { return resolve(context, type); }
void *qb::qel_record_context() { return the_schemas(); }

uint64_t qb::qel_record_sum(const qel_var *r) {
  const char *s = nullptr;
  int64_t n = 0;
  uint64_t acc = static_cast<uint64_t>(qel_var_get_long(member(r, "id"), 0));
  acc += std::bit_cast<uint64_t>(qel_var_get_double(member(r, "score"), 0));
  acc += static_cast<uint64_t>(qel_var_get_integer(member(r, "count"), 0));
  acc += std::bit_cast<uint32_t>(qel_var_get_float(member(r, "ratio"), 0));
  qel_var_get_string(member(r, "name"), 0, &s, &n);
  acc += static_cast<uint64_t>(n);
  qel_var_get_string(member(r, "tag"), 0, &s, &n);
  acc += static_cast<uint64_t>(n);
  const qel_var *tags = member(r, "tags");
  for (int64_t i = 0; i < qel_var_size(tags); ++i) {
    qel_var_get_string(tags, i, &s, &n);
    acc += static_cast<uint64_t>(n);
  }
  const qel_var *child = member(r, "child");
  acc += static_cast<uint64_t>(qel_var_get_long(member(child, "x"), 0));
  return acc + std::bit_cast<uint64_t>(qel_var_get_double(member(child, "y"), 0));
}

const std::vector<std::string_view> &qb::lookup_keys() {
  static const std::vector<std::string_view> v = [] {
    std::vector<std::string_view> out;
    for (const std::string &n : member_names()) out.emplace_back(n);
    return out;
  }();
  return v;
}

namespace {

// ---- workload 3 ----

void qel_records(benchmark::State &state) {
  const auto &in = qb::record_inputs();
  std::vector<qel_var *> built(static_cast<size_t>(kRecords));
  for (auto _ : state) {
    const size_t before = qb::heap_in_use();
    for (int64_t i = 0; i < kRecords; ++i)
      built[static_cast<size_t>(i)] = qb::qel_record_from(in[static_cast<size_t>(i)]);
    qb::note_heap("3.records", "qel", before, kRecords);
    for (qel_var *r : built) qel_var_free(r);
  }
}

struct cpp_child {
  int64_t x;
  double y;
};
struct cpp_record {
  int64_t id;
  double score;
  uint32_t count;
  float ratio;
  std::string name;
  std::string tag;
  std::vector<std::string> tags;
  cpp_child child;
};

std::unique_ptr<cpp_record> cpp_record_from(const qb::record_data &d) {
  auto r = std::make_unique<cpp_record>();
  r->id = d.id;
  r->score = d.score;
  r->count = d.count;
  r->ratio = d.ratio;
  r->name = d.name;
  r->tag = d.tag;
  for (const std::string &t : d.tags) r->tags.push_back(t);
  r->child.x = d.x;
  r->child.y = d.y;
  return r;
}

void cpp_records(benchmark::State &state) {
  const auto &in = qb::record_inputs();
  std::vector<std::unique_ptr<cpp_record>> built(static_cast<size_t>(kRecords));
  for (auto _ : state) {
    const size_t before = qb::heap_in_use();
    for (int64_t i = 0; i < kRecords; ++i) built[static_cast<size_t>(i)] = cpp_record_from(in[static_cast<size_t>(i)]);
    qb::note_heap("3.records", "C++ struct", before, kRecords);
    for (auto &r : built) r.reset();
  }
}

// ---- workload 4 ----

void qel_lookup(benchmark::State &state) {
  qel_var *r = qel_var_new_x(30, 0, the_schemas(), resolve);
  qb::run_lookups(state,
                  [r](std::string_view k) { return qel_var_get_val(r, k.data(), static_cast<int64_t>(k.size())); });
  qel_var_free(r);
}

// The value every map holds per name: a separately allocated 8-byte slot,
// as a member variant is separately allocated.
struct slots {
  std::vector<std::unique_ptr<int64_t>> owned;
  int64_t *next() {
    owned.push_back(std::make_unique<int64_t>(0));
    return owned.back().get();
  }
};

struct sv_hash {
  using is_transparent = void;
  size_t operator()(std::string_view s) const { return std::hash<std::string_view>{}(s); }
};

void unordered_lookup(benchmark::State &state) {
  slots s;
  std::unordered_map<std::string, int64_t *, sv_hash, std::equal_to<>> m;
  for (const std::string &n : qb::member_names()) m.emplace(n, s.next());
  qb::run_lookups(state, [&m](std::string_view k) {
    auto it = m.find(k);
    return it != m.end() ? it->second : nullptr;
  });
}

void map_lookup(benchmark::State &state) {
  slots s;
  std::map<std::string, int64_t *, std::less<>> m;
  for (const std::string &n : qb::member_names()) m.emplace(n, s.next());
  qb::run_lookups(state, [&m](std::string_view k) {
    auto it = m.find(k);
    return it != m.end() ? it->second : nullptr;
  });
}

#if QEL_BENCH_ABSL
void absl_lookup(benchmark::State &state) {
  slots s;
  absl::flat_hash_map<std::string, int64_t *> m;
  for (const std::string &n : qb::member_names()) m.emplace(n, s.next());
  qb::run_lookups(state, [&m](std::string_view k) {
    auto it = m.find(absl::string_view(k.data(), k.size()));
    return it != m.end() ? it->second : nullptr;
  });
}
#endif

// ---- workload 5 ----

void qel_copy(benchmark::State &state) {
  qel_var *src = qb::qel_record_from(qb::record_inputs()[0]);
  for (auto _ : state) {
    for (int64_t i = 0; i < kRecords; ++i) {
      qel_var *dst = qel_var_new(qel_var_type(src), 0);
      qel_var_copy(dst, src);
      qb::keep(dst);
      qel_var_free(dst);
    }
  }
  qel_var_free(src);
}

void cpp_copy(benchmark::State &state) {
  const std::unique_ptr<cpp_record> src = cpp_record_from(qb::record_inputs()[0]);
  for (auto _ : state) {
    for (int64_t i = 0; i < kRecords; ++i) {
      auto dst = std::make_unique<cpp_record>(*src);
      qb::keep(dst.get());
    }
  }
}

}  // namespace

void qb::register_records() {
  add("3.records", "qel", qel_records, kRecords);
  add("3.records", "C++ struct", cpp_records, kRecords);
  add("4.lookup", "qel", qel_lookup, kLookups);
  add("4.lookup", "std::unordered_map", unordered_lookup, kLookups);
#if QEL_BENCH_ABSL
  add("4.lookup", "absl::flat_hash_map", absl_lookup, kLookups);
#endif
  add("4.lookup", "std::map", map_lookup, kLookups);
  add("5.copy", "qel", qel_copy, kRecords);
  add("5.copy", "C++ struct", cpp_copy, kRecords);
}
