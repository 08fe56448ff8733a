// The suite's driver: holds the allocator steady, orders the rows so the arms
// of a workload run back to back, runs them (5 repetitions by default) and
// prints, after Google Benchmark's own output, a table of medians and ratios
// to each workload's anchor, with every target marked met or missed.
//
//   qel_bench                         the whole suite, 5 repetitions, table
//   qel_bench --benchmark_filter=^6   only workload 6
//   qel_bench --benchmark_repetitions=1 --benchmark_min_time=0.05   a quick look
//
// Times are CPU time of the benchmark thread, per unit of work (a value, a
// record, a lookup, an entry, a row), medians over the repetitions.
#include <malloc.h>
#include <unistd.h>

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "bench_common.h"

namespace qb {

namespace {

// One workload: its label in the table, the unit its times are per, its
// target (0: none, the row is for orientation) and its anchors.  With
// pick_min the anchor is the fastest anchor arm present; otherwise the first
// anchor arm present.
struct workload {
  const char *id;
  const char *label;
  const char *unit;
  double target;
  std::vector<const char *> anchors;
  bool pick_min;
};

const std::vector<workload> &workloads() {
  static const std::vector<workload> w = {
      {"1.code1", "1 append+read 10^6, code 1", "value", 2.0, {"std::vector"}, false},
      {"1.code6", "1 append+read 10^6, code 6", "value", 2.0, {"std::vector"}, false},
      {"2.single", "2 single set+get, code 1", "set+get", 1.5, {"plain struct, call"}, false},
      {"3.records", "3 build, fill, free records", "record", 0.5, {"json-c", "Avro C"}, true},
      {"4.lookup", "4 member lookup, 16 members", "lookup", 1.2, {"std::unordered_map", "absl::flat_hash_map"}, true},
      {"5.copy", "5 deep copy of a record", "copy", 0.5, {"json-c", "Avro C"}, true},
      {"6.code1.asc", "6 sort 10^6, code 1, asc", "entry", 1.3, {"LSD radix"}, false},
      {"6.code1.desc", "6 sort 10^6, code 1, desc", "entry", 1.3, {"LSD radix"}, false},
      {"6.code6.asc", "6 sort 10^6, code 6, asc", "entry", 1.0, {"std::sort"}, false},
      {"6.code6.desc", "6 sort 10^6, code 6, desc", "entry", 1.0, {"std::sort"}, false},
      {"6.code7.asc", "6 sort 10^6, code 7, asc", "entry", 0.5, {"std::sort string_view"}, false},
      {"6.code7.desc", "6 sort 10^6, code 7, desc", "entry", 0.5, {"std::sort string_view"}, false},
      {"6.code4.asc", "6 sort 10^6, code 4, asc", "entry", 0, {"std::sort"}, false},
      {"6.code4.desc", "6 sort 10^6, code 4, desc", "entry", 0, {"std::sort"}, false},
      {"6.code5.asc", "6 sort 10^6, code 5, asc", "entry", 0, {"std::sort"}, false},
      {"6.code5.desc", "6 sort 10^6, code 5, desc", "entry", 0, {"std::sort"}, false},
      {"6.by", "6 stable sort 10^6 by a caller's order, code 4", "entry", 0, {"std::stable_sort"}, false},
      {"7.bfind", "7 bfind in 10^6 sorted, code 1", "search", 1.1, {"branchless+prefetch"}, false},
      {"8.keyed",
       "8 keyed insert 10^5, code 1",
       "insert",
       1.5,
       {"absl::flat_hash_map index+vector", "std::unordered_map index+vector"},
       false},
      {"9.columns", "9 column set 2*10^5 rows", "row", 1.3, {"offsets+values"}, false},
      {"9.append", "9 column set append, 10^6 values", "value", 0, {"offsets+values"}, false},
      {"9.fetch", "9 column set fetch, 10^6 values", "value", 0, {"offsets+values"}, false},
      {"10.write", "10 write 10^5 records as JSON", "record", 0.5, {"json-c"}, false},
      {"10.read", "10 read 10^5 JSON records", "record", 0.5, {"json-c"}, false},
      {"11.code1", "11 tally 10^6 keys, code 1", "key", 2.0, {"absl::flat_hash_map", "std::unordered_map"}, false},
      {"11.code7", "11 tally 10^6 keys, code 7", "key", 2.0, {"absl::flat_hash_map", "std::unordered_map"}, false},
      {"12.export", "12 Arrow export 10^6 doubles", "value", 1.5, {"loop: entries to a buffer"}, false},
      {"12.import", "12 Arrow import 10^6 doubles", "value", 1.5, {"loop: entries to a buffer"}, false},
      {"12.records", "12 Arrow import 10^5 records", "record", 1.2, {"by hand through the C interface"}, false},
      {"12.rec.export", "12 Arrow export 10^5 records", "record", 0, {}, false},
      {"13.write", "13 write 10^5 records as Avro datums", "record", 0.5, {"Avro C"}, false},
      {"13.read", "13 read 10^5 Avro datums", "record", 0.5, {"Avro C"}, false},
  };
  return w;
}

int workload_order(const std::string &id) {
  const auto &w = workloads();
  for (size_t i = 0; i < w.size(); ++i)
    if (id == w[i].id) return static_cast<int>(i);
  return -1;
}

std::map<std::string, double> &items_of() {
  static std::map<std::string, double> m;
  return m;
}

// Heap held per unit of work, for the rows that note it (qb::note_heap).
std::map<std::string, double> &heap_of() {
  static std::map<std::string, double> m;
  return m;
}

// ---- allocator ----

// The same allocator settings for every row: no block is ever handed back to
// the kernel (no mmap for large blocks, no trimming of the heap top), and the
// heap is grown and touched once up front, so page faults are paid here and
// not inside whichever row first needs the memory.
void hold_allocator() {
  mallopt(M_MMAP_MAX, 0);
  mallopt(M_TRIM_THRESHOLD, -1);
  mallopt(M_TOP_PAD, 64 << 20);
  const size_t warm = size_t{1} << 30;
  auto *p = static_cast<volatile char *>(std::malloc(warm));
  if (p != nullptr) {
    for (size_t i = 0; i < warm; i += 4096) p[i] = 1;
    std::free(const_cast<char *>(p));
  }
}

// ---- the table ----

class table_reporter : public benchmark::ConsoleReporter {
 public:
  // Colours only on a terminal (ctest and pipes get plain text).
  table_reporter() : ConsoleReporter(isatty(STDOUT_FILENO) ? OO_ColorTabular : OO_Tabular) {}

  void ReportRuns(const std::vector<Run> &runs) override {
    ConsoleReporter::ReportRuns(runs);
    for (const Run &r : runs) {
      if (r.error_occurred) continue;
      const std::string name = r.run_name.function_name;
      const double ns = r.GetAdjustedCPUTime() * 1e9 / benchmark::GetTimeUnitMultiplier(r.time_unit);
      if (r.run_type == Run::RT_Aggregate) {
        if (r.aggregate_name == "median") median_[name] = ns;
      } else {
        raw_[name].push_back(ns);
      }
    }
  }

  void Finalize() override {
    ConsoleReporter::Finalize();
    print_table();
  }

 private:
  // Median per unit of work of a row, or a negative number when it did not run.
  double per_item(const std::string &name) const {
    double ns;
    if (auto m = median_.find(name); m != median_.end()) {
      ns = m->second;
    } else if (auto r = raw_.find(name); r != raw_.end() && !r->second.empty()) {
      std::vector<double> v = r->second;
      std::sort(v.begin(), v.end());
      ns = v.size() % 2 ? v[v.size() / 2] : (v[v.size() / 2 - 1] + v[v.size() / 2]) / 2;
    } else {
      return -1;
    }
    return ns / items_of()[name];
  }

  static std::string fmt_ns(double ns) {
    char b[32];
    if (ns >= 100) std::snprintf(b, sizeof b, "%.0f", ns);
    else if (ns >= 10) std::snprintf(b, sizeof b, "%.1f", ns);
    else std::snprintf(b, sizeof b, "%.2f", ns);
    return b;
  }

  // Heap held per unit of work of a row, or a negative number when not noted.
  static double heap_per_item(const std::string &name) {
    auto h = heap_of().find(name);
    return h != heap_of().end() ? h->second : -1;
  }

  void print_table() const {
    std::printf("\nqel benchmark table: median CPU time per unit of work; ratio = row / anchor (lower is faster)\n");
    std::printf("heap = bytes the allocator holds per unit while all units exist (block headers included)\n");
    std::printf("%-40s %-44s %9s %7s %7s %6s  %s\n", "workload", "arm", "ns/unit", "ratio", "heap", "ratio", "target");
    std::printf("%s\n", std::string(141, '-').c_str());
    int met = 0;
    int missed = 0;
    int open = 0;
    for (const workload &w : workloads()) {
      std::vector<const row *> arms;
      for (const row &r : rows())
        if (r.group == w.id && per_item(r.group + "/" + r.arm) >= 0) arms.push_back(&r);
      if (arms.empty()) continue;
      // The anchor.
      const row *anchor = nullptr;
      double anchor_ns = -1;
      for (const char *a : w.anchors) {
        for (const row *r : arms) {
          if (r->arm != a) continue;
          const double ns = per_item(r->group + "/" + r->arm);
          if (anchor == nullptr || (w.pick_min && ns < anchor_ns)) {
            anchor = r;
            anchor_ns = ns;
          }
        }
        if (anchor != nullptr && !w.pick_min) break;
      }
      bool first = true;
      for (const row *r : arms) {
        const double ns = per_item(r->group + "/" + r->arm);
        std::string arm = r->arm;
        if (r == anchor) arm += "  (anchor)";
        char ratio[32] = "";
        if (anchor != nullptr) std::snprintf(ratio, sizeof ratio, "%.2f", ns / anchor_ns);
        char heap[32] = "";
        char heap_ratio[32] = "";
        const double bytes = heap_per_item(r->group + "/" + r->arm);
        if (bytes >= 0) std::snprintf(heap, sizeof heap, "%.0f", bytes);
        const double anchor_bytes = anchor != nullptr ? heap_per_item(anchor->group + "/" + anchor->arm) : -1;
        if (bytes >= 0 && anchor_bytes > 0) std::snprintf(heap_ratio, sizeof heap_ratio, "%.2f", bytes / anchor_bytes);
        std::string verdict;
        if (r->arm == "qel" && w.target > 0) {
          char t[64];
          if (anchor == nullptr) {
            std::snprintf(t, sizeof t, "<= %.1f  n/a (no anchor built)", w.target);
            ++open;
          } else if (ns / anchor_ns <= w.target) {
            std::snprintf(t, sizeof t, "<= %.1f  met", w.target);
            ++met;
          } else {
            std::snprintf(t, sizeof t, "<= %.1f  MISSED", w.target);
            ++missed;
          }
          verdict = t;
        }
        std::string label = first ? std::string(w.label) : std::string();
        if (first) label += std::string(" [") + w.unit + "]";
        std::printf("%-40s %-44s %9s %7s %7s %6s  %s\n", label.c_str(), arm.c_str(), fmt_ns(ns).c_str(), ratio, heap,
                    heap_ratio, verdict.c_str());
        first = false;
      }
    }
    std::printf("%s\n", std::string(141, '-').c_str());
    std::printf("targets: %d met, %d missed, %d without an anchor in this build\n", met, missed, open);
#if !QEL_BENCH_JSONC || !QEL_BENCH_AVRO || !QEL_BENCH_ABSL || !QEL_BENCH_GLIB
    std::printf("peers not built:%s%s%s%s (bench/install-peers.sh installs them; then configure again)\n",
                QEL_BENCH_JSONC ? "" : " json-c (libjson-c-dev)", QEL_BENCH_AVRO ? "" : " Avro C (libavro-dev)",
                QEL_BENCH_ABSL ? "" : " Abseil (libabsl-dev)", QEL_BENCH_GLIB ? "" : " GLib (libglib2.0-dev)");
#endif
    std::fflush(stdout);
  }

  std::map<std::string, double> median_;
  std::map<std::string, std::vector<double>> raw_;
};

bool has_flag(int argc, char **argv, const char *prefix) {
  for (int i = 1; i < argc; ++i)
    if (std::strncmp(argv[i], prefix, std::strlen(prefix)) == 0) return true;
  return false;
}

}  // namespace

std::vector<row> &rows() {
  static std::vector<row> r;
  return r;
}

size_t heap_in_use() { return mallinfo2().uordblks; }

void note_heap(const char *group, const char *arm, size_t before, int64_t units) {
  const size_t now = heap_in_use();
  const double held = now > before ? static_cast<double>(now - before) : 0.0;
  heap_of()[std::string(group) + "/" + arm] = held / static_cast<double>(units);
}

void add(const char *group, const char *arm, std::function<void(benchmark::State &)> fn, double items) {
  if (workload_order(group) < 0) {
    std::fprintf(stderr, "qel_bench: row %s/%s names no workload\n", group, arm);
    std::abort();
  }
  rows().push_back(row{group, arm, std::move(fn), items});
}

}  // namespace qb

int main(int argc, char **argv) {
  qb::hold_allocator();

  // Defaults: 5 repetitions, aggregates only (the table reads the medians).
  std::vector<char *> args(argv, argv + argc);
  static char reps[] = "--benchmark_repetitions=5";
  static char aggr[] = "--benchmark_report_aggregates_only=true";
  if (!qb::has_flag(argc, argv, "--benchmark_repetitions")) args.push_back(reps);
  if (!qb::has_flag(argc, argv, "--benchmark_report_aggregates_only") &&
      !qb::has_flag(argc, argv, "--benchmark_display_aggregates_only"))
    args.push_back(aggr);
  int n = static_cast<int>(args.size());
  args.push_back(nullptr);
  benchmark::Initialize(&n, args.data());
  if (benchmark::ReportUnrecognizedArguments(n, args.data())) return 1;

  qb::register_values();
  qb::register_records();
  qb::register_sort();
  qb::register_search();
  qb::register_columns();
  qb::register_column_parts();
  qb::register_json();
  qb::register_avro_datums();
  qb::register_tally();
  qb::register_arrow();
#if QEL_BENCH_JSONC
  qb::register_jsonc();
#endif
#if QEL_BENCH_AVRO
  qb::register_avro();
#endif
#if QEL_BENCH_GLIB
  qb::register_glib();
#endif

  // Arms of one workload back to back, in the order the workloads are listed.
  std::stable_sort(qb::rows().begin(), qb::rows().end(), [](const qb::row &a, const qb::row &b) {
    return qb::workload_order(a.group) < qb::workload_order(b.group);
  });
  for (const qb::row &r : qb::rows()) {
    const std::string name = r.group + "/" + r.arm;
    qb::items_of()[name] = r.items;
    benchmark::RegisterBenchmark(name.c_str(), r.fn)->Unit(benchmark::kMillisecond);
  }

  qb::table_reporter reporter;
  benchmark::RunSpecifiedBenchmarks(&reporter);
  benchmark::Shutdown();
  return 0;
}
