#include "sim/import_table.h"

#include <algorithm>
#include <string>
#include <unordered_map>

#include "platform/event_queue.h"
#include "platform/field_processor.h"
#include "platform/log.h"
#include "platform/packet_buffer.h"
#include "platform/switch_adaptation.h"
#include "platform/task.h"
#include "sim/libc_calls.h"
#include "sim/race_detector.h"

namespace erps::sim {

namespace {

template <typename Function>
void* address(Function* function) {
  return reinterpret_cast<void*>(function);
}

const std::unordered_map<std::string_view, void*>& virtual_imports() {
  static const std::unordered_map<std::string_view, void*> kImports{
      // The platform. What takes any number of arguments does nothing worth guarding.
      {"adp_set_port_erps_state", address(races::guarded<&adp_set_port_erps_state>())},
      {"adp_get_port_erps_state", address(races::guarded<&adp_get_port_erps_state>())},
      {"adp_del_mac_addr_by_intf", address(races::guarded<&adp_del_mac_addr_by_intf>())},
      {"adp_transmit_frame", address(races::guarded<&adp_transmit_frame>())},
      {"adp_receive_frame", address(races::guarded<&adp_receive_frame>())},
      {"adp_get_phy_port_attr", address(races::guarded<&adp_get_phy_port_attr>())},
      {"get_nic_address", address(races::guarded<&get_nic_address>())},
      {"adp_fp_add_entity_action", address(races::guarded<&adp_fp_add_entity_action>())},
      {"adp_fp_add_entity_qualify", address(races::guarded<&adp_fp_add_entity_qualify>())},
      {"adp_fp_add_entity_rule", address(races::guarded<&adp_fp_add_entity_rule>())},
      {"adp_fp_delete_entity_rule", address(races::guarded<&adp_fp_delete_entity_rule>())},
      {"equeue_make_extend", address(races::guarded<&equeue_make_extend>())},
      {"equeue_open", address(races::guarded<&equeue_open>())},
      {"equeue_recv", address(races::guarded<&equeue_recv>())},
      {"equeue_send_ucast", address(races::guarded<&equeue_send_ucast>())},
      {"equeue_close", address(races::guarded<&equeue_close>())},
      {"stask_start", address(races::guarded<&stask_start>())},
      {"stask_stop", address(races::guarded<&stask_stop>())},
      {"stask_notify_creater", address(races::guarded<&stask_notify_creater>())},
      {"skpack_release", address(races::guarded<&skpack_release>())},
      {"Log_logging_func", address(&Log_logging_func)},
      {"sys_trace_get", address(races::guarded<&sys_trace_get>())},
      {"sys_trace_add_log", address(races::guarded<&sys_trace_add_log>())},
      // Time, tasks and queues.
      {"gettimeofday", address(races::guarded<&calls::gettimeofday>())},
      {"time", address(races::guarded<&calls::time>())},
      {"select", address(races::guarded<&calls::select>())},
      {"pthread_mutex_lock", address(races::guarded<&calls::pthread_mutex_lock>())},
      {"pthread_mutex_unlock", address(races::guarded<&calls::pthread_mutex_unlock>())},
      {"pthread_self", address(races::guarded<&calls::pthread_self>())},
      {"pthread_setcancelstate", address(races::guarded<&calls::pthread_setcancelstate>())},
      {"pthread_testcancel", address(races::guarded<&calls::pthread_testcancel>())},
      {"getpid", address(races::guarded<&calls::getpid>())},
      {"msgget", address(races::guarded<&calls::msgget>())},
      {"msgrcv", address(races::guarded<&calls::msgrcv>())},
      {"msgsnd", address(races::guarded<&calls::msgsnd>())},
      {"mq_unlink", address(races::guarded<&calls::mq_unlink>())},
      // Memory: new and new[] that do not throw, delete and delete[] plain and sized.
      {"_ZnwmRKSt9nothrow_t", address(races::guarded<&calls::allocate>())},
      {"_ZnamRKSt9nothrow_t", address(races::guarded<&calls::allocate>())},
      {"_ZdlPv", address(races::guarded<&calls::release>())},
      {"_ZdaPv", address(races::guarded<&calls::release>())},
      {"_ZdlPvm", address(races::guarded<&calls::release_sized>())},
      {"_ZdaPvm", address(races::guarded<&calls::release_sized>())},
      {"free", address(races::guarded<&calls::release>())},
      // The console.
      {"printf", address(&calls::printf)},
      {"fprintf", address(&calls::fprintf)},
      {"__printf_chk", address(&calls::printf_chk)},
      {"__fprintf_chk", address(&calls::fprintf_chk)},
      {"puts", address(races::guarded<&calls::puts>())},
      {"fputs", address(races::guarded<&calls::fputs>())},
      {"fwrite", address(races::guarded<&calls::fwrite>())},
      {"perror", address(races::guarded<&calls::perror>())},
  };
  return kImports;
}

// Computation, and what the compiler and the loader need for themselves.
constexpr std::string_view kAllowed[] = {
    "memcmp",
    "memcpy",
    "memmove",
    "memset",
    "bcmp",
    "strcmp",
    "strncpy",
    "snprintf",
    "vsnprintf",
    "__memcpy_chk",
    "__strncpy_chk",
    "__snprintf_chk",
    "__vsnprintf_chk",
    "stderr",
    "_ZSt7nothrow",
    "_ZSt9terminatev",
    "_Unwind_Resume",
    "__cxa_atexit",
    "__cxa_finalize",
    "__cxa_begin_catch",
    "__gmon_start__",
    "__stack_chk_fail",
    "__gxx_personality_v0",
    "__gcc_personality_v0",
    "_ITM_registerTMCloneTable",
    "_ITM_deregisterTMCloneTable",
};

// An instrumented module reports to its sanitizer, writes its coverage or names its types: nothing
// of it feeds back.
constexpr std::string_view kAllowedPrefixes[] = {"__asan_",      "__ubsan_",         "__tsan_",
                                                 "__sanitizer_", "__gcov_",          "__llvm_",
                                                 "__sancov_",    "_ZTVN10__cxxabiv1"};

bool belongs_to_compiler(std::string_view name) {
  return std::any_of(
      std::begin(kAllowedPrefixes), std::end(kAllowedPrefixes),
      [=](std::string_view prefix) { return name.substr(0, prefix.size()) == prefix; });
}

// In place of Log_logging_func: whatever it is called with, it looks at nothing.
int log_nothing() {
  return 0;
}

}  // namespace

void* virtual_import(std::string_view name) {
  const auto found = virtual_imports().find(name);
  return found != virtual_imports().end() ? found->second : nullptr;
}

void* unlogged_import(std::string_view name) {
  return name == "Log_logging_func" ? address(&log_nothing) : virtual_import(name);
}

bool is_allowed_import(std::string_view name) {
  return std::find(std::begin(kAllowed), std::end(kAllowed), name) != std::end(kAllowed) ||
         belongs_to_compiler(name);
}

bool keeps_books(std::string_view name) {
  return name == "__cxa_atexit" || belongs_to_compiler(name);
}

}  // namespace erps::sim
