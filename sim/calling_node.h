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

// The same, after other tasks may have had their turn.
inline Node& preempted_node() {
  Task& task = calling_task();
  if (const int64_t lost_us = task.node().pace.preemption_us(); lost_us != 0) {
    task.sleep(lost_us);
  }
  return task.node();
}

// The same, or null when this call is one that fails.
inline Node* able_node(PlatformCall call) {
  Node& node = preempted_node();
  return node.failures.strike(call) ? nullptr : &node;
}

}  // namespace erps::sim
