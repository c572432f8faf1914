// What a received R-APS message asks for. Protocol task only.
#pragma once

#include <stdint.h>

#include "erps/ring/ring.h"

inline constexpr uint32_t kRxRepeatedMs = 27;

// Request code that a received request/state field and RB bit make; undefined fields and Event make
// none (0).
uint32_t get_raps_priority(uint32_t request, uint32_t rb);

// Text of a received request for logs.
const char* erps_get_raps_string(uint32_t request, uint32_t rb);

// kRxRepeatedMs when the message is a repetition of the remote MS that holds the node in manual,
// else 0.
uint32_t erps_proc_repeat_ms_cmd(const ERPSM_T* ring, const ERPS_PORT_T* port, const uint8_t* pdu);
