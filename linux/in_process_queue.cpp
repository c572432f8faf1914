#include "linux/in_process_queue.h"

#include <sys/eventfd.h>
#include <unistd.h>

#include <cerrno>
#include <cstring>
#include <string>

#include "linux/platform.h"

namespace erps::linux_platform {
namespace {

constexpr size_t kInitialPlaces = 1024;

}  // namespace

InProcessQueue::InProcessQueue()
    : wake_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)), events_(kInitialPlaces) {
  if (!wake_) {
    throw PlatformError(std::string("event descriptor cannot be opened: ") + std::strerror(errno));
  }
}

void InProcessQueue::open() {
  const std::lock_guard lock(mutex_);
  head_ = 0;
  size_ = 0;
  closed_ = false;
}

void InProcessQueue::close() {
  const std::lock_guard lock(mutex_);
  closed_ = true;
  ring_bell();
}

bool InProcessQueue::push(const ERPS_EVENT_MSG_T& event) {
  const std::lock_guard lock(mutex_);
  if (closed_) {
    return false;
  }
  if (size_ == events_.size()) {
    std::vector<ERPS_EVENT_MSG_T> larger(events_.size() * 2);
    for (size_t i = 0; i < size_; ++i) {
      larger[i] = events_[(head_ + i) % events_.size()];
    }
    events_.swap(larger);
    head_ = 0;
  }
  events_[(head_ + size_) % events_.size()] = event;
  ++size_;
  if (sleeping_) {
    sleeping_ = false;
    ring_bell();
  }
  return true;
}

bool InProcessQueue::pop(ERPS_EVENT_MSG_T& event) {
  const std::lock_guard lock(mutex_);
  if (size_ == 0) {
    return false;
  }
  event = events_[head_];
  head_ = (head_ + 1) % events_.size();
  --size_;
  return true;
}

bool InProcessQueue::closed() const {
  const std::lock_guard lock(mutex_);
  return closed_;
}

bool InProcessQueue::prepare_sleep() {
  const std::lock_guard lock(mutex_);
  sleeping_ = size_ == 0 && !closed_;
  return sleeping_;
}

void InProcessQueue::awake() {
  const std::lock_guard lock(mutex_);
  sleeping_ = false;
  uint64_t rings = 0;
  [[maybe_unused]] const ssize_t ignored = read(wake_.get(), &rings, sizeof rings);
}

void InProcessQueue::ring_bell() {
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t ignored = write(wake_.get(), &one, sizeof one);
}

}  // namespace erps::linux_platform
