#include "erps/timer/protocol_timers.h"

#include <pthread.h>

#include <cstring>

#include "erps/fsm/requests.h"
#include "erps/raps/transmit.h"
#include "erps/ring/ring_config.h"
#include "erps/timer/timer_task.h"
#include "tests/unit/fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint32_t kNow = kStartSeconds;

// One running ring whose own timers were all taken off the list.
class ProtocolTimersTest : public ModuleTest {
 protected:
  ProtocolTimersTest() : ring(make_running_ring()) {
    for (ERPS_TIMER_T* timer : {&ring->wtr_timer, &ring->wtb_timer, &ring->guard_timer,
                                &ring->holdoff_timer, &ring->raps_timer}) {
      erps_timer_cancel(timer);
    }
    ring->timer_start_time = 0;
    ring->holdoff_start_time = 0;
    ring->guard_running = 0;
    ring->local_priority = 0;
    ring->current_priority = 0;
    ring->mach_enter = 0;
    platform.clear_journal();
  }

  // The one event posted, which must be a timer event of this record.
  void expect_posted(const ERPS_TIMER_T& timer, int32_t request) {
    const std::vector<ERPS_EVENT_MSG_T> events = platform.take_events();
    ASSERT_EQ(events.size(), 1U);
    EXPECT_EQ(events[0].event_class, 3U);
    EXPECT_EQ(events[0].sender, static_cast<uintptr_t>(pthread_self()));
    EXPECT_EQ(events[0].type, 3U);
    EXPECT_THAT(events[0].unused, ElementsAre(0U, 0U, 0U, 0U));
    EXPECT_EQ(events[0].payload, reinterpret_cast<uintptr_t>(&timer));
    EXPECT_EQ(timer.request, request);
    EXPECT_THAT(platform.calls({"equeue_send_ucast"}),
                ElementsAre("equeue_send_ucast(receiver, type 3, -1)"));
  }

  ERPSM_T* ring;
};

TEST_F(ProtocolTimersTest, TimesAtLoad) {
  EXPECT_EQ(WTR_timer_time, 300'000U);
  EXPECT_EQ(WTB_timer_time, 5'500U);
  EXPECT_EQ(guard_timer_time, 500U);
  EXPECT_EQ(holdoff_timer_time, 0U);
}

// --- WTR

TEST_F(ProtocolTimersTest, WtrEndsOnAWholeSecond) {
  platform.set_time(kNow, 999'999);
  erps_set_wtr_timer(300'500);
  EXPECT_EQ(erps_start_WTR_timer(&ring->wtr_timer), 0);
  EXPECT_EQ(ring->wtr_timer.expire.seconds, kNow + 300);
  EXPECT_EQ(ring->wtr_timer.expire.microseconds, 0);
  EXPECT_EQ(ring->wtr_timer.period, 300'500);
  EXPECT_EQ(ring->wtr_timer.repeat, 0);
  EXPECT_EQ(ring->wtr_timer.active, 1);
}

TEST_F(ProtocolTimersTest, WtrStartNotesItsTimeAndRaisesWtrRunning) {
  erps_start_WTR_timer(&ring->wtr_timer);
  EXPECT_EQ(ring->timer_start_time, kNow);
  EXPECT_EQ(ring->local_priority, REQUEST_WTR_RUNNING);
  EXPECT_EQ(ring->current_priority, REQUEST_WTR_RUNNING);
  EXPECT_EQ(ring->mach_enter, 0U);        // names no row
  EXPECT_EQ(ring->State, STATE_PENDING);  // no update follows
  EXPECT_EQ(logged_at("erps_start_WTR_timer", "enter \n"), 1);
}

TEST_F(ProtocolTimersTest, WtrStartUnderAStrongerRequestLeavesItAlone) {
  ring->local_priority = REQUEST_LOCAL_SF;
  EXPECT_EQ(erps_start_WTR_timer(&ring->wtr_timer), 0);
  EXPECT_EQ(ring->local_priority, REQUEST_LOCAL_SF);
  EXPECT_EQ(ring->wtr_timer.active, 1);
}

TEST_F(ProtocolTimersTest, WtrTimeIsReadAtEachStart) {
  erps_start_WTR_timer(&ring->wtr_timer);
  erps_set_wtr_timer(60'000);
  EXPECT_EQ(ring->wtr_timer.expire.seconds, kNow + 300);
  erps_start_WTR_timer(&ring->wtr_timer);
  EXPECT_EQ(ring->wtr_timer.expire.seconds, kNow + 60);
}

TEST_F(ProtocolTimersTest, RestartOfARunningWtrKeepsItsPlaceAndTakesEffectAtTheNextTick) {
  erps_set_wtr_timer(1000);
  erps_start_WTR_timer(&ring->wtr_timer);
  erps_start_WTB_timer(&ring->wtb_timer);
  erps_set_wtr_timer(60'000);
  erps_start_WTR_timer(&ring->wtr_timer);
  EXPECT_THAT(timers(), ElementsAre("WTR Timer", "WTB Timer"));
  pass_ms(2000);
  EXPECT_THAT(platform.take_events(), IsEmpty());
}

TEST_F(ProtocolTimersTest, WtrOfZeroFiresAtTheNextTick) {
  erps_set_wtr_timer(0);
  erps_start_WTR_timer(&ring->wtr_timer);
  erps_timer_walk();
  expect_posted(ring->wtr_timer, REQUEST_WTR_EXPIRES);
}

// The period is a signed number of milliseconds.
TEST_F(ProtocolTimersTest, WtrOfMoreThanAPeriodCanHoldFiresAtTheNextTick) {
  erps_set_wtr_timer(UINT32_MAX);
  erps_start_WTR_timer(&ring->wtr_timer);
  EXPECT_EQ(ring->wtr_timer.period, -1);
  EXPECT_EQ(ring->wtr_timer.expire.seconds, kNow);
  erps_timer_walk();
  expect_posted(ring->wtr_timer, REQUEST_WTR_EXPIRES);
}

TEST_F(ProtocolTimersTest, StoppingWtrWithdrawsItsRequest) {
  erps_start_WTR_timer(&ring->wtr_timer);
  platform.clear_journal();
  EXPECT_EQ(erps_stop_WTR_timer(&ring->wtr_timer), 0);
  EXPECT_EQ(ring->wtr_timer.active, 0);
  EXPECT_EQ(ring->local_priority, 0U);
  EXPECT_EQ(logged_at("stop_delay_timer_priority_logic", "msg = 5 this->local_priority = 5 \n"), 1);
  EXPECT_EQ(logged_part("msg = 5 this->local_priority = 5 \n"), 2);
}

TEST_F(ProtocolTimersTest, StoppingWtrLeavesASignalFailAlone) {
  ring->local_priority = REQUEST_LOCAL_SF;
  EXPECT_EQ(erps_stop_WTR_timer(&ring->wtr_timer), 0);
  EXPECT_EQ(ring->local_priority, REQUEST_LOCAL_SF);
}

TEST_F(ProtocolTimersTest, StoppingWtrLeavesWtbRunningAlone) {
  ring->local_priority = REQUEST_WTB_RUNNING;
  EXPECT_EQ(erps_stop_WTR_timer(&ring->wtr_timer), 0);
  EXPECT_EQ(ring->local_priority, REQUEST_WTB_RUNNING);
}

TEST_F(ProtocolTimersTest, WtrExpiryPostsRequestSix) {
  erps_set_wtr_timer(5000);
  erps_start_WTR_timer(&ring->wtr_timer);
  platform.clear_journal();
  pass_ms(4000);
  EXPECT_EQ(ring->wtr_timer.active, 1);
  pass_ms(1000);
  EXPECT_EQ(ring->wtr_timer.active, 0);
  expect_posted(ring->wtr_timer, REQUEST_WTR_EXPIRES);
  EXPECT_EQ(
      logged_at("erps_wtr_expire", "timer type: REQUEST_WTR_EXPIRES timer internal 5000 ms\n"), 1);
}

// --- WTB

TEST_F(ProtocolTimersTest, WtbEndsWithFullMicrosecondCarry) {
  platform.set_time(kNow, 600'001);
  EXPECT_EQ(erps_start_WTB_timer(&ring->wtb_timer), 0);
  EXPECT_EQ(ring->wtb_timer.expire.seconds, kNow + 6);
  EXPECT_EQ(ring->wtb_timer.expire.microseconds, 100'001);
  EXPECT_EQ(ring->wtb_timer.period, 5500);
  EXPECT_EQ(ring->wtb_timer.repeat, 0);
  EXPECT_EQ(ring->timer_start_time, kNow);
  EXPECT_EQ(ring->local_priority, REQUEST_WTB_RUNNING);
  EXPECT_EQ(logged_at("erps_start_WTB_timer", "enter \n"), 0);
}

TEST_F(ProtocolTimersTest, WtbStartWhileWtrIsRunningIsRefusedAsARequest) {
  ring->local_priority = REQUEST_WTR_RUNNING;
  EXPECT_EQ(erps_start_WTB_timer(&ring->wtb_timer), 0);
  EXPECT_EQ(ring->local_priority, REQUEST_WTR_RUNNING);
  EXPECT_EQ(ring->wtb_timer.active, 1);
}

TEST_F(ProtocolTimersTest, StoppingWtbWithdrawsItsRequest) {
  erps_start_WTB_timer(&ring->wtb_timer);
  EXPECT_EQ(erps_stop_WTB_timer(&ring->wtb_timer), 0);
  EXPECT_EQ(ring->wtb_timer.active, 0);
  EXPECT_EQ(ring->local_priority, 0U);
}

TEST_F(ProtocolTimersTest, WtbExpirySaysWtrButPostsRequestFour) {
  erps_start_WTB_timer(&ring->wtb_timer);
  platform.clear_journal();
  pass_ms(5500);
  expect_posted(ring->wtb_timer, REQUEST_WTB_EXPIRES);
  EXPECT_EQ(
      logged_at("erps_wtb_expire", "timer type: REQUEST_WTR_EXPIRES timer internal 5500 ms\n"), 1);
}

// --- Guard

TEST_F(ProtocolTimersTest, GuardStartRaisesItsFlag) {
  platform.set_time(kNow, 700'000);
  EXPECT_EQ(erps_start_guard_timer(&ring->guard_timer), 0);
  EXPECT_EQ(ring->guard_timer.expire.seconds, kNow + 1);
  EXPECT_EQ(ring->guard_timer.expire.microseconds, 200'000);
  EXPECT_EQ(ring->guard_timer.period, 500);
  EXPECT_EQ(ring->guard_timer.repeat, 0);
  EXPECT_EQ(ring->guard_running, 1U);
  EXPECT_EQ(ring->timer_start_time, kNow);
  EXPECT_EQ(ring->local_priority, 0U);
  EXPECT_EQ(logged_at("erps_start_guard_timer", "enter \n"), 1);
}

TEST_F(ProtocolTimersTest, GuardExpiryClearsTheFlagAndPostsNothing) {
  erps_start_guard_timer(&ring->guard_timer);
  platform.clear_journal();
  pass_ms(499);
  EXPECT_EQ(ring->guard_running, 1U);
  pass_ms(1);
  EXPECT_EQ(ring->guard_running, 0U);
  EXPECT_EQ(ring->guard_timer.active, 0);
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_EQ(logged_at("erps_guard_expire", "timer type: guard timer internal 500 ms\n"), 1);
}

TEST_F(ProtocolTimersTest, StoppingGuardClearsItsFlag) {
  erps_start_guard_timer(&ring->guard_timer);
  platform.clear_journal();
  EXPECT_EQ(erps_stop_guard_timer(&ring->guard_timer), 0);
  EXPECT_EQ(ring->guard_running, 0U);
  EXPECT_EQ(ring->guard_timer.active, 0);
  EXPECT_EQ(logged_at("erps_stop_guard_timer", "enter \n"), 1);
}

TEST_F(ProtocolTimersTest, RestartOfARunningGuardLastsFromTheRestart) {
  erps_start_guard_timer(&ring->guard_timer);
  platform.advance_ms(400);
  erps_start_guard_timer(&ring->guard_timer);
  pass_ms(400);
  EXPECT_EQ(ring->guard_running, 1U);
  pass_ms(100);
  EXPECT_EQ(ring->guard_running, 0U);
}

// --- Hold-off

TEST_F(ProtocolTimersTest, HoldoffStartNotesItsOwnTimeAndFlag) {
  erps_set_holdoff_timer(1200);
  EXPECT_EQ(erps_start_holdoff_timer(&ring->holdoff_timer), 0);
  EXPECT_EQ(ring->holdoff_timer.expire.seconds, kNow + 1);
  EXPECT_EQ(ring->holdoff_timer.expire.microseconds, 450'000);
  EXPECT_EQ(ring->holdoff_timer.period, 1200);
  EXPECT_EQ(ring->holdoff_timer.repeat, 0);
  EXPECT_EQ(ring->holdoff_running, 1U);
  EXPECT_EQ(ring->holdoff_start_time, kNow);
  EXPECT_EQ(ring->timer_start_time, 0U);
  EXPECT_EQ(logged_at("erps_start_holdoff_timer", "enter \n"), 1);
}

TEST_F(ProtocolTimersTest, HoldoffOfZeroExpiresAtTheNextTick) {
  erps_start_holdoff_timer(&ring->holdoff_timer);
  platform.clear_journal();
  erps_timer_walk();
  EXPECT_EQ(ring->holdoff_running, 1U);  // until the event is handled
  expect_posted(ring->holdoff_timer, REQUEST_LOCAL_SF);
  EXPECT_EQ(
      logged_at("erps_holdoff_timer_expire", "timer type: REQUEST_LOCAL_SF timer internal 0 ms\n"),
      1);
}

TEST_F(ProtocolTimersTest, StoppingHoldoffClearsItsFlag) {
  erps_start_holdoff_timer(&ring->holdoff_timer);
  platform.clear_journal();
  EXPECT_EQ(erps_stop_holdoff_timer(&ring->holdoff_timer), 0);
  EXPECT_EQ(ring->holdoff_running, 0U);
  EXPECT_EQ(ring->holdoff_timer.active, 0);
  EXPECT_EQ(logged_at("erps_stop_holdoff_timer", "enter \n"), 1);
}

// --- Repetition of R-APS messages

TEST_F(ProtocolTimersTest, RepetitionRunsFiveSecondsFromNowWithTheCurrentMicroseconds) {
  platform.set_time(kNow, 999'999);
  erps_pkt_send_timer(&ring->raps_timer);
  EXPECT_EQ(ring->raps_timer.expire.seconds, kNow + 5);
  EXPECT_EQ(ring->raps_timer.expire.microseconds, 999'999);
  EXPECT_EQ(ring->raps_timer.period, 5000);
  EXPECT_EQ(ring->raps_timer.repeat, 1);
  EXPECT_EQ(ring->raps_timer.active, 1);
  EXPECT_EQ(logged_at("erps_pkt_send_timer", "timeout = 1000005 period = 5000\n"), 1);
}

TEST_F(ProtocolTimersTest, RepetitionIgnoresTheRingsInformativeInterval) {
  ring->tx_interval = 100;
  erps_pkt_send_timer(&ring->raps_timer);
  EXPECT_EQ(ring->raps_timer.period, 5000);
}

TEST_F(ProtocolTimersTest, SecondSendTwoSecondsLaterMovesTheRepetitionGrid) {
  erps_Tx_R_APS(ring, 0, 0, 0, 0);
  platform.advance_ms(2000);
  erps_Tx_R_APS(ring, 0, 0, 0, 0);
  platform.clear_journal();
  pass_ms(4000);  // 6 s after the first
  EXPECT_THAT(platform.sent_frames(), IsEmpty());
  pass_ms(1000);  // 5 s after the second
  EXPECT_FALSE(platform.sent_frames().empty());
}

TEST_F(ProtocolTimersTest, RepetitionMovesToItsNewPlaceInTheList) {
  erps_pkt_send_timer(&ring->raps_timer);
  platform.advance_ms(1000);
  erps_set_wtr_timer(5000);
  erps_start_WTR_timer(&ring->wtr_timer);
  EXPECT_THAT(timers(), ElementsAre("Send Raps Timer", "WTR Timer"));
  erps_pkt_send_timer(&ring->raps_timer);
  EXPECT_THAT(timers(), ElementsAre("WTR Timer", "Send Raps Timer"));
}

TEST_F(ProtocolTimersTest, RepetitionSendsTheLastFrameAsItStands) {
  erps_Tx_R_APS(ring, 11, 1, 0, ENTER_LOCAL_SF);
  const std::vector<SentFrame> first = platform.sent_frames();
  ASSERT_FALSE(first.empty());
  ring->tx_request = 7;  // not looked at
  for (int repeat = 1; repeat <= 3; ++repeat) {
    platform.clear_journal();
    pass_ms(5000);
    const std::vector<SentFrame> again = platform.sent_frames();
    ASSERT_EQ(again.size(), first.size());
    for (size_t i = 0; i < again.size(); ++i) {
      EXPECT_EQ(again[i].port, first[i].port);
      EXPECT_EQ(again[i].bytes, first[i].bytes);
    }
  }
}

TEST_F(ProtocolTimersTest, RepetitionSendsExactlyTheFrameLength) {
  memset(ring->tx_frame, 0xAB, sizeof ring->tx_frame);
  ring->tx_frame_len = 51;
  ring->send_logic = 0;
  EXPECT_EQ(erps_send_raps_expire(&ring->raps_timer), 0);
  ASSERT_FALSE(platform.sent_frames().empty());
  EXPECT_EQ(platform.sent_frames()[0].bytes, std::vector<uint8_t>(51, 0xAB));
}

// --- Posting and the rest

TEST_F(ProtocolTimersTest, RefusedPostIsLoggedAndTheExpiryIsLost) {
  for (const int result : {0, -1}) {
    platform.clear_journal();
    platform.set_send_result(result);
    erps_start_holdoff_timer(&ring->holdoff_timer);
    pass_ms(1000);
    EXPECT_EQ(logged(3, "\nerps timer tick send FAILED!\n"), 1);
    EXPECT_EQ(ring->holdoff_timer.active, 0);
    platform.set_send_result(1);
    pass_ms(10'000);
    EXPECT_THAT(platform.take_events(), IsEmpty());
  }
}

TEST_F(ProtocolTimersTest, ExpiryWhileThereIsNoQueueIsLoggedAndPostsNothing) {
  erps_start_holdoff_timer(&ring->holdoff_timer);
  erps_event_queue = nullptr;
  platform.clear_journal();
  pass_ms(1000);
  EXPECT_EQ(logged(3, "\nerps timer tick send FAILED!\n"), 1);
  EXPECT_THAT(platform.calls({"equeue_send_ucast"}), IsEmpty());
  EXPECT_EQ(ring->holdoff_timer.active, 0);
}

TEST_F(ProtocolTimersTest, ExpiryActionsReturnZero) {
  EXPECT_EQ(erps_wtr_expire(&ring->wtr_timer), 0);
  EXPECT_EQ(erps_wtb_expire(&ring->wtb_timer), 0);
  EXPECT_EQ(erps_guard_expire(&ring->guard_timer), 0);
  EXPECT_EQ(erps_holdoff_timer_expire(&ring->holdoff_timer), 0);
}

TEST_F(ProtocolTimersTest, WithdrawalIgnoresRequestsThatAreNoDelayTimers) {
  for (const uint32_t request : {0U, 7U, 11U, 13U}) {
    ring->local_priority = request;
    EXPECT_EQ(stop_delay_timer_priority_logic(ring, request), 0);
    EXPECT_EQ(ring->local_priority, request);
  }
}

TEST_F(ProtocolTimersTest, WithdrawalLeavesTheNextRowAlone) {
  ring->local_priority = REQUEST_WTR_RUNNING;
  ring->mach_enter = ENTER_FS;
  EXPECT_EQ(stop_delay_timer_priority_logic(ring, REQUEST_WTR_RUNNING), 0);
  EXPECT_EQ(ring->local_priority, 0U);
  EXPECT_EQ(ring->mach_enter, ENTER_FS);
}

TEST_F(ProtocolTimersTest, WithdrawalWithoutARingDoesNothing) {
  EXPECT_EQ(stop_delay_timer_priority_logic(nullptr, REQUEST_WTR_RUNNING), 0);
}

TEST_F(ProtocolTimersTest, TimerTextsGiveTheirExpiryRequests) {
  EXPECT_EQ(get_timer_priority("WTR_timer"), 6U);
  EXPECT_EQ(get_timer_priority("WTB_timer"), 4U);
  EXPECT_EQ(get_timer_priority("WTR Timer"), 0U);
  EXPECT_EQ(get_timer_priority("wtr_timer"), 0U);
  EXPECT_EQ(get_timer_priority("WTR_timers"), 0U);
  EXPECT_EQ(get_timer_priority(""), 0U);
}

}  // namespace
}  // namespace erps::test
