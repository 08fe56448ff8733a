// The column set's bulk paths against a plain offsets-plus-values layout.
//
// 10^6 doubles in rows of 0 to 16 values (fixed seed).  Each pair of rows is
// measured side by side:
//   append  qel: every row is a ready multi light variant of code 4, appended
//                with qel_xvars_add_var into a new column set.
//           offsets+values: every row is a ready std::vector of the same
//                16-byte entries, appended to one std::vector of entries plus
//                a std::vector of row starts.
//   fetch   qel: every entry is copied back with qel_xvars_fetch_var into one
//                reused light variant and its values summed, read from the
//                record's entries (BM_Fetch_Qel) or through qel_xvar_size and
//                qel_xvar_get_double (BM_FetchGet_Qel).
//           offsets+values: every row is copied into one reused std::vector
//                and its values summed.
// Items are values, so items_per_second inverts to ns per value.  The heap
// is grown and touched once up front and never handed back, so neither arm
// pays page faults that the other one happened to pay before it.
//
//   qel_bench_columns --benchmark_repetitions=5 --benchmark_report_aggregates_only=true
//
// The same rows also run inside qel_bench (built with QEL_BENCH_SUITE).
#include <benchmark/benchmark.h>
#include <qel.h>

#include <malloc.h>

#include <bit>
#include <cstdint>
#include <cstdlib>
#include <random>
#include <vector>

namespace {

constexpr int64_t kValues = 1000000;

struct Entry {
  double value;
  uint64_t buf;
};
static_assert(sizeof(Entry) == sizeof(qel_arrayx_entry));

// Row lengths 0 to 16 summing to exactly kValues.
const std::vector<int> &row_lengths() {
  static const std::vector<int> lengths = [] {
    std::mt19937_64 rng(20240611);
    std::vector<int> out;
    int64_t total = 0;
    while (total < kValues) {
      int n = static_cast<int>(rng() % 17);
      if (total + n > kValues) n = static_cast<int>(kValues - total);
      out.push_back(n);
      total += n;
    }
    return out;
  }();
  return lengths;
}

double value_of(int64_t i) { return static_cast<double>(i) * 0.25 - 1000.0; }

// The rows as light variants, made once.
struct QelRows {
  std::vector<qel_xvar *> rows;
  QelRows() {
    int64_t at = 0;
    for (int n : row_lengths()) {
      qel_xvar *x = qel_xvar_new(4, 1);
      for (int k = 0; k < n; ++k) qel_xvar_add_double(x, value_of(at++));
      rows.push_back(x);
    }
  }
  ~QelRows() {
    for (qel_xvar *x : rows) qel_xvar_free(x);
  }
};

const QelRows &qel_rows() {
  static const QelRows rows;
  return rows;
}

// The rows as plain vectors, made once.
const std::vector<std::vector<Entry>> &plain_rows() {
  static const std::vector<std::vector<Entry>> rows = [] {
    std::vector<std::vector<Entry>> out;
    int64_t at = 0;
    for (int n : row_lengths()) {
      std::vector<Entry> row;
      for (int k = 0; k < n; ++k) row.push_back(Entry{value_of(at++), 0});
      out.push_back(std::move(row));
    }
    return out;
  }();
  return rows;
}

struct PlainColumn {
  std::vector<uint32_t> starts;
  std::vector<Entry> values;
  void add(const std::vector<Entry> &row) {
    starts.push_back(static_cast<uint32_t>(values.size()));
    values.insert(values.end(), row.begin(), row.end());
  }
  int64_t size() const { return static_cast<int64_t>(starts.size()); }
  size_t end_of(size_t r) const { return r + 1 < starts.size() ? starts[r + 1] : values.size(); }
};

void report(benchmark::State &state) {
  state.SetItemsProcessed(static_cast<int64_t>(state.iterations()) * kValues);
  state.counters["ns_per_value"] = benchmark::Counter(
      static_cast<double>(kValues) / 1e9, benchmark::Counter::kIsIterationInvariantRate | benchmark::Counter::kInvert);
}

void BM_Append_Qel(benchmark::State &state) {
  const std::vector<qel_xvar *> &rows = qel_rows().rows;
  for (auto _ : state) {
    qel_xvars *xs = qel_xvars_new(4, 1);
    for (const qel_xvar *x : rows) qel_xvars_add_var(xs, x);
    benchmark::DoNotOptimize(xs->data.arrayx.entries);
    qel_xvars_free(xs);
  }
  report(state);
}

void BM_Append_OffsetsValues(benchmark::State &state) {
  const std::vector<std::vector<Entry>> &rows = plain_rows();
  for (auto _ : state) {
    PlainColumn column;
    for (const std::vector<Entry> &row : rows) column.add(row);
    benchmark::DoNotOptimize(column.values.data());
  }
  report(state);
}

// Fetches every entry into one light variant; reads its values from the
// record's entries (as the baseline reads its vector) or through the getter.
template <bool kGetter>
void BM_Fetch_Qel(benchmark::State &state) {
  qel_xvars *xs = qel_xvars_new(4, 1);
  for (const qel_xvar *x : qel_rows().rows) qel_xvars_add_var(xs, x);
  qel_xvar *out = qel_xvar_new(4, 1);
  const int64_t entries = qel_xvars_size(xs);
  for (auto _ : state) {
    uint64_t sum = 0;
    for (int64_t r = 0; r < entries; ++r) {
      qel_xvars_fetch_var(xs, r, out);
      if constexpr (kGetter) {
        const int64_t n = qel_xvar_size(out);
        for (int64_t k = 0; k < n; ++k) sum += std::bit_cast<uint64_t>(qel_xvar_get_double(out, k));
      } else {
        const qel_arrayx &a = out->data.arrayx;
        for (int64_t k = 0; k < a.count; ++k) sum += static_cast<uint64_t>(a.entries[k].value);
      }
    }
    benchmark::DoNotOptimize(sum);
  }
  report(state);
  qel_xvar_free(out);
  qel_xvars_free(xs);
}

void BM_Fetch_OffsetsValues(benchmark::State &state) {
  PlainColumn column;
  for (const std::vector<Entry> &row : plain_rows()) column.add(row);
  std::vector<Entry> out;
  const int64_t entries = column.size();
  for (auto _ : state) {
    uint64_t sum = 0;
    for (int64_t r = 0; r < entries; ++r) {
      const size_t from = column.starts[static_cast<size_t>(r)];
      out.assign(column.values.begin() + static_cast<std::ptrdiff_t>(from),
                 column.values.begin() + static_cast<std::ptrdiff_t>(column.end_of(static_cast<size_t>(r))));
      for (size_t k = 0; k < out.size(); ++k) sum += std::bit_cast<uint64_t>(out[k].value);
    }
    benchmark::DoNotOptimize(sum);
  }
  report(state);
}

}  // namespace

#ifdef QEL_BENCH_SUITE
// Inside qel_bench: the four rows join workload 9 of the suite's table, for
// orientation (the suite holds the allocator steady itself).
#include "bench_common.h"

void qb::register_column_parts() {
  add("9.append", "qel", BM_Append_Qel, kValues);
  add("9.append", "offsets+values", BM_Append_OffsetsValues, kValues);
  add("9.fetch", "qel", BM_Fetch_Qel<false>, kValues);
  add("9.fetch", "offsets+values", BM_Fetch_OffsetsValues, kValues);
  add("9.fetch", "qel, values via qel_xvar_get_double", BM_Fetch_Qel<true>, kValues);
}
#else
// Requires nothing.  No block goes back to the kernel; 512 MiB of heap pre-touched.
void hold_allocator() {
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, -1);
  mallopt(M_TOP_PAD, 64 << 20);
  const size_t warm = size_t{1} << 29;
  auto *p = static_cast<volatile char *>(std::malloc(warm));
  if (p == nullptr) return;
  for (size_t i = 0; i < warm; i += 4096) p[i] = 1;
  std::free(const_cast<char *>(p));
}

BENCHMARK(BM_Append_Qel)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Append_OffsetsValues)->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Fetch_Qel<false>)->Name("BM_Fetch_Qel")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Fetch_Qel<true>)->Name("BM_FetchGet_Qel")->Unit(benchmark::kMillisecond);
BENCHMARK(BM_Fetch_OffsetsValues)->Unit(benchmark::kMillisecond);

int main(int argc, char **argv) {
  hold_allocator();
  benchmark::Initialize(&argc, argv);
  if (benchmark::ReportUnrecognizedArguments(argc, argv)) return 1;
  benchmark::RunSpecifiedBenchmarks();
  benchmark::Shutdown();
  return 0;
}
#endif
