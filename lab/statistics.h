// Arithmetic on the arrivals of one direction of a stream. Frames are numbered from 0 without gaps;
// moments are CLOCK_MONOTONIC in nanoseconds.
//
// Threading: one thread at a time.
#pragma once

#include <cstdint>
#include <optional>
#include <vector>

namespace erps::lab {

// What one fault did to one direction.
struct DirectionResult {
  uint64_t sent = 0;
  uint64_t lost = 0;
  uint64_t duplicates = 0;  // arrivals of a frame that had arrived before
  uint64_t reordered = 0;   // first arrivals behind a frame with a higher number
  // The longest time between two consecutive arrivals; the one that spans the fault begins before
  // it. Before the frame that is next in order nothing waits until it is sent: such a gap begins
  // there, so that a pause of the sender is not taken for an outage.
  int64_t outage_ns = 0;
  int64_t outage_from_ns = 0;   // when it began
  bool still_out = false;       // it lasted until the measurement ended
  int64_t sender_pause_ns = 0;  // the longest time between two frames that were sent
};

class DirectionMeter {
 public:
  // Starts a measurement: frames from `first` on are counted. What arrived before is remembered, so
  // that late copies are told from first arrivals.
  void begin(uint64_t first, int64_t now_ns);
  // sent_ns is when the frame was sent, 0 when that is not known.
  void arrived(uint64_t number, int64_t at_ns, int64_t sent_ns = 0);
  // Says that the measurement goes until `now_ns`: gaps that begin later are not counted any more,
  // late frames still are.
  void close(int64_t now_ns) { closed_ns_ = now_ns; }
  // Ends it: frames from `end` on belong to the next one, and so do copies that arrive from now on.
  DirectionResult end(uint64_t end);

  // Whether every frame below `end` of this measurement has arrived.
  bool is_complete(uint64_t end) const;

 private:
  bool is_known(uint64_t number) const;

  bool running_ = false;
  uint64_t first_ = 0;
  uint64_t base_ = 0;  // number of seen_[0]
  std::vector<bool> seen_;
  std::optional<uint64_t> highest_;
  uint64_t arrived_once_ = 0;  // of the frames from first_ on
  int64_t begun_ns_ = 0;
  int64_t closed_ns_ = INT64_MAX;
  int64_t last_ns_ = 0;  // last arrival; 0 before the first
  DirectionResult result_;
};

}  // namespace erps::lab
