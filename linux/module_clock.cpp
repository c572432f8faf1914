// The time of day as the module reads it: it starts at the system's and then runs on undisturbed.
//
// The module's timers are points of the gettimeofday clock. When an operator or a time service
// steps the system's clock, a WTR would end at once or an hour late. These definitions stand before
// those of the C library for the whole process; nothing else in it asks for the time this way.
//
// Threading: any thread. Errors: none.
#include <sys/time.h>

#include <ctime>

#include "linux/clock.h"

namespace erps::linux_platform {
namespace {

timespec undisturbed_now() {
  static const int64_t kAheadOfMonotonicNs = wall_now_ns() - mono_now_ns();
  constexpr int64_t kSecondNs = 1'000'000'000;
  const int64_t now_ns = mono_now_ns() + kAheadOfMonotonicNs;
  return {.tv_sec = now_ns / kSecondNs, .tv_nsec = now_ns % kSecondNs};
}

}  // namespace
}  // namespace erps::linux_platform

extern "C" int gettimeofday(timeval* now, void* /*zone*/) noexcept {
  const timespec time = erps::linux_platform::undisturbed_now();
  *now = {.tv_sec = time.tv_sec, .tv_usec = time.tv_nsec / 1000};
  return 0;
}

extern "C" time_t time(time_t* seconds) noexcept {
  const time_t now = erps::linux_platform::undisturbed_now().tv_sec;
  if (seconds != nullptr) {
    *seconds = now;
  }
  return now;
}
