#include "lab/command_run.h"

#include <stdlib.h>
#include <unistd.h>

#include <cstdio>

#include "lab/json_report.h"
#include "lab/lab_error.h"
#include "lab/node_config.h"
#include "lab/programs.h"
#include "lab/runner.h"
#include "lab/sandbox.h"
#include "lab/text_report.h"
#include "lab/topology_file.h"

namespace erps::lab {

namespace {

void print(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

// Shows what is known so far, then waits for the signal that ends process 1 and all else.
[[noreturn]] void hold(const std::string& report, const std::string& node) {
  print(report);
  std::fprintf(stderr,
               "erpslab: the network runs until Ctrl-C; look into it with erpslab exec %s "
               "COMMAND\n",
               node.c_str());
  for (;;) {
    pause();
  }
}

int run_inside(const Topology& topology, RunOptions options, const RunArguments& arguments) {
  const bool json = arguments.json;
  const TextReport text(topology,
                        !json && isatty(STDOUT_FILENO) == 1 && getenv("NO_COLOR") == nullptr);
  if (!json) {
    print(text.heading());
  }
  const auto whole = [&](const RunReport& report) {
    return json ? json_report(topology, report) : text.summary(report);
  };
  if (arguments.hold) {
    options.hold = [&](const RunReport& report) {
      hold(whole(report), topology.nodes.front().name);
    };
  }
  Runner runner(topology, options);
  const RunReport report = runner.run([&](const StepReport& step) {
    if (!json) {
      print(text.step(step));
    }
  });
  print(whole(report));
  return report.passed() ? kHeld : report.undecided() ? kUndecided : kFailed;
}

}  // namespace

int command_run(const RunArguments& arguments) {
  const TopologyFile file = load_topology(arguments.topology);
  std::fputs(to_text(file.findings, arguments.topology).c_str(), stderr);
  if (file.findings.has_errors()) {
    return kMistaken;
  }
  try {
    RunOptions options;
    options.programs = {find_daemon(arguments.erpsd), find_module(arguments.module)};
    options.keep_going = arguments.keep_going;

    // Opened out here: inside, the path may lead elsewhere.
    const UniqueFd captures = open_directory(arguments.pcap);
    const UniqueFd logs = open_directory(arguments.logs);
    options.capture_directory = captures.get();
    options.log_directory = logs.get();
    return run_in_sandbox([&] { return run_inside(file.topology, options, arguments); },
                          {options.programs.erpsd, options.programs.module});
  } catch (const LabError& error) {
    std::fprintf(stderr, "erpslab: %s\n", error.what());
    return kCouldNotRun;
  }
}

int command_config(const std::string& topology, const std::string& node) {
  const TopologyFile file = load_topology(topology);
  std::fputs(to_text(file.findings, topology).c_str(), stderr);
  if (file.findings.has_errors()) {
    return kMistaken;
  }
  const auto index = file.topology.find_node(node);
  if (!index) {
    std::string names;
    for (const Node& known : file.topology.nodes) {
      names += (names.empty() ? "" : ", ") + known.name;
    }
    std::fprintf(stderr, "erpslab: no node is named %s; allowed: %s\n", node.c_str(),
                 names.c_str());
    return kMistaken;
  }
  const std::string config = node_config(file.topology, *index);
  if (config.empty()) {
    std::fprintf(stderr, "erpslab: %s is part of no ring and runs no daemon\n", node.c_str());
    return kMistaken;
  }
  print(config);
  return kHeld;
}

}  // namespace erps::lab
