// The protocol task in a thread of its own: start, loop, end.
#include <unistd.h>

#include "erps/mgmt/server.h"
#include "erps/runtime/event_loop.h"
#include "tests/unit/fixture.h"
#include "tests/unit/management_client.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::StartsWith;

class ProtocolTaskTest : public ModuleTest {
 protected:
  ProtocolTaskTest() { task_.thread_id = kNotRunning; }

  void SetUp() override {
    const std::optional<std::string> refusal = enter_private_ipc_namespace();
    if (refusal) {
      GTEST_SKIP() << "PROTOCOL TASK NOT TESTED: " << *refusal;
    }
    remove_management_queue();
    erps_event_queue = nullptr;
    task_.name = "erps_process";
    task_.init = erps_process_init;
    task_.entry = erps_routine_process;
    platform.run_tasks(true);
  }

  void TearDown() override {
    if (task_.thread_id != kNotRunning) {
      stask_stop(&task_);
    }
    remove_management_queue();
  }

  int task_lines(const std::string& text) const {
    int count = 0;
    for (const LogLine& line : platform.log()) {
      count +=
          line.level == 7 && line.facility == 7 && line.label == "Task entry" && line.text == text
              ? 1
              : 0;
    }
    return count;
  }

  static constexpr uintptr_t kNotRunning = static_cast<uintptr_t>(-1);
  erps_task_desc task_{};
};

TEST_F(ProtocolTaskTest, InitHookClearsItsWord) {
  task_.word14 = 99;
  EXPECT_EQ(erps_process_init(&task_), 0);
  EXPECT_EQ(task_.word14, 0U);
}

TEST_F(ProtocolTaskTest, StartCreatesTheQueueOpensTheServerAndReportsReady) {
  ASSERT_EQ(stask_start(&task_, 0), 0);
  ASSERT_TRUE(platform.wait_until_receiver_idle());
  EXPECT_THAT(platform.calls(),
              ElementsAre("stask_start(erps_process, 0)",
                          "equeue_make_extend(/erps_event_queue, 256, 1, 0)", "msgget(10552, 950)",
                          "stask_notify_creater(erps_process, 0)", "equeue_recv(receiver, 0)"));
  EXPECT_EQ(task_.process_id, static_cast<uintptr_t>(getpid()));
  EXPECT_GE(erps_user_msgid, 0);
}

TEST_F(ProtocolTaskTest, EachEventRunsBetweenItsTwoLines) {
  ASSERT_EQ(stask_start(&task_, 0), 0);
  for (const uintptr_t type : {5, 6, 8}) {
    ERPS_EVENT_MSG_T event{};
    event.type = type;
    platform.post(event);
  }
  ASSERT_TRUE(platform.wait_until_receiver_idle());
  EXPECT_EQ(task_lines("Task entry begin process!~\n"), 3);
  EXPECT_EQ(task_lines("Task entry end   process!~\n"), 3);
  EXPECT_EQ(platform.log().size(), 6U);
}

TEST_F(ProtocolTaskTest, LoopGoesOnAfterAnUnknownEvent) {
  ASSERT_EQ(stask_start(&task_, 0), 0);
  ERPS_EVENT_MSG_T event{};
  event.type = 9;
  platform.post(event);
  event.type = 11;
  platform.post(event);
  ASSERT_TRUE(platform.wait_until_receiver_idle());
  EXPECT_EQ(logged(3, "UNKNOWN EVENT! Sys ERROR\r\n"), 2);
  EXPECT_EQ(task_lines("Task entry end   process!~\n"), 2);
}

TEST_F(ProtocolTaskTest, TaskEndsWhenTheQueueIsGone) {
  platform.close_queue_for_receiver();
  EXPECT_EQ(erps_routine_process(&task_), -1);
  EXPECT_EQ(logged(3, "erps_routine_process equeue_recv error\n"), 1);
  EXPECT_EQ(logged(3, "routine process exit!\r\n"), 1);
  EXPECT_THAT(platform.calls({"equeue_close"}), ElementsAre("equeue_close(receiver)"));
  EXPECT_EQ(erps_event_queue, nullptr);
}

TEST_F(ProtocolTaskTest, CancelledTaskLogsAndClosesItsQueue) {
  ASSERT_EQ(stask_start(&task_, 0), 0);
  ASSERT_TRUE(platform.wait_until_receiver_idle());
  stask_stop(&task_);
  EXPECT_EQ(logged(3, "routine process exit!\r\n"), 1);
  EXPECT_EQ(logged_part("equeue_recv error"), 0);
  EXPECT_THAT(platform.calls({"equeue_close"}), ElementsAre("equeue_close(receiver)"));
  EXPECT_EQ(erps_event_queue, nullptr);
}

TEST_F(ProtocolTaskTest, TaskWithoutQueueReportsFailureAndEnds) {
  platform.set_queue_create_fails(true);
  EXPECT_LT(stask_start(&task_, 0), 0);
  EXPECT_EQ(task_.thread_id, kNotRunning);
  EXPECT_THAT(platform.calls({"stask_notify_creater", "equeue_recv"}),
              ElementsAre("stask_notify_creater(erps_process, -1)"));
  EXPECT_EQ(logged(3, "routine process exit!\r\n"), 1);
}

TEST_F(ProtocolTaskTest, EntryWithoutQueueReturnsMinusOne) {
  platform.set_queue_create_fails(true);
  EXPECT_EQ(erps_routine_process(&task_), -1);
}

TEST_F(ProtocolTaskTest, TaskWithoutManagementQueueReportsFailureAndClosesTheEventQueue) {
  platform.fail_msgget(true);
  testing::internal::CaptureStderr();
  EXPECT_EQ(erps_routine_process(&task_), -1);
  EXPECT_THAT(testing::internal::GetCapturedStderr(), StartsWith("msgget_open user: "));
  EXPECT_THAT(platform.calls({"stask_notify_creater", "equeue_recv", "equeue_close"}),
              ElementsAre("stask_notify_creater(erps_process, -1)", "equeue_close(receiver)"));
  EXPECT_EQ(logged(3, "routine process exit!\r\n"), 1);
}

TEST_F(ProtocolTaskTest, CleanUpHandlerClosesTheHandleThatItIsGiven) {
  erps_routine_cancel_process(platform.sender_handle());
  EXPECT_EQ(logged(3, "routine process exit!\r\n"), 1);
  EXPECT_THAT(platform.calls(), ElementsAre("equeue_close(sender)"));
}

}  // namespace
}  // namespace erps::test
