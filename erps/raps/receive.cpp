#include "erps/raps/receive.h"

#include <string.h>

#include "erps/fsm/dispatch.h"
#include "erps/fsm/fdb_flush.h"
#include "erps/fsm/priority.h"
#include "erps/raps/frame.h"
#include "erps/raps/interconnection.h"
#include "erps/raps/ranking.h"
#include "erps/raps/transmit.h"
#include "erps/ring/ring_list.h"
#include "erps/runtime/log.h"

namespace raps = erps::raps;

namespace {

constexpr uint32_t kVlanMask = 0x0FFF;

// The received frame is taken to carry one tag; all offsets are those of a tagged frame.
ERPS_RX_PDU_T describe(uint32_t in_port, uint8_t* frame, uint32_t length) {
  ERPS_RX_PDU_T descriptor{};
  descriptor.frame = frame;
  descriptor.ring_id = frame[raps::kRingIdOffset];
  descriptor.vlan_id =
      (static_cast<uint32_t>(frame[raps::kTciOffset]) << 8 | frame[raps::kTciOffset + 1]) &
      kVlanMask;
  descriptor.pdu = frame + raps::kTaggedPdu;
  descriptor.length = length;
  descriptor.in_port = in_port;
  return descriptor;
}

bool carries_traffic(const ERPS_PORT_T* port) {
  return port->link_status == kLinkUp && port->port_state == kForwarding;
}

// R-APS messages follow the traffic, except on a ring whose channel is open.
bool may_forward(const ERPSM_T* ring, const ERPS_PORT_T* in, const ERPS_PORT_T* out) {
  if (out == nullptr) {
    return false;
  }
  if (ring->ring_role == kOpenChannelRing && out->link_status == kLinkUp) {
    return true;
  }
  return in->port_state == kForwarding && carries_traffic(out);
}

}  // namespace

uint32_t erps_packet_process(uint32_t in_port, uint8_t* frame, uint32_t length) {
  ERPS_DEBUG("erps_packet_process !~\n");
  ERPS_RX_PDU_T descriptor = describe(in_port, frame, length);
  const raps::PduView message(descriptor.pdu);
  const uint8_t* node = message.node_id();
  ERPS_DEBUG_AT(
      "\nInport: %d RAPS TYPE : %s ..Block Port Ref:%d, %s Block Port Node : "
      "%02x:%02x:%02x:%02x:%02x:%02x\n",
      in_port, erps_get_raps_string(message.request(), message.rb()), message.bpr(),
      message.dnf() != 0 ? "Not Flush" : "Need Flush", node[0], node[1], node[2], node[3], node[4],
      node[5]);
  return ERPS_IN_rx_pdu(&descriptor);
}

uint32_t ERPS_IN_rx_pdu(ERPS_RX_PDU_T* descriptor) {
  ERPS_DEBUG("ERPS_IN_rx_pdu  !~\n");
  ERPSM_T* ring = erpsapi_erpsm_find(descriptor->ring_id);
  if (ring == nullptr) {
    ERPS_DEBUG("erps_forward_other_ring_raps !~\n");
    erps_forward_other_ring_raps(descriptor);
    return kRxUnknownRing;
  }
  if (ring->enable == 0 || ring->vlan_id != descriptor->vlan_id) {
    ERPS_DEBUG("ERPS RING RAPS MSG Illegal, drop it !~\n");
    return kRxIllegal;
  }
  ERPS_PORT_T* port = erps_port_find(ring, descriptor->in_port);
  const bool sub_ring = erps_is_sub_ring(ring);
  if (port == nullptr && (!sub_ring || erps_check_pkt_is_sub_ring(ring, descriptor) != 0)) {
    ERPS_DEBUG("ERPS_Port_Is_Absent_In_The_Ring !~\n");
    return kRxPortAbsent;
  }
  // The source address, not the node ID field, tells the node's own frames.
  if (memcmp(ring->local_node_id, descriptor->frame + raps::kSourceOffset, kMacLength) == 0) {
    ERPS_DEBUG("node ID field value corresponds to the local node ID are ignored \n");
    return kRxOwnFrame;
  }
  if (sub_ring) {
    ERPS_DEBUG("ERPS sub ring process the packet !~\n");
    erps_sub_ring_pdu_proc(ring, descriptor);
    return kRxHandled;
  }
  ERPS_DEBUG("ERPS main ring process the packet !~\n");
  ERPS_port_rx_pdu(ring, descriptor, port);
  return kRxHandled;
}

uint32_t erps_check_pkt_is_sub_ring(const ERPSM_T* ring, const ERPS_RX_PDU_T* descriptor) {
  if (!erps_is_sub_ring(ring)) {
    return kRxNotSubRing;
  }
  const ERPSM_T* major = erpsapi_erpsm_find(ring->interconnect_ring_id);
  if (major == nullptr || major->enable != 1 || major->port_list == nullptr) {
    return kRxNotSubRing;
  }
  const ERPS_PORT_T* one = major->port_list;
  const ERPS_PORT_T* other = one->next;
  ERPS_DEBUG_AT("Master ring id : %d, one port :%d, other port :%d, in port : %d\n", major->ring_id,
                one->port_id, other->port_id, descriptor->in_port);
  const bool on_major_ring =
      descriptor->in_port == one->port_id || descriptor->in_port == other->port_id;
  return on_major_ring ? 0 : kRxNotSubRing;
}

void erps_forward_other_ring_raps(const ERPS_RX_PDU_T* descriptor) {
  const ERPSM_T* ring = erps_find_ring_by_port(descriptor->in_port);
  if (ring == nullptr || ring->vlan_id != descriptor->vlan_id) {
    return;
  }
  const ERPS_PORT_T* in = ring->port_list;
  while (in->port_id != descriptor->in_port) {
    in = in->next;
  }
  const ERPS_PORT_T* out = erps_other_port_find(ring, descriptor->in_port);
  if (in->port_state != kForwarding || out == nullptr || !carries_traffic(out)) {
    return;
  }
  ERPS_DEBUG_AT("forward sub ring pdu  port : %d \n", out->port_id);
  erps_send_frame(out->port_id, descriptor->frame, descriptor->length, descriptor->vlan_id);
}

uint32_t ERPS_port_rx_pdu(ERPSM_T* ring, ERPS_RX_PDU_T* descriptor, ERPS_PORT_T* port) {
  const raps::PduView message(descriptor->pdu);
  if (port->port_state == kDiscarding) {
    ERPS_DEBUG_AT("PORT:%d, Discard", port->port_id);
  }
  if (ring->interconnect_ring_id != 0) {
    ERPS_DEBUG("erps_interconnectnode_special_proc\n");
    erps_interconnectnode_special_proc(ring, descriptor, 0, 0);
  }

  const ERPS_PORT_T* other = erps_other_port_find(ring, port->port_id);
  if (ERPS_flush_logic(port, other, descriptor->pdu, kFlushCompareOtherPort) != 0) {
    ERPS_DEBUG("ERPS_flush_FDB\n");
    ring->flush_port = static_cast<int32_t>(port->port_id);
    ERPS_flush_FDB(ring);
  }

  // Behind the flush on purpose: a guarded message still counts for the flush memory.
  if (ring->guard_running == 1 && message.request() != raps::kEvent) {
    ERPS_DEBUG("ERPS_Guard_Timer_Is_Running_and_Packet_Is_Non_Event_req\n");
    return kRxGuarded;
  }

  if (erps_proc_repeat_ms_cmd(ring, port, descriptor->pdu) == kRxRepeatedMs) {
    ERPS_DEBUG(" Direct forward packet. \n");
  } else if (erps_priority_logic(ring, get_raps_priority(message.request(), message.rb())) == 0) {
    ERPS_DEBUG_AT(" no top priority request. \n");
  } else {
    if (ERPS_flush_logic_ex(ring, port, 0, descriptor->pdu, 0) != 0) {
      ERPS_flush_FDB_ring_port(ring);
    }
    memcpy(ring->remote_node_id, message.node_id(), kMacLength);
    ERPS_erpsm_update(ring);
  }

  ERPS_DEBUG("9.3 R-APS messages are forwarded using an ETH_FF function for R-APS traffic, \n");
  if (may_forward(ring, port, other)) {
    ERPS_DEBUG_AT(" forward erps packet  port : %d \n", other->port_id);
    erps_send_frame(other->port_id, descriptor->frame, descriptor->length, descriptor->vlan_id);
  }
  return kRxHandled;
}
