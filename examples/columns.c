/*
 * columns.c - a few thousand variable-length rows stored column-wise.
 *
 * Each row is a measurement series: an id (single column of unsigned 32-bit
 * values), its samples (multi column of doubles, 0 to 12 per row) and its
 * labels (multi column of byte strings, each with a caller value).  Rows go
 * in whole through a reused light variant or value by value, then come back
 * by entry and position and by fetching whole entries.  Exits nonzero on the
 * first mismatch.
 */
#include <qel.h>

#include <stdint.h>
#include <stdio.h>
#include <string.h>

enum { ROWS = 3000 };

static uint64_t rng_state = 0x9E3779B97F4A7C15u;

/* A small fixed-seed generator, so every run checks the same data. */
static uint32_t next_random(void) {
    rng_state = rng_state * 6364136223846793005u + 1442695040888963407u;
    return (uint32_t)(rng_state >> 33);
}

static double sample(int64_t row, int64_t k) { return (double)row * 0.5 - (double)k / 3.0; }

static void label(int64_t row, int64_t k, char *out, size_t size) {
    snprintf(out, size, "r%lld/l%lld", (long long)row, (long long)k);
}

static int fail(const char *what, int64_t row, int64_t k) {
    fprintf(stderr, "mismatch: %s at row %lld, position %lld\n", what, (long long)row, (long long)k);
    return 1;
}

int main(void) {
    qel_xvars *ids = qel_xvars_new(QEL_XVAR_UINT32, 0);
    qel_xvars *samples = qel_xvars_new(QEL_XVAR_DOUBLE, 1);
    qel_xvars *labels = qel_xvars_new(QEL_XVAR_BYTES, 1);
    qel_xvar *id = qel_xvar_new(QEL_XVAR_UINT32, 0);
    qel_xvar *row = qel_xvar_new(QEL_XVAR_DOUBLE, 1);
    qel_xvar *names = qel_xvar_new(QEL_XVAR_BYTES, 1);
    int64_t counts[ROWS];
    int64_t values = 0;
    char text[32];
    int bad = 0;

    /* Append: even rows whole through light variants, odd rows value by value. */
    for (int64_t r = 0; r < ROWS; ++r) {
        const int64_t n = (int64_t)(next_random() % 13u);
        counts[r] = n;
        values += n;
        qel_xvar_set_integer(id, 0, 1000000 + r);
        qel_xvars_add_var(ids, id);
        qel_xvar_shrink(row, 0);
        qel_xvar_shrink(names, 0);
        for (int64_t k = 0; k < n; ++k) {
            label(r, k, text, sizeof text);
            if (r % 2 == 0) {
                qel_xvar_add_double(row, sample(r, k));
                qel_xvar_add_string(names, text, -1);
                qel_xvar_set_buf(names, -1, (uint64_t)(r * 100 + k));
            } else {
                qel_xvars_add_double(samples, r, sample(r, k));
                qel_xvars_add_string(labels, r, text, -1);
                qel_xvars_set_buf(labels, r, -1, (uint64_t)(r * 100 + k));
            }
        }
        if (r % 2 == 0 || n == 0) {
            /* A value-by-value row with no values is still one (empty) entry. */
            qel_xvars_add_var(samples, row);
            qel_xvars_add_var(labels, names);
        }
    }
    if (qel_xvars_size(ids) != ROWS || qel_xvars_size(samples) != ROWS || qel_xvars_size(labels) != ROWS) {
        fprintf(stderr, "wrong entry counts\n");
        return 1;
    }

    /* Read back by entry and position. */
    double sum = 0.0;
    for (int64_t r = 0; r < ROWS && !bad; ++r) {
        if (qel_xvars_get_integer(ids, r, 0) != 1000000 + r) bad = fail("id", r, 0);
        if (qel_xvars_get_size(samples, r) != counts[r]) bad = fail("row size", r, 0);
        for (int64_t k = 0; k < counts[r] && !bad; ++k) {
            const double v = qel_xvars_get_double(samples, r, k);
            const char *s = NULL;
            int64_t len = 0;
            sum += v;
            qel_xvars_get_string(labels, r, k, &s, &len);
            label(r, k, text, sizeof text);
            if (v != sample(r, k)) bad = fail("sample", r, k);
            else if (len != (int64_t)strlen(text) || memcmp(s, text, (size_t)len) != 0) bad = fail("label", r, k);
            else if (qel_xvars_get_buf(labels, r, k) != (uint64_t)(r * 100 + k)) bad = fail("label buf", r, k);
        }
        if (!bad && qel_xvars_get_double(samples, r, counts[r]) != 0.0) bad = fail("past the row", r, counts[r]);
    }

    /* Read back whole entries, last row first. */
    for (int64_t r = ROWS - 1; r >= 0 && !bad; --r) {
        qel_xvars_fetch_var(ids, r, id);
        qel_xvars_fetch_var(samples, r, row);
        qel_xvars_fetch_var(labels, r, names);
        if (qel_xvar_get_integer(id, 0) != 1000000 + r) bad = fail("fetched id", r, 0);
        if (qel_xvar_size(row) != counts[r] || qel_xvar_size(names) != counts[r]) bad = fail("fetched size", r, 0);
        for (int64_t k = 0; k < counts[r] && !bad; ++k) {
            const char *s = NULL;
            int64_t len = 0;
            qel_xvar_get_string(names, k, &s, &len);
            label(r, k, text, sizeof text);
            if (qel_xvar_get_double(row, k) != sample(r, k)) bad = fail("fetched sample", r, k);
            else if (len != (int64_t)strlen(text) || memcmp(s, text, (size_t)len) != 0)
                bad = fail("fetched label", r, k);
            else if (qel_xvar_get_buf(names, k) != (uint64_t)(r * 100 + k)) bad = fail("fetched buf", r, k);
        }
        /* Fetching appends label bytes to the light variant's pool: empty it now and then. */
        if (r % 256 == 0) {
            qel_xvar_change(names, QEL_XVAR_BYTES, 2);
            qel_xvar_change(names, QEL_XVAR_BYTES, 1);
        }
    }

    if (!bad)
        printf("columns: %d rows, %lld samples (sum %.4f), %lld labels: all read back\n", ROWS, (long long)values, sum,
               (long long)values);
    qel_xvar_free(names);
    qel_xvar_free(row);
    qel_xvar_free(id);
    qel_xvars_free(labels);
    qel_xvars_free(samples);
    qel_xvars_free(ids);
    return bad;
}
