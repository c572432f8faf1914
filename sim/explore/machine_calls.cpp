// Where the imports of a module under exploration lead: the platform of platform/*.h and what it
// needs of the C library, for the node that the machine plays. No call waits, fails or takes time.
//
// A switch learns no addresses here: flushing always succeeds and changes nothing.
#include <pthread.h>
#include <sys/select.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <new>
#include <unordered_map>

#include "erps/raps/frame.h"
#include "platform/field_processor.h"
#include "sim/explore/machine.h"
#include "sim/import_table.h"

namespace erps::sim::explore {

namespace {

constexpr int kFailed = -1;
constexpr uint32_t kForwardingState = 4;
constexpr uint32_t kDiscardingState = 1;
constexpr size_t kLongestFrame = 1518;
constexpr int64_t kSecond = 1'000'000;

// Handles that only have to differ.
constexpr uintptr_t kReceiver = 1;
constexpr uintptr_t kSender = 2;

Machine& machine() {
  return Machine::running();
}

Machine::Platform& platform() {
  return Machine::running().platform();
}

bool is_port(uint32_t port) {
  return port > 0 && port < kMostPorts;
}

int set_port_state(uint32_t port, uint32_t state) {
  if (!is_port(port)) {
    return kFailed;
  }
  uint32_t& forwarding = platform().forwarding;
  forwarding = state == kForwardingState ? forwarding | 1U << port : forwarding & ~(1U << port);
  return 0;
}

int get_port_state(uint32_t port, uint32_t* state) {
  if (!is_port(port)) {
    return kFailed;
  }
  *state = (platform().forwarding >> port & 1U) != 0 ? kForwardingState : kDiscardingState;
  return 0;
}

int flush(uint32_t port, uint32_t /*kind*/) {
  return is_port(port) ? 0 : kFailed;
}

int transmit(const uint8_t* frame, uint16_t length, uint32_t, uint32_t port, uint32_t) {
  if (!is_port(port)) {
    return kFailed;
  }
  if (length < raps::kUntaggedLength || length > kLongestFrame) {
    machine().violate("the module sends a frame of " + std::to_string(length) + " bytes");
    return kFailed;
  }
  machine().send(port, frame, length);
  return 0;
}

int receive(uint32_t handle, uint8_t* frame, uint16_t capacity, uint16_t* length, uint16_t* vlan,
            uint32_t* port) {
  const Machine::Packet* packet = machine().packet();
  if (packet == nullptr || packet->handle != handle) {
    return kFailed;
  }
  const auto& bytes = *packet->bytes;
  *length = static_cast<uint16_t>(std::min<size_t>(bytes.size(), capacity));
  std::copy_n(bytes.begin(), *length, frame);
  *vlan =
      static_cast<uint16_t>((bytes[raps::kTciOffset] << 8U | bytes[raps::kTciOffset + 1]) & 0x0FFF);
  *port = packet->port;
  return 0;
}

int get_port_attribute(uint32_t port, uint32_t /*attribute*/, uint32_t* value) {
  *value = is_port(port) ? platform().carriers >> port & 1U : 0;
  return 0;
}

int get_address(const char*, int, uint8_t address[6]) {
  std::copy(machine().plan().address.begin(), machine().plan().address.end(), address);
  return 0;
}

int add_action(adp_fp_rule_t*, uint32_t, const void*, uint32_t, const void*, uint32_t) {
  return 0;
}

int add_qualifier(adp_fp_rule_t*, uint32_t, const void*, uint32_t, const void*, uint32_t) {
  return 0;
}

int add_rule(adp_fp_rule_t) {
  platform().captures = 1;
  return 0;
}

int delete_rule(uint32_t, uint32_t, uint32_t) {
  platform().captures = 0;
  return 0;
}

void* make_queue(const char*, int, int, int) {
  platform().queue_open = 1;
  return reinterpret_cast<void*>(kReceiver);  // NOLINT(performance-no-int-to-ptr)
}

void* open_queue(const char*, int) {
  return platform().queue_open != 0
             ? reinterpret_cast<void*>(kSender)  // NOLINT(performance-no-int-to-ptr)
             : nullptr;
}

int receive_event(void*, ERPS_EVENT_MSG_T* event, int) {
  return machine().next_event(*event);
}

int post_event(void*, const ERPS_EVENT_MSG_T* event, int) {
  auto& own = platform();
  if (own.waiting == own.own.size()) {
    machine().violate("more own events wait than a node ever needs");
    return kFailed;
  }
  own.own[own.waiting++] = *event;
  return 1;
}

int close_queue(void* queue) {
  return queue != nullptr ? 0 : kFailed;
}

int start_task(erps_task_desc* task, int) {
  return machine().start_task(*task);
}

int stop_task(erps_task_desc*) {
  return kFailed;
}

int notify_creator(erps_task_desc*, int) {
  return 0;
}

void release_packet(void*) {
  machine().packet_back();
}

int log(int, int, const char*, const char*, ...) {
  return 0;
}

int trace_level() {
  return 0;
}

int trace(const char*, const char*) {
  return 0;
}

int get_time(timeval* time, void*) {
  const int64_t now_us = machine().now_us();
  *time = {now_us / kSecond, now_us % kSecond};
  return 0;
}

time_t get_seconds(time_t* seconds) {
  const time_t now = machine().now_us() / kSecond;
  if (seconds != nullptr) {
    *seconds = now;
  }
  return now;
}

int sleep_in_select(int, fd_set*, fd_set*, fd_set*, timeval*) {
  machine().sleep();
  return 0;
}

int lock(pthread_mutex_t*) {
  if (platform().locked++ != 0) {
    machine().violate("a task takes a lock that it holds already");
  }
  return 0;
}

int unlock(pthread_mutex_t*) {
  if (platform().locked == 0) {
    machine().violate("a task gives back a lock that it does not hold");
    return 0;
  }
  --platform().locked;
  return 0;
}

pthread_t self() {
  return 1;
}

int set_cancel_state(int, int* before) {
  if (before != nullptr) {
    *before = PTHREAD_CANCEL_DISABLE;
  }
  return 0;
}

void test_cancel() {}

int process_id() {
  return 1;
}

int get_message_queue(int, int) {
  return 0;
}

ssize_t receive_message(int, void* message, size_t capacity, long type, int) {
  const Request& request = machine().request();
  const size_t length = std::min(sizeof request, capacity);
  std::memcpy(message, &type, sizeof type);
  std::memcpy(static_cast<uint8_t*>(message) + sizeof type, &request, length);
  return static_cast<ssize_t>(length);
}

int send_message(int, const void* message, size_t size, int) {
  machine().answer(static_cast<const uint8_t*>(message) + sizeof(long), size);
  return 0;
}

int unlink_queue(const char*) {
  return 0;
}

void* allocate(size_t bytes, const std::nothrow_t&) {
  return platform().memory.allocate(bytes);
}

void release(void* memory) {
  if (!platform().memory.release(memory)) {
    machine().violate("the module releases memory that is not allocated");
  }
}

void release_sized(void* memory, size_t) {
  release(memory);
}

template <typename Function>
void* address(Function* function) {
  return reinterpret_cast<void*>(function);
}

}  // namespace

void* machine_import(std::string_view name) {
  static const std::unordered_map<std::string_view, void*> kImports{
      {"adp_set_port_erps_state", address(set_port_state)},
      {"adp_get_port_erps_state", address(get_port_state)},
      {"adp_del_mac_addr_by_intf", address(flush)},
      {"adp_transmit_frame", address(transmit)},
      {"adp_receive_frame", address(receive)},
      {"adp_get_phy_port_attr", address(get_port_attribute)},
      {"get_nic_address", address(get_address)},
      {"adp_fp_add_entity_action", address(add_action)},
      {"adp_fp_add_entity_qualify", address(add_qualifier)},
      {"adp_fp_add_entity_rule", address(add_rule)},
      {"adp_fp_delete_entity_rule", address(delete_rule)},
      {"equeue_make_extend", address(make_queue)},
      {"equeue_open", address(open_queue)},
      {"equeue_recv", address(receive_event)},
      {"equeue_send_ucast", address(post_event)},
      {"equeue_close", address(close_queue)},
      {"stask_start", address(start_task)},
      {"stask_stop", address(stop_task)},
      {"stask_notify_creater", address(notify_creator)},
      {"skpack_release", address(release_packet)},
      {"Log_logging_func", address(log)},
      {"sys_trace_get", address(trace_level)},
      {"sys_trace_add_log", address(trace)},
      {"gettimeofday", address(get_time)},
      {"time", address(get_seconds)},
      {"select", address(sleep_in_select)},
      {"pthread_mutex_lock", address(lock)},
      {"pthread_mutex_unlock", address(unlock)},
      {"pthread_self", address(self)},
      {"pthread_setcancelstate", address(set_cancel_state)},
      {"pthread_testcancel", address(test_cancel)},
      {"getpid", address(process_id)},
      {"msgget", address(get_message_queue)},
      {"msgrcv", address(receive_message)},
      {"msgsnd", address(send_message)},
      {"mq_unlink", address(unlink_queue)},
      {"_ZnwmRKSt9nothrow_t", address(allocate)},
      {"_ZnamRKSt9nothrow_t", address(allocate)},
      {"_ZdlPv", address(release)},
      {"_ZdaPv", address(release)},
      {"_ZdlPvm", address(release_sized)},
      {"_ZdaPvm", address(release_sized)},
      {"free", address(release)},
  };
  const auto found = kImports.find(name);
  // What is left of the simulator's list is the console, which is silent in both.
  return found != kImports.end() ? found->second : virtual_import(name);
}

}  // namespace erps::sim::explore
