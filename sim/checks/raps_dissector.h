// Reads an R-APS frame as ITU-T G.8032 clause 10.3 and ITU-T Y.1731 lay it out, and refuses what
// they do not allow. Written from the layout in the standards, not from the module's.
#pragma once

#include <cstdint>
#include <span>

namespace erps::sim {

enum class FrameFault {
  kNone,
  kTooShort,
  kDestination,
  kRingId,
  kSource,
  kVlan,
  kEtherType,
  kVersion,
  kOpcode,
  kFlags,
  kTlvOffset,
  kRequest,
  kMarkedSubCode,  // 1010, which interconnection nodes of this system set
  kMarkedEvent,    // the same, where the sub-code says which event it is
  kSubCode,
  kStatus,
  kNodeId,
  kReserved,
  kEndTlv,
  kTrailer,
};

// The first thing that is wrong, in the order of the octets; a mark only where nothing else is.
FrameFault dissect(std::span<const uint8_t> frame);
const char* text_of(FrameFault fault);

}  // namespace erps::sim
