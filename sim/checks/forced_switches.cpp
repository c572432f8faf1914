#include "sim/checks/forced_switches.h"

#include <algorithm>

#include "sim/checks/ring_model.h"
#include "sim/checks/surprises.h"

namespace erps::sim {

namespace {

constexpr auto kFs = static_cast<uint32_t>(RingRequest::kFs);
constexpr auto kForced = static_cast<uint32_t>(RingState::kForced);

bool has_failed_link(const RingSnapshot& ring) {
  return std::any_of(ring.ports.begin(), ring.ports.end(),
                     [](const PortSnapshot& port) { return port.present && !port.link_up; });
}

bool has_block(const RingSnapshot& ring) {
  return std::any_of(ring.ports.begin(), ring.ports.end(),
                     [](const PortSnapshot& port) { return port.present && !port.forwarding; });
}

bool sends_fs(const RingSnapshot& ring) {
  constexpr uint8_t kFsMessage = 13;
  return ring.sending && ring.tx_request == kFsMessage;
}

bool is_pending(const RingSnapshot& ring) {
  return ring.state == static_cast<uint32_t>(RingState::kPending);
}

bool is_idle(const RingSnapshot& ring) {
  return ring.state == static_cast<uint32_t>(RingState::kIdle);
}

// What matters here.
bool same(const RingSnapshot* one, const RingSnapshot* other) {
  if (one == nullptr || other == nullptr) {
    return one == other;
  }
  return one->state == other->state && one->local_priority == other->local_priority &&
         has_failed_link(*one) == has_failed_link(*other) && has_block(*one) == has_block(*other) &&
         sends_fs(*one) == sends_fs(*other) && one->sending == other->sending;
}

}  // namespace

void ForcedSwitches::on_step(const Step& step) {
  if (same(step.before, step.after)) {
    return;
  }
  const uint32_t id = step.ring();
  size_t switches = 0;
  size_t left = 0;
  size_t stuck = 0;
  bool failed = false;
  const auto count = [&](const RingSnapshot* ring) {
    if (ring == nullptr) {
      failed = true;  // a node that is down has failed links
      return;
    }
    const bool own = ring->local_priority == kFs;
    // The ends of a link that failed stay blocked when it is back, as long as a switch is in force.
    const bool blocks =
        ring->state == kForced && !own && (has_block(*ring) || has_failed_link(*ring));
    failed = failed || has_failed_link(*ring) || blocks;
    // Who leaves it on a message keeps its block and says nothing, until R-APS(NR,RB).
    // Whose link fails meanwhile does not say so later.
    const bool says_nothing = has_failed_link(*ring) && ring->local_priority == 0 &&
                              (is_pending(*ring) || is_idle(*ring));
    const bool is_left =
        blocks || says_nothing || (is_pending(*ring) && !ring->sending && has_block(*ring));
    switches += own && ring->state == kForced ? 1 : 0;
    left += is_left ? 1 : 0;
    stuck += !own && sends_fs(*ring) ? 1 : 0;
  };
  for (NodeIndex node = 0; node < nodes_; ++node) {
    count(node == step.node ? step.after : watch_.ring(node, id));
  }
  set(id, surprise::kForcedSplit, step.from_us, switches > 1 || (switches == 1 && failed));
  set(id, surprise::kForcedLeft, step.from_us, switches == 0 && left != 0);
  set(id, surprise::kForcedStuck, step.from_us, stuck != 0);
}

void ForcedSwitches::set(uint32_t ring, const char* surprise, int64_t time_us, bool holds) {
  const auto open = std::find_if(spells_.begin(), spells_.end(), [&](const Spell& spell) {
    return spell.lasts && spell.ring == ring && spell.surprise == surprise;
  });
  if (holds && open == spells_.end()) {
    spells_.push_back({ring, surprise, time_us, time_us, true});
  } else if (!holds && open != spells_.end()) {
    open->to_us = time_us;
    open->lasts = false;
  }
}

void ForcedSwitches::forget_before(int64_t time_us) {
  std::erase_if(spells_, [=](const Spell& spell) { return !spell.lasts && spell.to_us < time_us; });
}

}  // namespace erps::sim
