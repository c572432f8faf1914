// The records of a ring: the ring itself, its two ports, its state list.
//
// Owned and changed by the protocol task; concurrency.h tells what the timer task may see.
#pragma once

#include <stdint.h>

#include "erps/timer/timer_list.h"

inline constexpr uint32_t kMacLength = 6;
inline constexpr uint32_t kPortsPerRing = 2;
inline constexpr uint32_t kStateEntries = 14;
inline constexpr uint32_t kTxFrameCapacity = 256;
inline constexpr uint32_t kTopoInfoLength = 32;

// Roles a ring has at this node.
inline constexpr uint32_t kMajorRing = 0;
inline constexpr uint32_t kOpenChannelRing = 1;  // R-APS passes its blocked ports
inline constexpr uint32_t kSubRing = 2;          // one-port instance at an interconnection node

// Bits of node_role.
inline constexpr uint32_t kRplOwner = 1;
inline constexpr uint32_t kRplNeighbour = 2;
inline constexpr uint32_t kNoRplNode = 4;

// Values of inter_node_role: 1 watches the major ring for its sub-ring, any other only marks.
inline constexpr uint32_t kWatching = 1;

// Indications of a major ring to its sub-ring instance, kept in notify_state.
inline constexpr uint32_t kMajorRingCut = 1;
inline constexpr uint32_t kMajorRingWhole = 2;

// Port states, in the records and towards the switch.
inline constexpr uint16_t kDiscarding = 1;
inline constexpr uint16_t kForwarding = 4;

inline constexpr uint16_t kLinkUp = 1;
inline constexpr uint16_t kLinkDown = 0;

inline constexpr uint32_t kAbsentPort = 255;  // second port of a sub-ring; "flushed" in flush_port
inline constexpr int32_t kNoPort = -1;        // event_port, inter_fault_port

struct ERPSM_T;
struct ERPS_STATE_ENTRY_T;

using ERPS_ENTER_STATE_T = uint32_t (*)(ERPS_STATE_ENTRY_T* entry);

// A request's entry action in a ring's state list.
struct ERPS_STATE_ENTRY_T {
  ERPS_STATE_ENTRY_T* next;
  const char* name;
  ERPS_ENTER_STATE_T enter;
  ERPSM_T* ring;
};

struct ERPS_PORT_T {
  ERPS_PORT_T* next;
  uint32_t port_id;              // interface number of the switch
  void* port_buffer;             // from malloc; freed with the port when set
  uint32_t port_role;            // 1 the RPL port of this node, 0 the other
  Shared<uint16_t> link_status;  // 1 up, 0 down
  Shared<uint16_t> port_state;   // 4 forwarding, 1 discarding
  uint8_t rx_bpr;                // last (node ID, BPR) pair received here (G.8032 clause 10.1.10)
  uint8_t rx_node_id[kMacLength];
  uint32_t fail_count;  // failure reports received here and not yet cleared
  uint32_t port_index;  // 0 or 1
  ERPSM_T* ring;
};

struct ERPSM_T {
  ERPSM_T* next;
  ERPS_PORT_T* port_list;
  uint8_t state_entered;  // set whenever a state is entered, for the host's debugger
  int32_t State;
  ERPS_STATE_ENTRY_T* state_list;
  ERPS_STATE_ENTRY_T* state_block;
  ERPS_PORT_T* port_block;
  uint32_t mach_enter;
  uint32_t local_priority;
  uint8_t non_revertive;
  Shared<uint8_t> enable;
  Shared<uint32_t> vlan_id;
  void* aux_buffer;  // from malloc; freed with the ring when set
  uint32_t ring_id;
  Shared<uint32_t> interconnect_ring_id;
  Shared<uint32_t> ring_role;
  Shared<uint32_t> inter_node_role;
  Shared<int32_t> inter_fault_port;
  uint8_t notify_state;
  uint32_t node_role;
  int32_t event_port;
  int32_t flush_port;
  uint8_t tx_request;
  uint8_t tx_dnf;
  uint8_t tx_rb;
  uint8_t remote_node_id[kMacLength];
  uint8_t local_node_id[kMacLength];
  uint32_t request_port;
  uint32_t tx_interval;  // ms, informative: the repetition has its own constant
  uint32_t current_priority;
  uint32_t tx_cause;
  Shared<uint32_t> send_logic;
  Shared<uint32_t> guard_running;
  uint32_t holdoff_running;
  uint8_t tx_frame[kTxFrameCapacity];
  uint32_t tx_frame_len;
  uint8_t topo_raps_info[kTopoInfoLength];
  ERPS_TIMER_T wtr_timer;
  ERPS_TIMER_T wtb_timer;
  ERPS_TIMER_T guard_timer;
  ERPS_TIMER_T holdoff_timer;
  ERPS_TIMER_T raps_timer;
  uint32_t timer_start_time;    // seconds since the epoch: last start of WTR, WTB or guard
  uint32_t holdoff_start_time;  // seconds since the epoch
};

inline bool erps_is_sub_ring(const ERPSM_T* ring) {
  return ring->ring_role == kSubRing;
}

// The port to look at after `port` in a walk: a sub-ring has only its first one.
inline ERPS_PORT_T* erps_next_port(const ERPSM_T* ring, const ERPS_PORT_T* port) {
  return erps_is_sub_ring(ring) ? nullptr : port->next;
}

// The ring that embeds a timer which has been initialised.
inline ERPSM_T* erps_ring_of_timer(const ERPS_TIMER_T* timer) {
  return static_cast<ERPSM_T*>(timer->arg);
}
