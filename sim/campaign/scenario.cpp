#include "sim/campaign/scenario.h"

#include <map>

namespace erps::sim {

namespace {

constexpr std::array<const char*, kFaultKinds> kNames{
    "cut",  "one-way", "silent-one-way", "disturbance",   "crash",        "kill",
    "slow", "stall",   "failing-calls",  "forced-switch", "manual-switch"};

std::string strand_text(const Case& of, const Fault& fault) {
  const auto& ends = of.topology.links[fault.link].ends;
  return of.names.links[fault.link] + " from " + of.names.nodes[ends[fault.end].node] + " to " +
         of.names.nodes[ends[1 - fault.end].node];
}

std::string port_text(const Case& of, const Fault& fault) {
  for (LinkIndex link = 0; link < of.topology.links.size(); ++link) {
    for (const LinkEnd& end : of.topology.links[link].ends) {
      if (end == LinkEnd{fault.node, fault.port}) {
        return of.names.nodes[fault.node] + ":" + of.names.links[link];
      }
    }
  }
  return of.names.nodes[fault.node] + ":port " + std::to_string(fault.port);
}

std::string on_ring(const Fault& fault) {
  return " on ring " + std::to_string(fault.ring);
}

}  // namespace

const char* fault_kind_name(FaultKind kind) {
  return kNames.at(static_cast<size_t>(kind));
}

Names names_of(const Topology& topology) {
  Names names;
  for (const NodePlan& node : topology.nodes) {
    names.nodes.push_back(node.name);
  }
  std::map<std::string, int> taken;
  for (const LinkPlan& link : topology.links) {
    const std::string name = names.nodes[link.ends[0].node] + "-" + names.nodes[link.ends[1].node];
    const int number = ++taken[name];
    names.links.push_back(number == 1 ? name : name + "." + std::to_string(number));
  }
  return names;
}

std::string fault_text(const Case& of, const Fault& fault) {
  switch (fault.kind) {
    case FaultKind::kCut:
      return "cut " + of.names.links[fault.link];
    case FaultKind::kOneWay:
      return "cut " + strand_text(of, fault);
    case FaultKind::kSilentOneWay:
      return "cut " + strand_text(of, fault) + " silently";
    case FaultKind::kDisturbance:
      return "disturb " + of.names.links[fault.link];
    case FaultKind::kCrash:
      return "crash " + of.names.nodes[fault.node];
    case FaultKind::kKill:
      return "kill the module of " + of.names.nodes[fault.node];
    case FaultKind::kSlow:
      return "slow " + of.names.nodes[fault.node] + " down by " + std::to_string(fault.factor);
    case FaultKind::kStall:
      return "stall " + of.names.nodes[fault.node];
    case FaultKind::kFailingCalls:
      return "fail " + fault.call + " at " + of.names.nodes[fault.node] + " " +
             std::to_string(fault.times) + (fault.times == 1 ? " time" : " times");
    case FaultKind::kForcedSwitch:
      return "forced switch at " + port_text(of, fault) + on_ring(fault);
    case FaultKind::kManualSwitch:
      return "manual switch at " + port_text(of, fault) + on_ring(fault);
  }
  return {};
}

std::string fault_end_text(const Case& of, const Fault& fault) {
  switch (fault.kind) {
    case FaultKind::kCut:
      return "restore " + of.names.links[fault.link];
    case FaultKind::kOneWay:
    case FaultKind::kSilentOneWay:
      return "repair " + strand_text(of, fault);
    case FaultKind::kDisturbance:
      return "leave " + of.names.links[fault.link] + " alone";
    case FaultKind::kCrash:
      return "restart " + of.names.nodes[fault.node];
    case FaultKind::kKill:
      return "start the module of " + of.names.nodes[fault.node];
    case FaultKind::kSlow:
    case FaultKind::kStall:
      return "let " + of.names.nodes[fault.node] + " run";
    case FaultKind::kFailingCalls:
      return "fail no more calls at " + of.names.nodes[fault.node];
    case FaultKind::kForcedSwitch:
    case FaultKind::kManualSwitch:
      return "clear at " + of.names.nodes[fault.node] + on_ring(fault);
  }
  return {};
}

}  // namespace erps::sim
