// Scenarios that are counted through: each single fault, each pair of faults.
#pragma once

#include <vector>

#include "sim/campaign/scenario.h"

namespace erps::sim {

struct EveryPlan {
  bool links = false;  // every link that is part of a ring, cut and restored
  bool nodes = false;  // every node with a ring, crashed and restarted
  bool pairs =
      false;  // every two cuts, and every cut and crash, in every order, and the single ones
};

std::vector<Case> every_case(const Topology& topology, const Names& names, uint64_t seed,
                             const EveryPlan& plan);

}  // namespace erps::sim
