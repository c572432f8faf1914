// Tells that a platform call failed, for whoever called passes most failures over. A call that goes
// on failing is told once a second, with how often it failed meanwhile.
//
// Threading: any thread. Errors: none.
#pragma once

#include <atomic>
#include <cstdarg>
#include <cstdint>

#include "linux/platform.h"

namespace erps::linux_platform {

class FailedCall {
 public:
  // The name stays the caller's.
  explicit constexpr FailedCall(const char* name) : name_(name) {}

  // As an error, or a notice where there is nothing to be done about it. Returns -1, for the call
  // to answer with.
  __attribute__((format(printf, 2, 3))) int tell(const char* format, ...);
  __attribute__((format(printf, 2, 3))) int note(const char* format, ...);

 private:
  __attribute__((format(printf, 3, 0))) void say(LogLevel level, const char* format,
                                                 va_list arguments);

  const char* name_;
  std::atomic<int64_t> told_ns_{0};
  std::atomic<uint64_t> untold_{0};
};

}  // namespace erps::linux_platform
