#include "erps/timer/timer_list.h"

#include <sys/time.h>

#include "erps/runtime/log.h"

namespace {
constexpr int32_t kMicrosecondsPerSecond = 1'000'000;
constexpr uintptr_t kPoisonNext = 0x00100100;
constexpr uintptr_t kPoisonPrev = 0x00200200;

void link_between(ERPS_TIMER_LINK_T* record, ERPS_TIMER_LINK_T* before, ERPS_TIMER_LINK_T* after) {
  record->prev = before;
  record->next = after;
  before->next = record;
  after->prev = record;
}
}  // namespace

ERPS_TIMER_LINK_T g_erps_timer_list = {&g_erps_timer_list, &g_erps_timer_list};
pthread_mutex_t erps_timer_lock = PTHREAD_MUTEX_INITIALIZER;

TimerLock::TimerLock() {
  pthread_mutex_lock(&erps_timer_lock);
}

TimerLock::~TimerLock() {
  pthread_mutex_unlock(&erps_timer_lock);
}

ERPS_TIMER_LINK_T* erps_timer_poison_next() {
  return reinterpret_cast<ERPS_TIMER_LINK_T*>(kPoisonNext);  // NOLINT(performance-no-int-to-ptr)
}

ERPS_TIMER_LINK_T* erps_timer_poison_prev() {
  return reinterpret_cast<ERPS_TIMER_LINK_T*>(kPoisonPrev);  // NOLINT(performance-no-int-to-ptr)
}

void erps_timer_init(ERPS_TIMER_T* timer, void* arg, ERPS_TIMER_CALLBACK_T callback) {
  timer->next = erps_timer_poison_next();
  timer->prev = erps_timer_poison_prev();
  timer->arg = arg;
  timer->callback = callback;
  timer->period = 0;
  timer->expire = {};
  timer->repeat = 0;
  timer->active = 0;
  timer->request = 0;
  for (char& character : timer->name) {
    character = '\0';
  }
}

void erps_timer_set(ERPS_TIMER_T* timer, int32_t period_ms, uint8_t repeat, ERPS_TIME_T expire) {
  const TimerLock lock;
  timer->period = period_ms;
  timer->repeat = repeat;
  timer->expire = expire;
}

int32_t erps_timer_start(ERPS_TIMER_T* timer, const char* /*label*/) {
  const TimerLock lock;
  if (timer->active == 0) {
    erps_timer_insert(timer);
  }
  return 0;
}

void erps_timer_cancel(ERPS_TIMER_T* timer) {
  const TimerLock lock;
  if (timer->active == 1) {
    erps_timer_delete(timer);
  }
}

int32_t erps_timer_insert(ERPS_TIMER_T* timer) {
  ERPS_TIMER_LINK_T* const head = &g_erps_timer_list;
  timer->active = 1;

  if (head->next == head) {
    ERPS_DEBUG_AT("empty timer:%s, peroid= %d repeat = %d\n", timer->name, timer->period,
                  timer->repeat);
    link_between(timer, head, head);
    return 1;
  }
  for (ERPS_TIMER_LINK_T* link = head->next; link != head; link = link->next) {
    if (static_cast<ERPS_TIMER_T*>(link)->expire.seconds > timer->expire.seconds) {
      ERPS_DEBUG_AT("timer:%s, peroid= %d repeat = %d\n", timer->name, timer->period,
                    timer->repeat);
      link_between(timer, link->prev, link);
      return 1;
    }
  }
  ERPS_DEBUG_AT("insert tail timer:%s, peroid= %d repeat = %d\n", timer->name, timer->period,
                timer->repeat);
  link_between(timer, head->prev, head);
  return 1;
}

void erps_timer_delete(ERPS_TIMER_T* timer) {
  if (timer->next == erps_timer_poison_next()) {
    return;
  }
  timer->prev->next = timer->next;
  timer->next->prev = timer->prev;
  timer->next = erps_timer_poison_next();
  timer->prev = erps_timer_poison_prev();
  timer->active = 0;
}

int32_t erps_time_before(ERPS_TIME_T a, ERPS_TIME_T b) {
  return a.seconds < b.seconds ? 1 : 0;
}

int32_t erps_time_after(ERPS_TIME_T a, ERPS_TIME_T b) {
  if (a.seconds != b.seconds) {
    return a.seconds < b.seconds ? 1 : 0;
  }
  return b.microseconds >= a.microseconds ? 1 : 0;
}

void erps_calc_timeout(ERPS_TIME_T* time, int32_t ms) {
  time->seconds += static_cast<uint32_t>(ms / 1000);
  time->microseconds += (ms % 1000) * 1000;
  if (time->microseconds >= kMicrosecondsPerSecond) {
    time->microseconds -= kMicrosecondsPerSecond;
    ++time->seconds;
  }
}

void erps_get_expire_timer(const ERPS_TIME_T* expire, ERPS_TIME_T* remaining) {
  const int32_t difference = expire->microseconds - remaining->microseconds;
  if (expire->seconds < remaining->seconds) {
    *remaining = {};
  } else if (expire->seconds == remaining->seconds) {
    remaining->seconds = 0;
    remaining->microseconds = difference > 0 ? difference : 0;
  } else {
    remaining->seconds =
        static_cast<uint32_t>(difference < 0 ? difference + kMicrosecondsPerSecond : difference);
  }
}

ERPS_TIME_T erps_time_now() {
  timeval now{};
  gettimeofday(&now, nullptr);
  return {static_cast<uint32_t>(now.tv_sec), static_cast<int32_t>(now.tv_usec)};
}
