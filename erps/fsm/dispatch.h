// From an accepted request to its entry action. Protocol task only.
#pragma once

#include <stdint.h>

#include "erps/ring/ring.h"

// Runs the entry action of the row that mach_enter names, if there is one; on a sub-ring then looks
// for an indication that waits. Always 0.
uint32_t ERPS_erpsm_update(ERPSM_T* ring);

// Runs one entry's action. Always 0.
uint32_t ERPS_change_condition(ERPS_STATE_ENTRY_T* entry);

// 1 if the row with this name is the one that mach_enter names.
uint32_t erpsm_state_mach_compare(const char* name, uint32_t mach_enter);

// Sets the node state. Always 1.
uint32_t ERPS_hop_2_state(ERPSM_T* ring, int32_t new_state);

// Replays an indication that the major ring is cut, once the sub-ring is idle.
void erps_sub_ring_recover_proc(ERPSM_T* ring);
