// A node-for-node copy of a full variant for the JSON reader to work on when
// a read must create members, which its undo log cannot take back.
//
// qel_var_copy rebuilds each record from its schema (without the resolver)
// and then copies into it, so the copy can hold members the original lacks:
// the schema's members again after a shrink freed them, nested records with
// no schema.  The replica instead holds exactly the original's nodes: the
// same codes, forms, schemas, caller values and member names in the same
// order (names whose member a shrink freed included), and nothing more.
#ifndef QEL_INTERNAL_JSON_REPLICA_H
#define QEL_INTERNAL_JSON_REPLICA_H

#include <qel.h>

#include <cstdint>
#include <cstring>

#include "internal/qel_work_stack.h"
#include "internal/qel_var_internal.h"
#include "qel_std_inline.h"

namespace qel::json {

namespace replica_detail {

// Requires nothing: an empty variant of src's code and form, with src's
// schema and caller value (a single record gets no members).
inline qel_var *empty_like(const qel_var *src) {
  qel_var *v = qel_var_alloc(src->type, src->multi, nullptr);
  qel_var_init_at(v, nullptr, nullptr, nullptr);
  v->schema = src->schema;
  v->buf = src->buf;
  return v;
}

// Records still to be filled: pairs of original and replica.
struct pair {
  const qel_var *from;
  qel_var *to;
};
using pending = work_stack<pair, 16>;

// Requires an original and its empty replica: fills the replica's own
// storage; nested records are made empty and queued.
inline void fill(const qel_var *from, qel_var *to, pending &queue) {
  const storage cls = storage_of(from->type);
  if (from->multi != 0) {
    switch (cls) {
      case storage::bits32: qel_arrayd_clone(&from->data.arrayd, 0, &to->data.arrayd, 0, 0); return;
      case storage::bits64: qel_arrayx_clone(&from->data.arrayx, 0, &to->data.arrayx, 0, 0); return;
      case storage::bytes: qel_array_clone(&from->data.array, 0, &to->data.array, 0, 0); return;
      case storage::record: break;
    }
    const qel_arrays &elements = from->data.vars;
    for (int64_t i = 0, n = qel_detail::in_use(&elements); i < n; ++i) {
      const auto *e = static_cast<const qel_var *>(elements.entries[i]);
      qel_var *copy = e != nullptr ? empty_like(e) : nullptr;
      qel_arrays_append(&to->data.vars, copy);
      if (copy != nullptr) queue.push(pair{e, copy});
    }
    return;
  }
  switch (cls) {
    case storage::bits32: to->data.bits32 = from->data.bits32; return;
    case storage::bits64: to->data.bits64 = from->data.bits64; return;
    case storage::bytes: qel_stream_clone(&from->data.stream, &to->data.stream); return;
    case storage::record: break;
  }
  // Every name goes in with a value first, so that each lands in an entry of
  // its own as in the original (a name held twice included); names without a
  // member then lose the stand-in.
  const qel_hash *members = &from->data.members;
  qel_hash *into = &to->data.members;
  bool emptied = false;
  for (uint32_t k = 0; const qel_hash_entry *e = qel_detail::hash_entry_at(members, k); ++k) {
    const auto *m = static_cast<const qel_var *>(e->value);
    qel_var *copy = m != nullptr ? empty_like(m) : nullptr;
    qel_hash_insert(into, members->key_pool + e->key_offset, e->key_length, copy != nullptr ? copy : to);
    if (copy != nullptr) queue.push(pair{m, copy});
    emptied |= copy == nullptr;
  }
  if (!emptied) return;
  for (uint32_t k = 0; qel_hash_entry *e = qel_detail::hash_entry_at(into, k); ++k)
    if (e->value == to) e->value = nullptr;
}

}  // namespace replica_detail

// Requires a variant: its replica, made by qel_var_alloc (so qel_var_move_storage
// may take its storage). Any depth: the walk keeps its own stack.
inline qel_var *replica_of(const qel_var *src) {
  replica_detail::pending queue;
  qel_var *root = replica_detail::empty_like(src);
  const qel_var *from = src;
  qel_var *to = root;
  for (;;) {
    replica_detail::fill(from, to, queue);
    if (queue.empty()) return root;
    const replica_detail::pair next = queue.top();
    queue.pop();
    from = next.from;
    to = next.to;
  }
}

}  // namespace qel::json

#endif
