// Export of numbers and byte strings: value arrays made from runs of array
// entries or from single variants, their caller values, and list offsets.
// Every builder makes each buffer in one block and fills it in one pass.
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "arrow/qel_arrow_export.h"
#include "arrow/qel_arrow_nodes.h"
#include "internal/qel_utf8.h"
#include "internal/qel_var_internal.h"
#include "qel_std_inline.h"

namespace qel::arrow {

vkind full_kind(uint32_t type) {
  switch (type) {
    case 4: return vkind::i64;
    case 5: return vkind::f32;
    case 6: return vkind::f64;
    case 7:
    case 8: return vkind::bytes;
    default: return vkind::u32;
  }
}

vkind light_kind(uint32_t type) {
  switch (type) {
    case 2: return vkind::i64;
    case 3: return vkind::f32;
    case 4: return vkind::f64;
    case 5: return vkind::bytes;
    default: return vkind::u32;
  }
}

reporter::reporter(unsigned flags, qel_arrow_error *err) : flags_(flags), err_(err) {
  if (err_ == nullptr) return;
  err_->code = QEL_ARROW_OK;
  err_->row = -1;
  err_->path[0] = '\0';
  err_->message[0] = '\0';
}

bool reporter::fail(int code, int64_t row, const char *format, ...) {
  if (code_ != QEL_ARROW_OK) return false;
  code_ = code;
  if (err_ == nullptr) return false;
  err_->code = code;
  err_->row = row;
  size_t at = 0;
  for (size_t i = 0; i < depth_ && i < kDepth; ++i) {
    if (i != 0 && at + 1 < sizeof err_->path) err_->path[at++] = '.';
    const size_t room = sizeof err_->path - 1 - at;
    const size_t n = static_cast<size_t>(lens_[i]) < room ? static_cast<size_t>(lens_[i]) : room;
    if (n != 0) std::memcpy(err_->path + at, names_[i], n);
    at += n;
  }
  err_->path[at] = '\0';
  char what[160];
  va_list args;
  va_start(args, format);
  std::vsnprintf(what, sizeof what, format, args);
  va_end(args);
  if (row >= 0)
    std::snprintf(err_->message, sizeof err_->message, "row %lld, column \"%.60s\": %.100s",
                  static_cast<long long>(row), err_->path, what);
  else std::snprintf(err_->message, sizeof err_->message, "%.150s", what);
  return false;
}

namespace {

constexpr int64_t kMax32 = 0x7FFFFFFF;

const char *format_of(vkind k, bool utf8, bool large) {
  switch (k) {
    case vkind::u32: return "I";
    case vkind::i64: return "l";
    case vkind::f32: return "f";
    case vkind::f64: return "g";
    case vkind::bytes: break;
  }
  if (large) return utf8 ? "U" : "Z";
  return utf8 ? "u" : "z";
}

// A validity bitmap, made on the first null (all valid before it).
class validity {
 public:
  validity(ArrowArray *a, int64_t n) : a_(a), n_(n) {}
  void set_null(int64_t i) {
    if (bits_ == nullptr) {
      const size_t bytes = static_cast<size_t>((n_ + 7) / 8);
      bits_ = static_cast<uint8_t *>(array_buffer(a_, 0, bytes));
      std::memset(bits_, 0xFF, bytes);
    }
    bits_[i >> 3] = static_cast<uint8_t>(bits_[i >> 3] & ~(1u << (i & 7)));
    ++a_->null_count;
  }

 private:
  ArrowArray *a_;
  int64_t n_;
  uint8_t *bits_ = nullptr;
};

// Requires n entries at e and room for n values at out: their values, in a
// loop the compiler vectorizes (the two never overlap).
template <typename Entry, typename T>
void gather(T *__restrict out, const Entry *__restrict e, int64_t n) {
  for (int64_t i = 0; i < n; ++i) out[i] = static_cast<T>(e[i].value);
}

int64_t row_of(const segment &sg, int64_t i) { return sg.row >= 0 ? sg.row : sg.begin + i; }

// Requires total > 2^31 - 1 possible: 64-bit offsets when the sum passes it.
template <typename Offset>
void fill_offsets(Offset *off, const segment *segs, int64_t n_segs) {
  Offset at = 0;
  off[0] = 0;
  for (int64_t r = 0; r < n_segs; ++r) {
    at = static_cast<Offset>(at + segs[r].count);
    off[r + 1] = at;
  }
}

}  // namespace

bool export_segments(reporter &ex, vkind k, const segment *segs, int64_t n_segs, int64_t total, const char *name,
                     int64_t name_len, ArrowSchema *s, ArrowArray *a) {
  const size_t n = static_cast<size_t>(total);
  if (k != vkind::bytes) {
    schema_make(s, format_of(k, false, false), name, name_len, 0, 0);
    array_make(a, total, 2, 0);
    if (k == vkind::u32 || k == vkind::f32) {
      auto *out = static_cast<uint32_t *>(array_buffer(a, 1, n * 4));
      for (int64_t r = 0; r < n_segs; ++r) {
        const segment &sg = segs[r];
        if (sg.count == 0) continue;  // also a null row, which has no array
        gather(out, static_cast<const qel_arrayd *>(sg.arr)->entries + sg.begin, sg.count);
        out += sg.count;
      }
    } else {
      auto *out = static_cast<int64_t *>(array_buffer(a, 1, n * 8));
      for (int64_t r = 0; r < n_segs; ++r) {
        const segment &sg = segs[r];
        if (sg.count == 0) continue;
        gather(out, static_cast<const qel_arrayx *>(sg.arr)->entries + sg.begin, sg.count);
        out += sg.count;
      }
    }
    return true;
  }
  int64_t bytes = 0;
  for (int64_t r = 0; r < n_segs; ++r) {
    const segment &sg = segs[r];
    const qel_array *arr = static_cast<const qel_array *>(sg.arr);
    for (int64_t i = 0; i < sg.count; ++i) {
      const qel_array_entry &e = arr->entries[sg.begin + i];
      bytes += e.length;
      if (ex.utf8() && !qel::is_utf8(arr->pool.bytes + e.offset, e.length))
        return ex.fail(QEL_ARROW_ERR_UTF8, row_of(sg, i), "bytes that are not UTF-8");
    }
  }
  const bool large = bytes > kMax32;
  schema_make(s, format_of(k, ex.utf8(), large), name, name_len, 0, 0);
  array_make(a, total, 3, 0);
  char *data = static_cast<char *>(array_buffer(a, 2, static_cast<size_t>(bytes)));
  void *off = array_buffer(a, 1, (n + 1) * (large ? 8 : 4));
  int64_t at = 0, j = 0;
  auto *o32 = static_cast<int32_t *>(off);
  auto *o64 = static_cast<int64_t *>(off);
  if (large) o64[0] = 0;
  else o32[0] = 0;
  for (int64_t r = 0; r < n_segs; ++r) {
    const segment &sg = segs[r];
    const qel_array *arr = static_cast<const qel_array *>(sg.arr);
    for (int64_t i = 0; i < sg.count; ++i) {
      const qel_array_entry &e = arr->entries[sg.begin + i];
      if (e.length != 0) std::memcpy(data + at, arr->pool.bytes + e.offset, e.length);
      at += e.length;
      ++j;
      if (large) o64[j] = at;
      else o32[j] = static_cast<int32_t>(at);
    }
  }
  return true;
}

void export_segment_bufs(vkind k, const segment *segs, int64_t n_segs, int64_t total, const char *name,
                         int64_t name_len, ArrowSchema *s, ArrowArray *a) {
  schema_make(s, "L", name, name_len, 0, 0);
  array_make(a, total, 2, 0);
  auto *out = static_cast<uint64_t *>(array_buffer(a, 1, static_cast<size_t>(total) * 8));
  for (int64_t r = 0; r < n_segs; ++r) {
    const segment &sg = segs[r];
    for (int64_t i = 0; i < sg.count; ++i) {
      switch (k) {
        case vkind::u32:
        case vkind::f32: out[i] = static_cast<const qel_arrayd *>(sg.arr)->entries[sg.begin + i].buf; break;
        case vkind::i64:
        case vkind::f64: out[i] = static_cast<const qel_arrayx *>(sg.arr)->entries[sg.begin + i].buf; break;
        case vkind::bytes: out[i] = static_cast<const qel_array *>(sg.arr)->entries[sg.begin + i].buf; break;
      }
    }
    out += sg.count;
  }
}

void list_make(const segment *segs, int64_t n_segs, int64_t total, const char *name, int64_t name_len, int64_t flags,
               ArrowSchema *s, ArrowArray *a) {
  const bool large = total > kMax32;
  schema_make(s, large ? "+L" : "+l", name, name_len, flags, 1);
  array_make(a, n_segs, 2, 1);
  void *off = array_buffer(a, 1, static_cast<size_t>(n_segs + 1) * (large ? 8 : 4));
  if (large) fill_offsets(static_cast<int64_t *>(off), segs, n_segs);
  else fill_offsets(static_cast<int32_t *>(off), segs, n_segs);
  validity valid(a, n_segs);
  for (int64_t r = 0; r < n_segs; ++r)
    if (segs[r].arr == nullptr) valid.set_null(r);
}

bool export_singles(reporter &ex, uint32_t type, qel_var *const *vals, int64_t n, const int64_t *rows, const char *name,
                    int64_t name_len, int64_t flags, ArrowSchema *s, ArrowArray *a) {
  const vkind k = full_kind(type);
  const size_t count = static_cast<size_t>(n);
  if (k != vkind::bytes) {
    schema_make(s, format_of(k, false, false), name, name_len, flags, 0);
    array_make(a, n, 2, 0);
    validity valid(a, n);
    if (k == vkind::u32 || k == vkind::f32) {
      auto *out = static_cast<uint32_t *>(array_buffer(a, 1, count * 4));
      for (int64_t r = 0; r < n; ++r) {
        out[r] = vals[r] != nullptr ? vals[r]->data.bits32 : 0;
        if (vals[r] == nullptr) valid.set_null(r);
      }
    } else {
      auto *out = static_cast<uint64_t *>(array_buffer(a, 1, count * 8));
      for (int64_t r = 0; r < n; ++r) {
        out[r] = vals[r] != nullptr ? vals[r]->data.bits64 : 0;
        if (vals[r] == nullptr) valid.set_null(r);
      }
    }
    return true;
  }
  int64_t bytes = 0;
  for (int64_t r = 0; r < n; ++r) {
    if (vals[r] == nullptr) continue;
    const qel_stream &st = vals[r]->data.stream;
    bytes += st.length;
    if (ex.utf8() && !qel::is_utf8(st.bytes, st.length))
      return ex.fail(QEL_ARROW_ERR_UTF8, rows != nullptr ? rows[r] : r, "bytes that are not UTF-8");
  }
  const bool large = bytes > kMax32;
  schema_make(s, format_of(k, ex.utf8(), large), name, name_len, flags, 0);
  array_make(a, n, 3, 0);
  char *data = static_cast<char *>(array_buffer(a, 2, static_cast<size_t>(bytes)));
  void *off = array_buffer(a, 1, (count + 1) * (large ? 8 : 4));
  auto *o32 = static_cast<int32_t *>(off);
  auto *o64 = static_cast<int64_t *>(off);
  if (large) o64[0] = 0;
  else o32[0] = 0;
  validity valid(a, n);
  int64_t at = 0;
  for (int64_t r = 0; r < n; ++r) {
    if (vals[r] == nullptr) {
      valid.set_null(r);
    } else {
      const qel_stream &st = vals[r]->data.stream;
      if (st.length > 0) std::memcpy(data + at, st.bytes, static_cast<size_t>(st.length));
      at += st.length;
    }
    if (large) o64[r + 1] = at;
    else o32[r + 1] = static_cast<int32_t>(at);
  }
  return true;
}

void export_single_bufs(qel_var *const *vals, int64_t n, const char *name, int64_t name_len, ArrowSchema *s,
                        ArrowArray *a) {
  schema_make(s, "L", name, name_len, ARROW_FLAG_NULLABLE, 0);
  array_make(a, n, 2, 0);
  auto *out = static_cast<uint64_t *>(array_buffer(a, 1, static_cast<size_t>(n) * 8));
  validity valid(a, n);
  for (int64_t r = 0; r < n; ++r) {
    out[r] = vals[r] != nullptr ? vals[r]->buf : 0;
    if (vals[r] == nullptr) valid.set_null(r);
  }
}

void wrap_with_bufs(ArrowSchema *s, ArrowArray *a, ArrowSchema **buf_schema, ArrowArray **buf_array) {
  const ArrowSchema inner_s = *s;
  const ArrowArray inner_a = *a;
  schema_make(s, "+s", "", 0, 0, 2);
  array_make(a, inner_a.length, 1, 2);
  *s->children[0] = inner_s;
  *a->children[0] = inner_a;
  *buf_schema = s->children[1];
  *buf_array = a->children[1];
}

void table_of(const reporter &ex, ArrowSchema *s, ArrowArray *a) {
  if ((ex.flags() & QEL_ARROW_TABLE) == 0 || std::strcmp(s->format, "+s") == 0) return;
  const ArrowSchema inner_s = *s;
  const ArrowArray inner_a = *a;
  schema_make(s, "+s", "", 0, 0, 1);
  array_make(a, inner_a.length, 1, 1);
  *s->children[0] = inner_s;
  *a->children[0] = inner_a;
}

}  // namespace qel::arrow
