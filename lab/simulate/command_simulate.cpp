#include "lab/simulate/command_simulate.h"

#include <sched.h>
#include <stdlib.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <random>

#include "lab/command_run.h"
#include "lab/lab_error.h"
#include "lab/programs.h"
#include "lab/simulate/case_source.h"
#include "lab/simulate/simulate_campaign.h"
#include "lab/simulate/simulate_single.h"
#include "lab/topology_file.h"

namespace erps::lab {

namespace {

int mistaken(const std::string& what) {
  std::fprintf(stderr, "erpslab: %s\n", what.c_str());
  return kMistaken;
}

// "2-16" or "4".
std::optional<sim::Range> parse_rings(const std::string& text) {
  sim::Range range;
  const char* end = text.data() + text.size();
  auto parsed = std::from_chars(text.data(), end, range.low);
  range.high = range.low;
  if (parsed.ec == std::errc() && parsed.ptr != end && *parsed.ptr == '-') {
    parsed = std::from_chars(parsed.ptr + 1, end, range.high);
  }
  const bool good = parsed.ec == std::errc() && parsed.ptr == end && range.low >= 2 &&
                    range.high <= 255 && range.low <= range.high;
  return good ? std::optional(range) : std::nullopt;
}

// What does not go together on the command line, or an empty text.
std::string mistake_in(const SimulateArguments& arguments) {
  const bool counted = arguments.every_link || arguments.every_node || arguments.exhaustive;
  const bool random = !arguments.faults.empty();
  if (arguments.topology.empty() && arguments.rings.empty() && arguments.scenario.empty()) {
    return "there is nothing to simulate: name a topology file, or draw rings with --rings 2-16 "
           "--faults random";
  }
  if (!arguments.rings.empty()) {
    if (!arguments.topology.empty()) {
      return "--rings draws networks; it does not go together with a topology file";
    }
    if (!random) {
      return "--rings needs --faults random";
    }
    if (!parse_rings(arguments.rings)) {
      return "--rings " + arguments.rings + ": allowed: 2 to 255 nodes, as in 2-16";
    }
  }
  if (counted && random) {
    return "--faults random does not go together with --every-link, --every-node, --exhaustive";
  }
  if (arguments.fault_every_s && !random) {
    return "--fault-every needs --faults random";
  }
  if (!arguments.scenario.empty() && (counted || random || arguments.only)) {
    return "--scenario is all that is played; it does not go together with other faults";
  }
  if (arguments.seed && *arguments.seed > INT64_MAX) {
    return "--seed " + std::to_string(*arguments.seed) + ": allowed: 0 to 9223372036854775807";
  }
  return {};
}

// What needs a single simulation, asked of many.
std::string mistake_in_campaign(const SimulateArguments& arguments) {
  const char* option = !arguments.pcap.empty() ? "--pcap" : arguments.log ? "--log" : nullptr;
  return option == nullptr
             ? ""
             : std::string(option) + " is for one simulation: name it with --only or --scenario";
}

uint64_t drawn_seed() {
  return std::random_device()();  // short enough to be typed
}

uint64_t processors() {
  cpu_set_t set;
  return sched_getaffinity(0, sizeof set, &set) == 0 ? static_cast<uint64_t>(CPU_COUNT(&set)) : 1;
}

int run(const SimulateArguments& arguments, const Topology* topology) {
  CasePlan plan;
  plan.topology = topology;
  plan.topology_path = arguments.topology;
  plan.module_path = arguments.module;
  plan.ring_nodes = parse_rings(arguments.rings).value_or(sim::Range{2, 16});
  plan.random = !arguments.faults.empty();
  plan.hours = arguments.hours;
  plan.fault_every_s = arguments.fault_every_s;
  plan.seed = arguments.seed.value_or(drawn_seed());
  plan.every = {arguments.every_link, arguments.every_node, arguments.exhaustive};

  SimulateContext context{arguments, find_module(arguments.module), plan.seed};
  if (!arguments.scenario.empty()) {
    return simulate_scenario_file(context, topology);
  }
  const bool counted = plan.every.links || plan.every.nodes || plan.every.pairs;
  if (!plan.random && !counted && !topology->steps.empty()) {
    return simulate_steps(context, *topology);
  }
  plan.every.links = plan.every.links || (!plan.random && !counted);
  if (!arguments.only) {
    const std::string mistake = mistake_in_campaign(arguments);
    if (!mistake.empty()) {
      return mistaken(mistake);
    }
    return simulate_campaign(context, CaseSource(plan),
                             arguments.jobs == 0 ? processors() : arguments.jobs);
  }
  // The number says which; how many hours there are to be does not matter.
  plan.hours = 0;
  const CaseSource source(plan);
  if (!plan.random && *arguments.only >= source.count()) {
    return mistaken("--only " + std::to_string(*arguments.only) + ": there are " +
                    std::to_string(source.count()) + " scenarios, from 0 on");
  }
  return simulate_one(context, source, *arguments.only);
}

}  // namespace

int command_simulate(const SimulateArguments& arguments) {
  const std::string mistake = mistake_in(arguments);
  if (!mistake.empty()) {
    return mistaken(mistake);
  }
  try {
    if (arguments.topology.empty()) {
      return run(arguments, nullptr);
    }
    const TopologyFile file = load_topology(arguments.topology);
    std::fputs(to_text(file.findings, arguments.topology).c_str(), stderr);
    return file.findings.has_errors() ? kMistaken : run(arguments, &file.topology);
  } catch (const std::exception& error) {
    std::fprintf(stderr, "erpslab: %s\n", error.what());
    return kCouldNotRun;
  }
}

}  // namespace erps::lab
