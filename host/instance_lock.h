// One daemon in an IPC namespace: a semaphore that the kernel gives back when its holder ends.
//
// Threading: one thread. Errors: AlreadyRunning, std::runtime_error. Logs nothing. Never blocks.
#pragma once

#include <stdexcept>

namespace erps::host {

class AlreadyRunning : public std::runtime_error {
 public:
  using std::runtime_error::runtime_error;
};

class InstanceLock {
 public:
  InstanceLock();
  ~InstanceLock();
  InstanceLock(const InstanceLock&) = delete;
  InstanceLock& operator=(const InstanceLock&) = delete;

 private:
  int semaphore_;
};

}  // namespace erps::host
