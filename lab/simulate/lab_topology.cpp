#include "lab/simulate/lab_topology.h"

#include <algorithm>
#include <map>

#include "client/words.h"

namespace erps::lab {

namespace {

// A ring at one node, by its ports.
struct Place {
  NodeIndex node = 0;
  uint32_t node_role = 0;
  std::vector<uint32_t> ports;
  uint32_t rpl_port = 0;
};

class Converter {
 public:
  explicit Converter(const sim::Case& of) : plan_(of.topology) {
    topology_.name = of.title;
    for (NodeIndex node = 0; node < plan_.nodes.size(); ++node) {
      topology_.nodes.push_back({of.names.nodes[node], {plan_.nodes[node].address}, 0});
    }
    for (LinkIndex link = 0; link < plan_.links.size(); ++link) {
      Link converted;
      converted.name = of.names.links[link];
      for (size_t end = 0; end < 2; ++end) {
        const sim::LinkEnd& at = plan_.links[link].ends[end];
        converted.ends[end] = {at.node, at.port};
      }
      topology_.links.push_back(converted);
    }
  }

  Topology convert() {
    for (NodeIndex node = 0; node < plan_.nodes.size(); ++node) {
      for (const sim::RingConfig& ring : plan_.nodes[node].rings) {
        meet(ring.ring, ring.control_vlan, node).revertive = ring.revertive;
        places_[ring.ring].push_back({node, ring.node_role, {ring.port0, ring.port1}, ring.port1});
        topology_.rings[*topology_.find_ring(ring.ring)].role =
            ring.ring_role == client::kMajorRing ? RingRole::kMajor : RingRole::kSubRing;
      }
    }
    for (NodeIndex node = 0; node < plan_.nodes.size(); ++node) {
      for (const sim::SubRingConfig& ring : plan_.nodes[node].sub_rings) {
        Ring& met = meet(ring.ring, 0, node);
        met.major_ring = topology_.find_ring(ring.major_ring);
        if (ring.interconnection_role == client::kWatching) {
          met.watching = node;
        }
        places_[ring.ring].push_back({node, ring.node_role, {ring.port}, ring.port});
      }
    }
    for (Ring& ring : topology_.rings) {
      lay(ring, places_[ring.id]);
    }
    return std::move(topology_);
  }

 private:
  Ring& meet(uint32_t id, uint32_t vlan, NodeIndex node) {
    if (const auto known = topology_.find_ring(id)) {
      return topology_.rings[*known];
    }
    Ring ring;
    ring.id = id;
    ring.control_vlan = vlan;
    const sim::NodePlan& at = plan_.nodes[node];
    ring.timers = {at.wtr_ms, at.guard_ms, at.holdoff_ms};
    topology_.rings.push_back(ring);
    return topology_.rings.back();
  }

  // Nodes and links in ring order: from an end of an open ring, else from the owner.
  void lay(Ring& ring, std::vector<Place> places) const {
    const auto starts = [&](const Place& place) {
      return ring.major_ring ? place.ports.size() == 1 : place.node_role == client::kOwner;
    };
    auto at = std::find_if(places.begin(), places.end(), starts);
    std::vector<LinkIndex> used;
    while (at != places.end()) {
      ring.nodes.push_back(at->node);
      note_rpl(ring, *at);
      std::optional<LinkIndex> onward;
      for (const uint32_t port : at->ports) {
        const auto link = topology_.link_at_port(at->node, port);
        if (link && std::find(used.begin(), used.end(), *link) == used.end()) {
          onward = link;
        }
      }
      if (!onward) {
        return;
      }
      used.push_back(*onward);
      ring.links.push_back(*onward);
      const NodeIndex next = topology_.links[*onward].other_end(at->node);
      if (next == ring.nodes.front()) {
        return;
      }
      at = std::find_if(places.begin(), places.end(),
                        [&](const Place& place) { return place.node == next; });
    }
  }

  void note_rpl(Ring& ring, const Place& place) const {
    if (place.node_role == client::kOwner) {
      ring.owner = place.node;
      ring.rpl = topology_.link_at_port(place.node, place.rpl_port).value_or(0);
    } else if (place.node_role == client::kNeighbour) {
      ring.neighbour = place.node;
    }
  }

  const sim::Topology& plan_;
  Topology topology_;
  std::map<uint32_t, std::vector<Place>> places_;
};

}  // namespace

Topology to_topology(const sim::Case& of) {
  return Converter(of).convert();
}

}  // namespace erps::lab
