// A node loses its power, and gets it back; a node's module is stopped.
#include "tests/ring/records.h"
#include "tests/ring/test_network.h"

namespace erps::sim {

using Crash = EveryRing;

TEST_P(Crash, OfEveryNodeIsRepairedAndItsReturnIsTakenIn) {
  for (uint64_t seed = 1; seed <= seeds(); ++seed) {
    TestNetwork network(make_ring(plan()), seed);
    network.come_home();
    for (NodeIndex node = 0; node < plan().nodes; ++node) {
      SCOPED_TRACE("seed " + std::to_string(seed) + ", node " + std::to_string(node));
      const int64_t crashed_us = network.simulation.now_us();
      network.simulation.crash(node);
      network.simulation.run_for(kSettledUs);
      EXPECT_LE(network.longest_partition_us(crashed_us), network.detection_us());

      const int64_t restarted_us = network.simulation.now_us();
      network.simulation.restart(node);
      network.simulation.run_for(kSecondUs);
      network.come_home();
      // The node's neighbours are in their guard time when it says its first word.
      EXPECT_LE(network.longest_partition_us(restarted_us), kRepeatUs);
    }
    network.expect_no_loop();
  }
}

TEST_P(Crash, InTheMiddleOfEverythingLeavesNoLoop) {
  for (uint64_t seed = 1; seed <= seeds(); ++seed) {
    TestNetwork network(make_ring(plan()), seed);
    Random chance(seed, 99);
    for (int i = 0; i < 20; ++i) {
      const auto node =
          static_cast<NodeIndex>(chance.in({0, static_cast<int64_t>(plan().nodes) - 1}));
      network.simulation.crash(node);
      network.simulation.run_for(chance.in({0, 2 * kSecondUs}));
      network.simulation.restart(node);
      network.simulation.run_for(chance.in({0, 2 * kSecondUs}));
    }
    network.simulation.run_for(kSecondUs);
    network.come_home();
    network.expect_no_loop();
  }
}

TEST_P(Crash, AStopInGoodOrderEndsBothTasksWithNothingHeld) {
  class Ends : public Observer {
   public:
    void on_record(const Record& record) override {
      ended += record.kind == RecordKind::kTaskEnded ? 1 : 0;
      stopped += record.kind == RecordKind::kStopped && record.a == 0 ? 1 : 0;
    }
    size_t ended = 0;
    size_t stopped = 0;
  } ends;
  TestNetwork network(make_ring(plan()), 1);
  network.come_home();
  network.simulation.observe(ends);
  for (NodeIndex node = 0; node < plan().nodes; ++node) {
    network.simulation.stop_module(node);
  }
  network.simulation.run_for(3 * kSecondUs);
  EXPECT_EQ(ends.ended, 2 * plan().nodes);
  EXPECT_EQ(ends.stopped, plan().nodes);
}

ERPS_FOR_EVERY_RING(Crash);

// A power failure of neighbours takes the carrier between them from both, though the second one had
// lost the signal of the first one already.
TEST(NeighboursWithoutPower, DetectTheirLinkAnewWhenTheyAreBack) {
  TestNetwork network(make_ring({.nodes = 4}), 1);
  network.come_home();
  Records records;
  network.simulation.observe(records);
  for (const NodeIndex node : {NodeIndex{1}, NodeIndex{2}}) {
    network.simulation.crash(node);
  }
  for (const NodeIndex node : {NodeIndex{1}, NodeIndex{2}}) {
    network.simulation.restart(node);
  }
  network.simulation.run_for(kSecondUs);
  for (const NodeIndex node : {NodeIndex{1}, NodeIndex{2}}) {
    for (const uint32_t port : {1U, 2U}) {
      EXPECT_EQ(records.count([=](const Record& record) {
        return record.kind == RecordKind::kCarrier && record.node == node && record.port == port &&
               record.a == 1;
      }),
                1U)
          << "node " << node << ", port " << port;
    }
  }
  network.simulation.stop_observing(records);
}

}  // namespace erps::sim
