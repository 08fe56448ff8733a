/*
 * qel_std.h - support containers of the qel library (libqel_std).
 *
 * Memory blocks, three growable value arrays (qel_arrayd, qel_arrayx,
 * qel_array), a pointer array (qel_arrays), a hash keyed by byte strings
 * (qel_hash), a byte stream (qel_stream), a byte string (qel_string) and two
 * comparisons.  The leading fields of every record are part of the interface:
 * callers may read them, and may write an array's `count` (up to `capacity`)
 * and any entry's `buf`.  Fields named `priv_*` belong to the library.
 *
 * Conventions:
 *  - Every entry between `count` and `capacity` is defined: zero-filled when
 *    the array grows, or holding what it held when last in use, so raising
 *    `count` or reading a `buf` below `capacity` never sees garbage.
 *  - A count outside 0..capacity reads as the nearest of the two everywhere.
 *  - Reads outside 0..count-1 give neutral results (0, NULL, length 0);
 *    writes outside it do nothing.
 *  - Pool offsets and lengths are 32-bit: a string pool never exceeds 4 GiB,
 *    and an operation that would pass that limit changes nothing.
 *  - qel_malloc never returns NULL; when memory runs out the process aborts.
 *  - The constant int arguments of _init, _clone and qel_hash_init are
 *    accepted for compatibility and ignored.
 */
#ifndef QEL_STD_H
#define QEL_STD_H

#include <stddef.h>
#include <stdint.h>

/* The one export macro: marks every public function of both libraries. */
#if defined(_WIN32)
#define QEL_API
#else
#define QEL_API __attribute__((visibility("default")))
#endif

/* Layout checks usable from C99 (no _Static_assert there), C11 and C++. */
#if defined(__cplusplus)
#define QEL_STATIC_ASSERT(cond, name) static_assert(cond, #name)
#elif defined(__STDC_VERSION__) && __STDC_VERSION__ >= 201112L
#define QEL_STATIC_ASSERT(cond, name) _Static_assert(cond, #name)
#else
#define QEL_STATIC_ASSERT(cond, name) typedef char qel_static_assert_##name[(cond) ? 1 : -1]
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* ---- entries: 16 bytes each, `buf` always at byte offset 8 ---- */

typedef struct qel_arrayd_entry {
  uint32_t value; /* unsigned 32-bit integer, or the bits of a float */
  uint64_t buf;   /* caller value, never interpreted */
} qel_arrayd_entry;

typedef struct qel_arrayx_entry {
  int64_t value; /* signed 64-bit integer, or the bits of a double */
  uint64_t buf;
} qel_arrayx_entry;

typedef struct qel_array_entry {
  uint32_t offset; /* first byte of the string in the array's pool */
  uint32_t length; /* byte count */
  uint64_t buf;    /* caller value; the tag operations use its low 32 bits */
} qel_array_entry;

/* ---- byte stream and byte string (exchangeable field for field) ---- */

typedef struct qel_stream {
  char *bytes;
  int64_t length;   /* bytes in use */
  int64_t capacity; /* bytes allocated */
} qel_stream;

typedef struct qel_string {
  char *bytes;
  int64_t length;
  int64_t capacity;
} qel_string;

/* ---- growable arrays ---- */

typedef struct qel_arrayd {
  qel_arrayd_entry *entries;
  int64_t count;
  int64_t capacity;
  void *priv_lookup; /* keyed-insert index, NULL until first needed */
} qel_arrayd;

typedef struct qel_arrayx {
  qel_arrayx_entry *entries;
  int64_t count;
  int64_t capacity;
  void *priv_lookup;
} qel_arrayx;

typedef struct qel_array {
  qel_array_entry *entries;
  int64_t count;
  int64_t capacity;
  qel_stream pool; /* the bytes of all strings, back to back */
  void *priv_lookup;
} qel_array;

typedef struct qel_arrays {
  void **entries;
  int64_t count;
  int64_t capacity;
} qel_arrays;

/* ---- hash keyed by byte strings; walks in insertion order ---- */

typedef struct qel_hash_entry {
  uint32_t key_offset; /* first byte of the key in key_pool */
  uint32_t key_length;
  void *value;
  uint32_t priv_hash;
  uint32_t priv_reserved;
} qel_hash_entry;

typedef struct qel_hash {
  char *key_pool;
  qel_hash_entry *priv_entries;
  uint32_t *priv_slots;
  uint32_t priv_key_length;
  uint32_t priv_key_capacity;
  uint32_t priv_count;
  uint32_t priv_capacity;
  uint32_t priv_slot_mask;
  uint32_t priv_flags;
  void *priv_block; /* the owner's part, then entries, slots and keys while they fit */
} qel_hash;

typedef struct qel_char_view {
  const char *bytes;
  int64_t length;
} qel_char_view;

/* ---- memory ---- */

/* A block of at least `size` bytes. Never returns NULL: when memory runs out
 * the process aborts. Free it with qel_free.
 */
QEL_API void *qel_malloc(size_t size);

/* Releases a block from qel_malloc. NULL does nothing. */
QEL_API void qel_free(void *block);

/* ---- qel_arrayd: 32-bit values (unsigned order when sorted) ---- */

/* Makes an empty array (count 0) of the uninitialised or terminated record
 * `a`. The second argument is ignored.
 */
QEL_API void qel_arrayd_init(qel_arrayd *a, int zero);

/* Releases the entries (and the keyed-insert index); the record may be
 * initialised again.
 */
QEL_API void qel_arrayd_term(qel_arrayd *a);

/* Adds one entry at the end: `value` and its caller value `buf`. Growth is
 * amortised O(1).
 */
QEL_API void qel_arrayd_append(qel_arrayd *a, uint32_t value, uint64_t buf);

/* Appends copies of all of src's entries in use, in order, each with its
 * caller value. `src` may be `dst`.
 */
QEL_API void qel_arrayd_append_array(qel_arrayd *dst, const qel_arrayd *src);

/* Makes `dst` (initialised) an exact copy of src's entries in use with their
 * caller values. The three int arguments are ignored.
 */
QEL_API void qel_arrayd_clone(const qel_arrayd *src, int zero1, qel_arrayd *dst, int zero2, int zero3);

/* Makes the capacity at least n entries in all (growing by at least half when
 * it grows); the entries in use stay. New entries up to the capacity are zero-
 * filled, so a caller may write entries below the capacity and then raise
 * `count`.
 */
QEL_API void qel_arrayd_expand(qel_arrayd *a, int64_t n);

/* Sets the count to 0, keeping the storage; the array stays usable. */
QEL_API void qel_arrayd_remove_all(qel_arrayd *a);

/* Stores the value of entry `index` in *out and returns 1; outside 0 ..
 * count-1 stores 0 and returns 0. `out` must not be NULL.
 */
QEL_API int qel_arrayd_get_at(const qel_arrayd *a, int64_t index, uint32_t *out);

/* Overwrites value and caller value of entry `index`; outside 0 .. count-1
 * nothing happens.
 */
QEL_API void qel_arrayd_set_at(qel_arrayd *a, int64_t index, uint32_t value, uint64_t buf);

/* The lowest index whose value has exactly these bits, or -1: the linear
 * search's answer, found in O(1) through the keyed-insert index while it
 * describes the entries in use (a value put in by entry_insert; see there for
 * values written into entries directly).
 */
QEL_API int64_t qel_arrayd_find_index(const qel_arrayd *a, uint32_t value);

/* The lowest index holding `value`, by binary search over an array sorted
 * ascending (as unsigned 32-bit numbers), or -1.
 */
QEL_API int64_t qel_arrayd_bfind_index(const qel_arrayd *a, uint32_t value);

/* The entry holding `value` (the lowest such), appended with caller value 0
 * when absent; never NULL. Expected O(1) through an index the array keeps,
 * for any values, even ones chosen against it: the index places them by a
 * hash under a secret key of its own. The pointer is valid until the array
 * next changes size or is sorted. The index follows every change made through
 * these functions, and starts afresh when it finds the count changed. Values
 * written into entries directly while the count ends up as it was (count
 * lowered, entries written, count raised again) it cannot see: it rebuilds
 * itself on the first lookup that meets an entry no longer holding what it
 * recorded, but until then a value written that way may be appended once
 * more, and a value also written below its recorded entry is still answered
 * with the recorded one (here and by find_index). After such writes, call
 * qel_arrayd_expand (any n) to start the index afresh.
 */
QEL_API qel_arrayd_entry *qel_arrayd_entry_insert(qel_arrayd *a, uint32_t value);

/* Sorts the entries in use by value, as unsigned 32-bit numbers: ascending for
 * a nonzero flag, descending for 0. Stable in both directions; every entry
 * moves whole, with its caller value.
 */
QEL_API void qel_arrayd_qsort(qel_arrayd *a, int flag);

/* ---- qel_arrayx: signed 64-bit values ---- */

/* Makes an empty array (count 0) of the uninitialised or terminated record
 * `a`. The second argument is ignored.
 */
QEL_API void qel_arrayx_init(qel_arrayx *a, int zero);

/* Releases the entries (and the keyed-insert index); the record may be
 * initialised again.
 */
QEL_API void qel_arrayx_term(qel_arrayx *a);

/* Adds one entry at the end: `value` and its caller value `buf`. Growth is
 * amortised O(1).
 */
QEL_API void qel_arrayx_append(qel_arrayx *a, int64_t value, uint64_t buf);

/* Appends copies of all of src's entries in use, in order, each with its
 * caller value. `src` may be `dst`.
 */
QEL_API void qel_arrayx_append_array(qel_arrayx *dst, const qel_arrayx *src);

/* Makes `dst` (initialised) an exact copy of src's entries in use with their
 * caller values. The three int arguments are ignored.
 */
QEL_API void qel_arrayx_clone(const qel_arrayx *src, int zero1, qel_arrayx *dst, int zero2, int zero3);

/* Makes the capacity at least n entries in all (growing by at least half when
 * it grows); the entries in use stay. New entries up to the capacity are zero-
 * filled, so a caller may write entries below the capacity and then raise
 * `count`.
 */
QEL_API void qel_arrayx_expand(qel_arrayx *a, int64_t n);

/* Sets the count to 0, keeping the storage; the array stays usable. */
QEL_API void qel_arrayx_remove_all(qel_arrayx *a);

/* Stores the value of entry `index` in *out and returns 1; outside 0 ..
 * count-1 stores 0 and returns 0. `out` must not be NULL.
 */
QEL_API int qel_arrayx_get_at(const qel_arrayx *a, int64_t index, int64_t *out);

/* Overwrites value and caller value of entry `index`; outside 0 .. count-1
 * nothing happens.
 */
QEL_API void qel_arrayx_set_at(qel_arrayx *a, int64_t index, int64_t value, uint64_t buf);

/* The lowest index whose value has exactly these bits, or -1: the linear
 * search's answer, found in O(1) through the keyed-insert index while it
 * describes the entries in use (a value put in by entry_insert; see there for
 * values written into entries directly).
 */
QEL_API int64_t qel_arrayx_find_index(const qel_arrayx *a, int64_t value);

/* The lowest index holding `value`, by binary search over an array sorted
 * ascending (as signed 64-bit numbers), or -1.
 */
QEL_API int64_t qel_arrayx_bfind_index(const qel_arrayx *a, int64_t value);

/* The entry holding `value` (the lowest such), appended with caller value 0
 * when absent; never NULL. Expected O(1) through an index the array keeps,
 * for any values, even ones chosen against it: the index places them by a
 * hash under a secret key of its own. The pointer is valid until the array
 * next changes size or is sorted. The index follows every change made through
 * these functions, and starts afresh when it finds the count changed. Values
 * written into entries directly while the count ends up as it was (count
 * lowered, entries written, count raised again) it cannot see: it rebuilds
 * itself on the first lookup that meets an entry no longer holding what it
 * recorded, but until then a value written that way may be appended once
 * more, and a value also written below its recorded entry is still answered
 * with the recorded one (here and by find_index). After such writes, call
 * qel_arrayx_expand (any n) to start the index afresh.
 */
QEL_API qel_arrayx_entry *qel_arrayx_entry_insert(qel_arrayx *a, int64_t value);

/* Sorts the entries in use by value, as signed 64-bit numbers: ascending for a
 * nonzero flag, descending for 0. Stable in both directions; every entry moves
 * whole, with its caller value.
 */
QEL_API void qel_arrayx_qsort(qel_arrayx *a, int flag);

/* ---- qel_array: byte strings in one pool ---- */

/* Makes an empty array with an empty pool from the uninitialised or terminated
 * record `a`. The second argument is ignored.
 */
QEL_API void qel_array_init(qel_array *a, int zero);

/* Releases the entries, the pool and the keyed-insert index; the record may be
 * initialised again.
 */
QEL_API void qel_array_term(qel_array *a);

/* Copies `length` bytes (they may lie in this array's own pool) to the end of
 * the pool and adds an entry for them with caller value `tag` (zero-extended).
 * A negative length, NULL bytes with a positive length, or a pool that would
 * reach 4 GiB: nothing changes.
 */
QEL_API void qel_array_append(qel_array *a, const char *bytes, int64_t length, uint32_t tag);

/* Appends copies of all of src's strings in order, each with its caller value;
 * nothing at all when dst's pool would reach 4 GiB. `src` may be `dst`.
 */
QEL_API void qel_array_append_array(qel_array *dst, const qel_array *src);

/* Makes `dst` (initialised) an exact copy of `src`: strings, pool and caller
 * values. The three int arguments are ignored.
 */
QEL_API void qel_array_clone(const qel_array *src, int zero1, qel_array *dst, int zero2, int zero3);

/* Makes the capacity at least n entries in all (growing by at least half when
 * it grows); new entries up to the capacity are empty strings with caller
 * value 0.
 */
QEL_API void qel_array_expand(qel_array *a, int64_t n);

/* Sets the count to 0 and empties the pool, keeping the storage; entries up to
 * the capacity become empty strings (their caller values stay).
 */
QEL_API void qel_array_remove_all(qel_array *a);

/* Stores in *bytes_out and *length_out the string of entry `index` (borrowed
 * from the pool, not terminated, never NULL for an entry in use; valid until
 * the array next changes) and returns the low 32 bits of its caller value (the
 * tag). Outside 0 .. count-1: NULL, 0, and the result 0.
 */
QEL_API uint32_t qel_array_get_at(const qel_array *a, int64_t index, const char **bytes_out, int64_t *length_out);

/* Replaces the string of entry `index` with a copy of `length` bytes (they may
 * lie in the pool) and its caller value with `tag`. The bytes overwrite the
 * old ones when they fit, and go to the end of the pool otherwise (which is
 * compacted when more than half of it is dead). Outside 0 .. count-1, or for a
 * string qel_array_append would refuse: nothing.
 */
QEL_API void qel_array_set_at(qel_array *a, int64_t index, const char *bytes, int64_t length, uint32_t tag);

/* Sets the caller value of entry `index` to `tag` (zero-extended), keeping its
 * string; outside 0 .. count-1 nothing.
 */
QEL_API void qel_array_update_at(qel_array *a, int64_t index, uint32_t tag);

/* The lowest index holding exactly these `length` bytes, or -1 (always for a
 * negative length): the linear search's answer, found in O(1) through the
 * keyed-insert index while it describes the entries in use (see
 * qel_arrayd_entry_insert for entries written directly).
 */
QEL_API int64_t qel_array_find_index(const qel_array *a, const char *bytes, int64_t length);

/* The lowest index holding exactly these bytes, by binary search over an array
 * sorted ascending by qel_array_qsort, or -1.
 */
QEL_API int64_t qel_array_bfind_index(const qel_array *a, const char *bytes, int64_t length);

/* The entry holding exactly these bytes (the lowest such), appended with
 * caller value 0 when absent; never NULL, expected O(1) for any strings, even
 * ones chosen against the index (a hash under its own secret key). Directly
 * rewritten entries are met as by qel_arrayd_entry_insert (an entry is
 * rewritten when its bytes no longer hash as recorded). For a string the array cannot
 * take (negative length, NULL bytes with a positive length, a full pool)
 * nothing is stored and the result is the entry just past the count, left as
 * it was (tell it apart by its position). The pointer is valid until the array
 * next changes.
 */
QEL_API qel_array_entry *qel_array_entry_insert(qel_array *a, const char *bytes, int64_t length);

/* Sorts the entries in use by their bytes (unsigned bytes, then the shorter
 * string first: the order of qel_mem_cmp), ascending for a nonzero flag and
 * descending for 0. Stable; entries move whole with their caller values, the
 * pool stays.
 */
QEL_API void qel_array_qsort(qel_array *a, int flag);

/* ---- qel_arrays: pointers, not owned ---- */

/* Makes an empty pointer array from the uninitialised or terminated record
 * `a`. The second argument is ignored.
 */
QEL_API void qel_arrays_init(qel_arrays *a, int zero);

/* Releases the slots, not the elements they point to. */
QEL_API void qel_arrays_term(qel_arrays *a);

/* Adds the pointer at the end (not owned by the array). */
QEL_API void qel_arrays_append(qel_arrays *a, void *element);

/* The pointer at `index`, or NULL outside 0 .. count-1. */
QEL_API void *qel_arrays_get_at(const qel_arrays *a, int64_t index);

/* Hands every element, in order, to `destructor` (when it is not NULL), then
 * sets the count to 0; the array stays usable.
 */
QEL_API void qel_arrays_free_all(qel_arrays *a, void (*destructor)(void *element));

/* ---- qel_hash ---- */

/* Makes an empty hash from the uninitialised or terminated record `h`. The two
 * int arguments are ignored.
 */
QEL_API void qel_hash_init(qel_hash *h, int one, int zero);

/* Releases the table, the entries and the key copies; not the values they
 * point to.
 */
QEL_API void qel_hash_term(qel_hash *h);

/* Adds an entry with a copy of `length` key bytes (they may lie in key_pool)
 * and `value`, and returns it. A key already present: if its newest entry
 * holds NULL, that entry takes the value; otherwise a second entry is added,
 * which qel_hash_get then finds, and a walk visits both. NULL, and no change,
 * for a negative length, NULL key bytes with a positive length, or a key pool
 * that would pass 4 GiB. Entries and key_pool may move on insertion.
 */
QEL_API qel_hash_entry *qel_hash_insert(qel_hash *h, const char *key, int64_t length, void *value);

/* The value of the newest entry whose key is exactly these `length` bytes, or
 * NULL.
 */
QEL_API void *qel_hash_get(const qel_hash *h, const char *key, int64_t length);

/* The first entry in insertion order, or NULL for an empty hash; sets up
 * *cursor (the caller's word, which needs no initialising) for
 * qel_hash_entry_next. Read the key as `key_length` bytes at `key_pool +
 * key_offset`; skip entries whose value is NULL if cleared entries do not
 * interest you.
 */
QEL_API qel_hash_entry *qel_hash_entry_first(qel_hash *h, void **cursor);

/* The entry after `entry` in insertion order, or NULL at the end. A walk
 * visits every entry once and survives the caller writing the visited entries'
 * values and other hashes changing, but not insertions into this hash.
 */
QEL_API qel_hash_entry *qel_hash_entry_next(qel_hash *h, void **cursor, qel_hash_entry *entry);

/* ---- qel_stream ---- */

/* Makes an empty stream from the uninitialised or terminated record `s`. */
QEL_API void qel_stream_init(qel_stream *s);

/* Releases the bytes. */
QEL_API void qel_stream_term(qel_stream *s);

/* Replaces the contents with a copy of `length` bytes (they may lie in the
 * stream). A negative length, or NULL bytes with a positive length, changes
 * nothing.
 */
QEL_API void qel_stream_copy(qel_stream *s, const char *bytes, int64_t length);

/* Makes dst's contents a copy of src's. */
QEL_API void qel_stream_clone(const qel_stream *src, qel_stream *dst);

/* Appends a copy of `length` bytes (they may lie in the stream) behind the
 * bytes in use. Bad lengths as for qel_stream_copy change nothing.
 */
QEL_API void qel_stream_append(qel_stream *s, const char *bytes, int64_t length);

/* Makes the capacity at least n bytes (growing by at least half when it
 * grows); the contents stay and new bytes are zero.
 */
QEL_API void qel_stream_expand(qel_stream *s, int64_t n);

/* Zeroes bytes offset .. offset+n-1 (clipped to the capacity) and cuts the
 * length to at most `offset`. A negative offset or n changes nothing.
 */
QEL_API void qel_stream_zero(qel_stream *s, int64_t offset, int64_t n);

/* Cuts the length to at most n bytes (a negative n counts as 0); the capacity
 * stays.
 */
QEL_API void qel_stream_shrink(qel_stream *s, int64_t n);

/* Exchanges bytes, length and capacity of the stream and of `str`, which need
 * not be initialised; nothing is allocated, released or read.
 */
QEL_API void qel_stream_swap_string(qel_stream *s, qel_string *str);

/* ---- qel_string ---- */

/* Makes an empty string from the uninitialised or terminated record `s`. */
QEL_API void qel_string_init(qel_string *s);

/* Releases the bytes. */
QEL_API void qel_string_term(qel_string *s);

/* Replaces the contents with a copy of `length` bytes (they may lie in the
 * string). A negative length, or NULL bytes with a positive length, changes
 * nothing.
 */
QEL_API void qel_string_copy(qel_string *s, const char *bytes, int64_t length);

/* Cuts the length to at most n bytes (a negative n counts as 0). */
QEL_API void qel_string_shrink(qel_string *s, int64_t n);

/* Removes leading and trailing ASCII whitespace (space, tab, newline, vertical
 * tab, form feed, carriage return) in place.
 */
QEL_API void qel_string_trim(qel_string *s);

/* ---- comparisons ---- */

/* 0 when the string `view` describes (bytes, length) holds exactly these
 * `length` bytes, 1 otherwise (also for a negative length). `view` must not be
 * NULL.
 */
QEL_API int qel_char_compare(const qel_char_view *view, const char *bytes, int64_t length);

/* Three-way comparison of two byte runs: -1, 0 or 1 by unsigned bytes over the
 * common length, then the shorter first. A negative length or a NULL pointer
 * counts as empty.
 */
QEL_API int qel_mem_cmp(const void *a, int64_t a_length, const void *b, int64_t b_length);

#ifdef __cplusplus
} /* extern "C" */
#endif

/* ---- layouts the interface fixes ---- */

QEL_STATIC_ASSERT(sizeof(qel_arrayd_entry) == 16, arrayd_entry_is_16_bytes);
QEL_STATIC_ASSERT(sizeof(qel_arrayx_entry) == 16, arrayx_entry_is_16_bytes);
QEL_STATIC_ASSERT(sizeof(qel_array_entry) == 16, array_entry_is_16_bytes);
QEL_STATIC_ASSERT(offsetof(qel_arrayd_entry, buf) == 8, arrayd_buf_at_8);
QEL_STATIC_ASSERT(offsetof(qel_arrayx_entry, buf) == 8, arrayx_buf_at_8);
QEL_STATIC_ASSERT(offsetof(qel_array_entry, buf) == 8, array_buf_at_8);
QEL_STATIC_ASSERT(offsetof(qel_array_entry, length) == 4, array_length_at_4);
QEL_STATIC_ASSERT(offsetof(qel_arrayd, count) == sizeof(void *), arrayd_count_second);
QEL_STATIC_ASSERT(offsetof(qel_arrayd, capacity) == sizeof(void *) + 8, arrayd_capacity_third);
QEL_STATIC_ASSERT(offsetof(qel_arrayx, count) == sizeof(void *), arrayx_count_second);
QEL_STATIC_ASSERT(offsetof(qel_arrayx, capacity) == sizeof(void *) + 8, arrayx_capacity_third);
QEL_STATIC_ASSERT(offsetof(qel_array, count) == sizeof(void *), array_count_second);
QEL_STATIC_ASSERT(offsetof(qel_array, capacity) == sizeof(void *) + 8, array_capacity_third);
QEL_STATIC_ASSERT(offsetof(qel_array, pool) == sizeof(void *) + 16, array_pool_fourth);
QEL_STATIC_ASSERT(offsetof(qel_arrays, count) == sizeof(void *), arrays_count_second);
QEL_STATIC_ASSERT(offsetof(qel_arrays, capacity) == sizeof(void *) + 8, arrays_capacity_third);
QEL_STATIC_ASSERT(offsetof(qel_stream, length) == sizeof(void *), stream_length_second);
QEL_STATIC_ASSERT(offsetof(qel_stream, capacity) == sizeof(void *) + 8, stream_capacity_third);
QEL_STATIC_ASSERT(sizeof(qel_string) == sizeof(qel_stream), string_matches_stream);
QEL_STATIC_ASSERT(offsetof(qel_string, length) == offsetof(qel_stream, length), string_length_matches);
QEL_STATIC_ASSERT(offsetof(qel_hash, key_pool) == 0, hash_key_pool_first);
QEL_STATIC_ASSERT(offsetof(qel_hash_entry, key_length) == 4, hash_key_length_second);
QEL_STATIC_ASSERT(offsetof(qel_hash_entry, value) == 8, hash_value_third);
QEL_STATIC_ASSERT(offsetof(qel_char_view, length) == sizeof(void *), char_view_length_second);

#endif /* QEL_STD_H */
