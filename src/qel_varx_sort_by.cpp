// Full variant: a stable sort of any array by the caller's comparison.
//
// The entries are merge-sorted: runs of kRun entries by insertion, then
// merged in passes between the array and one scratch block of n entries, so
// equal entries keep their order, the caller's function runs O(n log n)
// times and nothing is allocated per entry.  The function sees each entry as
// a single variant: a value entry through a view made on the stack (the
// array's code and schema, the value and the entry's caller value; a string
// borrows the array's bytes), a record array's element as itself.
#include <qel.h>

#include <cstdint>
#include <cstring>
#include <utility>

#include "internal/qel_var_internal.h"
#include "qel_std_inline.h"
#include "qel_require.h"

namespace {

using qel::storage;
using qel::storage_of;

constexpr int64_t kRun = 16;

// Requires `from` sorted on lo..mid-1 and mid..hi-1; merges them into `to`,
// taking the right entry first only when the left one sorts after it.
template <typename E, typename After>
void merge(const E *from, int64_t lo, int64_t mid, int64_t hi, E *to, After &after) {
  int64_t i = lo;
  int64_t j = mid;
  int64_t k = lo;
  while (i < mid && j < hi) to[k++] = after(from[i], from[j]) ? from[j++] : from[i++];
  while (i < mid) to[k++] = from[i++];
  while (j < hi) to[k++] = from[j++];
}

// Requires n entries at a and after(x, y) true when x must follow y; sorts
// them stably.
template <typename E, typename After>
void stable_sort(E *a, int64_t n, After after) {
  for (int64_t lo = 0; lo < n; lo += kRun) {
    const int64_t hi = n - lo > kRun ? lo + kRun : n;
    for (int64_t i = lo + 1; i < hi; ++i) {
      const E x = a[i];
      int64_t j = i;
      for (; j > lo && after(a[j - 1], x); --j) a[j] = a[j - 1];
      a[j] = x;
    }
  }
  if (n <= kRun) return;
  E *scratch = static_cast<E *>(qel_malloc(static_cast<size_t>(n) * sizeof(E)));
  E *from = a;
  E *to = scratch;
  for (int64_t width = kRun; width<n; width = width> n / 2 ? n : width * 2) {
    for (int64_t lo = 0; lo < n;) {
      const int64_t mid = n - lo > width ? lo + width : n;
      const int64_t hi = n - mid > width ? mid + width : n;
      merge(from, lo, mid, hi, to, after);
      lo = hi;
    }
    std::swap(from, to);
  }
  if (from != a) std::memcpy(static_cast<void *>(a), from, static_cast<size_t>(n) * sizeof(E));
  qel_free(scratch);
}

// Requires a value array's variant; a single variant of its code and schema
// with nothing stored yet, to be filled per entry.
qel_var blank_view(const qel_var *var) {
  qel_var v{};
  v.type = var->type;
  v.schema = var->schema;
  return v;
}

}  // namespace

// Requires a variant; sorts an array stably by compare (NULL: nothing).
extern "C" QEL_API void qel_var_sort_by(qel_var *var, qel_var_compare compare, void *context) {
  QEL_REQUIRE(var != nullptr);
  if (var->multi == 0 || compare == nullptr) return;
  qel_var x = blank_view(var);
  qel_var y = x;
  switch (storage_of(var->type)) {
    case storage::bits32: {
      qel_arrayd *a = &var->data.arrayd;
      qel_detail::drop_lookup(a);  // the keyed-insert index knows the old positions
      stable_sort(a->entries, qel_detail::in_use(a), [&](const qel_arrayd_entry &p, const qel_arrayd_entry &q) {
        x.data.bits32 = p.value, x.buf = p.buf, y.data.bits32 = q.value, y.buf = q.buf;
        return compare(&x, &y, context) > 0;
      });
      break;
    }
    case storage::bits64: {
      qel_arrayx *a = &var->data.arrayx;
      qel_detail::drop_lookup(a);
      stable_sort(a->entries, qel_detail::in_use(a), [&](const qel_arrayx_entry &p, const qel_arrayx_entry &q) {
        x.data.bits64 = static_cast<uint64_t>(p.value), x.buf = p.buf;
        y.data.bits64 = static_cast<uint64_t>(q.value), y.buf = q.buf;
        return compare(&x, &y, context) > 0;
      });
      break;
    }
    case storage::bytes: {
      qel_array *a = &var->data.array;
      qel_detail::drop_lookup(a);
      char *pool = a->pool.bytes;
      stable_sort(a->entries, qel_detail::in_use(a), [&](const qel_array_entry &p, const qel_array_entry &q) {
        x.data.stream = qel_stream{pool + p.offset, p.length, p.length}, x.buf = p.buf;
        y.data.stream = qel_stream{pool + q.offset, q.length, q.length}, y.buf = q.buf;
        return compare(&x, &y, context) > 0;
      });
      break;
    }
    case storage::record: {
      qel_arrays *a = &var->data.vars;
      // A slot with no element (a count raised by hand) sorts last, unseen.
      stable_sort(a->entries, qel_detail::in_use(a), [&](void *p, void *q) {
        if (p == nullptr || q == nullptr) return p == nullptr && q != nullptr;
        return compare(static_cast<const qel_var *>(p), static_cast<const qel_var *>(q), context) > 0;
      });
      break;
    }
  }
}
