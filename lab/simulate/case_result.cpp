#include "lab/simulate/case_result.h"

#include <algorithm>
#include <nlohmann/json.hpp>
#include <string_view>

namespace erps::lab {

namespace {

using nlohmann::json;

json faults_json(const std::array<uint64_t, sim::kFaultKinds>& faults) {
  json counts = json::object();
  for (size_t kind = 0; kind < faults.size(); ++kind) {
    counts[sim::fault_kind_name(static_cast<sim::FaultKind>(kind))] = faults[kind];
  }
  return counts;
}

std::array<uint64_t, sim::kFaultKinds> faults_of(const json& counts) {
  std::array<uint64_t, sim::kFaultKinds> faults{};
  for (size_t kind = 0; kind < faults.size(); ++kind) {
    faults[kind] = counts.at(sim::fault_kind_name(static_cast<sim::FaultKind>(kind)));
  }
  return faults;
}

json messages_json(const sim::Messages& messages) {
  return {{"sent", messages.sent}, {"received", messages.received}, {"lost", messages.lost}};
}

sim::Messages messages_of(const json& from) {
  return {from.at("sent"), from.at("received"), from.at("lost")};
}

sim::Finding finding_of(const json& from) {
  sim::Finding finding;
  finding.check = from.at("check");
  finding.from_us = from.at("from_us");
  finding.to_us = from.at("to_us");
  if (from.contains("node")) {
    finding.node = from["node"].get<size_t>();
  }
  finding.text = from.at("text");
  finding.surprise = from.at("surprise");
  return finding;
}

}  // namespace

std::vector<std::string> surprise_names(const sim::Finding& finding) {
  constexpr std::string_view kBetween = "; ";
  std::vector<std::string> names;
  for (size_t begin = 0; begin < finding.surprise.size();) {
    const size_t end = std::min(finding.surprise.find(kBetween, begin), finding.surprise.size());
    names.push_back(finding.surprise.substr(begin, end - begin));
    begin = end + kBetween.size();
  }
  return names;
}

CaseResult summarise(uint64_t number, const sim::Case& of, const sim::Outcome& outcome) {
  CaseResult result;
  result.number = number;
  result.title = of.title;
  result.simulated_us = outcome.simulated_us;
  for (const sim::Fault& fault : of.scenario.faults) {
    ++result.faults.at(static_cast<size_t>(fault.kind));
  }
  result.messages = outcome.messages;
  result.home_after_us = outcome.home_after_us;
  result.home_bound_us = outcome.home_bound_us;
  for (const sim::Finding& finding : outcome.findings) {
    if (finding.is_violation()) {
      result.violations.push_back(finding);
    } else {
      for (const std::string& name : surprise_names(finding)) {
        ++result.surprises[name];
      }
    }
  }
  return result;
}

void Tally::add(const CaseResult& result) {
  ++scenarios;
  failed += result.clean() ? 0 : 1;
  simulated_us += result.simulated_us;
  for (size_t kind = 0; kind < faults.size(); ++kind) {
    faults[kind] += result.faults[kind];
  }
  messages.sent += result.messages.sent;
  messages.received += result.messages.received;
  messages.lost += result.messages.lost;
  for (const sim::Finding& finding : result.violations) {
    ++violations[finding.check];
  }
  for (const auto& [name, count] : result.surprises) {
    surprises[name] += count;
  }
  slowest_home_us = std::max(slowest_home_us, result.home_after_us.value_or(0));
}

json to_json(const sim::Finding& finding) {
  json to = {{"check", finding.check},
             {"from_us", finding.from_us},
             {"to_us", finding.to_us},
             {"text", finding.text},
             {"surprise", finding.surprise}};
  if (finding.node) {
    to["node"] = *finding.node;
  }
  return to;
}

json to_json(const CaseResult& result) {
  json changes = json::array();
  for (const CaseChange& change : result.changes) {
    changes.push_back({{"what", change.text},
                       {"at_us", change.at_us},
                       {"outage_us", change.outage_us},
                       {"still_out", change.still_out},
                       {"states", change.states}});
  }
  json violations = json::array();
  for (const sim::Finding& finding : result.violations) {
    violations.push_back(to_json(finding));
  }
  json to = {{"number", result.number},
             {"title", result.title},
             {"passed", result.clean()},
             {"simulated_us", result.simulated_us},
             {"faults", faults_json(result.faults)},
             {"messages", messages_json(result.messages)},
             {"home_bound_us", result.home_bound_us},
             {"changes", changes},
             {"violations", violations},
             {"surprises", result.surprises}};
  if (result.home_after_us) {
    to["home_after_us"] = *result.home_after_us;
  }
  if (!result.smallest.empty()) {
    to["smallest"] = result.smallest;
    to["smallest_faults"] = result.smallest_faults;
  }
  return to;
}

CaseResult case_result_of(const json& from) {
  CaseResult result;
  result.number = from.at("number");
  result.title = from.at("title");
  result.simulated_us = from.at("simulated_us");
  result.faults = faults_of(from.at("faults"));
  result.messages = messages_of(from.at("messages"));
  result.home_bound_us = from.at("home_bound_us");
  if (from.contains("home_after_us")) {
    result.home_after_us = from["home_after_us"].get<int64_t>();
  }
  for (const json& change : from.at("changes")) {
    result.changes.push_back({change.at("what"), change.at("states"), change.at("at_us"),
                              change.at("outage_us"), change.at("still_out")});
  }
  for (const json& finding : from.at("violations")) {
    result.violations.push_back(finding_of(finding));
  }
  from.at("surprises").get_to(result.surprises);
  if (from.contains("smallest")) {
    result.smallest = from["smallest"];
    result.smallest_faults = from.at("smallest_faults");
  }
  return result;
}

json to_json(const Tally& tally) {
  return {{"scenarios", tally.scenarios},
          {"failed", tally.failed},
          {"simulated_us", tally.simulated_us},
          {"faults", faults_json(tally.faults)},
          {"messages", messages_json(tally.messages)},
          {"violations", tally.violations},
          {"surprises", tally.surprises},
          {"slowest_home_us", tally.slowest_home_us}};
}

Tally tally_of(const json& from) {
  Tally tally;
  tally.scenarios = from.at("scenarios");
  tally.failed = from.at("failed");
  tally.simulated_us = from.at("simulated_us");
  tally.faults = faults_of(from.at("faults"));
  tally.messages = messages_of(from.at("messages"));
  from.at("violations").get_to(tally.violations);
  from.at("surprises").get_to(tally.surprises);
  tally.slowest_home_us = from.at("slowest_home_us");
  return tally;
}

}  // namespace erps::lab
