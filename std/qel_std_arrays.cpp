// The pointer array (qel_arrays): pointers it holds but does not own.
#include "qel_std.h"
#include "qel_std_inline.h"

using qel_detail::in_use;

// Requires an uninitialised or terminated record; an empty array.
extern "C" QEL_API void qel_arrays_init(qel_arrays *a, int zero) {
  (void)zero;
  a->entries = nullptr;
  a->count = 0;
  a->capacity = 0;
}

// Requires an initialised array; releases the slots (not the elements).
extern "C" QEL_API void qel_arrays_term(qel_arrays *a) {
  std::free(a->entries);
  qel_arrays_init(a, 0);
}

// Requires an initialised array; adds the pointer at the end.
extern "C" QEL_API void qel_arrays_append(qel_arrays *a, void *element) {
  int64_t n = in_use(a);
  if (n == a->capacity) {
    if (n >= qel_detail::kMaxEntries) qel_detail::out_of_memory();
    int64_t cap = qel_detail::next_capacity(a->capacity, n + 1);
    a->entries = qel_detail::resize_entries(a->entries, a->capacity, cap);
    a->capacity = cap;
  }
  a->entries[n] = element;
  a->count = n + 1;
}

// Requires an initialised array; the pointer at index, NULL outside the array.
extern "C" QEL_API void *qel_arrays_get_at(const qel_arrays *a, int64_t index) {
  if (index < 0 || index >= in_use(a)) return nullptr;
  return a->entries[index];
}

// Requires an initialised array; hands every element, in order, to the
// destructor (when not NULL), then empties the array, which stays usable.
extern "C" QEL_API void qel_arrays_free_all(qel_arrays *a, void (*destructor)(void *element)) {
  int64_t n = in_use(a);
  if (destructor != nullptr)
    for (int64_t i = 0; i < n; i++) destructor(a->entries[i]);
  if (a->capacity > 0)
    std::memset(static_cast<void *>(a->entries), 0, static_cast<size_t>(a->capacity) * sizeof(void *));
  a->count = 0;
}
