// qel_hash: pointer values keyed by byte strings.
//
// Entries, slot table and keys are three blocks, or share one block sized
// once for a known count (qel_std_inline.h: hash_reserve_block); a hash
// outgrowing that block moves them to blocks of their own.
//
// Entries are kept in insertion order in one array, which is also the walk
// order; keys are copied into key_pool.  Lookups go through an open-
// addressing table of 32-bit slots (entry position + 1, 0 = empty) placed
// by each entry's stored 32-bit hash, kept at load 1/2 or less.  A key
// inserted again: if the newest entry under it holds NULL, that entry takes
// the new value; otherwise a second entry is added (sharing the key bytes),
// the table points at it, so qel_hash_get returns the newest, and a walk
// visits both.  The walk cursor is the position of the last entry returned,
// so a walk survives the caller writing values and other hashes changing.
#include "qel_std.h"
#include "qel_std_bytes.h"

namespace {

// Entries are addressed by 32-bit slots, and the table of 2^32 slots at
// most must stay half empty.
constexpr uint32_t kMaxHashEntries = 0x7fffffff;
constexpr int64_t kMaxKeyBytes = UINT32_MAX;

// Requires an initialised hash with a slot table; the slot holding the
// newest entry with these hash bits and bytes, or the empty slot ending
// the probe.
uint32_t probe(const qel_hash *h, uint32_t hv, const char *key, uint32_t len) {
  const uint32_t mask = h->priv_slot_mask;
  uint32_t i = hv & mask;
  for (;;) {
    uint32_t s = h->priv_slots[i];
    if (s == 0) return i;
    const qel_hash_entry &e = h->priv_entries[s - 1];
    if (e.priv_hash == hv && e.key_length == len && qel_detail::same_bytes(h->key_pool + e.key_offset, key, len))
      return i;
    i = (i + 1) & mask;
  }
}

// Requires an initialised hash; a slot table of `slots` (a power of two,
// 2^32 at most) holding every entry, the newest of equal keys winning.
void rebuild_slots(qel_hash *h, uint64_t slots) {
  std::free(h->priv_slots);
  h->priv_slots = static_cast<uint32_t *>(qel_detail::xcalloc(static_cast<size_t>(slots) * sizeof(uint32_t)));
  h->priv_slot_mask = static_cast<uint32_t>(slots - 1);
  for (uint32_t k = 0; k < h->priv_count; k++) {
    const qel_hash_entry &e = h->priv_entries[k];
    // Equal keys share bytes only by offset; probing compares them anyway.
    uint32_t i = probe(h, e.priv_hash, h->key_pool + e.key_offset, e.key_length);
    h->priv_slots[i] = k + 1;
  }
}

// Requires an initialised hash and room for len more key bytes below 4 GiB;
// copies the key (which may lie in key_pool) and returns its offset.
uint32_t store_key(qel_hash *h, const char *key, uint32_t len) {
  const uint32_t at = h->priv_key_length;
  const uint64_t needed = static_cast<uint64_t>(at) + len;
  if (h->key_pool == nullptr || needed > h->priv_key_capacity) {
    uint64_t cap = static_cast<uint64_t>(h->priv_key_capacity) + h->priv_key_capacity / 2;
    if (cap < 64) cap = 64;
    if (cap < needed) cap = needed;
    if (cap > static_cast<uint64_t>(kMaxKeyBytes)) cap = static_cast<uint64_t>(kMaxKeyBytes);
    const bool inside = qel_detail::points_into(key, h->key_pool, h->priv_key_capacity);
    const uintptr_t off = inside ? reinterpret_cast<uintptr_t>(key) - reinterpret_cast<uintptr_t>(h->key_pool) : 0;
    h->key_pool = static_cast<char *>(qel_detail::xrealloc(h->key_pool, static_cast<size_t>(cap)));
    h->priv_key_capacity = static_cast<uint32_t>(cap);
    if (inside) key = h->key_pool + off;
  }
  if (len != 0) std::memmove(h->key_pool + at, key, len);
  h->priv_key_length = static_cast<uint32_t>(needed);
  return at;
}

// Requires an initialised hash whose entries, slots and keys lie in its
// block; moves them to blocks of their own (the block stays, for its owner).
void leave_block(qel_hash *h) {
  const size_t entries = sizeof(qel_hash_entry) * h->priv_capacity;
  const size_t slots = sizeof(uint32_t) * (static_cast<size_t>(h->priv_slot_mask) + 1);
  auto *e = static_cast<qel_hash_entry *>(qel_detail::xmalloc(entries));
  std::memcpy(e, h->priv_entries, entries);
  auto *sl = static_cast<uint32_t *>(qel_detail::xmalloc(slots));
  std::memcpy(sl, h->priv_slots, slots);
  auto *keys = static_cast<char *>(qel_detail::xmalloc(h->priv_key_capacity));
  std::memcpy(keys, h->key_pool, h->priv_key_capacity);
  h->priv_entries = e;
  h->priv_slots = sl;
  h->key_pool = keys;
  h->priv_flags &= ~qel_detail::kHashInBlock;
}

}  // namespace

// Requires an uninitialised or terminated record; an empty hash.
extern "C" QEL_API void qel_hash_init(qel_hash *h, int one, int zero) {
  (void)one, (void)zero;
  qel_detail::hash_init(h);
}

// Requires an initialised hash; releases table, entries, key copies and the
// block (not the values).
extern "C" QEL_API void qel_hash_term(qel_hash *h) {
  if (!(h->priv_flags & qel_detail::kHashInBlock)) {
    std::free(h->key_pool);
    std::free(h->priv_entries);
    std::free(h->priv_slots);
  }
  std::free(h->priv_block);
  qel_hash_init(h, 1, 0);
}

// Requires an initialised hash and length readable key bytes (they may lie
// in key_pool).  Returns the entry now holding value, or NULL and no change
// for a negative length, NULL key with a positive length, a key pool that
// would pass 4 GiB, or 2^31 - 1 entries already.
extern "C" QEL_API qel_hash_entry *qel_hash_insert(qel_hash *h, const char *key, int64_t length, void *value) {
  if (length < 0 || length > kMaxKeyBytes || (key == nullptr && length > 0)) return nullptr;
  const auto len = static_cast<uint32_t>(length);
  const uint32_t hv = qel_detail::key_hash(key, len);
  qel_hash_entry *old = qel_detail::hash_find_hashed(h, key, len, hv);  // hashed once
  if (old != nullptr && old->value == nullptr) {
    old->value = value;
    return old;
  }
  if (h->priv_count >= kMaxHashEntries) return nullptr;
  if (old == nullptr && static_cast<int64_t>(h->priv_key_length) + length > kMaxKeyBytes) return nullptr;
  if (old != nullptr) h->priv_flags |= qel_detail::kHashDuplicates;
  if ((h->priv_flags & qel_detail::kHashInBlock) &&
      ((old == nullptr && static_cast<uint64_t>(h->priv_key_length) + len > h->priv_key_capacity) ||
       h->priv_count == h->priv_capacity ||
       2 * (static_cast<uint64_t>(h->priv_count) + 1) > static_cast<uint64_t>(h->priv_slot_mask) + 1))
    leave_block(h);  // it grows: out of the block, which keeps its owner's part
  // Every entry's key lies in an allocated pool, even an empty key.
  const uint32_t offset = old != nullptr ? old->key_offset : store_key(h, key, len);
  if (h->priv_count == h->priv_capacity) {
    uint64_t cap = static_cast<uint64_t>(h->priv_capacity) + h->priv_capacity / 2;
    if (cap < 8) cap = 8;
    if (cap > kMaxHashEntries) cap = kMaxHashEntries;
    h->priv_entries = static_cast<qel_hash_entry *>(
        qel_detail::xrealloc(h->priv_entries, static_cast<size_t>(cap) * sizeof(qel_hash_entry)));
    h->priv_capacity = static_cast<uint32_t>(cap);
  }
  const uint32_t k = h->priv_count;
  qel_hash_entry &e = h->priv_entries[k];
  e.key_offset = offset;
  e.key_length = len;
  e.value = value;
  e.priv_hash = hv;
  e.priv_reserved = 0;
  h->priv_count = k + 1;
  const uint64_t slots = h->priv_slots == nullptr ? 0 : static_cast<uint64_t>(h->priv_slot_mask) + 1;
  if (2 * static_cast<uint64_t>(h->priv_count) > slots) {
    rebuild_slots(h, slots == 0 ? 16 : 2 * slots);
  } else {
    // The slot of an older equal key, or a free one: either way it now
    // names the newest entry.
    h->priv_slots[probe(h, hv, h->key_pool + offset, len)] = k + 1;
  }
  return &h->priv_entries[k];
}

// Requires an initialised hash; the value of the newest entry under exactly
// these bytes, or NULL.
extern "C" QEL_API void *qel_hash_get(const qel_hash *h, const char *key, int64_t length) {
  return qel_detail::hash_get(h, key, length);
}

// Requires an initialised hash and a cursor word; the first entry in
// insertion order (cursor set up for qel_hash_entry_next), or NULL.
extern "C" QEL_API qel_hash_entry *qel_hash_entry_first(qel_hash *h, void **cursor) {
  if (cursor != nullptr) *cursor = nullptr;
  return h->priv_count != 0 ? &h->priv_entries[0] : nullptr;
}

// Requires a cursor from qel_hash_entry_first or _next on this hash (or a
// NULL cursor and the last entry returned); the next entry, or NULL.
extern "C" QEL_API qel_hash_entry *qel_hash_entry_next(qel_hash *h, void **cursor, qel_hash_entry *entry) {
  uintptr_t at;
  if (cursor != nullptr) {
    at = reinterpret_cast<uintptr_t>(*cursor);
  } else {
    if (!qel_detail::points_into(entry, h->priv_entries,
                                 static_cast<int64_t>(h->priv_count) * static_cast<int64_t>(sizeof(qel_hash_entry))))
      return nullptr;
    at = (reinterpret_cast<uintptr_t>(entry) - reinterpret_cast<uintptr_t>(h->priv_entries)) / sizeof(qel_hash_entry);
  }
  const uintptr_t next = at + 1;
  if (next >= h->priv_count) return nullptr;
  if (cursor != nullptr) *cursor = reinterpret_cast<void *>(next);
  return &h->priv_entries[next];
}
