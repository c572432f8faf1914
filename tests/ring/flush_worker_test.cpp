// Learnt addresses that a host forgets in the background.
#include <gmock/gmock.h>

#include "tests/ring/records.h"
#include "tests/ring/test_network.h"

namespace erps::sim {

namespace {

// Whether a frame from node 0 to node 2, both learnt everywhere before the cut between 1 and 2,
// arrives when it is sent this long after the cut.
bool arrives_after_a_cut(const Options& options, int64_t delay_us) {
  TestNetwork network(make_ring({}), options);
  Records records;
  network.simulation.observe(records);
  network.come_home();
  network.simulation.send_probe(0, std::nullopt);
  network.simulation.send_probe(2, std::nullopt);
  network.simulation.run_for(kSecondUs);
  network.simulation.cut(1);
  network.simulation.run_for(delay_us);
  const uint32_t probe = network.simulation.send_probe(0, 2);
  network.simulation.run_for(kSecondUs);
  return records.count([=](const Record& record) {
    return record.kind == RecordKind::kProbe && record.node == 2 && record.a == probe;
  }) == 1;
}

Options with_worker(int64_t flush_us) {
  Options options = options_with(1);
  options.flush_worker = true;
  options.timing.flush_us = {flush_us, flush_us};
  return options;
}

}  // namespace

TEST(FlushWorker, ThatIsSlowSendsTrafficTheOldWayMeanwhile) {
  constexpr int64_t kRepairedUs = 20 * kMillisecondUs;
  EXPECT_TRUE(arrives_after_a_cut(options_with(1), kRepairedUs));
  EXPECT_FALSE(arrives_after_a_cut(with_worker(500 * kMillisecondUs), kRepairedUs));
  EXPECT_TRUE(arrives_after_a_cut(with_worker(500 * kMillisecondUs), 3 * kSecondUs));
  EXPECT_TRUE(arrives_after_a_cut(with_worker(kMillisecondUs), kRepairedUs));
}

TEST(FlushWorker, ForgetsWhatABlockedPortHadLearnt) {
  TestNetwork network(make_ring({}), with_worker(kMillisecondUs));
  network.come_home();
  Records records;
  network.simulation.observe(records);
  network.simulation.cut(1);
  network.simulation.run_for(kSecondUs);
  EXPECT_GT(records.count([](const Record& record) {
    return record.kind == RecordKind::kFlush && record.node == 1 && record.port == 2;
  }),
            0U);
}

TEST(FlushWorker, ComesHomeThroughEveryCutWithoutALoop) {
  for (uint64_t seed = 1; seed <= 4; ++seed) {
    Options options = options_with(seed);
    options.flush_worker = true;
    TestNetwork network(make_ring({}), options);
    network.come_home();
    for (LinkIndex link = 0; link < 4; ++link) {
      network.simulation.cut(link);
      network.simulation.run_for(kSettledUs);
      network.simulation.restore(link);
      network.simulation.run_for(kSecondUs);
      network.come_home();
    }
    network.expect_no_loop();
  }
}

}  // namespace erps::sim
