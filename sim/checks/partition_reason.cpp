#include "sim/checks/partition_reason.h"

#include <algorithm>
#include <array>

#include "sim/checks/graph.h"
#include "sim/checks/surprises.h"

namespace erps::sim {

namespace {

struct Surprise {
  const char* name;
  bool (*suppose_not)(Supposition&);
};

// In the order in which they are supposed away together.
constexpr std::array<Surprise, 21> kSurprises{{
    {surprise::kHoldoffLate, suppose_returns_told},
    {surprise::kNoModule, suppose_no_module_dead},
    {surprise::kSilentFailure, suppose_failures_seen},
    {surprise::kHoldoffEnded, suppose_first_failure_told},
    {surprise::kUncounted, suppose_failures_counted},
    {surprise::kForeignMark, suppose_marks_told_apart},
    {surprise::kEventRepeated, suppose_no_event_repeated},
    {surprise::kForcedSplit, suppose_no_forced_switch},
    {surprise::kForcedStuck, suppose_no_forced_switch_stuck},
    {surprise::kManualStuck, suppose_no_manual_switch_stuck},
    {surprise::kForcedLeft, suppose_no_forced_left},
    {surprise::kManualSplit, suppose_no_manual_switch},
    {surprise::kManualOutlives, suppose_no_manual_outlives},
    {surprise::kSplitForgotten, suppose_no_split_forgotten},
    {surprise::kSplitOutlived, suppose_no_split_outlived},
    {surprise::kNeighbourOpen, suppose_neighbour_blocks},
    {surprise::kNoNr, suppose_nr_heard},
    {surprise::kNonRevertive, suppose_revertive},
    {surprise::kNobodyWaits, suppose_owner_waits},
    {surprise::kOutranked, suppose_nobody_waits},
    {surprise::kCallFailed, suppose_switches_obey},
}};

enum class Goal { kNoPartition, kHome };

// A switch sends nothing through a port without a carrier, whatever its module says.
std::vector<bool> carrying(const Circumstances& circumstances) {
  std::vector<bool> strands(circumstances.forwarding.arcs.size());
  for (size_t i = 0; i < strands.size(); ++i) {
    strands[i] = circumstances.forwarding.arcs[i].works && circumstances.carriers[i];
  }
  return strands;
}

class Inquiry {
 public:
  Inquiry(const Topology& topology, const Circumstances& circumstances, Goal goal)
      : circumstances_(circumstances),
        goal_(goal),
        strands_(topology, carrying(circumstances)),
        suppose_{topology, circumstances, Hearing(topology, strands_), false, false} {}

  PartitionReason answer() {
    PartitionReason reason;
    begin();
    if (ends()) {
      reason.is_unheard = true;
      reason.concerned = suppose_.hearing.concerned();
      return reason;
    }
    std::set<const Surprise*> all;
    for (const Surprise& surprise : kSurprises) {
      if (ends_without({&surprise})) {
        reason.surprises = {surprise.name};
        return reason;
      }
      all.insert(&surprise);  // what is not so yet may be so when another is not
    }
    return together(all);
  }

 private:
  // Nothing is supposed yet.
  void begin() {
    suppose_.hearing.begin(circumstances_.rings);
    suppose_.nobody_waits = false;
    suppose_.switches_obey = false;
  }

  // Those of them without any of which it would last.
  PartitionReason together(std::set<const Surprise*> all) {
    PartitionReason reason;
    if (!ends_without(all)) {
      return reason;
    }
    for (const Surprise& surprise : kSurprises) {
      auto without = all;
      if (without.erase(&surprise) != 0 && ends_without(without)) {
        all = without;
      }
    }
    for (const Surprise* surprise : all) {
      reason.surprises.push_back(surprise->name);
    }
    return reason;
  }

  // What is supposed away stays away: it is supposed again of what has come of it.
  bool ends_without(const std::set<const Surprise*>& surprises) {
    constexpr int kMostRounds = 3;
    begin();
    for (int round = 0; round < kMostRounds; ++round) {
      bool is_so = false;
      for (const Surprise* surprise : surprises) {
        is_so = surprise->suppose_not(suppose_) || is_so;
      }
      if (!is_so) {
        return false;
      }
      if (ends()) {
        return true;
      }
    }
    return false;
  }

  bool ends() {
    if (suppose_.nobody_waits || goal_ == Goal::kHome) {
      suppose_.hearing.settle_without_waiting();
    } else {
      suppose_.hearing.settle();
    }
    return goal_ == Goal::kHome ? is_home() : !is_split();
  }

  bool is_home() const {
    return !suppose_.any_ring([](const RingSnapshot& ring) {
      constexpr uint32_t kOwnerOrNeighbour = 3;
      return !is(ring, RingState::kIdle) ||
             std::any_of(ring.ports.begin(), ring.ports.end(), [&](const PortSnapshot& port) {
               const bool is_rpl = (ring.node_role & kOwnerOrNeighbour) != 0 &&
                                   (port.rpl || ring.ring_role == kSubRingRole);
               return port.present && port.forwarding == is_rpl;
             });
    });
  }

  bool is_split() {
    then_ = circumstances_.forwarding;
    for (size_t i = 0; i < then_.arcs.size(); i += 2) {
      std::array<bool, 2> opens{};
      bool moves = false;
      for (size_t end = 0; end < 2; ++end) {
        opens[end] = forwards(i + end);
        moves = moves || opens[end] != circumstances_.open[i + end];
      }
      for (size_t arc = i; moves && arc < i + 2; ++arc) {
        then_.arcs[arc].forwards = then_.arcs[arc].works && opens[0] && opens[1];
      }
    }
    return has_partition(then_);
  }

  static const PortSnapshot* port_of(const std::vector<RingSnapshot>& rings, uint32_t port) {
    for (const RingSnapshot& ring : rings) {
      for (const PortSnapshot& at : ring.ports) {
        if (at.present && at.port == port) {
          return &at;
        }
      }
    }
    return nullptr;
  }

  // As it is, but for what is done on account of what is supposed. end: 2 * link + end.
  bool forwards(size_t end) const {
    const LinkEnd& at = suppose_.topology.links[end / 2].ends[end % 2];
    const PortSnapshot* then = port_of(suppose_.hearing.rings[at.node], at.port);
    const PortSnapshot* now = port_of(circumstances_.rings[at.node], at.port);
    const bool moves = then != nullptr && (now == nullptr || suppose_.switches_obey ||
                                           now->forwarding != then->forwarding);
    return moves ? then->forwarding : circumstances_.open[end];
  }

  const Circumstances& circumstances_;
  const Goal goal_;
  const Strands strands_;
  Supposition suppose_;
  Forwarding then_;  // as it would forward
};

}  // namespace

PartitionReason reason_of(const Topology& topology, const Circumstances& circumstances) {
  return Inquiry(topology, circumstances, Goal::kNoPartition).answer();
}

std::vector<const char*> why_never_home(const Topology& topology,
                                        const Circumstances& circumstances) {
  return Inquiry(topology, circumstances, Goal::kHome).answer().surprises;
}

}  // namespace erps::sim
