#include "erps/raps/transmit.h"

#include <cstring>

#include "tests/unit/transmit_fixture.h"

namespace erps::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;

// --- The frame.

TEST_F(TransmitTest, the_frame_carries_ring_source_vlan_and_node_id) {
  ERPSM_T* ring = idle_ring({.id = 300, .vlan = 100});
  constexpr MacAddress kOtherNode = {0x02, 1, 2, 3, 4, 5};
  memcpy(ring->local_node_id, kOtherNode.data(), kMacLength);
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  const FrameSpec expected = {
      .ring_id = 0x2C, .source = kLocalNode, .request = kSf, .node_id = kOtherNode};
  EXPECT_THAT(sent_bytes(), ElementsAre(expected.bytes(), expected.bytes()));
  EXPECT_EQ(ring->tx_frame_len, 55U);
}

TEST_F(TransmitTest, without_a_control_vlan_the_frame_is_untagged) {
  ERPSM_T* ring = idle_ring({.vlan = 0});
  erps_Tx_R_APS(ring, kFs, 1, 0, 2);
  const FrameSpec expected = {
      .vlan = 0, .source = kLocalNode, .request = kFs, .dnf = true, .node_id = kLocalNode};
  EXPECT_THAT(sent_bytes(), ElementsAre(expected.bytes(), expected.bytes()));
  EXPECT_EQ(ring->tx_frame_len, 51U);
}

TEST_F(TransmitTest, a_vlan_above_twelve_bits_is_ored_into_the_tag) {
  ERPSM_T* ring = idle_ring({.vlan = 0x1064});
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  const std::vector<uint8_t> frame = sent_bytes().at(0);
  EXPECT_THAT(std::vector<uint8_t>(frame.begin() + 12, frame.begin() + 18),
              ElementsAre(0x81, 0x00, 0xF0, 0x64, 0x89, 0x02));
}

TEST_F(TransmitTest, requests_and_flags_as_the_entries_send_them) {
  ERPSM_T* ring = idle_ring();
  struct Case {
    uint32_t request, dnf, rb, cause;
    uint8_t request_byte, status;
  };
  constexpr Case kCases[] = {
      {0, 0, 0, 1, 0x00, 0x00},  {0, 0, 1, 1, 0x00, 0x80},  {0, 1, 1, 1, 0x00, 0xC0},
      {0, 1, 1, 9, 0x00, 0xE0},  {0, 0, 0, 0, 0x00, 0x20},  {7, 0, 0, 8, 0x70, 0x00},
      {7, 1, 0, 8, 0x70, 0x40},  {11, 0, 0, 4, 0xB0, 0x00}, {11, 1, 0, 4, 0xB0, 0x40},
      {13, 0, 0, 2, 0xD0, 0x00}, {13, 1, 0, 2, 0xD0, 0x40}, {14, 0, 0, 13, 0xE0, 0x00},
  };
  for (const Case& c : kCases) {
    platform.clear_journal();
    erps_Tx_R_APS(ring, c.request, c.dnf, c.rb, c.cause);
    const std::vector<uint8_t> frame = sent_bytes().at(0);
    EXPECT_EQ(frame.at(22), c.request_byte);
    EXPECT_EQ(frame.at(23), c.status);
    EXPECT_EQ(ring->tx_request, c.request);
    EXPECT_EQ(ring->tx_dnf, c.dnf);
    EXPECT_EQ(ring->tx_rb, c.rb);
    EXPECT_EQ(ring->tx_cause, c.cause);
  }
}

TEST_F(TransmitTest, formatting_takes_the_message_from_the_ring) {
  ERPSM_T* ring = idle_ring();
  ring->tx_request = 7;
  ring->tx_dnf = 1;
  ring->tx_rb = 1;
  ring->tx_cause = 1;
  erps_format_raps_pkt(ring, 7, 1, 1);
  EXPECT_EQ(steps(), "MS,RB,DNF > 1; MS,RB,DNF > 2") << "once, without a repetition";
}

// --- BPR.

TEST_F(TransmitTest, bpr_names_the_port_that_the_cause_is_about) {
  ERPSM_T* ring = idle_ring();
  // Which port each cause names: the one of the local request, the last forwarding one, or none.
  constexpr char kNamed[] = "F.L.LL.LLF.F.....";
  for (uint32_t cause = 0; cause <= 16; ++cause) {
    for (const int32_t event_port : {kNoPort, 1, 2, 9}) {
      for (const uint16_t state0 : {kDiscarding, kForwarding}) {
        for (const uint16_t state1 : {kDiscarding, kForwarding}) {
          port0(ring)->port_state = state0;
          port1(ring)->port_state = state1;
          ring->event_port = event_port;
          ring->tx_cause = cause;
          const uint32_t local = event_port == 2 ? 1 : 0;
          const uint32_t forwarding = state1 == kForwarding ? 1 : 0;
          const uint32_t expected = kNamed[cause] == 'L'   ? local
                                    : kNamed[cause] == 'F' ? forwarding
                                                           : 0;
          EXPECT_EQ(erps_tx_get_bpr(ring), expected)
              << "cause " << cause << ", event port " << event_port << ", states " << state0
              << state1;
          EXPECT_EQ(ring->event_port, kNoPort) << "used up by every message";
        }
      }
    }
  }
}

TEST_F(TransmitTest, large_causes_name_no_port) {
  ERPSM_T* ring = idle_ring();
  for (const uint32_t cause : {32U, 34U, 36U, 40U, 64U, 0x80000002U, UINT32_MAX}) {
    ring->event_port = 2;
    ring->tx_cause = cause;
    EXPECT_EQ(erps_tx_get_bpr(ring), 0U) << cause;
  }
}

TEST_F(TransmitTest, the_second_message_about_one_event_names_no_port) {
  ERPSM_T* ring = idle_ring();
  ring->event_port = 2;
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  EXPECT_EQ(steps(), "SF,BPR > 1; SF,BPR > 2; repeat; SF > 1; SF > 2; repeat");
}

// --- Through which ports.

TEST_F(TransmitTest, ports_by_ring_role_link_and_state) {
  // Management accepts any role: above the known ones it sends as the open channel does.
  for (const uint32_t ring_role : {kMajorRing, kOpenChannelRing, uint32_t{3}}) {
    ERPSM_T* ring = idle_ring({.id = 10 + ring_role, .ring_role = ring_role});
    for (uint32_t bits = 0; bits < 36; ++bits) {
      const uint16_t links[] = {static_cast<uint16_t>(bits % 3),
                                static_cast<uint16_t>(bits / 3 % 3)};
      const uint16_t states[] = {bits / 9 % 2 != 0 ? kForwarding : kDiscarding,
                                 bits / 18 % 2 != 0 ? kForwarding : kDiscarding};
      std::vector<uint32_t> expected;
      for (uint32_t port = 0; port < 2; ++port) {
        if (links[port] == 1 && (ring_role != kMajorRing || states[port] == kForwarding)) {
          expected.push_back(port + 1);
        }
      }
      set_port(port0(ring), links[0], states[0]);
      set_port(port1(ring), links[1], states[1]);
      EXPECT_EQ(ports_of_new_message(ring), expected) << bits;
      EXPECT_EQ(ports_of_repeat(ring), expected) << bits;
    }
  }
}

TEST_F(TransmitTest, a_blocked_port_of_an_ordinary_ring_sends_nothing) {
  ERPSM_T* ring = idle_ring();
  set_port(port0(ring), kLinkUp, kDiscarding);
  EXPECT_THAT(ports_of_new_message(ring), ElementsAre(2));
}

TEST_F(TransmitTest, a_frame_leaves_with_its_length_and_the_constants_of_the_platform) {
  EXPECT_EQ(platform.sent_frames().size(), 0U);
  const FrameSpec frame{};
  const std::vector<uint8_t> bytes = frame.bytes();
  platform.set_transmit_result(-7);
  EXPECT_EQ(erps_send_frame(5, bytes.data(), 55, 4000), -7);
  EXPECT_THAT(platform.calls(), ElementsAre("adp_transmit_frame(55, 0, 5, 3)"));
  EXPECT_EQ(platform.sent_frames().at(0).bytes, bytes) << "the VLAN argument changes nothing";
  EXPECT_EQ(logged(7, "R-APS send frame Port = 5\n"), 1);
}

TEST_F(TransmitTest, a_failed_transmission_changes_nothing) {
  ERPSM_T* ring = idle_ring();
  platform.set_transmit_result(-1);
  EXPECT_THAT(ports_of_new_message(ring), ElementsAre(1, 2));
  EXPECT_EQ(ring->raps_timer.active, 1);
}

// --- Repetition.

TEST_F(TransmitTest, a_message_is_sent_at_once_and_then_every_five_seconds_until_stopped) {
  ERPSM_T* ring = idle_ring();
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  EXPECT_EQ(steps(), "SF > 1; SF > 2; repeat");
  pass_ms(4999);
  EXPECT_EQ(steps(), "");
  pass_ms(1);
  EXPECT_EQ(steps(), "SF > 1; SF > 2");
  pass_ms(5000);
  EXPECT_EQ(steps(), "SF > 1; SF > 2");
  EXPECT_EQ(erps_stop_Tx_RAPS(ring), 0);
  pass_ms(5000);
  EXPECT_EQ(steps(), "");
}

TEST_F(TransmitTest, a_new_message_replaces_the_frame_and_starts_the_five_seconds_again) {
  ERPSM_T* ring = idle_ring();
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  pass_ms(3000);
  steps();
  erps_Tx_R_APS(ring, kFs, 0, 0, 2);
  EXPECT_EQ(steps(), "FS > 1; FS > 2; repeat");
  pass_ms(2000);
  EXPECT_EQ(steps(), "");
  pass_ms(3000);
  EXPECT_EQ(steps(), "FS > 1; FS > 2");
}

TEST_F(TransmitTest, a_repeat_is_the_same_frame_byte_for_byte) {
  ERPSM_T* ring = idle_ring();
  ring->event_port = 2;
  erps_Tx_R_APS(ring, kSf, 1, 0, 4);
  const std::vector<uint8_t> first = sent_bytes().at(0);
  memset(ring->local_node_id, 0xEE, kMacLength);
  ring->tx_rb = 1;
  pass_ms(5000);
  EXPECT_THAT(sent_bytes(), Each(first));
  EXPECT_EQ(sent_bytes().size(), 4U);
}

TEST_F(TransmitTest, a_repeat_follows_the_ports_as_they_are_now) {
  ERPSM_T* ring = idle_ring();
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  set_port(port0(ring), kLinkUp, kDiscarding);
  steps();
  pass_ms(5000);
  EXPECT_EQ(steps(), "SF > 2");
}

TEST_F(TransmitTest, an_event_is_sent_once_per_port_and_never_repeated) {
  ERPSM_T* ring = idle_ring();
  erps_Tx_R_APS(ring, kEvent, 0, 0, 13);
  EXPECT_EQ(steps(), "Event > 1; Event > 2");
  EXPECT_EQ(timer_count(), 0U);
  pass_ms(10000);
  EXPECT_EQ(steps(), "");
}

TEST_F(TransmitTest, an_event_overwrites_what_is_being_repeated_but_not_its_time) {
  ERPSM_T* ring = idle_ring();
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  pass_ms(3000);
  erps_Tx_R_APS(ring, kEvent, 0, 0, 13);
  steps();
  pass_ms(2000);
  EXPECT_EQ(steps(), "Event > 1; Event > 2");
}

TEST_F(TransmitTest, only_a_repeat_logs_each_port) {
  ERPSM_T* ring = idle_ring({.ring_role = kOpenChannelRing});
  set_port(port1(ring), kLinkUp, kDiscarding);
  ports_of_new_message(ring);
  EXPECT_EQ(logged_part("link : 1, ring_role"), 0);
  EXPECT_EQ(ring->send_logic & kSendLogicNew, 0U);
  ports_of_repeat(ring);
  EXPECT_EQ(logged_at("erps_tx_raps_pkt", "port:1 link : 1, ring_role : 1, state : 4\n"), 1);
  EXPECT_EQ(logged_at("erps_tx_raps_pkt", "port:2 link : 1, ring_role : 1, state : 1\n"), 1);
}

TEST_F(TransmitTest, formatting_logs_the_state_of_the_transmission) {
  ERPSM_T* ring = idle_ring();
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  EXPECT_EQ(logged_at("erps_format_raps_pkt", "send_logic = 2 vlan = 100 ring_id = 1\n"), 1);
}

TEST_F(TransmitTest, stopping_forgets_the_fault_port_and_keeps_the_frame) {
  ERPSM_T* ring = idle_ring();
  erps_Tx_R_APS(ring, kSf, 0, 0, 4);
  const std::vector<uint8_t> frame = bytes_of(ring->tx_frame, ring->tx_frame_len);
  ring->inter_fault_port = 1;
  ring->send_logic = 2;
  erps_stop_Tx_RAPS(ring);
  EXPECT_EQ(ring->inter_fault_port, kNoPort);
  EXPECT_EQ(ring->send_logic, 0U);
  EXPECT_EQ(ring->raps_timer.active, 0);
  EXPECT_EQ(bytes_of(ring->tx_frame, ring->tx_frame_len), frame);
  EXPECT_EQ(erps_stop_Tx_RAPS(ring), 0) << "a silent ring may be stopped again";
}

TEST_F(TransmitTest, rings_transmit_on_their_own) {
  ERPSM_T* first = idle_ring();
  ERPSM_T* second = idle_ring({.id = 2, .port0 = 3, .port1 = 4});
  erps_Tx_R_APS(first, kSf, 0, 0, 4);
  pass_ms(2000);
  erps_Tx_R_APS(second, kFs, 0, 0, 2);
  steps();
  pass_ms(3000);
  EXPECT_EQ(steps(), "SF > 1; SF > 2");
  pass_ms(2000);
  EXPECT_EQ(steps(), "FS > 3; FS > 4");
}

// --- The dump.

TEST_F(TransmitTest, a_dump_is_sixteen_bytes_to_a_line) {
  uint8_t bytes[18];
  for (size_t i = 0; i < sizeof bytes; ++i) {
    bytes[i] = static_cast<uint8_t>(0xA0 + i);
  }
  erps_printf_packet(bytes, sizeof bytes);
  std::string text;
  for (const LogLine& line : platform.log()) {
    text += line.text;
  }
  std::vector<std::vector<std::string>> lines;
  for (const std::string& line : split(text, "\n")) {
    lines.push_back(split(line, " "));
  }
  ASSERT_EQ(lines.size(), 2U) << text;
  EXPECT_EQ(join(lines[0], " "), "a0 a1 a2 a3 a4 a5 a6 a7 a8 a9 aa ab ac ad ae af");
  EXPECT_EQ(join(lines[1], " "), "b0 b1");
}

}  // namespace
}  // namespace erps::test
