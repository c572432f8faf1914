// The platform calls and the intercepted library calls: each writes itself down and asks the
// recording platform what to answer.
#include <mqueue.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <sys/select.h>
#include <sys/time.h>

#include <cerrno>
#include <cstdarg>
#include <cstdio>
#include <cstring>
#include <ctime>
#include <new>
#include <sstream>

#ifdef __has_feature
#if __has_feature(address_sanitizer)
#include <sanitizer/asan_interface.h>
#define ERPS_TESTED_WITH_ASAN
#endif
#endif

#include "erps/runtime/event_queue.h"
#include "erps/timer/timer_list.h"
#include "platform/log.h"
#include "platform/packet_buffer.h"
#include "platform/switch_adaptation.h"
#include "tests/unit/recording_platform.h"

namespace {

// The clean-up of a cancelled task runs while the C library unwinds its stack, of which clang's
// AddressSanitizer is not told.
void forget_unwound_frames() {
#ifdef ERPS_TESTED_WITH_ASAN
  __asan_handle_no_return();
#endif
}

using erps::test::RecordingPlatform;

RecordingPlatform& platform() {
  return RecordingPlatform::instance();
}

template <typename First, typename... Rest>
std::string list(const First& first, const Rest&... rest) {
  std::ostringstream out;
  out << first;
  ((out << ", " << rest), ...);
  return out.str();
}

std::string hex(const void* data, uint32_t length) {
  if (data == nullptr) {
    return "null";
  }
  std::string text;
  for (uint32_t i = 0; i < length; ++i) {
    char byte[3];
    snprintf(byte, sizeof byte, "%02x", static_cast<const uint8_t*>(data)[i]);
    text += byte;
  }
  return text;
}

std::vector<uint8_t> bytes_of(const adp_fp_rule_t& rule) {
  const auto* begin = reinterpret_cast<const uint8_t*>(&rule);
  return {begin, begin + sizeof rule};
}

std::string event_text(void* queue, const ERPS_EVENT_MSG_T* message, int timeout_ms) {
  return list(platform().handle_name(queue), "type " + std::to_string(message->type), timeout_ms);
}

// The event, and behind it what a test wants to know of its payload: the first words of a message
// buffer, the name of an expired timer.
std::vector<uint8_t> event_bytes(const ERPS_EVENT_MSG_T& message) {
  constexpr size_t kBufferBytes = 16;
  const void* behind = nullptr;
  size_t length = 0;
  if (message.type == ERPS_EVENT_T_TIMER) {
    behind = static_cast<const ERPS_TIMER_T*>(erps::test::payload_of(message))->name;
    length = sizeof ERPS_TIMER_T::name;
  } else if (message.type == ERPS_EVENT_T_TOPO_CHANGE ||
             message.type == ERPS_EVENT_T_NOTIFY_SUB_RING) {
    behind = erps::test::payload_of(message);
    length = kBufferBytes;
  }
  std::vector<uint8_t> bytes(sizeof message + length);
  memcpy(bytes.data(), &message, sizeof message);
  if (length != 0) {
    memcpy(bytes.data() + sizeof message, behind, length);
  }
  return bytes;
}

}  // namespace

extern "C" {

int adp_set_port_erps_state(uint32_t port_id, uint32_t state) {
  platform().record(__func__, list(port_id, state));
  return platform().port_state_set(port_id, state);
}

int adp_get_port_erps_state(uint32_t port_id, uint32_t* state) {
  platform().record(__func__, list(port_id));
  return platform().port_state_get(port_id, state);
}

int adp_del_mac_addr_by_intf(uint32_t port_id, uint32_t kind) {
  platform().record(__func__, list(port_id, kind));
  return platform().flush_result();
}

int adp_transmit_frame(const uint8_t* frame, uint16_t length, uint32_t arg2, uint32_t port_id,
                       uint32_t arg4) {
  const std::vector<uint8_t> bytes(frame, frame + length);
  platform().record(__func__, list(length, arg2, port_id, arg4), bytes);
  return platform().transmit({port_id, arg2, arg4, bytes});
}

int adp_receive_frame(uint32_t handle, uint8_t* frame, uint16_t capacity, uint16_t* length,
                      uint16_t* vlan, uint32_t* ingress_port) {
  platform().record(__func__, list(handle, capacity));
  return platform().receive(frame, capacity, length, vlan, ingress_port);
}

int adp_get_phy_port_attr(uint32_t port_id, uint32_t attribute, uint32_t* value) {
  platform().record(__func__, list(port_id, attribute));
  return platform().link_get(port_id, value);
}

int get_nic_address(const char* nic, int index, uint8_t mac[6]) {
  platform().record(__func__, list(nic, index));
  return platform().nic_get(mac);
}

int adp_fp_add_entity_action(adp_fp_rule_t* rule, uint32_t action, const void* data,
                             uint32_t data_length, const void* parameter,
                             uint32_t parameter_length) {
  platform().record(__func__,
                    list(action, hex(data, data_length), data_length,
                         hex(parameter, parameter_length), parameter_length),
                    bytes_of(*rule));
  ++rule->opaque[0];
  return platform().rule_result(0);
}

int adp_fp_add_entity_qualify(adp_fp_rule_t* rule, uint32_t qualifier, const void* value,
                              uint32_t value_length, const void* mask, uint32_t mask_length) {
  platform().record(
      __func__,
      list(qualifier, hex(value, value_length), value_length, hex(mask, mask_length), mask_length),
      bytes_of(*rule));
  ++rule->opaque[1];
  return platform().rule_result(1);
}

int adp_fp_add_entity_rule(adp_fp_rule_t rule) {
  platform().record(__func__, list(rule.entity_id), bytes_of(rule));
  return platform().rule_result(2);
}

int adp_fp_delete_entity_rule(uint32_t entity_id, uint32_t arg1, uint32_t arg2) {
  platform().record(__func__, list(entity_id, arg1, arg2));
  return platform().rule_result(3);
}

void* equeue_make_extend(const char* name, int depth, int arg2, int arg3) {
  platform().record(__func__, list(name, depth, arg2, arg3));
  return platform().queue_create();
}

void* equeue_open(const char* name, int flags) {
  platform().record(__func__, list(name, flags));
  return platform().queue_open();
}

int equeue_recv(void* queue, ERPS_EVENT_MSG_T* message, int flags) {
  platform().record(__func__, list(platform().handle_name(queue), flags));
  return platform().queue_receive(message);
}

int equeue_send_ucast(void* queue, const ERPS_EVENT_MSG_T* message, int timeout_ms) {
  platform().record(__func__, event_text(queue, message, timeout_ms), event_bytes(*message));
  return platform().queue_send(queue, *message);
}

int equeue_close(void* queue) {
  forget_unwound_frames();
  platform().record(__func__, platform().handle_name(queue));
  return queue == nullptr ? -1 : 0;
}

int stask_start(erps_task_desc* task, int flags) {
  platform().record(__func__, list(task->name, flags));
  return platform().task_start(task);
}

int stask_stop(erps_task_desc* task) {
  platform().record(__func__, task->name);
  return platform().task_stop(task);
}

int stask_notify_creater(erps_task_desc* task, int result) {
  platform().record(__func__, list(task->name, result));
  return platform().task_notify(task, result);
}

void skpack_release(void* packet) {
  platform().record(__func__, packet == nullptr ? "null" : "packet");
}

int Log_logging_func(int level, int facility, const char* label, const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  va_list again;
  va_copy(again, arguments);
  const int length = vsnprintf(nullptr, 0, format, arguments);
  va_end(arguments);
  std::string text(static_cast<size_t>(length), '\0');
  vsnprintf(text.data(), text.size() + 1, format, again);
  va_end(again);
  platform().record_log(level, facility, label, std::move(text));
  return length;
}

int sys_trace_get(void) {
  return platform().trace_switch();
}

int sys_trace_add_log(const char* location, const char* text) {
  platform().record_trace(location, text);
  return 0;
}

// --- Calls that the linker redirects here (--wrap), whoever in this executable makes them.

int __wrap_gettimeofday(timeval* now, void*) {
  const auto [seconds, microseconds] = platform().now();
  now->tv_sec = seconds;
  now->tv_usec = microseconds;
  return 0;
}

time_t __wrap_time(time_t* out) {
  const time_t seconds = platform().now().first;
  if (out != nullptr) {
    *out = seconds;
  }
  return seconds;
}

int __wrap_select(int count, fd_set*, fd_set*, fd_set*, timeval* timeout) {
  platform().record("select", list(count, timeout->tv_sec, timeout->tv_usec));
  const int result = platform().sleep_one_tick();
  if (result < 0) {
    errno = EINTR;
  }
  return result;
}

int __wrap_mq_unlink(const char* name) {
  platform().record("mq_unlink", name);
  return platform().mq_unlink_result();
}

int __real_msgget(key_t key, int flags);
int __wrap_msgget(key_t key, int flags) {
  platform().record("msgget", list(key, flags));
  if (platform().msgget_fails()) {
    errno = EACCES;
    return -1;
  }
  return __real_msgget(key, flags);
}

void* __real__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& tag);
void* __wrap__ZnwmRKSt9nothrow_t(size_t size, const std::nothrow_t& tag) {
  return platform().allocation_fails() ? nullptr : __real__ZnwmRKSt9nothrow_t(size, tag);
}

void* __real__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& tag);
void* __wrap__ZnamRKSt9nothrow_t(size_t size, const std::nothrow_t& tag) {
  return platform().allocation_fails() ? nullptr : __real__ZnamRKSt9nothrow_t(size, tag);
}
}
