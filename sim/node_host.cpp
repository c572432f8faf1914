// The host's task of a node: loads, configures and stops the module, and asks what the operator
// wants to know.
#include <algorithm>
#include <cstring>

#include "sim/node.h"

namespace erps::sim {

namespace {
constexpr int64_t kReplyTimeoutUs = 2'000'000;
}

std::shared_ptr<const Reply> Node::ask(const Request& request) {
  auto reply = std::make_shared<Reply>();
  if (!powered_) {
    reply->done = true;
    return reply;
  }
  errands_.push_back({false, request, reply});
  host_->wake_after(0);
  return reply;
}

void Node::stop_module() {
  if (powered_) {
    errands_.push_back({true, {}, std::make_shared<Reply>()});
    host_->wake_after(0);
  }
}

void Node::run_host() {
  world.record(index, RecordKind::kBoot);
  if (module_->init() != 0 || module_->start() != 0) {
    world.report(plan.name + ": the module does not start");
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

void Node::stop_in_host() {
  const int result = module_->stop();
  module_->exit();
  configured_ = false;
  world.record(index, RecordKind::kStopped, 0, static_cast<uint32_t>(result));
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
  host_->wake_after(world.chance.in(world.timing.wakeup_us));
}

}  // namespace erps::sim
