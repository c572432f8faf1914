// The calls of the module that can report failure, by name.
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace erps::sim {

enum class PlatformCall : uint32_t {
  kSetPortState,
  kGetPortState,
  kFlush,
  kTransmit,
  kReceiveFrame,
  kPortAttribute,
  kNodeAddress,
  kRuleAction,
  kRuleQualifier,
  kAddRule,
  kDeleteRule,
  kMakeQueue,
  kOpenQueue,
  kReceiveEvent,
  kSendEvent,
  kCloseQueue,
  kStartTask,
  kStopTask,
  kNotifyCreator,
  kAllocate,
  kSleep,
  kOpenMessageQueue,
  kReceiveMessage,
  kSendMessage,
};

// The name as the module calls it, such as "adp_transmit_frame"; "new" for memory.
std::string_view name_of(PlatformCall call);
std::optional<PlatformCall> platform_call(std::string_view name);

// Whether a failure keeps the module from starting or stopping, or ends one of its tasks.
bool ends_the_module(PlatformCall call);

// Whether a host's platform library answers the call, not the C library.
bool is_of_the_platform(PlatformCall call);

}  // namespace erps::sim
