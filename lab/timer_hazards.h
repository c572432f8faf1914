// What an operator has to know of protocol times that the module accepts silently.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "lab/topology.h"

namespace erps::lab {

struct TimerHazard {
  const char* rule;
  const char* key;
  uint32_t value_ms;
  std::string why, advice;
};

// `transit_us`: how long a message takes once round the ring; 0 when that is not known.
std::vector<TimerHazard> timer_hazards(const Timers& timers, int64_t transit_us);

// How long an R-APS message takes at most once round the ring: the links' longest delays, and half
// a millisecond a node.
int64_t transit_us(const Topology& topology, const Ring& ring);

}  // namespace erps::lab
