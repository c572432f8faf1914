// The host's task of a node: loads, configures and stops the module, and asks what the operator
// wants to know.
#include <algorithm>
#include <cstring>

#include "sim/node.h"
#include "sim/race_detector.h"

namespace erps::sim {

namespace {
constexpr int64_t kReplyTimeoutUs = 2'000'000;
}

std::shared_ptr<const Reply> Node::ask(const Request& request) {
  auto reply = std::make_shared<Reply>();
  if (!module_runs_) {
    reply->done = true;
    return reply;
  }
  errands_.push_back({false, request, reply});
  host_->wake_after(0);
  return reply;
}

void Node::stop_module() {
  if (module_runs_) {
    errands_.push_back({true, {}, std::make_shared<Reply>()});
    host_->wake_after(0);
  }
}

void Node::run_host() {
  world.record(index, RecordKind::kBoot);
  const uint64_t failed_before = failures.struck();
  if (const int result = start_in_host(); result != 0) {
    if (failures.struck() == failed_before) {
      world.report(plan.name + ": the module does not start");
    }
    end_of_module(result);
    return;
  }
  // Nothing that would have to be destroyed stands on this stack: a crash drops it as it is.
  uint32_t refused = 0;
  for (const Request& request : configuration_) {
    refused += round_trip(request).accepted() ? 0 : 1;
  }
  configured_ = refused == 0;
  world.record(index, RecordKind::kRunning, 0, refused);
  for (;;) {
    while (errands_.empty()) {
      host_->wait();
    }
    // It stays in the list while it is served, for a crash to find it.
    if (errands_.front().stop) {
      stop_in_host();
    } else {
      *errands_.front().reply = round_trip(errands_.front().request);
    }
    errands_.pop_front();
  }
}

int Node::start_in_host() {
  const races::ModuleCode module_code;
  host_in_module_ = true;
  int result = module_->init();
  if (result == 0) {
    result = module_->start();
  }
  host_in_module_ = false;
  return result;
}

void Node::stop_in_host() {
  int result = 0;
  {
    const races::ModuleCode module_code;
    host_in_module_ = true;
    result = module_->stop();
    module_->exit();
    host_in_module_ = false;
  }
  end_of_module(result);
}

void Node::end_of_module(int result) {
  // A host that ends takes the capture rule away, and finishes the flushes that it was asked for.
  captures_ = false;
  flush_worker_.kick();
  module_runs_ = false;
  configured_ = false;
  world.record(index, RecordKind::kStopped, 0, static_cast<uint32_t>(result));
}

void Node::kill_module() {
  if (module_runs_) {
    world.record(index, RecordKind::kKilled);
    lose_module();
  }
}

void Node::start_module() {
  if (!powered_ || module_runs_) {
    return;
  }
  lose_module();  // what is left after a stop
  message_queues.clear();
  captures_ = false;
  guard_ring_ports();
  load_module();
}

void Node::set_pace(uint32_t factor) {
  world.record(index, RecordKind::kSlowed, 0, factor);
  pace.set_factor(factor);
}

void Node::stall(int64_t duration_us) {
  world.record(index, RecordKind::kStalled, 0, static_cast<uint32_t>(duration_us / 1000));
  pace.stall_until(world.now_us() + duration_us);
}

void Node::step_clock(int64_t delta_us) {
  constexpr int64_t kStepUnitUs = 1'000'000;
  world.record(index, RecordKind::kClockStep, 0, static_cast<uint32_t>(delta_us / kStepUnitUs));
  clock.step(delta_us);
}

// The way of every client: the request into the System V queue, its announcement into the event
// queue, the reply from the System V queue.
Reply Node::round_trip(const Request& request) {
  world.record(index, RecordKind::kCommand, 0, request.cmd, request.arg[0]);
  MessageQueue& queue = *message_queues.find(message_queues.open(mgmt::kQueueKey));
  const long type = next_message_type_++;
  QueuedMessage message{type, std::vector<uint8_t>(sizeof request)};
  std::memcpy(message.text.data(), &request, sizeof request);
  queue.put(std::move(message));
  ERPS_EVENT_MSG_T announcement{};
  announcement.event_class = mgmt::kEventClass;
  announcement.sender = host_->id();
  announcement.type = mgmt::kEventTypeConf;
  announcement.payload = static_cast<uintptr_t>(type);
  events.post_announcement(announcement);

  Reply reply;
  reply.done = true;
  const long reply_type = (type & mgmt::kReplyTypeMask) | mgmt::kReplyTypeFlag;
  const int64_t deadline_us = world.now_us() + kReplyTimeoutUs;
  for (;;) {
    if (const auto answer = queue.take(reply_type)) {
      mgmt::ReplyText text{};
      std::memcpy(&text, answer->text.data(), std::min(answer->text.size(), sizeof text));
      reply.ret_code = text.ret_code;
      reply.data.assign(text.data, text.data + std::min<size_t>(text.data_len, sizeof text.data));
      break;
    }
    if (world.now_us() >= deadline_us) {
      queue.take(type);
      break;
    }
    host_->wake_after(deadline_us - world.now_us());
    host_->wait();
  }
  world.record(index, RecordKind::kReply, 0, request.cmd, reply.ret_code);
  return reply;
}

void Node::message_sent() {
  host_->wake_after(pace.wakeup_us());
}

}  // namespace erps::sim
