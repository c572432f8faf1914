#include "sim/checks/watching_ends.h"

#include <algorithm>

#include "sim/checks/ring_questions.h"

namespace erps::sim {

namespace {

// The watching node's end of a sub-ring, as long as the major ring is cut on both sides. A clear
// there finds no block to tell of, and the R-APS(MS) goes on.
bool is_open_for_major_ring(const RingSnapshot& ring) {
  return ring.ring_role == kSubRingRole && ring.ports[0].forwarding &&
         (has_local(ring, RingRequest::kMs) || sends(ring, kMsCode));
}

bool tells_of_failure(const Topology& topology, const RingWatch& watch, const MacAddress& id,
                      uint32_t ring) {
  for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    const RingSnapshot* at = watch.ring(node, ring);
    if (at != nullptr && at->local_node_id == id) {
      return sends(*at, kSfCode);
    }
  }
  return false;
}

}  // namespace

std::vector<WatchingEnd> open_watching_ends(const Topology& topology, const RingWatch& watch) {
  std::vector<WatchingEnd> ends;
  for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    for (const SubRingConfig& config : topology.nodes[node].sub_rings) {
      const RingSnapshot* major = watch.ring(node, config.major_ring);
      const RingSnapshot* sub_ring = watch.ring(node, config.ring);
      if (major == nullptr || sub_ring == nullptr || !is_open_for_major_ring(*sub_ring)) {
        continue;
      }
      const auto is_cut = [](const PortSnapshot& port) {
        return !port.link_up || port.fail_count != 0;
      };
      const auto is_old = [&](const PortSnapshot& port) {
        return port.link_up && !tells_of_failure(topology, watch, port.rx_node_id, major->ring);
      };
      ends.push_back({major->ring, sub_ring->ring,
                      std::all_of(major->ports.begin(), major->ports.end(), is_cut),
                      std::any_of(major->ports.begin(), major->ports.end(), is_old),
                      is(*sub_ring, RingState::kManual)});
    }
  }
  return ends;
}

}  // namespace erps::sim
