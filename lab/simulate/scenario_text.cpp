// Writes scenarios as files.
#include <cinttypes>
#include <cstdio>

#include "lab/simulate/scenario_file.h"
#include "sim/simulation.h"

namespace erps::lab {

namespace {

// "20", "12.345678": to the microsecond, without zeros at the end.
std::string seconds(int64_t time_us) {
  char text[48];
  std::snprintf(text, sizeof text, "%" PRId64 ".%06" PRId64, time_us / sim::kSecondUs,
                time_us % sim::kSecondUs);
  std::string result = text;
  result.erase(result.find_last_not_of('0') + 1);
  if (result.back() == '.') {
    result.pop_back();
  }
  return result;
}

std::string quoted(const std::string& text) {
  return "\"" + text + "\"";  // names of nodes and links hold nothing that would end it
}

std::string key(const char* name, uint64_t value) {
  return std::string(name) + " = " + std::to_string(value) + "\n";
}

class Writer {
 public:
  explicit Writer(const sim::Case& of) : case_(of) {}

  std::string fault(const sim::Fault& fault) const {
    std::string text = "\n[[fault]]\n" + what(fault);
    text += "at_s = " + seconds(fault.at_us) + "\n";
    return text + "for_s = " + seconds(fault.lasts_us) + "\n";
  }

 private:
  std::string link(const sim::Fault& fault) const { return quoted(case_.names.links[fault.link]); }
  std::string node(const sim::Fault& fault) const { return quoted(case_.names.nodes[fault.node]); }
  // The strand that leads away from a node.
  std::string strand(const sim::Fault& fault) const {
    const sim::LinkEnd& from = case_.topology.links[fault.link].ends[fault.end];
    return quoted(case_.names.nodes[from.node] + ":" + case_.names.links[fault.link]);
  }
  std::string port(const sim::Fault& fault) const {
    for (size_t index = 0; index < case_.topology.links.size(); ++index) {
      for (const sim::LinkEnd& end : case_.topology.links[index].ends) {
        if (end == sim::LinkEnd{fault.node, fault.port}) {
          return quoted(case_.names.nodes[fault.node] + ":" + case_.names.links[index]);
        }
      }
    }
    return quoted(case_.names.nodes[fault.node] + ":");
  }

  std::string what(const sim::Fault& fault) const {
    switch (fault.kind) {
      case sim::FaultKind::kCut:
        return "cut = " + link(fault) + "\n";
      case sim::FaultKind::kOneWay:
        return "one_way = " + strand(fault) + "\n";
      case sim::FaultKind::kSilentOneWay:
        return "silent_one_way = " + strand(fault) + "\n";
      case sim::FaultKind::kDisturbance:
        return "disturb = " + link(fault) + "\n" + key("lost_per_million", fault.raps.lost) +
               key("duplicated_per_million", fault.raps.duplicated) +
               key("overtaken_per_million", fault.raps.overtaken);
      case sim::FaultKind::kCrash:
        return "crash = " + node(fault) + "\n";
      case sim::FaultKind::kKill:
        return "kill = " + node(fault) + "\n";
      case sim::FaultKind::kSlow:
        return "slow = " + node(fault) + "\n" + key("factor", fault.factor);
      case sim::FaultKind::kStall:
        return "stall = " + node(fault) + "\n";
      case sim::FaultKind::kFailingCalls:
        return "fail_calls = " + node(fault) + "\ncall = " + quoted(fault.call) + "\n" +
               key("times", fault.times);
      case sim::FaultKind::kForcedSwitch:
        return "forced_switch = " + port(fault) + "\n" + key("ring", fault.ring);
      case sim::FaultKind::kManualSwitch:
        return "manual_switch = " + port(fault) + "\n" + key("ring", fault.ring);
    }
    return {};
  }

  const sim::Case& case_;
};

}  // namespace

std::string scenario_text(const CasePlan& plan, uint64_t number, const sim::Case& found) {
  std::string text;
  if (plan.topology != nullptr) {
    text += "# Of " + plan.topology_path + ", " + found.title + ".\n";
    text += key("seed", found.options.seed);
  } else {
    text += "network = { rings = [" + std::to_string(plan.ring_nodes.low) + ", " +
            std::to_string(plan.ring_nodes.high) + "], seed = " + std::to_string(plan.seed) +
            ", number = " + std::to_string(number) + " }\n";
  }
  text += "left_alone_at_s = " + seconds(found.scenario.quiet_us) + "\n";
  const Writer writer(found);
  for (const sim::Fault& fault : found.scenario.faults) {
    text += writer.fault(fault);
  }
  return text;
}

}  // namespace erps::lab
