// Pieces of workloads 3 to 5 shared by the qel rows and the peers' rows.
#ifndef QEL_BENCH_RECORDS_H
#define QEL_BENCH_RECORDS_H

#include <qel.h>

#include <cstdint>
#include <string_view>
#include <vector>

#include "bench_common.h"
#include "bench_data.h"

struct json_object;

namespace qb {

// The json-c object of one record, as the json-c arms build it (defined with them).
json_object *jsonc_record(const record_data &d);

// Requires nothing; a record of code 20 built through the resolver and filled
// by name from d (the qel arm of workload 3, and the source of workload 5).
qel_var *qel_record_from(const record_data &d);

// The resolver and its context that qel_record_from builds records with.
qel_schema *qel_record_resolver(void *context, uint32_t type);
void *qel_record_context();

// Requires a record of code 20: every member's value read (strings: their
// lengths), summed, as a read arm's member access.
uint64_t qel_record_sum(const qel_var *r);

// The 16 member names as views (each is also NUL-terminated).
const std::vector<std::string_view> &lookup_keys();

// Runs the 10^7 lookups of workload 4 through find(name) -> pointer.
template <typename Find>
void run_lookups(benchmark::State &state, Find find) {
  const std::vector<std::string_view> &keys = lookup_keys();
  const std::vector<uint8_t> &pattern = lookup_pattern();
  for (auto _ : state) {
    uintptr_t acc = 0;
    for (int64_t i = 0; i < kLookups; ++i) {
      const std::string_view k = keys[pattern[static_cast<size_t>(i & (kLookupPattern - 1))]];
      acc += reinterpret_cast<uintptr_t>(find(k));
    }
    keep(acc);
  }
}

}  // namespace qb

#endif
