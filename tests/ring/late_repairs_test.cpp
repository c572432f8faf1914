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

}  // namespace erps::sim
