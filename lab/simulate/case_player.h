// One scenario of a campaign, as a process of it plays it.
#pragma once

#include <string>

#include "lab/simulate/case_result.h"
#include "lab/simulate/case_source.h"

namespace erps::lab {

// changes: says what came of every change.
CaseResult play_case(const CaseSource& source, uint64_t number, const std::string& module,
                     bool changes);

// The smallest scenario that ends in a violation of the same check as this one's first; empty if it
// has none. Takes a few hundred simulations at most.
struct SmallestCase {
  std::string text;  // as a file
  size_t faults = 0;
};
SmallestCase smallest_case(const CaseSource& source, uint64_t number, const std::string& module);

// "n2, n3 protection, blocks n2-n3; n1, n4 protection"
std::string states_text(const sim::Case& of, sim::Simulation& simulation);

}  // namespace erps::lab
