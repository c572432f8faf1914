#include "lab/check/command_check.h"

#include <cstdio>

#include "lab/check/daemon_checks.h"
#include "lab/check/verdict.h"
#include "lab/topology_file.h"

namespace erps::lab {

namespace {

CheckResult check_topology(const std::string& path) {
  TopologyFile file = load_topology(path);
  CheckResult result{path, {}, {path}, std::move(file.findings)};
  if (!result.findings.has_errors()) {
    result.extent = count_text(file.topology.nodes.size(), "node") + ", " +
                    count_text(file.topology.links.size(), "link") + ", " +
                    count_text(file.topology.rings.size(), "ring");
  }
  return result;
}

CheckResult check_daemon_files(const std::vector<std::string>& arguments) {
  CheckResult result;
  result.files = daemon_paths(arguments, result.findings);
  const auto files = read_daemon_files(result.files, result.findings);
  const Rings rings = rings_of(files);
  check_daemons(files, rings, result.findings);
  result.subject =
      result.files.size() == 1 ? result.files.front() : count_text(result.files.size(), "file");
  result.extent = count_text(rings.size(), "ring");
  return result;
}

}  // namespace

int command_check(const CheckArguments& arguments) {
  if (arguments.topology.empty() == arguments.daemon.empty()) {
    std::fputs("erpslab: check takes a topology file, or --daemon and configuration files\n",
               stderr);
    return static_cast<int>(Verdict::kUnknown);
  }
  const CheckResult result = arguments.daemon.empty() ? check_topology(arguments.topology)
                                                      : check_daemon_files(arguments.daemon);
  std::fputs((arguments.json ? json_of(result) : text_of(result)).c_str(), stdout);
  return static_cast<int>(verdict_of(result.findings));
}

}  // namespace erps::lab
