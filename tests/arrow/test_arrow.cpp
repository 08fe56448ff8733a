// The Arrow export and import: formats and buffers of every export, the
// exact conversions and the errors of the import (with the destination
// unchanged), checks of broken input, caller values and streams.
#include <gtest/gtest.h>
#include <qel_arrow.h>

#include <cmath>
#include <cstring>
#include <string>
#include <vector>

#include "arrow_hand.h"
#include "test_support.h"

namespace {

qel_schema *g_rec, *g_child;  // 20: id:4 score:6 name:7 tags:7* child:21 kids:21*; 21: x:1 y:6*
qel_schema *resolve(void *, uint32_t type) { return type == 20 ? g_rec : type == 21 ? g_child : nullptr; }
qel_var *member(const qel_var *r, const char *n) { return qel_var_get_val(r, n, static_cast<int64_t>(std::strlen(n))); }

template <typename T>
T value(const ArrowArray &a, int64_t i) {
  T v;
  std::memcpy(&v, static_cast<const char *>(a.buffers[1]) + (a.offset + i) * static_cast<int64_t>(sizeof(T)), sizeof v);
  return v;
}
std::string string_at(const ArrowArray &a, int64_t i) {
  const auto *off = static_cast<const int32_t *>(a.buffers[1]);
  return std::string(static_cast<const char *>(a.buffers[2]) + off[i], static_cast<size_t>(off[i + 1] - off[i]));
}

class Arrow : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    g_rec = hand::schema("id:4 score:6 name:7 tags:7* child:21 kids:21*");
    g_child = hand::schema("x:1 y:6*");
  }
  static void TearDownTestSuite() {
    qel_var_schema_free(g_rec);
    qel_var_schema_free(g_child);
  }
  void TearDown() override { qel_arrow_release(); }

  // Exports v (releasing any earlier export) and expects rc.
  void put(const qel_var *v, unsigned flags = 0, int rc = QEL_ARROW_OK) {
    qel_arrow_release();
    ASSERT_EQ(qel_arrow_export_var(v, flags, &s_, &a_, &err_), rc) << err_.message;
    if (rc != QEL_ARROW_OK) {
      EXPECT_TRUE(s_.release == nullptr && a_.release == nullptr);
    }
  }
  void qel_arrow_release() {
    if (s_.release != nullptr) s_.release(&s_);
    if (a_.release != nullptr) a_.release(&a_);
  }
  int take(qel_var *dst, const hand::col &c, unsigned flags = 0) {
    return qel_arrow_import(dst, &c.s, &c.a, nullptr, resolve, flags, &err_);
  }
  // n records of code 20, record i with every member set from i.
  static qel_var *records(int64_t n) {
    qel_var *v = qel_var_new_x(20, 1, nullptr, resolve), *r = qel_var_new_x(20, 0, nullptr, resolve);
    for (int64_t i = 0; i < n; ++i) {
      qel_var_set_long(member(r, "id"), 0, i);
      qel_var_set_double(member(r, "score"), 0, 0.5 * static_cast<double>(i));
      qel_var_set_string(member(r, "name"), 0, "name", i % 5);
      qel_var_shrink(member(r, "tags"), 0);
      for (int64_t k = 0; k < i % 3; ++k) qel_var_add_string(member(r, "tags"), "tag", k);
      qel_var_set_integer(member(member(r, "child"), "x"), 0, i * 7);
      qel_var_shrink(member(member(r, "child"), "y"), 0);
      qel_var_add_double(member(member(r, "child"), "y"), 1.25);
      qel_var_shrink(member(r, "kids"), 0);
      if (i % 2 == 1) qel_var_add_var_x(member(r, "kids"), member(r, "child"));
      qel_var_add_var_x(v, r);
    }
    qel_var_free(r);
    return v;
  }

  ArrowSchema s_{};
  ArrowArray a_{};
  qel_arrow_error err_{};
};

TEST_F(Arrow, ExportsNumbersStringsLightVariantsAndColumnSets) {
  for (uint32_t code : {1u, 9u, 4u, 5u, 6u}) {
    qel_var *v = qel_var_new(code, 1);
    for (int64_t i : {-1, 3, 1000}) qel_var_add_long(v, i);
    put(v);
    qel_var_free(v);  // the export holds copies
    EXPECT_STREQ(s_.format, code == 4 ? "l" : code == 5 ? "f" : code == 6 ? "g" : "I");
    ASSERT_EQ(a_.length * 10 + a_.n_buffers + a_.null_count, 32);
    EXPECT_EQ(value<uint32_t>(a_, 0), code == 5 ? 0xBF800000u : code == 6 ? 0u : 0xFFFFFFFFu);  // -1's low bits
  }
  qel_var *text = qel_var_new(8, 1);
  for (const char *t : {"a", "", "h\xc3\xa9llo"}) qel_var_add_string(text, t, -1);
  put(text);
  EXPECT_STREQ(s_.format, "z");
  EXPECT_EQ(string_at(a_, 0) + "|" + string_at(a_, 1) + "|" + string_at(a_, 2), "a||h\xc3\xa9llo");
  put(text, QEL_ARROW_UTF8);
  EXPECT_STREQ(s_.format, "u");
  qel_var_add_string(text, "\xc3(", -1);
  put(text, QEL_ARROW_UTF8, QEL_ARROW_ERR_UTF8);
  EXPECT_EQ(err_.row, 3);
  put(text);  // without the flag any bytes go
  EXPECT_EQ(string_at(a_, 3), "\xc3(");
  qel_var_free(text);

  qel_xvar *x = qel_xvar_new(4, 0);
  qel_xvar_set_double(x, 0, 2.5);
  qel_arrow_release();
  ASSERT_EQ(qel_arrow_export_xvar(x, 0, &s_, &a_, &err_), QEL_ARROW_OK);
  EXPECT_EQ(std::string(s_.format) + std::to_string(a_.length) + std::to_string(value<double>(a_, 0)), "g12.500000");
  qel_xvar_free(x);
  qel_xvars *xs = qel_xvars_new(1, 1);
  for (int64_t e : {0, 0, 2}) qel_xvars_add_integer(xs, e, 10 + e);
  qel_xvars_add_integer(xs, 1, 0);  // entries {10, 10}, {0}
  qel_arrow_release();
  ASSERT_EQ(qel_arrow_export_xvars(xs, QEL_ARROW_TABLE, &s_, &a_, &err_), QEL_ARROW_OK);
  qel_xvars_change(xs, 9, 1);
  const ArrowArray &lists = *a_.children[0];  // a table of one column, "value"
  EXPECT_EQ(
      std::string(s_.format) + s_.children[0]->name + s_.children[0]->format + s_.children[0]->children[0]->format,
      "+svalue+lI");
  ASSERT_EQ(a_.length * 10 + lists.length, 22);
  const auto *off = static_cast<const int32_t *>(lists.buffers[1]);
  EXPECT_EQ(std::vector<int32_t>(off, off + 3), (std::vector<int32_t>{0, 2, 3}));
  EXPECT_EQ(value<uint32_t>(*lists.children[0], 2), 0u);
  qel_arrow_release();
  EXPECT_EQ(qel_arrow_export_xvars(xs, 0, &s_, &a_, &err_), QEL_ARROW_ERR_SHAPE);
  qel_xvars_free(xs);
}

TEST_F(Arrow, RecordsExportAsStructsAndReadBackEqual) {
  qel_var *v = records(5);
  put(v);
  ASSERT_STREQ(s_.format, "+s");
  std::string shape;
  for (int64_t i = 0; i < s_.n_children; ++i)
    shape += std::string(s_.children[i]->name) + ":" + s_.children[i]->format + " ";
  EXPECT_EQ(shape, "id:l score:g name:z tags:+l child:+s kids:+l ");
  qel_var *back = qel_var_new_x(20, 1, nullptr, resolve);
  ASSERT_EQ(qel_arrow_import(back, &s_, &a_, nullptr, resolve, 0, &err_), QEL_ARROW_OK) << err_.message;
  EXPECT_EQ(qel::var_cref(back), qel::var_cref(v));
  // Without a resolver the rows take the array's schema, and members theirs
  // from the context (none here: the child's columns are unknown).
  qel_var *moved = qel_var_new_x(20, 1, g_rec, nullptr);
  EXPECT_EQ(qel_arrow_import(moved, &s_, &a_, nullptr, nullptr, 0, &err_), QEL_ARROW_ERR_UNKNOWN);
  EXPECT_STREQ(err_.path, "child.x");
  ASSERT_EQ(qel_arrow_import(moved, &s_, &a_, nullptr, nullptr, QEL_ARROW_SKIP_UNKNOWN, &err_), QEL_ARROW_OK);
  EXPECT_EQ(qel_var_get_double(member(qel_var_get_var_x(moved, 4), "score"), 0), 2.0);

  // A record whose members were freed is null in every column of its row.
  qel_var_shrink(qel_var_get_var_x(v, 2), 0);
  put(v);
  EXPECT_EQ(a_.children[0]->null_count, 1);
  EXPECT_EQ(static_cast<const uint8_t *>(a_.children[3]->buffers[0])[0] & 0x1F, 0x1B);
  qel_var *before = records(1);
  qel_var_copy(back, before);
  EXPECT_EQ(qel_arrow_import(back, &s_, &a_, nullptr, resolve, 0, &err_), QEL_ARROW_ERR_NULL);
  EXPECT_EQ(err_.row, 2);
  EXPECT_STREQ(err_.path, "id");
  EXPECT_EQ(qel::var_cref(back), qel::var_cref(before));
  ASSERT_EQ(qel_arrow_import(back, &s_, &a_, nullptr, resolve, QEL_ARROW_SKIP_NULLS, &err_), QEL_ARROW_OK);
  EXPECT_EQ(qel_var_get_long(member(qel_var_get_var_x(back, 2), "id"), 0), 0);
  EXPECT_EQ(qel_var_get_long(member(qel_var_get_var_x(back, 3), "id"), 0), 3);

  // A member of another form than its schema lists cannot be carried.
  qel_var_change(member(qel_var_get_var_x(v, 4), "child"), 21, 1);
  put(v, 0, QEL_ARROW_ERR_SHAPE);
  EXPECT_EQ(err_.row, 4);
  EXPECT_STREQ(err_.path, "child");
  for (qel_var *p : {v, back, moved, before}) qel_var_free(p);
}

TEST_F(Arrow, CallerValuesTravelAsSiblingColumns) {
  qel_var *v = records(3);
  qel_var_set_buf(member(qel_var_get_var_x(v, 1), "id"), 0, 77);
  qel_var_set_buf(member(qel_var_get_var_x(v, 2), "tags"), 1, 99);
  put(v, QEL_ARROW_CALLER_VALUES);
  EXPECT_STREQ(s_.children[1]->name, "id.buf");
  EXPECT_STREQ(s_.children[7]->name, "tags.buf");
  EXPECT_EQ(value<uint64_t>(*a_.children[1], 1), 77u);
  qel_var *back = qel_var_new_x(20, 1, nullptr, resolve);
  EXPECT_EQ(qel_arrow_import(back, &s_, &a_, nullptr, resolve, 0, &err_), QEL_ARROW_ERR_UNKNOWN);
  ASSERT_EQ(qel_arrow_import(back, &s_, &a_, nullptr, resolve, QEL_ARROW_CALLER_VALUES, &err_), QEL_ARROW_OK);
  EXPECT_EQ(qel_var_get_buf(member(qel_var_get_var_x(back, 1), "id"), 0), 77u);
  EXPECT_EQ(qel_var_get_buf(member(qel_var_get_var_x(back, 2), "tags"), 1), 99u);
  for (qel_var *p : {v, back}) qel_var_free(p);
}

TEST_F(Arrow, ImportTakesExactValuesAndLeavesTheDestinationOnError) {
  // Into a fresh array of `code`: the result, and the last element read back.
  auto check = [this](uint32_t code, std::unique_ptr<hand::col> c, unsigned flags, int rc, double last) {
    qel_var *v = qel_var_new(code, 1);
    EXPECT_EQ(take(v, *c, flags), rc) << code << " from " << c->format << ": " << err_.message;
    const double got = qel_var_size(v) > 0 ? qel_var_get_double(v, -1 + qel_var_size(v)) : 0;
    EXPECT_TRUE(got == last || (std::isnan(got) && std::isnan(last))) << code << " from " << c->format << ": " << got;
    qel_var_free(v);
  };
  const int ok = QEL_ARROW_OK, range = QEL_ARROW_ERR_RANGE;
  const unsigned round = QEL_ARROW_ROUND_FLOATS;
  check(1, hand::numbers<uint64_t>("L", {5, 4294967295u}), 0, ok, 4294967295.0);
  check(1, hand::numbers<uint64_t>("L", {4294967296u}), 0, range, 0);
  check(1, hand::numbers<int16_t>("s", {-1}), 0, range, 0);
  check(1, hand::make("b", "", {{}, {0x05}}, 2), 0, ok, 0);  // 1 0
  check(1, hand::strings("u", {"x"}), 0, QEL_ARROW_ERR_TYPE, 0);
  check(4, hand::numbers<uint64_t>("L", {uint64_t{1} << 63}), 0, range, 0);
  check(4, hand::numbers<double>("g", {0.5}), 0, range, 0);
  check(4, hand::numbers<double>("g", {-2.0, -0x1p63}), 0, ok, -0x1p63);
  check(5, hand::numbers<double>("g", {0.1}), 0, range, 0);
  check(5, hand::numbers<double>("g", {0.1}), round, ok, static_cast<double>(0.1f));
  check(5, hand::numbers<double>("g", {NAN}), 0, ok, NAN);
  check(5, hand::numbers<double>("g", {1e300}), round, range, 0);
  check(5, hand::numbers<int32_t>("i", {16777217}), 0, range, 0);
  check(5, hand::numbers<int32_t>("i", {16777216}), 0, ok, 16777216);
  check(6, hand::numbers<int64_t>("l", {(int64_t{1} << 53) + 1}), 0, range, 0);
  check(6, hand::numbers<uint64_t>("L", {UINT64_MAX}), 0, range, 0);
  check(6, hand::numbers<float>("f", {0.1f}), 0, ok, static_cast<double>(0.1f));

  qel_var *l = qel_var_new(4, 1);
  qel_var_add_long(l, 42);
  qel_var *keep = qel_var_new(4, 1);
  qel_var_add_long(keep, 42);
  auto ints = hand::numbers<int32_t>("i", {1, 2, 3});
  ints->bytes[0] = {0x05};  // row 1 null
  ints->a.null_count = 1;
  ints->wire(3);
  EXPECT_EQ(take(l, *ints), QEL_ARROW_ERR_NULL);
  EXPECT_EQ(err_.row, 1);
  EXPECT_EQ(qel::var_cref(l), qel::var_cref(keep));
  ASSERT_EQ(take(l, *ints, QEL_ARROW_SKIP_NULLS), QEL_ARROW_OK);
  EXPECT_EQ(qel_var_get_long(l, 1) * 10 + qel_var_get_long(l, 2), 3);
  ints->a.offset = 1;
  ints->a.length = 2;
  ASSERT_EQ(take(l, *ints, QEL_ARROW_SKIP_NULLS), QEL_ARROW_OK);
  EXPECT_EQ(qel_var_size(l) * 10 + qel_var_get_long(l, 1), 23);

  // Dictionary-encoded strings, and views inline and in a data buffer.
  qel_var *s = qel_var_new(7, 1);
  auto text = [s](int64_t i) {
    const char *p = nullptr;
    int64_t n = 0;
    qel_var_get_string(s, i, &p, &n);
    return std::string(p, static_cast<size_t>(n));
  };
  auto enums = hand::numbers<int8_t>("c", {1, 0, 1});
  enums->dict = hand::strings("u", {"low", "high"});
  ASSERT_EQ(take(s, enums->wire(3)), QEL_ARROW_OK);
  EXPECT_EQ(text(2), "high");
  enums->bytes[1][1] = 2;
  EXPECT_EQ(take(s, *enums), QEL_ARROW_ERR_INVALID);
  EXPECT_EQ(err_.row * 10 + qel_var_size(s), 13);
  const std::string long_text = "a string longer than twelve bytes";
  std::vector<int32_t> view = {3, 0, 0, 0, static_cast<int32_t>(long_text.size()), 0, 0, 0};  // buffer 0, offset 0
  std::memcpy(&view[1], "abc", 3);
  auto views = hand::make("vu", "",
                          {{},
                           hand::raw(view),
                           std::vector<uint8_t>(long_text.begin(), long_text.end()),
                           hand::raw(std::vector<int64_t>{static_cast<int64_t>(long_text.size())})},
                          2);
  ASSERT_EQ(take(s, *views), QEL_ARROW_OK) << err_.message;
  EXPECT_EQ(text(0) + text(1), "abc" + long_text);
  views->bytes[1][28] = 1;  // offset 1: past the data
  EXPECT_EQ(take(s, *views), QEL_ARROW_ERR_INVALID);
  for (qel_var *q : {keep, l, s}) qel_var_free(q);
}

TEST_F(Arrow, ImportChecksStructureBeforeReading) {
  qel_var *dst = records(2);
  qel_var *keep = records(2);
  auto build = [] {  // id (int16) and tags (a list of strings) for two records
    std::vector<std::unique_ptr<hand::col>> kids;
    kids.push_back(hand::numbers<int16_t>("s", {7, 8}, "id"));
    kids.push_back(hand::list(hand::strings("z", {"a", "b", "c"}), {0, 2, 3}, "tags"));
    return hand::make("+s", "", {{}}, 2, std::move(kids));
  };
  ASSERT_EQ(take(dst, *build()), QEL_ARROW_OK) << err_.message;
  EXPECT_EQ(qel_var_size(member(qel_var_get_var_x(dst, 0), "tags")), 2);
  EXPECT_EQ(qel_var_get_long(member(qel_var_get_var_x(dst, 1), "id"), 0), 8);
  EXPECT_EQ(take(keep, *build()), QEL_ARROW_OK);
  auto broken = [&](void (*spoil)(hand::col &), int code) {
    auto c = build();
    spoil(*c);
    EXPECT_EQ(take(dst, *c), code) << err_.message;
    EXPECT_EQ(qel::var_cref(dst), qel::var_cref(keep));
  };
  broken([](hand::col &c) { c.kids[0]->a.length = 1; }, QEL_ARROW_ERR_INVALID);              // child too short
  broken([](hand::col &c) { c.kids[1]->bytes[1][4] = 5; }, QEL_ARROW_ERR_INVALID);           // offsets past child
  broken([](hand::col &c) { c.kids[1]->bytes[1][8] = 1; }, QEL_ARROW_ERR_INVALID);           // offsets falling
  broken([](hand::col &c) { c.kids[1]->kids[0]->a.n_buffers = 2; }, QEL_ARROW_ERR_INVALID);  // buffer count
  broken([](hand::col &c) { c.kids[0]->a.release = nullptr; }, QEL_ARROW_ERR_INVALID);       // released
  broken([](hand::col &c) { c.kids[0]->a.null_count = 1; }, QEL_ARROW_ERR_INVALID);          // nulls, no bitmap
  broken([](hand::col &c) { c.kids[0]->format = "e", c.kids[0]->wire(2); }, QEL_ARROW_ERR_TYPE);
  broken([](hand::col &c) { c.kids[0]->name = "idx", c.kids[0]->wire(2); }, QEL_ARROW_ERR_UNKNOWN);
  broken(
      [](hand::col &c) {
        c.kids[1]->kids[0] = hand::numbers<int64_t>("l", {1, 2, 3}), c.kids[1]->wire(2);
      },
      QEL_ARROW_ERR_TYPE);
  EXPECT_STREQ(err_.path, "tags");
  qel_var_change(keep, 20, 0);
  EXPECT_EQ(take(keep, *build()), QEL_ARROW_ERR_TYPE);  // a single record
  for (qel_var *q : {dst, keep}) qel_var_free(q);
}

int fail_next(ArrowArrayStream *, ArrowArray *) { return 5; }
const char *why(ArrowArrayStream *) { return "broken source"; }

TEST_F(Arrow, StreamsChunksAndReadsThemBack) {
  qel_var *v = records(10);
  ArrowArrayStream st{};
  ASSERT_EQ(qel_arrow_export_stream(v, 4, 0, &st, &err_), QEL_ARROW_OK);
  std::vector<int64_t> lengths;
  ArrowArray chunk;
  while (st.get_next(&st, &chunk) == 0 && chunk.release != nullptr) {
    lengths.push_back(chunk.length);
    chunk.release(&chunk);
  }
  EXPECT_EQ(lengths, (std::vector<int64_t>{4, 4, 2}));
  st.get_next = fail_next;  // (a round trip through streams is the model's)
  st.get_last_error = why;
  qel_var *keep = records(3);
  EXPECT_EQ(qel_arrow_import_stream(keep, &st, nullptr, resolve, 0, &err_), QEL_ARROW_ERR_STREAM);
  EXPECT_NE(std::strstr(err_.message, "broken source"), nullptr);
  EXPECT_EQ(qel_var_size(keep), 3);
  st.release(&st);

  qel_var *text = qel_var_new(7, 1);
  qel_var_add_string(text, "ok", 2);
  ASSERT_EQ(qel_arrow_export_stream(text, 1, QEL_ARROW_UTF8, &st, &err_), QEL_ARROW_OK);
  qel_var_add_string(text, "\xff", 1);  // changed after the stream was made
  ASSERT_EQ(st.get_next(&st, &chunk), 0);
  chunk.release(&chunk);
  EXPECT_NE(st.get_next(&st, &chunk), 0);
  EXPECT_NE(std::strstr(st.get_last_error(&st), "UTF-8"), nullptr);
  st.release(&st);
  qel_var_change(text, 7, 0);
  EXPECT_EQ(qel_arrow_export_stream(text, 1, 0, &st, &err_), QEL_ARROW_ERR_SHAPE);
  for (qel_var *q : {v, keep, text}) qel_var_free(q);
}

}  // namespace
