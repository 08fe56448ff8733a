/*
 * The life of a record: a schema, a resolver that hands it out, a record
 * built from it, values stored in its members, a walk over them, a deep copy
 * that compares equal until one side changes, and freeing.
 * Prints each step; exits nonzero if anything reads back wrong.
 */
#include <inttypes.h>
#include <stdio.h>
#include <string.h>

#include <qel.h>

enum { PERSON = 20 }; /* our record code */

static int failures;

static void check(int ok, const char *what) {
    if (!ok) {
        fprintf(stderr, "FAILED: %s\n", what);
        failures++;
    }
}

/* The library asks for the schema of every type code it builds. */
static uint32_t asked[8];
static int asked_count;

static qel_schema *resolve(void *context, uint32_t type) {
    printf("   resolver asked for code %" PRIu32 "\n", type);
    if (asked_count < 8) asked[asked_count++] = type;
    return type == PERSON ? (qel_schema *)context : NULL;
}

/* Prints every member, walking the record in member order. */
static void print_record(const char *label, const qel_var *person) {
    int64_t i, k;
    printf("   %s:", label);
    for (i = 0; i < qel_var_member_count(person); i++) {
        const char *name;
        int64_t name_length;
        const qel_var *member = qel_var_member_at(person, i, &name, &name_length);
        if (member == NULL) continue; /* a name whose member was freed */
        printf(" %.*s =", (int)name_length, name);
        if (qel_var_type(member) != QEL_VAR_BYTES) {
            printf(" %" PRId64, qel_var_get_long(member, 0));
            continue;
        }
        printf(" [");
        for (k = 0; k < qel_var_size(member); k++) {
            const char *text;
            int64_t length;
            qel_var_get_string(member, k, &text, &length);
            printf("%s\"%.*s\"", k > 0 ? ", " : "", (int)length, text);
        }
        printf("]");
    }
    printf("\n");
}

static int tag_is(const qel_var *tags, int64_t index, const char *want) {
    const char *text;
    int64_t length;
    qel_var_get_string(tags, index, &text, &length);
    return length == (int64_t)strlen(want) && memcmp(text, want, (size_t)length) == 0;
}

int main(void) {
    qel_schema *schema;
    qel_var *person, *copy, *id, *tags;

    printf("1. A schema: id (code 4, single) and tags (code 7, multi)\n");
    schema = qel_var_schema_new();
    qel_var_schema_add(schema, "id", 2, QEL_VAR_INT64, 0);
    qel_var_schema_add(schema, "tags", 4, QEL_VAR_BYTES, 1);
    check(qel_var_schema_size(schema) == 2, "schema has two members");

    printf("2. qel_var_new_x(%d, single, schema, resolver)\n", PERSON);
    person = qel_var_new_x(PERSON, 0, schema, resolve);
    check(asked_count == 3 && asked[0] == PERSON && asked[1] == 4 && asked[2] == 7,
          "resolver asked for 20, then for each member's code");
    id = qel_var_get_val(person, "id", 2);
    tags = qel_var_get_val(person, "tags", 4);
    check(id != NULL && tags != NULL, "members id and tags exist");
    if (id == NULL || tags == NULL) return 1;
    check(qel_var_type(id) == QEL_VAR_INT64 && qel_var_multi(tags) == 1, "members have their schema's code and form");
    check(qel_var_member_count(person) == 2, "the walk sees two members");

    printf("3. id := 42, found with qel_var_get_val\n");
    qel_var_set_long(id, 0, 42);
    check(qel_var_get_long(id, 0) == 42, "id reads 42");

    printf("4. Two strings appended to tags\n");
    qel_var_add_string(tags, "red", -1);
    qel_var_add_string(tags, "round", -1);
    check(qel_var_size(tags) == 2, "tags holds two strings");
    print_record("person", person);

    printf("5. qel_var_copy into a fresh record, then the original changes\n");
    copy = qel_var_new(PERSON, 0);
    qel_var_copy(copy, person);
    check(qel_var_equal(copy, person), "the copy equals the original");
    qel_var_set_long(id, 0, 7);
    qel_var_set_string(tags, 0, "blue", -1);
    print_record("person", person);
    print_record("copy  ", copy);
    check(qel_var_get_long(qel_var_get_val(copy, "id", 2), 0) == 42, "the copy keeps id 42");
    check(qel_var_size(qel_var_get_val(copy, "tags", 4)) == 2, "the copy keeps both tags");
    check(tag_is(qel_var_get_val(copy, "tags", 4), 0, "red"), "the copy keeps its own bytes");
    check(tag_is(qel_var_get_val(copy, "tags", 4), 1, "round"), "the copy keeps the second tag");
    check(!qel_var_equal(copy, person) && qel_var_cmp(copy, person) == 0,
          "now they differ, though qel_var_cmp orders records of one code as equal");

    printf("6. Both records freed, then the schema\n");
    qel_var_free(person);
    qel_var_free(copy);
    qel_var_schema_free(schema);

    if (failures != 0) {
        printf("%d check(s) read back wrong.\n", failures);
        return 1;
    }
    printf("All steps read back as expected.\n");
    return 0;
}
