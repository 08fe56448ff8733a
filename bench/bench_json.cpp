// Workload 10: the 10^5 records of workload 3 as JSON, one document per
//   record.  Write: each record (built beforehand) to text in a reused
//   buffer.  Read: each document (qel's text of the record, made beforehand)
//   parsed and every member's value read.  Anchor: json-c
//   (json_object_to_json_string_ext; json_tokener_parse, then member access);
//   RapidJSON (Writer into a StringBuffer; Document::Parse, then member
//   access) for orientation.
#include <qel_json.h>

#include <bit>
#include <cstdint>
#include <string>
#include <vector>

#include "bench_common.h"
#include "bench_data.h"
#include "bench_records.h"

#if QEL_BENCH_JSONC
#include <json-c/json.h>
#endif
#if QEL_BENCH_RAPIDJSON
#include <rapidjson/document.h>
#include <rapidjson/stringbuffer.h>
#include <rapidjson/writer.h>
#endif

namespace {

using qb::kRecords;

template <size_t N>
qel_var *member(const qel_var *r, const char (&name)[N]) {
  return qel_var_get_val(r, name, static_cast<int64_t>(N - 1));
}

// The records as qel variants, built once.
const std::vector<qel_var *> &qel_records() {
  static const std::vector<qel_var *> v = [] {
    std::vector<qel_var *> out;
    for (const qb::record_data &d : qb::record_inputs()) out.push_back(qb::qel_record_from(d));
    return out;
  }();
  return v;
}

// The documents every read arm parses: qel's text of each record.
const std::vector<std::string> &documents() {
  static const std::vector<std::string> v = [] {
    std::vector<std::string> out;
    qel_stream s;
    qel_stream_init(&s);
    for (const qel_var *r : qel_records()) {
      s.length = 0;
      qel_json_write(r, &s, 0);
      out.emplace_back(s.bytes, static_cast<size_t>(s.length));
    }
    qel_stream_term(&s);
    return out;
  }();
  return v;
}

void qel_write(benchmark::State &state) {
  const auto &in = qel_records();
  qel_stream out;
  qel_stream_init(&out);
  for (auto _ : state) {
    int64_t bytes = 0;
    for (const qel_var *r : in) {
      out.length = 0;
      qel_json_write(r, &out, 0);
      bytes += out.length;
    }
    qb::keep(bytes);
  }
  qel_stream_term(&out);
}

void qel_read(benchmark::State &state) {
  const auto &docs = documents();
  qel_var *r = qb::qel_record_from(qb::record_inputs()[0]);
  for (auto _ : state) {
    uint64_t acc = 0;
    for (const std::string &doc : docs) {
      qel_json_read(r, doc.data(), static_cast<int64_t>(doc.size()), nullptr, nullptr, 0, nullptr);
      acc += qb::qel_record_sum(r);
    }
    qb::keep(acc);
  }
  qel_var_free(r);
}

#if QEL_BENCH_JSONC
void jsonc_write(benchmark::State &state) {
  std::vector<json_object *> in;
  for (const qb::record_data &d : qb::record_inputs()) in.push_back(qb::jsonc_record(d));
  for (auto _ : state) {
    size_t bytes = 0;
    for (json_object *o : in) {
      size_t n = 0;
      json_object_to_json_string_length(o, JSON_C_TO_STRING_PLAIN, &n);
      bytes += n;
    }
    qb::keep(bytes);
  }
  for (json_object *o : in) json_object_put(o);
}

void jsonc_read(benchmark::State &state) {
  const auto &docs = documents();
  for (auto _ : state) {
    uint64_t acc = 0;
    for (const std::string &doc : docs) {
      json_object *o = json_tokener_parse(doc.c_str());
      json_object *v = nullptr;
      json_object_object_get_ex(o, "id", &v);
      acc += static_cast<uint64_t>(json_object_get_int64(v));
      json_object_object_get_ex(o, "score", &v);
      acc += std::bit_cast<uint64_t>(json_object_get_double(v));
      json_object_object_get_ex(o, "count", &v);
      acc += static_cast<uint64_t>(json_object_get_int64(v));
      json_object_object_get_ex(o, "ratio", &v);
      acc += std::bit_cast<uint32_t>(static_cast<float>(json_object_get_double(v)));
      json_object_object_get_ex(o, "name", &v);
      acc += static_cast<uint64_t>(json_object_get_string_len(v));
      json_object_object_get_ex(o, "tag", &v);
      acc += static_cast<uint64_t>(json_object_get_string_len(v));
      json_object_object_get_ex(o, "tags", &v);
      for (size_t i = 0; i < json_object_array_length(v); ++i)
        acc += static_cast<uint64_t>(json_object_get_string_len(json_object_array_get_idx(v, i)));
      json_object *child = nullptr;
      json_object_object_get_ex(o, "child", &child);
      json_object_object_get_ex(child, "x", &v);
      acc += static_cast<uint64_t>(json_object_get_int64(v));
      json_object_object_get_ex(child, "y", &v);
      acc += std::bit_cast<uint64_t>(json_object_get_double(v));
      json_object_put(o);
    }
    qb::keep(acc);
  }
}
#endif

#if QEL_BENCH_RAPIDJSON
void rapidjson_write(benchmark::State &state) {
  const auto &in = qb::record_inputs();
  rapidjson::StringBuffer sb;
  for (auto _ : state) {
    size_t bytes = 0;
    for (const qb::record_data &d : in) {
      sb.Clear();
      rapidjson::Writer<rapidjson::StringBuffer> w(sb);
      w.StartObject();
      w.Key("id");
      w.Int64(d.id);
      w.Key("score");
      w.Double(d.score);
      w.Key("count");
      w.Uint(d.count);
      w.Key("ratio");
      w.Double(d.ratio);
      w.Key("name");
      w.String(d.name.data(), static_cast<rapidjson::SizeType>(d.name.size()));
      w.Key("tag");
      w.String(d.tag.data(), static_cast<rapidjson::SizeType>(d.tag.size()));
      w.Key("tags");
      w.StartArray();
      for (const std::string &t : d.tags) w.String(t.data(), static_cast<rapidjson::SizeType>(t.size()));
      w.EndArray();
      w.Key("child");
      w.StartObject();
      w.Key("x");
      w.Int64(d.x);
      w.Key("y");
      w.Double(d.y);
      w.EndObject();
      w.EndObject();
      bytes += sb.GetSize();
    }
    qb::keep(bytes);
  }
}

void rapidjson_read(benchmark::State &state) {
  const auto &docs = documents();
  for (auto _ : state) {
    uint64_t acc = 0;
    for (const std::string &doc : docs) {
      rapidjson::Document d;
      d.Parse(doc.data(), doc.size());
      acc += static_cast<uint64_t>(d["id"].GetInt64());
      acc += std::bit_cast<uint64_t>(d["score"].GetDouble());
      acc += d["count"].GetUint();
      acc += std::bit_cast<uint32_t>(d["ratio"].GetFloat());
      acc += d["name"].GetStringLength();
      acc += d["tag"].GetStringLength();
      for (const auto &t : d["tags"].GetArray()) acc += t.GetStringLength();
      const auto &child = d["child"];
      acc += static_cast<uint64_t>(child["x"].GetInt64());
      acc += std::bit_cast<uint64_t>(child["y"].GetDouble());
    }
    qb::keep(acc);
  }
}
#endif

}  // namespace

void qb::register_json() {
  add("10.write", "qel", qel_write, kRecords);
  add("10.read", "qel", qel_read, kRecords);
  add("13.write", "qel JSON", qel_write, kRecords);  // beside the Avro datums of the same records
  add("13.read", "qel JSON", qel_read, kRecords);
#if QEL_BENCH_JSONC
  add("10.write", "json-c", jsonc_write, kRecords);
  add("10.read", "json-c", jsonc_read, kRecords);
#endif
#if QEL_BENCH_RAPIDJSON
  add("10.write", "RapidJSON", rapidjson_write, kRecords);
  add("10.read", "RapidJSON", rapidjson_read, kRecords);
#endif
}
