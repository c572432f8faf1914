// The platform under the module in the fuzz targets: everything in memory, nothing written down but
// what the checks need, fast enough for tens of thousands of inputs a second.
//
// One object serves the process and defines all platform calls; one thread. Calls that a host must
// refuse end the process with fail().
#pragma once

#include <array>
#include <cstdint>
#include <deque>
#include <set>
#include <vector>

#include "erps/mgmt/message.h"
#include "platform/event_queue.h"

namespace erps::fuzz {

inline constexpr uint32_t kPorts = 64;  // that exist: 0 to 63

// What the next calls answer; a set bit lets all calls of its kind fail.
enum Failure : uint8_t {
  kNoFailure = 0,
  kPortStateFails = 1,
  kPortReadFails = 2,
  kFlushFails = 4,
  kTransmitFails = 8,
  kLinkReadFails = 16,
  kPostFails = 32,
  kMemoryFails = 64,
  kRuleFails = 128,
};

struct Message {
  long type = 0;
  std::vector<uint8_t> text;
};

class Platform {
 public:
  static Platform& instance();
  // As at the start of a process.
  void reset();

  // --- What an input decides.
  uint8_t failures = kNoFailure;
  bool listens = false;      // log messages are formatted and the trace is on
  bool reply_fails = false;  // the reply queue is full
  bool reception_fails = false;
  std::array<uint32_t, kPorts> links{};

  void advance_us(int64_t us) { now_us_ += us; }
  int64_t now_us() const { return now_us_; }

  // --- Events. What is posted waits until it is taken.
  bool take_event(ERPS_EVENT_MSG_T& event);
  bool events_wait() const { return !events_.empty(); }

  // A received frame: its announcement is handed to the module by the caller of this.
  ERPS_EVENT_MSG_T announce_frame(uint32_t port, std::vector<uint8_t> frame, uint16_t announced);
  bool packet_given_back() const { return packet_.released; }
  // Frames that left while the packet was handled, as (port, whether it is the packet's own).
  struct Sent {
    uint32_t port = 0;
    bool relayed = false;
  };
  const std::vector<Sent>& sent() const { return sent_; }
  void forget_sent() { sent_.clear(); }

  // --- The management queue.
  void put_request(Message request) { messages_.push_back(std::move(request)); }
  std::deque<Message>& messages() { return messages_; }
  unsigned errors_printed = 0;  // by perror

  // --- Entry points of the calls; not for targets.
  int set_port_state(uint32_t port, uint32_t state);
  int get_port_state(uint32_t port, uint32_t* state);
  int transmit(const uint8_t* frame, uint16_t length, uint32_t port);
  int receive(uint32_t handle, uint8_t* frame, uint16_t capacity, uint16_t* length, uint16_t* vlan,
              uint32_t* port);
  int post(const ERPS_EVENT_MSG_T& event);
  void release(const void* packet);
  bool fails(Failure failure) const { return (failures & failure) != 0; }
  long take_message(void* message, size_t capacity, long type, int flags);
  int put_message(const void* message, size_t size);

 private:
  // What the module reads of a packet: a handle at byte 8 and a length at byte 14.
  struct Packet {
    uint64_t unused = 0;
    uint32_t handle = 0;
    uint16_t unused_too = 0;
    uint16_t length = 0;
    uint32_t port = 0;
    std::vector<uint8_t> frame;
    bool given = false;
    bool released = false;
  };

  int64_t now_us_ = 0;
  std::array<uint32_t, kPorts> states_{};
  std::deque<ERPS_EVENT_MSG_T> events_;
  std::deque<Message> messages_;
  Packet packet_;
  uint32_t next_handle_ = 1;
  std::vector<Sent> sent_;
};

}  // namespace erps::fuzz
