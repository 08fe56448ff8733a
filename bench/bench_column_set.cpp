// Workload 9: the column set.  2*10^5 rows of 0 to 16 doubles: each row is
// filled into one reused row holder and appended to the column, then every
// row is fetched back into the holder and its values read.
//   qel: a multi light variant of code 4 as the holder (qel_xvar_shrink,
//   qel_xvar_add_double), qel_xvars_add_var / qel_xvars_fetch_var, values
//   read with qel_xvar_get_double; the column set is made and freed in every
//   iteration.
//   anchor: offsets plus values: a std::vector of row starts and one
//   std::vector of the same 16-byte entries (value, caller value), a
//   std::vector row holder, values read by index.
// Values read back are summed as their bits in both arms (see bench_values.cpp).
#include <qel.h>

#include <bit>
#include <cstdint>
#include <vector>

#include "bench_common.h"
#include "bench_data.h"

namespace {

constexpr int64_t kRows = 200000;

// Row lengths, 0 to 16.
const std::vector<uint8_t> &row_lengths() {
  static const std::vector<uint8_t> v = [] {
    qb::rng r(9);
    std::vector<uint8_t> out(static_cast<size_t>(kRows));
    for (auto &n : out) n = static_cast<uint8_t>(r.below(17));
    return out;
  }();
  return v;
}

void qel_columns(benchmark::State &state) {
  const std::vector<uint8_t> &lengths = row_lengths();
  const std::vector<double> &values = qb::double_values();
  qel_xvar *x = qel_xvar_new(4, 1);
  for (auto _ : state) {
    qel_xvars *xs = qel_xvars_new(4, 1);
    size_t at = 0;
    for (uint8_t n : lengths) {
      qel_xvar_shrink(x, 0);
      for (unsigned k = 0; k < n; ++k) qel_xvar_add_double(x, values[at++ % values.size()]);
      qel_xvars_add_var(xs, x);
    }
    uint64_t sum = 0;
    for (int64_t r = 0; r < kRows; ++r) {
      qel_xvars_fetch_var(xs, r, x);
      const int64_t n = qel_xvar_size(x);
      for (int64_t k = 0; k < n; ++k) sum += std::bit_cast<uint64_t>(qel_xvar_get_double(x, k));
    }
    qb::keep(sum);
    qel_xvars_free(xs);
  }
  qel_xvar_free(x);
}

struct entry_double {
  double value;
  uint64_t buf;
};

void offsets_values(benchmark::State &state) {
  const std::vector<uint8_t> &lengths = row_lengths();
  const std::vector<double> &values = qb::double_values();
  std::vector<entry_double> row;
  for (auto _ : state) {
    std::vector<uint32_t> starts;
    std::vector<entry_double> column;
    starts.push_back(0);
    size_t at = 0;
    for (uint8_t n : lengths) {
      row.clear();
      for (unsigned k = 0; k < n; ++k) row.push_back(entry_double{values[at++ % values.size()], 0});
      column.insert(column.end(), row.begin(), row.end());
      starts.push_back(static_cast<uint32_t>(column.size()));
    }
    uint64_t sum = 0;
    for (int64_t r = 0; r < kRows; ++r) {
      row.assign(column.begin() + starts[static_cast<size_t>(r)], column.begin() + starts[static_cast<size_t>(r) + 1]);
      for (size_t k = 0; k < row.size(); ++k) sum += std::bit_cast<uint64_t>(row[k].value);
    }
    qb::keep(sum);
  }
}

}  // namespace

void qb::register_columns() {
  add("9.columns", "qel", qel_columns, kRows);
  add("9.columns", "offsets+values", offsets_values, kRows);
}
