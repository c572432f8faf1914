#include "tests/report/story.h"

#include <stdexcept>

#include "lab/simulated_network.h"
#include "lab/topology_file.h"
#include "sim/checks/loop_checker.h"
#include "sim/checks/partition_checker.h"

namespace erps::lab {

namespace {

constexpr uint64_t kSeed = 20;

Topology sound(TopologyFile file) {
  if (file.findings.has_errors()) {
    throw std::runtime_error("the topology has mistakes");
  }
  return std::move(file.topology);
}

LinkIndex link_named(const Topology& topology, const std::string& name) {
  return topology.find_link(name).value();
}

Act request(const Topology& topology, Action action, NodeIndex node, LinkIndex link,
            int64_t after_us) {
  Step step;
  step.action = action;
  step.node = node;
  step.port = {node, link};
  step.ring = topology.rings_at(node).front();
  const sim::Request wanted = to_request(topology, step).value();
  return {topology.step_text(step), after_us,
          [node, wanted](sim::Simulation& simulation) { simulation.ask(node, wanted); }};
}

}  // namespace

ReportInput Story::input() const {
  return {topology, recorder, faults,
          findings, kSeed,    "erpslab simulate ring.toml --seed " + std::to_string(kSeed),
          end_us};
}

Topology example(const std::string& file) {
  return sound(load_topology(std::string(ERPS_EXAMPLES) + "/" + file));
}

Topology ring_of(size_t nodes) {
  std::string text = "name = \"ring of " + std::to_string(nodes) + " nodes\"\n";
  std::string names;
  const auto name = [](size_t node) { return "n" + std::to_string(node + 1); };
  for (size_t node = 0; node < nodes; ++node) {
    text += "[[node]]\nname = \"" + name(node) + "\"\n";
    names += "\"" + name(node) + "\", ";
  }
  for (size_t node = 0; node < nodes; ++node) {
    text += "[[link]]\nbetween = [\"" + name(node) + "\", \"" + name((node + 1) % nodes) + "\"]\n";
  }
  text += "[[ring]]\nid = 1\ncontrol_vlan = 100\nowner = \"n1\"\nwtr_ms = 5000\nrpl = \"" +
          name(nodes - 1) + "-n1\"\nnodes = [" + names + "]\n";
  return sound(parse_topology(text));
}

Story tell(const Topology& topology, const std::vector<Act>& acts, int64_t rest_us,
           const RecorderLimits& limits) {
  Story story{topology, Recorder(topology, limits), {}, {}, 0};
  sim::PartitionChecker partitions;
  sim::LoopChecker loops;
  sim::Options options;
  options.seed = kSeed;
  options.module_path = ERPS_MODULE;
  sim::Simulation simulation(to_simulated(topology), options);
  simulation.observe(story.recorder);
  simulation.observe(partitions);
  simulation.observe(loops);
  const auto end_act = [&] {
    if (!story.faults.empty()) {
      story.faults.back().outage_us =
          partitions.partitions().longest_us(story.faults.back().at_us, simulation.now_us());
    }
  };
  for (const Act& act : acts) {
    simulation.run_for(act.after_us);
    end_act();
    story.faults.push_back({act.text, simulation.now_us(), std::nullopt, true, ""});
    act.does(simulation);
  }
  simulation.run_for(rest_us);
  end_act();
  story.end_us = simulation.now_us();
  for (const sim::Spell& loop : loops.loops().until(story.end_us)) {
    story.findings.push_back({"loop", loop.from_us, loop.to_us, std::nullopt, "a loop", ""});
  }
  return story;
}

Act cut(const Topology& topology, const std::string& link, int64_t after_us) {
  const LinkIndex index = link_named(topology, link);
  return {"cut " + link, after_us, [index](sim::Simulation& simulation) { simulation.cut(index); }};
}

Act restore(const Topology& topology, const std::string& link, int64_t after_us) {
  const LinkIndex index = link_named(topology, link);
  return {"restore " + link, after_us,
          [index](sim::Simulation& simulation) { simulation.restore(index); }};
}

Act crash(const Topology& topology, const std::string& node, int64_t after_us) {
  const NodeIndex index = topology.find_node(node).value();
  return {"crash " + node, after_us,
          [index](sim::Simulation& simulation) { simulation.crash(index); }};
}

Act power_on(const Topology& topology, const std::string& node, int64_t after_us) {
  const NodeIndex index = topology.find_node(node).value();
  return {"power on " + node, after_us,
          [index](sim::Simulation& simulation) { simulation.restart(index); }};
}

Act forced_switch(const Topology& topology, const std::string& node, const std::string& link,
                  int64_t after_us) {
  return request(topology, Action::kForcedSwitch, topology.find_node(node).value(),
                 link_named(topology, link), after_us);
}

Act manual_switch(const Topology& topology, const std::string& node, const std::string& link,
                  int64_t after_us) {
  return request(topology, Action::kManualSwitch, topology.find_node(node).value(),
                 link_named(topology, link), after_us);
}

Act clear(const Topology& topology, const std::string& node, int64_t after_us) {
  return request(topology, Action::kClear, topology.find_node(node).value(), 0, after_us);
}

}  // namespace erps::lab
