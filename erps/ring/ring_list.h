// The list of all rings, newest first, and the look-ups in it.
//
// Protocol task; the timer task may look up too, with the timer lock held.
#pragma once

#include <stdint.h>

#include "erps/ring/ring.h"

// First ring, or null.
ERPSM_T* erps_get_list_head();

// Links a ring at the head.
void erps_ring_link(ERPSM_T* ring);

// Unlinks the ring with this ID and returns it, or null when no ring has it. The record stays
// whole.
ERPSM_T* erps_ring_unlink(uint32_t ring_id);

ERPSM_T* erpsapi_erpsm_find(uint32_t ring_id);

// The ring's port with this ID, or null. The second port of a sub-ring is never found.
ERPS_PORT_T* erps_port_find(const ERPSM_T* ring, uint32_t port_id);

// The newest ring that has a port with this ID, second ports of sub-rings included, or null.
ERPSM_T* erps_find_ring_by_port(uint32_t port_id);

// The first port of the ring with another ID than this, or null.
ERPS_PORT_T* erps_other_port_find(const ERPSM_T* ring, uint32_t port_id);

// 1 if the remote node ID is lower than the local one; 0 if it is higher or the same.
uint32_t erps_cmp_node_id(const ERPSM_T* ring);
