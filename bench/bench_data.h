// The data every arm of a workload works on: made once, from the suite's
// seed, outside any timing.
#ifndef QEL_BENCH_DATA_H
#define QEL_BENCH_DATA_H

#include <cstdint>
#include <string>
#include <vector>

#include "bench_common.h"

namespace qb {

// ---- workloads 1, 6, 7: numbers ----

inline constexpr int64_t kValues = 1000000;

// 10^6 random 32-bit values (code 1 stores 32 bits).
inline const std::vector<int64_t> &int_values() {
  static const std::vector<int64_t> v = [] {
    rng r(1);
    std::vector<int64_t> out(kValues);
    for (auto &x : out) x = static_cast<int64_t>(r.next() & 0xFFFFFFFFu);
    return out;
  }();
  return v;
}

// 10^6 random doubles in [-1e6, 1e6).
inline const std::vector<double> &double_values() {
  static const std::vector<double> v = [] {
    rng r(6);
    std::vector<double> out(kValues);
    for (auto &x : out) x = r.real(-1e6, 1e6);
    return out;
  }();
  return v;
}

// 10^6 random strings of 4 to 28 lower-case letters.
inline const std::vector<std::string> &string_values() {
  static const std::vector<std::string> v = [] {
    rng r(7);
    std::vector<std::string> out(kValues);
    for (auto &s : out) s = r.word(4, 28);
    return out;
  }();
  return v;
}

// ---- workloads 3 and 5: records ----
//
// The 8-member schema: id:4, score:6, count:1, ratio:5, name:7, tag:8,
// tags:7 multi, child: a record (code 21) of x:4 and y:6.  The record
// itself has code 20.

inline constexpr int64_t kRecords = 100000;
inline constexpr int kTagsPerRecord = 3;

struct record_data {
  int64_t id;
  double score;
  uint32_t count;
  float ratio;
  std::string name;
  std::string tag;
  std::string tags[kTagsPerRecord];
  int64_t x;
  double y;
};

inline const std::vector<record_data> &record_inputs() {
  static const std::vector<record_data> v = [] {
    rng r(3);
    std::vector<record_data> out(kRecords);
    int64_t id = 1000;
    for (auto &d : out) {
      d.id = id++;
      d.score = r.real(0, 100);
      d.count = static_cast<uint32_t>(r.below(1000));
      d.ratio = static_cast<float>(r.real(0, 1));
      d.name = r.word(6, 24);
      d.tag = r.word(3, 10);
      for (auto &t : d.tags) t = r.word(3, 12);
      d.x = static_cast<int64_t>(r.below(1 << 20));
      d.y = r.real(-1, 1);
    }
    return out;
  }();
  return v;
}

// ---- workload 4: member lookup ----

inline constexpr int kLookupMembers = 16;
inline constexpr int64_t kLookups = 10000000;
inline constexpr int64_t kLookupPattern = 4096;  // a power of two

// The 16 member names, of everyday field-name lengths.
inline const std::vector<std::string> &member_names() {
  static const std::vector<std::string> v = {
      "id",    "name",     "email",     "created_at",   "updated_at", "owner",       "status",  "priority",
      "score", "latitude", "longitude", "country_code", "tags",       "description", "version", "parent_identifier"};
  return v;
}

// Which member each lookup asks for, cycled over the 10^7 lookups.
inline const std::vector<uint8_t> &lookup_pattern() {
  static const std::vector<uint8_t> v = [] {
    rng r(4);
    std::vector<uint8_t> out(kLookupPattern);
    for (auto &k : out) k = static_cast<uint8_t>(r.below(kLookupMembers));
    return out;
  }();
  return v;
}

}  // namespace qb

#endif
