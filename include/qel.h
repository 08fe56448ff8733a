/*
 * qel.h - dynamically typed values: the full variant (qel_var), schemas,
 * the light variant (qel_xvar) and the column set (qel_xvars).
 *
 * Every object is made by the caller through the library and freed through
 * its family's free function.  No function reports errors: an operation on a
 * value of the wrong type code or form does nothing, and a read then gives a
 * neutral result (0, 0.0, a NULL string of length 0, NULL, or -1 for
 * searches).  No function accepts a NULL object unless its comment says so.
 *
 * Full variant type codes and storage classes:
 *   1, 2, 3, 9  32-bit integer, read back unsigned     (32-bit class)
 *   5           single float                           (32-bit class)
 *   4           signed 64-bit integer                  (64-bit class)
 *   6           double                                 (64-bit class)
 *   7, 8        byte string                            (byte-string class)
 *   0, 10..     record of named members from a schema  (record class)
 * Light variant and column set type codes:
 *   1 unsigned 32-bit, 2 signed 64-bit, 3 float, 4 double, 5 byte string.
 *
 * `multi` 0 is the single form; any other byte is the array form.  The byte
 * is stored as given, and re-forming operations compare the whole byte.
 * A negative string length means "measure with strlen" (NULL then counts as
 * length 0) wherever a function's comment says it measures.
 */
#ifndef QEL_H
#define QEL_H

#include <stddef.h>
#include <stdint.h>

#include <qel_std.h>
#include <qel_version.h>

#ifdef __cplusplus
extern "C" {
#endif

/* A schema lists a record's members: name, type code and multi byte. */
typedef qel_array qel_schema;

/* Maps a record type code to its schema while records are built. */
typedef qel_schema *(*qel_schema_resolver)(void *context, uint32_t type);

/* ---- records ---- */

typedef struct qel_var {
    uint32_t type;
    uint8_t multi;
    qel_schema *schema; /* not owned */
    union {
        uint32_t bits32;   /* single 32-bit class: integer bits or float bits */
        uint64_t bits64;   /* single 64-bit class: integer bits or double bits */
        qel_stream stream; /* single byte string */
        qel_hash members;  /* single record: name -> owned qel_var * */
        qel_arrayd arrayd; /* multi 32-bit class */
        qel_arrayx arrayx; /* multi 64-bit class */
        qel_array array;   /* multi byte-string class */
        qel_arrays vars;   /* multi record class: owned qel_var * */
    } data;
    uint64_t buf; /* caller value of a single variant */
} qel_var;

typedef struct qel_xvar {
    uint32_t type;
    uint8_t multi;
    union {
        struct {
            union {
                uint32_t bits32;   /* types 1 and 3 */
                uint64_t bits64;   /* types 2 and 4 */
                qel_string string; /* type 5 */
            } value;
            uint64_t buf;
        } single;
        qel_arrayd arrayd; /* multi, types 1 and 3 */
        qel_arrayx arrayx; /* multi, types 2 and 4 */
        qel_array array;   /* multi, type 5 */
    } data;
} qel_xvar;

typedef struct qel_xvars {
    uint32_t type;
    uint8_t multi;
    qel_arrayd index; /* per entry: value = start, buf = count */
    union {
        qel_arrayd arrayd; /* types 1 and 3 */
        qel_arrayx arrayx; /* types 2 and 4 */
        qel_array array;   /* type 5 */
    } data;
} qel_xvars;

/* ---- full variant: lifecycle ---- */

/* A new full variant of this type code and multi byte, with no schema: a
 * single number reads 0, a single string is empty, an array is empty, and a
 * single record has no members (it has no schema to take them from). Never
 * NULL; the caller owns it and frees it with qel_var_free.
 */
QEL_API qel_var *qel_var_new(uint32_t type, uint8_t multi);

/* A new full variant whose schema is resolver(context, type), or `context`
 * itself when resolver is NULL. A single record then gets one member per
 * schema entry, in schema order, each built by qel_var_new_x with its own type
 * code and multi byte and the same context and resolver, so the resolver is
 * called depth first: the record, member 0, member 0's members, then member 1.
 * Every member's schema is what the resolver gave for its code. A record array
 * only keeps the schema for the elements qel_var_add_new makes later; other
 * codes just store it. A single-record member whose schema is already being
 * built further up the same path is created without members, and nesting stops
 * at 256 levels, so construction always ends. Never NULL; the caller owns the
 * result. The schema is not owned: it must outlive the variant.
 */
QEL_API qel_var *qel_var_new_x(uint32_t type, uint8_t multi, void *context, qel_schema_resolver resolver);

/* Re-forms the variant to this type code and multi byte. When both already
 * match exactly (the whole multi byte is compared, so 1 and 2 differ) nothing
 * happens and the contents stay. Otherwise the old contents, members and
 * elements are freed and the variant starts fresh as qel_var_new would make
 * it, except that the schema stays: a single record re-formed this way gets
 * the members its schema lists (their own schemas NULL). The caller value
 * becomes 0.
 */
QEL_API void qel_var_change(qel_var *var, uint32_t type, uint8_t multi);

/* Re-forms a variant, its schema as qel_var_new_x takes it.
 * As qel_var_change, with the schema taken as in qel_var_new_x: when type code
 * and multi byte already match nothing happens and the resolver is not called;
 * otherwise the contents are freed, the schema becomes resolver(context, type)
 * (or context), and a single record's members are built with the resolver,
 * depth first.
 */
QEL_API void qel_var_change_x(qel_var *var, uint32_t type, uint8_t multi, void *context, qel_schema_resolver resolver);

/* Frees the variant with everything it owns: its storage, every member of a
 * record and every element of a record array, recursively. Not its schema. The
 * argument must be a variant (NULL is not accepted).
 */
QEL_API void qel_var_free(qel_var *var);

/* The type code. */
QEL_API uint32_t qel_var_type(const qel_var *var);

/* The multi byte read as a signed 8-bit number: 0 for the single form, nonzero
 * for an array (a variant made with multi 0xFF reports -1).
 */
QEL_API int qel_var_multi(const qel_var *var);

/* The element count of an array; 0 for every single variant, whatever it holds
 * (a single string reports 0, not its length; a single record 0, not its
 * member count).
 */
QEL_API int64_t qel_var_size(const qel_var *var);

/* The schema pointer as stored (possibly NULL). Borrowed: the variant does not
 * own it.
 */
QEL_API qel_schema *qel_var_schema(const qel_var *var);

/* ---- full variant: numbers ---- */

/* Array form only: appends the value, converted to the stored kind, as a new
 * last element with caller value 0: codes 1, 2, 3, 9 store its low 32 bits
 * (read back unsigned, so -1 reads 4294967295), code 4 the value, codes 5 and
 * 6 the nearest float or double (ties to even). On a single variant, a string
 * or a record nothing happens.
 */
QEL_API void qel_var_add_integer(qel_var *var, int64_t value);

/* Appends a 64-bit integer to an array.
 * The same as qel_var_add_integer: appends a signed 64-bit value to an array.
 */
QEL_API void qel_var_add_long(qel_var *var, int64_t value);

/* Appends a float to an array.
 * As qel_var_add_integer, for a float: codes 1, 2, 3, 9 and 4 store it
 * truncated toward zero (NaN or out of range: INT64_MIN, whose low 32 bits are
 * 0), code 5 unchanged, code 6 widened exactly.
 */
QEL_API void qel_var_add_float(qel_var *var, float value);

/* Appends a double to an array.
 * As qel_var_add_integer, for a double: codes 1, 2, 3, 9 and 4 store it
 * truncated toward zero (NaN or out of range: INT64_MIN, whose low 32 bits are
 * 0), code 5 the nearest float (an infinity beyond the float range), code 6
 * unchanged.
 */
QEL_API void qel_var_add_double(qel_var *var, double value);

/* Replaces the value of a single numeric variant (index ignored, caller value
 * kept) or element `index` of a numeric array (an index outside the array
 * writes nothing; the element's caller value becomes 0). The value is
 * converted as qel_var_add_integer converts it: -1 into code 1 reads back
 * 4294967295. On a string or a record nothing happens.
 */
QEL_API void qel_var_set_integer(qel_var *var, int64_t index, int64_t value);

/* Replaces a value with a 64-bit integer.
 * The same as qel_var_set_integer.
 */
QEL_API void qel_var_set_long(qel_var *var, int64_t index, int64_t value);

/* Replaces a value with a float.
 * As qel_var_set_integer, for a float (converted as by qel_var_add_float).
 */
QEL_API void qel_var_set_float(qel_var *var, int64_t index, float value);

/* Replaces a value with a double.
 * As qel_var_set_integer, for a double (converted as by qel_var_add_double).
 */
QEL_API void qel_var_set_double(qel_var *var, int64_t index, double value);

/* The value of a single numeric variant (index ignored) or element `index` of
 * a numeric array, as a signed 64-bit integer: codes 1, 2, 3, 9 read back
 * unsigned (0 to 4294967295), code 4 as stored, floats and doubles truncated
 * toward zero (a NaN or out-of-range value gives INT64_MIN). 0 for an index
 * outside the array, a string or a record.
 */
QEL_API int64_t qel_var_get_integer(const qel_var *var, int64_t index);

/* Reads a value as a 64-bit integer.
 * The same as qel_var_get_integer.
 */
QEL_API int64_t qel_var_get_long(const qel_var *var, int64_t index);

/* Reads a value as a float.
 * As qel_var_get_integer, as a float: integers rounded to the nearest float
 * (ties to even), a double to the nearest float. 0.0 for an index outside the
 * array, a string or a record.
 */
QEL_API float qel_var_get_float(const qel_var *var, int64_t index);

/* Reads a value as a double.
 * As qel_var_get_integer, as a double: 32-bit integers and floats exactly,
 * 64-bit integers to the nearest double. 0.0 for an index outside the array, a
 * string or a record.
 */
QEL_API double qel_var_get_double(const qel_var *var, int64_t index);

/* ---- full variant: strings and variant-to-variant ---- */

/* Array of codes 7 or 8 only: appends a copy of `length` bytes of `text`
 * (which may hold zero bytes) as a new last element with caller value 0. A
 * negative length measures `text` with strlen (NULL: length 0). On a single
 * variant or another code nothing happens.
 */
QEL_API void qel_var_add_string(qel_var *var, const char *text, int64_t length);

/* Codes 7 and 8 only: replaces the bytes of a single string (index ignored,
 * caller value kept) or of element `index` of an array (outside the array:
 * nothing; the element's caller value becomes 0) with a copy of `length` bytes
 * of `text`. A negative length measures with strlen (NULL: length 0). The
 * bytes may come from this variant's own storage. Other codes: nothing.
 */
QEL_API void qel_var_set_string(qel_var *var, int64_t index, const char *text, int64_t length);

/* Stores in *text_out and *length_out the bytes of a single string (index
 * ignored) or of element `index` of an array of codes 7 or 8. Nothing is
 * copied and the bytes are not terminated: the pointer is borrowed and valid
 * until the variant is next changed or freed. Other codes, and an index
 * outside the array, give NULL and 0.
 */
QEL_API void qel_var_get_string(const qel_var *var, int64_t index, const char **text_out, int64_t *length_out);

/* Appends the value of a single `src`, or all elements of an array `src` (with
 * their caller values), to the array `dst`, unchanged. Nothing happens when
 * `dst` is single, when the type codes differ (exactly: code 1 and code 2
 * differ), or for records. `src` may be `dst`.
 */
QEL_API void qel_var_add_var(qel_var *dst, const qel_var *src);

/* Stores the first value of `src` (its single value, or its element 0) into
 * element `index` of the array `dst`, or into a single `dst` (index ignored).
 * Nothing happens when the type codes differ or for records.
 */
QEL_API void qel_var_set_var(qel_var *dst, int64_t index, const qel_var *src);

/* Makes `dst` a single variant of src's type code holding the value of a
 * single `src` (index ignored) or element `index` of an array `src`; strings
 * are copied. `dst` is re-formed first (its contents freed, its schema kept)
 * unless it already is a single variant of that code. For records only the re-
 * forming happens. Source first, destination last.
 */
QEL_API void qel_var_get_var(const qel_var *src, int64_t index, qel_var *dst);

/* ---- full variant: deep copy and append ---- */

/* Makes `dst` a deep copy of `src`. When the type codes or the multi bytes
 * differ, `dst` is first freed and re-formed with src's type, multi byte and
 * schema (a single record then gets its schema's members); when they agree,
 * `dst` keeps its own schema. Single values are copied with their caller
 * value; arrays entry by entry with their caller values; records member by
 * member by name (a member of `dst` that `src` lacks stays; a missing one is
 * created); record arrays element by element, `dst` ending with exactly src's
 * elements. `src` may be `dst`. `src` is not changed and nothing of it is
 * shared.
 */
QEL_API void qel_var_copy(qel_var *dst, const qel_var *src);

/* Makes `dst` an array of src's type code and appends src's value (single
 * `src`) or elements (array `src`), in order, without their caller values.
 * When the codes differ or `dst` is single, `dst` is first freed and re-formed
 * as an empty array (multi 1, src's schema): a single `dst` loses its value.
 * Records are appended as new elements, each a deep copy (qel_var_copy) of a
 * single `src` or of each element of an array `src`. `src` may be `dst` (an
 * array then doubles).
 */
QEL_API void qel_var_append(qel_var *dst, const qel_var *src);

/* ---- schemas ---- */

/* A new, empty schema. Never NULL; the caller owns it and frees it with
 * qel_var_schema_free after every variant that refers to it.
 */
QEL_API qel_schema *qel_var_schema_new(void);

/* Frees a schema and its member names. NULL does nothing. Variants still
 * referring to it must not be used afterwards.
 */
QEL_API void qel_var_schema_free(qel_schema *schema);

/* Names are never measured: pass the name's exact length (-1 adds nothing;
 * the C++ layer passes it for you). Appends a member: `length` bytes of
 * `name`, its type code (only the low 16 bits are kept) and multi byte.
 * Members keep the order in which they were added; names are not checked for
 * uniqueness. NULL schema: nothing. Changing a schema affects only records
 * built afterwards.
 */
QEL_API void qel_var_schema_add(qel_schema *schema, const char *name, int64_t length, uint32_t type, uint8_t multi);

/* The index of the first member named exactly `length` bytes of `name`,
 * storing its type code in *type_out and its multi byte in *multi_out; -1
 * without a match, outputs untouched.
 */
QEL_API int qel_var_schema_find(const qel_schema *schema, const char *name, int64_t length, uint32_t *type_out,
                                uint8_t *multi_out);

/* The number of members. */
QEL_API int64_t qel_var_schema_size(const qel_schema *schema);

/* Changes the type code (low 16 bits) and multi byte of member `index`,
 * keeping its name. An index outside 0 .. size-1 does nothing.
 */
QEL_API void qel_var_schema_set_at(qel_schema *schema, int64_t index, uint32_t type, uint8_t multi);

/* Member `index`: *name_out and *length_out get its name (borrowed from the
 * schema, not terminated), *type_out and *multi_out its type code and multi
 * byte. An index outside 0 .. size-1 gives NULL and 0 and leaves the type and
 * multi outputs untouched; so does a member of type 0 and multi 0 for those
 * two outputs.
 */
QEL_API void qel_var_schema_get_at(const qel_schema *schema, int64_t index, const char **name_out, int64_t *length_out,
                                   uint32_t *type_out, uint8_t *multi_out);

/* ---- full variant: capacity and reset ---- */

/* Reserves room: an array gets a capacity of at least n entries in all, a
 * single string of at least n bytes. The contents stay. Single numbers and
 * records: nothing.
 */
QEL_API void qel_var_expand(qel_var *var, int64_t n);

/* Clears a single value: a number becomes 0 (all bits zero), a single string
 * becomes empty (its allocated bytes zeroed). Arrays and records: nothing. The
 * caller value stays.
 */
QEL_API void qel_var_zero(qel_var *var);

/* Cuts the storage. An array with n = 0 is emptied; with n > 0 its count
 * becomes the smaller of n and its capacity (nothing is freed; a count raised
 * this way exposes what those entries held when last in use, or zeros where
 * they never were). A record array frees all its
 * elements, whatever n. A single number becomes 0; a single string is cut to
 * at most n bytes; a single record frees all its members (their names stay,
 * with no member). A negative n changes nothing. The caller value stays.
 */
QEL_API void qel_var_shrink(qel_var *var, int64_t n);

/* Removes leading and trailing ASCII whitespace from a single byte string, in
 * place. Anything else: nothing.
 */
QEL_API void qel_var_trim(qel_var *var);

/* ---- full variant: sort, search, compare ---- */

/* Sorts an array in place, ascending for a nonzero flag and descending for 0;
 * every caller value moves with its value. Codes 1, 2, 3, 9 order as unsigned
 * 32-bit integers and code 4 as signed 64-bit integers (stable), codes 7 and 8
 * bytewise with a shorter prefix first (stable); floats and doubles (5, 6)
 * compare as numbers by the library's quicksort, which is not stable and
 * leaves NaNs where its steps put them. That order is fixed, and so is the
 * quicksort's worst case: quadratic time for input built against its median
 * of three pivot (seconds for 10^5 values), n log n otherwise. Single
 * variants and records: nothing.
 */
QEL_API void qel_var_qsort(qel_var *var, int flag);

/* The lowest index of an array entry holding `key`, or -1: a linear search,
 * except that once a keyed adder has run, a key present is found in O(1) for
 * as long as the array changes only through keyed adders, appends and caller
 * values (a count by key: add_x, then find, then set_buf).
 * The key is read in the stored width: a uint32_t for codes 1, 2, 3, 9, a
 * float for 5, an int64_t for 4, a double for 6 (floats and doubles are
 * matched by bit pattern, so -0.0 does not find +0.0), and `len` bytes at
 * `key` for 7 and 8 (len is not measured; a negative len finds nothing). -1
 * for a single variant and for records, without reading `key`.
 */
QEL_API int64_t qel_var_find(const qel_var *var, const void *key, int64_t len);

/* Finds an entry by binary search.
 * As qel_var_find, by binary search over an array sorted ascending
 * (qel_var_qsort with a nonzero flag). Floats and doubles are searched by bit
 * pattern, which agrees with their numeric order only while no value is
 * negative.
 */
QEL_API int64_t qel_var_bfind(const qel_var *var, const void *key, int64_t len);

/* Orders two variants: negative, 0 or positive as `a` comes before, with or
 * after `b`. First by multi byte (as signed 8-bit numbers: single, 0, orders
 * before multi 1 to 0x7F but after 0x80 to 0xFF), then by type code (the
 * difference taken in 32 bits and read as signed, so codes 2^31 or more apart
 * order in a cycle: 0 before 0x7FFFFFFF before 0xFFFFFFFE before 0; not a
 * total order), then by value: 32-bit and 64-bit integers as
 * unsigned numbers (so -1 orders after 1), floats and doubles as numbers (a
 * NaN compares equal to everything, -0.0 equal to +0.0), strings bytewise with
 * a shorter prefix first. Arrays compare element by element, a shorter prefix
 * first. Records compare equal whenever form and type code agree: members are
 * not compared.
 */
QEL_API int qel_var_cmp(const qel_var *a, const qel_var *b);

/* ---- full variant: keyed insertion ---- */

/* Keyed insert into an array: converts the value as qel_var_add_integer would,
 * and if no entry holds it yet appends one with caller value 0; returns the
 * caller value of the entry holding it (a copy). 0 on a single variant, a
 * string array or a record. Keys are unique and keep insertion order; set an
 * entry's caller value with qel_var_set_buf at the index qel_var_find gives.
 */
QEL_API uint64_t qel_var_add_integer_x(qel_var *var, int64_t value);

/* Keyed insert of a 64-bit integer.
 * The same as qel_var_add_integer_x.
 */
QEL_API uint64_t qel_var_add_long_x(qel_var *var, int64_t value);

/* Keyed insert of a float.
 * As qel_var_add_integer_x, for a float (converted as by qel_var_add_float;
 * float keys are bit patterns).
 */
QEL_API uint64_t qel_var_add_float_x(qel_var *var, float value);

/* Keyed insert of a double.
 * As qel_var_add_integer_x, for a double (converted as by qel_var_add_double;
 * double keys are bit patterns).
 */
QEL_API uint64_t qel_var_add_double_x(qel_var *var, double value);

/* Keyed insert of a byte string.
 * As qel_var_add_integer_x, for `len` bytes at `bytes` in an array of codes 7
 * or 8 (a negative len measures with strlen; NULL counts as length 0). 0, and
 * nothing changed, for a single variant (nothing is measured), for other codes
 * and for a string the array cannot take (NULL with a positive len, 4 GiB).
 */
QEL_API uint64_t qel_var_add_string_x(qel_var *var, const char *bytes, int64_t len);

/* ---- full variant: raw buffer access ---- */

/* Where the bytes of a single value are: the 4 or 8 bytes of a number inside
 * the variant itself (writing them changes the value), or a single string's
 * bytes. Borrowed, valid until the variant is next changed or freed. NULL for
 * arrays and records.
 */
QEL_API void *qel_var_buffer(qel_var *var);

/* Bytes allocated for a single value: 4 for codes 1, 2, 3, 5, 9; 8 for 4 and
 * 6; a single string's capacity. 0 for arrays and records.
 */
QEL_API int64_t qel_var_buf_size(const qel_var *var);

/* Bytes in use by a single value: 4 or 8 for numbers, a single string's
 * length. 0 for arrays and records.
 */
QEL_API int64_t qel_var_buf_len(const qel_var *var);

/* Sets a caller value: that of a single variant of any code (index ignored),
 * or that of entry `index` of a number or string array. A negative index means
 * the last entry in use; indexes up to the capacity (not the count) are
 * accepted, also on an empty array. A negative index on an empty array, an
 * index at or past the capacity, and record arrays: nothing.
 */
QEL_API void qel_var_set_buf(qel_var *var, int64_t index, uint64_t value);

/* The caller value that qel_var_set_buf with the same index would set; 0 where
 * it would do nothing.
 */
QEL_API uint64_t qel_var_get_buf(const qel_var *var, int64_t index);

/* ---- full variant: member shortcuts (record codes 10 and up) ---- */

/* Names are never measured: pass the name's exact length (-1 finds and makes
 * nothing; the C++ layer passes it for you). Single record of code 10 or
 * above: makes member `name` (len bytes) a deep copy of `src`, creating it
 * with src's code and form when absent. `src` must not be `var` or inside it; it is copied, never taken
 * over. Other codes and forms: nothing.
 */
QEL_API void qel_var_set_val(qel_var *var, const char *name, int64_t len, const qel_var *src);

/* Names are never measured: pass the name's exact length (-1 finds nothing;
 * the C++ layer passes it for you). Single record of code 10 or above: member
 * `name` (len bytes), borrowed and valid until the record is freed, re-formed
 * or shrunk; NULL when absent and for every other code or form (code 0
 * included). Never free it.
 */
QEL_API qel_var *qel_var_get_val(const qel_var *var, const char *name, int64_t len);

/* Record array of code 10 or above: appends a new single record of the array's
 * code and schema, with no members yet (qel_var_add_new_x makes them), and
 * returns it (borrowed: owned by the array). NULL, and nothing added, for
 * anything else.
 */
QEL_API qel_var *qel_var_add_new(qel_var *var);

/* Record array of code 10 or above: appends a new element that is a deep copy
 * of `src` (re-formed to src's code and form when they differ). `src` must not
 * be `var` or inside it. Anything else: nothing.
 */
QEL_API void qel_var_add_var_x(qel_var *var, const qel_var *src);

/* Code 10 or above: makes element `index` of a record array, or a single
 * record itself (index ignored), a deep copy of `src` (qel_var_copy). An index
 * with no element, and other codes: nothing. `src` must not be inside the
 * target.
 */
QEL_API void qel_var_set_var_x(qel_var *var, int64_t index, const qel_var *src);

/* Code 10 or above: element `index` of a record array, or a single record
 * itself (index ignored). Borrowed; NULL for an index with no element and for
 * other codes.
 */
QEL_API qel_var *qel_var_get_var_x(const qel_var *var, int64_t index);

/* ---- light variant ---- */

/* A new light variant of type code 1 to 5 (unsigned 32-bit, signed 64-bit,
 * float, double, byte string) and multi byte: a single value reading 0 or the
 * empty string, with caller value 0, or an empty array. Other codes are
 * accepted and hold nothing. Never NULL; the caller owns it and frees it with
 * qel_xvar_free.
 */
QEL_API qel_xvar *qel_xvar_new(uint32_t type, uint8_t multi);

/* Re-forms to this type code and multi byte. When both match exactly (1 and 2
 * differ) nothing happens; otherwise the contents and caller values are
 * dropped and the variant starts empty.
 */
QEL_API void qel_xvar_change(qel_xvar *v, uint32_t type, uint8_t multi);

/* Frees the light variant and its storage. NULL is not accepted. */
QEL_API void qel_xvar_free(qel_xvar *v);

/* Array: n = 0 empties it; n > 0 sets the count to the smaller of n and the
 * capacity (entries keep their caller values; a raised count exposes what
 * those entries held when last in use, or zeros where they never were); a negative n changes nothing. Single: a number
 * and its caller value become 0; a string is cut to at most n bytes and its caller value becomes 0. Other codes:
 * nothing.
 */
QEL_API void qel_xvar_shrink(qel_xvar *v, int64_t n);

/* The element count of an array of codes 1 to 5; 0 for a single variant and
 * for other codes.
 */
QEL_API int64_t qel_xvar_size(const qel_xvar *v);

/* The type code. */
QEL_API uint32_t qel_xvar_type(const qel_xvar *v);

/* The multi byte read as a signed 8-bit number (0xFF reports -1). */
QEL_API int qel_xvar_multi(const qel_xvar *v);

/* Array of codes 1 to 4 only: appends the value converted to the stored kind,
 * with caller value 0. Code 1 stores the low 32 bits (read back unsigned),
 * code 2 the value, codes 3 and 4 the nearest float or double; floats and
 * doubles going into codes 1 and 2 are truncated toward zero (a NaN or out-of-
 * range value gives INT64_MIN, whose low 32 bits are 0). A single variant or
 * another code: nothing.
 */
QEL_API void qel_xvar_add_integer(qel_xvar *v, int64_t value);

/* Appends a 64-bit integer to an array.
 * The same as qel_xvar_add_integer.
 */
QEL_API void qel_xvar_add_long(qel_xvar *v, int64_t value);

/* Appends a float to an array.
 * As qel_xvar_add_integer, for a float (code 4 widens it exactly).
 */
QEL_API void qel_xvar_add_float(qel_xvar *v, float value);

/* Appends a double to an array.
 * As qel_xvar_add_integer, for a double (code 3 stores the nearest float).
 */
QEL_API void qel_xvar_add_double(qel_xvar *v, double value);

/* Keyed insert into an array of codes 1 to 4: the value is converted as
 * qel_xvar_add_integer converts it and appended with caller value 0 unless an
 * entry already holds it; *buf_out gets the address of that entry's caller
 * value, to read or write at once. The address points into the array and is
 * valid until the array next grows, is emptied or freed. A single variant or
 * another code: *buf_out gets NULL.
 */
QEL_API void qel_xvar_add_integer_x(qel_xvar *v, int64_t value, uint64_t **buf_out);

/* Keyed insert of a 64-bit integer.
 * The same as qel_xvar_add_integer_x.
 */
QEL_API void qel_xvar_add_long_x(qel_xvar *v, int64_t value, uint64_t **buf_out);

/* Keyed insert of a float.
 * As qel_xvar_add_integer_x, for a float.
 */
QEL_API void qel_xvar_add_float_x(qel_xvar *v, float value, uint64_t **buf_out);

/* Keyed insert of a double.
 * As qel_xvar_add_integer_x, for a double.
 */
QEL_API void qel_xvar_add_double_x(qel_xvar *v, double value, uint64_t **buf_out);

/* Replaces a single value of codes 1 to 4 (index ignored, caller value kept)
 * or element `index` of an array (outside the array: nothing; the element's
 * caller value becomes 0), converted as qel_xvar_add_integer converts. Other
 * codes: nothing.
 */
QEL_API void qel_xvar_set_integer(qel_xvar *v, int64_t index, int64_t value);

/* Replaces a value with a 64-bit integer.
 * The same as qel_xvar_set_integer.
 */
QEL_API void qel_xvar_set_long(qel_xvar *v, int64_t index, int64_t value);

/* Replaces a value with a float.
 * As qel_xvar_set_integer, for a float.
 */
QEL_API void qel_xvar_set_float(qel_xvar *v, int64_t index, float value);

/* Replaces a value with a double.
 * As qel_xvar_set_integer, for a double.
 */
QEL_API void qel_xvar_set_double(qel_xvar *v, int64_t index, double value);

/* A single value (index ignored) or element `index` of an array, as a signed
 * 64-bit integer: code 1 reads back unsigned, code 2 as stored, floats and
 * doubles truncated toward zero (NaN or out of range: INT64_MIN). 0 for an
 * index outside the array and for codes other than 1 to 4.
 */
QEL_API int64_t qel_xvar_get_integer(const qel_xvar *v, int64_t index);

/* Reads a value as a 64-bit integer.
 * The same as qel_xvar_get_integer.
 */
QEL_API int64_t qel_xvar_get_long(const qel_xvar *v, int64_t index);

/* Reads a value as a float.
 * As qel_xvar_get_integer, as a float (nearest, ties to even). 0.0 where
 * qel_xvar_get_integer gives 0.
 */
QEL_API float qel_xvar_get_float(const qel_xvar *v, int64_t index);

/* Reads a value as a double.
 * As qel_xvar_get_integer, as a double (exact from codes 1 and 3, nearest from
 * code 2). 0.0 where qel_xvar_get_integer gives 0.
 */
QEL_API double qel_xvar_get_double(const qel_xvar *v, int64_t index);

/* Array of code 5 only: appends a copy of `length` bytes of `str` with caller
 * value 0 (a negative length measures with strlen; NULL counts as length 0). A
 * single variant (nothing measured) or another code: nothing.
 */
QEL_API void qel_xvar_add_string(qel_xvar *v, const char *str, int64_t length);

/* Keyed insert into an array of code 5: appends a copy of the bytes (measured
 * as by qel_xvar_add_string) unless an entry already holds them, and stores in
 * *buf_out the address of that entry's caller value, valid until the array
 * next grows, is emptied or freed. A single variant, another code, or a
 * string the array cannot take (4 GiB of pool): *buf_out gets NULL.
 */
QEL_API void qel_xvar_add_string_x(qel_xvar *v, const char *str, int64_t length, uint64_t **buf_out);

/* Code 5 only: replaces a single string (index ignored, caller value kept) or
 * element `index` of an array (outside the array: nothing; the element's
 * caller value becomes 0) with a copy of `length` bytes of `str` (negative:
 * measured with strlen; NULL counts as length 0). Other codes: nothing.
 */
QEL_API void qel_xvar_set_string(qel_xvar *v, int64_t index, const char *str, int64_t length);

/* Stores in *str_out and *length_out a single string (index ignored) or
 * element `index` of an array of code 5. Borrowed and not terminated: valid
 * until the light variant is next changed. Other codes and an index outside
 * the array give NULL and 0.
 */
QEL_API void qel_xvar_get_string(const qel_xvar *v, int64_t index, const char **str_out, int64_t *length_out);

/* Sets a caller value: that of a single variant of any code (index ignored),
 * or that of entry `index` of an array of codes 1 to 5. A negative index means
 * the last entry in use; indexes up to the capacity are accepted, also on an
 * empty array. A negative index on an empty array, an index at or past the
 * capacity, and other codes: nothing.
 */
QEL_API void qel_xvar_set_buf(qel_xvar *v, int64_t index, uint64_t value);

/* The caller value that qel_xvar_set_buf with the same index would set; 0
 * where it would do nothing.
 */
QEL_API uint64_t qel_xvar_get_buf(const qel_xvar *v, int64_t index);

/* ---- column set ---- */

/* A new, empty column set for light variants of type code 1 to 5 and this
 * multi byte. Other codes are accepted and never hold an entry. Never NULL;
 * the caller owns it and frees it with qel_xvars_free.
 */
QEL_API qel_xvars *qel_xvars_new(uint32_t type, uint8_t multi);

/* Re-forms to this type code and multi byte. When both match exactly nothing
 * happens; otherwise every entry is dropped.
 */
QEL_API void qel_xvars_change(qel_xvars *xs, uint32_t type, uint8_t multi);

/* Frees the column set, its index and its values. NULL is not accepted. */
QEL_API void qel_xvars_free(qel_xvars *xs);

/* Drops every entry; type code and form stay, and the next entry starts at
 * position 0.
 */
QEL_API void qel_xvars_shrink(qel_xvars *xs);

/* The number of entries. */
QEL_API int64_t qel_xvars_size(const qel_xvars *xs);

/* The type code. */
QEL_API uint32_t qel_xvars_type(const qel_xvars *xs);

/* The multi byte read as a signed 8-bit number (0xFF reports -1). */
QEL_API int qel_xvars_multi(const qel_xvars *xs);

/* Appends a copy of the light variant `x` as one new entry: its single value
 * (the caller value is not kept) or all its elements with their caller values
 * (an empty array makes an entry of no values). Nothing happens when x's type
 * code or multi byte (compared whole) differs from the column set's, for codes
 * outside 1 to 5, or when the column set would then hold 2^32 values or more,
 * or a string pool of 4 GiB or more.
 */
QEL_API void qel_xvars_add_var(qel_xvars *xs, const qel_xvar *x);

/* Copies entry `entry` into the light variant `x`, which must have the column
 * set's type code and multi byte: a single value replaces x's value (x's
 * caller value stays); an entry of n values replaces x's elements, which
 * become exactly those n with their caller values (string bytes are appended
 * behind what x's pool held). Nothing happens, to either side, for another
 * code or form or an entry outside 0 .. size-1.
 */
QEL_API void qel_xvars_fetch_var(const qel_xvars *xs, int64_t entry, qel_xvar *x);

/* The number of values of entry `entry` of a multi column set; 0 in the single
 * form (each entry holds one value) and for an entry outside 0 .. size-1.
 */
QEL_API int64_t qel_xvars_get_size(const qel_xvars *xs, int64_t entry);

/* Multi form, codes 1 to 4 only: appends the value, converted as
 * qel_xvar_add_integer converts it, with caller value 0, to the last entry
 * (`entry` = size - 1) or to a new entry (`entry` = size). Any other entry
 * number, the single form and other codes: nothing.
 */
QEL_API void qel_xvars_add_integer(qel_xvars *xs, int64_t entry, int64_t value);

/* Appends a 64-bit integer to an entry.
 * The same as qel_xvars_add_integer.
 */
QEL_API void qel_xvars_add_long(qel_xvars *xs, int64_t entry, int64_t value);

/* Appends a float to an entry.
 * As qel_xvars_add_integer, for a float.
 */
QEL_API void qel_xvars_add_float(qel_xvars *xs, int64_t entry, float value);

/* Appends a double to an entry.
 * As qel_xvars_add_integer, for a double.
 */
QEL_API void qel_xvars_add_double(qel_xvars *xs, int64_t entry, double value);

/* Replaces value `pos` of entry `entry` (pos ignored in the single form),
 * converted as qel_xvar_add_integer converts it; its caller value becomes 0.
 * An entry outside 0 .. size-1, a pos outside the entry, and codes other than
 * 1 to 4: nothing.
 */
QEL_API void qel_xvars_set_integer(qel_xvars *xs, int64_t entry, int64_t pos, int64_t value);

/* Replaces a value with a 64-bit integer.
 * The same as qel_xvars_set_integer.
 */
QEL_API void qel_xvars_set_long(qel_xvars *xs, int64_t entry, int64_t pos, int64_t value);

/* Replaces a value with a float.
 * As qel_xvars_set_integer, for a float.
 */
QEL_API void qel_xvars_set_float(qel_xvars *xs, int64_t entry, int64_t pos, float value);

/* Replaces a value with a double.
 * As qel_xvars_set_integer, for a double.
 */
QEL_API void qel_xvars_set_double(qel_xvars *xs, int64_t entry, int64_t pos, double value);

/* Value `pos` of entry `entry` (pos ignored in the single form) as a signed
 * 64-bit integer, converted as qel_xvar_get_integer converts. 0 for an entry
 * or pos out of range and for codes other than 1 to 4.
 */
QEL_API int64_t qel_xvars_get_integer(const qel_xvars *xs, int64_t entry, int64_t pos);

/* Reads a value as a 64-bit integer.
 * The same as qel_xvars_get_integer.
 */
QEL_API int64_t qel_xvars_get_long(const qel_xvars *xs, int64_t entry, int64_t pos);

/* Reads a value as a float.
 * As qel_xvars_get_integer, as a float; 0.0 where it gives 0.
 */
QEL_API float qel_xvars_get_float(const qel_xvars *xs, int64_t entry, int64_t pos);

/* Reads a value as a double.
 * As qel_xvars_get_integer, as a double; 0.0 where it gives 0.
 */
QEL_API double qel_xvars_get_double(const qel_xvars *xs, int64_t entry, int64_t pos);

/* Multi form, code 5 only: appends a copy of `len` bytes of `str` (negative:
 * measured with strlen; NULL counts as length 0), with caller value 0, to the
 * last entry (`entry` = size - 1) or to a new one (`entry` = size). Anything
 * else: nothing.
 */
QEL_API void qel_xvars_add_string(qel_xvars *xs, int64_t entry, const char *str, int64_t len);

/* Code 5 only: replaces string `pos` of entry `entry` (pos ignored in the
 * single form) with a copy of `len` bytes of `str` (negative: measured); its
 * caller value becomes 0. Out of range, or another code: nothing.
 */
QEL_API void qel_xvars_set_string(qel_xvars *xs, int64_t entry, int64_t pos, const char *str, int64_t len);

/* Stores in *str_out and *length_out string `pos` of entry `entry` (pos
 * ignored in the single form). Borrowed from the column set's pool, not
 * terminated, valid until the column set is next changed. NULL and 0 out of
 * range and for codes other than 5.
 */
QEL_API void qel_xvars_get_string(const qel_xvars *xs, int64_t entry, int64_t pos, const char **str_out,
                                  int64_t *length_out);

/* Multi form only: sets the caller value of value `pos` of entry `entry` (a
 * negative pos means the entry's last value), for codes 1 to 5. The single
 * form, an entry out of range, a pos outside the entry: nothing.
 */
QEL_API void qel_xvars_set_buf(qel_xvars *xs, int64_t entry, int64_t pos, uint64_t value);

/* The caller value that qel_xvars_set_buf with the same entry and pos would
 * set; 0 where it would do nothing (always in the single form).
 */
QEL_API uint64_t qel_xvars_get_buf(const qel_xvars *xs, int64_t entry, int64_t pos);

/* ========================================================================
 * Additions to the core interface: named type codes, deep equality, the
 * member walk of a record, elements built with their members, the sort by a
 * caller's order, and the version.  Nothing above depends on them.
 * ======================================================================== */

/* Full variant type codes, named for what they hold. Codes 2, 3 and 9 behave
 * exactly as QEL_VAR_UINT32, and 8 as QEL_VAR_BYTES; every code from
 * QEL_VAR_FIRST_RECORD up is a record whose layout a schema resolver gives.
 * The functions take the plain number (uint32_t).
 */
typedef enum qel_var_code {
    QEL_VAR_PLAIN_RECORD = 0, /* record storage, not served by the member shortcuts */
    QEL_VAR_UINT32 = 1,       /* 32-bit integer, read back unsigned */
    QEL_VAR_INT64 = 4,        /* signed 64-bit integer */
    QEL_VAR_FLOAT = 5,        /* single float */
    QEL_VAR_DOUBLE = 6,       /* double */
    QEL_VAR_BYTES = 7,        /* byte string */
    QEL_VAR_FIRST_RECORD = 10
} qel_var_code;

/* Light variant and column set type codes: numbered apart from the full
 * variant's (a double is QEL_VAR_DOUBLE = 6 there, QEL_XVAR_DOUBLE = 4 here),
 * so use these names with qel_xvar_* and qel_xvars_* only.
 */
typedef enum qel_xvar_code {
    QEL_XVAR_UINT32 = 1, /* unsigned 32-bit integer */
    QEL_XVAR_INT64 = 2,  /* signed 64-bit integer */
    QEL_XVAR_FLOAT = 3,  /* single float */
    QEL_XVAR_DOUBLE = 4, /* double */
    QEL_XVAR_BYTES = 5   /* byte string */
} qel_xvar_code;

/* 1 when `a` and `b` hold the same value, else 0: the same type code and the
 * same multi byte (compared whole), then single values equal as stored
 * (floats and doubles by bit pattern, so a NaN equals itself and -0.0 differs
 * from +0.0), strings byte for byte, arrays entry by entry with the same
 * count, single records member by member by name whatever the members' order
 * (the same names with a member, each pair equal), record arrays element by
 * element, nested as deep as the values go. Caller values and schema pointers
 * are not compared (compare qel_var_get_buf yourself where they matter). An
 * equivalence: reflexive, symmetric, transitive. Unlike qel_var_cmp, which
 * orders and takes any two records of one code and form as equal.
 */
QEL_API int qel_var_equal(const qel_var *a, const qel_var *b);

/* The number of entries of a single record's member hash, in O(1); 0 for
 * anything else. qel_var_size gives 0 for a single record.
 */
QEL_API int64_t qel_var_member_count(const qel_var *rec);

/* Entry `i` (0 .. qel_var_member_count - 1) of a single record's members, in
 * the hash's order (the order members were created), in O(1): the member,
 * with its name in *name and *name_len (borrowed from the record, not
 * terminated, valid until the record is next changed; either output may be
 * NULL). A name whose member was freed by qel_var_shrink gives its name and
 * NULL; a name listed twice by a schema appears twice, and qel_var_get_val
 * finds the later one. Out of range, or not a single record: NULL, and NULL
 * and 0 for the name.
 */
QEL_API qel_var *qel_var_member_at(const qel_var *rec, int64_t i, const char **name, int64_t *name_len);

/* Record array of code 10 or above: appends a new element made as
 * qel_var_new_x(code, 0, context, resolver) would make it, with the members
 * its schema lists (and theirs, nested), and returns it (borrowed: owned by
 * the array). qel_var_add_new makes an element without members. NULL, and
 * nothing added, for anything else. Without a resolver `context` is the
 * element's schema and every member's.
 */
QEL_API qel_var *qel_var_add_new_x(qel_var *var, void *context, qel_schema_resolver resolver);

/* The caller's order of two entries for qel_var_sort_by: greater than 0 when
 * `a` must come after `b`, else 0 or less (only that test is made).
 */
typedef int (*qel_var_compare)(const qel_var *a, const qel_var *b, void *context);

/* Sorts an array of any code stably by the caller's order: an entry moves
 * before an earlier one only when compare(earlier, later, context) > 0, so
 * equal entries keep their order; O(n log n) calls, one scratch block of n
 * entries. compare sees each entry whole as a single variant: for values, a
 * read-only view of the array's code and schema holding the entry's value
 * and caller value (read them with qel_var_get_* and qel_var_get_buf at index
 * 0; the view lives for the call); for a record array, the element itself
 * (members, own caller value). compare must not change the array. Caller
 * values move with their entries. The single form, and a NULL compare:
 * nothing. A record array's slots without an element (a count raised by
 * hand) go last, unseen by compare.
 */
QEL_API void qel_var_sort_by(qel_var *var, qel_var_compare compare, void *context);

/* QEL_VERSION of the library the program runs with (the headers it was
 * compiled with give QEL_VERSION; the two differ after an upgrade of the
 * library alone).
 */
QEL_API int qel_version(void);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* ---- layouts the interface fixes ---- */

/* Size of a record's member without an object (and without a C-style cast in C++). */
#if defined(__cplusplus)
#define QEL_MEMBER_SIZE(type, member) sizeof(type::member)
#else
#define QEL_MEMBER_SIZE(type, member) sizeof(((type *)0)->member)
#endif

QEL_STATIC_ASSERT(offsetof(qel_var, type) == 0, var_type_first);
QEL_STATIC_ASSERT(offsetof(qel_var, multi) == 4, var_multi_second);
QEL_STATIC_ASSERT(offsetof(qel_var, schema) < offsetof(qel_var, data), var_schema_before_data);
QEL_STATIC_ASSERT(offsetof(qel_var, data) < offsetof(qel_var, buf), var_data_before_buf);
QEL_STATIC_ASSERT(QEL_MEMBER_SIZE(qel_var, data) >= sizeof(qel_arrayd), var_data_holds_arrayd);
QEL_STATIC_ASSERT(QEL_MEMBER_SIZE(qel_var, data) >= sizeof(qel_arrayx), var_data_holds_arrayx);
QEL_STATIC_ASSERT(QEL_MEMBER_SIZE(qel_var, data) >= sizeof(qel_array), var_data_holds_array);
QEL_STATIC_ASSERT(QEL_MEMBER_SIZE(qel_var, data) >= sizeof(qel_arrays), var_data_holds_arrays);
QEL_STATIC_ASSERT(QEL_MEMBER_SIZE(qel_var, data) >= sizeof(qel_stream), var_data_holds_stream);
QEL_STATIC_ASSERT(QEL_MEMBER_SIZE(qel_var, data) >= sizeof(qel_hash), var_data_holds_hash);
QEL_STATIC_ASSERT(sizeof(qel_var) <= 80, var_fits_80_bytes);
QEL_STATIC_ASSERT(offsetof(qel_xvar, type) == 0, xvar_type_first);
QEL_STATIC_ASSERT(offsetof(qel_xvar, multi) == 4, xvar_multi_second);
QEL_STATIC_ASSERT(QEL_MEMBER_SIZE(qel_xvar, data) >= sizeof(qel_array), xvar_data_holds_array);
QEL_STATIC_ASSERT(offsetof(qel_xvars, type) == 0, xvars_type_first);
QEL_STATIC_ASSERT(offsetof(qel_xvars, multi) == 4, xvars_multi_second);
QEL_STATIC_ASSERT(offsetof(qel_xvars, index) < offsetof(qel_xvars, data), xvars_index_before_data);
QEL_STATIC_ASSERT(QEL_MEMBER_SIZE(qel_xvars, data) >= sizeof(qel_array), xvars_data_holds_array);

#endif /* QEL_H */
