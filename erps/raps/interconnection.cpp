#include "erps/raps/interconnection.h"

#include <string.h>

#include "erps/fsm/dispatch.h"
#include "erps/fsm/fdb_flush.h"
#include "erps/fsm/port_blocking.h"
#include "erps/fsm/priority.h"
#include "erps/fsm/requests.h"
#include "erps/raps/frame.h"
#include "erps/raps/ranking.h"
#include "erps/raps/transmit.h"
#include "erps/ring/ring_list.h"
#include "erps/runtime/event_queue.h"
#include "erps/runtime/log.h"

namespace raps = erps::raps;

namespace {

constexpr uint32_t kGuarded = 23;
constexpr uint32_t kHandled = 0;

void indicate(const ERPSM_T* major, uint32_t indication) {
  erps_send_cmd(ERPS_EVENT_T_NOTIFY_SUB_RING, major->interconnect_ring_id, indication);
}

// The two ports of a major ring, seen from one of them.
struct PortPair {
  ERPS_PORT_T* in;
  ERPS_PORT_T* out;

  bool complete() const { return in != nullptr && out != nullptr; }
};

PortPair ports_seen_from(const ERPSM_T* major, uint32_t port_id) {
  return {erps_port_find(major, port_id), erps_other_port_find(major, port_id)};
}

bool is_sound(const ERPS_PORT_T* port) {
  return port->fail_count == 0 && port->link_status == kLinkUp;
}

bool has_stored_pair(const ERPS_PORT_T* port) {
  static constexpr uint8_t kNoNode[kMacLength] = {};
  return port->rx_bpr != 0 || memcmp(port->rx_node_id, kNoNode, kMacLength) != 0;
}

// What the watching node logs of its two ports, in the name of the packet procedure.
void log_pair(ERPS_LOG_PLACE_T caller, uint32_t port_id, uint32_t bpr, const uint8_t* node_id) {
  ERPS_DEBUG_AT_FROM(
      caller, "\ninport :%d, BPR : %d , BPR NODE ID : %02x:%02x:%02x:%02x:%02x:%02x\n", port_id + 1,
      bpr, node_id[0], node_id[1], node_id[2], node_id[3], node_id[4], node_id[5]);
}

// kind is "UP" or "DOWN".
void log_node_event(ERPS_LOG_PLACE_T caller, const char* kind, const ERPSM_T* major,
                    const PortPair& ports) {
  ERPS_DEBUG_AT_FROM(
      caller,
      "\nNODE %s EVENT master ring id = %d sub ring_id = %d in port : %d, out port :%d\n"
      "In port fail count = %d link state = %d\nOut port fail count = %d link state = %d\n",
      kind, major->ring_id, major->interconnect_ring_id.get(), ports.in->port_id + 1,
      ports.out->port_id + 1, ports.in->fail_count, ports.in->link_status.get(),
      ports.out->fail_count, ports.out->link_status.get());
  log_pair(caller, ports.in->port_id, ports.in->rx_bpr, ports.in->rx_node_id);
}

// A marked message clears the failures counted on its port.
void marked_message(const ERPSM_T* major, const PortPair& ports) {
  if (ports.in->fail_count == 0) {
    return;
  }
  if (ports.out->fail_count != 0 || ports.out->link_status == kLinkDown) {
    indicate(major, kMajorRingWhole);
  }
  ports.in->fail_count = 0;
}

void failure_cleared(const ERPSM_T* major, const PortPair& ports, const raps::PduView& message,
                     ERPS_LOG_PLACE_T caller = ERPS_LOG_PLACE_T::here()) {
  log_node_event(caller, "UP", major, ports);
  if (has_stored_pair(ports.in)) {
    if (ports.in->fail_count > 0) {
      --ports.in->fail_count;
    }
    if (ports.in->fail_count != 0) {
      return;
    }
  } else {
    log_node_event(caller, "UP", major, ports);
    if (message.rb() == 0 || ports.in->fail_count == 0) {
      return;
    }
    ports.in->fail_count = 0;
  }
  if (!is_sound(ports.out)) {
    indicate(major, kMajorRingWhole);
  }
}

void failure_reported(const ERPSM_T* major, const PortPair& ports, const raps::PduView& message,
                      ERPS_LOG_PLACE_T caller = ERPS_LOG_PLACE_T::here()) {
  log_node_event(caller, "DOWN", major, ports);
  if (message.bpr() == ports.in->rx_bpr &&
      memcmp(message.node_id(), ports.in->rx_node_id, kMacLength) == 0) {
    return;  // counted already
  }
  if (ports.in->fail_count == 0 && !is_sound(ports.out)) {
    indicate(major, kMajorRingCut);
  }
  log_pair(caller, ports.in->port_id, message.bpr(), message.node_id());
  ++ports.in->fail_count;
}

// Step 7 of sub-ring reception: on to the other side of the interconnection.
void relay(ERPSM_T* ring, const ERPS_PORT_T* own_port, const ERPS_RX_PDU_T* descriptor) {
  ERPS_DEBUG("9.3 R-APS messages are forwarded using an ETH_FF function for R-APS traffic\n");
  if (descriptor->in_port != own_port->port_id) {
    ERPS_DEBUG("send packet to sub-ring. \n");
    erps_send_frame(own_port->port_id, descriptor->frame, descriptor->length, descriptor->vlan_id);
    return;
  }
  if (own_port->link_status != kLinkUp) {
    return;
  }
  ERPS_DEBUG("send packet to master-ring. \n");
  erps_send_pkt_to_masterring(ring, descriptor->frame, descriptor->length);
}

}  // namespace

uint32_t erps_sub_ring_pdu_proc(ERPSM_T* ring, ERPS_RX_PDU_T* descriptor) {
  ERPS_PORT_T* own_port = ring->port_list;
  if (own_port == nullptr) {
    return kHandled;
  }
  const raps::PduView message(descriptor->pdu);
  if (own_port->port_state == kDiscarding) {
    ERPS_DEBUG_AT("SUB PORT:%d, Discard", own_port->port_id + 1);
  }
  if (ERPS_flush_logic(own_port, nullptr, descriptor->pdu, kFlushOwnPortOnly) != 0) {
    ERPS_DEBUG("10.1.11 Interconnection flush logic, topology change");
    erps_topology_change(ring, descriptor, 0);
    ERPS_flush_FDB(ring);
  }

  if (erps_proc_repeat_ms_cmd(ring, own_port, descriptor->pdu) == kRxRepeatedMs) {
    ERPS_DEBUG(" Direct forward packet. \n");
  } else if (ring->guard_running == 1) {
    if (message.request() != raps::kEvent) {
      ERPS_DEBUG(
          "R-APS messages with request/state field = '1110' are not affected by the guard timer "
          "\n");
      return kGuarded;
    }
    ERPS_DEBUG(" Direct forward packet. \n");
  } else if (erps_priority_logic(ring, get_raps_priority(message.request(), message.rb())) != 0) {
    memcpy(ring->remote_node_id, message.node_id(), kMacLength);
    ERPS_erpsm_update(ring);
  } else {
    ERPS_DEBUG_AT(" no top priority request. \n");
    ERPS_DEBUG(" Direct forward packet. \n");
  }
  relay(ring, own_port, descriptor);
  return kHandled;
}

void erps_interconnectnode_special_proc(ERPSM_T* ring, ERPS_RX_PDU_T* descriptor, uint32_t link,
                                        uint32_t port_id) {
  if (descriptor != nullptr) {
    erps_interconnectnode_pkt_proc(ring, descriptor);
  } else {
    erps_interconnectnode_link_proc(ring, link, port_id);
  }
}

void erps_interconnectnode_pkt_proc(ERPSM_T* major, ERPS_RX_PDU_T* descriptor) {
  uint8_t* request_byte = descriptor->pdu + raps::kRequestOffset;
  if (major->inter_node_role != kWatching) {
    *request_byte = static_cast<uint8_t>((*request_byte & 0xF0) | raps::kInterconnectionMark);
    return;
  }
  const PortPair ports = ports_seen_from(major, descriptor->in_port);
  if (!ports.complete()) {
    return;
  }
  const raps::PduView message(descriptor->pdu);
  if (message.sub_code() == raps::kInterconnectionMark) {
    marked_message(major, ports);
  } else if (message.request() == raps::kNr) {
    failure_cleared(major, ports, message);
  } else if (message.request() == raps::kSf) {
    failure_reported(major, ports, message);
  }
}

void erps_interconnectnode_link_proc(ERPSM_T* major, uint32_t link, uint32_t port_id) {
  const PortPair ports = ports_seen_from(major, port_id);
  if (major->inter_node_role != kWatching) {
    const bool other_is_down =
        link == kLinkUp && ports.out != nullptr && ports.out->link_status == kLinkDown;
    major->inter_fault_port = static_cast<int32_t>(other_is_down ? ports.out->port_id : port_id);
    return;
  }
  if (!ports.complete()) {
    return;
  }
  ERPS_DEBUG_AT(
      "in port:%d link state = %d, in port fail count : %d out_port:%d link state :%d out port "
      "fail count = %d\n",
      ports.in->port_id + 1, link, ports.in->fail_count, ports.out->port_id + 1,
      ports.out->link_status.get(), ports.out->fail_count);
  if (ports.in->fail_count != 0 || is_sound(ports.out)) {
    return;
  }
  indicate(major, link == kLinkUp ? kMajorRingWhole : kMajorRingCut);
}

void erps_topology_change(ERPSM_T* ring, const ERPS_RX_PDU_T* descriptor, uint32_t force) {
  ERPS_DEBUG("erps_topology_change \n");
  if (!erps_is_sub_ring(ring)) {
    return;
  }
  if (descriptor == nullptr) {
    if (force == 0) {
      return;
    }
  } else {
    const raps::PduView message(descriptor->pdu);
    if (message.request() != raps::kNr && message.request() != raps::kSf) {
      return;
    }
    static_assert(kTopoInfoLength == raps::kInfoLength);
    if (memcmp(ring->topo_raps_info, message.info(), kTopoInfoLength) == 0) {
      return;
    }
    memcpy(ring->topo_raps_info, message.info(), kTopoInfoLength);
  }
  erps_send_cmd(ERPS_EVENT_T_TOPO_CHANGE, ring->interconnect_ring_id, 0);
}

void erps_notify_sub_ring(uint32_t ring_id, uint32_t indication) {
  ERPSM_T* ring = erpsapi_erpsm_find(ring_id);
  if (ring == nullptr) {
    return;
  }
  ring->notify_state = static_cast<uint8_t>(indication);
  ERPS_PORT_T* own_port = ring->port_list;
  if (own_port == nullptr) {
    return;
  }
  const uint32_t port_id = own_port->port_id;

  if (ring->State == STATE_IDLE && indication == kMajorRingCut) {
    ring->flush_port = static_cast<int32_t>(port_id);
    ring->request_port = port_id;
    ring->event_port = static_cast<int32_t>(port_id);
    if (erps_priority_logic(ring, REQUEST_MS) != 0) {
      ERPS_erpsm_update(ring);
      erps_unblock_indicate_ring_port(ring, port_id);
    }
  } else if (ring->State == STATE_MANUAL && indication == kMajorRingWhole &&
             ring->current_priority != REQUEST_RAPS_MS && own_port->port_state == kForwarding &&
             erps_priority_logic(ring, REQUEST_CLEAR) != 0) {
    ERPS_DEBUG_AT("sub ring id : %d, port = %d\n", ring->ring_id, own_port->port_state.get());
    ERPS_DEBUG("sub ring id : %d, port = %d\n", ring->ring_id, own_port->port_state.get());
    erps_block_indicate_ring_port(ring, port_id);
    ERPS_erpsm_update(ring);
  }
}
