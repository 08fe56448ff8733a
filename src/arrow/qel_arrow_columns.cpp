// Checking an imported array (see qel_arrow_columns.h).
#include "arrow/qel_arrow_columns.h"

#include <cstring>

#include "qel_std_inline.h"

namespace qel::arrow {
namespace {

struct format_info {
  ckind kind;
  int buffers;  // -1: views (at least 3)
  int64_t list_size;
  bool ok;
};

// Requires a NUL-terminated string: the kind of an Arrow format string.
format_info parse_format(const char *f) {
  format_info r{ckind::null, 0, 0, true};
  auto is = [f](const char *s) { return std::strcmp(f, s) == 0; };
  if (is("n")) return r;
  if (is("b")) return {ckind::boolean, 2, 0, true};
  static constexpr struct {
    char c;
    ckind k;
  } numbers[] = {{'c', ckind::i8},  {'C', ckind::u8},  {'s', ckind::i16}, {'S', ckind::u16}, {'i', ckind::i32},
                 {'I', ckind::u32}, {'l', ckind::i64}, {'L', ckind::u64}, {'f', ckind::f32}, {'g', ckind::f64}};
  if (f[0] != '\0' && f[1] == '\0')
    for (const auto &n : numbers)
      if (f[0] == n.c) return {n.k, 2, 0, true};
  if (is("z") || is("u")) return {ckind::bin32, 3, 0, true};
  if (is("Z") || is("U")) return {ckind::bin64, 3, 0, true};
  if (is("vz") || is("vu")) return {ckind::view, -1, 0, true};
  if (is("+l")) return {ckind::list32, 2, 0, true};
  if (is("+L")) return {ckind::list64, 2, 0, true};
  if (is("+s")) return {ckind::strukt, 1, 0, true};
  if (f[0] == '+' && f[1] == 'w' && f[2] == ':') {
    int64_t n = 0;
    const char *p = f + 3;
    if (*p == '\0') return {ckind::null, 0, 0, false};
    for (; *p >= '0' && *p <= '9'; ++p) {
      n = n * 10 + (*p - '0');
      if (n > (int64_t{1} << 40)) return {ckind::null, 0, 0, false};
    }
    if (*p != '\0' || n <= 0) return {ckind::null, 0, 0, false};
    return {ckind::fixed_list, 1, n, true};
  }
  return {ckind::null, 0, 0, false};
}

bool is_integer(ckind k) { return k >= ckind::i8 && k <= ckind::u64; }

class opener {
 public:
  explicit opener(reporter &rep) : rep_(rep) {}

  // Requires nothing: counts the columns of the tree (false after reporting
  // a broken or too deep one).
  bool count(const ArrowSchema *s, const ArrowArray *a, int depth, int64_t *columns, int64_t *hints) {
    if (depth > QEL_ARROW_MAX_DEPTH)
      return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "columns nested deeper than %d", QEL_ARROW_MAX_DEPTH);
    if (s == nullptr || a == nullptr || s->release == nullptr || a->release == nullptr)
      return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "a missing or released schema or array");
    if (s->n_children < 0 || s->n_children != a->n_children || s->n_children > (int64_t{1} << 24))
      return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "%lld children in the schema, %lld in the array",
                       static_cast<long long>(s->n_children), static_cast<long long>(a->n_children));
    if (s->n_children > 0 && (s->children == nullptr || a->children == nullptr))
      return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "children missing");
    if ((s->dictionary == nullptr) != (a->dictionary == nullptr))
      return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "a dictionary in only one of schema and array");
    if (++*columns > (int64_t{1} << 20)) return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "more than 2^20 columns");
    if (s->format != nullptr && std::strcmp(s->format, "+s") == 0) *hints += s->n_children;
    for (int64_t i = 0; i < s->n_children; ++i)
      if (!count(s->children[i], a->children[i], depth + 1, columns, hints)) return false;
    if (s->dictionary != nullptr) return count(s->dictionary, a->dictionary, depth + 1, columns, hints);
    return true;
  }

  // Requires count() to have passed and room for the tree: fills c.
  bool open(column *c, const ArrowSchema *s, const ArrowArray *a) {
    if (s->format == nullptr) return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "a schema without a format");
    const format_info fi = parse_format(s->format);
    if (!fi.ok) return rep_.fail(QEL_ARROW_ERR_TYPE, -1, "unsupported format \"%.40s\"", s->format);
    c->schema = s;
    c->name = s->name != nullptr ? s->name : "";
    c->name_len = static_cast<int64_t>(std::strlen(c->name));
    c->kind = fi.kind;
    c->offset = a->offset;
    c->length = a->length;
    c->validity = nullptr;
    c->values = nullptr;
    c->data = nullptr;
    c->variadic = nullptr;
    c->variadic_sizes = nullptr;
    c->n_variadic = 0;
    c->list_size = fi.list_size;
    c->children = nullptr;
    c->n_children = 0;
    c->dict = nullptr;
    c->member_hint = nullptr;
    if (a->length < 0 || a->offset < 0 || a->length > INT64_MAX / 2 - a->offset)
      return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "length %lld and offset %lld", static_cast<long long>(a->length),
                       static_cast<long long>(a->offset));
    const int64_t end = a->offset + a->length;
    const int64_t want = fi.buffers >= 0 ? fi.buffers : 3;
    if (fi.buffers >= 0 ? a->n_buffers != want : a->n_buffers < want || a->n_buffers > (int64_t{1} << 24))
      return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "%lld buffers for format \"%.40s\"",
                       static_cast<long long>(a->n_buffers), s->format);
    if (a->n_buffers > 0 && a->buffers == nullptr) return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "no buffer list");
    if (s->dictionary != nullptr && !is_integer(fi.kind))
      return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "a dictionary with index format \"%.40s\"", s->format);
    const int64_t kids_wanted = fi.kind == ckind::strukt ? s->n_children
                                : fi.kind == ckind::list32 || fi.kind == ckind::list64 || fi.kind == ckind::fixed_list
                                    ? 1
                                    : 0;
    if (s->n_children != kids_wanted)
      return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "%lld children for format \"%.40s\"",
                       static_cast<long long>(s->n_children), s->format);
    if (fi.kind != ckind::null) {
      c->validity = static_cast<const uint8_t *>(a->buffers[0]);
      if (c->validity == nullptr && a->null_count > 0)
        return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "%lld nulls without a validity bitmap",
                         static_cast<long long>(a->null_count));
      if (a->null_count == 0) c->validity = nullptr;
    }
    if (want > 1) {
      c->values = a->buffers[1];
      if (c->values == nullptr && a->length > 0 && fi.kind != ckind::null)
        return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "no value buffer for %lld values",
                         static_cast<long long>(a->length));
    }
    // The children, then what this column promises about them.
    if (s->n_children > 0) {
      c->children = next_;
      c->n_children = s->n_children;
      next_ += s->n_children;
      if (fi.kind == ckind::strukt) {
        c->member_hint = hints_;
        hints_ += s->n_children;
        for (int64_t i = 0; i < s->n_children; ++i) c->member_hint[i] = -1;
      }
      for (int64_t i = 0; i < s->n_children; ++i)
        if (!open(&c->children[i], s->children[i], a->children[i])) return false;
    }
    if (s->dictionary != nullptr) {
      c->dict = next_++;
      if (!open(c->dict, s->dictionary, a->dictionary)) return false;
    }
    switch (fi.kind) {
      case ckind::strukt:
        for (int64_t i = 0; i < c->n_children; ++i)
          if (c->children[i].length < end)
            return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "a struct child of %lld rows under %lld",
                             static_cast<long long>(c->children[i].length), static_cast<long long>(end));
        return true;
      case ckind::fixed_list:
        if (end > 0 && c->children[0].length / end < c->list_size)
          return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "a fixed-size list child of %lld values, too short",
                           static_cast<long long>(c->children[0].length));
        return true;
      case ckind::list32: return offsets<int32_t>(c, c->children[0].length, "list");
      case ckind::list64: return offsets<int64_t>(c, c->children[0].length, "list");
      case ckind::bin32:
      case ckind::bin64: {
        c->data = static_cast<const char *>(a->buffers[2]);
        const bool ok = fi.kind == ckind::bin32 ? offsets<int32_t>(c, INT64_MAX, "string")
                                                : offsets<int64_t>(c, INT64_MAX, "string");
        if (ok && c->data == nullptr && a->length > 0) {
          int64_t b = 0, e = 0;
          c->list_range(0, &b, nullptr);
          c->list_range(a->length - 1, nullptr, &e);
          if (e > b) return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "string bytes without a data buffer");
        }
        return ok;
      }
      case ckind::view: {
        c->n_variadic = a->n_buffers - 3;
        c->variadic = reinterpret_cast<const char *const *>(a->buffers + 2);
        c->variadic_sizes = static_cast<const int64_t *>(a->buffers[a->n_buffers - 1]);
        if (c->n_variadic > 0 && c->variadic_sizes == nullptr)
          return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "no buffer sizes for a view column");
        for (int64_t i = 0; i < c->n_variadic; ++i)
          if (load<int64_t>(c->variadic_sizes, i) < 0 ||
              (load<const char *>(c->variadic, i) == nullptr && load<int64_t>(c->variadic_sizes, i) > 0))
            return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "data buffer %lld of a view column", static_cast<long long>(i));
        return true;
      }
      default: return true;
    }
  }

  column *next_ = nullptr;
  int64_t *hints_ = nullptr;

 private:
  // Requires an offsets column: offsets rise from at least 0 to at most limit.
  template <typename Offset>
  bool offsets(column *c, int64_t limit, const char *what) {
    if (c->length == 0) return true;
    const void *off = c->values;
    int64_t prev = load<Offset>(off, c->offset);
    if (prev < 0) return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "a negative %s offset", what);
    for (int64_t i = c->offset + 1; i <= c->offset + c->length; ++i) {
      const int64_t o = load<Offset>(off, i);
      if (o < prev) return rep_.fail(QEL_ARROW_ERR_INVALID, i - 1 - c->offset, "%s offsets falling", what);
      prev = o;
    }
    if (prev > limit)
      return rep_.fail(QEL_ARROW_ERR_INVALID, -1, "%s offsets up to %lld in a child of %lld values", what,
                       static_cast<long long>(prev), static_cast<long long>(limit));
    return true;
  }

  reporter &rep_;
};

}  // namespace

int64_t column::index_at(int64_t i) const {
  const int64_t p = offset + i;
  switch (kind) {
    case ckind::i8: return load<int8_t>(values, p);
    case ckind::u8: return load<uint8_t>(values, p);
    case ckind::i16: return load<int16_t>(values, p);
    case ckind::u16: return load<uint16_t>(values, p);
    case ckind::i32: return load<int32_t>(values, p);
    case ckind::u32: return load<uint32_t>(values, p);
    case ckind::i64: return load<int64_t>(values, p);
    case ckind::u64: {
      const auto u = load<uint64_t>(values, p);
      return u > static_cast<uint64_t>(INT64_MAX) ? -1 : static_cast<int64_t>(u);
    }
    default: return -1;
  }
}

void column::list_range(int64_t i, int64_t *begin, int64_t *end) const {
  const int64_t p = offset + i;
  int64_t b = 0, e = 0;
  switch (kind) {
    case ckind::list32:
    case ckind::bin32:
      b = load<int32_t>(values, p);
      e = load<int32_t>(values, p + 1);
      break;
    case ckind::list64:
    case ckind::bin64:
      b = load<int64_t>(values, p);
      e = load<int64_t>(values, p + 1);
      break;
    case ckind::fixed_list:
      b = p * list_size;
      e = b + list_size;
      break;
    default: break;
  }
  if (begin != nullptr) *begin = b;
  if (end != nullptr) *end = e;
}

column *columns_open(reporter &rep, const ArrowSchema *schema, const ArrowArray *array) {
  opener op(rep);
  int64_t columns = 0, hints = 0;
  if (!op.count(schema, array, 0, &columns, &hints)) return nullptr;
  auto *block = static_cast<column *>(
      qel_malloc(static_cast<size_t>(columns) * sizeof(column) + static_cast<size_t>(hints) * sizeof(int64_t)));
  op.next_ = block + 1;
  op.hints_ = reinterpret_cast<int64_t *>(block + columns);
  if (!op.open(block, schema, array)) {
    qel_free(block);
    return nullptr;
  }
  return block;
}

void columns_free(column *root) { qel_free(root); }

const char *kind_name(ckind k) {
  static constexpr const char *names[] = {"null",   "boolean",      "int8",  "uint8",  "int16",      "uint16",
                                          "int32",  "uint32",       "int64", "uint64", "float",      "double",
                                          "binary", "large binary", "view",  "list",   "large list", "fixed-size list",
                                          "struct"};
  return names[static_cast<int>(k)];
}

}  // namespace qel::arrow
