// The protocol task's event queue: link changes first, then the module's own events, then frames
// and announced requests in the order of their arrival.
//
// Posting never waits. What an event points at lives here until the module gives it back: a frame's
// packet until it is released, a link record until the next event is asked for.
//
// Threading: one thread. Errors: a packet that is not given back, or twice, is a violation.
#pragma once

#include <cstdint>
#include <deque>
#include <memory>
#include <optional>
#include <string>

#include "platform/event_queue.h"
#include "sim/frame.h"
#include "sim/pace.h"
#include "sim/world.h"

namespace erps::sim {

class EventQueue {
 public:
  EventQueue(World& world, Pace& pace) : world_(world), pace_(pace) {}

  void open(const std::string& name) {
    name_ = name;
    opened_ = true;
  }
  // The receiver gives up: what waits is dropped.
  void close();
  bool is_open() const { return opened_; }
  bool is(const std::string& name) const { return opened_ && name == name_; }

  // Nothing happens while the queue is closed. From anywhere.
  void post_link_change(uint32_t port, bool up);
  void post_frame(uint32_t port, Frame frame);
  void post_announcement(const ERPS_EVENT_MSG_T& event);
  // False while the queue is closed.
  bool post(const ERPS_EVENT_MSG_T& event);

  // The next event, waiting for it: false when the queue is closed. From the receiving task.
  bool receive(ERPS_EVENT_MSG_T& event, Task& receiver);

  struct Packet {  // NOLINT(bugprone-exception-escape): as Frame
    uint32_t handle = 0;
    uint32_t port = 0;
    Frame frame;
  };
  // The packet of the event that is being handled, or null.
  const Packet* given_packet() const {
    return given_packet_ != nullptr ? &given_packet_->packet : nullptr;
  }
  // The link change that is being handled, if one is.
  struct LinkChange {
    uint32_t port = 0;
    bool up = false;
  };
  std::optional<LinkChange> given_link() const {
    return given_link_ == nullptr
               ? std::nullopt
               : std::optional(LinkChange{given_link_->interface, given_link_->state == 1});
  }
  // Null for a handle that is none.
  const Packet* find_packet(uint32_t handle) const;
  void release_packet(const void* packet);

 private:
  struct LinkRecord {
    uint32_t unused = 0;
    uint16_t interface = 0;
    uint16_t state = 0;
  };
  // What the module reads of a packet, as platform/packet_buffer.h lays it out.
  struct PacketHead {
    uint64_t unused = 0;
    uint32_t handle = 0;
    uint16_t unused_too = 0;
    uint16_t length = 0;
  };
  struct PacketBuffer {
    PacketHead head;
    Packet packet;
  };
  struct Arrival {
    std::unique_ptr<PacketBuffer> packet;  // or null, and:
    ERPS_EVENT_MSG_T announcement{};
  };

  void wake_receiver();
  bool take(ERPS_EVENT_MSG_T& event);

  World& world_;
  Pace& pace_;
  std::string name_;
  bool opened_ = false;
  Task* receiver_ = nullptr;  // while it waits
  std::deque<std::unique_ptr<LinkRecord>> links_;
  std::deque<ERPS_EVENT_MSG_T> events_;
  std::deque<Arrival> arrivals_;
  std::unique_ptr<LinkRecord> given_link_;
  std::unique_ptr<PacketBuffer> given_packet_;
  uint32_t next_handle_ = 1;
};

}  // namespace erps::sim
