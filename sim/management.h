// Management requests and replies, and the configuration of a node as a list of them.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <vector>

#include "erps/mgmt/message.h"
#include "sim/topology.h"
#include "sim/trace.h"

namespace erps::sim {

using Request = mgmt::RequestText;

struct Reply {
  bool done = false;              // the answer is there, or known never to come
  uint32_t ret_code = kNoAnswer;  // as on the wire, or kNoAnswer
  std::vector<uint8_t> data;

  bool accepted() const { return done && ret_code == 0; }
};

Request make_request(mgmt::Command command,
                     std::array<uint32_t, mgmt::kArgumentCount> arguments = {});

// What brings the node's rings up, in the order in which the node's host asks for it.
std::vector<Request> configuration_of(const NodePlan& node);

// A ring of a node, as kGetRing answers.
struct RingStatus {
  uint32_t state = 0;  // 0 init, 1 idle, 2 protection, 3 manual, 4 forced, 5 pending
  bool sending = false;
  bool guard_running = false;
  uint32_t local_priority = 0;
  uint32_t current_priority = 0;
  bool enabled = false;
};
RingStatus parse_ring(const std::vector<uint8_t>& data);
const char* state_name(uint32_t state);

}  // namespace erps::sim
