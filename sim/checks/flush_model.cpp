#include "sim/checks/flush_model.h"

#include <optional>

#include "erps/mgmt/message.h"
#include "sim/checks/reception.h"
#include "sim/checks/ring_questions.h"

namespace erps::sim {

namespace {

constexpr uint32_t kBprBit = 0x20;

bool is(uint32_t state, RingState expected) {
  return state == static_cast<uint32_t>(expected);
}

bool is_sub_ring(const RingSnapshot& ring) {
  return ring.ring_role == kSubRingRole;
}
bool is_accepted(const RingSnapshot& ring, RingRequest request) {
  return RingModel(ring).offer(request, {});
}

PortSet all_of(const RingSnapshot& ring) {
  return {true, !is_sub_ring(ring)};
}

PortSet one_of(size_t place) {
  return {place == 0, place == 1};
}

PortSet united(const PortSet& one, const PortSet& other) {
  return {one[0] || other[0], one[1] || other[1]};
}

// The port where the message comes in; all ports when the RPL is blocked again, and by the first
// news of a failure.
PortSet after_message(const Step& step) {
  const RingSnapshot& ring = *step.before;
  if (!takes_message(step)) {
    return {};
  }
  PortSet ports = asks_for_flush(step) ? one_of(place_of(ring, step.port)) : PortSet{};
  const RingRequest request = request_made_by(step);
  if (ring.guard_running || request == RingRequest::kNothing || !is_accepted(ring, request)) {
    return ports;
  }
  const bool comes_home = request == RingRequest::kRapsNrRb && !step.message.dnf() &&
                          is(ring.state, RingState::kPending) && !is_owner(ring) &&
                          !is_sub_ring(ring);
  const bool is_new =
      is(ring.state, RingState::kIdle) &&
      (request == RingRequest::kRapsSf || (request == RingRequest::kRapsMs && is_sub_ring(ring)));
  return comes_home || is_new ? united(ports, all_of(ring)) : ports;
}

// A link has failed. A failed port that is blocked already stands for both.
PortSet after_failure(const RingSnapshot& before, const RingSnapshot& after) {
  RingSnapshot failed = before;
  std::optional<size_t> place;
  bool is_blocked = false;
  for (size_t i = 0; i < (is_sub_ring(before) ? 1U : 2U); ++i) {
    if (before.ports[i].link_up && !after.ports[i].link_up) {
      place = i;
      failed.ports[i].link_up = false;
    }
    is_blocked = is_blocked || (!after.ports[i].link_up && !before.ports[i].forwarding);
  }
  if (!place || is_blocked || is(before.state, RingState::kForced) ||
      !is_accepted(failed, RingRequest::kSf)) {
    return {};
  }
  return is(before.state, RingState::kIdle) ? all_of(before) : one_of(*place);
}

// The owner blocks the RPL again; behind WTB only its first port is flushed.
PortSet after_delay(const RingSnapshot& before, const RingSnapshot& after) {
  if (!is_owner(before) || !is(before.state, RingState::kPending) ||
      !is(after.state, RingState::kIdle)) {
    return {};
  }
  bool rpl_is_blocked = false;
  for (const PortSnapshot& port : before.ports) {
    rpl_is_blocked = rpl_is_blocked || (!is_sub_ring(before) && port.rpl && !port.forwarding);
  }
  if (rpl_is_blocked) {
    return {};
  }
  return has_local(before, RingRequest::kWtr)   ? all_of(before)
         : has_local(before, RingRequest::kWtb) ? one_of(0)
                                                : PortSet{};
}

// Ports that a switch has blocked.
PortSet closed(const RingSnapshot& before, const RingSnapshot& after) {
  PortSet ports{};
  for (size_t i = 0; i < (is_sub_ring(before) ? 1U : 2U); ++i) {
    ports[i] = before.ports[i].forwarding && !after.ports[i].forwarding;
  }
  return ports;
}

PortSet after_command(const Step& step) {
  const RingSnapshot& before = *step.before;
  const RingSnapshot& after = *step.after;
  if (step.argument != before.ring) {
    return {};
  }
  if (step.command == mgmt::kForcedSwitch || step.command == mgmt::kManualSwitch) {
    return closed(before, after);
  }
  // A non-revertive owner does not wait: it puts its block back at once.
  const bool puts_back =
      step.command == mgmt::kClear && is_owner(before) && !before.revertive &&
      !is_sub_ring(before) && is(after.state, RingState::kPending) &&
      (is(before.state, RingState::kManual) || is(before.state, RingState::kForced));
  const PortSet ports = closed(before, after);
  return puts_back && (ports[0] || ports[1]) ? all_of(before) : PortSet{};
}

// The sub-ring's own switch, which lets its end carry what the major ring cannot.
PortSet after_indication(const RingSnapshot& before, const RingSnapshot& after) {
  const bool switches = is_sub_ring(before) && is(before.state, RingState::kIdle) &&
                        is(after.state, RingState::kManual) && before.ports[0].forwarding;
  return one_of(switches ? 0 : before.ports.size());
}

}  // namespace

size_t place_of(const RingSnapshot& ring, uint32_t port) {
  return is_sub_ring(ring) || ring.ports[0].port == port ? 0 : 1;
}

bool reference_of(const RapsMessage& message) {
  return (message.summary & kBprBit) != 0;
}

KnownSender known_sender(const PortSnapshot& port) {
  return {uint32_t{port.rx_node_id[4]} << 8U | port.rx_node_id[5], port.rx_bpr != 0};
}

KnownSender sender_of(const RapsMessage& message) {
  if (message.request() == kNrCode && !message.rb()) {
    return {};
  }
  return {message.node, reference_of(message)};
}

bool asks_for_flush(const Step& step) {
  const RingSnapshot& ring = *step.before;
  const RapsMessage& message = step.message;
  if ((message.request() == kNrCode && !message.rb()) || message.dnf()) {
    return false;
  }
  const size_t place = place_of(ring, step.port);
  const KnownSender known = known_sender(ring.ports[place]);
  if (known == sender_of(message)) {
    return false;
  }
  // What both ports knew alike was flushed at both.
  return is_sub_ring(ring) || !(known == known_sender(ring.ports[1 - place]));
}

PortSet ports_to_flush(const Step& step) {
  switch (step.cause) {
    case Step::Cause::kFrame:
      return after_message(step);
    case Step::Cause::kLink:
      return after_failure(*step.before, *step.after);
    case Step::Cause::kTimer:
      return united(after_failure(*step.before, *step.after),
                    after_delay(*step.before, *step.after));
    case Step::Cause::kCommand:
      return after_command(step);
    case Step::Cause::kIndication:
      return after_indication(*step.before, *step.after);
    case Step::Cause::kTopologyChange:
      return {};
  }
  return {};
}

}  // namespace erps::sim
