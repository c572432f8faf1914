// Topology files of the laboratory, with any text in them. What is refused says why; what is
// accepted gives every node a configuration that the daemon accepts.
#include <string>
#include <string_view>

#include "host/config.h"
#include "lab/node_config.h"
#include "lab/topology_file.h"
#include "tests/fuzz/fail.h"
#include "tests/fuzz/memory_file.h"

extern "C" int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size);

namespace erps::fuzz {
namespace {

void check_accepted(const lab::Topology& topology) {
  static const MemoryFile file;
  for (lab::NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    const std::string text = lab::node_config(topology, node);
    if (text.empty()) {
      continue;
    }
    file.write(text);
    try {
      host::read_config(file.path());
    } catch (const host::ConfigError& error) {
      fail("the daemon refuses the configuration of an accepted topology: " +
           error.mistakes().front() + "\n" + text);
    }
  }
}

}  // namespace
}  // namespace erps::fuzz

int LLVMFuzzerTestOneInput(const uint8_t* data, size_t size) {
  using erps::fuzz::require;
  const std::string_view text(reinterpret_cast<const char*>(data), size);
  const erps::lab::TopologyFile file = erps::lab::parse_topology(text);
  for (const erps::lab::Finding& finding : file.findings.list()) {
    require(!finding.text.empty(), "a finding without a text");
  }
  require(!erps::lab::to_text(file.findings, "input").empty() || file.findings.list().empty(),
          "findings that nobody gets to see");
  if (!file.findings.has_errors()) {
    erps::fuzz::check_accepted(file.topology);
  }
  return 0;
}
