#include "sim/management.h"

#include <algorithm>

#include "sim/sim_error.h"

namespace erps::sim {

using namespace mgmt;

Request make_request(Command command, std::array<uint32_t, kArgumentCount> arguments) {
  Request request{};
  request.cmd = command;
  std::copy(arguments.begin(), arguments.end(), std::begin(request.arg));
  return request;
}

std::vector<Request> configuration_of(const NodePlan& node) {
  std::vector<Request> requests{make_request(kSetGuardTime, {node.guard_ms}),
                                make_request(kSetWtrTime, {node.wtr_ms}),
                                make_request(kSetHoldoffTime, {node.holdoff_ms})};
  for (const RingConfig& ring : node.rings) {
    requests.push_back(make_request(kAddRing, {ring.ring, ring.port0, ring.port1, ring.control_vlan,
                                               ring.node_role, ring.ring_role}));
    requests.push_back(make_request(kSetRevertiveMode, {ring.ring, ring.revertive ? 0U : 1U}));
  }
  for (const SubRingConfig& ring : node.sub_rings) {
    requests.push_back(make_request(kAttachSubRing, {ring.major_ring, ring.ring, ring.port,
                                                     ring.node_role, ring.interconnection_role}));
  }
  for (const RingConfig& ring : node.rings) {
    requests.push_back(make_request(kSetEnable, {ring.ring, 1}));
  }
  for (const SubRingConfig& ring : node.sub_rings) {
    requests.push_back(make_request(kSetEnable, {ring.ring, 1}));
  }
  return requests;
}

RingStatus parse_ring(const std::vector<uint8_t>& data) {
  if (data.size() != kRingConfBytes) {
    throw SimError("a ring's status has " + std::to_string(data.size()) + " bytes, not " +
                   std::to_string(kRingConfBytes));
  }
  const auto word = [&](RingConfWord index) {
    const uint8_t* bytes = data.data() + size_t{4} * index;
    return uint32_t{bytes[0]} << 24U | uint32_t{bytes[1]} << 16U | uint32_t{bytes[2]} << 8U |
           bytes[3];
  };
  RingStatus status;
  status.state = word(kState);
  status.sending = word(kSending) != 0;
  status.guard_running = word(kGuardRunning) != 0;
  status.local_priority = word(kLocalPriority);
  status.current_priority = word(kCurrentPriority);
  status.enabled = word(kEnabled) != 0;
  return status;
}

const char* state_name(uint32_t state) {
  static constexpr std::array<const char*, 6> kNames{"init",   "idle",   "protection",
                                                     "manual", "forced", "pending"};
  return state < kNames.size() ? kNames[state] : "unknown";
}

}  // namespace erps::sim
