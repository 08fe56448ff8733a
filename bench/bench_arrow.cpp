// Workload 12: the Arrow C Data Interface.  10^6 doubles of a multi variant
//   exported (array made, then released) and imported back into a fresh
//   variant, each beside the floor: a plain loop copying the values out of
//   the 16-byte entries into a buffer of its own.  The 10^5 records of
//   workload 3 imported from their export into a record array, beside
//   building the same records by hand through the C interface (workload 3's
//   qel arm); their export for orientation.
#include <qel_arrow.h>

#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <vector>

#include "bench_common.h"
#include "bench_data.h"
#include "bench_records.h"

namespace {

using qb::kRecords;
using qb::kValues;

qel_var *doubles() {
  qel_var *v = qel_var_new(6, 1);
  for (double d : qb::double_values()) qel_var_add_double(v, d);
  return v;
}

void release(ArrowSchema *s, ArrowArray *a) {
  s->release(s);
  a->release(a);
}

// Each arm's unit of work is a function of its own (named *_once), so that
// callgrind can count its instructions alone: --toggle-collect='*_once*'.
[[gnu::noinline]] void floor_once(const qel_var *v) {
  auto *out = static_cast<double *>(std::malloc(kValues * sizeof(double)));
  const qel_arrayx_entry *e = v->data.arrayx.entries;
  for (int64_t i = 0; i < kValues; ++i) std::memcpy(&out[i], &e[i].value, sizeof(double));
  benchmark::DoNotOptimize(out);
  benchmark::ClobberMemory();
  std::free(out);
}

[[gnu::noinline]] void export_once(const qel_var *v) {
  ArrowSchema s;
  ArrowArray a;
  qel_arrow_export_var(v, 0, &s, &a, nullptr);
  benchmark::DoNotOptimize(a.buffers);
  release(&s, &a);
}

[[gnu::noinline]] void import_once(const ArrowSchema *s, const ArrowArray *a) {
  qel_var *back = qel_var_new(6, 1);
  qel_arrow_import(back, s, a, nullptr, nullptr, 0, nullptr);
  benchmark::DoNotOptimize(back->data.arrayx.entries);
  qel_var_free(back);
}

void floor_loop(benchmark::State &state) {
  qel_var *v = doubles();
  for (auto _ : state) floor_once(v);
  qel_var_free(v);
}

void export_doubles(benchmark::State &state) {
  qel_var *v = doubles();
  for (auto _ : state) export_once(v);
  qel_var_free(v);
}

void import_doubles(benchmark::State &state) {
  qel_var *v = doubles();
  ArrowSchema s;
  ArrowArray a;
  qel_arrow_export_var(v, 0, &s, &a, nullptr);
  for (auto _ : state) import_once(&s, &a);
  release(&s, &a);
  qel_var_free(v);
}

// Workload 3's records in one record array, for the exports.
qel_var *records() {
  const auto &in = qb::record_inputs();
  qel_var *probe = qb::qel_record_from(in[0]);
  qel_var *v = qel_var_new(20, 1);
  v->schema = probe->schema;
  qel_var_free(probe);
  for (int64_t i = 0; i < kRecords; ++i) {
    qel_var *r = qb::qel_record_from(in[static_cast<size_t>(i)]);
    qel_arrays_append(&v->data.vars, r);  // the array takes it over
  }
  return v;
}

// The resolver workload 3 builds with, taken from one of its records.
struct resolved {
  qel_schema *record;
  qel_schema *child;
};
qel_schema *resolve(void *context, uint32_t type) {
  auto *r = static_cast<resolved *>(context);
  return type == 20 ? r->record : type == 21 ? r->child : nullptr;
}

[[gnu::noinline]] void records_import_once(const ArrowSchema *s, const ArrowArray *a, resolved *ctx) {
  qel_var *back = qel_var_new_x(20, 1, ctx, resolve);
  qel_arrow_import(back, s, a, ctx, resolve, 0, nullptr);
  benchmark::DoNotOptimize(back->data.vars.entries);
  qel_var_free(back);
}

[[gnu::noinline]] void records_build_once(std::vector<qel_var *> &built) {
  const auto &in = qb::record_inputs();
  for (int64_t i = 0; i < kRecords; ++i)
    built[static_cast<size_t>(i)] = qb::qel_record_from(in[static_cast<size_t>(i)]);
  for (qel_var *r : built) qel_var_free(r);
}

void import_records(benchmark::State &state) {
  qel_var *v = records();
  qel_var *first = static_cast<qel_var *>(v->data.vars.entries[0]);
  resolved ctx{v->schema, qel_var_get_val(first, "child", 5)->schema};
  ArrowSchema s;
  ArrowArray a;
  qel_arrow_export_var(v, 0, &s, &a, nullptr);
  for (auto _ : state) records_import_once(&s, &a, &ctx);
  release(&s, &a);
  qel_var_free(v);
}

void build_records(benchmark::State &state) {
  std::vector<qel_var *> built(static_cast<size_t>(kRecords));
  qb::record_inputs();
  for (auto _ : state) records_build_once(built);
}

void export_records(benchmark::State &state) {
  qel_var *v = records();
  for (auto _ : state) {
    ArrowSchema s;
    ArrowArray a;
    qel_arrow_export_var(v, 0, &s, &a, nullptr);
    benchmark::DoNotOptimize(a.children);
    release(&s, &a);
  }
  qel_var_free(v);
}

}  // namespace

void qb::register_arrow() {
  const auto n = static_cast<double>(kValues), r = static_cast<double>(kRecords);
  qb::add("12.export", "loop: entries to a buffer", floor_loop, n);
  qb::add("12.export", "qel", export_doubles, n);
  qb::add("12.import", "loop: entries to a buffer", floor_loop, n);
  qb::add("12.import", "qel", import_doubles, n);
  qb::add("12.records", "by hand through the C interface", build_records, r);
  qb::add("12.records", "qel", import_records, r);
  qb::add("12.rec.export", "qel export", export_records, r);
}
