// The networks of topology files in the simulator: configured as erpsd would be, and coming to rest
// where the file's outlook says.
#include "lab/simulated_network.h"

#include <gtest/gtest.h>

#include <algorithm>

#include "lab/node_setup.h"
#include "lab/script_outlook.h"
#include "lab/topology_file.h"
#include "sim/checks/convergence.h"
#include "sim/simulation.h"
#include "tests/lab/topology_text.h"

namespace erps::lab {
namespace {

Topology good(const std::string& text) {
  const TopologyFile file = parse_topology(text);
  EXPECT_FALSE(file.findings.has_errors()) << to_text(file.findings, "test.toml");
  return file.topology;
}

sim::Options options() {
  sim::Options options;
  options.module_path = ERPS_MODULE;
  return options;
}

std::vector<PortRef> ring_ports_of(const Ring& ring, const Topology& topology) {
  std::vector<PortRef> ports;
  for (const LinkIndex link : ring.links) {
    for (const LinkEnd& end : topology.links[link].ends) {
      ports.push_back({end.node, link});
    }
  }
  std::sort(ports.begin(), ports.end());
  return ports;
}

std::string difference(const Topology& topology, const RingOutlook& expected, const Ring& ring,
                       sim::Simulation& simulation) {
  for (const NodeIndex node : ring.nodes) {
    const auto status = simulation.ring_status(node, ring.id);
    if (!status || status->state != static_cast<uint32_t>(*expected.state)) {
      return topology.nodes[node].name + " is " +
             (status ? sim::state_name(status->state) : "not there");
    }
  }
  for (const PortRef& port : ring_ports_of(ring, topology)) {
    if (std::count(expected.either.begin(), expected.either.end(), port) != 0) {
      continue;
    }
    const bool blocked = std::count(expected.blocked->begin(), expected.blocked->end(), port) != 0;
    if (simulation.port_forwards(to_link_end(topology, port)) == blocked) {
      return topology.port_text(port) + (blocked ? " forwards" : " is blocked");
    }
  }
  return {};
}

// Whether every ring has the states and blocked ports of the outlook, within its time.
void expect_outlook(const Topology& topology, const StepOutlook& outlook,
                    sim::Simulation& simulation) {
  const int64_t deadline_us = simulation.now_us() + outlook.settle_ms * sim::kMillisecondUs;
  for (;;) {
    std::string found;
    for (RingIndex ring = 0; ring < topology.rings.size(); ++ring) {
      found += difference(topology, outlook.rings[ring], topology.rings[ring], simulation);
    }
    if (found.empty() || simulation.now_us() > deadline_us) {
      EXPECT_EQ(found, "");
      return;
    }
    simulation.run_for(100 * sim::kMillisecondUs);
  }
}

void act(const Topology& topology, const Step& step, sim::Simulation& simulation) {
  for (const LinkIndex link : step.links) {
    step.action == Action::kCut ? simulation.cut(link) : simulation.restore(link);
  }
  if (const auto request = to_request(topology, step)) {
    EXPECT_TRUE(simulation.execute(step.node, *request).accepted());
  }
}

void expect_script(const Topology& topology) {
  Findings findings;
  const auto outlooks = script_outlook(topology, findings);
  sim::Simulation simulation(to_simulated(topology), options());
  expect_outlook(topology, outlooks[0], simulation);
  for (size_t i = 0; i < topology.steps.size(); ++i) {
    SCOPED_TRACE(topology.step_text(topology.steps[i]));
    act(topology, topology.steps[i], simulation);
    expect_outlook(topology, outlooks[i + 1], simulation);
  }
}

class SimulatedExample : public ::testing::TestWithParam<const char*> {};

TEST_P(SimulatedExample, ComesHome) {
  const TopologyFile file = load_topology(std::string(ERPS_EXAMPLES "/") + GetParam() + ".toml");
  sim::Simulation simulation(to_simulated(file.topology), options());
  EXPECT_EQ(sim::run_until_home(simulation, sim::home_bound_us(simulation.topology())),
            std::nullopt);
}

TEST_P(SimulatedExample, SettlesAfterEachStepOfItsScript) {
  expect_script(load_topology(std::string(ERPS_EXAMPLES "/") + GetParam() + ".toml").topology);
}

INSTANTIATE_TEST_SUITE_P(Examples, SimulatedExample,
                         ::testing::Values("four-node-ring", "sixteen-node-ring", "ladder",
                                           "three-rings"),
                         [](const auto& example) {
                           std::string name = example.param;
                           name.erase(std::remove(name.begin(), name.end(), '-'), name.end());
                           return name;
                         });

TEST(SimulatedNetwork, TakesTheSwitchesOfAScript) {
  expect_script(good(testing::four_nodes() + testing::ring_of_four() + R"(
[[step]]
forced_switch = "n2:n2-n3"
[[step]]
clear = "n2"
[[step]]
manual_switch = "n3:n3-n4"
[[step]]
clear = "n3"
)"));
}

TEST(SimulatedNetwork, KeepsTheIndicesNamesAddressesPortsAndTimers) {
  const Topology topology = good(testing::ladder());
  const sim::Topology simulated = to_simulated(topology);
  ASSERT_EQ(simulated.nodes.size(), 6U);
  ASSERT_EQ(simulated.links.size(), 7U);
  for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    EXPECT_EQ(simulated.nodes[node].name, topology.nodes[node].name);
    EXPECT_EQ(simulated.nodes[node].address, topology.nodes[node].address.bytes);
    EXPECT_EQ(simulated.nodes[node].wtr_ms, 5000U);
    EXPECT_EQ(simulated.nodes[node].guard_ms, 500U);
    EXPECT_EQ(simulated.nodes[node].holdoff_ms, 0U);
  }
  for (LinkIndex link = 0; link < topology.links.size(); ++link) {
    for (size_t end = 0; end < 2; ++end) {
      EXPECT_EQ(simulated.links[link].ends[end].node, topology.links[link].ends[end].node);
      EXPECT_EQ(simulated.links[link].ends[end].port, topology.links[link].ends[end].port);
    }
  }
}

TEST(SimulatedNetwork, AnOwnerHasTheRplAtItsPort1WhateverTheOrderOfTheRing) {
  const sim::Topology simulated = to_simulated(good(testing::four_nodes() + R"([[ring]]
id = 9
control_vlan = 7
nodes = ["n1", "n2", "n3", "n4"]
owner = "n1"
rpl = "n1-n2"
wtr_ms = 5000
role = "sub-ring"
revertive = false
)"));
  const sim::RingConfig& owner = simulated.nodes[0].rings.at(0);
  EXPECT_EQ(owner.ring, 9U);
  EXPECT_EQ(owner.control_vlan, 7U);
  EXPECT_EQ(owner.node_role, client::kOwner);
  EXPECT_EQ(owner.ring_role, client::kSubRing);
  EXPECT_EQ(owner.port0, 2U);
  EXPECT_EQ(owner.port1, 1U);
  EXPECT_FALSE(owner.revertive);
  EXPECT_EQ(simulated.nodes[1].rings.at(0).node_role, client::kNeighbour);
  EXPECT_EQ(simulated.nodes[1].rings.at(0).port1, 1U);
  EXPECT_EQ(simulated.nodes[2].rings.at(0).node_role, client::kNoRplRole);
}

TEST(SimulatedNetwork, OneInterconnectionNodeWatchesAndTheOtherOneMarks) {
  const sim::Topology simulated = to_simulated(good(testing::ladder()));
  const sim::SubRingConfig& watching = simulated.nodes[1].sub_rings.at(0);
  const sim::SubRingConfig& marking = simulated.nodes[2].sub_rings.at(0);
  EXPECT_EQ(watching.interconnection_role, client::kWatching);
  EXPECT_EQ(marking.interconnection_role, client::kMarking);
  EXPECT_EQ(watching.major_ring, 1U);
  EXPECT_EQ(watching.ring, 2U);
  EXPECT_EQ(watching.port, 3U);
}

TEST(SimulatedNetwork, LinksAreAsTheFileSaysForAllAndForOne) {
  const Topology topology = good(R"(
[simulation]
delay_us = [10, 20]
lost_per_million = 5
[[node]]
name = "a"
[[node]]
name = "b"
[[node]]
name = "c"
[[link]]
between = ["a", "b"]
[[link]]
between = ["b", "c"]
delay_us = 4000
duplicated_per_million = 6
overtaken_per_million = 7
)");
  const sim::Topology simulated = to_simulated(topology);
  EXPECT_EQ(simulated.links[0].delay_us.low, 10);
  EXPECT_EQ(simulated.links[0].delay_us.high, 20);
  EXPECT_EQ(simulated.links[0].raps.lost, 5U);
  EXPECT_EQ(simulated.links[0].raps.duplicated, 0U);
  EXPECT_EQ(simulated.links[1].delay_us.low, 4000);
  EXPECT_EQ(simulated.links[1].delay_us.high, 4000);
  EXPECT_EQ(simulated.links[1].raps.lost, 5U);
  EXPECT_EQ(simulated.links[1].raps.duplicated, 6U);
  EXPECT_EQ(simulated.links[1].raps.overtaken, 7U);
}

TEST(SimulatedNetwork, LinksOfNoRingCarryTraffic) {
  const Topology topology = good(testing::four_nodes() + testing::ring_of_four() + R"(
[[node]]
name = "stub"
[[link]]
between = ["n3", "stub"]
)");
  sim::Simulation simulation(to_simulated(topology), options());
  EXPECT_EQ(sim::run_until_home(simulation, sim::home_bound_us(simulation.topology())),
            std::nullopt);
  const LinkIndex link = *topology.find_link("n3-stub");
  for (const LinkEnd& end : topology.links[link].ends) {
    EXPECT_TRUE(simulation.port_forwards(to_link_end(topology, {end.node, link})));
  }
}

TEST(SimulatedNetwork, EndsOfALinkAreFoundByTheirNode) {
  const Topology topology = good(testing::four_nodes() + testing::ring_of_four());
  const LinkIndex rpl = *topology.find_link("n4-n1");
  EXPECT_EQ(end_number(topology, {3, rpl}), 0U);
  EXPECT_EQ(end_number(topology, {0, rpl}), 1U);
  EXPECT_EQ(to_link_end(topology, {0, rpl}), (sim::LinkEnd{0, 2}));
}

}  // namespace
}  // namespace erps::lab
