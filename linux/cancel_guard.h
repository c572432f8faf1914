// Holds off the cancellation of the calling thread.
//
// The module's tasks are cancelled with deferred cancellation, and almost every system call is a
// cancellation point. Only the wait for the next event may end a task; a task that disappeared in
// the middle of a netlink exchange or while holding a lock would take the platform with it.
#pragma once

#include <pthread.h>

namespace erps::linux_platform {

class CancelGuard {
 public:
  CancelGuard() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &previous_); }
  ~CancelGuard() { pthread_setcancelstate(previous_, nullptr); }
  CancelGuard(const CancelGuard&) = delete;
  CancelGuard& operator=(const CancelGuard&) = delete;

  // Gives the thread its former cancellation state back for one wait.
  void lift() { pthread_setcancelstate(previous_, nullptr); }
  void hold() { pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr); }

 private:
  int previous_ = PTHREAD_CANCEL_ENABLE;
};

}  // namespace erps::linux_platform
