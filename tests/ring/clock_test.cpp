// Somebody sets a node's clock, or it runs fast or slow. The timers run on the time of day.
#include <gmock/gmock.h>

#include "tests/ring/records.h"
#include "tests/ring/test_network.h"

namespace erps::sim {

namespace {

constexpr int64_t kHourUs = 3600 * kSecondUs;

// Cut and restored: the owner waits to revert.
void start_waiting(TestNetwork& network) {
  network.simulation.cut(1);
  network.simulation.run_for(kSettledUs);
  network.simulation.restore(1);
  network.simulation.run_for(2 * kSecondUs);
  ASSERT_TRUE(why_not_home(network.simulation));
}

}  // namespace

TEST(Clock, SetForthEndsTheWaitToRestore) {
  TestNetwork network(make_ring({.wtr_ms = 300'000}), 1);
  network.simulation.run_for(310 * kSecondUs);
  start_waiting(network);
  network.simulation.step_clock(0, kHourUs);
  network.simulation.run_for(2 * kSecondUs);
  EXPECT_EQ(why_not_home(network.simulation), std::nullopt);
  network.expect_no_loop();
}

TEST(Clock, SetBackLengthensTheWaitToRestoreByAsMuch) {
  TestNetwork network(make_ring({}), 1);
  network.come_home();
  start_waiting(network);
  network.simulation.step_clock(0, -kHourUs);
  network.simulation.run_for(kHourUs - 60 * kSecondUs);
  EXPECT_TRUE(why_not_home(network.simulation));
  network.simulation.run_for(120 * kSecondUs);
  EXPECT_EQ(why_not_home(network.simulation), std::nullopt);
  network.expect_no_loop();
}

TEST(Clock, SetBackSilencesTheRepetitionForAsLong) {
  TestNetwork network(make_ring({}), 1);
  network.come_home();
  Records records;
  network.simulation.observe(records);
  network.simulation.step_clock(0, -kHourUs);
  network.simulation.run_for(kHourUs - 60 * kSecondUs);
  EXPECT_EQ(records.count(RecordKind::kFrameSent, 0), 0U);
  network.simulation.run_for(120 * kSecondUs);
  EXPECT_GT(records.count(RecordKind::kFrameSent, 0), 0U);
}

TEST(Clock, ThatRunsFastShortensTheWaitAndOneThatRunsSlowLengthensIt) {
  const auto wait_us = [](int64_t ppm) {
    TestNetwork network(make_ring({.wtr_ms = 60'000}), 1);
    network.simulation.run_for(70 * kSecondUs);
    start_waiting(network);
    network.simulation.set_clock_drift(0, ppm);
    const int64_t since_us = network.simulation.now_us();
    EXPECT_EQ(run_until_home(network.simulation, 200 * kSecondUs), std::nullopt);
    return network.simulation.now_us() - since_us;
  };
  EXPECT_NEAR(static_cast<double>(wait_us(0)), 58e6, 2.5e6);
  EXPECT_NEAR(static_cast<double>(wait_us(1'000'000)), 29e6, 2.5e6);
  EXPECT_NEAR(static_cast<double>(wait_us(-500'000)), 116e6, 2.5e6);
}

TEST(Clock, DoesNotStandStill) {
  Simulation simulation(make_ring({}), options_with(1));
  EXPECT_THROW(simulation.set_clock_drift(0, -1'000'000), SimError);
}

}  // namespace erps::sim
