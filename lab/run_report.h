// What a run found: the data that is printed as text or as JSON.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "lab/journal.h"
#include "lab/ring_control.h"
#include "lab/script_outlook.h"
#include "lab/topology.h"
#include "lab/traffic.h"

namespace erps::lab {

// One expectation and whether it held.
struct Check {
  std::string what;  // "outage at most 50 ms"
  bool holds = false;
  std::string found;  // "3.2 ms from h1 to h2"
};

struct StepReport {
  std::string text;            // "start", or what the step does
  std::optional<size_t> step;  // index in the topology; empty for the start
  int64_t fault_ns = 0;        // CLOCK_MONOTONIC just before the fault
  size_t repeated = 0;         // how often it was undone and done again, see is_undecided
  bool undecided = false;      // ... and nobody can tell all the same
  bool settled = false;
  int64_t settled_ns = 0;         // when the rings were seen to be as expected, or given up
  std::vector<NodeReport> nodes;  // as asked last, by NodeIndex
  std::vector<std::vector<NodeEvent>> events;  // by NodeIndex, from the fault on
  std::optional<TrafficResult> traffic;        // empty while no traffic flows
  std::vector<bool> stream_judged;
  std::vector<Check> checks;

  bool passed() const;
  bool failed() const { return !passed() && !undecided; }
};

struct RunReport {
  std::vector<StepReport> steps;
  std::vector<Check> end_checks;  // what is judged when everything is over
  bool complete = false;          // every step was done

  bool passed() const;
  // Nothing failed, but of some step nobody can tell.
  bool undecided() const;
};

inline bool all_hold(const std::vector<Check>& checks) {
  for (const Check& check : checks) {
    if (!check.holds) {
      return false;
    }
  }
  return true;
}

inline bool StepReport::passed() const {
  return all_hold(checks);
}

inline bool RunReport::passed() const {
  bool good = complete && all_hold(end_checks);
  for (const StepReport& step : steps) {
    good = good && step.passed();
  }
  return good;
}

inline bool RunReport::undecided() const {
  bool good = complete && all_hold(end_checks);
  for (const StepReport& step : steps) {
    good = good && !step.failed();
  }
  return good && !passed();
}

// The longest outage of the judged streams; empty when none is judged.
std::optional<int64_t> longest_outage_ns(const StepReport& step);

}  // namespace erps::lab
