// The ranges of everything an operator may set. Every tool checks against these before it sends
// anything: the module itself checks no range.
#pragma once

#include <stdint.h>

#include <string>

namespace erps::client {

struct Range {
  int64_t min;
  int64_t max;
  const char* unit;  // "" when the value has none

  constexpr bool contains(int64_t value) const { return min <= value && value <= max; }
};

// Ring ID: it becomes the last byte of the R-APS destination address and indexes the hold-off
// table, which both end at 239.
inline constexpr Range kRingIdRange{1, 239, ""};
// Port: the capture rule knows members 1 to 63.
inline constexpr Range kPortRange{1, 63, ""};
// Control VLAN: R-APS without a tag is not understood between nodes, so 0 is no choice.
inline constexpr Range kVlanRange{1, 4094, ""};
inline constexpr Range kGuardRange{10, 2000, "ms"};
// WTR counts whole seconds from the start of a second; the standard's own range is 1 to 12 minutes.
inline constexpr Range kWtrRange{1000, 720000, "ms"};
inline constexpr Range kHoldoffRange{0, 10000, "ms"};

// Below this WTR the first R-APS(NR,RB) can fall into a guard time, which lasts up to 1.5 s.
inline constexpr int64_t kShortestCleanWtrMs = 5000;

inline constexpr uint32_t kDefaultGuardMs = 500;
inline constexpr uint32_t kDefaultWtrMs = 300000;
inline constexpr uint32_t kDefaultHoldoffMs = 0;

// "1 to 239" or "10 to 2000 ms".
inline std::string range_text(const Range& range) {
  std::string text = std::to_string(range.min) + " to " + std::to_string(range.max);
  if (*range.unit != '\0') {
    text += ' ';
    text += range.unit;
  }
  return text;
}

}  // namespace erps::client
