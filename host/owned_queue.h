// The management queue, created by the daemon before the module opens it, so that it is the
// daemon's permissions that hold and not the module's permissive ones.
//
// Threading: one thread. Errors: std::runtime_error. Never blocks. Requires the instance lock: a
// queue that is already there is taken for a leftover.
#pragma once

#include <sys/types.h>

#include <optional>

namespace erps::host {

class OwnedQueue {
 public:
  // For the owner of this process and, when given, the members of a group.
  explicit OwnedQueue(std::optional<gid_t> group);
  // Removes the queue.
  ~OwnedQueue();
  OwnedQueue(const OwnedQueue&) = delete;
  OwnedQueue& operator=(const OwnedQueue&) = delete;

  // Messages in a leftover queue that was replaced; nothing when there was none.
  std::optional<size_t> leftover() const { return leftover_; }

 private:
  void remove_leftover();

  int id_ = -1;
  std::optional<size_t> leftover_;
};

}  // namespace erps::host
