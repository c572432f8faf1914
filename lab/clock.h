// The clocks of the laboratory, in nanoseconds.
#pragma once

#include <time.h>

#include <cstdint>

namespace erps::lab {

inline constexpr int64_t kNsPerMs = 1000000;
inline constexpr int64_t kNsPerS = 1000000000;

inline int64_t clock_ns(clockid_t clock) {
  timespec now{};
  clock_gettime(clock, &now);
  return now.tv_sec * kNsPerS + now.tv_nsec;
}

inline int64_t mono_ns() {
  return clock_ns(CLOCK_MONOTONIC);
}

// What to add to a CLOCK_REALTIME stamp to get CLOCK_MONOTONIC.
inline int64_t real_to_mono_ns() {
  return mono_ns() - clock_ns(CLOCK_REALTIME);
}

inline double to_ms(int64_t ns) {
  return static_cast<double>(ns) / kNsPerMs;
}

// Sleeps until CLOCK_MONOTONIC reaches this.
inline void sleep_until_ns(int64_t until_ns) {
  const timespec until{until_ns / kNsPerS, until_ns % kNsPerS};
  while (clock_nanosleep(CLOCK_MONOTONIC, TIMER_ABSTIME, &until, nullptr) != 0) {
  }
}

inline void sleep_ms(int64_t ms) {
  sleep_until_ns(mono_ns() + ms * kNsPerMs);
}

}  // namespace erps::lab
