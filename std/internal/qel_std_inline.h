// qel_std_inline.h - the shared inline core of the support containers.
//
// Included by libqel_std and libqel alike (never installed).  It holds the
// hot paths of the 32-bit and 64-bit value arrays and the hash lookup as
// inline functions, so that the variant library pays no cross-library call per
// value; the exported functions of libqel_std are thin wrappers over these
// same functions.  Everything here is hidden: each library gets its own copy.
//
// The keyed-insert index (priv_lookup) of a value array is an open-addressing
// table of entry positions.  It remembers the count it describes and is only
// trusted while the array's count still equals it, and a hit only once the
// entry it names holds the key; any code that moves or rewrites entries
// without going through these functions must call drop_lookup() first.  Its
// slots are placed by a hash under a secret key the index draws when it is
// made (draw_key), so that no caller can choose keys that crowd it.
#ifndef QEL_STD_INLINE_H
#define QEL_STD_INLINE_H

#include <qel_std.h>

#include <cstddef>
#include <cstdint>
#include <cstdlib>
#include <cstring>

#include <malloc.h>
#include <sys/auxv.h>

#pragma GCC visibility push(hidden)

namespace qel_detail {

// ---------------------------------------------------------------- memory

// Requires nothing; never returns (memory exhausted or a size beyond reach).
[[noreturn]] inline void out_of_memory() { std::abort(); }

// Requires nothing; returns a block of at least size bytes, never NULL.
inline void *xmalloc(size_t size) {
  void *p = std::malloc(size != 0 ? size : 1);
  if (p == nullptr) out_of_memory();
  return p;
}

// Requires nothing; returns a zeroed block of at least size bytes.
inline void *xcalloc(size_t size) {
  void *p = std::calloc(1, size != 0 ? size : 1);
  if (p == nullptr) out_of_memory();
  return p;
}

// Requires p NULL or from xmalloc/xrealloc; resizes it, never returns NULL.
inline void *xrealloc(void *p, size_t size) {
  void *q = std::realloc(p, size != 0 ? size : 1);
  if (q == nullptr) out_of_memory();
  return q;
}

// Largest entry count of any array (2^55): far beyond any real memory, small
// enough that byte sizes, index tables and sort records (56-bit positions)
// never overflow.
inline constexpr int64_t kMaxEntries = int64_t{1} << 55;

// Requires 0 <= cap, cap < needed <= kMaxEntries; the next capacity (x1.5).
inline int64_t next_capacity(int64_t cap, int64_t needed) {
  int64_t grown = cap + cap / 2;
  if (grown < 8) grown = 8;
  if (grown < needed) grown = needed;
  if (grown > kMaxEntries) grown = kMaxEntries;
  return grown;
}

// Requires entries of old_cap entries (or NULL when 0), new_cap > old_cap;
// reallocates to new_cap entries and zero-fills the new ones.
template <typename Entry>
inline Entry *resize_entries(Entry *entries, int64_t old_cap, int64_t new_cap) {
  auto *p = static_cast<Entry *>(xrealloc(entries, static_cast<size_t>(new_cap) * sizeof(Entry)));
  std::memset(static_cast<void *>(p + old_cap), 0, static_cast<size_t>(new_cap - old_cap) * sizeof(Entry));
  return p;
}

// Requires an array record; count clamped to 0..capacity (what readers use).
template <typename A>
inline int64_t in_use(const A *a) {
  int64_t n = a->count;
  if (n < 0) return 0;
  return n < a->capacity ? n : a->capacity;
}

// Requires an array record (capacity >= 0, as every array keeps it); true for
// 0 <= i < capacity.  One unsigned compare covers the negative i.
template <typename A>
inline bool below_capacity(const A *a, int64_t i) {
  return static_cast<uint64_t>(i) < static_cast<uint64_t>(a->capacity);
}

// Requires an array record (capacity >= 0); true when entry index is in use
// and stored: 0 <= index < count and index < capacity, in two compares.
template <typename A>
inline bool in_range(const A *a, int64_t index) {
  return below_capacity(a, index) && index < a->count;
}

// ---------------------------------------------------------------- hashing

// Requires nothing; a strong 64-bit mix (all input bits reach all outputs).
inline uint64_t mix64(uint64_t x) {
  x ^= x >> 33;
  x *= 0xff51afd7ed558ccdULL;
  x ^= x >> 33;
  x *= 0xc4ceb9fe1a85ec53ULL;
  x ^= x >> 33;
  return x;
}

// Requires 8 readable bytes at p; them as one word.
inline uint64_t load64(const char *p) {
  uint64_t w;
  std::memcpy(&w, p, 8);
  return w;
}

// Requires 1 <= n <= 7 readable bytes at p; a word that holds every one of
// them (two overlapping 4-byte loads, or three single bytes for n <= 3), so
// that for one n, equal words mean equal bytes.  No byte-wise copy through
// memory: the loads go straight to registers.
inline uint64_t load_short(const char *p, size_t n) {
  if (n >= 4) {
    uint32_t lo;
    uint32_t hi;
    std::memcpy(&lo, p, 4);
    std::memcpy(&hi, p + n - 4, 4);
    return static_cast<uint64_t>(lo) | (static_cast<uint64_t>(hi) << 32);
  }
  return static_cast<uint64_t>(static_cast<unsigned char>(p[0])) |
         (static_cast<uint64_t>(static_cast<unsigned char>(p[n >> 1])) << 8) |
         (static_cast<uint64_t>(static_cast<unsigned char>(p[n - 1])) << 16);
}

// Requires n readable bytes at a and at b (either may be NULL when n is 0);
// true when they are the same bytes.  Inline word compares: the keys looked
// up are mostly short, where a call to memcmp costs more than the compare.
inline bool same_bytes(const char *a, const char *b, size_t n) {
  if (n >= 8) {
    for (size_t i = 0; i + 8 < n; i += 8)
      if (load64(a + i) != load64(b + i)) return false;
    return load64(a + n - 8) == load64(b + n - 8);
  }
  return n == 0 || load_short(a, n) == load_short(b, n);
}

// Requires nothing; the high and low halves of the 128-bit product folded
// into one word.  Not invertible, and with a secret in both factors no
// difference in the inputs gives a known difference in the result.
inline uint64_t fold(uint64_t a, uint64_t b) {
  const unsigned __int128 r = static_cast<unsigned __int128>(a) * b;
  return static_cast<uint64_t>(r) ^ static_cast<uint64_t>(r >> 64);
}

// The two secret words of a keyed byte hash.
struct hash_key {
  uint64_t k0;  // starts the chain, with the length
  uint64_t k1;  // masks the first word of every 16-byte block
};

// The fixed key of the hash of qel_hash, which has no room for a key of its
// own: its keys are member names, which the program chooses.
inline constexpr hash_key kFixedKey = {0x243f6a8885a308d3ULL, 0x13198a2e03707344ULL};

// Requires n readable bytes at p (p may be NULL when n is 0); their hash
// under key.  Each 16-byte block is one folded product of its two words,
// each masked by a secret (the second by the chain so far), so no word can
// cancel another without the key; the length starts the chain, and a full
// mix spreads the last product over the bits the tables place by.
inline uint64_t hash_bytes(const char *p, size_t n, const hash_key &key) {
  uint64_t s = key.k0 ^ (static_cast<uint64_t>(n) * 0x9e3779b97f4a7c15ULL);
  uint64_t a = 0;
  uint64_t b = 0;
  if (n > 16) {
    const char *end = p + n;
    do {
      s = fold(load64(p) ^ key.k1, load64(p + 8) ^ s);
      p += 16;
    } while (end - p > 16);
    a = load64(end - 16);  // the last 16 bytes, overlapping the last block
    b = load64(end - 8);
  } else if (n >= 8) {
    a = load64(p);
    b = load64(p + n - 8);
  } else if (n != 0) {
    a = load_short(p, n);
  }
  return mix64(fold(a ^ key.k1, b ^ s));
}

// Requires a place that differs between containers (an address the
// container owns); a secret hash key for it.  The process's 16 random bytes
// from the kernel (AT_RANDOM, read afresh: no state is kept) are folded with
// the address and with one on the stack (laid out anew in every process), so
// keys differ between containers and processes and cannot be computed from
// outside; the random bytes themselves cannot be recovered from a key.
inline hash_key draw_key(const void *place) {
  uint64_t secret[2] = {0x452821e638d01377ULL, 0xbe5466cf34e90c6cULL};
  if (const unsigned long at = getauxval(AT_RANDOM); at != 0)
    std::memcpy(secret, reinterpret_cast<const void *>(at), sizeof secret);
  const uint64_t local = reinterpret_cast<uintptr_t>(&secret);
  const uint64_t where = mix64(reinterpret_cast<uintptr_t>(place) ^ (local << 1));
  const uint64_t k0 = mix64(fold(secret[0] ^ where, secret[1] ^ 0xc0ac29b7c97c50ddULL));
  const uint64_t k1 = mix64(fold(secret[1] ^ where, secret[0] ^ 0x3f84d5b5b5470917ULL));
  return hash_key{k0, k1};
}

// ---------------------------------------------------------------- keyed-insert index

// Header of an index block; the slot table follows it in the same block.
// Slots are two words.  Integer arrays: the value's key word and position + 1
// (0 = empty), so a probe compares in the table and never reads the entries.
// String arrays: the string's hash and position + 1.  Slots are placed by a
// hash under the index's own secret key, drawn when the index is first made
// and kept while it grows, so no caller can choose values or strings that
// crowd one run of slots.
struct lookup {
  int64_t count;  // the array count this index describes
  uint64_t mask;  // slots - 1 (slots is a power of two)
  uint64_t used;  // occupied slots
  hash_key key;   // secret key of the slot hash
  int64_t last;   // position the last keyed insert found, or -1: the find that
                  // usually follows it (a count by key) needs no probe
};

// Requires a block from make_lookup; its slot words.
inline uint64_t *lookup_slots(lookup *lk) { return reinterpret_cast<uint64_t *>(lk + 1); }
inline const uint64_t *lookup_slots(const lookup *lk) { return reinterpret_cast<const uint64_t *>(lk + 1); }

// Requires 0 <= n <= kMaxEntries; the slot count (a power of two) that
// holds n values at load 1/2 or less.
inline uint64_t slots_for(int64_t n) {
  uint64_t slots = 16;
  while (slots < 2 * static_cast<uint64_t>(n) + 2) slots *= 2;
  return slots;
}

// Requires slots a power of two, and the key of the index it grows from (NULL
// for a new index); an empty index of that many slots, with that key or a
// fresh one.
inline lookup *make_lookup(uint64_t slots, const hash_key *key) {
  auto *lk = static_cast<lookup *>(xcalloc(sizeof(lookup) + static_cast<size_t>(slots) * 2 * sizeof(uint64_t)));
  lk->count = 0;
  lk->mask = slots - 1;
  lk->used = 0;
  lk->key = key != nullptr ? *key : draw_key(lk);
  lk->last = -1;
  return lk;
}

// Requires an integer index; the home slot of a key word.  The key goes
// through the full mix masked by the index's secret, so the values that
// share a home (or a run of homes) depend on a key no caller knows.
inline uint64_t ihome(const lookup *lk, uint64_t key) { return mix64(key ^ lk->key.k0) & lk->mask; }

// Requires a string index, n readable bytes at p; their hash (stored in the
// slots) under the index's key.
inline uint64_t shash(const lookup *lk, const char *p, size_t n) { return hash_bytes(p, n, lk->key); }

// Requires nothing; frees the index and leaves NULL.
inline void drop_lookup_field(void **field) {
  std::free(*field);
  *field = nullptr;
}

// Require an initialised array; frees and forgets its keyed-insert index.
inline void drop_lookup(qel_arrayd *a) { drop_lookup_field(&a->priv_lookup); }
inline void drop_lookup(qel_arrayx *a) { drop_lookup_field(&a->priv_lookup); }
inline void drop_lookup(qel_array *a) { drop_lookup_field(&a->priv_lookup); }

// The value bits of an integer entry as one word (equal values, equal words).
inline uint64_t value_key(const qel_arrayd_entry &e) { return e.value; }
inline uint64_t value_key(const qel_arrayx_entry &e) { return static_cast<uint64_t>(e.value); }

// Requires an integer index; position of key, or -1.
inline int64_t ilookup_find(const lookup *lk, uint64_t key) {
  const uint64_t *s = lookup_slots(lk);
  uint64_t i = ihome(lk, key);
  for (;;) {
    uint64_t v = s[2 * i + 1];
    if (v == 0) return -1;
    if (s[2 * i] == key) return static_cast<int64_t>(v - 1);
    i = (i + 1) & lk->mask;
  }
}

// Requires an integer index with a free slot and key absent; records pos.
inline void ilookup_place(lookup *lk, uint64_t key, int64_t pos) {
  uint64_t *s = lookup_slots(lk);
  uint64_t i = ihome(lk, key);
  while (s[2 * i + 1] != 0) i = (i + 1) & lk->mask;
  s[2 * i] = key;
  s[2 * i + 1] = static_cast<uint64_t>(pos) + 1;
  lk->used++;
}

// Requires an integer index; the same contents in a table 4 times the size
// (twice, from 2^20 slots on): growing in larger steps rehashes each value
// fewer times while the table is small enough for the room not to matter.
[[gnu::noinline]] inline lookup *ilookup_grow(lookup *lk) {
  const uint64_t slots = lk->mask + 1;
  lookup *bigger = make_lookup(slots < (uint64_t{1} << 20) ? 4 * slots : 2 * slots, &lk->key);
  const uint64_t *s = lookup_slots(lk);
  for (uint64_t i = 0; i <= lk->mask; i++)
    if (s[2 * i + 1] != 0) ilookup_place(bigger, s[2 * i], static_cast<int64_t>(s[2 * i + 1] - 1));
  bigger->count = lk->count;
  std::free(lk);
  return bigger;
}

// Requires an integer index over entries[0..pos-1] and entries[pos] written;
// extends it to entries[0..pos] (a value seen before keeps its lower position).
template <typename Entry>
inline lookup *ilookup_add(lookup *lk, const Entry *entries, int64_t pos) {
  uint64_t key = value_key(entries[pos]);
  if (ilookup_find(lk, key) < 0) {
    if (2 * (lk->used + 1) > lk->mask + 1) lk = ilookup_grow(lk);
    ilookup_place(lk, key, pos);
  }
  lk->count = pos + 1;
  return lk;
}

// Requires n entries in use; a fresh index of them (lowest position wins).
template <typename Entry>
[[gnu::noinline]] inline lookup *ilookup_build(const Entry *entries, int64_t n) {
  lookup *lk = make_lookup(slots_for(n), nullptr);
  for (int64_t i = 0; i < n; i++) {
    uint64_t key = value_key(entries[i]);
    if (ilookup_find(lk, key) < 0) ilookup_place(lk, key, i);
  }
  lk->count = n;
  return lk;
}

// Requires an array whose entry pos was just appended (count now pos + 1);
// keeps its index right: extended if it described pos entries, else dropped.
template <typename A>
[[gnu::noinline]] inline void note_append(A *a, int64_t pos) {
  auto *lk = static_cast<lookup *>(a->priv_lookup);
  if (lk->count != pos) {
    drop_lookup(a);
    return;
  }
  a->priv_lookup = ilookup_add(lk, a->entries, pos);
}

// ---------------------------------------------------------------- value arrays

// Requires an initialised array and 0 <= needed <= kMaxEntries; capacity of
// at least needed entries, new ones zero-filled (exact, no extra room).
template <typename A>
inline void reserve_exact(A *a, int64_t needed) {
  if (needed <= a->capacity) return;
  a->entries = resize_entries(a->entries, a->capacity, needed);
  a->capacity = needed;
}

// Entries an append opens at a time in a block that already holds more
// (4 KiB of 16-byte entries).
inline constexpr int64_t kOpenStep = 256;

// Requires entries NULL or from xmalloc/xrealloc; how many whole entries
// its block holds (the capacity is at most that, and may be less).
template <typename Entry>
inline int64_t entries_held(const Entry *entries) {
  if (entries == nullptr) return 0;
  return static_cast<int64_t>(malloc_usable_size(const_cast<Entry *>(entries)) / sizeof(Entry));
}

// Requires an initialised array; clamps count into 0..capacity and makes
// room for one more entry.  Returns the new position.  The block grows by a
// factor, but the capacity only by kOpenStep entries at a time within it:
// each step zero-fills just the entries the next appends will write, while
// they are still in cache, instead of the whole new part of the block at
// once (which the appends would then fetch from memory a second time).
template <typename A>
[[gnu::noinline]] inline int64_t prepare_append(A *a) {
  int64_t n = in_use(a);
  if (n != a->count) a->count = n;
  if (n == a->capacity) {
    if (n >= kMaxEntries) out_of_memory();
    int64_t held = entries_held(a->entries);
    if (held <= n) {
      held = next_capacity(a->capacity, n + 1);
      a->entries =
          static_cast<decltype(a->entries)>(xrealloc(a->entries, static_cast<size_t>(held) * sizeof(a->entries[0])));
    }
    const int64_t cap = held - n > kOpenStep ? n + kOpenStep : held;
    std::memset(static_cast<void *>(a->entries + n), 0, static_cast<size_t>(cap - n) * sizeof(a->entries[0]));
    a->capacity = cap;
  }
  return n;
}

// Requires an initialised array; value_append's rare cases: growth, a count
// outside 0..capacity, a keyed-insert index to keep right.
template <typename A, typename V>
[[gnu::noinline]] inline void append_slow(A *a, V value, uint64_t buf) {
  const int64_t n = prepare_append(a);
  a->entries[n].value = value;
  a->entries[n].buf = buf;
  a->count = n + 1;
  if (a->priv_lookup != nullptr) note_append(a, n);
}

// Require an initialised array; add one entry at the end (amortised O(1)).
// The common case is a few instructions with no call, so that a caller's
// fast path needs no stack frame; everything else is one tail call.
template <typename A, typename V>
inline void value_append(A *a, V value, uint64_t buf) {
  const int64_t n = a->count;
  if (below_capacity(a, n) && a->priv_lookup == nullptr) [[likely]] {
    a->entries[n].value = value;
    a->entries[n].buf = buf;
    a->count = n + 1;
    return;
  }
  append_slow(a, value, buf);
}

inline void append(qel_arrayd *a, uint32_t value, uint64_t buf) { value_append(a, value, buf); }
inline void append(qel_arrayx *a, int64_t value, uint64_t buf) { value_append(a, value, buf); }

// Require an initialised array and out non-NULL; entry index's value, or 0
// (and result 0) outside 0..count-1.
inline int get_at(const qel_arrayd *a, int64_t index, uint32_t *out) {
  if (in_range(a, index)) {
    *out = a->entries[index].value;
    return 1;
  }
  *out = 0;
  return 0;
}
inline int get_at(const qel_arrayx *a, int64_t index, int64_t *out) {
  if (in_range(a, index)) {
    *out = a->entries[index].value;
    return 1;
  }
  *out = 0;
  return 0;
}

// Require an initialised array; overwrite value and buf of entry index
// (nothing outside 0..count-1).  The keyed-insert index is dropped.
template <typename A, typename V>
inline void value_set_at(A *a, int64_t index, V value, uint64_t buf) {
  if (in_range(a, index)) {
    a->entries[index].value = value;
    a->entries[index].buf = buf;
    if (a->priv_lookup != nullptr) drop_lookup(a);
  }
}
inline void set_at(qel_arrayd *a, int64_t index, uint32_t value, uint64_t buf) { value_set_at(a, index, value, buf); }
inline void set_at(qel_arrayx *a, int64_t index, int64_t value, uint64_t buf) { value_set_at(a, index, value, buf); }

// Requires an array with n entries in use; a fresh keyed-insert index of them.
template <typename A>
[[gnu::noinline]] inline lookup *rebuild_lookup(A *a, int64_t n) {
  drop_lookup(a);
  lookup *lk = ilookup_build(a->entries, n);
  a->priv_lookup = lk;
  return lk;
}

// Requires an initialised array; entry_insert's common cases with no call
// (so a caller's fast path needs no frame): a value the current index names
// and the named entry holds, or a new value with room for it in the entries
// and in the index.  NULL, and no change, for anything else (no current
// index, a stale one, growth): entry_insert's full path then takes it.
template <typename A, typename V>
inline auto insert_fast(A *a, V value) -> decltype(a->entries) {
  auto *lk = static_cast<lookup *>(a->priv_lookup);
  const int64_t n = a->count;
  if (lk == nullptr || lk->count != n) return nullptr;  // its count lies within 0..capacity
  const uint64_t key = static_cast<uint64_t>(value);
  uint64_t *s = lookup_slots(lk);
  uint64_t i = ihome(lk, key);
  for (uint64_t v; (v = s[2 * i + 1]) != 0; i = (i + 1) & lk->mask)
    if (s[2 * i] == key) {
      if (a->entries[v - 1].value != value) return nullptr;
      lk->last = static_cast<int64_t>(v - 1);
      return &a->entries[v - 1];
    }
  if (n == a->capacity || 2 * (lk->used + 1) > lk->mask + 1) return nullptr;
  a->entries[n].value = value;
  a->entries[n].buf = 0;
  a->count = n + 1;
  s[2 * i] = key;
  s[2 * i + 1] = static_cast<uint64_t>(n) + 1;
  lk->used++;
  lk->count = n + 1;
  lk->last = n;
  return &a->entries[n];
}

// Requires an initialised array; entry_insert's full path: a fresh index when
// there is none or it describes another count, or when the entry it names
// no longer holds its value (entries rewritten directly while out of use:
// count lowered, written, raised again); room made for a new value.
template <typename A, typename V>
[[gnu::noinline]] auto entry_insert_full(A *a, V value) -> decltype(a->entries) {
  const int64_t n = in_use(a);
  a->count = n;
  auto *lk = static_cast<lookup *>(a->priv_lookup);
  if (lk == nullptr || lk->count != n) lk = rebuild_lookup(a, n);
  const uint64_t key = static_cast<uint64_t>(value);
  const int64_t at = ilookup_find(lk, key);
  if (at >= 0 && value_key(a->entries[at]) != key) lk = rebuild_lookup(a, n);
  if (auto *e = insert_fast(a, value)) return e;  // a fresh index names only entries holding their values
  if (n == a->capacity) prepare_append(a);
  a->entries[n].value = value;
  a->entries[n].buf = 0;
  a->count = n + 1;
  if (2 * (lk->used + 1) > lk->mask + 1) {
    lk = ilookup_grow(lk);
    a->priv_lookup = lk;
  }
  ilookup_place(lk, key, n);
  lk->count = n + 1;
  lk->last = n;
  return &a->entries[n];
}

// Requires an initialised array; the entry holding value (lowest position),
// appended with buf 0 when absent, and noted as the index's last position
// (for the find that usually follows).  Expected O(1) through the index,
// with one probe sequence: where it ends on an empty slot is where a new
// value goes.
template <typename A, typename V>
inline auto entry_insert(A *a, V value) -> decltype(a->entries) {
  if (auto *e = insert_fast(a, value)) [[likely]]
    return e;
  return entry_insert_full(a, value);
}

// Requires an initialised array; the entry holding value found through the
// keyed-insert index while it describes the entries in use and the entry it
// names holds the value (the index keeps each value's lowest position), else
// NULL: absent, no current index, or an entry rewritten since; the caller
// then takes the full path.  No frame, no call.
template <typename A, typename V>
inline auto probe_entry(const A *a, const lookup *lk, V value) -> decltype(a->entries) {
  const uint64_t key = static_cast<uint64_t>(value);
  const uint64_t *s = lookup_slots(lk);
  for (uint64_t i = ihome(lk, key);; i = (i + 1) & lk->mask) {
    const uint64_t v = s[2 * i + 1];
    if (v == 0) return nullptr;
    if (s[2 * i] == key) {
      auto *e = &a->entries[v - 1];
      return e->value == value ? e : nullptr;
    }
  }
}

// Requires an initialised array; its keyed-insert index if it describes the
// entries in use (its count is always within 0..capacity, so this also
// bounds the array's count), else NULL.
template <typename A>
inline const lookup *current_lookup(const A *a) {
  const auto *lk = static_cast<const lookup *>(a->priv_lookup);
  return lk != nullptr && lk->count == a->count ? lk : nullptr;
}

// Requires an initialised array; probe_entry for a find: the position the
// last keyed insert found or added is tried first.
template <typename A, typename V>
inline auto indexed_entry(const A *a, V value) -> decltype(a->entries) {
  const lookup *lk = current_lookup(a);
  if (lk == nullptr) return nullptr;
  if (const int64_t last = lk->last; last >= 0 && last < lk->count && a->entries[last].value == value)
    return &a->entries[last];
  return probe_entry(a, lk, value);
}

// Requires n entries at a sorted ascending by value (unsigned 32-bit order
// for qel_arrayd entries, signed 64-bit for qel_arrayx); the lowest position
// holding value, or -1.  Branch-free halving: the comparison selects the next
// base (a conditional move, not a jump), and both entries the next step may probe are prefetched,
// so the memory latency of the steps overlaps instead of waiting on a
// mispredicted branch.
template <typename Entry, typename V>
inline int64_t bfind_entries(const Entry *a, int64_t n, V value) {
  if (n <= 0) return -1;
  const Entry *base = a;
  int64_t len = n;
  while (len > 1) {
    const int64_t half = len / 2;
    const int64_t next = (len - half) / 2;
    __builtin_prefetch(base + next);
    __builtin_prefetch(base + half + next);
    base = base[half].value < value ? base + half : base;  // a conditional move
    len -= half;
  }
  const int64_t pos = (base - a) + static_cast<int64_t>(base->value < value);
  return pos < n && a[pos].value == value ? pos : -1;
}

// Require an initialised array sorted ascending; lowest position of value, or -1.
inline int64_t bfind_index(const qel_arrayd *a, uint32_t value) { return bfind_entries(a->entries, in_use(a), value); }
inline int64_t bfind_index(const qel_arrayx *a, int64_t value) { return bfind_entries(a->entries, in_use(a), value); }

// ---------------------------------------------------------------- string array entries

// Requires an initialised string array and two outputs; entry index's bytes
// and length (NULL and 0 when the entry reaches outside the pool's bytes in
// use, or index lies outside 0..count-1) and its tag: what qel_array_get_at
// gives, but an empty string may come back as NULL.
inline uint32_t array_entry(const qel_array *a, int64_t index, const char **bytes, int64_t *length) {
  *bytes = nullptr;
  *length = 0;
  if (index < 0 || index >= in_use(a)) return 0;
  const qel_array_entry &e = a->entries[index];
  int64_t used = a->pool.length;
  if (used > a->pool.capacity) used = a->pool.capacity;
  if (a->pool.bytes != nullptr && static_cast<int64_t>(e.offset) + static_cast<int64_t>(e.length) <= used) {
    *bytes = a->pool.bytes + e.offset;
    *length = e.length;
  }
  return static_cast<uint32_t>(e.buf);
}

// Requires an initialised string array; entry index's tag, or 0 outside
// 0..count-1 (the tag array_entry gives).
inline uint32_t array_tag(const qel_array *a, int64_t index) {
  return index >= 0 && index < in_use(a) ? static_cast<uint32_t>(a->entries[index].buf) : 0;
}

// Requires n bytes readable at src and writable at dst, apart; copies them,
// short runs (the usual keys) without a call.
inline void copy_bytes(char *dst, const char *src, size_t n) {
  if (n > 16) {
    std::memcpy(dst, src, n);
  } else if (n >= 8) {
    const uint64_t a = load64(src), b = load64(src + n - 8);
    std::memcpy(dst, &a, 8);
    std::memcpy(dst + n - 8, &b, 8);
  } else if (n >= 4) {
    uint32_t a, b;
    std::memcpy(&a, src, 4);
    std::memcpy(&b, src + n - 4, 4);
    std::memcpy(dst, &a, 4);
    std::memcpy(dst + n - 4, &b, 4);
  } else if (n > 0) {
    const char a = src[0], m = src[n >> 1], z = src[n - 1];
    dst[0] = a;
    dst[n >> 1] = m;
    dst[n - 1] = z;
  }
}

// ---------------------------------------------------------------- hash lookup

// priv_flags of a hash.  A hash may hold one block (priv_block): first a part
// its owner uses (the members of a record), then, while they fit, its
// entries, slot table and keys, sized once for a known number of entries.
// The block is freed with the hash; a hash that outgrows it moves entries,
// slots and keys to blocks of their own and keeps the owner's part.
inline constexpr uint32_t kHashInBlock = 1;     // entries, slots and keys lie in priv_block
inline constexpr uint32_t kHashDuplicates = 2;  // some key has more than one entry

// The 32 hash bits that a hash entry stores and its slots are placed by.
inline uint32_t key_hash(const char *key, size_t length) {
  return static_cast<uint32_t>(hash_bytes(key, length, kFixedKey) >> 32);
}

// Requires an initialised hash, length readable bytes at key and hv their
// key_hash; the newest entry under exactly these bytes, or NULL.
inline qel_hash_entry *hash_find_hashed(const qel_hash *h, const char *key, size_t len, uint32_t hv) {
  if (h->priv_count == 0) return nullptr;
  const uint32_t mask = h->priv_slot_mask;
  uint32_t i = hv & mask;
  for (;;) {
    uint32_t s = h->priv_slots[i];
    if (s == 0) return nullptr;
    qel_hash_entry *e = &h->priv_entries[s - 1];
    if (e->priv_hash == hv && e->key_length == len && same_bytes(h->key_pool + e->key_offset, key, len)) return e;
    i = (i + 1) & mask;
  }
}

// Requires an initialised hash; the newest entry under exactly these bytes,
// or NULL (also for a negative length, or NULL key with a positive length).
inline qel_hash_entry *hash_find(const qel_hash *h, const char *key, int64_t length) {
  if (h->priv_count == 0 || length < 0 || length > UINT32_MAX || (key == nullptr && length > 0)) return nullptr;
  const auto len = static_cast<size_t>(length);
  return hash_find_hashed(h, key, len, key_hash(key, len));
}

// Requires an initialised hash; the value stored under these bytes or NULL.
inline void *hash_get(const qel_hash *h, const char *key, int64_t length) {
  qel_hash_entry *e = hash_find(h, key, length);
  return e != nullptr ? e->value : nullptr;
}

// Requires a hash record; an empty hash (qel_hash_init without the call).
inline void hash_init(qel_hash *h) {
  h->key_pool = nullptr;
  h->priv_entries = nullptr;
  h->priv_slots = nullptr;
  h->priv_key_length = 0;
  h->priv_key_capacity = 0;
  h->priv_count = 0;
  h->priv_capacity = 0;
  h->priv_slot_mask = 0;
  h->priv_flags = 0;
  h->priv_block = nullptr;
}

// Requires an initialised hash; releases what it holds apart from its block
// and leaves it empty, without the block, which its owner frees or keeps.
inline void hash_forget_block(qel_hash *h) {
  if (!(h->priv_flags & kHashInBlock)) {
    std::free(h->key_pool);
    std::free(h->priv_entries);
    std::free(h->priv_slots);
  }
  hash_init(h);
}

// Requires 0 < n <= 2^30; slots for n entries at load 1/2 or less.
inline uint32_t hash_slots_for(uint32_t n) {
  uint32_t slots = 4;
  while (slots < 2 * n) slots *= 2;
  return slots;
}

// Byte offset at which a block's hash part begins after `front` owner bytes.
inline size_t hash_block_front(size_t front) { return (front + 15) & ~size_t{15}; }

// Requires an initialised hash with no entries and no storage (as
// qel_hash_init leaves it), front + room below the address space, and
// n <= 2^30, key_bytes < 2^32 - 8; gives it one block of `front` bytes for the
// owner (returned, 16-aligned), then room for n entries (n may be 0: no hash
// part) with key_bytes of keys, all freed by qel_hash_term.
inline void *hash_reserve_block(qel_hash *h, size_t front, uint32_t n, uint32_t key_bytes) {
  const size_t at = hash_block_front(front);
  if (n == 0) {
    h->priv_block = xmalloc(at);
    return h->priv_block;
  }
  const uint32_t slots = hash_slots_for(n);
  const size_t entries = sizeof(qel_hash_entry) * n;
  const size_t keys = key_bytes + 8u;  // never empty: every key lies in the pool
  auto *block = static_cast<char *>(xmalloc(at + entries + sizeof(uint32_t) * slots + keys));
  h->priv_block = block;
  h->priv_entries = reinterpret_cast<qel_hash_entry *>(block + at);
  h->priv_slots = reinterpret_cast<uint32_t *>(block + at + entries);
  std::memset(h->priv_slots, 0, sizeof(uint32_t) * slots);
  h->key_pool = block + at + entries + sizeof(uint32_t) * slots;
  h->priv_key_capacity = static_cast<uint32_t>(keys);
  h->priv_capacity = n;
  h->priv_slot_mask = slots - 1;
  h->priv_flags = kHashInBlock;
  return block;
}

// Requires an initialised hash without duplicate keys (kHashDuplicates clear)
// and dst as hash_reserve_block requires it; gives dst a block of `front`
// owner bytes (returned) followed by a copy of src's entries, slot table and
// keys: the same keys in the same walk order, each entry's value as in src.
inline void *hash_clone_block(qel_hash *dst, const qel_hash *src, size_t front) {
  const size_t at = hash_block_front(front);
  const uint32_t n = src->priv_count;
  if (n == 0) {
    dst->priv_block = xmalloc(at);
    return dst->priv_block;
  }
  const uint32_t slots = src->priv_slot_mask + 1;
  const size_t entries = sizeof(qel_hash_entry) * n;
  const size_t keys = src->priv_key_length + size_t{8};
  auto *block = static_cast<char *>(xmalloc(at + entries + sizeof(uint32_t) * slots + keys));
  dst->priv_block = block;
  dst->priv_entries = reinterpret_cast<qel_hash_entry *>(block + at);
  std::memcpy(dst->priv_entries, src->priv_entries, entries);
  dst->priv_slots = reinterpret_cast<uint32_t *>(block + at + entries);
  std::memcpy(dst->priv_slots, src->priv_slots, sizeof(uint32_t) * slots);
  dst->key_pool = block + at + entries + sizeof(uint32_t) * slots;
  std::memcpy(dst->key_pool, src->key_pool, src->priv_key_length);
  dst->priv_key_length = src->priv_key_length;
  dst->priv_key_capacity = static_cast<uint32_t>(keys);
  dst->priv_count = n;
  dst->priv_capacity = n;
  dst->priv_slot_mask = slots - 1;
  dst->priv_flags = kHashInBlock;
  return block;
}

// Requires an initialised hash, len readable bytes at key (not in key_pool)
// and hv their key_hash; qel_hash_insert's new entry when the key is absent
// and the hash's block has room for it, else NULL and no change (the caller
// then goes through qel_hash_insert).
inline qel_hash_entry *hash_insert_in_block(qel_hash *h, const char *key, uint32_t len, uint32_t hv, void *value) {
  const uint32_t k = h->priv_count;
  if (!(h->priv_flags & kHashInBlock) || k == h->priv_capacity ||
      static_cast<uint64_t>(h->priv_key_length) + len > h->priv_key_capacity ||
      2 * (static_cast<uint64_t>(k) + 1) > static_cast<uint64_t>(h->priv_slot_mask) + 1)
    return nullptr;
  const uint32_t mask = h->priv_slot_mask;
  uint32_t i = hv & mask;
  for (uint32_t s; (s = h->priv_slots[i]) != 0; i = (i + 1) & mask) {
    const qel_hash_entry &e = h->priv_entries[s - 1];
    if (e.priv_hash == hv && e.key_length == len && same_bytes(h->key_pool + e.key_offset, key, len))
      return nullptr;  // present: qel_hash_insert's rules for a second entry
  }
  const uint32_t offset = h->priv_key_length;
  copy_bytes(h->key_pool + offset, key, len);
  h->priv_key_length = offset + len;
  qel_hash_entry &e = h->priv_entries[k];
  e.key_offset = offset;
  e.key_length = len;
  e.value = value;
  e.priv_hash = hv;
  e.priv_reserved = 0;
  h->priv_slots[i] = k + 1;
  h->priv_count = k + 1;
  return &e;
}

// Requires an initialised hash; entry k of its walk (insertion order), or
// NULL past the last: qel_hash_entry_first/_next without the calls.  Read
// afresh at every step, as the cursor walk is, so a walk by k survives what
// that walk survives (values written, other hashes changed).
inline qel_hash_entry *hash_entry_at(const qel_hash *h, uint32_t k) {
  return k < h->priv_count ? &h->priv_entries[k] : nullptr;
}

}  // namespace qel_detail

#pragma GCC visibility pop

#endif  // QEL_STD_INLINE_H
