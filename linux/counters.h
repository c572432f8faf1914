// The platform's counters, written by any thread; the names are those of platform.h.
#pragma once

#include <atomic>
#include <cstdint>

#include "linux/platform.h"

namespace erps::linux_platform {

struct AtomicCounters {
  std::atomic<uint64_t> in_process_events{0};
  std::atomic<uint64_t> link_events{0};
  std::atomic<uint64_t> frame_events{0};
  std::atomic<uint64_t> door_accepted{0};
  std::atomic<uint64_t> door_wrong_size{0};
  std::atomic<uint64_t> door_wrong_event{0};
  std::atomic<uint64_t> netlink_overruns{0};
  std::atomic<uint64_t> flushes_asked{0};
  std::atomic<uint64_t> flushes_done{0};
  std::atomic<uint64_t> flushes_failed{0};
  std::atomic<uint64_t> port_state_failures{0};
  std::atomic<uint64_t> openings_withdrawn{0};
};

inline void count(std::atomic<uint64_t>& counter) {
  counter.fetch_add(1, std::memory_order_relaxed);
}

}  // namespace erps::linux_platform
