// Recognising the repetition of a manual switch that is already in force. Protocol task only.
#pragma once

#include <stdint.h>

#include "erps/ring/ring.h"

inline constexpr uint32_t kRxRepeatedMs = 27;

// kRxRepeatedMs when the message is a repetition of the remote MS that holds the node in manual,
// else 0.
uint32_t erps_proc_repeat_ms_cmd(const ERPSM_T* ring, const ERPS_PORT_T* port, const uint8_t* pdu);
