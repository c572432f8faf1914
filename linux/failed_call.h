// Tells that a platform call failed, for whoever called passes most failures over. A call that goes
// on failing is told once a second, with how often it failed meanwhile.
//
// Threading: any thread. Errors: none.
#pragma once

#include <atomic>
#include <cstdint>

namespace erps::linux_platform {

class FailedCall {
 public:
  // The name stays the caller's.
  explicit constexpr FailedCall(const char* name) : name_(name) {}

  // Returns -1, for the call to answer with.
  __attribute__((format(printf, 2, 3))) int tell(const char* format, ...);

 private:
  const char* name_;
  std::atomic<int64_t> told_ns_{0};
  std::atomic<uint64_t> untold_{0};
};

}  // namespace erps::linux_platform
