#include "sim/call_failures.h"

#include <algorithm>
#include <string>

namespace erps::sim {

void CallFailures::fail(PlatformCall call, uint64_t nth, uint64_t times) {
  if (nth > 0 && times > 0) {
    asked_.push_back({call, nth - 1, times});
  }
}

bool CallFailures::is_asked(PlatformCall call) {
  bool fails = false;
  for (Asked& asked : asked_) {
    if (asked.call != call) {
      continue;
    }
    if (asked.before > 0) {
      --asked.before;
    } else {
      --asked.times;
      fails = true;
    }
  }
  std::erase_if(asked_, [](const Asked& asked) { return asked.times == 0; });
  return fails;
}

bool CallFailures::decide(PlatformCall call) {
  const bool by_chance =
      !ends_the_module(call) && world_.failures_chance.per_million(world_.failing_per_million);
  if (!is_asked(call) && !by_chance) {
    return false;
  }
  ++struck_;
  world_.record(node_, RecordKind::kCallFailed, 0, static_cast<uint32_t>(call));
  if (is_of_the_platform(call)) {
    tell(call);
  }
  return true;
}

// As a host's platform does.
void CallFailures::tell(PlatformCall call) {
  constexpr int kError = 3;
  if (world_.options.log_level < kError) {
    return;
  }
  const std::string text = "platform: " + std::string(name_of(call)) + " failed";
  for (Observer* observer : world_.observers) {
    observer->on_log(world_.now_us(), node_, kError, text);
  }
}

}  // namespace erps::sim
