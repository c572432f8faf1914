#include "lab/statistics.h"

#include <algorithm>
#include <utility>

namespace erps::lab {

namespace {

// Arrivals of earlier measurements that are remembered.
constexpr uint64_t kRemembered = 1 << 16;
// A number further ahead than this is no frame of ours.
constexpr uint64_t kFurthestAhead = 1 << 26;

}  // namespace

void DirectionMeter::begin(uint64_t first, int64_t now_ns) {
  if (first > base_ + kRemembered) {
    const uint64_t forget = std::min<uint64_t>(first - kRemembered - base_, seen_.size());
    seen_.erase(seen_.begin(), seen_.begin() + static_cast<std::ptrdiff_t>(forget));
    base_ = first - kRemembered;
  }
  running_ = true;
  first_ = first;
  begun_ns_ = now_ns;
  closed_ns_ = INT64_MAX;
  arrived_once_ = 0;
  for (uint64_t number = first; number < base_ + seen_.size(); ++number) {
    arrived_once_ += seen_[number - base_] ? 1 : 0;
  }
}

bool DirectionMeter::is_known(uint64_t number) const {
  return number < base_ || (number - base_ < seen_.size() && seen_[number - base_]);
}

void DirectionMeter::arrived(uint64_t number, int64_t at_ns, int64_t sent_ns) {
  if (number > base_ + seen_.size() + kFurthestAhead) {
    return;
  }
  // The gap that was open when the measurement began counts from its last arrival.
  int64_t since_ns = last_ns_ == 0 ? begun_ns_ : last_ns_;
  if (highest_ && number == *highest_ + 1) {
    since_ns = std::max(since_ns, sent_ns);
  }
  if (running_ && at_ns - since_ns > result_.outage_ns && at_ns >= begun_ns_ &&
      since_ns < closed_ns_) {
    result_.outage_ns = at_ns - since_ns;
    result_.outage_from_ns = since_ns;
  }
  last_ns_ = std::max(last_ns_, at_ns);
  if (is_known(number)) {
    ++result_.duplicates;
    return;
  }
  if (number - base_ >= seen_.size()) {
    seen_.resize(number - base_ + 1, false);
  }
  seen_[number - base_] = true;
  if (highest_ && number < *highest_) {
    ++result_.reordered;
  }
  highest_ = std::max(highest_.value_or(0), number);
  if (running_ && number >= first_) {
    ++arrived_once_;
  }
}

bool DirectionMeter::is_complete(uint64_t end) const {
  for (uint64_t number = first_; number < end; ++number) {
    if (!is_known(number)) {
      return false;
    }
  }
  return true;
}

DirectionResult DirectionMeter::end(uint64_t end) {
  running_ = false;
  const int64_t since_ns = last_ns_ == 0 ? begun_ns_ : last_ns_;
  const bool awaited = end > first_ && !is_known(end - 1);
  if (awaited && closed_ns_ - since_ns > result_.outage_ns) {
    result_.outage_ns = closed_ns_ - since_ns;
    result_.outage_from_ns = since_ns;
    result_.still_out = true;
  }
  uint64_t beyond = 0;  // arrivals that belong to the next measurement
  for (uint64_t number = std::max(end, base_); number < base_ + seen_.size(); ++number) {
    beyond += seen_[number - base_] ? 1 : 0;
  }
  result_.sent = end - first_;
  const uint64_t arrived_in_time = arrived_once_ - std::min(arrived_once_, beyond);
  result_.lost = result_.sent - std::min(result_.sent, arrived_in_time);
  return std::exchange(result_, {});
}

}  // namespace erps::lab
