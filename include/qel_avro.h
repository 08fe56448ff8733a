/*
 * qel_avro.h - Avro 1.11 binary encoding, schemas and object container files
 * of full variants.
 *
 * qel_avro_schema gives the Avro schema (JSON text) of a shape: a type code
 * and form, with the records the resolver gives.  qel_avro_write appends one
 * variant as an Avro datum of that schema to a byte stream; qel_avro_read
 * reads a datum written with any writer schema into a destination whose type
 * code, form and schema say what it holds, by Avro's resolution rules.  The
 * qel_avro_file_* functions write and read object container files in memory
 * (the caller does the I/O).  Caller values (`buf`) are never written or read.
 *
 * How shapes map:
 *   codes 1, 2, 3, 9   "long" (an unsigned 32-bit value does not fit "int")
 *   code 4             "long"
 *   code 5             "float"
 *   code 6             "double"
 *   codes 7, 8         "bytes" ("string" with QEL_AVRO_STRINGS)
 *   record code        a "record" named by the namer (default qel_<code>,
 *                      e.g. qel_20), one field per schema member in schema
 *                      order; a record without a schema has no fields
 *   multi form         {"type": "array", "items": ...} of the above
 * A record code met again inside its own definition is referred to by its
 * name.  A single-record member whose code is already being defined further
 * up is ["null", name]: such a member is built without members (see
 * qel_var_new_x), and is written as null while it has none.  Every other
 * occurrence after the first is the bare name.
 */
#ifndef QEL_AVRO_H
#define QEL_AVRO_H

#include <stdint.h>

#include <qel.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- flags ---- */

/* Schema and writing: codes 7 and 8 are "string" instead of "bytes", and
 * their bytes must be UTF-8 (else QEL_AVRO_ERR_UTF8).
 */
#define QEL_AVRO_STRINGS 0x1u
/* Writing: a record whose members do not match its schema is written by the
 * schema: a member the schema lists but the record lacks (or holds with
 * another type code or multi byte) is written as the zero value of the
 * listed shape (0, empty bytes, an empty array, a record of zero values,
 * null where the schema has ["null", name]), and members the schema does
 * not list are left out. Without it such a record is QEL_AVRO_ERR_MEMBERS.
 */
#define QEL_AVRO_LOOSE_MEMBERS 0x2u
/* Reading: a null (the null type, or the null branch of a union) is
 * QEL_AVRO_ERR_NULL. Without it a null leaves its destination as it is.
 */
#define QEL_AVRO_NULL_ERROR 0x4u

/* ---- codecs of object container files ---- */

#define QEL_AVRO_CODEC_NULL 0
#define QEL_AVRO_CODEC_DEFLATE 1 /* only when the library was built with zlib */

/* ---- result codes (0 is success) ---- */

#define QEL_AVRO_OK 0
#define QEL_AVRO_END (-1)        /* qel_avro_file_next: no block left */
#define QEL_AVRO_ERR_SCHEMA 1    /* schema text: not JSON, or not an Avro schema */
#define QEL_AVRO_ERR_NAME 2      /* schema: a name Avro does not accept, or one name for two things */
#define QEL_AVRO_ERR_MEMBERS 3   /* write: record members that do not match the schema */
#define QEL_AVRO_ERR_UTF8 4      /* a "string" that is not UTF-8 */
#define QEL_AVRO_ERR_TRUNCATED 5 /* read: the input ends inside a value */
#define QEL_AVRO_ERR_INVALID 6   /* read: bytes that are not a valid encoding */
#define QEL_AVRO_ERR_TYPE 7      /* read: a writer type its destination cannot take */
#define QEL_AVRO_ERR_RANGE 8     /* read: a value its destination cannot hold exactly */
#define QEL_AVRO_ERR_NULL 9      /* read: a null with QEL_AVRO_NULL_ERROR */
#define QEL_AVRO_ERR_DEPTH 10    /* values nested deeper than QEL_AVRO_MAX_DEPTH */
#define QEL_AVRO_ERR_CODEC 11    /* container: an unknown or unavailable codec, or bad compressed data */

/* Deepest nesting of records, arrays, maps and unions written or read. */
#define QEL_AVRO_MAX_DEPTH 1000

/* Where and why an operation failed. */
typedef struct qel_avro_error {
    int code;          /* QEL_AVRO_OK or one of QEL_AVRO_ERR_* */
    int64_t offset;    /* byte offset in the input (reads; in a deflate block: the block's) or in the output (writes) */
    char path[128];    /* the value's place, e.g. kids[3].name ("" at the top; long paths end in "...") */
    char message[200]; /* what was expected and what was found */
} qel_avro_error;

/* Gives the Avro name (a NUL-terminated [A-Za-z_][A-Za-z0-9_]* text that
 * outlives the call) of the record with this type code, or NULL for the
 * default qel_<code>. Called with the resolver's context.
 */
typedef const char *(*qel_avro_namer)(void *context, uint32_t type);

/* A writer schema parsed for qel_avro_read (opaque). */
typedef struct qel_avro_type qel_avro_type;

/* Appends to `out` the Avro schema (compact JSON) of the shape (type, multi):
 * record codes take their members from resolver(context, code) (or
 * `context` itself without a resolver), their names from namer(context,
 * code) (NULL namer: all default). Returns QEL_AVRO_OK or, with nothing
 * appended, QEL_AVRO_ERR_NAME: a record or member name that is not an Avro
 * name, two codes with one name, or a schema listing a member name twice; or
 * QEL_AVRO_ERR_DEPTH: records defined inside each other more than
 * QEL_AVRO_MAX_DEPTH deep.
 * Flags: QEL_AVRO_STRINGS.
 */
QEL_API int qel_avro_schema(uint32_t type, uint8_t multi, void *context, qel_schema_resolver resolver,
                            qel_avro_namer namer, unsigned flags, qel_stream *out);

/* Appends `v` as one Avro datum of the schema qel_avro_schema gives for its
 * shape with the same context and resolver: numbers as zig-zag varints or
 * little-endian IEEE floats, strings length first, an array as one block and
 * the end mark (an empty one as the end mark alone), a record's members in
 * the order of its schema, resolver(context, code) (or `context` itself
 * without a resolver, as qel_var_new_x takes them; the records' own schema
 * pointers are not used). Returns QEL_AVRO_OK, or an error with nothing
 * appended and *err filled when err is not NULL: QEL_AVRO_ERR_MEMBERS
 * (unless QEL_AVRO_LOOSE_MEMBERS), QEL_AVRO_ERR_UTF8 (with
 * QEL_AVRO_STRINGS), QEL_AVRO_ERR_DEPTH. Flags: QEL_AVRO_STRINGS,
 * QEL_AVRO_LOOSE_MEMBERS.
 */
QEL_API int qel_avro_write(const qel_var *v, qel_stream *out, void *context, qel_schema_resolver resolver,
                           unsigned flags, qel_avro_error *err);

/* Parses `len` bytes of Avro schema text (negative: measured with strlen) for
 * qel_avro_read: primitives, records, enums, arrays, maps, unions and fixed,
 * named types with namespaces, references to names already defined (also from
 * inside their own definition). NULL on an error (QEL_AVRO_ERR_SCHEMA or
 * QEL_AVRO_ERR_NAME in *err); the caller frees the result with
 * qel_avro_type_free.
 */
QEL_API qel_avro_type *qel_avro_type_parse(const char *text, int64_t len, qel_avro_error *err);

/* Frees a parsed schema; NULL does nothing. */
QEL_API void qel_avro_type_free(qel_avro_type *type);

/* Reads one datum of the writer schema `writer` from `len` bytes at `bytes`
 * into `dst`, whose type code, form and schema say what it holds, and returns
 * QEL_AVRO_OK or an error code. With `used` NULL the datum must take all the
 * bytes; otherwise *used gets the bytes it took (0 on an error). On any error
 * `dst` is exactly as before and *err holds the code, the byte offset, the
 * path and a message. Avro's resolution rules:
 * - codes 1, 2, 3, 9 take "int" and "long" values 0 .. 4294967295, code 4
 *   any; code 5 "float", and "int" or "long" values a float holds exactly;
 *   code 6 "double", "float", and integers a double holds exactly (others:
 *   QEL_AVRO_ERR_RANGE); codes 7 and 8 "bytes" and "string" (which must be
 *   UTF-8).
 * - A single record takes a "record": fields are matched by name with its
 *   members; a name the record lacks but its schema lists is created as
 *   qel_var_new_x(type, multi, context, resolver) would; fields of neither
 *   are skipped; members the writer lacks keep their values.
 * - The multi form takes an "array" whose items replace the elements; a
 *   record array gets one new element per item, made as
 *   qel_var_new_x(code, 0, context, resolver) would (without a resolver with
 *   the array's schema).
 * - A union takes the branch the datum names. A null leaves its destination
 *   as it is (QEL_AVRO_ERR_NULL with QEL_AVRO_NULL_ERROR; inside an array
 *   the element keeps a zero value).
 * - Any other pairing is QEL_AVRO_ERR_TYPE, found when such a value is met.
 * Hostile bytes get an error, never a crash or an allocation beyond a bound
 * proportional to the input: lengths and counts are checked against the
 * bytes left before anything is allocated, varints are at most 10 bytes,
 * nesting stops at QEL_AVRO_MAX_DEPTH. Flags: QEL_AVRO_NULL_ERROR.
 */
QEL_API int qel_avro_read(qel_var *dst, const char *bytes, int64_t len, int64_t *used, const qel_avro_type *writer,
                          void *context, qel_schema_resolver resolver, unsigned flags, qel_avro_error *err);

/* ---- object container files ---- */

/* What qel_avro_file_append needs after qel_avro_file_begin; owned by the
 * caller (no allocation).
 */
typedef struct qel_avro_file_writer {
    uint8_t sync[16]; /* the file's sync marker */
    int codec;        /* QEL_AVRO_CODEC_* */
    unsigned flags;   /* qel_avro_write's flags for every record */
    void *context;    /* qel_avro_write's context and resolver */
    qel_schema_resolver resolver;
} qel_avro_file_writer;

/* Appends a container header for records of type code `type` to `out`: the
 * magic, the metadata avro.schema (qel_avro_schema(type, 0, context,
 * resolver, namer, flags)) and avro.codec, and the sync marker: the 16 bytes
 * at `sync`, or when `sync` is NULL 16 bytes derived from the schema text
 * and the addresses of `w` and `out` (no global state, no clock). Fills *w.
 * Returns QEL_AVRO_OK, or with nothing appended QEL_AVRO_ERR_CODEC (a codec
 * this build does not have) or qel_avro_schema's error.
 */
QEL_API int qel_avro_file_begin(qel_avro_file_writer *w, uint32_t type, void *context, qel_schema_resolver resolver,
                                qel_avro_namer namer, int codec, const uint8_t *sync, unsigned flags, qel_stream *out);

/* Appends one block to `out`: every element of the array `records` (a
 * single variant: itself) as a datum, compressed by the writer's codec, then
 * the sync marker. An empty array appends nothing. Errors as qel_avro_write,
 * with nothing appended.
 */
QEL_API int qel_avro_file_append(const qel_avro_file_writer *w, const qel_var *records, qel_stream *out,
                                 qel_avro_error *err);

/* Reads a container one block at a time: fields are filled by
 * qel_avro_file_open and read-only for the caller.
 */
typedef struct qel_avro_file_reader {
    const char *bytes; /* the container (borrowed: must outlive the reader) */
    int64_t length;
    int64_t offset;     /* where the next block starts */
    const char *schema; /* the writer schema text in `bytes` (not terminated) */
    int64_t schema_length;
    int codec;
    uint8_t sync[16];
    qel_avro_type *type; /* the parsed writer schema (owned) */
} qel_avro_file_reader;

/* Reads the header of `len` bytes at `bytes` into *r. Returns QEL_AVRO_OK, or
 * an error (the magic, the metadata, no avro.schema, a bad schema, an unknown
 * codec) with *r holding nothing to free.
 */
QEL_API int qel_avro_file_open(qel_avro_file_reader *r, const char *bytes, int64_t len, qel_avro_error *err);

/* Reads the next block into the array `dst`, whose elements become the
 * block's objects (each read as qel_avro_read reads an array item), and
 * returns QEL_AVRO_OK; QEL_AVRO_END when no block is left; or an error (also
 * a wrong sync marker or bad compressed data) with `dst` as before.
 */
QEL_API int qel_avro_file_next(qel_avro_file_reader *r, qel_var *dst, void *context, qel_schema_resolver resolver,
                               unsigned flags, qel_avro_error *err);

/* Frees what the reader owns. */
QEL_API void qel_avro_file_close(qel_avro_file_reader *r);

/* Reads a whole container: the elements of the array `dst` become every
 * object of every block, in order. On an error `dst` is as before.
 */
QEL_API int qel_avro_file_read(qel_var *dst, const char *bytes, int64_t len, void *context,
                               qel_schema_resolver resolver, unsigned flags, qel_avro_error *err);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* QEL_AVRO_H */
