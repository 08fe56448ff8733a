// The explicit stack of the walks over variant trees (copy, equality, the
// search for one variant inside another, the formats' writers) and of the
// undo log, so that no walk recurses as deep as the tree: the first frames live in the stack object itself, on the
// caller's stack, so a shallow walk allocates nothing; deeper walks move them into a heap block that doubles as it
// fills.
#ifndef QEL_INTERNAL_WORK_STACK_H
#define QEL_INTERNAL_WORK_STACK_H

#include <qel_std.h>

#include <cstddef>
#include <cstring>
#include <type_traits>

namespace qel {

template <class Frame, size_t Local = 32>
class work_stack {
  static_assert(std::is_trivially_copyable_v<Frame> && Local > 0);

 public:
  work_stack() = default;
  ~work_stack() {
    if (frames_ != local_) qel_free(frames_);
  }
  work_stack(const work_stack &) = delete;
  work_stack &operator=(const work_stack &) = delete;

  bool empty() const { return size_ == 0; }
  size_t size() const { return size_; }
  // Requires a frame: the newest one (valid until the next push).
  Frame &top() { return frames_[size_ - 1]; }
  // Requires a frame: drops the newest one.
  void pop() { --size_; }
  // Requires i < size(): the frame pushed i-th (the oldest is 0).
  Frame &operator[](size_t i) { return frames_[i]; }
  // Drops every frame; the room stays.
  void clear() { size_ = 0; }
  // Takes the frame by value: it may be a copy of one in the stack.
  void push(Frame frame) {
    if (size_ == capacity_) grow();
    frames_[size_++] = frame;
  }

 private:
  // qel_malloc never fails (it aborts when memory runs out), so a walk never
  // stops halfway for want of frames.
  void grow() {
    auto *more = static_cast<Frame *>(qel_malloc(2 * capacity_ * sizeof(Frame)));
    std::memcpy(static_cast<void *>(more), frames_, size_ * sizeof(Frame));
    if (frames_ != local_) qel_free(frames_);
    frames_ = more;
    capacity_ *= 2;
  }

  Frame local_[Local];
  Frame *frames_ = local_;
  size_t size_ = 0;
  size_t capacity_ = Local;
};

}  // namespace qel

#endif
