#include "sim/idle_ticks.h"

#include "sim/node.h"
#include "sim/race_detector.h"

namespace erps::sim {

namespace {

constexpr int64_t kSecondUs = 1'000'000;

constexpr uint64_t followed_by(uint64_t calls, TickCall call) {
  return calls << 3U | static_cast<uint64_t>(call);
}

constexpr uint64_t kLocked = followed_by(0, TickCall::kLock);
constexpr uint64_t with_rest(uint64_t calls) {
  return followed_by(followed_by(followed_by(calls, TickCall::kUnlock), TickCall::kCancelPoint),
                     TickCall::kSleep);
}
constexpr uint64_t kWithoutClock = with_rest(kLocked);
constexpr uint64_t kWithClock = with_rest(followed_by(kLocked, TickCall::kClock));

}  // namespace

IdleTicks::Progress IdleTicks::begin_call(TickCall call, const void* mutex) {
  disturbed_ = disturbed_ || calls_ > kWithClock;
  calls_ = followed_by(calls_, call);
  if (call == TickCall::kLock) {
    mutex_ = mutex;
  } else if (call == TickCall::kUnlock && mutex != mutex_) {
    disturb();
  }
  if (call < next_) {
    return Progress::kDone;
  }
  const Progress progress = call == next_ ? Progress::kBegun : Progress::kNew;
  next_ = TickCall::kNone;
  return progress;
}

void IdleTicks::end_tick(int64_t asked_us) {
  const auto expiry_us = node_.next_expiry_us();
  asks_clock_ = calls_ == kWithClock;
  is_idle_ = !disturbed_ && (asks_clock_ || calls_ == kWithoutClock) &&
             asks_clock_ == expiry_us.has_value() && began_at_rest_ && is_as_it_was() &&
             node_.records_are_known() && node_.world.options.skip_idle_ticks && !races::kDetects;
  idle_until_us_ = expiry_us.value_or(0) - kSecondUs;
  asked_us_ = asked_us;
}

void IdleTicks::begin_tick() {
  is_idle_ = false;
  disturbed_ = false;
  calls_ = 0;
  began_at_rest_ = node_.module_rests();
  records_version_ = node_.records_version();
}

// What the module would read in this tick.
bool IdleTicks::is_as_it_was() const {
  return node_.module_rests() && node_.records_version() == records_version_;
}

// Each step ends the turn, which is the task's again when it has waited, or leads to the next one.
bool IdleTicks::take_turn() {
  switch (next_) {
    case TickCall::kNone:
      return begin();
    case TickCall::kLock:
      return lock();
    case TickCall::kClock:
      return look_at_clock();
    case TickCall::kUnlock:
      return unlock();
    case TickCall::kCancelPoint:
      return pass_cancel_point();
    case TickCall::kSleep:
      return sleep();
  }
  return false;
}

bool IdleTicks::loses_processor_before(TickCall call) {
  next_ = call;
  const int64_t lost_us = node_.pace.preemption_us();
  if (lost_us == 0 || task_.pass_alone(lost_us)) {
    return false;
  }
  task_.wake_after(lost_us);
  return true;
}

bool IdleTicks::begin() {
  if (!is_idle_ || !is_as_it_was() || node_.world.now_us() < due_us_ || task_.is_to_end()) {
    return false;
  }
  return loses_processor_before(TickCall::kLock) || lock();
}

bool IdleTicks::lock() {
  if (!is_as_it_was() || !node_.locks.try_lock(mutex_, task_)) {
    return false;
  }
  if (!asks_clock_) {
    return loses_processor_before(TickCall::kUnlock) || unlock();
  }
  return loses_processor_before(TickCall::kClock) || look_at_clock();
}

bool IdleTicks::look_at_clock() {
  if (node_.clock_us() >= idle_until_us_) {
    return false;
  }
  return loses_processor_before(TickCall::kUnlock) || unlock();
}

bool IdleTicks::unlock() {
  node_.locks.unlock(mutex_, task_);
  return loses_processor_before(TickCall::kCancelPoint) || pass_cancel_point();
}

bool IdleTicks::pass_cancel_point() {
  if (task_.is_to_end()) {
    return false;
  }
  return loses_processor_before(TickCall::kSleep) || sleep();
}

bool IdleTicks::sleep() {
  if (task_.is_to_end() || node_.failures.may_strike()) {
    return false;
  }
  node_.look_if_touched();
  due_us_ = node_.world.now_us() + node_.clock.lasting(asked_us_) + node_.pace.lateness_us();
  next_ = TickCall::kNone;
  task_.wake_after(due_us_ - node_.world.now_us());
  return true;
}

}  // namespace erps::sim
