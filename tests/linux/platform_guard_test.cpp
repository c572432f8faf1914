// What a blocked port lets through, whatever happens to its link meanwhile.
#include <cstring>

#include "tests/linux/port_state_fixture.h"

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

class GuardTest : public PortStateTest {};

TEST_F(GuardTest, DiscardingPassesNothingAndForwardingPassesEachFrameOnce) {
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
TEST_F(GuardTest, GuardHoldsWhileTheCarrierFlaps) {
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
TEST_F(GuardTest, GuardAloneHoldsAPortThatTheKernelHasOpened) {
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
TEST_F(GuardTest, FramesOfTheNodeItselfDoNotLeaveThroughAGuardedPort) {
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
TEST_F(GuardTest, AddressesLearntBeforeABlockLetNothingThroughAfterAnImmediateFlap) {
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

}  // namespace
}  // namespace erps::linux_platform::test
