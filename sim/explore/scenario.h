// The way into trouble as a file: a line a step, for people, for other tools and for a replay.
//
//   erps-exploration 1
//   clocks n1:first n2:second n3:first
//   cut n1:2 kept 0 0
//   carrier n1:2
//   frame n3:2
//   tick n3
//   repeat            (the steps below come again and again)
//   half n1
//
// A port is named by its node and its number, a link by either of its ports. What follows a # is
// for people.
//
// Errors: SimError naming the line and what is wrong with it.
#pragma once

#include <string>

#include "sim/explore/explorer.h"

namespace erps::sim::explore {

// heading: lines for people at the top, without their #.
std::string to_scenario(Model& model, const Trouble& trouble, const std::string& heading);

// The start's node memories are not in a scenario: only the positions of the clocks are read.
Trouble parse_scenario(const std::string& text, const Topology& topology);

}  // namespace erps::sim::explore
