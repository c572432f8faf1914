#include "sim/checks/stuck_rings.h"

#include <algorithm>

#include "sim/checks/ring_model.h"
#include "sim/checks/surprises.h"

namespace erps::sim {

namespace {

bool is(const RingSnapshot& ring, RingState state) {
  return ring.state == static_cast<uint32_t>(state);
}

bool has_local(const RingSnapshot& ring, RingRequest request) {
  return ring.local_priority == static_cast<uint32_t>(request);
}

bool is_owner(const RingSnapshot& ring) {
  return (ring.node_role & 1U) != 0;
}

// What has just made it impossible for the ring to go idle at this node, if anything has.
const char* reason_of(const Step& step) {
  constexpr uint8_t kFsMessage = 13;
  const RingSnapshot& after = *step.after;
  if (after.sending && after.tx_request == kFsMessage && !has_local(after, RingRequest::kFs)) {
    return surprise::kForcedStuck;
  }
  const bool protects = is(after, RingState::kProtection) || is(after, RingState::kManual) ||
                        is(after, RingState::kForced);
  // The command is in force beside a state that it did not make, and outranks what ends that.
  if (has_local(after, RingRequest::kMs) &&
      (is(after, RingState::kProtection) || is(after, RingState::kForced) ||
       is(after, RingState::kPending))) {
    return surprise::kManualOutlives;
  }
  if (step.cause == Step::Cause::kFrame && protects && after.local_priority == 0 &&
      (after.ring & 0xFFU) == step.message.ring() && !step.before->guard_running &&
      request_of(step.message.request(), step.message.rb()) == RingRequest::kRapsNrRb) {
    return surprise::kNoNr;
  }
  if (is_owner(after) && !after.revertive &&
      (is(after, RingState::kPending) || is(after, RingState::kProtection))) {
    return surprise::kNonRevertive;
  }
  const bool waits = has_local(after, RingRequest::kWtr) || has_local(after, RingRequest::kWtb);
  if (is_owner(after) && after.revertive && is(after, RingState::kPending) &&
      !is(*step.before, RingState::kPending) && !waits) {
    return surprise::kNobodyWaits;
  }
  return nullptr;
}

// A node in pending does not hear the R-APS(NR,RB) in whose place an idle owner repeats an Event.
bool waits_for_a_silent_owner(Simulation& simulation, NodeIndex node, uint32_t id) {
  constexpr uint8_t kEventMessage = 14;
  const auto ring_matches = [&](NodeIndex at, const auto& condition) {
    const auto rings = simulation.records(at).rings();
    return std::any_of(rings.begin(), rings.end(), [&](const RingSnapshot& ring) {
      return ring.ring == id && condition(ring);
    });
  };
  bool owner_is_silent = false;
  for (NodeIndex other = 0; other < simulation.topology().nodes.size(); ++other) {
    owner_is_silent = owner_is_silent || ring_matches(other, [](const RingSnapshot& ring) {
                        return is_owner(ring) && is(ring, RingState::kIdle) && ring.sending &&
                               ring.tx_request == kEventMessage;
                      });
  }
  return owner_is_silent &&
         ring_matches(node, [](const RingSnapshot& ring) { return is(ring, RingState::kPending); });
}

}  // namespace

void StuckRings::on_record(const Record& record) {
  if (record.kind == RecordKind::kCrash) {
    std::erase_if(stuck_, [&](const auto& entry) { return entry.first.first == record.node; });
  }
}

void StuckRings::on_step(const Step& step) {
  if (step.before == nullptr || step.after == nullptr) {
    return;
  }
  const std::pair where{step.node, step.after->ring};
  if (const char* reason = reason_of(step); reason != nullptr) {
    stuck_[where] = reason;
  } else if (step.after->state != step.before->state) {
    stuck_.erase(where);
  }
}

std::set<std::string> StuckRings::explain(uint32_t ring,
                                          const std::set<NodeIndex>& not_home) const {
  std::set<std::string> reasons;
  bool everybody = true;
  bool whole_ring = false;
  for (const NodeIndex node : not_home) {
    const auto found = stuck_.find({node, ring});
    if (found == stuck_.end() && waits_for_a_silent_owner(simulation_, node, ring)) {
      reasons.insert(surprise::kEventRepeated);
      continue;
    }
    if (found == stuck_.end()) {
      everybody = false;
      continue;
    }
    reasons.insert(found->second);
    const RingSnapshot* at = nullptr;
    std::vector<RingSnapshot> rings = simulation_.records(node).rings();
    for (const RingSnapshot& one : rings) {
      at = one.ring == ring ? &one : at;
    }
    // Without the owner's NR,RB nobody goes idle, and with an R-APS(FS) nobody stays so.
    whole_ring =
        whole_ring || (at != nullptr && is_owner(*at)) || found->second == surprise::kForcedStuck;
  }
  return everybody || whole_ring ? reasons : std::set<std::string>{};
}

}  // namespace erps::sim
