// How long this machine itself stood still: a thread on each processor wakes up every millisecond
// and notes how late it was. A virtual machine that its host holds back, or a machine that is too
// busy, cannot tell its own pauses from those of the network.
//
// Threading: a thread a processor of its own; the public calls from any other. Errors: none, a
// processor that may not be used is left out. Logs nothing.
#pragma once

#include <atomic>
#include <thread>
#include <vector>

#include "lab/pauses.h"

namespace erps::lab {

// Lets the calling thread go before ordinary ones, as far as it has the privilege.
void run_before_others(int priority);

class StallMeter {
 public:
  StallMeter();
  ~StallMeter();
  StallMeter(const StallMeter&) = delete;
  StallMeter& operator=(const StallMeter&) = delete;

  // The stalls of all processors since the last call, in no order.
  std::vector<Span> take() { return stalls_.take(); }

 private:
  void loop();

  std::atomic<bool> stopping_{false};
  PauseLog stalls_;
  std::vector<std::thread> threads_;
};

}  // namespace erps::lab
