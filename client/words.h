// The standard's words for the numbers in a ring's status, and back where an operator writes them.
#pragma once

#include <stdint.h>

#include <optional>
#include <string>
#include <string_view>

namespace erps::client {

enum NodeRole : uint32_t { kOwner = 1, kNeighbour = 2, kNoRplRole = 4 };
enum RingRole : uint32_t { kMajorRing = 0, kSubRing = 1, kSubRingAtInterconnection = 2 };
enum InterconnectionRole : uint32_t { kMarking = 0, kWatching = 1 };
enum PortState : uint32_t { kPortBlocked = 1, kPortForwarding = 4 };
enum NodeState : uint32_t {
  kStateInit = 0,
  kStateIdle = 1,
  kStateProtection = 2,
  kStateManualSwitch = 3,
  kStateForcedSwitch = 4,
  kStatePending = 5,
};

// Requests in the order of their priority; a larger number wins.
enum Request : uint32_t {
  kRequestNone = 0,
  kRequestWtbRunning = 3,
  kRequestWtrRunning = 5,
  kRequestManualSwitch = 7,
  kRequestLocalSf = 11,
  kRequestForcedSwitch = 13,
  kRequestClear = 14,
};

// Each names its argument; a number without a name gives "unknown (N)".
std::string state_name(uint32_t state);
std::string request_name(uint32_t request);
std::string node_role_name(uint32_t role);
std::string ring_role_name(uint32_t role);
std::string port_state_name(uint32_t state);
std::string interconnection_role_name(uint32_t role);  // 1 watching, every other number marking

// The number for a word; nothing when the word is none of theirs.
std::optional<uint32_t> node_role_of(std::string_view word);             // owner, neighbour, none
std::optional<uint32_t> ring_role_of(std::string_view word);             // major, sub-ring
std::optional<uint32_t> interconnection_role_of(std::string_view word);  // watching, marking

}  // namespace erps::client
