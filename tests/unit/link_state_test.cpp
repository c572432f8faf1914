#include "erps/link/link_state.h"

#include "erps/raps/transmit.h"
#include "erps/timer/protocol_timers.h"
#include "tests/unit/protocol_fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;

const std::string kPort2Fails = "block 2; SF,BPR > 1; repeat; flush 1; flush 2; -> protection";

class LinkStateTest : public ProtocolTest {
 protected:
  void change(uint32_t interface, uint32_t status) {
    EXPECT_EQ(erps_link_change_trigger(interface, status), 0U);
  }
};

TEST_F(LinkStateTest, link_states_make_requests) {
  EXPECT_EQ(get_link_request(1), 10U);
  for (const uint32_t status : {0U, 2U, 3U, 0x10001U, UINT32_MAX}) {
    EXPECT_EQ(get_link_request(status), 11U) << status;
  }
}

// --- Without hold-off.

TEST_F(LinkStateTest, a_failed_link_is_a_signal_fail_at_once) {
  ERPSM_T* ring = idle_ring();
  change(2, 0);
  EXPECT_EQ(steps(), kPort2Fails);
  EXPECT_EQ(port1(ring)->link_status, 0);
  EXPECT_EQ(ring->local_priority, 11U);
}

TEST_F(LinkStateTest, any_state_but_1_is_a_failure_and_recorded_as_it_is) {
  ERPSM_T* ring = idle_ring();
  change(2, 2);
  EXPECT_EQ(port1(ring)->link_status, 2);
  EXPECT_EQ(ring->State, 2);
  EXPECT_EQ(ring->local_priority, 11U);
}

TEST_F(LinkStateTest, a_recovered_link_ends_the_signal_fail) {
  ERPSM_T* ring = idle_ring();
  change(2, 0);
  steps();
  change(2, 1);
  EXPECT_EQ(steps(), "start guard; NR,BPR > 1; repeat; -> pending");
  EXPECT_EQ(port1(ring)->link_status, 1);
  EXPECT_EQ(port1(ring)->port_state, kDiscarding) << "closed until the ring says otherwise";
}

TEST_F(LinkStateTest, one_of_two_failed_links_recovers) {
  ERPSM_T* ring = idle_ring();
  change(2, 0);
  change(1, 0);
  EXPECT_EQ(ring->State, 2);
  steps();
  change(2, 1);
  EXPECT_EQ(steps(), "block 1; unblock 2; SF,BPR > 2; repeat; flush 2; -> protection")
      << "port 1 is still down";
  EXPECT_EQ(ring->local_priority, 11U);
}

TEST_F(LinkStateTest, a_second_failure_is_recorded_but_its_request_refused) {
  ERPSM_T* ring = idle_ring();
  change(2, 0);
  steps();
  change(1, 0);
  EXPECT_EQ(steps(), "");
  EXPECT_EQ(port0(ring)->link_status, 0);
  EXPECT_EQ(ring->event_port, 1);
  EXPECT_EQ(ring->flush_port, 1);
}

TEST_F(LinkStateTest, a_repeated_failure_records_nothing_but_is_offered_and_signalled_again) {
  const RingPair pair = idle_pair(0);
  change(3, 0);
  EXPECT_THAT(posts(), ElementsAre("7 for ring 1"));
  pair.sub->event_port = 77;
  pair.sub->flush_port = 77;
  platform.clear_journal();
  change(3, 0);
  EXPECT_THAT(posts(), ElementsAre("7 for ring 1"));
  EXPECT_EQ(pair.sub->event_port, 77);
  EXPECT_EQ(pair.sub->flush_port, 77);
  EXPECT_EQ(logged_at("erps_priority_logic",
                      "enter msg = 11 this->current_priority = 11  this->local_priority = 11 \n"),
            1);
}

TEST_F(LinkStateTest, a_link_that_was_up_already_changes_nothing) {
  ERPSM_T* ring = idle_ring();
  change(1, 1);
  EXPECT_EQ(steps(), "");
  EXPECT_EQ(ring->event_port, kNoPort);
  EXPECT_EQ(ring->current_priority, 10U) << "refused, but remembered";
}

TEST_F(LinkStateTest, a_stopped_ring_says_so_and_changes_nothing) {
  ERPSM_T* ring = idle_ring();
  for (const uint8_t enable : {uint8_t{0}, uint8_t{2}}) {
    ring->enable = enable;
    change(2, 0);
    EXPECT_EQ(
        logged_at("erps_link_change_trigger", "-----------------ERPS DISABLE ..................\n"),
        1);
    EXPECT_EQ(steps(), "");
    EXPECT_EQ(port1(ring)->link_status, 1);
  }
}

TEST_F(LinkStateTest, an_interface_of_no_ring_changes_nothing) {
  ERPSM_T* ring = idle_ring();
  change(9, 0);
  EXPECT_EQ(logged_at("erps_interfaceid_is_legal", "---------port is illegal :9------------"), 1);
  EXPECT_EQ(steps(), "");
  EXPECT_EQ(ring->current_priority, 0U);
}

TEST_F(LinkStateTest, an_interface_is_legal_on_the_ports_that_count) {
  const RingPair pair = idle_pair(0);
  EXPECT_EQ(erps_interfaceid_is_legal(1, pair.major), 1U);
  EXPECT_EQ(erps_interfaceid_is_legal(2, pair.major), 1U);
  EXPECT_EQ(erps_interfaceid_is_legal(3, pair.major), 0U);
  EXPECT_EQ(erps_interfaceid_is_legal(3, pair.sub), 1U);
  EXPECT_EQ(erps_interfaceid_is_legal(kAbsentPort, pair.sub), 0U);
}

TEST_F(LinkStateTest, a_sub_ring_ignores_its_second_port) {
  ERPSM_T* sub = idle_ring(kSubRingSpec);
  port1(sub)->link_status = 1;
  change(kAbsentPort, 0);
  EXPECT_EQ(steps(), "");
  EXPECT_EQ(port1(sub)->link_status, 1);
  erps_record_port_link_status(sub, kAbsentPort, 0);
  EXPECT_EQ(port1(sub)->link_status, 1);
  EXPECT_EQ(sub->event_port, kNoPort);
}

TEST_F(LinkStateTest, rings_that_share_an_interface_are_handled_newest_first) {
  idle_ring();
  idle_ring({.id = 2, .port0 = 2, .port1 = 3});
  ERPSM_T* stopped = idle_ring({.id = 3, .port0 = 2, .port1 = 4});
  stopped->enable = 0;
  change(2, 0);
  EXPECT_EQ(steps(), "block 2; SF > 3; repeat; flush 2; flush 3; -> protection; " + kPort2Fails);
  EXPECT_EQ(stopped->State, 1);
}

TEST_F(LinkStateTest, a_change_is_recorded_with_the_port_it_happened_on) {
  ERPSM_T* ring = idle_ring();
  erps_record_port_link_status(ring, 2, 0);
  EXPECT_EQ(logged(7, "erps_record_port_link_status \n"), 1);
  EXPECT_EQ(port1(ring)->link_status, 0);
  EXPECT_EQ(ring->event_port, 2);
  EXPECT_EQ(ring->flush_port, 2);
  ring->event_port = kNoPort;
  ring->flush_port = kAbsentPort;
  erps_record_port_link_status(ring, 2, 0);
  erps_record_port_link_status(ring, 9, 0);
  EXPECT_EQ(ring->event_port, kNoPort);
  EXPECT_EQ(ring->flush_port, static_cast<int32_t>(kAbsentPort));
}

TEST_F(LinkStateTest, one_change_is_recorded_for_one_port) {
  ERPSM_T* ring = idle_ring({.port0 = 5, .port1 = 5});
  erps_record_port_link_status(ring, 5, 0);
  EXPECT_EQ(port0(ring)->link_status, 0);
  EXPECT_EQ(port1(ring)->link_status, 1);
}

TEST_F(LinkStateTest, the_major_ring_at_an_interconnection_node_looks_before_it_records) {
  const RingPair pair = idle_pair(kWatching);
  port0(pair.major)->link_status = 0;  // the other side is gone already
  change(2, 0);
  EXPECT_THAT(posts(), ElementsAre("10 for ring 2: 1"));
  EXPECT_EQ(logged_part("in port:3 link state = "), 1) << "ports are printed plus one";
}

TEST_F(LinkStateTest, a_ring_without_partner_has_no_interconnection_to_look_at) {
  ERPSM_T* ring = idle_ring();
  ring->inter_node_role = 0;
  change(2, 0);
  EXPECT_EQ(ring->inter_fault_port, kNoPort);
  EXPECT_THAT(posts(), ElementsAre());
}

// --- At the start of a ring.

TEST_F(LinkStateTest, starting_a_port_opens_it_if_its_link_is_up) {
  ERPSM_T* ring = idle_ring();
  struct Case {
    uint32_t link;
    uint16_t recorded, state;
  };
  for (const Case& c : {Case{1, 1, kForwarding}, Case{0, 0, kDiscarding}, Case{2, 2, kForwarding},
                        Case{0x10000, 0, kDiscarding}, Case{0x10001, 1, kForwarding},
                        Case{0xFFFF, 0xFFFF, kForwarding}}) {
    platform.set_link(2, c.link);
    platform.clear_journal();
    EXPECT_EQ(erps_port_start_init(port1(ring), ring), 0);
    EXPECT_EQ(port1(ring)->link_status, c.recorded) << c.link;
    EXPECT_EQ(port1(ring)->port_state, c.state) << c.link;
    EXPECT_THAT(platform.calls(),
                ElementsAre("adp_get_phy_port_attr(2, 11)",
                            "adp_set_port_erps_state(2, " + std::to_string(c.state) + ")"));
    EXPECT_EQ(
        logged_at("erps_port_start_init", "INT:2 \t link state = " + std::to_string(c.link) + "\n"),
        1);
  }
}

TEST_F(LinkStateTest, starting_a_port_forgets_half_of_the_stored_node_id) {
  ERPSM_T* ring = idle_ring();
  store_pair(port0(ring), {1, 2, 3, 4, 5, 6}, 1);
  erps_port_start_init(port0(ring), ring);
  EXPECT_EQ(stored_node_id(port0(ring)), (MacAddress{1, 2, 3, 0, 0, 0}));
  EXPECT_EQ(port0(ring)->rx_bpr, 1);
}

TEST_F(LinkStateTest, starting_a_port_gives_the_switchs_answer) {
  ERPSM_T* ring = idle_ring();
  platform.set_port_state_result(1, -5);
  EXPECT_EQ(erps_port_start_init(port0(ring), ring), -5);
  EXPECT_EQ(port0(ring)->port_state, kForwarding);
}

TEST_F(LinkStateTest, the_first_look_at_a_port_raises_its_request) {
  ERPSM_T* ring = idle_ring();
  platform.set_link(2, 0);
  erps_port_status_init(port1(ring), ring);
  EXPECT_EQ(logged_at("erps_port_status_init", "erps_port_status_init\n"), 1);
  EXPECT_EQ(logged_at("erps_port_status_init", "Port : 2 link state :0\n"), 1);
  EXPECT_EQ(steps(), kPort2Fails);
}

TEST_F(LinkStateTest, the_first_look_does_not_hold_off) {
  holdoff_timer_time = 1000;
  ERPSM_T* ring = idle_ring();
  erps_link_trigger_init(ring, 2, 0);
  EXPECT_EQ(steps(), kPort2Fails);
}

}  // namespace
}  // namespace erps::test
