// Checks every frame that a module sends with a dissector of its own.
//
// The mark that an interconnection node sets is not the standard's. It is counted by node, and
// named where the network has sub-rings.
#pragma once

#include <cstdint>
#include <span>
#include <vector>

#include "sim/checks/checker.h"
#include "sim/observer.h"
#include "sim/topology.h"

namespace erps::sim {

class FrameChecker final : public Checker, public Observer {
 public:
  explicit FrameChecker(const Topology& topology);

  void on_transmission(int64_t time_us, NodeIndex node, uint32_t port,
                       std::span<const uint8_t> bytes) override;
  void collect(int64_t now_us, std::vector<Finding>& findings) override;

 private:
  struct Marked {
    uint64_t frames = 0;
    int64_t first_us = 0;
    int64_t last_us = 0;
  };

  bool has_sub_rings_;
  std::vector<Marked> marked_;  // 2 * node, + 1 for Events
  FindingList findings_;
};

}  // namespace erps::sim
