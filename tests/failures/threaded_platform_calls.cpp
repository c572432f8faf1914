// The platform calls, and the C library's that the linker leads here (--wrap).
#include <sys/ipc.h>
#include <sys/select.h>
#include <sys/time.h>
#include <sys/types.h>

#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>

#include "platform/field_processor.h"
#include "platform/log.h"
#include "platform/packet_buffer.h"
#include "platform/switch_adaptation.h"
#include "tests/failures/threaded_platform.h"

namespace {

using erps::failures::kPorts;
using erps::failures::ThreadedPlatform;

ThreadedPlatform& platform() {
  return ThreadedPlatform::instance();
}

char receiver = 0;
char sender = 0;

}  // namespace

extern "C" {

int adp_set_port_erps_state(uint32_t port_id, uint32_t state) {
  if (port_id >= kPorts) {
    return -1;
  }
  platform().states.at(port_id).store(state, std::memory_order_relaxed);
  return 0;
}

int adp_get_port_erps_state(uint32_t port_id, uint32_t* state) {
  if (port_id >= kPorts) {
    return -1;
  }
  *state = platform().states.at(port_id).load(std::memory_order_relaxed);
  return 0;
}

int adp_del_mac_addr_by_intf(uint32_t /*port_id*/, uint32_t /*kind*/) {
  return 0;
}

int adp_transmit_frame(const uint8_t* frame, uint16_t length, uint32_t /*arg2*/,
                       uint32_t /*port_id*/, uint32_t /*arg4*/) {
  uint8_t copy[2048];
  std::memcpy(copy, frame, length);  // as a host reads all of it
  return 0;
}

int adp_receive_frame(uint32_t handle, uint8_t* frame, uint16_t capacity, uint16_t* length,
                      uint16_t* vlan, uint32_t* ingress_port) {
  *vlan = 0;
  return platform().fetch(handle, frame, capacity, length, ingress_port);
}

int adp_get_phy_port_attr(uint32_t port_id, uint32_t /*attribute*/, uint32_t* value) {
  if (port_id >= kPorts) {
    return -1;
  }
  *value = platform().links.at(port_id).load(std::memory_order_relaxed);
  return 0;
}

int get_nic_address(const char* /*nic*/, int /*index*/, uint8_t mac[6]) {
  constexpr uint8_t kAddress[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
  std::memcpy(mac, kAddress, sizeof kAddress);
  return 0;
}

int adp_fp_add_entity_action(adp_fp_rule_t* /*rule*/, uint32_t /*action*/, const void* /*data*/,
                             uint32_t /*data_length*/, const void* /*parameter*/,
                             uint32_t /*parameter_length*/) {
  return 0;
}
int adp_fp_add_entity_qualify(adp_fp_rule_t* /*rule*/, uint32_t /*qualifier*/,
                              const void* /*value*/, uint32_t /*value_length*/,
                              const void* /*mask*/, uint32_t /*mask_length*/) {
  return 0;
}
int adp_fp_add_entity_rule(adp_fp_rule_t /*rule*/) {
  return 0;
}
int adp_fp_delete_entity_rule(uint32_t /*entity_id*/, uint32_t /*arg1*/, uint32_t /*arg2*/) {
  return 0;
}

void* equeue_make_extend(const char* /*name*/, int /*depth*/, int /*arg2*/, int /*arg3*/) {
  platform().open_queue();
  return &receiver;
}
void* equeue_open(const char* /*name*/, int /*flags*/) {
  return &sender;
}
int equeue_recv(void* /*queue*/, ERPS_EVENT_MSG_T* message, int /*flags*/) {
  return platform().receive(*message);
}
int equeue_send_ucast(void* queue, const ERPS_EVENT_MSG_T* message, int /*timeout_ms*/) {
  return queue != nullptr && platform().post(*message) ? 1 : -1;
}
int equeue_close(void* queue) {
  if (queue == &receiver) {
    platform().close_queue();
  }
  return queue == nullptr ? -1 : 0;
}

int stask_start(erps_task_desc* task, int /*flags*/) {
  return platform().start(*task);
}
int stask_stop(erps_task_desc* task) {
  platform().stop(*task);
  return 0;
}
int stask_notify_creater(erps_task_desc* task, int result) {
  platform().notify(*task, result);
  return 0;
}

void skpack_release(void* packet) {
  platform().release(packet);
}

// Formats, and so reads, what a message names.
int Log_logging_func(int /*level*/, int /*facility*/, const char* /*label*/, const char* format,
                     ...) {
  char text[1024];
  va_list arguments;
  va_start(arguments, format);
  const int length = vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  return length;
}
int sys_trace_get(void) {
  return 0;
}
int sys_trace_add_log(const char* /*location*/, const char* /*text*/) {
  return 0;
}

int __wrap_gettimeofday(timeval* now, void* /*zone*/) {
  const int64_t now_us = platform().now_us();
  *now = {now_us / 1'000'000, now_us % 1'000'000};
  return 0;
}
time_t __wrap_time(time_t* out) {
  const time_t seconds = platform().now_us() / 1'000'000;
  if (out != nullptr) {
    *out = seconds;
  }
  return seconds;
}
int __wrap_select(int /*count*/, fd_set* /*read*/, fd_set* /*write*/, fd_set* /*except*/,
                  timeval* /*timeout*/) {
  return platform().sleep_a_tick();
}
int __wrap_msgget(key_t /*key*/, int /*flags*/) {
  return 1;
}
ssize_t __wrap_msgrcv(int /*id*/, void* message, size_t capacity, long type, int /*flags*/) {
  return platform().take_message(message, capacity, type);
}
int __wrap_msgsnd(int /*id*/, const void* message, size_t size, int /*flags*/) {
  platform().put_message(message, size);
  return 0;
}
}
