#include "lab/step_checks.h"

#include <algorithm>
#include <cstdio>

#include "lab/clock.h"

namespace erps::lab {

namespace {

// Pauses of this machine that are worth a word.
constexpr double kNotablePauseMs = 1;

std::string ms_text(double ms) {
  char text[32];
  std::snprintf(text, sizeof text, "%.*f ms", ms < 100 ? 2 : 0, ms);
  return text;
}

std::string limit_text(double limit) {
  char text[32];
  std::snprintf(text, sizeof text, "%g ms", limit);
  return text;
}

std::string ports_text(const Topology& topology, const std::vector<PortRef>& ports) {
  std::string text;
  for (const PortRef& port : ports) {
    text += (text.empty() ? "" : ", ") + topology.port_text(port);
  }
  return text.empty() ? "no port" : text;
}

std::string direction_text(const Topology& topology, size_t stream, size_t direction) {
  const auto& hosts = topology.streams[stream].hosts;
  return topology.hosts[hosts[direction]].name + " to " + topology.hosts[hosts[1 - direction]].name;
}

void compare_node(const Topology& topology, const StepOutlook& outlook, NodeIndex node,
                  const NodeReport& report, std::vector<std::string>& differences) {
  const std::string& name = topology.nodes[node].name;
  if (!report.answered) {
    differences.push_back(name + ": " + report.problem);
    return;
  }
  for (const RingReport& of_ring : report.rings) {
    const RingOutlook& expected = outlook.rings[of_ring.ring];
    const std::string where =
        name + ", ring " + std::to_string(topology.rings[of_ring.ring].id) + ": ";
    if (expected.state != of_ring.state) {
      differences.push_back(where + state_name(of_ring.state) + " instead of " +
                            (expected.state ? state_name(*expected.state) : "anything"));
    }
    if (!expected.blocked) {
      continue;
    }
    std::vector<PortRef> here;
    for (const PortRef& port : *expected.blocked) {
      if (port.node == node) {
        here.push_back(port);
      }
    }
    std::vector<PortRef> found;
    for (const PortRef& port : of_ring.blocked) {
      if (std::find(expected.either.begin(), expected.either.end(), port) ==
          expected.either.end()) {
        found.push_back(port);
      }
    }
    std::sort(found.begin(), found.end());
    if (found != here) {
      differences.push_back(where + "blocks " + ports_text(topology, found) + " instead of " +
                            ports_text(topology, here));
    }
  }
}

Check check_rings(const Topology& topology, const StepOutlook& outlook, const StepReport& report) {
  Check check{"rings settle as expected", report.settled, {}};
  if (report.settled) {
    check.found = "after " + ms_text(to_ms(report.settled_ns - report.fault_ns));
    return check;
  }
  std::vector<std::string> differences;
  rings_are_as_expected(topology, outlook, report.nodes, &differences);
  for (const std::string& difference : differences) {
    check.found += (check.found.empty() ? "" : "; ") + difference;
  }
  return check;
}

Check check_measurement(const TrafficResult& traffic) {
  Check check{"measurement is sound", traffic.is_sound(), "every frame sent, none dropped here"};
  if (!check.holds) {
    check.found = std::to_string(traffic.unsent) + " frames could not be sent, " +
                  std::to_string(traffic.receiver_drops) +
                  " were dropped behind the network by this machine: it is too busy to measure";
  }
  return check;
}

Check check_outage(const Topology& topology, double limit_ms, const StepReport& report) {
  Check check{"outage at most " + limit_text(limit_ms), true, {}};
  int64_t longest_ns = -1;
  for (size_t stream = 0; stream < report.traffic->streams.size(); ++stream) {
    for (size_t i = 0; report.stream_judged[stream] && i < 2; ++i) {
      const DirectionResult& direction = report.traffic->streams[stream].directions[i];
      if (direction.outage_ns > longest_ns) {
        longest_ns = direction.outage_ns;
        check.holds = to_ms(direction.outage_ns) <= limit_ms && !direction.still_out;
        check.found = ms_text(to_ms(direction.outage_ns)) + " from " +
                      direction_text(topology, stream, i) +
                      (direction.still_out ? ", and still out" : "");
        const int64_t pause_ns =
            std::max(direction.sender_pause_ns, report.traffic->machine_stall_ns);
        if (!check.holds && to_ms(pause_ns) > kNotablePauseMs) {
          check.found += "; this machine itself stood still for " + ms_text(to_ms(pause_ns));
        }
      }
    }
  }
  if (longest_ns < 0) {
    check.found = "no stream has a way before and after this step";
  }
  return check;
}

Check check_count(const char* what, uint64_t limit, uint64_t found) {
  return {std::string(what) + " at most " + std::to_string(limit), found <= limit,
          std::to_string(found)};
}

}  // namespace

bool rings_are_as_expected(const Topology& topology, const StepOutlook& outlook,
                           const std::vector<NodeReport>& nodes,
                           std::vector<std::string>* differences) {
  std::vector<std::string> found;
  for (NodeIndex node = 0; node < nodes.size(); ++node) {
    if (outlook.daemon_runs[node]) {
      compare_node(topology, outlook, node, nodes[node], found);
    }
  }
  if (differences != nullptr) {
    differences->insert(differences->end(), found.begin(), found.end());
  }
  return found.empty();
}

bool is_undecided(const StepOutlook& outlook, const StepReport& report) {
  size_t failed = 0;
  for (const Check& check : report.checks) {
    failed += check.holds ? 0 : 1;
  }
  if (failed != 1 || !outlook.outage_ms || !report.traffic) {
    return false;
  }
  bool above = false;
  for (size_t stream = 0; stream < report.traffic->streams.size(); ++stream) {
    for (size_t i = 0; report.stream_judged[stream] && i < 2; ++i) {
      const DirectionResult& direction = report.traffic->streams[stream].directions[i];
      const int64_t pause_ns =
          std::max(direction.sender_pause_ns, report.traffic->machine_stall_ns);
      above = above || to_ms(direction.outage_ns) > *outlook.outage_ms;
      if (direction.still_out || to_ms(direction.outage_ns - pause_ns) > *outlook.outage_ms) {
        return false;
      }
    }
  }
  return above;
}

void judge_step(const Topology& topology, const StepOutlook& outlook, StepReport& report) {
  report.checks.push_back(check_rings(topology, outlook, report));
  if (!report.traffic || report.traffic->streams.empty()) {
    return;
  }
  report.checks.push_back(check_measurement(*report.traffic));
  if (outlook.outage_ms) {
    report.checks.push_back(check_outage(topology, *outlook.outage_ms, report));
  }
  uint64_t duplicates = 0;
  uint64_t reordered = 0;
  for (const StreamResult& stream : report.traffic->streams) {
    for (const DirectionResult& direction : stream.directions) {
      duplicates += direction.duplicates;
      reordered += direction.reordered;
    }
  }
  if (outlook.duplicates) {
    report.checks.push_back(check_count("duplicated frames", *outlook.duplicates, duplicates));
  }
  if (outlook.reordered) {
    report.checks.push_back(check_count("reordered frames", *outlook.reordered, reordered));
  }
}

std::optional<int64_t> longest_outage_ns(const StepReport& step) {
  std::optional<int64_t> longest;
  if (!step.traffic) {
    return longest;
  }
  for (size_t stream = 0; stream < step.traffic->streams.size(); ++stream) {
    for (const DirectionResult& direction : step.traffic->streams[stream].directions) {
      if (step.stream_judged[stream]) {
        longest = std::max(longest.value_or(0), direction.outage_ns);
      }
    }
  }
  return longest;
}

}  // namespace erps::lab
