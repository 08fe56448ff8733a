// The structs an export hands out: each ArrowSchema and ArrowArray owns one
// block (its private data) holding its child pointers and the child structs
// themselves, plus the data buffers it points to.  Every node releases its
// own children, so a consumer may move a child out and release it apart.
#ifndef QEL_ARROW_NODES_H
#define QEL_ARROW_NODES_H

#include <qel_arrow.h>

#include <cstddef>
#include <cstdint>

namespace qel::arrow {

// Requires s not live (released or never made), 0 <= n_children and a
// NUL-terminated format; makes s a live schema node with these strings
// copied, flags, and n_children children not yet made (release NULL).
void schema_make(ArrowSchema *s, const char *format, const char *name, int64_t name_len, int64_t flags,
                 int64_t n_children);

// Requires two live schemas: whether formats, names, flags and children agree.
bool schema_same(const ArrowSchema *a, const ArrowSchema *b);

// Requires a not live, 0 <= n_buffers <= 3, 0 <= n_children; makes a a live
// array node of this length (null_count 0, offset 0) with NULL buffers and
// n_children children not yet made.
void array_make(ArrowArray *a, int64_t length, int n_buffers, int64_t n_children);

// Requires a live array node and a buffer slot below its n_buffers, not yet
// given a block: a block of `bytes` bytes that the node owns, set as that
// buffer (the caller fills it).
void *array_buffer(ArrowArray *a, int slot, size_t bytes);

// Requires a live array node and a slot holding a block from array_buffer:
// the block grown or shrunk to `bytes` (contents kept up to the smaller size).
void *array_buffer_resize(ArrowArray *a, int slot, size_t bytes);

// Releases whatever of s and a is live and marks both released.
void release_both(ArrowSchema *s, ArrowArray *a);

}  // namespace qel::arrow

#endif
