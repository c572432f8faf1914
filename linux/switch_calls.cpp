// The calls of platform/switch_adaptation.h, field_processor.h and packet_buffer.h.
//
// Every call holds off the cancellation of the calling task. Ports that are no ring ports are
// refused; nothing is done while the platform is not running. What fails is told.
#include <algorithm>
#include <cstring>

#include "linux/cancel_guard.h"
#include "linux/failed_call.h"
#include "linux/instance.h"
#include "linux/log.h"
#include "platform/field_processor.h"
#include "platform/packet_buffer.h"
#include "platform/switch_adaptation.h"

using erps::linux_platform::CancelGuard;
using erps::linux_platform::FailedCall;
using erps::linux_platform::Instance;
using erps::linux_platform::instance;
using erps::linux_platform::RingPort;

namespace lp = erps::linux_platform;

namespace {

constexpr int kFailed = -1;
constexpr uint32_t kLinkStateAttribute = 11;
constexpr uint32_t kLearntAddresses = 2;
constexpr char kNoRingPort[] = "port %u is no ring port";
constexpr char kSendFailed[] = "port %u (%s): %s";
constexpr char kNotRunning[] = "the platform is not running";

RingPort* find_port(Instance* platform, uint32_t port_id) {
  return platform != nullptr ? platform->ports.find(port_id) : nullptr;
}

void record_sent(Instance& platform, const RingPort& port, const uint8_t* frame, uint16_t length,
                 int error) {
  lp::HistoryRecord record = lp::History::make(lp::HistoryKind::kRapsSent, port.id);
  if (!lp::History::describe_raps(frame, length, record)) {
    return;
  }
  if (record.cause == lp::CauseKind::kNone) {
    record.cause = lp::CauseKind::kTimer;  // no event of this thread: the timer task repeats it
  }
  record.error = error;
  platform.history.add(record);
}

}  // namespace

int adp_set_port_erps_state(uint32_t port_id, uint32_t state) {
  static FailedCall failure("adp_set_port_erps_state");
  const CancelGuard guard;
  Instance* platform = instance();
  RingPort* port = find_port(platform, port_id);
  if (port == nullptr) {
    return failure.tell(kNoRingPort, port_id);
  }
  if (state != lp::kForwarding && state != lp::kDiscarding) {
    return failure.tell("port %u: there is no state %u", port_id, state);
  }
  return platform->keeper.ask(*port, state) == 0 ? 0 : kFailed;  // which has told why
}

int adp_get_port_erps_state(uint32_t port_id, uint32_t* state) {
  static FailedCall failure("adp_get_port_erps_state");
  const RingPort* port = find_port(instance(), port_id);
  if (port == nullptr || state == nullptr) {
    return failure.tell(kNoRingPort, port_id);
  }
  *state = port->wanted.load();
  return 0;
}

int adp_del_mac_addr_by_intf(uint32_t port_id, uint32_t kind) {
  static FailedCall failure("adp_del_mac_addr_by_intf");
  const CancelGuard guard;
  Instance* platform = instance();
  const RingPort* port = find_port(platform, port_id);
  if (port == nullptr || kind != kLearntAddresses) {
    return failure.tell("port %u, kind %u: no ring port, or no such kind", port_id, kind);
  }
  platform->keeper.flush(*port);
  return 0;
}

int adp_transmit_frame(const uint8_t* frame, uint16_t length, uint32_t, uint32_t port_id,
                       uint32_t) {
  static FailedCall failure("adp_transmit_frame");
  const CancelGuard guard;
  Instance* platform = instance();
  RingPort* port = find_port(platform, port_id);
  if (port == nullptr || frame == nullptr) {
    return failure.tell(kNoRingPort, port_id);
  }
  const int error = port->frames.send(frame, length);
  lp::count(error == 0 ? port->frames_sent : port->send_failures);
  record_sent(*platform, *port, frame, length, error);
  if (error == 0) {
    return 0;
  }
  // A link that has just gone takes what is sent meanwhile along.
  return platform->links.device_up(*port)
             ? failure.tell(kSendFailed, port_id, port->interface.c_str(), std::strerror(error))
             : failure.note(kSendFailed, port_id, port->interface.c_str(), std::strerror(error));
}

int adp_receive_frame(uint32_t handle, uint8_t* frame, uint16_t capacity, uint16_t* length,
                      uint16_t* vlan, uint32_t* ingress_port) {
  static FailedCall failure("adp_receive_frame");
  Instance* platform = instance();
  if (platform == nullptr || frame == nullptr || length == nullptr || vlan == nullptr ||
      ingress_port == nullptr) {
    return failure.tell("%s", kNotRunning);
  }
  lp::Packet* packet = platform->queue->packets().find(handle);
  if (packet == nullptr) {
    return failure.tell("no frame %u waits", handle);
  }
  *length = std::min(packet->length, capacity);
  std::memcpy(frame, packet->frame(), *length);
  *vlan = packet->vlan;
  *ingress_port = packet->port_id;
  return 0;
}

int adp_get_phy_port_attr(uint32_t port_id, uint32_t attribute, uint32_t* value) {
  static FailedCall failure("adp_get_phy_port_attr");
  const CancelGuard guard;
  Instance* platform = instance();
  const RingPort* port = find_port(platform, port_id);
  if (port == nullptr || attribute != kLinkStateAttribute || value == nullptr) {
    return failure.tell("port %u, attribute %u: no ring port, or no such attribute", port_id,
                        attribute);
  }
  *value = platform->links.device_up(*port) ? 1 : 0;
  return 0;
}

int get_nic_address(const char*, int, uint8_t mac[6]) {
  static FailedCall failure("get_nic_address");
  const Instance* platform = instance();
  if (platform == nullptr || mac == nullptr) {
    return failure.tell("%s", kNotRunning);
  }
  std::copy(platform->node_address.begin(), platform->node_address.end(), mac);
  return 0;
}

int adp_fp_add_entity_action(adp_fp_rule_t* rule, uint32_t action, const void* data,
                             uint32_t data_length, const void* parameter,
                             uint32_t parameter_length) {
  const CancelGuard guard;
  return rule == nullptr
             ? kFailed
             : lp::add_rule_action(*rule, action, data, data_length, parameter, parameter_length);
}

int adp_fp_add_entity_qualify(adp_fp_rule_t* rule, uint32_t qualifier, const void* value,
                              uint32_t value_length, const void* mask, uint32_t mask_length) {
  const CancelGuard guard;
  return rule == nullptr
             ? kFailed
             : lp::add_rule_qualifier(*rule, qualifier, value, value_length, mask, mask_length);
}

int adp_fp_add_entity_rule(adp_fp_rule_t rule) {
  static FailedCall failure("adp_fp_add_entity_rule");
  const CancelGuard guard;
  Instance* platform = instance();
  return platform != nullptr ? platform->capture.add(rule) : failure.tell("%s", kNotRunning);
}

int adp_fp_delete_entity_rule(uint32_t entity_id, uint32_t, uint32_t) {
  static FailedCall failure("adp_fp_delete_entity_rule");
  const CancelGuard guard;
  Instance* platform = instance();
  if (platform == nullptr) {
    return failure.tell("%s", kNotRunning);
  }
  return platform->capture.remove(entity_id);
}

void skpack_release(void* packet) {
  Instance* platform = instance();
  if (platform != nullptr && !platform->queue->packets().give_back(packet)) {
    lp::logf(lp::LogLevel::kError, "a packet buffer was given back twice or never given out");
  }
}
