// JSON text of a full variant, appended to a byte stream.
//
// Records and record arrays are walked by the core's tree walk (no
// recursion), so no nesting the library can build exhausts the call stack.
// Bytes go straight into the stream's buffer; on an error the stream's
// length is put back, so nothing has been appended.
#include <qel_json.h>

#include <cstdint>
#include <cstring>

#include "internal/qel_convert.h"
#include "internal/qel_out.h"
#include "internal/qel_utf8.h"
#include "internal/qel_walk.h"
#include "internal/qel_var_internal.h"
#include "qel_json_number.h"
#include "qel_std_inline.h"

using qel::storage;
using qel::storage_of;

namespace {

class writer {
 public:
  writer(qel_stream *out, unsigned flags) : out_(out), flags_(flags), start_(out->length) {}

  // Requires nothing; writes the whole tree, or puts the length back and
  // returns the error.
  int run(const qel_var *root) {
    int rc = value(root);
    while (rc == QEL_JSON_OK && walk_.depth() > 0) rc = step();
    if (rc != QEL_JSON_OK) out_.truncate(start_);
    return rc;
  }

 private:
  // Requires nothing; a line break and the indent of `level` when indenting.
  void newline(int64_t level) {
    if ((flags_ & QEL_JSON_INDENT) == 0) return;
    char *p = out_.reserve(1 + 2 * level);
    *p = '\n';
    std::memset(p + 1, ' ', static_cast<size_t>(2 * level));
    out_.advance(1 + 2 * level);
  }
  // Requires nothing; separator before an item at `level` (none before the first).
  void before_item(bool first, int64_t level) {
    if (!first) out_.append(',');
    newline(level);
  }

  int number(uint32_t type, uint64_t bits) {
    char *p = out_.reserve(qel::json::kNumberMax);
    int n = 0;
    switch (type) {
      case QEL_VAR_INT64: n = qel::json::format_i64(static_cast<int64_t>(bits), p); break;
      case QEL_VAR_FLOAT: {
        const float f = qel::conv::bits_float(static_cast<uint32_t>(bits));
        if (!(f - f == 0.0f)) return nonfinite();
        n = qel::json::format_float(f, p);
        break;
      }
      case QEL_VAR_DOUBLE: {
        const double d = qel::conv::bits_double(static_cast<int64_t>(bits));
        if (!(d - d == 0.0)) return nonfinite();
        n = qel::json::format_double(d, p);
        break;
      }
      default: n = qel::json::format_u64(static_cast<uint32_t>(bits), p); break;
    }
    out_.advance(n);
    return QEL_JSON_OK;
  }
  int nonfinite() {
    if ((flags_ & QEL_JSON_NONFINITE_NULL) == 0) return QEL_JSON_ERR_NONFINITE;
    out_.append("null", 4);
    return QEL_JSON_OK;
  }

  // Requires n readable bytes at s (s may be NULL when n is 0): the string,
  // quoted and escaped.
  int string(const char *s, int64_t n) {
    static constexpr char kHex[] = "0123456789abcdef";
    const auto *p = reinterpret_cast<const unsigned char *>(s);
    const unsigned char *end = p + n;
    out_.append('"');
    while (p < end) {
      const unsigned char *run = p;
      while (p < end && *p >= 0x20 && *p < 0x80 && *p != '"' && *p != '\\') ++p;
      if (p > run) out_.append(reinterpret_cast<const char *>(run), p - run);
      if (p == end) break;
      const unsigned char c = *p;
      if (c >= 0x80) {
        const int len = qel::utf8_sequence(p, end);
        if (len > 0) {
          out_.append(reinterpret_cast<const char *>(p), len);
          p += len;
          continue;
        }
        if ((flags_ & QEL_JSON_ESCAPE_BYTES) == 0) return QEL_JSON_ERR_UTF8;
      }
      char esc[6] = {'\\', 0, 0, 0, 0, 0};
      int len = 2;
      switch (c) {
        case '"': esc[1] = '"'; break;
        case '\\': esc[1] = '\\'; break;
        case '\b': esc[1] = 'b'; break;
        case '\f': esc[1] = 'f'; break;
        case '\n': esc[1] = 'n'; break;
        case '\r': esc[1] = 'r'; break;
        case '\t': esc[1] = 't'; break;
        default:
          esc[1] = 'u';
          esc[2] = '0';
          esc[3] = '0';
          esc[4] = kHex[c >> 4];
          esc[5] = kHex[c & 15];
          len = 6;
      }
      out_.append(esc, len);
      ++p;
    }
    out_.append('"');
    return QEL_JSON_OK;
  }

  // Requires an array of a number or string code: the whole array.
  int flat_array(const qel_var *v) {
    const int64_t n = qel_var_size(v);
    out_.append('[');
    for (int64_t i = 0; i < n; ++i) {
      before_item(i == 0, walk_.depth() + 1);
      int rc = QEL_JSON_OK;
      switch (storage_of(v->type)) {
        case storage::bits32: rc = number(v->type, v->data.arrayd.entries[i].value); break;
        case storage::bits64: rc = number(v->type, static_cast<uint64_t>(v->data.arrayx.entries[i].value)); break;
        default: {
          const char *s = nullptr;
          int64_t len = 0;
          qel_array_get_at(&v->data.array, i, &s, &len);
          rc = string(s, len);
        }
      }
      if (rc != QEL_JSON_OK) return rc;
    }
    if (n > 0) newline(walk_.depth());
    out_.append(']');
    return QEL_JSON_OK;
  }

  // Requires a variant: writes a leaf whole, or opens a record or record
  // array and pushes its frame.
  int value(const qel_var *v) {
    const storage cls = storage_of(v->type);
    if (cls == storage::record) {
      out_.append(v->multi != 0 ? '[' : '{');
      walk_.enter(v);
      return QEL_JSON_OK;
    }
    if (v->multi != 0) return flat_array(v);
    switch (cls) {
      case storage::bits32: return number(v->type, v->data.bits32);
      case storage::bits64: return number(v->type, v->data.bits64);
      default: return string(v->data.stream.bytes, v->data.stream.length);
    }
  }

  // Requires an entered record: writes its next member or element, or
  // closes it.
  int step() {
    const qel::tree_walk::child c = walk_.next();
    if (c.var == nullptr) {
      if (!c.first) newline(walk_.depth());
      out_.append(c.parent->multi != 0 ? ']' : '}');
      return QEL_JSON_OK;
    }
    before_item(c.first, walk_.depth());
    if (c.parent->multi == 0) {
      const int rc = string(c.name, c.name_len);
      if (rc != QEL_JSON_OK) return rc;
      if ((flags_ & QEL_JSON_INDENT) != 0) out_.append(": ", 2);
      else out_.append(':');
    }
    return value(c.var);
  }

  qel::out_buffer out_;
  unsigned flags_;
  int64_t start_;
  qel::tree_walk walk_;
};

}  // namespace

extern "C" QEL_API int qel_json_write(const qel_var *v, qel_stream *out, unsigned flags) {
  writer w(out, flags);
  return w.run(v);
}
