#include "tests/fuzz/platform.h"

#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/select.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>

#include "erps/raps/frame.h"
#include "erps/raps/rx_pdu.h"
#include "platform/field_processor.h"
#include "platform/log.h"
#include "platform/packet_buffer.h"
#include "platform/switch_adaptation.h"
#include "platform/task.h"
#include "tests/fuzz/fail.h"

namespace erps::fuzz {

namespace {

constexpr int64_t kStartUs = 1'700'000'000'250'000;
constexpr int kQueue = 7;  // identifier of the management queue
constexpr uint8_t kNodeAddress[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};

}  // namespace

Platform& Platform::instance() {
  static Platform platform;
  return platform;
}

void Platform::reset() {
  failures = kNoFailure;
  listens = false;
  reply_fails = false;
  reception_fails = false;
  links.fill(1);
  states_.fill(1);
  now_us_ = kStartUs;
  events_.clear();
  messages_.clear();
  sent_.clear();
  packet_ = {};
  errors_printed = 0;
}

bool Platform::take_event(ERPS_EVENT_MSG_T& event) {
  if (events_.empty()) {
    return false;
  }
  event = events_.front();
  events_.pop_front();
  return true;
}

ERPS_EVENT_MSG_T Platform::announce_frame(uint32_t port, std::vector<uint8_t> frame,
                                          uint16_t announced) {
  packet_ = {};
  packet_.handle = next_handle_++;
  packet_.length = announced;
  packet_.port = port;
  packet_.frame = std::move(frame);
  packet_.given = true;
  ERPS_EVENT_MSG_T event{};
  event.event_class = 3;
  event.type = 2;
  event.payload = reinterpret_cast<uintptr_t>(&packet_);
  return event;
}

void Platform::release(const void* packet) {
  require(packet == &packet_ && packet_.given, "a packet is given back that was not given out");
  require(!packet_.released, "a packet is given back twice");
  packet_.released = true;
}

int Platform::receive(uint32_t handle, uint8_t* frame, uint16_t capacity, uint16_t* length,
                      uint16_t* vlan, uint32_t* port) {
  require(packet_.given && !packet_.released && handle == packet_.handle,
          "a frame is fetched with a handle that is none");
  require(capacity <= kRxFrameCapacity, "a frame is fetched into more room than there can be");
  if (reception_fails) {
    return -1;
  }
  const size_t size = std::min<size_t>(packet_.frame.size(), capacity);
  if (size != 0) {
    std::memcpy(frame, packet_.frame.data(), size);
  }
  *length = static_cast<uint16_t>(size);
  *vlan = 0;
  *port = packet_.port;
  return 0;
}

int Platform::transmit(const uint8_t* frame, uint16_t length, uint32_t port) {
  require(length <= kRxFrameCapacity, "a frame is sent that is longer than any that can come");
  static uint8_t read[kRxFrameCapacity];
  std::memcpy(read, frame, length);  // as a host reads all of it
  const bool relayed = packet_.given && !packet_.released && length >= raps::kRingIdOffset + 7U &&
                       std::memcmp(frame + raps::kSourceOffset, kNodeAddress, 6) != 0;
  sent_.push_back({port, relayed});
  return fails(kTransmitFails) ? -1 : 0;
}

int Platform::set_port_state(uint32_t port, uint32_t state) {
  if (port >= kPorts || fails(kPortStateFails)) {
    return -1;
  }
  states_[port] = state;
  return 0;
}

int Platform::get_port_state(uint32_t port, uint32_t* state) {
  if (port >= kPorts || fails(kPortReadFails)) {
    return -1;
  }
  *state = states_[port];
  return 0;
}

int Platform::post(const ERPS_EVENT_MSG_T& event) {
  require(event.event_class == 3, "an event of a class that does not exist is posted");
  if (fails(kPostFails)) {
    return -1;
  }
  events_.push_back(event);
  return 1;
}

long Platform::take_message(void* message, size_t capacity, long type, int flags) {
  require((flags & IPC_NOWAIT) != 0, "the protocol task waits for a management request");
  const auto found = std::find_if(messages_.begin(), messages_.end(), [type](const Message& one) {
    return type == 0 || (type > 0 ? one.type == type : one.type <= -type);
  });
  if (found == messages_.end()) {
    errno = ENOMSG;
    return -1;
  }
  if (found->text.size() > capacity && (flags & MSG_NOERROR) == 0) {
    errno = E2BIG;
    return -1;
  }
  const size_t length = std::min(found->text.size(), capacity);
  std::memcpy(message, &found->type, sizeof found->type);
  if (length != 0) {
    std::memcpy(static_cast<uint8_t*>(message) + sizeof found->type, found->text.data(), length);
  }
  messages_.erase(found);
  return static_cast<long>(length);
}

int Platform::put_message(const void* message, size_t size) {
  require(size <= mgmt::kTextCapacity, "a reply is longer than its buffer");
  if (reply_fails) {
    errno = EAGAIN;
    return -1;
  }
  Message reply;
  std::memcpy(&reply.type, message, sizeof reply.type);
  const auto* text = static_cast<const uint8_t*>(message) + sizeof reply.type;
  reply.text.assign(text, text + size);
  messages_.push_back(std::move(reply));
  return 0;
}

}  // namespace erps::fuzz

namespace {

using erps::fuzz::Platform;
using erps::fuzz::require;

Platform& platform() {
  return Platform::instance();
}

int rule_result() {
  return platform().fails(erps::fuzz::kRuleFails) ? -1 : 0;
}

}  // namespace

extern "C" {

int adp_set_port_erps_state(uint32_t port_id, uint32_t state) {
  return platform().set_port_state(port_id, state);
}

int adp_get_port_erps_state(uint32_t port_id, uint32_t* state) {
  return platform().get_port_state(port_id, state);
}

int adp_del_mac_addr_by_intf(uint32_t /*port_id*/, uint32_t kind) {
  require(kind == 2, "other than learnt addresses are flushed");
  return platform().fails(erps::fuzz::kFlushFails) ? -1 : 0;
}

int adp_transmit_frame(const uint8_t* frame, uint16_t length, uint32_t /*arg2*/, uint32_t port_id,
                       uint32_t /*arg4*/) {
  return platform().transmit(frame, length, port_id);
}

int adp_receive_frame(uint32_t handle, uint8_t* frame, uint16_t capacity, uint16_t* length,
                      uint16_t* vlan, uint32_t* ingress_port) {
  return platform().receive(handle, frame, capacity, length, vlan, ingress_port);
}

int adp_get_phy_port_attr(uint32_t port_id, uint32_t attribute, uint32_t* value) {
  require(attribute == 11, "another attribute than the link is read");
  if (port_id >= erps::fuzz::kPorts || platform().fails(erps::fuzz::kLinkReadFails)) {
    return -1;
  }
  *value = platform().links[port_id];
  return 0;
}

int get_nic_address(const char* /*nic*/, int /*index*/, uint8_t mac[6]) {
  std::memcpy(mac, erps::fuzz::kNodeAddress, 6);
  return 0;
}

int adp_fp_add_entity_action(adp_fp_rule_t* /*rule*/, uint32_t /*action*/, const void* /*data*/,
                             uint32_t /*data_length*/, const void* /*parameter*/,
                             uint32_t /*parameter_length*/) {
  return rule_result();
}

int adp_fp_add_entity_qualify(adp_fp_rule_t* /*rule*/, uint32_t /*qualifier*/,
                              const void* /*value*/, uint32_t /*value_length*/,
                              const void* /*mask*/, uint32_t /*mask_length*/) {
  return rule_result();
}

int adp_fp_add_entity_rule(adp_fp_rule_t /*rule*/) {
  return rule_result();
}

int adp_fp_delete_entity_rule(uint32_t /*entity_id*/, uint32_t /*arg1*/, uint32_t /*arg2*/) {
  return rule_result();
}

// The targets hand events to the module themselves: no task runs and no queue is opened.
void* equeue_make_extend(const char* /*name*/, int /*depth*/, int /*arg2*/, int /*arg3*/) {
  return nullptr;
}
void* equeue_open(const char* /*name*/, int /*flags*/) {
  return nullptr;
}
int equeue_recv(void* /*queue*/, ERPS_EVENT_MSG_T* /*message*/, int /*flags*/) {
  return -1;
}
int equeue_send_ucast(void* queue, const ERPS_EVENT_MSG_T* message, int /*timeout_ms*/) {
  require(queue == &platform(), "an event is posted on a queue that does not exist");
  return platform().post(*message);
}
int equeue_close(void* /*queue*/) {
  return 0;
}

int stask_start(erps_task_desc* /*task*/, int /*flags*/) {
  return -1;
}
int stask_stop(erps_task_desc* /*task*/) {
  return 0;
}
int stask_notify_creater(erps_task_desc* /*task*/, int /*result*/) {
  return 0;
}

void skpack_release(void* packet) {
  platform().release(packet);
}

int Log_logging_func(int /*level*/, int /*facility*/, const char* /*label*/, const char* format,
                     ...) {
  if (!platform().listens) {
    return 0;
  }
  char text[2048];
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  require(length >= 0 && length < static_cast<int>(sizeof text), "a log message has no end");
  return length;
}

int sys_trace_get(void) {
  return platform().listens ? 1 : 0;
}

int sys_trace_add_log(const char* location, const char* text) {
  require(std::strlen(location) < 128 && std::strlen(text) < 1024, "a trace text has no end");
  return 0;
}

// --- Calls of the C library that the linker leads here (--wrap).

int __wrap_gettimeofday(timeval* now, void* /*zone*/) {
  now->tv_sec = platform().now_us() / 1'000'000;
  now->tv_usec = platform().now_us() % 1'000'000;
  return 0;
}

time_t __wrap_time(time_t* out) {
  const time_t seconds = platform().now_us() / 1'000'000;
  if (out != nullptr) {
    *out = seconds;
  }
  return seconds;
}

int __wrap_msgget(key_t /*key*/, int /*flags*/) {
  return erps::fuzz::kQueue;
}

ssize_t __wrap_msgrcv(int id, void* message, size_t capacity, long type, int flags) {
  require(id == erps::fuzz::kQueue, "a request is read from a queue that does not exist");
  return platform().take_message(message, capacity, type, flags);
}

int __wrap_msgsnd(int id, const void* message, size_t size, int flags) {
  require(id == erps::fuzz::kQueue, "a reply goes to a queue that does not exist");
  require((flags & IPC_NOWAIT) != 0, "the protocol task waits for room for a reply");
  return platform().put_message(message, size);
}

void __wrap_perror(const char* /*text*/) {
  ++platform().errors_printed;
}

void* __real__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& tag);
void* __wrap__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& tag) {
  return platform().fails(erps::fuzz::kMemoryFails) ? nullptr
                                                    : __real__ZnwmRKSt9nothrow_t(size, tag);
}

void* __real__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& tag);
void* __wrap__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& tag) {
  return platform().fails(erps::fuzz::kMemoryFails) ? nullptr
                                                    : __real__ZnamRKSt9nothrow_t(size, tag);
}
}
