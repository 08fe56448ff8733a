/*
 * qel_json.h - JSON text (RFC 8259) of full variants.
 *
 * qel_json_write appends the JSON text of any variant to a byte stream;
 * qel_json_read reads JSON into a variant whose type code, form and schema
 * say what the text must hold.  Numbers are written and read the same under
 * every C locale (the decimal point is always '.').  Caller values (`buf`)
 * are never written or read.
 *
 * How values map:
 *   codes 1, 2, 3, 9   unsigned integer 0 .. 4294967295
 *   code 4             signed integer
 *   codes 5, 6         number: the shortest text that reads back to the same
 *                      float or double (a float as a float: 0.1f is 0.1),
 *                      never a plain integer: a whole number gets ".0"
 *                      (-5.0, 0.0) below 10^18 and an exponent above (1e21),
 *                      so readers that tell integers from floats (Python's
 *                      json) read a float
 *   codes 7, 8         string (bytes must be UTF-8; JSON's escapes)
 *   single record      object, members in the record's member order
 *   multi form         array of the above (a record array: of objects)
 */
#ifndef QEL_JSON_H
#define QEL_JSON_H

#include <stdint.h>

#include <qel.h>

#ifdef __cplusplus
extern "C" {
#endif

/* ---- flags ---- */

/* Writing: one member or element per line, indented by two spaces per level,
 * with a space after each colon. Without it the text is compact: no
 * whitespace at all.
 */
#define QEL_JSON_INDENT 0x1u
/* Writing: a NaN or an infinity is written as null (without it: error
 * QEL_JSON_ERR_NONFINITE).
 */
#define QEL_JSON_NONFINITE_NULL 0x2u
/* Writing: each byte of a string or member name that is not part of valid
 * UTF-8 is written as \u00XX, the code point of the same number (without it:
 * error QEL_JSON_ERR_UTF8). Such text reads back as different bytes.
 */
#define QEL_JSON_ESCAPE_BYTES 0x4u
/* Reading: a member whose name the record neither has nor lists in its schema
 * is skipped (its value must still be valid JSON). Without it: error
 * QEL_JSON_ERR_UNKNOWN.
 */
#define QEL_JSON_SKIP_UNKNOWN 0x8u
/* Reading: every member that a record's schema lists must be named in the
 * record's object (error QEL_JSON_ERR_MISSING at the object's closing brace,
 * naming the first member missing). Without it absent members keep their
 * values.
 */
#define QEL_JSON_REQUIRE_MEMBERS 0x10u
/* Reading: null is an error wherever it stands (QEL_JSON_ERR_NULL), also
 * inside members skipped by QEL_JSON_SKIP_UNKNOWN. Without it null leaves a
 * value as it is.
 */
#define QEL_JSON_REJECT_NULL 0x20u

/* ---- error codes (0 is success) ---- */

#define QEL_JSON_OK 0
#define QEL_JSON_ERR_NONFINITE 1 /* write: a NaN or infinity */
#define QEL_JSON_ERR_UTF8 2      /* write: a string or name is not UTF-8; read: the text is not */
#define QEL_JSON_ERR_SYNTAX 3    /* read: not JSON, or more than one value */
#define QEL_JSON_ERR_TYPE 4      /* read: a value of the wrong kind for its destination */
#define QEL_JSON_ERR_RANGE 5     /* read: a number its destination cannot hold exactly */
#define QEL_JSON_ERR_UNKNOWN 6   /* read: a member the record does not have */
#define QEL_JSON_ERR_DEPTH 7     /* read: arrays and objects nested deeper than QEL_JSON_MAX_DEPTH */
#define QEL_JSON_ERR_STRING 8    /* read: a bad escape, a lone surrogate or a raw control character */
#define QEL_JSON_ERR_MISSING 9   /* read: a schema member absent (QEL_JSON_REQUIRE_MEMBERS) */
#define QEL_JSON_ERR_NULL 10     /* read: null (QEL_JSON_REJECT_NULL) */

/* Deepest nesting of arrays and objects that qel_json_read accepts. */
#define QEL_JSON_MAX_DEPTH 1000

/* Where and why a read failed. */
typedef struct qel_json_error {
    int code;          /* QEL_JSON_OK or one of QEL_JSON_ERR_* */
    int64_t offset;    /* byte offset in the text (0-based) */
    int64_t line;      /* 1-based; lines end at '\n' */
    int64_t column;    /* 1-based, in bytes */
    char message[200]; /* e.g. line 3, column 14: expected a number for
                          member "score", found a string */
} qel_json_error;

/* The message of `err` without its "line L, column C: " prefix (the cause
 * alone, e.g. expected a number for member "score", found a string), so that
 * a program can put the place in its own form (FILE:LINE:COL: cause). It
 * points into err->message; "" when err is NULL or holds no error.
 */
QEL_API const char *qel_json_error_cause(const qel_json_error *err);

/* Appends the JSON text of `v` to `out` and returns QEL_JSON_OK, or returns
 * an error code with nothing appended (`out` keeps its length): a NaN or an
 * infinity (QEL_JSON_ERR_NONFINITE) or bytes that are not UTF-8
 * (QEL_JSON_ERR_UTF8), unless the flags say otherwise. A record's members are
 * written in its member order (the order they were created in), each once;
 * strings escape '"', '\\' and the control characters. Any nesting the
 * library can build is written (no recursion). `out` must be initialised
 * (qel_stream_init); flags: QEL_JSON_INDENT, QEL_JSON_NONFINITE_NULL,
 * QEL_JSON_ESCAPE_BYTES.
 */
QEL_API int qel_json_write(const qel_var *v, qel_stream *out, unsigned flags);

/* Reads one JSON value from `len` bytes of `text` (a negative len measures it
 * with strlen; NULL counts as empty) into `dst`, whose type code, form and
 * schema say what the text must hold, and returns QEL_JSON_OK or an error
 * code. On any error `dst` is exactly as before and *err (when err is not
 * NULL) holds the code, the byte offset, line and column, and a message
 * naming what was expected and what was found; on success err->code is 0.
 *
 * - A number code takes a number: an integer code only one it holds exactly
 *   (1.5 into code 4, -1 or 4294967296 into code 1 are QEL_JSON_ERR_RANGE;
 *   1e2 and 2.0 are integers), a double the nearest double and a float the
 *   nearest float (ties to even; beyond the finite range: QEL_JSON_ERR_RANGE).
 * - A string code takes a string, decoded to its UTF-8 bytes (escapes and
 *   surrogate pairs; a lone surrogate is QEL_JSON_ERR_STRING).
 * - A single record takes an object. Each member is matched by name with the
 *   record's members; a name the record lacks but its schema lists is created
 *   as qel_var_new_x(type, multi, context, resolver) would create it. Members
 *   absent from the text keep their values; of duplicate names the last one
 *   is read last. Unknown names: QEL_JSON_ERR_UNKNOWN or skipped
 *   (QEL_JSON_SKIP_UNKNOWN).
 * - The multi form takes an array, whose elements replace the old ones; a
 *   record array gets one new element per object, made as
 *   qel_var_new_x(code, 0, context, resolver) would make it (without a
 *   resolver its schema is the array's).
 * - null leaves a value as it is (not allowed as an array element);
 *   QEL_JSON_REJECT_NULL makes every null an error (QEL_JSON_ERR_NULL).
 * - QEL_JSON_REQUIRE_MEMBERS: a member the record's schema lists but the
 *   object does not name is an error (QEL_JSON_ERR_MISSING).
 * - Nesting deeper than QEL_JSON_MAX_DEPTH: QEL_JSON_ERR_DEPTH.
 * Only RFC 8259 JSON is accepted: one value, optionally surrounded by
 * whitespace; the text must be UTF-8. Pointers borrowed from `dst` (members,
 * elements, strings) are invalid after a successful read. Flags:
 * QEL_JSON_SKIP_UNKNOWN, QEL_JSON_REQUIRE_MEMBERS, QEL_JSON_REJECT_NULL.
 */
QEL_API int qel_json_read(qel_var *dst, const char *text, int64_t len, void *context, qel_schema_resolver resolver,
                          unsigned flags, qel_json_error *err);

#ifdef __cplusplus
} /* extern "C" */
#endif

#endif /* QEL_JSON_H */
