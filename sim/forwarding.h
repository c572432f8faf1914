// What the network does with data frames at one instant.
#pragma once

#include <vector>

#include "sim/topology.h"

namespace erps::sim {

// One direction of a link.
struct Arc {
  LinkIndex link = 0;
  NodeIndex from = 0;
  NodeIndex to = 0;
  bool works = false;     // both nodes have power and the strand carries frames
  bool forwards = false;  // and both ports have a carrier and are forwarding

  bool operator==(const Arc&) const = default;
};

struct Forwarding {
  std::vector<bool> powered;  // by node
  std::vector<Arc> arcs;      // arcs[2 * link] and its opposite, arcs[2 * link + 1]

  bool operator==(const Forwarding&) const = default;
};

}  // namespace erps::sim
