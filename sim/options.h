// How a simulation runs: its seed, its timing, and the shared object that it loads.
#pragma once

#include <cstdint>
#include <string>

#include "sim/random.h"

namespace erps::sim {

// Every range is drawn from anew each time, inclusive, in microseconds.
struct Timing {
  Range boot_us{0, 20'000};         // from power on to the start of the module
  Range wakeup_us{1, 40};           // from an event to the task that waits for it
  Range tick_late_us{0, 80};        // a sleep lasts this much longer than asked
  Range carrier_down_us{50, 3000};  // from the loss of the signal to its detection
  Range carrier_up_us{200, 5000};   // from its return to its detection
  uint32_t preempt_one_in = 10;     // intercepted calls; 0 never
  Range preempt_us{1, 60};          // time lost by a pre-emption
  Range event_us{0, 0};             // what handling an event takes besides
  Range flush_us{100, 500};         // what a flush takes, where a worker does it
  int64_t address_age_us = 300'000'000;
};

struct Options {
  uint64_t seed = 1;
  std::string module_path;  // liberps.so
  Timing timing;
  // Addresses are forgotten by a worker, behind the openings of the event that asked for it, and
  // also on every port that is blocked; otherwise at once, in the call.
  bool flush_worker = false;
  // Chance of every call to the platform that can fail to do so, in a million. Calls whose failure
  // ends the module fail only when asked by name: Simulation::fail_call().
  uint32_t failing_calls_per_million = 0;
  // Log messages of this level and more serious ones are formatted for the observers; -1 none.
  int log_level = -1;
  // The simulator makes the ticks that find nothing to do (idle_ticks.h); else the module makes
  // them all, with the same trace.
  bool skip_idle_ticks = true;
};

}  // namespace erps::sim
