#include "sim/checks/suppositions.h"

namespace erps::sim {

namespace {

// As a clear would that comes to everybody, who then tells what has failed.
void end_switch(RingSnapshot& ring) {
  ring.local_priority =
      static_cast<uint32_t>(is_owner(ring) ? RingRequest::kWtb : RingRequest::kNothing);
  enter(ring, RingState::kPending);
  ring.sending = true;
  ring.tx_request = kNrCode;
  ring.tx_rb = false;
  if (has_failed_link(ring)) {
    offer(ring, RingRequest::kSf);
  }
}

bool has_switch(const RingSnapshot& ring) {
  return is(ring, RingState::kForced) && has_local(ring, RingRequest::kFs);
}

bool is_stuck(const RingSnapshot& ring) {
  return sends(ring, kFsCode) && !has_local(ring, RingRequest::kFs);
}

// The end of a sub-ring that joins its major ring has other reasons.
bool is_manual_stuck(const RingSnapshot& ring) {
  return ring.ring_role != kSubRingRole && sends(ring, kMsCode) &&
         !has_local(ring, RingRequest::kMs);
}

bool is_cut_off(const PortSnapshot& port) {
  return !port.link_up || port.fail_count != 0;
}

bool is_cut_off(const RingSnapshot& ring) {
  return is_cut_off(ring.ports[0]) && is_cut_off(ring.ports[1]);
}

// The watching ends of sub-rings are told again that their major ring is cut, which something made
// them forget.
template <typename Condition>
bool tell_cuts_again(Supposition& suppose, Condition is_meant) {
  bool any = false;
  for (NodeIndex node = 0; node < suppose.topology.nodes.size(); ++node) {
    for (const SubRingConfig& config : suppose.topology.nodes[node].sub_rings) {
      const RingSnapshot* major = suppose.hearing.ring(node, config.major_ring);
      RingSnapshot* sub_ring = suppose.hearing.ring(node, config.ring);
      if (config.interconnection_role == 1 && major != nullptr && is_cut_off(*major) &&
          sub_ring != nullptr && sub_ring->notify_state != 1 && is_meant(node, *sub_ring)) {
        sub_ring->notify_state = 1;
        any = true;
      }
    }
  }
  return any;
}

template <typename Condition>
bool end_switch_where(Supposition& suppose, Condition condition) {
  tell_cuts_again(suppose, [&](NodeIndex, const RingSnapshot& ring) { return condition(ring); });
  const bool changed = suppose.change_rings([&](RingSnapshot& ring) {
    if (ring.enabled && condition(ring)) {
      end_switch(ring);
    }
  });
  suppose.nobody_waits = suppose.nobody_waits || changed;
  return changed;
}

// Who was forced does not tell its failure, then or later, and does not hear of its end.
bool is_left(const RingSnapshot& ring) {
  const bool is_untold = has_failed_link(ring) && !has_local(ring, RingRequest::kSf);
  const bool is_unended = (is(ring, RingState::kProtection) || is(ring, RingState::kPending)) &&
                          ring.local_priority == 0 && !ring.sending && has_block(ring);
  return is(ring, RingState::kForced) || is_untold || is_unended;
}

// A manual switch beside a state that it did not make.
bool outlives(const RingSnapshot& ring) {
  return has_local(ring, RingRequest::kMs) && !is(ring, RingState::kManual);
}

}  // namespace

bool suppose_no_forced_switch(Supposition& suppose) {
  return suppose.any_ring(has_switch) && end_switch_where(suppose, [](const RingSnapshot& ring) {
           return is(ring, RingState::kForced);
         });
}

bool suppose_no_forced_switch_stuck(Supposition& suppose) {
  return suppose.any_ring(is_stuck) && end_switch_where(suppose, [](const RingSnapshot& ring) {
           return is_stuck(ring) || (is(ring, RingState::kForced) && !has_switch(ring));
         });
}

bool suppose_no_manual_switch_stuck(Supposition& suppose) {
  return suppose.any_ring(is_manual_stuck) &&
         end_switch_where(suppose, [](const RingSnapshot& ring) {
           return is_manual_stuck(ring) ||
                  (is(ring, RingState::kManual) && !has_local(ring, RingRequest::kMs));
         });
}

bool suppose_no_forced_left(Supposition& suppose) {
  return !suppose.any_ring(has_switch) && end_switch_where(suppose, is_left);
}

// Who is in manual beside a block that is not the switch's.
bool suppose_no_manual_switch(Supposition& suppose) {
  const auto has_manual = [](const RingSnapshot& ring) {
    return is(ring, RingState::kManual) && has_local(ring, RingRequest::kMs);
  };
  return suppose.any_ring(has_manual) && end_switch_where(suppose, [](const RingSnapshot& ring) {
           return is(ring, RingState::kManual);
         });
}

bool suppose_no_split_forgotten(Supposition& suppose) {
  const auto& forgotten = suppose.circumstances.splits_forgotten;
  return tell_cuts_again(suppose, [&](NodeIndex node, const RingSnapshot& ring) {
    return forgotten.count({node, ring.ring}) != 0 && !has_local(ring, RingRequest::kMs);
  });
}

bool suppose_no_split_outlived(Supposition& suppose) {
  return end_switch_where(suppose, [](const RingSnapshot& ring) {
    return ring.ring_role == kSubRingRole && sends(ring, kMsCode) && !is(ring, RingState::kManual);
  });
}

// Who went idle by a clear.
bool suppose_neighbour_blocks(Supposition& suppose) {
  constexpr uint32_t kNeighbour = 2;
  return suppose.change_rings([](RingSnapshot& ring) {
    for (PortSnapshot& port : ring.ports) {
      if (is(ring, RingState::kIdle) && ring.node_role == kNeighbour && port.present && port.rpl) {
        port.forwarding = false;
      }
    }
  });
}

bool suppose_no_manual_outlives(Supposition& suppose) {
  return end_switch_where(suppose, outlives);
}

}  // namespace erps::sim
