// Both tasks in threads of their own, as a host runs them. What these tests find is mostly seen by
// ThreadSanitizer: rings come, run and go in the protocol task while the timer task walks.
#include <pthread.h>
#include <sched.h>

#include <atomic>
#include <optional>

#include "erps/link/link_state.h"
#include "erps/mgmt/message.h"
#include "erps/ring/ring_config.h"
#include "erps/ring/ring_list.h"
#include "erps/runtime/module.h"
#include "erps/timer/protocol_timers.h"
#include "erps/timer/timer_task.h"
#include "tests/unit/fixture.h"
#include "tests/unit/management_client.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr long kType = 9;
constexpr long kReplyType = 0x40000009;

// A thread that moves the clock and walks the timers as fast as it can; each walk finds every
// repetition due.
class FastTimer {
 public:
  FastTimer() { pthread_create(&thread_, nullptr, run, this); }
  ~FastTimer() {
    stop_ = true;
    pthread_join(thread_, nullptr);
  }
  FastTimer(const FastTimer&) = delete;
  FastTimer& operator=(const FastTimer&) = delete;

  uint64_t walks() const { return walks_.load(std::memory_order_relaxed); }

 private:
  static void* run(void* self) {
    auto* timer = static_cast<FastTimer*>(self);
    while (!timer->stop_) {
      RecordingPlatform::instance().advance_ms(5100);
      erps_timer_walk();
      timer->walks_.fetch_add(1, std::memory_order_relaxed);  // orders nothing
      sched_yield();
    }
    return nullptr;
  }

  pthread_t thread_{};
  std::atomic<bool> stop_ = false;
  std::atomic<uint64_t> walks_ = 0;
};

class TwoTasksTest : public ModuleTest {
 protected:
  void SetUp() override {
    const std::optional<std::string> refusal = enter_private_ipc_namespace();
    if (refusal) {
      GTEST_SKIP() << "TWO TASKS NOT TESTED: " << *refusal;
    }
    remove_management_queue();
    platform.run_tasks(true);
    ASSERT_EQ(erps_module_init(), 0);
    ASSERT_EQ(erps_module_start(), 0);
  }

  void TearDown() override {
    erps_module_stop();
    remove_management_queue();
  }

  // A management request through both queues, as a client makes it; the return code.
  uint8_t ask(uint8_t cmd, std::initializer_list<uint32_t> arguments) {
    EXPECT_TRUE(send_request(kType, request_text(cmd, arguments)));
    ERPS_EVENT_MSG_T event{};
    event.event_class = 3;
    event.type = 4;
    event.payload = kType;
    platform.post(event);
    EXPECT_TRUE(platform.wait_until_receiver_idle());
    const std::optional<Reply> reply = take_reply(kReplyType);
    EXPECT_TRUE(reply.has_value());
    last_data_ = reply ? reply->data() : std::vector<uint8_t>();
    return reply ? reply->ret_code : 0xEE;
  }

  void post_link(uint16_t interface, uint16_t state) {
    link_record_ = {0, 0, interface, state};
    ERPS_EVENT_MSG_T event{};
    event.event_class = 3;
    event.type = 1;
    event.payload = reinterpret_cast<uintptr_t>(link_record_.data());
    platform.post(event);
    EXPECT_TRUE(platform.wait_until_receiver_idle());
  }

  void post_frame(const FrameSpec& frame, uint32_t port) {
    platform.set_received_frame(frame.bytes(), frame.vlan, port);
    packet_ = {};
    packet_[7] = 55;  // length at byte 14
    ERPS_EVENT_MSG_T event{};
    event.event_class = 3;
    event.type = 2;
    event.payload = reinterpret_cast<uintptr_t>(packet_.data());
    platform.post(event);
    EXPECT_TRUE(platform.wait_until_receiver_idle());
  }

  std::vector<uint8_t> last_data_;
  std::array<uint16_t, 4> link_record_{};
  alignas(4) std::array<uint16_t, 16> packet_{};
};

TEST_F(TwoTasksTest, BothTasksReportReadyInOrder) {
  EXPECT_THAT(platform.calls({"stask_notify_creater", "stask_start"}),
              ElementsAre("stask_start(erps_process, 0)", "stask_notify_creater(erps_process, 0)",
                          "stask_start(erps_timer, 0)", "stask_notify_creater(erps_timer, 0)"));
}

TEST_F(TwoTasksTest, OwnerComesHomeByItsOwnTimer) {
  EXPECT_EQ(ask(mgmt::kSetWtrTime, {5000}), 0);
  EXPECT_EQ(ask(mgmt::kAddRing, {1, 1, 2, 100, kRplOwner, 0}), 0);
  EXPECT_EQ(ask(mgmt::kSetEnable, {1, 1}), 0);
  for (int second = 0; second < 6; ++second) {
    platform.advance_ms(1000);
    platform.tick();
    ASSERT_TRUE(platform.wait_until_sleeper_idle());
  }
  ASSERT_TRUE(platform.wait_until_receiver_idle());
  EXPECT_EQ(ask(mgmt::kGetRing, {1}), 0);
  ASSERT_EQ(last_data_.size(), 96U);
  EXPECT_EQ(last_data_[7], 1);  // idle
}

TEST_F(TwoTasksTest, RingsComeAndGoWhileTimersRun) {
  platform.run_free(true);
  EXPECT_EQ(ask(mgmt::kSetWtrTime, {1000}), 0);
  EXPECT_EQ(ask(mgmt::kSetHoldoffTime, {1000}), 0);
  const FastTimer timer;
  for (uint32_t round = 0; round < 200; ++round) {
    EXPECT_EQ(ask(mgmt::kAddRing, {1, 1, 2, 100, kRplOwner, 0}), 0);
    EXPECT_EQ(ask(mgmt::kAttachSubRing, {1, 2, 3, kNoRplNode, round % 2}), 0);
    EXPECT_EQ(ask(mgmt::kAddRing, {300, 11, 12, 200, kNoRplNode, 1}), 0);
    EXPECT_EQ(ask(mgmt::kSetEnable, {1, 1}), 0);
    EXPECT_EQ(ask(mgmt::kSetEnable, {2, 1}), 0);
    EXPECT_EQ(ask(mgmt::kSetEnable, {300, 1}), 0);
    post_link(1, 0);
    post_frame({.request = 11}, 2);
    post_link(1, 1);
    post_frame({.request = 0, .rb = true}, 2);
    EXPECT_EQ(ask(mgmt::kForcedSwitch, {1, 2}), 0);
    EXPECT_EQ(ask(mgmt::kGetRing, {1}), 0);
    EXPECT_EQ(ask(mgmt::kClear, {1}), 0);
    EXPECT_EQ(ask(mgmt::kManualSwitch, {300, 11}), 0);
    post_link(11, 0);
    for (const uint32_t id : {1U, 2U, 300U}) {
      EXPECT_EQ(ask(mgmt::kSetEnable, {id, 0}), 0);
      EXPECT_EQ(ask(mgmt::kDeleteRing, {id}), 0);
    }
  }
  EXPECT_GT(timer.walks(), 0U);
}

TEST_F(TwoTasksTest, MajorRingChangesUnderASubRingThatRepeats) {
  platform.run_free(true);
  EXPECT_EQ(ask(mgmt::kAddRing, {1, 1, 2, 100, kNoRplNode, 0}), 0);
  EXPECT_EQ(ask(mgmt::kAttachSubRing, {1, 2, 3, kNoRplNode, 0}), 0);
  EXPECT_EQ(ask(mgmt::kSetEnable, {2, 1}), 0);  // repeats through its major ring's ports
  const FastTimer timer;
  const uint64_t first = timer.walks();
  for (uint32_t round = 0; round < 400; ++round) {
    EXPECT_EQ(ask(mgmt::kSetEnable, {1, 1}), 0);
    EXPECT_EQ(ask(mgmt::kSetEnable, {1, 0}), 0);
    EXPECT_EQ(ask(mgmt::kAddRing, {1, 1 + round % 3 * 16, 2, 100 + round, kNoRplNode, 0}), 0);
    EXPECT_EQ(ask(mgmt::kAddRing, {2, 3 + round % 2, 255, 100, kNoRplNode, kSubRing}), 0);
    if (round % 10 == 9) {
      EXPECT_EQ(ask(mgmt::kDeleteRing, {1}), 0);
      EXPECT_EQ(ask(mgmt::kAddRing, {1, 1, 2, 100, kNoRplNode, 0}), 0);
      EXPECT_EQ(ask(mgmt::kAttachSubRing, {1, 2, 3, kNoRplNode, 0}), 0xFC);
    }
  }
  EXPECT_GT(timer.walks(), first);
}

TEST_F(TwoTasksTest, RingsSurviveARestartOfTheModule) {
  EXPECT_EQ(ask(mgmt::kAddRing, {1, 1, 2, 100, kRplOwner, 0}), 0);
  EXPECT_EQ(ask(mgmt::kSetEnable, {1, 1}), 0);
  EXPECT_EQ(ask(mgmt::kForcedSwitch, {1, 2}), 0);

  erps_module_stop();
  EXPECT_THAT(platform.calls({"equeue_close"}),
              ElementsAre("equeue_close(receiver)", "equeue_close(sender)"));
  EXPECT_THAT(ring_ids(), ElementsAre(1U));
  ASSERT_EQ(erps_module_init(), 0);
  ASSERT_EQ(erps_module_start(), 0);

  EXPECT_EQ(ask(mgmt::kGetRing, {1}), 0);
  ASSERT_EQ(last_data_.size(), 96U);
  EXPECT_EQ(last_data_[7], 4);  // still forced
  EXPECT_EQ(last_data_[17 * 4 + 3], 1);
  EXPECT_EQ(ask(mgmt::kClear, {1}), 0);
  EXPECT_EQ(ask(mgmt::kSetEnable, {1, 0}), 0);
  EXPECT_EQ(ask(mgmt::kSetEnable, {1, 1}), 0);
  EXPECT_THAT(timers(), ::testing::Contains("Send Raps Timer"));
}

TEST_F(TwoTasksTest, TimersPostWhileTheProtocolTaskGoesAndComesBack) {
  platform.run_free(true);
  EXPECT_EQ(ask(mgmt::kSetWtrTime, {1000}), 0);
  EXPECT_EQ(ask(mgmt::kAddRing, {1, 1, 2, 100, kRplOwner, 0}), 0);
  const FastTimer timer;
  for (int round = 0; round < 50; ++round) {
    EXPECT_EQ(ask(mgmt::kSetEnable, {1, 1}), 0);  // a new wait to restore, due at the next walk
    erps_module_stop();
    ASSERT_EQ(erps_module_start(), 0);
    EXPECT_EQ(ask(mgmt::kSetEnable, {1, 0}), 0);
  }
}

TEST_F(TwoTasksTest, ManyRestartsLeaveNothingBehind) {
  EXPECT_EQ(ask(mgmt::kAddRing, {1, 1, 2, 100, kRplOwner, 0}), 0);
  EXPECT_EQ(ask(mgmt::kSetEnable, {1, 1}), 0);
  for (int round = 0; round < 20; ++round) {
    platform.tick(3);
    erps_module_stop();
    ASSERT_EQ(erps_module_start(), 0);
    EXPECT_EQ(ask(mgmt::kGetRing, {1}), 0);
  }
  EXPECT_EQ(ask(mgmt::kSetEnable, {1, 0}), 0);
  EXPECT_EQ(ask(mgmt::kDeleteRing, {1}), 0);
  EXPECT_THAT(timers(), IsEmpty());
}

TEST_F(TwoTasksTest, CancellationNeverLeavesTheTimerLockHeld) {
  EXPECT_EQ(ask(mgmt::kAddRing, {1, 1, 2, 100, kRplOwner, 0}), 0);
  EXPECT_EQ(ask(mgmt::kSetEnable, {1, 1}), 0);
  for (int round = 0; round < 20; ++round) {
    platform.tick(50);
    erps_module_stop();
    ASSERT_EQ(pthread_mutex_trylock(&erps_timer_lock), 0);
    pthread_mutex_unlock(&erps_timer_lock);
    ASSERT_EQ(erps_module_start(), 0);
  }
}

TEST_F(TwoTasksTest, FailedTimerTaskLeavesNoTaskRunning) {
  erps_module_stop();
  platform.clear_journal();
  platform.set_queue_open_fails(true);
  EXPECT_EQ(erps_module_start(), -1);
  EXPECT_EQ(erps_task_table[0].thread_id, static_cast<uintptr_t>(-1));
  EXPECT_EQ(erps_task_table[1].thread_id, static_cast<uintptr_t>(-1));
  EXPECT_EQ(logged(5, "bridge shut down\n"), 1);
  EXPECT_EQ(logged(3, "routine process exit!\r\n"), 1);
}

// A running timer gets new times while the timer task looks at it, which it does each time that it
// links the repetition in front of it.
class RestartedTimersTest : public ModuleTest {
 protected:
  static constexpr uint32_t kNeverDueMs = 2'000'000'000;

  template <typename Start>
  void restart_under_walks(Start start) {
    platform.run_free(true);
    const ERPSM_T* ring = make_running_ring();
    ASSERT_EQ(ring->raps_timer.active, 1);
    const FastTimer timer;
    do {  // at least once, however fast the walks are
      ASSERT_EQ(start(erpsapi_erpsm_find(ring->ring_id)), 0);
    } while (timer.walks() < 200);
    EXPECT_EQ(timer_count(), 2U);
  }
};

TEST_F(RestartedTimersTest, GuardIsSeenWhole) {
  erps_set_guard_timer(kNeverDueMs);
  restart_under_walks([](ERPSM_T* ring) { return erps_start_guard_timer(&ring->guard_timer); });
}

TEST_F(RestartedTimersTest, WaitToRestoreIsSeenWhole) {
  erps_set_wtr_timer(kNeverDueMs);
  restart_under_walks([](ERPSM_T* ring) { return erps_start_WTR_timer(&ring->wtr_timer); });
}

TEST_F(RestartedTimersTest, HoldoffIsSeenWhole) {
  erps_set_holdoff_timer(kNeverDueMs);
  restart_under_walks([](ERPSM_T* ring) { return erps_start_holdoff_timer(&ring->holdoff_timer); });
}

}  // namespace
}  // namespace erps::test
