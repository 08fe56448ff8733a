#!/usr/bin/env python3
"""Writes the hand-made seed inputs of fuzz/corpus/<target>/seed_*.

Each seed is an operation sequence in the byte encoding that the target
decodes (see the switch statements of fuzz_std.cpp, fuzz_var.cpp and
fuzz_columns.cpp); the helpers below mirror those decoders.  Run it from any
directory; it rewrites only the seed_* files.  Inputs kept from findings are
named regress_* and are not touched.
"""
import os
import struct

HERE = os.path.dirname(os.path.abspath(__file__))


def write(target, name, data):
    d = os.path.join(HERE, "corpus", target)
    os.makedirs(d, exist_ok=True)
    with open(os.path.join(d, "seed_" + name), "wb") as f:
        f.write(bytes(data))


def u16(v):
    return list(struct.pack("<H", v))


# ---------------------------------------------------------------- fuzz_std

ARRAYD, ARRAYX, ARRAY, HASH, STREAM = 0, 2, 3, 5, 7


def fam(family, which=0):
    return family | (which << 3)


def small_string(chars):
    """pick_string with a small-alphabet string: 'a' 'b' NUL ' ' TAB 'z' 0xff."""
    alphabet = {"a": 0, "b": 1, "\0": 2, " ": 3, "\t": 4, "z": 5, "\xff": 6}
    return [len(chars)] + [alphabet[c] for c in chars]


def std_seeds():
    # Integer arrays: appends with duplicates, an ascending sort, finds, keyed
    # inserts, count cut and raise, refill after expand, self append, clone.
    s = []
    for v, b in [(3, 0), (1, 1), (3, 2), (2, 3), (3, 0), (1, 1), (2, 2)]:
        s += [fam(ARRAYD), 0, v, b]
    s += [fam(ARRAYD), 11, 1]                 # qsort ascending
    s += [fam(ARRAYD), 8, 1, 2]               # find / bfind an existing value
    s += [fam(ARRAYD), 9, 0, 5, 1, 3]         # entry_insert 5, write its buf
    s += [fam(ARRAYD), 10, 1, 0, 0]           # entry_insert an existing value
    s += [fam(ARRAYD), 12] + u16(3)           # count := 3
    s += [fam(ARRAYD), 9, 1, 1, 0]            # entry_insert after the cut
    s += [fam(ARRAYD), 12] + u16(7)           # raise the count again
    s += [fam(ARRAYD), 6, 0, 5]               # get_at 5
    s += [fam(ARRAYD), 6, 162]                # get_at -1 (out of range)
    s += [fam(ARRAYD), 14, 3, 7, 1, 6, 2, 5, 3]  # refill 3 entries
    s += [fam(ARRAYD), 2, 1]                  # append_array to itself
    s += [fam(ARRAYD, 1), 3, 0]               # clone into the other array
    s += [fam(ARRAYD, 1), 11, 0]              # qsort descending
    s += [fam(ARRAYD), 4] + u16(300) + [0]    # expand
    s += [fam(ARRAYD), 12] + u16(200)         # raise the count over zeros
    s += [fam(ARRAYD), 13] + u16(250) + [3]   # buf write above the count
    write("fuzz_std", "arrayd", s)

    s = []
    for v in [0, 4, 2, 7, 1]:                 # pick_i64: sel % 8 - 2
        s += [fam(ARRAYX), 0, v, 1]
    s += [fam(ARRAYX), 11, 1, fam(ARRAYX), 8, 0, 3]
    s += [fam(ARRAYX), 7, 0, 1, 230] + list(struct.pack("<q", -(2**62))) + [2]  # set_at a raw value
    s += [fam(ARRAYX), 2, 0, fam(ARRAYX, 1), 2, 1, fam(ARRAYX), 5, 0]
    write("fuzz_std", "arrayx", s)

    # Strings: appends, appends and sets from the array's own pool, sorts,
    # keyed inserts, repeated sets (pool compaction), count cut and raise.
    s = []
    for text in ["ab", "b", "a\0b", "zz", " a", "ab"]:
        s += [fam(ARRAY), 0, 2] + small_string(text) + [0, 1]
    s += [fam(ARRAY), 1, 0, 2, 1, 0, 0]       # append bytes of entry 2 of its own pool
    s += [fam(ARRAY), 7, 0, 1, 0, 0, 1, 0, 2]  # set_at 1 from its own pool
    s += [fam(ARRAY), 13, 1]                  # qsort ascending
    s += [fam(ARRAY), 10, 2] + small_string("ab")  # find / bfind
    s += [fam(ARRAY), 11, 2] + small_string("zz") + [1, 2]  # entry_insert
    for _ in range(6):                        # sets that grow the pool
        s += [fam(ARRAY), 8, 0, 3, 3, 30] + [0] * 30 + [0, 0]
    s += [fam(ARRAY), 14] + u16(2)            # count := 2
    s += [fam(ARRAY), 14] + u16(6)            # raise it again
    s += [fam(ARRAY), 9, 0, 1, 2, 3, 4, 5]    # update_at
    s += [fam(ARRAY), 2, 1]                   # append_array to itself
    s += [fam(ARRAY), 16, 2] + small_string("ab") + [1] + small_string("z") + [2]  # refill through the pool
    s += [fam(ARRAY, 1), 3, 0, fam(ARRAY, 1), 2, 0]
    write("fuzz_std", "array", s)

    # Hash: duplicate keys, a walk that nulls values and fills the other hash,
    # reuse of a NULL entry, prefix keys.
    s = []
    for key, val in [("ab", 1), ("abz", 2), ("ab", 3), ("b", 4), ("", 5)]:
        s += [fam(HASH), 0, 1] + small_string(key) + [val] + ([0] if key == "" else [])
    s += [fam(HASH), 2, 1, 1, 1]              # get a present key
    s += [fam(HASH), 2, 1, 2, 0]              # get a prefix of a present key
    s += [fam(HASH), 3, 1, 2, 9, 3, 7, 0, 0]  # walk: null, set, copy to the other hash
    s += [fam(HASH), 0, 1] + small_string("ab") + [6]  # reinsert the key
    s += [fam(HASH, 1), 2, 0] + small_string("ab")
    write("fuzz_std", "hash", s)

    # Streams and strings: copy and append of their own bytes, zero, shrink,
    # trim through a swapped string, comparisons.
    s = []
    s += [fam(STREAM), 0] + small_string(" \tab z ")
    s += [fam(STREAM), 1, 1, 2]               # append its own tail
    s += [fam(STREAM), 6]                     # trim
    s += [fam(STREAM), 4, 2, 3]               # zero
    s += [fam(STREAM), 5, 20, fam(STREAM), 3] + u16(100)
    s += [fam(STREAM, 1), 2, 0, fam(STREAM), 2, 1]
    s += [fam(STREAM), 7, 0] + small_string("  a ") + [fam(STREAM), 7, 2, fam(STREAM), 7, 1, 6]
    s += [fam(STREAM), 8] + small_string("ab") + [0] + small_string("abz")
    ptrs = STREAM | (3 << 4)                   # qel_arrays
    s += [ptrs, 0, 5, ptrs, 1, 9, ptrs, 2, 0, 1, ptrs, 2, 162, ptrs, 3, ptrs, 0, 7]
    write("fuzz_std", "stream", s)


# ---------------------------------------------------------------- fuzz_var

VAR_TYPES = [0, 1, 2, 3, 4, 5, 6, 7, 8, 9, 10, 20, 21, 22, 23, 0xFFFFFFFF, 20, 21, 22, 7, 5, 6, 1, 4]
VAR_MULTIS = [0, 1, 0, 1, 2, 0xFF, 0, 1]


def vt(code):
    return VAR_TYPES.index(code)


def vm(multi):
    return VAR_MULTIS.index(multi)


def pool(*pairs):
    out = []
    for code, multi in pairs:
        out += [vt(code), vm(multi)]
    return out


def var_seeds():
    # A record life: records from the schemas (one nesting into itself),
    # member shortcuts, copies, appends, the float quicksort.
    s = pool((20, 0), (22, 0), (7, 1), (5, 1))
    for v in [3, 1, 3, 2, 3, 1, 2, 3, 1, 2]:   # add_double: sel % 8 - 3
        s += [8, 3, 0, 3, (v + 3)]
    s += [23, 3, 0, 0, 1, 1, 0, 7]            # set_buf on element 1
    s += [18, 3, 0, 1]                        # qsort ascending (the library's quicksort)
    s += [18, 3, 0, 0]                        # and descending
    for t in ["b", "ab", "a", "ab"]:
        s += [11, 2, 0, 4, 0] + small_string(t)   # add_string
    s += [18, 2, 0, 1]                        # string sort
    s += [19, 2, 0, 0, 0, 4, 0] + small_string("ab") + [0]  # find / bfind
    s += [21, 2, 0, 4, 4, 0] + small_string("zz")  # keyed add_string_x
    s += [3, 1, 0, 0, 0]                      # copy v0 into v1 (re-form)
    s += [24, 0, 0, 2, 0, 13]                 # set_val "zz" from v2
    s += [25, 0, 0, 13]                       # get_val "zz"
    s += [4, 2, 0, 2]                         # append v2 to itself
    s += [5, 2, 0, 2]                         # add_var v2 to itself
    s += [16, 0, 0, 5]                        # shrink the record: members freed
    s += [24, 0, 0, 3, 0, 0]                  # set_val "id" again
    s += [3, 0, 0, 0]                         # copy v0 into itself
    write("fuzz_var", "record_life", s)

    # Record arrays: add_new, add_var_x, set_var_x, get_var_x, append of
    # records, copy of an array over a longer one.
    s = pool((20, 1), (21, 0), (20, 0), (20, 1))
    s += [26, 0, 0, 26, 0, 0]                 # add_new twice
    s += [27, 0, 0, 1, 0]                     # add_var_x a copy of v1
    s += [27, 0, 0, 2, 0]
    s += [28, 0, 0, 1, 0, 0, 1]               # set_var_x element 1
    s += [29, 0, 0, 0, 2]                     # get_var_x 2
    s += [4, 3, 0, 2, 0]                      # append the single record v2 to v3
    s += [4, 3, 0, 0, 0]                      # append the array v0 to v3
    s += [3, 0, 0, 3, 0]                      # copy v3 over v0
    s += [4, 0, 0, 0]                         # append v0 to itself
    s += [2, 0, 0, 1, 1, 1]                   # change_x with the resolver, same form
    s += [16, 0, 0, 8]                        # shrink: every element freed
    write("fuzz_var", "record_arrays", s)

    # Numbers: conversions at the limits, out-of-range indexes, shrink raising
    # the count, raw buffers, cmp.
    s = pool((1, 1), (4, 0), (6, 1), (5, 0))
    for sel in [160, 161, 158, 151]:          # add_integer INT64_MAX, INT64_MIN, -1, 2^32
        s += [8, 0, 0, 0, sel]
    s += [8, 2, 0, 3, 124, 8, 2, 0, 3, 133]   # add_double NaN, 1e300
    s += [9, 1, 0, 0, 0, 2, 10, 129]          # set_float -2.75 on a single code 4
    s += [10, 0, 0, 162]                      # get at index -1
    s += [14, 0, 0] + u16(40)                 # expand
    s += [16, 0, 0, 30]                       # shrink raising the count to 26
    s += [23, 0, 0, 0, 20, 1, 0, 9]           # set_buf above the count
    s += [22, 1, 0, 1, 200]                   # write through qel_var_buffer
    s += [20, 0, 0, 2, 0]                     # cmp
    s += [21, 0, 0, 0, 1, 0, 21, 0, 0, 3, 135]  # keyed adds
    s += [15, 3, 0, 17, 2, 0]                 # zero, trim
    write("fuzz_var", "numbers", s)


# ---------------------------------------------------------------- fuzz_columns

COL_TYPES = [1, 2, 3, 4, 5, 1, 2, 3, 4, 5, 0, 6, 7]
COL_MULTIS = [0, 1, 1, 0, 2, 0xFF]


def xv(idx):  # a light variant operation on x[idx]
    return (idx % 3) << 1


def cs(idx):  # a column set operation on s[idx]
    return ((idx % 2) << 1) | 1


def columns_seeds():
    # x0 multi strings, x1 multi doubles, x2 single u32; s0 multi strings,
    # s1 multi doubles.
    s = [COL_TYPES.index(5), 1, COL_TYPES.index(4), 1, COL_TYPES.index(1), 0,
         COL_TYPES.index(5), 1, COL_TYPES.index(4), 1]
    for t in ["ab", "", "a\0b"]:
        s += [xv(0), 7, 4, 0] + small_string(t)          # add_string to x0
    s += [xv(0), 13, 162, 1, 0, 7]                       # set_buf(-1, 7)
    s += [cs(0), 1, 0]                                   # add_var x0 to s0
    s += [cs(0), 8, 0, 4, 0] + small_string("zz")        # add_string: new entry
    s += [cs(0), 8, 150, 4, 0] + small_string("b")       # add to the last entry
    s += [cs(0), 3, 0, 0, 0]                             # fetch entry 0 into x0
    s += [cs(0), 3, 0, 0, 1]                             # fetch entry 1 into x0
    s += [cs(0), 9, 0, 0, 0, 0, 4, 0] + small_string("z")  # set_string (0, 0)
    s += [cs(0), 11, 0, 0, 162, 1, 0, 9]                 # set_buf(entry 0, -1)
    for v in [1, 2, 5]:
        s += [xv(1), 3, 3, v]                            # add_double to x1
    s += [xv(1), 4, 0, 3, 4, 1, 9]                       # add_double_x, write its buf
    s += [cs(1), 1, 1, cs(1), 2, 1]                      # add_var x1 twice
    s += [cs(1), 5, 0, 3, 6]                             # add_double: new entry
    s += [cs(1), 6, 0, 1, 0, 0, 3, 7]                    # set_double (1, 0)
    s += [cs(1), 7, 0, 1, 0, 0]                          # get (1, 0)
    s += [cs(1), 3, 1, 0, 1]                             # fetch entry 1 into x1
    s += [xv(1), 2, 30]                                  # shrink raising the count
    s += [xv(2), 5, 0, 0, 0, 158]                        # set_integer -1 into u32
    s += [xv(2), 6, 0, 0]
    s += [cs(1), 0, 2, 0, 0]                             # shrink s1
    s += [cs(0), 0, 1, 0, 0, 1, 1]                       # change s0 to its own form
    write("fuzz_columns", "mixed", s)

    # Single column sets, wrong types and forms, inert codes.
    s = [COL_TYPES.index(2), 0, COL_TYPES.index(5), 0, COL_TYPES.index(0), 1,
         COL_TYPES.index(2), 0, COL_TYPES.index(5), 0]
    s += [xv(0), 5, 0, 0, 0, 160]                        # set_integer INT64_MAX on a single i64
    s += [cs(0), 1, 0, cs(0), 1, 0]                      # add_var twice
    s += [xv(1), 9, 0, 0, 4, 0] + small_string(" ab")    # set_string on a single string
    s += [cs(1), 1, 1, cs(1), 3, 1, 0, 0]                # add_var, fetch back
    s += [cs(0), 6, 0, 1, 0, 3, 0, 160]                  # set on a single column: pos ignored
    s += [cs(0), 11, 0, 0, 0, 0, 1, 0, 5]                # set_buf on a single column: nothing
    s += [xv(2), 3, 0, 3, xv(2), 13, 0, 1, 1, 0, 4]      # numbers on an inert light variant
    s += [cs(0), 1, 2]                                   # add_var of the wrong type
    write("fuzz_columns", "single", s)


if __name__ == "__main__":
    std_seeds()
    var_seeds()
    columns_seeds()
