// The major ring's side of an interconnection node.
#include "erps/raps/interconnection.h"

#include "erps/link/link_state.h"
#include "tests/unit/reception_fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint8_t kMark = 0xA;
const char* const kCut = "10 for ring 2: 1";
const char* const kWhole = "10 for ring 2: 2";

using InterconnectionTest = ReceptionTest;

// --- At a node that only marks.

TEST_F(InterconnectionTest, a_marking_node_marks_every_message_it_forwards) {
  for (const uint32_t inter_node_role : {0U, 2U, UINT32_MAX}) {
    idle_pair(inter_node_role);
    for (uint8_t request = 0; request < 16; ++request) {
      for (const uint8_t sub_code : {uint8_t{0}, uint8_t{5}, uint8_t{10}, uint8_t{15}}) {
        platform.clear_journal();
        const FrameSpec frame = {.request = request, .sub_code = sub_code, .dnf = true};
        EXPECT_EQ(deliver(1, frame), 0U);
        FrameSpec marked = frame;
        marked.sub_code = kMark;
        ASSERT_EQ(platform.sent_frames().size(), 1U) << int{request};
        EXPECT_EQ(platform.sent_frames()[0].bytes, marked.bytes()) << int{request};
        EXPECT_EQ(platform.sent_frames()[0].port, 2U);
      }
    }
    EXPECT_THAT(posts(), IsEmpty());
    reset_module();
    erps_event_queue = platform.receiver_handle();
  }
}

TEST_F(InterconnectionTest, a_marking_node_counts_no_failures) {
  const RingPair pair = idle_pair(0);
  deliver(1, {.request = kSf});
  EXPECT_EQ(port0(pair.major)->fail_count, 0U);
  EXPECT_THAT(posts(), IsEmpty());
}

TEST_F(InterconnectionTest, a_marking_node_remembers_which_port_failed) {
  const RingPair pair = idle_pair(0);
  ERPSM_T* major = pair.major;
  struct Case {
    uint32_t link, port;
    uint16_t link0, link1;
    int32_t fault_port;
  };
  for (const Case& c :
       {Case{0, 1, 1, 1, 1}, Case{0, 2, 1, 1, 2}, Case{0, 1, 1, 0, 1}, Case{1, 1, 0, 1, 1},
        Case{1, 1, 0, 0, 2}, Case{1, 2, 0, 0, 1}, Case{2, 1, 0, 0, 1}}) {
    port0(major)->link_status = c.link0;
    port1(major)->link_status = c.link1;
    major->inter_fault_port = 77;
    erps_interconnectnode_special_proc(major, nullptr, c.link, c.port);
    EXPECT_EQ(major->inter_fault_port, c.fault_port)
        << "link " << c.link << " of port " << c.port << ", recorded " << c.link0 << c.link1;
  }
  EXPECT_THAT(posts(), IsEmpty());
}

// --- At a node that watches for its sub-ring: received messages.

// A message arrives on port 1 ("in") of the major ring while port 2 ("out") is as given.
struct Watched {
  const char* what;
  uint32_t in_count;   // failures counted on the arrival port
  uint32_t out_count;  // and on the other port
  uint16_t out_link;
  bool pair_stored;  // the arrival port remembers (kRemoteNode, BPR 0), the sender of the message
  FrameSpec message;
  uint32_t counted;  // on the arrival port afterwards
  const char* post;
};

const FrameSpec kNrMessage = {.request = kNr};
const FrameSpec kNrRbMessage = {.request = kNr, .rb = true};
const FrameSpec kSfMessage = {.request = kSf};
const FrameSpec kSfOther = {.request = kSf, .node_id = kLowerNode};
const FrameSpec kSfOtherBpr = {.request = kSf, .bpr = true};
const FrameSpec kMarkedSf = {.request = kSf, .sub_code = kMark};
const FrameSpec kMarkedNr = {.request = kNr, .sub_code = kMark};
const FrameSpec kMarkedNrRb = {.request = kNr, .sub_code = kMark, .rb = true};

const Watched kWatched[] = {
    // Marked: the other side of the major ring is whole, as far as this port can see.
    {"marked, nothing counted", 0, 0, 0, false, kMarkedSf, 0, ""},
    {"marked, other port whole", 2, 0, 1, false, kMarkedSf, 0, ""},
    {"marked, other port in an odd link state", 2, 0, 2, false, kMarkedSf, 0, ""},
    {"marked, other link down", 2, 0, 0, false, kMarkedSf, 0, kWhole},
    {"marked, failures counted on the other port", 2, 1, 1, false, kMarkedSf, 0, kWhole},
    {"marked, both", 1, 1, 0, true, kMarkedSf, 0, kWhole},
    {"marked NR is finished after its own step", 0, 0, 0, true, kMarkedNr, 0, ""},
    {"marked NR is finished after its own step", 3, 0, 0, true, kMarkedNr, 0, kWhole},
    {"marked NR,RB is finished after its own step", 0, 1, 0, false, kMarkedNrRb, 0, ""},
    {"marked FS as any other", 1, 0, 0, true, {.request = kFs, .sub_code = kMark}, 0, kWhole},

    // NR after a stored pair: one report less.
    {"NR, one of two reports left", 2, 0, 0, true, kNrMessage, 1, ""},
    {"NR, last report, other link down", 1, 0, 0, true, kNrMessage, 0, kWhole},
    {"NR, last report, other port whole", 1, 0, 1, true, kNrMessage, 0, ""},
    {"NR, last report, other link odd", 1, 0, 2, true, kNrMessage, 0, kWhole},
    {"NR, last report, failures on the other port", 1, 3, 1, true, kNrMessage, 0, kWhole},
    {"NR, nothing counted stays at zero", 0, 0, 1, true, kNrMessage, 0, ""},
    {"NR, nothing counted, other link down", 0, 0, 0, true, kNrMessage, 0, kWhole},
    {"NR,RB counts as NR", 2, 0, 0, true, kNrRbMessage, 1, ""},
    {"NR with a foreign sub-code", 2, 0, 0, true, {.request = kNr, .sub_code = 5}, 1, ""},

    // NR without a stored pair: only RB tells that the ring is whole.
    {"NR, no pair", 2, 0, 0, false, kNrMessage, 2, ""},
    {"NR,RB, no pair, nothing counted", 0, 0, 0, false, kNrRbMessage, 0, ""},
    {"NR,RB, no pair, other link down", 3, 0, 0, false, kNrRbMessage, 0, kWhole},
    {"NR,RB, no pair, other port whole", 3, 0, 1, false, kNrRbMessage, 0, ""},
    {"NR,RB, no pair, failures on the other port", 3, 1, 1, false, kNrRbMessage, 0, kWhole},

    // SF: one report more for each distinct pair.
    {"SF counted already", 0, 1, 0, true, kSfMessage, 0, ""},
    {"SF counted already", 1, 1, 0, true, kSfMessage, 1, ""},
    {"SF, other port whole", 0, 0, 1, false, kSfMessage, 1, ""},
    {"SF, other link down", 0, 0, 0, false, kSfMessage, 1, kCut},
    {"SF, other link odd", 0, 0, 2, false, kSfMessage, 1, kCut},
    {"SF, failures on the other port", 0, 1, 1, false, kSfMessage, 1, kCut},
    {"SF of another node", 0, 1, 1, true, kSfOther, 1, kCut},
    {"SF of another BPR", 0, 1, 1, true, kSfOtherBpr, 1, kCut},
    {"a further SF adds to what is known", 1, 1, 0, true, kSfOther, 2, ""},
    {"SF with a foreign sub-code", 0, 0, 0, false, {.request = kSf, .sub_code = 5}, 1, kCut},

    // Nothing else counts.
    {"MS", 1, 1, 0, false, {.request = kMs}, 1, ""},
    {"FS", 1, 1, 0, false, {.request = kFs}, 1, ""},
    {"Event", 1, 1, 0, false, {.request = kEvent}, 1, ""},
    {"undefined", 1, 1, 0, false, {.request = 1}, 1, ""},
};

TEST_F(InterconnectionTest, a_watching_node_counts_reports_and_tells_its_sub_ring) {
  const RingPair pair = idle_pair(kWatching);
  ERPS_PORT_T* in = port0(pair.major);
  ERPS_PORT_T* out = port1(pair.major);
  for (const Watched& c : kWatched) {
    in->fail_count = c.in_count;
    out->fail_count = c.out_count;
    out->link_status = c.out_link;
    store_pair(in, c.pair_stored ? kRemoteNode : MacAddress{}, 0);
    Received frame(c.message, 1);
    const uint8_t request_byte = frame.request_byte();
    erps_interconnectnode_special_proc(pair.major, frame.descriptor(), 0, 0);
    EXPECT_EQ(in->fail_count, c.counted) << c.what;
    EXPECT_EQ(out->fail_count, c.out_count) << c.what;
    EXPECT_EQ(join(posts(), ", "), c.post) << c.what;
    EXPECT_EQ(frame.request_byte(), request_byte) << c.what << ": a watching node marks nothing";
  }
}

TEST_F(InterconnectionTest, a_stored_pair_may_be_a_bpr_alone) {
  const RingPair pair = idle_pair(kWatching);
  store_pair(port0(pair.major), {}, 1);
  port0(pair.major)->fail_count = 2;
  Received frame(kNrMessage, 1);
  erps_interconnectnode_pkt_proc(pair.major, frame.descriptor());
  EXPECT_EQ(port0(pair.major)->fail_count, 1U);
}

TEST_F(InterconnectionTest, reports_are_counted_for_the_port_they_arrive_on) {
  const RingPair pair = idle_pair(kWatching);
  Received frame(kSfMessage, 2);
  erps_interconnectnode_pkt_proc(pair.major, frame.descriptor());
  EXPECT_EQ(port0(pair.major)->fail_count, 0U);
  EXPECT_EQ(port1(pair.major)->fail_count, 1U);
}

TEST_F(InterconnectionTest, the_same_sf_twice_is_one_report) {
  const RingPair pair = idle_pair(kWatching);
  deliver(1, kSfMessage);
  deliver(1, kSfMessage);
  EXPECT_EQ(port0(pair.major)->fail_count, 1U);
  deliver(1, kSfOther);
  EXPECT_EQ(port0(pair.major)->fail_count, 2U);
}

TEST_F(InterconnectionTest, reports_end_one_by_one_and_an_nr_rb_ends_them_all) {
  const RingPair pair = idle_pair(kWatching);
  ERPS_PORT_T* in = port0(pair.major);
  deliver(1, kSfMessage);
  deliver(1, kSfOther);
  deliver(1, kSfOtherBpr);
  EXPECT_EQ(in->fail_count, 3U);
  deliver(1, kNrMessage);  // takes one report and the stored pair with it
  EXPECT_EQ(in->fail_count, 2U);
  deliver(1, kNrMessage);
  EXPECT_EQ(in->fail_count, 2U);
  deliver(1, kNrRbMessage);
  EXPECT_EQ(in->fail_count, 0U);
  deliver(1, kNrRbMessage);  // its own pair is stored now
  deliver(1, kNrMessage);
  EXPECT_EQ(in->fail_count, 0U) << "never below zero";
  EXPECT_THAT(posts(), IsEmpty()) << "the other side was whole all the time";
}

TEST_F(InterconnectionTest, reports_on_both_sides_open_the_sub_ring_and_one_side_back_closes_it) {
  idle_pair(kWatching);
  deliver(1, kSfMessage);
  EXPECT_THAT(posts(), IsEmpty());
  deliver(2, kSfOther);
  EXPECT_THAT(posts(), ElementsAre(kCut));
  deliver(1, kNrMessage);
  EXPECT_THAT(posts(), ElementsAre(kWhole));
  deliver(2, {.source = kLowerNode, .request = kNr, .node_id = kLowerNode});
  EXPECT_THAT(posts(), IsEmpty());
}

TEST_F(InterconnectionTest, what_a_watching_node_logs_when_a_failure_is_reported) {
  const RingPair pair = idle_pair(kWatching);
  port0(pair.major)->fail_count = 1;
  port1(pair.major)->fail_count = 4;
  port1(pair.major)->link_status = 0;
  store_pair(port0(pair.major), kLowerNode, 1);
  Received frame(kSfMessage, 1);
  erps_interconnectnode_pkt_proc(pair.major, frame.descriptor());
  const char* const function = "erps_interconnectnode_pkt_proc";
  EXPECT_EQ(logged_at(function,
                      "\nNODE DOWN EVENT master ring id = 1 sub ring_id = 2 in port : 2, out port "
                      ":3\nIn port fail count = 1 link state = 1\nOut port fail count = 4 link "
                      "state = 0\n"),
            1);
  EXPECT_EQ(logged_at(function, "\ninport :2, BPR : 1 , BPR NODE ID : 00:01:ff:ff:ff:ff\n"), 1);
  EXPECT_EQ(logged_at(function, "\ninport :2, BPR : 0 , BPR NODE ID : 00:aa:00:00:00:07\n"), 1);
}

TEST_F(InterconnectionTest, what_a_watching_node_logs_when_a_failure_ends) {
  const RingPair pair = idle_pair(kWatching);
  const char* const function = "erps_interconnectnode_pkt_proc";
  const char* const up =
      "\nNODE UP EVENT master ring id = 1 sub ring_id = 2 in port : 2, out port :3\nIn port fail "
      "count = 2 link state = 1\nOut port fail count = 0 link state = 1\n";
  port0(pair.major)->fail_count = 2;
  store_pair(port0(pair.major), kRemoteNode, 1);
  Received frame(kNrMessage, 1);
  erps_interconnectnode_pkt_proc(pair.major, frame.descriptor());
  EXPECT_EQ(logged_at(function, up), 1);
  EXPECT_EQ(logged_at(function, "\ninport :2, BPR : 1 , BPR NODE ID : 00:aa:00:00:00:07\n"), 1);

  platform.clear_journal();
  port0(pair.major)->fail_count = 2;
  store_pair(port0(pair.major), {}, 0);
  erps_interconnectnode_pkt_proc(pair.major, frame.descriptor());
  EXPECT_EQ(logged_at(function, up), 2) << "both lines come again without a stored pair";
  EXPECT_EQ(logged_at(function, "\ninport :2, BPR : 0 , BPR NODE ID : 00:00:00:00:00:00\n"), 2);
}

// --- At a watching node: its own links.

TEST_F(InterconnectionTest, a_watching_node_weighs_its_own_links) {
  struct Case {
    uint32_t link, in_count, out_count;
    uint16_t out_link;
    const char* post;
  };
  constexpr uint32_t kDown = 0;
  constexpr uint32_t kUp = 1;
  constexpr uint32_t kOdd = 2;  // any state but 1 is a failure
  const Case cases[] = {
      {kDown, 0, 0, 1, ""},   {kDown, 0, 0, 0, kCut}, {kDown, 0, 0, 2, kCut},
      {kDown, 0, 1, 1, kCut}, {kDown, 0, 1, 0, kCut}, {kDown, 1, 0, 0, ""},
      {kDown, 1, 1, 1, ""},   {kUp, 0, 0, 1, ""},     {kUp, 0, 0, 0, kWhole},
      {kUp, 0, 0, 2, kWhole}, {kUp, 0, 1, 1, kWhole}, {kUp, 0, 1, 0, kWhole},
      {kUp, 1, 0, 0, ""},     {kUp, 1, 1, 1, ""},     {kOdd, 0, 0, 0, kCut},
      {kOdd, 0, 0, 1, ""},
  };
  const RingPair pair = idle_pair(kWatching);
  for (const Case& c : cases) {
    for (const uint32_t port : {1U, 2U}) {
      ERPS_PORT_T* in = port == 1 ? port0(pair.major) : port1(pair.major);
      ERPS_PORT_T* out = port == 1 ? port1(pair.major) : port0(pair.major);
      in->fail_count = c.in_count;
      in->link_status = 1;
      out->fail_count = c.out_count;
      out->link_status = c.out_link;
      erps_interconnectnode_special_proc(pair.major, nullptr, c.link, port);
      EXPECT_EQ(join(posts(), ", "), c.post)
          << "link " << c.link << ", counted " << c.in_count << " and " << c.out_count
          << ", other link " << c.out_link;
      EXPECT_EQ(in->fail_count, c.in_count);
      EXPECT_EQ(pair.major->inter_fault_port, kNoPort);
    }
  }
}

TEST_F(InterconnectionTest, what_a_watching_node_logs_about_its_links) {
  const RingPair pair = idle_pair(kWatching);
  port0(pair.major)->link_status = 0;
  port0(pair.major)->fail_count = 3;
  port1(pair.major)->fail_count = 4;
  erps_interconnectnode_link_proc(pair.major, 0, 1);
  EXPECT_EQ(logged_at("erps_interconnectnode_link_proc",
                      "in port:2 link state = 0, in port fail count : 3 out_port:3 link state :1 "
                      "out port fail count = 4\n"),
            1);
}

TEST_F(InterconnectionTest, losing_the_second_side_opens_the_sub_rings_port) {
  const RingPair pair = idle_pair(kWatching);
  port0(pair.major)->fail_count = 1;
  set_port(port0(pair.sub), kLinkUp, kDiscarding);
  platform.clear_journal();
  erps_link_change_trigger(2, 0);
  EXPECT_EQ(pair.sub->State, 1) << "told by an event, after the link change is done with";
  steps();
  handle_events();
  EXPECT_EQ(pair.sub->State, 3);
  EXPECT_EQ(port0(pair.sub)->port_state, kForwarding);
  EXPECT_EQ(steps(),
            "MS,DNF > 1; MS,DNF > 1; MS,DNF > 1; MS,DNF > 3; MS,DNF > 3; MS,DNF > 3; "
            "repeat; -> manual; unblock 3");
}

}  // namespace
}  // namespace erps::test
