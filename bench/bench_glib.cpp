// GLib rows (built when libglib2.0-dev is found) of workload 1: a GArray of
// the same 16-byte entries (value, caller value) as the std::vector arm,
// appended with g_array_append_vals (a call into libglib per value, as the
// library's add is a call into libqel) and read with g_array_index (a macro:
// a plain load).  Doubles are summed as their bits, as in every arm.
#include <glib.h>

#include <bit>
#include <cstdint>
#include <vector>

#include "bench_common.h"
#include "bench_data.h"

namespace {

using qb::kValues;

struct entry32 {
  uint32_t value;
  uint64_t buf;
};
struct entry_double {
  double value;
  uint64_t buf;
};
static_assert(sizeof(entry32) == 16 && sizeof(entry_double) == 16);

void garray_append_read_int(benchmark::State &state) {
  const std::vector<int64_t> &in = qb::int_values();
  for (auto _ : state) {
    GArray *a = g_array_new(FALSE, FALSE, sizeof(entry32));
    for (int64_t x : in) {
      const entry32 e{static_cast<uint32_t>(x), 0};
      g_array_append_vals(a, &e, 1);
    }
    int64_t sum = 0;
    for (int64_t i = 0; i < kValues; ++i) sum += g_array_index(a, entry32, static_cast<guint>(i)).value;
    qb::keep(sum);
    g_array_free(a, TRUE);
  }
}

void garray_append_read_double(benchmark::State &state) {
  const std::vector<double> &in = qb::double_values();
  for (auto _ : state) {
    GArray *a = g_array_new(FALSE, FALSE, sizeof(entry_double));
    for (double x : in) {
      const entry_double e{x, 0};
      g_array_append_vals(a, &e, 1);
    }
    uint64_t sum = 0;
    for (int64_t i = 0; i < kValues; ++i)
      sum += std::bit_cast<uint64_t>(g_array_index(a, entry_double, static_cast<guint>(i)).value);
    qb::keep(sum);
    g_array_free(a, TRUE);
  }
}

}  // namespace

void qb::register_glib() {
  add("1.code1", "GArray", garray_append_read_int, kValues);
  add("1.code6", "GArray", garray_append_read_double, kValues);
}
