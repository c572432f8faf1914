// A task of a node: a fiber that waits in virtual time and can be cancelled.
//
// Everything that is not marked otherwise is called from the task itself.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>

#include "sim/fiber.h"
#include "sim/idle_ticks.h"
#include "sim/scheduler.h"

namespace erps::sim {

class Node;

class Task final : public Alarm {
 public:
  // It runs for the first time after delay_us.
  Task(Scheduler& scheduler, Node& node, uint64_t id, std::string name, std::function<void()> body,
       int64_t delay_us);
  Task(const Task&) = delete;
  Task& operator=(const Task&) = delete;

  // The task whose code runs now; null outside of all tasks.
  static Task* running() { return running_; }

  Node& node() const { return node_; }
  uint64_t id() const { return id_; }
  const std::string& name() const { return name_; }

  // From anywhere.
  bool finished() const { return fiber_ == nullptr || fiber_->finished(); }
  bool waiting() const { return waiting_; }
  void wake_after(int64_t delay_us) { scheduler_.set_after(delay_us, *this, generation_); }
  // Asks for its end at its next cancellation point; the caller wakes it.
  void request_cancel() { cancel_requested_ = true; }
  // Its stack is dropped; it never runs again. Not from the task itself.
  void abandon();

  // Waits until it is woken; there may be no reason, so look again at what was waited for.
  void wait();
  void sleep(int64_t delay_us) {
    if (!pass_alone(delay_us)) {
      wake_after(delay_us);
      wait();
    }
  }
  // The same if nothing else happens meanwhile: false when it might, and nothing is done then.
  // From anywhere in the task's turn.
  bool pass_alone(int64_t delay_us);

  // Returns the state before.
  bool set_cancellable(bool cancellable) { return std::exchange(cancellable_, cancellable); }
  // Whether it ends at its next cancellation point.
  bool is_to_end() const { return cancel_requested_; }
  // Does not return when the task is to end here.
  void cancellation_point() {
    if (cancel_requested_ && cancellable_) {
      end_here();
    }
  }

  // Those of a task that sleeps; made at its first sleep.
  IdleTicks& make_idle_ticks();
  IdleTicks* idle_ticks() { return idle_ticks_ ? &*idle_ticks_ : nullptr; }

 private:
  void on_alarm(uint64_t token) override;
  [[noreturn]] void end_here();

  static inline Task* running_ = nullptr;

  Scheduler& scheduler_;
  Node& node_;
  const uint64_t id_;
  const std::string name_;
  std::unique_ptr<Fiber> fiber_;
  std::optional<IdleTicks> idle_ticks_;
  uint64_t generation_ = 0;  // of the present wait; alarms of an earlier one are stale
  bool waiting_ = true;
  bool cancellable_ = true;
  bool cancel_requested_ = false;
};

}  // namespace erps::sim
