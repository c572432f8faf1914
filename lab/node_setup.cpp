#include "lab/node_setup.h"

#include <algorithm>

namespace erps::lab {

namespace {

client::NodeRole node_role(const Ring& ring, NodeIndex node) {
  if (ring.owner == node) {
    return client::kOwner;
  }
  return ring.neighbour == node ? client::kNeighbour : client::kNoRplRole;
}

}  // namespace

NodeSetup node_setup(const Topology& topology, NodeIndex node) {
  NodeSetup setup;
  const auto port_of = [&](LinkIndex link) { return topology.links[link].end_at(node).port; };
  const auto rings = topology.rings_at(node);
  if (!rings.empty()) {
    setup.timers = topology.rings[rings[0]].timers;
  }
  for (const RingIndex index : rings) {
    const Ring& ring = topology.rings[index];
    std::vector<LinkIndex> links = ring.links_at(topology.links, node);
    for (const LinkIndex link : links) {
      setup.ring_ports.push_back(port_of(link));
    }
    const client::NodeRole role = node_role(ring, node);
    if (ring.is_interconnection_node(node)) {
      setup.sub_rings.push_back({index, port_of(links[0]), role,
                                 ring.watching == node ? client::kWatching : client::kMarking});
      continue;
    }
    if (role != client::kNoRplRole && links[0] == ring.rpl) {
      std::swap(links[0], links[1]);
    }
    setup.rings.push_back({index, port_of(links[0]), port_of(links[1]), role});
  }
  std::sort(setup.ring_ports.begin(), setup.ring_ports.end());
  return setup;
}

}  // namespace erps::lab
