// What must hold between the parts of a topology, and the addresses that follow from them.
#pragma once

#include <vector>

#include "lab/findings.h"
#include "lab/topology.h"

namespace erps::lab {

// Gives every node without an address one, so that the owner of each ring has the lowest node ID of
// its ring: while the ring is pending, a plain node hands over to a lower ID, so the owner's
// neighbours have opened their ports when the owner blocks the RPL.
void assign_addresses(Topology& topology);

// Checks that need the rings alone: addresses, owners, timers, interconnection nodes.
void check_rings(const Topology& topology, Findings& findings);

// Checks of the whole: no loop that no ring protects, every part reachable, streams that have a
// way. Needs a topology without errors.
void check_network(const Topology& topology, Findings& findings);

// A number for each node, the same for nodes that usable links join. `usable` is by LinkIndex.
std::vector<size_t> components(const Topology& topology, const std::vector<bool>& usable);

}  // namespace erps::lab
