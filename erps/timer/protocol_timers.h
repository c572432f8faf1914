// The five protocol timers of a ring: WTR, WTB, guard, hold-off and the repetition of R-APS
// messages (ITU-T G.8032 clause 10.1.4 to 10.1.8). Started and stopped by the protocol task; the
// expiry actions run in the timer task with the timer lock held.
#pragma once

#include <stdint.h>

#include "erps/ring/ring.h"

// Times in ms, for all rings, read when a timer starts. Protocol task only.
extern uint32_t WTR_timer_time;
extern uint32_t WTB_timer_time;
extern uint32_t guard_timer_time;
extern uint32_t holdoff_timer_time;

inline constexpr int32_t kRapsPeriodMs = 5000;

// Starting a running timer gives it new times and leaves it where it is in the list. 0 on success.
// The WTR timer ends on a whole second: milliseconds below a second are dropped. WTR and WTB also
// raise the requests WTR running and WTB running.
int32_t erps_start_WTR_timer(ERPS_TIMER_T* timer);
int32_t erps_start_WTB_timer(ERPS_TIMER_T* timer);
int32_t erps_start_guard_timer(ERPS_TIMER_T* timer);
int32_t erps_start_holdoff_timer(ERPS_TIMER_T* timer);

// (Re)starts the five-second repetition from now.
void erps_pkt_send_timer(ERPS_TIMER_T* timer);

// Stopping WTR or WTB withdraws the ring's WTR running or WTB running request if it stands. Always
// 0.
int32_t erps_stop_WTR_timer(ERPS_TIMER_T* timer);
int32_t erps_stop_WTB_timer(ERPS_TIMER_T* timer);
int32_t erps_stop_guard_timer(ERPS_TIMER_T* timer);
int32_t erps_stop_holdoff_timer(ERPS_TIMER_T* timer);

// Drops the local request if it is msg, and msg is WTR running or WTB running. A timer that was
// never initialised has no ring: null does nothing. Always 0.
int32_t stop_delay_timer_priority_logic(ERPSM_T* ring, uint32_t msg);

// Request code of an expiry: 6 for "WTR_timer", 4 for "WTB_timer", else 0.
uint32_t get_timer_priority(const char* text);

// Expiry actions.
int32_t erps_wtr_expire(ERPS_TIMER_T* timer);
int32_t erps_wtb_expire(ERPS_TIMER_T* timer);
int32_t erps_guard_expire(ERPS_TIMER_T* timer);
int32_t erps_holdoff_timer_expire(ERPS_TIMER_T* timer);
