// Link state of ring ports, and the hold-off time (ITU-T G.8032 clause 10.1.8). Protocol task only.
#pragma once

#include <stdint.h>

#include "erps/ring/ring.h"

inline constexpr uint32_t kHoldoffEntries = 239;
inline constexpr uint32_t kLinkStateAttribute = 11;

// One link change of the switch, applied to every running ring that has the interface. Always 0.
uint32_t erps_link_change_trigger(uint32_t interface, uint32_t status);

// Applies one link state to one ring, without hold-off.
void erps_link_trigger_init(ERPSM_T* ring, uint32_t interface, uint32_t status);

// The consequences of an expired hold-off, up to and without the request itself.
void erps_holdoff_expired(ERPSM_T* ring);

// Request that a link state makes: local clear SF for 1, local SF for anything else.
uint32_t get_link_request(uint32_t status);

// 1 if the interface is a port of the ring (its first port, for a sub-ring).
uint32_t erps_interfaceid_is_legal(uint32_t interface, const ERPSM_T* ring);

// Records a changed link state; an unchanged one records nothing.
void erps_record_port_link_status(ERPSM_T* ring, uint32_t interface, uint32_t status);

// Reads a port's link and raises the request for it.
void erps_port_status_init(const ERPS_PORT_T* port, ERPSM_T* ring);

// Reads a port's link when its ring starts and opens the port if it is up. Returns the result of
// the port operation.
int32_t erps_port_start_init(ERPS_PORT_T* port, ERPSM_T* ring);

// Interface whose failure started the ring's hold-off; rings outside 1 to 239 have no entry:
// kNoPort, and setting one does nothing.
int32_t erps_holdoff_interface(uint32_t ring_id);
void erps_set_holdoff_interface(uint32_t ring_id, int32_t interface);
bool erps_has_holdoff_entry(uint32_t ring_id);
