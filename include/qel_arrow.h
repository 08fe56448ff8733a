/*
 * qel_arrow.h - the Arrow C Data Interface and C Stream Interface: full
 * variants, light variants and column sets handed to any engine that reads
 * Arrow (DuckDB, Polars, pyarrow, ...) without copying through text, and
 * Arrow arrays read back into full variants.
 *
 * The three Arrow structs are the ones the Arrow format documentation gives
 * for copying into any project; the guards let another copy come first.
 *
 * Export (every function copies: the source may change or be freed as soon
 * as the export returns, except for a stream, see below):
 *   codes 1, 2, 3, 9     "I"  uint32
 *   code 4               "l"  int64
 *   code 5               "f"  float
 *   code 6               "g"  double
 *   codes 7, 8           "z"  binary, "Z" (large) once the bytes pass
 *                        2^31 - 1; with QEL_ARROW_UTF8 "u" / "U"
 *   record array         "+s" struct, one child per member of the array's
 *                        schema, in schema order, named by the member; a
 *                        member an element lacks is null in that row (the
 *                        only nulls an export makes)
 *   multi member         "+l" list of the member's values ("+L" past
 *                        2^31 - 1 values in all)
 *   single record member "+s" struct of the members of its schema (the
 *                        schema of the first row that has the member)
 *   light variant        its values as above (light codes 1..5: I l f g z);
 *                        a single light variant is an array of one value
 *   column set           multi: a list array, one list per entry (the
 *                        column set's index gives the offsets); single: an
 *                        array of one value per entry
 * Full variants export in the multi form only.  Members of an element that
 * its schema does not list are not exported; a member whose code or form
 * differs from what the schema lists is an error.  The top-level array is
 * named "value".  Caller values are left out unless QEL_ARROW_CALLER_VALUES
 * asks for them; see that flag for where they go.
 *
 * Import (qel_arrow_import, qel_arrow_import_stream) reads an array into a
 * full variant in the multi form, whose code and schema say what each row
 * must hold, as qel_json_read reads JSON; the input stays the caller's.
 */
#ifndef QEL_ARROW_H
#define QEL_ARROW_H

#include <stdint.h>

#include <qel.h>

#ifdef __cplusplus
extern "C" {
#endif

#ifndef ARROW_C_DATA_INTERFACE
#define ARROW_C_DATA_INTERFACE

#define ARROW_FLAG_DICTIONARY_ORDERED 1
#define ARROW_FLAG_NULLABLE 2
#define ARROW_FLAG_MAP_KEYS_SORTED 4

struct ArrowSchema {
    /* Array type description */
    const char *format;
    const char *name;
    const char *metadata;
    int64_t flags;
    int64_t n_children;
    struct ArrowSchema **children;
    struct ArrowSchema *dictionary;

    /* Release callback */
    void (*release)(struct ArrowSchema *);
    /* Opaque producer-specific data */
    void *private_data;
};

struct ArrowArray {
    /* Array data description */
    int64_t length;
    int64_t null_count;
    int64_t offset;
    int64_t n_buffers;
    int64_t n_children;
    const void **buffers;
    struct ArrowArray **children;
    struct ArrowArray *dictionary;

    /* Release callback */
    void (*release)(struct ArrowArray *);
    /* Opaque producer-specific data */
    void *private_data;
};

#endif /* ARROW_C_DATA_INTERFACE */

#ifndef ARROW_C_STREAM_INTERFACE
#define ARROW_C_STREAM_INTERFACE

struct ArrowArrayStream {
    /* Callbacks providing stream functionality */
    int (*get_schema)(struct ArrowArrayStream *, struct ArrowSchema *out);
    int (*get_next)(struct ArrowArrayStream *, struct ArrowArray *out);
    const char *(*get_last_error)(struct ArrowArrayStream *);

    /* Release callback */
    void (*release)(struct ArrowArrayStream *);

    /* Opaque producer-specific data */
    void *private_data;
};

#endif /* ARROW_C_STREAM_INTERFACE */

/* ---- flags ---- */

/* Export: byte strings as UTF-8 strings ("u" / "U") instead of binary; bytes
 * that are not well-formed UTF-8 are then QEL_ARROW_ERR_UTF8.
 */
#define QEL_ARROW_UTF8 0x1u
/* Export: caller values go along, as uint64 ("L") arrays of the same shape
 * as the values they belong to: a member `m` of numbers or strings gets a
 * sibling child named "m.buf" right after it (a list with the same offsets
 * when `m` is multi); a top-level array of numbers or strings (full, light
 * or column set) becomes a struct of two children, "value" and "value.buf".
 * Records' own caller values are not exported.
 * Import: such "m.buf" children and such a two-child struct set the caller
 * values of what they belong to (without the flag they are unknown
 * members, and a struct is no number array).
 */
#define QEL_ARROW_CALLER_VALUES 0x2u
/* Import: a null leaves what it lands on fresh: a member keeps the value its
 * record was made with, an element of an array is 0, the empty string or a
 * record made for it (without the flag: QEL_ARROW_ERR_NULL).
 */
#define QEL_ARROW_SKIP_NULLS 0x4u
/* Import: a double read into a float is rounded to the nearest float (ties to
 * even). Without it only doubles a float holds exactly are read into floats
 * (others: QEL_ARROW_ERR_RANGE); a NaN is always taken as a NaN.
 */
#define QEL_ARROW_ROUND_FLOATS 0x8u
/* Import: a struct child whose name neither a member of the record nor its
 * schema has is skipped (without it: QEL_ARROW_ERR_UNKNOWN).
 */
#define QEL_ARROW_SKIP_UNKNOWN 0x10u

/* Export: an array that is not a struct already (numbers, strings, a column
 * set's lists) becomes the one child, "value", of a struct: a table, which
 * is what engines scan (DuckDB's duckdb_arrow_array_scan, record batches).
 */
#define QEL_ARROW_TABLE 0x20u

/* ---- error codes (0 is success) ---- */

#define QEL_ARROW_OK 0
#define QEL_ARROW_ERR_SHAPE 1   /* export: a value Arrow cannot carry (single form, a member of another code or form) */
#define QEL_ARROW_ERR_UTF8 2    /* export with QEL_ARROW_UTF8: bytes that are not UTF-8 */
#define QEL_ARROW_ERR_INVALID 3 /* import: the input breaks the interface's rules (buffers, lengths, offsets) */
#define QEL_ARROW_ERR_TYPE 4    /* import: a column of a format its destination cannot take */
#define QEL_ARROW_ERR_NULL 5    /* import: a null, without QEL_ARROW_SKIP_NULLS */
#define QEL_ARROW_ERR_RANGE 6   /* import: a value its destination cannot hold exactly */
#define QEL_ARROW_ERR_UNKNOWN 7 /* import: a struct child the record has no member for */
#define QEL_ARROW_ERR_STREAM 8  /* a stream callback failed, or a chunk's schema differs from the stream's */

/* Deepest nesting of struct and list columns that the importer accepts. */
#define QEL_ARROW_MAX_DEPTH 256

/* Where and why an export or import failed. */
typedef struct qel_arrow_error {
    int code;          /* QEL_ARROW_OK or one of QEL_ARROW_ERR_* */
    int64_t row;       /* top-level row (0-based, after the array's offset); -1 when none */
    char path[128];    /* field path: member names joined by '.', "" for the top level */
    char message[200]; /* e.g. row 12, column "child.y": expected a double, found "u" */
} qel_arrow_error;

/* Exports a full variant in the multi form (see the mapping above) into
 * *schema and *array, which the caller releases through their release
 * callbacks; they free everything the export made. Returns QEL_ARROW_OK, or
 * an error code with *schema and *array marked released (release NULL) and
 * *err (when not NULL) saying where and why. Nothing of `v` is kept. Flags:
 * QEL_ARROW_UTF8, QEL_ARROW_CALLER_VALUES, QEL_ARROW_TABLE.
 */
QEL_API int qel_arrow_export_var(const qel_var *v, unsigned flags, struct ArrowSchema *schema, struct ArrowArray *array,
                                 qel_arrow_error *err);

/* Exports a light variant as an Arrow array.
 * As qel_arrow_export_var, for a light variant of codes 1 to 5 (a single one
 * becomes an array of one value). Another code: QEL_ARROW_ERR_SHAPE.
 */
QEL_API int qel_arrow_export_xvar(const qel_xvar *x, unsigned flags, struct ArrowSchema *schema,
                                  struct ArrowArray *array, qel_arrow_error *err);

/* Exports a column set as an Arrow array.
 * As qel_arrow_export_var, for a column set of codes 1 to 5: in the multi
 * form a list array with one list per entry, in the single form an array of
 * one value per entry. Another code: QEL_ARROW_ERR_SHAPE.
 */
QEL_API int qel_arrow_export_xvars(const qel_xvars *xs, unsigned flags, struct ArrowSchema *schema,
                                   struct ArrowArray *array, qel_arrow_error *err);

/* A stream over a record array (or any array qel_arrow_export_var takes), in
 * chunks of `chunk_rows` rows (the last may be shorter; 0 or less: one chunk
 * of all rows). The schema is exported and checked now (an error is returned
 * as by qel_arrow_export_var, with out->release NULL); each get_next then
 * exports the next rows of `v` as they are at that moment, so `v` must stay
 * alive and unchanged until the stream is released or its last chunk was
 * taken (get_next then gives a released array: the end). Chunks are copies
 * the consumer releases on its own, before or after the stream. The schema
 * get_schema gives is the stream's own, borrowed: valid until the stream is
 * released, and releasing it only marks it released (so a consumer that
 * never releases it, as DuckDB's scan, leaks nothing). A chunk that
 * fails (for instance bytes that are not UTF-8) or whose schema differs from
 * the stream's makes get_next return EINVAL, with get_last_error saying why.
 */
QEL_API int qel_arrow_export_stream(const qel_var *v, int64_t chunk_rows, unsigned flags, struct ArrowArrayStream *out,
                                    qel_arrow_error *err);

/* Reads `array`, described by `schema`, into `dst`, a full variant in the
 * multi form whose elements become the array's rows, and returns
 * QEL_ARROW_OK or an error code. On any error `dst` is exactly as before and
 * *err (when not NULL) names the field path, the top-level row and the
 * reason; on success err->code is 0.
 *
 * - Every number code takes every number column ("c" "C" "s" "S" "i" "I"
 *   "l" "L" "f" "g", and "b" as 0 and 1) whose value it holds exactly: codes
 *   1, 2, 3, 9 whole numbers 0 .. 2^32 - 1, code 4 whole numbers of int64,
 *   floats and doubles the numbers they represent (a double into a float
 *   is rounded with QEL_ARROW_ROUND_FLOATS; a NaN stays a NaN). Otherwise
 *   QEL_ARROW_ERR_RANGE.
 * - Byte-string codes take "z" "Z" "u" "U" "vz" "vu" (the bytes as they are).
 * - A dictionary-encoded column (an index format with a dictionary, such as
 *   DuckDB's enums) is read as the dictionary's values.
 * - A single record takes a struct ("+s"): each child is matched by name with
 *   the record's members (a name the record lacks but its schema lists is
 *   created through the resolver, as qel_json_read creates it); members with
 *   no child keep the values the record was made with. Unknown names:
 *   QEL_ARROW_ERR_UNKNOWN or skipped (QEL_ARROW_SKIP_UNKNOWN).
 * - A multi member takes a list ("+l" "+L" "+w:n") of what its elements take.
 * - Rows of a record array are new records, made as
 *   qel_var_new_x(code, 0, context, resolver) makes them (without a resolver
 *   with the array's schema).
 * - Nulls: QEL_ARROW_ERR_NULL, or skipped (QEL_ARROW_SKIP_NULLS).
 * The array's offset, validity bitmaps, offsets and children are honoured.
 * Before reading, the input is checked as far as the interface allows:
 * formats, buffer and child counts, lengths and offsets not negative, the
 * children long enough for their parent, list and string offsets rising
 * within their child or data; views and dictionary indexes as they are read.
 * Nothing is read outside what those promise. The input is not released or
 * changed: it stays the caller's.
 */
QEL_API int qel_arrow_import(qel_var *dst, const struct ArrowSchema *schema, const struct ArrowArray *array,
                             void *context, qel_schema_resolver resolver, unsigned flags, qel_arrow_error *err);

/* Imports an Arrow stream, chunk by chunk.
 * As qel_arrow_import, for every chunk of a stream in order: the elements of
 * `dst` become the rows of all chunks. Each chunk taken from the stream is
 * released here; the stream itself stays the caller's (release it after).
 * A failing callback is QEL_ARROW_ERR_STREAM, with the stream's last error
 * in the message; `dst` is then as before.
 */
QEL_API int qel_arrow_import_stream(qel_var *dst, struct ArrowArrayStream *stream, void *context,
                                    qel_schema_resolver resolver, unsigned flags, qel_arrow_error *err);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* QEL_ARROW_H */
