#include "sim/checks/reception.h"

#include "sim/checks/ring_questions.h"

namespace erps::sim {

bool has_port(const RingSnapshot& ring, uint32_t port) {
  return ring.ports[0].port == port ||
         (ring.ring_role != kSubRingRole && ring.ports[1].port == port);
}

bool takes_message(const Step& step) {
  const RingSnapshot& ring = *step.before;
  const MacAddress& own = ring.local_node_id;
  return step.message.ring() == (ring.ring & 0xFFU) &&
         (has_port(ring, step.port) || ring.ring_role == kSubRingRole) &&
         step.message.node != (uint32_t{own[4]} << 8U | own[5]);
}

RingRequest request_made_by(const Step& step) {
  const RingSnapshot& ring = *step.before;
  const RingRequest request = request_of(step.message.request(), step.message.rb());
  const bool is_repetition = request == RingRequest::kRapsMs &&
                             ring.state == static_cast<uint32_t>(RingState::kManual) &&
                             ring.current_priority == static_cast<uint32_t>(RingRequest::kRapsMs);
  return is_repetition ? RingRequest::kNothing : request;
}

}  // namespace erps::sim
