// Blocking and unblocking ring ports, and asking what is blocked. Protocol task only.
//
// Setters write the record first and then tell the switch; nothing is taken back when the switch
// refuses. They return the result of their last port operation, or 0 (erps_unblock_non_RPL_port:
// 24) when they changed nothing. On a sub-ring all of them look at the first port only.
#pragma once

#include <stdint.h>

#include "erps/ring/ring.h"

int32_t ERPS_OUT_set_port_state(ERPSM_T* ring, uint32_t port_id, uint32_t vlan_id, uint32_t state);

int32_t erps_block_RPL_port(ERPSM_T* ring);
int32_t erps_unblock_non_RPL_port(ERPSM_T* ring);
int32_t erps_block_requested_ring_port(ERPSM_T* ring);
int32_t erps_unblock_non_requested_ring_port(ERPSM_T* ring);
int32_t erps_block_failed_ring_port(ERPSM_T* ring);
int32_t erps_unblock_non_failed_ring_port(ERPSM_T* ring);
int32_t erps_unblock_ring_port(ERPSM_T* ring);
int32_t erps_block_indicate_ring_port(ERPSM_T* ring, uint32_t port_id);
int32_t erps_unblock_indicate_ring_port(ERPSM_T* ring, uint32_t port_id);

// The first port forwards, the second discards.
int32_t erps_block_one_and_Unblock_other(ERPSM_T* ring);

// Queries: 1 only if the record says blocked and the switch, where it is asked, says so too.
uint32_t RPL_port_is_block(const ERPSM_T* ring);
uint32_t erps_any_ring_port_blocked(const ERPSM_T* ring);
uint32_t erps_requested_ring_port_is_block(const ERPSM_T* ring);
uint32_t erps_failed_ring_port_is_already_blocked(const ERPSM_T* ring);
