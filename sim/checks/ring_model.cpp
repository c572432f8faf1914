#include "sim/checks/ring_model.h"

#include <algorithm>

#include "sim/checks/ring_questions.h"

namespace erps::sim {

namespace {

constexpr uint32_t rank(RingRequest request) {
  return static_cast<uint32_t>(request);
}

// The local request that stands after a request was accepted, if the request changes it.
bool sets_local(RingRequest request, uint32_t& local) {
  switch (request) {
    case RingRequest::kFs:
    case RingRequest::kSf:
    case RingRequest::kMs:
    case RingRequest::kWtr:
    case RingRequest::kWtb:
      local = rank(request);
      return true;
    case RingRequest::kClear:
    case RingRequest::kClearSf:
    case RingRequest::kWtrExpires:
    case RingRequest::kWtbExpires:
      local = 0;
      return true;
    default:
      return false;
  }
}

}  // namespace

RingRequest request_of(uint32_t raps_request, bool rb) {
  switch (raps_request) {
    case kNrCode:
      return rb ? RingRequest::kRapsNrRb : RingRequest::kRapsNr;
    case kMsCode:
      return RingRequest::kRapsMs;
    case kSfCode:
      return RingRequest::kRapsSf;
    case kFsCode:
      return RingRequest::kRapsFs;
    default:
      return RingRequest::kNothing;
  }
}

bool RingModel::offer(RingRequest request, const RequestDetails& details) {
  const uint32_t local = now.local_priority;
  if (request == RingRequest::kClearSf) {
    if (local != rank(RingRequest::kSf)) {
      return false;
    }
    const bool other_is_down = !now.ports[0].link_up || !now.ports[1].link_up;
    if (!sub_ring() && other_is_down) {
      request = RingRequest::kSf;
    }
  } else if (request == RingRequest::kClear) {
    if (local != rank(RingRequest::kFs) && local != rank(RingRequest::kMs)) {
      return false;
    }
  } else if (local >= rank(request)) {
    return false;
  }
  sets_local(request, now.local_priority);
  act(request, details);
  if (sub_ring()) {
    replay_indication();
  }
  return true;
}

void RingModel::start(const std::array<bool, 2>& links_were_up) {
  const std::array<bool, 2> links_are_up{now.ports[0].link_up, now.ports[1].link_up};
  for (size_t i = 0; i < now.ports.size(); ++i) {
    now.ports[i].link_up = links_were_up[i];
  }
  now.local_priority = 0;
  enter(RingState::kPending);
  if (plain()) {
    now.ports[0].forwarding = true;
    now.ports[1].forwarding = false;
  } else {
    block_rpl();
    unblock_non_rpl();
  }
  send(kNrCode, false);
  wait_to_restore();
  bool has_changed = false;  // a link, since the start
  for (size_t i = 0; i < (sub_ring() ? 1U : 2U); ++i) {
    has_changed = has_changed || links_are_up[i] != links_were_up[i];
    now.ports[i].link_up = links_are_up[i];
    const bool is_taken = offer(links_are_up[i] ? RingRequest::kClearSf : RingRequest::kSf, {});
    // Before any link has changed, a failed port that is blocked does not stand for the other one.
    if (!links_are_up[i] && is_taken && !has_changed) {
      for_ports([](PortSnapshot& any) { any.forwarding = any.forwarding && any.link_up; });
    }
  }
}

void RingModel::indicate(uint32_t indication) {
  now.notify_state = indication;
  if (indication == kCut && state() == RingState::kIdle) {
    if (offer(RingRequest::kMs, {now.ports[0].port, false})) {
      now.ports[0].forwarding = true;
    }
  } else if (indication == kWhole && state() == RingState::kManual &&
             now.current_priority != rank(RingRequest::kRapsMs) && now.ports[0].forwarding &&
             (now.local_priority == rank(RingRequest::kMs) ||
              now.local_priority == rank(RingRequest::kFs))) {
    now.ports[0].forwarding = false;
    offer(RingRequest::kClear, {});
  }
}

// An indication that came while the sub-ring was busy takes effect when it is idle.
void RingModel::replay_indication() {
  if (state() == RingState::kIdle && now.notify_state == kCut) {
    now.notify_state = 0;
    if (offer(RingRequest::kMs, {now.ports[0].port, false})) {
      now.ports[0].forwarding = true;
    }
  }
}

bool RingModel::any_blocked() const {
  const auto blocked = [](const PortSnapshot& port) { return port.link_up && !port.forwarding; };
  return blocked(now.ports[0]) || (!sub_ring() && blocked(now.ports[1]));
}

void RingModel::block_rpl() {
  for_ports([this](PortSnapshot& port) {
    if (sub_ring() || (port.rpl && !plain())) {
      port.forwarding = false;
    }
  });
}

void RingModel::unblock_non_rpl() {
  for_ports([this](PortSnapshot& port) {
    if (plain() || (!port.rpl && !sub_ring())) {
      port.forwarding = true;
    }
  });
}

void RingModel::unblock_up() {
  for_ports([](PortSnapshot& port) { port.forwarding = port.forwarding || port.link_up; });
}

// A failed port that is blocked already stands for both.
void RingModel::block_failed() {
  bool is_blocked = false;
  for_ports([&](const PortSnapshot& port) {
    is_blocked = is_blocked || (!port.link_up && !port.forwarding);
  });
  if (!is_blocked) {
    for_ports([](PortSnapshot& port) { port.forwarding = port.forwarding && port.link_up; });
  }
}

// The port that a command names is blocked and the other one opened.
void RingModel::select(uint32_t blocked_port) {
  for_ports([=](PortSnapshot& port) {
    port.forwarding = port.port != blocked_port && (port.forwarding || port.link_up);
  });
}

void RingModel::send(uint32_t request, bool rb) {
  now.sending = true;
  now.tx_request = static_cast<uint8_t>(request);
  now.tx_rb = rb;
}

void RingModel::withdraw(RingRequest running) {
  if (now.local_priority == rank(running)) {
    now.local_priority = 0;
  }
}

void RingModel::stop_waiting() {
  if (owner()) {
    withdraw(RingRequest::kWtr);
    withdraw(RingRequest::kWtb);
  }
}

void RingModel::wait_to_restore() {
  if (owner() && now.revertive && now.local_priority < rank(RingRequest::kWtr)) {
    now.local_priority = rank(RingRequest::kWtr);
  }
}

void RingModel::wait_to_block() {
  if (owner() && now.revertive && now.local_priority < rank(RingRequest::kWtb)) {
    now.local_priority = rank(RingRequest::kWtb);
  }
}

void RingModel::act(RingRequest request, const RequestDetails& details) {
  if (state() == RingState::kInit || now.state > static_cast<uint32_t>(RingState::kPending)) {
    return;
  }
  switch (request) {
    case RingRequest::kClear:
      return clear();
    case RingRequest::kFs:
      return forced_switch(details);
    case RingRequest::kRapsFs:
      return raps_forced_switch();
    case RingRequest::kSf:
      return signal_fail();
    case RingRequest::kClearSf:
      return clear_signal_fail();
    case RingRequest::kRapsSf:
      return raps_signal_fail();
    case RingRequest::kRapsMs:
      return raps_manual_switch();
    case RingRequest::kMs:
      return manual_switch(details);
    case RingRequest::kWtrExpires:
    case RingRequest::kWtbExpires:
      return restore_block();
    case RingRequest::kRapsNrRb:
      return raps_no_request_blocked();
    case RingRequest::kRapsNr:
      return raps_no_request(details);
    default:
      return;
  }
}

void RingModel::clear() {
  if (state() == RingState::kManual || state() == RingState::kForced) {
    if (any_blocked()) {
      guard_started = true;
      send(kNrCode, false);
      if (owner() && now.revertive) {
        wait_to_block();
      } else if (owner()) {
        block_rpl();
        unblock_non_rpl();
      }
    }
    enter(RingState::kPending);
  } else if (state() == RingState::kPending) {
    if (owner()) {
      stop_waiting();
      block_rpl();
      send(kNrCode, true);
      unblock_non_rpl();
    }
    enter(RingState::kIdle);
  }
}

void RingModel::forced_switch(const RequestDetails& details) {
  if (state() == RingState::kForced) {
    for_ports([&](PortSnapshot& port) {
      port.forwarding = port.forwarding && port.port != details.port;
    });
    send(kFsCode, false);
    return;
  }
  select(details.port);
  send(kFsCode, false);
  if (state() == RingState::kPending) {
    stop_waiting();
  }
  enter(RingState::kForced);
}

void RingModel::raps_forced_switch() {
  if (state() == RingState::kForced) {
    return;
  }
  unblock_up();
  stop_sending();
  if (state() == RingState::kPending) {
    stop_waiting();
  }
  enter(RingState::kForced);
}

void RingModel::signal_fail() {
  if (state() == RingState::kForced) {
    return;
  }
  block_failed();
  unblock_up();
  send(kSfCode, false);
  if (state() == RingState::kPending) {
    stop_waiting();
  }
  enter(RingState::kProtection);
}

void RingModel::clear_signal_fail() {
  if (state() != RingState::kProtection) {
    return;
  }
  guard_started = true;
  if (now.revertive) {
    send(kNrCode, false);
    wait_to_restore();
  }
  enter(RingState::kPending);
}

void RingModel::raps_signal_fail() {
  const RingState from = state();
  if (from == RingState::kProtection || from == RingState::kForced) {
    return;
  }
  unblock_up();
  stop_sending();
  if (from == RingState::kPending) {
    stop_waiting();
  }
  enter(RingState::kProtection);
}

void RingModel::raps_manual_switch() {
  if (state() == RingState::kProtection || state() == RingState::kForced) {
    return;
  }
  if (state() == RingState::kManual) {
    if (any_blocked()) {
      guard_started = true;
      send(kNrCode, false);
      wait_to_restore();
    }
    enter(RingState::kPending);
    return;
  }
  unblock_up();
  stop_sending();
  if (state() == RingState::kPending) {
    stop_waiting();
  }
  enter(RingState::kManual);
}

void RingModel::manual_switch(const RequestDetails& details) {
  if (state() != RingState::kIdle && state() != RingState::kPending) {
    return;
  }
  if (state() == RingState::kPending) {
    stop_waiting();
  }
  select(details.port);
  send(kMsCode, false);
  enter(RingState::kManual);
}

// The end of WTR or WTB.
void RingModel::restore_block() {
  if (state() != RingState::kPending) {
    return;
  }
  if (owner()) {
    stop_waiting();
    block_rpl();
    send(kNrCode, true);
    unblock_non_rpl();
  }
  enter(RingState::kIdle);
}

void RingModel::raps_no_request_blocked() {
  if (state() == RingState::kIdle) {
    unblock_non_rpl();
    if (!owner()) {
      stop_sending();
    }
  } else if (state() == RingState::kPending) {
    if (owner()) {
      stop_waiting();
    } else {
      if (plain()) {
        unblock_up();
      } else {
        block_rpl();
        unblock_non_rpl();
      }
      stop_sending();
    }
    enter(RingState::kIdle);
  }
}

void RingModel::raps_no_request(const RequestDetails& details) {
  switch (state()) {
    case RingState::kIdle:
      if (plain() && details.from_lower_node) {
        stop_sending();
        unblock_up();
      }
      return;
    case RingState::kPending:
      if (details.from_lower_node) {
        stop_sending();
        unblock_up();
      }
      return;
    case RingState::kProtection:
      wait_to_restore();
      return enter(RingState::kPending);
    case RingState::kManual:
    case RingState::kForced:
      wait_to_block();
      return enter(RingState::kPending);
    default:
      return;
  }
}

}  // namespace erps::sim
