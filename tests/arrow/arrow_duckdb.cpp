// DuckDB both ways: SQL over qel's Arrow exports agrees with qel's own
// answers, and DuckDB's Arrow results read into qel records value for value.
#include <duckdb.h>
#include <gtest/gtest.h>
#include <qel_arrow.h>

#include <algorithm>
#include <cstring>
#include <map>
#include <string>

#include "arrow_hand.h"

namespace {

qel_schema *g_schemas[4];  // codes 20 to 23: records, their child, query rows, the query's struct
qel_schema *resolve(void *, uint32_t type) { return type >= 20 && type <= 23 ? g_schemas[type - 20] : nullptr; }
qel_var *member(const qel_var *r, const char *n) { return qel_var_get_val(r, n, static_cast<int64_t>(std::strlen(n))); }

class DuckDB : public ::testing::Test {
 protected:
  static void SetUpTestSuite() {
    const char *members[4] = {"id:4 score:6 name:7 vals:6* child:21", "x:1 y:6*",
                              "a:4 b:4 c:4 d:4 h:4 maybe:4 e:1 f:1 g:1 x:5 y:6 s:7 l:4* st:23 m:8", "p:4 q:7"};
    for (int k = 0; k < 4; ++k) g_schemas[k] = hand::schema(members[k]);
  }
  static void TearDownTestSuite() {
    for (qel_schema *s : g_schemas) qel_var_schema_free(s);
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
  // The one value of a query, as text.
  std::string scalar(const char *sql) {
    duckdb_result r;
    EXPECT_EQ(duckdb_query(con_, sql, &r), DuckDBSuccess) << duckdb_result_error(&r);
    char *s = duckdb_value_varchar(&r, 0, 0);
    std::string v = s != nullptr ? s : "";
    duckdb_free(s);
    duckdb_destroy_result(&r);
    return v;
  }
  duckdb_database db_ = nullptr;
  duckdb_connection con_ = nullptr;
};

TEST_F(DuckDB, QueriesOverQelExportsAgreeWithQel) {
  qel_var *recs = qel_var_new_x(20, 1, nullptr, resolve);
  double score_sum = 0, vals_sum = 0;
  std::map<std::string, int64_t> by_name;
  qel_var *fresh = qel_var_new_x(20, 0, nullptr, resolve);
  for (int64_t i = 0; i < 1000; ++i) qel_var_add_var_x(recs, fresh);
  qel_var_free(fresh);
  for (int64_t i = 0; i < 1000; ++i) {
    qel_var *r = qel_var_get_var_x(recs, i);
    const std::string name = "n" + std::to_string(i % 7);
    qel_var_set_long(member(r, "id"), 0, i);
    qel_var_set_double(member(r, "score"), 0, 0.25 * static_cast<double>(i % 17));
    qel_var_set_string(member(r, "name"), 0, name.c_str(), -1);
    for (int64_t k = 0; k < i % 4; ++k) qel_var_add_double(member(r, "vals"), static_cast<double>(k) + 0.5);
    qel_var_set_integer(member(member(r, "child"), "x"), 0, i * 3);
    score_sum += 0.25 * static_cast<double>(i % 17);
    vals_sum += static_cast<double>(i % 4) * static_cast<double>(i % 4) / 2;  // 0.5 + 1.5 + ... (i % 4 terms)
    ++by_name[name];
  }
  ArrowArrayStream stream;
  ASSERT_EQ(qel_arrow_export_stream(recs, 300, QEL_ARROW_UTF8, &stream, nullptr), QEL_ARROW_OK);
  ASSERT_EQ(duckdb_arrow_scan(con_, "qel_view", reinterpret_cast<duckdb_arrow_stream>(&stream)), DuckDBSuccess);
  run("CREATE TABLE t AS SELECT * FROM qel_view");
  stream.release(&stream);
  EXPECT_EQ(scalar("SELECT count(*) FROM t"), "1000");
  EXPECT_EQ(std::stod(scalar("SELECT sum(score) FROM t")), score_sum);  // exact: sums of quarters
  EXPECT_EQ(std::stod(scalar("SELECT sum(list_sum(vals)) FROM t")), vals_sum);
  EXPECT_EQ(scalar("SELECT sum(child.x) FROM t"), std::to_string(3 * 999 * 1000 / 2));
  std::string groups;
  for (const auto &[name, count] : by_name) groups += name + "=" + std::to_string(count) + ",";
  EXPECT_EQ(scalar("SELECT string_agg(name || '=' || n || ',', '' ORDER BY name) FROM "
                   "(SELECT name, count(*) AS n FROM t GROUP BY name)"),
            groups);

  // A column set's lists, as the one column of a table.
  qel_xvars *xs = qel_xvars_new(2, 1);
  int64_t expect_sum = 0;
  for (int64_t e = 0; e < 50; ++e)
    for (int64_t k = 0; k <= e % 5; ++k) qel_xvars_add_long(xs, e, e * 10 + k), expect_sum += e * 10 + k;
  ArrowSchema table_s;
  ArrowArray table_a;
  ASSERT_EQ(qel_arrow_export_xvars(xs, QEL_ARROW_TABLE, &table_s, &table_a, nullptr), QEL_ARROW_OK);
  duckdb_arrow_stream wrapper = nullptr;
  ASSERT_EQ(duckdb_arrow_array_scan(con_, "cols", reinterpret_cast<duckdb_arrow_schema>(&table_s),
                                    reinterpret_cast<duckdb_arrow_array>(&table_a), &wrapper),
            DuckDBSuccess);
  run("CREATE TABLE c AS SELECT * FROM cols");
  duckdb_destroy_arrow_stream(&wrapper);
  table_s.release(&table_s);
  table_a.release(&table_a);
  EXPECT_EQ(scalar("SELECT sum(list_sum(value)) || ' ' || sum(len(value)) FROM c"),
            std::to_string(expect_sum) + " 150");
  qel_xvars_free(xs);
  qel_var_free(recs);
}

TEST_F(DuckDB, QueryResultsReadIntoQelRecords) {
  run("CREATE TYPE mood AS ENUM ('sad', 'ok', 'happy')");
  duckdb_arrow res = nullptr;
  ASSERT_EQ(duckdb_query_arrow(con_,
                               "SELECT (['sad', 'ok', 'happy'])[i % 3 + 1]::mood AS m, i::TINYINT - 50 AS a, "
                               "i::SMALLINT * -300 AS b, i::INTEGER * 100000 AS c, "
                               "i * 10000000000 AS d, i::UTINYINT AS e, (i * 600)::USMALLINT AS f, "
                               "(i * 40000000)::UINTEGER AS g, (i * 3)::UBIGINT AS h, (i / 4)::FLOAT AS x, "
                               "i / 3 AS y, 'n' || i AS s, CASE WHEN i % 3 = 0 THEN NULL ELSE i END AS maybe, "
                               "[i, i + 1] AS l, {'p': i, 'q': 'v' || i} AS st FROM range(0, 100) t(i)",
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
  qel_var *rows = qel_var_new_x(22, 1, nullptr, resolve);
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
    auto str = [](const qel_var *v) {
      const char *p = nullptr;
      int64_t len = 0;
      qel_var_get_string(v, 0, &p, &len);
      return std::string(p, static_cast<size_t>(len));
    };
    const int64_t got[] = {num("a"), num("b"), num("c"), num("d"), num("e"), num("f"), num("g"), num("h")};
    const int64_t want[] = {i - 50, i * -300, i * 100000, i * 10000000000, i, i * 600, i * 40000000, i * 3};
    ASSERT_TRUE(std::equal(got, got + 8, want)) << "row " << i;
    EXPECT_EQ(qel_var_get_float(member(r, "x"), 0), static_cast<float>(static_cast<double>(i) / 4));
    EXPECT_EQ(qel_var_get_double(member(r, "y"), 0), static_cast<double>(i) / 3);
    EXPECT_EQ(str(member(r, "s")) + str(member(r, "m")), "n" + std::to_string(i) + moods[i % 3]);
    EXPECT_EQ(num("maybe"), i % 3 == 0 ? 0 : i);
    const qel_var *l = member(r, "l");
    ASSERT_EQ(qel_var_size(l), 2);
    EXPECT_EQ(qel_var_get_long(l, 0) * 1000 + qel_var_get_long(l, 1), i * 1001 + 1);
    EXPECT_EQ(std::to_string(qel_var_get_long(member(member(r, "st"), "p"), 0)) + str(member(member(r, "st"), "q")),
              std::to_string(i) + "v" + std::to_string(i));
  }
  array.release(&array);
  schema.release(&schema);
  duckdb_destroy_arrow(&res);
  qel_var_free(rows);
}

}  // namespace
