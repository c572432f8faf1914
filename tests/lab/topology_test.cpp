// What a good topology file becomes.
#include <gtest/gtest.h>

#include "lab/topology_file.h"
#include "tests/lab/topology_text.h"

namespace erps::lab {
namespace {

using testing::four_nodes;
using testing::ladder;
using testing::ring_of_four;
using testing::sub_ring;
using testing::swapped;

Topology good(const std::string& text) {
  const TopologyFile file = parse_topology(text);
  EXPECT_FALSE(file.findings.has_errors()) << to_text(file.findings, "test.toml");
  return file.topology;
}

TEST(Topology, PortsAreNumberedPerNodeInFileOrder) {
  const Topology topology = good(four_nodes() + ring_of_four());
  const Link& first = topology.links[*topology.find_link("n1-n2")];
  const Link& last = topology.links[*topology.find_link("n4-n1")];
  EXPECT_EQ(first.end_at(0).port, 1U);
  EXPECT_EQ(first.end_at(1).port, 1U);
  EXPECT_EQ(last.end_at(3).port, 2U);
  EXPECT_EQ(last.end_at(0).port, 2U);
}

TEST(Topology, NumbersThatAreGivenAreKeptAndTheOthersGoAround) {
  const Topology topology = good(R"(
[[node]]
name = "a"
[[node]]
name = "b"
[[node]]
name = "c"
[[link]]
between = ["a", "b"]
[[link]]
between = ["a", "c"]
ports = [1, 7]
)");
  EXPECT_EQ(topology.links[0].ends[0].port, 2U);
  EXPECT_EQ(topology.links[1].ends[0].port, 1U);
  EXPECT_EQ(topology.links[1].ends[1].port, 7U);
}

TEST(Topology, TheOwnerOfEachRingGetsTheLowestAddress) {
  const Topology topology = good(ladder());
  for (const Ring& ring : topology.rings) {
    for (const NodeIndex node : ring.nodes) {
      EXPECT_FALSE(topology.nodes[node].address < topology.nodes[ring.owner].address)
          << "ring " << ring.id << ", node " << topology.nodes[node].name;
    }
  }
}

TEST(Topology, AnOwnerThatStandsLastInTheFileStillGetsTheLowestAddress) {
  const Topology topology =
      good(four_nodes() + swapped(ring_of_four(), "owner = \"n1\"", "owner = \"n4\""));
  EXPECT_EQ(to_text(topology.nodes[3].address), "02:00:00:00:00:01");
}

TEST(Topology, AnOwnerInTheRingOfAnotherOwnerGivesWayToIt) {
  // n2 owns ring 2 and is a plain member of ring 1, so it comes right behind n1.
  const std::string below =
      swapped(sub_ring(), "owner = \"n5\"\nrpl = \"n5-n6\"", "owner = \"n2\"\nrpl = \"n2-n5\"");
  const Topology topology = good(four_nodes() + ring_of_four() + below);
  EXPECT_EQ(to_text(topology.nodes[0].address), "02:00:00:00:00:01");
  EXPECT_EQ(to_text(topology.nodes[1].address), "02:00:00:00:00:02");
}

TEST(Topology, AddressesOfTheFileAreKeptAndNotGivenTwice) {
  const Topology topology = good(swapped(four_nodes() + ring_of_four(), "name = \"n1\"\n",
                                         "name = \"n1\"\naddress = \"02:00:00:00:00:01\"\n"));
  EXPECT_EQ(to_text(topology.nodes[0].address), "02:00:00:00:00:01");
  EXPECT_EQ(to_text(topology.nodes[1].address), "02:00:00:00:00:02");
}

TEST(Topology, TheRplNeighbourIsTheOtherEndOfTheRpl) {
  const Topology topology = good(four_nodes() + ring_of_four());
  EXPECT_EQ(topology.rings[0].neighbour, topology.find_node("n4"));
}

TEST(Topology, ARingWithoutNeighbourHasNone) {
  const Topology topology = good(four_nodes() + ring_of_four("neighbour = \"\"\n"));
  EXPECT_FALSE(topology.rings[0].neighbour);
}

TEST(Topology, ARingOfTwoNodesUsesBothLinksBetweenThem) {
  const Topology topology = good(R"(
[[node]]
name = "a"
[[node]]
name = "b"
[[link]]
name = "left"
between = ["a", "b"]
[[link]]
name = "right"
between = ["a", "b"]
[[ring]]
id = 7
control_vlan = 10
nodes = ["a", "b"]
owner = "a"
rpl = "right"
wtr_ms = 5000
)");
  EXPECT_EQ(topology.rings[0].links, (std::vector<LinkIndex>{0, 1}));
}

TEST(Topology, ASubRingIsAnOpenChainThatKnowsItsMajorRing) {
  const Topology topology = good(ladder());
  const Ring& ring = topology.rings[1];
  ASSERT_TRUE(ring.is_open());
  EXPECT_EQ(topology.rings[*ring.major_ring].id, 1U);
  EXPECT_EQ(ring.links.size(), 3U);
  EXPECT_EQ(ring.role, RingRole::kSubRing);
  EXPECT_TRUE(ring.is_interconnection_node(*topology.find_node("n2")));
  EXPECT_TRUE(ring.is_interconnection_node(*topology.find_node("n3")));
  EXPECT_FALSE(ring.is_interconnection_node(*topology.find_node("n5")));
  EXPECT_EQ(ring.watching, topology.find_node("n2"));
}

TEST(Topology, AClosedRingMayRunWithTheRoleOfASubRing) {
  const Topology topology = good(four_nodes() + ring_of_four("role = \"sub-ring\"\n"));
  EXPECT_FALSE(topology.rings[0].is_open());
  EXPECT_EQ(topology.rings[0].role, RingRole::kSubRing);
}

TEST(Topology, EveryLinkCutsAndRestoresEachRingLinkInTurn) {
  const Topology topology = good(ladder() + "[script]\nevery_link = true\n");
  ASSERT_EQ(topology.steps.size(), 14U);
  EXPECT_EQ(topology.step_text(topology.steps[0]), "cut n1-n2");
  EXPECT_EQ(topology.step_text(topology.steps[1]), "restore n1-n2");
  EXPECT_EQ(topology.step_text(topology.steps[13]), "restore n6-n3");
}

}  // namespace
}  // namespace erps::lab
