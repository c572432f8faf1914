#include "erps/ring/ring_start.h"

#include <cstring>

#include "erps/fsm/requests.h"
#include "erps/link/link_state.h"
#include "erps/raps/transmit.h"
#include "erps/timer/protocol_timers.h"
#include "erps/timer/timer_task.h"
#include "tests/unit/fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::set<std::string> kPortCalls = {"adp_set_port_erps_state", "adp_get_phy_port_attr"};

class RingStartTest : public ModuleTest {
 protected:
  // Calls from the first to the last port that start reads, before the state machine runs.
  std::vector<std::string> first_port_calls(size_t count) const {
    std::vector<std::string> calls = platform.calls(kPortCalls);
    calls.resize(std::min(count, calls.size()));
    return calls;
  }
};

TEST_F(RingStartTest, ResetForgetsPrioritiesAndStateOnly) {
  ERPSM_T* ring = make_ring();
  ring->current_priority = 13;
  ring->State = STATE_FORCED;
  ring->mach_enter = 2;
  ring->local_priority = 13;
  ring->state_entered = 1;
  ring->enable = 1;
  EXPECT_EQ(erps_sm_reset(ring), 0U);
  EXPECT_EQ(ring->current_priority, 0U);
  EXPECT_EQ(ring->State, STATE_INIT);
  EXPECT_EQ(ring->mach_enter, 0U);
  EXPECT_EQ(ring->local_priority, 0U);
  EXPECT_EQ(ring->state_entered, 1);
  EXPECT_EQ(ring->enable, 1);
}

TEST_F(RingStartTest, StartReadsEachLinkAndOpensThePort) {
  ERPSM_T* ring = make_ring({.port0 = 11, .port1 = 12});
  EXPECT_EQ(erps_start_func(ring, "any caller"), 0U);
  EXPECT_THAT(first_port_calls(4),
              ElementsAre("adp_get_phy_port_attr(11, 11)", "adp_set_port_erps_state(11, 4)",
                          "adp_get_phy_port_attr(12, 11)", "adp_set_port_erps_state(12, 4)"));
  EXPECT_EQ(port0(ring)->link_status, 1);
  EXPECT_EQ(port1(ring)->link_status, 1);
}

TEST_F(RingStartTest, PortWhoseLinkIsDownStartsDiscarding) {
  platform.set_link(2, 0);
  ERPSM_T* ring = make_ring();
  erps_start_func(ring, "");
  EXPECT_THAT(first_port_calls(4),
              ElementsAre("adp_get_phy_port_attr(1, 11)", "adp_set_port_erps_state(1, 4)",
                          "adp_get_phy_port_attr(2, 11)", "adp_set_port_erps_state(2, 1)"));
  EXPECT_EQ(port1(ring)->link_status, 0);
  EXPECT_EQ(port1(ring)->port_state, kDiscarding);
}

TEST_F(RingStartTest, PortThatIsDownAtStartTakesTheRingToProtection) {
  platform.set_link(1, 0);
  ERPSM_T* ring = make_ring();
  erps_start_func(ring, "");
  EXPECT_EQ(ring->State, STATE_PROTECTION);
  EXPECT_EQ(ring->local_priority, REQUEST_LOCAL_SF);
}

TEST_F(RingStartTest, SubRingStartsItsFirstPortOnly) {
  ERPSM_T* ring = make_ring({.port0 = 7, .port1 = 255, .ring_role = kSubRing});
  erps_start_func(ring, "");
  for (const std::string& call : platform.calls(kPortCalls)) {
    EXPECT_EQ(call.find("(255"), std::string::npos) << call;
  }
  EXPECT_EQ(port0(ring)->link_status, 1);
  EXPECT_EQ(port1(ring)->link_status, 0);
}

TEST_F(RingStartTest, TimersGetTheirNamesOwnersAndActions) {
  ERPSM_T* ring = make_ring();
  erps_start_func(ring, "");
  EXPECT_STREQ(ring->wtr_timer.name, "WTR Timer");
  EXPECT_STREQ(ring->wtb_timer.name, "WTB Timer");
  EXPECT_STREQ(ring->guard_timer.name, "Guard Timer");
  EXPECT_STREQ(ring->raps_timer.name, "Send Raps Timer");
  EXPECT_STREQ(ring->holdoff_timer.name, "Holdoff timer");
  EXPECT_EQ(ring->wtr_timer.callback, erps_wtr_expire);
  EXPECT_EQ(ring->wtb_timer.callback, erps_wtb_expire);
  EXPECT_EQ(ring->guard_timer.callback, erps_guard_expire);
  EXPECT_EQ(ring->raps_timer.callback, erps_send_raps_expire);
  EXPECT_EQ(ring->holdoff_timer.callback, erps_holdoff_timer_expire);
  for (const ERPS_TIMER_T* timer : {&ring->wtr_timer, &ring->wtb_timer, &ring->guard_timer,
                                    &ring->raps_timer, &ring->holdoff_timer}) {
    EXPECT_EQ(timer->arg, ring);
  }
}

TEST_F(RingStartTest, StartSetsWhatAStoppedRingLeftBehind) {
  ERPSM_T* ring = make_ring({.id = 17});
  ring->inter_fault_port = 5;
  ring->event_port = 5;
  ring->holdoff_running = 1;
  ring->notify_state = 2;
  ring->current_priority = 13;
  ring->local_priority = 13;
  ring->State = STATE_FORCED;
  erps_set_holdoff_interface(17, 99);

  erps_start_func(ring, "");

  EXPECT_EQ(ring->inter_fault_port, kNoPort);
  EXPECT_EQ(ring->event_port, kNoPort);
  EXPECT_EQ(ring->holdoff_running, 0U);
  EXPECT_EQ(ring->notify_state, 0);
  EXPECT_EQ(ring->enable, 1);
  EXPECT_EQ(erps_holdoff_interface(17), -1);
  EXPECT_EQ(ring->State, STATE_PENDING);
  EXPECT_EQ(ring->local_priority, 0U);
}

TEST_F(RingStartTest, StartOfOneRingLeavesTheHoldoffInterfacesOfOthers) {
  erps_set_holdoff_interface(16, 61);
  erps_set_holdoff_interface(18, 63);
  make_running_ring({.id = 17});
  EXPECT_EQ(erps_holdoff_interface(16), 61);
  EXPECT_EQ(erps_holdoff_interface(18), 63);
}

TEST_F(RingStartTest, NodeIdIsReadFromThePlatformWhenNoneIsSet) {
  platform.set_nic_address({2, 3, 4, 5, 6, 7});
  ERPSM_T* ring = make_ring();
  erps_start_func(ring, "");
  EXPECT_EQ(bytes_of(ring->local_node_id, 6), (std::vector<uint8_t>{2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(bytes_of(g_erps_src_mac, 6), (std::vector<uint8_t>{2, 3, 4, 5, 6, 7}));
  EXPECT_THAT(platform.calls({"get_nic_address"}),
              ElementsAre("get_nic_address(eth0, 0)", "get_nic_address(eth0, 0)"));
  EXPECT_EQ(logged_at("erps_start_func", "nic eth0 nic addr : 02:03:04:05:06:07\n"), 1);
}

TEST_F(RingStartTest, NodeIdThatIsSetStaysAndTheSourceAddressIsStillRead) {
  platform.set_nic_address({2, 3, 4, 5, 6, 7});
  ERPSM_T* ring = make_ring();
  ring->local_node_id[5] = 0x42;  // not all zero
  erps_start_func(ring, "");
  EXPECT_EQ(bytes_of(ring->local_node_id, 6), (std::vector<uint8_t>{0, 0, 0, 0, 0, 0x42}));
  EXPECT_EQ(bytes_of(g_erps_src_mac, 6), (std::vector<uint8_t>{2, 3, 4, 5, 6, 7}));
  EXPECT_EQ(platform.calls({"get_nic_address"}).size(), 1U);
  EXPECT_EQ(logged_at("erps_start_func", "nic eth0 nic addr : 00:00:00:00:00:42\n"), 1);
}

TEST_F(RingStartTest, UnreadableNodeAddressDoesNotStopTheStart) {
  platform.set_nic_result(-1);
  ERPSM_T* ring = make_ring();
  EXPECT_EQ(erps_start_func(ring, ""), 0U);
  EXPECT_EQ(ring->enable, 1);
  EXPECT_EQ(ring->State, STATE_PENDING);
}

TEST_F(RingStartTest, RefusedPortStatesDoNotStopTheStart) {
  platform.set_port_state_result(1, -1);
  platform.set_port_state_result(2, -1);
  ERPSM_T* ring = make_ring();
  EXPECT_EQ(erps_start_func(ring, ""), 0U);
  EXPECT_EQ(ring->State, STATE_PENDING);
}

TEST_F(RingStartTest, UnreadableLinkStateCountsAsSomethingDefinite) {
  platform.set_link_result(1, -1);
  ERPSM_T* ring = make_ring();
  EXPECT_EQ(erps_start_func(ring, ""), 0U);
  EXPECT_THAT(port0(ring)->link_status.get(), ::testing::AnyOf(0, 1));
}

TEST_F(RingStartTest, PlainNodeStartsWithItsSecondPortBlockedAndSendsNr) {
  ERPSM_T* ring = make_ring();
  erps_start_func(ring, "");
  EXPECT_EQ(ring->State, STATE_PENDING);
  EXPECT_EQ(port0(ring)->port_state, kForwarding);
  EXPECT_EQ(port1(ring)->port_state, kDiscarding);
  ASSERT_EQ(platform.sent_frames().size(), 1U);
  EXPECT_EQ(platform.sent_frames()[0].port, 1U);
  EXPECT_EQ(ring->raps_timer.active, 1);
}

TEST_F(RingStartTest, RevertiveOwnerStartsItsWaitToRestore) {
  ERPSM_T* ring = make_ring({.node_role = kRplOwner});
  erps_start_func(ring, "");
  EXPECT_EQ(ring->wtr_timer.active, 1);
  EXPECT_EQ(ring->local_priority, REQUEST_WTR_RUNNING);
  EXPECT_EQ(port1(ring)->port_state, kDiscarding);
}

TEST_F(RingStartTest, LinkValuesOtherThanOneOpenThePortAtStart) {
  platform.set_link(1, 2);
  ERPSM_T* ring = make_ring();
  erps_start_func(ring, "");
  EXPECT_EQ(first_port_calls(2).at(1), "adp_set_port_erps_state(1, 4)");
}

TEST_F(RingStartTest, OnlyTheLowHalfOfTheLinkValueCountsAtStart) {
  platform.set_link(1, 0x10000);
  ERPSM_T* ring = make_ring();
  erps_start_func(ring, "");
  EXPECT_EQ(first_port_calls(2).at(1), "adp_set_port_erps_state(1, 1)");
}

// --- Stop

TEST_F(RingStartTest, StopEndsTransmissionAndDelayTimersAndOpensThePorts) {
  ERPSM_T* ring = make_running_ring({.node_role = kRplOwner});
  erps_start_WTB_timer(&ring->wtb_timer);
  platform.clear_journal();

  EXPECT_EQ(erps_stop_func(ring), 0);

  EXPECT_EQ(ring->enable, 0);
  EXPECT_EQ(ring->State, STATE_INIT);
  EXPECT_EQ(ring->local_priority, 0U);
  EXPECT_EQ(ring->current_priority, 0U);
  EXPECT_EQ(ring->mach_enter, 0U);
  EXPECT_THAT(timers(), IsEmpty());
  EXPECT_THAT(platform.calls(),
              ElementsAre("adp_set_port_erps_state(1, 4)", "adp_set_port_erps_state(2, 4)"));
  EXPECT_EQ(port1(ring)->port_state, kForwarding);
}

TEST_F(RingStartTest, StopLeavesAPortWhoseLinkIsDown) {
  platform.set_link(2, 0);
  ERPSM_T* ring = make_running_ring();
  erps_stop_func(ring);
  EXPECT_THAT(platform.calls({"adp_set_port_erps_state"}),
              ElementsAre("adp_set_port_erps_state(1, 4)"));
  EXPECT_EQ(port1(ring)->port_state, kDiscarding);
}

TEST_F(RingStartTest, StopOpensOnlyTheFirstPortOfASubRing) {
  ERPSM_T* ring = make_running_ring({.port0 = 7, .port1 = 255, .ring_role = kSubRing});
  erps_stop_func(ring);
  EXPECT_THAT(platform.calls({"adp_set_port_erps_state"}),
              ElementsAre("adp_set_port_erps_state(7, 4)"));
}

TEST_F(RingStartTest, GuardRunsOutAfterTheStop) {
  ERPSM_T* ring = make_running_ring();
  erps_start_guard_timer(&ring->guard_timer);
  erps_stop_func(ring);
  EXPECT_EQ(ring->guard_timer.active, 1);
  EXPECT_EQ(ring->guard_running, 1U);
  pass_ms(500);
  EXPECT_EQ(ring->guard_running, 0U);
}

TEST_F(RingStartTest, HoldoffRunsOutAfterTheStopAndIsReported) {
  ERPSM_T* ring = make_running_ring();
  erps_start_holdoff_timer(&ring->holdoff_timer);
  erps_stop_func(ring);
  EXPECT_EQ(ring->holdoff_timer.active, 1);
  pass_ms(1000);
  EXPECT_THAT(event_types(), ElementsAre(3U));
}

TEST_F(RingStartTest, NewStartTakesArmedGuardAndHoldoffOffTheList) {
  ERPSM_T* ring = make_running_ring();
  erps_start_guard_timer(&ring->guard_timer);
  erps_start_holdoff_timer(&ring->holdoff_timer);
  erps_stop_func(ring);
  erps_start_func(ring, "");
  EXPECT_THAT(timers(), ElementsAre("Send Raps Timer"));
  EXPECT_EQ(ring->guard_timer.active, 0);
  EXPECT_EQ(ring->holdoff_timer.active, 0);
  EXPECT_EQ(ring->guard_running, 0U);
  EXPECT_EQ(ring->holdoff_running, 0U);
  pass_ms(4000);
  EXPECT_THAT(platform.take_events(), IsEmpty());
  erps_start_guard_timer(&ring->guard_timer);
  EXPECT_EQ(timer_count(), 2U);
}

TEST_F(RingStartTest, StartOfARunningRingKeepsTheTimerListWhole) {
  ERPSM_T* ring = make_running_ring({.node_role = kRplOwner});
  erps_start_guard_timer(&ring->guard_timer);
  erps_start_func(ring, "");
  EXPECT_THAT(timers(), ::testing::UnorderedElementsAre("Send Raps Timer", "WTR Timer"));
  pass_ms(1'000'000);
  EXPECT_EQ(ring->raps_timer.active, 1);
}

TEST_F(RingStartTest, EnableStartsAndAnythingElseStops) {
  ERPSM_T* ring = make_ring();
  EXPECT_EQ(ERPS_erpsm_enable(ring, 1), 0U);
  EXPECT_EQ(ring->enable, 1);
  EXPECT_EQ(ring->State, STATE_PENDING);
  EXPECT_EQ(ERPS_erpsm_enable(ring, 7), 0U);
  EXPECT_EQ(ring->enable, 0);
}

TEST_F(RingStartTest, EnableOfWhatIsSoAlreadyDoesNothing) {
  ERPSM_T* ring = make_ring();
  platform.clear_journal();
  EXPECT_EQ(ERPS_erpsm_enable(ring, 0), 0U);
  EXPECT_THAT(platform.calls(), IsEmpty());
  ERPS_erpsm_enable(ring, 1);
  platform.clear_journal();
  EXPECT_EQ(ERPS_erpsm_enable(ring, 1), 0U);
  EXPECT_THAT(platform.calls(), IsEmpty());
}

}  // namespace
}  // namespace erps::test
