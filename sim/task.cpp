#include "sim/task.h"

#include "sim/node.h"
#include "sim/race_detector.h"

namespace erps::sim {

Task::Task(Scheduler& scheduler, Node& node, uint64_t id, std::string name,
           std::function<void()> body, int64_t delay_us)
    : scheduler_(scheduler),
      node_(node),
      id_(id),
      name_(std::move(name)),
      fiber_(std::make_unique<Fiber>([this, body = std::move(body)] {
        races::acquire(this);
        body();
      })) {
  races::release(this);
  wake_after(delay_us);
}

void Task::abandon() {
  ++generation_;
  fiber_.reset();
}

bool Task::pass_alone(int64_t delay_us) {
  if (!node_.world.pass_alone(delay_us)) {
    return false;
  }
  ++generation_;
  return true;
}

void Task::wait() {
  waiting_ = true;
  fiber_->suspend();
}

IdleTicks& Task::make_idle_ticks() {
  return idle_ticks_ ? *idle_ticks_ : idle_ticks_.emplace(node_, *this);
}

void Task::end_here() {
  cancellable_ = false;
  fiber_->unwind();
}

void Task::on_alarm(uint64_t token) {
  if (token != generation_ || finished()) {
    return;
  }
  if (const int64_t stalled_until_us = node_.pace.stalled_until_us();
      stalled_until_us > scheduler_.now_us()) {
    scheduler_.set(stalled_until_us, *this, token);
    return;
  }
  ++generation_;
  if (idle_ticks_ && idle_ticks_->take_turn()) {
    return;
  }
  node_.touch(*this);
  waiting_ = false;
  Task* const before = std::exchange(running_, this);
  fiber_->resume();
  running_ = before;
}

}  // namespace erps::sim
