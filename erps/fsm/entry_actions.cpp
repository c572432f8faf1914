#include "erps/fsm/entry_actions.h"

#include <stdio.h>

#include "erps/fsm/dispatch.h"
#include "erps/fsm/fdb_flush.h"
#include "erps/fsm/port_blocking.h"
#include "erps/link/link_state.h"
#include "erps/raps/frame.h"
#include "erps/raps/transmit.h"
#include "erps/ring/ring_list.h"
#include "erps/runtime/host_hooks.h"
#include "erps/runtime/log.h"
#include "erps/timer/protocol_timers.h"

using erps::raps::kFs;
using erps::raps::kMs;
using erps::raps::kNr;
using erps::raps::kSf;

const std::array<ERPS_FUNC_T, kStateRows> erps_func_array = {{
    {"init", ERPS_init_enter_state},
    {"clear", ERPS_clear_enter_state},
    {"FS", ERPS_FS_enter_state},
    {"RAPS_FS", ERPS_RAPS_FS_enter_state},
    {"local_SF", ERPS_local_SF_enter_state},
    {"local_clear_SF", ERPS_local_clear_SF_enter_state},
    {"RAPS_SF", ERPS_RAPS_SF_enter_state},
    {"RAPS_MS", ERPS_RAPS_MS_enter_state},
    {"MS", ERPS_MS_enter_state},
    {"WTR_expires", ERPS_WTR_expires_enter_state},
    {"WTB_expires", ERPS_WTB_expires_enter_state},
    {"RAPS_NR_RB", ERPS_RAPS_NR_RB_enter_state},
    {"RAPS_NR", ERPS_RAPS_NR_enter_state},
}};

namespace {

constexpr uint8_t kRevertive = 0;
constexpr uint8_t kNonRevertive = 1;

bool is_owner(const ERPSM_T* ring) {
  return (ring->node_role & kRplOwner) != 0;
}
bool is_neighbour(const ERPSM_T* ring) {
  return (ring->node_role & kRplNeighbour) != 0;
}
bool is_neither(const ERPSM_T* ring) {
  return (ring->node_role & kNoRplNode) != 0;
}
bool is_revertive_owner(const ERPSM_T* ring) {
  return is_owner(ring) && ring->non_revertive == kRevertive;
}

void stop_delay_timers(ERPSM_T* ring) {
  erps_stop_WTR_timer(&ring->wtr_timer);
  erps_stop_WTB_timer(&ring->wtb_timer);
}

void stop_delay_timers_at_owner(ERPSM_T* ring) {
  if (is_owner(ring)) {
    stop_delay_timers(ring);
  }
}

uint32_t hop(ERPSM_T* ring, int32_t state) {
  return ERPS_hop_2_state(ring, state);
}

uint32_t stay(ERPSM_T* ring) {
  return ERPS_hop_2_state(ring, ring->State);
}

constexpr uint32_t kIgnored = 0;

// The ring that an entry action works on.
ERPSM_T* enter(const ERPS_STATE_ENTRY_T* entry,
               ERPS_LOG_PLACE_T action = ERPS_LOG_PLACE_T::here()) {
  ERPSM_T* ring = entry->ring;
  ERPS_DEBUG_AT_FROM(action, "erpsm->State = %d\n", ring->State);
  ERPS_DEBUG_FROM(action, "erpsm->State = %d\n", ring->State);
  return ring;
}

// Blocks the port that the operator named and sends the switch request, FS or MS.
void switch_requested_port(ERPSM_T* ring, uint32_t request, uint32_t cause) {
  if (erps_requested_ring_port_is_block(ring) != 0) {
    erps_Tx_R_APS(ring, request, 1, 0, cause);
    erps_unblock_non_requested_ring_port(ring);
    return;
  }
  erps_block_requested_ring_port(ring);
  erps_Tx_R_APS(ring, request, 0, 0, cause);
  erps_unblock_non_requested_ring_port(ring);
  ERPS_flush_FDB(ring);
}

// Blocks the failed port, opens the other and tells the ring: traffic first, then the message.
void protect_failed_port(ERPSM_T* ring, uint32_t (*flush)(ERPSM_T*)) {
  if (erps_failed_ring_port_is_already_blocked(ring) != 0) {
    erps_unblock_non_failed_ring_port(ring);
    erps_Tx_R_APS(ring, kSf, 1, 0, ENTER_LOCAL_SF);
    return;
  }
  erps_block_failed_ring_port(ring);
  erps_unblock_non_failed_ring_port(ring);
  erps_Tx_R_APS(ring, kSf, 0, 0, ENTER_LOCAL_SF);
  flush(ring);
}

// A remote request took over: open what is not failed and fall silent.
void follow_remote_request(ERPSM_T* ring) {
  erps_unblock_non_failed_ring_port(ring);
  erps_stop_Tx_RAPS(ring);
}

// The node ID test of pending and idle: the node with the lower ID keeps its block.
void give_way_to_lower_node_id(ERPSM_T* ring) {
  if (erps_cmp_node_id(ring) != 0) {
    erps_stop_Tx_RAPS(ring);
    erps_unblock_non_failed_ring_port(ring);
  }
}

void clear_switch(ERPSM_T* ring) {
  if (erps_any_ring_port_blocked(ring) == 0) {
    return;
  }
  erps_start_guard_timer(&ring->guard_timer);
  erps_Tx_R_APS(ring, kNr, 0, 0, ENTER_CLEAR);
  if (!is_owner(ring)) {
    return;
  }
  if (ring->non_revertive == kRevertive) {
    erps_start_WTB_timer(&ring->wtb_timer);
  } else if (ring->non_revertive == kNonRevertive) {
    // A non-revertive owner puts its RPL block back at once.
    if (RPL_port_is_block(ring) == 0) {
      erps_block_RPL_port(ring);
      erps_unblock_non_RPL_port(ring);
      ERPS_flush_FDB_ring_port(ring);
    } else {
      erps_unblock_non_RPL_port(ring);
    }
  }
}

// The owner puts the RPL block back, unless it stands, and announces it.
void revert_at_owner(ERPSM_T* ring, uint32_t cause, uint32_t (*flush)(ERPSM_T*)) {
  if (RPL_port_is_block(ring) != 0) {
    erps_Tx_R_APS(ring, kNr, 1, 1, cause);
    erps_unblock_non_RPL_port(ring);
    return;
  }
  erps_block_RPL_port(ring);
  erps_Tx_R_APS(ring, kNr, 0, 1, cause);
  erps_unblock_non_RPL_port(ring);
  flush(ring);
}

uint32_t flush_first_port(ERPSM_T* ring) {
  if (ring->port_list != nullptr) {
    ring->flush_port = static_cast<int32_t>(ring->port_list->port_id);
  }
  return ERPS_flush_FDB(ring);
}

}  // namespace

uint32_t ERPS_init_enter_state(ERPS_STATE_ENTRY_T* entry) {
  ERPSM_T* ring = enter(entry);
  ring->State = STATE_INIT;
  erps_stop_guard_timer(&ring->guard_timer);
  stop_delay_timers(ring);

  if (ring->node_role == kRplOwner || ring->node_role == kRplNeighbour) {
    erps_block_RPL_port(ring);
    erps_unblock_non_RPL_port(ring);
  } else {
    erps_block_one_and_Unblock_other(ring);
  }
  erps_Tx_R_APS(ring, kNr, 0, 0, ENTER_INIT);
  if (ring->node_role == kRplOwner && ring->non_revertive == kRevertive) {
    erps_start_WTR_timer(&ring->wtr_timer);
  }
  hop(ring, STATE_PENDING);

  // A ring port that is down takes the ring on to protection before this returns.
  for (ERPS_PORT_T* port = ring->port_list; port != nullptr; port = erps_next_port(ring, port)) {
    erps_check_mstp_config_and_save(port->port_id);
    erps_port_status_init(port, ring);
  }
  return 1;
}

uint32_t ERPS_clear_enter_state(ERPS_STATE_ENTRY_T* entry) {
  ERPSM_T* ring = enter(entry);
  switch (ring->State) {
    case STATE_IDLE:
    case STATE_PROTECTION:
      return stay(ring);
    case STATE_MANUAL:
    case STATE_FORCED:
      clear_switch(ring);
      return hop(ring, STATE_PENDING);
    case STATE_PENDING:
      if (is_owner(ring)) {
        stop_delay_timers(ring);
        revert_at_owner(ring, ENTER_CLEAR, ERPS_flush_FDB);
      }
      return hop(ring, STATE_IDLE);
    default:
      return kIgnored;
  }
}

uint32_t ERPS_FS_enter_state(ERPS_STATE_ENTRY_T* entry) {
  ERPSM_T* ring = entry->ring;
  ERPS_DEBUG_AT("erpsm->State = %d request port = %d\n", ring->State, ring->request_port);
  ERPS_DEBUG("erpsm->State = %d request port = %d\n", ring->State, ring->request_port);
  switch (ring->State) {
    case STATE_IDLE:
    case STATE_PROTECTION:
    case STATE_MANUAL:
      switch_requested_port(ring, kFs, ENTER_FS);
      return hop(ring, STATE_FORCED);
    case STATE_FORCED:
      erps_block_requested_ring_port(ring);
      erps_Tx_R_APS(ring, kFs, 0, 0, ENTER_FS);
      ERPS_flush_FDB(ring);
      return stay(ring);
    case STATE_PENDING:
      switch_requested_port(ring, kFs, ENTER_FS);
      stop_delay_timers_at_owner(ring);
      return hop(ring, STATE_FORCED);
    default:
      return kIgnored;
  }
}

uint32_t ERPS_RAPS_FS_enter_state(ERPS_STATE_ENTRY_T* entry) {
  ERPSM_T* ring = enter(entry);
  switch (ring->State) {
    case STATE_IDLE:
    case STATE_PROTECTION:
    case STATE_MANUAL:
      erps_unblock_ring_port(ring);
      erps_stop_Tx_RAPS(ring);
      return hop(ring, STATE_FORCED);
    case STATE_FORCED:
      return stay(ring);
    case STATE_PENDING:
      erps_unblock_ring_port(ring);
      erps_stop_Tx_RAPS(ring);
      stop_delay_timers_at_owner(ring);
      return hop(ring, STATE_FORCED);
    default:
      return kIgnored;
  }
}

uint32_t ERPS_local_SF_enter_state(ERPS_STATE_ENTRY_T* entry) {
  ERPSM_T* ring = enter(entry);
  switch (ring->State) {
    case STATE_IDLE:
      protect_failed_port(ring, ERPS_flush_FDB_ring_port);
      return hop(ring, STATE_PROTECTION);
    case STATE_PROTECTION:
    case STATE_MANUAL:
      protect_failed_port(ring, ERPS_flush_FDB);
      return hop(ring, STATE_PROTECTION);
    case STATE_FORCED:
      return stay(ring);
    case STATE_PENDING:
      protect_failed_port(ring, ERPS_flush_FDB);
      stop_delay_timers_at_owner(ring);
      return hop(ring, STATE_PROTECTION);
    default:
      return kIgnored;
  }
}

uint32_t ERPS_local_clear_SF_enter_state(ERPS_STATE_ENTRY_T* entry) {
  ERPSM_T* ring = enter(entry);
  switch (ring->State) {
    case STATE_IDLE:
      if (ring->holdoff_running == 1) {
        fprintf(stderr, "[%s:%d] erps_stop_holdoff_timer\n", __func__, __LINE__);
        erps_stop_holdoff_timer(&ring->holdoff_timer);
      }
      return stay(ring);
    case STATE_PROTECTION:
      erps_start_guard_timer(&ring->guard_timer);
      // A non-revertive node announces nothing when its failure clears.
      if (ring->non_revertive == kRevertive) {
        erps_Tx_R_APS(ring, kNr, 0, 0, ENTER_LOCAL_CLEAR_SF);
        if (is_owner(ring)) {
          erps_start_WTR_timer(&ring->wtr_timer);
        }
      }
      return hop(ring, STATE_PENDING);
    case STATE_MANUAL:
    case STATE_FORCED:
    case STATE_PENDING:
      return stay(ring);
    default:
      return kIgnored;
  }
}

uint32_t ERPS_RAPS_SF_enter_state(ERPS_STATE_ENTRY_T* entry) {
  ERPSM_T* ring = enter(entry);
  switch (ring->State) {
    case STATE_IDLE:
      erps_stop_Tx_RAPS(ring);
      erps_unblock_non_failed_ring_port(ring);
      ERPS_flush_FDB_ring_port(ring);
      return hop(ring, STATE_PROTECTION);
    case STATE_PROTECTION:
    case STATE_FORCED:
      return stay(ring);
    case STATE_MANUAL:
      follow_remote_request(ring);
      return hop(ring, STATE_PROTECTION);
    case STATE_PENDING:
      follow_remote_request(ring);
      stop_delay_timers_at_owner(ring);
      return hop(ring, STATE_PROTECTION);
    default:
      return kIgnored;
  }
}

uint32_t ERPS_RAPS_MS_enter_state(ERPS_STATE_ENTRY_T* entry) {
  ERPSM_T* ring = enter(entry);
  switch (ring->State) {
    case STATE_IDLE:
      follow_remote_request(ring);
      ERPS_flush_FDB(ring);
      return hop(ring, STATE_MANUAL);
    case STATE_MANUAL:
      if (erps_any_ring_port_blocked(ring) != 0) {
        erps_start_guard_timer(&ring->guard_timer);
        erps_Tx_R_APS(ring, kNr, 0, 0, ENTER_RAPS_MS);
        if (is_revertive_owner(ring)) {
          erps_start_WTR_timer(&ring->wtr_timer);
        }
      }
      return hop(ring, STATE_PENDING);
    case STATE_PENDING:
      follow_remote_request(ring);
      stop_delay_timers_at_owner(ring);
      return hop(ring, STATE_MANUAL);
    case STATE_PROTECTION:
    case STATE_FORCED:
    default:
      return kIgnored;
  }
}

uint32_t ERPS_MS_enter_state(ERPS_STATE_ENTRY_T* entry) {
  ERPSM_T* ring = enter(entry);
  switch (ring->State) {
    case STATE_IDLE:
      switch_requested_port(ring, kMs, ENTER_MS);
      return hop(ring, STATE_MANUAL);
    case STATE_PROTECTION:
    case STATE_MANUAL:
    case STATE_FORCED:
      return stay(ring);
    case STATE_PENDING:
      stop_delay_timers_at_owner(ring);
      switch_requested_port(ring, kMs, ENTER_MS);
      return hop(ring, STATE_MANUAL);
    default:
      return kIgnored;
  }
}

uint32_t ERPS_WTR_expires_enter_state(ERPS_STATE_ENTRY_T* entry) {
  ERPSM_T* ring = enter(entry);
  switch (ring->State) {
    case STATE_PENDING:
      if (is_owner(ring)) {
        erps_stop_WTB_timer(&ring->wtb_timer);
        revert_at_owner(ring, ENTER_WTR_EXPIRES, ERPS_flush_FDB_ring_port);
      }
      return hop(ring, STATE_IDLE);
    case STATE_IDLE:
    case STATE_PROTECTION:
    case STATE_MANUAL:
    case STATE_FORCED:
      return kIgnored;
    default:
      ERPS_ERROR("this->State != PENDING state = %d No Action \n", ring->State);
      return kIgnored;
  }
}

uint32_t ERPS_WTB_expires_enter_state(ERPS_STATE_ENTRY_T* entry) {
  ERPSM_T* ring = enter(entry);
  switch (ring->State) {
    case STATE_PENDING:
      if (is_owner(ring)) {
        erps_stop_WTR_timer(&ring->wtr_timer);
        revert_at_owner(ring, ENTER_WTB_EXPIRES, flush_first_port);
      }
      return hop(ring, STATE_IDLE);
    case STATE_IDLE:
    case STATE_PROTECTION:
    case STATE_MANUAL:
    case STATE_FORCED:
      return kIgnored;
    default:
      ERPS_ERROR("this->State != PENDING \n");
      return kIgnored;
  }
}

uint32_t ERPS_RAPS_NR_RB_enter_state(ERPS_STATE_ENTRY_T* entry) {
  ERPSM_T* ring = enter(entry);
  switch (ring->State) {
    case STATE_IDLE:
      erps_unblock_non_RPL_port(ring);
      if (!is_owner(ring)) {
        erps_stop_Tx_RAPS(ring);
      }
      return stay(ring);
    case STATE_PROTECTION:
    case STATE_MANUAL:
    case STATE_FORCED:
      return stay(ring);
    case STATE_PENDING:
      if (is_owner(ring)) {
        stop_delay_timers(ring);
      } else if (is_neither(ring)) {
        erps_unblock_ring_port(ring);
        erps_stop_Tx_RAPS(ring);
      } else if (is_neighbour(ring)) {
        erps_block_RPL_port(ring);
        erps_unblock_non_RPL_port(ring);
        erps_stop_Tx_RAPS(ring);
      }
      return hop(ring, STATE_IDLE);
    default:
      return kIgnored;
  }
}

uint32_t ERPS_RAPS_NR_enter_state(ERPS_STATE_ENTRY_T* entry) {
  ERPSM_T* ring = enter(entry);
  switch (ring->State) {
    case STATE_IDLE:
      if (is_neither(ring)) {
        give_way_to_lower_node_id(ring);
      }
      return stay(ring);
    case STATE_PROTECTION:
      if (is_revertive_owner(ring)) {
        erps_start_WTR_timer(&ring->wtr_timer);
      }
      return hop(ring, STATE_PENDING);
    case STATE_MANUAL:
    case STATE_FORCED:
      if (is_revertive_owner(ring)) {
        erps_start_WTB_timer(&ring->wtb_timer);
      }
      return hop(ring, STATE_PENDING);
    case STATE_PENDING:
      give_way_to_lower_node_id(ring);
      return stay(ring);
    default:
      return kIgnored;
  }
}
