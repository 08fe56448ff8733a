// Workload 7: 10^7 qel_var_bfind in a sorted array of 10^6 code-1 entries
//   (half of the keys present, half random).  Anchor: a branchless binary
//   search with prefetch over the same entries; std::lower_bound for
//   orientation.  Every arm returns the lowest position holding the key, or -1.
// Workload 8: keyed insertion (qel_var_add_integer_x) of 10^5 random code-1
//   keys, 30% of them repeats, into a fresh array.  Anchor: the same work
//   written here, a hash map from value to position over a vector of entries
//   in insertion order (absl::flat_hash_map when Abseil is there, else
//   std::unordered_map); std::map, absl::btree_map and a sorted vector for
//   orientation.
#include <qel.h>

#include <algorithm>
#include <cstdint>
#include <map>
#include <unordered_map>
#include <vector>

#include "bench_common.h"
#include "bench_data.h"

#if QEL_BENCH_ABSL
#include <absl/container/btree_map.h>
#include <absl/container/flat_hash_map.h>
#endif

namespace {

using qb::kValues;

// ---- workload 7 ----

constexpr int64_t kSearches = 10000000;
constexpr int64_t kKeyPattern = int64_t{1} << 20;

const qel_var *sorted_input() {
  static qel_var *v = [] {
    qel_var *out = qel_var_new(1, 1);
    qel_var_expand(out, kValues);
    for (int64_t x : qb::int_values()) qel_var_add_integer(out, x);
    qel_var_qsort(out, 1);
    return out;
  }();
  return v;
}

const std::vector<uint32_t> &search_keys() {
  static const std::vector<uint32_t> v = [] {
    qb::rng r(7000);
    const std::vector<int64_t> &values = qb::int_values();
    std::vector<uint32_t> out(static_cast<size_t>(kKeyPattern));
    for (uint32_t &k : out)
      k = r.below(2) ? static_cast<uint32_t>(values[r.below(values.size())]) : static_cast<uint32_t>(r.next());
    return out;
  }();
  return v;
}

template <typename Find>
void run_searches(benchmark::State &state, Find find) {
  const std::vector<uint32_t> &keys = search_keys();
  for (auto _ : state) {
    int64_t acc = 0;
    for (int64_t i = 0; i < kSearches; ++i) acc += find(keys[static_cast<size_t>(i & (kKeyPattern - 1))]);
    qb::keep(acc);
  }
}

void qel_bfind(benchmark::State &state) {
  const qel_var *v = sorted_input();
  run_searches(state, [v](uint32_t key) { return qel_var_bfind(v, &key, sizeof key); });
}

std::vector<qel_arrayd_entry> sorted_entries() {
  const qel_arrayd &a = sorted_input()->data.arrayd;
  return std::vector<qel_arrayd_entry>(a.entries, a.entries + a.count);
}

void lower_bound_find(benchmark::State &state) {
  const std::vector<qel_arrayd_entry> e = sorted_entries();
  run_searches(state, [&e](uint32_t key) -> int64_t {
    auto it =
        std::lower_bound(e.begin(), e.end(), key, [](const qel_arrayd_entry &x, uint32_t k) { return x.value < k; });
    return it != e.end() && it->value == key ? it - e.begin() : -1;
  });
}

// Lower bound without branches on the data (the comparison selects the next
// base), prefetching both entries the next step may probe.
int64_t branchless_find(const qel_arrayd_entry *a, int64_t n, uint32_t key) {
  if (n == 0) return -1;
  const qel_arrayd_entry *base = a;
  int64_t len = n;
  while (len > 1) {
    const int64_t half = len / 2;
    const int64_t next = (len - half) / 2;
    __builtin_prefetch(base + next);
    __builtin_prefetch(base + half + next);
    base = base[half].value < key ? base + half : base;
    len -= half;
  }
  const int64_t pos = (base - a) + (base->value < key);
  return pos < n && a[pos].value == key ? pos : -1;
}

void branchless(benchmark::State &state) {
  const std::vector<qel_arrayd_entry> e = sorted_entries();
  const int64_t n = static_cast<int64_t>(e.size());
  run_searches(state, [&e, n](uint32_t key) { return branchless_find(e.data(), n, key); });
}

// ---- workload 8 ----

constexpr int64_t kKeyed = 100000;

const std::vector<uint32_t> &keyed_keys() {
  static const std::vector<uint32_t> v = [] {
    qb::rng r(8000);
    std::vector<uint32_t> out;
    out.reserve(static_cast<size_t>(kKeyed));
    for (int64_t i = 0; i < kKeyed; ++i) {
      if (i > 0 && r.below(10) < 3) out.push_back(out[r.below(out.size())]);
      else out.push_back(static_cast<uint32_t>(r.next()));
    }
    return out;
  }();
  return v;
}

void qel_keyed(benchmark::State &state) {
  const std::vector<uint32_t> &keys = keyed_keys();
  for (auto _ : state) {
    qel_var *v = qel_var_new(1, 1);
    uint64_t acc = 0;
    for (uint32_t k : keys) acc += qel_var_add_integer_x(v, k);
    qb::keep(acc);
    qel_var_free(v);
  }
}

// value -> position over a vector of entries in insertion order.
template <typename Map>
void index_keyed(benchmark::State &state) {
  const std::vector<uint32_t> &keys = keyed_keys();
  for (auto _ : state) {
    Map index;
    std::vector<qel_arrayd_entry> entries;
    uint64_t acc = 0;
    for (uint32_t k : keys) {
      auto [it, inserted] = index.try_emplace(k, entries.size());
      if (inserted) entries.push_back(qel_arrayd_entry{k, 0});
      acc += entries[it->second].buf;
    }
    qb::keep(acc);
  }
}

// A sorted vector of entries (no insertion order): binary search, insert.
void sorted_vector_keyed(benchmark::State &state) {
  const std::vector<uint32_t> &keys = keyed_keys();
  for (auto _ : state) {
    std::vector<qel_arrayd_entry> entries;
    uint64_t acc = 0;
    for (uint32_t k : keys) {
      auto it = std::lower_bound(entries.begin(), entries.end(), k,
                                 [](const qel_arrayd_entry &x, uint32_t key) { return x.value < key; });
      if (it == entries.end() || it->value != k) it = entries.insert(it, qel_arrayd_entry{k, 0});
      acc += it->buf;
    }
    qb::keep(acc);
  }
}

}  // namespace

void qb::register_search() {
  add("7.bfind", "qel", qel_bfind, kSearches);
  add("7.bfind", "branchless+prefetch", branchless, kSearches);
  add("7.bfind", "std::lower_bound", lower_bound_find, kSearches);
  add("8.keyed", "qel", qel_keyed, kKeyed);
#if QEL_BENCH_ABSL
  add("8.keyed", "absl::flat_hash_map index+vector", index_keyed<absl::flat_hash_map<uint32_t, size_t>>, kKeyed);
#endif
  add("8.keyed", "std::unordered_map index+vector", index_keyed<std::unordered_map<uint32_t, size_t>>, kKeyed);
#if QEL_BENCH_ABSL
  add("8.keyed", "absl::btree_map index+vector", index_keyed<absl::btree_map<uint32_t, size_t>>, kKeyed);
#endif
  add("8.keyed", "std::map index+vector", index_keyed<std::map<uint32_t, size_t>>, kKeyed);
  add("8.keyed", "sorted std::vector", sorted_vector_keyed, kKeyed);
}
