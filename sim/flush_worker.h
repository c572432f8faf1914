// Forgets learnt addresses in the background, as a host does whose kernel takes its time for it.
//
// What an event asks for starts when the event is finished, after its openings; asked again before
// it started, a port is flushed once. A worker that ends leaves undone what was not done.
//
// Threading: one thread. Errors: none; a flush is in the trace when it is done.
#pragma once

#include <cstdint>
#include <vector>

#include "sim/learning_switch.h"
#include "sim/world.h"

namespace erps::sim {

class FlushWorker final : public Alarm {
 public:
  FlushWorker(World& world, LearningSwitch& fabric) : world_(world), fabric_(fabric) {}

  void ask(uint32_t port) { asked_.push_back(port); }
  // Starts what was asked for.
  void kick();
  void end();

 private:
  void on_alarm(uint64_t token) override;

  World& world_;
  LearningSwitch& fabric_;
  std::vector<uint32_t> asked_;    // of the event that is being handled
  std::vector<uint32_t> started_;  // the first of them is under way, if any
  uint64_t life_ = 0;              // tells alarms of an earlier worker
};

}  // namespace erps::sim
