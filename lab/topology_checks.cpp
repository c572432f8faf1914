#include "lab/topology_checks.h"

#include <algorithm>
#include <map>
#include <numeric>
#include <set>

#include "client/hazards.h"

namespace erps::lab {

namespace {

// Sets of joined nodes.
class Partition {
 public:
  explicit Partition(size_t count) : parent_(count) {
    std::iota(parent_.begin(), parent_.end(), size_t{0});
  }

  size_t root(size_t item) {
    while (parent_[item] != item) {
      parent_[item] = parent_[parent_[item]];
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

// The nodes so that owners stand before the other nodes of their rings as far as that is possible
// (two rings that each contain the other's owner leave no order).
std::vector<NodeIndex> owners_first(const Topology& topology) {
  std::vector<size_t> before(topology.nodes.size());  // owners that still have to stand before it
  std::vector<std::vector<NodeIndex>> behind(topology.nodes.size());
  for (const Ring& ring : topology.rings) {
    for (const NodeIndex node : ring.nodes) {
      if (node != ring.owner) {
        behind[ring.owner].push_back(node);
        ++before[node];
      }
    }
  }
  std::set<std::pair<bool, NodeIndex>> left;  // false: nothing has to stand before it
  for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    left.insert({before[node] != 0, node});
  }
  std::vector<NodeIndex> order;
  while (!left.empty()) {
    const NodeIndex next = left.begin()->second;
    left.erase(left.begin());
    order.push_back(next);
    for (const NodeIndex node : behind[next]) {
      if (--before[node] == 0 && left.erase({true, node}) != 0) {
        left.insert({false, node});
      }
    }
  }
  return order;
}

std::string ring_text(const Ring& ring) {
  return "ring " + std::to_string(ring.id);
}

void check_addresses(const Topology& topology, Findings& findings) {
  std::map<MacAddress, NodeIndex> first;
  for (NodeIndex i = 0; i < topology.nodes.size(); ++i) {
    const Node& node = topology.nodes[i];
    const auto [at, fresh] = first.insert({node.address, i});
    if (!fresh) {
      findings.add({.rule = "address-repeated",
                    .line = node.line,
                    .where = "node " + node.name,
                    .key = "address",
                    .value = to_text(node.address),
                    .why = "node " + topology.nodes[at->second].name +
                           " has this address, too, and each would take the other's messages for "
                           "its own",
                    .advice = "give each node its own"});
    }
  }
  for (const Ring& ring : topology.rings) {
    const Node& owner = topology.nodes[ring.owner];
    for (const NodeIndex node : ring.nodes) {
      if (topology.nodes[node].address < owner.address) {
        findings.add({.severity = Severity::kWarning,
                      .rule = "owner-not-lowest",
                      .line = ring.line,
                      .where = ring_text(ring),
                      .key = "owner",
                      .value = owner.name,
                      .why = "its address should be the lowest of the ring, and that of " +
                             topology.nodes[node].name +
                             " is lower: the ring may be split for several seconds at the start "
                             "and when a link returns",
                      .advice = "give the owner the lowest address of the ring, or leave the "
                                "addresses out"});
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
        findings.error("timers-differ", ring.line, ring_text(ring),
                       "wtr_ms, guard_ms or holdoff_ms differ from those of " + ring_text(first) +
                           ", and node " + topology.nodes[node].name +
                           " is part of both: a node has one set of timers",
                       "set the same in both rings");
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
          findings.add(
              {.rule = "control-vlan-repeated",
               .line = b.line,
               .where = ring_text(b),
               .key = "control_vlan",
               .value = std::to_string(b.control_vlan),
               .why = ring_text(a) + " uses it at node " + topology.nodes[node].name + ", too",
               .advice = "allowed: one of its own"});
        }
      }
    }
  }
}

void check_interconnections(const Topology& topology, Findings& findings) {
  std::set<std::pair<NodeIndex, RingIndex>> taken;
  std::set<RingIndex> joined;
  for (const Ring& ring : topology.rings) {
    if (!ring.is_open()) {
      continue;
    }
    if (!joined.insert(*ring.major_ring).second) {
      findings.add(
          {.severity = Severity::kWarning,
           .rule = "major-ring-shared",
           .line = ring.line,
           .where = ring_text(ring),
           .key = "major_ring",
           .value = std::to_string(topology.rings[*ring.major_ring].id),
           .why = "another sub-ring has the same; " + std::string(client::kSharedMajorRingHazard),
           .advice = "give a major ring one sub-ring where two failures matter"});
    }
    if (!ring.revertive) {
      findings.add({.rule = "sub-ring-revertive",
                    .line = ring.line,
                    .where = ring_text(ring),
                    .key = "revertive",
                    .value = "false",
                    .why =
                        "its ends at the major ring are always revertive, and a ring whose nodes "
                        "differ in that does not come home",
                    .advice = "set true, or leave it out"});
    }
    for (const NodeIndex node : {ring.nodes.front(), ring.nodes.back()}) {
      const std::string& name = topology.nodes[node].name;
      const Ring& major = topology.rings[*ring.major_ring];
      if (!taken.insert({node, *ring.major_ring}).second) {
        findings.error("sub-ring-second-at-node", ring.line, ring_text(ring),
                       "nodes: " + name +
                           " joins another sub-ring to the same major ring; a node joins one "
                           "sub-ring at most",
                       "let one of them end at another node");
      }
      if (&major != &ring && major.is_interconnection_node(node)) {
        findings.error("sub-ring-at-sub-ring-end", ring.line, ring_text(ring),
                       "nodes: " + name + " is itself an end of " + ring_text(major) +
                           " and has one port in it; a major ring has two at each node",
                       "let it end at another node of " + ring_text(major));
      }
      if (major.owner == node) {
        findings.add({.severity = Severity::kWarning,
                      .rule = "owner-at-interconnection",
                      .line = major.line,
                      .where = ring_text(major),
                      .key = "owner",
                      .value = name,
                      .why = "an interconnection node tells its major ring of changes in the "
                             "sub-ring with R-APS(Event), which replaces the message that it "
                             "repeats: a node that missed R-APS(NR,RB) does not get it again",
                      .advice = "make a node the owner that is no end of a sub-ring"});
      }
    }
  }
}

// What the file expects and no ring can do.
void check_bounds(const Topology& topology, Findings& findings) {
  const TrafficBounds& bounds = topology.bounds;
  const bool any = bounds.cut_outage_ms || bounds.restore_outage_ms || bounds.switch_outage_ms ||
                   bounds.duplicates || bounds.reordered;
  if (any && topology.streams.empty()) {
    findings.warning("expectation-without-stream", bounds.line, "expect",
                     "nothing is measured without a [[stream]]", "add one between two hosts");
  }
  for (const Ring& ring : topology.rings) {
    if (bounds.cut_outage_ms && ring.timers.holdoff_ms > *bounds.cut_outage_ms) {
      findings.add({.severity = Severity::kWarning,
                    .rule = "expectation-below-holdoff",
                    .line = bounds.line,
                    .where = "expect",
                    .key = "cut_outage_ms",
                    .why = "cannot hold in " + ring_text(ring) + ", whose hold-off time is " +
                           std::to_string(ring.timers.holdoff_ms) + " ms",
                    .advice = "shorten the hold-off time, or expect less"});
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
      findings.error("loop-without-ring", link.line, "link " + link.name,
                     "closes a loop that no ring's RPL opens",
                     "make the loop a [[ring]], or remove the link");
    }
  }
  const auto component = components(topology, std::vector<bool>(topology.links.size(), true));
  for (const Stream& stream : topology.streams) {
    const Host& a = topology.hosts[stream.hosts[0]];
    const Host& b = topology.hosts[stream.hosts[1]];
    if (component[a.node] != component[b.node]) {
      findings.error("stream-without-way", stream.line, "stream",
                     "between " + a.name + " and " + b.name + ": no link joins them",
                     "add links, or move a host");
    }
  }
  check_bounds(topology, findings);
}

std::vector<size_t> components(const Topology& topology, const std::vector<bool>& usable) {
  Partition joined(topology.nodes.size());
  for (LinkIndex i = 0; i < topology.links.size(); ++i) {
    if (usable[i]) {
      joined.join(topology.links[i].ends[0].node, topology.links[i].ends[1].node);
    }
  }
  std::vector<size_t> numbers;
  for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    numbers.push_back(joined.root(node));
  }
  return numbers;
}

}  // namespace erps::lab
