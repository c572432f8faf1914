#include "sim/checks/loop_checker.h"

#include "sim/checks/graph.h"

namespace erps::sim {

void LoopChecker::on_forwarding(int64_t time_us, const Forwarding& forwarding) {
  loops_.set(time_us, has_loop(forwarding));
}

}  // namespace erps::sim
