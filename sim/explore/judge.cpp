#include "sim/explore/judge.h"

#include <algorithm>

namespace erps::sim::explore {

namespace {

constexpr uint32_t kIdle = 1;
constexpr uint32_t kProtection = 2;
constexpr uint32_t kForced = 4;
constexpr uint32_t kPending = 5;
constexpr uint32_t kOwner = 1;
constexpr uint32_t kNeighbour = 2;

template <typename Predicate>
bool every_ring(const Model& model, const NetworkState& state, Predicate predicate) {
  for (NodeIndex node = 0; node < model.topology().nodes.size(); ++node) {
    const auto& rings = model.local(state, node).rings;
    if (!std::all_of(rings.begin(), rings.end(), predicate)) {
      return false;
    }
  }
  return true;
}

bool some_ring(const Model& model, const NetworkState& state,
               bool (*predicate)(const RingSnapshot&)) {
  return !every_ring(model, state, [=](const RingSnapshot& ring) { return !predicate(ring); });
}

}  // namespace

// A node that is not the owner stands in protection by itself: it heard no NR before the NR,RB that
// brought the others home, has nothing to say and blocks nothing.
bool Judge::heard_no_nr(const NetworkState& state) const {
  bool some = false;
  const bool others_are_home = every_ring(model_, state, [&some](const RingSnapshot& ring) {
    const bool owner = ring.node_role == kOwner;
    const bool as_at_home =
        std::all_of(ring.ports.begin(), ring.ports.end(), [&ring](const PortSnapshot& port) {
          const bool rpl_end =
              port.rpl && (ring.node_role == kOwner || ring.node_role == kNeighbour);
          return !port.present || (port.link_up && port.forwarding != rpl_end);
        });
    const bool deaf = ring.state == kProtection && !owner && !ring.sending;
    some = some || deaf;
    return ring.revertive && as_at_home && (deaf || ring.state == kIdle) &&
           (!owner || (ring.sending && ring.tx_rb));
  });
  return others_are_home && some;
}

bool Judge::is_revertive(const NetworkState& state) const {
  return every_ring(model_, state, [](const RingSnapshot& ring) { return ring.revertive; });
}

Verdict Judge::at_once(const NetworkState& state) {
  if (!model_.has_loop(state)) {
    return {};
  }
  Verdict verdict{"a forwarding loop: " + model_.state_text(state), {}};
  // Both ends of a link that came back have opened it: each took the other's repeated SF for the
  // ring's, and no owner of a non-revertive ring ever blocks its RPL again.
  const bool stuck = every_ring(model_, state, [](const RingSnapshot& ring) {
    return !ring.revertive && ring.state != kIdle &&
           std::all_of(ring.ports.begin(), ring.ports.end(), [](const PortSnapshot& port) {
             return !port.present || (port.link_up && port.forwarding);
           });
  });
  if (stuck && state.cuts + state.strand_failures + state.crashes != 0) {
    verdict.surprise = "repeats of SF that cross open a non-revertive ring";
  }
  return verdict;
}

bool Judge::is_wrong_for_long(const NetworkState& state) {
  if (state.switched != 0) {
    return false;
  }
  return model_.has_partition(state) || (model_.is_whole(state) && !model_.is_home(state));
}

Verdict Judge::for_long(const NetworkState& state) {
  const bool split = model_.has_partition(state);
  Verdict verdict;
  if (state.switched != 0 || (!split && (!model_.is_whole(state) || model_.is_home(state)))) {
    return verdict;
  }
  verdict.what = std::string(split ? "split although working links join it"
                                   : "not at rest although everything works") +
                 ", for good: " + model_.state_text(state);
  if (!split && !is_revertive(state) && every_ring(model_, state, [](const RingSnapshot& ring) {
        return ring.state == kPending || ring.state == kProtection;
      })) {
    verdict.surprise = "a non-revertive ring does not go back to idle";
  } else if (!split && heard_no_nr(state)) {
    verdict.surprise = "a node that heard no R-APS(NR) stays in protection";
  } else if (split && state.commands != 0 && some_ring(model_, state, [](const RingSnapshot& ring) {
               return ring.state == kForced && std::any_of(ring.ports.begin(), ring.ports.end(),
                                                           [](const PortSnapshot& port) {
                                                             return port.present && !port.link_up;
                                                           });
             })) {
    verdict.surprise = "a forced switch that is cleared while a link is down splits the ring";
  }
  return verdict;
}

}  // namespace erps::sim::explore
