#include "sim/campaign/random_network.h"

#include <algorithm>
#include <numeric>

#include "sim/sim_error.h"

namespace erps::sim {

namespace {

constexpr uint32_t kOwner = 1;
constexpr uint32_t kNeighbour = 2;
constexpr uint32_t kPlain = 4;
constexpr int64_t kSmallestLadder = 5;  // a major ring of three and a sub-ring of two

bool one_in(Random& chance, int64_t count) {
  return chance.in({1, count}) == 1;
}

// Mostly the default, else something in the range, in steps.
uint32_t mostly(Random& chance, uint32_t usual, Range range, int64_t step) {
  return one_in(chance, 2)
             ? usual
             : static_cast<uint32_t>(step * chance.in({range.low / step, range.high / step}));
}

struct Timers {
  explicit Timers(Random& chance)
      : wtr_ms(one_in(chance, 10) ? 60'000 : mostly(chance, 5000, {1000, 20'000}, 1000)),
        guard_ms(mostly(chance, 500, {10, 2000}, 10)),
        holdoff_ms(one_in(chance, 4) ? static_cast<uint32_t>(100 * chance.in({1, 20})) : 0) {}
  uint32_t wtr_ms;
  uint32_t guard_ms;
  uint32_t holdoff_ms;
};

// From a patch cable to a thousand kilometres.
void draw_delays(Random& chance, Topology& topology) {
  const int64_t longest = chance.in({1, 3}) == 3 ? 5000 : 200;
  for (LinkPlan& link : topology.links) {
    const int64_t low = chance.in({1, longest});
    link.delay_us = {low, low + chance.in({0, 100})};
  }
}

Topology draw_ring(Random& chance, int64_t nodes) {
  const Timers timers(chance);
  RingPlan plan;
  plan.nodes = static_cast<size_t>(nodes);
  plan.ring_role = static_cast<uint32_t>(chance.in({0, 1}));
  plan.owner = static_cast<size_t>(chance.in({0, nodes - 1}));
  plan.neighbour = !one_in(chance, 4);
  plan.owner_has_lowest_id = !one_in(chance, 4);
  plan.wtr_ms = timers.wtr_ms;
  plan.guard_ms = timers.guard_ms;
  plan.holdoff_ms = timers.holdoff_ms;
  return make_ring(plan);
}

// Builds the links of a ladder and tells every node of its rings.
class Ladder {
 public:
  Ladder(Random& chance, int64_t nodes)
      : major_(static_cast<size_t>(chance.in({3, nodes - 2}))),
        nodes_(static_cast<size_t>(nodes)),
        next_port_(nodes_, 1) {
    const Timers timers(chance);
    for (size_t i = 0; i < nodes_; ++i) {
      NodePlan node;
      node.name = "n" + std::to_string(i + 1);
      node.wtr_ms = timers.wtr_ms;
      node.guard_ms = timers.guard_ms;
      node.holdoff_ms = timers.holdoff_ms;
      topology_.nodes.push_back(node);
    }
    lay_major_ring(chance);
    lay_sub_ring(chance);
    // The owners, drawn anywhere, have the lowest addresses.
    std::vector<NodeIndex> order{major_owner_, sub_owner_};
    for (NodeIndex node = 0; node < nodes_; ++node) {
      if (node != major_owner_ && node != sub_owner_) {
        order.push_back(node);
      }
    }
    for (size_t i = 0; i < order.size(); ++i) {
      topology_.nodes[order[i]].address = {0x02, 0, 0, 0, 0, static_cast<uint8_t>(i + 1)};
    }
  }

  Topology take() { return std::move(topology_); }

 private:
  static constexpr uint32_t kMajorRing = 1;
  static constexpr uint32_t kSubRing = 2;
  static constexpr uint32_t kVlan = 100;

  LinkPlan join(NodeIndex one, NodeIndex other) {
    LinkPlan link;
    link.ends = {LinkEnd{one, next_port_[one]++}, LinkEnd{other, next_port_[other]++}};
    topology_.links.push_back(link);
    return link;
  }

  static uint32_t role_of(size_t place, bool neighbour) {
    return place == 0 ? kOwner : place == 1 && neighbour ? kNeighbour : kPlain;
  }

  // A ring of the node with the port at the RPL, where it has one, as the second.
  void configure(NodeIndex node, uint32_t ring, uint32_t ring_role, uint32_t role,
                 uint32_t rpl_port, uint32_t other_port) {
    RingConfig config;
    config.ring = ring;
    config.control_vlan = kVlan;
    config.ring_role = ring_role;
    config.node_role = role;
    config.port0 = other_port;
    config.port1 = rpl_port;
    topology_.nodes[node].rings.push_back(config);
  }

  void lay_major_ring(Random& chance) {
    std::vector<LinkPlan> links;
    for (size_t i = 0; i < major_; ++i) {
      links.push_back(join(i, (i + 1) % major_));
    }
    // The RPL leads from the owner to its successor.
    major_owner_ = static_cast<size_t>(chance.in({0, static_cast<int64_t>(major_) - 1}));
    const bool neighbour = !one_in(chance, 4);
    const auto ring_role = static_cast<uint32_t>(chance.in({0, 1}));
    for (size_t place = 0; place < major_; ++place) {
      const size_t node = (major_owner_ + place) % major_;
      const uint32_t onward = links[node].ends[0].port;
      const uint32_t back = links[(node + major_ - 1) % major_].ends[1].port;
      const bool at_neighbour = place == 1;
      configure(node, kMajorRing, ring_role, role_of(place, neighbour),
                at_neighbour ? back : onward, at_neighbour ? onward : back);
    }
  }

  // From one node of the major ring over the others to another node of the major ring.
  void lay_sub_ring(Random& chance) {
    const auto last = static_cast<int64_t>(major_) - 1;
    const auto first_end = static_cast<NodeIndex>(chance.in({0, last}));
    const auto second_end =
        static_cast<NodeIndex>((first_end + static_cast<size_t>(chance.in({1, last}))) % major_);
    std::vector<NodeIndex> chain{first_end};
    for (NodeIndex node = major_; node < nodes_; ++node) {
      chain.push_back(node);
    }
    chain.push_back(second_end);
    std::vector<LinkPlan> links;
    for (size_t i = 0; i + 1 < chain.size(); ++i) {
      links.push_back(join(chain[i], chain[i + 1]));
    }
    // Its RPL leads from the owner, which is no end, to its successor, which may be one.
    const auto inner = static_cast<int64_t>(chain.size()) - 2;
    const auto owner_place = static_cast<size_t>(chance.in({1, inner}));
    sub_owner_ = chain[owner_place];
    const bool neighbour = !one_in(chance, 4);
    for (size_t place = 1; place + 1 < chain.size(); ++place) {
      const uint32_t onward = links[place].ends[0].port;
      const uint32_t back = links[place - 1].ends[1].port;
      const bool at_neighbour = place == owner_place + 1;
      configure(chain[place], kSubRing, 1,
                place == owner_place        ? kOwner
                : at_neighbour && neighbour ? kNeighbour
                                            : kPlain,
                at_neighbour ? back : onward, at_neighbour ? onward : back);
    }
    const bool first_watches = one_in(chance, 2);
    topology_.nodes[first_end].sub_rings.push_back(
        {kMajorRing, kSubRing, links.front().ends[0].port, kPlain, first_watches ? 1U : 0U});
    const bool end_is_neighbour = owner_place + 2 == chain.size() && neighbour;
    topology_.nodes[second_end].sub_rings.push_back(
        {kMajorRing, kSubRing, links.back().ends[1].port, end_is_neighbour ? kNeighbour : kPlain,
         first_watches ? 0U : 1U});
  }

  const size_t major_;
  const size_t nodes_;
  std::vector<uint32_t> next_port_;
  NodeIndex major_owner_ = 0;
  NodeIndex sub_owner_ = 0;
  Topology topology_;
};

}  // namespace

Topology random_network(Random& chance, Range nodes) {
  if (nodes.low < 2 || nodes.high < nodes.low || nodes.high > 255) {
    throw SimError("rings have 2 to 255 nodes");
  }
  const int64_t count = chance.in(nodes);
  Topology topology = count >= kSmallestLadder && one_in(chance, 4) ? Ladder(chance, count).take()
                                                                    : draw_ring(chance, count);
  draw_delays(chance, topology);
  return topology;
}

}  // namespace erps::sim
