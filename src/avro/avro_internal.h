// Steps shared by the Avro sources: varints, a growable array on the
// library's allocator, error records and value paths.
#ifndef QEL_AVRO_INTERNAL_H
#define QEL_AVRO_INTERNAL_H

#include <qel_avro.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <type_traits>

namespace qel::avro {

// ---- output ----

// Requires nothing: room for n more bytes at the stream's end.
inline char *room(qel_stream *s, int64_t n) {
  if (s->capacity - s->length < n) qel_stream_expand(s, s->length + n);
  return s->bytes + s->length;
}

// Requires nothing: n bytes at p appended (short runs byte by byte: names and
// small strings are the common case, where a call to memcpy costs more).
inline void put_bytes(qel_stream *s, const void *p, int64_t n) {
  if (n <= 0) return;
  char *to = room(s, n);
  if (n <= 16) {
    const auto *from = static_cast<const char *>(p);
    for (int64_t i = 0; i < n; ++i) to[i] = from[i];
  } else {
    std::memcpy(to, p, static_cast<size_t>(n));
  }
  s->length += n;
}

// Requires n bytes at a and b: whether they are equal (member names: short).
inline bool same_name(const char *a, const char *b, int64_t n) {
  if (n > 16) return std::memcmp(a, b, static_cast<size_t>(n)) == 0;
  for (int64_t i = 0; i < n; ++i)
    if (a[i] != b[i]) return false;
  return true;
}

// Requires nothing: a long as a zig-zag varint (1 to 10 bytes).
inline void put_long(qel_stream *s, int64_t v) {
  uint64_t z = (static_cast<uint64_t>(v) << 1) ^ (v < 0 ? ~uint64_t{0} : 0);
  char *p = room(s, 10);
  int n = 0;
  while (z >= 0x80) {
    p[n++] = static_cast<char>((z & 0x7F) | 0x80);
    z >>= 7;
  }
  p[n++] = static_cast<char>(z);
  s->length += n;
}

// ---- a growable array of trivially copyable values ----

// The first 8 values live inside the object, so short lists cost no
// allocation (a writer's per-record bookkeeping above all).
template <class T>
class vec {
  static_assert(std::is_trivially_copyable_v<T>);

 public:
  vec() = default;
  ~vec() {
    if (items_ != inline_) qel_free(items_);
  }
  vec(const vec &) = delete;
  vec &operator=(const vec &) = delete;
  void push(const T &v) {
    if (count_ == capacity_) grow();
    items_[count_++] = v;
  }
  void pop() { --count_; }
  int64_t size() const { return count_; }
  T &operator[](int64_t i) { return items_[i]; }
  const T &operator[](int64_t i) const { return items_[i]; }
  T &back() { return items_[count_ - 1]; }
  void clear() { count_ = 0; }

 private:
  void grow() {
    const int64_t cap = 2 * capacity_;
    T *p = static_cast<T *>(qel_malloc(sizeof(T) * static_cast<size_t>(cap)));
    std::memcpy(static_cast<void *>(p), items_, sizeof(T) * static_cast<size_t>(count_));
    if (items_ != inline_) qel_free(items_);
    items_ = p;
    capacity_ = cap;
  }
  T inline_[8];
  T *items_ = inline_;
  int64_t count_ = 0;
  int64_t capacity_ = 8;
};

// ---- errors and paths ----

// One step of the path to the value being written or read: a member name or
// an element index.  Lives on the stack of the walk.
struct path_step {
  const path_step *up;
  const char *name;  // NULL: an element
  int64_t length;    // name length, or the element index
};

// Requires nothing: the path from the top to `at`, written into out.
inline void format_path(const path_step *at, char *out, size_t size) {
  const path_step *steps[64];
  int n = 0;
  bool cut = false;
  for (const path_step *p = at; p != nullptr; p = p->up) {
    if (n == 64) {
      cut = true;
      break;
    }
    steps[n++] = p;
  }
  size_t used = 0;
  out[0] = '\0';
  auto add = [&](const char *fmt, int len, const char *s, long long i) {
    if (used >= size) return;
    const int w = s != nullptr ? std::snprintf(out + used, size - used, fmt, len, s)
                               : std::snprintf(out + used, size - used, fmt, i);
    used = w < 0 ? size : used + static_cast<size_t>(w);
  };
  if (cut) add("...", 0, nullptr, 0);
  for (int i = n - 1; i >= 0; --i) {
    const path_step *p = steps[i];
    if (p->name != nullptr)
      add(used == 0 ? "%.*s" : ".%.*s", static_cast<int>(p->length > 40 ? 40 : p->length), p->name, 0);
    else add("[%lld]", 0, nullptr, static_cast<long long>(p->length));
  }
  if (used >= size && size > 4) std::memcpy(out + size - 4, "...", 4);
}

// Requires nothing: fills *err (when not NULL) and returns the code.
inline int set_error(qel_avro_error *err, int code, int64_t offset, const path_step *at, const char *message) {
  if (err == nullptr) return code;
  err->code = code;
  err->offset = offset;
  format_path(at, err->path, sizeof err->path);
  std::snprintf(err->message, sizeof err->message, "%s", message);
  return code;
}

inline void clear_error(qel_avro_error *err) {
  if (err == nullptr) return;
  err->code = QEL_AVRO_OK;
  err->offset = 0;
  err->path[0] = '\0';
  err->message[0] = '\0';
}

// Requires nothing: whether n bytes at s are an Avro name.
inline bool valid_name(const char *s, int64_t n) {
  if (n <= 0) return false;
  for (int64_t i = 0; i < n; ++i) {
    const char c = s[i];
    const bool alpha = (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_';
    if (!alpha && !(i > 0 && c >= '0' && c <= '9')) return false;
  }
  return true;
}

// Requires a schema and 0 <= i < its size: member i's name, type code and
// multi byte, read straight from the array a schema is (its layout is fixed:
// the tag's bits 0 to 15 are the code, 16 to 23 the multi byte).
inline void schema_member(const qel_schema *s, int64_t i, const char **name, int64_t *len, uint32_t *type,
                          uint8_t *multi) {
  const qel_array_entry &e = s->entries[i];
  *name = s->pool.bytes + e.offset;
  *len = e.length;
  *type = static_cast<uint32_t>(e.buf & 0xFFFFu);
  *multi = static_cast<uint8_t>(e.buf >> 16);
}

// Which single-record members are ["null", name]: those whose record leads
// back, through single-record members only, to the record holding them (a
// cycle such a value must be able to end).  Decided per pair of codes, not
// per path, so every occurrence of a named record has one definition.
class nullable_members {
 public:
  nullable_members(void *context, qel_schema_resolver resolver) : context_(context), resolver_(resolver) {}
  // Requires nothing: whether a single member of record code `member` inside
  // a record of code `holder` is nullable (looked at most
  // QEL_AVRO_MAX_DEPTH codes deep).
  bool operator()(uint32_t holder, uint32_t member) {
    if (holder == member) return true;
    for (int64_t i = 0; i < known_.size(); ++i)
      if (known_[i].holder == holder && known_[i].member == member) return known_[i].nullable;
    bool found = false;
    vec<uint32_t> seen;
    seen.push(member);
    for (int64_t k = 0; k < seen.size() && !found && k < QEL_AVRO_MAX_DEPTH; ++k) {
      const qel_schema *s = resolver_ != nullptr ? resolver_(context_, seen[k]) : static_cast<qel_schema *>(context_);
      for (int64_t i = 0; s != nullptr && i < s->count && !found; ++i) {
        const char *name = nullptr;
        int64_t len = 0;
        uint32_t t = 0;
        uint8_t m = 0;
        schema_member(s, i, &name, &len, &t, &m);
        if (m != 0 || (t >= 1 && t <= 9)) continue;  // only single records lead on
        found = t == holder;
        bool again = false;
        for (int64_t j = 0; j < seen.size() && !again; ++j) again = seen[j] == t;
        if (!again) seen.push(t);
      }
    }
    known_.push(entry{holder, member, found});
    return found;
  }

 private:
  struct entry {
    uint32_t holder, member;
    bool nullable;
  };
  void *context_;
  qel_schema_resolver resolver_;
  vec<entry> known_;
};

// Internal entry points shared between the sources.

// Requires an initialised stream: qel_avro_write without restoring the
// stream on an error (the caller does).
int write_datum(const qel_var *v, qel_stream *out, void *context, qel_schema_resolver resolver, unsigned flags,
                qel_avro_error *err);
// Requires a record array: its element i as a datum of the array's code (as
// qel_avro_write writes it inside the array; nothing for an empty slot).
int write_element(const qel_var *array, int64_t i, qel_stream *out, void *context, qel_schema_resolver resolver,
                  unsigned flags, qel_avro_error *err);

}  // namespace qel::avro

#endif
