// One life of a node whose platform fails: start, a protection switch, shutdown; then, when nothing
// fails any more, a new start and the same again.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "sim/simulation.h"

namespace erps::failures {

inline constexpr uint64_t kOnce = 1;
inline constexpr uint64_t kFromThenOn = uint64_t{1} << 40;

struct FailingCall {
  std::string name;    // as Simulation::fail_call() knows it
  uint64_t nth = 1;    // of the node's life
  uint64_t times = 1;  // kOnce or kFromThenOn
};

// A network and the node in it whose calls fail.
struct Place {
  std::string name;
  sim::Topology topology;
  sim::NodeIndex node = 0;
  sim::LinkIndex cut = 0;  // a link of the node
};
Place at_the_owner();                 // of a ring of three nodes
Place at_the_interconnection_node();  // that watches, of a ladder

struct Outcome {
  uint64_t failed = 0;           // calls
  std::vector<std::string> log;  // of the node, from the first of them on
  bool started = false;          // the module ran and its host got an answer to each request
  // What is wrong with the ring after a single failure has passed, before the new start.
  std::vector<std::string> unhealed;
  // What is wrong; empty when all is well.
  std::vector<std::string> mistakes;
};

Outcome live_through(const Place& place, const FailingCall& call);

}  // namespace erps::failures
