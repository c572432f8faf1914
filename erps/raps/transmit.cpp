#include "erps/raps/transmit.h"

#include <stdio.h>

#include "erps/fsm/requests.h"
#include "erps/raps/frame.h"
#include "erps/ring/ring_list.h"
#include "erps/runtime/log.h"
#include "erps/timer/protocol_timers.h"
#include "platform/switch_adaptation.h"

namespace raps = erps::raps;

uint8_t g_erps_src_mac[kMacLength] = {};

namespace {

constexpr uint32_t kNewMessageCopies = 3;  // of a sub-ring instance (G.8032 clause 10.1.3)
constexpr uint32_t kTransmitArgument2 = 0;
constexpr uint32_t kTransmitArgument4 = 3;

bool carries_traffic(const ERPS_PORT_T* port) {
  return port->link_status == kLinkUp && port->port_state == kForwarding;
}

// The port through which a sub-ring's messages enter its major ring, or null.
const ERPS_PORT_T* port_into_major_ring(const ERPSM_T* sub_ring) {
  const ERPSM_T* major = erpsapi_erpsm_find(sub_ring->interconnect_ring_id);
  if (major == nullptr || major->enable != 1) {
    return nullptr;
  }
  for (const ERPS_PORT_T* port = major->port_list; port != nullptr; port = port->next) {
    if (carries_traffic(port)) {
      return port;
    }
  }
  return nullptr;
}

// To no port when it is kNoPort.
void send_copies(const ERPSM_T* ring, int32_t port_id, const uint8_t* frame, uint32_t length,
                 uint32_t copies) {
  for (uint32_t copy = 0; port_id != kNoPort && copy < copies; ++copy) {
    erps_send_frame(static_cast<uint32_t>(port_id), frame, length, ring->vlan_id);
  }
}

bool is_new_message(const ERPSM_T* ring) {
  return (ring->send_logic & kSendLogicNew) != 0;
}

void mark_sent(ERPSM_T* ring) {
  ring->send_logic = ring->send_logic & ~kSendLogicNew;
}

// Where the BPR bit of a message comes from.
enum class BprSource { kNone, kEventPort, kForwardingPort };

BprSource bpr_source(uint32_t cause) {
  switch (cause) {
    case ENTER_FS:
    case ENTER_LOCAL_SF:
    case ENTER_LOCAL_CLEAR_SF:
    case ENTER_RAPS_MS:
    case ENTER_MS:
      return BprSource::kEventPort;
    case ENTER_INIT:
    case ENTER_WTR_EXPIRES:
    case ENTER_WTB_EXPIRES:
      return BprSource::kForwardingPort;
    default:
      return BprSource::kNone;
  }
}

}  // namespace

void erps_Tx_R_APS(ERPSM_T* ring, uint32_t request, uint32_t dnf, uint32_t rb, uint32_t cause) {
  ring->tx_dnf = static_cast<uint8_t>(dnf);
  ring->tx_rb = static_cast<uint8_t>(rb);
  ring->tx_cause = cause;
  ring->send_logic = kSendLogicNew;
  ring->tx_request = static_cast<uint8_t>(request);
  erps_format_raps_pkt(ring, request, dnf, rb);
  if (request != raps::kEvent) {
    erps_pkt_send_timer(&ring->raps_timer);
  }
}

int32_t erps_stop_Tx_RAPS(ERPSM_T* ring) {
  ring->inter_fault_port = kNoPort;
  ring->send_logic = 0;
  erps_timer_cancel(&ring->raps_timer);
  return 0;
}

void erps_format_raps_pkt(ERPSM_T* ring, uint32_t /*request*/, uint32_t /*dnf*/, uint32_t /*rb*/) {
  ERPS_DEBUG_AT("send_logic = %d vlan = %d ring_id = %d\n", ring->send_logic.get(),
                ring->vlan_id.get(), ring->ring_id);
  raps::Message message{};
  message.ring_id = ring->ring_id;
  message.vlan_id = ring->vlan_id;
  message.request = ring->tx_request;
  message.rb = ring->tx_rb;
  message.dnf = ring->tx_dnf;
  message.bpr = static_cast<uint8_t>(erps_tx_get_bpr(ring));
  message.source = g_erps_src_mac;
  message.node_id = ring->local_node_id;

  const TimerLock lock;  // the timer task must not repeat a half-written frame
  ring->tx_frame_len = raps::build(message, ring->tx_frame);
  erps_tx_raps_pkt(ring, ring->tx_frame, ring->tx_frame_len);
}

uint32_t erps_tx_raps_pkt(ERPSM_T* ring, uint8_t* frame, uint32_t length) {
  if (erps_is_sub_ring(ring)) {
    erps_interconnect_port_tx_raps(ring, frame, length);
    mark_sent(ring);
    return 0;
  }
  for (const ERPS_PORT_T* port = ring->port_list; port != nullptr; port = port->next) {
    // Before the link is looked at: a mark written for one port goes out on the next one too, and
    // in every repetition.
    erps_interconnect_modify_pkt(ring, frame, port->port_id);
    if (port->link_status != kLinkUp ||
        (ring->ring_role == kMajorRing && port->port_state != kForwarding)) {
      continue;
    }
    if (!is_new_message(ring)) {
      ERPS_DEBUG_AT("port:%d link : %d, ring_role : %d, state : %d\n", port->port_id,
                    port->link_status.get(), ring->ring_role.get(), port->port_state.get());
    }
    erps_send_frame(port->port_id, frame, length, ring->vlan_id);
  }
  mark_sent(ring);
  return 0;
}

uint32_t erps_tx_get_bpr(ERPSM_T* ring) {
  uint32_t event_index = 0;
  uint32_t forwarding_index = 0;
  bool event_port_found = false;
  for (const ERPS_PORT_T* port = ring->port_list; port != nullptr; port = port->next) {
    if (!event_port_found && port->port_id == static_cast<uint32_t>(ring->event_port)) {
      event_index = port->port_index;
      event_port_found = true;
    }
    if (port->port_state == kForwarding) {
      forwarding_index = port->port_index;
    }
  }
  ring->event_port = kNoPort;

  const BprSource source = bpr_source(ring->tx_cause);
  if (source == BprSource::kEventPort) {
    return event_index;
  }
  return source == BprSource::kForwardingPort ? forwarding_index : 0;
}

void erps_interconnect_port_tx_raps(ERPSM_T* ring, const uint8_t* frame, uint32_t length) {
  const ERPS_PORT_T* own = ring->port_list;
  const bool own_is_up = own != nullptr && own->link_status == kLinkUp;
  const int32_t sub_port = own_is_up ? static_cast<int32_t>(own->port_id) : kNoPort;
  const ERPS_PORT_T* way_in = port_into_major_ring(ring);
  const int32_t master_port = way_in != nullptr ? static_cast<int32_t>(way_in->port_id) : kNoPort;
  ERPS_DEBUG("ringid = %d, Master port:%d , Sub port %d\n", ring->ring_id, master_port, sub_port);

  const uint32_t copies = is_new_message(ring) ? kNewMessageCopies : 1;
  send_copies(ring, master_port, frame, length, copies);
  send_copies(ring, sub_port, frame, length, copies);
}

void erps_send_pkt_to_masterring(ERPSM_T* ring, const uint8_t* frame, uint32_t length) {
  if (const ERPS_PORT_T* port = port_into_major_ring(ring); port != nullptr) {
    erps_send_frame(port->port_id, frame, length, ring->vlan_id);
  }
}

void erps_interconnect_modify_pkt(ERPSM_T* ring, uint8_t* frame, uint32_t port_id) {
  constexpr uint32_t kMarkedByte = raps::kTaggedPdu + raps::kRequestOffset;
  if (ring->interconnect_ring_id != 0 && !erps_is_sub_ring(ring) &&
      ring->inter_node_role != kWatching &&
      port_id != static_cast<uint32_t>(ring->inter_fault_port.get())) {
    frame[kMarkedByte] =
        static_cast<uint8_t>((frame[kMarkedByte] & 0xF0) | raps::kInterconnectionMark);
  }
}

int32_t erps_send_frame(uint32_t port_id, const uint8_t* frame, uint32_t length,
                        uint32_t /*vlan_id*/) {
  ERPS_DEBUG("R-APS send frame Port = %d\n", port_id);
  return adp_transmit_frame(frame, static_cast<uint16_t>(length), kTransmitArgument2, port_id,
                            kTransmitArgument4);
}

void erps_printf_packet(const uint8_t* buffer, uint32_t length) {
  constexpr uint32_t kBytesPerLine = 16;
  for (uint32_t start = 0; start < length; start += kBytesPerLine) {
    char line[kBytesPerLine * 3 + 1] = {};
    char* end = line;
    for (uint32_t i = start; i < length && i < start + kBytesPerLine; ++i) {
      end += snprintf(end, 4, "%02x ", buffer[i]);
    }
    ERPS_DEBUG("%s\n", line);
  }
}

int32_t erps_send_raps_expire(ERPS_TIMER_T* timer) {
  ERPSM_T* ring = erps_ring_of_timer(timer);
  return static_cast<int32_t>(erps_tx_raps_pkt(ring, ring->tx_frame, ring->tx_frame_len));
}
