// Avro schema text parsed into a node graph: a small JSON reader into a
// tree, then the tree read as a schema (names resolved in their namespaces,
// a record's own name visible inside its fields), then each node's smallest
// encoding, which lets the reader check counts against the input.
#include "avro/avro_type.h"

#include <cstring>
#include <new>

namespace {

using namespace qel::avro;

// ---- arena ----

class arena {
 public:
  explicit arena(qel_avro_type *owner) : owner_(owner) {}
  void *get(size_t n) {
    n = (n + 15) & ~size_t{15};
    if (left_ < n) {
      const size_t size = n > 4000 ? n + 16 : 4096;
      auto *b = static_cast<arena_block *>(qel_malloc(size));
      b->next = owner_->blocks;
      owner_->blocks = b;
      at_ = reinterpret_cast<char *>(b) + 16;
      left_ = size - 16;
    }
    void *p = at_;
    at_ += n;
    left_ -= n;
    return p;
  }
  template <class T>
  T *make(int64_t n = 1) {
    void *p = get(sizeof(T) * static_cast<size_t>(n > 0 ? n : 1));
    std::memset(p, 0, sizeof(T) * static_cast<size_t>(n > 0 ? n : 1));
    return static_cast<T *>(p);
  }

 private:
  qel_avro_type *owner_;
  char *at_ = nullptr;
  size_t left_ = 0;
};

// ---- JSON tree ----

struct jvalue {
  enum { string, number, object, array, literal } t;
  const char *s;  // string: decoded bytes; number, literal: the text
  int64_t n;      // string length; number, literal: text length; object, array: count
  const char **keys;
  int64_t *key_lengths;
  jvalue **items;
};

constexpr int kMaxJsonDepth = 200;

class json_parser {
 public:
  json_parser(arena &a, const char *text, int64_t len) : a_(a), begin_(text), p_(text), end_(text + len) {}
  jvalue *parse() {
    jvalue *v = value(0);
    ws();
    return v != nullptr && p_ == end_ ? v : nullptr;
  }
  int64_t offset() const { return p_ - begin_; }

 private:
  void ws() {
    while (p_ < end_ && (*p_ == ' ' || *p_ == '\n' || *p_ == '\r' || *p_ == '\t')) ++p_;
  }
  jvalue *value(int depth) {
    ws();
    if (p_ >= end_ || depth > kMaxJsonDepth) return nullptr;
    auto *v = a_.make<jvalue>();
    const char c = *p_;
    if (c == '"') {
      v->t = jvalue::string;
      return string(&v->s, &v->n) ? v : nullptr;
    }
    if (c == '{' || c == '[') return container(v, c, depth);
    const char *start = p_;
    while (p_ < end_ && ((*p_ >= '0' && *p_ <= '9') || (*p_ >= 'a' && *p_ <= 'z') || *p_ == '-' || *p_ == '+' ||
                         *p_ == '.' || *p_ == 'E'))
      ++p_;
    if (p_ == start) return nullptr;
    v->t = (c == '-' || (c >= '0' && c <= '9')) ? jvalue::number : jvalue::literal;
    v->s = start;
    v->n = p_ - start;
    if (v->t == jvalue::literal && !(is(v, "true") || is(v, "false") || is(v, "null"))) return nullptr;
    return v;
  }
  static bool is(const jvalue *v, const char *w) {
    return v->n == static_cast<int64_t>(std::strlen(w)) && std::memcmp(v->s, w, static_cast<size_t>(v->n)) == 0;
  }
  jvalue *container(jvalue *v, char open, int depth) {
    ++p_;
    const char close = open == '{' ? '}' : ']';
    v->t = open == '{' ? jvalue::object : jvalue::array;
    vec<jvalue *> items;
    vec<const char *> keys;
    vec<int64_t> key_lengths;
    ws();
    if (p_ < end_ && *p_ == close) {
      ++p_;
      return v;
    }
    for (;;) {
      ws();
      if (open == '{') {
        const char *k = nullptr;
        int64_t kn = 0;
        if (p_ >= end_ || *p_ != '"' || !string(&k, &kn)) return nullptr;
        ws();
        if (p_ >= end_ || *p_ != ':') return nullptr;
        ++p_;
        keys.push(k);
        key_lengths.push(kn);
      }
      jvalue *item = value(depth + 1);
      if (item == nullptr) return nullptr;
      items.push(item);
      ws();
      if (p_ < end_ && *p_ == ',') {
        ++p_;
        continue;
      }
      if (p_ < end_ && *p_ == close) {
        ++p_;
        break;
      }
      return nullptr;
    }
    v->n = items.size();
    v->items = a_.make<jvalue *>(v->n);
    for (int64_t i = 0; i < v->n; ++i) v->items[i] = items[i];
    if (open == '{') {
      v->keys = a_.make<const char *>(v->n);
      v->key_lengths = a_.make<int64_t>(v->n);
      for (int64_t i = 0; i < v->n; ++i) v->keys[i] = keys[i], v->key_lengths[i] = key_lengths[i];
    }
    return v;
  }
  // Requires p_ at '"': the decoded string (escapes as UTF-8) in the arena.
  bool string(const char **out, int64_t *n) {
    const char *start = ++p_;
    while (p_ < end_ && *p_ != '"') p_ += *p_ == '\\' ? 2 : 1;
    if (p_ >= end_) return false;
    auto *d = static_cast<char *>(a_.get(static_cast<size_t>(p_ - start) + 1));
    int64_t k = 0;
    for (const char *q = start; q < p_; ++q) {
      if (static_cast<unsigned char>(*q) < 0x20) return false;
      if (*q != '\\') {
        d[k++] = *q;
        continue;
      }
      const char e = *++q;
      switch (e) {
        case 'b': d[k++] = '\b'; break;
        case 'f': d[k++] = '\f'; break;
        case 'n': d[k++] = '\n'; break;
        case 'r': d[k++] = '\r'; break;
        case 't': d[k++] = '\t'; break;
        case '"':
        case '\\':
        case '/': d[k++] = e; break;
        case 'u': {
          if (p_ - q < 5) return false;
          uint32_t cp = 0;
          for (int i = 1; i <= 4; ++i) {
            const char h = q[i];
            const int dgt = (h >= '0' && h <= '9')   ? h - '0'
                            : (h >= 'a' && h <= 'f') ? h - 'a' + 10
                            : (h >= 'A' && h <= 'F') ? h - 'A' + 10
                                                     : -1;
            if (dgt < 0) return false;
            cp = cp * 16 + static_cast<uint32_t>(dgt);
          }
          q += 4;
          if (cp < 0x80) {  // escapes only ever name ASCII in a schema that matters; others become 3 bytes
            d[k++] = static_cast<char>(cp);
          } else if (cp < 0x800) {
            d[k++] = static_cast<char>(0xC0 | (cp >> 6));
            d[k++] = static_cast<char>(0x80 | (cp & 0x3F));
          } else {
            d[k++] = static_cast<char>(0xE0 | (cp >> 12));
            d[k++] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
            d[k++] = static_cast<char>(0x80 | (cp & 0x3F));
          }
          break;
        }
        default: return false;
      }
    }
    ++p_;
    *out = d;
    *n = k;
    return true;
  }

  arena &a_;
  const char *begin_;
  const char *p_;
  const char *end_;
};

// ---- the tree read as a schema ----

const jvalue *member(const jvalue *o, const char *key) {
  const auto n = static_cast<int64_t>(std::strlen(key));
  for (int64_t i = 0; i < o->n; ++i)
    if (o->key_lengths[i] == n && std::memcmp(o->keys[i], key, static_cast<size_t>(n)) == 0) return o->items[i];
  return nullptr;
}

bool same(const char *a, int64_t an, const char *b) {
  return an == static_cast<int64_t>(std::strlen(b)) && std::memcmp(a, b, static_cast<size_t>(an)) == 0;
}

class schema_builder {
 public:
  explicit schema_builder(arena &a) : a_(a) {}
  int code() const { return code_; }
  const char *why() const { return why_; }
  vec<node *> &records() { return records_; }

  node *build(const jvalue *v, const char *ns, int64_t ns_len, int depth) {
    if (depth > kMaxJsonDepth) return fail(QEL_AVRO_ERR_SCHEMA, "schema nested too deep");
    if (v->t == jvalue::string) return by_name(v->s, v->n, ns, ns_len);
    if (v->t == jvalue::array) {
      node *u = fresh(kind::choice);
      auto **b = a_.make<const node *>(v->n);
      for (int64_t i = 0; i < v->n; ++i)
        if ((b[i] = build(v->items[i], ns, ns_len, depth + 1)) == nullptr) return nullptr;
      u->branches = b;
      u->count = v->n;
      return v->n > 0 ? u : fail(QEL_AVRO_ERR_SCHEMA, "a union without branches");
    }
    if (v->t != jvalue::object) return fail(QEL_AVRO_ERR_SCHEMA, "expected a type name, an object or a union");
    const jvalue *t = member(v, "type");
    if (t == nullptr) return fail(QEL_AVRO_ERR_SCHEMA, "expected \"type\" in a schema object");
    if (t->t != jvalue::string) return build(t, ns, ns_len, depth + 1);
    if (same(t->s, t->n, "record") || same(t->s, t->n, "error")) return record(v, ns, ns_len, depth);
    if (same(t->s, t->n, "enum") || same(t->s, t->n, "fixed")) {
      const bool is_enum = t->s[0] == 'e';
      node *n = fresh(is_enum ? kind::enumeration : kind::fixed);
      if (!define(v, n, &ns, &ns_len)) return nullptr;
      const jvalue *x = member(v, is_enum ? "symbols" : "size");
      if (is_enum) {
        if (x == nullptr || x->t != jvalue::array || x->n == 0)
          return fail(QEL_AVRO_ERR_SCHEMA, "expected enum symbols");
        n->count = x->n;
      } else {
        if (x == nullptr || x->t != jvalue::number || !size_of(x, &n->count))
          return fail(QEL_AVRO_ERR_SCHEMA, "expected a fixed size");
        n->min_size = n->count;
      }
      return n;
    }
    if (same(t->s, t->n, "array") || same(t->s, t->n, "map")) {
      const bool is_array = t->s[0] == 'a';
      node *n = fresh(is_array ? kind::array : kind::map);
      const jvalue *x = member(v, is_array ? "items" : "values");
      if (x == nullptr) return fail(QEL_AVRO_ERR_SCHEMA, is_array ? "expected array items" : "expected map values");
      n->items = build(x, ns, ns_len, depth + 1);
      return n->items != nullptr ? n : nullptr;
    }
    return by_name(t->s, t->n, ns, ns_len);  // {"type": "long", ...} and named references
  }

 private:
  struct named {
    const char *name;
    int64_t length;
    const node *n;
  };

  node *fail(int code, const char *why) {
    if (code_ == QEL_AVRO_OK) {
      code_ = code;
      why_ = why;
    }
    return nullptr;
  }
  // Requires nothing: a node whose min_size is known unless it is a record
  // (fixed: set with its size).
  node *fresh(kind k) {
    static constexpr int64_t kMin[] = {0, 1, 1, 1, 4, 8, 1, 1, -1, 1, 1, 1, 1, 0};
    node *n = a_.make<node>();
    n->k = k;
    n->min_size = kMin[static_cast<int>(k)];
    if (k == kind::record) records_.push(n);
    return n;
  }

  static bool size_of(const jvalue *x, int64_t *out) {
    int64_t v = 0;
    for (int64_t i = 0; i < x->n; ++i) {
      if (x->s[i] < '0' || x->s[i] > '9' || v > (int64_t{1} << 40)) return false;
      v = v * 10 + (x->s[i] - '0');
    }
    *out = v;
    return true;
  }

  // Requires nothing: the node a type name stands for (primitive, or defined).
  node *by_name(const char *s, int64_t n, const char *ns, int64_t ns_len) {
    static constexpr struct {
      const char *name;
      kind k;
    } kPrimitives[] = {{"null", kind::null},   {"boolean", kind::boolean}, {"int", kind::int32},
                       {"long", kind::int64},  {"float", kind::float32},   {"double", kind::float64},
                       {"bytes", kind::bytes}, {"string", kind::string}};
    for (const auto &p : kPrimitives)
      if (same(s, n, p.name)) return fresh(p.k);
    const node *found = nullptr;
    if (std::memchr(s, '.', static_cast<size_t>(n)) == nullptr && ns_len > 0) found = lookup(ns, ns_len, s, n);
    if (found == nullptr) found = lookup(nullptr, 0, s, n);
    return found != nullptr ? const_cast<node *>(found) : fail(QEL_AVRO_ERR_SCHEMA, "a type name that is not defined");
  }

  const node *lookup(const char *ns, int64_t ns_len, const char *s, int64_t n) const {
    const int64_t full = ns_len > 0 ? ns_len + 1 + n : n;
    for (int64_t i = 0; i < names_.size(); ++i) {
      const named &e = names_[i];
      if (e.length != full) continue;
      if (ns_len == 0 && std::memcmp(e.name, s, static_cast<size_t>(n)) == 0) return e.n;
      if (ns_len > 0 && std::memcmp(e.name, ns, static_cast<size_t>(ns_len)) == 0 && e.name[ns_len] == '.' &&
          std::memcmp(e.name + ns_len + 1, s, static_cast<size_t>(n)) == 0)
        return e.n;
    }
    return nullptr;
  }

  // Requires a named type's object: registers its full name for n, and makes
  // *ns its namespace (which its fields inherit).
  bool define(const jvalue *v, const node *n, const char **ns, int64_t *ns_len) {
    const jvalue *name = member(v, "name");
    if (name == nullptr || name->t != jvalue::string) return fail(QEL_AVRO_ERR_SCHEMA, "expected a name") != nullptr;
    const char *s = name->s;
    int64_t len = name->n;
    const char *dot = nullptr;
    for (int64_t i = 0; i < len; ++i)
      if (s[i] == '.') dot = s + i;
    if (dot != nullptr) {
      *ns = s;
      *ns_len = dot - s;
    } else if (const jvalue *space = member(v, "namespace"); space != nullptr && space->t == jvalue::string) {
      *ns = space->s;
      *ns_len = space->n;
    }
    const char *simple = dot != nullptr ? dot + 1 : s;
    const int64_t simple_len = dot != nullptr ? len - (dot + 1 - s) : len;
    if (!valid_name(simple, simple_len)) return fail(QEL_AVRO_ERR_NAME, "a name Avro does not accept") != nullptr;
    const int64_t full_len = *ns_len > 0 ? *ns_len + 1 + simple_len : simple_len;
    auto *full = static_cast<char *>(a_.get(static_cast<size_t>(full_len)));
    if (*ns_len > 0) {
      std::memcpy(full, *ns, static_cast<size_t>(*ns_len));
      full[*ns_len] = '.';
    }
    std::memcpy(full + full_len - simple_len, simple, static_cast<size_t>(simple_len));
    if (lookup(nullptr, 0, full, full_len) != nullptr)
      return fail(QEL_AVRO_ERR_NAME, "a name defined twice") != nullptr;
    names_.push(named{full, full_len, n});
    return true;
  }

  node *record(const jvalue *v, const char *ns, int64_t ns_len, int depth) {
    node *n = fresh(kind::record);
    if (!define(v, n, &ns, &ns_len)) return nullptr;
    const jvalue *fs = member(v, "fields");
    if (fs == nullptr || fs->t != jvalue::array) return fail(QEL_AVRO_ERR_SCHEMA, "expected record fields");
    auto *f = a_.make<field>(fs->n);
    for (int64_t i = 0; i < fs->n; ++i) {
      const jvalue *o = fs->items[i];
      const jvalue *name = o->t == jvalue::object ? member(o, "name") : nullptr;
      const jvalue *type = o->t == jvalue::object ? member(o, "type") : nullptr;
      if (name == nullptr || name->t != jvalue::string || type == nullptr)
        return fail(QEL_AVRO_ERR_SCHEMA, "expected a field with a name and a type");
      if (!valid_name(name->s, name->n)) return fail(QEL_AVRO_ERR_NAME, "a field name Avro does not accept");
      for (int64_t j = 0; j < i; ++j)
        if (f[j].length == name->n && std::memcmp(f[j].name, name->s, static_cast<size_t>(name->n)) == 0)
          return fail(QEL_AVRO_ERR_NAME, "a field name used twice");
      f[i] = field{name->s, name->n, build(type, ns, ns_len, depth + 1)};
      if (f[i].type == nullptr) return nullptr;
    }
    n->fields = f;
    n->count = fs->n;
    return n;
  }

  arena &a_;
  vec<named> names_;
  vec<node *> records_;
  int code_ = QEL_AVRO_OK;
  const char *why_ = "";
};

// Requires a record node: its smallest encoding (a record met again inside
// its own fields counts 0 there, which keeps the result a bound from below).
int64_t record_min(node *n, int depth) {
  if (n->min_size >= 0) return n->min_size;
  if (n->min_size == -2 || depth > 400) return 0;
  n->min_size = -2;
  int64_t total = 0;
  for (int64_t i = 0; i < n->count; ++i) {
    const node *f = n->fields[i].type;
    total += f->k == kind::record ? record_min(const_cast<node *>(f), depth + 1) : f->min_size;
    if (total > (int64_t{1} << 50)) total = int64_t{1} << 50;
  }
  n->min_size = total;
  return total;
}

}  // namespace

extern "C" qel_avro_type *qel_avro_type_parse(const char *text, int64_t len, qel_avro_error *err) {
  clear_error(err);
  if (text == nullptr) {
    text = "";
    len = 0;
  } else if (len < 0) {
    len = static_cast<int64_t>(std::strlen(text));
  }
  auto *t = static_cast<qel_avro_type *>(qel_malloc(sizeof(qel_avro_type)));
  t->blocks = nullptr;
  t->root = nullptr;
  arena a(t);
  json_parser p(a, text, len);
  const jvalue *tree = p.parse();
  if (tree == nullptr) {
    set_error(err, QEL_AVRO_ERR_SCHEMA, p.offset(), nullptr, "expected a schema in JSON text");
    qel_avro_type_free(t);
    return nullptr;
  }
  schema_builder b(a);
  node *root = b.build(tree, nullptr, 0, 0);
  if (root == nullptr) {
    set_error(err, b.code(), 0, nullptr, b.why());
    qel_avro_type_free(t);
    return nullptr;
  }
  for (int64_t i = 0; i < b.records().size(); ++i) record_min(b.records()[i], 0);
  t->root = root;
  return t;
}

extern "C" void qel_avro_type_free(qel_avro_type *type) {
  if (type == nullptr) return;
  for (arena_block *b = type->blocks; b != nullptr;) {
    arena_block *next = b->next;
    qel_free(b);
    b = next;
  }
  qel_free(type);
}
