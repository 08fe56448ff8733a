// A stack that keeps its first N items in itself and moves to the heap,
// doubling, past them: the work lists of walks over a variant tree and of
// edits, which stay shallow nearly always.  Items are trivially copyable.
#ifndef QEL_INTERNAL_INLINE_STACK_H
#define QEL_INTERNAL_INLINE_STACK_H

#include <qel_std.h>

#include <cstdint>
#include <cstring>
#include <type_traits>

namespace qel {

template <class T, int64_t N = 16>
class inline_stack {
  static_assert(std::is_trivially_copyable_v<T> && N > 0);

 public:
  inline_stack() = default;
  ~inline_stack() {
    if (items_ != inline_) qel_free(items_);
  }
  inline_stack(const inline_stack &) = delete;
  inline_stack &operator=(const inline_stack &) = delete;

  int64_t size() const { return count_; }
  bool empty() const { return count_ == 0; }
  T &operator[](int64_t i) { return items_[i]; }
  const T &operator[](int64_t i) const { return items_[i]; }
  // Requires !empty().
  T &back() { return items_[count_ - 1]; }

  // A new item on top, for the caller to fill; valid until the next push.
  T &push() {
    if (count_ == capacity_) {
      auto *grown = static_cast<T *>(qel_malloc(sizeof(T) * static_cast<size_t>(2 * capacity_)));
      std::memcpy(static_cast<void *>(grown), items_, sizeof(T) * static_cast<size_t>(count_));
      if (items_ != inline_) qel_free(items_);
      items_ = grown;
      capacity_ *= 2;
    }
    return items_[count_++];
  }
  void push(const T &item) { push() = item; }
  // Requires !empty().
  T pop() { return items_[--count_]; }
  void clear() { count_ = 0; }

 private:
  T inline_[static_cast<size_t>(N)];
  T *items_ = inline_;
  int64_t count_ = 0;
  int64_t capacity_ = N;
};

}  // namespace qel

#endif
