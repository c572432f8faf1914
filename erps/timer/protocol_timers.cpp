#include "erps/timer/protocol_timers.h"

#include <pthread.h>
#include <string.h>
#include <time.h>

#include "erps/fsm/priority.h"
#include "erps/fsm/requests.h"
#include "erps/runtime/event_queue.h"
#include "erps/runtime/log.h"

uint32_t WTR_timer_time = 300000;
uint32_t WTB_timer_time = 5500;
uint32_t guard_timer_time = 500;
uint32_t holdoff_timer_time = 0;

namespace {

constexpr uint8_t kOneShot = 0;
constexpr uint8_t kPeriodic = 1;

uint32_t seconds_since_epoch() {
  return static_cast<uint32_t>(time(nullptr));
}

ERPS_TIME_T from_now(int32_t ms) {
  ERPS_TIME_T expire = erps_time_now();
  erps_calc_timeout(&expire, ms);
  return expire;
}

// Posts an expiry to the protocol task. The payload is the timer itself: nothing is allocated.
int32_t post_expiry(ERPS_TIMER_T* timer, uint32_t request) {
  timer->request = static_cast<int32_t>(request);
  ERPS_EVENT_MSG_T message{};
  message.event_class = kEventClass;
  message.sender = pthread_self();
  message.type = ERPS_EVENT_T_TIMER;
  message.payload = reinterpret_cast<uintptr_t>(timer);
  if (erps_event_queue == nullptr ||
      equeue_send_ucast(erps_event_queue, &message, kWaitForEver) <= 0) {
    ERPS_ERROR("\nerps timer tick send FAILED!\n");
    return -1;
  }
  return 0;
}

}  // namespace

int32_t erps_start_WTR_timer(ERPS_TIMER_T* timer) {
  ERPS_DEBUG_AT("enter \n");
  const auto period = static_cast<int32_t>(WTR_timer_time);
  ERPS_TIME_T expire = erps_time_now();
  expire.seconds += static_cast<uint32_t>(period / 1000);
  expire.microseconds = 0;
  erps_timer_set(timer, period, kOneShot, expire);
  const int32_t result = erps_timer_start(timer, "WTR TIMER");
  if (result != 0) {
    ERPS_DEBUG("ERPS SEND TIMER START FAILED.\n");
    return result;
  }
  ERPSM_T* ring = erps_ring_of_timer(timer);
  ring->timer_start_time = seconds_since_epoch();
  erps_priority_logic(ring, REQUEST_WTR_RUNNING);
  return 0;
}

int32_t erps_start_WTB_timer(ERPS_TIMER_T* timer) {
  const auto period = static_cast<int32_t>(WTB_timer_time);
  erps_timer_set(timer, period, kOneShot, from_now(period));
  const int32_t result = erps_timer_start(timer, "WTR TIMER");
  if (result != 0) {
    ERPS_DEBUG("ERPS SEND TIMER START FAILED.\n");
    return result;
  }
  ERPSM_T* ring = erps_ring_of_timer(timer);
  ring->timer_start_time = seconds_since_epoch();
  erps_priority_logic(ring, REQUEST_WTB_RUNNING);
  return 0;
}

int32_t erps_start_guard_timer(ERPS_TIMER_T* timer) {
  ERPS_DEBUG_AT("enter \n");
  ERPSM_T* ring = erps_ring_of_timer(timer);
  const auto period = static_cast<int32_t>(guard_timer_time);
  {
    // Setting the flag only after the timer could run would let an expiry in between be overwritten
    // and the guard never end.
    const TimerLock lock;
    timer->period = period;
    timer->repeat = kOneShot;
    timer->expire = from_now(period);
    ring->guard_running = 1;
  }
  const int32_t result = erps_timer_start(timer, "Guard timer");
  if (result != 0) {
    ring->guard_running = 0;
    ERPS_DEBUG("START GUARD TIMER FAILED.\n");
    return result;
  }
  ring->timer_start_time = seconds_since_epoch();
  return 0;
}

int32_t erps_start_holdoff_timer(ERPS_TIMER_T* timer) {
  ERPS_DEBUG_AT("enter \n");
  ERPSM_T* ring = erps_ring_of_timer(timer);
  const auto period = static_cast<int32_t>(holdoff_timer_time);
  erps_timer_set(timer, period, kOneShot, from_now(period));
  const int32_t result = erps_timer_start(timer, "Holdoff timer");
  if (result != 0) {
    ERPS_DEBUG("START GUARD TIMER FAILED.\n");
  }
  ring->holdoff_start_time = seconds_since_epoch();
  ring->holdoff_running = 1;
  return result;
}

void erps_pkt_send_timer(ERPS_TIMER_T* timer) {
  erps_timer_cancel(timer);
  ERPS_TIME_T expire = erps_time_now();
  expire.seconds += kRapsPeriodMs / 1000;
  erps_timer_set(timer, kRapsPeriodMs, kPeriodic, expire);
  ERPS_DEBUG_AT("timeout = %d period = %d\n", expire.seconds, kRapsPeriodMs);
  if (erps_timer_start(timer, "Send R-APS") != 0) {
    ERPS_DEBUG_AT("ERPS SEND TIMER START FAILED.\n");
  }
}

int32_t erps_stop_WTR_timer(ERPS_TIMER_T* timer) {
  erps_timer_cancel(timer);
  return stop_delay_timer_priority_logic(erps_ring_of_timer(timer), REQUEST_WTR_RUNNING);
}

int32_t erps_stop_WTB_timer(ERPS_TIMER_T* timer) {
  erps_timer_cancel(timer);
  return stop_delay_timer_priority_logic(erps_ring_of_timer(timer), REQUEST_WTB_RUNNING);
}

int32_t erps_stop_guard_timer(ERPS_TIMER_T* timer) {
  ERPS_DEBUG_AT("enter \n");
  erps_timer_cancel(timer);
  erps_ring_of_timer(timer)->guard_running = 0;
  return 0;
}

int32_t erps_stop_holdoff_timer(ERPS_TIMER_T* timer) {
  ERPS_DEBUG_AT("enter \n");
  erps_timer_cancel(timer);
  erps_ring_of_timer(timer)->holdoff_running = 0;
  return 0;
}

int32_t stop_delay_timer_priority_logic(ERPSM_T* ring, uint32_t msg) {
  if (ring == nullptr) {
    return 0;
  }
  ERPS_DEBUG_AT("msg = %d this->local_priority = %d \n", msg, ring->local_priority);
  ERPS_DEBUG("msg = %d this->local_priority = %d \n", msg, ring->local_priority);
  if ((msg == REQUEST_WTB_RUNNING || msg == REQUEST_WTR_RUNNING) && ring->local_priority == msg) {
    msg_2_machine(ring, REQUEST_NONE);
  }
  return 0;
}

uint32_t get_timer_priority(const char* text) {
  if (strcmp(text, "WTR_timer") == 0) {
    return REQUEST_WTR_EXPIRES;
  }
  return strcmp(text, "WTB_timer") == 0 ? REQUEST_WTB_EXPIRES : REQUEST_NONE;
}

int32_t erps_wtr_expire(ERPS_TIMER_T* timer) {
  ERPS_DEBUG_AT("timer type: REQUEST_WTR_EXPIRES timer internal %d ms\n", timer->period);
  return post_expiry(timer, REQUEST_WTR_EXPIRES);
}

int32_t erps_wtb_expire(ERPS_TIMER_T* timer) {
  ERPS_DEBUG_AT("timer type: REQUEST_WTR_EXPIRES timer internal %d ms\n", timer->period);
  return post_expiry(timer, REQUEST_WTB_EXPIRES);
}

int32_t erps_holdoff_timer_expire(ERPS_TIMER_T* timer) {
  ERPS_DEBUG_AT("timer type: REQUEST_LOCAL_SF timer internal %d ms\n", timer->period);
  return post_expiry(timer, REQUEST_LOCAL_SF);
}

int32_t erps_guard_expire(ERPS_TIMER_T* timer) {
  ERPS_DEBUG_AT("timer type: guard timer internal %d ms\n", timer->period);
  erps_ring_of_timer(timer)->guard_running = 0;
  return 0;
}
