// The traffic streams: both hosts of each send to each other at a steady pace, and what arrives is
// measured from the kernel's own arrival stamps.
//
// Threading: one thread sends and one receives; the public calls come from a third. Errors:
// LabError at construction; a sender that cannot send and a receiver that is not drained in time
// count as faults of the measurement, not as loss. Logs nothing.
#pragma once

#include <array>
#include <atomic>
#include <memory>
#include <mutex>
#include <thread>
#include <vector>

#include "lab/network.h"
#include "lab/packet_socket.h"
#include "lab/stall_meter.h"
#include "lab/statistics.h"
#include "lab/traffic_frame.h"

namespace erps::lab {

struct StreamResult {
  std::array<DirectionResult, 2> directions;  // from the first host, from the second host
};

struct TrafficResult {
  std::vector<StreamResult> streams;
  uint64_t receiver_drops = 0;   // frames that this machine lost behind the network
  uint64_t unsent = 0;           // frames that a host could not send
  int64_t machine_stall_ns = 0;  // how long a processor of this machine stood still

  bool is_sound() const { return receiver_drops == 0 && unsent == 0; }
};

class Traffic {
 public:
  Traffic(const Topology& topology, const Network& network);
  ~Traffic();
  Traffic(const Traffic&) = delete;
  Traffic& operator=(const Traffic&) = delete;

  void start();
  // One measurement at a time. end() waits a short while for the frames that are still on their
  // way.
  void begin_measurement();
  TrafficResult end_measurement();
  // Between measurements: returns when this machine has not stood still for longer than `stall_ns`
  // during `steady_ms`, or after `patience_ms`.
  void wait_for_calm(int64_t stall_ns, int64_t steady_ms, int64_t patience_ms);

 private:
  struct Direction {
    std::unique_ptr<PacketSocket> from, to;
    TrafficFrameBytes frame;
    uint16_t id = 0;
    int64_t interval_ns = 0;
    int64_t next_ns = 0;
    std::atomic<uint64_t> next_number{0};
    std::atomic<int64_t> longest_pause_ns{0};
    int64_t last_sent_ns = 0;
    DirectionMeter meter;  // guarded by mutex_
  };

  void send_loop();
  void send_due(Direction& direction, int64_t now_ns);
  void receive_loop();
  void receive_all();

  std::vector<std::unique_ptr<Direction>> directions_;
  StallMeter stalls_;
  std::mutex mutex_;
  std::atomic<bool> stopping_{false};
  std::atomic<uint64_t> unsent_{0};

  std::thread sender_, receiver_;
};

}  // namespace erps::lab
