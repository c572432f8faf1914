#include "lab/timer_hazards.h"

#include <algorithm>

#include "client/hazards.h"
#include "client/limits.h"

namespace erps::lab {

namespace {

constexpr uint32_t kTickMs = 1000;
constexpr int64_t kUsPerMs = 1000;
constexpr int64_t kUsPerNode = 500;

std::string ms_text(int64_t ms) {
  return std::to_string(ms) + " ms";
}

}  // namespace

std::vector<TimerHazard> timer_hazards(const Timers& timers, int64_t transit_us) {
  std::vector<TimerHazard> hazards;
  const int64_t transit_ms = (transit_us + kUsPerMs - 1) / kUsPerMs;
  // A guard time that ends a tick late, and the message that ends a restore on its way.
  const int64_t guarded_ms = int64_t{timers.guard_ms} + kTickMs + transit_ms;
  const int64_t shortest_wtr_ms = std::max<int64_t>(client::kShortestCleanWtrMs, guarded_ms);
  if (timers.wtr_ms < client::kShortestCleanWtrMs) {
    hazards.push_back({"wtr-short", "wtr_ms", timers.wtr_ms, client::kShortWtrHazard,
                       "set " + ms_text(shortest_wtr_ms) + " or more"});
  } else if (timers.wtr_ms < guarded_ms) {
    hazards.push_back({"wtr-short", "wtr_ms", timers.wtr_ms,
                       "the guard time and a message round the ring take up to " +
                           ms_text(guarded_ms) +
                           ", and a node that is still guarded ignores the first R-APS(NR,RB)",
                       "set " + ms_text(guarded_ms) + " or more"});
  }
  if (timers.wtr_ms % kTickMs != 0) {
    const uint32_t seconds = timers.wtr_ms / kTickMs;
    hazards.push_back(
        {"wtr-not-whole-seconds", "wtr_ms", timers.wtr_ms,
         "WTR is counted in whole seconds: " + std::to_string(seconds) + " s are used",
         "set " + std::to_string(seconds * kTickMs) + " or " +
             std::to_string((seconds + 1) * kTickMs)});
  }
  if (timers.guard_ms < transit_ms) {
    hazards.push_back({"guard-shorter-than-transit", "guard_ms", timers.guard_ms,
                       "a message takes up to " + ms_text(transit_ms) +
                           " round this ring, so messages from before a change are still under "
                           "way when the guard time is over and are taken for new ones",
                       "set more than " + ms_text(transit_ms)});
  }
  if (timers.holdoff_ms != 0) {
    hazards.push_back(
        {"holdoff-delays-protection", "holdoff_ms", timers.holdoff_ms,
         "a failed link is told that much later, and up to a second more because timers run on a "
         "one-second tick: every cut splits the ring for " +
             ms_text(timers.holdoff_ms) + " to " + ms_text(timers.holdoff_ms + kTickMs),
         "set 0 unless a protection below the ring repairs the link in that time"});
  }
  return hazards;
}

int64_t transit_us(const Topology& topology, const Ring& ring) {
  int64_t sum = kUsPerNode * static_cast<int64_t>(ring.nodes.size());
  for (const LinkIndex link : ring.links) {
    sum += topology.links[link].simulated.delay_us.longest;
  }
  return sum;
}

}  // namespace erps::lab
