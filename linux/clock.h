// The two clocks of the history, in nanoseconds.
#pragma once

#include <time.h>

#include <cstdint>

namespace erps::linux_platform {

inline int64_t to_ns(const timespec& time) {
  return static_cast<int64_t>(time.tv_sec) * 1'000'000'000 + time.tv_nsec;
}

inline int64_t read_clock_ns(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return to_ns(now);
}

inline int64_t mono_now_ns() {
  return read_clock_ns(CLOCK_MONOTONIC);
}
inline int64_t wall_now_ns() {
  return read_clock_ns(CLOCK_REALTIME);
}

}  // namespace erps::linux_platform
