#include "client/ring_status.h"

#include <stdio.h>
#include <string.h>

#include "client/words.h"

namespace erps::client {

namespace {

constexpr uint32_t kSecondsPerMinute = 60;
constexpr uint32_t kMsPerSecond = 1000;
constexpr uint32_t kWtbBeyondGuardMs = 5000;  // the module keeps WTB at guard + 5 s

uint32_t word_of(const uint8_t* data, uint32_t word) {
  return read_u32(data + size_t{4} * word);
}

PortStatus port_of(const uint8_t* data, uint32_t first_word) {
  return PortStatus{word_of(data, first_word), word_of(data, first_word + 1),
                    word_of(data, first_word + 2) == 1};
}

uint32_t since(uint32_t start_s, uint32_t now_s) {
  return now_s > start_s ? now_s - start_s : 0;
}

uint32_t left_of(uint32_t period_s, uint32_t elapsed_s) {
  return period_s > elapsed_s ? period_s - elapsed_s : 0;
}

uint32_t rounded_up_s(uint32_t ms) {
  return (ms + kMsPerSecond - 1) / kMsPerSecond;
}

TimerStatus running_for(uint32_t elapsed_s, uint32_t period_s) {
  return TimerStatus{true, elapsed_s, left_of(period_s, elapsed_s)};
}

}  // namespace

uint32_t read_u32(const uint8_t* data) {
  return static_cast<uint32_t>(data[0]) << 24 | static_cast<uint32_t>(data[1]) << 16 |
         static_cast<uint32_t>(data[2]) << 8 | static_cast<uint32_t>(data[3]);
}

bool RingStatus::is_interconnection_sub_ring() const {
  return ring_role == kSubRingAtInterconnection;
}

std::vector<PortStatus> RingStatus::ports() const {
  std::vector<PortStatus> all{port0};
  if (port1) {
    all.push_back(*port1);
  }
  return all;
}

bool RingStatus::has_port(uint32_t port) const {
  return port0.port == port || (port1 && port1->port == port);
}

std::vector<uint32_t> RingStatus::blocked_ports() const {
  std::vector<uint32_t> blocked;
  for (const PortStatus& port : ports()) {
    if (port.state == kPortBlocked) {
      blocked.push_back(port.port);
    }
  }
  return blocked;
}

std::optional<uint32_t> RingStatus::rpl_port() const {
  if (node_role != kOwner && node_role != kNeighbour) {
    return std::nullopt;
  }
  // The module marks the second port as the one at the RPL; a sub-ring's own port is its only one.
  return port1 ? port1->port : port0.port;
}

RingTimers RingStatus::timers(const TimerSettings& settings, uint32_t now_s) const {
  RingTimers timers;
  const uint32_t elapsed_s = since(timer_start_s, now_s);
  const bool delay_timer =
      local_request == kRequestWtrRunning || local_request == kRequestWtbRunning;
  if (local_request == kRequestWtrRunning) {
    timers.wtr = running_for(elapsed_s, settings.wtr_minutes * kSecondsPerMinute);
    if (settings.wtr_minutes == 0) {
      timers.wtr.remaining_s.reset();  // below a minute the module does not tell the time
    }
  } else if (local_request == kRequestWtbRunning) {
    timers.wtb = running_for(elapsed_s, rounded_up_s(settings.guard_ms + kWtbBeyondGuardMs));
  }
  if (guard_running) {
    timers.guard.running = true;
    if (!delay_timer) {
      timers.guard = running_for(elapsed_s, rounded_up_s(settings.guard_ms));
    }
  }
  if (holdoff_running) {
    timers.holdoff = running_for(since(holdoff_start_s, now_s), rounded_up_s(settings.holdoff_ms));
  }
  return timers;
}

RingStatus decode_ring_status(const uint8_t* data) {
  RingStatus ring;
  ring.ring_id = word_of(data, mgmt::kRingId);
  ring.state = word_of(data, mgmt::kState);
  ring.timer_start_s = word_of(data, mgmt::kTimerStart);
  ring.holdoff_start_s = word_of(data, mgmt::kHoldoffStart);
  ring.node_role = word_of(data, mgmt::kNodeRole);
  ring.ring_role = word_of(data, mgmt::kRingRoleWord);
  ring.port0 = port_of(data, mgmt::kPort0Id);
  if (!ring.is_interconnection_sub_ring()) {
    ring.port1 = port_of(data, mgmt::kPort1Id);
  }
  ring.control_vlan = word_of(data, mgmt::kVlanId);
  ring.revertive = word_of(data, mgmt::kNonRevertive) == 0;
  ring.sending = word_of(data, mgmt::kSending) == 1;
  ring.local_request = word_of(data, mgmt::kLocalPriority);
  ring.partner_ring = word_of(data, mgmt::kInterconnectRing);
  ring.enabled = word_of(data, mgmt::kEnabled) == 1;
  ring.guard_running = word_of(data, mgmt::kGuardRunning) == 1;
  ring.holdoff_running = word_of(data, mgmt::kHoldoffRunning) == 1;
  ring.interconnection_role = word_of(data, mgmt::kInterNodeRole);
  ring.last_request = word_of(data, mgmt::kCurrentPriority);
  memcpy(ring.node_id.data(), data + mgmt::kRingConfNodeIdOffset, ring.node_id.size());
  return ring;
}

std::string mac_text(const MacAddress& mac) {
  char text[18];
  snprintf(text, sizeof text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3],
           mac[4], mac[5]);
  return text;
}

std::optional<MacAddress> mac_of(const std::string& text) {
  constexpr size_t kTextLength = 17;
  if (text.size() != kTextLength) {
    return std::nullopt;
  }
  const auto digit = [](char c) -> int {
    if (c >= '0' && c <= '9') {
      return c - '0';
    }
    if (c >= 'a' && c <= 'f') {
      return c - 'a' + 10;
    }
    return c >= 'A' && c <= 'F' ? c - 'A' + 10 : -1;
  };
  MacAddress mac{};
  for (size_t i = 0; i < mac.size(); ++i) {
    const int high = digit(text[3 * i]);
    const int low = digit(text[3 * i + 1]);
    if (high < 0 || low < 0 || (i + 1 < mac.size() && text[3 * i + 2] != ':')) {
      return std::nullopt;
    }
    mac[i] = static_cast<uint8_t>(high * 16 + low);
  }
  return mac;
}

}  // namespace erps::client
