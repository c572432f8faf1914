#include "erps/fsm/dispatch.h"

#include <string.h>

#include "erps/fsm/port_blocking.h"
#include "erps/fsm/priority.h"
#include "erps/fsm/requests.h"
#include "erps/runtime/log.h"

uint32_t ERPS_erpsm_update(ERPSM_T* ring) {
  for (ERPS_STATE_ENTRY_T* entry = ring->state_list; entry != nullptr; entry = entry->next) {
    if (erpsm_state_mach_compare(entry->name, ring->mach_enter) == 1) {
      ERPS_change_condition(entry);
      break;
    }
  }
  if (erps_is_sub_ring(ring)) {
    erps_sub_ring_recover_proc(ring);
  }
  return 0;
}

uint32_t ERPS_change_condition(ERPS_STATE_ENTRY_T* entry) {
  ERPS_DEBUG_AT("enter this->name = %s \n", entry->name);
  entry->enter(entry);
  return 0;
}

uint32_t erpsm_state_mach_compare(const char* name, uint32_t mach_enter) {
  for (const ERPS_STATE_ROW_T& row : kStateRowTable) {
    if (row.mach_enter == mach_enter) {
      return strcmp(name, row.name) == 0 ? 1 : 0;
    }
  }
  return 0;
}

uint32_t ERPS_hop_2_state(ERPSM_T* ring, int32_t new_state) {
  ERPS_DEBUG_AT("enter new_state = %s\n", erps_state_name(new_state));
  ring->State = new_state;
  ring->state_entered = 1;
  return 1;
}

void erps_sub_ring_recover_proc(ERPSM_T* ring) {
  if (ring->State != STATE_IDLE || ring->notify_state != kMajorRingCut ||
      ring->port_list == nullptr) {
    return;
  }
  ring->notify_state = 0;  // first: the update below comes back here
  const uint32_t port_id = ring->port_list->port_id;
  ring->flush_port = static_cast<int32_t>(port_id);
  ring->request_port = port_id;
  if (erps_priority_logic(ring, REQUEST_MS) == 1) {
    ERPS_erpsm_update(ring);
    erps_unblock_indicate_ring_port(ring, port_id);
  }
}
