// Calls of the module to its platform that fail, one by one and by chance.
#include <gmock/gmock.h>

#include <string>

#include "sim/platform_call.h"
#include "tests/ring/records.h"
#include "tests/ring/test_network.h"

namespace erps::sim {

namespace {

using testing::HasSubstr;
using testing::ThrowsMessage;

constexpr LinkIndex kCut = 1;  // between nodes 1 and 2

// The module of every node, and what it has asked of its switch, anew.
void restart_all_modules(Simulation& simulation) {
  for (NodeIndex node = 0; node < simulation.topology().nodes.size(); ++node) {
    simulation.kill_module(node);
    simulation.start_module(node);
  }
}

void live_with_failures(Simulation& simulation) {
  simulation.run_for(10 * kSecondUs);
  simulation.fail_calls(20'000);
  for (LinkIndex link = 0; link < 4; ++link) {
    simulation.cut(link);
    simulation.run_for(8 * kSecondUs);
    simulation.restore(link);
    simulation.run_for(15 * kSecondUs);
  }
  simulation.fail_calls(0);
}

}  // namespace

TEST(PlatformFailure, AMessageThatCannotBeSentIsMadeUpForByItsRepetition) {
  for (uint64_t seed = 1; seed <= 4; ++seed) {
    TestNetwork network(make_ring({}), seed);
    network.come_home();
    const int64_t cut_us = network.simulation.now_us();
    network.simulation.fail_call(1, "adp_transmit_frame");
    network.simulation.fail_call(2, "adp_transmit_frame");
    network.simulation.cut(kCut);
    network.simulation.run_for(kSettledUs);
    EXPECT_GT(network.longest_partition_us(cut_us), 3 * kSecondUs);
    EXPECT_LE(network.longest_partition_us(cut_us), kRepeatUs);
    network.expect_no_loop();
  }
}

TEST(PlatformFailure, APortThatCannotBeOpenedLeavesTheRingSplit) {
  TestNetwork network(make_ring({}), 1);
  network.come_home();
  network.simulation.fail_call(0, "adp_set_port_erps_state", 1, 100);
  network.simulation.cut(kCut);
  network.simulation.run_for(kSettledUs);
  EXPECT_TRUE(network.is_split());

  network.simulation.fail_calls(0);
  network.simulation.restore(kCut);
  network.simulation.run_for(kSecondUs);
  network.come_home();
}

TEST(PlatformFailure, ACallThatIsNotTheNthSucceeds) {
  TestNetwork network(make_ring({}), 1);
  Records records;
  network.simulation.observe(records);
  network.simulation.fail_call(2, "adp_transmit_frame", 1'000'000);
  network.simulation.fail_call(2, "adp_set_port_erps_state", 1000);
  network.come_home();
  EXPECT_EQ(records.count(RecordKind::kCallFailed), 0U);
}

TEST(PlatformFailure, WithoutMemoryARingIsRefusedAndARestartBringsItBack) {
  TestNetwork network(make_ring({}), 1);
  network.simulation.fail_call(2, "new");
  network.simulation.run_for(2 * kSecondUs);
  EXPECT_FALSE(network.simulation.configured(2));
  EXPECT_TRUE(network.simulation.configured(1));

  network.simulation.kill_module(2);
  network.simulation.start_module(2);
  network.simulation.run_for(2 * kSecondUs);
  EXPECT_TRUE(network.simulation.configured(2));
  network.come_home();
}

TEST(PlatformFailure, AModuleThatGetsNoQueueDoesNotStartAndCanBeStartedAgain) {
  TestNetwork network(make_ring({}), 1);
  Records records;
  network.simulation.observe(records);
  network.simulation.fail_call(3, "equeue_make_extend");
  network.simulation.run_for(5 * kSecondUs);
  EXPECT_EQ(records.count(RecordKind::kStopped, 3), 1U);
  EXPECT_FALSE(network.simulation.configured(3));

  network.simulation.start_module(3);
  network.simulation.run_for(2 * kSecondUs);
  network.come_home();
}

TEST(PlatformFailure, ASleepThatIsInterruptedIsNoTickAndNothingIsLate) {
  // A tick more often than once a second would shorten the repetition, one less often lengthen it.
  TestNetwork network(make_ring({}), 1);
  network.come_home();
  Records records;
  network.simulation.observe(records);
  network.simulation.fail_call(0, "select", 1, 5);
  network.simulation.run_for(60 * kSecondUs);
  EXPECT_EQ(records.count(RecordKind::kCallFailed, 0), 5U);
  const size_t repetitions = records.count(RecordKind::kFrameSent, 0);  // not through the RPL
  EXPECT_GE(repetitions, 10U);
  EXPECT_LE(repetitions, 12U);
}

TEST(PlatformFailure, WhateverFailsEveryModuleLivesOnAndIsMendedByARestart) {
  Records records;
  for (uint64_t seed = 1; seed <= 10; ++seed) {
    SCOPED_TRACE("seed " + std::to_string(seed));
    TestNetwork network(make_ring({.ring_role = static_cast<uint32_t>(seed % 2)}), seed);
    network.simulation.observe(records);
    ASSERT_NO_THROW(live_with_failures(network.simulation));
    restart_all_modules(network.simulation);
    network.simulation.run_for(kSecondUs);
    network.come_home();
  }
  for (const char* name :
       {"adp_set_port_erps_state", "adp_del_mac_addr_by_intf", "adp_transmit_frame",
        "adp_receive_frame", "equeue_send_ucast", "select"}) {
    const auto call = platform_call(name);
    ASSERT_TRUE(call);
    EXPECT_GT(records.count([&](const Record& record) {
      return record.kind == RecordKind::kCallFailed && record.a == static_cast<uint32_t>(*call);
    }),
              0U)
        << name << " never failed";
  }
}

TEST(PlatformFailure, OneSeedFailsTheSameCalls) {
  const auto hash_of = [](uint64_t seed) {
    Simulation simulation(make_ring({}), options_with(seed));
    live_with_failures(simulation);
    return simulation.trace_hash();
  };
  EXPECT_EQ(hash_of(1), hash_of(1));
  EXPECT_NE(hash_of(1), hash_of(2));
}

TEST(PlatformFailure, ACallThatDoesNotExistIsRefusedByName) {
  Simulation simulation(make_ring({}), options_with(1));
  EXPECT_THAT([&] { simulation.fail_call(0, "adp_send_frame"); },
              ThrowsMessage<SimError>(HasSubstr("adp_send_frame")));
}

}  // namespace erps::sim
