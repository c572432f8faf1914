#include "erps/ring/ring_start.h"

#include <string.h>

#include <algorithm>

#include "erps/fsm/dispatch.h"
#include "erps/fsm/port_blocking.h"
#include "erps/fsm/requests.h"
#include "erps/link/link_state.h"
#include "erps/raps/transmit.h"
#include "erps/runtime/log.h"
#include "erps/timer/protocol_timers.h"
#include "platform/switch_adaptation.h"

namespace {

constexpr char kNic[] = "eth0";

void set_up_timer(ERPSM_T* ring, ERPS_TIMER_T* timer, ERPS_TIMER_CALLBACK_T callback,
                  const char* name) {
  // A guard or hold-off timer of an earlier run may still be armed.
  erps_timer_cancel(timer);
  erps_timer_init(timer, ring, callback);
  strncpy(timer->name, name, sizeof timer->name - 1);
}

void set_up_timers(ERPSM_T* ring) {
  set_up_timer(ring, &ring->wtr_timer, erps_wtr_expire, "WTR Timer");
  set_up_timer(ring, &ring->wtb_timer, erps_wtb_expire, "WTB Timer");
  set_up_timer(ring, &ring->guard_timer, erps_guard_expire, "Guard Timer");
  set_up_timer(ring, &ring->raps_timer, erps_send_raps_expire, "Send Raps Timer");
  set_up_timer(ring, &ring->holdoff_timer, erps_holdoff_timer_expire, "Holdoff timer");
}

void read_node_address(ERPSM_T* ring, ERPS_LOG_PLACE_T caller = ERPS_LOG_PLACE_T::here()) {
  uint8_t* node = ring->local_node_id;
  if (std::all_of(node, node + kMacLength, [](uint8_t byte) { return byte == 0; })) {
    get_nic_address(kNic, 0, node);
  }
  get_nic_address(kNic, 0, g_erps_src_mac);
  ERPS_DEBUG_AT_FROM(caller, "nic %s nic addr : %02x:%02x:%02x:%02x:%02x:%02x\n", kNic, node[0],
                     node[1], node[2], node[3], node[4], node[5]);
}

}  // namespace

uint32_t erps_sm_reset(ERPSM_T* ring) {
  ring->current_priority = 0;
  ring->State = STATE_INIT;
  ring->mach_enter = ENTER_INIT;
  ring->local_priority = 0;
  return 0;
}

uint32_t erps_start_func(ERPSM_T* ring, const char* /*caller*/) {
  erps_sm_reset(ring);
  for (ERPS_PORT_T* port = ring->port_list; port != nullptr; port = erps_next_port(ring, port)) {
    erps_port_start_init(port, ring);
  }
  set_up_timers(ring);
  ring->inter_fault_port = kNoPort;
  ring->event_port = kNoPort;
  ring->holdoff_running = 0;
  erps_set_holdoff_interface(ring->ring_id, kNoPort);
  ring->enable = 1;
  ring->notify_state = 0;
  read_node_address(ring);
  ERPS_erpsm_update(ring);
  return 0;
}

int32_t erps_stop_func(ERPSM_T* ring) {
  ring->enable = 0;
  erps_sm_reset(ring);
  erps_stop_WTR_timer(&ring->wtr_timer);
  erps_stop_WTB_timer(&ring->wtb_timer);
  erps_timer_cancel(&ring->wtr_timer);
  erps_timer_cancel(&ring->wtb_timer);
  erps_timer_cancel(&ring->raps_timer);
  return erps_unblock_ring_port(ring);
}

uint32_t ERPS_erpsm_enable(ERPSM_T* ring, uint32_t enable) {
  if (ring->enable == enable) {
    return 0;
  }
  if (enable == 1) {
    erps_start_func(ring, __func__);
  } else {
    erps_stop_func(ring);
  }
  return 0;
}
