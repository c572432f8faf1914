// erpslab explore: every state that a small network can get into.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

namespace erps::lab {

struct ExploreArguments {
  std::string topology;
  uint32_t cuts = 1;
  uint32_t strands = 0;
  uint32_t crashes = 0;
  uint32_t commands = 0;
  std::optional<uint32_t> ticks;
  double minutes = 10;
  double memory_gib = 4;
  std::string scenario;  // file for the way to a violation; empty: named after the topology
  std::string replay;    // file to replay instead; empty: explore
  std::string module;
  bool json = false;
};

// The exit status: 0 all visited and nothing wrong, 1 a violation, 2 mistakes in a file or on the
// command line, 3 not all visited, or not possible.
int command_explore(const ExploreArguments& arguments);

}  // namespace erps::lab
