// Workload 11: counting by key.  10^6 keys drawn from 10^5 distinct ones
// (code 1: random 32-bit numbers; code 7: dotted client addresses), each
// counted once, into a fresh container per iteration.
//   qel: the documented idiom on a multi variant: qel_var_add_*_x inserts the
//   key once and gives its count, qel_var_find gives its index and
//   qel_var_set_buf stores the count + 1 as the entry's caller value.
//   anchor: absl::flat_hash_map<key, count> (when Abseil is there, else
//   std::unordered_map), ++map[key]; std::unordered_map for orientation.
// Every arm ends by summing the counts, which must come to 10^6.
#include <qel.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <unordered_map>
#include <unordered_set>
#include <utility>
#include <vector>

#include "bench_common.h"

#if QEL_BENCH_ABSL
#include <absl/container/flat_hash_map.h>
#endif

namespace {

constexpr int64_t kTallies = 1000000;
constexpr uint64_t kDistinct = 100000;

// The 10^6 keys, each one of 10^5 distinct keys made by make(rng).
template <typename K, typename Make>
std::vector<K> draw_keys(uint64_t salt, Make make) {
  qb::rng r(salt);
  std::unordered_set<K> seen;
  std::vector<K> distinct;
  distinct.reserve(kDistinct);
  while (distinct.size() < kDistinct) {
    K k = make(r);
    if (seen.insert(k).second) distinct.push_back(std::move(k));
  }
  std::vector<K> out;
  out.reserve(static_cast<size_t>(kTallies));
  for (int64_t i = 0; i < kTallies; ++i) out.push_back(distinct[r.below(kDistinct)]);
  return out;
}

const std::vector<uint32_t> &number_keys() {
  static const std::vector<uint32_t> v =
      draw_keys<uint32_t>(10001, [](qb::rng &r) { return static_cast<uint32_t>(r.next()); });
  return v;
}

const std::vector<std::string> &address_keys() {
  static const std::vector<std::string> v = draw_keys<std::string>(10007, [](qb::rng &r) {
    return "10." + std::to_string(r.below(256)) + "." + std::to_string(r.below(256)) + "." +
           std::to_string(r.below(256));
  });
  return v;
}

// Requires the sum of every count; stops the run when it is not 10^6.
void check_total(uint64_t total) {
  if (total != static_cast<uint64_t>(kTallies)) {
    std::fprintf(stderr, "qel_bench: tally counted %llu keys\n", static_cast<unsigned long long>(total));
    std::abort();
  }
}

// Requires a multi variant whose caller values are counts; their sum.
uint64_t qel_total(const qel_var *v) {
  uint64_t total = 0;
  const int64_t n = qel_var_size(v);
  for (int64_t i = 0; i < n; ++i) total += qel_var_get_buf(v, i);
  return total;
}

void qel_tally_numbers(benchmark::State &state) {
  const std::vector<uint32_t> &keys = number_keys();
  for (auto _ : state) {
    qel_var *counts = qel_var_new(1, 1);
    for (uint32_t k : keys) {
      const uint64_t seen = qel_var_add_integer_x(counts, k);
      qel_var_set_buf(counts, qel_var_find(counts, &k, 0), seen + 1);
    }
    check_total(qel_total(counts));
    qel_var_free(counts);
  }
}

void qel_tally_addresses(benchmark::State &state) {
  const std::vector<std::string> &keys = address_keys();
  for (auto _ : state) {
    qel_var *counts = qel_var_new(7, 1);
    for (const std::string &k : keys) {
      const auto len = static_cast<int64_t>(k.size());
      const uint64_t seen = qel_var_add_string_x(counts, k.data(), len);
      qel_var_set_buf(counts, qel_var_find(counts, k.data(), len), seen + 1);
    }
    check_total(qel_total(counts));
    qel_var_free(counts);
  }
}

template <typename Map, typename K>
void map_tally(benchmark::State &state, const std::vector<K> &keys) {
  for (auto _ : state) {
    Map counts;
    for (const K &k : keys) ++counts[k];
    uint64_t total = 0;
    for (const auto &kv : counts) total += kv.second;
    check_total(total);
  }
}

}  // namespace

void qb::register_tally() {
  add("11.code1", "qel", qel_tally_numbers, kTallies);
#if QEL_BENCH_ABSL
  add(
      "11.code1", "absl::flat_hash_map",
      [](benchmark::State &s) { map_tally<absl::flat_hash_map<uint32_t, uint64_t>>(s, number_keys()); }, kTallies);
#endif
  add(
      "11.code1", "std::unordered_map",
      [](benchmark::State &s) { map_tally<std::unordered_map<uint32_t, uint64_t>>(s, number_keys()); }, kTallies);
  add("11.code7", "qel", qel_tally_addresses, kTallies);
#if QEL_BENCH_ABSL
  add(
      "11.code7", "absl::flat_hash_map",
      [](benchmark::State &s) { map_tally<absl::flat_hash_map<std::string, uint64_t>>(s, address_keys()); }, kTallies);
#endif
  add(
      "11.code7", "std::unordered_map",
      [](benchmark::State &s) { map_tally<std::unordered_map<std::string, uint64_t>>(s, address_keys()); }, kTallies);
}
