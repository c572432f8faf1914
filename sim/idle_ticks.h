// The ticks of a timer task that find nothing to do, made in the module's place.
//
// Once a second the task takes the timer lock, looks whether the first timer is due, and sleeps
// again: most of what a network at rest does. A tick of which nothing came is repeated here with
// the calls that the module made in it, each at its time and with its chance to lose the processor,
// as long as the records are as they were and nothing is due. The trace is the same.
//
// The module itself has the word whenever that may be otherwise: after any change of its rings and
// timers, in the last second before an expiry, while another task is in the middle of its work,
// when calls fail. A tick that turns out to be no idle one is continued by the module from the call
// that it has come to: the calls before it are not made again.
//
// Threading: that of the simulation. Errors: none. Logs nothing.
#pragma once

#include <cstdint>

namespace erps::sim {

class Node;
class Task;

// The calls of an idle tick, in their order. The clock is not asked where no timer runs.
enum class TickCall : uint32_t { kNone, kLock, kClock, kUnlock, kCancelPoint, kSleep };

class IdleTicks {
 public:
  IdleTicks(Node& node, Task& task) : node_(node), task_(task) {}

  // What has become of a call that the module makes now.
  enum class Progress { kNew, kBegun, kDone };

  // From the calls of a tick, when they begin. mutex: of lock and unlock.
  Progress begin_call(TickCall call, const void* mutex = nullptr);
  // The task did something else: this tick is no idle one.
  void disturb() { disturbed_ = true; }

  // Around the sleep: a tick ends with it and the next one begins behind it.
  void end_tick(int64_t asked_us);
  void sleep_until(int64_t due_us) { due_us_ = due_us; }
  int64_t due_us() const { return due_us_; }
  // Whether the module has to go on behind the sleep, in a tick that has begun here.
  bool is_under_way() const { return next_ != TickCall::kNone; }
  void begin_tick();

  // It is the task's turn. False when the module has to take it.
  bool take_turn();

 private:
  bool is_as_it_was() const;
  bool loses_processor_before(TickCall call);
  bool begin();
  bool lock();
  bool look_at_clock();
  bool unlock();
  bool pass_cancel_point();
  bool sleep();

  Node& node_;
  Task& task_;
  // Of the last tick that the module made:
  bool disturbed_ = true;
  uint64_t calls_ = 0;  // an octal digit each
  const void* mutex_ = nullptr;
  bool began_at_rest_ = false;
  uint64_t records_version_ = 0;
  // If nothing came of it:
  bool is_idle_ = false;
  bool asks_clock_ = false;
  int64_t idle_until_us_ = 0;  // on the node's clock
  int64_t asked_us_ = 0;       // how long it sleeps
  // Of the present sleep, and of the tick that is made here:
  int64_t due_us_ = 0;
  TickCall next_ = TickCall::kNone;
};

}  // namespace erps::sim
