// Output that grows at the end of a qel_stream, for the formats' writers:
// reserve room for what comes next and write it there unchecked
// (append_unsafe, or advance past bytes written in place), or append a piece,
// which reserves for itself.  The stream's length marks what is written.
#ifndef QEL_INTERNAL_OUT_H
#define QEL_INTERNAL_OUT_H

#include <qel_std.h>

#include <cstdint>
#include <cstring>

namespace qel {

class out_buffer {
 public:
  explicit out_buffer(qel_stream *s) : s_(s) {}

  int64_t length() const { return s_->length; }
  // Requires n <= length(): drops what was written after n.
  void truncate(int64_t n) { s_->length = n; }

  // Room for n more bytes; where they go (valid until the next reserve).
  char *reserve(int64_t n) {
    if (s_->capacity - s_->length < n) qel_stream_expand(s_, s_->length + n);
    return s_->bytes + s_->length;
  }
  // Requires n bytes reserved and written at reserve()'s place: keeps them.
  void advance(int64_t n) { s_->length += n; }
  // Requires room for n bytes (n readable at p, which may be NULL when n is 0).
  void append_unsafe(const char *p, int64_t n) {
    if (n > 0) std::memcpy(s_->bytes + s_->length, p, static_cast<size_t>(n));
    s_->length += n;
  }
  void append_unsafe(char c) { s_->bytes[s_->length++] = c; }

  void append(const char *p, int64_t n) {
    reserve(n);
    append_unsafe(p, n);
  }
  void append(char c) {
    reserve(1);
    append_unsafe(c);
  }

 private:
  qel_stream *s_;
};

}  // namespace qel

#endif
