// Avro: the schema text of shapes, datum bytes, resolution of other writer
// schemas, errors on hostile bytes with the destination unchanged, and
// container files.
#include <gtest/gtest.h>
#include <qel_avro.h>
#include <qel_json.h>

#include <cstring>
#include <string>

#include "avro_shapes.h"

namespace {

using avro_shapes::g_rec;
using avro_shapes::resolve;
qel_var *member(const qel_var *r, const char *n) { return avro_shapes::at(r, n); }

std::string str(const qel_stream &s) {
  return std::string(s.bytes != nullptr ? s.bytes : "", static_cast<size_t>(s.length));
}
std::string json(const qel_var *v) {  // what a variant holds, with its shape
  qel_stream s;
  qel_stream_init(&s);
  qel_json_write(v, &s, QEL_JSON_ESCAPE_BYTES | QEL_JSON_NONFINITE_NULL);
  const std::string out = str(s);
  qel_stream_term(&s);
  return out;
}
std::string unhex(const char *h) {
  std::string s;
  for (; h[0] != '\0' && h[1] != '\0'; h += 2) s += static_cast<char>(std::stoi(std::string(h, 2), nullptr, 16));
  return s;
}

class Avro : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { avro_shapes::make(); }
  static void TearDownTestSuite() { avro_shapes::free_all(); }
  void SetUp() override { qel_stream_init(&out_); }
  void TearDown() override {
    qel_stream_term(&out_);
    qel_avro_type_free(type_);
  }
  std::string text() const { return str(out_); }
  std::string schema(uint32_t type, uint8_t multi, qel_avro_namer namer = nullptr, unsigned flags = 0, int rc = 0) {
    out_.length = 0;
    EXPECT_EQ(qel_avro_schema(type, multi, nullptr, resolve, namer, flags, &out_), rc);
    return text();
  }
  std::string write(const qel_var *v, unsigned flags = 0, int rc = 0) {
    out_.length = 0;
    EXPECT_EQ(qel_avro_write(v, &out_, nullptr, resolve, flags, &err_), rc) << err_.message;
    return text();
  }
  // Reads bytes of writer schema `w` into v; on an error checks that v is as before.
  int read(qel_var *v, const char *w, const std::string &bytes, unsigned flags = 0) {
    qel_avro_type_free(type_);
    type_ = qel_avro_type_parse(w, -1, &err_);
    EXPECT_NE(type_, nullptr) << err_.message;
    const std::string before = json(v);
    const int rc = qel_avro_read(v, bytes.data(), static_cast<int64_t>(bytes.size()), nullptr, type_, nullptr, resolve,
                                 flags, &err_);
    EXPECT_EQ(rc, err_.code);
    if (rc != QEL_AVRO_OK) {
      EXPECT_EQ(json(v), before) << "changed by a failed read: " << err_.message;
    }
    return rc;
  }
  qel_var *filled() {
    qel_var *r = qel_var_new_x(20, 0, nullptr, resolve);
    qel_var_set_long(member(r, "id"), 0, INT64_MIN);
    qel_var_set_long(member(r, "n"), 0, -1);
    qel_var_set_double(member(r, "score"), 0, 0.5);
    qel_var_set_float(member(r, "ratio"), 0, -0.0f);
    qel_var_set_string(member(r, "name"), 0, "a\0b", 3);
    qel_var_add_string(member(r, "tags"), "", 0);
    qel_var_add_string(member(r, "tags"), "\xff", 1);
    qel_var *other = qel_var_new_x(21, 0, nullptr, resolve);
    qel_var_add_float(member(other, "x"), 1.0f);
    qel_var_add_var_x(member(r, "kids"), other);
    qel_var_set_long(member(other, "x"), 0, 0);
    qel_var_set_string(member(other, "s"), 0, "deep", 4);
    qel_var_copy(member(member(r, "child"), "next"), other);  // a self-nested record with members
    qel_var_free(other);
    return r;
  }
  qel_stream out_;
  qel_avro_error err_;
  qel_avro_type *type_ = nullptr;
};

const char *kRecordSchema =
    R"({"type":"record","name":"qel_20","fields":[{"name":"id","type":"long"},{"name":"n","type":"long"},)"
    R"({"name":"score","type":"double"},{"name":"ratio","type":"float"},{"name":"name","type":"bytes"},)"
    R"({"name":"tags","type":{"type":"array","items":"bytes"}},{"name":"kids","type":{"type":"array","items":)"
    R"({"type":"record","name":"qel_21","fields":[{"name":"x","type":{"type":"array","items":"float"}},)"
    R"({"name":"s","type":"bytes"},{"name":"next","type":["null","qel_21"]}]}}},{"name":"child","type":"qel_21"}]})";

TEST_F(Avro, SchemaTextNamesAndRefusals) {
  EXPECT_EQ(schema(20, 0), kRecordSchema);
  EXPECT_EQ(schema(4, 1), R"({"type":"array","items":"long"})");
  qel_avro_namer child = [](void *, uint32_t t) -> const char * { return t == 21 ? "Child" : nullptr; };
  EXPECT_EQ(schema(21, 1, child, QEL_AVRO_STRINGS),
            R"({"type":"array","items":{"type":"record","name":"Child","fields":[{"name":"x","type":{"type":"array",)"
            R"("items":"float"}},{"name":"s","type":"string"},{"name":"next","type":["null","Child"]}]}})");
  out_.length = 0;
  qel_stream_append(&out_, "kept", 4);
  qel_avro_namer bad = [](void *, uint32_t t) -> const char * { return t == 21 ? "a-b" : nullptr; };
  qel_avro_namer twice = [](void *, uint32_t) -> const char * { return "same"; };
  for (qel_avro_namer n : {bad, twice}) {
    EXPECT_EQ(qel_avro_schema(20, 0, nullptr, resolve, n, 0, &out_), QEL_AVRO_ERR_NAME);
    EXPECT_EQ(text(), "kept");
  }
  qel_schema *odd = qel_var_schema_new();
  qel_var_schema_add(odd, "ok", 2, 4, 0);
  qel_var_schema_add(odd, "ok", 2, 4, 0);
  EXPECT_EQ(qel_avro_schema(30, 0, odd, nullptr, nullptr, 0, &out_), QEL_AVRO_ERR_NAME);
  qel_var_schema_free(odd);
}

TEST_F(Avro, DatumBytes) {
  qel_var *c = qel_var_new_x(21, 0, nullptr, resolve);
  qel_var_add_float(member(c, "x"), 1.0f);
  qel_var_add_float(member(c, "x"), -0.0f);
  qel_var_set_string(member(c, "s"), 0, "hi", 2);
  EXPECT_EQ(write(c), unhex("040000803f000000800004686900"));
  qel_var_copy(member(c, "next"), c);  // next now has members: the union's second branch
  EXPECT_EQ(write(c), unhex("040000803f000000800004686902") + write(member(c, "next")));
  qel_var_free(c);
  const struct {
    uint32_t type;
    int64_t value;
    const char *bytes;
  } numbers[] = {{1, -1, "feffffff1f"},      {9, 64, "8001"},   {4, INT64_MIN, "ffffffffffffffffff01"}, {4, -1, "01"},
                 {6, 0, "0000000000000000"}, {5, 1, "0000803f"}};
  for (const auto &n : numbers) {
    qel_var *v = qel_var_new(n.type, 0);
    qel_var_set_long(v, 0, n.value);
    EXPECT_EQ(write(v), unhex(n.bytes)) << n.type << " " << n.value;
    qel_var_change(v, n.type, 1);
    EXPECT_EQ(write(v), unhex("00"));  // an empty array: the end mark alone
    qel_var_add_long(v, n.value);
    EXPECT_EQ(write(v), "\x02" + unhex(n.bytes) + '\0');
    qel_var_free(v);
  }
}

TEST_F(Avro, MembersThatDoNotMatchTheSchema) {
  qel_var *r = qel_var_new_x(20, 0, nullptr, resolve);
  qel_var *id = member(r, "id");
  const std::string plain = write(r);
  qel_var_change(id, 6, 0);  // no longer the listed code
  out_.length = 0;
  qel_stream_append(&out_, "kept", 4);
  EXPECT_EQ(qel_avro_write(r, &out_, nullptr, resolve, 0, &err_), QEL_AVRO_ERR_MEMBERS);
  EXPECT_EQ(text(), "kept");
  EXPECT_STREQ(err_.path, "id");
  EXPECT_EQ(write(r, QEL_AVRO_LOOSE_MEMBERS), plain);  // written as the listed zero
  qel_var_change(id, 4, 0);
  qel_var_change(member(r, "child"), 4, 0);  // a record member missing: its zero record
  write(r, 0, QEL_AVRO_ERR_MEMBERS);
  EXPECT_EQ(write(r, QEL_AVRO_LOOSE_MEMBERS), plain);
  qel_hash_insert(&r->data.members, "more", 4, qel_var_new(4, 0));  // not in the schema
  write(r, 0, QEL_AVRO_ERR_MEMBERS);
  EXPECT_EQ(write(r, QEL_AVRO_LOOSE_MEMBERS), plain);
  qel_var_set_string(member(r, "name"), 0, "\xc3(", 2);
  write(r, QEL_AVRO_STRINGS | QEL_AVRO_LOOSE_MEMBERS, QEL_AVRO_ERR_UTF8);
  EXPECT_STREQ(err_.path, "name");
  qel_var_free(r);
}

TEST_F(Avro, RoundTripThroughItsOwnSchema) {
  qel_var *r = filled();
  const std::string s = schema(20, 0);
  const std::string bytes = write(r);
  const std::string twice = bytes + bytes;  // datums back to back
  qel_var *again = qel_var_new_x(20, 0, nullptr, resolve);
  EXPECT_EQ(read(again, s.c_str(), twice), QEL_AVRO_ERR_INVALID);  // the whole input must be one datum
  EXPECT_EQ(err_.offset, static_cast<int64_t>(bytes.size()));
  int64_t used = 0;
  EXPECT_EQ(
      qel_avro_read(again, twice.data(), static_cast<int64_t>(twice.size()), &used, type_, nullptr, resolve, 0, &err_),
      QEL_AVRO_OK);
  EXPECT_EQ(used, static_cast<int64_t>(bytes.size()));
  EXPECT_EQ(json(again), json(r));
  // A record without its members (schema only) gets them created.
  qel_var *bare = qel_var_new(20, 0);
  bare->schema = g_rec;
  EXPECT_EQ(read(bare, s.c_str(), bytes + "x"), QEL_AVRO_ERR_INVALID);
  EXPECT_EQ(qel_var_member_count(bare), 0);
  EXPECT_EQ(read(bare, s.c_str(), bytes), QEL_AVRO_OK);
  EXPECT_TRUE(qel_var_equal(bare, r));
  for (qel_var *v : {r, again, bare}) qel_var_free(v);
}

TEST_F(Avro, ResolvesAnotherWriterSchema) {
  const char *w =
      R"({"type":"record","name":"ns.w","fields":[{"name":"extra","type":{"type":"map","values":["null","string"]}},)"
      R"({"name":"id","type":"int"},{"name":"score","type":"float"},{"name":"name","type":"string"},)"
      R"({"name":"ratio","type":["null","float"]},{"name":"n","type":["null","long"]},)"
      R"({"name":"kids","type":{"type":"array","items":{"type":"record","name":"k","fields":[{"name":"s","type":"bytes"},)"
      R"({"name":"f","type":{"type":"fixed","name":"f4","size":4}},{"name":"e","type":{"type":"enum","name":"E",)"
      R"("symbols":["A","B"]}},{"name":"b","type":"boolean"}]}}}]})";
  // extra {"k": null, "q": "v"}, id -3, score 0.5f, name "hé", ratio null, n 5,
  // kids [{s "z", f 4 bytes, e B, b true}]
  const std::string bytes = unhex("04026b00027102027600050000003f0668c3a900020a02027a61626364020100");
  qel_var *r = filled();
  qel_var_set_float(member(r, "ratio"), 0, 2.5f);
  ASSERT_EQ(read(r, w, bytes), QEL_AVRO_OK) << err_.message;
  // ratio null: kept; tags and child not written: kept; kids: one new element.
  EXPECT_EQ(json(r), R"({"id":-3,"n":5,"score":0.5,"ratio":2.5,"name":"h)"
                     "\xc3\xa9"
                     R"(","tags":["","\u00ff"],)"
                     R"("kids":[{"x":[],"s":"z","next":{}}],"child":{"x":[],"s":"","next":{"x":[0.0],"s":"deep",)"
                     R"("next":{"x":[],"s":"","next":{}}}}})");
  EXPECT_EQ(read(r, w, bytes, QEL_AVRO_NULL_ERROR), QEL_AVRO_ERR_NULL);
  EXPECT_STREQ(err_.path, "ratio");  // the map's null is skipped, not read
  qel_var_free(r);
}

TEST_F(Avro, BadBytesAndMismatchesLeaveTheDestination) {
  const struct {
    const char *writer;
    uint32_t type;
    uint8_t multi;
    const char *bytes;
    int code;
    int64_t offset;
  } cases[] = {
      {"\"long\"", 1, 0, "01", QEL_AVRO_ERR_RANGE, 0},          // -1 into an unsigned 32-bit code
      {"\"long\"", 1, 0, "8080808020", QEL_AVRO_ERR_RANGE, 0},  // 2^32
      {"\"int\"", 5, 0, "82808010", QEL_AVRO_ERR_RANGE, 0},     // 2^24 + 1: no float holds it
      {"\"long\"", 6, 0, "feffffffffffffffff01", QEL_AVRO_ERR_RANGE, 0},
      {"\"int\"", 4, 0, "8080808010", QEL_AVRO_ERR_INVALID, 0},  // beyond 32 bits
      {"\"double\"", 5, 0, "0000000000000000", QEL_AVRO_ERR_TYPE, 0},
      {"\"string\"", 4, 0, "00", QEL_AVRO_ERR_TYPE, 0},
      {"\"long\"", 7, 0, "00", QEL_AVRO_ERR_TYPE, 0},
      {"\"long\"", 20, 0, "00", QEL_AVRO_ERR_TYPE, 0},
      {"\"long\"", 4, 1, "00", QEL_AVRO_ERR_TYPE, 0},
      {"\"string\"", 7, 0, "04c328", QEL_AVRO_ERR_UTF8, 1},
      {"\"long\"", 4, 0, "80", QEL_AVRO_ERR_TRUNCATED, 1},
      {"\"long\"", 4, 0, "ffffffffffffffffff02", QEL_AVRO_ERR_INVALID, 10},  // a 65th bit
      {"\"long\"", 4, 0, "ffffffffffffffffff8001", QEL_AVRO_ERR_INVALID, 10},
      {"\"bytes\"", 7, 0, "01", QEL_AVRO_ERR_INVALID, 0},
      {"\"bytes\"", 7, 0, "0661", QEL_AVRO_ERR_TRUNCATED, 1},
      {"\"float\"", 5, 0, "000000", QEL_AVRO_ERR_TRUNCATED, 0},
      {"[\"null\",\"long\"]", 4, 0, "04", QEL_AVRO_ERR_INVALID, 0},
      {R"({"type":"array","items":"long"})", 4, 1, "d00f0202", QEL_AVRO_ERR_TRUNCATED, 0},  // 1000 items in 2 bytes
      {R"({"type":"array","items":"long"})", 4, 1, "03060202", QEL_AVRO_ERR_TRUNCATED, 2},  // block size past the end
      {R"({"type":"array","items":"null"})", 4, 1, "feffffffffffffffff01", QEL_AVRO_ERR_TRUNCATED, 0},
      {R"({"type":"array","items":"long"})", 4, 1, "0402", QEL_AVRO_ERR_TRUNCATED, 0},
  };
  for (const auto &c : cases) {
    qel_var *v = qel_var_new_x(c.type, c.multi, nullptr, resolve);
    qel_var_set_long(v, 0, 7);
    qel_var_add_long(v, 7);
    EXPECT_EQ(read(v, c.writer, unhex(c.bytes)), c.code) << c.writer << " " << c.bytes;
    EXPECT_EQ(err_.offset, c.offset) << c.writer << " " << c.bytes << ": " << err_.message;
    qel_var_free(v);
  }
  // Nesting without end through a recursive schema stops at the limit.
  std::string deep(3000, '\x02');
  deep += '\0';
  qel_var *v = qel_var_new_x(21, 0, nullptr, resolve);
  const char *w = R"({"type":"record","name":"r","fields":[{"name":"a","type":["null","r"]}]})";
  EXPECT_EQ(read(v, w, deep), QEL_AVRO_ERR_DEPTH);
  const char *w2 = R"({"type":"record","name":"r","fields":[{"name":"next","type":["null","r"]}]})";
  EXPECT_EQ(read(v, w2, deep), QEL_AVRO_ERR_DEPTH);
  qel_var_free(v);
  for (const char *bad : {"", "{", "\"nothing\"", "[]", R"({"type":"record","name":"a.1","fields":[]})",
                          R"({"type":"fixed","name":"f","size":-1})", R"({"type":"array"})",
                          R"(["x", {"type":"record","name":"x","fields":[]}])"})
    EXPECT_EQ(qel_avro_type_parse(bad, -1, &err_), nullptr) << bad;
}

TEST_F(Avro, ContainerFiles) {
  qel_var *recs = qel_var_new_x(21, 1, nullptr, resolve);
  for (int i = 0; i < 3; ++i) {
    qel_var *e = qel_var_new_x(21, 0, nullptr, resolve);
    qel_var_add_float(member(e, "x"), static_cast<float>(i));
    qel_var_set_string(member(e, "s"), 0, "rec", i);
    qel_var_add_var_x(recs, e);
    qel_var_free(e);
  }
  const std::string s = schema(21, 0);
  for (int codec : {QEL_AVRO_CODEC_NULL, QEL_AVRO_CODEC_DEFLATE}) {
    qel_stream file;
    qel_stream_init(&file);
    qel_avro_file_writer w;
    const uint8_t sync[16] = {1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 11, 12, 13, 14, 15, 16};
    if (qel_avro_file_begin(&w, 21, nullptr, resolve, nullptr, codec, sync, 0, &file) == QEL_AVRO_ERR_CODEC) {
      EXPECT_EQ(file.length, 0);
      continue;
    }
    EXPECT_EQ(std::string(file.bytes, 4), std::string("Obj\x01", 4));
    EXPECT_EQ(std::memcmp(file.bytes + file.length - 16, sync, 16), 0);
    qel_var *two = qel_var_new_x(21, 1, nullptr, resolve);
    qel_var_add_var_x(two, static_cast<qel_var *>(qel_arrays_get_at(&recs->data.vars, 0)));
    qel_var_add_var_x(two, static_cast<qel_var *>(qel_arrays_get_at(&recs->data.vars, 1)));
    ASSERT_EQ(qel_avro_file_append(&w, two, &file, &err_), QEL_AVRO_OK);
    ASSERT_EQ(qel_avro_file_append(&w, static_cast<qel_var *>(qel_arrays_get_at(&recs->data.vars, 2)), &file, &err_),
              QEL_AVRO_OK);
    qel_var *back = qel_var_new_x(21, 1, nullptr, resolve);
    ASSERT_EQ(qel_avro_file_read(back, file.bytes, file.length, nullptr, resolve, 0, &err_), QEL_AVRO_OK)
        << err_.message;
    EXPECT_TRUE(qel_var_equal(back, recs));
    qel_avro_file_reader r;
    ASSERT_EQ(qel_avro_file_open(&r, file.bytes, file.length, &err_), QEL_AVRO_OK);
    EXPECT_EQ(r.codec, codec);
    EXPECT_EQ(std::string(r.schema, static_cast<size_t>(r.schema_length)), s);
    EXPECT_EQ(qel_avro_file_next(&r, back, nullptr, resolve, 0, &err_), QEL_AVRO_OK);
    EXPECT_TRUE(qel_var_equal(back, two));
    EXPECT_EQ(qel_avro_file_next(&r, back, nullptr, resolve, 0, &err_), QEL_AVRO_OK);
    EXPECT_EQ(qel_var_size(back), 1);
    EXPECT_EQ(qel_avro_file_next(&r, back, nullptr, resolve, 0, &err_), QEL_AVRO_END);
    qel_avro_file_close(&r);
    // A damaged sync marker, codec name or last data byte: errors, nothing read.
    const std::string held = json(back);
    const std::string good(file.bytes, static_cast<size_t>(file.length));
    const size_t codec_at = good.find(codec == 0 ? "null" : "deflate", good.find("avro.codec"));
    for (auto [at, code] : {std::pair{good.size() - 1, QEL_AVRO_ERR_INVALID},
                            {codec_at, QEL_AVRO_ERR_CODEC},
                            {good.size() - 17, codec == 0 ? QEL_AVRO_ERR_INVALID : QEL_AVRO_ERR_CODEC}}) {
      std::string bad = good;
      bad[at] ^= 0x55;
      EXPECT_EQ(qel_avro_file_read(back, bad.data(), static_cast<int64_t>(bad.size()), nullptr, resolve, 0, &err_),
                code);
      EXPECT_EQ(json(back), held);
    }
    for (qel_var *v : {two, back}) qel_var_free(v);
    qel_stream_term(&file);
  }
  qel_var_free(recs);
}

}  // namespace
