// The inspection finds what is planted, and is silent where nothing is.
#include <gmock/gmock.h>

#include "sim/checks/inspection.h"
#include "sim/checks/raps_dissector.h"
#include "sim/checks/state_checker.h"
#include "sim/checks/surprises.h"
#include "tests/ring/test_network.h"

namespace erps::sim {

namespace {

using testing::Contains;
using testing::Each;
using testing::Field;
using testing::IsEmpty;
using testing::Not;

std::vector<uint8_t> sound_frame() {
  std::vector<uint8_t> frame{0x01, 0x19, 0xA7, 0,    0,    1,   0x02, 0,    0,    0,
                             0,    3,    0x81, 0x00, 0xE0, 100, 0x89, 0x02, 0x01, 40,
                             0,    32,   0xB0, 0x20, 0x02, 0,   0,    0,    0,    3};
  frame.resize(55);
  return frame;
}

std::vector<Finding> violations(Inspection& inspection) {
  auto findings = inspection.findings();
  std::erase_if(findings, [](const Finding& finding) { return !finding.is_violation(); });
  return findings;
}

std::string text_of(const std::vector<Finding>& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += finding.check + " " + std::to_string(finding.from_us) + ".." +
            std::to_string(finding.to_us) + ": " + finding.text + "\n";
  }
  return text;
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

TEST(Inspection, FindsAFrameThatNobodyShouldSend) {
  Simulation simulation(make_ring({}), options_with(1));
  Inspection inspection(simulation);
  inspection.expect_home();
  EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
  std::vector<uint8_t> frame = sound_frame();
  frame[11] = 99;    // a stranger's
  frame[22] = 0x10;  // with a request that there is not
  simulation.inject({1, 1}, frame);
  simulation.run_for(kSecondUs);
  EXPECT_THAT(violations(inspection), Contains(Field(&Finding::check, "frame")));
}

TEST(Inspection, FindsAPartitionThatNothingExplains) {
  Simulation simulation(make_ring({}), options_with(1));
  Inspection inspection(simulation);
  inspection.expect_home();
  // A dead direction that no carrier tells of: data still looks for its way, and finds none.
  simulation.fail_strand(0, 0, true);
  simulation.run_for(kSettledUs);
  EXPECT_THAT(inspection.findings(),
              Each(Field(&Finding::check, testing::AnyOf("partition", "timer"))));
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

TEST(Inspection, FindsALoopAndARingThatDoesNotComeHome) {
  Simulation simulation(make_ring({.neighbour = false}), options_with(1));
  Inspection inspection(simulation);
  inspection.expect_home();
  // With every R-APS frame lost a restored ring stays as it is.
  simulation.cut(1);
  simulation.run_for(kSettledUs);
  simulation.crash(0);
  simulation.run_for(kSecondUs);
  inspection.expect_home();
  EXPECT_THAT(inspection.findings(), Contains(Field(&Finding::check, "home")));
  EXPECT_FALSE(inspection.clean());
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

INSTANTIATE_TEST_SUITE_P(Rings, CleanRing, testing::Range<size_t>(2, 17));

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

}  // namespace erps::sim
