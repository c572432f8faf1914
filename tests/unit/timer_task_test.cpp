#include "erps/timer/timer_task.h"

#include <unistd.h>

#include <cerrno>

#include "tests/unit/timer_fixture.h"

namespace erps::test {
namespace {

using ::testing::Each;
using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uint32_t kNow = kStartSeconds;
constexpr uintptr_t kNotRunning = static_cast<uintptr_t>(-1);

class TimerWalkTest : public TimerTest {};

TEST_F(TimerWalkTest, FiresWhatIsDueAndLeavesTheRest) {
  start("past", kNow - 1, 999'999);
  start("now", kNow, kStartMicroseconds);
  start("later", kNow, kStartMicroseconds + 1);
  start("next second", kNow + 1);
  erps_timer_walk();
  EXPECT_THAT(expired(), ElementsAre("past", "now"));
  EXPECT_THAT(timers(), ElementsAre("later", "next second"));
}

TEST_F(TimerWalkTest, EqualSecondsFireInInsertionOrder) {
  start("inserted first", kNow, 200'000);
  start("inserted second", kNow, 100'000);
  erps_timer_walk();
  EXPECT_THAT(expired(), ElementsAre("inserted first", "inserted second"));
}

TEST_F(TimerWalkTest, PendingRecordHidesADueOneBehindIt) {
  ERPS_TIMER_T& first = start("first", kNow - 2);
  start("second", kNow - 1);
  erps_timer_set(&first, 0, 0, {kNow + 10, 0});  // keeps its place
  erps_timer_walk();
  EXPECT_THAT(expired(), IsEmpty());
  EXPECT_THAT(timers(), ElementsAre("first", "second"));
}

TEST_F(TimerWalkTest, OneShotIsIdleWhenItsActionRuns) {
  ERPS_TIMER_T& timer = add("one-shot", kNow - 1);
  timer.callback = [](ERPS_TIMER_T* self) -> int32_t {
    EXPECT_EQ(self->active, 0);
    EXPECT_EQ(self->next, erps_timer_poison_next());
    return note_expiry(self);
  };
  erps_timer_start(&timer, "");
  erps_timer_walk();
  EXPECT_THAT(expired(), ElementsAre("one-shot"));
  EXPECT_EQ(timer.active, 0);
}

TEST_F(TimerWalkTest, PeriodicIsLinkedAgainBeforeItsActionRuns) {
  ERPS_TIMER_T& timer = add("periodic", kNow - 1);
  timer.period = 5000;
  timer.repeat = 1;
  timer.callback = [](ERPS_TIMER_T* self) -> int32_t {
    EXPECT_EQ(self->active, 1);
    EXPECT_EQ(self->expire.seconds, kNow + 4);
    return note_expiry(self);
  };
  erps_timer_start(&timer, "");
  erps_timer_walk();
  EXPECT_THAT(expired(), ElementsAre("periodic"));
  EXPECT_THAT(timers(), ElementsAre("periodic"));
}

TEST_F(TimerWalkTest, RepeatValuesOtherThanOneAreOneShot) {
  ERPS_TIMER_T& timer = add("two", kNow - 1);
  timer.period = 5000;
  timer.repeat = 2;
  erps_timer_start(&timer, "");
  erps_timer_walk();
  EXPECT_THAT(timers(), IsEmpty());
}

TEST_F(TimerWalkTest, LatePeriodicTimerKeepsItsGrid) {
  ERPS_TIMER_T& timer = add("periodic", kNow + 5, 250'000);
  timer.period = 5000;
  timer.repeat = 1;
  erps_timer_start(&timer, "");

  pass_ms(7300);  // 2.3 s late
  EXPECT_THAT(expired(), ElementsAre("periodic"));
  EXPECT_EQ(timer.expire.seconds, kNow + 10);
  EXPECT_EQ(timer.expire.microseconds, 250'000);
}

TEST_F(TimerWalkTest, PeriodicTimerFiresOnceForEachMissedPeriod) {
  ERPS_TIMER_T& timer = add("periodic", kNow + 1, 250'000);
  timer.period = 1000;
  timer.repeat = 1;
  erps_timer_start(&timer, "");
  pass_ms(4000);
  EXPECT_THAT(expired(), ElementsAre("periodic", "periodic", "periodic", "periodic"));
  EXPECT_EQ(timer.expire.seconds, kNow + 5);
}

TEST_F(TimerWalkTest, RecordWithoutActionIsUnlinked) {
  ERPS_TIMER_T& timer = add("no action", kNow - 1);
  timer.callback = nullptr;
  erps_timer_start(&timer, "");
  start("behind", kNow - 1);
  erps_timer_walk();
  EXPECT_EQ(timer.active, 0);
  EXPECT_THAT(expired(), ElementsAre("behind"));
}

TEST_F(TimerWalkTest, TimeIsReadForEveryRecord) {
  ERPS_TIMER_T& slow = add("slow", kNow - 1);
  slow.callback = [](ERPS_TIMER_T* self) -> int32_t {
    RecordingPlatform::instance().advance_ms(2000);
    return note_expiry(self);
  };
  erps_timer_start(&slow, "");
  start("due meanwhile", kNow + 2);
  erps_timer_walk();
  EXPECT_THAT(expired(), ElementsAre("slow", "due meanwhile"));
}

TEST_F(TimerWalkTest, WalkStartsAgainAtTheFirstRecordAfterEachAction) {
  static ERPS_TIMER_T* inserted = nullptr;
  inserted = &add("inserted by action", kNow - 5);
  ERPS_TIMER_T& first = add("first", kNow - 3);
  first.callback = [](ERPS_TIMER_T* self) -> int32_t {
    erps_timer_insert(inserted);  // the walk holds the lock
    return note_expiry(self);
  };
  erps_timer_start(&first, "");
  start("second", kNow - 2);
  erps_timer_walk();
  EXPECT_THAT(expired(), ElementsAre("first", "inserted by action", "second"));
}

TEST_F(TimerWalkTest, ActionsRunWithTheLockHeld) {
  ERPS_TIMER_T& timer = add("locked", kNow - 1);
  timer.callback = [](ERPS_TIMER_T* self) -> int32_t {
    EXPECT_EQ(pthread_mutex_trylock(&erps_timer_lock), EBUSY);
    return note_expiry(self);
  };
  erps_timer_start(&timer, "");
  erps_timer_walk();
  EXPECT_THAT(expired(), ElementsAre("locked"));
  EXPECT_EQ(pthread_mutex_trylock(&erps_timer_lock), 0);
  pthread_mutex_unlock(&erps_timer_lock);
}

TEST_F(TimerWalkTest, EachExpiryIsLoggedWithItsTimeAndThePresent) {
  start("Guard Timer", kNow - 1);
  start("pending", kNow + 1);
  platform.clear_journal();
  erps_timer_walk();
  EXPECT_EQ(
      logged_at("erps_routine_timer", "Guard Timer Expire time = 999999 Cur time = 1000000 \n"), 1);
  EXPECT_EQ(logged_part("Expire time"), 1);
}

TEST_F(TimerWalkTest, HalfSecondTimerWaitsForTheFirstTickBehindIt) {
  platform.set_time(kNow, 900'000);
  ERPS_TIME_T expire = erps_time_now();
  erps_calc_timeout(&expire, 500);
  start("half a second", expire.seconds, expire.microseconds);
  pass_ms(499);
  EXPECT_THAT(expired(), IsEmpty());
  pass_ms(1000);  // the next tick, 1.499 s after the start
  EXPECT_THAT(expired(), ElementsAre("half a second"));
}

TEST_F(TimerWalkTest, InitHookUnlinksWhatAnEarlierRunLeft) {
  ERPS_TIMER_T& left = start("left over", kNow + 5);
  erps_task_desc task{};
  EXPECT_EQ(erps_timer_task_init(&task), 0);
  EXPECT_EQ(g_erps_timer_list.next, &g_erps_timer_list);
  EXPECT_EQ(g_erps_timer_list.prev, &g_erps_timer_list);
  EXPECT_EQ(left.active, 0);
  erps_timer_start(&left, "");
  EXPECT_THAT(timers(), ElementsAre("left over"));
}

// The task in a thread of its own.
class TimerTaskTest : public TimerTest {
 protected:
  TimerTaskTest() {
    task_.name = "erps_timer";
    task_.thread_id = kNotRunning;
    task_.init = erps_timer_task_init;
    task_.entry = erps_routine_timer;
    platform.run_tasks(true);
  }

  ~TimerTaskTest() override { stop_task(); }

  int start_task() { return stask_start(&task_, 0); }

  void stop_task() {
    if (task_.thread_id != kNotRunning) {
      stask_stop(&task_);
    }
  }

  int task_lines(const std::string& text) const {
    int count = 0;
    for (const LogLine& line : platform.log()) {
      count +=
          line.level == 7 && line.facility == 7 && line.label == "Task entry" && line.text == text
              ? 1
              : 0;
    }
    return count;
  }

  erps_task_desc task_{};
};

TEST_F(TimerTaskTest, OpensTheQueueReportsReadyAndSleepsOneSecond) {
  ASSERT_EQ(start_task(), 0);
  ASSERT_TRUE(platform.wait_until_sleeper_idle());
  EXPECT_THAT(platform.calls(),
              ElementsAre("stask_start(erps_timer, 0)", "equeue_open(/erps_event_queue, 0)",
                          "stask_notify_creater(erps_timer, 0)", "select(0, 1, 0)"));
  EXPECT_EQ(erps_timer_event_queue, platform.sender_handle());
  EXPECT_EQ(task_.process_id, static_cast<uintptr_t>(getpid()));
}

TEST_F(TimerTaskTest, EachTickWalksBetweenItsTwoLines) {
  ASSERT_EQ(start_task(), 0);
  start("due", kNow - 1);
  platform.tick(2);
  ASSERT_TRUE(platform.wait_until_sleeper_idle());
  stop_task();
  EXPECT_EQ(task_lines("Task entry begin process!~\n"), 2);
  EXPECT_EQ(task_lines("Task entry end   process!~\n"), 2);
  EXPECT_THAT(expired(), ElementsAre("due"));
  EXPECT_THAT(platform.calls({"select"}), Each("select(0, 1, 0)"));
  EXPECT_EQ(platform.calls({"select"}).size(), 3U);
}

TEST_F(TimerTaskTest, FailedSleepIsLoggedTwiceAndTriedAgainWithoutAWalk) {
  platform.script_selects({-1, -1});
  ASSERT_EQ(start_task(), 0);
  ASSERT_TRUE(platform.wait_until_sleeper_idle());
  stop_task();
  EXPECT_EQ(logged_at("erps_routine_timer", "erps timer select error!\n"), 2);
  EXPECT_EQ(logged_part("erps timer select error!\n"), 4);
  EXPECT_EQ(task_lines("Task entry begin process!~\n"), 0);
  EXPECT_EQ(platform.calls({"select"}).size(), 3U);
}

TEST_F(TimerTaskTest, PositiveSleepResultSkipsTheWalk) {
  platform.script_selects({1});
  ASSERT_EQ(start_task(), 0);
  ASSERT_TRUE(platform.wait_until_sleeper_idle());
  stop_task();
  EXPECT_EQ(task_lines("Task entry begin process!~\n"), 0);
  EXPECT_EQ(logged_part("select error"), 0);
}

TEST_F(TimerTaskTest, CancelledTaskLogsAndClosesItsHandle) {
  ASSERT_EQ(start_task(), 0);
  ASSERT_TRUE(platform.wait_until_sleeper_idle());
  stop_task();
  EXPECT_EQ(logged(3, "erps timer routine process exit!\r\n"), 1);
  EXPECT_THAT(platform.calls({"equeue_close"}), ElementsAre("equeue_close(sender)"));
}

TEST_F(TimerTaskTest, TaskWithoutQueueReportsFailureAndEnds) {
  platform.set_queue_open_fails(true);
  EXPECT_LT(start_task(), 0);
  EXPECT_EQ(task_.thread_id, kNotRunning);
  EXPECT_THAT(platform.calls({"stask_notify_creater"}),
              ElementsAre("stask_notify_creater(erps_timer, -1)"));
  EXPECT_EQ(logged_at("erps_routine_timer", "\nErps timer error exit\n"), 1);
  EXPECT_EQ(logged_part("\nErps timer error exit\n"), 2);
  EXPECT_EQ(logged_part("routine process exit"), 0);
  EXPECT_THAT(platform.calls({"select", "equeue_close"}), IsEmpty());
}

TEST_F(TimerTaskTest, EntryWithoutQueueReturnsMinusOne) {
  platform.set_queue_open_fails(true);
  EXPECT_EQ(erps_routine_timer(&task_), -1);
}

TEST_F(TimerTaskTest, CleanUpHandlerClosesTheHandleThatItIsGiven) {
  erps_timer_routine_cancel_process(platform.receiver_handle());
  EXPECT_EQ(logged(3, "erps timer routine process exit!\r\n"), 1);
  EXPECT_THAT(platform.calls(), ElementsAre("equeue_close(receiver)"));
}

}  // namespace
}  // namespace erps::test
