// What the rings are expected to settle to after each step.
#include "lab/script_outlook.h"

#include <gtest/gtest.h>

#include "lab/topology_file.h"
#include "tests/lab/topology_text.h"

namespace erps::lab {
namespace {

using testing::four_nodes;
using testing::ladder;
using testing::ring_of_four;

class Outlook : public ::testing::Test {
 protected:
  void read(const std::string& text) {
    const TopologyFile file = parse_topology(text);
    ASSERT_FALSE(file.findings.has_errors()) << to_text(file.findings, "f");
    topology_ = file.topology;
    Findings none;
    steps_ = script_outlook(topology_, none);
  }

  // "protection n1:n1-n2 n2:n1-n2"
  std::string ring(size_t step, RingIndex index = 0) const {
    const RingOutlook& outlook = steps_[step].rings[index];
    std::string text = outlook.state ? state_name(*outlook.state) : "unknown";
    if (!outlook.blocked) {
      return text + " any";
    }
    for (const PortRef& port : *outlook.blocked) {
      text += " " + topology_.port_text(port);
    }
    return text;
  }

  Topology topology_;
  std::vector<StepOutlook> steps_;
};

TEST_F(Outlook, AWholeRingIsIdleWithItsRplBlockedAtBothEnds) {
  read(four_nodes() + ring_of_four());
  EXPECT_EQ(ring(0), "idle n1:n4-n1 n4:n4-n1");
}

TEST_F(Outlook, WithoutNeighbourOnlyTheOwnerBlocks) {
  read(four_nodes() + ring_of_four("neighbour = \"\"\n"));
  EXPECT_EQ(ring(0), "idle n1:n4-n1");
}

TEST_F(Outlook, ACutRingProtectsAndBlocksTheCutLink) {
  read(four_nodes() + ring_of_four() +
       "[[step]]\ncut = \"n2-n3\"\n[[step]]\nrestore = \"n2-n3\"\n");
  EXPECT_EQ(ring(1), "protection n2:n2-n3 n3:n2-n3");
  EXPECT_EQ(ring(2), "idle n1:n4-n1 n4:n4-n1");
}

TEST_F(Outlook, OneOfTwoCutsRestoredLeavesTheOtherProtected) {
  read(four_nodes() + ring_of_four() +
       "[[step]]\ncut = [\"n1-n2\", \"n3-n4\"]\n[[step]]\nrestore = \"n1-n2\"\n");
  EXPECT_EQ(ring(1), "protection n1:n1-n2 n2:n1-n2 n3:n3-n4 n4:n3-n4");
  EXPECT_EQ(ring(2), "protection n3:n3-n4 n4:n3-n4");
  EXPECT_FALSE(steps_[1].stream_judged[0]) << "h1 and h2 have no way to each other";
  EXPECT_FALSE(steps_[2].stream_judged[0]) << "they had none before";
}

TEST_F(Outlook, ANodeThatLostBothRingLinksMayBlockEitherOfThem) {
  read(four_nodes() + ring_of_four() + "[[step]]\ncut = [\"n1-n2\", \"n2-n3\"]\n");
  EXPECT_EQ(ring(1), "protection n1:n1-n2 n3:n2-n3");
  ASSERT_EQ(steps_[1].rings[0].either.size(), 2U);
  EXPECT_EQ(topology_.port_text(steps_[1].rings[0].either[0]), "n2:n1-n2");
  EXPECT_EQ(topology_.port_text(steps_[1].rings[0].either[1]), "n2:n2-n3");
}

TEST_F(Outlook, SwitchesBlockTheirPortUntilTheyAreCleared) {
  read(four_nodes() + ring_of_four() +
       "[[step]]\nforced_switch = \"n2:n1-n2\"\n[[step]]\nclear = \"n2\"\n"
       "[[step]]\nmanual_switch = \"n3:n2-n3\"\n[[step]]\nclear = \"n3\"\n");
  EXPECT_EQ(ring(1), "forced n2:n1-n2");
  EXPECT_EQ(ring(2), "idle n1:n4-n1 n4:n4-n1");
  EXPECT_EQ(ring(3), "manual n3:n2-n3");
  EXPECT_EQ(ring(4), "idle n1:n4-n1 n4:n4-n1");
}

TEST_F(Outlook, ACutEndsAManualSwitchForGood) {
  read(four_nodes() + ring_of_four() +
       "[[step]]\nmanual_switch = \"n3:n2-n3\"\n[[step]]\ncut = \"n3-n4\"\n"
       "[[step]]\nrestore = \"n3-n4\"\n");
  EXPECT_EQ(ring(2), "protection n3:n3-n4 n4:n3-n4");
  EXPECT_EQ(ring(3), "idle n1:n4-n1 n4:n4-n1");
}

TEST_F(Outlook, AKilledDaemonIsNotAskedAndChangesNothing) {
  read(four_nodes() + ring_of_four() + "[[step]]\nkill = \"n2\"\n[[step]]\nstart = \"n2\"\n");
  EXPECT_EQ(ring(1), "idle n1:n4-n1 n4:n4-n1");
  EXPECT_FALSE(steps_[1].daemon_runs[1]);
  EXPECT_TRUE(steps_[2].daemon_runs[1]);
}

TEST_F(Outlook, TheFileSaysWhatCannotBeTold) {
  read(four_nodes() + ring_of_four() +
       "[[step]]\nforced_switch = \"n1:n1-n2\"\n"
       "[[step]]\ncut = \"n2-n3\"\nstate = { 1 = \"forced\" }\nblocked = [\"n1:n1-n2\"]\n");
  EXPECT_EQ(ring(2), "forced n1:n1-n2");
}

TEST_F(Outlook, AStateOfTheFileThatDiffersLeavesTheBlockedPortsOpen) {
  read(four_nodes() + ring_of_four() + "[[step]]\ncut = \"n2-n3\"\nstate = { 1 = \"pending\" }\n");
  EXPECT_EQ(ring(1), "pending any");
}

TEST_F(Outlook, ACutInOneRingLeavesTheOtherIdle) {
  read(ladder() +
       "[[step]]\ncut = \"n1-n2\"\n[[step]]\nrestore = \"n1-n2\"\n"
       "[[step]]\ncut = \"n2-n5\"\n");
  EXPECT_EQ(ring(1, 0), "protection n1:n1-n2 n2:n1-n2");
  EXPECT_EQ(ring(1, 1), "idle n5:n5-n6 n6:n5-n6");
  EXPECT_EQ(ring(3, 0), "idle n1:n4-n1 n4:n4-n1");
  EXPECT_EQ(ring(3, 1), "protection n2:n2-n5 n5:n2-n5");
}

TEST_F(Outlook, ASubRingStandsInWhenItsMajorRingIsSplit) {
  read(ladder() + "[[step]]\ncut = [\"n1-n2\", \"n2-n3\"]\n");
  EXPECT_EQ(ring(1, 1), "manual");
}

TEST_F(Outlook, TwoCutsThatDoNotSeparateTheInterconnectionNodesLeaveTheSubRingIdle) {
  read(ladder() + "[[step]]\ncut = [\"n1-n2\", \"n4-n1\"]\n");
  EXPECT_EQ(ring(1, 1), "idle n5:n5-n6 n6:n5-n6");
}

TEST_F(Outlook, BoundsFollowTheKindOfStepAndTheStepItself) {
  read(four_nodes() + ring_of_four() +
       "[expect]\ncut_outage_ms = 50\nrestore_outage_ms = 10\nduplicates = 0\n"
       "[[step]]\ncut = \"n2-n3\"\n[[step]]\nrestore = \"n2-n3\"\n"
       "[[step]]\ncut = \"n1-n2\"\noutage_ms = 80\nduplicates = 3\n[[step]]\nwait_ms = 10\n");
  EXPECT_EQ(steps_[1].outage_ms, 50.0);
  EXPECT_EQ(steps_[2].outage_ms, 10.0);
  EXPECT_EQ(steps_[3].outage_ms, 80.0);
  EXPECT_EQ(steps_[3].duplicates, 3U);
  EXPECT_FALSE(steps_[4].outage_ms);
  EXPECT_EQ(steps_[4].duplicates, 0U);
}

}  // namespace
}  // namespace erps::lab
