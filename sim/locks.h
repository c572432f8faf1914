// The mutexes of one node, known by their addresses, and the rules that hold for them.
//
// Threading: called from tasks of the node. Errors: a misuse is reported as a violation.
#pragma once

#include <deque>
#include <vector>

#include "sim/pace.h"
#include "sim/world.h"

namespace erps::sim {

class Locks {
 public:
  Locks(World& world, Pace& pace) : world_(world), pace_(pace) {}

  bool is_free(const void* mutex) { return find(mutex).owner == nullptr; }
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

  Mutex& find(const void* address);

  World& world_;
  Pace& pace_;
  std::deque<Mutex> mutexes_;
  Mutex* last_ = nullptr;  // that was asked for
};

}  // namespace erps::sim
