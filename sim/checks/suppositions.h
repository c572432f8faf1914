// What may be supposed about a network that stays split or does not come home: that one thing which
// it does by itself had not happened.
//
// Each supposition changes the rings as far as its condition holds of them, and says whether it
// did: what is not so cannot be supposed away.
#pragma once

#include <set>
#include <utility>
#include <vector>

#include "sim/checks/hearing.h"
#include "sim/checks/ring_questions.h"
#include "sim/forwarding.h"

namespace erps::sim {

// How things stand in a network.
struct Circumstances {
  Forwarding forwarding;
  std::vector<bool> carriers;  // by 2 * link + end, whether the end has one
  std::vector<bool> open;      // ... and whether its port forwards
  std::vector<bool> dead;      // by node, whether it has power and no module
  Hearing::Rings rings;        // none where no module runs
  // By node and sub-ring: ends that do not know any more that they have a split major ring to join.
  std::set<std::pair<NodeIndex, uint32_t>> splits_forgotten;
};

// What is supposed about it.
struct Supposition {
  const Topology& topology;
  const Circumstances& circumstances;
  Hearing hearing;
  bool nobody_waits = false;
  bool switches_obey = false;

  // Does something to every ring of every node; whether any was changed by it.
  template <typename Change>
  bool change_rings(Change change) {
    bool changed = false;
    for (auto& rings : hearing.rings) {
      for (RingSnapshot& ring : rings) {
        const RingSnapshot before = ring;
        change(ring);
        changed = changed || ring != before;
      }
    }
    return changed;
  }
  template <typename Condition>
  bool any_ring(Condition condition) const {
    return std::any_of(hearing.rings.begin(), hearing.rings.end(), [&](const auto& rings) {
      return std::any_of(rings.begin(), rings.end(), condition);
    });
  }
};

// What is done to a ring.
inline void enter(RingSnapshot& ring, RingState state) {
  ring.state = static_cast<uint32_t>(state);
}
inline void offer(RingSnapshot& ring, RingRequest request) {
  RingModel model(ring);
  model.offer(request, {});
  ring = model.now;
}

// Of links and nodes: supposed_failures.cpp.
bool suppose_failures_seen(Supposition& suppose);
bool suppose_first_failure_told(Supposition& suppose);
bool suppose_returns_told(Supposition& suppose);
bool suppose_failures_counted(Supposition& suppose);
bool suppose_marks_told_apart(Supposition& suppose);
bool suppose_no_module_dead(Supposition& suppose);
bool suppose_switches_obey(Supposition& suppose);

// Of switches that an operator or a major ring asked for: supposed_commands.cpp.
bool suppose_no_forced_switch(Supposition& suppose);
bool suppose_no_forced_switch_stuck(Supposition& suppose);
bool suppose_no_manual_switch_stuck(Supposition& suppose);
bool suppose_no_forced_left(Supposition& suppose);
bool suppose_no_manual_switch(Supposition& suppose);
bool suppose_no_manual_outlives(Supposition& suppose);
bool suppose_no_split_forgotten(Supposition& suppose);
bool suppose_no_split_outlived(Supposition& suppose);
bool suppose_neighbour_blocks(Supposition& suppose);

// Of what the nodes wait for: supposed_waits.cpp.
bool suppose_no_event_repeated(Supposition& suppose);
bool suppose_nr_heard(Supposition& suppose);
bool suppose_owner_waits(Supposition& suppose);
bool suppose_revertive(Supposition& suppose);
bool suppose_nobody_waits(Supposition& suppose);

}  // namespace erps::sim
