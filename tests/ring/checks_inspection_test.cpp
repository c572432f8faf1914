// The inspection finds what is planted, and is silent where nothing is.
#include <gmock/gmock.h>

#include <algorithm>
#include <set>

#include "sim/checks/inspection.h"
#include "sim/checks/raps_dissector.h"
#include "sim/checks/ring_model.h"
#include "sim/checks/state_checker.h"
#include "sim/checks/surprises.h"
#include "tests/ring/test_network.h"
#include "tests/ring/violations.h"

namespace erps::sim {

namespace {

using testing::Contains;
using testing::Field;
using testing::IsEmpty;

std::vector<uint8_t> sound_frame() {
  std::vector<uint8_t> frame{0x01, 0x19, 0xA7, 0,    0,    1,   0x02, 0,    0,    0,
                             0,    3,    0x81, 0x00, 0xE0, 100, 0x89, 0x02, 0x01, 40,
                             0,    32,   0xB0, 0x20, 0x02, 0,   0,    0,    0,    3};
  frame.resize(55);
  return frame;
}

}  // namespace

TEST(RapsDissector, TakesASoundFrameAndRefusesOneWithAnyOctetOfItsFormWrong) {
  EXPECT_EQ(dissect(sound_frame()), FrameFault::kNone);
  const std::vector<std::tuple<size_t, uint8_t, FrameFault>> faults{
      {0, 0x03, FrameFault::kDestination},  {5, 240, FrameFault::kRingId},
      {6, 0x03, FrameFault::kSource},       {16, 0x88, FrameFault::kEtherType},
      {18, 0x02, FrameFault::kVersion},     {19, 41, FrameFault::kOpcode},
      {20, 1, FrameFault::kFlags},          {21, 31, FrameFault::kTlvOffset},
      {22, 0x10, FrameFault::kRequest},     {22, 0xB1, FrameFault::kSubCode},
      {22, 0xE1, FrameFault::kSubCode},     {22, 0xBA, FrameFault::kMarkedSubCode},
      {22, 0xEA, FrameFault::kMarkedEvent}, {23, 0x01, FrameFault::kStatus},
      {23, 0x80, FrameFault::kStatus},      {24, 0x03, FrameFault::kNodeId},
      {30, 1, FrameFault::kReserved},       {53, 1, FrameFault::kReserved},
      {54, 1, FrameFault::kEndTlv}};
  for (const auto& [offset, value, fault] : faults) {
    std::vector<uint8_t> frame = sound_frame();
    if (offset == 16) {
      frame[offset] = value;
    } else {
      frame.at(offset) = value;
    }
    EXPECT_EQ(dissect(frame), fault) << "octet " << offset;
  }
  std::vector<uint8_t> shorter = sound_frame();
  shorter.pop_back();
  EXPECT_EQ(dissect(shorter), FrameFault::kTooShort);
  std::vector<uint8_t> padded = sound_frame();
  padded.resize(60);
  EXPECT_EQ(dissect(padded), FrameFault::kNone);
  padded.back() = 1;
  EXPECT_EQ(dissect(padded), FrameFault::kTrailer);
}

namespace {

// Whether a violation was found by this check, and none by another one but those named.
testing::AssertionResult found(Inspection& inspection, const std::string& check,
                               const std::set<std::string>& also = {}) {
  const auto all = violations(inspection);
  const bool is_there = std::any_of(all.begin(), all.end(),
                                    [&](const Finding& finding) { return finding.check == check; });
  const bool is_alone = std::all_of(all.begin(), all.end(), [&](const Finding& finding) {
    return finding.check == check || also.count(finding.check) != 0;
  });
  return (is_there && is_alone ? testing::AssertionSuccess() : testing::AssertionFailure())
         << text_of(all);
}

}  // namespace

// A ring that came home without a violation, and what is done to it then.
class Planted : public testing::Test {
 protected:
  void SetUp() override {
    inspection.expect_home();
    ASSERT_TRUE(inspection.clean()) << text_of(violations(inspection));
  }

  Simulation simulation{make_ring({}), options_with(1)};
  Inspection inspection{simulation};
};

TEST_F(Planted, AFrameThatNobodyShouldSendIsFound) {
  std::vector<uint8_t> frame = sound_frame();
  frame[11] = 99;    // a stranger's
  frame[22] = 0x10;  // with a request that there is not
  simulation.inject({1, 1}, frame);
  simulation.run_for(kSecondUs);
  EXPECT_TRUE(found(inspection, "frame"));
}

// Everybody believes a failure that nobody has: both ends of the RPL open, and all links are whole.
TEST_F(Planted, ALoopThatAForgedMessageMakesIsFound) {
  std::vector<uint8_t> frame = sound_frame();
  frame[11] = frame[29] = 99;
  simulation.inject({1, 1}, frame);
  simulation.run_for(kSecondUs);
  EXPECT_TRUE(found(inspection, "loop"));
}

// Everybody believes that a failure is over which is not: the RPL closes beside it.
TEST_F(Planted, APartitionThatForgedMessagesMakeIsFound) {
  simulation.cut(1);
  simulation.run_for(kSettledUs);
  std::vector<uint8_t> frame = sound_frame();
  frame[11] = frame[29] = 99;
  frame[22] = 0x00;
  for (const uint8_t status : {0x00, 0x80}) {
    frame[23] = status;
    simulation.inject({3, 1}, frame);
    simulation.run_for(kSecondUs);
  }
  simulation.run_for(kSettledUs);
  EXPECT_TRUE(found(inspection, "partition"));
}

// What a switch refuses to do explains what it is the reason of, and no more.
TEST_F(Planted, ARefusedPlatformCallIsNamed) {
  simulation.fail_call(1, "adp_transmit_frame", 1, 2);
  simulation.fail_call(2, "adp_transmit_frame", 1, 2);
  simulation.cut(1);
  simulation.run_for(kSettledUs);
  simulation.restore(1);
  inspection.expect_home();
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
  EXPECT_THAT(inspection.findings(),
              Contains(Field(&Finding::surprise, testing::HasSubstr(surprise::kCallFailed))));
}

TEST_F(Planted, ALinkThatFailsOneWayUnseenIsNamed) {
  simulation.fail_strand(1, 0, true);
  simulation.run_for(kSettledUs);
  simulation.repair_strand(1, 0);
  inspection.expect_home();
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
  EXPECT_THAT(inspection.findings(),
              Contains(testing::AllOf(Field(&Finding::check, "partition"),
                                      Field(&Finding::surprise, surprise::kSilentFailure))));
}

TEST_F(Planted, ATimerOfAFastClockIsFound) {
  simulation.set_clock_drift(0, 1'000'000);
  simulation.cut(1);
  simulation.run_for(kSettledUs);
  simulation.restore(1);
  simulation.run_for(60 * kSecondUs);
  EXPECT_TRUE(found(inspection, "timer"));
}

// Nobody is told to repeat less often, but a slow clock does.
TEST_F(Planted, ARepetitionOfASlowClockIsFound) {
  simulation.set_clock_drift(0, -500'000);
  simulation.run_for(60 * kSecondUs);
  EXPECT_TRUE(found(inspection, "timer"));
}

// It finds no block whose link is up, and leaves alone the guard time of the clear before.
TEST(Inspection, TakesNoGuardTimeForStartedByAClearThatFindsNoBlock) {
  Simulation simulation(make_ring({.guard_ms = 3000}), options_with(1));
  Inspection inspection(simulation);
  inspection.expect_home();
  const auto give = [&](mgmt::Command command, uint32_t port) {
    EXPECT_TRUE(simulation.execute(1, make_request(command, {kRing, port})).accepted());
  };
  give(mgmt::kManualSwitch, 1);
  simulation.run_for(kSettledUs);
  give(mgmt::kClear, 0);
  give(mgmt::kForcedSwitch, 1);
  simulation.cut(0);
  simulation.run_for(2 * kSecondUs);
  give(mgmt::kClear, 0);
  simulation.run_for(kSettledUs);
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
}

// Somebody sends under the address of a node that is elsewhere; no flush ever touches it.
TEST_F(Planted, AnAddressLearntOnTheWrongSideIsFound) {
  std::vector<uint8_t> frame(64);
  std::fill_n(frame.begin(), 6, 0xFF);
  const MacAddress& station = simulation.topology().nodes[0].address;
  std::copy(station.begin(), station.end(), frame.begin() + 6);
  simulation.inject({1, 2}, frame);
  simulation.run_for(30 * kSecondUs);
  EXPECT_TRUE(found(inspection, "learnt address"));
}

// A node does not do with a failure what its plan says.
TEST_F(Planted, AStateThatTheLastEventDoesNotExplainIsFound) {
  constexpr uint32_t kHoldoffMs = 2000;
  EXPECT_TRUE(simulation.execute(1, make_request(mgmt::kSetHoldoffTime, {kHoldoffMs})).accepted());
  simulation.cut(1);
  simulation.run_for(kSettledUs);
  EXPECT_TRUE(found(inspection, "state", {"timer", "partition"}));
}

TEST_F(Planted, ARingThatDoesNotComeHomeIsFound) {
  simulation.crash(0);
  simulation.run_for(kSecondUs);
  inspection.expect_home();
  EXPECT_TRUE(found(inspection, "home"));
}

TEST(StateChecker, KnowsAProtectionThatNobodyAskedFor) {
  const Topology topology = make_ring({});
  StateChecker checker(topology);
  RingSnapshot before;
  before.ring = 1;
  before.node_role = 4;
  before.enabled = true;
  before.state = static_cast<uint32_t>(RingState::kIdle);
  before.ports[0] = {1, true, false, true, true, 0, {}, 0};
  before.ports[1] = {2, true, false, true, true, 0, {}, 0};
  RingSnapshot after = before;
  Step step;
  step.node = 1;
  step.cause = Step::Cause::kFrame;
  step.port = 1;
  step.before = &before;
  step.after = &after;
  const auto found = [&] {
    std::vector<Finding> findings;
    checker.collect(0, findings);
    return findings;
  };
  constexpr uint32_t kSf = 1U << 16U | 0xB000U;
  constexpr uint32_t kNrRb = 1U << 16U | 0x80U;
  after.state = static_cast<uint32_t>(RingState::kProtection);
  step.message = {kSf, 5};
  checker.on_step(step);
  EXPECT_THAT(found(), IsEmpty());
  step.message = {kNrRb, 5};
  checker.on_step(step);
  EXPECT_EQ(found().size(), 1U);
  // A guarded node hears nothing.
  before.guard_running = after.guard_running = true;
  step.message = {kSf, 5};
  checker.on_step(step);
  EXPECT_EQ(found().size(), 2U);
  // A failed port that goes on forwarding.
  before.guard_running = after.guard_running = false;
  step.cause = Step::Cause::kLink;
  step.port = 2;
  step.up = false;
  after.ports[1].link_up = false;
  after.local_priority = static_cast<uint32_t>(RingRequest::kSf);
  after.sending = true;
  after.tx_request = 11;
  checker.on_step(step);
  EXPECT_EQ(found().size(), 3U);
  after.ports[1].forwarding = false;
  checker.on_step(step);
  EXPECT_EQ(found().size(), 3U);
}

// A link that is down may have failed between the two looks of a start only if its carrier changed
// meanwhile.
TEST(StateChecker, AllowsAStartToSeeAFailureAsNewsOnlyWhereThereWasOne) {
  const Topology topology = make_ring({});
  constexpr NodeIndex kNode = 1;
  constexpr int64_t kFromUs = 1000;
  RingSnapshot ring;
  ring.ring = 1;
  ring.node_role = 4;
  ring.enabled = true;
  ring.ports[0] = {1, false, false, false, false, 0, {}, 0};
  ring.ports[1] = {2, false, false, false, false, 0, {}, 0};
  RingModel both_were_down(ring);
  both_were_down.start({false, false});
  RingModel first_was_up(ring);
  first_was_up.start({true, false});
  ASSERT_NE(both_were_down.now.ports[0].forwarding, first_was_up.now.ports[0].forwarding);
  const auto findings_after = [&](const RingSnapshot& after, const std::vector<Record>& records) {
    StateChecker checker(topology);
    for (const Record& record : records) {
      checker.on_record(record);
    }
    Step step;
    step.node = kNode;
    step.from_us = kFromUs;
    step.to_us = kFromUs + 500;
    step.cause = Step::Cause::kCommand;
    step.command = mgmt::kSetEnable;
    step.after = &after;
    checker.on_step(step);
    std::vector<Finding> findings;
    checker.collect(step.to_us, findings);
    return findings.size();
  };
  const Record during{kFromUs + 100, kNode, RecordKind::kCarrier, 1, 0, 0};
  const Record before{kFromUs - 100, kNode, RecordKind::kCarrier, 1, 0, 0};
  const Record elsewhere{kFromUs + 100, kNode + 1, RecordKind::kCarrier, 1, 0, 0};
  EXPECT_EQ(findings_after(both_were_down.now, {}), 0U);
  EXPECT_EQ(findings_after(first_was_up.now, {}), 1U);
  EXPECT_EQ(findings_after(first_was_up.now, {before, elsewhere}), 1U);
  EXPECT_EQ(findings_after(first_was_up.now, {before, during}), 0U);
}

class CleanRing : public testing::TestWithParam<size_t> {};

TEST_P(CleanRing, HasNoViolationUnderCutsAndCrashesAtBothRingRoles) {
  for (const uint32_t ring_role : {0U, 1U}) {
    for (uint64_t seed = 1; seed <= 3; ++seed) {
      RingPlan plan;
      plan.nodes = GetParam();
      plan.ring_role = ring_role;
      Simulation simulation(make_ring(plan), options_with(seed));
      Inspection inspection(simulation);
      Random chance(seed, 1000 + plan.nodes);
      simulation.run_for(10 * kSecondUs);
      for (int fault = 0; fault < 6; ++fault) {
        const size_t place = chance.next() % plan.nodes;
        const bool crashes = chance.next() % 2 == 0;
        crashes ? simulation.crash(place) : simulation.cut(place);
        simulation.run_for(chance.in({0, 15 * kSecondUs}));
        crashes ? simulation.restart(place) : simulation.restore(place);
        simulation.run_for(chance.in({0, 15 * kSecondUs}));
      }
      inspection.expect_home();
      EXPECT_TRUE(inspection.clean()) << "role " << ring_role << ", seed " << seed << "\n"
                                      << text_of(violations(inspection));
    }
  }
}

// One link of the node is down already, and the other one fails at any moment of its ring's start.
TEST(CleanStart, HasNoViolationWhereALinkFailsMeanwhile) {
  constexpr NodeIndex kNode = 2;
  constexpr int64_t kStepUs = 10;
  Options options = options_with(1);
  options.timing.boot_us = {0, 0};
  options.timing.carrier_down_us = {1, 1};
  options.timing.carrier_up_us = {1, 1};
  for (int64_t moment_us = 0; moment_us < 3 * kMillisecondUs; moment_us += kStepUs) {
    for (const LinkIndex first : {LinkIndex{1}, LinkIndex{2}}) {  // n2-n3 and n3-n4
      Simulation simulation(make_ring({.nodes = 4}), options);
      Inspection inspection(simulation);
      simulation.run_for(100 * kMillisecondUs);
      simulation.crash(kNode);
      simulation.cut(first);
      simulation.run_for(kMillisecondUs);
      simulation.restart(kNode);
      simulation.run_for(moment_us);
      simulation.cut(3 - first);
      simulation.run_for(10 * kMillisecondUs);
      EXPECT_TRUE(inspection.clean()) << "after " << moment_us << " us\n"
                                      << text_of(violations(inspection));
    }
  }
}

// One switch at a time, at any node and port, forced and manual, given and cleared.
TEST_P(CleanRing, HasNoViolationUnderSwitchesAtBothRingRoles) {
  for (const uint32_t ring_role : {0U, 1U}) {
    RingPlan plan;
    plan.nodes = GetParam();
    plan.ring_role = ring_role;
    Simulation simulation(make_ring(plan), options_with(plan.nodes));
    Inspection inspection(simulation);
    Random chance(ring_role, 2000 + plan.nodes);
    inspection.expect_home();
    for (int round = 0; round < 6; ++round) {
      const auto place = static_cast<NodeIndex>(chance.next() % plan.nodes);
      const auto port = static_cast<uint32_t>(1 + chance.next() % 2);
      const auto command = chance.next() % 2 == 0 ? mgmt::kForcedSwitch : mgmt::kManualSwitch;
      EXPECT_TRUE(simulation.execute(place, make_request(command, {1, port})).accepted());
      simulation.run_for(chance.in({0, 15 * kSecondUs}));
      EXPECT_TRUE(simulation.execute(place, make_request(mgmt::kClear, {1})).accepted());
      inspection.expect_home();
    }
    EXPECT_TRUE(inspection.clean()) << "role " << ring_role << "\n"
                                    << text_of(violations(inspection));
  }
}

INSTANTIATE_TEST_SUITE_P(Rings, CleanRing, testing::Range<size_t>(2, 17));

TEST(CleanLadder, HasNoViolationUnderSingleCutsAndSwitches) {
  for (uint64_t seed = 1; seed <= 3; ++seed) {
    Simulation simulation(make_ladder({}), options_with(seed));
    Inspection inspection(simulation);
    inspection.expect_home();
    for (LinkIndex link = 0; link < simulation.topology().links.size(); ++link) {
      simulation.cut(link);
      simulation.run_for(kSettledUs);
      simulation.restore(link);
      inspection.expect_home();
    }
    for (const auto command : {mgmt::kForcedSwitch, mgmt::kManualSwitch}) {
      EXPECT_TRUE(simulation.execute(0, make_request(command, {1, 1})).accepted());
      simulation.run_for(kSettledUs);
      EXPECT_TRUE(simulation.execute(0, make_request(mgmt::kClear, {1})).accepted());
      inspection.expect_home();
    }
    EXPECT_TRUE(inspection.clean()) << "seed " << seed << "\n" << text_of(violations(inspection));
  }
}

TEST(Inspection, NamesASplitByAForcedSwitchBesideAFailedLink) {
  Simulation simulation(make_ring({}), options_with(1));
  Inspection inspection(simulation);
  inspection.expect_home();
  simulation.execute(0, make_request(mgmt::kForcedSwitch, {1, 1}));
  simulation.run_for(kSettledUs);
  simulation.cut(1);
  simulation.run_for(kSettledUs);
  simulation.execute(0, make_request(mgmt::kClear, {1}));
  simulation.run_for(60 * kSecondUs);
  simulation.restore(1);
  inspection.expect_home();
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
  EXPECT_THAT(inspection.findings(),
              Contains(Field(&Finding::surprise, testing::HasSubstr(surprise::kForcedLeft))));
}

TEST(Inspection, NamesTheLoopOfCrossedFailureMessagesAndNoOther) {
  Options options = options_with(1);
  // All at once, and after the carriers: a carrier that comes later is a restore itself.
  options.timing.boot_us = {6 * kMillisecondUs, 6 * kMillisecondUs};
  Simulation simulation(make_ring({.revertive = false, .delay_us = {1000, 1000}}), options);
  Inspection inspection(simulation);
  simulation.run_for(10 * kSecondUs);
  simulation.cut(1);
  simulation.run_for(kSettledUs);
  simulation.restore(1);
  simulation.run_for(30 * kSecondUs);
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
  EXPECT_THAT(inspection.findings(),
              Contains(testing::AllOf(Field(&Finding::check, "loop"),
                                      Field(&Finding::surprise, surprise::kCrossedFailures))));
  // The loop is opened, and a forged failure closes the next one.
  simulation.execute(0, make_request(mgmt::kForcedSwitch, {1, 1}));
  simulation.run_for(kSettledUs);
  simulation.execute(0, make_request(mgmt::kClear, {1}));
  std::vector<uint8_t> frame = sound_frame();
  frame[11] = frame[29] = 99;
  simulation.run_for(kSettledUs);
  simulation.inject({1, 1}, frame);
  simulation.run_for(kSettledUs);
  EXPECT_TRUE(found(inspection, "loop"));
}

TEST(Inspection, NamesTheLoopOfALinkThatFailedSecondAtBothEnds) {
  size_t loops = 0;
  for (uint64_t seed = 1; seed <= 5; ++seed) {
    Simulation simulation(make_ladder({}), options_with(seed));
    Inspection inspection(simulation);
    inspection.expect_home();
    simulation.cut(0);
    simulation.cut(2);
    simulation.run_for(kSettledUs);
    simulation.cut(1);
    simulation.run_for(2 * kSettledUs);
    simulation.restore(1);
    simulation.run_for(kSettledUs);
    simulation.restore(0);
    simulation.restore(2);
    inspection.expect_home();
    EXPECT_TRUE(inspection.clean()) << "seed " << seed << "\n" << text_of(violations(inspection));
    for (const Finding& finding : inspection.findings()) {
      if (finding.check == "loop") {
        EXPECT_EQ(finding.surprise, surprise::kSecondFailure);
        ++loops;
      }
    }
  }
  EXPECT_GT(loops, 0U);
}

// Two nodes that watch loop by their configuration, whatever fails: nobody's surprise.
TEST(Inspection, DoesNotNameTheLoopOfTwoWatchingNodes) {
  Simulation simulation(make_ladder({.interconnection_roles = {1, 1}}), options_with(1));
  Inspection inspection(simulation);
  inspection.expect_home();
  simulation.cut(0);
  simulation.run_for(kSettledUs);
  const auto all = violations(inspection);
  EXPECT_THAT(all, Contains(Field(&Finding::check, "loop")));
}

}  // namespace erps::sim
