// Port states: what a ring port lets through, when, and whatever happens to its link.
#include <linux/if_bridge.h>
#include <poll.h>

#include <cerrno>
#include <cstring>

#include "linux/port_keeper.h"
#include "platform/switch_adaptation.h"
#include "tests/linux/platform_fixture.h"

namespace erps::linux_platform::test {
namespace {

bool is_data(const Bytes& frame) {
  return frame[12] == 0x88 && frame[13] == 0xB5;
}

uint32_t number_of(const Bytes& frame) {
  uint32_t number = 0;
  std::memcpy(&number, frame.data() + 14, sizeof number);
  return number;
}

class PortStateTest : public PlatformTest {
 protected:
  // Both ports forwarding, in force.
  void open_both() {
    ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
    ASSERT_EQ(adp_set_port_erps_state(2, 4), 0);
    ASSERT_EQ(kernel_link("p1").port_state, BR_STATE_FORWARDING);
    ASSERT_EQ(kernel_link("p2").port_state, BR_STATE_FORWARDING);
  }

  // Handles one event of the node's own, as the protocol task would, and calls `handler` in it.
  template <typename Handler>
  void in_event(Handler handler) {
    ASSERT_TRUE(send(10));
    const auto event = receive();
    ASSERT_TRUE(event);
    handler();
  }
  // Goes back for the next event; whatever waits is not fetched.
  void finish_event() {
    in_event([] {});
  }
};

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

TEST_F(PortStateTest, DiscardingPassesNothingAndForwardingPassesEachFrameOnce) {
  start_platform();
  const Wire one("w1");
  const Wire two("w2");
  open_both();
  const Bytes there = data_frame(kBroadcast, kHostA, 1);
  const Bytes back = data_frame(kHostA, kHostB, 2);
  ASSERT_TRUE(one.send(there));
  EXPECT_TRUE(two.receives(there));
  ASSERT_TRUE(two.send(back));
  EXPECT_TRUE(one.receives(back));

  ASSERT_EQ(adp_set_port_erps_state(1, 1), 0);
  const Bytes blocked_there = data_frame(kBroadcast, kHostA, 3);
  const Bytes blocked_back = data_frame(kHostA, kHostB, 4);
  ASSERT_TRUE(one.send(blocked_there));
  ASSERT_TRUE(two.send(blocked_back));
  ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
  const Bytes last = data_frame(kBroadcast, kHostA, 5);
  ASSERT_TRUE(one.send(last));
  std::vector<Bytes> arrived;
  ASSERT_TRUE(eventually([&] {
    const auto more = two.take();
    arrived.insert(arrived.end(), more.begin(), more.end());
    return std::count(arrived.begin(), arrived.end(), last) > 0;
  }));
  EXPECT_EQ(std::count(arrived.begin(), arrived.end(), blocked_there), 0);
  EXPECT_EQ(std::count(arrived.begin(), arrived.end(), last), 1);
  EXPECT_EQ(one.count(blocked_back), 0u);
}

// A carrier that returns makes the kernel forward on the port; the guard must hold meanwhile.
TEST_F(PortStateTest, GuardHoldsWhileTheCarrierFlaps) {
  start_platform();
  open_both();
  const Wire one("w1");
  const Wire two("w2");
  // Both hosts are learnt, so frames between them need no flooding.
  const Bytes hello = data_frame(kHostB, kHostA, 0);
  const Bytes answer = data_frame(kHostA, kHostB, 0);
  ASSERT_TRUE(one.send(hello) && two.receives(hello));
  ASSERT_TRUE(two.send(answer) && one.receives(answer));

  const Pump pump(queue_);
  ASSERT_EQ(adp_set_port_erps_state(1, 1), 0);
  one.take();
  two.take();
  constexpr uint32_t kFlaps = 40;
  constexpr uint32_t kBurst = 25;
  uint32_t number = 1000;
  size_t sent = 0;
  for (uint32_t flap = 0; flap < kFlaps; ++flap) {
    set_up(flap % 2 == 0 ? "w1" : "p1", false);
    set_up(flap % 2 == 0 ? "w1" : "p1", true);
    for (uint32_t i = 0; i < kBurst; ++i) {
      sent += one.send(data_frame(kBroadcast, kHostA, ++number)) ? 1 : 0;
      sent += one.send(data_frame(kHostB, kHostA, ++number)) ? 1 : 0;
      sent += two.send(data_frame(kBroadcast, kHostB, ++number)) ? 1 : 0;
      sent += two.send(data_frame(kHostA, kHostB, ++number)) ? 1 : 0;
    }
  }
  ASSERT_GT(sent, kFlaps * kBurst * 3);
  ASSERT_TRUE(eventually([] { return port(1).difference.empty() && port(1).link_up; }));
  EXPECT_EQ(kernel_link("p1").port_state, BR_STATE_LISTENING);
  EXPECT_GT(port(1).reapplied, 0u);

  // Nothing of it came through; what is sent after opening comes exactly once. The first may be
  // lost on the wire: its own interface comes to after the flap in its own time.
  ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
  const uint32_t first = number + 1;
  std::vector<uint32_t> at_two;
  ASSERT_TRUE(eventually([&] {
    one.send(data_frame(kBroadcast, kHostA, ++number));
    for (const Bytes& frame : two.take()) {
      if (is_data(frame)) {
        at_two.push_back(number_of(frame));
      }
    }
    return !at_two.empty();
  }));
  for (const uint32_t seen : at_two) {
    EXPECT_GE(seen, first);
    EXPECT_EQ(std::count(at_two.begin(), at_two.end(), seen), 1) << seen;
  }
  const auto at_one = one.take();
  EXPECT_EQ(std::count_if(at_one.begin(), at_one.end(), is_data), 0);
}

// The guard by itself, as it stands between the carrier's return and the state that is put right.
TEST_F(PortStateTest, GuardAloneHoldsAPortThatTheKernelHasOpened) {
  start_platform();
  open_both();
  const Wire one("w1");
  const Wire two("w2");
  ASSERT_EQ(adp_set_port_erps_state(1, 1), 0);
  set_up("w1", false);
  ASSERT_TRUE(eventually([] { return kernel_link("p1").port_state == BR_STATE_DISABLED; }));
  set_up("w1", true);
  ASSERT_TRUE(eventually([] { return kernel_link("p1").port_state == BR_STATE_FORWARDING; }));
  ASSERT_TRUE(eventually([] { return (kernel_link("w1").interface_flags & IFF_RUNNING) != 0; }));
  ASSERT_TRUE(guarded("p1"));
  one.take();

  const MacAddress group{0x01, 0x00, 0x5E, 0x01, 0x02, 0x03};
  uint32_t number = 0;
  for (const MacAddress& to : {kBroadcast, group, kHostA, kHostB}) {
    const Bytes outward = data_frame(to, kHostB, ++number);
    const Bytes inward = data_frame(to, kHostA, ++number);
    ASSERT_TRUE(two.send(outward));
    ASSERT_TRUE(one.send(inward));
  }
  EXPECT_FALSE(eventually(
      [&] {
        for (const Wire* wire : {&one, &two}) {
          for (const Bytes& frame : wire->take()) {
            if (is_data(frame)) {
              ADD_FAILURE() << "frame " << number_of(frame) << " came through";
            }
          }
        }
        return HasFailure();
      },
      std::chrono::milliseconds(50)));
  EXPECT_EQ(output_of("bridge fdb show br br0").find("02:aa:00:00:00:01"), std::string::npos);
}

// The kernel floods frames of the node's own past the port's flooding flags, and it has made the
// port forwarding by itself when the carrier came back; nobody has put that right yet.
TEST_F(PortStateTest, FramesOfTheNodeItselfDoNotLeaveThroughAGuardedPort) {
  start_platform();
  ASSERT_EQ(adp_set_port_erps_state(2, 4), 0);
  const Wire one("w1");
  const Wire two("w2");
  const Wire node("br0");
  set_up("w1", false);
  ASSERT_TRUE(eventually([] { return kernel_link("p1").port_state == BR_STATE_DISABLED; }));
  set_up("w1", true);
  ASSERT_TRUE(eventually([] { return kernel_link("p1").port_state == BR_STATE_FORWARDING; }));
  const Bytes broadcast = data_frame(kBroadcast, kHostA, 1);
  const Bytes unknown = data_frame(kHostB, kHostA, 2);
  const MacAddress group{0x01, 0x00, 0x5E, 0x01, 0x02, 0x03};
  const Bytes multicast = data_frame(group, kHostA, 3);
  for (const Bytes& frame : {broadcast, unknown, multicast}) {
    ASSERT_TRUE(node.send(frame));
    EXPECT_TRUE(two.receives(frame));
    EXPECT_EQ(one.count(frame), 0u);
  }
}

// The flush of a block runs in the background; a flap may come first.
TEST_F(PortStateTest, AddressesLearntBeforeABlockLetNothingThroughAfterAnImmediateFlap) {
  start_platform();
  const Wire one("w1");
  const Wire two("w2");
  for (uint32_t round = 0; round < 20; ++round) {
    ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
    ASSERT_EQ(adp_set_port_erps_state(2, 4), 0);
    const Bytes hello = data_frame(kBroadcast, kHostA, round);
    ASSERT_TRUE(one.send(hello) && two.receives(hello));
    one.take();
    ASSERT_EQ(adp_set_port_erps_state(1, 1), 0);
    set_up("w1", false);
    set_up("w1", true);
    two.send(data_frame(kHostA, kHostB, 500 + round));
    one.send(data_frame(kBroadcast, kHostA, 600 + round));
    ASSERT_TRUE(eventually([] { return device_carrier("p1"); }));
    const Bytes probe = data_frame(kHostA, kHostB, 700 + round);
    ASSERT_TRUE(two.send(probe));
    EXPECT_FALSE(one.receives(probe, std::chrono::milliseconds(5))) << "round " << round;
    EXPECT_EQ(two.count(data_frame(kBroadcast, kHostA, 600 + round)), 0u) << "round " << round;
  }
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

TEST_F(PortStateTest, BridgeThatGoesDownAndUpKeepsTheStates) {
  start_platform();
  ASSERT_EQ(adp_set_port_erps_state(2, 4), 0);
  set_up("br0", false);
  receive_all();
  set_up("br0", true);
  ASSERT_TRUE(eventually([this] {
    receive_all();
    return port(1).difference.empty() && port(2).difference.empty();
  }));
  EXPECT_TRUE(guarded("p1"));
  EXPECT_EQ(kernel_link("p1").port_state, BR_STATE_LISTENING);
  EXPECT_EQ(kernel_link("p2").port_state, BR_STATE_FORWARDING);
}

TEST_F(PortStateTest, InterfaceMadeAnewUnderItsNameIsGuardedAgain) {
  start_platform();
  open_both();
  ASSERT_EQ(add_capture_rule(), 0);
  ASSERT_EQ(adp_set_port_erps_state(1, 1), 0);
  run("ip link del p1");
  const auto gone = receive();
  ASSERT_TRUE(gone && gone->type == kLinkEvent);
  EXPECT_EQ(link_port(*gone), 1);
  EXPECT_EQ(link_state(*gone), 0);
  EXPECT_EQ(port(1).ifindex, 0u);
  EXPECT_NE(port(1).difference, "");
  uint32_t link = 9;
  ASSERT_EQ(adp_get_phy_port_attr(1, 11, &link), 0);
  EXPECT_EQ(link, 0u);

  run("ip link add p1 type veth peer name w1");
  run("ip link set w1 addrgenmode none up");
  run("ip link set p1 addrgenmode none master br0 up");
  const auto back = receive();
  ASSERT_TRUE(back && back->type == kLinkEvent);
  EXPECT_EQ(link_port(*back), 1);
  EXPECT_EQ(link_state(*back), 1);
  EXPECT_TRUE(guarded("p1"));
  EXPECT_EQ(kernel_link("p1").port_state, BR_STATE_LISTENING);
  EXPECT_EQ(port(1).difference, "");

  // Frames go both ways through the new interface, and the capture rule is on it.
  receive_all();
  const Wire one("w1");
  const Bytes frame = raps_frame(1, 100, 11);
  ASSERT_TRUE(one.send(frame));
  const auto packet = receive();
  ASSERT_TRUE(packet && packet->type == kPacketEvent);
  EXPECT_EQ(take_frame(*packet), frame);
  ASSERT_EQ(adp_transmit_frame(frame.data(), static_cast<uint16_t>(frame.size()), 0, 1, 3), 0);
  EXPECT_TRUE(one.receives(frame));
}

TEST_F(PortStateTest, PortTakenOffTheBridgeIsDownAndGuardedWhenItIsBack) {
  start_platform();
  open_both();
  ASSERT_EQ(adp_set_port_erps_state(2, 1), 0);
  run("ip link set p2 nomaster");
  const auto gone = receive();
  ASSERT_TRUE(gone && gone->type == kLinkEvent);
  EXPECT_EQ(link_port(*gone), 2);
  EXPECT_EQ(link_state(*gone), 0);
  EXPECT_EQ(adp_set_port_erps_state(2, 1), 0);
  run("ip link set p2 master br0");
  const auto back = receive();
  ASSERT_TRUE(back && back->type == kLinkEvent);
  EXPECT_EQ(link_state(*back), 1);
  EXPECT_TRUE(guarded("p2"));
}

TEST_F(PortStateTest, BridgeMadeAnewUnderItsNameGetsItsStatesBack) {
  start_platform();
  ASSERT_EQ(adp_set_port_erps_state(2, 4), 0);
  run("ip link del br0");
  receive_all();
  EXPECT_FALSE(port(1).link_up);
  EXPECT_FALSE(port(2).link_up);
  EXPECT_NE(port(1).difference, "");
  run("ip link add br0 type bridge mcast_snooping 0");
  run("ip link set br0 up");
  run("ip link set p1 master br0");
  run("ip link set p2 master br0");
  receive_all();
  EXPECT_TRUE(port(1).link_up);
  EXPECT_TRUE(port(2).link_up);
  EXPECT_TRUE(guarded("p1"));
  EXPECT_EQ(kernel_link("p1").port_state, BR_STATE_LISTENING);
  EXPECT_FALSE(guarded("p2"));
  EXPECT_EQ(kernel_link("p2").port_state, BR_STATE_FORWARDING);
  EXPECT_EQ(port(1).difference, "");
  EXPECT_EQ(port(2).difference, "");
}

TEST_F(PortStateTest, InterfaceThatIsRenamedStaysThePort) {
  start_platform();
  set_up("p1", false);
  run("ip link set p1 name ring-east");
  set_up("ring-east", true);
  ASSERT_TRUE(eventually([this] {
    receive_all();
    return port(1).link_up && port(1).difference.empty();
  }));
  uint32_t link = 0;
  ASSERT_EQ(adp_get_phy_port_attr(1, 11, &link), 0);
  EXPECT_EQ(link, 1u);
  EXPECT_TRUE(guarded("ring-east"));
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

TEST_F(PortStateTest, FlushForgetsWhatThePortLearntAndNothingElse) {
  start_platform();
  open_both();
  const Wire one("w1");
  const Wire two("w2");
  const Bytes hello = data_frame(kBroadcast, kHostA, 1);
  const Bytes answer = data_frame(kHostA, kHostB, 2);
  ASSERT_TRUE(one.send(hello) && two.receives(hello));
  ASSERT_TRUE(two.send(answer) && one.receives(answer));
  run("bridge fdb add 02:cc:00:00:00:03 dev p1 master static");
  const auto knows = [](const std::string& address) {
    return output_of("bridge fdb show br br0").find(address) != std::string::npos;
  };
  ASSERT_TRUE(knows("02:aa:00:00:00:01") && knows("02:bb:00:00:00:02"));
  ASSERT_EQ(adp_del_mac_addr_by_intf(1, 2), 0);
  EXPECT_TRUE(eventually([&] { return !knows("02:aa:00:00:00:01"); }));
  EXPECT_TRUE(knows("02:bb:00:00:00:02"));
  EXPECT_TRUE(knows("02:cc:00:00:00:03"));
}

TEST_F(PortStateTest, FlushesOfOneEventRunOnceAfterItsOpenings) {
  start_platform();
  open_both();
  ASSERT_EQ(adp_set_port_erps_state(1, 1), 0);
  ASSERT_TRUE(eventually([] { return status().counters.flushes_done > 0; }));
  const uint64_t before = status().counters.flushes_done;
  in_event([] {
    for (int i = 0; i < 5; ++i) {
      ASSERT_EQ(adp_del_mac_addr_by_intf(1, 2), 0);
    }
    ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
  });
  EXPECT_EQ(status().counters.flushes_done, before);
  finish_event();
  ASSERT_TRUE(eventually([&] { return status().counters.flushes_done == before + 1; }));
  int64_t opened_ns = 0;
  int64_t flushed_ns = 0;
  for (const HistoryRecord& record : history()) {
    if (record.kind == HistoryKind::kPortState && record.phase == Phase::kApplied &&
        record.port == 1 && record.state == 4) {
      opened_ns = record.mono_ns;
    }
    if (record.kind == HistoryKind::kFlush && record.port == 1) {
      flushed_ns = record.mono_ns;
    }
  }
  EXPECT_LT(opened_ns, flushed_ns);
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

// A flood of messages that each ask for a flush holds the kernel's lock for few of them, and the
// last one is not lost.
TEST_F(PortStateTest, FlushesThatOnlyMessagesAskForAreSpacedAndTheLastOneCounts) {
  start_platform();
  open_both();
  ASSERT_EQ(add_capture_rule(), 0);
  receive_all();
  const Wire one("w1");
  const Wire two("w2");
  const auto flushed = [] { return status().counters.flushes_done; };
  const uint64_t before = flushed();
  constexpr uint64_t kMessages = 400;
  const Bytes hello = data_frame(kBroadcast, kHostA, 1);
  const auto start = std::chrono::steady_clock::now();
  for (uint64_t i = 0; i < kMessages; ++i) {
    ASSERT_TRUE(one.send(raps_frame(1, 100, 14, static_cast<uint8_t>(i))));
    const auto event = receive();
    ASSERT_TRUE(event && event->type == kPacketEvent);
    take_frame(*event);
    if (i + 1 == kMessages) {
      ASSERT_TRUE(one.send(hello) && two.receives(hello));  // learnt before the last one asks
    }
    ASSERT_EQ(adp_del_mac_addr_by_intf(1, 2), 0);
  }
  finish_event();
  const auto knows = [](const std::string& address) {
    return output_of("bridge fdb show br br0").find(address) != std::string::npos;
  };
  EXPECT_TRUE(
      eventually([&] { return !knows("02:aa:00:00:00:01"); }, std::chrono::milliseconds(500)));
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  const auto most = FlushWorker::kOfMessages.burst +
                    static_cast<int64_t>(took.count() * FlushWorker::kOfMessages.per_second) + 2;
  EXPECT_LE(flushed() - before, static_cast<uint64_t>(most));
}

TEST_F(PortStateTest, FlushesOfAChangeOfPortStatesAreNotSpaced) {
  start_platform();
  open_both();
  ASSERT_EQ(add_capture_rule(), 0);
  receive_all();
  const Wire one("w1");
  constexpr int kChanges = 100;
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kChanges; ++i) {
    const uint64_t before = status().counters.flushes_done;
    ASSERT_TRUE(one.send(raps_frame(1, 100, 11, static_cast<uint8_t>(i))));
    const auto event = receive();
    ASSERT_TRUE(event && event->type == kPacketEvent);
    take_frame(*event);
    ASSERT_EQ(adp_set_port_erps_state(2, i % 2 == 0 ? 1 : 4), 0);
    ASSERT_EQ(adp_del_mac_addr_by_intf(1, 2), 0);
    finish_event();
    ASSERT_TRUE(eventually([&] { return status().counters.flushes_done > before; }));
  }
  const auto spaced = (kChanges - FlushWorker::kOfMessages.burst) *
                      std::chrono::nanoseconds(FlushWorker::kSpacingNs);
  EXPECT_LT(std::chrono::steady_clock::now() - start, spaced);
}

}  // namespace
}  // namespace erps::linux_platform::test
