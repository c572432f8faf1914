// What the nodes of a simulation would say of their rings, without asking them.
#pragma once

#include <vector>

#include "lab/ring_control.h"
#include "lab/topology.h"
#include "sim/simulation.h"

namespace erps::lab {

// By NodeIndex. A node without power, or whose module does not run, has not answered.
std::vector<NodeReport> node_states(const Topology& topology, sim::Simulation& simulation);

}  // namespace erps::lab
