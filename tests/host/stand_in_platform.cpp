// A platform that only says on standard error what it is asked to do: the daemon's life can be
// followed without a bridge and without privileges.
//
// STAND_IN_PLATFORM_FAILS=TEXT makes the start fail with that text.
#include <stdlib.h>

#include <iostream>

#include "linux/platform.h"

namespace erps::linux_platform {

namespace {
Config g_config;
}  // namespace

void start(const Config& config) {
  if (const char* failure = getenv("STAND_IN_PLATFORM_FAILS")) {
    throw PlatformError(failure);
  }
  g_config = config;
  std::cerr << "platform start bridge=" << config.bridge << " ports=";
  for (const PortMapping& port : config.ports) {
    std::cerr << port.id << ':' << port.interface << ' ';
  }
  std::cerr << "journal=" << config.journal_path << " poll=" << config.carrier_poll_ms
            << " priority=" << config.realtime_priority
            << " door_group=" << (config.door_group ? static_cast<int>(*config.door_group) : -1)
            << " level=" << static_cast<int>(config.log.level) << std::endl;
}

void stop(PortsAtStop ports) noexcept {
  std::cerr << "platform stop " << (ports == PortsAtStop::kKeep ? "keep" : "release") << std::endl;
}

Status status() {
  Status status;
  status.bridge = g_config.bridge;
  status.node_address = g_config.node_address.value_or(MacAddress{});
  status.capture = "nothing";
  return status;
}

void configure_log(const LogConfig&) noexcept {}

void log(LogLevel level, std::string_view message) noexcept {
  std::cerr << "log" << static_cast<int>(level) << ' ' << message << std::endl;
}

}  // namespace erps::linux_platform
