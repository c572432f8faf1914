// What all parts of a simulation share: options, virtual time, chance, the trace and its observers.
//
// Threading: one thread. Errors: report() keeps the first violation, raise_violation() throws it.
#pragma once

#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "sim/observer.h"
#include "sim/options.h"
#include "sim/random.h"
#include "sim/scheduler.h"
#include "sim/sim_error.h"
#include "sim/task.h"
#include "sim/trace.h"

namespace erps::sim {

class World {
 public:
  explicit World(const Options& simulation_options)
      : options(simulation_options),
        timing(options.timing),
        chance(options.seed, 1),
        links_chance(options.seed, 2),
        failures_chance(options.seed, 4),
        failing_per_million(options.failing_calls_per_million),
        preemption_chance_(options.seed, 3) {
    draw_next_preemption();
  }

  const Options options;
  const Timing& timing;
  Scheduler scheduler;
  Random chance;           // of nodes and tasks
  Random links_chance;     // of links
  Random failures_chance;  // of calls that fail
  uint32_t failing_per_million;
  std::vector<Observer*> observers;

  int64_t now_us() const { return scheduler.now_us(); }
  uint64_t trace_hash() const { return hash_.value(); }

  void record(size_t node, RecordKind kind, uint32_t port = 0, uint32_t a = 0, uint32_t b = 0) {
    const Record record{now_us(), static_cast<uint32_t>(node), kind, port, a, b};
    hash_.add(record);
    for (Observer* observer : observers) {
      observer->on_record(record);
    }
  }

  // Until when the simulation is to go on for now.
  void set_horizon(int64_t time_us) { horizon_us_ = time_us; }
  // Lets time pass for the task that is running, if nothing else happens in it. Else nothing
  // happens, and the task has to wait for its alarm.
  bool pass_alone(int64_t delay_us) {
    const int64_t until_us = now_us() + delay_us;
    if (forwarding_touched_ || violation_ || until_us > horizon_us_ ||
        (!scheduler.empty() && scheduler.next_us() <= until_us)) {
      return false;
    }
    scheduler.skip_to(until_us);
    return true;
  }

  // What is forwarded may have changed in this instant.
  void touch_forwarding() { forwarding_touched_ = true; }
  bool take_forwarding_touched() { return std::exchange(forwarding_touched_, false); }

  // The module did what it must not do. Execution goes on until the present task waits.
  void report(const std::string& text);
  void raise_violation() const {
    if (violation_) {
      throw Violation(*violation_);
    }
  }

  // Asked at every intercepted call of the module: for how long the task loses the processor.
  int64_t preemption_us() {
    if (calls_to_preemption_ == 0 || --calls_to_preemption_ != 0) {
      return 0;
    }
    draw_next_preemption();
    return preemption_chance_.in(timing.preempt_us);
  }

 private:
  void draw_next_preemption() {
    if (timing.preempt_one_in != 0) {
      const int64_t mean = timing.preempt_one_in;
      calls_to_preemption_ = static_cast<uint32_t>(preemption_chance_.in({1, 2 * mean - 1}));
    }
  }

  Random preemption_chance_;
  uint32_t calls_to_preemption_ = 0;
  TraceHash hash_;
  bool forwarding_touched_ = true;
  int64_t horizon_us_ = 0;
  std::optional<std::string> violation_;
};

}  // namespace erps::sim
