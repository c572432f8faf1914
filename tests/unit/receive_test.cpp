// What an ordinary ring does with a message that was accepted for it.
#include "erps/raps/receive.h"

#include "erps/timer/protocol_timers.h"
#include "tests/unit/reception_fixture.h"

namespace erps::test {
namespace {

using ReceiveTest = ReceptionTest;

TEST_F(ReceiveTest, an_accepted_message_is_processed_first_and_forwarded_then) {
  ERPSM_T* ring = idle_ring();
  EXPECT_EQ(deliver(1, {.request = kSf}), 0U);
  EXPECT_EQ(steps(), "flush 1; flush 2; -> protection; SF > 2");
  EXPECT_THAT(bytes_of(ring->remote_node_id, kMacLength), ::testing::ElementsAreArray(kRemoteNode));
  EXPECT_EQ(ring->current_priority, 9U);
}

TEST_F(ReceiveTest, a_new_pair_flushes_the_arrival_port_before_the_message_is_processed) {
  ERPSM_T* ring = idle_ring();
  store_pair(port0(ring), kLowerNode, 1);
  EXPECT_EQ(deliver(2, {.request = kFs}), 0U);
  EXPECT_EQ(logged(7, "ERPS_flush_FDB\n"), 1);
  EXPECT_EQ(steps(), "flush 2; unblock 1; unblock 2; -> forced; FS > 1");
}

TEST_F(ReceiveTest, a_node_id_counts_before_its_message_is_acted_on) {
  ERPSM_T* ring = idle_ring();
  ring->State = 5;
  ring->local_priority = 0;
  set_port(port1(ring), kLinkUp, kDiscarding);
  platform.clear_journal();
  EXPECT_EQ(deliver(1, {.source = kLowerNode, .request = kNr, .node_id = kLowerNode}), 0U);
  EXPECT_EQ(steps(), "unblock 2; -> pending; NR > 2") << "opened in time for the message itself";
}

TEST_F(ReceiveTest, an_nr_rb_in_pending_flushes_all_ring_ports_except_at_the_owner) {
  struct Case {
    uint32_t node_role;
    const char* steps;
  };
  for (const Case& c :
       {Case{kNoRplNode, "flush 1; flush 2; unblock 1; unblock 2; -> idle; NR,RB > 2"},
        Case{kRplNeighbour, "flush 1; flush 2; block 2; unblock 1; -> idle"},
        Case{kRplOwner, "stop WTR; stop WTB; -> idle; NR,RB > 2"}}) {
    ERPSM_T* ring = idle_ring({.node_role = c.node_role});
    ring->State = 5;
    EXPECT_EQ(deliver(1, {.request = kNr, .rb = true}), 0U);
    EXPECT_EQ(steps(), c.steps);
    reset_module();
    erps_event_queue = platform.receiver_handle();
  }
}

TEST_F(ReceiveTest, a_refused_nr_rb_flushes_nothing) {
  ERPSM_T* ring = idle_ring({.node_role = kRplNeighbour});
  ring->State = 5;
  ring->local_priority = 5;
  EXPECT_EQ(deliver(1, {.request = kNr, .rb = true}), 0U);
  EXPECT_EQ(steps(), "NR,RB > 2");
  EXPECT_EQ(bytes_of(ring->remote_node_id, kMacLength), std::vector<uint8_t>(6, 0));
}

TEST_F(ReceiveTest, a_refused_message_is_forwarded_all_the_same) {
  ERPSM_T* ring = idle_ring();
  ring->local_priority = 13;
  for (uint8_t request = 0; request < 16; ++request) {
    EXPECT_EQ(deliver(1, {.request = request}), 0U);
    EXPECT_EQ(logged_at("ERPS_port_rx_pdu", " no top priority request. \n"), 1) << int{request};
    EXPECT_EQ(platform.sent_frames().size(), 1U) << int{request};
    EXPECT_EQ(ring->State, 1);
    platform.clear_journal();
  }
}

TEST_F(ReceiveTest, undefined_requests_and_events_are_refused_and_forwarded) {
  ERPSM_T* ring = idle_ring();
  for (const uint8_t request : {1, 2, 3, 4, 5, 6, 8, 9, 10, 12, 14, 15}) {
    EXPECT_EQ(deliver(1, {.request = request}), 0U);
    EXPECT_EQ(platform.sent_frames().size(), 1U) << int{request};
    EXPECT_EQ(ring->State, 1) << int{request};
    EXPECT_EQ(ring->current_priority, 0U) << int{request};
    platform.clear_journal();
  }
}

TEST_F(ReceiveTest, every_message_takes_the_ring_where_its_request_leads) {
  struct Case {
    uint8_t request;
    bool rb;
    int32_t state;
    uint32_t current;
  };
  for (const Case& c : {Case{kNr, false, 1, 1}, Case{kNr, true, 1, 2}, Case{kMs, false, 3, 8},
                        Case{kSf, false, 2, 9}, Case{kFs, false, 4, 12}}) {
    ERPSM_T* ring = idle_ring();
    EXPECT_EQ(deliver(1, {.request = c.request, .rb = c.rb}), 0U);
    EXPECT_EQ(ring->State, c.state) << int{c.request};
    EXPECT_EQ(ring->current_priority, c.current) << int{c.request};
    reset_module();
  }
}

TEST_F(ReceiveTest, forwarding_by_ring_role_port_states_and_the_other_link) {
  // Management accepts any role: above the known ones it forwards as the closed channel does.
  for (const uint32_t ring_role : {kMajorRing, kOpenChannelRing, uint32_t{3}}) {
    ERPSM_T* ring = idle_ring({.ring_role = ring_role});
    ring->local_priority = 13;  // nothing is accepted: only the forwarding shows
    for (const uint16_t in_link : {kLinkUp, kLinkDown}) {
      for (const uint16_t in_state : {kForwarding, kDiscarding}) {
        for (const uint16_t out_link : {kLinkUp, kLinkDown, uint16_t{2}}) {
          for (const uint16_t out_state : {kForwarding, kDiscarding}) {
            set_port(port0(ring), in_link, in_state);
            set_port(port1(ring), out_link, out_state);
            platform.clear_journal();
            EXPECT_EQ(deliver(1, {.request = kNr, .rb = true, .dnf = true}), 0U);
            EXPECT_EQ(logged_at("ERPS_port_rx_pdu", "PORT:1, Discard"),
                      in_state == kDiscarding ? 1 : 0);
            EXPECT_EQ(logged(7,
                             "9.3 R-APS messages are forwarded using an ETH_FF function for R-APS "
                             "traffic, \n"),
                      1);
            const bool forwarded =
                out_link == kLinkUp && (ring_role == kOpenChannelRing ||
                                        (in_state == kForwarding && out_state == kForwarding));
            EXPECT_EQ(logged_part("] forward erps packet  port : "), forwarded ? 1 : 0);
            EXPECT_EQ(steps(), forwarded ? "NR,RB,DNF > 2" : "")
                << "ring role " << ring_role << ", in " << in_state << ", out " << out_link
                << out_state;
          }
        }
      }
    }
    reset_module();
  }
}

TEST_F(ReceiveTest, a_frame_is_forwarded_unchanged_out_of_the_other_port) {
  idle_ring({.ring_role = kOpenChannelRing});
  const FrameSpec frame = {.request = kEvent, .sub_code = 3, .rb = true, .bpr = true};
  std::vector<uint8_t> bytes = frame.bytes();
  bytes.resize(64, 0xEE);  // padding of the wire
  for (const auto& [in, out] : {std::pair(1U, 2U), std::pair(2U, 1U)}) {
    EXPECT_EQ(deliver_bytes(in, bytes, 64), 0U);
    ASSERT_EQ(platform.sent_frames().size(), 1U);
    EXPECT_EQ(platform.sent_frames()[0].port, out);
    EXPECT_EQ(platform.sent_frames()[0].bytes, bytes);
    platform.clear_journal();
  }
}

TEST_F(ReceiveTest, a_discarding_port_processes_what_it_receives) {
  ERPSM_T* ring = idle_ring();
  set_port(port0(ring), kLinkUp, kDiscarding);
  platform.clear_journal();
  EXPECT_EQ(deliver(1, {.request = kSf}), 0U);
  EXPECT_EQ(steps(), "unblock 1; flush 1; flush 2; -> protection; SF > 2");
}

TEST_F(ReceiveTest, an_nr_without_rb_clears_the_pair_and_never_flushes) {
  ERPSM_T* ring = idle_ring({.node_role = kRplOwner});
  store_pair(port0(ring), kLowerNode, 1);
  store_pair(port1(ring), kRemoteNode, 0);
  EXPECT_EQ(deliver(1, {.request = kNr, .bpr = true}), 0U);
  EXPECT_EQ(steps(), "-> idle; NR,BPR > 2");
  EXPECT_EQ(stored_node_id(port0(ring)), MacAddress{});
  EXPECT_EQ(port0(ring)->rx_bpr, 0);
  EXPECT_EQ(stored_node_id(port1(ring)), kRemoteNode);
}

// --- Guard.

TEST_F(ReceiveTest, while_the_guard_timer_runs_only_events_pass) {
  for (uint8_t request = 0; request < 16; ++request) {
    ERPSM_T* ring = idle_ring();
    erps_start_guard_timer(&ring->guard_timer);
    platform.clear_journal();
    EXPECT_EQ(deliver_to(ring, port0(ring), {.request = request}), request == kEvent ? 0U : 23U);
    EXPECT_EQ(logged(7, "ERPS_Guard_Timer_Is_Running_and_Packet_Is_Non_Event_req\n"),
              request == kEvent ? 0 : 1);
    EXPECT_EQ(steps(), request == kEvent ? "Event > 2" : "") << int{request};
    EXPECT_EQ(ring->State, 1);
    reset_module();
  }
}

TEST_F(ReceiveTest, the_guard_does_not_keep_a_message_from_the_flush_memory) {
  ERPSM_T* ring = idle_ring();
  ring->guard_running = 1;
  store_pair(port1(ring), kLowerNode, 1);
  EXPECT_EQ(deliver(1, {.request = kSf}), 0U) << "the ring was found: selection is content";
  EXPECT_EQ(steps(), "flush 1");
  EXPECT_EQ(stored_node_id(port0(ring)), kRemoteNode);
}

TEST_F(ReceiveTest, messages_pass_again_once_the_guard_time_is_over) {
  ERPSM_T* ring = idle_ring();
  erps_start_guard_timer(&ring->guard_timer);
  pass_ms(499);
  deliver(1, {.request = kSf});
  EXPECT_EQ(ring->State, 1);
  pass_ms(1);
  deliver(1, {.request = kSf});
  EXPECT_EQ(ring->State, 2);
}

// --- A repeated manual switch.

TEST_F(ReceiveTest, a_repeated_ms_is_forwarded_without_entering_the_state_machine) {
  ERPSM_T* ring = idle_ring();
  EXPECT_EQ(deliver(1, {.request = kMs}), 0U);
  ASSERT_EQ(ring->State, 3);
  steps();
  ring->state_entered = 0;
  EXPECT_EQ(deliver(1, {.request = kMs}), 0U);
  EXPECT_EQ(logged(7, " Direct forward packet. \n"), 1);
  EXPECT_EQ(steps(), "MS > 2");
  EXPECT_EQ(ring->state_entered, 0);
}

TEST_F(ReceiveTest, an_ms_of_another_node_counts_as_repeated_too_once_its_pair_is_stored) {
  ERPSM_T* ring = idle_ring();
  deliver(1, {.request = kMs});
  steps();
  deliver(2, {.source = kLowerNode, .request = kMs, .bpr = true, .node_id = kLowerNode});
  EXPECT_EQ(ring->State, 3);
  EXPECT_EQ(logged(7, " Direct forward packet. \n"), 1);
}

TEST_F(ReceiveTest, the_guard_comes_before_the_repeat_check) {
  ERPSM_T* ring = idle_ring();
  deliver(1, {.request = kMs});
  ring->guard_running = 1;
  EXPECT_EQ(deliver_to(ring, port0(ring), {.request = kMs}), 23U);
}

// --- Order of the log.

TEST_F(ReceiveTest, the_log_follows_the_message_through_the_ring) {
  ERPSM_T* ring = idle_ring();
  set_port(port0(ring), kLinkUp, kDiscarding);
  store_pair(port1(ring), kLowerNode, 1);
  ring->interconnect_ring_id = 2;
  ring->ring_role = kOpenChannelRing;
  platform.clear_journal();
  deliver(1, {.request = kSf});
  expect_logged_in_order(
      {"erps_packet_process !~\n", "\nInport: 1 ", "ERPS_IN_rx_pdu  !~\n",
       "ERPS main ring process the packet !~\n", "]PORT:1, Discard",
       "erps_interconnectnode_special_proc\n", "ERPS_flush_logic ~!\n", "ERPS_flush_FDB\n",
       "ERPS_flush_FDB ~!\n", "exit msg = 9 \n", "enter msg = 9 ", "ERPS_flush_logic_ex ~!\n",
       "enter this->name = RAPS_SF \n",
       "9.3 R-APS messages are forwarded using an ETH_FF function for R-APS traffic, \n",
       "] forward erps packet  port : ", "R-APS send frame Port = 2\n"});
}

}  // namespace
}  // namespace erps::test
