// What the protocol does by itself, each thing with its name, and what keeps a network from it.
#include <gmock/gmock.h>

#include <algorithm>

#include "sim/checks/graph.h"
#include "sim/checks/surprises.h"
#include "tests/ring/test_network.h"
#include "tests/ring/violations.h"

namespace erps::sim {

namespace {

using testing::Contains;
using testing::Each;
using testing::ElementsAre;
using testing::Field;
using testing::IsEmpty;
using testing::Not;

}  // namespace

// The sub-ring comes home while its major ring is split, and joins the parts. A switch that is
// forced at that end in between makes it forget, and it does not do so again.
TEST(SubRing, ForgetsTheSplitOfItsMajorRingWhenACommandTakesThePlaceOfItsOwnSwitch) {
  constexpr NodeIndex kWatchingNode = 1;
  constexpr uint32_t kSubRing = 2;
  constexpr uint32_t kSubRingPort = 3;
  constexpr LinkIndex kOfSubRing = 4;
  for (const bool switched : {false, true}) {
    Simulation simulation(make_ladder({}), options_with(1));
    Inspection inspection(simulation);
    inspection.expect_home();
    simulation.cut(kOfSubRing);
    simulation.run_for(kSettledUs);
    simulation.restore(kOfSubRing);
    simulation.run_for(2 * kSecondUs);
    simulation.cut(0);
    simulation.cut(1);
    simulation.run_for(2 * kSettledUs);
    EXPECT_FALSE(has_partition(simulation.forwarding()));
    if (switched) {
      simulation.execute(kWatchingNode,
                         make_request(mgmt::kForcedSwitch, {kSubRing, kSubRingPort}));
      simulation.run_for(kSettledUs);
      simulation.execute(kWatchingNode, make_request(mgmt::kClear, {kSubRing}));
    }
    simulation.run_for(60 * kSecondUs);
    EXPECT_EQ(has_partition(simulation.forwarding()), switched);
    simulation.restore(0);
    simulation.run_for(2 * kSettledUs);
    EXPECT_FALSE(has_partition(simulation.forwarding()));
    EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
    const auto found = inspection.findings();
    EXPECT_EQ(std::any_of(found.begin(), found.end(),
                          [](const Finding& finding) {
                            return finding.surprise.find(surprise::kSplitForgotten) !=
                                   std::string::npos;
                          }),
              switched);
  }
}

// A ladder whose major ring is split, and whose sub-ring joins the parts.
class JoiningSubRing : public testing::Test {
 protected:
  static constexpr NodeIndex kWatchingNode = 1;
  static constexpr NodeIndex kOwner = 4;
  static constexpr uint32_t kSubRing = 2;

  JoiningSubRing() {
    inspection.expect_home();
    simulation.cut(0);
    simulation.cut(1);
    simulation.run_for(kSettledUs);
  }

  void give(NodeIndex node, mgmt::Command command, uint32_t port = 0) {
    EXPECT_TRUE(simulation.execute(node, make_request(command, {kSubRing, port})).accepted());
    simulation.run_for(kSecondUs / 2);
  }

  void expect_loop_when_the_major_ring_is_whole() {
    EXPECT_FALSE(has_loop(simulation.forwarding()));
    simulation.restore(0);
    simulation.run_for(60 * kSecondUs);
    EXPECT_TRUE(has_loop(simulation.forwarding()));
    const auto loops = loops_in(inspection);
    ASSERT_THAT(loops, Not(IsEmpty()));
    EXPECT_EQ(loops.back().surprise, surprise::kSplitOutlived);
  }

  void expect_home_by_a_forced_switch() {
    give(kOwner, mgmt::kForcedSwitch, 1);
    EXPECT_FALSE(has_loop(simulation.forwarding()));
    give(kOwner, mgmt::kClear);
    simulation.restore(1);
    inspection.expect_home();
    EXPECT_FALSE(has_loop(simulation.forwarding()));
    EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
  }

  Simulation simulation{make_ladder({}), options_with(1)};
  Inspection inspection{simulation};
};

// Another manual switch takes the end that joins the major ring to pending, where it does not heed
// the end of the split: it goes on repeating R-APS(MS), its port is open, and the RPL opens on
// that.
TEST_F(JoiningSubRing, GoesOnWhereAManualSwitchMetItsOwn) {
  // A node that starts says R-APS(NR), and the others take a switch again.
  simulation.kill_module(5);
  simulation.start_module(5);
  simulation.run_for(kSecondUs);
  give(kOwner, mgmt::kManualSwitch, 1);
  give(kOwner, mgmt::kClear);
  expect_loop_when_the_major_ring_is_whole();
  give(kWatchingNode, mgmt::kClear);
  expect_home_by_a_forced_switch();
}

// A clear at the watching node finds no block there to tell of.
TEST_F(JoiningSubRing, GoesOnWhereItsOwnSwitchWasCleared) {
  give(kWatchingNode, mgmt::kClear);
  expect_loop_when_the_major_ring_is_whole();
  expect_home_by_a_forced_switch();
}

// Both nodes beside a link have another failure, and leave it open.
TEST_F(JoiningSubRing, GoesOnWhereALinkThatFailedSecondComesBack) {
  give(kWatchingNode, mgmt::kClear);
  simulation.cut(2);
  simulation.run_for(kSecondUs);
  simulation.restore(1);
  simulation.run_for(kSecondUs);
  simulation.cut(1);
  simulation.run_for(kSecondUs);
  EXPECT_FALSE(has_loop(simulation.forwarding()));
  simulation.restore(1);
  simulation.run_for(60 * kSecondUs);
  EXPECT_TRUE(has_loop(simulation.forwarding()));
  EXPECT_THAT(loops_in(inspection), Each(Field(&Finding::surprise, surprise::kSplitOutlived)));
}

// The clear of a forced switch finds no block whose link is up, and leaves the node pending; that
// of a manual switch finds none either, and the R-APS(MS) goes on. When the other node is back it
// opens on that, and is alone.
TEST(ManualSwitch, GoesOnWhereItIsClearedWhileItsOwnLinkIsDown) {
  constexpr NodeIndex kNeighbour = 1;
  Simulation simulation(make_ring({.nodes = 2, .ring_role = 1, .owner_has_lowest_id = false}),
                        options_with(1));
  Inspection inspection(simulation);
  const auto give = [&](mgmt::Command command, uint32_t port = 0) {
    EXPECT_TRUE(simulation.execute(kNeighbour, make_request(command, {kRing, port})).accepted());
    simulation.run_for(kSecondUs / 2);
  };
  inspection.expect_home();
  give(mgmt::kForcedSwitch, 1);
  simulation.crash(0);
  simulation.run_for(kSecondUs);
  give(mgmt::kClear);
  give(mgmt::kManualSwitch, 2);
  give(mgmt::kClear);
  simulation.restart(0);
  simulation.run_for(60 * kSecondUs);
  EXPECT_TRUE(has_partition(simulation.forwarding()));
  give(mgmt::kManualSwitch, 1);
  EXPECT_FALSE(has_partition(simulation.forwarding()));
  give(mgmt::kClear);
  inspection.expect_home();
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
  EXPECT_THAT(inspection.findings(),
              Contains(Field(&Finding::surprise, testing::HasSubstr(surprise::kManualStuck))));
}

// A clear that finds it pending takes it to idle, and only R-APS(NR,RB) in pending blocks.
TEST(Neighbour, GoesIdleWithTheRplOpenByAClearWhilePending) {
  constexpr NodeIndex kOwner = 0;
  constexpr NodeIndex kNeighbour = 3;
  Simulation simulation(make_ring({}), options_with(1));
  Inspection inspection(simulation);
  const auto give = [&](NodeIndex node, mgmt::Command command, uint32_t port = 0) {
    EXPECT_TRUE(simulation.execute(node, make_request(command, {kRing, port})).accepted());
    simulation.run_for(kSecondUs);
  };
  inspection.expect_home();
  give(1, mgmt::kManualSwitch, 1);
  give(kNeighbour, mgmt::kManualSwitch, 1);  // noted, and nothing more
  give(1, mgmt::kClear);
  simulation.run_for(kSettledUs);
  EXPECT_FALSE(simulation.port_forwards({kOwner, 1}));
  give(2, mgmt::kManualSwitch, 1);
  give(2, mgmt::kClear);
  give(kNeighbour, mgmt::kClear);
  inspection.expect_home();
  EXPECT_TRUE(simulation.port_forwards({kNeighbour, 2}));
  EXPECT_FALSE(simulation.port_forwards({kOwner, 1}));
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
  EXPECT_THAT(inspection.findings(),
              Contains(Field(&Finding::surprise, testing::HasSubstr(surprise::kNeighbourOpen))));
}

// Two sub-rings of one major ring, of nodes 0 to 3: the ladder's one at nodes 1, which watches, and
// 2, and another one at nodes 0, which watches, and 3.
class TwoSubRings : public testing::Test {
 protected:
  static Topology topology() {
    constexpr uint32_t kMajorRing = 1;
    constexpr uint32_t kSecond = 3;
    Topology topology = make_ladder({});
    const RingConfig middle = topology.nodes[4].rings[0];
    const auto add_node = [&](uint8_t end_of_address, uint32_t role, uint32_t port0,
                              uint32_t port1) {
      NodePlan node = topology.nodes[4];
      node.name = "n" + std::to_string(topology.nodes.size() + 1);
      node.address.back() = end_of_address;
      node.rings = {middle};
      node.rings[0].ring = kSecond;
      node.rings[0].node_role = role;
      node.rings[0].port0 = port0;
      node.rings[0].port1 = port1;
      topology.nodes.push_back(node);
    };
    add_node(0, 1, 1, 2);   // the owner, with the lowest address
    add_node(99, 2, 2, 1);  // the neighbour, whose RPL port leads to the owner
    constexpr uint32_t kPort = 3;
    topology.nodes[0].sub_rings.push_back({kMajorRing, kSecond, kPort, 4, 1});
    topology.nodes[3].sub_rings.push_back({kMajorRing, kSecond, kPort, 4, 0});
    const Range delay_us = topology.links[0].delay_us;
    topology.links.push_back({{LinkEnd{0, kPort}, LinkEnd{6, 1}}, delay_us, {}});
    topology.links.push_back({{LinkEnd{6, 2}, LinkEnd{7, 1}}, delay_us, {}});
    topology.links.push_back({{LinkEnd{7, 2}, LinkEnd{3, kPort}}, delay_us, {}});
    return topology;
  }

  void SetUp() override {
    inspection.expect_home();
    ASSERT_TRUE(inspection.clean()) << text_of(violations(inspection));
  }
  std::vector<std::string> names_of(const std::string& check, int64_t longer_than_us) {
    std::vector<std::string> names;
    for (const Finding& finding : inspection.findings()) {
      if (finding.check == check && finding.to_us - finding.from_us > longer_than_us) {
        names.push_back(finding.surprise);
      }
    }
    return names;
  }

  Simulation simulation{topology(), options_with(1)};
  Inspection inspection{simulation};
};

// Links 1-2 and 3-0: either half of the major ring has an end of either sub-ring.
TEST_F(TwoSubRings, BothJoinTheHalvesOfTheirMajorRingUntilOneIsBrokenByHand) {
  simulation.cut(1);
  simulation.run_for(kSettledUs);
  EXPECT_THAT(loops_in(inspection), IsEmpty());
  simulation.cut(3);
  simulation.run_for(60 * kSecondUs);
  EXPECT_TRUE(has_loop(simulation.forwarding()));
  simulation.execute(6, make_request(mgmt::kForcedSwitch, {3, 1}));
  simulation.run_for(kSecondUs);
  EXPECT_FALSE(has_loop(simulation.forwarding()));
  EXPECT_FALSE(has_partition(simulation.forwarding()));
  EXPECT_THAT(names_of("loop", kSecondUs), Each(std::string(surprise::kTwoRepair)));
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
}

// Link 2-3 lies between the marking nodes: what either says of it is marked, and not counted.
TEST_F(TwoSubRings, DoNotRepairASplitBehindEachOthersMarks) {
  simulation.cut(2);
  simulation.run_for(kSettledUs);
  simulation.cut(1);
  simulation.run_for(60 * kSecondUs);
  EXPECT_TRUE(has_partition(simulation.forwarding()));
  simulation.restore(2);
  simulation.run_for(kSettledUs);
  EXPECT_FALSE(has_partition(simulation.forwarding()));
  EXPECT_THAT(names_of("partition", 30 * kSecondUs),
              ElementsAre(testing::HasSubstr(surprise::kForeignMark)));
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
}

}  // namespace erps::sim
