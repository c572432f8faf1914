#include "sim/scheduler.h"

#include <algorithm>

namespace erps::sim {

void Scheduler::set(int64_t time_us, Alarm& alarm, uint64_t token) {
  const Entry entry{std::max(time_us, now_us_), next_order_++, &alarm, token};
  size_t hole = heap_.size();
  heap_.push_back(entry);
  while (hole > 0) {
    const size_t parent = (hole - 1) / 2;
    if (!entry.before(heap_[parent])) {
      break;
    }
    heap_[hole] = heap_[parent];
    hole = parent;
  }
  heap_[hole] = entry;
}

void Scheduler::sift_down(size_t hole, const Entry& entry) {
  const size_t count = heap_.size();
  for (;;) {
    size_t child = 2 * hole + 1;
    if (child >= count) {
      break;
    }
    if (child + 1 < count && heap_[child + 1].before(heap_[child])) {
      ++child;
    }
    if (!heap_[child].before(entry)) {
      break;
    }
    heap_[hole] = heap_[child];
    hole = child;
  }
  heap_[hole] = entry;
}

void Scheduler::ring_next() {
  const Entry first = heap_.front();
  const Entry last = heap_.back();
  heap_.pop_back();
  if (!heap_.empty()) {
    sift_down(0, last);
  }
  now_us_ = first.time_us;
  first.alarm->on_alarm(first.token);
}

}  // namespace erps::sim
