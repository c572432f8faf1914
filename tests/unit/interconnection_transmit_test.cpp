// Transmission at an interconnection node: the mark, and the two sides of a sub-ring instance.
#include <cstring>

#include "tests/unit/transmit_fixture.h"

namespace erps::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;

constexpr size_t kMarkOffset = 22;

// --- The mark of an interconnection node.

class MarkTest : public TransmitTest {
 protected:
  ERPSM_T* marking_ring(const RingSpec& spec = {}) {
    ERPSM_T* ring = idle_ring(spec);
    ring->interconnect_ring_id = 2;
    return ring;
  }
};

TEST_F(MarkTest, written_for_the_ports_of_a_marking_node_except_the_fault_port) {
  struct Case {
    uint32_t partner, ring_role, inter_node_role;
    int32_t fault_port;
    bool marked;
  };
  constexpr Case kCases[] = {
      {2, kMajorRing, 0, kNoPort, true},
      {2, kMajorRing, 0, 1, false},
      {2, kMajorRing, 0, 2, true},
      {2, kMajorRing, 2, kNoPort, true},
      {2, kMajorRing, kWatching, kNoPort, false},
      {0, kMajorRing, 0, kNoPort, false},
      {2, kOpenChannelRing, 0, kNoPort, true},
      {2, kSubRing, 0, kNoPort, false},
  };
  ERPSM_T* ring = idle_ring();
  for (const Case& c : kCases) {
    ring->interconnect_ring_id = c.partner;
    ring->ring_role = c.ring_role;
    ring->inter_node_role = c.inter_node_role;
    ring->inter_fault_port = c.fault_port;
    std::vector<uint8_t> frame(55, 0xB5);
    std::vector<uint8_t> expected = frame;
    if (c.marked) {
      expected[kMarkOffset] = 0xBA;
    }
    erps_interconnect_modify_pkt(ring, frame.data(), 1);
    EXPECT_EQ(frame, expected) << "ring role " << c.ring_role << ", fault port " << c.fault_port;
  }
}

TEST_F(MarkTest, lands_in_the_node_id_of_an_untagged_frame) {
  ERPSM_T* ring = marking_ring({.vlan = 0});
  memset(ring->local_node_id, 0xC5, kMacLength);
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  const std::vector<uint8_t> frame = sent_bytes().at(0);
  EXPECT_EQ(frame.at(18), 0xB0);
  EXPECT_THAT(std::vector<uint8_t>(frame.begin() + 20, frame.begin() + 26),
              ElementsAre(0xC5, 0xC5, 0xCA, 0xC5, 0xC5, 0xC5));
}

TEST_F(MarkTest, written_for_the_first_port_goes_out_of_the_second_and_in_later_repeats) {
  ERPSM_T* ring = marking_ring();
  ring->inter_fault_port = 2;
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  EXPECT_EQ(steps(), "SF,marked > 1; SF,marked > 2; repeat");
  ring->interconnect_ring_id = 0;
  pass_ms(5000);
  EXPECT_EQ(steps(), "SF,marked > 1; SF,marked > 2");
}

TEST_F(MarkTest, written_for_the_second_port_spares_the_first_but_not_its_repeats) {
  ERPSM_T* ring = marking_ring();
  ring->inter_fault_port = 1;
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  EXPECT_EQ(steps(), "SF > 1; SF,marked > 2; repeat");
  pass_ms(5000);
  EXPECT_EQ(steps(), "SF,marked > 1; SF,marked > 2");
}

TEST_F(MarkTest, a_port_that_does_not_send_marks_all_the_same) {
  ERPSM_T* ring = marking_ring();
  ring->inter_fault_port = 2;
  set_port(port0(ring), kLinkDown, kDiscarding);
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  EXPECT_EQ(steps(), "SF,marked > 2; repeat");
}

TEST_F(MarkTest, a_new_message_starts_without_it) {
  ERPSM_T* ring = marking_ring();
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  ring->inter_node_role = kWatching;
  steps();
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  EXPECT_EQ(steps(), "SF > 1; SF > 2; repeat");
}

// --- A sub-ring instance.

class SubRingTransmitTest : public TransmitTest {
 protected:
  SubRingTransmitTest() : pair(idle_pair(kWatching)) {}

  const RingPair pair;
};

TEST_F(SubRingTransmitTest, a_new_message_goes_three_times_to_each_side_and_a_repeat_once) {
  EXPECT_THAT(ports_of_new_message(pair.sub), ElementsAre(1, 1, 1, 3, 3, 3));
  EXPECT_EQ(logged(7, "ringid = 2, Master port:1 , Sub port 3\n"), 1);
  EXPECT_THAT(ports_of_repeat(pair.sub), ElementsAre(1, 3));
}

TEST_F(SubRingTransmitTest, the_major_side_is_the_first_port_that_is_up_and_forwarding) {
  struct Case {
    uint16_t link0, state0, link1, state1;
    std::vector<uint32_t> ports;
  };
  const Case cases[] = {
      {kLinkUp, kForwarding, kLinkUp, kForwarding, {1, 3}},
      {kLinkDown, kForwarding, kLinkUp, kForwarding, {2, 3}},
      {kLinkUp, kDiscarding, kLinkUp, kForwarding, {2, 3}},
      {kLinkUp, kDiscarding, kLinkUp, kDiscarding, {3}},
      {kLinkUp, kDiscarding, kLinkDown, kForwarding, {3}},
      {2, kForwarding, 2, kForwarding, {3}},
  };
  ports_of_new_message(pair.sub);
  for (const Case& c : cases) {
    set_port(port0(pair.major), c.link0, c.state0);
    set_port(port1(pair.major), c.link1, c.state1);
    EXPECT_EQ(ports_of_repeat(pair.sub), c.ports);
    const bool to_major = c.ports.size() == 2;
    EXPECT_EQ(logged(7, "ringid = 2, Master port:" +
                            (to_major ? std::to_string(c.ports[0]) : std::string("-1")) +
                            " , Sub port 3\n"),
              1);

    platform.clear_journal();
    erps_send_pkt_to_masterring(pair.sub, pair.sub->tx_frame, pair.sub->tx_frame_len);
    EXPECT_EQ(ports_of(platform.sent_frames()),
              to_major ? std::vector<uint32_t>{c.ports[0]} : std::vector<uint32_t>{});
  }
}

TEST_F(SubRingTransmitTest, a_major_ring_that_is_stopped_or_gone_takes_nothing) {
  pair.major->enable = 0;
  EXPECT_THAT(ports_of_new_message(pair.sub), ElementsAre(3, 3, 3));
  erps_send_pkt_to_masterring(pair.sub, pair.sub->tx_frame, pair.sub->tx_frame_len);
  pair.sub->interconnect_ring_id = 9;
  EXPECT_THAT(ports_of_new_message(pair.sub), ElementsAre(3, 3, 3));
  platform.clear_journal();
  erps_send_pkt_to_masterring(pair.sub, pair.sub->tx_frame, pair.sub->tx_frame_len);
  EXPECT_EQ(steps(), "");
}

TEST_F(SubRingTransmitTest, its_own_port_sends_while_its_link_is_up_blocked_or_not) {
  set_port(port0(pair.sub), kLinkUp, kDiscarding);
  EXPECT_THAT(ports_of_new_message(pair.sub), ElementsAre(1, 1, 1, 3, 3, 3));
  for (const uint16_t link : {kLinkDown, uint16_t{2}}) {
    set_port(port0(pair.sub), link, kForwarding);
    EXPECT_THAT(ports_of_new_message(pair.sub), ElementsAre(1, 1, 1)) << link;
    EXPECT_EQ(logged(7, "ringid = 2, Master port:1 , Sub port -1\n"), 1);
  }
}

TEST_F(SubRingTransmitTest, a_port_with_the_number_that_stands_for_none_sends_no_own_message) {
  port0(pair.sub)->port_id = UINT32_MAX;
  EXPECT_THAT(ports_of_new_message(pair.sub), ElementsAre(1, 1, 1));
  EXPECT_THAT(ports_of_repeat(pair.sub), ElementsAre(1));
  port0(pair.major)->port_id = UINT32_MAX;
  EXPECT_THAT(ports_of_new_message(pair.sub), ElementsAre());
  EXPECT_EQ(logged(7, "ringid = 2, Master port:-1 , Sub port -1\n"), 1);
  erps_send_pkt_to_masterring(pair.sub, pair.sub->tx_frame, pair.sub->tx_frame_len);
  EXPECT_THAT(ports_of(platform.sent_frames()), ElementsAre(UINT32_MAX)) << "as any other";
}

TEST_F(SubRingTransmitTest, sends_its_own_frame_through_both) {
  erps_Tx_R_APS(pair.sub, kSf, 0, 0, 4);
  const FrameSpec expected = {
      .ring_id = 2, .source = kLocalNode, .request = kSf, .node_id = kLocalNode};
  EXPECT_THAT(sent_bytes(), Each(expected.bytes()));
  EXPECT_EQ(pair.sub->send_logic & kSendLogicNew, 0U);
}

TEST_F(SubRingTransmitTest, an_event_goes_three_times_too_and_is_not_repeated) {
  erps_Tx_R_APS(pair.sub, kEvent, 0, 0, 13);
  EXPECT_EQ(ports_of(platform.sent_frames()), (std::vector<uint32_t>{1, 1, 1, 3, 3, 3}));
  EXPECT_EQ(timer_count(), 0U);
}

}  // namespace
}  // namespace erps::test
