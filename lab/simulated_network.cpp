#include "lab/simulated_network.h"

#include "lab/node_setup.h"

namespace erps::lab {

namespace {

sim::NodePlan to_node_plan(const Topology& topology, NodeIndex node) {
  const NodeSetup setup = node_setup(topology, node);
  sim::NodePlan plan;
  plan.name = topology.nodes[node].name;
  plan.address = topology.nodes[node].address.bytes;
  plan.guard_ms = setup.timers.guard_ms;
  plan.wtr_ms = setup.timers.wtr_ms;
  plan.holdoff_ms = setup.timers.holdoff_ms;
  for (const RingSetup& at : setup.rings) {
    const Ring& ring = topology.rings[at.ring];
    sim::RingConfig config;
    config.ring = ring.id;
    config.port0 = at.port0;
    config.port1 = at.port1;
    config.control_vlan = ring.control_vlan;
    config.node_role = at.node_role;
    config.ring_role = ring.role == RingRole::kMajor ? client::kMajorRing : client::kSubRing;
    config.revertive = ring.revertive;
    plan.rings.push_back(config);
  }
  for (const SubRingSetup& at : setup.sub_rings) {
    const Ring& ring = topology.rings[at.ring];
    plan.sub_rings.push_back({topology.rings[*ring.major_ring].id, ring.id, at.port, at.node_role,
                              at.interconnection_role});
  }
  return plan;
}

}  // namespace

sim::Topology to_simulated(const Topology& topology) {
  sim::Topology simulated;
  for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    simulated.nodes.push_back(to_node_plan(topology, node));
  }
  for (const Link& link : topology.links) {
    sim::LinkPlan plan;
    for (size_t end = 0; end < 2; ++end) {
      plan.ends[end] = {link.ends[end].node, link.ends[end].port};
    }
    plan.delay_us = {link.simulated.delay_us.shortest, link.simulated.delay_us.longest};
    plan.raps = {link.simulated.lost_per_million, link.simulated.duplicated_per_million,
                 link.simulated.overtaken_per_million};
    simulated.links.push_back(plan);
  }
  return simulated;
}

sim::LinkEnd to_link_end(const Topology& topology, const PortRef& port) {
  return {port.node, topology.links[port.link].end_at(port.node).port};
}

size_t end_number(const Topology& topology, const PortRef& port) {
  return topology.links[port.link].ends[0].node == port.node ? 0 : 1;
}

std::optional<sim::Request> to_request(const Topology& topology, const Step& step) {
  if (!is_switch(step.action)) {
    return std::nullopt;
  }
  const uint32_t ring = topology.rings[step.ring].id;
  if (step.action == Action::kClear) {
    return sim::make_request(mgmt::kClear, {ring});
  }
  return sim::make_request(
      step.action == Action::kForcedSwitch ? mgmt::kForcedSwitch : mgmt::kManualSwitch,
      {ring, to_link_end(topology, step.port).port});
}

}  // namespace erps::lab
