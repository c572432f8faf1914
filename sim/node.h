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
#include <string>
#include <vector>

#include "platform/task.h"
#include "sim/event_queue.h"
#include "sim/learning_switch.h"
#include "sim/locks.h"
#include "sim/management.h"
#include "sim/message_queue.h"
#include "sim/module_copy.h"
#include "sim/module_records.h"
#include "sim/network.h"
#include "sim/node_heap.h"
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
  int64_t clock_us() const { return world.now_us() + clock_offset_us_; }
  // ... and the switch.
  bool set_port_state(uint32_t port, uint32_t state);
  bool transmit(uint32_t port, const uint8_t* bytes, size_t length);
  bool carrier(uint32_t port) const { return network_.carrier(index, port); }
  void set_capture(bool on);

  World& world;
  const NodeIndex index;
  const NodePlan& plan;
  LearningSwitch fabric;
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
  void open_plain_ports();
  Started* find(const erps_task_desc& description);
  void run_host();
  Reply round_trip(const Request& request);
  void stop_in_host();
  void pass_on(uint32_t in_port, Frame frame);

  Network& network_;
  const std::vector<Request> configuration_;
  std::unique_ptr<ModuleCopy> module_;
  RecordAddresses addresses_;  // of module_, once they have been asked for
  std::unique_ptr<Task> host_;
  std::vector<std::unique_ptr<Started>> started_;
  std::vector<std::unique_ptr<Task>> past_tasks_;  // alarms may still be set on them
  std::deque<Errand> errands_;
  Task* handling_ = nullptr;  // the task that handles an event
  bool powered_ = false;
  bool captures_ = false;
  bool configured_ = false;
  int64_t clock_offset_us_ = 0;
  uint64_t next_task_id_ = 0;
  long next_message_type_ = 1;
};

}  // namespace erps::sim
