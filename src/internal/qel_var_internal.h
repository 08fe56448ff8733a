// Steps shared by the full variant's source files (lifecycle, construction,
// copy); hidden from the shared object's exports.
#ifndef QEL_INTERNAL_VAR_H
#define QEL_INTERNAL_VAR_H

#include <qel.h>
#include <qel/code.hpp>

#include <cstdint>

namespace qel {

// One record whose members are being created, and the records above it on
// the same path.  Lives on the stack of member creation: no allocation.
struct build_path {
  const qel_schema *schema;
  const build_path *up;
  unsigned depth;  // records being built on the path, this one included
};

// Deeper records are created with their schema but without members.
inline constexpr unsigned kMaxBuildDepth = 256;

}  // namespace qel

// Requires room for a qel_var at place: a record made there with type and
// multi set, schema as given, buf 0, data uninitialised.
qel_var *qel_var_at(void *place, uint32_t type, uint8_t multi, qel_schema *schema);

// Requires nothing: qel_var_at in a block of its own.
qel_var *qel_var_alloc(uint32_t type, uint8_t multi, qel_schema *schema);

// Requires var's type and multi set, data uninitialised: qel_var_init below a
// path of records being built (NULL at the top).
void qel_var_init_at(qel_var *var, void *context, qel_schema_resolver resolver, const qel::build_path *path);

// Requires nothing: qel_var_new_x below a path of records being built.
qel_var *qel_var_new_at(uint32_t type, uint8_t multi, void *context, qel_schema_resolver resolver,
                        const qel::build_path *path);

// Requires room for a qel_var at place: qel_var_new_at's record made there.
qel_var *qel_var_make_at(void *place, uint32_t type, uint8_t multi, void *context, qel_schema_resolver resolver,
                         const qel::build_path *path);

// Requires a single record with an initialised, empty member hash: creates
// the members its schema lists (qel_var_members.cpp).
void qel_var_members_new(qel_var *var, void *context, qel_schema_resolver resolver, const qel::build_path *path);

// Requires a record-class code: a single record with that schema whose
// members share one block with it (qel_var_members.cpp), or NULL when they
// would not (nothing made, no resolver called).
qel_var *qel_var_record_new_at(uint32_t type, qel_schema *schema, void *context, qel_schema_resolver resolver,
                               const qel::build_path *path);

// Requires a single record: whether it shares one block with its members.
bool qel_var_owns_block(const qel_var *var);

// Requires a single record: frees its members and nulls their entries;
// block_stays unless the hash is terminated right after.  Like the two below,
// it works through a list threaded through the variants it releases: no
// allocation, no recursion, whatever the depth.
void qel_var_members_free(qel_var *var, bool block_stays);

// Requires a record-class variant with initialised storage: qel_var_free_x.
void qel_var_record_free_x(qel_var *var);

// Requires a variant: qel_var_free.
void qel_var_free_tree(qel_var *var);

// Requires a member hash: whether members_clone_shape may copy it (distinct
// keys, a member under each, not too many).
bool qel_var_members_clonable(const qel_hash *shape);

// Requires an initialised member hash with no entries and no block, and a
// clonable shape: the shape's keys in its order, each entry's value a place in
// a new block (returned, places not yet initialised).
qel_var *qel_var_members_clone_shape(qel_hash *members, const qel_hash *shape);

// Requires two variants of one type code and multi byte, src made by
// qel_var_alloc: dst's storage is released and replaced by src's (with its buf),
// src is left holding nothing (only for qel_var_free).  A record made with its
// members in one block (record_new_at) keeps that block to itself, so storage
// moves between records only this way.
void qel_var_move_storage(qel_var *dst, qel_var *src);

// Requires two variants whose trees share no node: the deep copy without
// alias checks (qel_var_copy's walk).
void qel_var_copy_into(qel_var *dst, const qel_var *src);

// File-local steps of the lifecycle, shared between the variant's sources.
// Requires: var's type and multi set, data uninitialised.
void qel_var_init(qel_var *var, void *context, qel_schema_resolver resolver);
// Requires: var's data initialised for its type and multi; leaves type, multi, schema.
void qel_var_free_x(qel_var *var);
// Requires: a qel_var * made by the library; frees it (element destructor).
void qel_var_term(void *var);
// Requires: a single record with an initialised, empty member hash.
void qel_var_hash_new(qel_var *var, void *context, qel_schema_resolver resolver);
// Requires: a single record; frees every member and nulls its hash entry.
void qel_var_hash_free(qel_var *var);

#endif
