#include "lab/json_report.h"

#include <nlohmann/json.hpp>

#include "lab/clock.h"

namespace erps::lab {

namespace {

using nlohmann::json;

json checks_json(const std::vector<Check>& checks) {
  json list = json::array();
  for (const Check& check : checks) {
    list.push_back({{"what", check.what}, {"holds", check.holds}, {"found", check.found}});
  }
  return list;
}

json events_json(const Topology& topology, const StepReport& report, NodeIndex node) {
  json list = json::array();
  for (const NodeEvent& event : report.events[node]) {
    json entry = {{"ms", to_ms(event.mono_ns - report.fault_ns)},
                  {"event", event_name(event.kind)}};
    if (event.port != 0) {
      entry["port"] = event.port;
      if (const auto link = topology.link_at_port(node, event.port)) {
        entry["link"] = topology.links[*link].name;
      }
    }
    if (!event.message.empty()) {
      entry["ring"] = event.ring;
      entry["message"] = event.message;
      entry["node_id"] = event.node_id;
    }
    if (!event.cause.empty()) {
      entry["cause"] = event.cause;
    }
    list.push_back(entry);
  }
  return list;
}

json nodes_json(const Topology& topology, const StepReport& report) {
  json list = json::array();
  for (NodeIndex node = 0; node < report.nodes.size(); ++node) {
    const NodeReport& of_node = report.nodes[node];
    json rings = json::array();
    for (const RingReport& of_ring : of_node.rings) {
      json blocked = json::array();
      for (const PortRef& port : of_ring.blocked) {
        blocked.push_back({{"port", topology.links[port.link].end_at(node).port},
                           {"link", topology.links[port.link].name}});
      }
      rings.push_back({{"ring", topology.rings[of_ring.ring].id},
                       {"state", state_name(of_ring.state)},
                       {"blocked", blocked}});
    }
    json entry = {{"node", topology.nodes[node].name},
                  {"answered", of_node.answered},
                  {"rings", rings},
                  {"events", events_json(topology, report, node)}};
    if (!of_node.problem.empty()) {
      entry["problem"] = of_node.problem;
    }
    list.push_back(entry);
  }
  return list;
}

json traffic_json(const Topology& topology, const StepReport& report) {
  if (!report.traffic) {
    return nullptr;
  }
  json directions = json::array();
  for (size_t i = 0; i < report.traffic->streams.size(); ++i) {
    for (size_t side = 0; side < 2; ++side) {
      const auto& hosts = topology.streams[i].hosts;
      const DirectionResult& direction = report.traffic->streams[i].directions[side];
      directions.push_back({{"from", topology.hosts[hosts[side]].name},
                            {"to", topology.hosts[hosts[1 - side]].name},
                            {"judged", static_cast<bool>(report.stream_judged[i])},
                            {"outage_ms", to_ms(direction.outage_ns)},
                            {"outage_from_ms", to_ms(direction.outage_from_ns - report.fault_ns)},
                            {"still_out", direction.still_out},
                            {"sender_pause_ms", to_ms(direction.sender_pause_ns)},
                            {"sent", direction.sent},
                            {"lost", direction.lost},
                            {"duplicated", direction.duplicates},
                            {"reordered", direction.reordered}});
    }
  }
  return {{"directions", directions},
          {"unsent", report.traffic->unsent},
          {"machine_stall_ms", to_ms(report.traffic->machine_stall_ns)},
          {"receiver_drops", report.traffic->receiver_drops}};
}

}  // namespace

std::string json_report(const Topology& topology, const RunReport& report) {
  json steps = json::array();
  for (const StepReport& step : report.steps) {
    steps.push_back({{"step", step.step ? json(*step.step + 1) : json(0)},
                     {"what", step.text},
                     {"passed", step.passed()},
                     {"undecided", step.undecided},
                     {"repeated", step.repeated},
                     {"settled", step.settled},
                     {"settled_ms", to_ms(step.settled_ns - step.fault_ns)},
                     {"nodes", nodes_json(topology, step)},
                     {"traffic", traffic_json(topology, step)},
                     {"checks", checks_json(step.checks)}});
  }
  const json whole = {{"name", topology.name},
                      {"passed", report.passed()},
                      {"undecided", report.undecided()},
                      {"complete", report.complete},
                      {"steps", steps},
                      {"checks", checks_json(report.end_checks)}};
  return whole.dump(2) + "\n";
}

}  // namespace erps::lab
