/* The support containers used from plain C, the way the variant families
 * use them: fields read and written directly, entries filled after expand.
 * Returns nonzero on failure. */
#include <stdio.h>
#include <string.h>

#include "qel_std.h"

static int failures = 0;

#define CHECK(cond)                                                   \
    do {                                                              \
        if (!(cond)) {                                                \
            fprintf(stderr, "%s:%d: %s\n", __FILE__, __LINE__, #cond); \
            failures++;                                               \
        }                                                             \
    } while (0)

static void value_arrays(void)
{
    qel_arrayd d;
    qel_arrayx x;
    uint32_t v = 9;
    int64_t i;
    qel_arrayd_init(&d, 0);
    qel_arrayx_init(&x, 0);
    for (i = 0; i < 100; i++)
        qel_arrayd_append(&d, (uint32_t)(100 - i), (uint64_t)i);
    qel_arrayd_qsort(&d, 1);
    CHECK(d.entries[0].value == 1 && d.entries[0].buf == 99);
    CHECK(qel_arrayd_bfind_index(&d, 50) == 49);
    CHECK(qel_arrayd_get_at(&d, 100, &v) == 0 && v == 0);
    CHECK(qel_arrayd_entry_insert(&d, 50) == &d.entries[49]);
    CHECK(qel_arrayd_entry_insert(&d, 1000)->buf == 0 && d.count == 101);

    qel_arrayx_expand(&x, 10);
    CHECK(x.capacity >= 10);
    for (i = 0; i < 10; i++) {
        x.entries[i].value = -i;
        x.entries[i].buf = (uint64_t)i;
    }
    x.count = 10;
    qel_arrayx_qsort(&x, 1);
    CHECK(x.entries[0].value == -9 && x.entries[0].buf == 9);
    qel_arrayd_term(&d);
    qel_arrayx_term(&x);
}

static void strings(void)
{
    qel_array a;
    const char *p = NULL;
    int64_t n = -1;
    qel_char_view view;
    qel_array_init(&a, 0);
    qel_array_append(&a, "beta", 4, 0x00020007u);
    qel_array_append(&a, "alpha", 5, 1);
    CHECK(qel_array_get_at(&a, 0, &p, &n) == 0x00020007u && n == 4);
    view.bytes = p;
    view.length = n;
    CHECK(qel_char_compare(&view, "beta", 4) == 0);
    CHECK(qel_array_find_index(&a, "alpha", 5) == 1);
    qel_array_qsort(&a, 1);
    CHECK(qel_array_bfind_index(&a, "beta", 4) == 1);
    CHECK(qel_array_entry_insert(&a, "alpha", 5) == &a.entries[0]);
    qel_array_set_at(&a, 0, "a much longer string", 20, 0);
    qel_array_get_at(&a, 0, &p, &n);
    CHECK(n == 20 && memcmp(p, "a much longer string", 20) == 0);
    qel_array_get_at(&a, 2, &p, &n);
    CHECK(p == NULL && n == 0);
    qel_array_term(&a);
}

static void hash_and_stream(void)
{
    qel_hash h;
    qel_stream s;
    qel_string t;
    void *cursor;
    qel_hash_entry *e;
    int one = 1, two = 2, count = 0;
    qel_hash_init(&h, 1, 0);
    qel_hash_insert(&h, "id", 2, &one);
    qel_hash_insert(&h, "ids", 3, &two);
    CHECK(qel_hash_get(&h, "id", 2) == &one);
    CHECK(qel_hash_get(&h, "ids", 3) == &two);
    for (e = qel_hash_entry_first(&h, &cursor); e != NULL; e = qel_hash_entry_next(&h, &cursor, e)) {
        CHECK(e->key_length == (uint32_t)(2 + count));
        CHECK(memcmp(h.key_pool + e->key_offset, "ids", e->key_length) == 0);
        e->value = NULL;
        count++;
    }
    CHECK(count == 2);
    qel_hash_term(&h);

    qel_stream_init(&s);
    qel_stream_copy(&s, "  x  ", 5);
    qel_stream_swap_string(&s, &t);
    qel_string_trim(&t);
    qel_stream_swap_string(&s, &t);
    CHECK(s.length == 1 && s.bytes[0] == 'x');
    CHECK(qel_mem_cmp("a", 1, "b", 1) < 0);
    qel_stream_term(&s);
}

int main(void)
{
    value_arrays();
    strings();
    hash_and_stream();
    if (failures != 0)
        fprintf(stderr, "%d failure(s)\n", failures);
    return failures != 0;
}
