#include "erps/ring/ring_list.h"

#include <string.h>

#include "erps/runtime/log.h"

namespace {
ERPSM_T* ring_list_head = nullptr;
}  // namespace

ERPSM_T* erps_get_list_head() {
  return ring_list_head;
}

void erps_ring_link(ERPSM_T* ring) {
  const TimerLock lock;
  ring->next = ring_list_head;
  ring_list_head = ring;
}

ERPSM_T* erps_ring_unlink(uint32_t ring_id) {
  const TimerLock lock;
  for (ERPSM_T** link = &ring_list_head; *link != nullptr; link = &(*link)->next) {
    if ((*link)->ring_id == ring_id) {
      ERPSM_T* ring = *link;
      *link = ring->next;
      return ring;
    }
  }
  return nullptr;
}

ERPSM_T* erpsapi_erpsm_find(uint32_t ring_id) {
  for (ERPSM_T* ring = ring_list_head; ring != nullptr; ring = ring->next) {
    if (ring->ring_id == ring_id) {
      ERPS_DEBUG_AT("ok this->ring_id = %d \n", ring->ring_id);
      return ring;
    }
  }
  return nullptr;
}

ERPS_PORT_T* erps_port_find(const ERPSM_T* ring, uint32_t port_id) {
  ERPS_DEBUG_AT("ring %d port %d\n", ring->ring_id, port_id);
  for (ERPS_PORT_T* port = ring->port_list; port != nullptr; port = erps_next_port(ring, port)) {
    if (port->port_id == port_id) {
      return port;
    }
  }
  return nullptr;
}

ERPSM_T* erps_find_ring_by_port(uint32_t port_id) {
  for (ERPSM_T* ring = ring_list_head; ring != nullptr; ring = ring->next) {
    for (const ERPS_PORT_T* port = ring->port_list; port != nullptr; port = port->next) {
      if (port->port_id == port_id) {
        return ring;
      }
    }
  }
  return nullptr;
}

ERPS_PORT_T* erps_other_port_find(const ERPSM_T* ring, uint32_t port_id) {
  for (ERPS_PORT_T* port = ring->port_list; port != nullptr; port = port->next) {
    if (port->port_id != port_id) {
      return port;
    }
  }
  return nullptr;
}

uint32_t erps_cmp_node_id(const ERPSM_T* ring) {
  const int order = memcmp(ring->remote_node_id, ring->local_node_id, kMacLength);
  if (order == 0) {
    ERPS_DEBUG_AT("Error -----------local_node_id == remote_node_id\n");
  }
  return order < 0 ? 1 : 0;
}
