// A stack of its own that runs until it suspends itself.
//
// A fiber that has not finished may be destroyed: its stack is dropped as it stands, as when a
// machine loses its power, and nothing on it is destroyed. unwind() ends it the gentle way, running
// what pthread_cancel would run.
//
// Threading: all fibers of a process on one thread. Errors: SimError when no stack can be had.
#pragma once

#include <unwind.h>

#include <cstddef>
#include <functional>

namespace erps::sim {

class Fiber {
 public:
  explicit Fiber(std::function<void()> body);
  ~Fiber();
  Fiber(const Fiber&) = delete;
  Fiber& operator=(const Fiber&) = delete;

  // From outside: runs the fiber until it suspends or finishes.
  void resume();
  bool finished() const { return finished_; }

  // From inside: back to the caller of resume().
  void suspend();
  // From inside: unwinds to the fiber's beginning and finishes it.
  [[noreturn]] void unwind();

 private:
  static void enter(void* fiber);

  std::function<void()> body_;
  std::byte* stack_ = nullptr;
  void* inside_ = nullptr;   // where the fiber goes on
  void* outside_ = nullptr;  // where its resumer goes on
  bool started_ = false;
  bool finished_ = false;
  _Unwind_Exception unwinding_{};
  // What AddressSanitizer wants to know of the stacks.
  void* inside_shadow_ = nullptr;
  void* outside_shadow_ = nullptr;
  const void* outside_stack_ = nullptr;
  size_t outside_size_ = 0;
  // What ThreadSanitizer takes for threads.
  void* inside_thread_ = nullptr;
  void* outside_thread_ = nullptr;
};

}  // namespace erps::sim
