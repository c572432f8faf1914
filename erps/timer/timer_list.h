// The ordered list of running timers, its lock, and time arithmetic.
//
// Records are not allocated: each ring embeds its own. The list is circular through its head and
// kept in order of the expiry's whole seconds; among equal seconds, first in stays first.
#pragma once

#include <pthread.h>
#include <stdint.h>

#include "erps/runtime/concurrency.h"

// A point of the gettimeofday clock.
struct ERPS_TIME_T {
  uint32_t seconds;
  int32_t microseconds;
};

struct ERPS_TIMER_LINK_T {
  ERPS_TIMER_LINK_T* next;
  ERPS_TIMER_LINK_T* prev;
};

struct ERPS_TIMER_T;
using ERPS_TIMER_CALLBACK_T = int32_t (*)(ERPS_TIMER_T* timer);

struct ERPS_TIMER_T : ERPS_TIMER_LINK_T {
  void* arg;                       // the owning ring
  ERPS_TIMER_CALLBACK_T callback;  // run by the timer task with the lock held; may be null
  int32_t period;                  // ms
  ERPS_TIME_T expire;
  uint8_t repeat;           // 1 periodic, anything else one-shot
  Shared<uint8_t> active;   // 1 while linked
  Shared<int32_t> request;  // request code that the expiry reports
  char name[32];            // for log lines
};

extern ERPS_TIMER_LINK_T g_erps_timer_list;
extern pthread_mutex_t erps_timer_lock;

// Holds erps_timer_lock; the thread cannot be cancelled meanwhile.
class TimerLock {
 public:
  TimerLock();
  ~TimerLock();
  TimerLock(const TimerLock&) = delete;
  TimerLock& operator=(const TimerLock&) = delete;

 private:
  NoCancellation no_cancellation_;
};

// Links of a record that is in no list: addresses that fault when followed.
ERPS_TIMER_LINK_T* erps_timer_poison_next();
ERPS_TIMER_LINK_T* erps_timer_poison_prev();

// Clears the record and stores owner and expiry action. The record must not be linked.
void erps_timer_init(ERPS_TIMER_T* timer, void* arg, ERPS_TIMER_CALLBACK_T callback);

// Writes the times of a record under the lock, without moving it.
void erps_timer_set(ERPS_TIMER_T* timer, int32_t period_ms, uint8_t repeat, ERPS_TIME_T expire);

// Links the record unless it is active already: an active record keeps its place in the list, with
// whatever times it has been given since. Always 0; the label is not used.
int32_t erps_timer_start(ERPS_TIMER_T* timer, const char* label);

// Unlinks the record if it is active. The expiry action is not running, and will not run, once this
// has returned.
void erps_timer_cancel(ERPS_TIMER_T* timer);

// The caller holds the lock. Insert always returns 1; deleting an unlinked record does nothing.
int32_t erps_timer_insert(ERPS_TIMER_T* timer);
void erps_timer_delete(ERPS_TIMER_T* timer);

// 1 if a lies in an earlier second than b.
int32_t erps_time_before(ERPS_TIME_T a, ERPS_TIME_T b);

// 1 if b is at or past a: erps_time_after(expire, now) asks whether a timer has expired.
int32_t erps_time_after(ERPS_TIME_T a, ERPS_TIME_T b);

// Adds ms milliseconds to *time.
void erps_calc_timeout(ERPS_TIME_T* time, int32_t ms);

// *remaining comes in as the present time and goes out as what is left until `expire`: nothing when
// that lies in an earlier second; the microseconds when it is this second; otherwise only `seconds`
// is written, with the difference of the microseconds, made positive.
void erps_get_expire_timer(const ERPS_TIME_T* expire, ERPS_TIME_T* remaining);

// The present time of the gettimeofday clock.
ERPS_TIME_T erps_time_now();
