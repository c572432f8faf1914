// How much of something is allowed: so many at once, and so many a second that come back.
//
// Threading: none of its own. Times are monotonic nanoseconds.
#pragma once

#include <algorithm>
#include <cstdint>

namespace erps::linux_platform {

struct Budget {
  int64_t burst = 0;       // at once
  int64_t per_second = 0;  // and what comes back
};

class TokenBucket {
 public:
  TokenBucket(Budget budget, int64_t now_ns)
      : budget_(budget), level_(budget.burst * kUnit), filled_ns_(now_ns) {}

  // False when nothing is left.
  bool take(int64_t now_ns) {
    fill(now_ns);
    if (level_ < kUnit) {
      return false;
    }
    level_ -= kUnit;
    return true;
  }

  // How long until there is one to take.
  int64_t wait_ns(int64_t now_ns) {
    fill(now_ns);
    const int64_t missing = std::max<int64_t>(kUnit - level_, 0);
    return (missing + budget_.per_second - 1) / budget_.per_second;
  }

 private:
  // One of them in the bucket's own unit, in which a nanosecond brings back per_second.
  static constexpr int64_t kUnit = 1'000'000'000;

  void fill(int64_t now_ns) {
    const int64_t full = budget_.burst * kUnit;
    // Beyond this it is full whatever it held, and the product stays in range.
    const int64_t most_ns = full / budget_.per_second;
    const int64_t passed_ns = std::clamp<int64_t>(now_ns - filled_ns_, 0, most_ns);
    level_ = std::min(full, level_ + passed_ns * budget_.per_second);
    filled_ns_ = now_ns;
  }

  Budget budget_;
  int64_t level_;
  int64_t filled_ns_;
};

}  // namespace erps::linux_platform
