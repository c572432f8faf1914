// Finds the one source that most of a port's flood comes from, for the kernel to drop it.
//
// Threading: the thread that receives. Errors: none. Times are monotonic nanoseconds.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>

#include "linux/raps_filter.h"

namespace erps::linux_platform {

class FloodWatch {
 public:
  // So many frames of a source refused within so long are a flood: far more than any node sends.
  static constexpr int kMany = 250;
  static constexpr int64_t kWindowNs = 50'000'000;

  // Counts a refused frame, from its destination address on; the flood when it has shown itself.
  std::optional<FloodMatch> refused(const uint8_t* frame, size_t length, int64_t now_ns);

 private:
  void suspect(const FloodMatch& sender, int64_t now_ns);

  FloodMatch suspected_;
  int count_ = 0;
  int64_t since_ns_ = 0;
};

}  // namespace erps::linux_platform
