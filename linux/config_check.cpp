#include "linux/config_check.h"

#include <cerrno>
#include <cstring>
#include <map>
#include <string>

#include "linux/task.h"

namespace erps::linux_platform {
namespace {

constexpr uint32_t kKernelStp = 1;
constexpr int kMaxCarrierPollMs = 1000;
constexpr int kMaxPriority = 99;

[[noreturn]] void fail(const std::string& text) {
  throw PlatformError(text);
}

void check_name(const std::string& what, const std::string& name) {
  if (name.empty() || name.size() >= IFNAMSIZ) {
    fail(what + " \"" + name + "\": an interface name has 1 to " + std::to_string(IFNAMSIZ - 1) +
         " characters");
  }
}

void check_range(const char* what, long value, long low, long high, const char* unit) {
  if (value < low || value > high) {
    fail(std::string(what) + " " + std::to_string(value) + ": allowed are " + std::to_string(low) +
         " to " + std::to_string(high) + unit);
  }
}

void check_ports(const Config& config) {
  if (config.ports.empty()) {
    fail("ports: there is none; at least one ring port is needed");
  }
  std::map<uint32_t, std::string> by_id;
  std::map<std::string, uint32_t> by_interface;
  for (const PortMapping& port : config.ports) {
    const std::string what = "port " + std::to_string(port.id);
    if (port.id < kMinPort || port.id > kMaxPort) {
      fail(what + ": port numbers are " + std::to_string(kMinPort) + " to " +
           std::to_string(kMaxPort));
    }
    check_name(what + ": interface", port.interface);
    if (port.interface == config.bridge) {
      fail(what + ": " + port.interface + " is the bridge itself; name one of its ports");
    }
    if (!by_id.emplace(port.id, port.interface).second) {
      fail(what + ": is given twice, for " + by_id[port.id] + " and for " + port.interface);
    }
    const auto [other, unused] = by_interface.emplace(port.interface, port.id);
    if (!unused) {
      fail(what + ": interface " + port.interface + " is port " + std::to_string(other->second) +
           " already");
    }
  }
}

LinkInfo find_bridge(const std::string& name, NetlinkSocket& socket) {
  LinkInfo bridge;
  const int error = find_link(socket, name.c_str(), bridge);
  if (error == ENODEV) {
    fail("bridge " + name + ": there is no such interface; make it with 'ip link add " + name +
         " type bridge'");
  }
  if (error != 0) {
    fail("bridge " + name + ": cannot be read: " + std::strerror(error));
  }
  if (!bridge.is_bridge) {
    fail("bridge " + name + ": is an interface but no bridge");
  }
  if (bridge.stp_state == kKernelStp) {
    fail("bridge " + name +
         ": the kernel's spanning tree is on and owns the port states; turn it off with 'ip link "
         "set " +
         name + " type bridge stp_state 0'");
  }
  return bridge;
}

void check_port(const PortMapping& port, const std::string& bridge, uint32_t bridge_ifindex,
                NetlinkSocket& socket) {
  const std::string what = "port " + std::to_string(port.id) + ": interface " + port.interface;
  LinkInfo info;
  const int error = find_link(socket, port.interface.c_str(), info);
  if (error == ENODEV) {
    fail(what + " does not exist");
  }
  if (error != 0) {
    fail(what + " cannot be read: " + std::strerror(error));
  }
  if (info.master != bridge_ifindex || !info.is_bridge_port) {
    fail(what + " is no port of bridge " + bridge + "; add it with 'ip link set " + port.interface +
         " master " + bridge + "'");
  }
}

}  // namespace

void check_values(const Config& config) {
  check_name("bridge", config.bridge);
  check_ports(config);
  check_range("carrier_poll_ms", config.carrier_poll_ms, 0, kMaxCarrierPollMs, " ms, 0 for off");
  check_range("realtime_priority", config.realtime_priority, 0, kMaxPriority, ", 0 for off");
  if (config.node_address) {
    const MacAddress& mac = *config.node_address;
    if (mac == MacAddress{}) {
      fail("node_address 00:00:00:00:00:00: names no node");
    }
    if ((mac[0] & 1) != 0) {
      fail(
          "node_address: is a group address; a node has an individual one, whose first byte is "
          "even");
    }
  }
  if (config.realtime_priority > 0) {
    if (const int error = probe_realtime_priority(config.realtime_priority); error != 0) {
      fail("realtime_priority " + std::to_string(config.realtime_priority) +
           ": not allowed to this process: " + std::strerror(error) +
           "; it needs CAP_SYS_NICE or a real-time limit of that height");
    }
  }
}

LinkInfo check_kernel(const Config& config, NetlinkSocket& socket) {
  const LinkInfo bridge = find_bridge(config.bridge, socket);
  for (const PortMapping& port : config.ports) {
    check_port(port, config.bridge, bridge.ifindex, socket);
  }
  return bridge;
}

}  // namespace erps::linux_platform
