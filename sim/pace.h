// How fast a node's processor is.
//
// Threading: one thread. Errors: none. Logs nothing.
#pragma once

#include <algorithm>
#include <cstdint>

#include "sim/world.h"

namespace erps::sim {

class Pace {
 public:
  explicit Pace(World& world) : world_(world) {}

  // All times of the processor are `factor` times as long; 1 is the usual.
  void set_factor(uint32_t factor) { factor_ = factor; }
  // No task runs before this time.
  void stall_until(int64_t time_us) { stalled_until_us_ = std::max(stalled_until_us_, time_us); }
  void end_stall() { stalled_until_us_ = 0; }
  int64_t stalled_until_us() const { return stalled_until_us_; }

  // From an event to the task that waits for it.
  int64_t wakeup_us() { return factor_ * world_.chance.in(world_.timing.wakeup_us); }
  // By how much a sleep is longer than asked.
  int64_t lateness_us() { return factor_ * world_.chance.in(world_.timing.tick_late_us); }
  // What handling an event takes besides.
  int64_t event_us() {
    const Range range = world_.timing.event_us;
    return range.high > 0 ? factor_ * world_.chance.in(range) : 0;
  }
  // What the call that is being made loses to other tasks, mostly nothing.
  int64_t preemption_us() { return factor_ * world_.preemption_us(); }

 private:
  World& world_;
  int64_t factor_ = 1;
  int64_t stalled_until_us_ = 0;
};

}  // namespace erps::sim
