// Schemas, and construction of full variants through a schema resolver.
#include "internal/qel_var_internal.h"
#include "qel_std_inline.h"
#include "qel_require.h"

#include <cstdint>
#include <new>

namespace {

// Requires nothing: a member tag, the type code's low 16 bits under the multi
// byte sign-extended to 16 bits.
inline uint32_t pack_tag(uint32_t type, uint8_t multi) {
  const auto high = static_cast<uint16_t>(static_cast<int16_t>(static_cast<int8_t>(multi)));
  return (type & 0xFFFFu) | (static_cast<uint32_t>(high) << 16);
}

// Requires a tag and two outputs: its type code and multi byte.
inline void unpack_tag(uint32_t tag, uint32_t *type_out, uint8_t *multi_out) {
  *type_out = tag & 0xFFFFu;
  *multi_out = static_cast<uint8_t>(tag >> 16);
}

}  // namespace

// Requires nothing; the schema comes from the resolver, else the context.
qel_var *qel_var_make_at(void *place, uint32_t type, uint8_t multi, void *context, qel_schema_resolver resolver,
                         const qel::build_path *path) {
  qel_var *var = qel_var_at(place, type, multi, nullptr);
  var->schema = resolver != nullptr ? resolver(context, type) : static_cast<qel_schema *>(context);
  qel_var_init_at(var, context, resolver, path);
  return var;
}

// Requires nothing: qel_var_make_at in a block of its own.
qel_var *qel_var_new_at(uint32_t type, uint8_t multi, void *context, qel_schema_resolver resolver,
                        const qel::build_path *path) {
  qel_schema *schema = resolver != nullptr ? resolver(context, type) : static_cast<qel_schema *>(context);
  if (multi == 0 && qel::storage_of(type) == qel::storage::record)
    if (qel_var *var = qel_var_record_new_at(type, schema, context, resolver, path)) return var;
  qel_var *var = qel_var_alloc(type, multi, schema);
  qel_var_init_at(var, context, resolver, path);
  return var;
}

// ---- schemas ----

// Requires nothing; an empty schema.
extern "C" QEL_API qel_schema *qel_var_schema_new(void) {
  qel_schema *schema = ::new (qel_malloc(sizeof(qel_schema))) qel_schema;
  qel_array_init(schema, 0);
  return schema;
}

// Requires a schema or NULL (which does nothing).
extern "C" QEL_API void qel_var_schema_free(qel_schema *schema) {
  if (schema == nullptr) return;
  qel_array_term(schema);
  qel_free(schema);
}

// Requires a schema or NULL (which does nothing); the length is not measured.
extern "C" QEL_API void qel_var_schema_add(qel_schema *schema, const char *name, int64_t length, uint32_t type,
                                           uint8_t multi) {
  if (schema == nullptr) return;
  qel_array_append(schema, name, length, pack_tag(type, multi));
}

// Requires a schema and two outputs: index of the first member of this name
// (outputs set), or -1 (outputs untouched).
extern "C" QEL_API int qel_var_schema_find(const qel_schema *schema, const char *name, int64_t length,
                                           uint32_t *type_out, uint8_t *multi_out) {
  QEL_REQUIRE(schema != nullptr);
  for (int64_t i = 0, n = qel_detail::in_use(schema); i < n; ++i) {
    qel_char_view view{nullptr, 0};
    const uint32_t tag = qel_array_get_at(schema, i, &view.bytes, &view.length);
    if (qel_char_compare(&view, name, length) == 0) {
      unpack_tag(tag, type_out, multi_out);
      return static_cast<int>(i);
    }
  }
  return -1;
}

// Requires a schema.
extern "C" QEL_API int64_t qel_var_schema_size(const qel_schema *schema) {
  QEL_REQUIRE(schema != nullptr);
  return qel_detail::in_use(schema);
}

// Requires a schema; an index outside the members does nothing.
extern "C" QEL_API void qel_var_schema_set_at(qel_schema *schema, int64_t index, uint32_t type, uint8_t multi) {
  QEL_REQUIRE(schema != nullptr);
  if (index < 0 || index >= qel_detail::in_use(schema)) return;
  qel_array_update_at(schema, index, pack_tag(type, multi));
}

// Requires a schema and four outputs: the member's name as the schema holds
// it (NULL, 0 outside the members); type and multi only for a nonzero tag.
extern "C" QEL_API void qel_var_schema_get_at(const qel_schema *schema, int64_t index, const char **name_out,
                                              int64_t *length_out, uint32_t *type_out, uint8_t *multi_out) {
  QEL_REQUIRE(schema != nullptr);
  *name_out = nullptr;
  *length_out = 0;
  if (index < 0 || index >= qel_detail::in_use(schema)) return;
  const uint32_t tag = qel_array_get_at(schema, index, name_out, length_out);
  if (tag != 0) unpack_tag(tag, type_out, multi_out);
}

// Requires a variant; the schema as stored.
extern "C" QEL_API qel_schema *qel_var_schema(const qel_var *var) {
  QEL_REQUIRE(var != nullptr);
  return var->schema;
}

// ---- construction ----

// Requires a resolver that returns a schema (or NULL) for record codes, or
// no resolver and a context that is a schema (or NULL) for a single record.
extern "C" QEL_API qel_var *qel_var_new_x(uint32_t type, uint8_t multi, void *context, qel_schema_resolver resolver) {
  return qel_var_new_at(type, multi, context, resolver, nullptr);
}

// Requires a variant, and context and resolver as for qel_var_new_x; does
// nothing when type code and multi byte already match.
extern "C" QEL_API void qel_var_change_x(qel_var *var, uint32_t type, uint8_t multi, void *context,
                                         qel_schema_resolver resolver) {
  QEL_REQUIRE(var != nullptr);
  if (var->type == type && var->multi == multi) return;
  qel_var_free_x(var);
  var->type = type;
  var->multi = multi;
  var->schema = resolver != nullptr ? resolver(context, type) : static_cast<qel_schema *>(context);
  qel_var_init(var, context, resolver);
}
