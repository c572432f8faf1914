// The module's process dies, or is stopped, and a new one starts; the switch goes on meanwhile.
#include <gmock/gmock.h>

#include "tests/ring/test_network.h"

namespace erps::sim {

using ModuleRestart = EveryRing;

TEST_P(ModuleRestart, AtEveryNodeChangesNoPortUntilItStartsAndThenComesHome) {
  for (uint64_t seed = 1; seed <= seeds(); ++seed) {
    TestNetwork network(make_ring(plan()), seed);
    network.come_home();
    for (NodeIndex node = 0; node < plan().nodes; ++node) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", node " + std::to_string(node));
      const int64_t killed_us = network.simulation.now_us();
      network.simulation.kill_module(node);
      network.simulation.run_for(kSettledUs);
      EXPECT_EQ(network.longest_partition_us(killed_us), 0);

      network.simulation.start_module(node);
      EXPECT_FALSE(network.simulation.port_forwards({node, 1}));
      EXPECT_FALSE(network.simulation.port_forwards({node, 2}));
      network.simulation.run_for(kSecondUs);
      network.come_home();
    }
    network.expect_no_loop();
  }
}

TEST_P(ModuleRestart, AfterAStopInGoodOrder) {
  TestNetwork network(make_ring(plan()), 1);
  network.come_home();
  network.simulation.stop_module(1);
  network.simulation.run_for(kSettledUs);
  network.simulation.start_module(1);
  network.simulation.run_for(kSecondUs);
  EXPECT_TRUE(network.simulation.configured(1));
  network.come_home();
  network.expect_no_loop();
}

ERPS_FOR_EVERY_RING(ModuleRestart);

TEST(DeadModule, DoesNotSeeACutThatItsNeighbourSees) {
  TestNetwork network(make_ring({}), 1);
  network.come_home();
  network.simulation.kill_module(0);  // the owner: the RPL stays blocked
  network.simulation.cut(1);
  network.simulation.run_for(kSettledUs);
  EXPECT_TRUE(network.is_split());
  EXPECT_FALSE(network.simulation.port_forwards({0, 1}));

  network.simulation.start_module(0);
  network.simulation.run_for(kSettledUs);
  EXPECT_FALSE(network.is_split());
  network.simulation.restore(1);
  network.simulation.run_for(kSecondUs);
  network.come_home();
  network.expect_no_loop();
}

TEST(DeadModule, AnswersNobody) {
  TestNetwork network(make_ring({}), 1);
  network.come_home();
  network.simulation.kill_module(2);
  const Reply reply = network.simulation.execute(2, make_request(mgmt::kGetRing, {kRing}));
  EXPECT_TRUE(reply.done);
  EXPECT_EQ(reply.ret_code, kNoAnswer);
}

TEST(DeadModule, InTheMiddleOfEverythingLeavesNoLoop) {
  for (uint64_t seed = 1; seed <= 10; ++seed) {
    TestNetwork network(make_ring({}), seed);
    Random chance(seed, 98);
    for (int i = 0; i < 30; ++i) {
      const auto node = static_cast<NodeIndex>(chance.in({0, 3}));
      network.simulation.kill_module(node);
      network.simulation.run_for(chance.in({0, 2 * kSecondUs}));
      network.simulation.start_module(node);
      network.simulation.run_for(chance.in({0, 2 * kSecondUs}));
    }
    network.simulation.run_for(kSecondUs);
    network.come_home();
    network.expect_no_loop();
  }
}

}  // namespace erps::sim
