#include "sim/record_watch.h"

#include <algorithm>

#include "sim/sim_error.h"

namespace erps::sim {

namespace {

const RingWords* find(const std::vector<RingWords>& rings, uint32_t ring) {
  const auto found = std::find_if(rings.begin(), rings.end(),
                                  [=](const RingWords& words) { return words.ring == ring; });
  return found != rings.end() ? &*found : nullptr;
}

}  // namespace

void RecordWatch::begin(const ModuleCopy& module) {
  before_.clear();
  try {
    addresses_ = RecordAddresses::of(module);
  } catch (const SimError&) {
    addresses_ = {};  // it can be simulated all the same
  }
}

std::optional<int64_t> RecordWatch::next_expiry_us() const {
  std::optional<int64_t> next_us;
  for (const RingWords& ring : before_) {
    for (const RingWords::Timer& timer : ring.timers) {
      if (timer.active && (!next_us || timer.expire_us < *next_us)) {
        next_us = timer.expire_us;
      }
    }
  }
  return next_us;
}

void RecordWatch::record_changes(int64_t clock_us) {
  ++version_;
  for (const RingWords& ring : before_) {
    if (find(now_, ring.ring) == nullptr) {
      world_.record(node_, RecordKind::kState, 0, ring.ring << 8U | kRingGone);
    }
  }
  for (const RingWords& ring : now_) {
    record_ring(ring, find(before_, ring.ring), clock_us);
  }
}

void RecordWatch::record_ring(const RingWords& ring, const RingWords* before, int64_t clock_us) {
  if (before == nullptr || before->state != ring.state) {
    world_.record(node_, RecordKind::kState, 0, ring.ring << 8U | ring.state);
  }
  for (size_t kind = 0; kind < ring.timers.size(); ++kind) {
    const RingWords::Timer& timer = ring.timers[kind];
    if (timer == (before != nullptr ? before->timers[kind] : RingWords::Timer{})) {
      continue;
    }
    const int64_t left_ms = std::max<int64_t>((timer.expire_us - clock_us) / 1000, 0);
    world_.record(node_, RecordKind::kTimer, 0, ring.ring << 8U | static_cast<uint32_t>(kind),
                  timer.active ? static_cast<uint32_t>(left_ms) : kTimerStopped);
  }
}

}  // namespace erps::sim
