#include "erps/fsm/commands.h"

#include "erps/fsm/dispatch.h"
#include "erps/fsm/priority.h"
#include "erps/fsm/requests.h"
#include "erps/mgmt/message.h"
#include "erps/raps/frame.h"
#include "erps/raps/transmit.h"
#include "erps/ring/ring_list.h"
#include "erps/runtime/log.h"

using namespace erps::mgmt;

namespace {

constexpr uint8_t kEnabledFlag = 1;

void offer(ERPSM_T* ring, uint32_t request) {
  if (erps_priority_logic(ring, request) != 0) {
    ERPS_erpsm_update(ring);
  }
}

// Whether this node marks messages of a major ring for its sub-ring.
bool marks_for_sub_ring(const ERPSM_T* ring) {
  return ring->interconnect_ring_id != 0 && ring->ring_role == kMajorRing &&
         ring->inter_node_role == 0;
}

bool has_port(const ERPSM_T* ring, uint32_t port_id) {
  for (const ERPS_PORT_T* port = ring->port_list; port != nullptr; port = port->next) {
    if (port->port_id == port_id) {
      return true;
    }
  }
  return false;
}

}  // namespace

uint32_t erps_cmd_fs_pro(uint32_t ring_id, uint32_t port_id) {
  ERPS_DEBUG("erps_cmd_fs_pro  !~\n");
  ERPSM_T* ring = erpsapi_erpsm_find(ring_id);
  if (ring == nullptr) {
    return kNoSuchRing;
  }
  if (ring->enable != kEnabledFlag) {
    return kDone;
  }
  if (!has_port(ring, port_id)) {
    return kNoSuchPort;
  }
  ring->request_port = port_id;
  if (marks_for_sub_ring(ring)) {
    ring->inter_fault_port = static_cast<int32_t>(port_id);
  }
  ring->flush_port = static_cast<int32_t>(port_id);
  offer(ring, REQUEST_FS);
  return kDone;
}

uint32_t erps_cmd_ms_pro(uint32_t ring_id, uint32_t port_id) {
  ERPS_DEBUG("erps_cmd_ms_pro  !~\n");
  ERPSM_T* ring = erpsapi_erpsm_find(ring_id);
  if (ring == nullptr) {
    return kNoSuchRing;
  }
  if (ring->enable != kEnabledFlag) {
    return kDone;
  }
  if (ring->port_list == nullptr) {
    return kNoSuchPort;
  }
  const bool named =
      erps_is_sub_ring(ring) ? ring->port_list->port_id == port_id : has_port(ring, port_id);
  if (named) {
    ring->event_port = static_cast<int32_t>(port_id);
    ring->request_port = port_id;
  } else if (!erps_is_sub_ring(ring)) {
    return kNoSuchPort;
  }
  // A sub-ring switches its one port, whichever was named.
  ring->flush_port = static_cast<int32_t>(port_id);
  offer(ring, REQUEST_MS);
  return kDone;
}

uint32_t erps_cmd_clear_pro(uint32_t ring_id) {
  ERPS_DEBUG("erps_cmd_clear_pro  !~\n");
  ERPSM_T* ring = erpsapi_erpsm_find(ring_id);
  if (ring == nullptr) {
    return kNoSuchRing;
  }
  if (ring->enable == kEnabledFlag) {
    offer(ring, REQUEST_CLEAR);
  }
  return kDone;
}

void erps_cmd_topo_change_pro(uint32_t ring_id) {
  ERPS_DEBUG("erps_cmd_topo_change_pro  !~\n");
  ERPSM_T* ring = erpsapi_erpsm_find(ring_id);
  if (ring != nullptr) {
    erps_Tx_R_APS(ring, erps::raps::kEvent, 0, 0, ring->local_priority);
  }
}
