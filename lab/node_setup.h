// What each node has to be told about its rings: the one place that erpsd's configuration and the
// simulated network both follow from.
#pragma once

#include <optional>
#include <vector>

#include "client/words.h"
#include "lab/topology.h"

namespace erps::lab {

// A ring that a node is part of with two ports.
struct RingSetup {
  RingIndex ring = 0;
  uint32_t port0 = 0;
  uint32_t port1 = 0;  // the one at the RPL, where the node is owner or neighbour
  client::NodeRole node_role = client::kNoRplRole;

  bool at_rpl() const { return node_role != client::kNoRplRole; }
};

// A sub-ring that ends at a node.
struct SubRingSetup {
  RingIndex ring = 0;
  uint32_t port = 0;
  client::NodeRole node_role = client::kNoRplRole;
  client::InterconnectionRole interconnection_role = client::kMarking;
};

struct NodeSetup {
  Timers timers;  // of all its rings
  std::vector<uint32_t> ring_ports;
  std::vector<RingSetup> rings;
  std::vector<SubRingSetup> sub_rings;
};

// Of a topology without errors. A node that is part of no ring has neither rings nor ring ports.
NodeSetup node_setup(const Topology& topology, NodeIndex node);

}  // namespace erps::lab
