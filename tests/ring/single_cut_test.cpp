// Every link of a ring is cut and restored in turn.
#include <gmock/gmock.h>

#include "tests/ring/test_network.h"

namespace erps::sim {

using SingleCut = EveryRing;
using testing::Each;

TEST_P(SingleCut, IsRepairedWithinDetectionAndTransit) {
  for (uint64_t seed = 1; seed <= seeds(); ++seed) {
    TestNetwork network(make_ring(plan()), seed);
    network.come_home();
    for (LinkIndex link = 0; link < plan().nodes; ++link) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", link " + std::to_string(link));
      const int64_t cut_us = network.simulation.now_us();
      network.simulation.cut(link);
      network.simulation.run_for(kSettledUs);
      EXPECT_LE(network.longest_partition_us(cut_us), network.detection_us());
      EXPECT_THAT(network.states(), Each(std::string("protection")));

      // The owner blocks the RPL before its message has opened the restored link.
      const int64_t restored_us = network.simulation.now_us();
      network.simulation.restore(link);
      network.come_home();
      EXPECT_LE(network.longest_partition_us(restored_us), network.transit_us());
    }
    network.expect_no_loop();
  }
}

TEST_P(SingleCut, OfTheRplDisturbsNobody) {
  TestNetwork network(make_ring(plan()), 1);
  network.come_home();
  const int64_t cut_us = network.simulation.now_us();
  network.simulation.cut(rpl_of(plan()));
  network.simulation.run_for(kSettledUs);
  network.simulation.restore(rpl_of(plan()));
  network.come_home();
  EXPECT_EQ(network.longest_partition_us(cut_us), 0);
  network.expect_no_loop();
}

TEST_P(SingleCut, ThatFlapsLeavesNoLoopAndComesHome) {
  for (uint64_t seed = 1; seed <= seeds(); ++seed) {
    TestNetwork network(make_ring(plan()), seed);
    network.come_home();
    Random phases(seed, 99);
    for (int flap = 0; flap < 10; ++flap) {
      network.simulation.cut(1);
      network.simulation.run_for(phases.in({100, 3 * kSecondUs}));
      network.simulation.restore(1);
      network.simulation.run_for(phases.in({100, 3 * kSecondUs}));
    }
    network.come_home();
    network.expect_no_loop();
  }
}

ERPS_FOR_EVERY_RING(SingleCut);

}  // namespace erps::sim
