// Port states of bridges and interfaces that go, come back or change their name.
#include "tests/linux/port_state_fixture.h"

namespace erps::linux_platform::test {
namespace {

class BridgePortTest : public PortStateTest {};

TEST_F(BridgePortTest, BridgeThatGoesDownAndUpKeepsTheStates) {
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

TEST_F(BridgePortTest, InterfaceMadeAnewUnderItsNameIsGuardedAgain) {
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

TEST_F(BridgePortTest, PortTakenOffTheBridgeIsDownAndGuardedWhenItIsBack) {
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

TEST_F(BridgePortTest, BridgeMadeAnewUnderItsNameGetsItsStatesBack) {
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

TEST_F(BridgePortTest, InterfaceThatIsRenamedStaysThePort) {
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

}  // namespace
}  // namespace erps::linux_platform::test
