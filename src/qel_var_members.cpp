// The members of a single record: made from its schema, and released.
//
// The members a schema lists when a record is initialised live in one block
// that the record's member hash holds: a head, the member variants in schema
// order, then the hash's entries, slots and keys, sized once from the schema
// (the hash moves those out if it grows later).  A member added afterwards by
// name, or listed only after the record was initialised (a resolver may add
// to a schema), is a block of its own.  The block goes with the hash, when
// the record is re-formed or freed, so a use of a member after that is a use
// of freed memory to the memory checkers, as with separate blocks; members
// released while the block stays (a shrink) are marked inaccessible.
#include "internal/qel_var_internal.h"
#include "qel_std_inline.h"

#include <cstdint>
#include <new>

#if defined(__SANITIZE_ADDRESS__)
#define QEL_MEMBERS_ASAN 1
#elif defined(__has_feature)
#if __has_feature(address_sanitizer)
#define QEL_MEMBERS_ASAN 1
#endif
#endif
#ifdef QEL_MEMBERS_ASAN
#include <sanitizer/asan_interface.h>
#endif
#if __has_include(<valgrind/memcheck.h>)
#include <valgrind/memcheck.h>
#define QEL_MEMBERS_VALGRIND 1
#endif

namespace {

// Head of a record's block: how many member places follow it.
struct member_block {
  uint64_t places;
  uint64_t reserved;  // keeps the members 16-aligned
};

// Larger schemas (or key pools) build their members one block each rather
// than in one block of that size.
constexpr int64_t kMaxBlockMembers = int64_t{1} << 20;
constexpr int64_t kMaxBlockKeys = INT32_MAX;

// Requires a hash just given a block of block_front(n) owner bytes; its n
// member places.
qel_var *places_of(void *front, uint64_t n) {
  auto *head = static_cast<member_block *>(front);
  head->places = n;
  head->reserved = 0;
  return reinterpret_cast<qel_var *>(head + 1);
}

// Requires n <= kMaxBlockMembers; owner bytes of a block for n members.
size_t block_front(uint64_t n) { return sizeof(member_block) + n * sizeof(qel_var); }

// Requires a single record; the head of its block's member places, or NULL.
// A record made with its members has its block to itself: the record first.
const member_block *head_of(const qel_var *var) {
  const void *block = var->data.members.priv_block;
  if (block == var) return reinterpret_cast<const member_block *>(var + 1);
  return static_cast<const member_block *>(block);
}

// Requires a single record; whether m is one of its block's member places.
bool in_block(const qel_var *var, const qel_var *m) {
  const member_block *head = head_of(var);
  if (head == nullptr) return false;
  const auto at = reinterpret_cast<uintptr_t>(m);
  const auto first = reinterpret_cast<uintptr_t>(head + 1);
  return at >= first && at - first < head->places * sizeof(qel_var);
}

// Requires a released member place in a block that stays: no access to it
// until the block goes.
void mark_released(qel_var *m) {
#ifdef QEL_MEMBERS_ASAN
  ASAN_POISON_MEMORY_REGION(m, sizeof(qel_var));
#endif
#ifdef QEL_MEMBERS_VALGRIND
  VALGRIND_MAKE_MEM_NOACCESS(m, sizeof(qel_var));
#endif
  (void)m;
}

// Requires a member of this record: frees it (a place in the block: releases
// its storage, and marks the place when the block stays).
void release(const qel_var *var, qel_var *m, bool block_stays) {
  if (!in_block(var, m)) return qel_var_free(m);
  qel_var_free_x(m);
  if (block_stays) mark_released(m);
}

// ---- releasing a tree without recursion ----
// Variants waiting to be released form a list through their own buf field
// (which the release clears anyway): the next waiting variant's address and
// three flags.  The list is worked depth first, so a record's members and
// elements go before the record and its block, and releasing a tree of any
// depth needs no memory and one stack frame.

constexpr uintptr_t kPlace = 1;        // a place in its record's block: storage only
constexpr uintptr_t kMarkPlace = 2;    // such a place in a block that stays: marked after
constexpr uintptr_t kChildrenOut = 4;  // its members or elements are already listed
constexpr uintptr_t kListFlags = 7;
static_assert(alignof(qel_var) >= 8, "the list's flags live in the low bits of a qel_var address");

// Requires a variant: whether it is a record holding members or elements.
bool has_children(const qel_var *var) {
  if (qel::storage_of(var->type) != qel::storage::record) return false;
  return var->multi != 0 ? var->data.vars.count > 0 : var->data.members.priv_count > 0;
}

// Requires a record whose members or elements are all released: releases the
// rest of its storage as qel_var_free_x does.
void record_end(qel_var *var) {
  if (var->multi != 0) return qel_arrays_term(&var->data.vars);
  if (qel_var_owns_block(var)) qel_detail::hash_forget_block(&var->data.members);  // the block goes with var
  else qel_hash_term(&var->data.members);
  var->buf = 0;
}

// Requires a variant holding no members or elements (or only released ones):
// releases its storage, then frees it or, as a place in a block, marks it
// when its flags say so.
void release_last(qel_var *var, uintptr_t flags) {
  if (qel::storage_of(var->type) == qel::storage::record) record_end(var);
  else qel_var_free_x(var);
  if (flags & kMarkPlace) mark_released(var);
  if (!(flags & kPlace)) qel_free(var);
}

struct release_list {
  qel_var *top = nullptr;
  void push(qel_var *var, uintptr_t flags) {
    var->buf = reinterpret_cast<uintptr_t>(top) | flags;
    top = var;
  }
  // A variant to release: at once when it holds no members or elements, else
  // listed (so only such records wait on the list).
  void take(qel_var *var, uintptr_t flags) {
    if (has_children(var)) push(var, flags);
    else release_last(var, flags);
  }
};

// Requires a record: hands its members (clearing their entries) or elements
// (leaving the array empty) to the list; member places are marked when the
// block stays.
void list_children(release_list &list, qel_var *var, bool block_stays) {
  if (var->multi != 0) {
    qel_arrays &elements = var->data.vars;
    for (int64_t i = 0; i < elements.count; ++i)
      if (elements.entries[i] != nullptr) list.take(static_cast<qel_var *>(elements.entries[i]), 0);
    qel_arrays_free_all(&elements, nullptr);
    return;
  }
  // The block's places, found once (in_block for every member costs more).
  const member_block *head = head_of(var);
  const uintptr_t first = head != nullptr ? reinterpret_cast<uintptr_t>(head + 1) : 0;
  const uintptr_t bytes = head != nullptr ? head->places * sizeof(qel_var) : 0;
  const uintptr_t place = block_stays ? kPlace | kMarkPlace : kPlace;
  qel_hash *members = &var->data.members;
  for (uint32_t k = 0; k < members->priv_count; ++k) {
    auto *m = static_cast<qel_var *>(members->priv_entries[k].value);
    if (m == nullptr) continue;
    members->priv_entries[k].value = nullptr;
    const bool in_place = reinterpret_cast<uintptr_t>(m) - first < bytes;
    const qel::storage cls = qel::storage_of(m->type);
    if (cls == qel::storage::record) {
      list.take(m, in_place ? place : 0);
      continue;
    }
    // The common leaf, released here; a single number holds nothing to
    // release, and its value goes with its place.
    if (m->multi != 0 || cls == qel::storage::bytes) qel_var_free_x(m);
    if (!in_place) qel_free(m);
    else if (block_stays) mark_released(m);
  }
}

// Requires a list: releases every variant on it and everything they hold,
// each record after its members or elements.  A record on top has its
// children handed out where it lies; it goes once no record of them is left
// above it.
void release_all(release_list &list) {
  while (qel_var *var = list.top) {
    const uintptr_t link = var->buf;
    if (!(link & kChildrenOut)) {
      var->buf = link | kChildrenOut;
      list_children(list, var, false);  // a record released whole takes its block along
      if (list.top != var) continue;
    }
    list.top = reinterpret_cast<qel_var *>(link & ~kListFlags);
    release_last(var, link & kListFlags);
  }
}

// Requires a schema and the path of records being built above; whether a
// record of this schema gets its members here: not when the schema is already
// being built further up the path, nor at the depth bound (then the record
// stays without members).
bool may_build(const qel_schema *schema, const qel::build_path *up) {
  if (schema == nullptr) return false;
  const unsigned depth = up != nullptr ? up->depth + 1 : 1;
  if (depth > qel::kMaxBuildDepth) return false;
  for (const qel::build_path *p = up; p != nullptr; p = p->up)
    if (p->schema == schema) return false;
  return true;
}

// What a block for a schema's members holds: a place for each member listed
// now and room for their names (none when the schema is empty or too large).
struct block_plan {
  uint32_t places;
  uint32_t key_bytes;
};

// Requires a schema; the block its records' members get.
block_plan plan_of(const qel_schema *schema) {
  const int64_t listed = qel_detail::in_use(schema);
  int64_t keys = schema->pool.length < schema->pool.capacity ? schema->pool.length : schema->pool.capacity;
  if (keys < 0) keys = 0;
  if (listed <= 0 || listed > kMaxBlockMembers || keys > kMaxBlockKeys) return {0, 0};
  return {static_cast<uint32_t>(listed), static_cast<uint32_t>(keys)};
}

// Requires a single record with an initialised member hash (empty but for a
// block with in_place places, when places is not NULL), its schema allowed by
// may_build, and here the path with it: creates the members the schema lists,
// in order, the first in_place in the block's places.
void fill(qel_var *var, qel_var *places, int64_t in_place, void *context, qel_schema_resolver resolver,
          const qel::build_path *here) {
  const qel_schema *schema = var->schema;
  qel_hash *members = &var->data.members;
  for (int64_t i = 0; i < qel_detail::in_use(schema); ++i) {
    const uint32_t tag = qel_detail::array_tag(schema, i);
    const uint32_t type = tag & 0xFFFFu;
    const auto multi = static_cast<uint8_t>(tag >> 16);
    qel_var *member = i < in_place ? qel_var_make_at(&places[i], type, multi, context, resolver, here)
                                   : qel_var_new_at(type, multi, context, resolver, here);
    // The name only now: a resolver may have changed this schema meanwhile.
    const char *name = nullptr;
    int64_t length = 0;
    qel_detail::array_entry(schema, i, &name, &length);
    const auto len = static_cast<uint32_t>(length);  // a string array's lengths are 32-bit
    qel_hash_entry *entry =
        qel_detail::hash_insert_in_block(members, name, len, qel_detail::key_hash(name, len), member);
    if (entry == nullptr) entry = qel_hash_insert(members, name, length, member);
    if (entry == nullptr || entry->value != member) release(var, member, true);  // the hash kept no place for it
  }
}

}  // namespace

// Requires a single record with an initialised, empty member hash: creates the
// members its schema lists, unless may_build says otherwise.
void qel_var_members_new(qel_var *var, void *context, qel_schema_resolver resolver, const qel::build_path *up) {
  if (!may_build(var->schema, up)) return;
  const qel::build_path here{var->schema, up, up != nullptr ? up->depth + 1 : 1};
  const block_plan plan = plan_of(var->schema);
  qel_var *places = nullptr;
  if (plan.places != 0)
    places = places_of(
        qel_detail::hash_reserve_block(&var->data.members, block_front(plan.places), plan.places, plan.key_bytes),
        plan.places);
  fill(var, places, plan.places, context, resolver, &here);
}

// Requires a record-class code; a single record of that code and schema made
// with its members in one block, the record first, or NULL (nothing made,
// nothing called) when its members would not share a block.
qel_var *qel_var_record_new_at(uint32_t type, qel_schema *schema, void *context, qel_schema_resolver resolver,
                               const qel::build_path *up) {
  if (!may_build(schema, up)) return nullptr;
  const block_plan plan = plan_of(schema);
  if (plan.places == 0) return nullptr;
  qel_hash members;
  qel_detail::hash_init(&members);
  void *block =
      qel_detail::hash_reserve_block(&members, sizeof(qel_var) + block_front(plan.places), plan.places, plan.key_bytes);
  qel_var *var = qel_var_at(block, type, 0, schema);
  var->data.members = members;
  const qel::build_path here{schema, up, up != nullptr ? up->depth + 1 : 1};
  fill(var, places_of(var + 1, plan.places), plan.places, context, resolver, &here);
  return var;
}

// Requires a single record; whether it was made with its members' block
// (record_new_at), which it then holds until it is freed.
bool qel_var_owns_block(const qel_var *var) { return var->data.members.priv_block == var; }

// Requires a single record; frees its members, leaving NULL in their entries
// (places in the block are marked unless the block goes right after).
void qel_var_members_free(qel_var *var, bool block_stays) {
  release_list list;
  list_children(list, var, block_stays);
  release_all(list);
}

// Requires a record with initialised storage: releases it (members, elements,
// hash or array) as qel_var_free_x does.
void qel_var_record_free_x(qel_var *var) {
  release_list list;
  list_children(list, var, var->multi == 0 && qel_var_owns_block(var));
  release_all(list);
  record_end(var);
}

// Requires a variant: frees it and everything it holds.
void qel_var_free_tree(qel_var *var) {
  release_list list;
  list.take(var, 0);
  release_all(list);
}

// Requires an initialised member hash with no entries and no block, and one
// whose keys are distinct, every entry holding a member: gives the first the
// second's keys in the same order and a block with a place for each member;
// each entry's value is its place, not yet initialised.
qel_var *qel_var_members_clone_shape(qel_hash *members, const qel_hash *shape) {
  const uint32_t n = shape->priv_count;
  qel_var *places = places_of(qel_detail::hash_clone_block(members, shape, block_front(n)), n);
  for (uint32_t k = 0; k < n; ++k) members->priv_entries[k].value = &places[k];
  return places;
}

// Requires a member hash; whether members_clone_shape may copy it.
bool qel_var_members_clonable(const qel_hash *shape) {
  if ((shape->priv_flags & qel_detail::kHashDuplicates) || shape->priv_count > kMaxBlockMembers) return false;
  for (uint32_t k = 0; k < shape->priv_count; ++k)
    if (shape->priv_entries[k].value == nullptr) return false;
  return true;
}

// Requires a single record with an empty member hash.
void qel_var_hash_new(qel_var *var, void *context, qel_schema_resolver resolver) {
  qel_var_members_new(var, context, resolver, nullptr);
}

// Requires a single record; frees its members, leaving NULL in their entries.
void qel_var_hash_free(qel_var *var) { qel_var_members_free(var, true); }
