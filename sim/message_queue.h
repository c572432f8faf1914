// The System V message queues of one node. They outlive the module, but not the node's power.
//
// Threading: one thread. Errors: as errno values.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <deque>
#include <optional>
#include <vector>

namespace erps::sim {

struct QueuedMessage {
  long type = 0;
  std::vector<uint8_t> text;
};

class MessageQueue {
 public:
  void put(QueuedMessage message) { messages_.push_back(std::move(message)); }
  // The first message that msgrcv would take for this type; it stays in the queue.
  std::deque<QueuedMessage>::iterator find(long type);
  std::optional<QueuedMessage> take(long type);
  std::deque<QueuedMessage>::iterator end() { return messages_.end(); }
  void erase(const std::deque<QueuedMessage>::const_iterator& message) { messages_.erase(message); }
  size_t size() const { return messages_.size(); }

 private:
  std::deque<QueuedMessage> messages_;
};

class MessageQueues {
 public:
  // The identifier of the key's queue, which is made if need be.
  int open(key_t key);
  // Null for an identifier that is none.
  MessageQueue* find(int id);
  void clear() { queues_.clear(); }

 private:
  struct Entry {
    key_t key;
    MessageQueue queue;
  };
  std::deque<Entry> queues_;
};

}  // namespace erps::sim
