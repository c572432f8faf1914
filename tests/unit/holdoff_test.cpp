// The hold-off time before a link failure is reported.
#include "erps/link/link_state.h"
#include "erps/timer/protocol_timers.h"
#include "tests/unit/protocol_fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;

const std::string kPort2Fails = "block 2; SF,BPR > 1; repeat; flush 1; flush 2; -> protection";

class HoldoffTest : public ProtocolTest {
 protected:
  HoldoffTest() { holdoff_timer_time = 1000; }

  static void change(uint32_t interface, uint32_t status) {
    erps_link_change_trigger(interface, status);
  }
};

TEST_F(HoldoffTest, a_failure_is_reported_when_the_hold_off_ends) {
  ERPSM_T* ring = idle_ring();
  change(2, 0);
  EXPECT_EQ(steps(), "start hold-off");
  EXPECT_EQ(ring->holdoff_running, 1U);
  EXPECT_EQ(erps_holdoff_interface(1), 2);
  EXPECT_EQ(port1(ring)->link_status, 1) << "not recorded yet";
  pass_ms(999);
  EXPECT_EQ(steps(), "");
  pass_ms(1);
  EXPECT_EQ(steps(), "post 3");
  handle_events();
  EXPECT_EQ(steps(), kPort2Fails);
  EXPECT_EQ(ring->holdoff_running, 0U);
  EXPECT_EQ(port1(ring)->link_status, 0);
}

TEST_F(HoldoffTest, a_link_that_is_back_in_time_was_never_reported) {
  ERPSM_T* ring = idle_ring();
  change(2, 0);
  pass_ms(300);
  steps();
  change(2, 1);
  EXPECT_EQ(steps(), "stop hold-off");
  EXPECT_EQ(ring->State, 1);
  EXPECT_EQ(ring->local_priority, 0U);
  EXPECT_EQ(port1(ring)->link_status, 1);
  EXPECT_EQ(ring->event_port, kNoPort);
  EXPECT_EQ(ring->holdoff_running, 0U);
  pass_ms(5000);
  EXPECT_EQ(steps(), "");
}

TEST_F(HoldoffTest, only_the_recovery_signals_a_topology_change) {
  idle_pair(0);
  change(3, 0);
  EXPECT_THAT(posts(), ElementsAre());
  change(3, 1);
  EXPECT_THAT(posts(), ElementsAre("7 for ring 1"));
}

TEST_F(HoldoffTest, a_second_failing_port_is_reported_at_once_and_the_first_keeps_its_entry) {
  ERPSM_T* ring = idle_ring();
  change(1, 0);
  steps();
  change(2, 0);
  EXPECT_EQ(steps(), "stop hold-off; " + kPort2Fails);
  EXPECT_EQ(erps_holdoff_interface(1), 1);
  EXPECT_EQ(port0(ring)->link_status, 1) << "its own failure was never reported";
  EXPECT_EQ(ring->holdoff_running, 0U);
}

TEST_F(HoldoffTest, the_same_port_failing_again_is_reported_at_once_too) {
  idle_ring();
  change(2, 0);
  steps();
  change(2, 0);
  EXPECT_EQ(steps(), "stop hold-off; " + kPort2Fails);
}

TEST_F(HoldoffTest, a_third_failure_starts_a_new_hold_off) {
  idle_ring();
  change(1, 0);
  change(2, 0);
  steps();
  change(1, 0);
  EXPECT_EQ(steps(), "start hold-off");
  EXPECT_EQ(erps_holdoff_interface(1), 1);
}

TEST_F(HoldoffTest, a_recovery_of_any_port_ends_it) {
  ERPSM_T* ring = idle_ring();
  change(1, 0);
  steps();
  change(2, 1);
  EXPECT_EQ(steps(), "stop hold-off");
  EXPECT_EQ(ring->State, 1);
}

TEST_F(HoldoffTest, the_failure_is_reported_even_if_the_link_came_back_unnoticed) {
  ERPSM_T* ring = idle_ring();
  change(2, 0);
  platform.set_link(2, 1);
  pass_ms(1000);
  handle_events();
  EXPECT_EQ(ring->State, 2);
  EXPECT_THAT(platform.calls({"adp_get_phy_port_attr"}), ElementsAre());
}

TEST_F(HoldoffTest, switching_hold_off_off_reports_the_next_failure_and_ends_the_one_running) {
  idle_ring();
  change(1, 0);
  steps();
  holdoff_timer_time = 0;
  change(2, 0);
  EXPECT_EQ(steps(), "stop hold-off; " + kPort2Fails);
}

TEST_F(HoldoffTest, each_ring_holds_off_by_itself) {
  idle_ring();
  idle_ring({.id = 2, .port0 = 2, .port1 = 3});
  change(2, 0);
  EXPECT_EQ(steps(), "start hold-off; start hold-off");
  EXPECT_EQ(erps_holdoff_interface(1), 2);
  EXPECT_EQ(erps_holdoff_interface(2), 2);
  change(3, 0);
  EXPECT_EQ(steps(), "stop hold-off; block 3; SF,BPR > 2; repeat; flush 2; flush 3; -> protection");
}

TEST_F(HoldoffTest, an_expiry_on_a_sub_ring_signals_a_topology_change_and_no_interconnection) {
  const RingPair pair = idle_pair(kWatching);
  change(3, 0);
  pass_ms(1000);
  handle_events();
  EXPECT_THAT(posts(), ElementsAre("7 for ring 1"));
  EXPECT_EQ(port0(pair.sub)->link_status, 0);
  EXPECT_EQ(logged_part("in port:"), 0);
}

TEST_F(HoldoffTest, an_expiry_on_the_major_ring_tells_its_sub_ring) {
  const RingPair pair = idle_pair(kWatching);
  port0(pair.major)->fail_count = 1;
  change(2, 0);
  pass_ms(1000);
  handle_events();
  EXPECT_THAT(posts(), ElementsAre("10 for ring 2: 1"));
}

TEST_F(HoldoffTest, a_recovery_in_time_is_weighed_at_an_interconnection_node_all_the_same) {
  const RingPair watching = idle_pair(kWatching);
  port1(watching.major)->fail_count = 1;  // a failure behind the other port
  change(1, 0);
  EXPECT_THAT(posts(), ElementsAre()) << "the failure itself is held off";
  change(1, 1);
  EXPECT_THAT(posts(), ElementsAre("10 for ring 2: 2"));

  reset_module();
  holdoff_timer_time = 1000;
  const RingPair marking = idle_pair(0);
  change(1, 0);
  EXPECT_EQ(marking.major->inter_fault_port, kNoPort);
  change(1, 1);
  EXPECT_EQ(marking.major->inter_fault_port, 1);
}

TEST_F(HoldoffTest, the_consequences_of_an_expiry_come_without_the_request) {
  ERPSM_T* ring = idle_ring();
  change(2, 0);
  steps();
  erps_holdoff_expired(ring);
  EXPECT_EQ(steps(), "");
  EXPECT_EQ(port1(ring)->link_status, 0);
  EXPECT_EQ(ring->holdoff_running, 0U);
  EXPECT_EQ(ring->event_port, 2);
}

TEST_F(HoldoffTest, rings_outside_1_to_239_report_at_once) {
  for (const uint32_t id : {0U, 1U, 2U, 238U, 239U, 240U, 300U, UINT32_MAX}) {
    holdoff_timer_time = 1000;
    ERPSM_T* ring = idle_ring({.id = id});
    const bool holds_off = id >= 1 && id <= 239;
    EXPECT_EQ(erps_has_holdoff_entry(id), holds_off) << id;
    change(2, 0);
    EXPECT_EQ(steps(), holds_off ? "start hold-off" : kPort2Fails) << id;
    EXPECT_EQ(ring->holdoff_running, holds_off ? 1U : 0U) << id;
    EXPECT_EQ(erps_holdoff_interface(id), holds_off ? 2 : kNoPort) << id;
    reset_module();
  }
}

TEST_F(HoldoffTest, entries_are_kept_for_1_to_239_only) {
  for (const uint32_t id : {1U, 239U}) {
    erps_set_holdoff_interface(id, 17);
    EXPECT_EQ(erps_holdoff_interface(id), 17);
  }
  for (const uint32_t id : {0U, 240U, 300U, UINT32_MAX}) {
    erps_set_holdoff_interface(id, 18);
    EXPECT_EQ(erps_holdoff_interface(id), kNoPort) << id;
  }
  EXPECT_EQ(erps_holdoff_interface(1), 17);
  EXPECT_EQ(erps_holdoff_interface(239), 17);
}

}  // namespace
}  // namespace erps::test
