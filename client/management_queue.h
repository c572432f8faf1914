// The System V queue that carries requests and replies. It is opened, never created: it belongs to
// the daemon.
//
// Threading: any thread; holds nothing but the queue's number. Errors: ClientError. Logs nothing.
// Only put() waits, and only while the queue is full.
#pragma once

#include <stddef.h>
#include <stdint.h>

#include <chrono>

#include "erps/mgmt/message.h"

namespace erps::client {

// A message as the kernel copies it: the type, then the text.
struct QueuedMessage {
  long type = 0;
  uint8_t text[mgmt::kTextCapacity] = {};
};

class ManagementQueue {
 public:
  // Opens the queue. Throws kNoDaemon, kPermission or kSystem.
  ManagementQueue();

  // Puts one request of `length` text bytes, waiting until the deadline while the queue is full.
  // Throws kQueueFull, kDaemonStopped or kSystem.
  void put(const QueuedMessage& message, size_t length,
           std::chrono::steady_clock::time_point deadline) const;

  // Takes the first message of a type if one is there: true with its text and length.
  // Throws kDaemonStopped, kMalformedReply (longer than any reply; it is taken off) or kSystem.
  bool take(long type, QueuedMessage* message, size_t* length) const;

  // Takes every message of a type off the queue and forgets it; how many there were. Never throws.
  int discard(long type) const noexcept;

 private:
  int id_;
};

}  // namespace erps::client
