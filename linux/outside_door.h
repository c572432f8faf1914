// The outside door: a POSIX message queue through which other processes announce management
// requests to the protocol task.
//
// An event carries a pointer in most of its types, so nothing from outside may pass but the one
// event whose payload is a plain number. The queue is created for its owner, or for the owner and a
// group, never for everybody.
//
// Threading: the protocol task, which makes it; open() and close() by the same.
// Errors: open() returns an errno; a refused message is a verdict, the caller counts and logs it.
#pragma once

#include <mqueue.h>
#include <sys/types.h>

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>

#include "platform/event_queue.h"

namespace erps::linux_platform {

enum class DoorVerdict : uint8_t {
  kAccepted,
  kEmpty,       // no message waits
  kWrongSize,   // not the size of an event
  kWrongClass,  // not an event of the module's class
  kWrongType,   // an event that only the node itself may post
};

const char* verdict_text(DoorVerdict verdict);

class OutsideDoor {
 public:
  explicit OutsideDoor(std::optional<gid_t> group) : group_(group) {}
  ~OutsideDoor() { close(); }
  OutsideDoor(const OutsideDoor&) = delete;
  OutsideDoor& operator=(const OutsideDoor&) = delete;

  // Removes a queue of that name that an earlier daemon left, and creates it anew. A depth that the
  // kernel does not allow this process is lowered to what it allows.
  int open(const std::string& name, int depth);
  void close();

  // Takes the next message. kAccepted: `message` is an event whose payload is a number. `length` is
  // the length of what was taken in bytes.
  DoorVerdict take(ERPS_EVENT_MSG_T& message, size_t& length);

  int fd() const { return queue_; }
  size_t depth() const { return depth_.load(std::memory_order_relaxed); }

 private:
  const std::optional<gid_t> group_;
  std::string name_;
  mqd_t queue_ = -1;
  std::atomic<size_t> depth_{0};
};

}  // namespace erps::linux_platform
