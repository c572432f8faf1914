// Sending R-APS messages: the ring's own, at once and then every five seconds, and single frames.
//
// Protocol task, and erps_send_raps_expire in the timer task. tx_frame is written and sent under
// the timer lock.
#pragma once

#include <stdint.h>

#include "erps/ring/ring.h"

// The node's address, source of every frame; read each time a ring starts.
extern uint8_t g_erps_src_mac[kMacLength];

inline constexpr uint8_t erps_raps_man_mac[kMacLength] = {0x01, 0x19, 0xA7, 0x00, 0x00, 0x00};

inline constexpr uint32_t kSendLogicNew = 2;  // send_logic: formatted, not yet sent

// Starts sending a message: once now and, unless it is an Event, every five seconds until
// erps_stop_Tx_RAPS. cause is the mach_enter number of the entry action that asks for it.
void erps_Tx_R_APS(ERPSM_T* ring, uint32_t request, uint32_t dnf, uint32_t rb, uint32_t cause);

// Stops the repetition. Returns 0.
int32_t erps_stop_Tx_RAPS(ERPSM_T* ring);

// Builds tx_frame from the ring's tx_ fields, which hold the same values as the arguments, and
// sends it.
void erps_format_raps_pkt(ERPSM_T* ring, uint32_t request, uint32_t dnf, uint32_t rb);

// Sends a formatted frame out of the ring's ports. The caller holds the timer lock when frame is
// the ring's tx_frame. Always 0.
uint32_t erps_tx_raps_pkt(ERPSM_T* ring, uint8_t* frame, uint32_t length);

// BPR bit of the message being formatted; consumes event_port.
uint32_t erps_tx_get_bpr(ERPSM_T* ring);

// Transmission of a sub-ring instance: through its major ring and through its own port.
void erps_interconnect_port_tx_raps(ERPSM_T* ring, const uint8_t* frame, uint32_t length);

// Sends one copy on the first port of the major ring that is up and forwarding.
void erps_send_pkt_to_masterring(ERPSM_T* ring, const uint8_t* frame, uint32_t length);

// Writes the interconnection mark into a frame of a major ring at a node that marks.
void erps_interconnect_modify_pkt(ERPSM_T* ring, uint8_t* frame, uint32_t port_id);

// The one place where frames leave the module. Returns the platform's result; vlan_id is not used,
// the tag is in the frame.
int32_t erps_send_frame(uint32_t port_id, const uint8_t* frame, uint32_t length, uint32_t vlan_id);

// Logs a frame as hexadecimal bytes, sixteen to a line.
void erps_printf_packet(const uint8_t* buffer, uint32_t length);

// Expiry action of the R-APS timer: sends tx_frame again as it stands. Timer task, lock held.
int32_t erps_send_raps_expire(ERPS_TIMER_T* timer);
