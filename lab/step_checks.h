// Judges what a step did against what was expected of it.
#pragma once

#include "lab/run_report.h"

namespace erps::lab {

// Whether every daemon that runs says of its rings what the outlook says. A difference, in words,
// is added to `differences` when it is given.
bool rings_are_as_expected(const Topology& topology, const StepOutlook& outlook,
                           const std::vector<NodeReport>& nodes,
                           std::vector<std::string>* differences);

// Whether an outage is above its bound, but would not be without the time in which this machine
// stood still or held the sender up, and nothing else failed: then nobody can tell, and the step
// has to be done again. An outage never passes for that.
bool is_undecided(const StepOutlook& outlook, const StepReport& report);

// Fills in the checks of a report that is otherwise complete.
void judge_step(const Topology& topology, const StepOutlook& outlook, StepReport& report);

}  // namespace erps::lab
