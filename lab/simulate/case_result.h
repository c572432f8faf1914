// What came of a scenario, and of many: plain data, and as JSON, as which it goes from one process
// to another and into files.
#pragma once

#include <array>
#include <map>
#include <nlohmann/json_fwd.hpp>
#include <optional>
#include <string>
#include <vector>

#include "sim/campaign/player.h"

namespace erps::lab {

struct CaseChange {
  std::string text;    // "cut n1-n2"
  std::string states;  // what came of it
  int64_t at_us = 0;
  int64_t outage_us = 0;
  bool still_out = false;
};

struct CaseResult {
  uint64_t number = 0;
  std::string title;
  int64_t simulated_us = 0;
  std::array<uint64_t, sim::kFaultKinds> faults{};
  sim::Messages messages;
  std::optional<int64_t> home_after_us;
  int64_t home_bound_us = 0;
  std::vector<CaseChange> changes;            // where they were asked for
  std::vector<sim::Finding> violations;       // findings without a name
  std::map<std::string, uint64_t> surprises;  // named findings
  // The smallest scenario that shows the first violation, as a file; empty: none was looked for.
  std::string smallest;
  size_t smallest_faults = 0;

  bool clean() const { return violations.empty(); }
};

// What the protocol did by itself, by name: one finding may have several reasons.
std::vector<std::string> surprise_names(const sim::Finding& finding);

CaseResult summarise(uint64_t number, const sim::Case& of, const sim::Outcome& outcome);

// Of many.
struct Tally {
  uint64_t scenarios = 0;
  uint64_t failed = 0;
  int64_t simulated_us = 0;
  std::array<uint64_t, sim::kFaultKinds> faults{};
  sim::Messages messages;
  std::map<std::string, uint64_t> violations;  // by check
  std::map<std::string, uint64_t> surprises;   // by name
  int64_t slowest_home_us = 0;

  void add(const CaseResult& result);
};

nlohmann::json to_json(const sim::Finding& finding);
nlohmann::json to_json(const CaseResult& result);
nlohmann::json to_json(const Tally& tally);
// Of what to_json() wrote; throws nlohmann::json::exception for anything else.
CaseResult case_result_of(const nlohmann::json& json);
Tally tally_of(const nlohmann::json& json);

}  // namespace erps::lab
