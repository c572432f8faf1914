#include "sim/checks/convergence.h"

#include <algorithm>
#include <set>
#include <vector>

#include "sim/checks/bounds.h"

namespace erps::sim {

namespace {

constexpr uint32_t kIdle = 1;
constexpr uint32_t kAtRpl = 1U | 2U;  // owner and neighbour

struct RingAtNode {
  uint32_t ring = 0;
  std::set<uint32_t> ports;
  std::set<uint32_t> rpl_ports;
};

std::vector<RingAtNode> rings_of(const NodePlan& node) {
  std::vector<RingAtNode> rings;
  for (const RingConfig& ring : node.rings) {
    RingAtNode at{ring.ring, {ring.port0, ring.port1}, {}};
    if ((ring.node_role & kAtRpl) != 0) {
      at.rpl_ports = {ring.port1};
    }
    rings.push_back(at);
  }
  for (const SubRingConfig& ring : node.sub_rings) {
    RingAtNode at{ring.ring, {ring.port}, {}};
    if ((ring.node_role & kAtRpl) != 0) {
      at.rpl_ports = {ring.port};
    }
    rings.push_back(at);
  }
  return rings;
}

std::optional<std::string> why_not_home_at(Simulation& simulation, NodeIndex node) {
  const NodePlan& plan = simulation.topology().nodes[node];
  if (!simulation.configured(node)) {
    return plan.name + " is not running";
  }
  for (const RingAtNode& at : rings_of(plan)) {
    const std::string where = "ring " + std::to_string(at.ring) + " at " + plan.name;
    for (const uint32_t port : at.ports) {
      const bool should_forward = at.rpl_ports.count(port) == 0;
      if (simulation.port_forwards({node, port}) != should_forward) {
        return where + ": port " + std::to_string(port) +
               (should_forward ? " is blocked" : " is at the RPL and forwards");
      }
    }
    const auto status = simulation.ring_status(node, at.ring);
    if (!status || status->state != kIdle) {
      return where + " is " + (status ? state_name(status->state) : "not there");
    }
  }
  return std::nullopt;
}

}  // namespace

std::optional<std::string> why_not_home(Simulation& simulation) {
  for (NodeIndex node = 0; node < simulation.topology().nodes.size(); ++node) {
    if (auto reason = why_not_home_at(simulation, node)) {
      return reason;
    }
  }
  return std::nullopt;
}

std::optional<std::string> run_until_home(Simulation& simulation, int64_t bound_us) {
  const int64_t deadline_us = simulation.now_us() + bound_us;
  for (;;) {
    auto reason = why_not_home(simulation);
    if (!reason || simulation.now_us() >= deadline_us) {
      return reason;
    }
    simulation.run_for(100 * kMillisecondUs);
  }
}

int64_t home_bound_us(const Topology& topology) {
  constexpr int64_t kRepeatUs = 5 * kSecondUs;
  int64_t bound = 0;
  for (const NodePlan& node : topology.nodes) {
    const int64_t guard = node.guard_ms * kMillisecondUs;
    const int64_t wait = std::max<int64_t>(node.wtr_ms * kMillisecondUs, guard + 5 * kSecondUs);
    const int64_t holdoff = node.holdoff_ms * kMillisecondUs;
    bound = std::max(bound, holdoff + kTickUs + guard + kTickUs + wait + kTickUs + kRepeatUs +
                                kTickUs + kSecondUs);
  }
  return bound;
}

}  // namespace erps::sim
