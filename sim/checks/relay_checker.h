// Checks that a node passes on what it receives: the messages of its rings through their other
// port, and those of rings that it has no part in along the major ring that carries them.
#pragma once

#include <vector>

#include "sim/checks/checker.h"
#include "sim/checks/mishaps.h"
#include "sim/checks/ring_watch.h"

namespace erps::sim {

class RelayChecker final : public Checker, public Observer, public StepListener {
 public:
  // The mishaps are watched elsewhere; none are known of without.
  explicit RelayChecker(const Topology& topology, const Mishaps* mishaps = nullptr)
      : topology_(topology), mishaps_(mishaps), sent_(topology.nodes.size()) {}

  void on_record(const Record& record) override;
  void on_step(const Step& step) override;
  void collect(int64_t now_us, std::vector<Finding>& findings) override;

 private:
  struct Sent {
    uint32_t port = 0;
    RapsMessage message;
  };

  bool has_to_pass(const Step& step, size_t in) const;
  bool carries_strangers(const Step& step) const;

  const Topology& topology_;
  const Mishaps* mishaps_;
  std::vector<std::vector<Sent>> sent_;  // in the present event, by node
  FindingList findings_;
};

}  // namespace erps::sim
