// JSON text: golden output, number edges, errors with their positions, the
// unchanged destination on error, nesting limits and a decimal-comma locale.
#include <gtest/gtest.h>
#include <qel_json.h>

#include <bit>
#include <clocale>
#include <cmath>
#include <cstdlib>
#include <cstring>
#include <limits>
#include <random>
#include <string>

#include "test_support.h"

namespace {

qel_var *member(const qel_var *r, const char *n) { return qel_var_get_val(r, n, static_cast<int64_t>(std::strlen(n))); }
qel_var *add_member(qel_var *r, const char *n, qel_var *m) {  // bypassing the schema
  qel_hash_insert(&r->data.members, n, static_cast<int64_t>(std::strlen(n)), m);
  return m;
}

qel_schema *g_rec, *g_child;  // 20: id:4 score:6 ratio:5 name:7 tags:7* kids:21*; 21: x:1 y:6*
qel_schema *resolve(void *, uint32_t type) { return type == 20 ? g_rec : type == 21 ? g_child : nullptr; }

class Json : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    g_rec = qel_test::schema_of(
        {{"id", 4, 0}, {"score", 6, 0}, {"ratio", 5, 0}, {"name", 7, 0}, {"tags", 7, 1}, {"kids", 21, 1}});
    g_child = qel_test::schema_of({{"x", 1, 0}, {"y", 6, 1}});
  }
  static void TearDownTestSuite() {
    qel_var_schema_free(g_rec);
    qel_var_schema_free(g_child);
  }
  void SetUp() override { qel_stream_init(&out_); }
  void TearDown() override { qel_stream_term(&out_); }

  std::string write(const qel_var *v, unsigned flags = 0, int want_rc = QEL_JSON_OK) {
    out_.length = 0;
    EXPECT_EQ(qel_json_write(v, &out_, flags), want_rc);
    return std::string(out_.bytes != nullptr ? out_.bytes : "", static_cast<size_t>(out_.length));
  }
  int read(qel_var *v, const char *text, unsigned flags = 0, int64_t len = -1) {
    return qel_json_read(v, text, len, nullptr, resolve, flags, &err_);
  }
  qel_stream out_;
  qel_json_error err_;
};

TEST_F(Json, WritesRecordsCompactAndIndented) {
  qel_var *r = qel_var_new_x(20, 0, nullptr, resolve);
  qel_var_set_long(member(r, "id"), 0, -42);
  qel_var_set_double(member(r, "score"), 0, 0.1);
  qel_var_set_float(member(r, "ratio"), 0, 0.1f);
  qel_var_set_string(member(r, "name"), 0, "q\"\\/\x01\t\xc3\xa9\xdf\xbf\xef\xbf\xbd", -1);
  qel_var_add_string(member(r, "tags"), "a b", 3);
  qel_var *kid = qel_var_add_new(member(r, "kids"));
  add_member(kid, "x", qel_var_new(1, 0));
  qel_var_set_integer(member(kid, "x"), 0, -1);
  EXPECT_EQ(write(r),
            "{\"id\":-42,\"score\":0.1,\"ratio\":0.1,\"name\":\"q\\\"\\\\/\\u0001\\t\xc3\xa9\xdf\xbf\xef\xbf\xbd\","
            "\"tags\":[\"a b\"],\"kids\":[{\"x\":4294967295}]}");
  EXPECT_EQ(write(member(kid, "x"), QEL_JSON_INDENT), "4294967295");
  qel_var_shrink(member(r, "tags"), 0);
  qel_var_shrink(r, 0);  // names stay, members go: written as an empty object
  EXPECT_EQ(write(r, QEL_JSON_INDENT), "{}");
  qel_var *a = qel_var_new(6, 1);
  qel_var_add_double(a, 1.5);
  qel_var_add_double(a, -0.0);
  EXPECT_EQ(write(a, QEL_JSON_INDENT), "[\n  1.5,\n  -0.0\n]");
  qel_var_free(a);
  qel_var_free(r);
}

TEST_F(Json, NumbersAreShortestAndExact) {
  const struct {
    double d;
    const char *text;
  } doubles[] = {{1e21, "1e21"},
                 {1e20, "1e20"},
                 {1e17, "100000000000000000.0"},
                 {-1.5e20, "-1.5e20"},
                 {-5.0, "-5.0"},
                 {1e-7, "1e-7"},
                 {1.5e-6, "0.0000015"},
                 {5e-324, "5e-324"},
                 {1.7976931348623157e308, "1.7976931348623157e308"},
                 {9007199254740993.0, "9007199254740992.0"},
                 {123.456, "123.456"},
                 {2.2250738585072014e-308, "2.2250738585072014e-308"},
                 {0.3, "0.3"},
                 {9.5e21, "9.5e21"}};  // exactly halfway down to the next double, which is odd
  qel_var *d = qel_var_new(6, 0);
  for (const auto &c : doubles) {
    qel_var_set_double(d, 0, c.d);
    EXPECT_EQ(write(d), c.text);
  }
  const struct {
    float f;
    const char *text;
  } floats[] = {{16777216.0f, "16777216.0"},
                {1e-45f, "1e-45"},
                {3.4028235e38f, "3.4028235e38"},
                {0.3f, "0.3"},
                {1.1754944e-38f, "1.1754944e-38"}};
  qel_var *f = qel_var_new(5, 0);
  for (const auto &c : floats) {
    qel_var_set_float(f, 0, c.f);
    EXPECT_EQ(write(f), c.text);
  }
  // Random bit patterns and every power of two (its lower gap is half the
  // upper one) read back bit for bit.
  std::mt19937_64 rng(15);
  for (int i = 0; i < 7100; ++i) {
    const double x = i < 2098 ? std::ldexp(1.0, i - 1074) : std::bit_cast<double>(rng());
    const float y = i < 277 ? std::ldexp(1.0f, i - 149) : std::bit_cast<float>(static_cast<uint32_t>(rng()));
    if (x - x == 0) {
      qel_var_set_double(d, 0, x);
      ASSERT_EQ(read(d, write(d).c_str()), 0);
      ASSERT_EQ(std::bit_cast<uint64_t>(qel_var_get_double(d, 0)), std::bit_cast<uint64_t>(x)) << write(d);
    }
    if (y - y == 0) {
      qel_var_set_float(f, 0, y);
      ASSERT_EQ(read(f, write(f).c_str()), 0);
      ASSERT_EQ(std::bit_cast<uint32_t>(qel_var_get_float(f, 0)), std::bit_cast<uint32_t>(y)) << write(f);
    }
  }
  // Nearest, ties to even: halfway between 1 and the next double, just above it.
  EXPECT_EQ(read(d, "1.00000000000000011102230246251565404236316680908203125"), 0);
  EXPECT_EQ(qel_var_get_double(d, 0), 1.0);
  EXPECT_EQ(read(d, "1.000000000000000111022302462515654042363166809082031250000001"), 0);
  EXPECT_EQ(qel_var_get_double(d, 0), 1.0000000000000002);
  EXPECT_EQ(read(f, "8388608.5"), 0);  // a tie with a fraction: to even
  EXPECT_EQ(qel_var_get_float(f, 0), 8388608.0f);
  EXPECT_EQ(read(f, "1.00000005960464477539062501"), 0);
  EXPECT_EQ(qel_var_get_float(f, 0), 1.00000012f);
  EXPECT_EQ(read(d, "2.5e-324"), 0);  // just above half the least subnormal
  EXPECT_EQ(qel_var_get_double(d, 0), 5e-324);
  EXPECT_EQ(read(d, "2e-324"), 0);  // just below it: zero, no range error
  EXPECT_EQ(std::bit_cast<uint64_t>(qel_var_get_double(d, 0)), 0u);
  EXPECT_EQ(read(d, "-1e-400"), 0);
  EXPECT_EQ(std::bit_cast<uint64_t>(qel_var_get_double(d, 0)), uint64_t{1} << 63);
  // Beyond 800 significant digits the dropped ones still count, just after
  // the kept ones (zeros included).
  const std::string one = "1." + std::string(799, '0') + "1", hundred = "1" + std::string(800, '0') + "1e-799";
  EXPECT_EQ(read(d, one.c_str()), 0);
  EXPECT_EQ(qel_var_get_double(d, 0), 1.0);
  EXPECT_EQ(read(f, one.c_str()), 0);
  EXPECT_EQ(qel_var_get_float(f, 0), 1.0f);
  EXPECT_EQ(read(d, hundred.c_str()), 0);
  EXPECT_EQ(qel_var_get_double(d, 0), 100.0);
  qel_var *i = qel_var_new(4, 0);
  EXPECT_EQ(read(i, hundred.c_str()), QEL_JSON_ERR_RANGE);
  qel_var_free(i);
  qel_var_free(d);
  qel_var_free(f);
}

TEST_F(Json, WriteErrorsAppendNothing) {
  qel_var *v = qel_var_new(5, 1);
  qel_var_add_float(v, 1.0f);
  qel_var_add_float(v, std::numeric_limits<float>::infinity());
  qel_var *s = qel_var_new(8, 1);
  qel_var_add_string(s, "\xed\xa0\x80", 3);  // an encoded surrogate is not UTF-8
  qel_var_add_string(s, "\xe2\x82", 2);      // a cut sequence
  out_.length = 0;
  qel_stream_append(&out_, "keep", 4);
  EXPECT_EQ(qel_json_write(v, &out_, 0), QEL_JSON_ERR_NONFINITE);
  EXPECT_EQ(qel_json_write(s, &out_, 0), QEL_JSON_ERR_UTF8);
  EXPECT_EQ(std::string(out_.bytes, static_cast<size_t>(out_.length)), "keep");
  EXPECT_EQ(write(v, QEL_JSON_NONFINITE_NULL), "[1.0,null]");
  EXPECT_EQ(write(s, QEL_JSON_ESCAPE_BYTES), "[\"\\u00ed\\u00a0\\u0080\",\"\\u00e2\\u0082\"]");
  qel_var_free(v);
  qel_var_free(s);
}

TEST_F(Json, ReadsIntoTheShapeOfTheDestination) {
  qel_var *r = qel_var_new_x(20, 0, nullptr, resolve);
  qel_var_set_long(member(r, "id"), 0, 7);
  member(r, "id")->buf = 99;
  ASSERT_EQ(
      read(r,
           " {\"score\": 2e0, \"name\": \"\\u00E9\\ud83d\\uDE00\\/\\udbff\\udfff\", \"ratio\": null, \"score\": -0.5,"
           " \"kids\": [{\"y\": [1, 2.5]}, {}], \"tags\": [\"x\", \"\"]}\n"),
      0);
  EXPECT_EQ(qel_var_get_long(member(r, "id"), 0), 7);  // absent: kept, with its caller value
  EXPECT_EQ(member(r, "id")->buf, 99u);
  EXPECT_EQ(qel_var_get_double(member(r, "score"), 0), -0.5);  // the last duplicate wins
  const char *name = nullptr;
  int64_t name_len = 0;
  qel_var_get_string(member(r, "name"), 0, &name, &name_len);
  EXPECT_EQ(std::string(name, static_cast<size_t>(name_len)), "\xc3\xa9\xf0\x9f\x98\x80/\xf4\x8f\xbf\xbf");
  ASSERT_EQ(read(r, "{\"name\": \"x\"}"), 0);  // rewritten in place
  qel_var_get_string(member(r, "name"), 0, &name, &name_len);
  EXPECT_EQ(std::string(name, static_cast<size_t>(name_len)), "x");
  EXPECT_EQ(write(member(r, "kids")), "[{\"x\":0,\"y\":[1.0,2.5]},{\"x\":0,\"y\":[]}]");
  EXPECT_EQ(qel_var_size(member(r, "tags")), 2);
  // An unknown member: skipped on request, even one nested to the limit (1000
  // levels with the object); one level more fails.
  std::string deep = "{\"zz\":" + std::string(999, '[') + std::string(999, ']') + ",\"id\":8}";
  EXPECT_EQ(read(r, deep.c_str()), QEL_JSON_ERR_UNKNOWN);
  EXPECT_EQ(read(r, deep.c_str(), QEL_JSON_SKIP_UNKNOWN), 0);
  EXPECT_EQ(qel_var_get_long(member(r, "id"), 0), 8);
  deep = "{\"zz\":" + std::string(1000, '[') + std::string(1000, ']') + "}";  // 1001 levels
  EXPECT_EQ(read(r, deep.c_str(), QEL_JSON_SKIP_UNKNOWN), QEL_JSON_ERR_DEPTH);
  qel_var_shrink(r, 0);  // members freed, names kept: a read creates them again
  EXPECT_EQ(read(r, "{\"id\": 3, \"name\": 1}"), QEL_JSON_ERR_TYPE);
  EXPECT_EQ(write(r), "{}");
  EXPECT_EQ(read(r, "{\"id\": 3}"), 0);
  EXPECT_EQ(write(r), "{\"id\":3}");
  qel_var_free(r);
}

// A read that creates members builds each as qel_var_new_x would (nested
// records through the resolver) and no member the text does not name.
TEST_F(Json, CreatedMembersAreBuiltThroughTheResolver) {
  qel_schema *tree = qel_test::schema_of({{"name", 7, 0}, {"child", 10, 0}, {"next", 10, 0}});
  auto trees = [](void *t, uint32_t) { return static_cast<qel_schema *>(t); };
  auto read_tree = [&](qel_var *v, const char *text) { return qel_json_read(v, text, -1, tree, trees, 0, &err_); };
  qel_var *r = qel_var_new_x(10, 0, tree, trees);
  EXPECT_EQ(read_tree(r, "{\"name\":\"a\",\"child\":{\"name\":\"b\",\"child\":{\"name\":\"c\"}}}"), 0) << err_.message;
  EXPECT_EQ(write(member(r, "child")), "{\"name\":\"b\",\"child\":{\"name\":\"c\",\"child\":{},\"next\":{}}}");
  qel_var_free(r);
  r = qel_var_new_x(10, 0, tree, trees);
  EXPECT_EQ(read_tree(r, "{\"child\":{\"name\":\"b\"}}"), 0);
  EXPECT_EQ(write(r), "{\"name\":\"\",\"child\":{\"name\":\"b\"},\"next\":{}}");
  // Members a shrink freed stay freed when the text does not name them.
  qel_var_shrink(member(r, "child"), 0);
  EXPECT_EQ(read_tree(r, "{\"child\":{},\"next\":{\"name\":\"n\"}}"), 0);
  EXPECT_EQ(write(r), "{\"name\":\"\",\"child\":{},\"next\":{\"name\":\"n\"}}");
  qel_var_free(r);
  // A replica of more records than its walk's first block holds.
  r = qel_var_new_x(10, 0, tree, trees);
  for (char k = 'a'; k < 'a' + 20; ++k) qel_var_set_val(r, &k, 1, member(r, "next"));
  EXPECT_EQ(read_tree(r, "{\"child\":{\"name\":\"x\"}}"), 0);
  EXPECT_EQ(write(member(r, "child")), "{\"name\":\"x\"}");
  EXPECT_EQ(qel_var_member_count(r), 23);
  qel_var_free(r);
  // Required members of a record that has none yet.
  r = qel_var_new(10, 1);  // elements without a schema require nothing
  EXPECT_EQ(qel_json_read(r, "[{}, {}]", -1, nullptr, nullptr, QEL_JSON_REQUIRE_MEMBERS, &err_), 0);
  EXPECT_EQ(qel_var_size(r), 2);
  qel_var_free(r);
  r = qel_var_new(10, 0);
  r->schema = tree;
  EXPECT_EQ(qel_json_read(r, "{}", -1, nullptr, nullptr, QEL_JSON_REQUIRE_MEMBERS, &err_), QEL_JSON_ERR_MISSING);
  qel_var_free(r);
  qel_var_schema_free(tree);
}

TEST_F(Json, ErrorsNamePlaceAndCauseAndChangeNothing) {
  constexpr unsigned kReq = QEL_JSON_REQUIRE_MEMBERS, kNoNull = QEL_JSON_REJECT_NULL;
  const char *full = "{\"id\":1,\"score\":2,\"ratio\":3,\"name\":\"n\",\"tags\":[]";  // all but kids
  const std::string no_kids = std::string(full) + "}", kid_without_y = std::string(full) + ",\"kids\":[{\"x\":1}]}";
  const struct {
    const char *text;
    int code;
    int64_t line, column;
    unsigned flags = 0;
    const char *cause = nullptr;
    int64_t len = -1;  // the text cut short of what follows in memory
  } cases[] = {
      {"{\"id\": 1.5}", QEL_JSON_ERR_RANGE, 1, 8},
      {"{\"kids\": [{\"x\": -1}]}", QEL_JSON_ERR_RANGE, 1, 17},
      {"{\"kids\": [{\"x\": 4294967296}]}", QEL_JSON_ERR_RANGE, 1, 17},
      {"{\"id\": 9223372036854775808}", QEL_JSON_ERR_RANGE, 1, 8},
      {"{\"score\": 1e400}", QEL_JSON_ERR_RANGE, 1, 11, 0,
       "expected a number within the double range for member \"score\", found 1e400"},
      {"{\"ratio\": -3.5e38}", QEL_JSON_ERR_RANGE, 1, 11, 0,
       "expected a number within the float range for member \"ratio\", found -3.5e38"},
      {"{\"id\": 1e}", QEL_JSON_ERR_SYNTAX, 1, 10},
      {"{\"zz\": }", QEL_JSON_ERR_SYNTAX, 1, 8, QEL_JSON_SKIP_UNKNOWN},
      {"{\n  \"id\": 1,\n  \"score\": \"high\"}", QEL_JSON_ERR_TYPE, 3, 12, 0,
       "expected a number for member \"score\", found a string"},
      {"{\"kids\": [null]}", QEL_JSON_ERR_TYPE, 1, 11, 0, "expected an object for member \"kids\", found null"},
      {"{\"tags\": [\"a\", 1]}", QEL_JSON_ERR_TYPE, 1, 16},
      {"{\"id\": \xc3\xa9}", QEL_JSON_ERR_SYNTAX, 1, 8, 0,
       "expected an integer for member \"id\", found the byte 0xC3"},
      {"{\"id\": 1}", QEL_JSON_ERR_SYNTAX, 1, 9, 0, "expected ',' or '}', found the end of the text", 8},
      {"{\"score\": 1e5}", QEL_JSON_ERR_SYNTAX, 1, 13, 0,
       "expected a digit in the exponent for member \"score\", found the end of the text", 12},
      {"[]", QEL_JSON_ERR_TYPE, 1, 1},
      {"{\"nope\": 1}", QEL_JSON_ERR_UNKNOWN, 1, 2},
      {"{\"id\": 01}", QEL_JSON_ERR_SYNTAX, 1, 9},
      {"{\"id\": 1,}", QEL_JSON_ERR_SYNTAX, 1, 10},
      {"{\"id\": 1} {}", QEL_JSON_ERR_SYNTAX, 1, 11},
      {"{\"id\": -}", QEL_JSON_ERR_SYNTAX, 1, 8, 0, "expected an integer for member \"id\", found '-'"},
      {"{\"name\": nulZ}", QEL_JSON_ERR_SYNTAX, 1, 10, 0, "expected a string for member \"name\", found 'nulZ'"},
      {"{\"score\": 1.5.}", QEL_JSON_ERR_SYNTAX, 1, 14, 0,
       "expected the end of the number for member \"score\", found '.'"},
      {"{\"tags\": [\"a\", \"b\"]}", QEL_JSON_ERR_SYNTAX, 1, 16, 0,
       "expected a string for member \"tags\", found the end of the text", 15},
      {"not json at all", QEL_JSON_ERR_SYNTAX, 1, 1, 0, "expected an object, found 'not'"},
      {"nothing", QEL_JSON_ERR_SYNTAX, 1, 1, 0, "expected an object, found 'not'", 3},
      {"{\"name\": \"a", QEL_JSON_ERR_SYNTAX, 1, 12},
      {"", QEL_JSON_ERR_SYNTAX, 1, 1},
      {"{\"name\": \"\\ud800x\"}", QEL_JSON_ERR_STRING, 1, 11},
      {"{\"name\": \"\\udc00\"}", QEL_JSON_ERR_STRING, 1, 11},
      {"{\"name\": \"\\x\"}", QEL_JSON_ERR_STRING, 1, 11},
      {"{\"name\": \"\t\"}", QEL_JSON_ERR_STRING, 1, 11},
      {"{\"name\": \"\xc0\xaf\"}", QEL_JSON_ERR_UTF8, 1, 11},
      // Required members: the first one missing, at the object's closing brace.
      {no_kids.c_str(), QEL_JSON_ERR_MISSING, 1, 49, kReq, "expected member \"kids\", found the end of the object"},
      {kid_without_y.c_str(), QEL_JSON_ERR_MISSING, 1, 64, kReq,
       "expected member \"y\" in member \"kids\", found the end of the object"},
      {"{\"id\": null}", QEL_JSON_ERR_NULL, 1, 8, kNoNull, "expected an integer for member \"id\", found null"},
      {"{\"tags\": [\"a\", null]}", QEL_JSON_ERR_NULL, 1, 16, kNoNull},
      {"{\"zz\": {\"a\": [null]}}", QEL_JSON_ERR_NULL, 1, 15, kNoNull | QEL_JSON_SKIP_UNKNOWN},
  };
  qel_var *r = qel_var_new_x(20, 0, nullptr, resolve);
  ASSERT_EQ(read(r, "{\"id\": 5, \"tags\": [\"t\"], \"kids\": [{\"x\": 3}]}"), 0);
  const std::string before = write(r);
  for (const auto &c : cases) {
    EXPECT_EQ(read(r, c.text, c.flags, c.len), c.code) << c.text;
    EXPECT_EQ(err_.code, c.code) << c.text;
    EXPECT_EQ(err_.line, c.line) << c.text << ": " << err_.message;
    EXPECT_EQ(err_.column, c.column) << c.text << ": " << err_.message;
    const std::string prefix = "line " + std::to_string(c.line) + ", column " + std::to_string(c.column) + ": ";
    EXPECT_EQ(err_.message, prefix + qel_json_error_cause(&err_));
    EXPECT_STREQ(qel_json_error_cause(&err_), c.cause != nullptr ? c.cause : qel_json_error_cause(&err_));
    EXPECT_EQ(write(r), before) << c.text;
  }
  // Both flags pass a text that names every member without a null; without
  // them a null keeps the value and absent members are no error.
  EXPECT_EQ(read(r, (std::string(full) + ",\"kids\":[{\"x\":1,\"y\":[]}]}").c_str(), kReq | kNoNull), 0);
  EXPECT_STREQ(qel_json_error_cause(&err_), "");
  EXPECT_EQ(read(r, "{\"id\": null, \"kids\": [{}]}"), 0);
  EXPECT_EQ(qel_var_get_long(member(r, "id"), 0), 1);
  EXPECT_STREQ(qel_json_error_cause(nullptr), "");
  // A string's spare bytes are as they were too.
  qel_var *name = member(r, "name");
  qel_var_set_string(name, 0, "twenty bytes of text", -1);
  qel_var_zero(name);
  EXPECT_EQ(read(r, "{\"name\": \"secret-token\", \"id\": 1.5}"), QEL_JSON_ERR_RANGE);
  EXPECT_EQ(std::string(static_cast<const char *>(qel_var_buffer(name)), 20), std::string(20, '\0'));
  qel_var_free(r);
}

TEST_F(Json, NumbersIgnoreTheLocale) {
#ifdef QEL_TEST_LOCPATH
  setenv("LOCPATH", QEL_TEST_LOCPATH, 1);  // holds qel_comma, made from tests/comma_locale
#endif
  const char *names[] = {"qel_comma", "de_DE.UTF-8", "fr_FR.UTF-8", "de_DE", "fr_FR"};
  const char *set = nullptr;
  for (const char *n : names)
    if ((set = std::setlocale(LC_NUMERIC, n)) != nullptr) break;
  if (set == nullptr) GTEST_SKIP() << "no locale with a decimal comma could be set";
  ASSERT_STREQ(std::localeconv()->decimal_point, ",");
  qel_var *v = qel_var_new(6, 1);
  EXPECT_EQ(read(v, "[0.5, 1e-7, 12345.678]"), 0);
  EXPECT_EQ(write(v), "[0.5,1e-7,12345.678]");
  std::setlocale(LC_NUMERIC, "C");
  qel_var_free(v);
}

}  // namespace
