// A network to simulate: plain data.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <cstring>
#include <string>
#include <vector>

#include "sim/random.h"

namespace erps::sim {

using NodeIndex = size_t;
using LinkIndex = size_t;
using MacAddress = std::array<uint8_t, 6>;

// As std::array has it, without a call: rings are compared after every event.
inline bool operator==(const MacAddress& one, const MacAddress& other) {
  const auto number = [](const MacAddress& address) {
    uint64_t value = 0;
    std::memcpy(&value, address.data(), address.size());
    return value;
  };
  return number(one) == number(other);
}

struct LinkEnd {
  NodeIndex node = 0;
  uint32_t port = 0;  // number of the port at this node, from 1

  friend bool operator==(const LinkEnd&, const LinkEnd&) = default;
};

// What a link does to R-APS frames besides carrying them, in a million.
struct RapsFaults {
  uint32_t lost = 0;
  uint32_t duplicated = 0;
  uint32_t overtaken = 0;  // may arrive behind frames sent later
};

struct LinkPlan {
  std::array<LinkEnd, 2> ends;
  Range delay_us{50, 100};
  RapsFaults raps;
};

// What is configured at a node, in the terms of the management interface.
struct RingConfig {
  uint32_t ring = 0;
  uint32_t port0 = 0;
  uint32_t port1 = 0;  // the port at the RPL, if the node has one
  uint32_t control_vlan = 0;
  uint32_t node_role = 4;  // 1 RPL owner, 2 RPL neighbour, 4 neither
  uint32_t ring_role = 0;  // 0 major ring, 1 ring whose R-APS channel is open
  bool revertive = true;
};

struct SubRingConfig {
  uint32_t major_ring = 0;
  uint32_t ring = 0;
  uint32_t port = 0;
  uint32_t node_role = 4;
  uint32_t interconnection_role = 0;  // 1 watches, 0 marks
};

struct NodePlan {
  std::string name;
  MacAddress address{};
  uint32_t guard_ms = 500;
  uint32_t wtr_ms = 300'000;
  uint32_t holdoff_ms = 0;
  std::vector<RingConfig> rings;
  std::vector<SubRingConfig> sub_rings;
};

struct Topology {
  std::vector<NodePlan> nodes;
  std::vector<LinkPlan> links;
};

// A ring of `nodes` nodes: links[i] joins nodes[i], port 2, with its successor, port 1.
struct RingPlan {
  size_t nodes = 4;
  uint32_t ring_role = 0;
  NodeIndex owner = 0;
  bool neighbour = true;
  bool owner_has_lowest_id = true;
  bool revertive = true;
  uint32_t wtr_ms = 5000;
  uint32_t guard_ms = 500;
  uint32_t holdoff_ms = 0;
  Range delay_us{50, 100};
};

// The RPL is the link between the owner and its predecessor.
Topology make_ring(const RingPlan& plan);
LinkIndex rpl_of(const RingPlan& plan);

// A major ring of four nodes, 0 to 3, and a sub-ring of nodes 4 and 5 that hangs between nodes 1
// and 2. Links 0 to 3 are the major ring (0-1, 1-2, 2-3, 3-0, RPL 3-0, owner 0), links 4 to 6 the
// sub-ring (1-4, 4-5, 5-2, RPL 4-5, owner 4).
struct LadderPlan {
  std::array<uint32_t, 2> interconnection_roles{1, 0};  // of nodes 1 and 2
  uint32_t wtr_ms = 5000;
  uint32_t guard_ms = 500;
  Range delay_us{50, 100};
};
Topology make_ladder(const LadderPlan& plan);

}  // namespace erps::sim
