#include "lab/simulate/probe_traffic.h"

#include <algorithm>

namespace erps::lab {

namespace {

constexpr int64_t kNsPerUs = 1000;
// How long the file's pace is kept after a change, and the pace in between.
constexpr int64_t kDenseUs = 50 * sim::kMillisecondUs;
constexpr int64_t kSparseUs = 50 * sim::kMillisecondUs;
// Frames this young at the end of a measurement may still be under way, and are not counted.
constexpr int64_t kUnderWayUs = 20 * sim::kMillisecondUs;
// Probes that are remembered: more than can be under way.
constexpr size_t kRemembered = 1 << 16;

}  // namespace

ProbeTraffic::ProbeTraffic(const Topology& topology, sim::Simulation& simulation)
    : simulation_(simulation) {
  for (const Stream& stream : topology.streams) {
    for (size_t side = 0; side < 2; ++side) {
      Direction direction;
      direction.from = topology.hosts[stream.hosts[side]].node;
      direction.to = topology.hosts[stream.hosts[1 - side]].node;
      direction.interval_us = std::max<int64_t>(1, sim::kSecondUs / stream.frames_per_s);
      directions_.push_back(std::move(direction));
    }
  }
}

void ProbeTraffic::start() {
  sending_ = true;
  for (size_t i = 0; i < directions_.size(); ++i) {
    send_now(i);
  }
}

void ProbeTraffic::send_now(size_t index) {
  Direction& direction = directions_[index];
  // Two hosts at one node need no ring.
  if (!sending_ || direction.from == direction.to) {
    return;
  }
  const int64_t now_us = simulation_.now_us();
  direction.dense_until_us = now_us + kDenseUs;
  const uint32_t chain = ++direction.chain;
  simulation_.at(now_us, [this, index, chain] { send_on(index, chain); });
}

void ProbeTraffic::send_on(size_t index, uint32_t chain) {
  Direction& direction = directions_[index];
  if (chain != direction.chain) {
    return;
  }
  const int64_t now_us = simulation_.now_us();
  const bool silent = now_us - direction.last_arrival_us > 2 * kSparseUs;
  const bool dense = silent || now_us < direction.dense_until_us;
  const uint32_t probe = simulation_.send_probe(direction.from, direction.to);
  if (probes_.empty()) {
    first_probe_ = probe;
  }
  probes_.push_back({index, measurement_, direction.frames.size()});
  direction.frames.push_back({now_us, false});
  if (probes_.size() > kRemembered) {
    probes_.pop_front();
    ++first_probe_;
  }
  const int64_t pause_us =
      dense ? direction.interval_us : std::max(kSparseUs, direction.interval_us);
  simulation_.at(now_us + pause_us, [this, index, chain] { send_on(index, chain); });
}

void ProbeTraffic::on_forwarding(int64_t /*time_us*/, const sim::Forwarding& /*forwarding*/) {
  for (size_t i = 0; i < directions_.size(); ++i) {
    send_now(i);
  }
}

void ProbeTraffic::on_record(const sim::Record& record) {
  if (record.kind != sim::RecordKind::kProbe || record.a < first_probe_ ||
      record.a - first_probe_ >= probes_.size()) {
    return;
  }
  const Probe& probe = probes_[record.a - first_probe_];
  Direction& direction = directions_[probe.direction];
  if (record.node != direction.to) {
    return;  // flooded, and another host got it, too
  }
  direction.last_arrival_us = record.time_us;
  if (probe.measurement == measurement_) {
    arrived(direction, probe.frame);
  }
}

void ProbeTraffic::arrived(Direction& direction, size_t index) {
  Frame& frame = direction.frames[index];
  DirectionResult& result = direction.result;
  if (frame.arrived) {
    ++result.duplicates;
    return;
  }
  frame.arrived = true;
  if (index < direction.next) {
    ++result.reordered;
    return;
  }
  // The first frame of those that are missing has waited since it was sent.
  const int64_t since_us = direction.frames[direction.next].sent_us;
  const int64_t outage_ns = (simulation_.now_us() - since_us) * kNsPerUs;
  if (outage_ns > result.outage_ns) {
    result.outage_ns = outage_ns;
    result.outage_from_ns = since_us * kNsPerUs;
  }
  direction.next = index + 1;
}

void ProbeTraffic::begin_measurement() {
  ++measurement_;
  for (size_t i = 0; i < directions_.size(); ++i) {
    Direction& direction = directions_[i];
    direction.frames.clear();
    direction.next = 0;
    direction.result = {};
    send_now(i);
  }
}

TrafficResult ProbeTraffic::end_measurement() {
  TrafficResult traffic;
  traffic.streams.resize(directions_.size() / 2);
  const int64_t now_us = simulation_.now_us();
  for (size_t i = 0; i < directions_.size(); ++i) {
    Direction& direction = directions_[i];
    DirectionResult& result = direction.result;
    while (direction.next < direction.frames.size() &&
           now_us - direction.frames.back().sent_us < kUnderWayUs) {
      direction.frames.pop_back();
    }
    result.sent = direction.frames.size();
    result.lost =
        static_cast<uint64_t>(std::count_if(direction.frames.begin(), direction.frames.end(),
                                            [](const Frame& frame) { return !frame.arrived; }));
    const int64_t since_us = direction.next < direction.frames.size()
                                 ? direction.frames[direction.next].sent_us
                                 : now_us;
    if ((now_us - since_us) * kNsPerUs > result.outage_ns) {
      result.outage_ns = (now_us - since_us) * kNsPerUs;
      result.outage_from_ns = since_us * kNsPerUs;
      result.still_out = true;
    }
    traffic.streams[i / 2].directions[i % 2] = result;
  }
  return traffic;
}

}  // namespace erps::lab
