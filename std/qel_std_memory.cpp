// Memory blocks.  qel_malloc never returns NULL: when memory runs out the
// process aborts, silently.
#include "qel_std.h"
#include "qel_std_inline.h"

// Requires nothing; a block of at least size bytes (aborts when out of memory).
extern "C" QEL_API void *qel_malloc(size_t size) { return qel_detail::xmalloc(size); }

// Requires a block from qel_malloc, or NULL.
extern "C" QEL_API void qel_free(void *block) { std::free(block); }
