// Starting, stopping and resetting a ring's protocol. Protocol task only.
#pragma once

#include <stdint.h>

#include "erps/ring/ring.h"

// Forgets priorities and state. Always 0.
uint32_t erps_sm_reset(ERPSM_T* ring);

// Reads the links, sets up the timers and enters the first state; the caller's name is not used.
// Always 0.
uint32_t erps_start_func(ERPSM_T* ring, const char* caller);

// Ends transmission and the delay timers and opens the ring ports whose link is up. Guard and
// hold-off run out by themselves. Returns the result of the last port operation.
int32_t erps_stop_func(ERPSM_T* ring);

// Starts (1) or stops (anything else) the ring unless it is so already. Always 0.
uint32_t ERPS_erpsm_enable(ERPSM_T* ring, uint32_t enable);
