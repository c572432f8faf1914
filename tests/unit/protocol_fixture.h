// The fixture of the protocol's tests: rings as they run, in any state a test likes, and what was
// done to them as steps.
#pragma once

#include <cctype>
#include <string>
#include <vector>

#include "tests/unit/fixture.h"
#include "tests/unit/steps.h"

namespace erps::test {

inline constexpr MacAddress kLowerNode = {0x00, 0x01, 0xFF, 0xFF, 0xFF, 0xFF};  // than kLocalNode

// A sub-ring instance: one port of its own.
inline constexpr RingSpec kSubRingSpec = {
    .id = 2, .port0 = 3, .port1 = kAbsentPort, .vlan = 100, .ring_role = kSubRing};

struct RingPair {
  ERPSM_T* major = nullptr;  // ring 1 on ports 1 and 2
  ERPSM_T* sub = nullptr;    // ring 2 on port 3
};

class ProtocolTest : public ModuleTest {
 protected:
  // A ring as it is while running and idle, without the traffic of its start: enabled, timers
  // ready, links up, ports forwarding, no local request. A sub-ring's second port stays absent.
  ERPSM_T* idle_ring(const RingSpec& spec = {});

  // A major ring and its sub-ring instance at an interconnection node, both idle.
  RingPair idle_pair(uint32_t inter_node_role, uint32_t major_role = kMajorRing);

  // Sets link and state of a port, in its record and in the switch alike.
  void set_port(ERPS_PORT_T* port, uint16_t link, uint16_t state);

  // What was done since the last call. Steps, and the events that were posted ("7 for ring 1",
  // "10 for ring 2: 1").
  std::string steps();
  std::vector<std::string> posts();

  // Runs the action of the ring's state-list row with this name.
  static void enter(ERPSM_T* ring, const std::string& name);

  static std::vector<ERPS_STATE_ENTRY_T*> state_entries(const ERPSM_T* ring);

  // What a ring remembers of a port's last message.
  static void store_pair(ERPS_PORT_T* port, const MacAddress& node_id, uint8_t bpr);
  static MacAddress stored_node_id(const ERPS_PORT_T* port);
};

// Names a parameterised test after the `name` of its parameter.
template <typename Param>
std::string param_name(const ::testing::TestParamInfo<Param>& parameter) {
  std::string name = parameter.param.name;
  for (char& c : name) {
    c = isalnum(static_cast<unsigned char>(c)) != 0 ? c : '_';
  }
  return name;
}

}  // namespace erps::test
