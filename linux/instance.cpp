#include "linux/instance.h"

#include <sys/socket.h>
#include <sys/un.h>

#include <cerrno>
#include <cstring>

#include "linux/config_check.h"
#include "linux/log.h"

namespace erps::linux_platform {
namespace {

constexpr uint32_t kKernelStp = 1;
constexpr uint32_t kUserStp = 2;

// A name in the network namespace's own abstract space, so it goes away with the process.
UniqueFd claim_bridge(const std::string& bridge) {
  UniqueFd claim(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  sockaddr_un address{};
  address.sun_family = AF_UNIX;
  const std::string name = "erps-bridge-" + bridge;
  std::memcpy(address.sun_path + 1, name.data(), name.size());
  const auto length = static_cast<socklen_t>(offsetof(sockaddr_un, sun_path) + 1 + name.size());
  if (!claim || bind(claim.get(), reinterpret_cast<const sockaddr*>(&address), length) != 0) {
    throw PlatformError("bridge " + bridge +
                        (errno == EADDRINUSE ? ": another process protects it already; stop that "
                                               "one first"
                                             : std::string(": ") + std::strerror(errno)));
  }
  return claim;
}

const Config& checked(const Config& config) {
  check_values(config);
  NetlinkSocket socket;
  check_kernel(config, socket);
  return config;
}

std::string describe_difference(const RingPort& port, const LinkInfo& info, bool present,
                                bool enslaved, const std::string& bridge, StpOwner owner) {
  if (!present) {
    return "the interface does not exist";
  }
  if (!enslaved) {
    return "the interface is no port of bridge " + bridge;
  }
  const uint32_t wanted = port.wanted.load();
  if (port.opening.load() || PortKeeper::matches(port, info, owner, wanted)) {
    return {};
  }
  const bool flags_match =
      info.port_flags == (wanted == kDiscarding ? kGuardFlags : port.open_flags);
  std::string text;
  if (!flags_match) {
    text = wanted == kDiscarding ? "guard flags are missing" : "flags differ from the open port's";
  }
  const uint8_t state = wanted == kDiscarding ? discarding_state(owner) : uint8_t{3};
  if (info.port_state != state) {
    text += std::string(text.empty() ? "" : "; ") + "the kernel says " +
            port_state_name(info.port_state) + ", wanted is " + port_state_name(state);
  }
  return text;
}

}  // namespace

Instance::Instance(const Config& configuration)
    : config(checked(configuration)),
      claim_(claim_bridge(config.bridge)),
      flushes(ports, history, counters),
      keeper(ports, history, counters, flushes),
      capture(ports, config.bridge, history),
      links(ports, config.bridge, config.carrier_poll_ms, *this, history, counters),
      tasks(config.realtime_priority) {
  const LinkInfo bridge = check_kernel(config, status_socket_);
  node_address = config.node_address.value_or(bridge.address);
  for (const PortMapping& port : config.ports) {
    ports.add(port.id, port.interface);
  }
  for (const auto& port : ports.all()) {
    port->frames.open();
  }
  queue = std::make_unique<EventQueue>(ports, links, keeper, history, counters, config.door_group);
  links.read_initial();
  capture.choose();
  recorder = std::make_unique<Recorder>(history, config.journal_path);
  keeper.guard_all();
  started_ = true;
  logf(LogLevel::kNotice, "bridge %s: %zu ring ports guarded; R-APS capture by %s",
       config.bridge.c_str(), ports.all().size(), capture.mechanism().c_str());
}

void Instance::shut_down(PortsAtStop at_stop) {
  queue->close();
  capture.remove_all();
  if (at_stop == PortsAtStop::kRelease) {
    keeper.release_all();
  }
  flushes.finish();
}

void Instance::port_appeared(RingPort& port) {
  const int error = port.frames.bind(port.ifindex.load());
  if (error != 0 && error != ENETDOWN) {
    logf(LogLevel::kError, "port %u (%s): packet socket cannot be bound: %s", port.id,
         port.interface.c_str(), std::strerror(error));
  }
  if (started_) {
    capture.refresh();
  }
}

void Instance::port_gone(RingPort& port) {
  keeper.check(port);  // forgets what had been applied
}

void Instance::port_differs(RingPort& port) {
  keeper.check(port);
}

void Instance::stp_changed(uint32_t stp_state) {
  keeper.set_stp_owner(stp_state == kUserStp ? StpOwner::kUser : StpOwner::kNobody);
  if (!started_) {
    return;
  }
  if (stp_state == kKernelStp) {
    logf(LogLevel::kError,
         "bridge %s: the kernel's spanning tree was turned on and owns the port states; turn it "
         "off with 'ip link set %s type bridge stp_state 0'",
         config.bridge.c_str(), config.bridge.c_str());
  }
  for (const auto& port : ports.all()) {
    keeper.check(*port);
  }
}

PortStatus Instance::port_status(const RingPort& port) {
  PortStatus status;
  status.id = port.id;
  status.interface = port.interface;
  status.ifindex = port.ifindex.load();
  status.wanted = port.wanted.load();
  status.opening = port.opening.load();
  status.link_up = port.link_up.load();
  status.slow_carrier = port.slow_carrier.load();
  status.frames_received = port.frames_received.load();
  status.frames_sent = port.frames_sent.load();
  status.send_failures = port.send_failures.load();
  status.frames_dropped = port.frames_dropped.load();
  status.frames_refused = port.frames_refused.load();
  status.link_changes = port.link_changes.load();
  status.reapplied = port.reapplied.load();

  LinkInfo info;
  KernelPortState& kernel = status.kernel;
  kernel.present = status.ifindex != 0 && find_link(status_socket_, status.ifindex, info) == 0;
  LinkInfo bridge;
  kernel.enslaved = kernel.present && info.is_bridge_port &&
                    find_link(status_socket_, config.bridge.c_str(), bridge) == 0 &&
                    info.master == bridge.ifindex;
  kernel.admin_up = kernel.present && info.admin_up();
  kernel.carrier = kernel.present && info.carrier();
  kernel.state = kernel.enslaved ? port_state_name(info.port_state) : "unknown";
  kernel.guarded = kernel.enslaved && info.port_flags == kGuardFlags;
  status.difference = describe_difference(port, info, kernel.present, kernel.enslaved,
                                          config.bridge, keeper.stp_owner());
  return status;
}

Counters Instance::counters_now() const {
  Counters now;
  now.in_process_events = counters.in_process_events.load();
  now.link_events = counters.link_events.load();
  now.frame_events = counters.frame_events.load();
  now.door_accepted = counters.door_accepted.load();
  now.door_wrong_size = counters.door_wrong_size.load();
  now.door_wrong_event = counters.door_wrong_event.load();
  now.netlink_overruns = counters.netlink_overruns.load();
  now.flushes_asked = counters.flushes_asked.load();
  now.flushes_done = counters.flushes_done.load();
  now.flushes_failed = counters.flushes_failed.load();
  now.port_state_failures = counters.port_state_failures.load();
  now.openings_withdrawn = counters.openings_withdrawn.load();
  now.history_lost = recorder->history_lost();
  now.log_lost = recorder->log_lost();
  return now;
}

Status Instance::status() {
  const std::lock_guard lock(status_mutex_);
  Status result;
  result.bridge = config.bridge;
  result.stp = keeper.stp_owner() == StpOwner::kUser ? "user" : "off";
  result.node_address = node_address;
  result.capture = capture.mechanism();
  result.capture_installed = capture.installed();
  result.capture_error = capture.error();
  result.door_depth = queue->door_depth();
  for (const auto& port : ports.all()) {
    port->frames_dropped.fetch_add(port->frames.take_drops());
    result.ports.push_back(port_status(*port));
  }
  result.counters = counters_now();
  return result;
}

}  // namespace erps::linux_platform
