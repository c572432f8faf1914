#include "lab/command_run.h"

#include <fcntl.h>
#include <limits.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cstdio>
#include <sstream>
#include <vector>

#include "lab/json_report.h"
#include "lab/lab_error.h"
#include "lab/node_config.h"
#include "lab/runner.h"
#include "lab/sandbox.h"
#include "lab/text_report.h"
#include "lab/topology_file.h"

#ifndef ERPS_INSTALLED_MODULE
#define ERPS_INSTALLED_MODULE ""
#endif

namespace erps::lab {

namespace {

std::string own_directory() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  const std::string text(path, length > 0 ? static_cast<size_t>(length) : 0);
  return text.substr(0, text.rfind('/'));
}

std::string absolute(const std::string& path) {
  char resolved[PATH_MAX];
  return realpath(path.c_str(), resolved) == nullptr ? path : resolved;
}

// The first of the candidates that may be used; `option` is named where there is none.
std::string find_file(const char* what, const std::string& given,
                      const std::vector<std::string>& candidates, int mode, const char* option) {
  if (!given.empty()) {
    if (access(given.c_str(), mode) != 0) {
      throw system_error(given);
    }
    return absolute(given);
  }
  std::string tried;
  for (const std::string& candidate : candidates) {
    if (access(candidate.c_str(), mode) == 0) {
      return absolute(candidate);
    }
    tried += (tried.empty() ? "" : ", ") + candidate;
  }
  throw LabError(std::string(what) + " is not there (looked for " + tried + "); build it, or say " +
                 "where it is with " + option);
}

Programs find_programs(const RunArguments& arguments) {
  const std::string here = own_directory();
  std::vector<std::string> daemons = {here + "/erpsd"};
  const char* path_text = getenv("PATH");
  std::istringstream path(path_text == nullptr ? "" : path_text);
  for (std::string directory; std::getline(path, directory, ':');) {
    daemons.push_back(directory + "/erpsd");
  }
  return {find_file("erpsd", arguments.erpsd, daemons, X_OK, "--erpsd"),
          find_file("liberps.so", arguments.module,
                    {here + "/../lib/liberps.so", ERPS_INSTALLED_MODULE}, R_OK, "--module")};
}

UniqueFd open_directory(const std::string& path) {
  if (path.empty()) {
    return {};
  }
  if (mkdir(path.c_str(), 0755) != 0 && errno != EEXIST) {
    throw system_error(path);
  }
  UniqueFd fd(open(path.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC));
  if (!fd.is_open()) {
    throw system_error(path);
  }
  return fd;
}

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
  return report.passed() ? kHeld : kFailed;
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
    options.programs = find_programs(arguments);
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
