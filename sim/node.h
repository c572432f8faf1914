// A node: a switch, an operating system of its own, and a copy of the module with its tasks.
//
// Besides the module's two tasks there is the host's: it loads the module, configures the node
// through the management queue as any client does, and then serves the operator's requests one
// after the other.
//
// Threading: one thread. Errors: what the module must not do is reported to the world.
#pragma once

#include <deque>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "platform/task.h"
#include "sim/call_failures.h"
#include "sim/event_queue.h"
#include "sim/flush_worker.h"
#include "sim/learning_switch.h"
#include "sim/locks.h"
#include "sim/management.h"
#include "sim/message_queue.h"
#include "sim/module_copy.h"
#include "sim/module_records.h"
#include "sim/network.h"
#include "sim/node_clock.h"
#include "sim/node_heap.h"
#include "sim/pace.h"
#include "sim/record_watch.h"
#include "sim/world.h"

namespace erps::sim {

class Node final : public Station {
 public:
  Node(World& world, Network& network, NodeIndex index, const NodePlan& plan, uint32_t ports);
  ~Node();

  // From outside of all tasks.
  void power_on();
  void crash();
  // The module is stopped as by its host's shutdown; the switch goes on as it stands.
  void stop_module();
  // The module's process dies: its memory, its queue and what waits in it are gone, the switch goes
  // on as it stands, R-APS still captured, for nobody.
  void kill_module();
  // A new process after a stop or a death: it blocks all ring ports and forgets what was learnt on
  // them, then starts the module and configures it.
  void start_module();
  // What was last asked for holds, whatever the node's power does.
  void set_pace(uint32_t factor);
  void stall(int64_t duration_us);
  void step_clock(int64_t delta_us);
  void set_clock_drift(int64_t ppm) { clock.set_drift(world.now_us(), ppm); }
  // Served in order; while the node is down the reply says at once that there is none.
  std::shared_ptr<const Reply> ask(const Request& request);

  // Whether the node's configuration has been taken, every request of it accepted.
  bool configured() const { return configured_; }
  void send_probe(uint32_t probe, const MacAddress& destination);
  // What the module holds now; nothing without power.
  ModuleRecords records();

  void on_frame(uint32_t port, Frame frame) override;
  void on_carrier(uint32_t port, bool up) override;
  bool powered() const override { return powered_; }
  bool forwards(uint32_t port) const override { return fabric.forwards(port); }

  // For the calls of the module: the operating system ...
  int start_task(erps_task_desc& description);
  int stop_task(erps_task_desc& description);
  int notify_creator(erps_task_desc& description, int result);
  int receive_event(ERPS_EVENT_MSG_T& event);
  void message_sent();
  int64_t clock_us() const { return clock.at(world.now_us()); }
  // The task that is calling is about to wait: what it has changed is there to be seen.
  void piece_of_work_done() { watch_.look(clock_us()); }
  // A task of the node goes on.
  void touch(const Task& task) {
    touched_ = true;
    if (last_task_ != &task) {
      last_task_ = &task;
      ++handovers_;
    }
  }
  // Another number when another task than the one that ran last has run.
  uint64_t handovers() const { return handovers_; }
  // As piece_of_work_done(), for who has changed nothing.
  void look_if_touched() {
    if (std::exchange(touched_, false)) {
      piece_of_work_done();
    }
  }
  // What is known of the module's rings and timers, as of the last piece of work.
  bool records_are_known() const { return watch_.addresses().rings != nullptr; }
  uint64_t records_version() const { return watch_.version(); }
  std::optional<int64_t> next_expiry_us() const { return watch_.next_expiry_us(); }
  // Whether the task that runs handles an event of the node.
  bool handles_event() const { return handling_ != nullptr && handling_ == Task::running(); }
  // Whether nobody but the timer task is in the middle of a piece of work.
  bool module_rests() const { return waits_for_event_ && !host_in_module_; }
  // ... and the switch.
  bool set_port_state(uint32_t port, uint32_t state);
  bool flush(uint32_t port);
  bool transmit(uint32_t port, const uint8_t* bytes, size_t length);
  bool carrier(uint32_t port) const { return network_.carrier(index, port); }
  void set_capture(bool on);

  World& world;
  const NodeIndex index;
  const NodePlan& plan;
  LearningSwitch fabric;
  Pace pace;
  NodeClock clock;
  CallFailures failures;
  EventQueue events;
  Locks locks;
  MessageQueues message_queues;
  NodeHeap heap;

 private:
  // A task of the module.
  struct Started {
    erps_task_desc* description = nullptr;
    std::unique_ptr<Task> task;
    bool notified = false;
    int result = 0;
  };
  struct Errand {
    bool stop = false;  // or a request:
    Request request{};
    std::shared_ptr<Reply> reply;
  };

  std::unique_ptr<Task> make_task(const std::string& name, std::function<void()> body,
                                  int64_t delay_us);
  void lose_power();
  void load_module();
  void lose_module();
  void guard_ring_ports();
  bool is_ring_port(uint32_t port) const;
  void open_plain_ports();
  Started* find(const erps_task_desc& description);
  void run_host();
  Reply round_trip(const Request& request);
  int start_in_host();
  void stop_in_host();
  void end_of_module(int result);
  void pass_on(uint32_t in_port, Frame frame);

  Network& network_;
  const std::vector<Request> configuration_;
  std::unique_ptr<ModuleCopy> module_;
  RecordWatch watch_;
  std::unique_ptr<Task> host_;
  std::vector<std::unique_ptr<Started>> started_;
  std::vector<std::unique_ptr<Task>> past_tasks_;  // alarms may still be set on them
  std::deque<Errand> errands_;
  Task* handling_ = nullptr;  // the task that handles an event
  FlushWorker flush_worker_;
  const Task* last_task_ = nullptr;
  uint64_t handovers_ = 0;
  bool touched_ = true;
  bool waits_for_event_ = false;
  bool host_in_module_ = false;
  bool powered_ = false;
  bool module_runs_ = false;
  bool captures_ = false;
  bool configured_ = false;
  uint64_t next_task_id_ = 0;
  long next_message_type_ = 1;
};

}  // namespace erps::sim
