// Full variant: the member shortcuts of records (codes from
// QEL_VAR_FIRST_RECORD up): members by name, elements of record arrays.
#include <qel.h>

#include <cstdint>
#include <cstring>

#include "internal/qel_var_internal.h"
#include "qel_require.h"
#include "qel_std_inline.h"

namespace {

// Requires nothing; true for the codes the member shortcuts serve.
constexpr bool is_record_code(uint32_t type) { return type >= QEL_VAR_FIRST_RECORD; }

}  // namespace

// Requires a variant and a src that is not var nor inside it; makes member
// `name` of a single record a deep copy of src, creating it if absent.
extern "C" QEL_API void qel_var_set_val(qel_var *var, const char *name, int64_t len, const qel_var *src) {
  QEL_REQUIRE(var != nullptr);
  QEL_REQUIRE(src != nullptr);
  if (!is_record_code(var->type) || var->multi != 0) return;
  auto *member = static_cast<qel_var *>(qel_detail::hash_get(&var->data.members, name, len));
  if (member == nullptr) {
    member = qel_var_new(src->type, src->multi);
    if (qel_hash_insert(&var->data.members, name, len, member) == nullptr) {
      qel_var_free(member);  // a name the hash cannot hold
      return;
    }
  }
  qel_var_copy(member, src);
}

// Requires a variant; member `name` of a single record (borrowed), or NULL.
extern "C" QEL_API qel_var *qel_var_get_val(const qel_var *var, const char *name, int64_t len) {
  QEL_REQUIRE(var != nullptr);
  if (!is_record_code(var->type) || var->multi != 0) return nullptr;
  return static_cast<qel_var *>(qel_detail::hash_get(&var->data.members, name, len));
}

// Requires a variant; appends a member-less record of the array's code and
// schema to a record array and returns it (borrowed), else NULL.
extern "C" QEL_API qel_var *qel_var_add_new(qel_var *var) {
  QEL_REQUIRE(var != nullptr);
  if (!is_record_code(var->type) || var->multi == 0) return nullptr;
  qel_var *element = qel_var_new(var->type, 0);
  element->schema = var->schema;
  qel_arrays_append(&var->data.vars, element);
  return element;
}

// Requires a variant, and context and resolver as for qel_var_new_x; appends
// a record made as qel_var_new_x(code, 0, context, resolver) makes it, members
// and all, to a record array and returns it (borrowed), else NULL.
extern "C" QEL_API qel_var *qel_var_add_new_x(qel_var *var, void *context, qel_schema_resolver resolver) {
  QEL_REQUIRE(var != nullptr);
  if (!is_record_code(var->type) || var->multi == 0) return nullptr;
  qel_var *element = qel_var_new_x(var->type, 0, context, resolver);
  qel_arrays_append(&var->data.vars, element);
  return element;
}

// Requires a variant and a src that is not var nor inside it; appends a deep
// copy of src to a record array.
extern "C" QEL_API void qel_var_add_var_x(qel_var *var, const qel_var *src) {
  QEL_REQUIRE(var != nullptr);
  QEL_REQUIRE(src != nullptr);
  qel_var *element = qel_var_add_new(var);
  if (element != nullptr) qel_var_copy(element, src);
}

// Requires a variant and a src that is not inside the target; copies src into
// element index of a record array, or into a single record itself.
extern "C" QEL_API void qel_var_set_var_x(qel_var *var, int64_t index, const qel_var *src) {
  QEL_REQUIRE(var != nullptr);
  QEL_REQUIRE(src != nullptr);
  if (!is_record_code(var->type)) return;
  if (var->multi == 0) {
    qel_var_copy(var, src);
    return;
  }
  auto *element = static_cast<qel_var *>(qel_arrays_get_at(&var->data.vars, index));
  if (element != nullptr) qel_var_copy(element, src);
}

// Requires a variant; element index of a record array or a single record
// itself (borrowed), else NULL.
extern "C" QEL_API qel_var *qel_var_get_var_x(const qel_var *var, int64_t index) {
  QEL_REQUIRE(var != nullptr);
  if (!is_record_code(var->type)) return nullptr;
  if (var->multi == 0) return const_cast<qel_var *>(var);
  return static_cast<qel_var *>(qel_arrays_get_at(&var->data.vars, index));
}
