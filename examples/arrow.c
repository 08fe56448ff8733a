/* Arrow: a record array of weather readings exported through the Arrow C
 * Data Interface, its schema printed, and, when the example is built with
 * DuckDB (scripts/fetch-duckdb.sh), a GROUP BY run over it in SQL. */
#include <qel_arrow.h>

#include <stdio.h>
#include <string.h>

#ifdef QEL_EXAMPLE_DUCKDB
#include <duckdb.h>
#endif

static qel_schema *reading;

/* Record code 20 is a reading. */
static qel_schema *resolve(void *context, uint32_t type) {
    (void)context;
    return type == 20 ? reading : NULL;
}

static qel_var *member(qel_var *record, const char *name) {
    return qel_var_get_val(record, name, (int64_t)strlen(name));
}

static void print_schema(const struct ArrowSchema *s, int depth) {
    int64_t i;
    printf("%*s%s: %s%s\n", 2 * depth, "", s->name[0] != '\0' ? s->name : "(top)", s->format,
           (s->flags & ARROW_FLAG_NULLABLE) != 0 ? " (nullable)" : "");
    for (i = 0; i < s->n_children; ++i) print_schema(s->children[i], depth + 1);
}

#ifdef QEL_EXAMPLE_DUCKDB
/* DuckDB scans the exported array and groups it by city. */
static int group_by_city(struct ArrowSchema *schema, struct ArrowArray *array) {
    duckdb_database db;
    duckdb_connection con;
    duckdb_arrow_stream stream = NULL;
    duckdb_result result;
    idx_t row;
    int ok = 0;
    if (duckdb_open(NULL, &db) != DuckDBSuccess) return 0;
    if (duckdb_connect(db, &con) == DuckDBSuccess) {
        if (duckdb_arrow_array_scan(con, "readings", (duckdb_arrow_schema)schema, (duckdb_arrow_array)array, &stream) ==
                DuckDBSuccess &&
            duckdb_query(con,
                         "SELECT city, count(*) AS n, round(avg(celsius), 2) AS mean, sum(len(hourly)) AS hours "
                         "FROM readings GROUP BY city ORDER BY city",
                         &result) == DuckDBSuccess) {
            printf("DuckDB: SELECT city, count(*), avg(celsius), sum(len(hourly)) ... GROUP BY city\n");
            for (row = 0; row < duckdb_row_count(&result); ++row) {
                char *city = duckdb_value_varchar(&result, 0, row);
                printf("  %-8s %lld readings, mean %.2f, %lld hourly values\n", city,
                       (long long)duckdb_value_int64(&result, 1, row), duckdb_value_double(&result, 2, row),
                       (long long)duckdb_value_int64(&result, 3, row));
                duckdb_free(city);
            }
            ok = duckdb_row_count(&result) == 3 && duckdb_value_int64(&result, 1, 1) == 4; /* Oslo */
            duckdb_destroy_result(&result);
        }
        duckdb_destroy_arrow_stream(&stream);
        duckdb_disconnect(&con);
    }
    duckdb_close(&db);
    return ok;
}
#endif

int main(void) {
    static const char *cities[] = {"Oslo", "Lima", "Perth"};
    struct ArrowSchema schema;
    struct ArrowArray array;
    qel_arrow_error err;
    qel_var *readings;
    int i, k, ok;

    reading = qel_var_schema_new();
    qel_var_schema_add(reading, "city", 4, QEL_VAR_BYTES, 0);
    qel_var_schema_add(reading, "celsius", 7, QEL_VAR_DOUBLE, 0);
    qel_var_schema_add(reading, "hourly", 6, QEL_VAR_FLOAT, 1); /* an array */

    readings = qel_var_new_x(20, 1, NULL, resolve);
    for (i = 0; i < 10; ++i) {
        qel_var *r = qel_var_new_x(20, 0, NULL, resolve);
        qel_var_set_string(member(r, "city"), 0, cities[i % 3], -1);
        qel_var_set_double(member(r, "celsius"), 0, 10.0 + i * 1.5);
        for (k = 0; k < i % 4; ++k) qel_var_add_float(member(r, "hourly"), (float)(k + i));
        qel_var_add_var_x(readings, r);
        qel_var_free(r);
    }

    if (qel_arrow_export_var(readings, QEL_ARROW_UTF8, &schema, &array, &err) != QEL_ARROW_OK) {
        printf("export failed: %s\n", err.message);
        return 1;
    }
    qel_var_free(readings); /* the export holds its own copy */
    printf("exported %lld rows:\n", (long long)array.length);
    print_schema(&schema, 0);
    ok = array.length == 10 && schema.n_children == 3 && strcmp(schema.children[2]->format, "+l") == 0;
#ifdef QEL_EXAMPLE_DUCKDB
    ok = group_by_city(&schema, &array) && ok;
#else
    printf("(built without DuckDB: scripts/fetch-duckdb.sh fetches it, then configure again)\n");
#endif
    array.release(&array);
    schema.release(&schema);
    qel_var_schema_free(reading);
    return ok ? 0 : 1;
}
