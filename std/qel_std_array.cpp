// qel_array: byte strings kept back to back in one pool.
//
// Entries hold 32-bit offsets and lengths into the pool, so a pool never
// holds more than 4 GiB - 1 bytes and a longer string is refused.  Strings
// may be appended or set from the array's own pool: the source is located
// by offset before the pool can move.  qel_array_set_at overwrites in place
// when the new string fits in the old one's bytes and otherwise appends it;
// when the pool must grow for such a set and more than half of it is dead,
// the live strings are compacted into a fresh pool instead.  Sorting and
// binary search live in qel_std_array_sort.cpp.
#include "qel_std.h"
#include "qel_std_pool.h"

namespace {

using qel_detail::entry_view;
using qel_detail::in_use;
using qel_detail::lookup;
using qel_detail::lookup_slots;
using qel_detail::used_bytes;
using qel_detail::view;

// Returned for an entry in use whose string is empty, so that a string
// pointer handed out for an entry in use is never NULL.
const char kEmpty[1] = {0};

// ---------------------------------------------------------------- string index
// Slots are two words: the string's 64-bit hash and its position + 1.

// What slookup_find gives for a string it does not find when on the way it
// met an entry whose bytes no longer hash to what its slot holds: entries
// were rewritten behind the index's back, which a rebuild puts right.
constexpr int64_t kStale = -2;

// Requires a string index over a's entries and h the string's shash;
// position of the string, -1 when absent, or kStale.  A slot of the same
// hash naming other bytes is probed past: under the index's secret key such
// collisions are rare and cannot be chosen, and only a rewritten entry (its
// bytes hashed again differ from the slot) makes the index stale.
int64_t slookup_find(const lookup *lk, const qel_array *a, uint64_t h, const char *p, size_t n) {
  const uint64_t *s = lookup_slots(lk);
  uint64_t i = h & lk->mask;
  int64_t result = -1;
  for (;;) {
    uint64_t pos1 = s[2 * i + 1];
    if (pos1 == 0) return result;
    if (s[2 * i] == h) {
      view v = entry_view(a, a->entries[pos1 - 1]);
      if (v.n == n && qel_detail::same_bytes(v.p, p, n)) return static_cast<int64_t>(pos1 - 1);
      if (qel_detail::shash(lk, v.p, v.n) != h) result = kStale;
    }
    i = (i + 1) & lk->mask;
  }
}

// Requires a string index with a free slot; records (h, pos).
void slookup_place(lookup *lk, uint64_t h, int64_t pos) {
  uint64_t *s = lookup_slots(lk);
  uint64_t i = h & lk->mask;
  while (s[2 * i + 1] != 0) i = (i + 1) & lk->mask;
  s[2 * i] = h;
  s[2 * i + 1] = static_cast<uint64_t>(pos) + 1;
  lk->used++;
}

// Requires a string index; the same contents in a table twice the size.
lookup *slookup_grow(lookup *lk) {
  lookup *bigger = qel_detail::make_lookup(2 * (lk->mask + 1), &lk->key);
  const uint64_t *s = lookup_slots(lk);
  for (uint64_t i = 0; i <= lk->mask; i++)
    if (s[2 * i + 1] != 0) slookup_place(bigger, s[2 * i], static_cast<int64_t>(s[2 * i + 1] - 1));
  bigger->count = lk->count;
  std::free(lk);
  return bigger;
}

// Requires an index over entries 0..pos-1 of a; extends it by entry pos.
lookup *slookup_add(lookup *lk, const qel_array *a, int64_t pos) {
  view v = entry_view(a, a->entries[pos]);
  const uint64_t h = qel_detail::shash(lk, v.p, v.n);
  if (slookup_find(lk, a, h, v.p, v.n) < 0) {  // a true collision gets its own slot
    if (2 * (lk->used + 1) > lk->mask + 1) lk = slookup_grow(lk);
    slookup_place(lk, h, pos);
  }
  lk->count = pos + 1;
  return lk;
}

// Requires an initialised array; its index, rebuilt unless it describes the
// current count.
lookup *valid_lookup(qel_array *a) {
  const int64_t n = in_use(a);
  auto *lk = static_cast<lookup *>(a->priv_lookup);
  if (lk != nullptr && lk->count == n) return lk;
  qel_detail::drop_lookup(a);
  lk = qel_detail::make_lookup(qel_detail::slots_for(n), nullptr);
  for (int64_t i = 0; i < n; i++) lk = slookup_add(lk, a, i);
  lk->count = n;
  a->priv_lookup = lk;
  return lk;
}

// Requires an array whose entries first..count-1 were just appended; keeps
// its index right (extended if it described first entries, else dropped).
void note_appended(qel_array *a, int64_t first) {
  auto *lk = static_cast<lookup *>(a->priv_lookup);
  if (lk == nullptr) return;
  if (lk->count != first) {
    qel_detail::drop_lookup(a);
    return;
  }
  for (int64_t i = first; i < a->count; i++) lk = slookup_add(lk, a, i);
  a->priv_lookup = lk;
}

// ---------------------------------------------------------------- pool

// Requires an initialised array; makes count valid and leaves room for
// extra more entries (growth by a factor).
void reserve_entries(qel_array *a, int64_t extra) {
  const int64_t n = in_use(a);
  a->count = n;
  if (extra > qel_detail::kMaxEntries - n) qel_detail::out_of_memory();
  if (n + extra <= a->capacity) return;
  int64_t cap = qel_detail::next_capacity(a->capacity, n + extra);
  a->entries = qel_detail::resize_entries(a->entries, a->capacity, cap);
  a->capacity = cap;
}

// Requires a storable string (may lie in a's pool); appends it with buf.
// False, and no change, when the pool would pass its 4 GiB limit.
bool push(qel_array *a, const char *bytes, int64_t length, uint64_t buf) {
  const int64_t used = used_bytes(&a->pool);
  if (length > qel_detail::kPoolLimit - used) return false;
  reserve_entries(a, 1);
  qel_detail::bytes_append(&a->pool, bytes, length);
  const int64_t n = a->count;
  a->entries[n].offset = static_cast<uint32_t>(used);
  a->entries[n].length = static_cast<uint32_t>(length);
  a->entries[n].buf = buf;
  a->count = n + 1;
  note_appended(a, n);
  return true;
}

// Requires an initialised array; makes every entry from `from` up to the
// capacity an empty string at offset 0 (their caller values stay).
void clear_strings(qel_array *a, int64_t from) {
  for (int64_t i = from; i < a->capacity; i++) {
    a->entries[i].offset = 0;
    a->entries[i].length = 0;
  }
}

// Requires an initialised array; the bytes of its first n entries except
// skip (-1 for none), saturating just above the pool limit.
int64_t live_bytes(const qel_array *a, int64_t n, int64_t skip) {
  int64_t live = 0;
  for (int64_t i = 0; i < n && live <= qel_detail::kPoolLimit; i++)
    if (i != skip) live += static_cast<int64_t>(entry_view(a, a->entries[i]).n);
  return live;
}

// Requires the n entries in use, skip one of them (or -1), and capacity at
// least their bytes in all (skip excluded); moves the live strings, in entry order,
// into a fresh pool of that capacity (skip becomes empty) and clears the
// entries beyond n.
void compact(qel_array *a, int64_t n, int64_t skip, int64_t capacity) {
  auto *fresh = static_cast<char *>(qel_detail::xmalloc(static_cast<size_t>(capacity)));
  int64_t at = 0;
  for (int64_t i = 0; i < n; i++) {
    view v = i == skip ? view{nullptr, 0} : entry_view(a, a->entries[i]);
    if (v.n != 0) std::memcpy(fresh + at, v.p, v.n);
    a->entries[i].offset = v.n != 0 ? static_cast<uint32_t>(at) : 0;
    a->entries[i].length = static_cast<uint32_t>(v.n);
    at += static_cast<int64_t>(v.n);
  }
  std::memset(fresh + at, 0, static_cast<size_t>(capacity - at));
  clear_strings(a, n);
  std::free(a->pool.bytes);
  a->pool.bytes = fresh;
  a->pool.length = at;
  a->pool.capacity = capacity;
}

// Pool capacity for needed bytes with n entries: x1.5, and at least n bytes
// of room, so that the O(n) scan before the next growth is paid for by the
// bytes appended meanwhile.
int64_t pool_capacity(int64_t needed, int64_t n) {
  int64_t cap = needed + needed / 2;
  if (cap < needed + n) cap = needed + n;
  if (cap < 16) cap = 16;
  if (cap > qel_detail::kPoolLimit) cap = needed;
  return cap;
}

// Requires index in use and a storable string not inside a's pool; puts it
// at the pool's end for entry index, compacting the pool instead of growing
// it when more than half of it is dead.  False, and no change, when even
// the compacted pool would pass 4 GiB.
bool relocate(qel_array *a, int64_t index, const char *bytes, int64_t length) {
  const int64_t n = in_use(a);
  const int64_t used = used_bytes(&a->pool);
  if (used + length > a->pool.capacity || length > qel_detail::kPoolLimit - used) {  // no room, or past 4 GiB
    const int64_t live = live_bytes(a, n, index);
    if (2 * live < used && live + length <= qel_detail::kPoolLimit) {
      compact(a, n, index, pool_capacity(live + length, n));
    } else {
      if (length > qel_detail::kPoolLimit - used) return false;
      qel_detail::bytes_reserve_exact(&a->pool, pool_capacity(used + length, n));
    }
  }
  const int64_t at = used_bytes(&a->pool);
  if (length != 0) std::memcpy(a->pool.bytes + at, bytes, static_cast<size_t>(length));
  a->pool.length = at + length;
  a->entries[index].offset = static_cast<uint32_t>(at);
  a->entries[index].length = static_cast<uint32_t>(length);
  return true;
}

}  // namespace

// Requires an uninitialised or terminated record; an empty array and pool.
extern "C" QEL_API void qel_array_init(qel_array *a, int zero) {
  (void)zero;
  a->entries = nullptr;
  a->count = 0;
  a->capacity = 0;
  a->pool.bytes = nullptr;
  a->pool.length = 0;
  a->pool.capacity = 0;
  a->priv_lookup = nullptr;
}

// Requires an initialised array; releases entries, pool and index.
extern "C" QEL_API void qel_array_term(qel_array *a) {
  qel_detail::drop_lookup(a);
  std::free(a->entries);
  std::free(a->pool.bytes);
  qel_array_init(a, 0);
}

// Requires an initialised array and length readable bytes (they may lie in
// the array's own pool).  A negative length, NULL bytes with a positive
// length, a string of 4 GiB or more, or a pool that would pass 4 GiB:
// nothing is appended and nothing changes.
extern "C" QEL_API void qel_array_append(qel_array *a, const char *bytes, int64_t length, uint32_t tag) {
  if (!qel_detail::storable(bytes, length)) return;
  push(a, bytes, length, tag);
}

// Requires initialised arrays (src may be dst); appends copies of src's
// strings with their caller values, or nothing if dst's pool would pass 4 GiB.
extern "C" QEL_API void qel_array_append_array(qel_array *dst, const qel_array *src) {
  const int64_t n = in_use(src);
  const int64_t total = live_bytes(src, n, -1);
  const int64_t used = used_bytes(&dst->pool);
  if (n == 0 || total > qel_detail::kPoolLimit - used) return;
  reserve_entries(dst, n);
  qel_detail::bytes_reserve(&dst->pool, used + total);
  // Read src only now: when src is dst its entries and pool may have moved,
  // and its views still end at the old length, below what is written.
  const int64_t base = dst->count;
  int64_t at = used;
  for (int64_t i = 0; i < n; i++) {
    const qel_array_entry e = src->entries[i];
    view v = entry_view(src, e);
    if (v.n != 0) std::memcpy(dst->pool.bytes + at, v.p, v.n);
    qel_array_entry &d = dst->entries[base + i];
    d.offset = static_cast<uint32_t>(at);
    d.length = static_cast<uint32_t>(v.n);
    d.buf = e.buf;
    at += static_cast<int64_t>(v.n);
  }
  dst->pool.length = at;
  dst->count = base + n;
  note_appended(dst, base);
}

// Requires initialised arrays; dst becomes an exact copy of src (pool,
// entries in use and their caller values).
extern "C" QEL_API void qel_array_clone(const qel_array *src, int zero1, qel_array *dst, int zero2, int zero3) {
  (void)zero1, (void)zero2, (void)zero3;
  if (src == dst) return;
  qel_detail::drop_lookup(dst);
  const int64_t n = in_use(src);
  qel_detail::bytes_copy(&dst->pool, src->pool.bytes, used_bytes(&src->pool));
  qel_detail::reserve_exact(dst, n);
  if (n > 0)
    std::memcpy(static_cast<void *>(dst->entries), static_cast<const void *>(src->entries),
                static_cast<size_t>(n) * sizeof(qel_array_entry));
  if (dst->capacity > n)
    std::memset(static_cast<void *>(dst->entries + n), 0,
                static_cast<size_t>(dst->capacity - n) * sizeof(qel_array_entry));
  dst->count = n;
}

// Requires an initialised array; capacity of at least n entries in all
// (at least 1.5 times the old one when it grows); new entries are empty.
extern "C" QEL_API void qel_array_expand(qel_array *a, int64_t n) {
  qel_detail::drop_lookup(a);
  if (n <= a->capacity || n > qel_detail::kMaxEntries) return;
  int64_t cap = a->capacity + a->capacity / 2;
  qel_detail::reserve_exact(a, cap > n ? cap : n);
}

// Requires an initialised array; count 0 and an empty pool, storage kept;
// every entry up to the capacity becomes an empty string (caller values stay).
extern "C" QEL_API void qel_array_remove_all(qel_array *a) {
  qel_detail::drop_lookup(a);
  a->count = 0;
  a->pool.length = 0;
  clear_strings(a, 0);
}

// Requires an initialised array; the string of entry index (never NULL for
// an entry in use) and its tag; NULL, 0 and tag 0 outside 0..count-1.
extern "C" QEL_API uint32_t qel_array_get_at(const qel_array *a, int64_t index, const char **bytes_out,
                                             int64_t *length_out) {
  if (index < 0 || index >= in_use(a)) {
    if (bytes_out != nullptr) *bytes_out = nullptr;
    if (length_out != nullptr) *length_out = 0;
    return 0;
  }
  const qel_array_entry &e = a->entries[index];
  view v = entry_view(a, e);
  if (bytes_out != nullptr) *bytes_out = v.p != nullptr ? v.p : kEmpty;
  if (length_out != nullptr) *length_out = static_cast<int64_t>(v.n);
  return static_cast<uint32_t>(e.buf);
}

// Requires an initialised array and length readable bytes (they may lie in
// the array's own pool); entry index gets the string and buf = tag.
// Nothing happens outside 0..count-1 or for a string append would refuse.
extern "C" QEL_API void qel_array_set_at(qel_array *a, int64_t index, const char *bytes, int64_t length, uint32_t tag) {
  if (index < 0 || index >= in_use(a) || !qel_detail::storable(bytes, length)) return;
  qel_array_entry &e = a->entries[index];
  const view old = entry_view(a, e);
  bool done;
  if (static_cast<size_t>(length) <= old.n) {
    // Fits in the old string's bytes (memmove: the source may overlap them).
    if (length != 0) std::memmove(a->pool.bytes + e.offset, bytes, static_cast<size_t>(length));
    if (length == 0) e.offset = 0;
    e.length = static_cast<uint32_t>(length);
    done = true;
  } else if (qel_detail::points_into(bytes, a->pool.bytes, a->pool.capacity)) {
    // The source lives in the pool, which may move or be compacted: copy it out.
    auto *copy = static_cast<char *>(qel_detail::xmalloc(static_cast<size_t>(length)));
    std::memcpy(copy, bytes, static_cast<size_t>(length));
    done = relocate(a, index, copy, length);
    std::free(copy);
  } else {
    done = relocate(a, index, bytes, length);
  }
  if (done) {
    a->entries[index].buf = tag;
    qel_detail::drop_lookup(a);
  }
}

// Requires an initialised array; sets the caller value of entry index to
// the tag (zero-extended), leaving its string; nothing outside 0..count-1.
extern "C" QEL_API void qel_array_update_at(qel_array *a, int64_t index, uint32_t tag) {
  if (index < 0 || index >= in_use(a)) return;
  a->entries[index].buf = tag;
}

// Requires an initialised array; lowest position holding exactly these
// bytes, or -1 (always for a string the array could not hold).  While the
// keyed-insert index describes the entries in use, a position it finds (its
// probe compares the entry's bytes) is the answer; a miss is left to the
// linear search.
extern "C" QEL_API int64_t qel_array_find_index(const qel_array *a, const char *bytes, int64_t length) {
  if (!qel_detail::storable(bytes, length)) return -1;
  const auto len = static_cast<size_t>(length);
  const int64_t n = in_use(a);
  if (const auto *lk = static_cast<const lookup *>(a->priv_lookup); lk != nullptr && lk->count == n) {
    if (const int64_t last = lk->last; last >= 0 && last < n) {
      const view v = entry_view(a, a->entries[last]);
      if (v.n == len && qel_detail::same_bytes(v.p, bytes, len)) return last;
    }
    const int64_t pos = slookup_find(lk, a, qel_detail::shash(lk, bytes, len), bytes, len);
    if (pos >= 0) return pos;
  }
  for (int64_t i = 0; i < n; i++) {
    view v = entry_view(a, a->entries[i]);
    if (v.n == len && (len == 0 || std::memcmp(v.p, bytes, len) == 0)) return i;
  }
  return -1;
}

// Requires an initialised array and length readable bytes; the entry holding
// these bytes (lowest position), appended with buf 0 when absent.  Expected
// O(1).  For a string the array cannot take (negative length, NULL bytes
// with a positive length, 4 GiB or more, or a full pool) nothing is stored
// and the result is the entry just past count, left as it was.
extern "C" QEL_API qel_array_entry *qel_array_entry_insert(qel_array *a, const char *bytes, int64_t length) {
  if (qel_detail::storable(bytes, length)) {
    const auto len = static_cast<size_t>(length);
    const lookup *lk = valid_lookup(a);
    int64_t pos = slookup_find(lk, a, qel_detail::shash(lk, bytes, len), bytes, len);
    if (pos == kStale) {  // rebuilt under a new key: hashed again
      qel_detail::drop_lookup(a);
      lk = valid_lookup(a);
      pos = slookup_find(lk, a, qel_detail::shash(lk, bytes, len), bytes, len);
    }
    if (pos < 0) {
      const int64_t n = in_use(a);
      pos = push(a, bytes, length, 0) ? n : -1;
    }
    if (pos >= 0) {
      // Read again: push may have grown the index.
      if (auto *now = static_cast<lookup *>(a->priv_lookup)) now->last = pos;
      return &a->entries[pos];
    }
  }
  reserve_entries(a, 1);
  return &a->entries[a->count];
}
