// A task of the module that always rests at the same place: where it waits for its next event, or
// sleeps until its next tick.
//
// At that place its stack holds nothing that differs from one wait to the next, so the stack as it
// was at the first wait serves every node and every state: it is put back before each resumption.
//
// Threading: one thread. Errors: SimError when no stack can be had, or when the task comes to rest
// elsewhere than before.
#pragma once

#include <cstddef>
#include <vector>

namespace erps::sim::explore {

class RestingTask {
 public:
  RestingTask();
  ~RestingTask();
  RestingTask(const RestingTask&) = delete;
  RestingTask& operator=(const RestingTask&) = delete;

  // Runs a new task until it rests, or to its end.
  void start(void (*body)(void*), void* argument);
  // Goes on from where it rests, whatever it has done since.
  void resume();
  bool ended() const { return ended_; }

  // From inside.
  void rest();

 private:
  static void enter(void* self);
  void jump(void* to);

  std::byte* memory_ = nullptr;
  std::byte* top_ = nullptr;
  void* inside_ = nullptr;   // where it goes on
  void* outside_ = nullptr;  // where its resumer goes on
  void (*body_)(void*) = nullptr;
  void* argument_ = nullptr;
  bool ended_ = false;
  void* resting_place_ = nullptr;
  std::vector<std::byte> resting_stack_;  // from resting_place_ to top_
};

}  // namespace erps::sim::explore
