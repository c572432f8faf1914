// The ends of sub-rings that join their split major rings: where they are, and what they know.
#pragma once

#include <vector>

#include "sim/checks/ring_watch.h"

namespace erps::sim {

// The watching end of a sub-ring that is open for its major ring, and what it knows of that.
struct WatchingEnd {
  uint32_t major_ring = 0;
  uint32_t sub_ring = 0;
  bool is_cut = false;     // on both sides
  bool is_old = false;     // and who told of it does so no more
  bool heeds_end = false;  // of the split
};

std::vector<WatchingEnd> open_watching_ends(const Topology& topology, const RingWatch& watch);

}  // namespace erps::sim
