// The events that the module's own tasks post to each other.
//
// Senders never wait: what does not fit makes the queue grow (what is posted is bounded by the
// rings and their timers). A sender that holds the timer lock can therefore never wait for the task
// that needs that lock.
//
// Threading: push() from any thread, the rest from the receiver. The receiver sleeps on fd().
// Errors: a push to a closed queue is refused.
#pragma once

#include <cstddef>
#include <mutex>
#include <vector>

#include "linux/unique_fd.h"
#include "platform/event_queue.h"

namespace erps::linux_platform {

class InProcessQueue {
 public:
  InProcessQueue();  // throws PlatformError

  // Empties the queue and accepts events from now on.
  void open();
  // Refuses events from now on and wakes the receiver.
  void close();

  bool push(const ERPS_EVENT_MSG_T& event);
  bool pop(ERPS_EVENT_MSG_T& event);
  bool closed() const;

  // Declares that the receiver is about to sleep on fd(); false when it must look again instead.
  bool prepare_sleep();
  // The receiver is awake; clears fd().
  void awake();

  int fd() const { return wake_.get(); }

 private:
  void ring_bell();

  mutable std::mutex mutex_;
  UniqueFd wake_;
  std::vector<ERPS_EVENT_MSG_T> events_;  // a ring of events_.size() places
  size_t head_ = 0;
  size_t size_ = 0;
  bool closed_ = true;
  bool sleeping_ = false;
};

}  // namespace erps::linux_platform
