#include "sim/checks/loop_judge.h"

#include <algorithm>

#include "sim/checks/convergence.h"
#include "sim/checks/graph.h"
#include "sim/checks/ring_questions.h"
#include "sim/checks/surprises.h"
#include "sim/checks/time_text.h"
#include "sim/checks/watching_ends.h"

namespace erps::sim {

namespace {

bool opens_a_port(const RingSnapshot& before, const RingSnapshot& after) {
  for (size_t i = 0; i < before.ports.size(); ++i) {
    if (before.ports[i].present && !before.ports[i].forwarding && after.ports[i].forwarding) {
      return true;
    }
  }
  return false;
}

// The owner of a sub-ring hears a manual switch, mostly of an end that joins the major ring, and
// does not block when its wait would have been over.
bool ends_wait_by_switch(const Step& step) {
  return step.cause == Step::Cause::kFrame && step.before != nullptr && step.after != nullptr &&
         step.message.request() == kMsCode && is_owner(*step.before) && waits(*step.before) &&
         !waits(*step.after) && is(*step.after, RingState::kManual);
}

// With or without a link.
bool has_blocked_port(const RingSnapshot& ring) {
  return std::any_of(ring.ports.begin(), ring.ports.end(),
                     [](const PortSnapshot& port) { return port.present && !port.forwarding; });
}

// A non-revertive ring goes on repeating its R-APS(SF) when the link is back.
bool repeats_an_old_failure(const RingSnapshot& ring) {
  return !ring.revertive && is(ring, RingState::kPending) && sends(ring, kSfCode) &&
         !has_failed_link(ring);
}

// Another port had failed first, or a switch was forced: it was left forwarding.
bool is_left_open(const RingSnapshot& ring, uint32_t port) {
  return std::any_of(ring.ports.begin(), ring.ports.end(), [=](const PortSnapshot& at) {
    return at.present && at.port == port && !at.link_up && at.forwarding;
  });
}

// A sub-ring's end starts pending with its port open, and repeats R-APS(NR) as if it blocked.
bool is_open_end(const RingSnapshot& ring) {
  return ring.ring_role == kSubRingRole && is(ring, RingState::kPending) && sends(ring, kNrCode) &&
         !ring.tx_rb && ring.ports[0].forwarding;
}

}  // namespace

LoopJudge::LoopJudge(Simulation& simulation, const RingWatch& watch, const Bounds& bounds)
    : topology_(simulation.topology()),
      watch_(watch),
      bounds_(bounds),
      dead_(simulation.topology().nodes.size()) {}

void LoopJudge::on_record(const Record& record) {
  if (record.kind == RecordKind::kKilled || record.kind == RecordKind::kStopped) {
    dead_[record.node] = true;
    const auto& at = watch_.rings(record.node);
    const bool was_to_block = std::any_of(at.begin(), at.end(), [](const RingSnapshot& ring) {
      return is_owner(ring) && waits(ring);
    });
    if (open_ && was_to_block && loop_.cause.surprise == surprise::kOpenEnd) {
      loop_.cause = {surprise::kOpenEnd};
    }
  } else if (record.kind == RecordKind::kRunning || record.kind == RecordKind::kCrash) {
    dead_[record.node] = false;
  }
  if (record.kind != RecordKind::kCarrier || record.a != 1) {
    return;
  }
  const auto& rings = watch_.rings(record.node);
  const bool was_left =
      dead_[record.node] || std::any_of(rings.begin(), rings.end(), [&](const RingSnapshot& ring) {
        return is_left_open(ring, record.port);
      });
  const bool is_forced = std::any_of(rings.begin(), rings.end(), [&](const RingSnapshot& ring) {
    return is(ring, RingState::kForced) && is_left_open(ring, record.port);
  });
  for (LinkIndex link = 0; was_left && link < topology_.links.size(); ++link) {
    for (const LinkEnd& end : topology_.links[link].ends) {
      if (end == LinkEnd{record.node, record.port}) {
        returns_.push_back({record.time_us, link, record.node, is_forced});
      }
    }
  }
}

void LoopJudge::on_step(const Step& step) {
  // What nobody has blocked since may close another loop.
  if (step.after == nullptr || has_blocked_port(*step.after)) {
    std::erase_if(openings_, [&](const Opening& one) {
      return one.ring == step.ring() && one.to_us < step.from_us - kSecondUs;
    });
  }
  watch_opening(step);
  if (open_ && loop_.cause.surprise == surprise::kTwoRepair && two_repair()) {
    loop_.cause.most_us = step.to_us - loop_.from_us + bounds_.repeat_us;
  }
  if (open_ && loop_.cause.surprise == surprise::kOpenEnd && ends_wait_by_switch(step)) {
    loop_.cause = {surprise::kOpenEnd};
  }
}

// What closed the loop is told when its event is over, and so is what the event has made of the
// ring.
void LoopJudge::on_event_done(int64_t /*time_us*/, NodeIndex /*node*/) {
  const bool is_unknown = *loop_.cause.surprise == '\0';
  if (!open_ || (!is_unknown && loop_.cause.surprise != surprise::kSecondFailure)) {
    return;
  }
  if (const Cause cause = cause_by_open_ring(); *cause.surprise != '\0') {
    loop_.cause = cause;
  } else if (is_unknown) {
    loop_.cause = cause_at(loop_.from_us);
  }
}

void LoopJudge::watch_opening(const Step& step) {
  if (step.after == nullptr) {
    return;
  }
  // Whose own reason to block is over has a guard time against what was said before; who starts has
  // none.
  if ((step.cause == Step::Cause::kLink || step.cause == Step::Cause::kCommand) &&
      step.before != nullptr && step.before->enabled && !is(*step.before, RingState::kPending) &&
      is(*step.after, RingState::kPending) && sends(*step.after, kNrCode)) {
    guarded_until_us_[{step.node, step.ring()}] =
        step.from_us + int64_t{topology_.nodes[step.node].guard_ms} * kMillisecondUs;
  }
  const bool starts = step.after->enabled && (step.before == nullptr || !step.before->enabled);
  const bool hears = step.cause == Step::Cause::kFrame && step.before != nullptr &&
                     step.message.ring() == (step.before->ring & 0xFFU) &&
                     opens_a_port(*step.before, *step.after);
  const char* surprise = starts && is_open_end(*step.after) ? surprise::kOpenEnd
                         : hears                            ? surprise_of(step)
                                                            : "";
  if (*surprise != '\0') {
    openings_.push_back({step.from_us, step.to_us, step.ring(), surprise});
  }
}

// Of a port that is opened on a message: whether its sender has a block as it says.
const char* LoopJudge::surprise_of(const Step& step) const {
  const RingRequest request = request_of(step.message.request(), step.message.rb());
  for (NodeIndex sender = 0; sender < topology_.nodes.size(); ++sender) {
    const MacAddress& address = topology_.nodes[sender].address;
    if ((uint32_t{address[4]} << 8U | address[5]) != step.message.node) {
      continue;
    }
    const RingSnapshot* ring = watch_.ring(sender, step.ring());
    if (ring != nullptr && has_blocked_port(*ring)) {
      return "";
    }
    const bool is_said =
        ring != nullptr && ring->sending && request_of(ring->tx_request, ring->tx_rb) == request;
    if (!is_said) {
      const auto guard = guarded_until_us_.find({step.node, step.ring()});
      if (guard != guarded_until_us_.end() && step.from_us < guard->second) {
        return "";
      }
      return request == RingRequest::kRapsSf && repeats_an_old_failure(*step.before)
                 ? surprise::kCrossedFailures
                 : surprise::kOldMessage;
    }
    return is_open_end(*ring) ? surprise::kOpenEnd
           : request == RingRequest::kRapsMs && ring->ring_role != kSubRingRole
               ? surprise::kManualCollision
               : "";
  }
  return "";
}

// A major ring is cut into two, and more than one sub-ring joins them.
bool LoopJudge::two_repair() const {
  std::map<uint32_t, uint32_t> repaired;  // by major ring, the sub-ring
  const auto ends = open_watching_ends(topology_, watch_);
  return std::any_of(ends.begin(), ends.end(), [&](const WatchingEnd& end) {
    return end.is_cut && !end.is_old &&
           repaired.try_emplace(end.major_ring, end.sub_ring).first->second != end.sub_ring;
  });
}

// A whole major ring, by a sub-ring that is open all around.
bool LoopJudge::goes_on_joining() const {
  const auto ends = open_watching_ends(topology_, watch_);
  return std::any_of(ends.begin(), ends.end(), [&](const WatchingEnd& end) {
    return !end.is_cut && !end.heeds_end && is_open_all_around(end.sub_ring);
  });
}

// The watching node took its major ring for cut on both sides. What it was told last may be over;
// what is told still, it hears the end of.
LoopJudge::Cause LoopJudge::cause_by_count() const {
  Cause cause{"", 0};
  for (const WatchingEnd& end : open_watching_ends(topology_, watch_)) {
    const Cause by_this = end.is_cut && !end.is_old ? Cause{surprise::kOldCount, bounds_.repeat_us}
                          : end.is_cut              ? Cause{surprise::kOldCount}
                          : end.heeds_end  // it is about to close
                              ? Cause{surprise::kOldCount, bounds_.transit_us}
                              : Cause{surprise::kSplitOutlived};
    cause = by_this.most_us > cause.most_us ? by_this : cause;
  }
  return cause;
}

bool LoopJudge::owner_waits(uint32_t ring) const {
  for (NodeIndex node = 0; node < topology_.nodes.size(); ++node) {
    const RingSnapshot* at = watch_.ring(node, ring);
    if (at != nullptr && is_owner(*at)) {
      return !dead_[node] && waits(*at);
    }
  }
  return false;
}

bool LoopJudge::is_open_all_around(uint32_t ring) const {
  bool is_open = true;
  for (NodeIndex node = 0; node < topology_.nodes.size(); ++node) {
    if (const RingSnapshot* at = watch_.ring(node, ring); at != nullptr) {
      is_open = is_open && std::all_of(at->ports.begin(), at->ports.end(), [](const auto& port) {
                  return !port.present || (port.link_up && port.forwarding);
                });
    }
  }
  return is_open;
}

LoopJudge::Cause LoopJudge::cause_by_opening(const Opening& opening) const {
  // Only an owner that waits blocks then.
  const bool is_bounded = opening.surprise == surprise::kOpenEnd && owner_waits(opening.ring);
  return is_bounded ? Cause{opening.surprise, home_bound_us(topology_)} : Cause{opening.surprise};
}

// A ring that is open all around loops whichever link has come back.
LoopJudge::Cause LoopJudge::cause_by_open_ring() const {
  const auto around = std::find_if(openings_.rbegin(), openings_.rend(), [&](const Opening& one) {
    return is_open_all_around(one.ring);
  });
  if (around != openings_.rend()) {
    return cause_by_opening(*around);
  }
  return goes_on_joining() ? Cause{surprise::kSplitOutlived} : Cause{"", 0};
}

LoopJudge::Cause LoopJudge::cause_at(int64_t time_us) const {
  const auto other_end_too = [&](const Return& last) {
    return std::any_of(returns_.begin(), returns_.end(), [&](const Return& one) {
      return one.link == last.link && one.node != last.node &&
             last.time_us - one.time_us <= bounds_.carrier_us;
    });
  };
  if (const Cause cause = cause_by_open_ring(); *cause.surprise != '\0') {
    return cause;
  }
  for (const Return& last : returns_) {
    if (last.time_us == time_us && last.is_forced && other_end_too(last)) {
      return {surprise::kForcedLeft};
    }
    if (last.time_us == time_us && other_end_too(last)) {
      return {surprise::kSecondFailure, bounds_.carrier_us + 2 * bounds_.transit_us};
    }
  }
  for (auto last = openings_.rbegin(); last != openings_.rend(); ++last) {
    if (last->from_us <= time_us && time_us <= last->to_us) {
      return cause_by_opening(*last);
    }
  }
  return two_repair() ? Cause{surprise::kTwoRepair, bounds_.repeat_us} : cause_by_count();
}

void LoopJudge::on_forwarding(int64_t time_us, const Forwarding& forwarding) {
  const bool loops = has_loop(forwarding);
  if (loops && !open_) {
    loop_ = {time_us, time_us, cause_at(time_us)};
  } else if (!loops && open_) {
    loop_.to_us = time_us;
    tell(loop_, findings_);
  }
  open_ = loops;
  forget_before(time_us - kSecondUs);
}

// The first node that handles the return of a link blocks, and the owner when it has waited; only
// crossed messages leave nobody to do so.
void LoopJudge::tell(const Loop& loop, FindingList& into) const {
  const int64_t length_us = loop.to_us - loop.from_us;
  into.add({"loop", loop.from_us, loop.to_us, std::nullopt,
            "frames circulate for " + in_milliseconds(length_us),
            length_us > loop.cause.most_us ? "" : loop.cause.surprise});
}

void LoopJudge::forget_before(int64_t time_us) {
  std::erase_if(returns_, [=](const Return& one) { return one.time_us < time_us; });
}

void LoopJudge::collect(int64_t now_us, std::vector<Finding>& findings) {
  FindingList late = findings_;
  if (open_) {
    tell({loop_.from_us, now_us, loop_.cause}, late);
  }
  late.append_to(findings);
}

}  // namespace erps::sim
