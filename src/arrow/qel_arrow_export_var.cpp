// Export of full variants: records as structs, multi members as lists, and
// the entry point for a variant in the multi form.
#include <cstring>

#include "arrow/qel_arrow_export.h"
#include "arrow/qel_arrow_nodes.h"
#include "internal/qel_var_internal.h"
#include "qel_std_inline.h"

using qel::storage;
using qel::storage_of;

namespace qel::arrow {
namespace {

// A block of n T, freed when it goes out of scope.
template <typename T>
class scratch {
 public:
  explicit scratch(int64_t n) : p_(static_cast<T *>(qel_malloc(static_cast<size_t>(n) * sizeof(T)))) {}
  ~scratch() { qel_free(p_); }
  scratch(const scratch &) = delete;
  scratch &operator=(const scratch &) = delete;
  T *get() const { return p_; }
  T &operator[](int64_t i) const { return p_[i]; }

 private:
  T *p_;
};

// Requires an array variant of the 32-bit, 64-bit or byte-string class.
const void *value_array(const qel_var *v) {
  switch (storage_of(v->type)) {
    case storage::bits32: return &v->data.arrayd;
    case storage::bits64: return &v->data.arrayx;
    default: return &v->data.array;
  }
}

}  // namespace

int64_t var_rows(const qel_var *v) {
  if (v->multi == 0) return 0;
  switch (storage_of(v->type)) {
    case storage::bits32: return qel_detail::in_use(&v->data.arrayd);
    case storage::bits64: return qel_detail::in_use(&v->data.arrayx);
    case storage::bytes: return qel_detail::in_use(&v->data.array);
    case storage::record: return qel_detail::in_use(&v->data.vars);
  }
  return 0;
}

namespace {

// The first non-NULL row's schema (NULL when every row is NULL).
const qel_schema *first_schema(qel_var *const *vals, int64_t n) {
  for (int64_t r = 0; r < n; ++r)
    if (vals[r] != nullptr) return vals[r]->schema;
  return nullptr;
}

// Requires arrays of one code at each row (NULL: null row): a list of their
// elements; for records a list of structs.
bool export_multi(reporter &ex, uint32_t type, qel_var *const *vals, int64_t n, const int64_t *rows, const char *name,
                  int64_t name_len, ArrowSchema *s, ArrowArray *a, const char *buf_name, int64_t buf_len,
                  ArrowSchema *bs, ArrowArray *ba) {
  scratch<segment> segs(n);
  int64_t total = 0;
  for (int64_t r = 0; r < n; ++r) {
    const qel_var *m = vals[r];
    const int64_t count = m != nullptr ? var_rows(m) : 0;
    segs[r] = {m != nullptr ? value_array(m) : nullptr, 0, count, rows != nullptr ? rows[r] : r};
    total += count;
  }
  list_make(segs.get(), n, total, name, name_len, ARROW_FLAG_NULLABLE, s, a);
  if (storage_of(type) != storage::record) {
    if (bs != nullptr) {
      list_make(segs.get(), n, total, buf_name, buf_len, ARROW_FLAG_NULLABLE, bs, ba);
      export_segment_bufs(full_kind(type), segs.get(), n, total, "item", 4, bs->children[0], ba->children[0]);
    }
    return export_segments(ex, full_kind(type), segs.get(), n, total, "item", 4, s->children[0], a->children[0]);
  }
  scratch<qel_var *> flat(total);
  scratch<int64_t> flat_rows(total);
  int64_t j = 0;
  for (int64_t r = 0; r < n; ++r) {
    if (vals[r] == nullptr) continue;
    const qel_arrays &vars = vals[r]->data.vars;
    for (int64_t i = 0; i < qel_detail::in_use(&vars); ++i, ++j) {
      flat[j] = static_cast<qel_var *>(vars.entries[i]);
      flat_rows[j] = rows != nullptr ? rows[r] : r;
    }
  }
  return export_records(ex, flat.get(), total, flat_rows.get(), first_schema(vals, n), "item", 4, 0, s->children[0],
                        a->children[0]);
}

}  // namespace

bool export_records(reporter &ex, qel_var *const *recs, int64_t n, const int64_t *rows, const qel_schema *schema,
                    const char *name, int64_t name_len, int64_t flags, ArrowSchema *s, ArrowArray *a) {
  for (int64_t r = 0; r < n; ++r) {
    const qel_var *e = recs[r];
    if (e != nullptr && (e->multi != 0 || storage_of(e->type) != storage::record))
      return ex.fail(QEL_ARROW_ERR_SHAPE, rows != nullptr ? rows[r] : r,
                     "expected a single record, found code %u in the %s form", e->type,
                     e->multi != 0 ? "multi" : "single");
  }
  const int64_t members = schema != nullptr ? qel_detail::in_use(schema) : 0;
  int64_t children = members;
  for (int64_t k = 0; ex.bufs() && k < members; ++k)
    if (storage_of(static_cast<uint16_t>(schema->entries[k].buf)) != storage::record) ++children;
  schema_make(s, "+s", name, name_len, flags, children);
  array_make(a, n, 1, children);
  int64_t nulls = 0;
  for (int64_t r = 0; r < n; ++r) nulls += recs[r] == nullptr;
  if (nulls != 0) {
    auto *bits = static_cast<uint8_t *>(array_buffer(a, 0, static_cast<size_t>((n + 7) / 8)));
    std::memset(bits, 0, static_cast<size_t>((n + 7) / 8));
    for (int64_t r = 0; r < n; ++r)
      if (recs[r] != nullptr) bits[r >> 3] = static_cast<uint8_t>(bits[r >> 3] | (1u << (r & 7)));
    a->null_count = nulls;
  }
  scratch<qel_var *> vals(n);
  int64_t child = 0;
  for (int64_t k = 0; k < members; ++k) {
    const qel_array_entry &se = schema->entries[k];
    const char *mname = schema->pool.bytes + se.offset;
    const int64_t mlen = se.length;
    const uint32_t mtype = static_cast<uint16_t>(se.buf);
    const auto mmulti = static_cast<uint8_t>(se.buf >> 16);
    const size_t mark = ex.enter(mname, mlen);
    for (int64_t r = 0; r < n; ++r) {
      qel_var *m = recs[r] != nullptr
                       ? static_cast<qel_var *>(qel_detail::hash_get(&recs[r]->data.members, mname, mlen))
                       : nullptr;
      if (m != nullptr && (m->type != mtype || m->multi != mmulti))
        return ex.fail(QEL_ARROW_ERR_SHAPE, rows != nullptr ? rows[r] : r,
                       "expected code %u in the %s form as the schema lists, found code %u in the %s form", mtype,
                       mmulti != 0 ? "multi" : "single", m->type, m->multi != 0 ? "multi" : "single");
      vals[r] = m;
    }
    ArrowSchema *cs = s->children[child];
    ArrowArray *ca = a->children[child];
    ++child;
    const bool with_bufs = ex.bufs() && storage_of(mtype) != storage::record;
    ArrowSchema *bs = with_bufs ? s->children[child] : nullptr;
    ArrowArray *ba = with_bufs ? a->children[child] : nullptr;
    if (with_bufs) ++child;
    char buf_name[256];
    const int64_t keep = mlen < 250 ? mlen : 250;
    if (keep > 0) std::memcpy(buf_name, mname, static_cast<size_t>(keep));
    std::memcpy(buf_name + keep, ".buf", 4);
    bool ok = true;
    if (mmulti != 0) {
      ok = export_multi(ex, mtype, vals.get(), n, rows, mname, mlen, cs, ca, buf_name, keep + 4, bs, ba);
    } else if (storage_of(mtype) == storage::record) {
      ok = export_records(ex, vals.get(), n, rows, first_schema(vals.get(), n), mname, mlen, ARROW_FLAG_NULLABLE, cs,
                          ca);
    } else {
      ok = export_singles(ex, mtype, vals.get(), n, rows, mname, mlen, ARROW_FLAG_NULLABLE, cs, ca);
      if (with_bufs) export_single_bufs(vals.get(), n, buf_name, keep + 4, bs, ba);
    }
    ex.leave(mark);
    if (!ok) return false;
  }
  return true;
}

bool export_var_rows(reporter &ex, const qel_var *v, int64_t begin, int64_t n, ArrowSchema *s, ArrowArray *a) {
  if (v->multi == 0)
    return ex.fail(QEL_ARROW_ERR_SHAPE, -1, "expected a variant in the multi form, found code %u in the single form",
                   v->type);
  if (storage_of(v->type) == storage::record) {
    scratch<qel_var *> elems(n);
    scratch<int64_t> rows(n);
    for (int64_t r = 0; r < n; ++r) {
      elems[r] = static_cast<qel_var *>(v->data.vars.entries[begin + r]);
      rows[r] = begin + r;
    }
    return export_records(ex, elems.get(), n, rows.get(), v->schema, "value", 5, 0, s, a);
  }
  const segment seg{value_array(v), begin, n, -1};
  if (!export_segments(ex, full_kind(v->type), &seg, 1, n, "value", 5, s, a)) return false;
  if (ex.bufs()) {
    ArrowSchema *bs = nullptr;
    ArrowArray *ba = nullptr;
    wrap_with_bufs(s, a, &bs, &ba);
    export_segment_bufs(full_kind(v->type), &seg, 1, n, "value.buf", 9, bs, ba);
  }
  table_of(ex, s, a);
  return true;
}

}  // namespace qel::arrow

extern "C" QEL_API int qel_arrow_export_var(const qel_var *v, unsigned flags, ArrowSchema *schema, ArrowArray *array,
                                            qel_arrow_error *err) {
  qel::arrow::reporter ex(flags, err);
  schema->release = nullptr;
  array->release = nullptr;
  const int64_t n = qel::arrow::var_rows(v);
  if (qel::arrow::export_var_rows(ex, v, 0, n, schema, array)) return QEL_ARROW_OK;
  qel::arrow::release_both(schema, array);
  return ex.code();
}
