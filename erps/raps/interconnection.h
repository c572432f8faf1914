// Sub-rings and interconnection nodes (ITU-T G.8032 clause 9.7, 10.1.11): what crosses between a
// sub-ring instance and its major ring. Protocol task only.
#pragma once

#include <stdint.h>

#include "erps/raps/rx_pdu.h"
#include "erps/ring/ring.h"

// Reception for a sub-ring instance. 0, or 23 when the guard timer dropped the message.
uint32_t erps_sub_ring_pdu_proc(ERPSM_T* ring, ERPS_RX_PDU_T* descriptor);

// The major ring's side: a received message (descriptor given) or a link change of one of its ports
// (descriptor null; link 1 up, 0 down).
void erps_interconnectnode_special_proc(ERPSM_T* ring, ERPS_RX_PDU_T* descriptor, uint32_t link,
                                        uint32_t port_id);
void erps_interconnectnode_pkt_proc(ERPSM_T* major, ERPS_RX_PDU_T* descriptor);
void erps_interconnectnode_link_proc(ERPSM_T* major, uint32_t link, uint32_t port_id);

// Interconnection flush: makes the major ring of a sub-ring instance send an Event. Without a
// descriptor it does so when force is set.
void erps_topology_change(ERPSM_T* ring, const ERPS_RX_PDU_T* descriptor, uint32_t force);

// The major ring's indication to its sub-ring instance.
void erps_notify_sub_ring(uint32_t ring_id, uint32_t indication);
