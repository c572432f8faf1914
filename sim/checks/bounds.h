// How long things take at most, from configuration, links and timing.
#pragma once

#include <cstdint>

#include "sim/options.h"
#include "sim/topology.h"

namespace erps::sim {

// The module looks at its timers once a tick, and repeats its messages.
inline constexpr int64_t kTickUs = 1'000'000;
inline constexpr int64_t kRepetitionUs = 5 * kTickUs;

struct Bounds {
  int64_t node_us = 0;       // a message at one node, from its arrival to its departure
  int64_t transit_us = 0;    // a message past all nodes and links
  int64_t carrier_us = 0;    // of a link's failure or return, until both ends see it
  int64_t detection_us = 0;  // the same, until both ends act on it: after the hold-off
  int64_t start_us = 0;      // from power on to a running configuration
  int64_t repair_us = 0;     // from a fault to the last port that moves on its account
  int64_t repeat_us = 0;     // from a message that was missed to its repetition, everywhere
};

// slowness: how many times slower than usual the slowest node is.
Bounds bounds_of(const Topology& topology, const Timing& timing, int64_t slowness = 1);

}  // namespace erps::sim
