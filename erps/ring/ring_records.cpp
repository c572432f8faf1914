#include "erps/ring/ring_records.h"

#include <stdlib.h>
#include <string.h>

#include <new>

#include "erps/fsm/entry_actions.h"
#include "erps/ring/ring_list.h"
#include "erps/ring/ring_start.h"
#include "erps/runtime/log.h"

namespace {

constexpr uint32_t kRapsIntervalMs = 5000;
constexpr uint32_t kPortCreateNoMemory = 1;

// One entry a row, and a last one that has no row: it comes first in the list, its empty name never
// matches and it is never entered.
void fill_state_list(ERPSM_T* ring) {
  for (uint32_t i = 0; i < kStateEntries; ++i) {
    ERPS_STATE_ENTRY_T* entry = &ring->state_block[i];
    const bool has_row = i < erps_func_array.size();
    entry->ring = ring;
    entry->name = has_row ? erps_func_array[i].name : "";
    entry->enter = has_row ? erps_func_array[i].enter : nullptr;
    entry->next = ring->state_list;
    ring->state_list = entry;
  }
}

// The caller holds the timer lock.
void assign_ports(ERPSM_T* ring, const uint32_t port_ids[kPortsPerRing]) {
  uint32_t index = 0;
  for (ERPS_PORT_T* port = ring->port_list; port != nullptr; port = port->next) {
    port->port_index = index;
    port->port_id = port_ids[index];
    port->port_role = index;  // the second port is the RPL port unless told otherwise
    port->ring = ring;
    port->rx_bpr = 0;
    memset(port->rx_node_id, 0, kMacLength);
    ++index;
  }
}

}  // namespace

ERPSM_T* erps_ring_create(uint32_t ring_id, uint32_t port0, uint32_t port1, uint32_t vlan_id,
                          uint32_t node_role, uint32_t ring_role) {
  auto* ring = new (std::nothrow) ERPSM_T{};
  if (ring == nullptr) {
    return nullptr;
  }
  ring->ring_id = ring_id;
  ring->vlan_id = vlan_id;
  ring->node_role = node_role;
  ring->ring_role = ring_role;
  ring->tx_interval = kRapsIntervalMs;
  erps_ring_link(ring);

  ring->state_block = erps_state_malloc();
  if (ring->state_block != nullptr) {
    fill_state_list(ring);
    const uint32_t port_ids[kPortsPerRing] = {port0, port1};
    if (erps_port_create(ring, port_ids) == 0) {
      return ring;
    }
    ERPS_ERROR("ERPS_Create_Port_Error\n");
  }
  erps_ring_remove(ring);
  return nullptr;
}

ERPS_STATE_ENTRY_T* erps_state_malloc() {
  return static_cast<ERPS_STATE_ENTRY_T*>(
      ::operator new(kStateEntries * sizeof(ERPS_STATE_ENTRY_T), std::nothrow));
}

uint32_t erps_port_create(ERPSM_T* ring, const uint32_t port_ids[kPortsPerRing]) {
  auto* block = new (std::nothrow) ERPS_PORT_T[kPortsPerRing]{};
  if (block == nullptr) {
    return kPortCreateNoMemory;
  }
  block[0].next = &block[1];
  const TimerLock lock;
  ring->port_block = block;
  ring->port_list = block;
  assign_ports(ring, port_ids);
  return 0;
}

void erps_change_port(ERPSM_T* ring, const uint32_t port_ids[kPortsPerRing]) {
  const TimerLock lock;
  assign_ports(ring, port_ids);
}

void erps_del_port(ERPSM_T* ring) {
  ERPS_PORT_T* block = ring->port_block;
  {
    const TimerLock lock;
    ring->port_list = nullptr;
    ring->port_block = nullptr;
  }
  for (ERPS_PORT_T* port = block; port != nullptr; port = port->next) {
    free(port->port_buffer);
  }
  delete[] block;
}

void erps_ring_remove(ERPSM_T* ring) {
  erps_stop_func(ring);
  // A stop lets these two run out; a record that goes away must not stay linked.
  erps_timer_cancel(&ring->guard_timer);
  erps_timer_cancel(&ring->holdoff_timer);

  ::operator delete(ring->state_block);
  ring->state_block = nullptr;
  ring->state_list = nullptr;
  erps_del_port(ring);
  erps_release_ring(ring);
}

void erps_release_ring(ERPSM_T* ring) {
  ERPSM_T* unlinked = erps_ring_unlink(ring->ring_id);
  if (unlinked == nullptr) {
    return;
  }
  free(unlinked->aux_buffer);
  delete unlinked;
}
