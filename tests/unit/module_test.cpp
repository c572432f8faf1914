#include "erps/runtime/module.h"

#include "erps/fsm/requests.h"
#include "erps/raps/receive.h"
#include "erps/runtime/event_loop.h"
#include "erps/runtime/event_queue.h"
#include "erps/runtime/host_hooks.h"
#include "erps/timer/timer_task.h"
#include "tests/unit/fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

constexpr uintptr_t kNotRunning = static_cast<uintptr_t>(-1);

// The lifecycle, with tasks that are only written down.
class ModuleLifecycleTest : public ModuleTest {
 protected:
  ~ModuleLifecycleTest() override {
    for (erps_task_desc& task : erps_task_table) {
      task.thread_id = kNotRunning;
      task.process_id = 0;
    }
  }
};

TEST_F(ModuleLifecycleTest, TasksAreDescribedProtocolTaskFirst) {
  static_assert(sizeof(erps_task_desc) == 15 * sizeof(uintptr_t));
  const erps_task_desc& process = erps_task_table[0];
  const erps_task_desc& timer = erps_task_table[1];
  EXPECT_STREQ(process.name, "erps_process");
  EXPECT_EQ(process.init, erps_process_init);
  EXPECT_EQ(process.entry, erps_routine_process);
  EXPECT_STREQ(timer.name, "erps_timer");
  EXPECT_EQ(timer.init, erps_timer_task_init);
  EXPECT_EQ(timer.entry, erps_routine_timer);
  for (const erps_task_desc& task : erps_task_table) {
    EXPECT_EQ(task.thread_id, kNotRunning);
    EXPECT_EQ(task.word4, 0x1000000U);
    EXPECT_EQ(task.word10, 1U);
    EXPECT_THAT(task.word5_to_9, ElementsAre(0U, 0U, 0U, 0U, 0U));
    EXPECT_THAT(task.word11_to_12, ElementsAre(0U, 0U));
    EXPECT_EQ(task.word14, 0U);
  }
}

TEST_F(ModuleLifecycleTest, InitForgetsTheQueueHandlesAndKeepsRings) {
  make_ring({.id = 4});
  erps_event_queue = platform.receiver_handle();
  erps_timer_event_queue = platform.sender_handle();
  EXPECT_EQ(erps_module_init(), 0);
  EXPECT_EQ(erps_event_queue, nullptr);
  EXPECT_EQ(erps_timer_event_queue, nullptr);
  EXPECT_THAT(ring_ids(), ElementsAre(4U));
}

TEST_F(ModuleLifecycleTest, StartStartsBothTasksInOrder) {
  EXPECT_EQ(erps_module_start(), 0);
  EXPECT_THAT(platform.calls(),
              ElementsAre("stask_start(erps_process, 0)", "stask_start(erps_timer, 0)"));
}

TEST_F(ModuleLifecycleTest, PositiveStartResultsAreSuccess) {
  platform.set_task_start_result("erps_process", 1);
  platform.set_task_start_result("erps_timer", 7);
  EXPECT_EQ(erps_module_start(), 0);
}

TEST_F(ModuleLifecycleTest, FailedTimerTaskStopsTheProtocolTaskAgain) {
  platform.set_task_start_result("erps_timer", -1);
  EXPECT_EQ(erps_module_start(), -1);
  EXPECT_THAT(platform.calls(),
              ElementsAre("stask_start(erps_process, 0)", "stask_start(erps_timer, 0)",
                          "stask_stop(erps_process)"));
  EXPECT_EQ(logged(5, "bridge shut down\n"), 1);
  EXPECT_EQ(erps_task_table[0].thread_id, kNotRunning);
}

TEST_F(ModuleLifecycleTest, FailedProtocolTaskStartsNothingElse) {
  platform.set_task_start_result("erps_process", -5);
  EXPECT_EQ(erps_module_start(), -1);
  EXPECT_THAT(platform.calls(), ElementsAre("stask_start(erps_process, 0)"));
  EXPECT_EQ(logged(5, "bridge shut down\n"), 1);
}

TEST_F(ModuleLifecycleTest, StopLogsFirstAndStopsTheRunningTasksInOrder) {
  erps_module_start();
  platform.clear_journal();
  EXPECT_EQ(erps_module_stop(), 0);
  ASSERT_EQ(platform.journal().size(), 3U);
  EXPECT_EQ(platform.journal()[0].text(), "Log_logging_func(bridge shut down\n)");
  EXPECT_THAT(platform.calls(), ElementsAre("stask_stop(erps_process)", "stask_stop(erps_timer)"));
}

TEST_F(ModuleLifecycleTest, StopOfAModuleThatNeverStartedOnlyLogs) {
  EXPECT_EQ(erps_module_stop(), 0);
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_EQ(logged(5, "bridge shut down\n"), 1);
}

TEST_F(ModuleLifecycleTest, StopKeepsRings) {
  make_ring({.id = 4});
  erps_module_start();
  erps_module_stop();
  EXPECT_THAT(ring_ids(), ElementsAre(4U));
}

TEST_F(ModuleLifecycleTest, ShutdownReturnsTheLoggersResult) {
  EXPECT_EQ(erps_shutdown(), static_cast<int>(sizeof "bridge shut down\n" - 1));
  EXPECT_EQ(logged(5, "bridge shut down\n"), 1);
}

TEST_F(ModuleLifecycleTest, ListPrintsNothingForTasksThatNeverStarted) {
  testing::internal::CaptureStdout();
  EXPECT_EQ(erps_module_list(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "");
}

TEST_F(ModuleLifecycleTest, ListPrintsNameThreadAndProcess) {
  erps_task_table[0].thread_id = 12;
  erps_task_table[0].process_id = 345;
  erps_task_table[1].thread_id = 12345;
  erps_task_table[1].process_id = 67890;
  testing::internal::CaptureStdout();
  EXPECT_EQ(erps_module_list(), 0);
  EXPECT_EQ(testing::internal::GetCapturedStdout(),
            "\terps_process \ttid=0012, pid=0345\n"
            "\t  erps_timer \ttid=12345, pid=67890\n");
}

TEST_F(ModuleLifecycleTest, ListPrintsOnlyTheTaskThatRuns) {
  erps_task_table[1].thread_id = 7;
  erps_task_table[1].process_id = 8;
  testing::internal::CaptureStdout();
  erps_module_list();
  EXPECT_EQ(testing::internal::GetCapturedStdout(), "\t  erps_timer \ttid=0007, pid=0008\n");
}

TEST_F(ModuleLifecycleTest, StartHookDoesNothing) {
  EXPECT_EQ(erps_start(), 0);
  EXPECT_THAT(platform.journal(), IsEmpty());
}

TEST_F(ModuleLifecycleTest, ExitRemovesTheEventQueuesNameWhateverTheResult) {
  EXPECT_EQ(erps_exit(), 0);
  platform.set_mq_unlink_result(-1);
  EXPECT_EQ(erps_exit(), 0);
  EXPECT_THAT(platform.calls(),
              ElementsAre("mq_unlink(/erps_event_queue)", "mq_unlink(/erps_event_queue)"));
}

TEST_F(ModuleLifecycleTest, EmptyHooksDoNothing) {
  EXPECT_EQ(erps_check_mstp_config_and_save(1), 0);
  erps_packet_unregister();
  EXPECT_THAT(platform.journal(), IsEmpty());
}

}  // namespace
}  // namespace erps::test
