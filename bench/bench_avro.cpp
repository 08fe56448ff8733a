// Avro C rows (built when libavro-dev is found), through its generic values,
// of the workloads it can do: 1 (an array of int or double), 3 (records
// built and filled by field name, then released), 4 (avro_value_get_by_name
// on a 16-field record), 5 (avro_value_copy_fast into a fresh value, then
// release) and 13 (the records of 3 written as datums into a memory writer,
// and read from a memory reader into one generic value, then every field
// read by name).  Value interfaces are made once, outside the timing.
#include <avro.h>

#include <bit>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>
#include <vector>

#include "bench_common.h"
#include "bench_data.h"
#include "bench_records.h"

namespace {

using qb::kRecords;
using qb::kValues;

void check(int rc, const char *what) {
  if (rc != 0) {
    std::fprintf(stderr, "qel_bench: Avro C %s failed: %s\n", what, avro_strerror());
    std::abort();
  }
}

avro_value_iface_t *iface_of(avro_schema_t schema) {
  avro_value_iface_t *iface = avro_generic_class_from_schema(schema);
  if (iface == nullptr) check(1, "avro_generic_class_from_schema");
  return iface;
}

avro_value_iface_t *int_array_iface() {
  static avro_value_iface_t *i = iface_of(avro_schema_array(avro_schema_int()));
  return i;
}
avro_value_iface_t *double_array_iface() {
  static avro_value_iface_t *i = iface_of(avro_schema_array(avro_schema_double()));
  return i;
}

avro_value_iface_t *record_iface() {
  static avro_value_iface_t *i = [] {
    avro_schema_t child = avro_schema_record("child", nullptr);
    check(avro_schema_record_field_append(child, "x", avro_schema_long()), "field x");
    check(avro_schema_record_field_append(child, "y", avro_schema_double()), "field y");
    avro_schema_t rec = avro_schema_record("record", nullptr);
    check(avro_schema_record_field_append(rec, "id", avro_schema_long()), "field id");
    check(avro_schema_record_field_append(rec, "score", avro_schema_double()), "field score");
    check(avro_schema_record_field_append(rec, "count", avro_schema_int()), "field count");
    check(avro_schema_record_field_append(rec, "ratio", avro_schema_float()), "field ratio");
    check(avro_schema_record_field_append(rec, "name", avro_schema_string()), "field name");
    check(avro_schema_record_field_append(rec, "tag", avro_schema_bytes()), "field tag");
    check(avro_schema_record_field_append(rec, "tags", avro_schema_array(avro_schema_string())), "field tags");
    check(avro_schema_record_field_append(rec, "child", child), "field child");
    return iface_of(rec);
  }();
  return i;
}

avro_value_iface_t *wide_iface() {
  static avro_value_iface_t *i = [] {
    avro_schema_t rec = avro_schema_record("wide", nullptr);
    for (const std::string &n : qb::member_names())
      check(avro_schema_record_field_append(rec, n.c_str(), avro_schema_long()), "wide field");
    return iface_of(rec);
  }();
  return i;
}

void avro_append_read_int(benchmark::State &state) {
  const std::vector<int64_t> &in = qb::int_values();
  avro_value_iface_t *iface = int_array_iface();
  for (auto _ : state) {
    avro_value_t a;
    avro_generic_value_new(iface, &a);
    avro_value_t e;
    for (int64_t x : in) {
      avro_value_append(&a, &e, nullptr);
      avro_value_set_int(&e, static_cast<int32_t>(x));
    }
    int64_t sum = 0;
    for (int64_t i = 0; i < kValues; ++i) {
      int32_t out = 0;
      avro_value_get_by_index(&a, static_cast<size_t>(i), &e, nullptr);
      avro_value_get_int(&e, &out);
      sum += static_cast<uint32_t>(out);
    }
    qb::keep(sum);
    avro_value_decref(&a);
  }
}

void avro_append_read_double(benchmark::State &state) {
  const std::vector<double> &in = qb::double_values();
  avro_value_iface_t *iface = double_array_iface();
  for (auto _ : state) {
    avro_value_t a;
    avro_generic_value_new(iface, &a);
    avro_value_t e;
    for (double x : in) {
      avro_value_append(&a, &e, nullptr);
      avro_value_set_double(&e, x);
    }
    uint64_t sum = 0;
    for (int64_t i = 0; i < kValues; ++i) {
      double out = 0;
      avro_value_get_by_index(&a, static_cast<size_t>(i), &e, nullptr);
      avro_value_get_double(&e, &out);
      sum += std::bit_cast<uint64_t>(out);
    }
    qb::keep(sum);
    avro_value_decref(&a);
  }
}

void avro_record_from(const qb::record_data &d, avro_value_t *out) {
  avro_generic_value_new(record_iface(), out);
  avro_value_t f;
  avro_value_get_by_name(out, "id", &f, nullptr);
  avro_value_set_long(&f, d.id);
  avro_value_get_by_name(out, "score", &f, nullptr);
  avro_value_set_double(&f, d.score);
  avro_value_get_by_name(out, "count", &f, nullptr);
  avro_value_set_int(&f, static_cast<int32_t>(d.count));
  avro_value_get_by_name(out, "ratio", &f, nullptr);
  avro_value_set_float(&f, d.ratio);
  avro_value_get_by_name(out, "name", &f, nullptr);
  avro_value_set_string_len(&f, d.name.c_str(), d.name.size() + 1);  // the size counts the NUL
  avro_value_get_by_name(out, "tag", &f, nullptr);
  avro_value_set_bytes(&f, const_cast<char *>(d.tag.data()), d.tag.size());
  avro_value_t tags;
  avro_value_get_by_name(out, "tags", &tags, nullptr);
  for (const std::string &t : d.tags) {
    avro_value_append(&tags, &f, nullptr);
    avro_value_set_string_len(&f, t.c_str(), t.size() + 1);
  }
  avro_value_t child;
  avro_value_get_by_name(out, "child", &child, nullptr);
  avro_value_get_by_name(&child, "x", &f, nullptr);
  avro_value_set_long(&f, d.x);
  avro_value_get_by_name(&child, "y", &f, nullptr);
  avro_value_set_double(&f, d.y);
}

void avro_records(benchmark::State &state) {
  const auto &in = qb::record_inputs();
  std::vector<avro_value_t> built(static_cast<size_t>(kRecords));
  for (auto _ : state) {
    const size_t before = qb::heap_in_use();
    for (int64_t i = 0; i < kRecords; ++i) avro_record_from(in[static_cast<size_t>(i)], &built[static_cast<size_t>(i)]);
    qb::note_heap("3.records", "Avro C", before, kRecords);
    for (avro_value_t &v : built) avro_value_decref(&v);
  }
}

void avro_lookup(benchmark::State &state) {
  avro_value_t v;
  avro_generic_value_new(wide_iface(), &v);
  qb::run_lookups(state, [&v](std::string_view k) {
    avro_value_t f;
    f.self = nullptr;
    avro_value_get_by_name(&v, k.data(), &f, nullptr);  // the names are NUL-terminated
    return f.self;
  });
  avro_value_decref(&v);
}

void avro_copy(benchmark::State &state) {
  avro_value_t src;
  avro_record_from(qb::record_inputs()[0], &src);
  for (auto _ : state) {
    for (int64_t i = 0; i < kRecords; ++i) {
      avro_value_t dst;
      avro_generic_value_new(record_iface(), &dst);
      avro_value_copy_fast(&dst, &src);
      qb::keep(dst.self);
      avro_value_decref(&dst);
    }
  }
  avro_value_decref(&src);
}

// ---- workload 13 ----

const std::vector<std::string> &avro_datums() {
  static const std::vector<std::string> v = [] {
    std::vector<std::string> out;
    std::vector<char> buf(1 << 16);
    avro_writer_t w = avro_writer_memory(buf.data(), static_cast<int64_t>(buf.size()));
    for (const qb::record_data &d : qb::record_inputs()) {
      avro_value_t r;
      avro_record_from(d, &r);
      avro_writer_memory_set_dest(w, buf.data(), static_cast<int64_t>(buf.size()));
      check(avro_value_write(w, &r), "avro_value_write");
      out.emplace_back(buf.data(), static_cast<size_t>(avro_writer_tell(w)));
      avro_value_decref(&r);
    }
    avro_writer_free(w);
    return out;
  }();
  return v;
}

void avro_datum_write(benchmark::State &state) {
  const auto &in = qb::record_inputs();
  std::vector<avro_value_t> built(in.size());
  for (size_t i = 0; i < in.size(); ++i) avro_record_from(in[i], &built[i]);
  std::vector<char> buf(1 << 16);
  avro_writer_t w = avro_writer_memory(buf.data(), static_cast<int64_t>(buf.size()));
  for (auto _ : state) {
    int64_t bytes = 0;
    for (avro_value_t &r : built) {
      avro_writer_memory_set_dest(w, buf.data(), static_cast<int64_t>(buf.size()));
      avro_value_write(w, &r);
      bytes += avro_writer_tell(w);
    }
    qb::keep(bytes);
  }
  avro_writer_free(w);
  for (avro_value_t &r : built) avro_value_decref(&r);
}

void avro_datum_read(benchmark::State &state) {
  const auto &datums = avro_datums();
  avro_value_t r;
  avro_generic_value_new(record_iface(), &r);
  avro_reader_t rd = avro_reader_memory(datums[0].data(), static_cast<int64_t>(datums[0].size()));
  for (auto _ : state) {
    uint64_t acc = 0;
    for (const std::string &d : datums) {
      avro_reader_memory_set_source(rd, d.data(), static_cast<int64_t>(d.size()));
      avro_value_reset(&r);
      avro_value_read(rd, &r);
      avro_value_t f, e;
      int64_t l = 0;
      int32_t i = 0;
      double x = 0;
      float fl = 0;
      const char *s = nullptr;
      const void *b = nullptr;
      size_t n = 0;
      avro_value_get_by_name(&r, "id", &f, nullptr);
      avro_value_get_long(&f, &l);
      acc += static_cast<uint64_t>(l);
      avro_value_get_by_name(&r, "score", &f, nullptr);
      avro_value_get_double(&f, &x);
      acc += std::bit_cast<uint64_t>(x);
      avro_value_get_by_name(&r, "count", &f, nullptr);
      avro_value_get_int(&f, &i);
      acc += static_cast<uint32_t>(i);
      avro_value_get_by_name(&r, "ratio", &f, nullptr);
      avro_value_get_float(&f, &fl);
      acc += std::bit_cast<uint32_t>(fl);
      avro_value_get_by_name(&r, "name", &f, nullptr);
      avro_value_get_string(&f, &s, &n);
      acc += n;
      avro_value_get_by_name(&r, "tag", &f, nullptr);
      avro_value_get_bytes(&f, &b, &n);
      acc += n;
      avro_value_get_by_name(&r, "tags", &f, nullptr);
      size_t count = 0;
      avro_value_get_size(&f, &count);
      for (size_t k = 0; k < count; ++k) {
        avro_value_get_by_index(&f, k, &e, nullptr);
        avro_value_get_string(&e, &s, &n);
        acc += n;
      }
      avro_value_get_by_name(&r, "child", &f, nullptr);
      avro_value_get_by_name(&f, "x", &e, nullptr);
      avro_value_get_long(&e, &l);
      avro_value_get_by_name(&f, "y", &f, nullptr);
      avro_value_get_double(&f, &x);
      acc += static_cast<uint64_t>(l) + std::bit_cast<uint64_t>(x);
    }
    qb::keep(acc);
  }
  avro_reader_free(rd);
  avro_value_decref(&r);
}

}  // namespace

void qb::register_avro() {
  add("1.code1", "Avro C", avro_append_read_int, kValues);
  add("1.code6", "Avro C", avro_append_read_double, kValues);
  add("3.records", "Avro C", avro_records, kRecords);
  add("4.lookup", "Avro C", avro_lookup, kLookups);
  add("5.copy", "Avro C", avro_copy, kRecords);
  add("13.write", "Avro C", avro_datum_write, kRecords);
  add("13.read", "Avro C", avro_datum_read, kRecords);
}
