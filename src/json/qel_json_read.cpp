// JSON text read into a full variant whose type code, form and schema say
// what the text must hold.
//
// The text is read straight into the destination, every change recorded in
// an undo log first, so a failed read is rolled back and changes nothing.  A
// text that needs a member created from the schema is read instead into a
// private replica of the destination, swapped in only when the whole text has
// been read.  Descent is recursive and stops at QEL_JSON_MAX_DEPTH open
// arrays and objects, so no text can exhaust the call stack; the error paths
// and leaf steps stay out of the recursive frames (noinline), which keeps
// the deepest text within about 128 KiB of stack in an optimised build.
#include <qel_json.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <utility>

#include "internal/qel_convert.h"
#include "internal/qel_out.h"
#include "internal/qel_undo.h"
#include "internal/qel_utf8.h"
#include "internal/qel_var_internal.h"
#include "qel_json_number.h"
#include "qel_json_replica.h"
#include "qel_std_inline.h"

using qel::storage;
using qel::storage_of;
using qel::json::conv_result;
using qel::json::number_token;

namespace {

bool is_ws(char c) { return c == ' ' || c == '\n' || c == '\r' || c == '\t'; }
bool is_digit(char c) { return c >= '0' && c <= '9'; }

// Internal result: the read needs a member created, which the undo log
// cannot take back; the caller reads into a copy instead.
constexpr int kNeedsCopy = -1;

class reader {
 public:
  // With an undo log the destination is changed in place, every change
  // logged; without one it must be a private copy.
  reader(const char *text, int64_t len, void *context, qel_schema_resolver resolver, unsigned flags,
         qel_json_error *err, qel::undo_log *undo)
      : begin_(text),
        p_(text),
        end_(text + len),
        context_(context),
        resolver_(resolver),
        flags_(flags),
        err_(err),
        undo_(undo) {
    qel_stream_init(&scratch_);
    qel_stream_init(&named_);
    qel_stream_init(&marks_);
  }
  ~reader() {
    qel_stream_term(&scratch_);
    qel_stream_term(&named_);
    qel_stream_term(&marks_);
  }
  reader(const reader &) = delete;
  reader &operator=(const reader &) = delete;

  // Requires a variant: reads the one value of the text into it.
  int run(qel_var *v) {
    if (!value(v, 0)) return code_;
    skip_ws();
    if (p_ != end_) fail(QEL_JSON_ERR_SYNTAX, "expected the end of the text");
    return code_;
  }

 private:
  // ---- errors ----

  // Requires nothing: whether the n bytes of word stand at p_.
  bool at_word(const char *word, int64_t n) const {
    return end_ - p_ >= n && std::memcmp(p_, word, static_cast<size_t>(n)) == 0;
  }

  // Requires nothing: whether p_ starts a JSON value (of whatever kind).
  bool at_value() const {
    if (p_ >= end_) return false;
    switch (*p_) {
      case '{':
      case '[':
      case '"': return true;
      case 't': return at_word("true", 4);
      case 'f': return at_word("false", 5);
      case 'n': return at_word("null", 4);
      case '-': return end_ - p_ >= 2 && is_digit(p_[1]);
      default: return is_digit(*p_);
    }
  }

  // Requires nothing; the name of what the text holds at p_.
  const char *found() {
    if (p_ >= end_) return "the end of the text";
    switch (*p_) {
      case '{': return "an object";
      case '[': return "an array";
      case '"': return "a string";
      case 't':
      case 'f': return at_value() ? "a boolean" : unexpected();
      case 'n': return at_value() ? "null" : unexpected();
      case ']': return "the end of an array";
      case '}': return "the end of an object";
      case ',': return "','";
      case ':': return "':'";
      default: return at_value() ? "a number" : unexpected();
    }
  }

  // Requires p_ < end_: what stands at p_ quoted, a word whole (up to 20
  // letters and digits), a byte that is no printable character by its code.
  const char *unexpected() {
    const auto c = static_cast<unsigned char>(*p_);
    if (c < 0x21 || c > 0x7E) {
      std::snprintf(found_text_, sizeof found_text_, "the byte 0x%02X", c);
      return found_text_;
    }
    int64_t n = 1;
    auto word = [](char x) { return is_digit(x) || (x >= 'a' && x <= 'z') || (x >= 'A' && x <= 'Z'); };
    if (word(*p_))
      while (n < end_ - p_ && word(p_[n])) ++n;
    std::snprintf(found_text_, sizeof found_text_, "'%.*s%s'", static_cast<int>(n > 20 ? 20 : n), p_,
                  n > 20 ? "..." : "");
    return found_text_;
  }

  // Requires nothing; QEL_JSON_ERR_TYPE when p_ starts some JSON value (of
  // the wrong kind), QEL_JSON_ERR_SYNTAX otherwise.
  int mismatch() const { return at_value() ? QEL_JSON_ERR_TYPE : QEL_JSON_ERR_SYNTAX; }

  // Requires nothing: true at a null that QEL_JSON_REJECT_NULL refuses, after
  // recording the error with what the destination expected.
  bool refused_null(const char *expected) {
    if ((flags_ & QEL_JSON_REJECT_NULL) == 0 || !at_word("null", 4)) return false;
    fail(QEL_JSON_ERR_NULL, expected, "null");
    return true;
  }

  // Requires nothing; records the error at p_ (with the member being read,
  // when there is one, after `relation`) unless one is recorded already, and
  // returns false, the reading steps' answer for a failure.
  [[gnu::noinline, gnu::cold]] bool fail(int code, const char *what, const char *found_text = nullptr,
                                         const char *relation = "for") {
    if (code_ != QEL_JSON_OK) return false;
    code_ = code;
    if (err_ == nullptr) return false;
    int64_t line = 1;
    const char *line_start = begin_;
    for (const char *q = begin_; q < p_; ++q)
      if (*q == '\n') {
        ++line;
        line_start = q + 1;
      }
    err_->code = code;
    err_->offset = p_ - begin_;
    err_->line = line;
    err_->column = p_ - line_start + 1;
    char member[80] = "";
    if (member_ != nullptr)
      std::snprintf(member, sizeof member, " %s member \"%.*s\"", relation,
                    static_cast<int>(member_len_ > 40 ? 40 : member_len_), member_);
    std::snprintf(err_->message, sizeof err_->message, "line %lld, column %lld: %s%s, found %s",
                  static_cast<long long>(line), static_cast<long long>(err_->column), what, member,
                  found_text != nullptr ? found_text : found());
    return false;
  }

  // Requires nothing: whether changes here must be logged (not inside an
  // element made by this read, which goes away with its array).
  bool logging() const { return undo_ != nullptr && fresh_ == 0; }

  // ---- lexing ----

  void skip_ws() {
    while (p_ < end_ && is_ws(*p_)) ++p_;
  }

  // Requires p_ at a character that may start a number: takes the token
  // apart (strict RFC 8259 grammar) or fails.
  bool number(number_token &t, const char *expected) {
    const char *start = p_;
    t.negative = p_ < end_ && *p_ == '-';
    if (t.negative) ++p_;
    if (p_ >= end_ || !is_digit(*p_)) {
      p_ = start;
      return fail(start < end_ && *start == '-' ? QEL_JSON_ERR_SYNTAX : mismatch(), expected);
    }
    t.int_digits = p_;
    if (*p_ == '0') {
      ++p_;
    } else {
      while (p_ < end_ && is_digit(*p_)) ++p_;
    }
    t.int_count = p_ - t.int_digits;
    t.frac_digits = p_;
    t.frac_count = 0;
    t.exponent = 0;
    if (p_ < end_ && *p_ == '.') {
      ++p_;
      t.frac_digits = p_;
      while (p_ < end_ && is_digit(*p_)) ++p_;
      t.frac_count = p_ - t.frac_digits;
      if (t.frac_count == 0) return fail(QEL_JSON_ERR_SYNTAX, "expected a digit after the point", "none");
    }
    if (p_ < end_ && (*p_ == 'e' || *p_ == 'E')) {
      ++p_;
      bool negative = false;
      if (p_ < end_ && (*p_ == '+' || *p_ == '-')) negative = *p_++ == '-';
      if (p_ >= end_ || !is_digit(*p_)) return fail(QEL_JSON_ERR_SYNTAX, "expected a digit in the exponent");
      int64_t e = 0;
      for (; p_ < end_ && is_digit(*p_); ++p_)
        if (e < 1000000000) e = e * 10 + (*p_ - '0');
      t.exponent = negative ? -e : e;
    }
    if (p_ < end_ && (is_digit(*p_) || *p_ == '.' || *p_ == 'e' || *p_ == 'E' || *p_ == '-' || *p_ == '+'))
      return fail(QEL_JSON_ERR_SYNTAX, "expected the end of the number");
    return true;
  }

  // Requires nothing; 4 hex digits at p_ as a number, or -1.
  int32_t hex4() {
    if (end_ - p_ < 4) return -1;
    int32_t v = 0;
    for (int i = 0; i < 4; ++i) {
      const char c = p_[i];
      const int d = is_digit(c)              ? c - '0'
                    : (c >= 'a' && c <= 'f') ? c - 'a' + 10
                    : (c >= 'A' && c <= 'F') ? c - 'A' + 10
                                             : -1;
      if (d < 0) return -1;
      v = v * 16 + d;
    }
    p_ += 4;
    return v;
  }

  // Requires p_ at '"': decodes the string behind the bytes of `out` (NULL:
  // only checks it) and leaves p_ after the closing quote.
  bool string(qel_stream *out) {
    ++p_;
    for (;;) {
      const char *run = p_;
      while (p_ < end_ && static_cast<unsigned char>(*p_) >= 0x20 && *p_ != '"' && *p_ != '\\' &&
             static_cast<unsigned char>(*p_) < 0x80)
        ++p_;
      if (out != nullptr && p_ > run) qel::out_buffer(out).append(run, p_ - run);
      if (p_ >= end_) return fail(QEL_JSON_ERR_SYNTAX, "expected the closing quote of the string");
      const auto c = static_cast<unsigned char>(*p_);
      if (c == '"') {
        ++p_;
        return true;
      }
      if (c >= 0x80) {
        const int len = qel::utf8_sequence(reinterpret_cast<const unsigned char *>(p_),
                                           reinterpret_cast<const unsigned char *>(end_));
        if (len == 0) return fail(QEL_JSON_ERR_UTF8, "expected UTF-8 text", "a byte that is not UTF-8");
        if (out != nullptr) qel::out_buffer(out).append(p_, len);
        p_ += len;
        continue;
      }
      if (c < 0x20) return fail(QEL_JSON_ERR_STRING, "expected an escape for a control character", "a raw one");
      if (!escape(out)) return false;
    }
  }

  // Requires p_ at a backslash inside a string: decodes one escape.
  bool escape(qel_stream *out) {
    const char *start = p_++;
    if (p_ >= end_) return fail(QEL_JSON_ERR_SYNTAX, "expected an escape", "the end of the text");
    char c = *p_++;
    switch (c) {
      case '"':
      case '\\':
      case '/': break;
      case 'b': c = '\b'; break;
      case 'f': c = '\f'; break;
      case 'n': c = '\n'; break;
      case 'r': c = '\r'; break;
      case 't': c = '\t'; break;
      case 'u': return unicode_escape(out, start);
      default: p_ = start; return fail(QEL_JSON_ERR_STRING, "expected a valid escape", "another character");
    }
    if (out != nullptr) qel::out_buffer(out).append(&c, 1);
    return true;
  }

  // Requires p_ after "\u": decodes the code point (a surrogate pair when
  // the first is a high surrogate) to UTF-8.
  bool unicode_escape(qel_stream *out, const char *start) {
    int32_t cp = hex4();
    if (cp < 0) {
      p_ = start;
      return fail(QEL_JSON_ERR_STRING, "expected four hex digits after \\u", "something else");
    }
    if (cp >= 0xDC00 && cp <= 0xDFFF) {
      p_ = start;
      return fail(QEL_JSON_ERR_STRING, "expected a high surrogate first", "a lone low surrogate");
    }
    if (cp >= 0xD800 && cp <= 0xDBFF) {
      const int32_t low = end_ - p_ >= 2 && p_[0] == '\\' && p_[1] == 'u' ? (p_ += 2, hex4()) : -1;
      if (low < 0xDC00 || low > 0xDFFF) {
        p_ = start;
        return fail(QEL_JSON_ERR_STRING, "expected a low surrogate after a high one", "a lone high surrogate");
      }
      cp = 0x10000 + ((cp - 0xD800) << 10) + (low - 0xDC00);
    }
    char u[4];
    int n = 0;
    if (cp < 0x80) {
      u[n++] = static_cast<char>(cp);
    } else if (cp < 0x800) {
      u[n++] = static_cast<char>(0xC0 | (cp >> 6));
      u[n++] = static_cast<char>(0x80 | (cp & 0x3F));
    } else if (cp < 0x10000) {
      u[n++] = static_cast<char>(0xE0 | (cp >> 12));
      u[n++] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      u[n++] = static_cast<char>(0x80 | (cp & 0x3F));
    } else {
      u[n++] = static_cast<char>(0xF0 | (cp >> 18));
      u[n++] = static_cast<char>(0x80 | ((cp >> 12) & 0x3F));
      u[n++] = static_cast<char>(0x80 | ((cp >> 6) & 0x3F));
      u[n++] = static_cast<char>(0x80 | (cp & 0x3F));
    }
    if (out != nullptr) qel::out_buffer(out).append(u, n);
    return true;
  }

  // Requires nothing; the literal at p_ or a failure naming what was expected.
  bool literal(const char *word, int64_t n, const char *expected) {
    if (end_ - p_ >= n && std::memcmp(p_, word, static_cast<size_t>(n)) == 0) {
      p_ += n;
      return true;
    }
    return fail(QEL_JSON_ERR_SYNTAX, expected);
  }

  // ---- values ----

  // Requires nothing: what a single value (multi 0) or an array of type
  // code `type` must be in the text.
  static const char *expected_of(uint32_t type, uint8_t multi) {
    if (multi != 0) return "expected an array";
    switch (storage_of(type)) {
      case storage::bits32:
        return type == QEL_VAR_FLOAT ? "expected a number" : "expected an integer from 0 to 4294967295";
      case storage::bits64: return type == QEL_VAR_DOUBLE ? "expected a number" : "expected an integer";
      case storage::bytes: return "expected a string";
      case storage::record: break;
    }
    return "expected an object";
  }

  // Requires a variant: reads the value at p_ (after whitespace) into it.
  bool value(qel_var *v, int depth) {
    skip_ws();
    if (p_ < end_ && *p_ == 'n' && at_word("null", 4)) {
      if (refused_null(expected_of(v->type, v->multi))) return false;
      p_ += 4;
      return true;
    }
    if (v->multi != 0) return array(v, depth);
    switch (storage_of(v->type)) {
      case storage::bits32: {
        uint32_t bits = 0;
        if (!scalar(v->type, &bits, nullptr)) return false;
        if (logging()) undo_->number(v);
        v->data.bits32 = bits;
        return true;
      }
      case storage::bits64: {
        uint64_t bits = 0;
        if (!scalar(v->type, nullptr, &bits)) return false;
        if (logging()) undo_->number(v);
        v->data.bits64 = bits;
        return true;
      }
      case storage::bytes: {
        if (p_ >= end_ || *p_ != '"') return fail(mismatch(), "expected a string");
        qel_stream_shrink(&scratch_, 0);
        if (!string(&scratch_)) return false;
        if (logging()) {
          if (scratch_.length <= v->data.stream.capacity) {
            undo_->rewrite(v, scratch_.bytes, scratch_.length);
            return true;
          }
          undo_->set_aside(v);
        }
        qel_stream_copy(&v->data.stream, scratch_.bytes, scratch_.length);
        return true;
      }
      case storage::record: return object(v, depth);
    }
    return false;
  }

  // Requires a number code and p_ at the value: its stored bits, in *b32
  // for the 32-bit class and in *b64 for the 64-bit class.
  [[gnu::noinline]] bool scalar(uint32_t type, uint32_t *b32, uint64_t *b64) {
    const char *expected = expected_of(type, 0);
    const char *start = p_;
    number_token t;
    if (!number(t, expected)) return false;
    conv_result r = conv_result::ok;
    switch (type) {
      case QEL_VAR_FLOAT: {
        float f = 0;
        r = qel::json::token_to_float(t, &f);
        *b32 = qel::conv::float_bits(f);
        break;
      }
      case QEL_VAR_DOUBLE: {
        double d = 0;
        r = qel::json::token_to_double(t, &d);
        *b64 = static_cast<uint64_t>(qel::conv::double_bits(d));
        break;
      }
      case QEL_VAR_INT64: {
        int64_t i = 0;
        r = qel::json::token_to_int(t, INT64_MIN, INT64_MAX, &i);
        *b64 = static_cast<uint64_t>(i);
        break;
      }
      default: {
        int64_t i = 0;
        r = qel::json::token_to_int(t, 0, 0xFFFFFFFF, &i);
        *b32 = static_cast<uint32_t>(i);
      }
    }
    if (r == conv_result::ok) return true;
    char text[64];
    const int64_t n = p_ - start;
    std::snprintf(text, sizeof text, "%.*s%s", static_cast<int>(n > 40 ? 40 : n), start, n > 40 ? "..." : "");
    p_ = start;
    if (type == QEL_VAR_FLOAT) expected = "expected a number within the float range";
    if (type == QEL_VAR_DOUBLE) expected = "expected a number within the double range";
    return fail(QEL_JSON_ERR_RANGE, expected, text);
  }

  // Requires nothing; fails unless one more level may open.
  bool deeper(int depth) {
    if (depth < QEL_JSON_MAX_DEPTH) return true;
    return fail(QEL_JSON_ERR_DEPTH, "expected at most 1000 nested arrays and objects", "one more");
  }

  // Requires p_ just past an opening bracket: reads the items up to `closer`
  // (which it steps over), each after whitespace by `item`, separated by
  // commas.  False when an item or the punctuation fails.  Inlined, so the
  // nesting adds no frame of its own.
  template <class Item>
  [[gnu::always_inline]] inline bool items(char closer, Item &&item) {
    skip_ws();
    if (p_ < end_ && *p_ == closer) {
      ++p_;
      return true;
    }
    for (;;) {
      skip_ws();
      if (!item()) return false;
      skip_ws();
      if (p_ < end_ && *p_ == ',') {
        ++p_;
        continue;
      }
      if (p_ < end_ && *p_ == closer) {
        ++p_;
        return true;
      }
      return fail(QEL_JSON_ERR_SYNTAX, closer == ']' ? "expected ',' or ']'" : "expected ',' or '}'");
    }
  }

  // Requires an array variant: its elements become those of the JSON array.
  bool array(qel_var *v, int depth) {
    if (p_ >= end_ || *p_ != '[') return fail(mismatch(), "expected an array");
    if (!deeper(depth)) return false;
    ++p_;
    const storage cls = storage_of(v->type);
    if (logging()) {
      undo_->set_aside(v);
    } else {
      switch (cls) {
        case storage::bits32: qel_arrayd_remove_all(&v->data.arrayd); break;
        case storage::bits64: qel_arrayx_remove_all(&v->data.arrayx); break;
        case storage::bytes: qel_array_remove_all(&v->data.array); break;
        case storage::record: qel_arrays_free_all(&v->data.vars, qel_var_term); break;
      }
    }
    return items(']', [&] { return element(v, cls, depth); });
  }

  // Requires an array variant of class cls: appends the element at p_.
  bool element(qel_var *v, storage cls, int depth) {
    if (refused_null(expected_of(v->type, 0))) return false;
    switch (cls) {
      case storage::bits32: {
        uint32_t bits = 0;
        if (!scalar(v->type, &bits, nullptr)) return false;
        qel_detail::append(&v->data.arrayd, bits, 0);
        return true;
      }
      case storage::bits64: {
        uint64_t bits = 0;
        if (!scalar(v->type, nullptr, &bits)) return false;
        qel_detail::append(&v->data.arrayx, static_cast<int64_t>(bits), 0);
        return true;
      }
      case storage::bytes: {
        if (p_ >= end_ || *p_ != '"') return fail(mismatch(), "expected a string");
        const char *start = p_;
        qel_stream_shrink(&scratch_, 0);
        if (!string(&scratch_)) return false;
        const int64_t before = v->data.array.count;
        qel_array_append(&v->data.array, scratch_.bytes, scratch_.length, 0);
        if (v->data.array.count == before) {
          p_ = start;
          return fail(QEL_JSON_ERR_RANGE, "expected strings that fit the array", "too many bytes");
        }
        return true;
      }
      case storage::record: {
        if (p_ >= end_ || *p_ != '{') return fail(mismatch(), "expected an object");
        qel_var *e = nullptr;
        if (resolver_ != nullptr) {
          e = qel_var_new_x(v->type, 0, context_, resolver_);
        } else {
          e = qel_var_alloc(v->type, 0, v->schema);
          qel_var_init_at(e, context_, nullptr, nullptr);
        }
        qel_arrays_append(&v->data.vars, e);  // owned by the array from here on
        ++fresh_;
        const bool ok = object(e, depth + 1);
        --fresh_;
        return ok;
      }
    }
    return false;
  }

  // Requires a single record: reads the JSON object's members into it.
  bool object(qel_var *v, int depth) {
    if (p_ >= end_ || *p_ != '{') return fail(mismatch(), "expected an object");
    if (!deeper(depth)) return false;
    ++p_;
    const int64_t named_from = named_.length;
    if (!items('}', [&] { return member(v, depth + 1); })) return false;
    return (flags_ & QEL_JSON_REQUIRE_MEMBERS) == 0 || all_named(v, named_from);
  }

  // Requires a single record whose object was just read (p_ after its '}'),
  // the positions of the members it named at named_ from `from` on: fails
  // at the '}' when the schema lists a member the object did not name.
  [[gnu::noinline]] bool all_named(qel_var *v, int64_t from) {
    const qel_hash *members = &v->data.members;
    const int64_t bytes = (static_cast<int64_t>(members->priv_count) + 7) / 8;
    qel_stream_shrink(&marks_, 0);
    if (marks_.capacity < bytes) qel_stream_expand(&marks_, bytes);
    if (bytes > 0) std::memset(marks_.bytes, 0, static_cast<size_t>(bytes));
    for (int64_t at = from; at < named_.length; at += 4) {
      uint32_t k = 0;
      std::memcpy(&k, named_.bytes + at, 4);
      marks_.bytes[k / 8] = static_cast<char>(marks_.bytes[k / 8] | (1 << (k % 8)));
    }
    qel_stream_shrink(&named_, from);
    if (v->schema == nullptr) return true;
    for (int64_t i = 0, n = qel_detail::in_use(v->schema); i < n; ++i) {
      const char *name = nullptr;
      int64_t len = 0;
      qel_detail::array_entry(v->schema, i, &name, &len);
      const qel_hash_entry *e = qel_detail::hash_find(members, name, len);
      const auto k = e != nullptr ? static_cast<uint32_t>(e - members->priv_entries) : 0;
      if (e != nullptr && (marks_.bytes[k / 8] >> (k % 8) & 1) != 0) continue;
      --p_;
      char what[64];
      std::snprintf(what, sizeof what, "expected member \"%.*s\"", static_cast<int>(len > 40 ? 40 : len), name);
      return fail(QEL_JSON_ERR_MISSING, what, "the end of the object", "in");
    }
    return true;
  }

  // Requires the raw member name at name_at (its quote): fails there.
  [[gnu::noinline, gnu::cold]] bool fail_unknown(const char *name_at, int64_t raw_len) {
    p_ = name_at;
    char text[64];
    std::snprintf(text, sizeof text, "\"%.*s\"", static_cast<int>(raw_len > 40 ? 40 : raw_len), name_at + 1);
    return fail(QEL_JSON_ERR_UNKNOWN, "expected a member of the record", text);
  }

  // Requires a single record and p_ at a member: reads "name": value.
  bool member(qel_var *v, int depth) {
    if (p_ >= end_ || *p_ != '"') return fail(QEL_JSON_ERR_SYNTAX, "expected a member name");
    const char *name_at = p_;
    qel_stream_shrink(&scratch_, 0);
    if (!string(&scratch_)) return false;
    const char *raw = name_at + 1;
    const int64_t raw_len = p_ - 1 - raw;
    skip_ws();
    if (p_ >= end_ || *p_ != ':') return fail(QEL_JSON_ERR_SYNTAX, "expected ':' after the member name");
    ++p_;
    qel_hash_entry *e = qel_detail::hash_find(&v->data.members, scratch_.bytes, scratch_.length);
    if ((e == nullptr || e->value == nullptr) && !create_member(v, &e)) return false;
    if (e == nullptr || e->value == nullptr) {
      if ((flags_ & QEL_JSON_SKIP_UNKNOWN) == 0) return fail_unknown(name_at, raw_len);
      return skip(depth);
    }
    auto *m = static_cast<qel_var *>(e->value);
    if ((flags_ & QEL_JSON_REQUIRE_MEMBERS) != 0) {
      const auto k = static_cast<uint32_t>(e - v->data.members.priv_entries);
      qel::out_buffer(&named_).append(reinterpret_cast<const char *>(&k), 4);
    }
    const char *outer = member_;
    const int64_t outer_len = member_len_;
    member_ = raw;
    member_len_ = raw_len;
    const bool ok = value(m, depth);
    member_ = outer;
    member_len_ = outer_len;
    return ok;
  }

  // Requires a single record and the member name in scratch_: creates the
  // member when the schema lists it and sets *e to its entry (*e stays as it
  // is otherwise); false only when the record cannot take one more member.
  [[gnu::noinline]] bool create_member(qel_var *v, qel_hash_entry **e) {
    uint32_t type = 0;
    uint8_t multi = 0;
    if (v->schema == nullptr || qel_var_schema_find(v->schema, scratch_.bytes, scratch_.length, &type, &multi) < 0)
      return true;
    if (logging()) {  // a new member could not be taken back: start again on a copy
      code_ = kNeedsCopy;
      return false;
    }
    qel_var *made = qel_var_new_x(type, multi, context_, resolver_);
    qel_hash_entry *entry = qel_hash_insert(&v->data.members, scratch_.bytes, scratch_.length, made);
    if (entry == nullptr || entry->value != made) {
      qel_var_free(made);
      return fail(QEL_JSON_ERR_RANGE, "expected a member the record can hold", "too many");
    }
    *e = entry;
    return true;
  }

  // Requires nothing; checks the value at p_ (after whitespace) and steps
  // over it.
  bool skip(int depth) {
    skip_ws();
    if (p_ >= end_) return fail(QEL_JSON_ERR_SYNTAX, "expected a value");
    const char c = *p_;
    if (c == '"') return string(nullptr);
    if (c == 't') return literal("true", 4, "expected a value");
    if (c == 'f') return literal("false", 5, "expected a value");
    if (c == 'n') return !refused_null("expected a value") && literal("null", 4, "expected a value");
    if (c == '[' || c == '{') {
      if (!deeper(depth)) return false;
      ++p_;
      return items(c == '[' ? ']' : '}', [&] {
        if (c == '{') {
          if (p_ >= end_ || *p_ != '"') return fail(QEL_JSON_ERR_SYNTAX, "expected a member name");
          if (!string(nullptr)) return false;
          skip_ws();
          if (p_ >= end_ || *p_ != ':') return fail(QEL_JSON_ERR_SYNTAX, "expected ':' after the member name");
          ++p_;
        }
        return skip(depth + 1);
      });
    }
    number_token t;
    return number(t, "expected a value");
  }

  const char *begin_;
  const char *p_;
  const char *end_;
  void *context_;
  qel_schema_resolver resolver_;
  unsigned flags_;
  qel_json_error *err_;
  qel::undo_log *undo_;
  int fresh_ = 0;  // elements made by this read that are being read into
  int code_ = QEL_JSON_OK;
  const char *member_ = nullptr;  // raw name of the innermost member being read
  int64_t member_len_ = 0;
  qel_stream scratch_;  // decoded member names and array strings
  qel_stream named_;    // entry positions (uint32) of the members named by the open objects
  qel_stream marks_;    // one bit per member entry of the object being checked
  char found_text_[40];
};

}  // namespace

extern "C" const char *qel_json_error_cause(const qel_json_error *err) {
  if (err == nullptr || err->code == QEL_JSON_OK) return "";
  // The message is "line L, column C: cause"; the cause follows the first ": ".
  const char *m = err->message;
  const auto *colon = static_cast<const char *>(std::memchr(m, ':', sizeof err->message));
  return colon != nullptr && colon + 1 < m + sizeof err->message && colon[1] == ' ' ? colon + 2 : m;
}

extern "C" int qel_json_read(qel_var *dst, const char *text, int64_t len, void *context, qel_schema_resolver resolver,
                             unsigned flags, qel_json_error *err) {
  if (text == nullptr) {
    text = "";
    len = 0;
  } else if (len < 0) {
    len = static_cast<int64_t>(std::strlen(text));
  }
  if (err != nullptr) {
    err->code = QEL_JSON_OK;
    err->offset = 0;
    err->line = 0;
    err->column = 0;
    err->message[0] = '\0';
  }
  {
    qel::undo_log undo;
    reader r(text, len, context, resolver, flags, err, &undo);
    const int rc = r.run(dst);
    if (rc == QEL_JSON_OK) {
      undo.commit();
      return rc;
    }
    undo.roll_back();
    if (rc != kNeedsCopy) return rc;
  }
  // A private replica, node for node: the members the read creates are made
  // as qel_var_new_x makes them, and no others.
  qel_var *work = qel::json::replica_of(dst);
  int rc = QEL_JSON_OK;
  {
    reader r(text, len, context, resolver, flags, err, nullptr);
    rc = r.run(work);
  }
  if (rc == QEL_JSON_OK) qel_var_move_storage(dst, work);
  qel_var_free(work);
  return rc;
}
