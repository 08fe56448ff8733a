// Workload 9: the column set.  2*10^5 rows of 0 to 16 doubles, ready before
// the timing (as light variants for qel, as std::vectors for the baseline):
// each iteration makes a column, appends every row, then fetches every row
// back into one reused holder and reads its values, and frees the column.
//   qel: qel_xvars_new / qel_xvars_add_var / qel_xvars_fetch_var into a multi
//   light variant of code 4, read the way a C caller reads a fetched row:
//   qel_xvar_size, then qel_xvar_get_double per value.
//   anchor: offsets plus values: a std::vector of row starts and one
//   std::vector of the same 16-byte entries (value, caller value); rows
//   fetched with assign into a reused std::vector.
//   For orientation: the same qel arm reading the values straight from the
//   row's array entries (fields the header lets callers read), as the
//   baseline reads its vector, and, from bench_columns.cpp, the append and
//   the fetch timed apart.
// Values read back are summed as their bits in every arm (see bench_values.cpp).
#include <qel.h>

#include <bit>
#include <cstdint>
#include <vector>

#include "bench_common.h"
#include "bench_data.h"

namespace {

constexpr int64_t kRows = 200000;

struct entry_double {
  double value;
  uint64_t buf;
};
static_assert(sizeof(entry_double) == sizeof(qel_arrayx_entry));

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

// Calls f(row, value) for every value of every row, in order.
template <typename F>
void for_each_value(F f) {
  const std::vector<double> &values = qb::double_values();
  size_t at = 0;
  size_t row = 0;
  for (uint8_t n : row_lengths()) {
    for (unsigned k = 0; k < n; ++k) {
      f(row, values[at]);
      if (++at == values.size()) at = 0;
    }
    ++row;
  }
}

const std::vector<qel_xvar *> &qel_rows() {
  static const std::vector<qel_xvar *> rows = [] {
    std::vector<qel_xvar *> out;
    for (size_t r = 0; r < row_lengths().size(); ++r) out.push_back(qel_xvar_new(4, 1));
    for_each_value([&out](size_t r, double v) { qel_xvar_add_double(out[r], v); });
    return out;
  }();
  return rows;
}

const std::vector<std::vector<entry_double>> &plain_rows() {
  static const std::vector<std::vector<entry_double>> rows = [] {
    std::vector<std::vector<entry_double>> out(row_lengths().size());
    for_each_value([&out](size_t r, double v) { out[r].push_back(entry_double{v, 0}); });
    return out;
  }();
  return rows;
}

template <bool Getter>
void qel_columns(benchmark::State &state) {
  const std::vector<qel_xvar *> &rows = qel_rows();
  qel_xvar *x = qel_xvar_new(4, 1);
  for (auto _ : state) {
    qel_xvars *xs = qel_xvars_new(4, 1);
    for (const qel_xvar *row : rows) qel_xvars_add_var(xs, row);
    uint64_t sum = 0;
    for (int64_t r = 0; r < kRows; ++r) {
      qel_xvars_fetch_var(xs, r, x);
      if constexpr (Getter) {
        const int64_t n = qel_xvar_size(x);
        for (int64_t k = 0; k < n; ++k) sum += std::bit_cast<uint64_t>(qel_xvar_get_double(x, k));
      } else {
        const qel_arrayx &a = x->data.arrayx;
        for (int64_t k = 0; k < a.count; ++k) sum += static_cast<uint64_t>(a.entries[k].value);
      }
    }
    qb::keep(sum);
    qel_xvars_free(xs);
  }
  qel_xvar_free(x);
}

void offsets_values(benchmark::State &state) {
  const std::vector<std::vector<entry_double>> &rows = plain_rows();
  std::vector<entry_double> row;
  for (auto _ : state) {
    std::vector<uint32_t> starts;
    std::vector<entry_double> column;
    starts.push_back(0);
    for (const std::vector<entry_double> &r : rows) {
      column.insert(column.end(), r.begin(), r.end());
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
  add("9.columns", "qel", qel_columns<true>, kRows);
  add("9.columns", "offsets+values", offsets_values, kRows);
  add("9.columns", "qel, values read from the entries", qel_columns<false>, kRows);
}
