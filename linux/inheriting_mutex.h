// A mutex that lends the priority of whoever waits for it to whoever holds it, so that a real-time
// task never waits for a background thread that itself waits for a processor.
#pragma once

#include <pthread.h>

namespace erps::linux_platform {

class InheritingMutex {
 public:
  InheritingMutex() {
    pthread_mutexattr_t attributes;
    pthread_mutexattr_init(&attributes);
    pthread_mutexattr_setprotocol(&attributes, PTHREAD_PRIO_INHERIT);
    pthread_mutex_init(&mutex_, &attributes);
    pthread_mutexattr_destroy(&attributes);
  }
  ~InheritingMutex() { pthread_mutex_destroy(&mutex_); }
  InheritingMutex(const InheritingMutex&) = delete;
  InheritingMutex& operator=(const InheritingMutex&) = delete;

  void lock() { pthread_mutex_lock(&mutex_); }
  void unlock() { pthread_mutex_unlock(&mutex_); }

 private:
  pthread_mutex_t mutex_;
};

}  // namespace erps::linux_platform
