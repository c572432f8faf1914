// From the topology of a file to the network of a simulation: nodes and links keep their indices
// and ports their numbers, and every node is configured as erpsd would configure it.
#pragma once

#include "lab/topology.h"
#include "sim/management.h"
#include "sim/topology.h"

namespace erps::lab {

// Of a topology without errors.
sim::Topology to_simulated(const Topology& topology);

sim::LinkEnd to_link_end(const Topology& topology, const PortRef& port);
// Which of the link's two ends is at the port's node: 0 or 1, as sim::LinkPlan::ends.
size_t end_number(const Topology& topology, const PortRef& port);

// What an operator asks of the node `step.node` for a forced switch, a manual switch or a clear;
// nothing for the other steps.
std::optional<sim::Request> to_request(const Topology& topology, const Step& step);

}  // namespace erps::lab
