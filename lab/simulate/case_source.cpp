#include "lab/simulate/case_source.h"

#include <array>
#include <charconv>

#include "lab/simulated_network.h"
#include "sim/campaign/random_case.h"

namespace erps::lab {

namespace {

constexpr double kUsPerSecond = 1e6;
constexpr double kUsPerHour = 3600 * kUsPerSecond;

// FNV-1a over everything that a simulation of the network depends on.
uint64_t fingerprint(const sim::Topology& topology) {
  uint64_t hash = 0xCBF29CE484222325U;
  const auto mix = [&](uint64_t word) {
    hash = (hash ^ word) * 0x100000001B3U;
    hash ^= hash >> 32U;
  };
  for (const sim::NodePlan& node : topology.nodes) {
    for (const uint8_t byte : node.address) {
      mix(byte);
    }
    mix(uint64_t{node.wtr_ms} << 32U | node.guard_ms);
    mix(node.holdoff_ms);
    for (const sim::RingConfig& ring : node.rings) {
      for (const uint32_t word : {ring.ring, ring.port0, ring.port1, ring.control_vlan,
                                  ring.node_role, ring.ring_role, uint32_t{ring.revertive}}) {
        mix(word);
      }
    }
    for (const sim::SubRingConfig& ring : node.sub_rings) {
      for (const uint32_t word :
           {ring.major_ring, ring.ring, ring.port, ring.node_role, ring.interconnection_role}) {
        mix(word);
      }
    }
  }
  for (const sim::LinkPlan& link : topology.links) {
    for (const sim::LinkEnd& end : link.ends) {
      mix(end.node << 16U | end.port);
    }
    mix(static_cast<uint64_t>(link.delay_us.low) << 32U |
        static_cast<uint64_t>(link.delay_us.high));
    mix(uint64_t{link.raps.lost} << 32U | link.raps.duplicated);
    mix(link.raps.overtaken);
  }
  return hash;
}

std::string short_number(double number) {
  std::array<char, 32> text{};
  const auto end = std::to_chars(text.data(), text.data() + text.size(), number).ptr;
  return {text.data(), end};
}

}  // namespace

std::string shell_word(const std::string& text) {
  if (text.find_first_not_of(
          "abcdefghijklmnopqrstuvwxyzABCDEFGHIJKLMNOPQRSTUVWXYZ0123456789-_./=:,+") ==
      std::string::npos) {
    return text;
  }
  std::string result = "'";
  for (const char c : text) {
    result += c == '\'' ? std::string("'\\''") : std::string(1, c);
  }
  return result + "'";
}

sim::Names names_of(const Topology& topology) {
  sim::Names names;
  for (const Node& node : topology.nodes) {
    names.nodes.push_back(node.name);
  }
  for (const Link& link : topology.links) {
    names.links.push_back(link.name);
  }
  return names;
}

CaseSource::CaseSource(const CasePlan& plan) : plan_(plan) {
  if (plan_.fault_every_s) {
    fault_every_us_ = static_cast<int64_t>(*plan_.fault_every_s * kUsPerSecond);
  }
  if (plan_.topology != nullptr) {
    network_ = to_simulated(*plan_.topology);
    names_ = names_of(*plan_.topology);
  }
  if (!plan_.random) {
    every_ = sim::every_case(network_, names_, plan_.seed, plan_.every);
    count_ = every_.size();
    return;
  }
  for (double left_us = plan_.hours * kUsPerHour; left_us > 0; ++count_) {
    left_us -= static_cast<double>(at(count_).scenario.quiet_us);
  }
}

sim::Case CaseSource::at(uint64_t number) const {
  if (!plan_.random) {
    return every_.at(number);
  }
  return plan_.topology != nullptr
             ? sim::random_case(network_, names_, plan_.seed, number, fault_every_us_)
             : sim::random_ring_case(plan_.seed, number, plan_.ring_nodes, fault_every_us_);
}

std::string CaseSource::command() const {
  return command_begin() + (plan_.random ? " --hours " + short_number(plan_.hours) : "");
}

std::string CaseSource::command_begin() const {
  std::string text = "erpslab simulate";
  text += plan_.topology != nullptr ? " " + shell_word(plan_.topology_path)
                                    : " --rings " + std::to_string(plan_.ring_nodes.low) + "-" +
                                          std::to_string(plan_.ring_nodes.high);
  if (plan_.random) {
    text += " --faults random";
    text += plan_.fault_every_s ? " --fault-every " + short_number(*plan_.fault_every_s) : "";
  } else if (plan_.every.pairs) {
    text += " --exhaustive";
  } else {
    text += plan_.every.links ? " --every-link" : "";
    text += plan_.every.nodes ? " --every-node" : "";
  }
  text += plan_.module_path.empty() ? "" : " --module " + shell_word(plan_.module_path);
  return text + " --seed " + std::to_string(plan_.seed);
}

std::string CaseSource::key() const {
  std::string text = plan_.random ? "random" : "every";
  text += plan_.every.links ? " link" : "";
  text += plan_.every.nodes ? " node" : "";
  text += plan_.every.pairs ? " pair" : "";
  text += " seed " + std::to_string(plan_.seed);
  text += plan_.fault_every_s ? " fault every " + short_number(*plan_.fault_every_s) + " s" : "";
  return text + (plan_.topology != nullptr ? " network " + std::to_string(fingerprint(network_))
                                           : " rings " + std::to_string(plan_.ring_nodes.low) +
                                                 "-" + std::to_string(plan_.ring_nodes.high));
}

}  // namespace erps::lab
