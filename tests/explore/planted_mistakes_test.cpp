// Modules with one wrong line: the exploration finds what it does, and the way there can be walked
// again.
#include "sim/explore/replay.h"
#include "sim/explore/scenario.h"
#include "sim/sim_error.h"
#include "tests/explore/exploration.h"

namespace erps::sim::explore {

using testing::Gt;
using testing::HasSubstr;
using testing::Le;

namespace {

std::string mistaken(const std::string& name) {
  return std::string(ERPS_MISTAKEN_MODULES) + "/libmodule_" + name + ".so";
}

// What is wrong at the end of the way, walked with a module that may be another one.
std::string walk(const std::string& scenario, const RingPlan& plan, const std::string& module_path,
                 size_t& steps) {
  const Topology topology = make_ring(plan);
  const Trouble way = parse_scenario(scenario, topology);
  Model model(topology, module_path, replay_budget());
  steps = 0;
  return replay(model, way, [&](const ReplayStep&) { ++steps; });
}

struct Found {
  Report report;
  std::string scenario;
};

Found find(const std::string& module_path, const RingPlan& plan) {
  Model model(make_ring(plan), module_path, {.cuts = 1});
  Found found{Explorer(model, {}).run(), {}};
  if (found.report.violation) {
    found.scenario = to_scenario(model, *found.report.violation, "found");
  }
  return found;
}

}  // namespace

TEST(PlantedMistakes, AFailedPortThatStaysOpenMakesALoop) {
  const std::string module_path = mistaken("leaves_its_failed_port_open");
  const Found found = find(module_path, small_ring(3));
  ASSERT_EQ(Ending::kTrouble, found.report.ending);
  EXPECT_THAT(found.report.violation->what, HasSubstr("a forwarding loop"));
  // Cut, both ends notice, the owner is told, restore, both ends notice: no way is much shorter.
  EXPECT_THAT(found.report.violation->steps.size(), Le(10U));
  size_t steps = 0;
  EXPECT_EQ(found.report.violation->what, walk(found.scenario, small_ring(3), module_path, steps));
  EXPECT_EQ(found.report.violation->steps.size(), steps);
}

TEST(PlantedMistakes, AnOwnerThatNeverRevertsNeverComesToRest) {
  const std::string module_path = mistaken("loses_the_end_of_wtr");
  const Found found = find(module_path, small_ring(2));
  ASSERT_EQ(Ending::kTrouble, found.report.ending);
  EXPECT_THAT(found.report.violation->what, HasSubstr("not at rest although everything works"));
  ASSERT_TRUE(found.report.violation->repeats_from);
  EXPECT_THAT(found.report.violation->steps.size(), Gt(*found.report.violation->repeats_from));
  size_t steps = 0;
  EXPECT_EQ(found.report.violation->what, walk(found.scenario, small_ring(2), module_path, steps));
}

// The same way through the module without the mistake ends well, or cannot be walked at all.
TEST(PlantedMistakes, TheWayLeadsNowhereWithoutTheMistake) {
  const Found found = find(mistaken("leaves_its_failed_port_open"), small_ring(3));
  ASSERT_TRUE(found.report.violation);
  size_t steps = 0;
  try {
    EXPECT_EQ("", walk(found.scenario, small_ring(3), ERPS_MODULE, steps));
  } catch (const SimError& error) {
    EXPECT_THAT(error.what(), HasSubstr("cannot happen"));
  }
}

}  // namespace erps::sim::explore
