// The checker of flushes knows, event by event, what a node has to forget, to remember and to tell.
#include "sim/checks/flush_checker.h"

#include <gmock/gmock.h>

#include <algorithm>

#include "erps/mgmt/message.h"
#include "sim/checks/flush_model.h"
#include "sim/checks/inspection.h"
#include "sim/checks/ring_model.h"
#include "sim/checks/surprises.h"
#include "tests/ring/test_network.h"

namespace erps::sim {

namespace {

using testing::Contains;
using testing::Field;

constexpr PortSet kNone{false, false};
constexpr PortSet kFirst{true, false};
constexpr PortSet kSecond{false, true};
constexpr PortSet kBoth{true, true};

constexpr uint32_t kRingOne = 1U << 16U;
constexpr uint32_t kNr = kRingOne;
constexpr uint32_t kNrRb = kRingOne | 0x80U;
constexpr uint32_t kNrRbDnf = kRingOne | 0xC0U;
constexpr uint32_t kSf = kRingOne | 0xB000U;
constexpr uint32_t kSfBpr1 = kRingOne | 0xB020U;
constexpr uint32_t kEvent = kRingOne | 0xE000U;

constexpr uint32_t kSender = 5;
constexpr uint32_t kOtherSender = 6;
constexpr uint32_t kOwner = 1;
constexpr uint32_t kNeighbour = 2;
constexpr uint32_t kPlain = 4;
constexpr uint32_t kMajorRing = 0;
constexpr uint32_t kSubRing = 2;

PortSnapshot port(uint32_t number, uint32_t sender) {
  PortSnapshot at;
  at.port = number;
  at.present = true;
  at.rpl = number == 2;
  at.link_up = true;
  at.forwarding = true;
  at.rx_node_id = {2, 0, 0, 0, 0, static_cast<uint8_t>(sender)};
  return at;
}

// A ring of node 1 whose ports, 1 and 2, know kSender and kOtherSender.
class FlushStep : public testing::Test {
 protected:
  FlushStep() {
    before.ring = 1;
    before.node_role = kPlain;
    before.enabled = true;
    before.ports = {port(1, kSender), port(2, kOtherSender)};
    before.local_node_id = {2, 0, 0, 0, 0, 2};
    set_state(RingState::kIdle);
    step.node = 1;
    step.before = &before;
    step.after = &after;
  }

  void set_state(RingState state) { before.state = static_cast<uint32_t>(state); }
  void set_local(RingRequest request) { before.local_priority = static_cast<uint32_t>(request); }

  PortSet hears(uint32_t summary, uint32_t sender, uint32_t in_port = 1) {
    step.cause = Step::Cause::kFrame;
    step.port = in_port;
    step.message = {summary, sender};
    after = before;
    return ports_to_flush(step);
  }
  PortSet loses_link(size_t place, Step::Cause cause = Step::Cause::kLink) {
    step.cause = cause;
    step.port = before.ports[place].port;
    step.up = false;
    after = before;
    after.ports[place].link_up = false;
    after.ports[place].forwarding = false;
    return ports_to_flush(step);
  }
  PortSet is_switched(mgmt::Command command, size_t place) {
    step.cause = Step::Cause::kCommand;
    step.command = command;
    step.argument = 1;
    after = before;
    after.ports[place].forwarding = false;
    return ports_to_flush(step);
  }
  PortSet delay_ends() {
    step.cause = Step::Cause::kTimer;
    after = before;
    after.state = static_cast<uint32_t>(RingState::kIdle);
    after.ports[1].forwarding = false;
    return ports_to_flush(step);
  }

  // What the checker says when the event is over, having seen these ports flushed.
  std::vector<Finding> judged(std::initializer_list<uint32_t> flushed = {}) {
    FlushChecker checker(topology);
    checker.on_record({0, 1, RecordKind::kEvent, 0, 2, 0});
    for (const uint32_t at : flushed) {
      checker.on_record({0, 1, RecordKind::kFlush, at, 0, 0});
    }
    for (const uint32_t summary : sent) {
      checker.on_record({0, 1, RecordKind::kFrameSent, 1, summary, 2});
    }
    checker.on_step(step);
    std::vector<Finding> findings;
    checker.collect(0, findings);
    return findings;
  }

  const Topology topology = make_ring({});
  RingSnapshot before;
  RingSnapshot after;
  std::vector<uint32_t> sent;
  Step step;
};

}  // namespace

TEST_F(FlushStep, AMessageOfAnotherSenderFlushesWhereItComesIn) {
  set_state(RingState::kProtection);
  EXPECT_EQ(hears(kSf, 7), kFirst);
  EXPECT_EQ(hears(kSf, 7, 2), kSecond);
  EXPECT_EQ(hears(kEvent, 7), kFirst);
  EXPECT_EQ(hears(kSfBpr1, kSender), kFirst);
  EXPECT_EQ(hears(kSf, kSender), kNone);
  EXPECT_EQ(hears(kNrRbDnf, 7), kNone);
  EXPECT_EQ(hears(kNr, 7), kNone);
  EXPECT_EQ(hears(kSf, 2), kNone) << "its own";
  EXPECT_EQ(hears(kSf, 7, 3), kNone) << "no port of the ring";
}

TEST_F(FlushStep, WhatBothPortsKnewIsFlushedAlready) {
  set_state(RingState::kProtection);
  before.ports[1].rx_node_id = before.ports[0].rx_node_id;
  EXPECT_EQ(hears(kSf, 7), kNone);
  before.ports[1].rx_bpr = 1;
  EXPECT_EQ(hears(kSf, 7), kFirst);
}

TEST_F(FlushStep, TheFirstNewsOfAFailureFlushesAllPorts) {
  EXPECT_EQ(hears(kSf, kSender), kBoth);
  before.guard_running = true;
  EXPECT_EQ(hears(kSf, kSender), kNone);
  before.guard_running = false;
  set_local(RingRequest::kFs);
  EXPECT_EQ(hears(kSf, kSender), kNone);
}

TEST_F(FlushStep, TheWayHomeFlushesAllPortsButTheOwners) {
  set_state(RingState::kPending);
  EXPECT_EQ(hears(kNrRb, kSender), kBoth);
  EXPECT_EQ(hears(kNrRbDnf, kSender), kNone);
  before.node_role = kNeighbour;
  EXPECT_EQ(hears(kNrRb, kSender), kBoth);
  before.node_role = kOwner;
  EXPECT_EQ(hears(kNrRb, kSender), kNone);
}

TEST_F(FlushStep, AFailureOfItsOwnFlushesTheFailedPortAndInIdleBoth) {
  EXPECT_EQ(loses_link(1), kBoth);
  EXPECT_EQ(loses_link(1, Step::Cause::kTimer), kBoth);
  set_state(RingState::kProtection);
  EXPECT_EQ(loses_link(1), kSecond);
  EXPECT_EQ(loses_link(0), kFirst);
  before.ports[0].forwarding = false;
  EXPECT_EQ(loses_link(0), kNone) << "blocked before";
  EXPECT_EQ(loses_link(1), kSecond);
  set_local(RingRequest::kFs);
  EXPECT_EQ(loses_link(1), kNone);
}

TEST_F(FlushStep, ASwitchFlushesThePortThatItBlocks) {
  EXPECT_EQ(is_switched(mgmt::kForcedSwitch, 1), kSecond);
  EXPECT_EQ(is_switched(mgmt::kManualSwitch, 0), kFirst);
  before.ports[0].forwarding = false;
  EXPECT_EQ(is_switched(mgmt::kManualSwitch, 0), kNone);
}

TEST_F(FlushStep, AnOwnerThatRevertsFlushesBehindWtrAllPortsAndBehindWtbTheFirst) {
  set_state(RingState::kPending);
  before.node_role = kOwner;
  set_local(RingRequest::kWtr);
  EXPECT_EQ(delay_ends(), kBoth);
  set_local(RingRequest::kWtb);
  EXPECT_EQ(delay_ends(), kFirst);
  before.ports[1].forwarding = false;
  EXPECT_EQ(delay_ends(), kNone) << "blocked before";
}

TEST_F(FlushStep, TheEndOfASubRingHasOnePort) {
  before.ring_role = kSubRing;
  before.ports[1] = {};
  EXPECT_EQ(hears(kSf, kSender), kFirst);
  EXPECT_EQ(hears(kEvent, 7, 9), kFirst) << "through its major ring";
  EXPECT_EQ(loses_link(0), kFirst);
  step.cause = Step::Cause::kIndication;
  after = before;
  EXPECT_EQ(ports_to_flush(step), kNone);
  after.state = static_cast<uint32_t>(RingState::kManual);
  EXPECT_EQ(ports_to_flush(step), kFirst);
}

TEST_F(FlushStep, AMissingFlushIsFound) {
  loses_link(1);
  EXPECT_EQ(judged({1, 2}).size(), 0U);
  EXPECT_EQ(judged({1}).size(), 1U);
  EXPECT_EQ(judged({}).size(), 2U);
}

TEST_F(FlushStep, ASenderThatIsNotRememberedIsFound) {
  hears(kEvent, 7);
  EXPECT_EQ(judged({1}).size(), 1U);
  after.ports[0].rx_node_id[5] = 7;
  EXPECT_EQ(judged({1}).size(), 0U);
  hears(kNr, 7);
  EXPECT_EQ(judged().size(), 1U);
  after.ports[0].rx_node_id = {};
  EXPECT_EQ(judged().size(), 0U);
}

TEST_F(FlushStep, AMessageThatNamesTheOtherPortIsFound) {
  loses_link(1);
  sent = {kSfBpr1};
  EXPECT_EQ(judged({1, 2}).size(), 0U);
  sent = {kSf};
  EXPECT_EQ(judged({1, 2}).size(), 1U);
  is_switched(mgmt::kManualSwitch, 1);
  sent = {kRingOne | 0x7020U};
  EXPECT_EQ(judged({2}).size(), 0U);
  sent = {kRingOne | 0x7000U};
  EXPECT_EQ(judged({2}).size(), 1U);
}

// Node 1 of a ladder: its major ring, and the end of the sub-ring at port 3.
TEST(FlushChecker, ChangesInASubRingHaveToBeToldToTheMajorRing) {
  const Topology topology = make_ladder({});
  FlushChecker checker(topology);
  RingSnapshot sub;
  sub.ring = topology.nodes[1].sub_rings.front().ring;
  sub.ring_role = kSubRing;
  sub.node_role = kPlain;
  sub.enabled = true;
  sub.state = static_cast<uint32_t>(RingState::kForced);
  sub.local_priority = static_cast<uint32_t>(RingRequest::kFs);
  sub.ports[0] = port(3, kSender);
  RingSnapshot major = sub;
  major.ring = topology.nodes[1].sub_rings.front().major_ring;
  major.ring_role = kMajorRing;
  RingSnapshot told = major;
  told.tx_request = 14;
  const auto changes = [&](int64_t at_us) {
    Step step;
    step.node = 1;
    step.cause = Step::Cause::kLink;
    step.port = 3;
    step.up = true;
    step.from_us = at_us;
    step.before = step.after = &sub;
    checker.on_step(step);
  };
  const auto tells = [&](int64_t at_us, const RingSnapshot& now) {
    Step step;
    step.node = 1;
    step.cause = Step::Cause::kTopologyChange;
    step.from_us = at_us;
    step.before = &major;
    step.after = &now;
    checker.on_step(step);
  };
  const auto found = [&](int64_t now_us) {
    std::vector<Finding> findings;
    checker.collect(now_us, findings);
    return findings.size();
  };
  changes(kSecondUs);
  EXPECT_EQ(found(2 * kSecondUs), 0U) << "not yet";
  EXPECT_EQ(found(60 * kSecondUs), 1U);
  tells(2 * kSecondUs, told);
  EXPECT_EQ(found(60 * kSecondUs), 0U);
  changes(3 * kSecondUs);
  tells(3 * kSecondUs, major);
  EXPECT_EQ(found(60 * kSecondUs), 1U) << "no Event";
}

TEST(FlushChecker, KnowsThatAPlatformRefusedToFlush) {
  Simulation simulation(make_ring({}), options_with(1));
  Inspection inspection(simulation);
  inspection.expect_home();
  simulation.fail_call(1, "adp_del_mac_addr_by_intf", 1, 2);
  simulation.cut(1);
  simulation.run_for(kSettledUs);
  simulation.restore(1);
  inspection.expect_home();
  EXPECT_TRUE(inspection.clean());
  EXPECT_THAT(inspection.findings(),
              Contains(testing::AllOf(Field(&Finding::check, "flush"),
                                      Field(&Finding::surprise, surprise::kCallFailed))));
}

}  // namespace erps::sim
