// States and timers in the trace: each change once, when the event that made it is finished.
#include <gmock/gmock.h>

#include <map>

#include "tests/ring/records.h"
#include "tests/ring/test_network.h"

namespace erps::sim {

namespace {

using testing::ElementsAre;

// The states of one node, in words, as the trace has them.
class StateLog final : public Observer {
 public:
  explicit StateLog(NodeIndex node) : node_(node) {}
  void on_record(const Record& record) override {
    if (record.kind == RecordKind::kState && record.node == node_) {
      states.emplace_back(record.a == (kRing << 8U | kRingGone) ? "gone"
                                                                : state_name(record.a & 0xFFU));
    }
  }
  std::vector<std::string> states;

 private:
  const NodeIndex node_;
};

// For every node and timer of ring 1: when it is due, by the trace.
class TimerLog final : public Observer {
 public:
  void on_record(const Record& record) override {
    if (record.kind == RecordKind::kTimer) {
      const auto key = std::pair(record.node, record.a & 0xFFU);
      if (record.b == kTimerStopped) {
        due_us.erase(key);
      } else {
        due_us[key] = record.time_us + record.b * kMillisecondUs;
      }
    }
  }
  std::map<std::pair<uint32_t, uint32_t>, int64_t> due_us;
};

}  // namespace

TEST(RecordWatch, TellsEveryStateOfAnOwnerThroughACut) {
  StateLog owner(0);
  TestNetwork network(make_ring({}), 1);
  network.simulation.observe(owner);
  network.come_home();
  EXPECT_EQ(owner.states.back(), "idle");
  owner.states.clear();
  network.simulation.cut(1);
  network.simulation.run_for(kSettledUs);
  network.simulation.restore(1);
  network.simulation.run_for(kSecondUs);
  network.come_home();
  EXPECT_THAT(owner.states, ElementsAre("protection", "pending", "idle"));
}

TEST(RecordWatch, TellsOfARingThatIsRemoved) {
  StateLog node(2);
  TestNetwork network(make_ring({}), 1);
  network.simulation.observe(node);
  network.come_home();
  node.states.clear();
  ASSERT_TRUE(network.simulation.execute(2, make_request(mgmt::kSetEnable, {kRing, 0})).accepted());
  ASSERT_TRUE(network.simulation.execute(2, make_request(mgmt::kDeleteRing, {kRing})).accepted());
  ASSERT_FALSE(node.states.empty());
  EXPECT_EQ(node.states.back(), "gone");
}

TEST(RecordWatch, TheTimersOfTheTraceAreThoseThatTheModulesHold) {
  for (uint64_t seed = 1; seed <= 4; ++seed) {
    TimerLog log;
    TestNetwork network(make_ring({}), seed);
    network.simulation.observe(log);
    network.come_home();
    network.simulation.cut(2);
    // Off the ticks, so that no walk is under way.
    for (int i = 0; i < 100; ++i) {
      network.simulation.run_for(277 * kMillisecondUs);
      size_t running = 0;
      for (NodeIndex node = 0; node < 4; ++node) {
        for (const TimerSnapshot& timer : network.simulation.records(node).timers()) {
          const auto found =
              log.due_us.find({static_cast<uint32_t>(node), static_cast<uint32_t>(timer.kind)});
          ASSERT_NE(found, log.due_us.end()) << timer_name(timer.kind);
          const int64_t left_ms = (found->second - network.simulation.now_us()) / kMillisecondUs;
          EXPECT_NEAR(static_cast<double>(left_ms), static_cast<double>(timer.left_ms), 2);
          ++running;
        }
      }
      EXPECT_EQ(running, log.due_us.size());
    }
  }
}

}  // namespace erps::sim
