#include "lab/traffic.h"

#include <algorithm>

#include "lab/clock.h"
#include "lab/lab_error.h"

namespace erps::lab {

namespace {

// The kernel stamps arrivals, so the receiver can afford to look rarely.
constexpr int64_t kReceiveEveryMs = 4;
constexpr int kReceiveBufferBytes = 8 << 20;
// Frames older than this are not waited for at the end of a measurement.
constexpr int64_t kLongestWayMs = 200;
// A sender that was held up sends what it owes, but no more than this much at once.
constexpr int64_t kLongestDebtNs = 5 * kNsPerMs;
constexpr int kMeasuringPriority = 5;

}  // namespace

Traffic::Traffic(const Topology& topology, const Network& network) {
  for (size_t i = 0; i < topology.streams.size(); ++i) {
    const Stream& stream = topology.streams[i];
    for (size_t side = 0; side < 2; ++side) {
      const HostIndex from = stream.hosts[side];
      const HostIndex to = stream.hosts[1 - side];
      auto direction = std::make_unique<Direction>();
      direction->id = static_cast<uint16_t>(2 * i + side);
      direction->interval_ns = kNsPerS / stream.frames_per_s;
      direction->frame = make_traffic_frame(network.host_address(to), network.host_address(from));
      network.host(from).run([&] {
        direction->from = std::make_unique<PacketSocket>(
            PacketSocketOptions{network.host_interface(from), 0, false, {}, 0});
      });
      network.host(to).run([&] {
        direction->to = std::make_unique<PacketSocket>(PacketSocketOptions{
            network.host_interface(to), kTrafficEtherType, false, {}, kReceiveBufferBytes});
      });
      directions_.push_back(std::move(direction));
    }
  }
}

Traffic::~Traffic() {
  stopping_ = true;
  for (std::thread* thread : {&sender_, &receiver_}) {
    if (thread->joinable()) {
      thread->join();
    }
  }
}

void Traffic::start() {
  if (directions_.empty()) {
    return;
  }
  sender_ = std::thread([this] { send_loop(); });
  receiver_ = std::thread([this] { receive_loop(); });
}

void Traffic::send_loop() {
  run_before_others(kMeasuringPriority);
  const int64_t start_ns = mono_ns();
  for (size_t i = 0; i < directions_.size(); ++i) {
    directions_[i]->next_ns = start_ns;
  }
  while (!stopping_) {
    int64_t next_ns = INT64_MAX;
    for (auto& direction : directions_) {
      send_due(*direction, mono_ns());
      next_ns = std::min(next_ns, direction->next_ns);
    }
    sleep_until_ns(next_ns);
  }
}

void Traffic::send_due(Direction& direction, int64_t now_ns) {
  direction.next_ns = std::max(direction.next_ns, now_ns - kLongestDebtNs);
  while (direction.next_ns <= now_ns) {
    direction.next_ns += direction.interval_ns;
    // The number is taken before the frame is on its way: who reads next_number never misses one.
    const uint64_t number = direction.next_number.fetch_add(1);
    const int64_t sent_ns = mono_ns();
    stamp_traffic_frame(direction.frame, {direction.id, number, sent_ns});
    if (!direction.from->send(direction.frame.data(), direction.frame.size())) {
      ++unsent_;
    }
    if (direction.last_sent_ns != 0 &&
        sent_ns - direction.last_sent_ns > direction.longest_pause_ns) {
      direction.longest_pause_ns = sent_ns - direction.last_sent_ns;
    }
    direction.last_sent_ns = sent_ns;
  }
}

void Traffic::receive_loop() {
  run_before_others(kMeasuringPriority);
  while (!stopping_) {
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      receive_all();
    }
    sleep_ms(kReceiveEveryMs);
  }
}

void Traffic::receive_all() {
  for (auto& direction : directions_) {
    const int64_t to_mono_ns = real_to_mono_ns();
    direction->to->drain([&](const ReceivedFrame& received) {
      const auto frame = read_traffic_frame(received.bytes, received.length);
      if (frame && frame->direction == direction->id) {
        direction->meter.arrived(frame->number, received.real_ns + to_mono_ns, frame->sent_ns);
      }
    });
  }
}

void Traffic::wait_for_calm(int64_t stall_ns, int64_t steady_ms, int64_t patience_ms) {
  const int64_t deadline_ns = mono_ns() + patience_ms * kNsPerMs;
  do {
    stalls_.take_longest_ns();
    sleep_ms(steady_ms);
  } while (stalls_.take_longest_ns() > stall_ns && mono_ns() < deadline_ns);
}

void Traffic::begin_measurement() {
  const std::lock_guard<std::mutex> lock(mutex_);
  receive_all();
  unsent_ = 0;
  stalls_.take_longest_ns();
  for (auto& direction : directions_) {
    direction->longest_pause_ns = 0;
    direction->to->take_drops();
    direction->meter.begin(direction->next_number, mono_ns());
  }
}

TrafficResult Traffic::end_measurement() {
  const int64_t end_ns = mono_ns();
  std::vector<uint64_t> ends;
  std::vector<int64_t> pauses_ns;
  TrafficResult result;
  result.unsent = unsent_;
  result.machine_stall_ns = stalls_.take_longest_ns();
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    for (auto& direction : directions_) {
      ends.push_back(direction->next_number);
      pauses_ns.push_back(direction->longest_pause_ns);
      direction->meter.close(end_ns);
    }
  }
  for (;;) {
    sleep_ms(kReceiveEveryMs);
    const std::lock_guard<std::mutex> lock(mutex_);
    receive_all();
    bool complete = true;
    for (size_t i = 0; i < directions_.size(); ++i) {
      complete = complete && directions_[i]->meter.is_complete(ends[i]);
    }
    if (!complete && mono_ns() < end_ns + kLongestWayMs * kNsPerMs) {
      continue;
    }
    for (size_t i = 0; i < directions_.size(); ++i) {
      if (i % 2 == 0) {
        result.streams.emplace_back();
      }
      DirectionResult& direction = result.streams.back().directions[i % 2];
      direction = directions_[i]->meter.end(ends[i]);
      direction.sender_pause_ns = pauses_ns[i];
      result.receiver_drops += directions_[i]->to->take_drops();
    }
    return result;
  }
}

}  // namespace erps::lab
