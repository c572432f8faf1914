// A ring to explore, and what exploring it gives.
#pragma once

#include <gmock/gmock.h>

#include "sim/explore/explorer.h"

namespace erps::sim::explore {

inline RingPlan small_ring(size_t nodes) {
  RingPlan plan;
  plan.nodes = nodes;
  return plan;
}

inline Report explore_ring(const RingPlan& plan, const Budget& budget,
                           const std::string& module_path = ERPS_MODULE, Limits limits = {}) {
  Model model(make_ring(plan), module_path, budget);
  return Explorer(model, std::move(limits)).run();
}

}  // namespace erps::sim::explore
