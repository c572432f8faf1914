// Scenarios drawn from a seed.
//
// The scenario of a number depends on the seed, the number, what it is drawn for and how often
// faults are to come, and on nothing else: not on how many there are, nor on who plays them.
#pragma once

#include <cstdint>
#include <optional>

#include "sim/campaign/scenario.h"

namespace erps::sim {

// Rings of so many nodes, revertive, of either ring role, with and without an RPL neighbour, and
// now and then a major ring with a sub-ring; their links, timers and faults. fault_every_us: the
// mean time from a fault to the next, above 0; without it each scenario draws one of 2 s to 2 min.
Case random_ring_case(uint64_t seed, uint64_t number, Range nodes,
                      std::optional<int64_t> fault_every_us = std::nullopt);

// Faults for a network that is given, and a seed for its simulation.
Case random_case(const Topology& topology, const Names& names, uint64_t seed, uint64_t number,
                 std::optional<int64_t> fault_every_us = std::nullopt);

}  // namespace erps::sim
