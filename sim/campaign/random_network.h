// Rings and ladders drawn from chance.
#pragma once

#include "sim/topology.h"

namespace erps::sim {

// A revertive ring of so many nodes, or a major ring with a sub-ring where they are enough.
Topology random_network(Random& chance, Range nodes);

}  // namespace erps::sim
