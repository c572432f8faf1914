// Scenarios as files: TOML, small enough to be read and changed by people.
//
//   seed = 5                  # of the simulation
//   [[fault]]
//   cut = "n1-n2"
//   at_s = 20
//   for_s = 8
//
// A file for a drawn network says which one, in place of the simulation's seed:
//   network = { rings = [2, 16], seed = 5, number = 17 }
//
// docs/laboratory.md describes the keys. Every mistake is a finding with its line.
#pragma once

#include <string>
#include <string_view>

#include "lab/findings.h"
#include "lab/simulate/case_source.h"

namespace erps::lab {

// `found` is the scenario of this number of the plan, or a part of it.
std::string scenario_text(const CasePlan& plan, uint64_t number, const sim::Case& found);

// topology: the network of a file without one; null for none.
struct ScenarioFile {
  sim::Case scenario;  // complete and sound only if findings.has_errors() is false
  Findings findings;
};
ScenarioFile parse_scenario(std::string_view text, const Topology* topology);
ScenarioFile load_scenario(const std::string& path, const Topology* topology);

}  // namespace erps::lab
