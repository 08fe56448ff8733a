// Deep copy and append of full variants.
//
// The public entries first rule out the one hazard of working in place: src
// and dst overlapping, one being (or lying inside) the other, where releasing
// or filling dst would free or grow what is still being read.  Such calls work
// from a private snapshot of src that holds exactly what src holds (its
// records get no members from their schemas), so they give what copying from
// an independent source would; all others copy straight across.  The walks
// keep their place on a work_stack, not on the machine stack, so a tree of
// any depth is copied in a few frames.
#include "internal/qel_var_internal.h"
#include "internal/qel_work_stack.h"
#include "qel_std_inline.h"
#include "qel_require.h"

#include <cstdint>

using qel::storage;
using qel::storage_of;

namespace {

// Requires a variant: whether it is a record holding members or elements.
bool has_children(const qel_var *var) {
  if (storage_of(var->type) != storage::record) return false;
  return var->multi != 0 ? var->data.vars.count > 0 : var->data.members.priv_count > 0;
}

// A record being searched and the index of its next member entry or element.
struct search_frame {
  const qel_var *node;
  int64_t next;
};

// Requires a frame of a record: looks through its members or elements from
// the next one on, until needle (true), or one with members or elements of
// its own, which it pushes (false; the frame, which the push may have moved,
// is not touched again).  At the end the frame is popped.
template <class Stack>
bool search_step(Stack &stack, search_frame &f, const qel_var *needle) {
  const bool array = f.node->multi != 0;
  const int64_t n = array ? f.node->data.vars.count : f.node->data.members.priv_count;
  while (f.next < n) {
    const int64_t k = f.next++;
    const auto *child =
        static_cast<const qel_var *>(array ? f.node->data.vars.entries[k] : f.node->data.members.priv_entries[k].value);
    if (child == nullptr) continue;
    if (child == needle) return true;
    if (has_children(child)) {
      stack.push({child, 0});
      return false;
    }
  }
  stack.pop();
  return false;
}

// Requires a variant: true when needle is a member or element of tree, at
// any depth (tree itself does not count).
bool contains(const qel_var *tree, const qel_var *needle) {
  if (!has_children(tree)) return false;
  qel::work_stack<search_frame> stack;
  stack.push({tree, 0});
  while (!stack.empty())
    if (search_step(stack, stack.top(), needle)) return true;
  return false;
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

// Requires type and multi set, data uninitialised: the storage qel_var_init
// gives, but a single record without the members of its schema.
void init_bare(qel_var *var) {
  if (var->multi != 0 || storage_of(var->type) != storage::record)
    return qel_var_init_at(var, nullptr, nullptr, nullptr);
  qel_hash_init(&var->data.members, 1, 0);
  var->buf = 0;
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

// Requires two variants: when both are single values of one code and form
// (not records), copies src's value and caller value into dst, as the copy
// would, and gives true; else false.  The common member, on a short path.
inline bool copy_single_value(qel_var *dst, const qel_var *src) {
  if (dst->type != src->type || dst->multi != src->multi || src->multi != 0) return false;
  switch (storage_of(src->type)) {
    case storage::bits32: dst->data.bits32 = src->data.bits32; break;
    case storage::bits64: dst->data.bits64 = src->data.bits64; break;
    case storage::bytes: qel_stream_clone(&src->data.stream, &dst->data.stream); break;
    case storage::record: return false;
  }
  dst->buf = src->buf;
  return true;
}

// How a record's members or elements are matched with the source's.
enum class match : uint8_t {
  elements,   // record arrays: a new element per source element
  places,     // dst took src's keys wholesale: member k is made in place k
  positions,  // dst has src's keys in src's order: member k to member k
  names,      // each source member looked up (or created) in dst by name
};

// A record whose members or elements are being copied, and the index of the
// next source entry.
struct copy_frame {
  qel_var *dst;
  const qel_var *src;
  int64_t next;
  match how;
};

// The deep copy, depth first, in the order a recursive copy would take (each
// member whole before the next), but on a work_stack.  A bare copier makes
// the records it creates without the members of their schemas, so that its
// result holds exactly what the source holds.
class copier {
 public:
  explicit copier(bool bare) : bare_(bare) {}

  // Requires two variants whose trees share no node.
  void run(qel_var *dst, const qel_var *src) {
    copy_node(dst, src);
    while (!stack_.empty())
      if (!advance(stack_.top())) stack_.pop();
  }

 private:
  // Requires type and multi set, data uninitialised: a member or element made
  // as the copy makes it.
  void init(qel_var *var) const {
    if (bare_) init_bare(var);
    else qel_var_init_at(var, nullptr, nullptr, nullptr);
  }

  // Requires two variants with disjoint trees: dst takes src's form and value
  // (re-formed when they differ); its members or elements are left to a frame.
  void copy_node(qel_var *dst, const qel_var *src) {
    if (dst->type != src->type || dst->multi != src->multi) reform(dst, src->type, src->multi, src->schema);
    if (src->multi != 0) {
      switch (storage_of(src->type)) {
        case storage::bits32: qel_arrayd_clone(&src->data.arrayd, 0, &dst->data.arrayd, 0, 0); return;
        case storage::bits64: qel_arrayx_clone(&src->data.arrayx, 0, &dst->data.arrayx, 0, 0); return;
        case storage::bytes: qel_array_clone(&src->data.array, 0, &dst->data.array, 0, 0); return;
        case storage::record:
          qel_arrays_free_all(&dst->data.vars, qel_var_term);
          if (src->data.vars.count > 0) stack_.push({dst, src, 0, match::elements});
          return;
      }
    }
    switch (storage_of(src->type)) {
      case storage::bits32: dst->data.bits32 = src->data.bits32; break;
      case storage::bits64: dst->data.bits64 = src->data.bits64; break;
      case storage::bytes: qel_stream_clone(&src->data.stream, &dst->data.stream); break;
      case storage::record: copy_members(dst, src); break;
    }
    dst->buf = src->buf;
  }

  // Requires two single records with disjoint trees: chooses how src's
  // members meet dst's and leaves the copying to a frame.  dst's members
  // that src lacks stay.
  void copy_members(qel_var *dst, const qel_var *src) {
    const qel_hash *members = &src->data.members;
    qel_hash *into = &dst->data.members;
    if (members->priv_count == 0) return;
    if (into->priv_count == 0 && into->priv_block == nullptr && qel_var_members_clonable(members)) {
      // Every member is new to dst: its hash takes src's keys wholesale, and
      // each member is made in its place, as it would be on its own, when its
      // turn comes.
      qel_var_members_clone_shape(into, members);
      return stack_.push({dst, src, 0, match::places});
    }
    const bool positions = !(members->priv_flags & qel_detail::kHashDuplicates) && same_shape(into, members);
    stack_.push({dst, src, 0, positions ? match::positions : match::names});
  }

  // Requires a frame: copies its pairs in order until one of them pushes a
  // frame of its own (true: the frame, which the push may have moved, is not
  // touched again) or none is left (false).
  bool advance(copy_frame &f) {
    const size_t depth = stack_.size();
    if (f.how == match::elements) {
      const qel_arrays &elements = f.src->data.vars;
      while (f.next < elements.count) {
        const auto *from = static_cast<const qel_var *>(elements.entries[f.next++]);
        if (from == nullptr) continue;
        qel_var *to = qel_var_new(from->type, from->multi);
        to->schema = from->schema;
        qel_arrays_append(&f.dst->data.vars, to);
        copy_node(to, from);
        if (stack_.size() != depth) return true;
      }
      return false;
    }
    // The members' own loop keeps its place in k, and stores it in the frame
    // only before a copy that may push.
    const qel_hash *members = &f.src->data.members;
    qel_var *dst = f.dst;
    const match how = f.how;
    for (int64_t k = f.next; k < members->priv_count; ++k) {
      const qel_hash_entry &e = members->priv_entries[k];
      const auto *from = static_cast<const qel_var *>(e.value);
      if (from == nullptr) continue;
      qel_var *to = how != match::names ? static_cast<qel_var *>(dst->data.members.priv_entries[k].value)
                                        : member_named(dst, members->key_pool + e.key_offset, e.key_length, from);
      if (how == match::places) init(qel_var_at(to, from->type, from->multi, from->schema));
      if (to == nullptr || copy_single_value(to, from)) continue;  // NULL: the hash is full
      f.next = k + 1;
      copy_node(to, from);
      if (stack_.size() != depth) return true;
    }
    return false;
  }

  // Requires a single record and a member for the name: dst's member of that
  // name, made like from when dst has none, or NULL when the hash is full.
  qel_var *member_named(qel_var *dst, const char *name, uint32_t length, const qel_var *from) const {
    if (auto *to = static_cast<qel_var *>(qel_detail::hash_get(&dst->data.members, name, length))) return to;
    qel_var *to = qel_var_alloc(from->type, from->multi, from->schema);
    init(to);
    if (qel_hash_insert(&dst->data.members, name, length, to) != nullptr) return to;
    qel_var_free(to);
    return nullptr;
  }

  bool bare_;
  qel::work_stack<copy_frame> stack_;
};

// Requires a variant: a new, independent deep copy of it holding exactly
// what it holds (its records get no members from their schemas), so that
// copying from it gives what copying from src gives.
qel_var *replica_of(const qel_var *src) {
  qel_var *copy = qel_var_alloc(src->type, src->multi, src->schema);
  init_bare(copy);
  copier(true).run(copy, src);
  return copy;
}

// Requires a record array dst and a variant e: appends a deep copy of e.
void add_element_copy(qel_var *dst, const qel_var *e) {
  qel_var *element = qel_var_new(e->type, e->multi);
  element->schema = e->schema;
  qel_var_copy_into(element, e);
  qel_arrays_append(&dst->data.vars, element);
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
void qel_var_copy_into(qel_var *dst, const qel_var *src) { copier(false).run(dst, src); }

// Requires two variants (may be the same or nested in one another): dst
// becomes a deep copy of src; a record dst keeps members src does not have.
extern "C" QEL_API void qel_var_copy(qel_var *dst, const qel_var *src) {
  QEL_REQUIRE(dst != nullptr);
  QEL_REQUIRE(src != nullptr);
  if (dst == src) return;
  if (contains(dst, src) || contains(src, dst)) {
    qel_var *snapshot = replica_of(src);
    qel_var_copy_into(dst, snapshot);
    qel_var_free(snapshot);
    return;
  }
  qel_var_copy_into(dst, src);
}

// Requires two variants (may be the same or nested in one another): dst
// becomes an array of src's type code ending with src's value or values.
extern "C" QEL_API void qel_var_append(qel_var *dst, const qel_var *src) {
  QEL_REQUIRE(dst != nullptr);
  QEL_REQUIRE(src != nullptr);
  const bool reforms = dst->type != src->type || dst->multi == 0;
  // Re-forming releases dst, which may be src or hold it; and when src holds
  // dst, dst's growth would show in the copies of src still to be made (and
  // re-forming dst would change src): work from a snapshot then.
  if ((reforms && (dst == src || contains(dst, src))) || contains(src, dst)) {
    qel_var *snapshot = replica_of(src);
    if (reforms) reform(dst, snapshot->type, 1, snapshot->schema);
    append_values(dst, snapshot);
    qel_var_free(snapshot);
    return;
  }
  if (reforms) reform(dst, src->type, 1, src->schema);
  append_values(dst, src);
}
