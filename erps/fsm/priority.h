// Accepting or refusing a request against the local request in force. Protocol task only.
#pragma once

#include <stdint.h>

#include "erps/ring/ring.h"

// 1 if the request was accepted: mach_enter and local_priority are set and the caller runs
// ERPS_erpsm_update. 0 if it is ignored.
uint32_t erps_priority_logic(ERPSM_T* ring, uint32_t msg);

// Writes mach_enter and local_priority for a request code; codes above 14 write nothing.
void msg_2_machine(ERPSM_T* ring, uint32_t msg);
