// Runs the script of a topology file in a simulation, step by step, with the expectations of a run
// on real bridges: what the rings should settle to, and what the traffic may notice.
//
// Threading: one thread. Errors: LabError when a step cannot be done, such as a command that the
// module refuses; SimError when the simulation cannot be set up. What the module does wrong is in
// the report.
#pragma once

#include <functional>
#include <vector>

#include "lab/run_report.h"
#include "lab/simulate/watch.h"
#include "sim/checks/finding.h"

namespace erps::lab {

struct SimulatedRun {
  RunReport report;
  std::vector<sim::Finding> findings;
  int64_t end_us = 0;
};

// `step_done` is called after the start and after every step.
SimulatedRun simulate_script(const Topology& topology, const sim::Options& options, bool keep_going,
                             Watch& watch, const std::function<void(const StepReport&)>& step_done);

}  // namespace erps::lab
