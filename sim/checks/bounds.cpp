#include "sim/checks/bounds.h"

#include <algorithm>

#include "sim/management.h"
#include "sim/simulation.h"

namespace erps::sim {

namespace {

// Calls to the platform that handling an event makes at most, or very nearly so.
constexpr int64_t kCallsPerEvent = 40;

}  // namespace

Bounds bounds_of(const Topology& topology, const Timing& timing, int64_t slowness) {
  Bounds bounds;
  const int64_t preemptions =
      timing.preempt_one_in == 0 ? 0 : 2 * kCallsPerEvent / timing.preempt_one_in;
  const int64_t busy_us = preemptions * timing.preempt_us.high + timing.event_us.high;
  // Its own event, and one that was there before it.
  bounds.node_us = slowness * (timing.wakeup_us.high + 2 * busy_us);
  for (const LinkPlan& link : topology.links) {
    bounds.transit_us += link.delay_us.high;
  }
  size_t requests = 0;
  for (const NodePlan& node : topology.nodes) {
    bounds.transit_us += bounds.node_us;
    requests = std::max(requests, configuration_of(node).size());
  }
  bounds.carrier_us = std::max(timing.carrier_down_us.high, timing.carrier_up_us.high);
  bounds.detection_us = bounds.carrier_us;
  // A failure is told when its hold-off is over, and that is looked at once a tick, or one later
  // behind what is due in the same second.
  uint32_t holdoff_ms = 0;
  for (const NodePlan& node : topology.nodes) {
    holdoff_ms = std::max(holdoff_ms, node.holdoff_ms);
  }
  if (holdoff_ms != 0) {
    bounds.detection_us +=
        int64_t{holdoff_ms} * kMillisecondUs + 2 * kTickUs + slowness * timing.tick_late_us.high;
  }
  const auto configuration = static_cast<int64_t>(requests);
  bounds.start_us = timing.boot_us.high + 2 * configuration * bounds.node_us;
  bounds.repair_us = bounds.detection_us + 2 * bounds.transit_us;
  int64_t guard_us = 0;
  for (const NodePlan& node : topology.nodes) {
    guard_us = std::max(guard_us, int64_t{node.guard_ms} * kMillisecondUs);
  }
  // What is first in a node's list of timers holds up the others.
  bounds.repeat_us = kRepetitionUs + 2 * kTickUs + guard_us +
                     slowness * timing.tick_late_us.high * 7 + 2 * bounds.transit_us;
  return bounds;
}

}  // namespace erps::sim
