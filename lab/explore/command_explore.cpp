#include "lab/explore/command_explore.h"

#include <unistd.h>

#include <atomic>
#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>

#include "lab/command_run.h"
#include "lab/explore/explore_report.h"
#include "lab/lab_error.h"
#include "lab/programs.h"
#include "lab/simulated_network.h"
#include "lab/topology_file.h"
#include "sim/explore/scenario.h"
#include "sim/sim_error.h"

namespace erps::lab {

namespace {

namespace explore = sim::explore;

std::atomic<bool> stopped = false;
static_assert(std::atomic<bool>::is_always_lock_free);

void stop_on_signals() {
  struct sigaction action {};
  action.sa_handler = [](int) { stopped = true; };
  action.sa_flags = static_cast<int>(SA_RESETHAND);  // a second one ends the process
  sigaction(SIGINT, &action, nullptr);
  sigaction(SIGTERM, &action, nullptr);
}

// What is wrong with the numbers on the command line, or an empty text.
std::string mistake_in(const ExploreArguments& arguments) {
  const auto fault = [](const char* option, uint32_t value) {
    return std::string(option) + " " + std::to_string(value) + ": 0 to " +
           std::to_string(explore::kMostFaults) + " are possible";
  };
  for (const auto& [option, value] : {std::pair{"--cuts", arguments.cuts},
                                      {"--strands", arguments.strands},
                                      {"--crashes", arguments.crashes},
                                      {"--commands", arguments.commands}}) {
    if (value > explore::kMostFaults) {
      return fault(option, value);
    }
  }
  constexpr uint32_t kMostTicks = 2000;
  if (arguments.ticks && (*arguments.ticks == 0 || *arguments.ticks > kMostTicks)) {
    return "--ticks " + std::to_string(*arguments.ticks) + ": 1 to 2000 are possible";
  }
  if (!(arguments.minutes > 0) || !std::isfinite(arguments.minutes)) {
    return "--minutes: more than 0";
  }
  constexpr double kMostGib = 1024;
  if (!(arguments.memory_gib > 0) || arguments.memory_gib > kMostGib) {
    return "--memory: more than 0 and up to 1024 GiB";
  }
  return {};
}

explore::Budget budget_of(const ExploreArguments& arguments) {
  explore::Budget budget;
  budget.cuts = arguments.cuts;
  budget.strand_failures = arguments.strands;
  budget.crashes = arguments.crashes;
  budget.commands = arguments.commands;
  budget.ticks = arguments.ticks;
  return budget;
}

std::string scenario_file_of(const ExploreArguments& arguments) {
  return arguments.scenario.empty()
             ? std::filesystem::path(arguments.topology).stem().string() + ".scenario"
             : arguments.scenario;
}

void write_file(const std::string& path, const std::string& text) {
  std::ofstream file(path, std::ios::binary | std::ios::trunc);
  if (!(file << text).flush()) {
    throw system_error("cannot write " + path);
  }
}

int run(const Topology& topology, const ExploreArguments& arguments) {
  explore::Model model(to_simulated(topology), find_module(arguments.module), budget_of(arguments));
  if (!arguments.json) {
    std::printf("%s: %zu nodes, %zu links; %s\n", arguments.topology.c_str(), topology.nodes.size(),
                topology.links.size(), budget_text(model.budget()).c_str());
    std::fflush(stdout);
  }
  explore::Limits limits;
  limits.seconds = arguments.minutes * 60;
  limits.memory_bytes = static_cast<size_t>(arguments.memory_gib * (size_t{1} << 30U));
  limits.stop = &stopped;
  const bool shows_progress = isatty(STDERR_FILENO) == 1;
  if (shows_progress) {
    limits.progress = [](const explore::Report& report) {
      std::fprintf(stderr, "\r\033[K%s", progress_text(report).c_str());
    };
  }
  explore::Explorer explorer(model, limits);
  const explore::Report& report = explorer.run();
  if (shows_progress) {
    std::fputs("\r\033[K", stderr);
  }
  const std::string scenario_file = scenario_file_of(arguments);
  if (report.violation) {
    write_file(scenario_file, scenario_text(model, arguments, *report.violation, scenario_file));
  }
  std::fputs((arguments.json ? explore_json(model, arguments, report)
                             : explore_text(report, scenario_file))
                 .c_str(),
             stdout);
  if (report.violation) {
    return kFailed;
  }
  return report.ending == explore::Ending::kExhausted ? kHeld : kCouldNotRun;
}

int replay(const Topology& topology, const ExploreArguments& arguments) {
  std::ifstream file(arguments.replay, std::ios::binary);
  if (!file) {
    std::fprintf(stderr, "erpslab: cannot read %s\n", arguments.replay.c_str());
    return kMistaken;
  }
  const std::string text((std::istreambuf_iterator<char>(file)), {});
  const sim::Topology network = to_simulated(topology);
  explore::Trouble way;
  try {
    way = explore::parse_scenario(text, network);
  } catch (const sim::SimError& error) {
    std::fprintf(stderr, "%s: %s\n", arguments.replay.c_str(), error.what());
    return kMistaken;
  }
  explore::Model model(network, find_module(arguments.module), explore::replay_budget());
  std::string trouble;
  try {
    trouble = explore::replay(model, way, [&](const explore::ReplayStep& step) {
      if (way.repeats_from == step.number - 1) {
        std::puts("  from here on again and again:");
      }
      std::fputs(replay_step_text(step).c_str(), stdout);
    });
  } catch (const sim::SimError& error) {
    std::fflush(stdout);
    std::fprintf(stderr, "%s: %s\n", arguments.replay.c_str(), error.what());
    return kMistaken;
  }
  std::printf("%s\n", trouble.empty() ? "nothing is wrong at the end" : trouble.c_str());
  return trouble.empty() ? kHeld : kFailed;
}

}  // namespace

int command_explore(const ExploreArguments& arguments) {
  const TopologyFile file = load_topology(arguments.topology);
  std::fputs(to_text(file.findings, arguments.topology).c_str(), stderr);
  if (file.findings.has_errors()) {
    return kMistaken;
  }
  if (const std::string mistake = mistake_in(arguments); !mistake.empty()) {
    std::fprintf(stderr, "erpslab: %s\n", mistake.c_str());
    return kMistaken;
  }
  stop_on_signals();
  return arguments.replay.empty() ? run(file.topology, arguments)
                                  : replay(file.topology, arguments);
}

}  // namespace erps::lab
