#include <set>
#include <utility>

#include "sim/checks/suppositions.h"

namespace erps::sim {

namespace {

RingSnapshot at_home(const NodePlan& node, uint32_t ring, uint32_t role, uint32_t ring_role) {
  constexpr uint32_t kRplOwner = 1;
  RingSnapshot at;
  at.ring = ring;
  at.ring_role = ring_role;
  at.node_role = role;
  at.enabled = true;
  at.local_node_id = node.address;
  at.inter_fault_port = -1;
  enter(at, RingState::kIdle);
  at.sending = role == kRplOwner;
  at.tx_rb = at.sending;
  return at;
}

}  // namespace

// Links that do not carry both ways are seen to fail where the carrier does not tell.
bool suppose_failures_seen(Supposition& suppose) {
  const Forwarding& forwarding = suppose.circumstances.forwarding;
  const auto before = suppose.hearing.rings;
  for (size_t i = 0; i < forwarding.arcs.size(); ++i) {
    const Arc& arc = forwarding.arcs[i];
    if (!arc.works && forwarding.powered[arc.from] && forwarding.powered[arc.to]) {
      for (size_t end = 0; end < 2; ++end) {
        if (suppose.circumstances.carriers[2 * arc.link + end]) {
          suppose.hearing.fail(suppose.topology.links[arc.link].ends[end]);
        }
      }
    }
  }
  return suppose.hearing.rings != before;
}

// A second failure ends the hold-off, and the first one is never told.
bool suppose_first_failure_told(Supposition& suppose) {
  const auto before = suppose.hearing.rings;
  for (size_t i = 0; i < suppose.circumstances.carriers.size(); ++i) {
    const LinkEnd& end = suppose.topology.links[i / 2].ends[i % 2];
    const auto& rings = before[end.node];
    const bool is_held_off = std::any_of(
        rings.begin(), rings.end(), [](const RingSnapshot& ring) { return ring.holdoff_running; });
    if (!suppose.circumstances.carriers[i] && !is_held_off &&
        suppose.topology.nodes[end.node].holdoff_ms != 0) {
      suppose.hearing.fail(end);
    }
  }
  return suppose.hearing.rings != before;
}

// What a hold-off has told of a link that is back is taken back.
bool suppose_returns_told(Supposition& suppose) {
  bool changed = false;
  for (size_t i = 0; i < suppose.circumstances.carriers.size(); ++i) {
    const LinkEnd& end = suppose.topology.links[i / 2].ends[i % 2];
    for (RingSnapshot& ring : suppose.hearing.rings[end.node]) {
      for (PortSnapshot& port : ring.ports) {
        if (suppose.circumstances.carriers[i] && port.present && port.port == end.port &&
            !port.link_up && suppose.topology.nodes[end.node].holdoff_ms != 0) {
          port.link_up = changed = true;
          offer(ring, RingRequest::kClearSf);
          break;
        }
      }
    }
  }
  return changed;
}

// Whose last message the watching node knows already is not counted again.
bool suppose_failures_counted(Supposition& suppose) {
  const auto before = suppose.hearing.rings;
  for (NodeIndex node = 0; node < before.size(); ++node) {
    for (const SubRingConfig& config : suppose.topology.nodes[node].sub_rings) {
      RingSnapshot* major = suppose.hearing.ring(node, config.major_ring);
      for (size_t i = 0; config.interconnection_role == 1 && major != nullptr && i < 2; ++i) {
        PortSnapshot& port = major->ports[i];
        if (port.fail_count == 0 && suppose.any_ring([&](const RingSnapshot& ring) {
              return ring.ring == major->ring && ring.local_node_id == port.rx_node_id &&
                     sends(ring, kSfCode);
            })) {
          port.rx_node_id = {};
        }
      }
    }
  }
  return suppose.hearing.rings != before;
}

// Messages of a major ring that have passed the marking node of one sub-ring are not taken for
// marked by the watching node of another one.
bool suppose_marks_told_apart(Supposition& suppose) {
  std::set<std::pair<uint32_t, uint32_t>> sub_rings;  // and their major rings
  std::set<uint32_t> major_rings;
  for (const NodePlan& node : suppose.topology.nodes) {
    for (const SubRingConfig& config : node.sub_rings) {
      sub_rings.emplace(config.major_ring, config.ring);
      major_rings.insert(config.major_ring);
    }
  }
  if (sub_rings.size() == major_rings.size()) {
    return false;
  }
  suppose.hearing.tell_marks_apart();
  suppose_failures_counted(suppose);
  return true;
}

// Their rings are at home, but for failed links.
bool suppose_no_module_dead(Supposition& suppose) {
  bool any = false;
  for (NodeIndex node = 0; node < suppose.topology.nodes.size(); ++node) {
    if (!suppose.circumstances.dead[node]) {
      continue;
    }
    any = true;
    const NodePlan& plan = suppose.topology.nodes[node];
    auto& rings = suppose.hearing.rings[node];
    rings.clear();
    for (const RingConfig& config : plan.rings) {
      rings.push_back(at_home(plan, config.ring, config.node_role, config.ring_role));
      const bool at_rpl = config.node_role != 4;
      rings.back().ports = {PortSnapshot{config.port0, true, false, true, true, 0, {}, 0},
                            PortSnapshot{config.port1, true, at_rpl, true, !at_rpl, 0, {}, 0}};
    }
    for (const SubRingConfig& config : plan.sub_rings) {
      rings.push_back(at_home(plan, config.ring, config.node_role, kSubRingRole));
      const bool at_rpl = config.node_role != 4;
      rings.back().ports[0] = {config.port, true, at_rpl, true, !at_rpl, 0, {}, 0};
      rings.back().ports[1].link_up = true;
    }
    for (LinkIndex link = 0; link < suppose.topology.links.size(); ++link) {
      for (size_t end = 0; end < 2; ++end) {
        const LinkEnd& at = suppose.topology.links[link].ends[end];
        if (at.node == node && !suppose.circumstances.carriers[2 * link + end]) {
          suppose.hearing.fail(at);
        }
      }
    }
  }
  return any;
}

bool suppose_switches_obey(Supposition& suppose) {
  suppose.switches_obey = true;
  return true;
}

}  // namespace erps::sim
