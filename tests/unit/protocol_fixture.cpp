#include "tests/unit/protocol_fixture.h"

#include <algorithm>
#include <cstring>

#include "erps/fsm/requests.h"
#include "erps/raps/transmit.h"
#include "erps/timer/protocol_timers.h"

namespace erps::test {

ERPSM_T* ProtocolTest::idle_ring(const RingSpec& spec) {
  ERPSM_T* ring = make_ring(spec);
  erps_timer_init(&ring->wtr_timer, ring, erps_wtr_expire);
  erps_timer_init(&ring->wtb_timer, ring, erps_wtb_expire);
  erps_timer_init(&ring->guard_timer, ring, erps_guard_expire);
  erps_timer_init(&ring->holdoff_timer, ring, erps_holdoff_timer_expire);
  erps_timer_init(&ring->raps_timer, ring, erps_send_raps_expire);
  ring->enable = 1;
  ring->State = STATE_IDLE;
  ring->event_port = kNoPort;
  ring->inter_fault_port = kNoPort;
  memcpy(ring->local_node_id, kLocalNode.data(), kMacLength);
  memcpy(g_erps_src_mac, kLocalNode.data(), kMacLength);
  set_port(port0(ring), kLinkUp, kForwarding);
  if (!erps_is_sub_ring(ring)) {
    set_port(port1(ring), kLinkUp, kForwarding);
  }
  platform.clear_journal();
  return ring;
}

RingPair ProtocolTest::idle_pair(uint32_t inter_node_role, uint32_t major_role) {
  const RingPair pair{idle_ring({.ring_role = major_role}), idle_ring(kSubRingSpec)};
  pair.major->interconnect_ring_id = pair.sub->ring_id;
  pair.major->inter_node_role = inter_node_role;
  pair.sub->interconnect_ring_id = pair.major->ring_id;
  return pair;
}

void ProtocolTest::set_port(ERPS_PORT_T* port, uint16_t link, uint16_t state) {
  port->link_status = link;
  port->port_state = state;
  platform.set_link(port->port_id, link);
  platform.port_state_set(port->port_id, state);
}

std::string ProtocolTest::steps() {
  std::string text = steps_of(platform);
  platform.clear_journal();
  return text;
}

std::vector<std::string> ProtocolTest::posts() {
  std::vector<std::string> texts;
  for (const ERPS_EVENT_MSG_T& event : platform.take_events()) {
    auto* buffer = static_cast<ERPS_MSG_T*>(payload_of(event));
    texts.push_back(
        std::to_string(event.type) + " for ring " + std::to_string(buffer->ring_id()) +
        (event.type == ERPS_EVENT_T_NOTIFY_SUB_RING ? ": " + std::to_string(buffer->value()) : ""));
    erps_pkt_buf_free(buffer);
  }
  return texts;
}

std::vector<ERPS_STATE_ENTRY_T*> ProtocolTest::state_entries(const ERPSM_T* ring) {
  std::vector<ERPS_STATE_ENTRY_T*> entries;
  for (ERPS_STATE_ENTRY_T* entry = ring->state_list; entry != nullptr; entry = entry->next) {
    entries.push_back(entry);
  }
  return entries;
}

void ProtocolTest::enter(ERPSM_T* ring, const std::string& name) {
  const std::vector<ERPS_STATE_ENTRY_T*> entries = state_entries(ring);
  const auto found = std::find_if(
      entries.begin(), entries.end(),
      [&name](const ERPS_STATE_ENTRY_T* entry) { return entry->name == std::string(name); });
  ASSERT_NE(found, entries.end()) << name;
  (*found)->enter(*found);
}

void ProtocolTest::store_pair(ERPS_PORT_T* port, const MacAddress& node_id, uint8_t bpr) {
  memcpy(port->rx_node_id, node_id.data(), kMacLength);
  port->rx_bpr = bpr;
}

MacAddress ProtocolTest::stored_node_id(const ERPS_PORT_T* port) {
  MacAddress node_id{};
  memcpy(node_id.data(), port->rx_node_id, kMacLength);
  return node_id;
}

}  // namespace erps::test
