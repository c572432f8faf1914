#include "sim/checks/partition_reason.h"

#include <algorithm>
#include <array>

#include "sim/checks/graph.h"
#include "sim/checks/surprises.h"

namespace erps::sim {

namespace {

constexpr uint8_t kNrCode = 0;
constexpr uint8_t kMsCode = 7;
constexpr uint8_t kSfCode = 11;
constexpr uint8_t kFsCode = 13;
constexpr uint8_t kEventCode = 14;
constexpr uint32_t kOwner = 1;

bool is(const RingSnapshot& ring, RingState state) {
  return ring.state == static_cast<uint32_t>(state);
}

void enter(RingSnapshot& ring, RingState state) {
  ring.state = static_cast<uint32_t>(state);
}

bool has_local(const RingSnapshot& ring, RingRequest request) {
  return ring.local_priority == static_cast<uint32_t>(request);
}

bool is_owner(const RingSnapshot& ring) {
  return (ring.node_role & kOwner) != 0;
}

bool sends(const RingSnapshot& ring, uint8_t code) {
  return ring.sending && ring.tx_request == code;
}

bool has_failed_link(const RingSnapshot& ring) {
  return std::any_of(ring.ports.begin(), ring.ports.end(),
                     [](const PortSnapshot& port) { return port.present && !port.link_up; });
}

bool has_block(const RingSnapshot& ring) {
  return std::any_of(ring.ports.begin(), ring.ports.end(), [](const PortSnapshot& port) {
    return port.present && port.link_up && !port.forwarding;
  });
}

void offer(RingSnapshot& ring, RingRequest request) {
  RingModel model(ring);
  model.offer(request, {});
  ring = model.now;
}

// What is supposed about a network.
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

RingSnapshot at_home(const NodePlan& node, uint32_t ring, uint32_t role, uint32_t ring_role) {
  RingSnapshot at;
  at.ring = ring;
  at.ring_role = ring_role;
  at.node_role = role;
  at.enabled = true;
  at.local_node_id = node.address;
  at.inter_fault_port = -1;
  enter(at, RingState::kIdle);
  at.sending = role == kOwner;
  at.tx_rb = at.sending;
  return at;
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
      constexpr uint32_t kSubRingRole = 2;
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

// An Event in its place is what is repeated.
bool suppose_no_event_repeated(Supposition& suppose) {
  return suppose.change_rings([](RingSnapshot& ring) {
    if (sends(ring, kEventCode)) {
      ring.tx_request = has_local(ring, RingRequest::kFs)   ? kFsCode
                        : has_local(ring, RingRequest::kSf) ? kSfCode
                        : has_local(ring, RingRequest::kMs) ? kMsCode
                                                            : kNrCode;
      ring.tx_rb = is(ring, RingState::kIdle) && is_owner(ring);
    }
  });
}

// As a clear would that comes to everybody, who then tells what has failed.
void end_switch(RingSnapshot& ring) {
  constexpr uint32_t kSubRingRole = 2;
  if (ring.ring_role == kSubRingRole && is(ring, RingState::kForced) &&
      has_local(ring, RingRequest::kMs)) {
    // It was open for its major ring before.
    enter(ring, RingState::kManual);
    ring.sending = ring.ports[0].forwarding = true;
    ring.tx_request = kMsCode;
    ring.tx_rb = false;
    return;
  }
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

template <typename Condition>
bool end_switch_where(Supposition& suppose, Condition condition) {
  const bool changed = suppose.change_rings([&](RingSnapshot& ring) {
    if (ring.enabled && condition(ring)) {
      end_switch(ring);
    }
  });
  suppose.nobody_waits = suppose.nobody_waits || changed;
  return changed;
}

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

// Who was forced does not tell its failure, then or later, and does not hear of its end.
bool is_left(const RingSnapshot& ring) {
  const bool is_untold = has_failed_link(ring) && !has_local(ring, RingRequest::kSf);
  const bool is_unended = (is(ring, RingState::kProtection) || is(ring, RingState::kPending)) &&
                          ring.local_priority == 0 && !ring.sending && has_block(ring);
  return is(ring, RingState::kForced) || is_untold || is_unended;
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

// A manual switch beside a state that it did not make.
bool outlives(const RingSnapshot& ring) {
  return has_local(ring, RingRequest::kMs) && !is(ring, RingState::kManual);
}

bool is_cut_off(const PortSnapshot& port) {
  return !port.link_up || port.fail_count != 0;
}

// The end of a sub-ring is told again that its major ring is cut.
bool suppose_no_manual_outlives(Supposition& suppose) {
  for (NodeIndex node = 0; node < suppose.topology.nodes.size(); ++node) {
    for (const SubRingConfig& config : suppose.topology.nodes[node].sub_rings) {
      const RingSnapshot* major = suppose.hearing.ring(node, config.major_ring);
      RingSnapshot* sub_ring = suppose.hearing.ring(node, config.ring);
      if (major != nullptr && sub_ring != nullptr && outlives(*sub_ring) &&
          is_cut_off(major->ports[0]) && is_cut_off(major->ports[1])) {
        sub_ring->notify_state = 1;
      }
    }
  }
  return end_switch_where(suppose, outlives);
}

// Who is in a state that nobody asks for any more.
bool suppose_nr_heard(Supposition& suppose) {
  const auto anybody_sends = [&](uint32_t id, uint8_t code) {
    return suppose.any_ring(
        [=](const RingSnapshot& ring) { return ring.ring == id && sends(ring, code); });
  };
  return suppose.change_rings([&](RingSnapshot& ring) {
    const bool is_stale = (is(ring, RingState::kProtection) && !has_failed_link(ring) &&
                           !anybody_sends(ring.ring, kSfCode)) ||
                          (is(ring, RingState::kManual) && !anybody_sends(ring.ring, kMsCode)) ||
                          (is(ring, RingState::kForced) && !anybody_sends(ring.ring, kFsCode));
    if (is_stale && ring.local_priority == 0) {
      offer(ring, RingRequest::kRapsNr);
    }
  });
}

// A revertive owner in pending that does not even wait.
bool suppose_owner_waits(Supposition& suppose) {
  return suppose.change_rings([](RingSnapshot& ring) {
    if (is_owner(ring) && ring.revertive && is(ring, RingState::kPending) &&
        ring.local_priority == 0) {
      offer(ring, RingRequest::kWtrExpires);
    }
  });
}

bool suppose_revertive(Supposition& suppose) {
  return suppose.change_rings([](RingSnapshot& ring) {
    if (!ring.revertive) {
      ring.revertive = true;
      if (is_owner(ring) && is(ring, RingState::kPending) && ring.local_priority == 0) {
        offer(ring, RingRequest::kWtrExpires);
      }
    }
  });
}

bool suppose_nobody_waits(Supposition& suppose) {
  suppose.nobody_waits = true;
  return true;
}

bool suppose_switches_obey(Supposition& suppose) {
  suppose.switches_obey = true;
  return true;
}

struct Surprise {
  const char* name;
  bool (*suppose_not)(Supposition&);
};

// In the order in which they are supposed away together.
constexpr std::array<Surprise, 16> kSurprises{{
    {surprise::kHoldoffLate, suppose_returns_told},
    {surprise::kNoModule, suppose_no_module_dead},
    {surprise::kSilentFailure, suppose_failures_seen},
    {surprise::kHoldoffEnded, suppose_first_failure_told},
    {surprise::kUncounted, suppose_failures_counted},
    {surprise::kEventRepeated, suppose_no_event_repeated},
    {surprise::kForcedSplit, suppose_no_forced_switch},
    {surprise::kForcedStuck, suppose_no_forced_switch_stuck},
    {surprise::kForcedLeft, suppose_no_forced_left},
    {surprise::kManualSplit, suppose_no_manual_switch},
    {surprise::kManualOutlives, suppose_no_manual_outlives},
    {surprise::kNoNr, suppose_nr_heard},
    {surprise::kNonRevertive, suppose_revertive},
    {surprise::kNobodyWaits, suppose_owner_waits},
    {surprise::kOutranked, suppose_nobody_waits},
    {surprise::kCallFailed, suppose_switches_obey},
}};

enum class Goal { kNoPartition, kHome };

class Inquiry {
 public:
  Inquiry(const Topology& topology, const Circumstances& circumstances, Goal goal)
      : topology_(topology), circumstances_(circumstances), goal_(goal) {
    for (const Arc& arc : circumstances.forwarding.arcs) {
      strands_.push_back(arc.works);
    }
  }

  PartitionReason answer() const {
    PartitionReason reason;
    Supposition heard = supposition();
    if (ends(heard)) {
      reason.is_unheard = true;
      reason.concerned = heard.hearing.concerned();
      return reason;
    }
    std::set<const Surprise*> all;
    for (const Surprise& surprise : kSurprises) {
      Supposition suppose = supposition();
      if (surprise.suppose_not(suppose) && ends(suppose)) {
        reason.surprises = {surprise.name};
        return reason;
      }
      all.insert(&surprise);  // what is not so yet may be so when another is not
    }
    return together(all);
  }

 private:
  Supposition supposition() const {
    return {topology_, circumstances_, Hearing(topology_, circumstances_.rings, strands_), false,
            false};
  }

  // Those of them without any of which it would last.
  PartitionReason together(std::set<const Surprise*> all) const {
    const auto end_it = [this](const std::set<const Surprise*>& surprises) {
      Supposition suppose = supposition();
      for (const Surprise* surprise : surprises) {
        surprise->suppose_not(suppose);
      }
      return ends(suppose);
    };
    PartitionReason reason;
    if (!end_it(all)) {
      return reason;
    }
    for (const Surprise& surprise : kSurprises) {
      auto without = all;
      if (without.erase(&surprise) != 0 && end_it(without)) {
        all = without;
      }
    }
    for (const Surprise* surprise : all) {
      reason.surprises.push_back(surprise->name);
    }
    return reason;
  }

  bool ends(Supposition& suppose) const {
    if (suppose.nobody_waits || goal_ == Goal::kHome) {
      suppose.hearing.settle_without_waiting();
    } else {
      suppose.hearing.settle();
    }
    return goal_ == Goal::kHome ? is_home(suppose) : !is_split(suppose);
  }

  static bool is_home(const Supposition& suppose) {
    return !suppose.any_ring([](const RingSnapshot& ring) {
      constexpr uint32_t kAtRpl = 3;
      constexpr uint32_t kSubRingRole = 2;
      return !is(ring, RingState::kIdle) ||
             std::any_of(ring.ports.begin(), ring.ports.end(), [&](const PortSnapshot& port) {
               const bool is_rpl =
                   (ring.node_role & kAtRpl) != 0 && (port.rpl || ring.ring_role == kSubRingRole);
               return port.present && port.forwarding == is_rpl;
             });
    });
  }

  bool is_split(const Supposition& suppose) const {
    Forwarding then = circumstances_.forwarding;
    for (size_t i = 0; i < then.arcs.size(); i += 2) {
      std::array<bool, 2> opens{};
      bool moves = false;
      for (size_t end = 0; end < 2; ++end) {
        opens[end] = forwards(suppose, i + end);
        moves = moves || opens[end] != circumstances_.open[i + end];
      }
      for (size_t arc = i; moves && arc < i + 2; ++arc) {
        then.arcs[arc].forwards = then.arcs[arc].works && opens[0] && opens[1];
      }
    }
    return has_partition(then);
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
  bool forwards(const Supposition& suppose, size_t end) const {
    const LinkEnd& at = topology_.links[end / 2].ends[end % 2];
    const PortSnapshot* then = port_of(suppose.hearing.rings[at.node], at.port);
    const PortSnapshot* now = port_of(circumstances_.rings[at.node], at.port);
    const bool moves = then != nullptr && (now == nullptr || suppose.switches_obey ||
                                           now->forwarding != then->forwarding);
    return moves ? then->forwarding : circumstances_.open[end];
  }

  const Topology& topology_;
  const Circumstances& circumstances_;
  const Goal goal_;
  std::vector<bool> strands_;
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
