// Every state of small rings: how many there are, that nothing is wrong in them, and what limits
// do.
#include "tests/explore/exploration.h"

#include "sim/sim_error.h"

namespace erps::sim::explore {

using testing::Gt;
using testing::HasSubstr;
using testing::IsEmpty;
using testing::Lt;
using testing::ThrowsMessage;

// Two nodes, one link cut and restored at any time, for ever: all is well in every state, and the
// ring comes to rest from all of them.
TEST(Exploration, ARingOfTwoWithACutIsExhaustedWithoutAViolation) {
  const Report report = explore_ring(small_ring(2), {.cuts = 1});
  EXPECT_EQ(Ending::kExhausted, report.ending);
  EXPECT_FALSE(report.violation) << report.violation->what;
  EXPECT_THAT(report.surprises, IsEmpty());
  EXPECT_THAT(report.states, Gt(100'000U));
  EXPECT_EQ(report.states, report.expanded);
  EXPECT_THAT(report.transitions, Gt(report.states));
  // WTR of 5 s on a tick of one second, a guard of up to 1.5 s before it, the way round after it.
  ASSERT_TRUE(report.halves_to_rest);
  EXPECT_THAT(*report.halves_to_rest, testing::AllOf(Gt(10U), Lt(40U)));
}

// A forced or manual switch at any node and port of three, at any time.
TEST(Exploration, ARingOfThreeWithASwitchCommandIsExhaustedWithoutAViolation) {
  const Report report = explore_ring(small_ring(3), {.cuts = 0, .commands = 1});
  EXPECT_EQ(Ending::kExhausted, report.ending);
  EXPECT_FALSE(report.violation) << report.violation->what;
  EXPECT_THAT(report.states, Gt(10'000U));
}

TEST(Exploration, TheSameNetworkHasTheSameStatesTwice) {
  const auto counts = [] {
    const Report report = explore_ring(small_ring(2), {.cuts = 1, .ticks = 4});
    return std::array<uint64_t, 6>{report.states, report.transitions,  report.depth,
                                   report.split,  report.local_states, report.reactions};
  };
  const auto first = counts();
  EXPECT_THAT(first[0], Gt(1000U));
  EXPECT_EQ(first, counts());
}

// Without a fault there is little to see: the clocks of three nodes and one repeated message.
TEST(Exploration, WithoutAFaultARingStaysAtRest) {
  const Report report = explore_ring(small_ring(3), {.cuts = 0});
  EXPECT_EQ(Ending::kExhausted, report.ending);
  EXPECT_FALSE(report.violation);
  EXPECT_EQ(0U, report.split);
  EXPECT_EQ(0U, report.halves_to_rest.value_or(0));
  EXPECT_THAT(report.states, testing::AllOf(Gt(8U), Lt(10'000U)));
}

// Both ends of the restored link repeat SF, the repeats cross, and each opens its port.
TEST(Exploration, TheLoopOfANonRevertiveRingIsFoundAndNamed) {
  RingPlan plan = small_ring(2);
  plan.revertive = false;
  const Report report = explore_ring(plan, {.cuts = 1});
  EXPECT_EQ(Ending::kExhausted, report.ending);
  EXPECT_FALSE(report.violation) << report.violation->what;
  const auto loop = report.surprises.find("repeats of SF that cross open a non-revertive ring");
  ASSERT_NE(report.surprises.end(), loop);
  EXPECT_THAT(loop->second.states, Gt(0U));
  EXPECT_THAT(loop->second.first.what, HasSubstr("a forwarding loop"));
}

TEST(Exploration, ALargeNetworkIsRefused) {
  EXPECT_THAT([] { Model(make_ring(small_ring(5)), ERPS_MODULE, {}); },
              ThrowsMessage<SimError>(HasSubstr("2 to 4 nodes")));
}

TEST(Exploration, LimitsEndItAndSayWhatIsLeft) {
  Limits memory;
  memory.memory_bytes = size_t{32} << 20U;
  const Report full = explore_ring(small_ring(4), {.cuts = 1}, ERPS_MODULE, memory);
  EXPECT_EQ(Ending::kMemoryLimit, full.ending);
  EXPECT_THAT(full.expanded, Lt(full.states));
  EXPECT_THAT(full.bytes, testing::Le(memory.memory_bytes));

  Limits time;
  time.seconds = 0.2;
  EXPECT_EQ(Ending::kTimeLimit, explore_ring(small_ring(4), {.cuts = 2}, ERPS_MODULE, time).ending);

  const std::atomic<bool> stopped = true;
  Limits stop;
  stop.stop = &stopped;
  EXPECT_EQ(Ending::kStopped, explore_ring(small_ring(2), {}, ERPS_MODULE, stop).ending);
}

}  // namespace erps::sim::explore
