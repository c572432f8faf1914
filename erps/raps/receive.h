// Reception of R-APS messages: ring selection, validation, ranking, forwarding. Protocol task only.
#pragma once

#include <stdint.h>

#include "erps/raps/rx_pdu.h"
#include "erps/ring/ring.h"

// Results of the reception chain.
inline constexpr uint32_t kRxHandled = 0;
inline constexpr uint32_t kRxUnknownRing = 5;
inline constexpr uint32_t kRxIllegal = 6;
inline constexpr uint32_t kRxPortAbsent = 7;
inline constexpr uint32_t kRxGuarded = 23;
inline constexpr uint32_t kRxOwnFrame = 25;
inline constexpr uint32_t kRxNotSubRing = 26;

// One received frame; `frame` has at least erps::raps::kTaggedLength readable bytes, zero behind
// `length`. Returns the result of ERPS_IN_rx_pdu.
uint32_t erps_packet_process(uint32_t in_port, uint8_t* frame, uint32_t length);

// Finds the frame's ring and checks it. kRxHandled when a ring processed it, else the drop code.
uint32_t ERPS_IN_rx_pdu(ERPS_RX_PDU_T* descriptor);

// Processing and forwarding on an ordinary ring. kRxHandled or kRxGuarded.
uint32_t ERPS_port_rx_pdu(ERPSM_T* ring, ERPS_RX_PDU_T* descriptor, ERPS_PORT_T* port);

// 0 when a frame of a sub-ring instance arrived on a port of its major ring, else kRxNotSubRing.
uint32_t erps_check_pkt_is_sub_ring(const ERPSM_T* ring, const ERPS_RX_PDU_T* descriptor);

// Relays a frame of a ring that is unknown here through the ring that owns the arrival port.
void erps_forward_other_ring_raps(const ERPS_RX_PDU_T* descriptor);
