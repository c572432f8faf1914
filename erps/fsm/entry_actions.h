// The thirteen entry actions of the node state machine (ITU-T G.8032 table 10-2). Protocol task
// only.
//
// Each acts on the ring of its state-list entry according to the node state and role; the result is
// not used.
#pragma once

#include <stdint.h>

#include <array>

#include "erps/fsm/requests.h"
#include "erps/ring/ring.h"

struct ERPS_FUNC_T {
  char name[16];
  ERPS_ENTER_STATE_T enter;
};

extern const std::array<ERPS_FUNC_T, kStateRows> erps_func_array;

uint32_t ERPS_init_enter_state(ERPS_STATE_ENTRY_T* entry);
uint32_t ERPS_clear_enter_state(ERPS_STATE_ENTRY_T* entry);
uint32_t ERPS_FS_enter_state(ERPS_STATE_ENTRY_T* entry);
uint32_t ERPS_RAPS_FS_enter_state(ERPS_STATE_ENTRY_T* entry);
uint32_t ERPS_local_SF_enter_state(ERPS_STATE_ENTRY_T* entry);
uint32_t ERPS_local_clear_SF_enter_state(ERPS_STATE_ENTRY_T* entry);
uint32_t ERPS_RAPS_SF_enter_state(ERPS_STATE_ENTRY_T* entry);
uint32_t ERPS_RAPS_MS_enter_state(ERPS_STATE_ENTRY_T* entry);
uint32_t ERPS_MS_enter_state(ERPS_STATE_ENTRY_T* entry);
uint32_t ERPS_WTR_expires_enter_state(ERPS_STATE_ENTRY_T* entry);
uint32_t ERPS_WTB_expires_enter_state(ERPS_STATE_ENTRY_T* entry);
uint32_t ERPS_RAPS_NR_RB_enter_state(ERPS_STATE_ENTRY_T* entry);
uint32_t ERPS_RAPS_NR_enter_state(ERPS_STATE_ENTRY_T* entry);
