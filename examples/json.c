/* JSON text: a record printed compact and indented, then a JSON document read
 * back into a record of the same schema, and an error with its position. */
#include <qel_json.h>

#include <stdio.h>
#include <string.h>

static qel_schema *player, *position;

/* Record code 20 is a player, 21 a position. */
static qel_schema *resolve(void *context, uint32_t type) {
    (void)context;
    return type == 20 ? player : type == 21 ? position : NULL;
}

static qel_var *member(qel_var *record, const char *name) {
    return qel_var_get_val(record, name, (int64_t)strlen(name));
}

static void print(const qel_var *v, unsigned flags) {
    qel_stream out;
    qel_stream_init(&out);
    if (qel_json_write(v, &out, flags) == QEL_JSON_OK) printf("%.*s\n", (int)out.length, out.bytes);
    qel_stream_term(&out);
}

int main(void) {
    qel_var *p, *copy;
    qel_json_error err;
    const char *text =
        "{\"name\": \"Zo\\u00eb\", \"score\": 0.1, \"at\": {\"x\": 3, \"y\": -1.5e-3},\n"
        " \"tags\": [\"new\", \"fast\"]}";
    int rc;

    player = qel_var_schema_new();
    position = qel_var_schema_new();
    qel_var_schema_add(player, "name", 4, QEL_VAR_BYTES, 0);
    qel_var_schema_add(player, "score", 5, QEL_VAR_FLOAT, 0);
    qel_var_schema_add(player, "lives", 5, QEL_VAR_UINT32, 0);
    qel_var_schema_add(player, "at", 2, 21, 0);              /* a position record */
    qel_var_schema_add(player, "tags", 4, QEL_VAR_BYTES, 1); /* an array */
    qel_var_schema_add(position, "x", 1, QEL_VAR_INT64, 0);
    qel_var_schema_add(position, "y", 1, QEL_VAR_DOUBLE, 0);

    p = qel_var_new_x(20, 0, NULL, resolve);
    qel_var_set_string(member(p, "name"), 0, "Ana", -1);
    qel_var_set_float(member(p, "score"), 0, 2.5f);
    qel_var_set_integer(member(p, "lives"), 0, 3);
    qel_var_set_long(member(member(p, "at"), "x"), 0, -7);
    qel_var_add_string(member(p, "tags"), "tall \"A\"", -1);
    print(p, 0);
    print(p, QEL_JSON_INDENT);

    /* Read: members absent from the text (lives) keep their values. */
    copy = qel_var_new_x(20, 0, NULL, resolve);
    qel_var_copy(copy, p);
    rc = qel_json_read(copy, text, -1, NULL, resolve, 0, &err);
    printf("read: %d\n", rc);
    print(copy, 0);

    /* A failed read names where and why, and leaves the record as it was. */
    rc = qel_json_read(copy, "{\"lives\": -1}", -1, NULL, resolve, 0, &err);
    printf("read: %d (%s)\n", rc, err.message);
    rc = qel_json_read(copy, "{\"name\": \"x\", \"speed\": 2}", -1, NULL, resolve, 0, &err);
    printf("read: %d (%s)\n", rc, err.message);
    print(copy, 0);

    qel_var_free(copy);
    qel_var_free(p);
    qel_var_schema_free(player);
    qel_var_schema_free(position);
    return 0;
}
