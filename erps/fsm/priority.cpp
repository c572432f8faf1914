#include "erps/fsm/priority.h"

#include "erps/fsm/requests.h"
#include "erps/runtime/log.h"

namespace {
bool any_link_down(const ERPSM_T* ring) {
  for (const ERPS_PORT_T* port = ring->port_list; port != nullptr; port = port->next) {
    if (port->link_status == kLinkDown) {
      return true;
    }
  }
  return false;
}
}  // namespace

uint32_t erps_priority_logic(ERPSM_T* ring, uint32_t msg) {
  ERPS_DEBUG_AT("enter msg = %d this->current_priority = %d  this->local_priority = %d \n", msg,
                ring->current_priority, ring->local_priority);

  if (msg == REQUEST_LOCAL_CLEAR_SF) {
    ring->current_priority = msg;
    if (ring->local_priority != REQUEST_LOCAL_SF) {
      return 0;
    }
    // A link that comes back while the other one is still down leaves the signal fail in force.
    if (!erps_is_sub_ring(ring) && any_link_down(ring)) {
      msg = REQUEST_LOCAL_SF;
    }
    msg_2_machine(ring, msg);
    return 1;
  }
  if (msg == REQUEST_CLEAR) {
    if (ring->local_priority != REQUEST_FS && ring->local_priority != REQUEST_MS) {
      return 0;
    }
  } else if (ring->local_priority >= msg) {
    return 0;
  }
  ring->current_priority = msg;
  msg_2_machine(ring, msg);
  return 1;
}

void msg_2_machine(ERPSM_T* ring, uint32_t msg) {
  ERPS_DEBUG_AT(" enter this->mach_enter = %d\n", ring->mach_enter);
  if (msg >= kRequestCount) {
    return;
  }
  const ERPS_REQUEST_ROW_T& row = kRequestTable[msg];
  if (row.dispatches) {
    ring->mach_enter = row.mach_enter();
  }
  if (row.sets_local) {
    ring->local_priority = row.local;
  }
}
