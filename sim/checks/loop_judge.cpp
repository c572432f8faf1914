#include "sim/checks/loop_judge.h"

#include <algorithm>

#include "sim/checks/convergence.h"
#include "sim/checks/graph.h"
#include "sim/checks/ring_model.h"
#include "sim/checks/surprises.h"

namespace erps::sim {

namespace {

constexpr uint8_t kSfMessage = 11;

bool is(const RingSnapshot& ring, RingState state) {
  return ring.state == static_cast<uint32_t>(state);
}

bool has_failed_link(const RingSnapshot& ring) {
  return std::any_of(ring.ports.begin(), ring.ports.end(),
                     [](const PortSnapshot& port) { return port.present && !port.link_up; });
}

bool opens_a_port(const RingSnapshot& before, const RingSnapshot& after) {
  for (size_t i = 0; i < before.ports.size(); ++i) {
    if (before.ports[i].present && !before.ports[i].forwarding && after.ports[i].forwarding) {
      return true;
    }
  }
  return false;
}

// A non-revertive ring goes on repeating its R-APS(SF) when the link is back.
bool repeats_an_old_failure(const RingSnapshot& ring) {
  return !ring.revertive && is(ring, RingState::kPending) && ring.sending &&
         ring.tx_request == kSfMessage && !has_failed_link(ring);
}

// Both ports failed, and this one not first: it was left forwarding.
bool failed_second(const RingSnapshot& ring, uint32_t port) {
  const bool both = std::all_of(ring.ports.begin(), ring.ports.end(),
                                [](const PortSnapshot& at) { return at.present && !at.link_up; });
  return both && std::any_of(ring.ports.begin(), ring.ports.end(), [=](const PortSnapshot& at) {
           return at.port == port && at.forwarding;
         });
}

// A sub-ring's end starts pending with its port open, and repeats R-APS(NR) as if it blocked.
bool is_open_end(const RingSnapshot& ring) {
  constexpr uint32_t kSubRingRole = 2;
  constexpr uint8_t kNrMessage = 0;
  return ring.ring_role == kSubRingRole && is(ring, RingState::kPending) && ring.sending &&
         ring.tx_request == kNrMessage && !ring.tx_rb && ring.ports[0].forwarding;
}

std::string in_milliseconds(int64_t time_us) {
  return std::to_string(time_us / kMillisecondUs) + "." +
         std::to_string(time_us % kMillisecondUs / 100) + " ms";
}

}  // namespace

LoopJudge::LoopJudge(Simulation& simulation, const RingWatch& watch, const Bounds& bounds)
    : topology_(simulation.topology()), watch_(watch), bounds_(bounds) {}

void LoopJudge::on_record(const Record& record) {
  if (record.kind != RecordKind::kCarrier || record.a != 1) {
    return;
  }
  const auto& rings = watch_.rings(record.node);
  const bool was_left = std::any_of(rings.begin(), rings.end(), [&](const RingSnapshot& ring) {
    return failed_second(ring, record.port);
  });
  for (LinkIndex link = 0; was_left && link < topology_.links.size(); ++link) {
    for (const LinkEnd& end : topology_.links[link].ends) {
      if (end == LinkEnd{record.node, record.port}) {
        returns_.push_back({record.time_us, link, record.node});
      }
    }
  }
}

void LoopJudge::on_step(const Step& step) {
  const bool starts = step.after != nullptr && step.after->enabled &&
                      (step.before == nullptr || !step.before->enabled);
  if (starts && is_open_end(*step.after)) {
    hand_overs_.push_back({step.to_us, step.ring()});
  }
  if (step.cause != Step::Cause::kFrame || step.before == nullptr || step.after == nullptr ||
      step.message.ring() != (step.before->ring & 0xFFU) ||
      !opens_a_port(*step.before, *step.after)) {
    return;
  }
  for (NodeIndex sender = 0; sender < topology_.nodes.size(); ++sender) {
    const MacAddress& address = topology_.nodes[sender].address;
    const RingSnapshot* ring = watch_.ring(sender, step.ring());
    if ((uint32_t{address[4]} << 8U | address[5]) == step.message.node && ring != nullptr) {
      on_sender(step, sender, *ring);
    }
  }
}

void LoopJudge::on_sender(const Step& step, NodeIndex sender, const RingSnapshot& ring) {
  const RingRequest request = request_of(step.message.request(), step.message.rb());
  if (request == RingRequest::kRapsSf && repeats_an_old_failure(*step.before) &&
      !has_failed_link(ring)) {
    crossings_.push_back({step.to_us, step.ring(), step.node, sender});
  }
  if (request == RingRequest::kRapsNr && is(*step.before, RingState::kPending) &&
      is_open_end(ring)) {
    hand_overs_.push_back({step.to_us, step.ring()});
  }
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

const char* LoopJudge::surprise_at(int64_t time_us) const {
  // Who has opened says no more: what opens the other end was on its way before.
  const auto opened_by = [&](const Crossing& last) {
    return std::any_of(crossings_.begin(), crossings_.end(), [&](const Crossing& one) {
      return one.node == last.sender && one.ring == last.ring && one.node != last.node &&
             last.time_us - one.time_us <= bounds_.transit_us;
    });
  };
  for (const Crossing& last : crossings_) {
    if (last.time_us == time_us && opened_by(last)) {
      return surprise::kCrossedFailures;
    }
  }
  const auto other_end_too = [&](const Return& last) {
    return std::any_of(returns_.begin(), returns_.end(), [&](const Return& one) {
      return one.link == last.link && one.node != last.node &&
             last.time_us - one.time_us <= bounds_.carrier_us;
    });
  };
  for (const Return& last : returns_) {
    if (last.time_us == time_us && other_end_too(last)) {
      return surprise::kSecondFailure;
    }
  }
  const bool is_handed_over =
      std::any_of(hand_overs_.begin(), hand_overs_.end(), [=, this](const HandOver& one) {
        return one.time_us == time_us || is_open_all_around(one.ring);
      });
  return is_handed_over ? surprise::kOpenEnd : "";
}

void LoopJudge::on_forwarding(int64_t time_us, const Forwarding& forwarding) {
  const bool loops = has_loop(forwarding);
  if (loops && !open_) {
    loop_ = {time_us, time_us, surprise_at(time_us)};
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
  const bool is_too_long =
      (loop.surprise == surprise::kSecondFailure &&
       length_us > bounds_.carrier_us + 2 * bounds_.transit_us) ||
      (loop.surprise == surprise::kOpenEnd && length_us > home_bound_us(topology_));
  into.add({"loop", loop.from_us, loop.to_us, std::nullopt,
            "frames circulate for " + in_milliseconds(length_us),
            is_too_long ? "" : loop.surprise});
}

void LoopJudge::forget_before(int64_t time_us) {
  std::erase_if(crossings_, [=](const Crossing& one) { return one.time_us < time_us; });
  // What nobody has blocked since may close another loop.
  std::erase_if(hand_overs_, [=, this](const HandOver& one) {
    return one.time_us < time_us && !is_open_all_around(one.ring);
  });
  std::erase_if(returns_, [=](const Return& one) { return one.time_us < time_us; });
}

void LoopJudge::collect(int64_t now_us, std::vector<Finding>& findings) {
  FindingList late = findings_;
  if (open_) {
    tell({loop_.from_us, now_us, loop_.surprise}, late);
  }
  late.append_to(findings);
}

}  // namespace erps::sim
