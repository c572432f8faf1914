// A bridge br0 with two ring ports in namespaces of the test's own, and the platform on top.
//
//   w1 ===== p1 (port 1)  br0  p2 (port 2) ===== w2
//
// "w" is the wire side of a port: what the test sends there, the port receives. Every test moves
// into a fresh network and IPC namespace, which goes away with the process.
#pragma once

#include <gtest/gtest.h>

#include <array>
#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "linux/link_info.h"
#include "linux/platform.h"
#include "linux/unique_fd.h"
#include "platform/event_queue.h"

namespace erps::linux_platform::test {

inline constexpr auto kPatience = std::chrono::seconds(3);
inline constexpr uintptr_t kLinkEvent = 1;
inline constexpr uintptr_t kPacketEvent = 2;
inline constexpr uintptr_t kTimeoutEvent = 9999;  // posted by the test itself

using Bytes = std::vector<uint8_t>;

// What an event of a link or a packet points at.
inline uint8_t* record_of(const ERPS_EVENT_MSG_T& event) {
  return reinterpret_cast<uint8_t*>(event.payload);  // NOLINT(performance-no-int-to-ptr)
}

// Runs a command to its end; its failure fails the test with the command's words.
void run(const std::string& command);
// What a command prints.
std::string output_of(const std::string& command);
// The nftables rules of this network namespace, as text.
std::string packet_rules();

// Waits until the condition holds; false when it does not in time.
bool eventually(const std::function<bool()>& condition,
                std::chrono::milliseconds patience = kPatience);

void set_up(const std::string& interface, bool up);
bool device_carrier(const std::string& interface);

// The wire side of a port: raw frames out and in.
class Wire {
 public:
  explicit Wire(const std::string& interface);

  // False when the interface is down.
  bool send(const Bytes& frame) const;
  // Everything that has come in since the last call, tags in place.
  std::vector<Bytes> take() const;
  // Number of frames like this one that have come in since the last call.
  size_t count(const Bytes& frame) const;
  // Waits for this very frame; false when it does not come.
  bool receives(const Bytes& frame, std::chrono::milliseconds patience = kPatience) const;

 private:
  UniqueFd fd_;
};

// An R-APS frame as a neighbour would send it; vlan 0 is untagged.
Bytes raps_frame(uint8_t ring, uint16_t vlan, uint8_t request, uint8_t node = 7);
// A data frame of 60 bytes with a number in it that tells it from others.
Bytes data_frame(const MacAddress& to, const MacAddress& from, uint32_t number);

inline constexpr MacAddress kBroadcast{0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0xFF};
inline constexpr MacAddress kHostA{0x02, 0xAA, 0, 0, 0, 1};
inline constexpr MacAddress kHostB{0x02, 0xBB, 0, 0, 0, 2};

// What the kernel says about an interface now.
LinkInfo kernel_link(const std::string& interface);
bool guarded(const std::string& interface);

// Collects what the kernel announces about bridge ports from its construction on.
class PortWatch {
 public:
  PortWatch();
  // All announcements so far that are about this interface.
  std::vector<LinkInfo> of(const std::string& interface);

 private:
  UniqueFd fd_;
  std::vector<LinkInfo> seen_;
};

class PlatformTest : public ::testing::Test {
 protected:
  void SetUp() override;
  void TearDown() override;

  // br0 with ports 1 and 2, everything up.
  void build_bridge();
  Config config() const;
  // Starts the platform with config() and makes the queue; this thread is the protocol task.
  void start_platform();
  void start_platform(const Config& configuration);
  void make_queue();
  // Installs the rule that the module installs.
  static int add_capture_rule();

  // The next event, or nothing when none comes in time.
  std::optional<ERPS_EVENT_MSG_T> receive(std::chrono::milliseconds patience = kPatience);
  // Receives and forgets whatever there is, until nothing comes for a moment.
  void receive_all();
  bool send(uintptr_t type, uintptr_t payload = 0);

  static uint16_t link_port(const ERPS_EVENT_MSG_T& event);
  static uint16_t link_state(const ERPS_EVENT_MSG_T& event);
  // Fetches the frame of a packet event, releases the packet, and gives port and VLAN.
  static Bytes take_frame(const ERPS_EVENT_MSG_T& event, uint32_t* port = nullptr,
                          uint16_t* vlan = nullptr);

  // Status of port `id` now.
  static PortStatus port(uint32_t id);

  void* queue_ = nullptr;
};

// Receives events in a thread of its own until it is destroyed, as the protocol task would.
class Pump {
 public:
  explicit Pump(void* queue);
  ~Pump();
  Pump(const Pump&) = delete;
  Pump& operator=(const Pump&) = delete;

  size_t link_events() const { return link_events_.load(); }

 private:
  void* queue_;
  std::atomic<size_t> link_events_{0};
  std::thread thread_;
};

}  // namespace erps::linux_platform::test
