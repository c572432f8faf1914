// What must hold in the module after every event, whatever came in.
#pragma once

#include <cstdint>
#include <tuple>
#include <vector>

namespace erps::fuzz {

// Ends the process with fail() when the timer lock is held, a list is broken, a timer runs for a
// ring that is gone, or a record holds a value that nothing in the protocol gives it.
void check_module();

// What management decides of the rings, newest first: to see that a request changed nothing.
using RingSummary = std::tuple<uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, uint32_t, int32_t>;
std::vector<RingSummary> summary_of_rings();

// No port belongs to two rings.
bool ports_are_distinct();

// Rings and timers are gone.
void check_empty();

}  // namespace erps::fuzz
