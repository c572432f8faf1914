#include "sim/checks/state_checker.h"

#include <algorithm>
#include <array>
#include <vector>

#include "sim/checks/reception.h"
#include "sim/checks/ring_questions.h"
#include "sim/checks/surprises.h"
#include "sim/management.h"
#include "sim/simulation.h"

namespace erps::sim {

namespace {

void set_link(RingSnapshot& ring, uint32_t port, bool up) {
  for (size_t i = 0; i < (ring.ring_role == kSubRingRole ? 1U : 2U); ++i) {
    if (ring.ports[i].port == port) {
      ring.ports[i].link_up = up;
    }
  }
}

// Only what the module has decided; what its timer task changes meanwhile is not compared.
bool agrees(const RingSnapshot& expected, const RingSnapshot& seen) {
  const auto same_port = [](const PortSnapshot& one, const PortSnapshot& other) {
    return one.forwarding == other.forwarding && one.link_up == other.link_up;
  };
  const bool same_message =
      !expected.sending || (expected.tx_request == seen.tx_request && expected.tx_rb == seen.tx_rb);
  return expected.state == seen.state && expected.local_priority == seen.local_priority &&
         same_port(expected.ports[0], seen.ports[0]) &&
         (expected.ring_role == kSubRingRole || same_port(expected.ports[1], seen.ports[1])) &&
         same_message && (expected.sending || !seen.sending);
}

// Whether the failure of a link makes the one of the other.
bool is_failure(const RingSnapshot& before, const RingSnapshot& after) {
  return std::any_of(before.ports.begin(), before.ports.end(), [&](const PortSnapshot& port) {
    RingModel model(before);
    set_link(model.now, port.port, false);
    model.offer(RingRequest::kSf, {});
    return agrees(model.now, after);
  });
}

std::string text_of(const RingSnapshot& ring) {
  std::string text = std::string(state_name(ring.state)) + ", local request " +
                     std::to_string(ring.local_priority);
  for (size_t i = 0; i < (ring.ring_role == kSubRingRole ? 1U : 2U); ++i) {
    const PortSnapshot& port = ring.ports[i];
    text += ", port " + std::to_string(port.port) + (port.link_up ? " up" : " down") +
            (port.forwarding ? " forwarding" : " blocked");
  }
  text += ring.guard_running ? ", guarded" : "";
  if (ring.sending) {
    text += ", sending " + std::to_string(ring.tx_request) + (ring.tx_rb ? " RB" : "");
  }
  return text;
}

std::string text_of_cause(const Step& step) {
  switch (step.cause) {
    case Step::Cause::kLink:
      return "link of port " + std::to_string(step.port) + (step.up ? " up" : " down");
    case Step::Cause::kFrame: {
      const Record record{
          0, 0, RecordKind::kFrameReceived, step.port, step.message.summary, step.message.node};
      return to_text(record);
    }
    case Step::Cause::kTimer:
      return "timer";
    case Step::Cause::kCommand:
      return "command " + std::to_string(step.command);
    case Step::Cause::kTopologyChange:
      return "topology change";
    case Step::Cause::kIndication:
      return "indication";
  }
  return "";
}

}  // namespace

StateChecker::StateChecker(const Topology& topology, const Mishaps* mishaps)
    : topology_(topology), mishaps_(mishaps) {
  for (const NodePlan& node : topology.nodes) {
    nodes_.emplace(uint32_t{node.address[4]} << 8U | node.address[5], node.address);
  }
}

void StateChecker::collect(int64_t /*now_us*/, std::vector<Finding>& findings) {
  findings_.append_to(findings);
}

void StateChecker::on_record(const Record& record) {
  if (record.kind == RecordKind::kCarrier) {
    carrier_changed_us_[{record.node, record.port}] = record.time_us;
  }
}

void StateChecker::on_step(const Step& step) {
  if (step.after == nullptr || (step.before == nullptr && !step.after->enabled)) {
    return;
  }
  outcomes_.clear();
  allow(step);
  const RingSnapshot& after = *step.after;
  const bool allowed =
      std::any_of(outcomes_.begin(), outcomes_.end(), [&](const RingSnapshot& outcome) {
        return agrees(outcome, after) && guard_agrees(step, outcome);
      });
  if (allowed) {
    return;
  }
  // The expiry of a hold-off was under way when the return of the link ended that.
  const bool is_late = step.cause == Step::Cause::kTimer && step.before != nullptr &&
                       !step.before->holdoff_running &&
                       topology_.nodes[step.node].holdoff_ms != 0 &&
                       is_failure(*step.before, after);
  const bool is_refused = mishaps_ != nullptr && mishaps_->call_failed(step.node, step.from_us);
  const std::string was = step.before != nullptr ? text_of(*step.before) : "not there";
  std::string expected;
  for (const RingSnapshot& outcome : outcomes_) {
    expected += (expected.empty() ? "" : ", or: ") + text_of(outcome);
  }
  findings_.add({"state", step.from_us, step.to_us, step.node,
                 "ring " + std::to_string(step.ring()) + " was " + was + "; after " +
                     text_of_cause(step) + " it is " + text_of(after) + "; expected: " + expected,
                 is_late      ? surprise::kHoldoffLate
                 : is_refused ? surprise::kCallFailed
                              : ""});
}

void StateChecker::offer(const RingSnapshot& ring, RingRequest request,
                         const RequestDetails& details) {
  RingModel model(ring);
  model.offer(request, details);
  add(model);
}

void StateChecker::add(RingModel& model) {
  model.now.guard_running = model.now.guard_running || model.guard_started;
  outcomes_.push_back(model.now);
}

// A guard that ran before may have ended meanwhile, and so may one that started if the event took
// that long.
bool StateChecker::guard_agrees(const Step& step, const RingSnapshot& expected) const {
  if (step.before == nullptr || step.before->guard_running ||
      expected.guard_running == step.after->guard_running) {
    return true;
  }
  const int64_t guard_us = int64_t{topology_.nodes[step.node].guard_ms} * kMillisecondUs;
  return expected.guard_running && step.to_us - step.from_us >= guard_us;
}

void StateChecker::allow(const Step& step) {
  const bool was_enabled = step.before != nullptr && step.before->enabled;
  if (!was_enabled || !step.after->enabled) {
    return allow_after_start(step);
  }
  switch (step.cause) {
    case Step::Cause::kLink:
      return allow_after_link(step);
    case Step::Cause::kFrame:
      return allow_after_frame(step);
    case Step::Cause::kTimer:
      return allow_after_timer(step);
    case Step::Cause::kCommand:
      return allow_after_command(step);
    case Step::Cause::kTopologyChange: {
      outcomes_.push_back(*step.before);
      outcomes_.push_back(*step.before);
      outcomes_.back().tx_request = kEventCode;
      outcomes_.back().tx_rb = false;
      return;
    }
    case Step::Cause::kIndication:
      return allow_after_indication(step);
  }
}

// A ring that is stopped does nothing.
void StateChecker::allow_after_start(const Step& step) {
  RingSnapshot ring = *step.after;
  if (!ring.enabled) {
    ring.state = static_cast<uint32_t>(RingState::kInit);
    ring.sending = false;
    outcomes_.push_back(ring);
    return;
  }
  if (step.cause != Step::Cause::kCommand || step.command != mgmt::kSetEnable) {
    return;
  }
  std::vector<std::array<bool, 2>> first_looks{{ring.ports[0].link_up, ring.ports[1].link_up}};
  for (size_t i = 0; i < ring.ports.size(); ++i) {
    if (!carrier_changed_during(step, ring.ports[i].port)) {
      continue;
    }
    for (size_t look = first_looks.size(); look-- > 0;) {
      first_looks.push_back(first_looks[look]);
      first_looks.back()[i] = !ring.ports[i].link_up;
    }
  }
  for (const auto& links_were_up : first_looks) {
    RingModel model(ring);
    model.start(links_were_up);
    outcomes_.push_back(model.now);
  }
}

bool StateChecker::carrier_changed_during(const Step& step, uint32_t port) const {
  const auto changed = carrier_changed_us_.find({step.node, port});
  return changed != carrier_changed_us_.end() && changed->second >= step.from_us;
}

void StateChecker::allow_after_link(const Step& step) {
  const RingSnapshot& before = *step.before;
  const uint32_t holdoff_ms = topology_.nodes[step.node].holdoff_ms;
  if (!has_port(before, step.port) || (!step.up && holdoff_ms != 0 && !before.holdoff_running)) {
    outcomes_.push_back(before);
    return;
  }
  RingSnapshot changed = before;
  set_link(changed, step.port, step.up);
  offer(changed, step.up ? RingRequest::kClearSf : RingRequest::kSf, {});
}

void StateChecker::allow_after_frame(const Step& step) {
  const RingSnapshot& before = *step.before;
  const NodePlan& plan = topology_.nodes[step.node];
  const auto is_untagged = [&](const RingConfig& ring) { return ring.control_vlan == 0; };
  if (std::any_of(plan.rings.begin(), plan.rings.end(), is_untagged)) {
    outcomes_.push_back(*step.after);
    return;
  }
  const RingRequest request = request_made_by(step);
  if (!takes_message(step) || request == RingRequest::kNothing) {
    outcomes_.push_back(before);
    return;
  }
  if (before.guard_running) {
    outcomes_.push_back(before);
    if (step.after->guard_running) {
      return;
    }
  }
  offer_message(step, request);
}

void StateChecker::offer_message(const Step& step, RingRequest request) {
  const auto [first, last] = nodes_.equal_range(step.message.node);
  for (auto sender = first; sender != last; ++sender) {
    offer(*step.before, request, {0, sender->second < step.before->local_node_id});
  }
  if (first == last) {
    offer(*step.before, request, {0, false});
    offer(*step.before, request, {0, true});
  }
}

// The trace does not tell which sub-ring it is for, nor what it says.
void StateChecker::allow_after_indication(const Step& step) {
  const bool is_for_this_one =
      step.before->ring_role == kSubRingRole && topology_.nodes[step.node].sub_rings.size() == 1;
  if (!is_for_this_one) {
    outcomes_.push_back(*step.before);
  }
  for (const uint32_t indication : {1U, 2U}) {
    RingModel model(*step.before);
    model.indicate(indication);
    if (!is_for_this_one || model.now.notify_state == step.after->notify_state) {
      add(model);
    }
  }
}

// The trace does not tell which timer it was; when it may be over is the timer checker's concern.
void StateChecker::allow_after_timer(const Step& step) {
  const RingSnapshot& before = *step.before;
  outcomes_.push_back(before);
  offer(before, RingRequest::kWtrExpires, {});
  offer(before, RingRequest::kWtbExpires, {});
  if (before.holdoff_running) {
    for (const PortSnapshot& port : before.ports) {
      RingSnapshot changed = before;
      set_link(changed, port.port, false);
      offer(changed, RingRequest::kSf, {});
    }
  }
}

void StateChecker::allow_after_command(const Step& step) {
  const RingSnapshot& before = *step.before;
  const bool concerns = step.argument == before.ring;
  if (concerns && step.command == mgmt::kClear) {
    return offer(before, RingRequest::kClear, {});
  }
  outcomes_.push_back(before);
  if (concerns && (step.command == mgmt::kForcedSwitch || step.command == mgmt::kManualSwitch)) {
    const bool forced = step.command == mgmt::kForcedSwitch;
    for (const PortSnapshot& port : before.ports) {
      offer(before, forced ? RingRequest::kFs : RingRequest::kMs, {port.port, false});
    }
  }
}

}  // namespace erps::sim
