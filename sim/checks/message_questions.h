// Questions about messages and the rings that hear them.
#pragma once

#include "sim/checks/ring_questions.h"
#include "sim/checks/ring_watch.h"

namespace erps::sim {

inline uint32_t id_end(const MacAddress& address) {
  return uint32_t{address[4]} << 8U | address[5];
}

inline uint32_t words_of(const RapsMessage& message) {
  return message.request() << 1U | (message.rb() ? 1U : 0U);
}

inline uint32_t words_of(const RingSnapshot& ring) {
  return uint32_t{ring.tx_request} << 1U | (ring.tx_rb ? 1U : 0U);
}

inline RingRequest request_in(const RapsMessage& message) {
  return request_of(message.request(), message.rb());
}

// What it repeats.
inline RapsMessage message_of(const RingSnapshot& ring) {
  return {uint32_t{ring.tx_request} << 12U | (ring.tx_rb ? 0x80U : 0U), 0};
}

// Whether the ring would do something on account of the message.
inline bool matters(const RingSnapshot& ring, const RapsMessage& message) {
  const auto changes = [&](bool from_lower_node) {
    RingModel model(ring);
    model.offer(request_in(message), {0, from_lower_node});
    return model.now.state != ring.state ||
           model.now.ports[0].forwarding != ring.ports[0].forwarding ||
           model.now.ports[1].forwarding != ring.ports[1].forwarding;
  };
  return changes(false) || changes(true);
}

}  // namespace erps::sim
