// Locking and look-ups shared by the parts of the recording platform.
#pragma once

#include <pthread.h>

namespace erps::test {

// Not std::lock_guard: a task may be cancelled in pthread_cond_wait, and the lock must then be
// given back while the stack unwinds.
class Guard {
 public:
  explicit Guard(pthread_mutex_t& mutex) : mutex_(mutex) { pthread_mutex_lock(&mutex_); }
  ~Guard() { pthread_mutex_unlock(&mutex_); }
  Guard(const Guard&) = delete;
  Guard& operator=(const Guard&) = delete;

 private:
  pthread_mutex_t& mutex_;
};

template <typename Map, typename Key, typename Value>
Value value_or(const Map& map, const Key& key, Value otherwise) {
  const auto found = map.find(key);
  return found == map.end() ? otherwise : found->second;
}

}  // namespace erps::test
