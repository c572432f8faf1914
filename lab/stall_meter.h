// How long this machine itself stood still: a thread on each processor wakes up every millisecond
// and notes how late it was. A virtual machine that its host holds back, or a machine that is too
// busy, cannot tell its own pauses from those of the network.
//
// Threading: a thread a processor of its own; the public calls from any other. Errors: none, a
// processor that may not be used is left out. Logs nothing.
#pragma once

#include <atomic>
#include <cstdint>
#include <thread>
#include <vector>

namespace erps::lab {

// Lets the calling thread go before ordinary ones, as far as it has the privilege.
void run_before_others(int priority);

class StallMeter {
 public:
  StallMeter();
  ~StallMeter();
  StallMeter(const StallMeter&) = delete;
  StallMeter& operator=(const StallMeter&) = delete;

  // The longest stall of any processor since the last call, in ns.
  int64_t take_longest_ns() { return longest_ns_.exchange(0); }

 private:
  void loop();

  std::atomic<bool> stopping_{false};
  std::atomic<int64_t> longest_ns_{0};
  std::vector<std::thread> threads_;
};

}  // namespace erps::lab
