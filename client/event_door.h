// The queue on which a client tells the module that a request waits.
//
// Threading: any thread; nothing is kept between calls. Errors: ClientError with kNoDoor,
// kPermission, kDoorFull or kSystem. Logs nothing. Waits only while the queue is full.
#pragma once

#include <chrono>

namespace erps::client {

// Announces the request with this System V message type, waiting until the deadline while the queue
// is full. Nothing is announced when it throws.
void announce_request(long message_type, std::chrono::steady_clock::time_point deadline);

}  // namespace erps::client
