// Port states: what is asked for, what the kernel has, and when.
#include <poll.h>

#include <cerrno>

#include "linux/port_keeper.h"
#include "tests/linux/port_state_fixture.h"

namespace erps::linux_platform::test {
namespace {

TEST_F(PortStateTest, StartGuardsEveryRingPort) {
  start_platform();
  for (const char* interface : {"p1", "p2"}) {
    EXPECT_TRUE(guarded(interface));
    EXPECT_EQ(kernel_link(interface).port_state, BR_STATE_LISTENING);
  }
  uint32_t state = 0;
  ASSERT_EQ(adp_get_port_erps_state(1, &state), 0);
  EXPECT_EQ(state, 1u);
  EXPECT_EQ(port(1).difference, "");
}

TEST_F(PortStateTest, OpeningWaitsForTheEndOfTheEvent) {
  start_platform();
  in_event([] {
    ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
    uint32_t state = 0;
    ASSERT_EQ(adp_get_port_erps_state(1, &state), 0);
    EXPECT_EQ(state, 4u);
    EXPECT_TRUE(port(1).opening);
    EXPECT_TRUE(guarded("p1"));
  });
  finish_event();
  EXPECT_FALSE(port(1).opening);
  EXPECT_FALSE(guarded("p1"));
  EXPECT_EQ(kernel_link("p1").port_state, BR_STATE_FORWARDING);
}

// A ring that starts opens both ports and blocks one of them: that one must never have been open.
TEST_F(PortStateTest, OpenedAndBlockedInOneEventIsNeverOpen) {
  start_platform();
  PortWatch watch;
  in_event([] {
    ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
    ASSERT_EQ(adp_set_port_erps_state(2, 4), 0);
    ASSERT_EQ(adp_set_port_erps_state(1, 1), 0);
  });
  finish_event();
  EXPECT_EQ(kernel_link("p2").port_state, BR_STATE_FORWARDING);
  for (const LinkInfo& seen : watch.of("p1")) {
    EXPECT_TRUE(seen.port_flags == kGuardFlags && seen.port_state == BR_STATE_LISTENING);
  }
  EXPECT_EQ(status().counters.openings_withdrawn, 1u);
  EXPECT_EQ(port(1).difference, "");
}

TEST_F(PortStateTest, BlockingIsInForceBeforeTheCallReturns) {
  start_platform();
  open_both();
  in_event([] {
    ASSERT_EQ(adp_set_port_erps_state(1, 1), 0);
    EXPECT_TRUE(guarded("p1"));
    EXPECT_EQ(kernel_link("p1").port_state, BR_STATE_LISTENING);
  });
}

TEST_F(PortStateTest, BlockedWithoutCarrierIsGuardedAndListensWhenTheCarrierIsBack) {
  start_platform();
  open_both();
  set_up("w1", false);
  ASSERT_TRUE(eventually([] { return !device_carrier("p1"); }));
  receive_all();
  ASSERT_EQ(adp_set_port_erps_state(1, 1), 0);
  EXPECT_TRUE(guarded("p1"));
  EXPECT_EQ(port(1).difference, "");
  set_up("w1", true);
  ASSERT_TRUE(eventually([this] {
    receive_all();
    return kernel_link("p1").port_state == BR_STATE_LISTENING;
  }));
  EXPECT_TRUE(guarded("p1"));
}

// Where user space owns spanning tree the kernel keeps "blocking", and takes "listening" for its
// own.
TEST(PortKeeperMatches, DiscardingIsBlockingWhereUserSpaceOwnsSpanningTree) {
  RingPort port(1, "p1");
  LinkInfo info;
  info.interface_flags = IFF_UP | 1u << 16;
  info.port_flags = kGuardFlags;
  info.port_state = BR_STATE_BLOCKING;
  EXPECT_TRUE(PortKeeper::matches(port, info, StpOwner::kUser, 1));
  EXPECT_FALSE(PortKeeper::matches(port, info, StpOwner::kNobody, 1));
  info.port_state = BR_STATE_LISTENING;
  EXPECT_FALSE(PortKeeper::matches(port, info, StpOwner::kUser, 1));
  EXPECT_TRUE(PortKeeper::matches(port, info, StpOwner::kNobody, 1));
  info.port_state = BR_STATE_DISABLED;
  EXPECT_FALSE(PortKeeper::matches(port, info, StpOwner::kNobody, 1));
  info.interface_flags = IFF_UP;
  EXPECT_TRUE(PortKeeper::matches(port, info, StpOwner::kNobody, 1));
  info.port_flags.locked = false;
  EXPECT_FALSE(PortKeeper::matches(port, info, StpOwner::kNobody, 1));
}

TEST_F(PortStateTest, StateThatSomebodyElseChangedIsPutRight) {
  start_platform();
  ASSERT_EQ(adp_set_port_erps_state(2, 4), 0);
  run("bridge link set dev p1 state 3 locked off learning on flood on");
  run("bridge link set dev p2 locked on");
  receive_all();
  EXPECT_TRUE(guarded("p1"));
  EXPECT_EQ(kernel_link("p1").port_state, BR_STATE_LISTENING);
  EXPECT_FALSE(kernel_link("p2").port_flags.locked);
}

TEST_F(PortStateTest, FlagsOfThePortsOwnerComeBackWithForwarding) {
  run("bridge link set dev p1 flood off");
  start_platform();
  ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
  const LinkInfo info = kernel_link("p1");
  EXPECT_FALSE(info.port_flags.flood);
  EXPECT_TRUE(info.port_flags.learning);
  EXPECT_FALSE(info.port_flags.locked);
}

TEST_F(PortStateTest, StopKeepsABlockedPortBlocked) {
  start_platform();
  ASSERT_EQ(adp_set_port_erps_state(2, 4), 0);
  stop();
  EXPECT_TRUE(guarded("p1"));
  EXPECT_EQ(kernel_link("p2").port_state, BR_STATE_FORWARDING);
}

// A guard that a killed daemon left is not taken for the owner's wish.
TEST_F(PortStateTest, GuardLeftByAKilledDaemonIsTakenOffByForwarding) {
  run("bridge link set dev p1 state 1 locked on learning off flood off mcast_flood off "
      "bcast_flood off");
  run("ip link set p1 type bridge_slave proxy_arp on");
  start_platform();
  ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
  EXPECT_EQ(kernel_link("p1").port_flags, PortFlags{});
}

// The ring may be whole but for the port that an earlier daemon had blocked.
TEST_F(PortStateTest, ReleaseBlocksAgainWhatWasFoundBlocked) {
  run("bridge link set dev p1 state 1 locked on learning off flood off mcast_flood off "
      "bcast_flood off");
  run("ip link set p1 type bridge_slave proxy_arp on");
  start_platform();
  open_both();
  stop(PortsAtStop::kRelease);
  EXPECT_TRUE(guarded("p1"));
  EXPECT_EQ(kernel_link("p2").port_flags, PortFlags{});
  EXPECT_EQ(kernel_link("p2").port_state, BR_STATE_FORWARDING);
}

TEST_F(PortStateTest, UnknownPortsStatesAndKindsAreRefused) {
  start_platform();
  uint32_t value = 77;
  for (const uint32_t unknown : {0u, 3u, 63u, 64u, 255u, 0xFFFFFFFFu}) {
    EXPECT_NE(adp_set_port_erps_state(unknown, 4), 0);
    EXPECT_NE(adp_get_port_erps_state(unknown, &value), 0);
    EXPECT_NE(adp_del_mac_addr_by_intf(unknown, 2), 0);
    EXPECT_NE(adp_get_phy_port_attr(unknown, 11, &value), 0);
    EXPECT_NE(adp_transmit_frame(reinterpret_cast<const uint8_t*>("x"), 1, 0, unknown, 3), 0);
  }
  EXPECT_NE(adp_set_port_erps_state(1, 3), 0);
  EXPECT_NE(adp_del_mac_addr_by_intf(1, 1), 0);
  EXPECT_NE(adp_get_phy_port_attr(1, 12, &value), 0);
  EXPECT_EQ(value, 77u);
}

// Should somebody turn the kernel's spanning tree on, the port states are out of our hands: asking
// fails, and the status says so.
TEST_F(PortStateTest, KernelSpanningTreeTurnedOnLaterIsReported) {
  start_platform();
  ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
  run("ip link set br0 type bridge stp_state 1");
  receive_all();
  EXPECT_NE(adp_set_port_erps_state(1, 1), 0);
  EXPECT_GT(status().counters.port_state_failures, 0u);
  EXPECT_TRUE(guarded("p1"));
}

// Nobody is told that the kernel would let it by now: the keeper tries for itself.
TEST_F(PortStateTest, StateThatTheKernelRefusedIsAppliedWhenItNoLongerDoes) {
  RingPorts ports;
  ports.add(1, "p1");
  RingPort& one = *ports.find(1);
  one.ifindex.store(kernel_link("p1").ifindex);
  one.enslaved.store(true);
  History history;
  AtomicCounters counters;
  FlushWorker flushes(ports, history, counters);
  PortKeeper keeper(ports, history, counters, flushes);
  keeper.guard_all();
  const auto retry_is_due = [&] {
    pollfd retry{.fd = keeper.retry_fd(), .events = POLLIN, .revents = 0};
    return poll(&retry, 1, 0) == 1;
  };
  EXPECT_FALSE(retry_is_due());
  run("ip link set br0 type bridge stp_state 1");
  EXPECT_EQ(keeper.ask(one, kForwarding), EBUSY);
  const auto phases = [&] {
    std::vector<Phase> result;
    for (const HistoryRecord& record : history.latest(100)) {
      result.push_back(record.phase);
    }
    return result;
  };
  for (int i = 0; i < 3; ++i) {
    ASSERT_TRUE(eventually(retry_is_due)) << i;
    keeper.retry();
    EXPECT_EQ(phases().back(), Phase::kFailed);
  }
  run("ip link set br0 type bridge stp_state 0");
  ASSERT_TRUE(eventually(retry_is_due));
  keeper.retry();
  EXPECT_EQ(phases().back(), Phase::kApplied);
  EXPECT_EQ(kernel_link("p1").port_state, BR_STATE_FORWARDING);
  EXPECT_FALSE(eventually(retry_is_due, std::chrono::milliseconds(800)))
      << "there is no more to do";
}

}  // namespace
}  // namespace erps::linux_platform::test
