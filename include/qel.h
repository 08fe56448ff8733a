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

QEL_API qel_var *qel_var_new(uint32_t type, uint8_t multi);
QEL_API qel_var *qel_var_new_x(uint32_t type, uint8_t multi, void *context, qel_schema_resolver resolver);
QEL_API void qel_var_change(qel_var *var, uint32_t type, uint8_t multi);
QEL_API void qel_var_change_x(qel_var *var, uint32_t type, uint8_t multi, void *context, qel_schema_resolver resolver);
QEL_API void qel_var_free(qel_var *var);
QEL_API uint32_t qel_var_type(const qel_var *var);
QEL_API int qel_var_multi(const qel_var *var);
QEL_API int64_t qel_var_size(const qel_var *var);
QEL_API qel_schema *qel_var_schema(const qel_var *var);

/* ---- full variant: numbers ---- */

QEL_API void qel_var_add_integer(qel_var *var, int64_t value);
QEL_API void qel_var_add_long(qel_var *var, int64_t value);
QEL_API void qel_var_add_float(qel_var *var, float value);
QEL_API void qel_var_add_double(qel_var *var, double value);
QEL_API void qel_var_set_integer(qel_var *var, int64_t index, int64_t value);
QEL_API void qel_var_set_long(qel_var *var, int64_t index, int64_t value);
QEL_API void qel_var_set_float(qel_var *var, int64_t index, float value);
QEL_API void qel_var_set_double(qel_var *var, int64_t index, double value);
QEL_API int64_t qel_var_get_integer(const qel_var *var, int64_t index);
QEL_API int64_t qel_var_get_long(const qel_var *var, int64_t index);
QEL_API float qel_var_get_float(const qel_var *var, int64_t index);
QEL_API double qel_var_get_double(const qel_var *var, int64_t index);

/* ---- full variant: strings and variant-to-variant ---- */

QEL_API void qel_var_add_string(qel_var *var, const char *text, int64_t length);
QEL_API void qel_var_set_string(qel_var *var, int64_t index, const char *text, int64_t length);
QEL_API void qel_var_get_string(const qel_var *var, int64_t index, const char **text_out, int64_t *length_out);
QEL_API void qel_var_add_var(qel_var *dst, const qel_var *src);
QEL_API void qel_var_set_var(qel_var *dst, int64_t index, const qel_var *src);
QEL_API void qel_var_get_var(const qel_var *src, int64_t index, qel_var *dst);

/* ---- full variant: deep copy and append ---- */

QEL_API void qel_var_copy(qel_var *dst, const qel_var *src);
QEL_API void qel_var_append(qel_var *dst, const qel_var *src);

/* ---- schemas ---- */

QEL_API qel_schema *qel_var_schema_new(void);
QEL_API void qel_var_schema_free(qel_schema *schema);
QEL_API void qel_var_schema_add(qel_schema *schema, const char *name, int64_t length, uint32_t type, uint8_t multi);
QEL_API int qel_var_schema_find(const qel_schema *schema, const char *name, int64_t length, uint32_t *type_out, uint8_t *multi_out);
QEL_API int64_t qel_var_schema_size(const qel_schema *schema);
QEL_API void qel_var_schema_set_at(qel_schema *schema, int64_t index, uint32_t type, uint8_t multi);
QEL_API void qel_var_schema_get_at(const qel_schema *schema, int64_t index, const char **name_out, int64_t *length_out, uint32_t *type_out, uint8_t *multi_out);

/* ---- full variant: capacity and reset ---- */

QEL_API void qel_var_expand(qel_var *var, int64_t n);
QEL_API void qel_var_zero(qel_var *var);
QEL_API void qel_var_shrink(qel_var *var, int64_t n);
QEL_API void qel_var_trim(qel_var *var);

/* ---- full variant: sort, search, compare ---- */

QEL_API void qel_var_qsort(qel_var *var, int flag);
QEL_API int64_t qel_var_find(const qel_var *var, const void *key, int64_t len);
QEL_API int64_t qel_var_bfind(const qel_var *var, const void *key, int64_t len);
QEL_API int qel_var_cmp(const qel_var *a, const qel_var *b);

/* ---- full variant: keyed insertion ---- */

QEL_API uint64_t qel_var_add_integer_x(qel_var *var, int64_t value);
QEL_API uint64_t qel_var_add_long_x(qel_var *var, int64_t value);
QEL_API uint64_t qel_var_add_float_x(qel_var *var, float value);
QEL_API uint64_t qel_var_add_double_x(qel_var *var, double value);
QEL_API uint64_t qel_var_add_string_x(qel_var *var, const char *bytes, int64_t len);

/* ---- full variant: raw buffer access ---- */

QEL_API void *qel_var_buffer(qel_var *var);
QEL_API int64_t qel_var_buf_size(const qel_var *var);
QEL_API int64_t qel_var_buf_len(const qel_var *var);
QEL_API void qel_var_set_buf(qel_var *var, int64_t index, uint64_t value);
QEL_API uint64_t qel_var_get_buf(const qel_var *var, int64_t index);

/* ---- full variant: member shortcuts (record codes 10 and up) ---- */

QEL_API void qel_var_set_val(qel_var *var, const char *name, int64_t len, const qel_var *src);
QEL_API qel_var *qel_var_get_val(const qel_var *var, const char *name, int64_t len);
QEL_API qel_var *qel_var_add_new(qel_var *var);
QEL_API void qel_var_add_var_x(qel_var *var, const qel_var *src);
QEL_API void qel_var_set_var_x(qel_var *var, int64_t index, const qel_var *src);
QEL_API qel_var *qel_var_get_var_x(const qel_var *var, int64_t index);

/* ---- light variant ---- */

QEL_API qel_xvar *qel_xvar_new(uint32_t type, uint8_t multi);
QEL_API void qel_xvar_change(qel_xvar *v, uint32_t type, uint8_t multi);
QEL_API void qel_xvar_free(qel_xvar *v);
QEL_API void qel_xvar_shrink(qel_xvar *v, int64_t n);
QEL_API int64_t qel_xvar_size(const qel_xvar *v);
QEL_API uint32_t qel_xvar_type(const qel_xvar *v);
QEL_API int qel_xvar_multi(const qel_xvar *v);

QEL_API void qel_xvar_add_integer(qel_xvar *v, int64_t value);
QEL_API void qel_xvar_add_long(qel_xvar *v, int64_t value);
QEL_API void qel_xvar_add_float(qel_xvar *v, float value);
QEL_API void qel_xvar_add_double(qel_xvar *v, double value);
QEL_API void qel_xvar_add_integer_x(qel_xvar *v, int64_t value, uint64_t **buf_out);
QEL_API void qel_xvar_add_long_x(qel_xvar *v, int64_t value, uint64_t **buf_out);
QEL_API void qel_xvar_add_float_x(qel_xvar *v, float value, uint64_t **buf_out);
QEL_API void qel_xvar_add_double_x(qel_xvar *v, double value, uint64_t **buf_out);
QEL_API void qel_xvar_set_integer(qel_xvar *v, int64_t index, int64_t value);
QEL_API void qel_xvar_set_long(qel_xvar *v, int64_t index, int64_t value);
QEL_API void qel_xvar_set_float(qel_xvar *v, int64_t index, float value);
QEL_API void qel_xvar_set_double(qel_xvar *v, int64_t index, double value);
QEL_API int64_t qel_xvar_get_integer(const qel_xvar *v, int64_t index);
QEL_API int64_t qel_xvar_get_long(const qel_xvar *v, int64_t index);
QEL_API float qel_xvar_get_float(const qel_xvar *v, int64_t index);
QEL_API double qel_xvar_get_double(const qel_xvar *v, int64_t index);

QEL_API void qel_xvar_add_string(qel_xvar *v, const char *str, int64_t length);
QEL_API void qel_xvar_add_string_x(qel_xvar *v, const char *str, int64_t length, uint64_t **buf_out);
QEL_API void qel_xvar_set_string(qel_xvar *v, int64_t index, const char *str, int64_t length);
QEL_API void qel_xvar_get_string(const qel_xvar *v, int64_t index, const char **str_out, int64_t *length_out);
QEL_API void qel_xvar_set_buf(qel_xvar *v, int64_t index, uint64_t value);
QEL_API uint64_t qel_xvar_get_buf(const qel_xvar *v, int64_t index);

/* ---- column set ---- */

QEL_API qel_xvars *qel_xvars_new(uint32_t type, uint8_t multi);
QEL_API void qel_xvars_change(qel_xvars *xs, uint32_t type, uint8_t multi);
QEL_API void qel_xvars_free(qel_xvars *xs);
QEL_API void qel_xvars_shrink(qel_xvars *xs);
QEL_API int64_t qel_xvars_size(const qel_xvars *xs);
QEL_API uint32_t qel_xvars_type(const qel_xvars *xs);
QEL_API int qel_xvars_multi(const qel_xvars *xs);
QEL_API void qel_xvars_add_var(qel_xvars *xs, const qel_xvar *x);
QEL_API void qel_xvars_fetch_var(const qel_xvars *xs, int64_t entry, qel_xvar *x);
QEL_API int64_t qel_xvars_get_size(const qel_xvars *xs, int64_t entry);

QEL_API void qel_xvars_add_integer(qel_xvars *xs, int64_t entry, int64_t value);
QEL_API void qel_xvars_add_long(qel_xvars *xs, int64_t entry, int64_t value);
QEL_API void qel_xvars_add_float(qel_xvars *xs, int64_t entry, float value);
QEL_API void qel_xvars_add_double(qel_xvars *xs, int64_t entry, double value);
QEL_API void qel_xvars_set_integer(qel_xvars *xs, int64_t entry, int64_t pos, int64_t value);
QEL_API void qel_xvars_set_long(qel_xvars *xs, int64_t entry, int64_t pos, int64_t value);
QEL_API void qel_xvars_set_float(qel_xvars *xs, int64_t entry, int64_t pos, float value);
QEL_API void qel_xvars_set_double(qel_xvars *xs, int64_t entry, int64_t pos, double value);
QEL_API int64_t qel_xvars_get_integer(const qel_xvars *xs, int64_t entry, int64_t pos);
QEL_API int64_t qel_xvars_get_long(const qel_xvars *xs, int64_t entry, int64_t pos);
QEL_API float qel_xvars_get_float(const qel_xvars *xs, int64_t entry, int64_t pos);
QEL_API double qel_xvars_get_double(const qel_xvars *xs, int64_t entry, int64_t pos);

QEL_API void qel_xvars_add_string(qel_xvars *xs, int64_t entry, const char *str, int64_t len);
QEL_API void qel_xvars_set_string(qel_xvars *xs, int64_t entry, int64_t pos, const char *str, int64_t len);
QEL_API void qel_xvars_get_string(const qel_xvars *xs, int64_t entry, int64_t pos, const char **str_out, int64_t *length_out);
QEL_API void qel_xvars_set_buf(qel_xvars *xs, int64_t entry, int64_t pos, uint64_t value);
QEL_API uint64_t qel_xvars_get_buf(const qel_xvars *xs, int64_t entry, int64_t pos);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* ---- layouts the interface fixes ---- */

QEL_STATIC_ASSERT(offsetof(qel_var, type) == 0, var_type_first);
QEL_STATIC_ASSERT(offsetof(qel_var, multi) == 4, var_multi_second);
QEL_STATIC_ASSERT(offsetof(qel_var, schema) < offsetof(qel_var, data), var_schema_before_data);
QEL_STATIC_ASSERT(offsetof(qel_var, data) < offsetof(qel_var, buf), var_data_before_buf);
QEL_STATIC_ASSERT(sizeof(((qel_var *)0)->data) >= sizeof(qel_arrayd), var_data_holds_arrayd);
QEL_STATIC_ASSERT(sizeof(((qel_var *)0)->data) >= sizeof(qel_arrayx), var_data_holds_arrayx);
QEL_STATIC_ASSERT(sizeof(((qel_var *)0)->data) >= sizeof(qel_array), var_data_holds_array);
QEL_STATIC_ASSERT(sizeof(((qel_var *)0)->data) >= sizeof(qel_arrays), var_data_holds_arrays);
QEL_STATIC_ASSERT(sizeof(((qel_var *)0)->data) >= sizeof(qel_stream), var_data_holds_stream);
QEL_STATIC_ASSERT(sizeof(((qel_var *)0)->data) >= sizeof(qel_hash), var_data_holds_hash);
QEL_STATIC_ASSERT(sizeof(qel_var) <= 80, var_fits_80_bytes);
QEL_STATIC_ASSERT(offsetof(qel_xvar, type) == 0, xvar_type_first);
QEL_STATIC_ASSERT(offsetof(qel_xvar, multi) == 4, xvar_multi_second);
QEL_STATIC_ASSERT(sizeof(((qel_xvar *)0)->data) >= sizeof(qel_array), xvar_data_holds_array);
QEL_STATIC_ASSERT(offsetof(qel_xvars, type) == 0, xvars_type_first);
QEL_STATIC_ASSERT(offsetof(qel_xvars, multi) == 4, xvars_multi_second);
QEL_STATIC_ASSERT(offsetof(qel_xvars, index) < offsetof(qel_xvars, data), xvars_index_before_data);
QEL_STATIC_ASSERT(sizeof(((qel_xvars *)0)->data) >= sizeof(qel_array), xvars_data_holds_array);

#endif /* QEL_H */
