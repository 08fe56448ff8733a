/* Avro: records written to an object container file in memory (the schema
 * qel gives for them in the header, one block per call, deflate when the
 * library has zlib), read back whole and block by block, and a datum of
 * another writer's schema read by Avro's resolution rules. */
#include <qel_avro.h>

#include <stdio.h>
#include <string.h>

static qel_schema *player;

/* Record code 20 is a player: name, score, lives, tags. */
static qel_schema *resolve(void *context, uint32_t type) {
    (void)context;
    return type == 20 ? player : NULL;
}

static qel_var *member(const qel_var *record, const char *name) {
    return qel_var_get_val(record, name, (int64_t)strlen(name));
}

static void print(const qel_var *players) {
    int64_t i;
    for (i = 0; i < qel_var_size(players); ++i) {
        const qel_var *p = (const qel_var *)qel_arrays_get_at(&players->data.vars, i);
        const char *name;
        int64_t len;
        qel_var_get_string(member(p, "name"), 0, &name, &len);
        printf("  %.*s: score %g, %lld lives, %lld tags\n", (int)len, name, qel_var_get_double(member(p, "score"), 0),
               (long long)qel_var_get_long(member(p, "lives"), 0), (long long)qel_var_size(member(p, "tags")));
    }
}

int main(void) {
    static const char *const names[] = {"Ana", "Bo", "Cy"};
    qel_var *players, *one, *back;
    qel_stream schema, file;
    qel_avro_file_writer w;
    qel_avro_file_reader r;
    qel_avro_error err;
    qel_avro_type *theirs;
    int i, rc, blocks = 0;
    /* Another program's record: the fields in another order, an int, a
     * nullable string, a field qel does not have. */
    const char *their_schema =
        "{\"type\":\"record\",\"name\":\"Player\",\"fields\":[{\"name\":\"lives\",\"type\":\"int\"},"
        "{\"name\":\"team\",\"type\":\"string\"},{\"name\":\"name\",\"type\":[\"null\",\"string\"]}]}";
    const char datum[] = {6, 6, 'r', 'e', 'd', 2, 4, 'D', 'i'}; /* lives 3, team "red", name "Di" */

    player = qel_var_schema_new();
    qel_var_schema_add(player, "name", 4, 7, 0);  /* byte string */
    qel_var_schema_add(player, "score", 5, 6, 0); /* double */
    qel_var_schema_add(player, "lives", 5, 1, 0); /* unsigned 32-bit */
    qel_var_schema_add(player, "tags", 4, 7, 1);  /* array of strings */

    qel_stream_init(&schema);
    qel_avro_schema(20, 0, NULL, resolve, NULL, QEL_AVRO_STRINGS, &schema);
    printf("schema: %.*s\n", (int)schema.length, schema.bytes);

    players = qel_var_new_x(20, 1, NULL, resolve);
    one = qel_var_new_x(20, 0, NULL, resolve);
    for (i = 0; i < 3; ++i) {
        qel_var_set_string(member(one, "name"), 0, names[i], -1);
        qel_var_set_double(member(one, "score"), 0, 1.5 * i);
        qel_var_set_integer(member(one, "lives"), 0, 3 - i);
        qel_var_add_string(member(one, "tags"), "new", -1);
        qel_var_add_var_x(players, one);
    }

    /* The file: a header, then a block of all three and a block of one. */
    qel_stream_init(&file);
    rc = qel_avro_file_begin(&w, 20, NULL, resolve, NULL, QEL_AVRO_CODEC_DEFLATE, NULL, QEL_AVRO_STRINGS, &file);
    if (rc == QEL_AVRO_ERR_CODEC) /* built without zlib */
        rc = qel_avro_file_begin(&w, 20, NULL, resolve, NULL, QEL_AVRO_CODEC_NULL, NULL, QEL_AVRO_STRINGS, &file);
    if (rc == QEL_AVRO_OK) rc = qel_avro_file_append(&w, players, &file, &err);
    if (rc == QEL_AVRO_OK) rc = qel_avro_file_append(&w, one, &file, &err);
    if (rc != QEL_AVRO_OK) return 1;
    printf("container: %lld bytes, codec %s\n", (long long)file.length, w.codec ? "deflate" : "null");

    back = qel_var_new_x(20, 1, NULL, resolve);
    rc = qel_avro_file_read(back, file.bytes, file.length, NULL, resolve, 0, &err);
    printf("read whole (%d): %lld players\n", rc, (long long)qel_var_size(back));
    print(back);

    if (qel_avro_file_open(&r, file.bytes, file.length, &err) != QEL_AVRO_OK) return 1;
    while (qel_avro_file_next(&r, back, NULL, resolve, 0, &err) == QEL_AVRO_OK)
        printf("block %d: %lld players\n", ++blocks, (long long)qel_var_size(back));
    qel_avro_file_close(&r);

    /* A datum of their schema read into one of ours: fields by name, int into
     * the unsigned code, "team" skipped, score kept. */
    theirs = qel_avro_type_parse(their_schema, -1, &err);
    rc = qel_avro_read(one, datum, (int64_t)sizeof datum, NULL, theirs, NULL, resolve, 0, &err);
    qel_var_free(back);
    back = qel_var_new_x(20, 1, NULL, resolve);
    qel_var_add_var_x(back, one);
    printf("their datum (%d):\n", rc);
    print(back);
    /* Bytes cut short: an error with its place; `one` is unchanged. */
    rc = qel_avro_read(one, datum, 4, NULL, theirs, NULL, resolve, 0, &err);
    printf("cut short: error %d at byte %lld, field '%s': %s\n", rc, (long long)err.offset, err.path, err.message);

    qel_avro_type_free(theirs);
    qel_var_free(back);
    qel_var_free(one);
    qel_var_free(players);
    qel_stream_term(&file);
    qel_stream_term(&schema);
    qel_var_schema_free(player);
    return 0;
}
