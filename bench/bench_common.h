// Shared parts of the benchmark suite: the one seed and generator every
// workload draws its data from, the registry that groups rows into
// workloads, and the registration functions of each source file.
//
// A row is one arm of one workload ("1.code1" / "qel").  Rows are
// registered through qb::add, never directly: main() orders them so that
// the arms of a workload run back to back, and the table printed at the end
// divides every row's median by its workload's anchor.
#ifndef QEL_BENCH_COMMON_H
#define QEL_BENCH_COMMON_H

#include <benchmark/benchmark.h>

#include <cstdint>
#include <cstring>
#include <functional>
#include <string>
#include <vector>

namespace qb {

// Every workload uses this seed (salted per data set, the same for every arm).
inline constexpr uint64_t kSeed = 0x51ed270b27a4f3c5ull;

// SplitMix64: small, fast, the same sequence on every machine.
class rng {
 public:
  explicit rng(uint64_t salt) : s_(kSeed ^ (salt * 0x9e3779b97f4a7c15ull)) {}
  uint64_t next() {
    uint64_t z = (s_ += 0x9e3779b97f4a7c15ull);
    z = (z ^ (z >> 30)) * 0xbf58476d1ce4e5b9ull;
    z = (z ^ (z >> 27)) * 0x94d049bb133111ebull;
    return z ^ (z >> 31);
  }
  // Uniform in [0, n) (n > 0); the tiny modulo bias does not matter here.
  uint64_t below(uint64_t n) { return next() % n; }
  // Uniform in [lo, hi).
  double real(double lo, double hi) { return lo + (hi - lo) * static_cast<double>(next() >> 11) * 0x1p-53; }
  // Lower-case letters, length in [min_len, max_len].
  std::string word(unsigned min_len, unsigned max_len) {
    std::string s(min_len + below(max_len - min_len + 1), 'a');
    for (char &c : s) c = static_cast<char>('a' + below(26));
    return s;
  }

 private:
  uint64_t s_;
};

// One registered row.
struct row {
  std::string group;  // workload id, e.g. "1.code1"
  std::string arm;    // e.g. "qel", "std::vector", "json-c"
  std::function<void(benchmark::State &)> fn;
  double items;  // units of work per iteration (values, records, lookups...)
};

// Requires a group id known to the table (bench_main.cpp); adds a row whose
// function runs `items` units of work per benchmark iteration.
void add(const char *group, const char *arm, std::function<void(benchmark::State &)> fn, double items);

// All rows added so far.
std::vector<row> &rows();

// Requires nothing; the bytes the allocator holds in allocated blocks, their
// headers included (glibc's mallinfo2().uordblks).
size_t heap_in_use();

// Requires a row registered as group/arm; records the heap it held per unit
// of work (bytes now held less `before`, over units), for the table.
void note_heap(const char *group, const char *arm, size_t before, int64_t units);

// Each source file adds its rows here (called once, by main).
void register_values();        // workloads 1 and 2
void register_records();       // workloads 3, 4 and 5 (qel, C++ baselines, Abseil)
void register_sort();          // workload 6
void register_search();        // workloads 7 and 8
void register_columns();       // workload 9
void register_column_parts();  // workload 9's append and fetch apart (bench_columns.cpp)
void register_json();          // workload 10 (qel; json-c and RapidJSON when found)
void register_tally();         // workload 11
void register_arrow();         // workload 12 (Arrow export and import)
void register_avro_datums();   // workload 13 (qel; Avro C's rows come with register_avro)
void register_jsonc();         // json-c rows of workloads 1, 3, 4 and 5 (when found)
void register_avro();          // Avro C rows of workloads 1, 3, 4, 5 and 13 (when found)
void register_glib();          // GLib rows of workload 1 (when found)

// Keeps a value alive for the optimizer without a memory clobber.
template <typename T>
inline void keep(const T &v) {
  benchmark::DoNotOptimize(v);
}

}  // namespace qb

#endif
