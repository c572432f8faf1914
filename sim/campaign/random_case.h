// Scenarios drawn from a seed.
//
// The scenario of a number depends on the seed, the number and what it is drawn for, and on nothing
// else: not on how many there are, nor on who plays them.
#pragma once

#include <cstdint>

#include "sim/campaign/scenario.h"

namespace erps::sim {

// Rings of so many nodes, revertive, of either ring role, with and without an RPL neighbour, and
// now and then a major ring with a sub-ring; their links, timers and faults.
Case random_ring_case(uint64_t seed, uint64_t number, Range nodes);

// Faults for a network that is given, and a seed for its simulation.
Case random_case(const Topology& topology, const Names& names, uint64_t seed, uint64_t number);

}  // namespace erps::sim
