// The mutexes of one node, known by their addresses, and the rules that hold for them.
//
// Threading: called from tasks of the node. Errors: a misuse is reported as a violation.
#pragma once

#include <deque>
#include <vector>

#include "sim/pace.h"
#include "sim/race_detector.h"
#include "sim/world.h"

namespace erps::sim {

class Locks {
 public:
  Locks(World& world, Pace& pace) : world_(world), pace_(pace) {}

  // False when somebody holds it; nothing has happened then.
  bool try_lock(const void* mutex, Task& task) {
    Mutex& found = find(mutex);
    if (found.owner != nullptr) {
      return false;
    }
    take(found, task);
    return true;
  }
  void lock(const void* mutex, Task& task);
  void unlock(const void* mutex, Task& task);
  // Reports a task that waits, or ends, with a lock held; `doing` completes the sentence.
  void check_none_held(const Task& task, const char* doing);
  void forget() {
    mutexes_.clear();
    last_ = nullptr;
  }

 private:
  struct Mutex {
    const void* address = nullptr;
    Task* owner = nullptr;
    std::deque<Task*> waiting;
  };

  Mutex& find(const void* address) {
    return last_ != nullptr && last_->address == address ? *last_ : find_another(address);
  }
  Mutex& find_another(const void* address);
  static void take(Mutex& mutex, Task& task) {
    mutex.owner = &task;
    races::acquire(&mutex);
  }

  World& world_;
  Pace& pace_;
  std::deque<Mutex> mutexes_;
  Mutex* last_ = nullptr;  // that was asked for
};

}  // namespace erps::sim
