// Which ring a received frame belongs to, whether it is acceptable, and frames of unknown rings.
#include <cstring>

#include "erps/runtime/event_loop.h"
#include "tests/unit/reception_fixture.h"

namespace erps::test {
namespace {

using ReceiveSelectionTest = ReceptionTest;

TEST_F(ReceiveSelectionTest, the_checks_and_their_order) {
  ERPSM_T* ring = idle_ring();
  struct Case {
    const char* what;
    uint32_t port;
    FrameSpec frame;
    uint8_t enable;
    uint32_t result;
    const char* log;
  };
  // Each frame has the faults of the following cases too: the first check decides.
  const Case cases[] = {
      {"unknown ring",
       9,
       {.ring_id = 7, .vlan = 200, .source = kLocalNode},
       0,
       5,
       "erps_forward_other_ring_raps !~\n"},
      {"stopped ring", 9, {.source = kLocalNode}, 0, 6, "ERPS RING RAPS MSG Illegal, drop it !~\n"},
      {"other VLAN",
       9,
       {.vlan = 200, .source = kLocalNode},
       1,
       6,
       "ERPS RING RAPS MSG Illegal, drop it !~\n"},
      {"no port of the ring",
       9,
       {.source = kLocalNode},
       1,
       7,
       "ERPS_Port_Is_Absent_In_The_Ring !~\n"},
      {"own frame",
       1,
       {.source = kLocalNode},
       1,
       25,
       "node ID field value corresponds to the local node ID are ignored \n"},
      {"processed", 1, {}, 1, 0, "ERPS main ring process the packet !~\n"},
  };
  for (const Case& c : cases) {
    ring->enable = c.enable;
    platform.clear_journal();
    EXPECT_EQ(deliver(c.port, c.frame), c.result) << c.what;
    EXPECT_EQ(logged(7, c.log), 1) << c.what;
    EXPECT_EQ(logged_part("process the packet"), c.result == 0 ? 1 : 0) << c.what;
    expect_logged_in_order(
        {"erps_packet_process !~\n", "\nInport: ", "ERPS_IN_rx_pdu  !~\n", c.log});
  }
}

TEST_F(ReceiveSelectionTest, a_ring_runs_unless_enable_is_0) {
  ERPSM_T* ring = idle_ring();
  ring->enable = 2;
  EXPECT_EQ(deliver(1, {}), 0U);
  ring->enable = 0;
  EXPECT_EQ(deliver(1, {}), 6U);
}

TEST_F(ReceiveSelectionTest, an_own_frame_is_dropped_before_any_flush_logic) {
  ERPSM_T* ring = idle_ring();
  store_pair(port1(ring), kLowerNode, 1);
  EXPECT_EQ(deliver(1, {.source = kLocalNode, .request = kSf}), 25U);
  EXPECT_EQ(steps(), "");
  EXPECT_EQ(stored_node_id(port0(ring)), MacAddress{});
}

TEST_F(ReceiveSelectionTest, own_frames_are_known_by_source_address_not_by_node_id) {
  idle_ring();
  EXPECT_EQ(deliver(1, {.source = kRemoteNode, .node_id = kLocalNode}), 0U);
  EXPECT_EQ(deliver(1, {.source = kLocalNode, .node_id = kRemoteNode}), 25U);
}

TEST_F(ReceiveSelectionTest, ring_and_vlan_come_from_their_places_in_a_tagged_frame) {
  idle_ring({.id = 0x2C, .vlan = 0x234});
  std::vector<uint8_t> bytes = FrameSpec{.ring_id = 0x2C, .vlan = 0x234}.bytes();
  bytes[0] = bytes[1] = bytes[12] = bytes[16] = bytes[18] = 0x77;  // nothing else is checked
  EXPECT_EQ(deliver_bytes(1, bytes, 55), 0U);
  bytes[14] = 0x02;  // priority bits do not belong to the VLAN
  EXPECT_EQ(deliver_bytes(1, bytes, 55), 0U);
  bytes[15] ^= 1;
  EXPECT_EQ(deliver_bytes(1, bytes, 55), 6U);
  bytes[5] ^= 1;
  EXPECT_EQ(deliver_bytes(1, bytes, 55), 5U);
}

TEST_F(ReceiveSelectionTest, rings_above_255_are_never_addressed) {
  idle_ring({.id = 300});
  EXPECT_EQ(deliver(1, {.ring_id = 0x2C}), 5U);
}

TEST_F(ReceiveSelectionTest, every_frame_is_described_in_the_log) {
  idle_ring();
  deliver(2, {.request = kSf, .dnf = true, .bpr = true});
  EXPECT_EQ(logged_at("erps_packet_process",
                      "\nInport: 2 RAPS TYPE : RAPS_SF ..Block Port Ref:1, Not Flush Block Port "
                      "Node : 00:aa:00:00:00:07\n"),
            1);
  deliver(1, {.request = kNr, .rb = true});
  EXPECT_EQ(logged_at("erps_packet_process",
                      "\nInport: 1 RAPS TYPE : NR_RB ..Block Port Ref:0, Need Flush Block Port "
                      "Node : 00:aa:00:00:00:07\n"),
            1);
}

TEST_F(ReceiveSelectionTest, a_short_frame_reads_as_zeros_behind_its_end) {
  // Bytes up to here decide: 5 the ring, 14 and 15 the VLAN, 6 to 11 the source address.
  for (uint32_t length = 0; length < 55; ++length) {
    ERPSM_T* ring = idle_ring();
    const uint32_t expected = length <= 5 ? 5 : length <= 15 ? 6 : 0;
    EXPECT_EQ(deliver_bytes(1, FrameSpec{.request = kFs, .dnf = true, .bpr = true}.bytes(), length),
              expected)
        << length;
    const std::vector<SentFrame> forwarded = platform.sent_frames();
    ASSERT_EQ(forwarded.size(), expected == 0 ? 1U : 0U) << length;
    if (expected == 0) {
      EXPECT_EQ(forwarded[0].bytes.size(), length) << "forwarded as received";
      const bool request_read = length > 22;
      EXPECT_EQ(ring->State, request_read ? 4 : 1) << length;
    }
    reset_module();
    platform.clear_journal();
  }
}

TEST_F(ReceiveSelectionTest, short_frames_on_a_ring_without_vlan_are_harmless_too) {
  ERPSM_T* ring = idle_ring({.vlan = 0});
  for (uint32_t length = 0; length < 55; ++length) {
    for (const uint32_t port : {1U, 2U, 9U}) {
      deliver_bytes(port, FrameSpec{.vlan = 0, .request = kFs}.bytes(), length);
      deliver_bytes(port, std::vector<uint8_t>(55, 0xFF), length);
    }
  }
  EXPECT_GE(ring->State, 1);
}

TEST_F(ReceiveSelectionTest, a_short_frame_from_the_queue_reads_nothing_of_the_one_before) {
  ERPSM_T* ring = idle_ring();
  alignas(8) uint8_t packet[16] = {};
  ERPS_EVENT_MSG_T event{};
  event.event_class = 3;
  event.type = 2;
  event.payload = reinterpret_cast<uintptr_t>(packet);
  const auto receive = [&](const std::vector<uint8_t>& frame) {
    const auto announced = static_cast<uint16_t>(frame.size());
    memcpy(packet + 14, &announced, sizeof announced);
    platform.set_received_frame(frame, 100, 1);
    erps_dispatch_event(&event);
  };
  std::vector<uint8_t> frame = FrameSpec{.request = kSf}.bytes();
  receive(frame);
  ASSERT_EQ(ring->State, 2);
  ring->State = 1;
  frame.resize(20);  // ends before the request: reads as NR
  receive(frame);
  EXPECT_EQ(ring->State, 1);
  EXPECT_EQ(ring->current_priority, 1U);
}

// --- Frames of rings that are unknown here.

TEST_F(ReceiveSelectionTest, a_frame_of_an_unknown_ring_is_relayed_between_open_ports_only) {
  ERPSM_T* ring = idle_ring({.id = 3});
  const FrameSpec frame = {.ring_id = 7, .request = kSf, .sub_code = 5, .rb = true};
  for (const uint16_t in_link : {kLinkUp, kLinkDown}) {
    for (const uint16_t in_state : {kForwarding, kDiscarding}) {
      for (const uint16_t out_link : {kLinkUp, kLinkDown, uint16_t{2}}) {
        for (const uint16_t out_state : {kForwarding, kDiscarding}) {
          set_port(port1(ring), in_link, in_state);
          set_port(port0(ring), out_link, out_state);
          platform.clear_journal();
          EXPECT_EQ(deliver(2, frame), 5U);
          const bool relayed =
              in_state == kForwarding && out_link == kLinkUp && out_state == kForwarding;
          EXPECT_EQ(logged_part("]forward sub ring pdu  port : "), relayed ? 1 : 0);
          ASSERT_EQ(platform.sent_frames().size(), relayed ? 1U : 0U);
          if (relayed) {
            EXPECT_EQ(platform.sent_frames()[0].port, 1U);
            EXPECT_EQ(platform.sent_frames()[0].bytes, frame.bytes());
          }
        }
      }
    }
  }
  EXPECT_EQ(ring->State, 1) << "not processed";
}

TEST_F(ReceiveSelectionTest, a_frame_of_an_unknown_ring_needs_a_ring_with_its_port_and_vlan) {
  idle_ring({.id = 3});
  EXPECT_EQ(deliver(1, {.ring_id = 7, .vlan = 200}), 5U);
  EXPECT_EQ(deliver(9, {.ring_id = 7}), 5U);
  EXPECT_EQ(steps(), "");
}

TEST_F(ReceiveSelectionTest, a_stopped_ring_relays_for_others_too) {
  ERPSM_T* ring = idle_ring({.id = 3});
  ring->enable = 0;
  EXPECT_EQ(deliver(1, {.ring_id = 7}), 5U);
  EXPECT_EQ(steps(), "NR > 2");
}

TEST_F(ReceiveSelectionTest, the_newest_ring_with_the_port_relays) {
  idle_ring({.id = 3});
  idle_ring({.id = 4, .port0 = 2, .port1 = 5, .vlan = 200});
  EXPECT_EQ(deliver(2, {.ring_id = 7}), 5U);
  EXPECT_EQ(steps(), "") << "its VLAN is another";
  EXPECT_EQ(deliver(2, {.ring_id = 7, .vlan = 200}), 5U);
  EXPECT_EQ(steps(), "NR > 5");
}

TEST_F(ReceiveSelectionTest, an_absent_second_port_of_a_sub_ring_takes_nothing) {
  idle_ring(kSubRingSpec);
  EXPECT_EQ(deliver(3, {.ring_id = 7}), 5U);
  EXPECT_EQ(deliver(kAbsentPort, {.ring_id = 7}), 5U);
  EXPECT_EQ(steps(), "");
}

}  // namespace
}  // namespace erps::test
