#include "erps/timer/timer_list.h"

#include <cerrno>
#include <cstring>

#include "tests/unit/timer_fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class TimerListTest : public TimerTest {};

TEST_F(TimerListTest, EmptyListPointsAtItsHead) {
  EXPECT_EQ(g_erps_timer_list.next, &g_erps_timer_list);
  EXPECT_EQ(g_erps_timer_list.prev, &g_erps_timer_list);
}

TEST_F(TimerListTest, InitClearsTheWholeRecordAndStoresOwnerAndAction) {
  ERPS_TIMER_T timer{};
  timer.period = 77;
  timer.expire = {5, 6};
  timer.repeat = 1;
  timer.active = 1;
  timer.request = 11;
  strcpy(timer.name, "old name");
  int owner = 0;

  erps_timer_init(&timer, &owner, note_expiry);

  EXPECT_EQ(timer.arg, &owner);
  EXPECT_EQ(timer.callback, note_expiry);
  EXPECT_EQ(timer.period, 0);
  EXPECT_EQ(timer.expire.seconds, 0U);
  EXPECT_EQ(timer.expire.microseconds, 0);
  EXPECT_EQ(timer.repeat, 0);
  EXPECT_EQ(timer.active, 0);
  EXPECT_EQ(timer.request, 0);
  for (const char byte : timer.name) {
    EXPECT_EQ(byte, '\0');
  }
}

TEST_F(TimerListTest, RecordOutsideTheListHoldsThePoisonAddresses) {
  ERPS_TIMER_T timer{};
  erps_timer_init(&timer, nullptr, nullptr);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(timer.next), 0x00100100U);
  EXPECT_EQ(reinterpret_cast<uintptr_t>(timer.prev), 0x00200200U);
  EXPECT_EQ(erps_timer_poison_next(), timer.next);
  EXPECT_EQ(erps_timer_poison_prev(), timer.prev);
}

TEST_F(TimerListTest, StartLinksAndMarksActive) {
  ERPS_TIMER_T& timer = add("only", 10);
  EXPECT_EQ(erps_timer_start(&timer, "any label"), 0);
  EXPECT_EQ(timer.active, 1);
  EXPECT_EQ(g_erps_timer_list.next, &timer);
  EXPECT_EQ(g_erps_timer_list.prev, &timer);
  EXPECT_EQ(timer.next, &g_erps_timer_list);
  EXPECT_EQ(timer.prev, &g_erps_timer_list);
}

TEST_F(TimerListTest, ListIsOrderedByExpirySeconds) {
  start("thirty", 30);
  start("ten", 10);
  start("twenty", 20);
  start("five", 5);
  EXPECT_THAT(timers(), ElementsAre("five", "ten", "twenty", "thirty"));
}

TEST_F(TimerListTest, LinksBackwardMirrorLinksForward) {
  start("b", 20);
  start("a", 10);
  start("c", 30);
  std::vector<std::string> backward;
  for (const ERPS_TIMER_LINK_T* link = g_erps_timer_list.prev; link != &g_erps_timer_list;
       link = link->prev) {
    backward.emplace_back(static_cast<const ERPS_TIMER_T*>(link)->name);
  }
  EXPECT_THAT(backward, ElementsAre("c", "b", "a"));
}

TEST_F(TimerListTest, EqualSecondsKeepInsertionOrderWhateverTheMicroseconds) {
  start("first", 10, 900'000);
  start("second", 10, 100'000);
  start("third", 10, 500'000);
  EXPECT_THAT(timers(), ElementsAre("first", "second", "third"));
}

TEST_F(TimerListTest, LinkingNamesThePlaceInTheLog) {
  ERPS_TIMER_T& middle = add("middle", 20);
  middle.period = 500;
  ERPS_TIMER_T& early = add("early", 10);
  early.period = 5000;
  early.repeat = 1;
  ERPS_TIMER_T& late = add("late", 20);  // equal seconds: behind

  erps_timer_start(&middle, "");
  EXPECT_EQ(logged_at("erps_timer_insert", "empty timer:middle, peroid= 500 repeat = 0\n"), 1);
  erps_timer_start(&early, "");
  EXPECT_EQ(logged_at("erps_timer_insert", "timer:early, peroid= 5000 repeat = 1\n"), 1);
  erps_timer_start(&late, "");
  EXPECT_EQ(logged_at("erps_timer_insert", "insert tail timer:late, peroid= 0 repeat = 0\n"), 1);
  EXPECT_EQ(platform.log().size(), 3U);
}

TEST_F(TimerListTest, InsertReturnsOne) {
  ERPS_TIMER_T& timer = add("one", 10);
  const TimerLock lock;
  EXPECT_EQ(erps_timer_insert(&timer), 1);
  EXPECT_EQ(timer.active, 1);
}

TEST_F(TimerListTest, StartingAnActiveTimerKeepsItsPlaceAndShowsTheNewExpiry) {
  ERPS_TIMER_T& first = start("first", 10);
  start("second", 20);
  erps_timer_set(&first, 9000, 0, {90, 5});
  EXPECT_EQ(erps_timer_start(&first, ""), 0);
  EXPECT_THAT(timers(), ElementsAre("first", "second"));
  EXPECT_EQ(first.period, 9000);
  EXPECT_EQ(first.expire.seconds, 90U);
  EXPECT_EQ(first.expire.microseconds, 5);
}

TEST_F(TimerListTest, SettingTimesWritesThemAndDoesNotLink) {
  ERPS_TIMER_T& timer = add("idle", 1);
  erps_timer_set(&timer, 5000, 1, {44, 55});
  EXPECT_EQ(timer.period, 5000);
  EXPECT_EQ(timer.repeat, 1);
  EXPECT_EQ(timer.expire.seconds, 44U);
  EXPECT_EQ(timer.expire.microseconds, 55);
  EXPECT_EQ(timer.active, 0);
  EXPECT_THAT(timers(), IsEmpty());
}

TEST_F(TimerListTest, CancelUnlinksAndPoisons) {
  start("a", 10);
  ERPS_TIMER_T& b = start("b", 20);
  start("c", 30);
  erps_timer_cancel(&b);
  EXPECT_THAT(timers(), ElementsAre("a", "c"));
  EXPECT_EQ(b.active, 0);
  EXPECT_EQ(b.next, erps_timer_poison_next());
  EXPECT_EQ(b.prev, erps_timer_poison_prev());
}

TEST_F(TimerListTest, CancellingAnIdleTimerChangesNothing) {
  start("running", 10);
  ERPS_TIMER_T& idle = add("idle", 20);
  erps_timer_cancel(&idle);
  erps_timer_cancel(&idle);
  EXPECT_EQ(idle.active, 0);
  EXPECT_EQ(idle.next, erps_timer_poison_next());
  EXPECT_THAT(timers(), ElementsAre("running"));
}

TEST_F(TimerListTest, DeletingTwiceChangesNothing) {
  start("stays", 10);
  ERPS_TIMER_T& goes = start("goes", 20);
  {
    const TimerLock lock;
    erps_timer_delete(&goes);
    erps_timer_delete(&goes);
  }
  EXPECT_EQ(goes.active, 0);
  EXPECT_THAT(timers(), ElementsAre("stays"));
}

TEST_F(TimerListTest, CancelOfARecordThatWasNeverInitialisedChangesNothing) {
  ERPS_TIMER_T timer{};  // zero-filled, as in a ring that never ran
  start("stays", 10);
  erps_timer_cancel(&timer);
  EXPECT_EQ(timer.active, 0);
  EXPECT_THAT(timers(), ElementsAre("stays"));
}

TEST_F(TimerListTest, CancelledTimerCanBeStartedAgain) {
  ERPS_TIMER_T& timer = start("again", 10);
  erps_timer_cancel(&timer);
  erps_timer_start(&timer, "");
  EXPECT_THAT(timers(), ElementsAre("again"));
}

TEST_F(TimerListTest, LockKeepsOthersOutAndForbidsCancellation) {
  int state = -1;
  {
    const TimerLock lock;
    EXPECT_EQ(pthread_mutex_trylock(&erps_timer_lock), EBUSY);
    pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, &state);
    EXPECT_EQ(state, PTHREAD_CANCEL_DISABLE);
  }
  EXPECT_EQ(pthread_mutex_trylock(&erps_timer_lock), 0);
  pthread_mutex_unlock(&erps_timer_lock);
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
  EXPECT_EQ(state, PTHREAD_CANCEL_ENABLE);
}

TEST_F(TimerListTest, LockLeavesCancellationForbiddenIfItWas) {
  int state = -1;
  pthread_setcancelstate(PTHREAD_CANCEL_DISABLE, nullptr);
  { const TimerLock lock; }
  pthread_setcancelstate(PTHREAD_CANCEL_ENABLE, &state);
  EXPECT_EQ(state, PTHREAD_CANCEL_DISABLE);
}

TEST_F(TimerListTest, TimeBeforeComparesSecondsOnly) {
  EXPECT_EQ(erps_time_before({1, 0}, {2, 0}), 1);
  EXPECT_EQ(erps_time_before({1, 999'999}, {2, 0}), 1);
  EXPECT_EQ(erps_time_before({2, 0}, {2, 5}), 0);
  EXPECT_EQ(erps_time_before({3, 0}, {2, 0}), 0);
}

TEST_F(TimerListTest, TimeAfterIsTrueAtAndBehindTheTime) {
  EXPECT_EQ(erps_time_after({1, 999'999}, {2, 0}), 1);
  EXPECT_EQ(erps_time_after({2, 100}, {2, 99}), 0);
  EXPECT_EQ(erps_time_after({2, 100}, {2, 100}), 1);
  EXPECT_EQ(erps_time_after({2, 100}, {2, 101}), 1);
  EXPECT_EQ(erps_time_after({3, 0}, {2, 999'999}), 0);
}

TEST_F(TimerListTest, SecondsAboveTwoToThe31CompareUnsigned) {
  EXPECT_EQ(erps_time_before({1, 0}, {0x80000000U, 0}), 1);
  EXPECT_EQ(erps_time_after({1, 0}, {0x80000000U, 0}), 1);
  EXPECT_EQ(erps_time_after({0x80000000U, 0}, {1, 0}), 0);
}

struct TimeoutCase {
  ERPS_TIME_T from;
  int32_t ms;
  ERPS_TIME_T to;
};

TEST_F(TimerListTest, TimeoutAddsMillisecondsWithOneCarry) {
  const TimeoutCase cases[] = {
      {{10, 0}, 0, {10, 0}},
      {{10, 250'000}, 500, {10, 750'000}},
      {{10, 499'999}, 500, {10, 999'999}},
      {{10, 500'000}, 500, {11, 0}},
      {{10, 999'999}, 999, {11, 998'999}},
      {{10, 1}, 1000, {11, 1}},
      {{10, 600'000}, 5500, {16, 100'000}},
      {{10, 0}, 300'000, {310, 0}},
  };
  for (const TimeoutCase& c : cases) {
    ERPS_TIME_T time = c.from;
    erps_calc_timeout(&time, c.ms);
    EXPECT_EQ(time.seconds, c.to.seconds) << c.from.microseconds << " us + " << c.ms << " ms";
    EXPECT_EQ(time.microseconds, c.to.microseconds)
        << c.from.microseconds << " us + " << c.ms << " ms";
  }
}

TEST_F(TimerListTest, RemainingTimeOfAnEarlierSecondIsNothing) {
  const ERPS_TIME_T expire = {9, 999'999};
  ERPS_TIME_T remaining = {10, 5};
  erps_get_expire_timer(&expire, &remaining);
  EXPECT_EQ(remaining.seconds, 0U);
  EXPECT_EQ(remaining.microseconds, 0);
}

TEST_F(TimerListTest, RemainingTimeWithinTheSameSecondIsInMicroseconds) {
  const ERPS_TIME_T expire = {10, 700};
  ERPS_TIME_T remaining = {10, 200};
  erps_get_expire_timer(&expire, &remaining);
  EXPECT_EQ(remaining.seconds, 0U);
  EXPECT_EQ(remaining.microseconds, 500);

  remaining = {10, 700};
  erps_get_expire_timer(&expire, &remaining);
  EXPECT_EQ(remaining.microseconds, 0);

  remaining = {10, 900};
  erps_get_expire_timer(&expire, &remaining);
  EXPECT_EQ(remaining.seconds, 0U);
  EXPECT_EQ(remaining.microseconds, 0);
}

TEST_F(TimerListTest, RemainingTimeOfALaterSecondPutsTheMicrosecondDifferenceIntoSeconds) {
  const ERPS_TIME_T expire = {12, 700};
  ERPS_TIME_T remaining = {10, 200};
  erps_get_expire_timer(&expire, &remaining);
  EXPECT_EQ(remaining.seconds, 500U);
  EXPECT_EQ(remaining.microseconds, 200);

  remaining = {10, 900};
  erps_get_expire_timer(&expire, &remaining);
  EXPECT_EQ(remaining.seconds, 999'800U);
  EXPECT_EQ(remaining.microseconds, 900);
}

TEST_F(TimerListTest, PresentTimeIsThePlatformsClock) {
  platform.set_time(123, 456);
  EXPECT_EQ(erps_time_now().seconds, 123U);
  EXPECT_EQ(erps_time_now().microseconds, 456);
}

}  // namespace
}  // namespace erps::test
