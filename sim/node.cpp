#include "sim/node.h"

#include <algorithm>

#include "sim/race_detector.h"

namespace erps::sim {

namespace {

constexpr auto kNotRunning = static_cast<uintptr_t>(-1);
constexpr int64_t kEpochUs = 1'700'000'000'000'000;
constexpr size_t kLongestFrame = 1518;

}  // namespace

Node::Node(World& the_world, Network& network, NodeIndex node_index, const NodePlan& node_plan,
           uint32_t ports)
    : world(the_world),
      index(node_index),
      plan(node_plan),
      fabric(the_world, node_index, ports),
      pace(the_world),
      clock(kEpochUs + the_world.chance.in({0, 999'999})),
      failures(the_world, node_index),
      events(the_world, pace),
      locks(the_world, pace),
      network_(network),
      configuration_(configuration_of(node_plan)),
      watch_(the_world, node_index),
      flush_worker_(the_world, fabric) {}

Node::~Node() {
  lose_power();
}

std::unique_ptr<Task> Node::make_task(const std::string& name, std::function<void()> body,
                                      int64_t delay_us) {
  const uint64_t id = (uint64_t{index} + 1) << 32U | ++next_task_id_;
  return std::make_unique<Task>(world.scheduler, *this, id, plan.name + "/" + name, std::move(body),
                                delay_us);
}

void Node::power_on() {
  if (powered_) {
    return;
  }
  powered_ = true;
  fabric.power_on();
  open_plain_ports();
  load_module();
  network_.power_changed(index);
}

void Node::load_module() {
  // Most of the module's calls are log messages.
  module_ = std::make_unique<ModuleCopy>(
      world.options.module_path, world.options.log_level < 0 ? unlogged_import : virtual_import);
  watch_.begin(*module_);
  host_ = make_task(
      "host", [this] { run_host(); }, world.chance.in(world.timing.boot_us));
  module_runs_ = true;
}

bool Node::is_ring_port(uint32_t port) const {
  return std::any_of(
             plan.rings.begin(), plan.rings.end(),
             [=](const RingConfig& ring) { return ring.port0 == port || ring.port1 == port; }) ||
         std::any_of(plan.sub_rings.begin(), plan.sub_rings.end(),
                     [=](const SubRingConfig& ring) { return ring.port == port; });
}

// Ports of no ring are ordinary ports of the switch.
void Node::open_plain_ports() {
  for (uint32_t port = 1; port <= fabric.ports(); ++port) {
    if (!is_ring_port(port) && !fabric.ask(port, kForwarding, false)) {
      world.report(plan.name + ": port " + std::to_string(port) + " cannot be opened");
    }
  }
}

void Node::guard_ring_ports() {
  for (uint32_t port = 1; port <= fabric.ports(); ++port) {
    if (is_ring_port(port) && !(fabric.ask(port, kDiscarding, false) && fabric.flush(port))) {
      world.report(plan.name + ": port " + std::to_string(port) + " cannot be blocked");
    }
  }
}

void Node::crash() {
  if (!powered_) {
    return;
  }
  world.record(index, RecordKind::kCrash);
  lose_power();
  network_.power_changed(index);
}

void Node::lose_power() {
  powered_ = false;
  captures_ = false;
  pace.end_stall();
  message_queues.clear();
  lose_module();
}

void Node::lose_module() {
  module_runs_ = false;
  configured_ = false;
  waits_for_event_ = false;
  host_in_module_ = false;
  handling_ = nullptr;
  fabric.abandon_openings();
  flush_worker_.end();
  for (auto& started : started_) {
    past_tasks_.push_back(std::move(started->task));
  }
  if (host_ != nullptr) {
    past_tasks_.push_back(std::move(host_));
  }
  for (auto& task : past_tasks_) {
    task->abandon();
  }
  started_.clear();
  for (Errand& errand : errands_) {
    errand.reply->done = true;
  }
  errands_.clear();
  events.close();
  locks.forget();
  module_.reset();
  watch_.end();
  heap.release_all();
}

void Node::on_carrier(uint32_t port, bool up) {
  events.post_link_change(port, up);
}

void Node::on_frame(uint32_t port, Frame frame) {
  const bool is_raps = frame.is_raps();
  if (is_raps) {
    for (Observer* observer : world.observers) {
      observer->on_reception(world.now_us(), index, port, frame.view());
    }
  }
  if (captures_ && is_raps) {
    events.post_frame(port, std::move(frame));
  } else {
    pass_on(port, std::move(frame));
  }
}

void Node::pass_on(uint32_t in_port, Frame frame) {
  // More often than a frame can be passed on where no address is forgotten on the way.
  constexpr uint32_t kMostSwitches = 1024;
  if (++frame.switched > kMostSwitches) {
    world.record(index, RecordKind::kCirculating, in_port, frame.probe);
    return;
  }
  for (const uint32_t port : fabric.switch_frame(in_port, frame)) {
    if (port != kHostPort) {
      network_.send(index, port, frame);
    } else if (frame.probe != 0) {
      world.record(index, RecordKind::kProbe, 0, frame.probe);
    }
  }
}

void Node::send_probe(uint32_t probe, const MacAddress& destination) {
  if (!powered_) {
    return;
  }
  Frame frame;
  frame.probe = probe;
  frame.bytes.assign(64, 0);
  std::copy(destination.begin(), destination.end(), frame.bytes.begin());
  std::copy(plan.address.begin(), plan.address.end(), frame.bytes.begin() + raps::kSourceOffset);
  pass_on(kHostPort, std::move(frame));
}

ModuleRecords Node::records() {
  if (module_ == nullptr) {
    return {};
  }
  // Those of a stripped module cannot be found, which is said here.
  return {watch_.addresses().rings != nullptr ? watch_.addresses() : RecordAddresses::of(*module_),
          clock_us()};
}

bool Node::set_port_state(uint32_t port, uint32_t state) {
  const bool closes = state == kDiscarding && fabric.forwards(port);
  if (!fabric.ask(port, state, handles_event())) {
    return false;
  }
  return !closes || !world.options.flush_worker || flush(port);
}

bool Node::flush(uint32_t port) {
  if (!world.options.flush_worker) {
    return fabric.flush(port);
  }
  if (port == kHostPort || port > fabric.ports()) {
    return false;
  }
  flush_worker_.ask(port);
  if (!handles_event()) {
    flush_worker_.kick();
  }
  return true;
}

bool Node::transmit(uint32_t port, const uint8_t* bytes, size_t length) {
  if (port == kHostPort || port > fabric.ports()) {
    return false;
  }
  if (length < raps::kUntaggedLength || length > kLongestFrame) {
    world.report(plan.name + " sends a frame of " + std::to_string(length) + " bytes");
    return false;
  }
  Frame frame;
  frame.bytes.assign(bytes, bytes + length);
  if (frame.is_raps()) {
    world.record(index, RecordKind::kFrameSent, port, frame.raps_summary(), frame.raps_node());
  }
  for (Observer* observer : world.observers) {
    observer->on_transmission(world.now_us(), index, port, frame.view());
  }
  network_.send(index, port, frame);
  return true;
}

void Node::set_capture(bool on) {
  captures_ = on;
  world.record(index, RecordKind::kCapture, 0, on ? 1 : 0);
}

int Node::receive_event(ERPS_EVENT_MSG_T& event) {
  Task& task = *Task::running();
  handling_ = nullptr;
  fabric.finish_event();
  flush_worker_.kick();
  piece_of_work_done();
  for (Observer* observer : world.observers) {
    observer->on_event_done(world.now_us(), index);
  }
  locks.check_none_held(task, "waits for an event");
  waits_for_event_ = true;
  const bool received = events.receive(event, task);
  waits_for_event_ = false;
  if (!received) {
    return -1;
  }
  handling_ = &task;
  if (const int64_t takes_us = pace.event_us(); takes_us != 0) {
    task.sleep(takes_us);
  }
  constexpr uintptr_t kConfigurationEvent = 4;
  constexpr uintptr_t kPacketEvent = 2;
  const auto type = static_cast<uint32_t>(event.type);
  if (const auto link = events.given_link()) {
    world.record(index, RecordKind::kEvent, link->port, type, link->up ? 1 : 0);
  } else {
    const bool numeric = event.type == kConfigurationEvent;
    world.record(index, RecordKind::kEvent, 0, type,
                 numeric ? static_cast<uint32_t>(event.payload) : 0);
  }
  if (event.type == kPacketEvent) {
    const auto* packet = events.given_packet();
    world.record(index, RecordKind::kFrameReceived, packet->port, packet->frame.raps_summary(),
                 packet->frame.raps_node());
  }
  return 0;
}

Node::Started* Node::find(const erps_task_desc& description) {
  const auto found = std::find_if(started_.begin(), started_.end(), [&](const auto& started) {
    return started->description == &description;
  });
  return found != started_.end() ? found->get() : nullptr;
}

int Node::start_task(erps_task_desc& description) {
  if (find(description) != nullptr) {
    world.report(plan.name + " starts a task that runs already");
    return -1;
  }
  if (description.init != nullptr) {
    const races::ModuleCode module_code;
    if (description.init(&description) < 0) {
      return -1;
    }
  }
  Task& creator = *Task::running();
  Started* started = started_.emplace_back(std::make_unique<Started>()).get();
  started->description = &description;
  const auto run = [this, started, &creator] {
    struct AtTheEnd {
      Node& node;
      Started& started;
      Task& creator;
      int result = -1;
      ~AtTheEnd() {
        node.locks.check_none_held(*started.task, "ends");
        node.world.record(node.index, RecordKind::kTaskEnded, 0,
                          static_cast<uint32_t>(started.task->id()), static_cast<uint32_t>(result));
        races::release(started.task.get());
        creator.wake_after(0);
      }
    } end{*this, *started, creator};
    const races::ModuleCode module_code;
    end.result = started->description->entry(started->description);
  };
  started->task = make_task(description.name, run, pace.wakeup_us());
  description.thread_id = started->task->id();
  world.record(index, RecordKind::kTaskStarted, 0, static_cast<uint32_t>(started->task->id()));
  while (!started->notified && !started->task->finished()) {
    creator.wait();
  }
  races::acquire(started);
  const int result = started->notified ? started->result : -1;
  if (result < 0) {
    stop_task(description);
  }
  return result;
}

int Node::stop_task(erps_task_desc& description) {
  Started* started = find(description);
  if (started == nullptr) {
    return -1;
  }
  Task& task = *started->task;
  task.request_cancel();
  if (task.waiting()) {
    task.wake_after(pace.wakeup_us());
  }
  while (!task.finished()) {
    Task::running()->wait();
  }
  races::acquire(&task);
  past_tasks_.push_back(std::move(started->task));
  std::erase_if(started_, [&](const auto& entry) { return entry.get() == started; });
  description.thread_id = kNotRunning;
  return 0;
}

int Node::notify_creator(erps_task_desc& description, int result) {
  Started* started = find(description);
  if (started == nullptr || started->notified) {
    world.report(plan.name + " notifies the creator of a task that waits for nothing");
    return -1;
  }
  races::release(started);
  started->notified = true;
  started->result = result;
  host_->wake_after(pace.wakeup_us());
  return 0;
}

}  // namespace erps::sim
