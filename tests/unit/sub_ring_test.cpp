// The sub-ring instance of an interconnection node: indications, interconnection flush, reception.
#include <algorithm>
#include <cstring>

#include "erps/raps/interconnection.h"
#include "tests/unit/reception_fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const char* const kTopologyChange = "7 for ring 1";

const FrameSpec kNrMessage = {.request = kNr};
const FrameSpec kSfMessage = {.request = kSf};
const FrameSpec kSfOther = {.request = kSf, .node_id = kLowerNode};

// --- The indication of the major ring.

class IndicationTest : public ReceptionTest {
 protected:
  IndicationTest() : sub(idle_pair(kWatching).sub) {}

  ERPSM_T* const sub;
};

TEST_F(IndicationTest, an_idle_sub_ring_switches_and_opens_its_port) {
  erps_notify_sub_ring(2, 1);
  EXPECT_EQ(steps(),
            "block 3; MS > 1; MS > 1; MS > 1; MS > 3; MS > 3; MS > 3; repeat; flush 3; -> manual; "
            "unblock 3");
  EXPECT_EQ(sub->request_port, 3U);
  EXPECT_EQ(sub->notify_state, kMajorRingCut);
  EXPECT_EQ(sub->local_priority, 7U);
}

TEST_F(IndicationTest, a_refused_switch_leaves_the_ports_named) {
  sub->local_priority = 11;
  erps_notify_sub_ring(2, 1);
  EXPECT_EQ(steps(), "");
  EXPECT_EQ(sub->flush_port, 3);
  EXPECT_EQ(sub->event_port, 3);
  EXPECT_EQ(sub->request_port, 3U);
  EXPECT_EQ(sub->notify_state, kMajorRingCut);
}

TEST_F(IndicationTest, a_switched_sub_ring_closes_its_port_and_clears) {
  erps_notify_sub_ring(2, 1);
  steps();
  erps_notify_sub_ring(2, 2);
  EXPECT_EQ(logged_at("erps_notify_sub_ring", "sub ring id : 2, port = 4\n"), 1);
  EXPECT_EQ(logged(7, "sub ring id : 2, port = 4\n"), 1);
  EXPECT_EQ(steps(),
            "block 3; start guard; NR > 1; NR > 1; NR > 1; NR > 3; NR > 3; NR > 3; repeat; "
            "-> pending");
  EXPECT_EQ(sub->notify_state, kMajorRingWhole);
}

TEST_F(IndicationTest, whole_again_counts_only_for_an_own_switch_with_an_open_port) {
  struct Case {
    const char* what;
    int32_t state;
    uint32_t current, local;
    uint16_t port_state;
  };
  constexpr Case kCases[] = {
      {"held by a remote switch", 3, 8, 7, kForwarding},
      {"port closed", 3, 7, 7, kDiscarding},
      {"no local request to clear", 3, 7, 0, kForwarding},
      {"not in manual", 4, 7, 7, kForwarding},
      {"not in manual", 2, 7, 7, kForwarding},
      {"not in manual", 5, 7, 7, kForwarding},
  };
  for (const Case& c : kCases) {
    sub->State = c.state;
    sub->current_priority = c.current;
    sub->local_priority = c.local;
    sub->notify_state = 0;
    set_port(port0(sub), kLinkUp, c.port_state);
    platform.clear_journal();
    erps_notify_sub_ring(2, 2);
    EXPECT_EQ(steps(), "") << c.what;
    EXPECT_EQ(sub->notify_state, kMajorRingWhole) << c.what;
    EXPECT_EQ(sub->local_priority, c.local) << c.what;
    EXPECT_EQ(sub->current_priority, c.current) << c.what;
  }
}

TEST_F(IndicationTest, any_other_combination_is_only_remembered) {
  for (const int32_t state : {0, 1, 2, 3, 4, 5}) {
    for (const uint32_t indication : {0U, 1U, 2U, 3U}) {
      if ((state == 1 && indication == 1) || (state == 3 && indication == 2)) {
        continue;
      }
      sub->State = state;
      erps_notify_sub_ring(2, indication);
      EXPECT_EQ(steps(), "") << state << " " << indication;
      EXPECT_EQ(sub->notify_state, indication);
    }
  }
}

TEST_F(IndicationTest, an_unknown_ring_is_told_nothing) {
  erps_notify_sub_ring(9, 1);
  EXPECT_EQ(steps(), "");
  EXPECT_EQ(sub->notify_state, 0);
}

TEST_F(IndicationTest, one_that_came_too_early_is_acted_on_when_the_sub_ring_is_idle_again) {
  sub->State = 5;
  erps_notify_sub_ring(2, 1);
  EXPECT_EQ(steps(), "");
  deliver(3, {.ring_id = 2, .request = kNr, .rb = true, .dnf = true});
  EXPECT_EQ(steps(),
            "unblock 3; -> idle; block 3; MS > 1; MS > 1; MS > 1; MS > 3; MS > 3; MS > 3; repeat; "
            "flush 3; -> manual; unblock 3; NR,RB,DNF > 1");
  EXPECT_EQ(sub->notify_state, 0);
}

// --- The interconnection flush.

class TopologyChangeTest : public ReceptionTest {
 protected:
  TopologyChangeTest() : pair(idle_pair(kWatching)) {}

  std::vector<std::string> offer(const FrameSpec& spec) {
    Received frame(spec, 3);
    erps_topology_change(pair.sub, frame.descriptor(), 0);
    return posts();
  }

  const RingPair pair;
};

TEST_F(TopologyChangeTest, a_message_tells_the_major_ring_once) {
  EXPECT_THAT(offer(kSfMessage), ElementsAre(kTopologyChange));
  EXPECT_THAT(offer(kSfMessage), IsEmpty());
  EXPECT_THAT(offer(kSfOther), ElementsAre(kTopologyChange));
  EXPECT_THAT(offer(kSfMessage), ElementsAre(kTopologyChange)) << "only the last one is known";
}

TEST_F(TopologyChangeTest, only_nr_and_sf_count_and_only_they_are_remembered) {
  for (uint8_t request = 0; request < 16; ++request) {
    memset(pair.sub->topo_raps_info, 0xEE, kTopoInfoLength);
    const FrameSpec frame = {.request = request, .rb = true};
    const bool counts = request == kNr || request == kSf;
    EXPECT_EQ(offer(frame).size(), counts ? 1U : 0U) << int{request};
    const std::vector<uint8_t> pdu = frame.pdu();
    const std::vector<uint8_t> info(pdu.begin() + 4, pdu.begin() + 36);
    EXPECT_EQ(bytes_of(pair.sub->topo_raps_info, kTopoInfoLength),
              counts ? info : std::vector<uint8_t>(kTopoInfoLength, 0xEE))
        << int{request};
  }
}

TEST_F(TopologyChangeTest, every_one_of_the_32_bytes_makes_a_message_another) {
  for (size_t byte = 0; byte < 37; ++byte) {
    Received frame(kSfMessage, 3);
    erps_topology_change(pair.sub, frame.descriptor(), 0);
    posts();
    uint8_t* changed = frame.descriptor()->pdu + byte;
    *changed = static_cast<uint8_t>(*changed ^ 0x01);
    erps_topology_change(pair.sub, frame.descriptor(), 0);
    EXPECT_EQ(posts().size(), byte >= 4 && byte < 36 ? 1U : 0U) << byte;
  }
}

TEST_F(TopologyChangeTest, a_message_without_a_mark_differs_from_one_with_it) {
  EXPECT_THAT(offer(kSfMessage), ElementsAre(kTopologyChange));
  EXPECT_THAT(offer({.request = kSf, .sub_code = 0xA}), ElementsAre(kTopologyChange));
}

TEST_F(TopologyChangeTest, without_a_message_it_is_told_when_forced) {
  erps_topology_change(pair.sub, nullptr, 0);
  EXPECT_THAT(posts(), IsEmpty());
  erps_topology_change(pair.sub, nullptr, 1);
  erps_topology_change(pair.sub, nullptr, 1);
  EXPECT_THAT(posts(), ElementsAre(kTopologyChange, kTopologyChange));
  EXPECT_EQ(logged(7, "erps_topology_change \n"), 3);
}

TEST_F(TopologyChangeTest, an_ordinary_ring_tells_nobody) {
  erps_topology_change(pair.major, nullptr, 1);
  Received frame(kSfMessage, 1);
  erps_topology_change(pair.major, frame.descriptor(), 1);
  EXPECT_THAT(posts(), IsEmpty());
}

TEST_F(TopologyChangeTest, the_major_ring_sends_one_event_on_each_port) {
  erps_topology_change(pair.sub, nullptr, 1);
  steps();
  handle_events();
  EXPECT_EQ(steps(), "Event,BPR > 1; Event,BPR > 2");
}

TEST_F(TopologyChangeTest, events_are_handled_in_the_order_they_were_posted) {
  erps_topology_change(pair.sub, nullptr, 1);
  port0(pair.major)->fail_count = 1;
  erps_interconnectnode_link_proc(pair.major, 0, 2);
  erps_topology_change(pair.sub, nullptr, 1);
  EXPECT_THAT(posts(), ElementsAre(kTopologyChange, "10 for ring 2: 1", kTopologyChange));
}

TEST_F(TopologyChangeTest, an_event_that_the_queue_refuses_is_an_error_line_and_nothing_else) {
  platform.set_send_result(0);
  erps_topology_change(pair.sub, nullptr, 1);
  EXPECT_EQ(logged(3, "equeue error\n"), 1);
}

// --- Reception at the sub-ring instance.

class SubRingReceiveTest : public ReceptionTest {
 protected:
  SubRingReceiveTest() : pair(idle_pair(kWatching)) {}

  static FrameSpec for_sub_ring(FrameSpec spec) {
    spec.ring_id = 2;
    return spec;
  }

  uint32_t process(uint32_t port, const FrameSpec& spec) {
    Received frame(for_sub_ring(spec), port);
    return erps_sub_ring_pdu_proc(pair.sub, frame.descriptor());
  }

  const RingPair pair;
};

TEST_F(SubRingReceiveTest,
       a_frame_of_the_sub_ring_is_accepted_from_its_own_port_and_the_major_ring) {
  for (const uint32_t port : {1U, 2U, 3U}) {
    EXPECT_EQ(deliver(port, for_sub_ring(kNrMessage)), 0U) << port;
    EXPECT_EQ(logged(7, "ERPS sub ring process the packet !~\n"), 1) << port;
    platform.clear_journal();
  }
  EXPECT_EQ(deliver(1, for_sub_ring(kNrMessage)), 0U);
  EXPECT_EQ(logged_at("erps_check_pkt_is_sub_ring",
                      "Master ring id : 1, one port :1, other port :2, in port : 1\n"),
            1);
}

TEST_F(SubRingReceiveTest, other_ports_and_a_major_ring_that_does_not_run_are_refused) {
  for (const uint32_t port : {4U, kAbsentPort}) {
    EXPECT_EQ(deliver(port, for_sub_ring(kNrMessage)), 7U) << port;
  }
  pair.major->enable = 0;
  EXPECT_EQ(deliver(1, for_sub_ring(kNrMessage)), 7U);
  EXPECT_EQ(deliver(3, for_sub_ring(kNrMessage)), 0U) << "its own port needs no major ring";
  pair.major->enable = 1;
  pair.sub->interconnect_ring_id = 9;
  EXPECT_EQ(deliver(1, for_sub_ring(kNrMessage)), 7U);
}

TEST_F(SubRingReceiveTest, the_check_for_a_frame_that_came_through_the_major_ring) {
  for (const auto& [port, result] : {std::pair(1U, 0U), std::pair(2U, 0U), std::pair(3U, 26U)}) {
    Received frame(for_sub_ring(kNrMessage), port);
    EXPECT_EQ(erps_check_pkt_is_sub_ring(pair.sub, frame.descriptor()), result) << port;
    EXPECT_EQ(erps_check_pkt_is_sub_ring(pair.major, frame.descriptor()), 26U) << port;
  }
}

TEST_F(SubRingReceiveTest, a_frame_of_its_own_port_goes_to_one_port_of_the_major_ring) {
  EXPECT_EQ(process(3, kNrMessage), 0U);
  EXPECT_EQ(steps(), "-> idle; NR > 1");
  set_port(port0(pair.major), kLinkUp, kDiscarding);
  platform.clear_journal();
  EXPECT_EQ(process(3, kNrMessage), 0U);
  EXPECT_EQ(logged(7, "send packet to master-ring. \n"), 1);
  EXPECT_EQ(
      logged(7, "9.3 R-APS messages are forwarded using an ETH_FF function for R-APS traffic\n"),
      1);
  EXPECT_EQ(steps(), "-> idle; NR > 2");
}

TEST_F(SubRingReceiveTest, a_frame_of_the_major_ring_goes_out_of_its_own_port_only) {
  for (const uint32_t port : {1U, 2U}) {
    EXPECT_EQ(process(port, kNrMessage), 0U);
    EXPECT_EQ(logged(7, "send packet to sub-ring. \n"), 1);
    EXPECT_EQ(steps(), "-> idle; NR > 3");
  }
}

TEST_F(SubRingReceiveTest,
       a_blocked_or_failed_own_port_still_takes_what_comes_from_the_major_ring) {
  set_port(port0(pair.sub), kLinkDown, kDiscarding);
  platform.clear_journal();
  EXPECT_EQ(process(1, {.request = kMs, .dnf = true}), 0U);
  EXPECT_EQ(logged_part("]SUB PORT:"), 1);
  EXPECT_EQ(logged_part(", Discard"), 1);
  EXPECT_THAT(steps(), ::testing::EndsWith("MS,DNF > 3"));
}

TEST_F(SubRingReceiveTest, a_failed_own_port_forwards_nothing_to_the_major_ring) {
  set_port(port0(pair.sub), kLinkDown, kForwarding);
  platform.clear_journal();
  EXPECT_EQ(process(3, kNrMessage), 0U);
  EXPECT_EQ(steps(), "-> idle");
  EXPECT_EQ(logged(7, "send packet to master-ring. \n"), 0);
}

TEST_F(SubRingReceiveTest, a_new_pair_tells_the_major_ring_flushes_and_is_processed) {
  EXPECT_EQ(process(3, kSfMessage), 0U);
  EXPECT_EQ(logged(7, "10.1.11 Interconnection flush logic, topology change"), 1);
  EXPECT_EQ(steps(), "post 7; flush 3; flush 3; -> protection; SF > 1");
  EXPECT_THAT(posts(), ElementsAre(kTopologyChange));
  EXPECT_EQ(process(3, kSfMessage), 0U);
  EXPECT_EQ(steps(), "-> protection; SF > 1") << "the same message once more";
  EXPECT_THAT(bytes_of(pair.sub->remote_node_id, kMacLength),
              ::testing::ElementsAreArray(kRemoteNode));
}

TEST_F(SubRingReceiveTest, a_node_id_counts_before_its_message_is_acted_on) {
  pair.sub->State = 5;
  pair.sub->local_priority = 0;
  std::fill_n(pair.sub->remote_node_id, kMacLength, 0xFF);  // of the last message
  set_port(port0(pair.sub), kLinkUp, kDiscarding);
  platform.clear_journal();
  EXPECT_EQ(process(3, {.source = kLowerNode, .request = kNr, .node_id = kLowerNode}), 0U);
  EXPECT_EQ(steps(), "unblock 3; -> pending; NR > 1") << "opened in time for the message itself";
}

TEST_F(SubRingReceiveTest, the_pair_is_kept_in_the_own_port_wherever_the_message_came_from) {
  process(1, kSfMessage);
  EXPECT_EQ(stored_node_id(port0(pair.sub)), kRemoteNode);
  EXPECT_EQ(stored_node_id(port0(pair.major)), MacAddress{});
}

TEST_F(SubRingReceiveTest, a_flush_by_a_message_that_is_known_tells_the_major_ring_nothing) {
  process(3, kSfMessage);
  posts();
  store_pair(port0(pair.sub), {}, 0);
  process(3, kSfMessage);
  EXPECT_THAT(posts(), IsEmpty()) << "the 32 bytes are the same";
}

TEST_F(SubRingReceiveTest, while_the_guard_timer_runs_nothing_is_processed_and_only_events_pass) {
  pair.sub->guard_running = 1;
  for (uint8_t request = 0; request < 16; ++request) {
    platform.clear_journal();
    const FrameSpec frame = {.request = request, .dnf = true};
    EXPECT_EQ(process(3, frame), request == kEvent ? 0U : 23U) << int{request};
    EXPECT_EQ(logged(7,
                     "R-APS messages with request/state field = '1110' are not affected by the "
                     "guard timer \n"),
              request == kEvent ? 0 : 1)
        << int{request};
    EXPECT_EQ(logged(7, " Direct forward packet. \n"), request == kEvent ? 1 : 0);
    EXPECT_EQ(logged_part("enter msg = "), 0) << int{request};
    EXPECT_EQ(steps(), request == kEvent ? "Event,DNF > 1" : "") << int{request};
  }
}

TEST_F(SubRingReceiveTest, the_guard_does_not_keep_a_message_from_the_flush) {
  pair.sub->guard_running = 1;
  EXPECT_EQ(process(3, kSfMessage), 23U);
  EXPECT_EQ(steps(), "post 7; flush 3");
}

TEST_F(SubRingReceiveTest, a_dropped_frame_counts_as_handled_by_the_selection_of_rings) {
  pair.sub->guard_running = 1;
  EXPECT_EQ(deliver(3, for_sub_ring(kSfMessage)), 0U);
}

TEST_F(SubRingReceiveTest, a_repeated_ms_is_forwarded_even_while_the_guard_timer_runs) {
  process(3, {.request = kMs});
  ASSERT_EQ(pair.sub->State, 3);
  pair.sub->guard_running = 1;
  platform.clear_journal();
  EXPECT_EQ(process(3, {.request = kMs}), 0U);
  EXPECT_EQ(logged(7, " Direct forward packet. \n"), 1);
  EXPECT_EQ(steps(), "MS > 1");
}

TEST_F(SubRingReceiveTest, a_refused_message_is_forwarded) {
  pair.sub->local_priority = 13;
  EXPECT_EQ(process(3, {.request = kSf, .dnf = true}), 0U);
  EXPECT_EQ(logged_at("erps_sub_ring_pdu_proc", " no top priority request. \n"), 1);
  EXPECT_EQ(logged(7, " Direct forward packet. \n"), 1);
  EXPECT_EQ(steps(), "SF,DNF > 1");
}

TEST_F(SubRingReceiveTest, a_frame_is_forwarded_unchanged) {
  const FrameSpec frame = for_sub_ring({.request = kEvent, .sub_code = 3, .rb = true, .dnf = true});
  for (const uint32_t port : {1U, 3U}) {
    deliver(port, frame);
    ASSERT_EQ(platform.sent_frames().size(), 1U);
    EXPECT_EQ(platform.sent_frames()[0].bytes, frame.bytes());
    platform.clear_journal();
  }
}

}  // namespace
}  // namespace erps::test
