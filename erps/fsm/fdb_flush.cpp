#include "erps/fsm/fdb_flush.h"

#include <string.h>

#include "erps/fsm/requests.h"
#include "erps/raps/frame.h"
#include "erps/runtime/log.h"
#include "platform/switch_adaptation.h"

namespace raps = erps::raps;

namespace {

constexpr uint32_t kLearntEntries = 2;

void flush_port(const ERPS_PORT_T* port, ERPS_LOG_PLACE_T caller = ERPS_LOG_PLACE_T::here()) {
  ERPS_DEBUG_AT_FROM(caller, "port_index = %d \n", port->port_id);
  if (adp_del_mac_addr_by_intf(port->port_id, kLearntEntries) != 0) {
    ERPS_DEBUG_AT_FROM(caller, "MAC FLASH ERROR port : %d\n", port->port_id);
  }
}

void flush_sub_ring_port(const ERPSM_T* ring, ERPS_LOG_PLACE_T caller = ERPS_LOG_PLACE_T::here()) {
  const ERPS_PORT_T* port = ring->port_list;
  if (port != nullptr && adp_del_mac_addr_by_intf(port->port_id, kLearntEntries) != 0) {
    ERPS_DEBUG_AT_FROM(caller, "SUB RING MAC FLASH ERROR port : %d\n", port->port_id);
  }
}

}  // namespace

uint32_t ERPS_flush_logic(ERPS_PORT_T* port, const ERPS_PORT_T* other_port, const uint8_t* pdu,
                          uint32_t mode) {
  ERPS_DEBUG("ERPS_flush_logic ~!\n");
  const raps::PduView message(pdu);
  if (message.request() == raps::kNr && message.rb() == 0) {
    port->rx_bpr = 0;
    memset(port->rx_node_id, 0, kMacLength);
    return 0;
  }
  if (port->rx_bpr == message.bpr() &&
      memcmp(port->rx_node_id, message.node_id(), kMacLength) == 0) {
    return 0;
  }

  bool flush = message.dnf() == 0;
  if (mode != kFlushOwnPortOnly && other_port != nullptr && port->rx_bpr == other_port->rx_bpr) {
    // The pair compared with the other port's is the one about to be replaced.
    flush = flush && memcmp(port->rx_node_id, other_port->rx_node_id, kMacLength) != 0;
  }
  memcpy(port->rx_node_id, message.node_id(), kMacLength);
  port->rx_bpr = message.bpr();
  return flush ? 1 : 0;
}

uint32_t ERPS_flush_logic_ex(const ERPSM_T* ring, const ERPS_PORT_T* /*port*/, uint32_t /*unused*/,
                             const uint8_t* pdu, uint32_t suppress) {
  ERPS_DEBUG("ERPS_flush_logic_ex ~!\n");
  const raps::PduView message(pdu);
  const bool flush = message.request() == raps::kNr && message.rb() == 1 && message.dnf() == 0 &&
                     suppress == 0 && ring->State == STATE_PENDING &&
                     (ring->node_role & (kRplNeighbour | kNoRplNode)) != 0;
  return flush ? 1 : 0;
}

uint32_t ERPS_flush_FDB(ERPSM_T* ring) {
  ERPS_DEBUG("ERPS_flush_FDB ~!\n");
  if (erps_is_sub_ring(ring)) {
    flush_sub_ring_port(ring);
    return 0;
  }
  for (const ERPS_PORT_T* port = ring->port_list; port != nullptr; port = port->next) {
    if (port->port_id == static_cast<uint32_t>(ring->flush_port)) {
      ring->flush_port = static_cast<int32_t>(kAbsentPort);
      flush_port(port);
      return 0;
    }
  }
  return 0;
}

uint32_t ERPS_flush_FDB_ring_port(ERPSM_T* ring) {
  if (erps_is_sub_ring(ring)) {
    flush_sub_ring_port(ring);
    return 0;
  }
  for (const ERPS_PORT_T* port = ring->port_list; port != nullptr; port = port->next) {
    flush_port(port);
  }
  return 0;
}
