// Questions about a ring as its module holds it.
#pragma once

#include <algorithm>

#include "sim/checks/ring_model.h"

namespace erps::sim {

// Request/state of R-APS messages.
inline constexpr uint8_t kNrCode = 0;
inline constexpr uint8_t kMsCode = 7;
inline constexpr uint8_t kSfCode = 11;
inline constexpr uint8_t kFsCode = 13;
inline constexpr uint8_t kEventCode = 14;

inline constexpr uint32_t kSubRingRole = 2;
// What a sub-ring's end is told of its major ring.
inline constexpr uint32_t kCut = 1;
inline constexpr uint32_t kWhole = 2;

inline bool is(const RingSnapshot& ring, RingState state) {
  return ring.state == static_cast<uint32_t>(state);
}

inline bool has_local(const RingSnapshot& ring, RingRequest request) {
  return ring.local_priority == static_cast<uint32_t>(request);
}

inline bool is_owner(const RingSnapshot& ring) {
  constexpr uint32_t kOwner = 1;
  return (ring.node_role & kOwner) != 0;
}

inline bool waits(const RingSnapshot& ring) {
  return has_local(ring, RingRequest::kWtr) || has_local(ring, RingRequest::kWtb);
}

inline bool sends(const RingSnapshot& ring, uint8_t code) {
  return ring.sending && ring.tx_request == code;
}

inline bool has_failed_link(const RingSnapshot& ring) {
  return std::any_of(ring.ports.begin(), ring.ports.end(),
                     [](const PortSnapshot& port) { return port.present && !port.link_up; });
}

// A port that would carry traffic if it were open.
inline bool has_block(const RingSnapshot& ring) {
  return std::any_of(ring.ports.begin(), ring.ports.end(), [](const PortSnapshot& port) {
    return port.present && port.link_up && !port.forwarding;
  });
}

}  // namespace erps::sim
