// What a checker found.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "sim/topology.h"

namespace erps::sim {

struct Finding {
  std::string check;  // "loop", "partition", "home" ...
  int64_t from_us = 0;
  int64_t to_us = 0;
  std::optional<NodeIndex> node;
  std::string text;
  // The name of what the protocol does by itself, when this is that; empty for a violation.
  std::string surprise;

  bool is_violation() const { return surprise.empty(); }
};

}  // namespace erps::sim
