// Full variant: deep equality and the member walk of a record.
//
// Equality compares what the value holds, never where it lives: single values
// and array entries by their stored bits (so floats and doubles by bit
// pattern), strings by bytes, records by member name and record arrays
// element by element.  Caller values and schema pointers are no part of it.
#include <qel.h>

#include <cstdint>
#include <cstring>

#include "internal/qel_var_internal.h"
#include "qel_std_internal.h"

using qel::storage;
using qel::storage_of;

namespace {

// Requires two value arrays of one kind: the same count in use and the same
// value bits entry by entry (caller values not compared).
template <typename Array>
bool same_values(const Array &a, const Array &b) {
  const int64_t n = qel_detail::in_use(&a);
  if (n != qel_detail::in_use(&b)) return false;
  for (int64_t i = 0; i < n; ++i)
    if (a.entries[i].value != b.entries[i].value) return false;
  return true;
}

// Requires two byte-string arrays: the same strings in the same order.
bool same_strings(const qel_array &a, const qel_array &b) {
  const int64_t n = qel_detail::in_use(&a);
  if (n != qel_detail::in_use(&b)) return false;
  for (int64_t i = 0; i < n; ++i) {
    const char *ap = nullptr;
    const char *bp = nullptr;
    int64_t an = 0;
    int64_t bn = 0;
    qel_array_get_at(&a, i, &ap, &an);
    qel_array_get_at(&b, i, &bp, &bn);
    if (an != bn || (an != 0 && std::memcmp(ap, bp, static_cast<size_t>(an)) != 0)) return false;
  }
  return true;
}

// Requires a member hash and one of its entries: the member qel_var_get_val
// finds under the entry's name when it is this entry's, else NULL (a cleared
// entry, or one a later entry of the same name hides).
const qel_var *visible_member(const qel_hash *h, const qel_hash_entry *e) {
  if (e->value == nullptr) return nullptr;
  const qel_hash_entry *found = qel_detail::hash_find(h, h->key_pool + e->key_offset, e->key_length);
  return found == e ? static_cast<const qel_var *>(e->value) : nullptr;
}

// Requires a member hash: how many names have a member.
int64_t visible_count(const qel_hash *h) {
  int64_t n = 0;
  for (uint32_t k = 0; const qel_hash_entry *e = qel_detail::hash_entry_at(h, k); ++k)
    if (visible_member(h, e) != nullptr) ++n;
  return n;
}

bool equal(const qel_var *a, const qel_var *b);

// Requires two single records: the same names with members, and under each
// name equal members, whatever the order.
bool same_members(const qel_hash *a, const qel_hash *b) {
  if (visible_count(a) != visible_count(b)) return false;
  for (uint32_t k = 0; const qel_hash_entry *e = qel_detail::hash_entry_at(a, k); ++k) {
    const qel_var *mine = visible_member(a, e);
    if (mine == nullptr) continue;
    const auto *theirs =
        static_cast<const qel_var *>(qel_detail::hash_get(b, a->key_pool + e->key_offset, e->key_length));
    if (theirs == nullptr || !equal(mine, theirs)) return false;
  }
  return true;
}

// Requires two record arrays: equal elements, position by position.
bool same_elements(const qel_arrays &a, const qel_arrays &b) {
  if (a.count != b.count) return false;
  for (int64_t i = 0; i < a.count; ++i)
    if (!equal(static_cast<const qel_var *>(a.entries[i]), static_cast<const qel_var *>(b.entries[i]))) return false;
  return true;
}

// Requires two variants: qel_var_equal's answer.
bool equal(const qel_var *a, const qel_var *b) {
  if (a == b) return true;
  if (a->type != b->type || a->multi != b->multi) return false;
  const storage cls = storage_of(a->type);
  if (a->multi == 0) {
    switch (cls) {
      case storage::bits32: return a->data.bits32 == b->data.bits32;
      case storage::bits64: return a->data.bits64 == b->data.bits64;
      case storage::bytes: {
        const qel_stream &x = a->data.stream;
        const qel_stream &y = b->data.stream;
        return x.length == y.length &&
               (x.length == 0 || std::memcmp(x.bytes, y.bytes, static_cast<size_t>(x.length)) == 0);
      }
      case storage::record: return same_members(&a->data.members, &b->data.members);
    }
  }
  switch (cls) {
    case storage::bits32: return same_values(a->data.arrayd, b->data.arrayd);
    case storage::bits64: return same_values(a->data.arrayx, b->data.arrayx);
    case storage::bytes: return same_strings(a->data.array, b->data.array);
    case storage::record: return same_elements(a->data.vars, b->data.vars);
  }
  return false;
}

// Requires a variant: its member hash when it is a single record, else NULL.
const qel_hash *members_of(const qel_var *rec) {
  if (rec->multi != 0 || storage_of(rec->type) != storage::record) return nullptr;
  return &rec->data.members;
}

}  // namespace

extern "C" {

// Requires two variants; 1 when they hold the same value, else 0.
QEL_API int qel_var_equal(const qel_var *a, const qel_var *b) { return equal(a, b) ? 1 : 0; }

// Requires a variant; the entries of a single record's member hash, else 0.
QEL_API int64_t qel_var_member_count(const qel_var *rec) {
  const qel_hash *h = members_of(rec);
  return h != nullptr ? h->priv_count : 0;
}

// Requires a variant; entry i of a single record's member hash (name and
// member), or NULL and an empty name.
QEL_API qel_var *qel_var_member_at(const qel_var *rec, int64_t i, const char **name, int64_t *name_len) {
  const qel_hash *h = members_of(rec);
  const qel_hash_entry *e = nullptr;
  if (h != nullptr && i >= 0 && i < h->priv_count) e = qel_detail::hash_entry_at(h, static_cast<uint32_t>(i));
  if (name != nullptr) *name = e != nullptr ? h->key_pool + e->key_offset : nullptr;
  if (name_len != nullptr) *name_len = e != nullptr ? e->key_length : 0;
  return e != nullptr ? static_cast<qel_var *>(e->value) : nullptr;
}

}  // extern "C"
