// Workload 13: the 10^5 records of workload 3 as Avro binary datums.  Write:
//   each record (built beforehand) as a datum into a reused stream.  Read:
//   each datum (qel's, made beforehand) into one reused record, by the
//   parsed writer schema, then every member's value read.  Anchor: Avro C
//   (avro_value_write into a memory writer; avro_value_read from a memory
//   reader into a generic value, then member access; bench_avro.cpp); qel's
//   own JSON of the same records beside them (bench_json.cpp).  The first
//   write prints the bytes per record of both forms.
#include <qel_avro.h>
#include <qel_json.h>

#include <cstdio>
#include <string>
#include <vector>

#include "bench_common.h"
#include "bench_data.h"
#include "bench_records.h"

namespace {

using qb::kRecords;

const std::vector<qel_var *> &records() {
  static const std::vector<qel_var *> v = [] {
    std::vector<qel_var *> out;
    for (const qb::record_data &d : qb::record_inputs()) out.push_back(qb::qel_record_from(d));
    return out;
  }();
  return v;
}

// Requires nothing: the total bytes of every record's datum (or JSON text).
int64_t total_bytes(bool json) {
  qel_stream s;
  qel_stream_init(&s);
  for (const qel_var *r : records()) {
    if (json) {
      qel_json_write(r, &s, 0);
    } else {
      qel_avro_write(r, &s, qb::qel_record_context(), qb::qel_record_resolver, 0, nullptr);
    }
  }
  const int64_t n = s.length;
  qel_stream_term(&s);
  return n;
}

void qel_write(benchmark::State &state) {
  static const bool printed = [] {
    std::printf("13: bytes per record: Avro datum %.1f, JSON %.1f\n",
                static_cast<double>(total_bytes(false)) / kRecords, static_cast<double>(total_bytes(true)) / kRecords);
    return true;
  }();
  qb::keep(printed);
  const auto &in = records();
  void *context = qb::qel_record_context();
  qel_stream out;
  qel_stream_init(&out);
  for (auto _ : state) {
    int64_t bytes = 0;
    for (const qel_var *r : in) {
      out.length = 0;
      qel_avro_write(r, &out, context, qb::qel_record_resolver, 0, nullptr);
      bytes += out.length;
    }
    qb::keep(bytes);
  }
  qel_stream_term(&out);
}

void qel_read(benchmark::State &state) {
  std::vector<std::string> datums;
  qel_stream s;
  qel_stream_init(&s);
  for (const qel_var *r : records()) {
    s.length = 0;
    qel_avro_write(r, &s, qb::qel_record_context(), qb::qel_record_resolver, 0, nullptr);
    datums.emplace_back(s.bytes, static_cast<size_t>(s.length));
  }
  s.length = 0;
  qel_avro_schema(20, 0, qb::qel_record_context(), qb::qel_record_resolver, nullptr, 0, &s);
  qel_avro_type *type = qel_avro_type_parse(s.bytes, s.length, nullptr);
  qel_stream_term(&s);
  qel_var *r = qb::qel_record_from(qb::record_inputs()[0]);
  void *context = qb::qel_record_context();
  for (auto _ : state) {
    uint64_t acc = 0;
    for (const std::string &d : datums) {
      qel_avro_read(r, d.data(), static_cast<int64_t>(d.size()), nullptr, type, context, qb::qel_record_resolver, 0,
                    nullptr);
      acc += qb::qel_record_sum(r);
    }
    qb::keep(acc);
  }
  qel_var_free(r);
  qel_avro_type_free(type);
}

}  // namespace

void qb::register_avro_datums() {
  add("13.write", "qel", qel_write, kRecords);
  add("13.read", "qel", qel_read, kRecords);
}
