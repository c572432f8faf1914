// The streams of a file as probe frames in a simulation: both hosts of each send each other, and
// what arrives is measured.
//
// The file's pace is kept whenever it tells something: from the beginning of a measurement on, from
// every change of what the network forwards on, and while nothing arrives. In between fewer frames
// do, which keep addresses learnt: a network in which nothing changes forwards the next frame as it
// did the last one. Since a frame leaves in the instant of every change, outages are as exact as
// with frames of any pace.
//
// Threading: the simulation's. Errors: none.
#pragma once

#include <cstdint>
#include <deque>
#include <vector>

#include "lab/topology.h"
#include "lab/traffic.h"
#include "sim/observer.h"
#include "sim/simulation.h"

namespace erps::lab {

class ProbeTraffic final : public sim::Observer {
 public:
  // Outlives the simulation's run; start() begins to send.
  ProbeTraffic(const Topology& topology, sim::Simulation& simulation);

  void start();
  // One measurement at a time; it can follow the one before in the same instant.
  void begin_measurement();
  // What was sent before the last few milliseconds and has not arrived counts as lost.
  TrafficResult end_measurement();

  void on_record(const sim::Record& record) override;
  void on_forwarding(int64_t time_us, const sim::Forwarding& forwarding) override;

 private:
  struct Frame {
    int64_t sent_us = 0;
    bool arrived = false;
  };
  struct Direction {
    NodeIndex from = 0;
    NodeIndex to = 0;
    int64_t interval_us = 0;
    uint32_t chain = 0;  // of the sendings; one that is no longer the present one ends
    int64_t dense_until_us = 0;
    std::vector<Frame> frames;  // of this measurement
    size_t next = 0;            // behind the last frame that has arrived
    int64_t last_arrival_us = 0;
    DirectionResult result;
  };
  struct Probe {
    size_t direction = 0;
    uint32_t measurement = 0;
    size_t frame = 0;
  };

  void send_on(size_t direction, uint32_t chain);
  void send_now(size_t direction);
  void arrived(Direction& direction, size_t frame);

  sim::Simulation& simulation_;
  std::vector<Direction> directions_;  // two a stream
  std::deque<Probe> probes_;           // the last ones; probes_[0] has the number first_probe_
  uint32_t first_probe_ = 0;
  uint32_t measurement_ = 0;
  bool sending_ = false;
};

}  // namespace erps::lab
