// The verdict on a step.
#include "lab/step_checks.h"

#include <gtest/gtest.h>

#include "lab/text_report.h"
#include "lab/topology_file.h"
#include "tests/lab/topology_text.h"

namespace erps::lab {
namespace {

constexpr int64_t kMs = 1000000;

class Verdict : public ::testing::Test {
 protected:
  void SetUp() override {
    const TopologyFile file = parse_topology(
        testing::four_nodes() + testing::ring_of_four() +
        "[expect]\ncut_outage_ms = 50\nduplicates = 0\nreordered = 0\n[[step]]\ncut = \"n2-n3\"\n");
    ASSERT_FALSE(file.findings.has_errors()) << to_text(file.findings, "f");
    topology_ = file.topology;
    Findings none;
    outlook_ = script_outlook(topology_, none)[1];
    const LinkIndex cut = 1;
    report_.settled = true;
    report_.settled_ns = 20 * kMs;
    report_.stream_judged = {true};
    for (NodeIndex node = 0; node < 4; ++node) {
      RingReport ring{0, NodeState::kProtection, {}};
      if (node == 1 || node == 2) {
        ring.blocked.push_back({node, cut});
      }
      report_.nodes.push_back({true, "", {ring}});
    }
    report_.traffic.emplace();
    report_.traffic->streams.resize(1);
    for (DirectionResult& direction : report_.traffic->streams[0].directions) {
      direction = {.sent = 1000, .outage_ns = 3 * kMs};
    }
  }

  // The checks that do not hold, as one text.
  std::string failed() {
    report_.checks.clear();
    judge_step(topology_, outlook_, report_);
    std::string text;
    for (const Check& check : report_.checks) {
      if (!check.holds) {
        text += check.what + ": " + check.found + "\n";
      }
    }
    return text;
  }
  DirectionResult& direction(size_t index) { return report_.traffic->streams[0].directions[index]; }
  bool as_expected() const {
    return rings_are_as_expected(topology_, outlook_, report_.nodes, nullptr);
  }

  Topology topology_;
  StepOutlook outlook_;
  StepReport report_;
};

TEST_F(Verdict, AStepAsItShouldBePasses) {
  EXPECT_TRUE(as_expected());
  EXPECT_EQ(failed(), "");
}

TEST_F(Verdict, AnOutageAboveItsBoundFails) {
  direction(1).outage_ns = 51 * kMs;
  EXPECT_EQ(failed(), "outage at most 50 ms: 51.00 ms from h2 to h1\n");
  EXPECT_FALSE(is_undecided(outlook_, report_));
}

TEST_F(Verdict, AnOutageThatDoesNotEndFailsHoweverShort) {
  direction(0).outage_ns = 40 * kMs;
  direction(0).still_out = true;
  EXPECT_EQ(failed(), "outage at most 50 ms: 40.00 ms from h1 to h2, and still out\n");
  EXPECT_FALSE(is_undecided(outlook_, report_));
}

TEST_F(Verdict, AnOutageOfAStreamWithoutAWayIsNotJudged) {
  direction(0).outage_ns = 5000 * kMs;
  report_.stream_judged = {false};
  EXPECT_EQ(failed(), "");
}

TEST_F(Verdict, OneDuplicateFails) {
  direction(0).duplicates = 1;
  EXPECT_EQ(failed(), "duplicated frames at most 0: 1\n");
}

TEST_F(Verdict, OneReorderedFrameFailsWhereThatIsBounded) {
  direction(1).reordered = 2;
  EXPECT_EQ(failed(), "reordered frames at most 0: 2\n");
}

TEST_F(Verdict, AFrameLostBehindTheNetworkIsAFaultOfTheMeasurement) {
  report_.traffic->receiver_drops = 7;
  EXPECT_NE(failed().find("measurement is sound: 0 frames could not be sent, 7 were dropped"),
            std::string::npos);
}

TEST_F(Verdict, AStateThatDiffersIsNamed) {
  report_.nodes[0].rings[0].state = NodeState::kIdle;
  report_.settled = false;
  EXPECT_FALSE(as_expected());
  EXPECT_EQ(failed(), "rings settle as expected: n1, ring 1: idle instead of protection\n");
}

TEST_F(Verdict, APortThatIsBlockedInVainIsNamed) {
  report_.nodes[0].rings[0].blocked.push_back({0, 3});
  report_.settled = false;
  EXPECT_FALSE(as_expected());
  EXPECT_EQ(failed(), "rings settle as expected: n1, ring 1: blocks n1:n4-n1 instead of no port\n");
}

TEST_F(Verdict, APortThatShouldBeBlockedIsNamed) {
  report_.nodes[1].rings[0].blocked.clear();
  report_.settled = false;
  EXPECT_EQ(failed(), "rings settle as expected: n2, ring 1: blocks no port instead of n2:n2-n3\n");
}

TEST_F(Verdict, ANodeThatDoesNotAnswerIsNamed) {
  report_.nodes[3] = {false, "no answer", {}};
  report_.settled = false;
  EXPECT_EQ(failed(), "rings settle as expected: n4: no answer\n");
}

TEST_F(Verdict, AnOutageThatThePauseOfTheMachineExplainsIsUndecidedButStillFails) {
  direction(0).outage_ns = 53 * kMs;
  report_.traffic->machine_stall_ns = 7 * kMs;
  EXPECT_EQ(failed(),
            "outage at most 50 ms: 53.00 ms from h1 to h2; this machine itself stood still for "
            "7.00 ms\n");
  EXPECT_TRUE(is_undecided(outlook_, report_));
}

TEST_F(Verdict, AnOutageBeyondThePauseOfTheMachineIsDecided) {
  direction(0).outage_ns = 58 * kMs;
  report_.traffic->machine_stall_ns = 7 * kMs;
  EXPECT_NE(failed(), "");
  EXPECT_FALSE(is_undecided(outlook_, report_));
}

TEST_F(Verdict, ARunOfWhichNobodyCanTellHasNeitherPassedNorFailed) {
  direction(0).outage_ns = 53 * kMs;
  report_.traffic->machine_stall_ns = 7 * kMs;
  EXPECT_NE(failed(), "");
  report_.undecided = true;
  report_.step = 0;
  report_.text = "cut n2-n3";
  RunReport run;
  run.complete = true;
  run.steps = {report_};
  EXPECT_FALSE(run.passed());
  EXPECT_TRUE(run.undecided());
  EXPECT_NE(TextReport(topology_, false).summary(run).find("VOID  1  cut"), std::string::npos);

  run.end_checks.push_back({"daemons stop cleanly", false, "erpsd of n1 ended with status 1"});
  EXPECT_FALSE(run.undecided()) << "something failed beside it";
}

TEST_F(Verdict, ADuplicateIsNeverUndecided) {
  direction(0).outage_ns = 53 * kMs;
  direction(1).duplicates = 1;
  report_.traffic->machine_stall_ns = 7 * kMs;
  EXPECT_NE(failed(), "");
  EXPECT_FALSE(is_undecided(outlook_, report_));
}

}  // namespace
}  // namespace erps::lab
