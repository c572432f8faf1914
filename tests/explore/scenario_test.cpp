// Scenario files: what is refused, and with which words.
#include "sim/explore/scenario.h"

#include "sim/explore/replay.h"
#include "sim/sim_error.h"
#include "tests/explore/exploration.h"

namespace erps::sim::explore {

using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

Trouble parse(const std::string& lines) {
  return parse_scenario("erps-exploration 1\n" + lines, make_ring(small_ring(3)));
}

}  // namespace

TEST(Scenario, IsReadWithCommentsAndBlankLines) {
  const Trouble way = parse(
      "clocks n1:second n2:first # where they stand\n\n"
      "cut n1:2 kept 1 0\nfail-away-from n2:2 kept 0\nrepeat\ntick n3\n");
  EXPECT_EQ(1U, way.start.second_half);
  ASSERT_EQ(3U, way.steps.size());
  EXPECT_EQ(StepKind::kCut, way.steps[0].kind);
  EXPECT_EQ(1, way.steps[0].kept[0]);
  EXPECT_EQ(1, way.steps[1].link);
  EXPECT_EQ(2U, way.repeats_from);
  EXPECT_EQ(2, way.steps[2].node);
}

TEST(Scenario, MistakesAreToldWithTheirLine) {
  const auto refused = [](const std::string& lines, const std::string& line,
                          const std::string& why) {
    EXPECT_THAT([&] { parse(lines); },
                ThrowsMessage<SimError>(AllOf(HasSubstr(line), HasSubstr(why))))
        << lines;
  };
  refused("explode n1\n", "line 2", "\"explode\" is no step");
  refused("tick n1\ntick n9\n", "line 3", "there is no node \"n9\"");
  refused("frame n1\n", "line 2", "write NODE:NUMBER");
  refused("frame n1:x\n", "line 2", "\"x\" is no number");
  refused("cut n1:2\n", "line 2", "kept FRAMES FRAMES");
  refused("restore n1:7\n", "line 2", "there is no link at n1:7");
  refused("clocks n1:third\n", "line 2", "first or the second half");
  EXPECT_THAT([] { parse_scenario("tick n1\n", make_ring(small_ring(2))); },
              ThrowsMessage<SimError>(HasSubstr("erps-exploration 1")));
}

TEST(Scenario, AStepThatCannotHappenIsNamed) {
  const Topology topology = make_ring(small_ring(3));
  const Trouble way = parse_scenario("erps-exploration 1\nhalf n1\nframe n2:1\n", topology);
  Model model(topology, ERPS_MODULE, replay_budget());
  EXPECT_THAT([&] { replay(model, way, [](const ReplayStep&) {}); },
              ThrowsMessage<SimError>(HasSubstr("step 2 of the scenario cannot happen")));
}

}  // namespace erps::sim::explore
