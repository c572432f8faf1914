// Flushes: what is forgotten, in which order, and how many messages can ask for.
#include "linux/flush_worker.h"
#include "tests/linux/port_state_fixture.h"

namespace erps::linux_platform::test {
namespace {

class FlushTest : public PortStateTest {};

TEST_F(FlushTest, FlushForgetsWhatThePortLearntAndNothingElse) {
  start_platform();
  open_both();
  const Wire one("w1");
  const Wire two("w2");
  const Bytes hello = data_frame(kBroadcast, kHostA, 1);
  const Bytes answer = data_frame(kHostA, kHostB, 2);
  ASSERT_TRUE(one.send(hello) && two.receives(hello));
  ASSERT_TRUE(two.send(answer) && one.receives(answer));
  run("bridge fdb add 02:cc:00:00:00:03 dev p1 master static");
  const auto knows = [](const std::string& address) {
    return output_of("bridge fdb show br br0").find(address) != std::string::npos;
  };
  ASSERT_TRUE(knows("02:aa:00:00:00:01") && knows("02:bb:00:00:00:02"));
  ASSERT_EQ(adp_del_mac_addr_by_intf(1, 2), 0);
  EXPECT_TRUE(eventually([&] { return !knows("02:aa:00:00:00:01"); }));
  EXPECT_TRUE(knows("02:bb:00:00:00:02"));
  EXPECT_TRUE(knows("02:cc:00:00:00:03"));
}

TEST_F(FlushTest, FlushesOfOneEventRunOnceAfterItsOpenings) {
  start_platform();
  open_both();
  ASSERT_EQ(adp_set_port_erps_state(1, 1), 0);
  ASSERT_TRUE(eventually([] { return status().counters.flushes_done > 0; }));
  const uint64_t before = status().counters.flushes_done;
  in_event([] {
    for (int i = 0; i < 5; ++i) {
      ASSERT_EQ(adp_del_mac_addr_by_intf(1, 2), 0);
    }
    ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
  });
  EXPECT_EQ(status().counters.flushes_done, before);
  finish_event();
  ASSERT_TRUE(eventually([&] { return status().counters.flushes_done == before + 1; }));
  int64_t opened_ns = 0;
  int64_t flushed_ns = 0;
  for (const HistoryRecord& record : history()) {
    if (record.kind == HistoryKind::kPortState && record.phase == Phase::kApplied &&
        record.port == 1 && record.state == 4) {
      opened_ns = record.mono_ns;
    }
    if (record.kind == HistoryKind::kFlush && record.port == 1) {
      flushed_ns = record.mono_ns;
    }
  }
  EXPECT_LT(opened_ns, flushed_ns);
}

// A flood of messages that each ask for a flush holds the kernel's lock for few of them, and the
// last one is not lost.
TEST_F(FlushTest, FlushesThatOnlyMessagesAskForAreSpacedAndTheLastOneCounts) {
  start_platform();
  open_both();
  ASSERT_EQ(add_capture_rule(), 0);
  receive_all();
  const Wire one("w1");
  const Wire two("w2");
  const auto flushed = [] { return status().counters.flushes_done; };
  const uint64_t before = flushed();
  constexpr uint64_t kMessages = 400;
  const Bytes hello = data_frame(kBroadcast, kHostA, 1);
  const auto start = std::chrono::steady_clock::now();
  for (uint64_t i = 0; i < kMessages; ++i) {
    ASSERT_TRUE(one.send(raps_frame(1, 100, 14, static_cast<uint8_t>(i))));
    const auto event = receive();
    ASSERT_TRUE(event && event->type == kPacketEvent);
    take_frame(*event);
    if (i + 1 == kMessages) {
      ASSERT_TRUE(one.send(hello) && two.receives(hello));  // learnt before the last one asks
    }
    ASSERT_EQ(adp_del_mac_addr_by_intf(1, 2), 0);
  }
  finish_event();
  const auto knows = [](const std::string& address) {
    return output_of("bridge fdb show br br0").find(address) != std::string::npos;
  };
  EXPECT_TRUE(
      eventually([&] { return !knows("02:aa:00:00:00:01"); }, std::chrono::milliseconds(500)));
  const std::chrono::duration<double> took = std::chrono::steady_clock::now() - start;
  const auto most = FlushWorker::kOfMessages.burst +
                    static_cast<int64_t>(took.count() * FlushWorker::kOfMessages.per_second) + 2;
  EXPECT_LE(flushed() - before, static_cast<uint64_t>(most));
}

TEST_F(FlushTest, FlushesOfAChangeOfPortStatesAreNotSpaced) {
  start_platform();
  open_both();
  ASSERT_EQ(add_capture_rule(), 0);
  receive_all();
  const Wire one("w1");
  constexpr int kChanges = 100;
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kChanges; ++i) {
    const uint64_t before = status().counters.flushes_done;
    ASSERT_TRUE(one.send(raps_frame(1, 100, 11, static_cast<uint8_t>(i))));
    const auto event = receive();
    ASSERT_TRUE(event && event->type == kPacketEvent);
    take_frame(*event);
    ASSERT_EQ(adp_set_port_erps_state(2, i % 2 == 0 ? 1 : 4), 0);
    for (const uint32_t port : {1u, 2u}) {
      ASSERT_EQ(adp_del_mac_addr_by_intf(port, 2), 0);
    }
    finish_event();
    // Both of them: each port has a budget of its own.
    ASSERT_TRUE(eventually([&] { return status().counters.flushes_done >= before + 2; }));
  }
  const auto spaced = (kChanges - FlushWorker::kOfMessages.burst) *
                      std::chrono::nanoseconds(FlushWorker::kSpacingNs);
  EXPECT_LT(std::chrono::steady_clock::now() - start, spaced);
}

}  // namespace
}  // namespace erps::linux_platform::test
