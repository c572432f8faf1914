// Reads a topology file. The file is TOML; docs/laboratory.md describes its keys.
#pragma once

#include <string>
#include <string_view>

#include "lab/findings.h"
#include "lab/topology.h"

namespace erps::lab {

struct TopologyFile {
  Topology topology;  // complete and sound only if findings.has_errors() is false
  Findings findings;
};

// Every mistake of the file is in the findings, each with its line; nothing is thrown.
TopologyFile parse_topology(std::string_view text);

// As parse_topology; a file that cannot be read is a finding at line 0.
TopologyFile load_topology(const std::string& path);

}  // namespace erps::lab
