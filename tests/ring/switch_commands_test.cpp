// Forced switch, manual switch and clear, at every port of every node.
#include <gmock/gmock.h>

#include "tests/ring/test_network.h"

namespace erps::sim {

using SwitchCommands = EveryRing;
using testing::Each;

namespace {

// Ring role 0 sends through forwarding ports only, and blocks before it sends: what the owner or
// its neighbour say when they block their other port reaches the ring by the repetition.
bool waits_for_the_repetition(const RingPlan& plan, NodeIndex node, uint32_t port) {
  const RingConfig ring = make_ring(plan).nodes[node].rings[0];
  return plan.ring_role == 0 && ring.node_role != 4 && port != ring.port1;
}

void switch_and_clear(TestNetwork& network, const RingPlan& plan, NodeIndex node, uint32_t port,
                      mgmt::Command command, const std::string& state) {
  SCOPED_TRACE("node " + std::to_string(node) + ", port " + std::to_string(port) + ", " + state);
  Simulation& simulation = network.simulation;
  const int64_t switched_us = simulation.now_us();
  EXPECT_TRUE(simulation.execute(node, make_request(command, {kRing, port})).accepted());
  simulation.run_for(kSettledUs);
  EXPECT_THAT(network.states(), Each(state));
  EXPECT_FALSE(simulation.port_forwards({node, port}));
  EXPECT_LE(network.longest_partition_us(switched_us),
            waits_for_the_repetition(plan, node, port) ? kRepeatUs : network.transit_us());

  const int64_t cleared_us = simulation.now_us();
  EXPECT_TRUE(simulation.execute(node, make_request(mgmt::kClear, {kRing})).accepted());
  network.come_home();
  EXPECT_LE(network.longest_partition_us(cleared_us), network.transit_us());
}

void at_every_port(const RingPlan& plan, mgmt::Command command, const std::string& state) {
  TestNetwork network(make_ring(plan), 1);
  network.come_home();
  for (NodeIndex node = 0; node < plan.nodes; ++node) {
    for (const uint32_t port : {1U, 2U}) {
      switch_and_clear(network, plan, node, port, command, state);
    }
  }
  network.expect_no_loop();
}

}  // namespace

TEST_P(SwitchCommands, ForcedSwitchMovesTheBlockAndClearTakesItBack) {
  at_every_port(plan(), mgmt::kForcedSwitch, "forced");
}

TEST_P(SwitchCommands, ManualSwitchMovesTheBlockAndClearTakesItBack) {
  at_every_port(plan(), mgmt::kManualSwitch, "manual");
}

TEST_P(SwitchCommands, ClearOnAnIdleRingChangesNothing) {
  TestNetwork network(make_ring(plan()), 1);
  network.come_home();
  for (NodeIndex node = 0; node < plan().nodes; ++node) {
    EXPECT_TRUE(network.simulation.execute(node, make_request(mgmt::kClear, {kRing})).accepted());
  }
  EXPECT_EQ(why_not_home(network.simulation), std::nullopt);
}

ERPS_FOR_EVERY_RING(SwitchCommands);

}  // namespace erps::sim
