#include "sim/locks.h"

namespace erps::sim {

Locks::Mutex& Locks::find_another(const void* address) {
  for (Mutex& mutex : mutexes_) {
    if (mutex.address == address) {
      last_ = &mutex;
      return mutex;
    }
  }
  mutexes_.push_back({address, nullptr, {}});
  last_ = &mutexes_.back();
  return *last_;
}

void Locks::lock(const void* address, Task& task) {
  Mutex& mutex = find(address);
  if (mutex.owner == &task) {
    world_.report(task.name() + " takes a lock that it holds already");
    return;
  }
  while (mutex.owner != nullptr) {
    if (mutex.owner->finished()) {
      world_.report(task.name() + " waits for a lock whose owner, " + mutex.owner->name() +
                    ", has ended");
    }
    mutex.waiting.push_back(&task);
    task.wait();
    std::erase(mutex.waiting, &task);
  }
  take(mutex, task);
}

void Locks::unlock(const void* address, Task& task) {
  Mutex& mutex = find(address);
  if (mutex.owner != &task) {
    world_.report(task.name() + " releases a lock that it does not hold");
    return;
  }
  races::release(&mutex);
  mutex.owner = nullptr;
  if (!mutex.waiting.empty()) {
    mutex.waiting.front()->wake_after(pace_.wakeup_us());
  }
}

void Locks::check_none_held(const Task& task, const char* doing) {
  for (const Mutex& mutex : mutexes_) {
    if (mutex.owner == &task) {
      world_.report(task.name() + " " + doing + " with a lock held");
    }
  }
}

}  // namespace erps::sim
