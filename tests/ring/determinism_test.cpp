// One seed is one run, to the last frame.
#include "tests/ring/test_network.h"

namespace erps::sim {

namespace {

void live(TestNetwork& network) {
  Simulation& simulation = network.simulation;
  simulation.at(12 * kSecondUs, [&] { simulation.cut(1); });
  simulation.at(20 * kSecondUs, [&] { simulation.restore(1); });
  simulation.at(33 * kSecondUs, [&] { simulation.crash(2); });
  simulation.at(34 * kSecondUs, [&] { simulation.restart(2); });
  simulation.at(50 * kSecondUs, [&] {
    simulation.ask(3, make_request(mgmt::kForcedSwitch, {kRing, 1}));
  });
  simulation.run_until(100 * kSecondUs);
}

uint64_t hash_of(const Options& options) {
  TestNetwork network(make_ring({.nodes = 6}), options);
  live(network);
  return network.simulation.trace_hash();
}

}  // namespace

TEST(Determinism, TheSameSeedGivesTheSameTraceAgain) {
  for (uint64_t seed = 1; seed <= 5; ++seed) {
    EXPECT_EQ(hash_of(options_with(seed)), hash_of(options_with(seed)));
  }
}

TEST(Determinism, TwoSimulationsSideBySideDoNotTouchEachOther) {
  // Other copies of the module at other addresses, and the runs taking turns.
  TestNetwork one(make_ring({.nodes = 6}), 7);
  TestNetwork other(make_ring({.nodes = 6}), 7);
  for (int i = 0; i < 20; ++i) {
    one.simulation.run_for(kSecondUs);
    other.simulation.run_for(kSecondUs);
    ASSERT_EQ(one.simulation.trace_hash(), other.simulation.trace_hash());
  }
}

TEST(Determinism, HowFarEachRunGoesMakesNoDifference) {
  const auto play = [](int64_t piece_us) {
    TestNetwork network(make_ring({.nodes = 4}), 3);
    Simulation& simulation = network.simulation;
    simulation.at(12 * kSecondUs, [&] { simulation.cut(1); });
    simulation.at(16 * kSecondUs, [&] { simulation.restore(1); });
    for (int64_t time_us = 0; time_us < 20 * kSecondUs; time_us += piece_us) {
      simulation.run_until(time_us);
    }
    simulation.run_until(20 * kSecondUs);
    return simulation.trace_hash();
  };
  const uint64_t whole = play(20 * kSecondUs);
  EXPECT_EQ(play(777), whole);
  // Shorter than most times for which a task loses the processor.
  EXPECT_EQ(play(13), whole);
}

TEST(Determinism, AnotherSeedGivesAnotherTrace) {
  EXPECT_NE(hash_of(options_with(1)), hash_of(options_with(2)));
}

TEST(Determinism, PreemptionChangesTheTrace) {
  Options without = options_with(1);
  without.timing.preempt_one_in = 0;
  EXPECT_NE(hash_of(options_with(1)), hash_of(without));
}

}  // namespace erps::sim
