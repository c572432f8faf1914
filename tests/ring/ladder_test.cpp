// A major ring and a sub-ring: node 1 watches the major ring, node 2 marks.
#include "tests/ring/test_network.h"

namespace erps::sim {

namespace {

constexpr uint64_t kSeeds = 4;
constexpr LinkIndex kLinks = 7;

}  // namespace

TEST(Ladder, ComesHomeWithoutALoop) {
  for (uint64_t seed = 1; seed <= 2 * kSeeds; ++seed) {
    TestNetwork network(make_ladder({}), seed);
    network.come_home();
    network.expect_no_loop();
  }
}

TEST(Ladder, EverySingleCutInEitherRingIsRepaired) {
  for (uint64_t seed = 1; seed <= kSeeds; ++seed) {
    TestNetwork network(make_ladder({}), seed);
    network.come_home();
    for (LinkIndex link = 0; link < kLinks; ++link) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", link " + std::to_string(link));
      const int64_t cut_us = network.simulation.now_us();
      network.simulation.cut(link);
      network.simulation.run_for(kSettledUs);
      EXPECT_LE(network.longest_partition_us(cut_us), network.detection_us());
      const int64_t restored_us = network.simulation.now_us();
      network.simulation.restore(link);
      network.come_home();
      EXPECT_LE(network.longest_partition_us(restored_us), network.transit_us());
    }
    network.expect_no_loop();
  }
}

TEST(Ladder, ASplitMajorRingIsRepairedThroughTheSubRing) {
  for (uint64_t seed = 1; seed <= kSeeds; ++seed) {
    TestNetwork network(make_ladder({}), seed);
    network.come_home();
    Simulation& simulation = network.simulation;
    // Both major-ring links of the watching node, one after the other.
    const int64_t cut_us = simulation.now_us();
    simulation.cut(0);
    simulation.run_for(kSettledUs);
    simulation.cut(1);
    simulation.run_for(kSettledUs);
    EXPECT_LE(network.longest_partition_us(cut_us), network.detection_us()) << "seed " << seed;
    simulation.restore(0);
    simulation.run_for(2 * kSettledUs);
    simulation.restore(1);
    network.come_home();
    network.expect_no_loop();
  }
}

TEST(Ladder, TwoCutsInAnyPlaceLeaveNoLoopAndComeHome) {
  TestNetwork network(make_ladder({}), 1);
  network.come_home();
  for (LinkIndex one = 0; one < kLinks; ++one) {
    for (LinkIndex other = one + 1; other < kLinks; ++other) {
      SCOPED_TRACE("links " + std::to_string(one) + " and " + std::to_string(other));
      Simulation& simulation = network.simulation;
      simulation.cut(one);
      simulation.run_for(kSettledUs);
      simulation.cut(other);
      simulation.run_for(kSettledUs);
      simulation.restore(one);
      simulation.run_for(2 * kSettledUs);
      simulation.restore(other);
      network.come_home();
    }
  }
  network.expect_no_loop();
}

}  // namespace erps::sim
