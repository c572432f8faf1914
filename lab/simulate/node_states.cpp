#include "lab/simulate/node_states.h"

namespace erps::lab {

namespace {

NodeReport state_of(const Topology& topology, sim::Simulation& simulation, NodeIndex node) {
  NodeReport report;
  const auto rings = topology.rings_at(node);
  if (rings.empty()) {
    return report;
  }
  if (!simulation.powered(node) || !simulation.configured(node)) {
    report.problem = simulation.powered(node) ? "its module does not run" : "has no power";
    return report;
  }
  const auto snapshots = simulation.records(node).rings();
  for (const RingIndex ring : rings) {
    for (const sim::RingSnapshot& snapshot : snapshots) {
      if (snapshot.ring != topology.rings[ring].id) {
        continue;
      }
      RingReport of_ring{ring, static_cast<NodeState>(snapshot.state), {}};
      for (const sim::PortSnapshot& port : snapshot.ports) {
        const auto link = topology.link_at_port(node, port.port);
        if (port.present && !port.forwarding && link) {
          of_ring.blocked.push_back({node, *link});
        }
      }
      report.rings.push_back(std::move(of_ring));
    }
  }
  report.answered = report.rings.size() == rings.size();
  if (!report.answered) {
    report.problem = "does not know all of its rings";
  }
  return report;
}

}  // namespace

std::vector<NodeReport> node_states(const Topology& topology, sim::Simulation& simulation) {
  std::vector<NodeReport> reports;
  for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    reports.push_back(state_of(topology, simulation, node));
  }
  return reports;
}

}  // namespace erps::lab
