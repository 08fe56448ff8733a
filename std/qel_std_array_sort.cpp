// qel_array: sorting and binary search.
//
// Order: unsigned bytes over the common length, then the shorter string
// first (the order of qel_mem_cmp).  The sort is stable in both directions
// and never compares through the pool: each entry becomes a 16-byte record
// of an 8-byte big-endian chunk of its string plus a word holding where the
// string ends relative to the chunk and the entry's position.  Records are
// sorted as plain integers (radix for large runs, std::sort below); runs of
// records whose strings agree on the chunk and go on are then refined by the
// next chunk, iteratively, so long shared prefixes cost no recursion.
#include <algorithm>
#include <bit>

#include "qel_std.h"
#include "qel_std_pool.h"
#include "qel_std_sort.h"

namespace {

using qel_detail::entry_view;
using qel_detail::in_use;
using qel_detail::view;

// key: the chunk; aux: the end class in bits 56..63, the position below.
struct record {
  uint64_t key;
  uint64_t aux;
};
static_assert(sizeof(record) == sizeof(qel_array_entry), "records double as entry storage");

constexpr uint64_t kPosMask = (uint64_t{1} << 56) - 1;
constexpr size_t kRecordRadixThreshold = 128;

// A run of records still to be ordered by the chunk at byte depth.
struct pending {
  size_t lo;
  size_t hi;
  size_t depth;
};

// Requires n <= 8 bytes at p (p may be NULL when n is 0); them as a
// big-endian number, zero-padded on the right.
uint64_t load_chunk(const char *p, size_t n) {
  unsigned char b[8] = {0, 0, 0, 0, 0, 0, 0, 0};
  if (n != 0) std::memcpy(b, p, n);
  uint64_t w;
  std::memcpy(&w, b, 8);
  if constexpr (std::endian::native == std::endian::little) w = __builtin_bswap64(w);
  return w;
}

class string_sorter {
 public:
  // Requires an initialised array with at least 2 entries in use.
  string_sorter(const qel_array *a, bool descending) : a_(a), descending_(descending), more_(descending ? 15 - 9 : 9) {}

  // Requires n records and n spare ones; sorts them (positions 0..n-1).
  void run(record *r, record *t, size_t n) {
    for (size_t i = 0; i < n; i++) load(r[i], i, 0);
    pending *stack = nullptr;
    size_t top = 0;
    size_t cap = 0;
    size_t lo = 0;
    size_t hi = n;
    size_t depth = 0;
    for (;;) {
      sort_records(r + lo, t, hi - lo);
      bool whole = false;
      for (size_t i = lo; i < hi;) {
        size_t j = i + 1;
        while (j < hi && r[j].key == r[i].key && (r[j].aux >> 56) == (r[i].aux >> 56)) j++;
        if (j - i >= 2 && (r[i].aux >> 56) == more_) {
          if (i == lo && j == hi) {
            whole = true;
          } else {
            // Pending runs are disjoint, at least 2 records each: n/2 at most.
            if (top == cap) {
              cap = cap == 0 ? 16 : 2 * cap;
              stack = static_cast<pending *>(qel_detail::xrealloc(stack, cap * sizeof(pending)));
            }
            stack[top++] = pending{i, j, depth + 8};
          }
        }
        i = j;
      }
      if (whole) {
        depth += shared_prefix(r + lo, hi - lo, depth);
      } else {
        if (top == 0) break;
        --top;
        lo = stack[top].lo;
        hi = stack[top].hi;
        depth = stack[top].depth;
      }
      for (size_t i = lo; i < hi; i++) load(r[i], r[i].aux & kPosMask, depth);
    }
    std::free(stack);
  }

 private:
  // Requires n records whose strings agree on the chunk at depth and go on
  // past it; how many bytes from depth on all of them share (at least 8).
  // Jumping there at once makes long equal prefixes cost one scan.
  size_t shared_prefix(const record *r, size_t n, size_t depth) const {
    view first = entry_view(a_, a_->entries[r[0].aux & kPosMask]);
    size_t shared = first.n - depth;
    for (size_t i = 1; i < n && shared > 8; i++) {
      view v = entry_view(a_, a_->entries[r[i].aux & kPosMask]);
      size_t limit = v.n - depth < shared ? v.n - depth : shared;
      shared = common_prefix(first.p + depth, v.p + depth, limit);
    }
    return shared;
  }

  // Requires n bytes at x and y; the length of their common prefix.
  static size_t common_prefix(const char *x, const char *y, size_t n) {
    size_t i = 0;
    for (; i + 8 <= n; i += 8) {
      uint64_t wx;
      uint64_t wy;
      std::memcpy(&wx, x + i, 8);
      std::memcpy(&wy, y + i, 8);
      if (wx != wy) break;
    }
    while (i < n && x[i] == y[i]) i++;
    return i;
  }

  // Requires pos in use; r becomes the record of entry pos at byte depth.
  void load(record &r, uint64_t pos, size_t depth) const {
    view v = entry_view(a_, a_->entries[pos]);
    const size_t rest = v.n > depth ? v.n - depth : 0;
    const size_t take = rest < 8 ? rest : 8;
    uint64_t key = load_chunk(take != 0 ? v.p + depth : nullptr, take);
    // 0..8: the string ends after that many chunk bytes; 9: it goes on.
    uint64_t cls = rest > 8 ? 9 : rest;
    if (descending_) {
      key = ~key;
      cls = 15 - cls;
    }
    r.key = key;
    r.aux = (cls << 56) | pos;
  }

  // Requires n records in position order within equal (key, class), and n
  // spare ones; orders them by (key, aux).
  static void sort_records(record *r, record *t, size_t n) {
    if (n <= kRecordRadixThreshold) {
      std::sort(r, r + n,
                [](const record &x, const record &y) { return x.key != y.key ? x.key < y.key : x.aux < y.aux; });
      return;
    }
    // Least significant first: the end class, then the chunk's bytes.
    qel_detail::radix_sort<record, 9>(r, t, n, [](const record &x, unsigned d) {
      return d == 0 ? static_cast<unsigned>(x.aux >> 56) : static_cast<unsigned>((x.key >> (8 * (d - 1))) & 0xffu);
    });
  }

  const qel_array *a_;
  bool descending_;
  uint64_t more_;
};

}  // namespace

// Requires an initialised array; sorts its entries in place by their bytes,
// stably, ascending for a nonzero flag and descending for 0.  Entries move
// whole (string reference and caller value).
extern "C" QEL_API void qel_array_qsort(qel_array *a, int flag) {
  qel_detail::drop_lookup(a);
  const auto n = static_cast<size_t>(in_use(a));
  if (n < 2) return;
  auto *r = static_cast<record *>(qel_detail::xmalloc(n * sizeof(record)));
  auto *t = static_cast<record *>(qel_detail::xmalloc(n * sizeof(record)));
  string_sorter(a, flag == 0).run(r, t, n);
  for (size_t i = 0; i < n; i++)
    std::memcpy(static_cast<void *>(&t[i]), &a->entries[r[i].aux & kPosMask], sizeof(record));
  std::memcpy(static_cast<void *>(a->entries), static_cast<const void *>(t), n * sizeof(record));
  std::free(r);
  std::free(t);
}

// Requires an initialised array sorted ascending; lowest position holding
// exactly these bytes by binary search, or -1.
extern "C" QEL_API int64_t qel_array_bfind_index(const qel_array *a, const char *bytes, int64_t length) {
  if (!qel_detail::storable(bytes, length)) return -1;
  const auto len = static_cast<size_t>(length);
  int64_t lo = 0;
  int64_t hi = in_use(a);
  while (lo < hi) {
    int64_t mid = lo + (hi - lo) / 2;
    view v = entry_view(a, a->entries[mid]);
    if (qel_detail::compare_bytes(v.p, v.n, bytes, len) < 0) lo = mid + 1;
    else hi = mid;
  }
  if (lo < in_use(a)) {
    view v = entry_view(a, a->entries[lo]);
    if (qel_detail::compare_bytes(v.p, v.n, bytes, len) == 0) return lo;
  }
  return -1;
}
