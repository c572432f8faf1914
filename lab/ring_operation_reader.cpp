// Reads how a ring operates: its times, and whether it goes back by itself.
#include "client/hazards.h"
#include "lab/timer_hazards.h"
#include "lab/topology_reader.h"

namespace erps::lab {

void read_operation(Reading& reading, TomlTable& table, Ring& ring) {
  if (const auto revertive = table.boolean("revertive")) {
    ring.revertive = revertive->value;
    if (!ring.revertive) {
      table.warn("non-revertive", "revertive", {}, client::kNonRevertiveHazard,
                 "set true, unless an operator watches the ring and clears it after each repair");
    }
  }
  const auto time = [&](const char* key, const client::Range& range, uint32_t& value_ms) {
    if (const auto value = table.integer(key, range, "timer-range")) {
      value_ms = static_cast<uint32_t>(value->value);
    }
  };
  time("wtr_ms", client::kWtrRange, ring.timers.wtr_ms);
  time("guard_ms", client::kGuardRange, ring.timers.guard_ms);
  time("holdoff_ms", client::kHoldoffRange, ring.timers.holdoff_ms);
  for (const TimerHazard& hazard : timer_hazards(ring.timers, transit_us(reading.topology, ring))) {
    table.warn(hazard.rule, hazard.key, std::to_string(hazard.value_ms), hazard.why, hazard.advice);
  }
}

}  // namespace erps::lab
