#include "erps/ring/ring_config.h"

#include <string.h>

#include "erps/mgmt/capture_rules.h"
#include "erps/mgmt/message.h"
#include "erps/ring/ring_list.h"
#include "erps/ring/ring_records.h"
#include "erps/ring/ring_start.h"
#include "erps/runtime/log.h"
#include "erps/timer/protocol_timers.h"
#include "platform/switch_adaptation.h"

using namespace erps::mgmt;

namespace {

constexpr uint32_t kWtbBeyondGuardMs = 5000;  // G.8032 clause 10.1.4: WTB = guard + 5 s

// Every operation logs its own name first.
void log_call(ERPS_LOG_PLACE_T operation = ERPS_LOG_PLACE_T::here()) {
  ERPS_DEBUG_FROM(operation, "%s  !~\n", operation.function);
}

void put_word(uint8_t* reply, uint32_t index, uint32_t value) {
  uint8_t* word = reply + static_cast<size_t>(index) * 4;
  word[0] = static_cast<uint8_t>(value >> 24);
  word[1] = static_cast<uint8_t>(value >> 16);
  word[2] = static_cast<uint8_t>(value >> 8);
  word[3] = static_cast<uint8_t>(value);
}

void put_port(uint8_t* reply, uint32_t first_word, const ERPS_PORT_T* port) {
  put_word(reply, first_word, port->port_id);
  put_word(reply, first_word + 1, port->port_state);
  put_word(reply, first_word + 2, port->link_status);
}

bool uses_port(const ERPSM_T* ring, uint32_t port_id) {
  for (const ERPS_PORT_T* port = ring->port_list; port != nullptr; port = port->next) {
    if (port->port_id == port_id) {
      return true;
    }
  }
  return false;
}

// The ring that `ring` names as its interconnection partner, or null.
ERPSM_T* partner_of(const ERPSM_T* ring) {
  return ring->interconnect_ring_id != 0 ? erpsapi_erpsm_find(ring->interconnect_ring_id) : nullptr;
}

void change_ring(ERPSM_T* ring, const uint32_t port_ids[kPortsPerRing], uint32_t vlan_id,
                 uint32_t node_role, uint32_t ring_role) {
  ring->node_role = node_role;
  ring->ring_role = ring_role;
  if (ring->vlan_id != vlan_id) {
    ring->vlan_id = vlan_id;
    if (ERPSM_T* partner = partner_of(ring); partner != nullptr) {
      partner->vlan_id = vlan_id;
    }
  }
  erps_change_port(ring, port_ids);
}

// Changes the role of a stopped ring that is no sub-ring instance; `refusal` otherwise.
uint32_t change_role(uint32_t ring_id, uint32_t ring_role, uint32_t refusal) {
  ERPSM_T* ring = erpsapi_erpsm_find(ring_id);
  if (ring == nullptr) {
    return kNoSuchRing;
  }
  if (ring->enable == 1) {
    return kRingRunningNoChange;
  }
  if (erps_is_sub_ring(ring)) {
    return refusal;
  }
  ring->ring_role = ring_role;
  return kDone;
}

}  // namespace

uint32_t erps_add_ring(uint32_t ring_id, uint32_t port0, uint32_t port1, uint32_t vlan_id,
                       uint32_t node_role, uint32_t ring_role) {
  log_call();
  if (ring_role != kSubRing) {
    const uint32_t refusal = erps_master_ring_conf_check(ring_id, port0, port1, vlan_id);
    if (refusal != kDone) {
      return refusal;
    }
  }
  if (ERPSM_T* ring = erpsapi_erpsm_find(ring_id); ring != nullptr) {
    const uint32_t port_ids[kPortsPerRing] = {port0, port1};
    change_ring(ring, port_ids, vlan_id, node_role, ring_role);
    return kDone;
  }
  const ERPSM_T* created = erps_ring_create(ring_id, port0, port1, vlan_id, node_role, ring_role);
  return created != nullptr ? kDone : kNoMemory;
}

uint32_t erps_master_ring_conf_check(uint32_t ring_id, uint32_t port0, uint32_t port1,
                                     uint32_t vlan_id) {
  const ERPSM_T* existing = erpsapi_erpsm_find(ring_id);
  if (existing != nullptr && existing->enable == 1) {
    return kRingRunning;
  }
  if (port0 == port1) {
    return kSamePorts;
  }
  for (const ERPSM_T* ring = erps_get_list_head(); ring != nullptr; ring = ring->next) {
    if (ring->ring_id == ring_id) {
      continue;
    }
    if (ring->vlan_id == vlan_id && !erps_is_sub_ring(ring)) {
      return kVlanInUse;
    }
    if (uses_port(ring, port0) || uses_port(ring, port1)) {
      return kPortInUse;
    }
  }
  return kDone;
}

uint32_t erps_check_sub_ring_conf(uint32_t major_ring_id, uint32_t sub_ring_id,
                                  uint32_t sub_ring_port) {
  if (major_ring_id == sub_ring_id) {
    return kSameRingIds;
  }
  if (erpsapi_erpsm_find(major_ring_id) == nullptr) {
    return kNoMajorRing;
  }
  if (const ERPSM_T* sub_ring = erpsapi_erpsm_find(sub_ring_id); sub_ring != nullptr) {
    if (sub_ring->enable == 1) {
      return kRingRunningNoChange;
    }
    if (sub_ring->ring_role == kMajorRing || sub_ring->interconnect_ring_id != major_ring_id) {
      return kNotThisMajorRing;
    }
  }
  for (const ERPSM_T* ring = erps_get_list_head(); ring != nullptr; ring = ring->next) {
    if (ring->ring_id != sub_ring_id && uses_port(ring, sub_ring_port)) {
      return kPortInUse;
    }
  }
  return kDone;
}

uint32_t erps_add_inter_sub_ring(uint32_t major_ring_id, uint32_t sub_ring_id,
                                 uint32_t sub_ring_port, uint32_t node_role,
                                 uint32_t inter_node_role) {
  log_call();
  ERPSM_T* major = erpsapi_erpsm_find(major_ring_id);
  if (major == nullptr) {
    return kNoSuchRing;
  }
  uint32_t refusal = erps_check_sub_ring_conf(major_ring_id, sub_ring_id, sub_ring_port);
  if (refusal != kDone) {
    return refusal;
  }
  refusal =
      erps_add_ring(sub_ring_id, sub_ring_port, kAbsentPort, major->vlan_id, node_role, kSubRing);
  if (refusal != kDone) {
    return refusal;
  }
  major->inter_node_role = inter_node_role;
  major->interconnect_ring_id = sub_ring_id;
  erpsapi_erpsm_find(sub_ring_id)->interconnect_ring_id = major_ring_id;
  return kDone;
}

uint32_t erps_set_del_ring(uint32_t ring_id) {
  log_call();
  ERPSM_T* ring = erpsapi_erpsm_find(ring_id);
  if (ring == nullptr) {
    return kNoSuchRing;
  }
  if (ring->enable == 1) {
    return kRingRunning;
  }
  if (ERPSM_T* partner = partner_of(ring); partner != nullptr) {
    partner->interconnect_ring_id = 0;
  }
  erps_ring_remove(ring);
  return kDone;
}

uint32_t erps_set_ring_enable(uint32_t ring_id, uint32_t enable) {
  log_call();
  ERPSM_T* ring = erpsapi_erpsm_find(ring_id);
  if (ring == nullptr) {
    return kNoSuchRing;
  }
  if (ring->enable == enable) {
    return kDone;
  }
  // Before the ring's own flag changes: the first ring to start turns the capture on, the last one
  // to stop leaves it on.
  if (switch_enable_erps(enable) < 0) {
    ERPS_ERROR(" switch erps ring %d enable %d error\n", ring_id, enable);
    return kCaptureFailed;
  }
  if (enable == 1) {
    erps_start_func(ring, "ERPS_erpsm_enable");
  } else {
    erps_stop_func(ring);
  }
  return kDone;
}

uint32_t erps_get_ring_conf(uint32_t ring_id, uint8_t* reply, uint32_t* length) {
  log_call();
  const ERPSM_T* ring = erpsapi_erpsm_find(ring_id);
  if (ring == nullptr) {
    return kNoSuchRing;
  }
  const ERPS_PORT_T* port0 = ring->port_list;
  put_word(reply, kRingId, ring->ring_id);
  put_word(reply, kState, static_cast<uint32_t>(ring->State));
  put_word(reply, kTimerStart, ring->timer_start_time);
  put_word(reply, kHoldoffStart, ring->holdoff_start_time);
  put_word(reply, kNodeRole, ring->node_role);
  put_port(reply, kPort0Id, port0);
  if (!erps_is_sub_ring(ring)) {
    put_port(reply, kPort1Id, port0->next);
  }
  put_word(reply, kVlanId, ring->vlan_id);
  put_word(reply, kRingRoleWord, ring->ring_role);
  put_word(reply, kNonRevertive, ring->non_revertive);
  put_word(reply, kSending, ring->raps_timer.active);
  put_word(reply, kLocalPriority, ring->local_priority);
  put_word(reply, kInterconnectRing, ring->interconnect_ring_id);
  put_word(reply, kEnabled, ring->enable);
  put_word(reply, kGuardRunning, ring->guard_running);
  put_word(reply, kHoldoffRunning, ring->holdoff_running);
  put_word(reply, kInterNodeRole, ring->inter_node_role);
  put_word(reply, kCurrentPriority, ring->current_priority);
  memcpy(reply + kRingConfNodeIdOffset, ring->local_node_id, sizeof ring->local_node_id);
  *length = kRingConfBytes;
  return kDone;
}

uint32_t erps_get_non_ring_enable() {
  return erps_non_ring_enable();
}

void erps_set_node_role(uint32_t ring_id, uint32_t node_role, uint32_t rpl_on_port0) {
  log_call();
  ERPSM_T* ring = erpsapi_erpsm_find(ring_id);
  if (ring == nullptr) {
    return;
  }
  ring->node_role = node_role;
  for (ERPS_PORT_T* port = ring->port_list; port != nullptr; port = port->next) {
    const bool is_port0 = port == ring->port_list;
    port->port_role = is_port0 == (rpl_on_port0 != 0) ? 1 : 0;
  }
}

void erps_set_vlan_id(uint32_t ring_id, uint32_t vlan_id) {
  log_call();
  if (ERPSM_T* ring = erpsapi_erpsm_find(ring_id); ring != nullptr) {
    ring->vlan_id = vlan_id;
  }
}

void erps_set_interconnect_ring_id(uint32_t ring_id, uint32_t partner_ring_id) {
  log_call();
  if (ERPSM_T* ring = erpsapi_erpsm_find(ring_id); ring != nullptr) {
    ring->interconnect_ring_id = partner_ring_id;
  }
}

void erps_set_interconnect_attribute(uint32_t ring_id, uint32_t partner_ring_id,
                                     uint32_t inter_node_role) {
  log_call();
  ERPSM_T* ring = erpsapi_erpsm_find(ring_id);
  if (ring == nullptr) {
    return;
  }
  ring->interconnect_ring_id = partner_ring_id;
  if (!erps_is_sub_ring(ring)) {
    ring->inter_node_role = inter_node_role;
  }
}

uint32_t erps_set_ring_revertive(uint32_t ring_id, uint32_t non_revertive) {
  log_call();
  ERPSM_T* ring = erpsapi_erpsm_find(ring_id);
  if (ring == nullptr) {
    return kNoSuchRing;
  }
  ring->non_revertive = static_cast<uint8_t>(non_revertive);
  return kDone;
}

uint32_t erps_set_ring_role(uint32_t ring_id, uint32_t ring_role) {
  log_call();
  return change_role(ring_id, ring_role, kSubRingRoleNotSettable);
}

uint32_t erps_modify_ring_role(uint32_t ring_id, uint32_t ring_role) {
  log_call();
  return change_role(ring_id, ring_role, kSubRingRoleFixed);
}

uint32_t erps_set_mac_addr(uint32_t ring_id, const uint8_t mac[6]) {
  log_call();
  ERPSM_T* ring = erpsapi_erpsm_find(ring_id);
  if (ring == nullptr) {
    return kNoSuchRing;
  }
  if (ring->enable == 1) {
    return kRingRunningNoChange;
  }
  memcpy(ring->local_node_id, mac, sizeof ring->local_node_id);
  return kDone;
}

uint32_t erps_get_guard_timer() {
  return guard_timer_time;
}

void erps_set_guard_timer(uint32_t time_ms) {
  guard_timer_time = time_ms;
  WTB_timer_time = time_ms + kWtbBeyondGuardMs;
}

uint32_t erps_get_wtr_timer() {
  return WTR_timer_time;
}

void erps_set_wtr_timer(uint32_t time_ms) {
  WTR_timer_time = time_ms;
}

void erps_set_wtb_timer(uint32_t time_ms) {
  WTB_timer_time = time_ms;
}

uint32_t erps_get_holdoff_time() {
  return holdoff_timer_time;
}

void erps_set_holdoff_timer(uint32_t time_ms) {
  holdoff_timer_time = time_ms;
}

uint32_t erps_set_port_state(uint32_t port_id, uint32_t state) {
  log_call();
  adp_set_port_erps_state(port_id, state);
  return 0;
}
