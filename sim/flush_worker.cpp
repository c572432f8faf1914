#include "sim/flush_worker.h"

#include <algorithm>

namespace erps::sim {

void FlushWorker::kick() {
  const bool idle = started_.empty();
  for (const uint32_t port : asked_) {
    // The one under way may have passed by what is to be forgotten.
    const auto behind = started_.begin() + (idle ? 0 : 1);
    if (std::find(behind, started_.end(), port) == started_.end()) {
      started_.push_back(port);
    }
  }
  asked_.clear();
  if (idle && !started_.empty()) {
    world_.scheduler.set_after(world_.chance.in(world_.timing.flush_us), *this, life_);
  }
}

void FlushWorker::end() {
  asked_.clear();
  started_.clear();
  ++life_;
}

void FlushWorker::on_alarm(uint64_t token) {
  if (token != life_) {
    return;
  }
  if (!fabric_.flush(started_.front())) {
    world_.report("a port is flushed that the switch does not have");
  }
  started_.erase(started_.begin());
  if (!started_.empty()) {
    world_.scheduler.set_after(world_.chance.in(world_.timing.flush_us), *this, life_);
  }
}

}  // namespace erps::sim
