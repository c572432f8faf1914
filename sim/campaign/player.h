// Plays a case: one simulation under all checkers, from power on until the network is home again.
//
// Whatever a fault took away is given back when the faults are over, so any part of a scenario's
// faults is a scenario that can be played.
//
// Threading: that of the simulation. Errors: SimError for a case that cannot be set up; what the
// module did wrong is a finding.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "sim/campaign/scenario.h"
#include "sim/checks/finding.h"
#include "sim/simulation.h"

namespace erps::sim {

// The start, or the beginning or end of a fault.
struct Change {
  std::optional<size_t> fault;  // index in the scenario; nothing for the start
  bool ends = false;
  int64_t at_us = 0;
  // Until the next change: the longest time for which two nodes that working links join could not
  // reach each other.
  int64_t outage_us = 0;
  bool still_out = false;  // and still cannot at the end
};

struct Messages {
  uint64_t sent = 0;
  uint64_t received = 0;
  uint64_t lost = 0;
};

struct Outcome {
  int64_t simulated_us = 0;
  std::vector<Change> changes;  // by time
  std::vector<Finding> findings;
  Messages messages;
  // From the end of all faults until every ring was home; nothing if they did not get there.
  std::optional<int64_t> home_after_us;
  int64_t home_bound_us = 0;
  uint64_t trace_hash = 0;

  bool clean() const;
};

// Who looks over the player's shoulder.
class Onlooker {
 public:
  virtual ~Onlooker() = default;
  // Before anything runs: observers can be added.
  virtual void on_begin(Simulation& /*simulation*/) {}
  // Just before the next change, or when all is over: what came of this one.
  virtual void on_settled(Simulation& /*simulation*/, const Change& /*change*/) {}
};

Outcome play(const Case& of, const std::string& module_path, Onlooker* onlooker = nullptr);

}  // namespace erps::sim
