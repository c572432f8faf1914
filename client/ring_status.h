// The status of one ring as the module reports it, decoded.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <array>
#include <optional>
#include <string>
#include <vector>

#include "erps/mgmt/message.h"

namespace erps::client {

using MacAddress = std::array<uint8_t, mgmt::kMacLength>;

struct PortStatus {
  uint32_t port = 0;
  uint32_t state = 0;  // PortState
  bool link_up = false;
};

// What the ring's timers can be told to be doing. The module reports one start time for WTR, WTB
// and guard together; what cannot be told is empty.
struct TimerStatus {
  bool running = false;
  std::optional<uint32_t> elapsed_s;
  std::optional<uint32_t> remaining_s;
};

struct RingTimers {
  TimerStatus wtr, wtb, guard, holdoff;
};

struct TimerSettings {
  uint32_t guard_ms = 0;
  uint32_t wtr_minutes = 0;  // the module reports whole minutes, rounded down
  uint32_t holdoff_ms = 0;
};

struct RingStatus {
  uint32_t ring_id = 0;
  uint32_t state = 0;          // NodeState
  uint32_t timer_start_s = 0;  // last start of WTR, WTB or guard, seconds since the epoch; 0 never
  uint32_t holdoff_start_s = 0;  // last start of the hold-off, likewise
  uint32_t node_role = 0;        // NodeRole
  PortStatus port0;
  std::optional<PortStatus> port1;  // absent at a sub-ring at an interconnection node
  uint32_t control_vlan = 0;
  uint32_t ring_role = 0;  // RingRole
  bool revertive = true;
  bool sending = false;        // R-APS messages are being repeated
  uint32_t local_request = 0;  // Request in force at this node
  uint32_t last_request = 0;   // Request accepted last, local or received
  uint32_t partner_ring = 0;   // the ring at the other side of the interconnection; 0 none
  uint32_t interconnection_role = 0;
  bool enabled = false;
  bool guard_running = false;
  bool holdoff_running = false;
  MacAddress node_id{};

  bool is_interconnection_sub_ring() const;
  bool has_port(uint32_t port) const;
  std::vector<PortStatus> ports() const;
  std::vector<uint32_t> blocked_ports() const;
  // The port at the RPL; empty when this node is neither owner nor neighbour.
  std::optional<uint32_t> rpl_port() const;
  // now_s: seconds since the epoch.
  RingTimers timers(const TimerSettings& settings, uint32_t now_s) const;
};

// Decodes kRingConfBytes bytes.
RingStatus decode_ring_status(const uint8_t* data);

// Big-endian 32-bit number.
uint32_t read_u32(const uint8_t* data);

std::string mac_text(const MacAddress& mac);                // "02:00:00:00:00:01"
std::optional<MacAddress> mac_of(const std::string& text);  // six two-digit hexadecimal bytes

}  // namespace erps::client
