// Requests, node states and state-list rows: their codes, their order and their names, in one table
// each (ITU-T G.8032 clause 10.1.1: a larger request code is a higher priority).
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <array>

enum ERPS_REQUEST_T : uint32_t {
  REQUEST_NONE = 0,
  REQUEST_RAPS_NR = 1,
  REQUEST_RAPS_NR_RB = 2,
  REQUEST_WTB_RUNNING = 3,
  REQUEST_WTB_EXPIRES = 4,
  REQUEST_WTR_RUNNING = 5,
  REQUEST_WTR_EXPIRES = 6,
  REQUEST_MS = 7,
  REQUEST_RAPS_MS = 8,
  REQUEST_RAPS_SF = 9,
  REQUEST_LOCAL_CLEAR_SF = 10,
  REQUEST_LOCAL_SF = 11,
  REQUEST_RAPS_FS = 12,
  REQUEST_FS = 13,
  REQUEST_CLEAR = 14,
};
inline constexpr uint32_t kRequestCount = 15;

enum ERPS_NODE_STATE_T : int32_t {
  STATE_INIT = 0,
  STATE_IDLE = 1,
  STATE_PROTECTION = 2,
  STATE_MANUAL = 3,
  STATE_FORCED = 4,
  STATE_PENDING = 5,
};

// mach_enter: which row of the state list the next update enters. 10 and 12 belong to the two
// requests that only record a running timer, and name no row.
enum ERPS_MACH_ENTER_T : uint32_t {
  ENTER_INIT = 0,
  ENTER_CLEAR = 1,
  ENTER_FS = 2,
  ENTER_RAPS_FS = 3,
  ENTER_LOCAL_SF = 4,
  ENTER_LOCAL_CLEAR_SF = 5,
  ENTER_RAPS_SF = 6,
  ENTER_RAPS_MS = 7,
  ENTER_MS = 8,
  ENTER_WTR_EXPIRES = 9,
  ENTER_WTB_EXPIRES = 11,
  ENTER_RAPS_NR_RB = 13,
  ENTER_RAPS_NR = 14,
};

// What accepting a request writes into the ring.
struct ERPS_REQUEST_ROW_T {
  uint32_t request;
  bool dispatches;  // mach_enter = 15 - request
  bool sets_local;  // local_priority = local
  uint32_t local;

  constexpr uint32_t mach_enter() const { return kRequestCount - request; }
};

inline constexpr std::array<ERPS_REQUEST_ROW_T, kRequestCount> kRequestTable = {{
    {REQUEST_NONE, false, true, REQUEST_NONE},
    {REQUEST_RAPS_NR, true, false, 0},
    {REQUEST_RAPS_NR_RB, true, false, 0},
    {REQUEST_WTB_RUNNING, false, true, REQUEST_WTB_RUNNING},
    {REQUEST_WTB_EXPIRES, true, true, REQUEST_NONE},
    {REQUEST_WTR_RUNNING, false, true, REQUEST_WTR_RUNNING},
    {REQUEST_WTR_EXPIRES, true, true, REQUEST_NONE},
    {REQUEST_MS, true, true, REQUEST_MS},
    {REQUEST_RAPS_MS, true, false, 0},
    {REQUEST_RAPS_SF, true, false, 0},
    {REQUEST_LOCAL_CLEAR_SF, true, true, REQUEST_NONE},
    {REQUEST_LOCAL_SF, true, true, REQUEST_LOCAL_SF},
    {REQUEST_RAPS_FS, true, false, 0},
    {REQUEST_FS, true, true, REQUEST_FS},
    {REQUEST_CLEAR, true, true, REQUEST_NONE},
}};

// A row of the state list: the number that enters it and the name it is found by.
struct ERPS_STATE_ROW_T {
  uint32_t mach_enter;
  const char* name;
};

inline constexpr size_t kStateRows = 13;
inline constexpr std::array<ERPS_STATE_ROW_T, kStateRows> kStateRowTable = {{
    {ENTER_INIT, "init"},
    {ENTER_CLEAR, "clear"},
    {ENTER_FS, "FS"},
    {ENTER_RAPS_FS, "RAPS_FS"},
    {ENTER_LOCAL_SF, "local_SF"},
    {ENTER_LOCAL_CLEAR_SF, "local_clear_SF"},
    {ENTER_RAPS_SF, "RAPS_SF"},
    {ENTER_RAPS_MS, "RAPS_MS"},
    {ENTER_MS, "MS"},
    {ENTER_WTR_EXPIRES, "WTR_expires"},
    {ENTER_WTB_EXPIRES, "WTB_expires"},
    {ENTER_RAPS_NR_RB, "RAPS_NR_RB"},
    {ENTER_RAPS_NR, "RAPS_NR"},
}};

// Every code stands at its own index, every request that dispatches has a row and every row but
// "init" a request, and only local requests stay in force.
constexpr bool erps_request_tables_agree() {
  size_t dispatching = 0;
  for (uint32_t code = 0; code < kRequestCount; ++code) {
    const ERPS_REQUEST_ROW_T& row = kRequestTable[code];
    if (row.request != code || (row.local != 0 && (!row.sets_local || row.local != code))) {
      return false;
    }
    if (!row.dispatches) {
      continue;
    }
    ++dispatching;
    bool found = false;
    for (const ERPS_STATE_ROW_T& state_row : kStateRowTable) {
      found = found || state_row.mach_enter == row.mach_enter();
    }
    if (!found) {
      return false;
    }
  }
  for (size_t i = 1; i < kStateRows; ++i) {
    if (kStateRowTable[i - 1].mach_enter >= kStateRowTable[i].mach_enter) {
      return false;
    }
  }
  return dispatching + 1 == kStateRows;
}
static_assert(erps_request_tables_agree());

// Name of a node state for logs; "notting" for a number that is none.
const char* erps_state_name(int32_t state);
