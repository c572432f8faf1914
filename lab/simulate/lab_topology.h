// A drawn network as the laboratory's topology, for reports: the same indices of nodes and links.
#pragma once

#include "lab/topology.h"
#include "sim/campaign/scenario.h"

namespace erps::lab {

Topology to_topology(const sim::Case& of);

}  // namespace erps::lab
