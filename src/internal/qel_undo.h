// The undo log of an edit of a variant tree (a format's read into its
// destination): every change is recorded first (an old number, the old bytes
// of a string rewritten in place, or a whole container set aside), so that a
// failed edit can put the tree back exactly, and a successful one need not
// copy it first.
#ifndef QEL_INTERNAL_UNDO_H
#define QEL_INTERNAL_UNDO_H

#include <qel.h>

#include <cstdint>
#include <cstring>

#include "internal/qel_work_stack.h"
#include "internal/qel_var_internal.h"

namespace qel {

class undo_log {
 public:
  undo_log() { qel_stream_init(&bytes_); }
  ~undo_log() { qel_stream_term(&bytes_); }
  undo_log(const undo_log &) = delete;
  undo_log &operator=(const undo_log &) = delete;

  // Requires a single variant of the 32-bit or 64-bit class: remembers its value.
  void number(qel_var *v) { std::memcpy(&push(v, kind::number).bits, &v->data, sizeof(uint64_t)); }

  // Requires a single string variant and n <= its capacity: remembers its
  // length and every byte the rewrite covers (spare ones past the length
  // included), then rewrites them in place with n bytes at s.
  void rewrite(qel_var *v, const char *s, int64_t n) {
    qel_stream &st = v->data.stream;
    entry &e = push(v, kind::bytes);
    e.bits = static_cast<uint64_t>(st.length);
    e.at = bytes_.length;
    e.saved = n > st.length ? n : st.length;
    if (e.saved > 0) qel_stream_append(&bytes_, st.bytes, e.saved);
    if (n > 0) std::memcpy(st.bytes, s, static_cast<size_t>(n));
    st.length = n;
  }

  // Requires an initialised variant: sets its storage aside and gives it
  // fresh, empty storage of the same kind (its caller value stays).
  void set_aside(qel_var *v) {
    entry &e = push(v, kind::storage);
    e.old = v->data;
    e.bits = v->buf;
    qel_var_init_at(v, nullptr, nullptr, nullptr);
    v->buf = e.bits;
  }

  // Requires nothing: the read succeeded; storage set aside is freed.
  void commit() {
    for (size_t i = 0; i < entries_.size(); ++i) {
      const entry &e = entries_[i];
      if (e.k != kind::storage) continue;
      qel_var old = *e.var;
      old.data = e.old;
      qel_var_free_x(&old);
    }
    entries_.clear();
  }

  // Requires nothing: every recorded change is undone, newest first.
  void roll_back() {
    for (size_t i = entries_.size(); i-- > 0;) {
      const entry &e = entries_[i];
      switch (e.k) {
        case kind::number: std::memcpy(&e.var->data, &e.bits, sizeof(uint64_t)); break;
        case kind::bytes: {
          qel_stream &st = e.var->data.stream;
          st.length = static_cast<int64_t>(e.bits);
          if (e.saved > 0) std::memcpy(st.bytes, bytes_.bytes + e.at, static_cast<size_t>(e.saved));
          break;
        }
        case kind::storage:
          qel_var_free_x(e.var);
          e.var->data = e.old;
          e.var->buf = e.bits;
          break;
      }
    }
    entries_.clear();
  }

 private:
  enum class kind : uint8_t { number, bytes, storage };
  struct entry {
    qel_var *var;
    kind k;
    uint64_t bits;  // number: the old bits; bytes: the old length; storage: the caller value
    int64_t at;     // bytes: where the old bytes are in bytes_
    int64_t saved;  // bytes: how many of them
    decltype(qel_var::data) old;
  };

  entry &push(qel_var *v, kind k) {
    entries_.push(entry{});
    entry &e = entries_.top();
    e.var = v;
    e.k = k;
    return e;
  }

  work_stack<entry, 16> entries_;
  qel_stream bytes_;  // old bytes of strings rewritten in place
};

}  // namespace qel

#endif
