// Operator commands: forced switch, manual switch, clear, topology change. Protocol task only.
//
// Results: 0 done, or nothing to do (also for a stopped ring and a request that is refused by its
// priority); 3 no such ring; 23 the ring has no such port.
#pragma once

#include <stdint.h>

uint32_t erps_cmd_fs_pro(uint32_t ring_id, uint32_t port_id);
uint32_t erps_cmd_ms_pro(uint32_t ring_id, uint32_t port_id);
uint32_t erps_cmd_clear_pro(uint32_t ring_id);

// Sends one R-APS Event.
void erps_cmd_topo_change_pro(uint32_t ring_id);
