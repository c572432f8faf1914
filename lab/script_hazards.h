// What a script does that a ring does not repair by itself.
#pragma once

#include "lab/findings.h"
#include "lab/topology.h"

namespace erps::lab {

// Warns of steps that leave a ring split or switched. Needs a topology without errors.
void check_script(const Topology& topology, Findings& findings);

}  // namespace erps::lab
