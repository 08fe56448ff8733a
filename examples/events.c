/*
 * Newline-delimited JSON events read into one reused record through a
 * schema: every member required, null refused, other members skipped. Bad
 * lines are reported as events:LINE:COLUMN: cause and left out; the rest are
 * counted per host and give per-metric minimum, maximum and mean, printed as
 * a JSON summary. Exits nonzero if the summary is not the expected one.
 */
#include <stdio.h>
#include <string.h>

#include <qel_json.h>

/* Our record codes. */
enum { EVENT = 20, SUMMARY = 21, HOST_COUNT = 22, METRIC_STATS = 23 };

static const char *const input =
    "{\"ts\": 1700000000, \"host\": \"web-01\", \"metric\": \"cpu\", \"value\": 0.42}\n"
    "{\"ts\": 1700000001, \"host\": \"web-02\", \"metric\": \"cpu\", \"value\": 0.97}\n"
    "{\"ts\": 1700000002, \"host\": \"db-01\", \"metric\": \"disk\", \"value\": 71.5}\n"
    "{\"ts\": 1700000003, \"host\": \"web-01\", \"metric\": \"cpu\", \"value\": null}\n"
    "{\"ts\": 1700000004, \"host\": \"web-01\", \"metric\": \"mem\", \"value\": 2048}\n"
    "not json at all\n"
    "{\"ts\": -, \"host\": \"web-02\", \"metric\": \"cpu\", \"value\": 0.5}\n"
    "{\"ts\": 1700000007, \"host\": \"web-02\", \"metric\": \"cpu\"}\n"
    "{\"ts\": 1700000008, \"host\": \"db-01\", \"metric\": \"disk\", \"value\": 73.25, \"unit\": \"%\"}\n"
    "{\"ts\": 1700000009, \"host\": \"web-03\", \"metric\": \"cpu\", \"value\": 0.05}\n"
    "{\"ts\": 1700000010, \"host\": \"web-01\", \"metric\": \"cpu\", \"value\": \"high\"}\n"
    "\n"
    "{\"ts\": 1700000012, \"host\": \"web-02\", \"metric\": \"mem\", \"value\": 4096}\n"
    "{\"ts\": 1700000013, \"host\": \"db-01\", \"metric\": \"disk\", \"value\": 70}\n"
    "{\"ts\": 1700000014, \"host\": \"web-01\", \"metric\": \"cpu\", \"value\": 0.61}\n"
    "{\"ts\": 1700000015, \"host\": \"web-03\", \"metric\": \"cpu\", \"value\": 0.33\n"
    "{\"ts\": 1700000016, \"host\": \"web-03\", \"metric\": \"cpu\", \"value\": 0.29}\n"
    "{\"ts\": 1700000017, \"host\": null, \"metric\": \"cpu\", \"value\": 0.3}\n"
    "{\"ts\": 1700000018, \"host\": \"web-02\", \"metric\": \"cpu\", \"value\": 1e400}\n"
    "{\"ts\": 1700000019, \"host\": \"web-02\", \"metric\": \"cpu\", \"value\": 0.88}\n";

static const char *const expected =
    "{\n  \"events\": 11,\n  \"rejected\": 8,\n  \"hosts\": [\n"
    "    {\n      \"host\": \"web-01\",\n      \"events\": 3\n    },\n"
    "    {\n      \"host\": \"web-02\",\n      \"events\": 3\n    },\n"
    "    {\n      \"host\": \"db-01\",\n      \"events\": 3\n    },\n"
    "    {\n      \"host\": \"web-03\",\n      \"events\": 2\n    }\n  ],\n  \"metrics\": [\n"
    "    {\n      \"metric\": \"cpu\",\n      \"count\": 6,\n      \"min\": 0.05,\n      \"max\": 0.97,\n"
    "      \"mean\": 0.5366666666666666\n    },\n"
    "    {\n      \"metric\": \"disk\",\n      \"count\": 3,\n      \"min\": 70.0,\n      \"max\": 73.25,\n"
    "      \"mean\": 71.58333333333333\n    },\n"
    "    {\n      \"metric\": \"mem\",\n      \"count\": 2,\n      \"min\": 2048.0,\n      \"max\": 4096.0,\n"
    "      \"mean\": 3072.0\n    }\n  ]\n}";

static qel_schema *schemas[4];

static qel_schema *resolve(void *context, uint32_t type) {
    (void)context;
    return type >= EVENT && type <= METRIC_STATS ? schemas[type - EVENT] : NULL;
}

static qel_var *member(const qel_var *record, const char *name) {
    return qel_var_get_val(record, name, (int64_t)strlen(name));
}

static void add(qel_schema *schema, const char *name, uint32_t type, uint8_t multi) {
    qel_var_schema_add(schema, name, (int64_t)strlen(name), type, multi);
}

/* Counts one more event under its key in a keyed string array, its count in
 * the entry's caller value; gives the entry's index. */
static int64_t count_key(qel_var *keys, const char *key, int64_t len) {
    uint64_t seen = qel_var_add_string_x(keys, key, len);
    int64_t at = qel_var_find(keys, key, len);
    qel_var_set_buf(keys, at, seen + 1);
    return at;
}

/* Folds one value into the statistics of its metric (the element at index
 * `at` of the stats array, appended when the metric is new). */
static void fold(qel_var *stats, int64_t at, const char *metric, int64_t len, double value) {
    qel_var *s;
    int64_t n;
    if (at == qel_var_size(stats)) {
        qel_var *fresh = qel_var_new_x(METRIC_STATS, 0, NULL, resolve);
        qel_var_set_string(member(fresh, "metric"), 0, metric, len);
        qel_var_set_double(member(fresh, "min"), 0, value);
        qel_var_set_double(member(fresh, "max"), 0, value);
        qel_var_add_var_x(stats, fresh);
        qel_var_free(fresh);
    }
    s = qel_var_get_var_x(stats, at);
    n = qel_var_get_long(member(s, "count"), 0);
    qel_var_set_long(member(s, "count"), 0, n + 1);
    if (value < qel_var_get_double(member(s, "min"), 0)) qel_var_set_double(member(s, "min"), 0, value);
    if (value > qel_var_get_double(member(s, "max"), 0)) qel_var_set_double(member(s, "max"), 0, value);
    /* "mean" holds the running sum until the end. */
    qel_var_set_double(member(s, "mean"), 0, qel_var_get_double(member(s, "mean"), 0) + value);
}

int main(void) {
    qel_var *event, *summary, *hosts, *stats, *metrics;
    qel_json_error err;
    qel_stream out;
    const char *line = input;
    int64_t line_number = 0, good = 0, rejected = 0, i;
    int rc;

    for (i = 0; i < 4; i++) schemas[i] = qel_var_schema_new();
    add(schemas[EVENT - EVENT], "ts", QEL_VAR_INT64, 0);
    add(schemas[EVENT - EVENT], "host", QEL_VAR_BYTES, 0);
    add(schemas[EVENT - EVENT], "metric", QEL_VAR_BYTES, 0);
    add(schemas[EVENT - EVENT], "value", QEL_VAR_DOUBLE, 0);
    add(schemas[SUMMARY - EVENT], "events", QEL_VAR_INT64, 0);
    add(schemas[SUMMARY - EVENT], "rejected", QEL_VAR_INT64, 0);
    add(schemas[SUMMARY - EVENT], "hosts", HOST_COUNT, 1);
    add(schemas[SUMMARY - EVENT], "metrics", METRIC_STATS, 1);
    add(schemas[HOST_COUNT - EVENT], "host", QEL_VAR_BYTES, 0);
    add(schemas[HOST_COUNT - EVENT], "events", QEL_VAR_INT64, 0);
    add(schemas[METRIC_STATS - EVENT], "metric", QEL_VAR_BYTES, 0);
    add(schemas[METRIC_STATS - EVENT], "count", QEL_VAR_INT64, 0);
    add(schemas[METRIC_STATS - EVENT], "min", QEL_VAR_DOUBLE, 0);
    add(schemas[METRIC_STATS - EVENT], "max", QEL_VAR_DOUBLE, 0);
    add(schemas[METRIC_STATS - EVENT], "mean", QEL_VAR_DOUBLE, 0);

    event = qel_var_new_x(EVENT, 0, NULL, resolve);
    summary = qel_var_new_x(SUMMARY, 0, NULL, resolve);
    hosts = qel_var_new(QEL_VAR_BYTES, 1);   /* keyed: one entry per host */
    metrics = qel_var_new(QEL_VAR_BYTES, 1); /* keyed: one entry per metric */
    stats = member(summary, "metrics");

    while (*line != '\0') {
        const char *end = strchr(line, '\n');
        const int64_t length = end != NULL ? end - line : (int64_t)strlen(line);
        const char *host, *metric;
        int64_t host_length, metric_length;
        line_number++;
        if (length > 0) {
            rc = qel_json_read(event, line, length, NULL, resolve,
                               QEL_JSON_REQUIRE_MEMBERS | QEL_JSON_REJECT_NULL | QEL_JSON_SKIP_UNKNOWN, &err);
            if (rc != QEL_JSON_OK) {
                /* The record is as it was; the line is left out. */
                fprintf(stderr, "events:%lld:%lld: %s\n", (long long)line_number, (long long)err.column,
                        qel_json_error_cause(&err));
                rejected++;
            } else {
                good++;
                qel_var_get_string(member(event, "host"), 0, &host, &host_length);
                qel_var_get_string(member(event, "metric"), 0, &metric, &metric_length);
                count_key(hosts, host, host_length);
                fold(stats, count_key(metrics, metric, metric_length), metric, metric_length,
                     qel_var_get_double(member(event, "value"), 0));
            }
        }
        line += length + (end != NULL);
    }

    qel_var_set_long(member(summary, "events"), 0, good);
    qel_var_set_long(member(summary, "rejected"), 0, rejected);
    for (i = 0; i < qel_var_size(hosts); i++) {
        qel_var *row = qel_var_new_x(HOST_COUNT, 0, NULL, resolve);
        const char *host;
        int64_t host_length;
        qel_var_get_string(hosts, i, &host, &host_length);
        qel_var_set_string(member(row, "host"), 0, host, host_length);
        qel_var_set_long(member(row, "events"), 0, (int64_t)qel_var_get_buf(hosts, i));
        qel_var_add_var_x(member(summary, "hosts"), row);
        qel_var_free(row);
    }
    for (i = 0; i < qel_var_size(stats); i++) {
        qel_var *s = qel_var_get_var_x(stats, i);
        qel_var_set_double(member(s, "mean"), 0,
                           qel_var_get_double(member(s, "mean"), 0) / (double)qel_var_get_long(member(s, "count"), 0));
    }

    qel_stream_init(&out);
    rc = qel_json_write(summary, &out, QEL_JSON_INDENT);
    printf("%.*s\n", (int)out.length, out.bytes);
    rc = rc != QEL_JSON_OK || out.length != (int64_t)strlen(expected) || memcmp(out.bytes, expected, strlen(expected));
    if (rc) fprintf(stderr, "FAILED: the summary differs from the expected one:\n%s\n", expected);
    qel_stream_term(&out);

    qel_var_free(event);
    qel_var_free(summary);
    qel_var_free(hosts);
    qel_var_free(metrics);
    for (i = 0; i < 4; i++) qel_var_schema_free(schemas[i]);
    return rc;
}
