// Repairs that take longer than a fault's detection and a message's way, each for a reason that the
// inspection knows.
#include <gtest/gtest.h>

#include <algorithm>

#include "sim/checks/graph.h"
#include "sim/checks/surprises.h"
#include "tests/ring/test_network.h"
#include "tests/ring/violations.h"

namespace erps::sim {

namespace {

bool has_partition_named(Inspection& inspection, const char* surprise) {
  const auto found = inspection.findings();
  return std::any_of(found.begin(), found.end(), [&](const Finding& finding) {
    return finding.check == "partition" && finding.surprise.find(surprise) != std::string::npos;
  });
}

}  // namespace

// A node with power and without a running module passes nothing on.
class Boot : public testing::Test {
 protected:
  static constexpr int64_t kBootUs = 20 * kMillisecondUs;

  static Options options() {
    Options options = options_with(1);
    options.timing.boot_us = {kBootUs, kBootUs};
    return options;
  }
  void power_on_until_just_before_the_start() {
    inspection.expect_home();
    simulation.crash(1);
    simulation.run_for(kSettledUs);
    simulation.restart(1);
    simulation.run_for(kBootUs - 100);
  }

  Simulation simulation{make_ring({.nodes = 2}), options()};
  Inspection inspection{simulation};
};

TEST_F(Boot, HasItsTimeWhereThePowerFailsAgainBeforeItIsOver) {
  power_on_until_just_before_the_start();
  simulation.crash(1);
  simulation.run_for(kSettledUs);
  simulation.restart(1);
  inspection.expect_home();
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
}

TEST_F(Boot, TakesLongerWithoutAProcessor) {
  power_on_until_just_before_the_start();
  simulation.stall(1, 3 * kSecondUs);
  simulation.run_for(kSettledUs);
  inspection.expect_home();
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
  EXPECT_TRUE(has_partition_named(inspection, surprise::kStalled));
}

// Both directions of a link have failed unseen. When the carriers go, nothing fails that worked,
// and the hold-off begins.
TEST(Holdoff, BeginsWhenAFailureIsSeen) {
  constexpr LinkIndex kRpl = 3;
  Simulation simulation(make_ring({.holdoff_ms = 2000}), options_with(1));
  Inspection inspection(simulation);
  inspection.expect_home();
  const auto fail_both_ways = [&](bool silent) {
    simulation.fail_strand(1, 0, silent);
    simulation.fail_strand(1, 1, silent);
  };
  fail_both_ways(true);
  simulation.run_for(3500 * kMillisecondUs);
  // What has nothing to do with it, and is no reason any more when the hold-off is over.
  simulation.fail_strand(kRpl, 0, true);
  simulation.run_for(kMillisecondUs);
  simulation.repair_strand(kRpl, 0);
  simulation.run_for(3 * kSecondUs);
  fail_both_ways(false);
  simulation.run_for(kSettledUs);
  EXPECT_FALSE(has_partition(simulation.forwarding()));
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
}

// What a slow node says while another one comes up, it may say before that one listens.
TEST(SlowNode, SaysAMessageToANodeThatStartsMeanwhile) {
  constexpr int64_t kStepUs = 50;
  for (int64_t boot_us = 0; boot_us < 20 * kMillisecondUs; boot_us += kStepUs) {
    Options options = options_with(1);
    options.timing.boot_us = {boot_us, boot_us};
    Simulation simulation(make_ring({.nodes = 2}), options);
    Inspection inspection(simulation);
    inspection.expect_home();
    simulation.slow_down(0, 46);
    simulation.crash(1);
    simulation.run_for(kSecondUs);
    simulation.restart(1);
    simulation.run_for(kSettledUs);
    EXPECT_TRUE(inspection.clean()) << boot_us << "\n" << text_of(violations(inspection));
  }
}

// The neighbour's manual switch is not heard by the owner, which repeats R-APS(NR,RB) all the time.
// The neighbour needs to hear it again when its switch is cleared, and the repetition comes while
// the link is down for less than the hold-off.
TEST(Neighbour, WaitsForTheNextRepetitionWhereALinkLostOne) {
  constexpr NodeIndex kNeighbour = 1;
  constexpr int64_t kStepUs = 500 * kMillisecondUs;
  for (int64_t phase_us = 0; phase_us < 5 * kSecondUs; phase_us += kStepUs) {
    for (int64_t moment_us = 0; moment_us < 5 * kSecondUs; moment_us += kStepUs) {
      Simulation simulation(make_ring({.nodes = 2, .holdoff_ms = 600}), options_with(1));
      Inspection inspection(simulation);
      inspection.expect_home();
      simulation.run_for(phase_us);
      simulation.execute(kNeighbour, make_request(mgmt::kManualSwitch, {kRing, 1}));
      simulation.run_for(200 * kMillisecondUs);
      simulation.execute(kNeighbour, make_request(mgmt::kClear, {kRing}));
      simulation.run_for(moment_us);
      simulation.cut(0);
      simulation.run_for(kStepUs);
      simulation.restore(0);
      simulation.run_for(2 * kSettledUs);
      EXPECT_TRUE(inspection.clean()) << phase_us << ", " << moment_us << "\n"
                                      << text_of(violations(inspection));
    }
  }
}

// The sub-ring's end tells its failure over the first open port of its major ring, and it is lost
// there. When that link goes down, too, the repetition goes the other way round, where all ports
// are open already.
TEST(SubRing, TellsItsFailureTheOtherWayWhenALinkOfItsMajorRingFails) {
  constexpr NodeIndex kWatchingNode = 1;
  constexpr uint32_t kMajorRing = 1;
  constexpr LinkIndex kBetweenInterconnectionNodes = 1;
  constexpr LinkIndex kToMarkingNode = 6;
  Simulation simulation(make_ladder({}), options_with(1));
  Inspection inspection(simulation);
  inspection.expect_home();
  simulation.execute(kWatchingNode, make_request(mgmt::kForcedSwitch, {kMajorRing, 2}));
  simulation.run_for(kSettledUs);
  simulation.fail_strand(kBetweenInterconnectionNodes, 1, true);
  simulation.fail_strand(kToMarkingNode, 0);
  simulation.run_for(2 * kSettledUs);
  EXPECT_TRUE(has_partition(simulation.forwarding()));
  simulation.fail_strand(kBetweenInterconnectionNodes, 0);
  simulation.run_for(kSettledUs);
  EXPECT_FALSE(has_partition(simulation.forwarding()));
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
  EXPECT_TRUE(has_partition_named(inspection, surprise::kCameLate));
}

// A guard time that is started again keeps its place in the list of timers, and holds up the
// repetition behind it; the next one is on time again.
TEST(Repetition, IsLateBehindAGuardTimeAndOnTimeAgain) {
  constexpr NodeIndex kMarkingNode = 2;
  constexpr uint32_t kMajorRing = 1;
  constexpr int64_t kStepUs = 100 * kMillisecondUs;
  for (uint64_t seed = 1; seed <= 30; ++seed) {
    Simulation simulation(make_ladder({.guard_ms = 2000}), options_with(seed));
    Inspection inspection(simulation);
    inspection.expect_home();
    simulation.run_for(static_cast<int64_t>(seed) * 37 * kMillisecondUs);
    const auto switch_shortly = [&] {
      simulation.execute(kMarkingNode, make_request(mgmt::kManualSwitch, {kMajorRing, 1}));
      simulation.run_for(kStepUs);
      simulation.execute(kMarkingNode, make_request(mgmt::kClear, {kMajorRing}));
    };
    simulation.cut(6);  // which the sub-ring's end repeats
    simulation.run_for(2300 * kMillisecondUs);
    switch_shortly();
    simulation.run_for(1700 * kMillisecondUs);
    switch_shortly();
    simulation.run_for(2 * kSettledUs);
    EXPECT_TRUE(inspection.clean()) << "seed " << seed << "\n" << text_of(violations(inspection));
  }
}

// R-APS(NR) of a cleared switch takes the owner out of forced. Its port was blocked there by a
// failure that is over, and another forced switch that it had heard opens it when it is repeated.
TEST(Owner, OpensOnAForcedSwitchThatItHearsAgain) {
  constexpr NodeIndex kCleared = 1;
  constexpr NodeIndex kStanding = 3;
  constexpr LinkIndex kOwnersLink = 0;
  constexpr int64_t kStepUs = 700 * kMillisecondUs;
  bool has_heard_again = false;
  for (int64_t clear_us = 0; clear_us < 5 * kSecondUs; clear_us += kStepUs) {
    for (int64_t repair_us = 0; repair_us < 5 * kSecondUs; repair_us += kStepUs) {
      Simulation simulation(make_ring({}), options_with(1));
      Inspection inspection(simulation);
      inspection.expect_home();
      simulation.fail_strand(kOwnersLink, 1);
      simulation.run_for(kSettledUs);
      simulation.execute(kStanding, make_request(mgmt::kForcedSwitch, {kRing, 1}));
      simulation.run_for(kSecondUs);
      simulation.execute(kCleared, make_request(mgmt::kForcedSwitch, {kRing, 2}));
      simulation.run_for(clear_us);
      simulation.execute(kCleared, make_request(mgmt::kClear, {kRing}));
      simulation.run_for(10 * kSecondUs + repair_us);
      simulation.repair_strand(kOwnersLink, 1);
      simulation.run_for(2 * kSettledUs);
      EXPECT_FALSE(has_partition(simulation.forwarding()));
      EXPECT_TRUE(inspection.clean()) << clear_us << ", " << repair_us << "\n"
                                      << text_of(violations(inspection));
      has_heard_again = has_heard_again || has_partition_named(inspection, surprise::kHeardTwice);
    }
  }
  EXPECT_TRUE(has_heard_again);
}

}  // namespace erps::sim
