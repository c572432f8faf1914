// Creating rings and ports, giving a ring other ports, removing rings. Protocol task only.
#pragma once

#include <stdint.h>

#include "erps/ring/ring.h"

// A new, stopped ring at the head of the ring list, or null without memory.
ERPSM_T* erps_ring_create(uint32_t ring_id, uint32_t port0, uint32_t port1, uint32_t vlan_id,
                          uint32_t node_role, uint32_t ring_role);

// An uninitialised block of 14 state entries, or null.
ERPS_STATE_ENTRY_T* erps_state_malloc();

// Gives the ring its two port records. 0, or 1 without memory.
uint32_t erps_port_create(ERPSM_T* ring, const uint32_t port_ids[kPortsPerRing]);

// Re-uses the port records for other ports; the RPL marker goes back to the second one, link and
// port states stay.
void erps_change_port(ERPSM_T* ring, const uint32_t port_ids[kPortsPerRing]);

void erps_del_port(ERPSM_T* ring);

// Stops the ring and frees it with all that it owns; also for one that is only half built.
void erps_ring_remove(ERPSM_T* ring);

// Unlinks the ring and frees its record. A ring that is not in the list is left alone.
void erps_release_ring(ERPSM_T* ring);
