#include "lab/topology_checks.h"

#include <algorithm>
#include <numeric>
#include <set>

#include "client/limits.h"

namespace erps::lab {

namespace {

// Sets of joined nodes.
class Partition {
 public:
  explicit Partition(size_t count) : parent_(count) {
    std::iota(parent_.begin(), parent_.end(), size_t{0});
  }

  size_t root(size_t item) const {
    while (parent_[item] != item) {
      item = parent_[item];
    }
    return item;
  }

  // False when the two were joined already.
  bool join(size_t a, size_t b) {
    const size_t root_a = root(a);
    const size_t root_b = root(b);
    parent_[root_a] = root_b;
    return root_a != root_b;
  }

 private:
  std::vector<size_t> parent_;
};

// Whether `first` has to have a lower address than `second`.
bool must_precede(const Topology& topology, NodeIndex first, NodeIndex second) {
  return first != second &&
         std::any_of(topology.rings.begin(), topology.rings.end(), [&](const Ring& ring) {
           return ring.owner == first && ring.has_node(second);
         });
}

// The nodes so that owners stand before the other nodes of their rings as far as that is possible
// (two rings that each contain the other's owner leave no order).
std::vector<NodeIndex> owners_first(const Topology& topology) {
  std::vector<NodeIndex> order;
  std::vector<bool> placed(topology.nodes.size(), false);
  while (order.size() < topology.nodes.size()) {
    std::optional<NodeIndex> next;
    std::optional<NodeIndex> fallback;
    for (NodeIndex node = 0; node < topology.nodes.size() && !next; ++node) {
      if (placed[node]) {
        continue;
      }
      fallback = fallback.value_or(node);
      bool free = true;
      for (NodeIndex other = 0; other < topology.nodes.size(); ++other) {
        free = free && (placed[other] || !must_precede(topology, other, node));
      }
      if (free) {
        next = node;
      }
    }
    const NodeIndex chosen = next.value_or(*fallback);
    placed[chosen] = true;
    order.push_back(chosen);
  }
  return order;
}

std::string ring_text(const Ring& ring) {
  return "ring " + std::to_string(ring.id);
}

void check_addresses(const Topology& topology, Findings& findings) {
  for (NodeIndex i = 0; i < topology.nodes.size(); ++i) {
    for (NodeIndex j = 0; j < i; ++j) {
      if (topology.nodes[i].address == topology.nodes[j].address) {
        findings.error(topology.nodes[i].line,
                       "node " + topology.nodes[i].name +
                           ": address = " + to_text(topology.nodes[i].address) + ": node " +
                           topology.nodes[j].name + " has this address, too");
      }
    }
  }
  for (const Ring& ring : topology.rings) {
    for (const NodeIndex node : ring.nodes) {
      if (topology.nodes[node].address < topology.nodes[ring.owner].address) {
        findings.warning(
            ring.line,
            ring_text(ring) + ": owner = " + topology.nodes[ring.owner].name +
                ": its address should be the lowest of the ring, and that of " +
                topology.nodes[node].name +
                " is lower: the ring may be split for several seconds at the start and when a "
                "link returns");
        break;
      }
    }
  }
}

void check_timers(const Topology& topology, Findings& findings) {
  for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    const auto rings = topology.rings_at(node);
    for (size_t i = 1; i < rings.size(); ++i) {
      const Ring& first = topology.rings[rings[0]];
      const Ring& ring = topology.rings[rings[i]];
      if (!(first.timers == ring.timers)) {
        findings.error(ring.line, ring_text(ring) +
                                      ": wtr_ms, guard_ms or holdoff_ms differ from "
                                      "those of " +
                                      ring_text(first) + ", and node " + topology.nodes[node].name +
                                      " is part of both: a node has one set of timers");
      }
    }
  }
}

void check_shared_vlans(const Topology& topology, Findings& findings) {
  for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    const auto rings = topology.rings_at(node);
    for (size_t i = 0; i < rings.size(); ++i) {
      for (size_t j = 0; j < i; ++j) {
        const Ring& a = topology.rings[rings[j]];
        const Ring& b = topology.rings[rings[i]];
        const bool interconnected =
            a.is_interconnection_node(node) || b.is_interconnection_node(node);
        if (a.control_vlan == b.control_vlan && !interconnected) {
          findings.error(b.line, ring_text(b) +
                                     ": control_vlan = " + std::to_string(b.control_vlan) + ": " +
                                     ring_text(a) + " uses it at node " +
                                     topology.nodes[node].name + ", too; allowed: one of its own");
        }
      }
    }
  }
}

void check_interconnections(const Topology& topology, Findings& findings) {
  std::set<std::pair<NodeIndex, RingIndex>> taken;
  for (const Ring& ring : topology.rings) {
    if (!ring.is_open()) {
      continue;
    }
    for (const NodeIndex node : {ring.nodes.front(), ring.nodes.back()}) {
      if (!taken.insert({node, *ring.major_ring}).second) {
        findings.error(ring.line, ring_text(ring) + ": nodes: " + topology.nodes[node].name +
                                      " joins another sub-ring to the same major ring; a node "
                                      "joins one sub-ring at most");
      }
    }
  }
}

}  // namespace

void assign_addresses(Topology& topology) {
  std::set<MacAddress> taken;
  for (const Node& node : topology.nodes) {
    taken.insert(node.address);
  }
  uint16_t number = 0;
  for (const NodeIndex node : owners_first(topology)) {
    MacAddress& address = topology.nodes[node].address;
    while (address.is_zero()) {
      ++number;
      const MacAddress candidate{{0x02, 0x00, 0x00, 0x00, static_cast<uint8_t>(number >> 8),
                                  static_cast<uint8_t>(number)}};
      if (taken.insert(candidate).second) {
        address = candidate;
      }
    }
  }
}

void check_rings(const Topology& topology, Findings& findings) {
  check_addresses(topology, findings);
  check_timers(topology, findings);
  check_shared_vlans(topology, findings);
  check_interconnections(topology, findings);
}

void check_network(const Topology& topology, Findings& findings) {
  // Without the RPLs, what is left has to be a tree.
  Partition joined(topology.nodes.size());
  for (LinkIndex i = 0; i < topology.links.size(); ++i) {
    const Link& link = topology.links[i];
    const auto ring = topology.ring_of_link(i);
    if (ring && topology.rings[*ring].rpl == i) {
      continue;
    }
    if (!joined.join(link.ends[0].node, link.ends[1].node)) {
      findings.error(link.line, "link " + link.name +
                                    ": closes a loop that no ring's RPL opens; every loop has to "
                                    "be a ring");
    }
  }
  for (const Stream& stream : topology.streams) {
    const Host& a = topology.hosts[stream.hosts[0]];
    const Host& b = topology.hosts[stream.hosts[1]];
    if (!are_connected(topology, a.node, b.node, {})) {
      findings.error(stream.line,
                     "stream: between " + a.name + " and " + b.name + ": no link joins them");
    }
  }
}

bool are_connected(const Topology& topology, NodeIndex a, NodeIndex b,
                   const std::vector<LinkIndex>& cut) {
  Partition joined(topology.nodes.size());
  for (LinkIndex i = 0; i < topology.links.size(); ++i) {
    if (std::find(cut.begin(), cut.end(), i) == cut.end()) {
      joined.join(topology.links[i].ends[0].node, topology.links[i].ends[1].node);
    }
  }
  return joined.root(a) == joined.root(b);
}

}  // namespace erps::lab
