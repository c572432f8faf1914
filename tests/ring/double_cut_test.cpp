// Two links of a ring are down at the same time.
#include "tests/ring/test_network.h"

namespace erps::sim {

using DoubleCut = EveryRing;

namespace {

// Every second link of large rings: all pairs would take minutes.
std::vector<std::pair<LinkIndex, LinkIndex>> pairs_of(size_t links) {
  std::vector<std::pair<LinkIndex, LinkIndex>> pairs;
  const size_t step = links > 8 ? 5 : 1;
  for (LinkIndex one = 0; one < links; one += step) {
    for (LinkIndex other = one + 1; other < links; other += step) {
      pairs.emplace_back(one, other);
    }
  }
  return pairs;
}

}  // namespace

TEST_P(DoubleCut, OneAfterTheOtherComesHomeAfterBothAreRestored) {
  TestNetwork network(make_ring(plan()), 1);
  network.come_home();
  for (const auto& [one, other] : pairs_of(plan().nodes)) {
    SCOPED_TRACE("links " + std::to_string(one) + " and " + std::to_string(other));
    Simulation& simulation = network.simulation;
    const int64_t cut_us = simulation.now_us();
    simulation.cut(one);
    simulation.run_for(kSettledUs);
    simulation.cut(other);
    simulation.run_for(kSettledUs);
    // What is left of the ring is two chains, each of them whole.
    EXPECT_LE(network.longest_partition_us(cut_us), network.detection_us());

    // The first link to return joins the chains again. Its ends are in their guard time when they
    // hear of the failure that is left; they open by its repetition.
    const int64_t restored_us = simulation.now_us();
    simulation.restore(one);
    simulation.run_for(kSettledUs);
    EXPECT_LE(network.longest_partition_us(restored_us), kRepeatUs);
    const int64_t whole_us = simulation.now_us();
    simulation.restore(other);
    network.come_home();
    EXPECT_LE(network.longest_partition_us(whole_us), network.transit_us());
  }
  network.expect_no_loop();
}

TEST_P(DoubleCut, AtOnceComesHomeAfterBothAreRestoredAtOnce) {
  for (uint64_t seed = 1; seed <= seeds(); ++seed) {
    TestNetwork network(make_ring(plan()), seed);
    network.come_home();
    for (const auto& [one, other] : pairs_of(plan().nodes)) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", links " + std::to_string(one) + " and " +
                   std::to_string(other));
      Simulation& simulation = network.simulation;
      simulation.cut(one);
      simulation.cut(other);
      simulation.run_for(kSettledUs);
      const int64_t restored_us = simulation.now_us();
      simulation.restore(one);
      simulation.restore(other);
      network.come_home();
      EXPECT_LE(network.longest_partition_us(restored_us), kRepeatUs);
    }
    network.expect_no_loop();
  }
}

ERPS_FOR_EVERY_RING(DoubleCut);

}  // namespace erps::sim
