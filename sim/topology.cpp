#include "sim/topology.h"

#include "sim/sim_error.h"

namespace erps::sim {

namespace {

constexpr uint32_t kOwner = 1;
constexpr uint32_t kNeighbour = 2;
constexpr uint32_t kPlain = 4;
constexpr uint32_t kMajorRing = 1;
constexpr uint32_t kMajorVlan = 100;
constexpr uint32_t kLadderSubRing = 2;

MacAddress address_of(size_t number) {
  return {0x02,
          0x00,
          0x00,
          0x00,
          static_cast<uint8_t>(number >> 8U),
          static_cast<uint8_t>(number & 0xFFU)};
}

NodePlan make_node(size_t index, size_t address, uint32_t wtr_ms, uint32_t guard_ms) {
  NodePlan node;
  node.name = "n" + std::to_string(index + 1);
  node.address = address_of(address);
  node.wtr_ms = wtr_ms;
  node.guard_ms = guard_ms;
  return node;
}

LinkPlan make_link(LinkEnd one, LinkEnd other, Range delay_us) {
  LinkPlan link;
  link.ends = {one, other};
  link.delay_us = delay_us;
  return link;
}

}  // namespace

LinkIndex rpl_of(const RingPlan& plan) {
  return (plan.owner + plan.nodes - 1) % plan.nodes;
}

Topology make_ring(const RingPlan& plan) {
  if (plan.nodes < 2 || plan.nodes > 255 || plan.owner >= plan.nodes) {
    throw SimError("a ring has 2 to 255 nodes and its owner is one of them");
  }
  constexpr uint32_t kToPredecessor = 1;
  constexpr uint32_t kToSuccessor = 2;
  const NodeIndex neighbour = rpl_of(plan);
  Topology topology;
  for (NodeIndex i = 0; i < plan.nodes; ++i) {
    const size_t lowest = plan.owner_has_lowest_id ? 1 : plan.nodes + 1;
    NodePlan node =
        make_node(i, i == plan.owner ? lowest : i + 2 - (plan.owner_has_lowest_id ? 0 : 1),
                  plan.wtr_ms, plan.guard_ms);
    node.holdoff_ms = plan.holdoff_ms;
    RingConfig ring;
    ring.ring = kMajorRing;
    ring.control_vlan = kMajorVlan;
    ring.ring_role = plan.ring_role;
    ring.revertive = plan.revertive;
    ring.port0 = kToPredecessor;
    ring.port1 = kToSuccessor;
    if (i == plan.owner) {
      ring.node_role = kOwner;
      ring.port0 = kToSuccessor;
      ring.port1 = kToPredecessor;
    } else if (i == neighbour && plan.neighbour) {
      ring.node_role = kNeighbour;
    }
    node.rings.push_back(ring);
    topology.nodes.push_back(node);
    topology.links.push_back(
        make_link({i, kToSuccessor}, {(i + 1) % plan.nodes, kToPredecessor}, plan.delay_us));
  }
  return topology;
}

Topology make_ladder(const LadderPlan& plan) {
  Topology topology;
  // The owners, nodes 0 and 4, have the lowest addresses of their rings.
  constexpr std::array<size_t, 6> kAddresses{1, 3, 4, 5, 2, 6};
  for (NodeIndex i = 0; i < kAddresses.size(); ++i) {
    topology.nodes.push_back(make_node(i, kAddresses[i], plan.wtr_ms, plan.guard_ms));
  }
  const auto configure = [&](NodeIndex node, uint32_t id, uint32_t port0, uint32_t port1,
                             uint32_t role, uint32_t ring_role) {
    RingConfig ring;
    ring.ring = id;
    ring.port0 = port0;
    ring.port1 = port1;
    ring.control_vlan = kMajorVlan;
    ring.node_role = role;
    ring.ring_role = ring_role;
    topology.nodes[node].rings.push_back(ring);
  };
  configure(0, kMajorRing, 2, 1, kOwner, 0);
  configure(1, kMajorRing, 1, 2, kPlain, 0);
  configure(2, kMajorRing, 1, 2, kPlain, 0);
  configure(3, kMajorRing, 1, 2, kNeighbour, 0);
  // A sub-ring's messages have to pass its own RPL, which ring role 0 would not let them.
  configure(4, kLadderSubRing, 1, 2, kOwner, 1);
  configure(5, kLadderSubRing, 2, 1, kNeighbour, 1);
  for (const NodeIndex node : {NodeIndex{1}, NodeIndex{2}}) {
    topology.nodes[node].sub_rings.push_back(
        {kMajorRing, kLadderSubRing, 3, kPlain, plan.interconnection_roles[node - 1]});
  }
  for (const auto& [one, other] : {std::pair<LinkEnd, LinkEnd>{{0, 2}, {1, 1}},
                                   {{1, 2}, {2, 1}},
                                   {{2, 2}, {3, 1}},
                                   {{3, 2}, {0, 1}},
                                   {{1, 3}, {4, 1}},
                                   {{4, 2}, {5, 1}},
                                   {{5, 2}, {2, 3}}}) {
    topology.links.push_back(make_link(one, other, plan.delay_us));
  }
  return topology;
}

}  // namespace erps::sim
