// The kernel filter program that recognises R-APS frames, for sockets and for the bridge's ingress.
#pragma once

#include <linux/filter.h>

#include <array>
#include <cstdint>
#include <optional>
#include <vector>

#include "linux/platform.h"

namespace erps::linux_platform {

// The operation code of R-APS among the PDUs of its EtherType (ITU-T G.8032 clause 10.3).
inline constexpr uint8_t kRapsOpcode = 40;

// Destination address under a mask, EtherType and, where it matters, the operation code of the PDU,
// behind a VLAN tag or without one.
struct FrameMatch {
  MacAddress destination{0x01, 0x19, 0xA7, 0x00, 0x00, 0x00};
  MacAddress mask{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0x00};
  uint16_t ether_type = 0x8902;
  std::optional<uint8_t> opcode;

  bool operator==(const FrameMatch&) const = default;
};

// What the frames of a flood have in common.
struct FloodMatch {
  MacAddress source{};
  // Request, status and node ID, where they are all the same.
  std::optional<std::array<uint8_t, 8>> content;
  // Where they are not: the node IDs whose messages are none of the flood's.
  std::vector<MacAddress> spared;
};

using FilterProgram = std::vector<sock_filter>;

// A classic BPF program over the frame from its destination address on; it returns `matched` or
// `other`. The kernel moves an outer tag out of the frame before most filters run, but not before
// all of them, so the EtherType is looked for in both places.
FilterProgram make_filter(const FrameMatch& match, uint32_t matched, uint32_t other);

// The same for which only one in kThinning frames of the flood matches, whichever it happens to be.
inline constexpr uint32_t kThinning = 32;
FilterProgram make_thinning_filter(const FrameMatch& match, const FloodMatch& flood,
                                   uint32_t matched, uint32_t other);

}  // namespace erps::linux_platform
