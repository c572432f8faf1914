// What may be simulated, and what is caught at it.
#include <gmock/gmock.h>

#include "tests/ring/test_network.h"

namespace erps::sim {

using testing::AllOf;
using testing::HasSubstr;
using testing::ThrowsMessage;

namespace {

Options options_for(const std::string& mistake) {
  Options options = options_with(1);
  options.module_path = std::string(ERPS_MISTAKEN_MODULES) + "/libmodule_" + mistake + ".so";
  return options;
}

std::vector<uint8_t> an_raps_frame() {
  constexpr MacAddress kSomebody{0x02, 0, 0, 0, 0, 0x99};
  std::vector<uint8_t> frame(raps::kTaggedLength);
  raps::build({kRing, 100, raps::kNr, 0, 0, 0, kSomebody.data(), kSomebody.data()}, frame.data());
  return frame;
}

void run(const Options& options) {
  Simulation simulation(make_ring({}), options);
  simulation.run_for(10 * kSecondUs);
}

}  // namespace

TEST(ModuleCopy, AModuleThatAsksForMoreThanASimulationKnowsIsRefusedByName) {
  EXPECT_THAT([] { run(options_for("reads_the_environment")); },
              ThrowsMessage<SimError>(HasSubstr("getenv")));
}

TEST(ModuleCopy, AModuleThatDoesNotExistIsRefusedWithItsPath) {
  EXPECT_THAT([] { run(options_for("nowhere")); },
              ThrowsMessage<SimError>(HasSubstr("libmodule_nowhere.so")));
}

TEST(ModuleCopy, ALockTakenTwiceIsAViolationWithSeedTimeAndNode) {
  EXPECT_THAT([] { run(options_for("locks_twice")); },
              ThrowsMessage<Violation>(AllOf(HasSubstr("seed 1"), HasSubstr(" us: n"),
                                             HasSubstr("takes a lock that it holds already"))));
}

TEST(ModuleCopy, ASleepWithALockHeldIsAViolation) {
  EXPECT_THAT([] { run(options_for("sleeps_with_a_lock")); },
              ThrowsMessage<Violation>(HasSubstr("sleeps with a lock held")));
}

TEST(ModuleCopy, APacketThatIsNotGivenBackIsAViolation) {
  EXPECT_THAT(
      [] {
        Simulation simulation(make_ring({}), options_for("keeps_a_packet"));
        simulation.run_for(kSecondUs);
        simulation.inject({0, 1}, an_raps_frame());
        simulation.run_for(kSecondUs);
      },
      ThrowsMessage<Violation>(HasSubstr("not given back")));
}

}  // namespace erps::sim
