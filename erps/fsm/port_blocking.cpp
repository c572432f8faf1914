#include "erps/fsm/port_blocking.h"

#include "erps/runtime/log.h"
#include "platform/switch_adaptation.h"

namespace {

constexpr uint32_t kRplPort = 1;  // port_role
constexpr int32_t kNothingUnblocked = 24;

bool is_plain_node(const ERPSM_T* ring) {
  return (ring->node_role & kNoRplNode) != 0;
}

int32_t set_port_state(ERPSM_T* ring, ERPS_PORT_T* port, uint16_t state) {
  port->port_state = state;
  return ERPS_OUT_set_port_state(ring, port->port_id, ring->vlan_id, state);
}

// Gives `state` to every port that `chosen` picks, in list order.
template <typename Chosen>
int32_t set_ports(ERPSM_T* ring, uint16_t state, Chosen chosen) {
  int32_t result = 0;
  for (ERPS_PORT_T* port = ring->port_list; port != nullptr; port = erps_next_port(ring, port)) {
    if (chosen(port)) {
      result = set_port_state(ring, port, state);
    }
  }
  return result;
}

bool switch_reports_blocked(const ERPS_PORT_T* port) {
  uint32_t state = 0;
  return adp_get_port_erps_state(port->port_id, &state) == 0 && state == kDiscarding;
}

// 1 if the record and the switch agree that a port picked by `candidate` is blocked.
template <typename Candidate>
uint32_t any_port_blocked(const ERPSM_T* ring, Candidate candidate) {
  for (const ERPS_PORT_T* port = ring->port_list; port != nullptr;
       port = erps_next_port(ring, port)) {
    if (candidate(port) && port->port_state == kDiscarding && switch_reports_blocked(port)) {
      return 1;
    }
  }
  return 0;
}

}  // namespace

int32_t ERPS_OUT_set_port_state(ERPSM_T* /*ring*/, uint32_t port_id, uint32_t /*vlan_id*/,
                                uint32_t state) {
  ERPS_DEBUG("ERPS_OUT_set_port_state ~!\n");
  adp_set_port_erps_state(port_id, state);
  return 0;
}

int32_t erps_block_RPL_port(ERPSM_T* ring) {
  ERPS_DEBUG_AT("ring %d enter \n", ring->ring_id);
  int32_t result = 0;
  for (ERPS_PORT_T* port = ring->port_list; port != nullptr; port = erps_next_port(ring, port)) {
    const bool is_rpl = !is_plain_node(ring) && port->port_role == kRplPort;
    if (!erps_is_sub_ring(ring) && !is_rpl) {
      continue;
    }
    ERPS_DEBUG_AT("block rpl port = %d port_role = %d \n", port->port_id, port->port_role);
    result = set_port_state(ring, port, kDiscarding);
  }
  return result;
}

int32_t erps_unblock_non_RPL_port(ERPSM_T* ring) {
  ERPS_DEBUG_AT("ring %d enter \n", ring->ring_id);
  int32_t result = ring->port_list == nullptr ? 0 : kNothingUnblocked;
  for (ERPS_PORT_T* port = ring->port_list; port != nullptr; port = erps_next_port(ring, port)) {
    if (erps_is_sub_ring(ring)) {
      if (!is_plain_node(ring)) {
        continue;
      }
      ERPS_DEBUG_AT("UNBLOCK port %d port_role %d\n", port->port_id, port->port_role);
    } else {
      if (!is_plain_node(ring) && port->port_role == kRplPort) {
        continue;
      }
      ERPS_DEBUG_AT("UNBLOCK non port %d port_role %d\n", port->port_id, port->port_role);
      ERPS_DEBUG("UNBLOCK non port %d port_role %d\n", port->port_id, port->port_role);
    }
    result = set_port_state(ring, port, kForwarding);
  }
  return result;
}

int32_t erps_block_requested_ring_port(ERPSM_T* ring) {
  ERPS_DEBUG_AT("ring %d enter \n", ring->ring_id);
  return set_ports(ring, kDiscarding,
                   [&](const ERPS_PORT_T* port) { return port->port_id == ring->request_port; });
}

int32_t erps_unblock_non_requested_ring_port(ERPSM_T* ring) {
  ERPS_DEBUG_AT("ring %d enter \n", ring->ring_id);
  return set_ports(ring, kForwarding, [&](const ERPS_PORT_T* port) {
    return port->port_id != ring->request_port && port->link_status == kLinkUp;
  });
}

int32_t erps_block_failed_ring_port(ERPSM_T* ring) {
  ERPS_DEBUG_AT("ring %d enter \n", ring->ring_id);
  return set_ports(ring, kDiscarding, [](const ERPS_PORT_T* port) {
    return port->link_status == kLinkDown && port->port_state != kDiscarding;
  });
}

int32_t erps_unblock_non_failed_ring_port(ERPSM_T* ring) {
  ERPS_DEBUG_AT("ring %d enter \n", ring->ring_id);
  return set_ports(ring, kForwarding, [](const ERPS_PORT_T* port) {
    return port->link_status == kLinkUp && port->port_state == kDiscarding;
  });
}

int32_t erps_unblock_ring_port(ERPSM_T* ring) {
  ERPS_DEBUG_AT("ring %d enter \n", ring->ring_id);
  return set_ports(ring, kForwarding,
                   [](const ERPS_PORT_T* port) { return port->link_status == kLinkUp; });
}

int32_t erps_block_indicate_ring_port(ERPSM_T* ring, uint32_t port_id) {
  ERPS_DEBUG_AT("ring %d enter \n", ring->ring_id);
  return set_ports(ring, kDiscarding,
                   [=](const ERPS_PORT_T* port) { return port->port_id == port_id; });
}

int32_t erps_unblock_indicate_ring_port(ERPSM_T* ring, uint32_t port_id) {
  ERPS_DEBUG_AT("ring %d enter \n", ring->ring_id);
  return set_ports(ring, kForwarding,
                   [=](const ERPS_PORT_T* port) { return port->port_id == port_id; });
}

int32_t erps_block_one_and_Unblock_other(ERPSM_T* ring) {
  ERPS_DEBUG_AT("ring %d enter \n", ring->ring_id);
  int32_t result = 0;
  for (ERPS_PORT_T* port = ring->port_list; port != nullptr; port = erps_next_port(ring, port)) {
    result = set_port_state(ring, port, port == ring->port_list ? kForwarding : kDiscarding);
  }
  return result;
}

uint32_t RPL_port_is_block(const ERPSM_T* ring) {
  ERPS_DEBUG_AT("ring %d enter \n", ring->ring_id);
  // The one port of a sub-ring is never the RPL's.
  if (is_plain_node(ring) || erps_is_sub_ring(ring)) {
    return 0;
  }
  return any_port_blocked(ring,
                          [](const ERPS_PORT_T* port) { return port->port_role == kRplPort; });
}

uint32_t erps_any_ring_port_blocked(const ERPSM_T* ring) {
  ERPS_DEBUG_AT("ring %d enter \n", ring->ring_id);
  return any_port_blocked(ring,
                          [](const ERPS_PORT_T* port) { return port->link_status == kLinkUp; });
}

uint32_t erps_requested_ring_port_is_block(const ERPSM_T* ring) {
  ERPS_DEBUG_AT("ring %d enter \n", ring->ring_id);
  for (const ERPS_PORT_T* port = ring->port_list; port != nullptr;
       port = erps_next_port(ring, port)) {
    if (port->port_id == ring->request_port && port->port_state == kDiscarding) {
      return 1;
    }
  }
  return 0;
}

uint32_t erps_failed_ring_port_is_already_blocked(const ERPSM_T* ring) {
  ERPS_DEBUG_AT("ring %d enter \n", ring->ring_id);
  if (ring->event_port == kNoPort) {
    return 0;
  }
  return any_port_blocked(ring,
                          [](const ERPS_PORT_T* port) { return port->link_status == kLinkDown; });
}
