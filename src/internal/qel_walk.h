// A walk over a variant tree without recursion, for the formats' writers:
// the records and record arrays entered and not yet left, innermost last,
// each with the place of its next member or element.  next() gives their
// children one by one (empty places skipped); the caller enters a child that
// is a record itself, so the walk goes depth first, and any depth the
// library can build is walked in a few frames of the call stack.
#ifndef QEL_INTERNAL_WALK_H
#define QEL_INTERNAL_WALK_H

#include <qel.h>

#include <cstdint>

#include "internal/qel_work_stack.h"
#include "qel_std_inline.h"

namespace qel {

class tree_walk {
 public:
  struct child {
    const qel_var *var;     // NULL: the innermost record had no more and was left
    const qel_var *parent;  // the record or record array it belongs to
    const char *name;       // a member's name (not terminated); NULL for an element
    uint32_t name_len;
    bool first;  // nothing of the parent was given before (with var NULL: it had nothing)
  };

  int64_t depth() const { return static_cast<int64_t>(frames_.size()); }
  // Requires a record or record array: its children come next.
  void enter(const qel_var *v) { frames_.push(frame{v, 0, true}); }

  // Requires depth() > 0: the next child of the innermost record, or, when
  // none is left, var NULL (and the record is left).
  child next() {
    frame &f = frames_.top();
    const qel_var *v = f.var;
    child c{nullptr, v, nullptr, 0, f.first};
    if (v->multi != 0) {
      while (c.var == nullptr && f.next < v->data.vars.count)
        c.var = static_cast<const qel_var *>(v->data.vars.entries[f.next++]);
    } else {
      const qel_hash *members = &v->data.members;
      for (const qel_hash_entry *e;
           c.var == nullptr && (e = qel_detail::hash_entry_at(members, static_cast<uint32_t>(f.next))) != nullptr;) {
        ++f.next;
        c.var = static_cast<const qel_var *>(e->value);
        c.name = members->key_pool + e->key_offset;
        c.name_len = e->key_length;
      }
    }
    if (c.var == nullptr) frames_.pop();
    else f.first = false;
    return c;
  }

 private:
  struct frame {
    const qel_var *var;
    int64_t next;  // member slot (single record) or element index (array)
    bool first;    // nothing given of it yet
  };
  work_stack<frame, 16> frames_;
};

}  // namespace qel

#endif
