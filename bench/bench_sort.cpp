// Workload 6: qel_var_qsort on 10^6 random entries, per type code and
// direction, against the same 16-byte entries sorted by plain C++:
//   code 1: anchor an LSD radix sort written here (the floor), std::sort too;
//   code 6: anchor std::sort (qel's double sort is a quicksort whose steps
//           are fixed; its implementation is what is measured);
//   code 7: anchor std::sort of (std::string_view, caller value) pairs;
//   codes 4 and 5: std::sort, for orientation;
//   6.by: qel_var_sort_by of the code-4 entries by a C function reading each
//         entry's value through qel_var_get_long, against std::stable_sort of
//         the same entries (anchor: an inlined by-value comparison; also one
//         called through a function pointer per comparison, as the C
//         interface must).
// Every arm restores the unsorted entries before each sort, outside the
// timing.  Caller values are the entry positions.
#include <qel.h>

#include <algorithm>
#include <bit>
#include <cstdint>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "bench_common.h"
#include "bench_data.h"

namespace {

using qb::kValues;

// Random values of one type code, in a multi variant whose caller values are
// the entry positions.
qel_var *make_input(uint32_t type) {
  qb::rng r(600 + type);
  qel_var *v = qel_var_new(type, 1);
  qel_var_expand(v, kValues);
  for (int64_t k = 0; k < kValues; ++k) {
    switch (type) {
      case 1: qel_var_add_integer(v, qb::int_values()[static_cast<size_t>(k)]); break;
      case 4: qel_var_add_long(v, static_cast<int64_t>(r.next())); break;
      case 5: qel_var_add_float(v, static_cast<float>(r.real(-1e6, 1e6))); break;
      case 6: qel_var_add_double(v, qb::double_values()[static_cast<size_t>(k)]); break;
      default: {
        const std::string &s = qb::string_values()[static_cast<size_t>(k)];
        qel_var_add_string(v, s.data(), static_cast<int64_t>(s.size()));
      }
    }
    qel_var_set_buf(v, k, static_cast<uint64_t>(k));
  }
  return v;
}

const qel_var *input_for(uint32_t type) {
  static qel_var *inputs[8] = {};
  if (inputs[type] == nullptr) inputs[type] = make_input(type);
  return inputs[type];
}

void qel_sort(benchmark::State &state, uint32_t type, int flag) {
  const qel_var *input = input_for(type);
  qel_var *work = qel_var_new(type, 1);
  for (auto _ : state) {
    state.PauseTiming();
    qel_var_copy(work, input);
    state.ResumeTiming();
    qel_var_qsort(work, flag);
    benchmark::ClobberMemory();
  }
  qel_var_free(work);
}

// The same entries sorted by std::sort with a by-value comparator.
template <typename Entry, typename Less>
void run_std_sort(benchmark::State &state, const Entry *entries, Less less) {
  const std::vector<Entry> input(entries, entries + kValues);
  std::vector<Entry> work(input.size());
  for (auto _ : state) {
    state.PauseTiming();
    std::copy(input.begin(), input.end(), work.begin());
    state.ResumeTiming();
    std::sort(work.begin(), work.end(), less);
    benchmark::ClobberMemory();
  }
}

// A by-value "sorts before" for one direction, fixed at compile time.
template <bool Ascending, typename Key>
auto ordered(Key key) {
  return [key](const auto &a, const auto &b) {
    if constexpr (Ascending) return key(a) < key(b);
    else return key(b) < key(a);
  };
}

template <bool Ascending>
void std_sort_in(benchmark::State &state, uint32_t type) {
  const qel_var *input = input_for(type);
  switch (type) {
    case 1:
      run_std_sort(state, input->data.arrayd.entries,
                   ordered<Ascending>([](const qel_arrayd_entry &e) { return e.value; }));
      break;
    case 4:
      run_std_sort(state, input->data.arrayx.entries,
                   ordered<Ascending>([](const qel_arrayx_entry &e) { return e.value; }));
      break;
    case 5:
      run_std_sort(state, input->data.arrayd.entries,
                   ordered<Ascending>([](const qel_arrayd_entry &e) { return std::bit_cast<float>(e.value); }));
      break;
    case 6:
      run_std_sort(state, input->data.arrayx.entries,
                   ordered<Ascending>([](const qel_arrayx_entry &e) { return std::bit_cast<double>(e.value); }));
      break;
    default: {
      // (view, caller value) pairs: the string comparison reads the bytes
      // where they lie, as a user sorting views would.
      struct view_entry {
        std::string_view text;
        uint64_t buf;
      };
      const qel_array &a = input->data.array;
      std::vector<view_entry> views(static_cast<size_t>(a.count));
      for (int64_t i = 0; i < a.count; ++i)
        views[static_cast<size_t>(i)] = {std::string_view(a.pool.bytes + a.entries[i].offset, a.entries[i].length),
                                         a.entries[i].buf};
      run_std_sort(state, views.data(), ordered<Ascending>([](const view_entry &e) { return e.text; }));
    }
  }
}

void std_sort(benchmark::State &state, uint32_t type, int flag) {
  if (flag != 0) std_sort_in<true>(state, type);
  else std_sort_in<false>(state, type);
}

// An LSD radix sort of the code-1 entries: four passes of 8-bit digits, all
// histograms counted in one pass over the data; descending sorts by the
// complemented key.  Stable, as qel's integer sort.
void radix_sort(std::vector<qel_arrayd_entry> &a, std::vector<qel_arrayd_entry> &tmp, bool ascending) {
  const size_t n = a.size();
  const uint32_t flip = ascending ? 0u : ~0u;
  size_t counts[4][256] = {};
  for (const qel_arrayd_entry &e : a) {
    const uint32_t k = e.value ^ flip;
    counts[0][k & 0xff]++;
    counts[1][(k >> 8) & 0xff]++;
    counts[2][(k >> 16) & 0xff]++;
    counts[3][k >> 24]++;
  }
  qel_arrayd_entry *src = a.data();
  qel_arrayd_entry *dst = tmp.data();
  for (unsigned d = 0; d < 4; ++d) {
    size_t sum = 0;
    for (size_t &c : counts[d]) {
      const size_t here = c;
      c = sum;
      sum += here;
    }
    const unsigned shift = 8 * d;
    for (size_t i = 0; i < n; ++i) dst[counts[d][((src[i].value ^ flip) >> shift) & 0xff]++] = src[i];
    std::swap(src, dst);
  }
  // Four passes: the result is back in a.
}

void radix(benchmark::State &state, int flag) {
  const qel_arrayd &in = input_for(1)->data.arrayd;
  const std::vector<qel_arrayd_entry> input(in.entries, in.entries + in.count);
  std::vector<qel_arrayd_entry> work(input.size());
  std::vector<qel_arrayd_entry> tmp(input.size());
  for (auto _ : state) {
    state.PauseTiming();
    std::copy(input.begin(), input.end(), work.begin());
    state.ResumeTiming();
    radix_sort(work, tmp, flag != 0);
    benchmark::ClobberMemory();
  }
}

// The caller's order of qel_var_sort_by: ascending by the 64-bit value.
int by_value(const qel_var *a, const qel_var *b, void *) {
  const int64_t x = qel_var_get_long(a, 0), y = qel_var_get_long(b, 0);
  return (x > y) - (x < y);
}

void qel_sort_by(benchmark::State &state) {
  const qel_var *input = input_for(4);
  qel_var *work = qel_var_new(4, 1);
  for (auto _ : state) {
    state.PauseTiming();
    qel_var_copy(work, input);
    state.ResumeTiming();
    qel_var_sort_by(work, by_value, nullptr);
    benchmark::ClobberMemory();
  }
  qel_var_free(work);
}

bool entry_before(const qel_arrayx_entry &a, const qel_arrayx_entry &b) { return a.value < b.value; }

void std_stable_sort(benchmark::State &state, bool through_pointer) {
  const qel_arrayx &in = input_for(4)->data.arrayx;
  const std::vector<qel_arrayx_entry> input(in.entries, in.entries + in.count);
  std::vector<qel_arrayx_entry> work(input.size());
  bool (*volatile before)(const qel_arrayx_entry &, const qel_arrayx_entry &) = entry_before;
  for (auto _ : state) {
    state.PauseTiming();
    std::copy(input.begin(), input.end(), work.begin());
    state.ResumeTiming();
    if (through_pointer) std::stable_sort(work.begin(), work.end(), before);
    else std::stable_sort(work.begin(), work.end(), entry_before);
    benchmark::ClobberMemory();
  }
}

}  // namespace

void qb::register_sort() {
  static const std::vector<std::string> ids = [] {
    std::vector<std::string> v;
    for (const char *code : {"1", "6", "7", "4", "5"})
      for (const char *dir : {"asc", "desc"}) v.push_back(std::string("6.code") + code + "." + dir);
    return v;
  }();
  size_t k = 0;
  for (const uint32_t code : {1u, 6u, 7u, 4u, 5u}) {
    for (const int asc : {1, 0}) {
      const char *id = ids[k++].c_str();
      add(
          id, "qel", [code, asc](benchmark::State &s) { qel_sort(s, code, asc); }, kValues);
      if (code == 1)
        add(
            id, "LSD radix", [asc](benchmark::State &s) { radix(s, asc); }, kValues);
      add(
          id, code == 7 ? "std::sort string_view" : "std::sort",
          [code, asc](benchmark::State &s) { std_sort(s, code, asc); }, kValues);
    }
  }
  add("6.by", "qel", qel_sort_by, kValues);
  add(
      "6.by", "std::stable_sort", [](benchmark::State &s) { std_stable_sort(s, false); }, kValues);
  add(
      "6.by", "std::stable_sort, function pointer", [](benchmark::State &s) { std_stable_sort(s, true); }, kValues);
}
