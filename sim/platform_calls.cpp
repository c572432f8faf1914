// The platform of platform/*.h, for the node whose task is calling.
//
// Threading: tasks of nodes only. Errors: as the declarations say; what no host allows is reported
// as a violation. Most calls are points of pre-emption.
#include <algorithm>
#include <array>
#include <cstdarg>
#include <cstdio>

#include "platform/event_queue.h"
#include "platform/field_processor.h"
#include "platform/log.h"
#include "platform/packet_buffer.h"
#include "platform/switch_adaptation.h"
#include "platform/task.h"
#include "sim/calling_node.h"

using erps::sim::able_node;
using erps::sim::calling_node;
using erps::sim::calling_task;
using erps::sim::Node;
using erps::sim::PlatformCall;
using erps::sim::preempted_node;

namespace {

constexpr int kFailed = -1;
constexpr uint32_t kLinkStateAttribute = 11;
constexpr uint32_t kLearntAddresses = 2;

int done_if(bool done) {
  return done ? 0 : kFailed;
}

__attribute__((format(printf, 2, 0))) void log(int level, const char* format, va_list arguments) {
  Node& node = calling_node();
  if (level > node.world.options.log_level) {
    return;
  }
  if (erps::sim::IdleTicks* ticks = calling_task().idle_ticks(); ticks != nullptr) {
    ticks->disturb();
  }
  std::array<char, 1024> text{};
  std::vsnprintf(text.data(), text.size(), format, arguments);
  for (auto* observer : node.world.observers) {
    observer->on_log(node.world.now_us(), node.index, level, text.data());
  }
}

}  // namespace

int adp_set_port_erps_state(uint32_t port_id, uint32_t state) {
  Node* node = able_node(PlatformCall::kSetPortState);
  return done_if(node != nullptr && node->set_port_state(port_id, state));
}

int adp_get_port_erps_state(uint32_t port_id, uint32_t* state) {
  const Node* node = able_node(PlatformCall::kGetPortState);
  const uint32_t asked = node != nullptr ? node->fabric.asked(port_id) : 0;
  if (asked == 0) {
    return kFailed;
  }
  *state = asked;
  return 0;
}

int adp_del_mac_addr_by_intf(uint32_t port_id, uint32_t kind) {
  Node* node = able_node(PlatformCall::kFlush);
  return done_if(node != nullptr && kind == kLearntAddresses && node->flush(port_id));
}

int adp_transmit_frame(const uint8_t* frame, uint16_t length, uint32_t /*arg2*/, uint32_t port_id,
                       uint32_t /*arg4*/) {
  Node* node = able_node(PlatformCall::kTransmit);
  return done_if(node != nullptr && node->transmit(port_id, frame, length));
}

int adp_receive_frame(uint32_t handle, uint8_t* frame, uint16_t capacity, uint16_t* length,
                      uint16_t* vlan, uint32_t* ingress_port) {
  const Node* node = able_node(PlatformCall::kReceiveFrame);
  const auto* packet = node != nullptr ? node->events.find_packet(handle) : nullptr;
  if (packet == nullptr) {
    return kFailed;
  }
  const std::span<const uint8_t> bytes = packet->frame.view();
  *length = static_cast<uint16_t>(std::min<size_t>(bytes.size(), capacity));
  std::copy_n(bytes.data(), *length, frame);
  constexpr size_t kTci = erps::raps::kTciOffset;
  *vlan = static_cast<uint16_t>((bytes[kTci] << 8U | bytes[kTci + 1]) & 0x0FFF);
  *ingress_port = packet->port;
  return 0;
}

int adp_get_phy_port_attr(uint32_t port_id, uint32_t attribute, uint32_t* value) {
  const Node* node = able_node(PlatformCall::kPortAttribute);
  if (node == nullptr || attribute != kLinkStateAttribute) {
    return kFailed;
  }
  *value = node->carrier(port_id) ? 1 : 0;
  return 0;
}

int get_nic_address(const char* /*nic*/, int /*index*/, uint8_t mac[6]) {
  const Node* node = able_node(PlatformCall::kNodeAddress);
  if (node == nullptr) {
    return kFailed;
  }
  const auto& address = node->plan.address;
  std::copy(address.begin(), address.end(), mac);
  return 0;
}

// A node has one rule, which captures R-APS frames: what it says in detail makes no difference
// here.
int adp_fp_add_entity_action(adp_fp_rule_t* /*rule*/, uint32_t /*action*/, const void* /*data*/,
                             uint32_t /*data_length*/, const void* /*parameter*/,
                             uint32_t /*parameter_length*/) {
  return done_if(able_node(PlatformCall::kRuleAction) != nullptr);
}

int adp_fp_add_entity_qualify(adp_fp_rule_t* /*rule*/, uint32_t /*qualifier*/,
                              const void* /*value*/, uint32_t /*value_length*/,
                              const void* /*mask*/, uint32_t /*mask_length*/) {
  return done_if(able_node(PlatformCall::kRuleQualifier) != nullptr);
}

int adp_fp_add_entity_rule(adp_fp_rule_t /*rule*/) {
  Node* node = able_node(PlatformCall::kAddRule);
  if (node != nullptr) {
    node->set_capture(true);
  }
  return done_if(node != nullptr);
}

int adp_fp_delete_entity_rule(uint32_t /*entity_id*/, uint32_t /*arg1*/, uint32_t /*arg2*/) {
  Node* node = able_node(PlatformCall::kDeleteRule);
  if (node != nullptr) {
    node->set_capture(false);
  }
  return done_if(node != nullptr);
}

void* equeue_make_extend(const char* name, int /*depth*/, int /*arg2*/, int /*arg3*/) {
  Node* node = able_node(PlatformCall::kMakeQueue);
  if (node == nullptr) {
    return nullptr;
  }
  node->events.open(name);
  return &node->events;
}

void* equeue_open(const char* name, int /*flags*/) {
  Node* node = able_node(PlatformCall::kOpenQueue);
  // The handle is another one than the receiver's: closing it closes nothing.
  return node != nullptr && node->events.is(name) ? node : nullptr;
}

int equeue_recv(void* queue, ERPS_EVENT_MSG_T* message, int /*flags*/) {
  Node* node = able_node(PlatformCall::kReceiveEvent);
  return node != nullptr && queue == &node->events ? node->receive_event(*message) : kFailed;
}

int equeue_send_ucast(void* queue, const ERPS_EVENT_MSG_T* message, int /*timeout_ms*/) {
  Node* node = able_node(PlatformCall::kSendEvent);
  return node != nullptr && queue != nullptr && node->events.post(*message) ? 1 : 0;
}

int equeue_close(void* queue) {
  Node* node = able_node(PlatformCall::kCloseQueue);
  if (node == nullptr || queue == nullptr) {
    return kFailed;
  }
  if (queue == &node->events) {
    node->events.close();
  }
  return 0;
}

int stask_start(erps_task_desc* task, int /*flags*/) {
  Node* node = able_node(PlatformCall::kStartTask);
  return node != nullptr ? node->start_task(*task) : kFailed;
}

int stask_stop(erps_task_desc* task) {
  Node* node = able_node(PlatformCall::kStopTask);
  return node != nullptr ? node->stop_task(*task) : kFailed;
}

int stask_notify_creater(erps_task_desc* task, int result) {
  Node* node = able_node(PlatformCall::kNotifyCreator);
  return node != nullptr ? node->notify_creator(*task, result) : kFailed;
}

void skpack_release(void* packet) {
  preempted_node().events.release_packet(packet);
}

int Log_logging_func(int level, int /*facility*/, const char* /*label*/, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  log(level, format, arguments);
  va_end(arguments);
  return 0;
}

int sys_trace_get() {
  return 0;
}

int sys_trace_add_log(const char* /*location*/, const char* /*text*/) {
  return 0;
}
