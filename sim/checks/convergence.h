// Whether a network whose faults have stopped has come home: every ring idle at every node, and
// nothing blocked but the RPLs.
#pragma once

#include <cstdint>
#include <optional>
#include <string>

#include "sim/simulation.h"

namespace erps::sim {

// Why the network is not at home, or nothing when it is. Asks every node, so some time passes.
std::optional<std::string> why_not_home(Simulation& simulation);

// Runs until the network is at home, asking every 100 ms, or until the bound is over: then the last
// reason.
std::optional<std::string> run_until_home(Simulation& simulation, int64_t bound_us);

// How long a revertive network takes at most after its last fault, command or start, when frames
// are not lost: the hold-off, the guard time, the wait (WTR, or WTB, which is guard + 5 s), each
// rounded up by a tick of the timer task, then the owner's NR,RB and, for a node that was still
// guarded, its repetition after 5 s and a tick; and one second for detection, transit and
// scheduling.
int64_t home_bound_us(const Topology& topology);

}  // namespace erps::sim
