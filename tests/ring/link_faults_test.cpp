// Links that fail by halves or treat R-APS badly, and what the data frames see of a ring.
#include <gmock/gmock.h>

#include <map>

#include "tests/ring/test_network.h"

namespace erps::sim {

namespace {

using testing::AnyOf;
using testing::Each;

// Counts where probes arrive.
class Probes : public Observer {
 public:
  void on_record(const Record& record) override {
    if (record.kind == RecordKind::kProbe) {
      ++arrivals_[{record.a, record.node}];
    }
    circulating_ += record.kind == RecordKind::kCirculating ? 1 : 0;
  }
  size_t at(uint32_t probe, NodeIndex node) const {
    const auto found = arrivals_.find({probe, static_cast<uint32_t>(node)});
    return found != arrivals_.end() ? found->second : 0;
  }
  size_t of(uint32_t probe) const {
    size_t total = 0;
    for (const auto& [where, count] : arrivals_) {
      total += where.first == probe ? count : 0;
    }
    return total;
  }
  size_t circulating() const { return circulating_; }

 private:
  std::map<std::pair<uint32_t, uint32_t>, size_t> arrivals_;
  size_t circulating_ = 0;
};

}  // namespace

TEST(LinkFaults, AStrandThatFailsAloneIsRepairedByItsReceiver) {
  for (const size_t end : {size_t{0}, size_t{1}}) {
    for (uint64_t seed = 1; seed <= 10; ++seed) {
      TestNetwork network(make_ring({.nodes = 6}), seed);
      network.come_home();
      const int64_t failed_us = network.simulation.now_us();
      network.simulation.fail_strand(2, end);
      network.simulation.run_for(kSettledUs);
      EXPECT_THAT(network.states(), Each(std::string("protection"))) << "seed " << seed;
      EXPECT_LE(network.longest_partition_us(failed_us), network.detection_us());
      network.simulation.repair_strand(2, end);
      network.come_home();
      network.expect_no_loop();
    }
  }
}

TEST(LinkFaults, ASilentFailureIsNotNoticed) {
  TestNetwork network(make_ring({.nodes = 4}), 1);
  network.come_home();
  network.simulation.fail_strand(0, 0, true);
  network.simulation.fail_strand(0, 1, true);
  network.simulation.run_for(60 * kSecondUs);
  EXPECT_THAT(network.states(), Each(std::string("idle")));
}

TEST(LinkFaults, LostDoubledAndOvertakenRapsFramesLeaveNeitherLoopNorSplit) {
  for (uint64_t seed = 1; seed <= 10; ++seed) {
    Topology topology = make_ring({.nodes = 6});
    for (LinkPlan& link : topology.links) {
      link.raps = {.lost = 100'000, .duplicated = 100'000, .overtaken = 100'000};
    }
    TestNetwork network(topology, seed);
    network.simulation.run_for(60 * kSecondUs);
    for (LinkIndex link = 0; link < 6; ++link) {
      network.simulation.cut(link);
      network.simulation.run_for(20 * kSecondUs);
      network.simulation.restore(link);
      // Every lost message costs a repetition.
      network.simulation.run_for(60 * kSecondUs);
      EXPECT_FALSE(network.is_split()) << "seed " << seed << ", link " << link;
      EXPECT_FALSE(network.simulation.port_forwards({0, 1})) << "seed " << seed;
      for (const std::string& state : network.states()) {
        // A node that heard no NR stays in protection.
        EXPECT_THAT(state, AnyOf(std::string("idle"), std::string("protection")));
      }
    }
    network.expect_no_loop();
  }
}

TEST(LinkFaults, LostFramesCostTime) {
  // The faults above do happen: with every R-APS frame lost, a ring never comes home.
  Topology topology = make_ring({.nodes = 4});
  for (LinkPlan& link : topology.links) {
    link.raps.lost = 1'000'000;
  }
  TestNetwork network(topology, 1);
  EXPECT_TRUE(run_until_home(network.simulation, 60 * kSecondUs));
}

TEST(Data, ABroadcastReachesEveryHostOfAnIdleRingOnce) {
  Probes probes;
  TestNetwork network(make_ring({.nodes = 6}), 1);
  network.simulation.observe(probes);
  network.come_home();
  const uint32_t probe = network.simulation.send_probe(2, std::nullopt);
  network.simulation.run_for(kSecondUs);
  for (NodeIndex node = 0; node < 6; ++node) {
    EXPECT_EQ(probes.at(probe, node), node == 2 ? 0U : 1U) << "node " << node;
  }
  EXPECT_EQ(probes.circulating(), 0U);
}

TEST(Data, LearntAddressesAreForgottenWhenTheRingTurns) {
  Probes probes;
  TestNetwork network(make_ring({.nodes = 6}), 1);
  network.simulation.observe(probes);
  network.come_home();
  Simulation& simulation = network.simulation;
  const auto arrives = [&](NodeIndex from, NodeIndex to) {
    const uint32_t probe = simulation.send_probe(from, to);
    simulation.run_for(10 * kMillisecondUs);
    return probes.at(probe, to) == 1;
  };
  EXPECT_TRUE(arrives(1, 4));
  EXPECT_TRUE(arrives(4, 1));
  // Now everybody between knows the way; a frame to node 4 goes nowhere else.
  const uint32_t known = simulation.send_probe(1, 4);
  simulation.run_for(10 * kMillisecondUs);
  EXPECT_EQ(probes.of(known), 1U);
  simulation.cut(2);
  simulation.run_for(20 * kMillisecondUs);
  EXPECT_TRUE(arrives(1, 4));
  EXPECT_TRUE(arrives(4, 1));
}

// A run that is looked at with traffic is the same that was found without.
TEST(Data, DoesNotChangeWhatTheRingsDo) {
  class Messages : public Observer {
   public:
    void on_record(const Record& record) override {
      if (record.kind != RecordKind::kProbe && record.kind != RecordKind::kFlush) {
        hash.add(record);
      }
    }
    TraceHash hash;
  };
  const auto hash_of_run = [](bool with_traffic) {
    Messages messages;
    TestNetwork network(make_ring({.nodes = 6, .delay_us = {50, 5000}}), 1);
    network.simulation.observe(messages);
    const auto run = [&](int64_t duration_us) {
      for (int64_t passed_us = 0; passed_us < duration_us; passed_us += kMillisecondUs) {
        if (with_traffic) {
          network.simulation.send_probe(1, 4);
        }
        network.simulation.run_for(kMillisecondUs);
      }
    };
    run(kSettledUs);
    network.simulation.cut(2);
    run(kSettledUs);
    network.simulation.restore(2);
    run(kSettledUs);
    return messages.hash.value();
  };
  EXPECT_EQ(hash_of_run(false), hash_of_run(true));
}

TEST(Data, NoFramePassesACutLinkOrADeadNode) {
  Probes probes;
  TestNetwork network(make_ring({.nodes = 4}), 1);
  network.simulation.observe(probes);
  network.come_home();
  Simulation& simulation = network.simulation;
  simulation.cut(0);
  simulation.cut(1);  // node 1 is alone
  simulation.run_for(kSecondUs);
  const uint32_t probe = simulation.send_probe(1, std::nullopt);
  simulation.crash(3);
  const uint32_t to_the_dead = simulation.send_probe(2, 3);
  simulation.run_for(kSecondUs);
  EXPECT_EQ(probes.of(probe), 0U);
  EXPECT_EQ(probes.of(to_the_dead), 0U);
}

}  // namespace erps::sim
