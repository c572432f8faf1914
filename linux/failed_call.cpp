#include "linux/failed_call.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>

#include "linux/clock.h"
#include "linux/log.h"

namespace erps::linux_platform {

int FailedCall::tell(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  say(LogLevel::kError, format, arguments);
  va_end(arguments);
  return -1;
}

int FailedCall::note(const char* format, ...) {
  va_list arguments;
  va_start(arguments, format);
  say(LogLevel::kNotice, format, arguments);
  va_end(arguments);
  return -1;
}

void FailedCall::say(LogLevel level, const char* format, va_list arguments) {
  constexpr int64_t kQuietNs = 1'000'000'000;
  const int64_t now_ns = mono_now_ns();
  int64_t told_ns = told_ns_.load();
  if ((told_ns != 0 && now_ns - told_ns < kQuietNs) ||
      !told_ns_.compare_exchange_strong(told_ns, now_ns)) {
    untold_.fetch_add(1);
    return;
  }
  char reason[160];
  std::vsnprintf(reason, sizeof reason, format, arguments);
  const uint64_t untold = untold_.exchange(0);
  if (untold == 0) {
    logf(level, "%s failed: %s", name_, reason);
  } else {
    logf(level, "%s failed: %s (and %" PRIu64 " times before)", name_, reason, untold);
  }
}

}  // namespace erps::linux_platform
