#include "erps/link/link_state.h"

#include <string.h>

#include <array>

#include "erps/fsm/dispatch.h"
#include "erps/fsm/priority.h"
#include "erps/fsm/requests.h"
#include "erps/raps/interconnection.h"
#include "erps/ring/ring_list.h"
#include "erps/runtime/log.h"
#include "erps/timer/protocol_timers.h"
#include "platform/switch_adaptation.h"

namespace {

constexpr uint32_t kStartKeepsNodeIdBytes = 3;

// Interface whose failure started the hold-off, by ring ID - 1.
std::array<int32_t, kHoldoffEntries> holdoff_interface_id = {};

// Failed reads count as a link that is down.
uint32_t read_link_state(uint32_t port_id) {
  uint32_t state = kLinkDown;
  adp_get_phy_port_attr(port_id, kLinkStateAttribute, &state);
  return state;
}

void offer(ERPSM_T* ring, uint32_t request) {
  if (erps_priority_logic(ring, request) != 0) {
    ERPS_erpsm_update(ring);
  }
}

// Everything that a link state changes but the request that it makes.
void record_link_state(ERPSM_T* ring, uint32_t interface, uint32_t status) {
  if (ring->interconnect_ring_id != 0 && !erps_is_sub_ring(ring)) {
    erps_interconnectnode_special_proc(ring, nullptr, status, interface);
  }
  erps_record_port_link_status(ring, interface, status);
  erps_topology_change(ring, nullptr, 1);
}

// Whether the hold-off takes this change over: it is then reported later or not at all.
bool held_off(ERPSM_T* ring, uint32_t interface, uint32_t request) {
  const bool running = ring->holdoff_running == 1;
  if (request == REQUEST_LOCAL_SF && holdoff_timer_time != 0 && !running &&
      erps_has_holdoff_entry(ring->ring_id)) {
    erps_set_holdoff_interface(ring->ring_id, static_cast<int32_t>(interface));
    erps_start_holdoff_timer(&ring->holdoff_timer);
    return true;
  }
  if (running) {
    erps_stop_holdoff_timer(&ring->holdoff_timer);
  }
  return false;
}

}  // namespace

bool erps_has_holdoff_entry(uint32_t ring_id) {
  return ring_id >= 1 && ring_id <= kHoldoffEntries;
}

int32_t erps_holdoff_interface(uint32_t ring_id) {
  return erps_has_holdoff_entry(ring_id) ? holdoff_interface_id[ring_id - 1] : kNoPort;
}

void erps_set_holdoff_interface(uint32_t ring_id, int32_t interface) {
  if (erps_has_holdoff_entry(ring_id)) {
    holdoff_interface_id[ring_id - 1] = interface;
  }
}

uint32_t erps_link_change_trigger(uint32_t interface, uint32_t status) {
  const uint32_t request = get_link_request(status);
  for (ERPSM_T* ring = erps_get_list_head(); ring != nullptr; ring = ring->next) {
    if (ring->enable != 1) {
      ERPS_DEBUG_AT("-----------------ERPS DISABLE ..................\n");
      continue;
    }
    if (erps_interfaceid_is_legal(interface, ring) == 0 || held_off(ring, interface, request)) {
      continue;
    }
    record_link_state(ring, interface, status);
    offer(ring, request);
  }
  return 0;
}

void erps_link_trigger_init(ERPSM_T* ring, uint32_t interface, uint32_t status) {
  record_link_state(ring, interface, status);
  offer(ring, get_link_request(status));
}

void erps_holdoff_expired(ERPSM_T* ring) {
  ring->holdoff_running = 0;
  record_link_state(ring, static_cast<uint32_t>(erps_holdoff_interface(ring->ring_id)), kLinkDown);
}

uint32_t get_link_request(uint32_t status) {
  return status == kLinkUp ? REQUEST_LOCAL_CLEAR_SF : REQUEST_LOCAL_SF;
}

uint32_t erps_interfaceid_is_legal(uint32_t interface, const ERPSM_T* ring) {
  for (const ERPS_PORT_T* port = ring->port_list; port != nullptr;
       port = erps_next_port(ring, port)) {
    if (port->port_id == interface) {
      return 1;
    }
  }
  ERPS_DEBUG_AT("---------port is illegal :%d------------", interface);
  return 0;
}

void erps_record_port_link_status(ERPSM_T* ring, uint32_t interface, uint32_t status) {
  ERPS_DEBUG("erps_record_port_link_status \n");
  const auto link_status = static_cast<uint16_t>(status);
  for (ERPS_PORT_T* port = ring->port_list; port != nullptr; port = erps_next_port(ring, port)) {
    if (port->port_id == interface && port->link_status != link_status) {
      port->link_status = link_status;
      ring->event_port = static_cast<int32_t>(interface);
      ring->flush_port = static_cast<int32_t>(interface);
      return;
    }
  }
}

void erps_port_status_init(const ERPS_PORT_T* port, ERPSM_T* ring) {
  ERPS_DEBUG_AT("erps_port_status_init\n");
  const uint32_t state = read_link_state(port->port_id);
  ERPS_DEBUG_AT("Port : %d link state :%d\n", port->port_id, state);
  erps_link_trigger_init(ring, port->port_id, state);
}

int32_t erps_port_start_init(ERPS_PORT_T* port, ERPSM_T* /*ring*/) {
  const uint32_t state = read_link_state(port->port_id);
  ERPS_DEBUG_AT("INT:%d \t link state = %d\n", port->port_id, state);
  port->link_status = static_cast<uint16_t>(state);
  port->port_state = port->link_status != kLinkDown ? kForwarding : kDiscarding;
  memset(port->rx_node_id + kStartKeepsNodeIdBytes, 0, kMacLength - kStartKeepsNodeIdBytes);
  return adp_set_port_erps_state(port->port_id, port->port_state);
}
