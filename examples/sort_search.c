/*
 * Sorting, searching and keyed insertion with the full variant, in C:
 *  - an array of doubles sorted both ways, with each value's caller value
 *    travelling with it, then searched linearly and by binary search;
 *  - an array of byte strings sorted and searched;
 *  - a tally built by keyed insertion: qel_var_add_integer_x gives back the
 *    caller value of the entry for a key (0 when the key is new), and
 *    qel_var_find + qel_var_set_buf store the new count there.
 * Exits nonzero on a wrong result.
 */
#include <qel.h>

#include <stdint.h>
#include <stdio.h>
#include <string.h>

static int failures = 0;

static void check(int ok, const char *what) {
    if (!ok) {
        fprintf(stderr, "wrong: %s\n", what);
        ++failures;
    }
}

static void print_doubles(const char *label, const qel_var *v) {
    int64_t i;
    printf("%s:", label);
    for (i = 0; i < qel_var_size(v); ++i)
        printf(" %g(#%llu)", qel_var_get_double(v, i), (unsigned long long)qel_var_get_buf(v, i));
    printf("\n");
}

static void doubles(void) {
    static const double values[] = {3.5, -1.0, 2.25, 10.0, 0.5, 2.25};
    const int64_t n = (int64_t)(sizeof values / sizeof values[0]);
    qel_var *v = qel_var_new(QEL_VAR_DOUBLE, 1);
    double key;
    int64_t i, at;

    for (i = 0; i < n; ++i) {
        qel_var_add_double(v, values[i]);
        qel_var_set_buf(v, i, (uint64_t)i); /* remember where each value came from */
    }
    print_doubles("doubles as added", v);

    /* Linear search works on any order; the key is the stored double. */
    key = 10.0;
    at = qel_var_find(v, &key, 0);
    printf("find 10: index %lld\n", (long long)at);
    check(at == 3, "find 10 in the unsorted array");

    qel_var_qsort(v, 1); /* nonzero: ascending */
    print_doubles("ascending", v);
    for (i = 1; i < n; ++i) check(qel_var_get_double(v, i - 1) <= qel_var_get_double(v, i), "ascending order");
    check(qel_var_get_double(v, 0) == -1.0 && qel_var_get_buf(v, 0) == 1, "the caller value moves with -1");

    key = 3.5;
    at = qel_var_bfind(v, &key, 0);
    printf("bfind 3.5: index %lld, came from #%llu\n", (long long)at, (unsigned long long)qel_var_get_buf(v, at));
    check(at == 4 && qel_var_get_buf(v, at) == 0, "bfind 3.5 after the sort");
    key = 7.0;
    check(qel_var_bfind(v, &key, 0) == -1, "bfind of an absent value gives -1");

    qel_var_qsort(v, 0); /* 0: descending */
    print_doubles("descending", v);
    check(qel_var_get_double(v, 0) == 10.0 && qel_var_get_buf(v, 0) == 3, "10 first, still #3");

    qel_var_free(v);
}

static void strings(void) {
    static const char *const words[] = {"pear", "apple", "fig", "banana", "cherry"};
    qel_var *v = qel_var_new(QEL_VAR_BYTES, 1);
    const char *text;
    int64_t length, i, at;

    for (i = 0; i < 5; ++i) qel_var_add_string(v, words[i], -1); /* -1: measure with strlen */
    qel_var_qsort(v, 1);
    printf("strings ascending:");
    for (i = 0; i < qel_var_size(v); ++i) {
        qel_var_get_string(v, i, &text, &length);
        printf(" %.*s", (int)length, text);
    }
    printf("\n");
    qel_var_get_string(v, 0, &text, &length);
    check(length == 5 && memcmp(text, "apple", 5) == 0, "apple sorts first");

    at = qel_var_bfind(v, "fig", 3);
    printf("bfind fig: index %lld\n", (long long)at);
    check(at == 3, "fig is the fourth word");
    check(qel_var_find(v, "kiwi", 4) == -1, "kiwi is absent");

    qel_var_free(v);
}

static void tally(void) {
    /* Count how often each number occurs, keeping first-seen order. */
    static const int64_t seen[] = {5, 3, 5, 9, 3, 5, 12, 9, 5};
    const int64_t n = (int64_t)(sizeof seen / sizeof seen[0]);
    qel_var *counts = qel_var_new(QEL_VAR_INT64, 1); /* the search key is an int64_t */
    int64_t i;

    for (i = 0; i < n; ++i) {
        const int64_t key = seen[i];
        const uint64_t before = qel_var_add_integer_x(counts, key); /* 0 for a new key */
        const int64_t at = qel_var_find(counts, &key, 0);
        qel_var_set_buf(counts, at, before + 1);
    }

    printf("tally:");
    for (i = 0; i < qel_var_size(counts); ++i)
        printf(" %lld x%llu", (long long)qel_var_get_long(counts, i), (unsigned long long)qel_var_get_buf(counts, i));
    printf("\n");

    check(qel_var_size(counts) == 4, "four distinct numbers");
    check(qel_var_get_long(counts, 0) == 5 && qel_var_get_buf(counts, 0) == 4, "5 seen four times");
    check(qel_var_get_long(counts, 1) == 3 && qel_var_get_buf(counts, 1) == 2, "3 seen twice");
    check(qel_var_get_long(counts, 2) == 9 && qel_var_get_buf(counts, 2) == 2, "9 seen twice");
    check(qel_var_get_long(counts, 3) == 12 && qel_var_get_buf(counts, 3) == 1, "12 seen once");

    /* The same tally over words, through the string keyed insert. */
    {
        static const char *const text[] = {"to", "be", "or", "not", "to", "be"};
        qel_var *words = qel_var_new(QEL_VAR_BYTES, 1);
        int64_t at;
        for (i = 0; i < 6; ++i) {
            const uint64_t before = qel_var_add_string_x(words, text[i], -1);
            qel_var_set_buf(words, qel_var_find(words, text[i], (int64_t)strlen(text[i])), before + 1);
        }
        at = qel_var_find(words, "be", 2);
        printf("words: %lld distinct, \"be\" x%llu\n", (long long)qel_var_size(words),
               (unsigned long long)qel_var_get_buf(words, at));
        check(qel_var_size(words) == 4 && qel_var_get_buf(words, at) == 2, "be seen twice");
        qel_var_free(words);
    }

    qel_var_free(counts);
}

int main(void) {
    doubles();
    strings();
    tally();
    if (failures != 0) return 1;
    printf("sort and search: ok\n");
    return 0;
}
