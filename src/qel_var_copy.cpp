// Deep copy and append of full variants.
//
// The public entries first rule out the one hazard of working in place: src
// and dst overlapping, one being (or lying inside) the other, where releasing
// or filling dst would free or grow what is still being read.  Such calls work
// from a private snapshot of src; all others copy straight across.
#include "internal/qel_var_internal.h"
#include "qel_std_internal.h"

#include <cstdint>

using qel::storage;
using qel::storage_of;

namespace {

// Requires a variant: true when needle is a member or element of tree, at
// any depth (tree itself does not count).
bool contains(const qel_var *tree, const qel_var *needle) {
  if (storage_of(tree->type) != storage::record) return false;
  if (tree->multi != 0) {
    const qel_arrays &elements = tree->data.vars;
    for (int64_t i = 0; i < elements.count; ++i) {
      const auto *e = static_cast<const qel_var *>(elements.entries[i]);
      if (e == needle || (e != nullptr && contains(e, needle))) return true;
    }
    return false;
  }
  const qel_hash *members = &tree->data.members;
  for (uint32_t k = 0; const qel_hash_entry *e = qel_detail::hash_entry_at(members, k); ++k) {
    const auto *m = static_cast<const qel_var *>(e->value);
    if (m == needle || (m != nullptr && contains(m, needle))) return true;
  }
  return false;
}

// Requires a variant: a new, independent deep copy of it.
qel_var *clone_of(const qel_var *src) {
  qel_var *copy = qel::var_alloc(src->type, src->multi, src->schema);
  qel::var_init_at(copy, nullptr, nullptr, nullptr);
  qel::var_copy_into(copy, src);
  return copy;
}

// Requires a variant: releases its storage and makes it a fresh variant of
// the given type code, multi byte and schema (members from that schema).
void reform(qel_var *var, uint32_t type, uint8_t multi, qel_schema *schema) {
  qel_var_free_x(var);
  var->type = type;
  var->multi = multi;
  var->schema = schema;
  qel_var_init(var, nullptr, nullptr);
}

// Requires two member hashes, shape's keys distinct: whether members has the
// same keys in the same order, each with a member.  Looking each key up by
// name would then find the member at the same position.
bool same_shape(const qel_hash *members, const qel_hash *shape) {
  if (members->priv_count != shape->priv_count) return false;
  for (uint32_t k = 0; k < shape->priv_count; ++k) {
    const qel_hash_entry &a = shape->priv_entries[k];
    const qel_hash_entry &b = members->priv_entries[k];
    if (b.value == nullptr || a.priv_hash != b.priv_hash || a.key_length != b.key_length ||
        !qel_detail::same_bytes(shape->key_pool + a.key_offset, members->key_pool + b.key_offset, a.key_length))
      return false;
  }
  return true;
}

// Requires two single records with disjoint trees: copies src's members into
// dst by name, creating the missing ones; dst's other members stay.
void hash_clone(const qel_var *src, qel_var *dst) {
  const qel_hash *members = &src->data.members;
  qel_hash *into = &dst->data.members;
  if (into->priv_count == 0 && into->priv_block == nullptr && qel::members_clonable(members)) {
    // Every member is new to dst: its hash takes src's keys wholesale, and
    // each member is made in place as it would be on its own, then copied.
    qel_var *places = qel::members_clone_shape(into, members);
    for (uint32_t k = 0; k < members->priv_count; ++k) {
      const auto *from = static_cast<const qel_var *>(members->priv_entries[k].value);
      qel_var *to = qel::var_at(&places[k], from->type, from->multi, from->schema);
      qel::var_init_at(to, nullptr, nullptr, nullptr);
      qel::var_copy_into(to, from);
    }
    return;
  }
  if (!(members->priv_flags & qel_detail::kHashDuplicates) && same_shape(into, members)) {
    for (uint32_t k = 0; k < members->priv_count; ++k) {
      const auto *from = static_cast<const qel_var *>(members->priv_entries[k].value);
      if (from != nullptr) qel::var_copy_into(static_cast<qel_var *>(into->priv_entries[k].value), from);
    }
    return;
  }
  for (uint32_t k = 0; const qel_hash_entry *e = qel_detail::hash_entry_at(members, k); ++k) {
    const auto *from = static_cast<const qel_var *>(e->value);
    if (from == nullptr) continue;
    const char *name = members->key_pool + e->key_offset;
    auto *to = static_cast<qel_var *>(qel_detail::hash_get(&dst->data.members, name, e->key_length));
    if (to == nullptr) {
      to = qel::var_alloc(from->type, from->multi, from->schema);
      qel::var_init_at(to, nullptr, nullptr, nullptr);
      if (qel_hash_insert(&dst->data.members, name, e->key_length, to) == nullptr) {
        qel_var_free(to);  // the hash is full: this member cannot be kept
        continue;
      }
    }
    qel::var_copy_into(to, from);
  }
}

// Requires a record array dst and a variant e: appends a deep copy of e.
void add_element_copy(qel_var *dst, const qel_var *e) {
  qel_var *element = qel_var_new(e->type, e->multi);
  element->schema = e->schema;
  qel::var_copy_into(element, e);
  qel_arrays_append(&dst->data.vars, element);
}

// Requires two record arrays with disjoint trees: dst's elements become deep
// copies of src's.
void array_clone(const qel_var *src, qel_var *dst) {
  qel_arrays_free_all(&dst->data.vars, qel_var_term);
  const qel_arrays &from = src->data.vars;
  for (int64_t i = 0; i < from.count; ++i)
    if (from.entries[i] != nullptr) add_element_copy(dst, static_cast<const qel_var *>(from.entries[i]));
}

// Requires an array dst of src's type code whose tree does not contain src
// (src may be dst itself): appends src's value or values, without their
// caller values.  Every element is read afresh, so dst may grow meanwhile.
void append_values(qel_var *dst, const qel_var *src) {
  const storage cls = storage_of(src->type);
  if (src->multi == 0) {
    switch (cls) {
      case storage::bits32: qel_detail::append(&dst->data.arrayd, src->data.bits32, 0); return;
      case storage::bits64: qel_detail::append(&dst->data.arrayx, static_cast<int64_t>(src->data.bits64), 0); return;
      case storage::bytes:
        qel_array_append(&dst->data.array, src->data.stream.bytes, src->data.stream.length, 0);
        return;
      case storage::record: add_element_copy(dst, src); return;
    }
  }
  const int64_t n = qel_var_size(src);
  for (int64_t i = 0; i < n; ++i) {
    switch (cls) {
      case storage::bits32: qel_detail::append(&dst->data.arrayd, src->data.arrayd.entries[i].value, 0); break;
      case storage::bits64: qel_detail::append(&dst->data.arrayx, src->data.arrayx.entries[i].value, 0); break;
      case storage::bytes: {
        const char *text = nullptr;
        int64_t length = 0;
        qel_array_get_at(&src->data.array, i, &text, &length);
        qel_array_append(&dst->data.array, text, length, 0);  // safe with bytes from its own pool
        break;
      }
      case storage::record: {
        const auto *e = static_cast<const qel_var *>(src->data.vars.entries[i]);
        if (e != nullptr) add_element_copy(dst, e);
        break;
      }
    }
  }
}

}  // namespace

// Requires two variants with disjoint trees.
void qel::var_copy_into(qel_var *dst, const qel_var *src) {
  if (dst->type != src->type || dst->multi != src->multi) reform(dst, src->type, src->multi, src->schema);
  if (src->multi != 0) {
    switch (storage_of(src->type)) {
      case storage::bits32: qel_arrayd_clone(&src->data.arrayd, 0, &dst->data.arrayd, 0, 0); return;
      case storage::bits64: qel_arrayx_clone(&src->data.arrayx, 0, &dst->data.arrayx, 0, 0); return;
      case storage::bytes: qel_array_clone(&src->data.array, 0, &dst->data.array, 0, 0); return;
      case storage::record: array_clone(src, dst); return;
    }
  }
  switch (storage_of(src->type)) {
    case storage::bits32: dst->data.bits32 = src->data.bits32; break;
    case storage::bits64: dst->data.bits64 = src->data.bits64; break;
    case storage::bytes: qel_stream_clone(&src->data.stream, &dst->data.stream); break;
    case storage::record: hash_clone(src, dst); break;
  }
  dst->buf = src->buf;
}

extern "C" {

// Requires two variants (may be the same or nested in one another): dst
// becomes a deep copy of src; a record dst keeps members src does not have.
void qel_var_copy(qel_var *dst, const qel_var *src) {
  if (dst == src) return;
  if (contains(dst, src) || contains(src, dst)) {
    qel_var *snapshot = clone_of(src);
    qel::var_copy_into(dst, snapshot);
    qel_var_free(snapshot);
    return;
  }
  qel::var_copy_into(dst, src);
}

// Requires two variants (may be the same or nested in one another): dst
// becomes an array of src's type code ending with src's value or values.
void qel_var_append(qel_var *dst, const qel_var *src) {
  if (dst->type != src->type || dst->multi == 0) {
    // Re-forming releases dst, which may be src or hold it, and changes src
    // when src holds dst: work from a snapshot then.
    if (dst == src || contains(dst, src) || contains(src, dst)) {
      qel_var *snapshot = clone_of(src);
      reform(dst, snapshot->type, 1, snapshot->schema);
      append_values(dst, snapshot);
      qel_var_free(snapshot);
      return;
    }
    reform(dst, src->type, 1, src->schema);
  }
  append_values(dst, src);
}

}  // extern "C"
