// Nodes whose processor is slow, or stands still for a while.
#include <gmock/gmock.h>

#include "tests/ring/test_network.h"

namespace erps::sim {

namespace {

constexpr LinkIndex kCut = 1;  // neither end is at the RPL

int64_t outage_of_a_cut_us(TestNetwork& network) {
  const int64_t cut_us = network.simulation.now_us();
  network.simulation.cut(kCut);
  network.simulation.run_for(kSettledUs);
  network.expect_no_loop();
  return network.longest_partition_us(cut_us);
}

}  // namespace

TEST(SlowNode, AStalledOwnerOpensTheRplWhenItRunsAgain) {
  TestNetwork network(make_ring({}), 1);
  network.come_home();
  network.simulation.stall(0, 3 * kSecondUs);
  const int64_t outage_us = outage_of_a_cut_us(network);
  EXPECT_GT(outage_us, 2900 * kMillisecondUs);
  EXPECT_LE(outage_us, 3 * kSecondUs + network.detection_us());
  network.simulation.restore(kCut);
  network.simulation.run_for(kSecondUs);
  network.come_home();
}

TEST(SlowNode, AStallEndsWithThePowerOfTheNode) {
  TestNetwork network(make_ring({}), 1);
  network.simulation.stall(2, 1000 * kSecondUs);
  network.simulation.run_for(kSecondUs);
  EXPECT_FALSE(network.simulation.configured(2));
  network.simulation.crash(2);
  network.simulation.restart(2);
  network.simulation.run_for(kSecondUs);
  EXPECT_TRUE(network.simulation.configured(2));
  network.come_home();
}

TEST(SlowNode, ASlowOwnerMakesTheOutageLonger) {
  TestNetwork usual(make_ring({}), 1);
  usual.come_home();
  TestNetwork slow(make_ring({}), 1);
  slow.come_home();
  slow.simulation.slow_down(0, 10'000);
  const int64_t usual_us = outage_of_a_cut_us(usual);
  const int64_t slow_us = outage_of_a_cut_us(slow);
  EXPECT_LE(usual_us, usual.detection_us());
  EXPECT_GT(slow_us, 10 * usual_us);
}

TEST(SlowNode, TheTimeThatAnEventTakesIsPartOfTheOutage) {
  Options options = options_with(1);
  options.timing.event_us = {20 * kMillisecondUs, 20 * kMillisecondUs};
  TestNetwork network(make_ring({}), options);
  network.come_home();
  // The link event at the node next to the cut, the message at the owner.
  EXPECT_GE(outage_of_a_cut_us(network), 40 * kMillisecondUs);
}

TEST(SlowNode, IsNotMadeFasterThanUsual) {
  Simulation simulation(make_ring({}), options_with(1));
  EXPECT_THROW(simulation.slow_down(0, 0), SimError);
}

}  // namespace erps::sim
