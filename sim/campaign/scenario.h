// What is done to a network, and when: plain data, chosen beforehand.
//
// A scenario is a list of faults. Each begins and ends at times of its own, so that any of them can
// be left out and what remains is a scenario again. Faults of the same kind at the same place may
// overlap; the place is sound again when the last of them has ended.
#pragma once

#include <array>
#include <cstdint>
#include <string>
#include <vector>

#include "sim/options.h"
#include "sim/topology.h"

namespace erps::sim {

enum class FaultKind : uint32_t {
  kCut,           // a link, both ways
  kOneWay,        // a strand, which takes the carrier of its far end away
  kSilentOneWay,  // a strand, and nobody sees it go
  kDisturbance,   // a link loses, duplicates and reorders R-APS frames
  kCrash,         // a node, until it gets its power back
  kKill,          // the module of a node, until it is started again; the switch goes on
  kSlow,          // the processor of a node
  kStall,         // the same, which stands still
  kFailingCalls,  // calls of a node's module to its platform
  kForcedSwitch,  // an operator's, until it is cleared
  kManualSwitch,
};
inline constexpr size_t kFaultKinds = 11;

// "cut", "one-way", ...
const char* fault_kind_name(FaultKind kind);

struct Fault {
  FaultKind kind{};
  int64_t at_us = 0;
  int64_t lasts_us = 0;
  LinkIndex link = 0;   // cut, one-way, silent one-way, disturbance
  size_t end = 0;       // one-way: the strand leads away from ends[end] of the link
  NodeIndex node = 0;   // crash, kill, slow, stall, failing calls, forced and manual switch
  uint32_t ring = 0;    // forced and manual switch: of the ring with this ID
  uint32_t port = 0;    // ... at this port
  RapsFaults raps;      // disturbance
  uint32_t factor = 1;  // slow: so many times
  std::string call;     // failing calls: its name, see Simulation::fail_call
  uint64_t times = 0;   // ... and how many of them fail, if so many are made

  int64_t until_us() const { return at_us + lasts_us; }
};

struct Scenario {
  std::vector<Fault> faults;  // by the time of their beginning
  // When the network is left alone, to come home; not before the last fault has ended.
  int64_t quiet_us = 0;
};

// How a network's parts are called.
struct Names {
  std::vector<std::string> nodes;
  std::vector<std::string> links;
};
// Links are called after their nodes: "n1-n2", and "n1-n2.2" for the second one between the same.
Names names_of(const Topology& topology);

// A network, how its parts behave, and what is done to it: one simulation.
struct Case {
  std::string title;
  Topology topology;
  Names names;
  Options options;  // but for the module's path, which whoever plays it knows
  Scenario scenario;
};

// "cut n1-n2", "forced switch at n2:n1-n2 on ring 1", ...
std::string fault_text(const Case& of, const Fault& fault);
// What ends it: "restore n1-n2", "clear at n2 on ring 1", ...
std::string fault_end_text(const Case& of, const Fault& fault);

}  // namespace erps::sim
