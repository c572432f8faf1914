#include "lab/simulate/case_player.h"

#include <algorithm>

#include "lab/simulate/scenario_file.h"
#include "sim/campaign/minimiser.h"

namespace erps::lab {

namespace {

constexpr size_t kMostPlays = 400;

class Changes final : public sim::Onlooker {
 public:
  explicit Changes(const sim::Case& of) : case_(of) {}

  void on_settled(sim::Simulation& simulation, const sim::Change& change) override {
    CaseChange came;
    came.at_us = change.at_us;
    came.outage_us = change.outage_us;
    came.still_out = change.still_out;
    came.states = states_text(case_, simulation);
    came.text = "start";
    if (change.fault) {
      const sim::Fault& fault = case_.scenario.faults[*change.fault];
      came.text = change.ends ? fault_end_text(case_, fault) : fault_text(case_, fault);
    }
    changes_.push_back(std::move(came));
  }
  std::vector<CaseChange> take() { return std::move(changes_); }

 private:
  const sim::Case& case_;
  std::vector<CaseChange> changes_;
};

std::string link_of(const sim::Case& of, NodeIndex node, uint32_t port) {
  for (size_t link = 0; link < of.topology.links.size(); ++link) {
    for (const sim::LinkEnd& end : of.topology.links[link].ends) {
      if (end == sim::LinkEnd{node, port}) {
        return of.names.links[link];
      }
    }
  }
  return "port " + std::to_string(port);
}

std::string node_text(const sim::Case& of, sim::Simulation& simulation, NodeIndex node) {
  if (!simulation.powered(node)) {
    return "no power";
  }
  if (!simulation.configured(node)) {
    return "does not run";
  }
  std::string text;
  const auto rings = simulation.records(node).rings();
  for (const sim::RingSnapshot& ring : rings) {
    text += text.empty() ? "" : "; ";
    text += rings.size() > 1 ? "ring " + std::to_string(ring.ring) + " " : "";
    text += sim::state_name(ring.state);
    for (const sim::PortSnapshot& port : ring.ports) {
      text += port.present && !port.forwarding ? ", blocks " + link_of(of, node, port.port) : "";
    }
  }
  return text;
}

}  // namespace

std::string states_text(const sim::Case& of, sim::Simulation& simulation) {
  std::vector<std::pair<std::string, std::string>> groups;  // what is said, by whom
  for (NodeIndex node = 0; node < of.topology.nodes.size(); ++node) {
    const std::string says = node_text(of, simulation, node);
    const auto known = std::find_if(groups.begin(), groups.end(),
                                    [&](const auto& group) { return group.first == says; });
    if (says.empty()) {
      continue;  // a node of no ring
    }
    if (known == groups.end()) {
      groups.emplace_back(says, of.names.nodes[node]);
    } else {
      known->second += " " + of.names.nodes[node];
    }
  }
  std::string text;
  for (const auto& [says, who] : groups) {
    text += text.empty() ? "" : "; ";
    text += who;
    text += ": ";
    text += says;
  }
  return text;
}

CaseResult play_case(const CaseSource& source, uint64_t number, const std::string& module,
                     bool changes) {
  const sim::Case of = source.at(number);
  Changes onlooker(of);
  const sim::Outcome outcome = sim::play(of, module, changes ? &onlooker : nullptr);
  CaseResult result = summarise(number, of, outcome);
  result.changes = onlooker.take();
  return result;
}

SmallestCase smallest_case(const CaseSource& source, uint64_t number, const std::string& module) {
  const sim::Case of = source.at(number);
  const CaseResult whole = summarise(number, of, sim::play(of, module));
  if (whole.clean()) {
    return {};
  }
  const std::string& check = whole.violations.front().check;
  const auto shows = [&](const sim::Case& tried) {
    const auto found = sim::play(tried, module).findings;
    return std::any_of(found.begin(), found.end(), [&](const sim::Finding& finding) {
      return finding.is_violation() && finding.check == check;
    });
  };
  const sim::Case smallest = sim::minimise(of, shows, kMostPlays);
  return {scenario_text(source.plan(), number, smallest), smallest.scenario.faults.size()};
}

}  // namespace erps::lab
