// Whose call it is.
#pragma once

#include <cstdio>
#include <cstdlib>

#include "sim/node.h"
#include "sim/task.h"

namespace erps::sim {

// The task that runs. The module is never called from outside of one.
inline Task& calling_task() {
  Task* task = Task::running();
  if (task == nullptr) {
    std::fputs("the module calls its platform from outside of all tasks\n", stderr);
    std::abort();
  }
  return *task;
}

inline Node& calling_node() {
  return calling_task().node();
}

// Other tasks may have their turn.
inline void lose_processor(Task& task) {
  if (const int64_t lost_us = task.node().pace.preemption_us(); lost_us != 0) {
    task.sleep(lost_us);
  }
}

// The node that calls, after other tasks may have had their turn.
inline Node& preempted_node() {
  Task& task = calling_task();
  if (IdleTicks* ticks = task.idle_ticks(); ticks != nullptr) {
    ticks->disturb();
  }
  lose_processor(task);
  return task.node();
}

// The same for a call that belongs to every tick. False when it has been made already, in a tick
// that the simulator began.
inline bool makes_tick_call(Task& task, TickCall call, const void* mutex = nullptr) {
  IdleTicks* ticks = task.idle_ticks();
  const auto progress =
      ticks != nullptr ? ticks->begin_call(call, mutex) : IdleTicks::Progress::kNew;
  if (progress == IdleTicks::Progress::kNew) {
    lose_processor(task);
  }
  return progress != IdleTicks::Progress::kDone;
}

// The same, or null when this call is one that fails.
inline Node* able_node(PlatformCall call) {
  Node& node = preempted_node();
  return node.failures.strike(call) ? nullptr : &node;
}

}  // namespace erps::sim
