// Workload 1: append then read back 10^6 values of code 1 and of code 6.
//   qel: qel_var_add_integer / _get_integer, qel_var_add_double / _get_double
//   on a fresh array variant (made and freed in every iteration).
//   anchor: std::vector of the same 16-byte entries (value, caller value),
//   push_back then index.
//   Doubles read back are summed as their bits in both arms: a floating-point
//   sum would time the add's latency chain (and, across a call, a spill of
//   the sum, since no vector register survives a call), not the reads.
// Workload 2: one single value set and read back, 10^8 times.
//   qel: qel_var_set_integer / _get_integer on a single variant of code 1.
//   anchor: a plain struct behind a call the compiler may not inline or see
//   through.
#include <qel.h>

#include <bit>
#include <cstdint>
#include <vector>

#include "bench_common.h"
#include "bench_data.h"

namespace {

using qb::kValues;

// ---- workload 1 ----

void qel_append_read_int(benchmark::State &state) {
  const std::vector<int64_t> &in = qb::int_values();
  for (auto _ : state) {
    qel_var *v = qel_var_new(1, 1);
    for (int64_t x : in) qel_var_add_integer(v, x);
    int64_t sum = 0;
    for (int64_t i = 0; i < kValues; ++i) sum += qel_var_get_integer(v, i);
    qb::keep(sum);
    qel_var_free(v);
  }
}

void qel_append_read_double(benchmark::State &state) {
  const std::vector<double> &in = qb::double_values();
  for (auto _ : state) {
    qel_var *v = qel_var_new(6, 1);
    for (double x : in) qel_var_add_double(v, x);
    uint64_t sum = 0;
    for (int64_t i = 0; i < kValues; ++i) sum += std::bit_cast<uint64_t>(qel_var_get_double(v, i));
    qb::keep(sum);
    qel_var_free(v);
  }
}

struct entry32 {
  uint32_t value;
  uint64_t buf;
};
struct entry_double {
  double value;
  uint64_t buf;
};
static_assert(sizeof(entry32) == 16 && sizeof(entry_double) == 16);

void vector_append_read_int(benchmark::State &state) {
  const std::vector<int64_t> &in = qb::int_values();
  for (auto _ : state) {
    std::vector<entry32> v;
    for (int64_t x : in) v.push_back(entry32{static_cast<uint32_t>(x), 0});
    int64_t sum = 0;
    for (int64_t i = 0; i < kValues; ++i) sum += v[static_cast<size_t>(i)].value;
    qb::keep(sum);
  }
}

void vector_append_read_double(benchmark::State &state) {
  const std::vector<double> &in = qb::double_values();
  for (auto _ : state) {
    std::vector<entry_double> v;
    for (double x : in) v.push_back(entry_double{x, 0});
    uint64_t sum = 0;
    for (int64_t i = 0; i < kValues; ++i) sum += std::bit_cast<uint64_t>(v[static_cast<size_t>(i)].value);
    qb::keep(sum);
  }
}

// ---- workload 2 ----

constexpr int64_t kSingleOps = 100000000;

struct plain {
  uint32_t value;
  uint64_t buf;
};

// The baseline's accessors: real calls, opaque to the optimizer, with the
// same arguments as the library's.
[[gnu::noipa]] void plain_set(plain *p, int64_t index, int64_t value) {
  (void)index;
  p->value = static_cast<uint32_t>(value);
}
[[gnu::noipa]] int64_t plain_get(const plain *p, int64_t index) {
  (void)index;
  return p->value;
}

void qel_single(benchmark::State &state) {
  qel_var *v = qel_var_new(1, 0);
  for (auto _ : state) {
    int64_t sum = 0;
    for (int64_t i = 0; i < kSingleOps; ++i) {
      qel_var_set_integer(v, 0, i);
      sum += qel_var_get_integer(v, 0);
    }
    qb::keep(sum);
  }
  qel_var_free(v);
}

void plain_single(benchmark::State &state) {
  plain p{0, 0};
  for (auto _ : state) {
    int64_t sum = 0;
    for (int64_t i = 0; i < kSingleOps; ++i) {
      plain_set(&p, 0, i);
      sum += plain_get(&p, 0);
    }
    qb::keep(sum);
  }
}

}  // namespace

void qb::register_values() {
  add("1.code1", "qel", qel_append_read_int, kValues);
  add("1.code1", "std::vector", vector_append_read_int, kValues);
  add("1.code6", "qel", qel_append_read_double, kValues);
  add("1.code6", "std::vector", vector_append_read_double, kValues);
  add("2.single", "qel", qel_single, kSingleOps);
  add("2.single", "plain struct, call", plain_single, kSingleOps);
}
