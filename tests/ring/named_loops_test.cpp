// Loops that the protocol makes by itself, each with its name, and what keeps a network from them.
#include <gmock/gmock.h>

#include <algorithm>

#include "sim/checks/graph.h"
#include "sim/checks/surprises.h"
#include "tests/ring/test_network.h"
#include "tests/ring/violations.h"

namespace erps::sim {

namespace {

using testing::AllOf;
using testing::Each;
using testing::Field;
using testing::IsEmpty;
using testing::Not;

}  // namespace

// The R-APS(SF) of either end takes three seconds over the RPL. When it comes to the other end the
// link is back, and who takes it for news opens its port.
TEST(LoopOfAnOldMessage, IsThereWhereTheGuardTimeIsShorterThanAMessagesWay) {
  const auto loops_with = [](uint32_t guard_ms) {
    Topology topology = make_ring({.ring_role = 1, .guard_ms = guard_ms});
    constexpr LinkIndex kRpl = 3;
    topology.links[kRpl].delay_us = {3 * kSecondUs, 3 * kSecondUs};
    Simulation simulation(topology, options_with(1));
    Inspection inspection(simulation);
    simulation.run_for(60 * kSecondUs);
    simulation.cut(1);
    simulation.run_for(kSecondUs);
    simulation.restore(1);
    simulation.run_for(60 * kSecondUs);
    return loops_in(inspection);
  };
  const auto with_short_guard = loops_with(500);
  EXPECT_THAT(with_short_guard, Not(IsEmpty()));
  EXPECT_THAT(with_short_guard, Each(Field(&Finding::surprise, surprise::kOldMessage)));
  EXPECT_THAT(loops_with(4000), IsEmpty());
}

// The watching node is not told that the RPL of the major ring is back, and takes the next failure
// for a cut on both sides: it opens the sub-ring beside the major ring, which is whole but for one
// link, until it hears from the other side.
TEST(LoopOfAnOldCount, IsThereWhileTheWatchingNodeHasNotHeardOfARestore) {
  constexpr LinkIndex kToWatchingNode = 0;
  constexpr LinkIndex kBetweenInterconnectionNodes = 1;
  constexpr LinkIndex kRpl = 3;
  const auto loops_when = [&](bool told) {
    Topology topology = make_ladder({});
    topology.links[kToWatchingNode].delay_us = {5 * kMillisecondUs, 5 * kMillisecondUs};
    Simulation simulation(topology, options_with(1));
    Inspection inspection(simulation);
    inspection.expect_home();
    simulation.cut(kRpl);
    simulation.run_for(kSettledUs);
    if (!told) {
      simulation.fail_strand(kToWatchingNode, 0, true);
    }
    simulation.restore(kRpl);
    simulation.run_for(kSecondUs);
    simulation.repair_strand(kToWatchingNode, 0);
    simulation.cut(kBetweenInterconnectionNodes);
    simulation.run_for(kSettledUs);
    EXPECT_FALSE(has_loop(simulation.forwarding()));
    simulation.restore(kBetweenInterconnectionNodes);
    inspection.expect_home();
    EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
    return loops_in(inspection);
  };
  EXPECT_THAT(loops_when(false),
              AllOf(Not(IsEmpty()), Each(Field(&Finding::surprise, surprise::kOldCount))));
  EXPECT_THAT(loops_when(true), IsEmpty());
}

// An end that starts is open and says R-APS(NR): its neighbour on the sub-ring, which blocks, hands
// over to it when that is repeated, where it has the lower node ID.
TEST(LoopOfAnOpenEnd, LastsFromTheStartOfAnInterconnectionNodeUntilTheOwnersWtrIsOver) {
  constexpr NodeIndex kMarkingNode = 2;
  const auto loops_with = [](uint32_t wtr_ms) {
    Simulation simulation(make_ladder({.wtr_ms = wtr_ms}), options_with(1));
    Inspection inspection(simulation);
    inspection.expect_home();
    simulation.crash(kMarkingNode);
    simulation.run_for(kSettledUs);
    EXPECT_THAT(loops_in(inspection), IsEmpty());
    simulation.restart(kMarkingNode);
    inspection.expect_home();
    EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
    return loops_in(inspection);
  };
  constexpr uint32_t kLongWtrMs = 20'000;
  const auto with_long_wtr = loops_with(kLongWtrMs);
  EXPECT_THAT(with_long_wtr, Not(IsEmpty()));
  int64_t longest_us = 0;
  for (const Finding& loop : with_long_wtr) {
    EXPECT_EQ(loop.surprise, surprise::kOpenEnd);
    longest_us = std::max(longest_us, loop.to_us - loop.from_us);
  }
  EXPECT_GT(longest_us, 10 * kSecondUs);
  EXPECT_LT(longest_us, kLongWtrMs * kMillisecondUs);
  // The owner blocks the RPL before the repetition.
  EXPECT_THAT(loops_with(3000), IsEmpty());
}

// A link that fails second at both ends interrupts it, and its return is not the reason.
TEST(LoopOfAnOpenEnd, GoesOnWhereALinkThatFailedSecondComesBack) {
  constexpr NodeIndex kMarkingNode = 2;
  Simulation simulation(make_ladder({.wtr_ms = 20'000}), options_with(1));
  Inspection inspection(simulation);
  inspection.expect_home();
  simulation.crash(kMarkingNode);
  simulation.run_for(kSettledUs);
  simulation.restart(kMarkingNode);
  simulation.run_for(kSettledUs);
  ASSERT_TRUE(has_loop(simulation.forwarding()));
  simulation.cut(0);
  simulation.cut(2);
  simulation.run_for(kSecondUs);
  simulation.cut(1);
  simulation.run_for(kSecondUs);
  EXPECT_FALSE(has_loop(simulation.forwarding()));
  simulation.restore(1);
  simulation.run_for(3 * kSecondUs);
  EXPECT_TRUE(has_loop(simulation.forwarding()));
  simulation.restore(0);
  simulation.restore(2);
  inspection.expect_home();
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
  EXPECT_THAT(loops_in(inspection), Each(Field(&Finding::surprise, surprise::kOpenEnd)));
}

// The owner that would end it is without its module.
TEST(LoopOfAnOpenEnd, LastsWhileTheModuleOfTheOwnerThatWaitedIsDead) {
  constexpr NodeIndex kMarkingNode = 2;
  constexpr NodeIndex kOwner = 4;
  Simulation simulation(make_ladder({.wtr_ms = 20'000}), options_with(1));
  Inspection inspection(simulation);
  inspection.expect_home();
  simulation.crash(kMarkingNode);
  simulation.run_for(kSettledUs);
  simulation.restart(kMarkingNode);
  simulation.run_for(kSettledUs);
  ASSERT_TRUE(has_loop(simulation.forwarding()));
  simulation.kill_module(kOwner);
  simulation.run_for(120 * kSecondUs);
  EXPECT_TRUE(has_loop(simulation.forwarding()));
  simulation.start_module(kOwner);
  inspection.expect_home();
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
  EXPECT_THAT(loops_in(inspection), Each(Field(&Finding::surprise, surprise::kOpenEnd)));
}

// The block of a forced switch goes with its node, and everybody else has none. The owner beside it
// sees the link last, and its return closes the loop.
TEST(LoopOfAnOpenEnd, IsThereWhereTheNodeThatStartsHadForcedASwitch) {
  constexpr NodeIndex kWatchingNode = 1;
  constexpr uint32_t kSubRing = 2;
  constexpr uint32_t kSubRingPort = 3;
  constexpr LinkIndex kToOwner = 4;
  constexpr LinkIndex kRpl = 5;
  Simulation simulation(make_ladder({}), options_with(1));
  Inspection inspection(simulation);
  inspection.expect_home();
  simulation.execute(kWatchingNode, make_request(mgmt::kForcedSwitch, {kSubRing, kSubRingPort}));
  simulation.run_for(kSettledUs);
  simulation.crash(kWatchingNode);
  simulation.fail_strand(kToOwner, 0);
  simulation.run_for(kSettledUs);
  simulation.restart(kWatchingNode);
  simulation.run_for(2 * kSettledUs);
  EXPECT_FALSE(has_loop(simulation.forwarding()));
  simulation.repair_strand(kToOwner, 0);
  simulation.run_for(10 * kMillisecondUs);
  EXPECT_TRUE(has_loop(simulation.forwarding()));
  simulation.cut(kRpl);
  simulation.run_for(kSettledUs);
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
  EXPECT_THAT(loops_in(inspection),
              AllOf(Not(IsEmpty()), Each(Field(&Finding::surprise, surprise::kOpenEnd))));
}

}  // namespace erps::sim
