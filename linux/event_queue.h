// The protocol task's queue: one epoll set of everything that can happen to it.
//
// Link changes come first, then in-process events, then frames in the order of their arrival, the
// outside door taking turns with the frames. Link and frame events are made from their descriptors
// when it is their turn, so a storm of frames stays in the sockets' buffers, is bounded there and
// delays nothing else.
//
// Threading: receive() by one task, send() by any thread, open() and close() by the receiving task
// or while it does not run. receive() is a cancellation point: a task is cancelled only while it
// waits, with no lock held.
// Errors: the constructor throws PlatformError; the rest answers as platform/event_queue.h says.
#pragma once

#include <sys/epoll.h>

#include <array>
#include <cstdint>
#include <optional>
#include <string>

#include "linux/flood_guard.h"
#include "linux/flood_watch.h"
#include "linux/in_process_queue.h"
#include "linux/link_monitor.h"
#include "linux/outside_door.h"
#include "linux/packet_pool.h"
#include "linux/port_keeper.h"
#include "linux/ring_port.h"
#include "linux/token_bucket.h"

namespace erps::linux_platform {

// Payload of a link change event. It stays the platform's and holds until many more link changes
// have been received.
struct LinkRecord {
  uint32_t unused;
  uint16_t interface;
  uint16_t state;  // 1 up, 0 down
};
static_assert(offsetof(LinkRecord, interface) == 4 && offsetof(LinkRecord, state) == 6);

class EventQueue {
 public:
  EventQueue(RingPorts& ports, LinkMonitor& links, PortKeeper& keeper, History& history,
             AtomicCounters& counters, std::optional<gid_t> door_group);

  // Makes the queue and its outside door. False when the door cannot be made.
  bool open(const std::string& name, int depth);
  void close();
  bool is(const std::string& name) const { return opened_ && name == name_; }

  // 0 with an event, -1 when the queue is closed.
  int receive(ERPS_EVENT_MSG_T& event);
  bool send(const ERPS_EVENT_MSG_T& event);

  PacketPool& packets() { return packets_; }
  size_t door_depth() const { return door_.depth(); }

 private:
  // Frames refused since it was last told.
  struct FloodNews {
    int64_t told_ns = 0;
    uint64_t refused = 0;
    bool thinned = false;  // the kernel dropped others, which nobody counts
  };

  static constexpr size_t kLinkRecords = 64;
  static constexpr int kMaxReady = kMaxPort + 8;

  void watch(int fd, uint64_t source);
  void note_ready(uint64_t source);
  void look(int ready);
  bool take_event(ERPS_EVENT_MSG_T& event);
  bool take_link(ERPS_EVENT_MSG_T& event);
  bool take_in_process(ERPS_EVENT_MSG_T& event);
  bool take_from_door(ERPS_EVENT_MSG_T& event);
  bool take_frame(ERPS_EVENT_MSG_T& event);
  void read_ahead();
  Packet* read_admitted(RingPort& port);
  void refuse_frame(RingPort& port, Packet& packet);
  void thin_out_flood(RingPort& port, Packet& packet);
  void hear_all_again();
  void refuse(DoorVerdict verdict, size_t length);

  RingPorts& ports_;
  LinkMonitor& links_;
  PortKeeper& keeper_;
  History& history_;
  AtomicCounters& counters_;

  UniqueFd epoll_;
  InProcessQueue in_process_;
  OutsideDoor door_;
  PacketPool packets_;
  std::unique_ptr<Packet> spare_;
  std::string name_;
  bool opened_ = false;

  std::array<epoll_event, kMaxReady> ready_{};
  uint64_t frames_ready_ = 0;  // bit n: port n's socket may hold a frame
  bool door_ready_ = false;
  bool doors_turn_ = false;
  std::array<Packet*, kMaxPort + 1> heads_{};  // the oldest frame of each port, read ahead
  std::array<LinkRecord, kLinkRecords> link_records_{};
  size_t next_link_record_ = 0;
  int64_t last_refusal_logged_ns_ = 0;
  TokenBucket refusals_recorded_{{.burst = 64, .per_second = 10}, 0};
  FloodGuard flood_guard_;
  std::array<FloodNews, kMaxPort + 1> flood_news_{};
  std::array<FloodWatch, kMaxPort + 1> flood_watches_{};
  uint64_t thinned_ = 0;  // bit n: the kernel drops most of the flood at port n
  UniqueFd thinning_timer_;
};

}  // namespace erps::linux_platform
