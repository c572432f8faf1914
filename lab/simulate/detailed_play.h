// One scenario in detail: what every node did after every change, as a run on real bridges tells
// it.
//
// Threading: one thread. Errors: SimError when the simulation cannot be set up.
#pragma once

#include "lab/run_report.h"
#include "lab/simulate/watch.h"
#include "sim/campaign/player.h"

namespace erps::lab {

struct DetailedPlay {
  RunReport report;  // a step for the start and for every beginning and end of a fault
  sim::Outcome outcome;
};

// topology: the case's network, for the report.
DetailedPlay play_in_detail(const sim::Case& of, const Topology& topology,
                            const std::string& module, Watch& watch);

// What was found as checks of an end: a violation does not hold.
std::vector<Check> checks_of(const std::vector<sim::Finding>& findings, const Topology& topology);

// "812.345 s"
std::string second_text(int64_t time_us);

}  // namespace erps::lab
