// A ring port: what every part of the platform knows about it.
//
// Threading: the identity never changes after start; what changes is atomic and may be read by any
// thread. Who writes stands beside each field.
#pragma once

#include <array>
#include <atomic>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "linux/frame_socket.h"
#include "linux/link_info.h"

namespace erps::linux_platform {

inline constexpr uint32_t kForwarding = 4;
inline constexpr uint32_t kDiscarding = 1;

struct RingPort {
  RingPort(uint32_t port_id, std::string interface_name)
      : id(port_id), interface(std::move(interface_name)) {}

  const uint32_t id;
  const std::string interface;
  FrameSocket frames;

  // The link monitor's: whoever runs the protocol task's queue.
  std::atomic<uint32_t> ifindex{0};  // 0 while the interface does not exist
  std::atomic<bool> enslaved{false};
  std::atomic<bool> link_up{false};  // as last told
  std::atomic<bool> slow_carrier{false};

  // The port keeper's.
  std::atomic<uint32_t> wanted{kDiscarding};
  std::atomic<bool> opening{false};
  PortFlags open_flags;        // flags of the forwarding port, as found at start
  bool found_guarded = false;  // at start: an earlier daemon had blocked it

  std::atomic<uint64_t> frames_received{0};
  std::atomic<uint64_t> frames_sent{0};
  std::atomic<uint64_t> send_failures{0};
  std::atomic<uint64_t> frames_dropped{0};
  std::atomic<uint64_t> frames_refused{0};
  std::atomic<uint64_t> link_changes{0};
  std::atomic<uint64_t> reapplied{0};
};

// The ring ports in the order of the configuration, and by number.
class RingPorts {
 public:
  void add(uint32_t id, const std::string& interface) {
    ports_.push_back(std::make_unique<RingPort>(id, interface));
    by_id_[id] = ports_.back().get();
  }

  // Null for a number that is no ring port.
  RingPort* find(uint32_t id) const { return id < by_id_.size() ? by_id_[id] : nullptr; }

  const std::vector<std::unique_ptr<RingPort>>& all() const { return ports_; }

 private:
  std::vector<std::unique_ptr<RingPort>> ports_;
  std::array<RingPort*, kMaxPort + 1> by_id_{};
};

}  // namespace erps::linux_platform
