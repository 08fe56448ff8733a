// DuckDB both ways: SQL over qel's Arrow exports must agree with qel's own
// answers, and DuckDB's Arrow results must read into qel records value for
// value.
#include <duckdb.h>
#include <gtest/gtest.h>
#include <qel_arrow.h>

#include <cmath>
#include <cstring>
#include <map>
#include <string>

namespace {

qel_schema *g_rec, *g_child, *g_row, *g_pair;
qel_schema *resolve(void *, uint32_t type) {
  switch (type) {
    case 20: return g_rec;    // id:4 score:6 name:7 vals:6* child:21
    case 21: return g_child;  // x:1 y:6*
    case 40: return g_row;    // the query's columns
    case 41: return g_pair;   // p:4 q:7
    default: return nullptr;
  }
}
qel_var *member(const qel_var *r, const char *n) { return qel_var_get_val(r, n, static_cast<int64_t>(std::strlen(n))); }
void add(qel_schema *s, const char *n, uint32_t t, uint8_t m = 0) {
  qel_var_schema_add(s, n, static_cast<int64_t>(std::strlen(n)), t, m);
}

class DuckDB : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    g_rec = qel_var_schema_new();
    add(g_rec, "id", 4);
    add(g_rec, "score", 6);
    add(g_rec, "name", 7);
    add(g_rec, "vals", 6, 1);
    add(g_rec, "child", 21);
    g_child = qel_var_schema_new();
    add(g_child, "x", 1);
    add(g_child, "y", 6, 1);
    g_row = qel_var_schema_new();
    for (const char *n : {"a", "b", "c", "d", "h", "maybe"}) add(g_row, n, 4);
    for (const char *n : {"e", "f", "g"}) add(g_row, n, 1);
    add(g_row, "x", 5);
    add(g_row, "y", 6);
    add(g_row, "s", 7);
    add(g_row, "l", 4, 1);
    add(g_row, "st", 41);
    add(g_row, "m", 8);
    g_pair = qel_var_schema_new();
    add(g_pair, "p", 4);
    add(g_pair, "q", 7);
  }
  static void TearDownTestSuite() {
    for (qel_schema *s : {g_rec, g_child, g_row, g_pair}) qel_var_schema_free(s);
  }
  void SetUp() override {
    ASSERT_EQ(duckdb_open(nullptr, &db_), DuckDBSuccess);
    ASSERT_EQ(duckdb_connect(db_, &con_), DuckDBSuccess);
  }
  void TearDown() override {
    duckdb_disconnect(&con_);
    duckdb_close(&db_);
  }
  void run(const char *sql) {
    duckdb_result r;
    ASSERT_EQ(duckdb_query(con_, sql, &r), DuckDBSuccess) << duckdb_result_error(&r);
    duckdb_destroy_result(&r);
  }
  // The one value of a query, as a double (and as text in *text).
  double scalar(const char *sql, std::string *text = nullptr) {
    duckdb_result r;
    EXPECT_EQ(duckdb_query(con_, sql, &r), DuckDBSuccess) << duckdb_result_error(&r);
    const double v = duckdb_value_double(&r, 0, 0);
    if (text != nullptr) {
      char *s = duckdb_value_varchar(&r, 0, 0);
      *text = s != nullptr ? s : "";
      duckdb_free(s);
    }
    duckdb_destroy_result(&r);
    return v;
  }
  duckdb_database db_ = nullptr;
  duckdb_connection con_ = nullptr;
};

TEST_F(DuckDB, QueriesOverQelExportsAgreeWithQel) {
  qel_var *recs = qel_var_new_x(20, 1, nullptr, resolve);
  double score_sum = 0, vals_sum = 0;
  int64_t x_sum = 0;
  std::map<std::string, int64_t> by_name;
  qel_var *fresh = qel_var_new_x(20, 0, nullptr, resolve);
  for (int64_t i = 0; i < 1000; ++i) qel_var_add_var_x(recs, fresh);
  qel_var_free(fresh);
  for (int64_t i = 0; i < 1000; ++i) {
    qel_var *r = qel_var_get_var_x(recs, i);
    qel_var_set_long(member(r, "id"), 0, i);
    qel_var_set_double(member(r, "score"), 0, 0.25 * static_cast<double>(i % 17));
    const std::string name = "n" + std::to_string(i % 7);
    qel_var_set_string(member(r, "name"), 0, name.c_str(), -1);
    for (int64_t k = 0; k < i % 4; ++k) qel_var_add_double(member(r, "vals"), static_cast<double>(k) + 0.5);
    qel_var_set_integer(member(member(r, "child"), "x"), 0, i * 3);
    score_sum += qel_var_get_double(member(r, "score"), 0);
    for (int64_t k = 0; k < qel_var_size(member(r, "vals")); ++k) vals_sum += qel_var_get_double(member(r, "vals"), k);
    x_sum += qel_var_get_integer(member(member(r, "child"), "x"), 0);
    ++by_name[name];
  }
  ArrowArrayStream stream;
  ASSERT_EQ(qel_arrow_export_stream(recs, 300, QEL_ARROW_UTF8, &stream, nullptr), QEL_ARROW_OK);
  ASSERT_EQ(duckdb_arrow_scan(con_, "qel_view", reinterpret_cast<duckdb_arrow_stream>(&stream)), DuckDBSuccess);
  run("CREATE TABLE t AS SELECT * FROM qel_view");
  stream.release(&stream);
  EXPECT_EQ(scalar("SELECT count(*) FROM t"), 1000);
  EXPECT_EQ(scalar("SELECT sum(score) FROM t"), score_sum);
  EXPECT_EQ(scalar("SELECT sum(list_sum(vals)) FROM t"), vals_sum);
  EXPECT_EQ(scalar("SELECT sum(child.x) FROM t"), static_cast<double>(x_sum));
  duckdb_result r;
  ASSERT_EQ(duckdb_query(con_, "SELECT name, count(*) FROM t GROUP BY name ORDER BY name", &r), DuckDBSuccess);
  std::map<std::string, int64_t> got;
  for (idx_t row = 0; row < duckdb_row_count(&r); ++row) {
    char *n = duckdb_value_varchar(&r, 0, row);
    got[n] = duckdb_value_int64(&r, 1, row);
    duckdb_free(n);
  }
  duckdb_destroy_result(&r);
  EXPECT_EQ(got, by_name);

  // A column set's lists, wrapped as the one column of a table.
  qel_xvars *xs = qel_xvars_new(2, 1);
  int64_t expect_sum = 0;
  for (int64_t e = 0; e < 50; ++e) {
    for (int64_t k = 0; k <= e % 5; ++k) {
      qel_xvars_add_long(xs, e, e * 10 + k);
      expect_sum += e * 10 + k;
    }
  }
  ArrowSchema col_s, table_s{};
  ArrowArray col_a, table_a{};
  ASSERT_EQ(qel_arrow_export_xvars(xs, 0, &col_s, &col_a, nullptr), QEL_ARROW_OK);
  ArrowSchema *sk[] = {&col_s};
  ArrowArray *ak[] = {&col_a};
  const void *no_buffers[] = {nullptr};
  table_s = {"+s", "", nullptr, 0, 1, sk, nullptr, [](ArrowSchema *s) { s->release = nullptr; }, nullptr};
  table_a = {col_a.length, 0, 0, 1, 1, no_buffers, ak, nullptr, [](ArrowArray *a) { a->release = nullptr; }, nullptr};
  duckdb_arrow_stream wrapper = nullptr;
  ASSERT_EQ(duckdb_arrow_array_scan(con_, "cols", reinterpret_cast<duckdb_arrow_schema>(&table_s),
                                    reinterpret_cast<duckdb_arrow_array>(&table_a), &wrapper),
            DuckDBSuccess);
  run("CREATE TABLE c AS SELECT * FROM cols");
  duckdb_destroy_arrow_stream(&wrapper);
  col_s.release(&col_s);
  col_a.release(&col_a);
  EXPECT_EQ(scalar("SELECT sum(list_sum(value)) FROM c"), static_cast<double>(expect_sum));
  EXPECT_EQ(scalar("SELECT sum(len(value)) FROM c"), 150);
  qel_xvars_free(xs);
  qel_var_free(recs);
}

TEST_F(DuckDB, QueryResultsReadIntoQelRecords) {
  run("CREATE TYPE mood AS ENUM ('sad', 'ok', 'happy')");
  duckdb_arrow res = nullptr;
  ASSERT_EQ(duckdb_query_arrow(con_,
                               "SELECT i::TINYINT - 50 AS a, i::SMALLINT * -300 AS b, i::INTEGER * 100000 AS c, "
                               "i * 10000000000 AS d, i::UTINYINT AS e, (i * 600)::USMALLINT AS f, "
                               "(i * 40000000)::UINTEGER AS g, (i * 3)::UBIGINT AS h, (i / 4)::FLOAT AS x, "
                               "i / 3 AS y, 'n' || i AS s, CASE WHEN i % 3 = 0 THEN NULL ELSE i END AS maybe, "
                               "[i, i + 1] AS l, {'p': i, 'q': 'v' || i} AS st, "
                               "(['sad', 'ok', 'happy'])[i % 3 + 1]::mood AS m FROM range(0, 100) t(i)",
                               &res),
            DuckDBSuccess)
      << duckdb_query_arrow_error(res);
  ArrowSchema schema{};
  ArrowArray array{};
  auto sp = reinterpret_cast<duckdb_arrow_schema>(&schema);
  auto ap = reinterpret_cast<duckdb_arrow_array>(&array);
  ASSERT_EQ(duckdb_query_arrow_schema(res, &sp), DuckDBSuccess);
  ASSERT_EQ(duckdb_query_arrow_array(res, &ap), DuckDBSuccess);
  ASSERT_EQ(array.length, 100);
  EXPECT_STREQ(schema.children[14]->format, "C");  // the enum: indexes and a dictionary
  qel_var *rows = qel_var_new_x(40, 1, nullptr, resolve);
  qel_arrow_error err;
  EXPECT_EQ(qel_arrow_import(rows, &schema, &array, nullptr, resolve, 0, &err), QEL_ARROW_ERR_NULL);
  EXPECT_STREQ(err.path, "maybe");
  EXPECT_EQ(err.row, 0);
  ASSERT_EQ(qel_arrow_import(rows, &schema, &array, nullptr, resolve, QEL_ARROW_SKIP_NULLS, &err), QEL_ARROW_OK)
      << err.message;
  const char *moods[] = {"sad", "ok", "happy"};
  for (int64_t i = 0; i < 100; ++i) {
    const qel_var *r = qel_var_get_var_x(rows, i);
    auto num = [&](const char *n) { return qel_var_get_long(member(r, n), 0); };
    auto str = [&](const char *n) {
      const char *p = nullptr;
      int64_t len = 0;
      qel_var_get_string(member(r, n), 0, &p, &len);
      return std::string(p, static_cast<size_t>(len));
    };
    ASSERT_EQ(num("a"), i - 50);
    EXPECT_EQ(num("b"), i * -300);
    EXPECT_EQ(num("c"), i * 100000);
    EXPECT_EQ(num("d"), i * 10000000000);
    EXPECT_EQ(num("e") + num("f") + num("g"), i + i * 600 + i * 40000000);
    EXPECT_EQ(num("h"), i * 3);
    EXPECT_EQ(qel_var_get_float(member(r, "x"), 0), static_cast<float>(static_cast<double>(i) / 4));
    EXPECT_EQ(qel_var_get_double(member(r, "y"), 0), static_cast<double>(i) / 3);
    EXPECT_EQ(str("s"), "n" + std::to_string(i));
    EXPECT_EQ(num("maybe"), i % 3 == 0 ? 0 : i);
    const qel_var *l = member(r, "l");
    ASSERT_EQ(qel_var_size(l), 2);
    EXPECT_EQ(qel_var_get_long(l, 0) * 1000 + qel_var_get_long(l, 1), i * 1001 + 1);
    EXPECT_EQ(qel_var_get_long(member(member(r, "st"), "p"), 0), i);
    const char *q = nullptr;
    int64_t q_len = 0;
    qel_var_get_string(member(member(r, "st"), "q"), 0, &q, &q_len);
    EXPECT_EQ(std::string(q, static_cast<size_t>(q_len)), "v" + std::to_string(i));
    EXPECT_EQ(str("m"), moods[i % 3]);
  }
  array.release(&array);
  schema.release(&schema);
  duckdb_destroy_arrow(&res);
  qel_var_free(rows);
}

}  // namespace
