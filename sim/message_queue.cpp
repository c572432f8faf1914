#include "sim/message_queue.h"

#include <algorithm>

namespace erps::sim {

std::deque<QueuedMessage>::iterator MessageQueue::find(long type) {
  if (type == 0) {
    return messages_.begin();
  }
  if (type > 0) {
    return std::find_if(messages_.begin(), messages_.end(),
                        [=](const QueuedMessage& message) { return message.type == type; });
  }
  // The lowest type that is not above -type.
  auto found = messages_.end();
  for (auto message = messages_.begin(); message != messages_.end(); ++message) {
    if (message->type <= -type && (found == messages_.end() || message->type < found->type)) {
      found = message;
    }
  }
  return found;
}

std::optional<QueuedMessage> MessageQueue::take(long type) {
  const auto found = find(type);
  if (found == messages_.end()) {
    return std::nullopt;
  }
  QueuedMessage message = std::move(*found);
  messages_.erase(found);
  return message;
}

int MessageQueues::open(key_t key) {
  for (size_t i = 0; i < queues_.size(); ++i) {
    if (queues_[i].key == key) {
      return static_cast<int>(i);
    }
  }
  queues_.push_back({key, {}});
  return static_cast<int>(queues_.size() - 1);
}

MessageQueue* MessageQueues::find(int id) {
  const auto index = static_cast<size_t>(id);
  return id >= 0 && index < queues_.size() ? &queues_[index].queue : nullptr;
}

}  // namespace erps::sim
