// Reads scenarios from files.
#include "lab/simulate/scenario_file.h"

#include <algorithm>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <fstream>
#include <iterator>

#include "client/limits.h"
#include "lab/simulated_network.h"
#include "lab/toml_table.h"
#include "sim/campaign/random_case.h"
#include "sim/platform_call.h"
#include "sim/simulation.h"

namespace erps::lab {

namespace {

constexpr double kLatestS = 1e7;
constexpr client::Range kSeedRange{0, INT64_MAX, ""};
constexpr client::Range kRingNodesRange{2, 255, "nodes"};
constexpr client::Range kFactorRange{1, 1'000'000, ""};
constexpr client::Range kTimesRange{1, 1'000'000, ""};
constexpr client::Range kShareRange{0, 1'000'000, "R-APS frames in a million"};
constexpr const char* kUnknownName = "unknown-name";

struct KindKey {
  const char* key;
  sim::FaultKind kind;
};
constexpr KindKey kKinds[] = {
    {"cut", sim::FaultKind::kCut},
    {"one_way", sim::FaultKind::kOneWay},
    {"silent_one_way", sim::FaultKind::kSilentOneWay},
    {"disturb", sim::FaultKind::kDisturbance},
    {"crash", sim::FaultKind::kCrash},
    {"kill", sim::FaultKind::kKill},
    {"slow", sim::FaultKind::kSlow},
    {"stall", sim::FaultKind::kStall},
    {"fail_calls", sim::FaultKind::kFailingCalls},
    {"forced_switch", sim::FaultKind::kForcedSwitch},
    {"manual_switch", sim::FaultKind::kManualSwitch},
};

int64_t to_us(double seconds) {
  return std::llround(seconds * static_cast<double>(sim::kSecondUs));
}

std::string list_of(const std::vector<std::string>& names) {
  std::string text = "allowed: ";
  for (size_t i = 0; i < names.size(); ++i) {
    text += (i == 0 ? "" : ", ") + names[i];
  }
  return text;
}

class FaultReader {
 public:
  FaultReader(const sim::Case& of, const toml::table& table, size_t number, Findings& findings)
      : case_(of), table_(table, "fault " + std::to_string(number), findings) {}

  std::optional<sim::Fault> read() {
    const KindKey* found = nullptr;
    for (const KindKey& kind : kKinds) {
      if (!table_.has(kind.key)) {
        continue;
      }
      if (found != nullptr) {
        wrong(kind.key, std::string("a fault is one thing, and this one has ") + found->key);
      }
      found = found == nullptr ? &kind : found;
    }
    if (found == nullptr) {
      std::string keys;
      for (const KindKey& kind : kKinds) {
        keys += (keys.empty() ? "" : ", ") + std::string(kind.key);
      }
      table_.missing("cut", "one of " + keys);
      good_ = false;
    } else {
      fault_.kind = found->kind;
      read_kind(found->key);
    }
    fault_.at_us = read_time("at_s");
    fault_.lasts_us = read_time("for_s");
    table_.refuse_the_rest();
    return good_ ? std::optional(fault_) : std::nullopt;
  }

 private:
  void wrong(const char* key, const std::string& why, const std::string& advice = {}) {
    table_.wrong(kUnknownName, key, why, advice);
    good_ = false;
  }

  int64_t read_time(const char* key) {
    if (!table_.has(key)) {
      table_.missing(key, "seconds");
      good_ = false;
      return 0;
    }
    const auto value = table_.number(key, 0, kLatestS, "s");
    good_ = good_ && value.has_value();
    return value ? to_us(value->value) : 0;
  }

  template <typename Number>
  void read_number(const char* key, const client::Range& range, Number& number) {
    if (!table_.has(key)) {
      table_.missing(key, client::range_text(range));
      good_ = false;
    } else if (const auto value = table_.integer(key, range)) {
      number = static_cast<Number>(value->value);
    } else {
      good_ = false;
    }
  }

  void read_kind(const char* key) {
    const auto name = table_.text(key);
    if (!name) {
      good_ = false;
      return;
    }
    switch (fault_.kind) {
      case sim::FaultKind::kDisturbance:
        read_number("lost_per_million", kShareRange, fault_.raps.lost);
        read_number("duplicated_per_million", kShareRange, fault_.raps.duplicated);
        read_number("overtaken_per_million", kShareRange, fault_.raps.overtaken);
        [[fallthrough]];
      case sim::FaultKind::kCut:
        find(key, name->value, case_.names.links, fault_.link);
        break;
      case sim::FaultKind::kOneWay:
      case sim::FaultKind::kSilentOneWay:
        read_port(key, name->value);
        break;
      case sim::FaultKind::kSlow:
        read_number("factor", kFactorRange, fault_.factor);
        find(key, name->value, case_.names.nodes, fault_.node);
        break;
      case sim::FaultKind::kFailingCalls:
        read_number("times", kTimesRange, fault_.times);
        read_call();
        [[fallthrough]];
      case sim::FaultKind::kCrash:
      case sim::FaultKind::kKill:
      case sim::FaultKind::kStall:
        find(key, name->value, case_.names.nodes, fault_.node);
        break;
      case sim::FaultKind::kForcedSwitch:
      case sim::FaultKind::kManualSwitch:
        read_number("ring", client::kRingIdRange, fault_.ring);
        read_port(key, name->value);
        break;
    }
  }

  void find(const char* key, const std::string& name, const std::vector<std::string>& names,
            size_t& index) {
    const auto found = std::find(names.begin(), names.end(), name);
    if (found == names.end()) {
      wrong(key, "nothing has this name", list_of(names));
      return;
    }
    index = static_cast<size_t>(found - names.begin());
  }

  // The end of a link at a node, and the strand that leads away from there.
  void read_port(const char* key, const std::string& text) {
    const size_t colon = text.find(':');
    if (colon == std::string::npos) {
      wrong(key, {}, "allowed: node:link, as in n1:n1-n2");
      return;
    }
    find(key, text.substr(0, colon), case_.names.nodes, fault_.node);
    find(key, text.substr(colon + 1), case_.names.links, fault_.link);
    if (!good_) {
      return;
    }
    const auto& ends = case_.topology.links[fault_.link].ends;
    if (ends[0].node != fault_.node && ends[1].node != fault_.node) {
      wrong(key, "the link does not end at this node");
      return;
    }
    fault_.end = ends[0].node == fault_.node ? 0 : 1;
    fault_.port = ends[fault_.end].port;
  }

  void read_call() {
    const auto call = table_.text("call");
    if (!call) {
      table_.missing("call", "the name of a call to the platform, such as adp_transmit_frame");
      good_ = false;
    } else if (!sim::platform_call(call->value)) {
      wrong("call", "no call that can fail has this name");
    } else {
      fault_.call = call->value;
    }
  }

  const sim::Case& case_;
  TomlTable table_;
  sim::Fault fault_;
  bool good_ = true;
};

// The drawn network that the file means.
void read_network(TomlTable& root, Findings& findings, sim::Case& scenario) {
  const toml::table* given = root.table("network");
  if (given == nullptr) {
    root.missing("network",
                 "the drawn network, as in { rings = [2, 16], seed = 5, number = 17 }; or name the "
                 "topology file that the scenario is of on the command line");
    return;
  }
  TomlTable table(*given, "network", findings);
  const auto rings = table.range("rings", kRingNodesRange);
  const auto seed = table.integer("seed", kSeedRange);
  const auto number = table.integer("number", kSeedRange);
  table.refuse_the_rest();
  for (const char* key : {"rings", "seed", "number"}) {
    if (!table.has(key)) {
      table.missing(key, "rings, seed and number of the campaign that drew it");
    }
  }
  if (rings && seed && number) {
    scenario = sim::random_ring_case(static_cast<uint64_t>(seed->value),
                                     static_cast<uint64_t>(number->value),
                                     {rings->value[0], rings->value[1]});
    scenario.scenario = {};
  }
}

void read_all(const toml::table& toml_table, const Topology* topology, ScenarioFile& file) {
  TomlTable root(toml_table, "scenario", file.findings);
  sim::Case& scenario = file.scenario;
  if (topology == nullptr) {
    read_network(root, file.findings, scenario);
  } else {
    scenario.topology = to_simulated(*topology);
    scenario.names = names_of(*topology);
    if (root.has("network")) {
      root.wrong(kUnknownName, "network", "this scenario is of a drawn network",
                 "name no topology file");
    }
    if (const auto seed = root.integer("seed", kSeedRange)) {
      scenario.options.seed = static_cast<uint64_t>(seed->value);
    } else if (!root.has("seed")) {
      root.missing("seed", "the seed of the simulation");
    }
  }
  scenario.title = "scenario";
  const auto quiet = root.number("left_alone_at_s", 0, kLatestS, "s");
  scenario.scenario.quiet_us = quiet ? to_us(quiet->value) : 0;
  const auto tables = root.tables("fault");
  root.refuse_the_rest();
  if (file.findings.has_errors()) {
    return;
  }
  for (size_t i = 0; i < tables.size(); ++i) {
    if (const auto fault = FaultReader(scenario, *tables[i], i + 1, file.findings).read()) {
      scenario.scenario.faults.push_back(*fault);
    }
  }
  std::stable_sort(
      scenario.scenario.faults.begin(), scenario.scenario.faults.end(),
      [](const sim::Fault& one, const sim::Fault& other) { return one.at_us < other.at_us; });
}

}  // namespace

ScenarioFile parse_scenario(std::string_view text, const Topology* topology) {
  ScenarioFile file;
  try {
    const toml::table root = toml::parse(text);
    read_all(root, topology, file);
  } catch (const toml::parse_error& error) {
    file.findings.error("not-toml", static_cast<uint32_t>(error.source().begin.line), "",
                        "this is not TOML: " + std::string(error.description()));
  }
  return file;
}

ScenarioFile load_scenario(const std::string& path, const Topology* topology) {
  std::ifstream in(path, std::ios::binary);
  const std::string text{std::istreambuf_iterator<char>(in), {}};
  if (!in.is_open() || in.bad()) {
    ScenarioFile file;
    file.findings.error("unreadable", 0, "",
                        std::string("cannot be read: ") + std::strerror(errno));
    return file;
  }
  return parse_scenario(text, topology);
}

}  // namespace erps::lab
