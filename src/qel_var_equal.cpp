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
#include "internal/qel_work_stack.h"
#include "qel_std_inline.h"
#include "qel_require.h"

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

// Requires two variants or NULLs: whether they agree in everything but their
// members and elements; walk tells whether those remain to be compared.
bool same_node(const qel_var *a, const qel_var *b, bool &walk) {
  walk = false;
  if (a == b) return true;
  if (a == nullptr || b == nullptr || a->type != b->type || a->multi != b->multi) return false;
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
      case storage::record:
        walk = a->data.members.priv_count > 0;
        return visible_count(&a->data.members) == visible_count(&b->data.members);
    }
  }
  switch (cls) {
    case storage::bits32: return same_values(a->data.arrayd, b->data.arrayd);
    case storage::bits64: return same_values(a->data.arrayx, b->data.arrayx);
    case storage::bytes: return same_strings(a->data.array, b->data.array);
    case storage::record: walk = a->data.vars.count > 0; return a->data.vars.count == b->data.vars.count;
  }
  return false;
}

// Two records whose members or elements are being compared, and the index
// of a's next entry.
struct equal_frame {
  const qel_var *a;
  const qel_var *b;
  int64_t next;
};

// Requires a frame: its next pair to compare (elements by position, members
// by name: b's member NULL when b has none of that name); false when none is
// left.
bool next_pair(equal_frame &f, const qel_var *&x, const qel_var *&y) {
  if (f.a->multi != 0) {
    if (f.next >= f.a->data.vars.count) return false;
    x = static_cast<const qel_var *>(f.a->data.vars.entries[f.next]);
    y = static_cast<const qel_var *>(f.b->data.vars.entries[f.next]);
    ++f.next;
    return true;
  }
  const qel_hash *h = &f.a->data.members;
  while (f.next < h->priv_count) {
    const qel_hash_entry *e = &h->priv_entries[f.next++];
    x = visible_member(h, e);
    if (x == nullptr) continue;
    y = static_cast<const qel_var *>(
        qel_detail::hash_get(&f.b->data.members, h->key_pool + e->key_offset, e->key_length));
    return true;
  }
  return false;
}

// Requires two variants: qel_var_equal's answer.  Records are compared
// depth first on a work_stack, so the depth of the trees costs no stack.
bool equal(const qel_var *a, const qel_var *b) {
  bool walk = false;
  if (!same_node(a, b, walk)) return false;
  if (!walk) return true;
  qel::work_stack<equal_frame> stack;
  stack.push({a, b, 0});
  while (!stack.empty()) {
    const qel_var *x = nullptr;
    const qel_var *y = nullptr;
    if (!next_pair(stack.top(), x, y)) {
      stack.pop();
      continue;
    }
    if (!same_node(x, y, walk)) return false;
    if (walk) stack.push({x, y, 0});
  }
  return true;
}

// Requires a variant: its member hash when it is a single record, else NULL.
const qel_hash *members_of(const qel_var *rec) {
  if (rec->multi != 0 || storage_of(rec->type) != storage::record) return nullptr;
  return &rec->data.members;
}

}  // namespace

// Requires two variants; 1 when they hold the same value, else 0.
extern "C" QEL_API int qel_var_equal(const qel_var *a, const qel_var *b) {
  QEL_REQUIRE(a != nullptr);
  QEL_REQUIRE(b != nullptr);
  return equal(a, b) ? 1 : 0;
}

// Requires a variant; the entries of a single record's member hash, else 0.
extern "C" QEL_API int64_t qel_var_member_count(const qel_var *rec) {
  QEL_REQUIRE(rec != nullptr);
  const qel_hash *h = members_of(rec);
  return h != nullptr ? h->priv_count : 0;
}

// Requires a variant; entry i of a single record's member hash (name and
// member), or NULL and an empty name.
extern "C" QEL_API qel_var *qel_var_member_at(const qel_var *rec, int64_t i, const char **name, int64_t *name_len) {
  QEL_REQUIRE(rec != nullptr);
  const qel_hash *h = members_of(rec);
  const qel_hash_entry *e = nullptr;
  if (h != nullptr && i >= 0 && i < h->priv_count) e = qel_detail::hash_entry_at(h, static_cast<uint32_t>(i));
  if (name != nullptr) *name = e != nullptr ? h->key_pool + e->key_offset : nullptr;
  if (name_len != nullptr) *name_len = e != nullptr ? e->key_length : 0;
  return e != nullptr ? static_cast<qel_var *>(e->value) : nullptr;
}
