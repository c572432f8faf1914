// A simulated network with its checkers, as the tests use it.
#pragma once

#include <gtest/gtest.h>

#include <cstdint>
#include <string>
#include <vector>

#include "sim/checks/convergence.h"
#include "sim/checks/loop_checker.h"
#include "sim/checks/partition_checker.h"
#include "sim/simulation.h"

namespace erps::sim {

inline constexpr uint32_t kRing = 1;

// The longest time between two repetitions of a message: 5 s, on a tick of one second, and what
// the tick and the tasks are late.
inline constexpr int64_t kRepeatUs = 6 * kSecondUs + 100 * kMillisecondUs;

// Long enough for every node to have seen every repetition.
inline constexpr int64_t kSettledUs = 8 * kSecondUs;

Options options_with(uint64_t seed);

class TestNetwork {
 public:
  explicit TestNetwork(const Topology& topology, uint64_t seed)
      : TestNetwork(topology, options_with(seed)) {}
  TestNetwork(const Topology& topology, const Options& options);

  // Runs until the network is at home, and fails the test when it takes longer than the bound.
  void come_home();
  // The states of all nodes of ring 1.
  std::vector<std::string> states();

  int64_t longest_partition_us(int64_t since_us);
  // How long a message takes at most to every node, with pre-emption on the way.
  int64_t transit_us() const {
    return static_cast<int64_t>(simulation.topology().nodes.size()) * 500;
  }
  // ... and the failure of a link to be noticed before.
  int64_t detection_us() const { return Timing{}.carrier_down_us.high + transit_us(); }
  void expect_no_loop();
  int64_t longest_loop_us() { return loops_.loops().longest_us(0, simulation.now_us()); }
  bool loops_now() const { return loops_.loops().holds(); }
  bool is_split() const { return partitions_.partitions().holds(); }

 private:
  LoopChecker loops_;
  PartitionChecker partitions_;

 public:
  Simulation simulation;
};

struct RingCase {
  size_t nodes;
  uint32_t ring_role;
};
void PrintTo(const RingCase& ring, std::ostream* out);

// Tests of every ring size and both ring roles.
class EveryRing : public testing::TestWithParam<RingCase> {
 protected:
  RingPlan plan() const {
    RingPlan ring;
    ring.nodes = GetParam().nodes;
    ring.ring_role = GetParam().ring_role;
    return ring;
  }
  // Fewer for large rings, whose tests visit more places.
  uint64_t seeds() const { return GetParam().nodes > 8 ? 1 : 4; }
};

#define ERPS_FOR_EVERY_RING(suite)                                                            \
  INSTANTIATE_TEST_SUITE_P(Rings, suite,                                                      \
                           testing::Values(RingCase{4, 0}, RingCase{4, 1}, RingCase{6, 0},    \
                                           RingCase{6, 1}, RingCase{16, 0}, RingCase{16, 1}), \
                           [](const testing::TestParamInfo<RingCase>& ring) {                 \
                             return std::to_string(ring.param.nodes) + "NodesRole" +          \
                                    std::to_string(ring.param.ring_role);                     \
                           })

}  // namespace erps::sim
