// What the two tasks share, and the one rule for it.
//
// The protocol task owns every record: it alone creates, changes and removes rings, and reads them
// without a lock. The timer task looks at a ring only while it holds erps_timer_lock
// (timer_list.h), to clear the guard flag, to post an expiry and to send tx_frame again. Hence:
//
//   - Numbers that the timer task reads or writes are Shared<>: each is a whole by itself, and a
//     value that is one event old does no harm.
//   - What must change together (the timer list and a timer's times, the ring list, a ring's ports,
//     tx_frame with its length) is written by the protocol task only under erps_timer_lock. A
//     record is unlinked under the lock before it is freed, so the timer task never sees a freed
//     one.
//   - erps_timer_lock is the only lock of the module, so there is no lock order to keep. It is not
//     recursive, and nothing that waits is called with it held: a frame is handed to the platform
//     and an expiry to the event queue, neither of which blocks.
//   - No task can be cancelled with the lock held or with an event half done: the protocol task is
//     cancelled only while it waits for an event, the timer task only before and during its sleep.
#pragma once

#include <pthread.h>

#include <atomic>
#include <type_traits>

// A number that both tasks use: every access is atomic, none orders another.
template <typename T>
class Shared {
  static_assert(std::is_integral_v<T> && std::atomic<T>::is_always_lock_free);

 public:
  constexpr Shared() = default;
  Shared(const Shared&) = delete;
  Shared& operator=(const Shared&) = delete;
  ~Shared() = default;

  T get() const { return value_.load(std::memory_order_relaxed); }
  operator T() const { return get(); }
  Shared& operator=(T value) {
    value_.store(value, std::memory_order_relaxed);
    return *this;
  }

 private:
  std::atomic<T> value_{};
};

// The thread cannot be cancelled while this lives.
class NoCancellation {
 public:
  NoCancellation() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &old_state_); }
  ~NoCancellation() { pthread_setcancelstate(old_state_, nullptr); }
  NoCancellation(const NoCancellation&) = delete;
  NoCancellation& operator=(const NoCancellation&) = delete;

 private:
  int old_state_ = 0;
};

// The thread can be cancelled while this lives: put around the one call that waits.
class Cancellable {
 public:
  Cancellable() { pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &old_state_); }
  ~Cancellable() { pthread_setcancelstate(old_state_, nullptr); }
  Cancellable(const Cancellable&) = delete;
  Cancellable& operator=(const Cancellable&) = delete;

 private:
  int old_state_ = 0;
};
