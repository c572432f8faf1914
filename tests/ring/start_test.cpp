// A ring starts: its nodes get their power at once and are ready within 20 ms of each other.
#include "tests/ring/test_network.h"

namespace erps::sim {

using Start = EveryRing;

TEST_P(Start, ComesHomeWithoutALoop) {
  for (uint64_t seed = 1; seed <= 2 * seeds(); ++seed) {
    TestNetwork network(make_ring(plan()), seed);
    network.come_home();
    network.expect_no_loop();
    // A node that started after its neighbour's message hears of it by the repetition.
    EXPECT_LE(network.longest_partition_us(0), kRepeatUs) << "seed " << seed;
  }
}

TEST_P(Start, OneNodeAfterTheOtherComesHomeWithoutALoop) {
  Options options = options_with(1);
  options.timing.boot_us = {0, 30 * kSecondUs};
  TestNetwork network(make_ring(plan()), options);
  network.simulation.run_for(30 * kSecondUs);
  network.come_home();
  network.expect_no_loop();
}

TEST_P(Start, NobodyIsAtHomeBeforeTheOwnerHasWaited) {
  TestNetwork network(make_ring(plan()), 1);
  network.simulation.run_for(4 * kSecondUs);
  EXPECT_TRUE(why_not_home(network.simulation));
}

ERPS_FOR_EVERY_RING(Start);

}  // namespace erps::sim
