// Addresses that point away from their stations: which of them a name explains.
#include <gmock/gmock.h>

#include <algorithm>

#include "sim/checks/surprises.h"
#include "tests/ring/records.h"
#include "tests/ring/test_network.h"
#include "tests/ring/violations.h"

namespace erps::sim {

namespace {

using testing::AllOf;
using testing::Contains;
using testing::Field;

constexpr NodeIndex kOwner = 0;
constexpr NodeIndex kSuccessor = 1;
constexpr NodeIndex kNeighbour = 3;  // of the ring of four
constexpr uint32_t kRplPort = 1;
constexpr uint32_t kOtherPort = 2;

class LearningRing : public testing::Test {
 protected:
  explicit LearningRing(const RingPlan& plan, const Options& options = options_with(1))
      : simulation(make_ring(plan), options) {
    simulation.observe(records);
    inspection.expect_home();
  }

  void give(NodeIndex node, mgmt::Command command, uint32_t port = 0) {
    simulation.execute(node, make_request(command, {kRing, port}));
    simulation.run_for(kSecondUs);
  }
  bool arrives(NodeIndex from, NodeIndex to) {
    const uint32_t probe = simulation.send_probe(from, to);
    simulation.run_for(kSecondUs / 10);
    return records.count([=](const Record& record) {
      return record.kind == RecordKind::kProbe && record.node == to && record.a == probe;
    }) != 0;
  }
  void expect_named(const char* surprise) {
    EXPECT_TRUE(inspection.clean()) << text_of(violations(inspection));
    EXPECT_THAT(inspection.findings(), Contains(AllOf(Field(&Finding::check, "learnt address"),
                                                      Field(&Finding::surprise, surprise))));
  }

  Simulation simulation;
  Inspection inspection{simulation};
  Records records;
};

// Two manual switches that met have opened the RPL, and the owner hears its neighbour there. A
// clear blocks the RPL at once.
class ClearWhilePending : public LearningRing {
 protected:
  ClearWhilePending() : LearningRing({.ring_role = 1}) {
    for (const NodeIndex node : {kOwner, kSuccessor}) {
      simulation.ask(node, make_request(mgmt::kManualSwitch, {kRing, kOtherPort}));
    }
    simulation.run_for(kSecondUs);
    EXPECT_TRUE(simulation.port_forwards({kOwner, kRplPort}));
    simulation.send_probe(kNeighbour, std::nullopt);
    simulation.run_for(kSecondUs / 2);
    for (NodeIndex node = 0; node < simulation.topology().nodes.size(); ++node) {
      simulation.execute(node, make_request(mgmt::kClear, {kRing}));
    }
    inspection.expect_home();
    simulation.run_for(kSettledUs);
    EXPECT_FALSE(simulation.port_forwards({kOwner, kRplPort}));
  }
};

class LearningRingOfThree : public LearningRing {
 protected:
  explicit LearningRingOfThree(const Options& options = options_with(1))
      : LearningRing({.nodes = 3, .neighbour = false, .wtr_ms = 1000}, options) {}

  // Nobody has been told to forget the owner.
  void clear_the_owners_switch_before_it_is_told() {
    simulation.send_probe(kOwner, std::nullopt);
    simulation.run_for(kSecondUs / 10);
    give(kOwner, mgmt::kForcedSwitch, kOtherPort);
    simulation.run_for(2 * kSecondUs);
    give(kOwner, mgmt::kClear);
  }
};

// Nodes that are never interrupted: all that an event leads to happens at one moment.
class InstantRingOfThree : public LearningRingOfThree {
 protected:
  InstantRingOfThree() : LearningRingOfThree(without_pauses()) {}

 private:
  static Options without_pauses() {
    Options options = options_with(1);
    options.timing.preempt_one_in = 0;
    return options;
  }
};

// Everybody is pending with the RPL open. The owner's next switch is not told, because its port is
// blocked first, and before it is repeated its successor gives one and clears it: R-APS(NR) goes
// round, which asks for no flush, and opens the successor's port.
class UntoldSwitch : public LearningRingOfThree {
 protected:
  UntoldSwitch() {
    give(kOwner, mgmt::kManualSwitch, kRplPort);
    give(kOwner, mgmt::kClear);
  }

  void switch_untold() { give(kOwner, mgmt::kManualSwitch, kOtherPort); }
  void switch_and_clear_successor() {
    give(kSuccessor, mgmt::kManualSwitch, kOtherPort);
    give(kSuccessor, mgmt::kClear);
  }
  // The owner, which it had learnt before the switch, is round the ring now.
  void let_the_successor_keep_the_owners_address() {
    simulation.send_probe(kOwner, std::nullopt);
    simulation.run_for(kSecondUs / 10);
    switch_untold();
    switch_and_clear_successor();
    simulation.run_for(2 * kSettledUs);
  }
  // It has learnt its successor round the ring. By R-APS(NR) its ports have forgotten whom they
  // knew, and the next switch flushes neither.
  void let_the_owner_keep_the_successors_address() {
    switch_untold();
    simulation.send_probe(kSuccessor, std::nullopt);
    simulation.run_for(kSecondUs / 10);
    switch_and_clear_successor();
    simulation.run_for(kSettledUs);
    switch_and_clear_successor();  // before it is repeated
    simulation.run_for(2 * kSettledUs);
  }
};

}  // namespace

TEST_F(ClearWhilePending, LeavesTheOwnerWithAnAddressAtTheRplUntilItsStationIsHeardFrom) {
  EXPECT_FALSE(arrives(kOwner, kNeighbour));
  EXPECT_TRUE(arrives(kNeighbour, kOwner));
  EXPECT_TRUE(arrives(kOwner, kNeighbour));
}

TEST_F(ClearWhilePending, IsTheNameOfWhatTheOwnerKeeps) {
  expect_named(surprise::kClearFlushesNothing);
}

TEST_F(ClearWhilePending, DoesNotExplainWhatIsLearntLater) {
  std::vector<uint8_t> frame(64);
  std::fill_n(frame.begin(), 6, 0xFF);
  const MacAddress& neighbour = simulation.topology().nodes[kNeighbour].address;
  std::copy(neighbour.begin(), neighbour.end(), frame.begin() + 6);
  simulation.inject({kSuccessor + 1, kRplPort}, frame);
  simulation.run_for(30 * kSecondUs);
  EXPECT_THAT(violations(inspection), Contains(Field(&Finding::check, "learnt address")));
}

TEST_F(LearningRingOfThree, KeepsTheOwnersAddressWhenItsSwitchIsClearedBeforeItIsTold) {
  clear_the_owners_switch_before_it_is_told();
  EXPECT_FALSE(arrives(kSuccessor, kOwner));
  inspection.expect_home();
  EXPECT_TRUE(arrives(kSuccessor, kOwner));
  expect_named(surprise::kHeldBack);
}

// The port that the end of the WTB opens is told of before the way that frames took until then is
// looked at.
TEST_F(InstantRingOfThree, TellsTheOpeningThatLeftAnAddressFromTheNextOne) {
  clear_the_owners_switch_before_it_is_told();
  inspection.expect_home();
  expect_named(surprise::kHeldBack);
}

TEST_F(UntoldSwitch, LeavesTheSuccessorWithTheOwnersAddress) {
  let_the_successor_keep_the_owners_address();
  EXPECT_FALSE(arrives(kSuccessor, kOwner));
  expect_named(surprise::kNrFlushesNothing);
}

TEST_F(UntoldSwitch, IsTheNameForAsLongAsTheNetworkForwardsTheSame) {
  let_the_successor_keep_the_owners_address();
  simulation.restore(0);  // nothing has failed
  simulation.run_for(2 * kSettledUs);
  expect_named(surprise::kNrFlushesNothing);
}

TEST_F(UntoldSwitch, LeavesTheOwnerWithTheSuccessorsAddressAtTheNextSwitch) {
  let_the_owner_keep_the_successors_address();
  EXPECT_FALSE(simulation.port_forwards({kSuccessor, kOtherPort}));
  EXPECT_TRUE(simulation.port_forwards({kOwner, kOtherPort}));
  EXPECT_FALSE(arrives(kOwner, kSuccessor));
  expect_named(surprise::kAlikeAtBothPorts);
}

TEST_F(UntoldSwitch, IsTheNameOfWhatTheOwnerKeepsUntilItLosesItsPower) {
  let_the_owner_keep_the_successors_address();
  simulation.crash(kOwner);
  expect_named(surprise::kAlikeAtBothPorts);
}

}  // namespace erps::sim
