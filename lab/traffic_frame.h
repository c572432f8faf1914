// The frame of a traffic stream: a number, the moment of sending, and which stream it belongs to.
//
//   offset  size  content, machine order behind the EtherType
//   0         12  addresses
//   12         2  EtherType 0x88B5 (IEEE Std 802 local experimental)
//   14         2  direction: 2 * stream, + 1 from the second host to the first
//   16         8  number, from 0
//   24         8  CLOCK_MONOTONIC when it was sent, in ns
//   32        28  zero, up to the shortest Ethernet frame
#pragma once

#include <array>
#include <cstdint>
#include <cstring>
#include <optional>

#include "lab/mac_address.h"

namespace erps::lab {

inline constexpr uint16_t kTrafficEtherType = 0x88B5;
inline constexpr size_t kTrafficFrameLength = 60;

struct TrafficFrame {
  uint16_t direction = 0;
  uint64_t number = 0;
  int64_t sent_ns = 0;
};

using TrafficFrameBytes = std::array<uint8_t, kTrafficFrameLength>;

inline TrafficFrameBytes make_traffic_frame(const MacAddress& destination,
                                            const MacAddress& source) {
  TrafficFrameBytes bytes{};
  std::memcpy(bytes.data(), destination.bytes.data(), 6);
  std::memcpy(bytes.data() + 6, source.bytes.data(), 6);
  bytes[12] = kTrafficEtherType >> 8;
  bytes[13] = kTrafficEtherType & 0xFF;
  return bytes;
}

inline void stamp_traffic_frame(TrafficFrameBytes& bytes, const TrafficFrame& frame) {
  std::memcpy(bytes.data() + 14, &frame.direction, sizeof frame.direction);
  std::memcpy(bytes.data() + 16, &frame.number, sizeof frame.number);
  std::memcpy(bytes.data() + 24, &frame.sent_ns, sizeof frame.sent_ns);
}

// Empty when it is none of ours.
inline std::optional<TrafficFrame> read_traffic_frame(const uint8_t* bytes, size_t length) {
  if (length < kTrafficFrameLength || bytes[12] != kTrafficEtherType >> 8 ||
      bytes[13] != (kTrafficEtherType & 0xFF)) {
    return std::nullopt;
  }
  TrafficFrame frame;
  std::memcpy(&frame.direction, bytes + 14, sizeof frame.direction);
  std::memcpy(&frame.number, bytes + 16, sizeof frame.number);
  std::memcpy(&frame.sent_ns, bytes + 24, sizeof frame.sent_ns);
  return frame;
}

}  // namespace erps::lab
