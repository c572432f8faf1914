#include "sim/platform_call.h"

#include <algorithm>
#include <iterator>

namespace erps::sim {

namespace {

struct Entry {
  std::string_view name;
  bool ends_the_module;
};

// In the order of the enumeration.
constexpr Entry kCalls[] = {
    {"adp_set_port_erps_state", false},
    {"adp_get_port_erps_state", false},
    {"adp_del_mac_addr_by_intf", false},
    {"adp_transmit_frame", false},
    {"adp_receive_frame", false},
    {"adp_get_phy_port_attr", false},
    {"get_nic_address", false},
    {"adp_fp_add_entity_action", false},
    {"adp_fp_add_entity_qualify", false},
    {"adp_fp_add_entity_rule", false},
    {"adp_fp_delete_entity_rule", false},
    {"equeue_make_extend", true},
    {"equeue_open", true},
    {"equeue_recv", true},
    {"equeue_send_ucast", false},
    {"equeue_close", true},
    {"stask_start", true},
    {"stask_stop", true},
    {"stask_notify_creater", true},
    {"new", false},
    {"select", false},
    {"msgget", true},
    {"msgrcv", false},
    {"msgsnd", false},
};
static_assert(std::size(kCalls) == static_cast<size_t>(PlatformCall::kSendMessage) + 1);

}  // namespace

std::string_view name_of(PlatformCall call) {
  return kCalls[static_cast<size_t>(call)].name;
}

std::optional<PlatformCall> platform_call(std::string_view name) {
  const auto* found = std::find_if(std::begin(kCalls), std::end(kCalls),
                                   [=](const Entry& entry) { return entry.name == name; });
  return found != std::end(kCalls)
             ? std::optional(static_cast<PlatformCall>(found - std::begin(kCalls)))
             : std::nullopt;
}

bool ends_the_module(PlatformCall call) {
  return kCalls[static_cast<size_t>(call)].ends_the_module;
}

bool is_of_the_platform(PlatformCall call) {
  return call < PlatformCall::kAllocate;
}

}  // namespace erps::sim
