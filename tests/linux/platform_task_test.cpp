// Tasks: start, report, fail, stop.
#include <pthread.h>
#include <sched.h>
#include <signal.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>

#include "platform/task.h"
#include "tests/linux/platform_fixture.h"

namespace erps::linux_platform::test {
namespace {

constexpr uintptr_t kNotRunning = static_cast<uintptr_t>(-1);

std::atomic<int> init_calls{0};
std::atomic<int> init_result{0};
std::atomic<bool> ended{false};
std::atomic<int> policy{-1};
std::atomic<bool> signals_blocked{false};

int init_hook(erps_task_desc*) {
  ++init_calls;
  return init_result;
}

struct NoteTheEnd {
  ~NoteTheEnd() { ended = true; }
};

[[noreturn]] void wait_for_ever() {
  for (;;) {
    pause();
  }
}

int ready_and_waits(erps_task_desc* task) {
  const NoteTheEnd note;
  policy = sched_getscheduler(0);
  sigset_t blocked;
  pthread_sigmask(SIG_SETMASK, nullptr, &blocked);
  signals_blocked = sigismember(&blocked, SIGTERM) == 1;
  task->process_id = static_cast<uintptr_t>(getpid());
  stask_notify_creater(task, 0);
  wait_for_ever();
}

int reports_failure(erps_task_desc* task) {
  const NoteTheEnd note;
  stask_notify_creater(task, -5);
  return -1;
}

int ends_without_a_word(erps_task_desc*) {
  const NoteTheEnd note;
  return 0;
}

int ready_and_ends(erps_task_desc* task) {
  stask_notify_creater(task, 0);
  return 0;
}

class TaskTest : public PlatformTest {
 protected:
  void SetUp() override {
    PlatformTest::SetUp();
    if (!IsSkipped()) {
      init_calls = 0;
      init_result = 0;
      ended = false;
      policy = -1;
    }
  }

  static erps_task_desc task(int (*entry)(erps_task_desc*)) {
    erps_task_desc descriptor{};
    descriptor.name = "erps_process";
    descriptor.thread_id = kNotRunning;
    descriptor.init = init_hook;
    descriptor.entry = entry;
    return descriptor;
  }

  // A thread that was joined may be counted for a moment yet.
  static size_t threads() {
    const std::filesystem::directory_iterator tasks("/proc/self/task");
    return static_cast<size_t>(std::distance(begin(tasks), end(tasks)));
  }
};

TEST_F(TaskTest, StartsWhenTheTaskIsReadyAndStopsForGood) {
  ASSERT_NO_THROW(start(config()));
  const size_t before = threads();
  erps_task_desc descriptor = task(ready_and_waits);
  for (int round = 1; round <= 3; ++round) {
    ended = false;
    ASSERT_EQ(stask_start(&descriptor, 0), 0);
    EXPECT_EQ(init_calls, round);
    EXPECT_NE(descriptor.thread_id, kNotRunning);
    EXPECT_EQ(descriptor.process_id, static_cast<uintptr_t>(getpid()));
    EXPECT_TRUE(signals_blocked);
    EXPECT_LT(stask_start(&descriptor, 0), 0);  // it runs already
    EXPECT_EQ(stask_stop(&descriptor), 0);
    EXPECT_TRUE(ended);
    EXPECT_EQ(descriptor.thread_id, kNotRunning);
    EXPECT_LT(stask_stop(&descriptor), 0);  // it runs no more
  }
  EXPECT_TRUE(eventually([&] { return threads() == before; })) << threads();
}

TEST_F(TaskTest, FailureOfTheTaskIsTheStartersResult) {
  ASSERT_NO_THROW(start(config()));
  const size_t before = threads();
  erps_task_desc descriptor = task(reports_failure);
  EXPECT_EQ(stask_start(&descriptor, 0), -5);
  EXPECT_TRUE(ended);
  EXPECT_EQ(descriptor.thread_id, kNotRunning);
  EXPECT_TRUE(eventually([&] { return threads() == before; })) << threads();
}

TEST_F(TaskTest, TaskThatEndsWithoutReportingHasFailed) {
  ASSERT_NO_THROW(start(config()));
  erps_task_desc descriptor = task(ends_without_a_word);
  EXPECT_LT(stask_start(&descriptor, 0), 0);
  EXPECT_TRUE(ended);
  EXPECT_EQ(descriptor.thread_id, kNotRunning);
}

TEST_F(TaskTest, FailureOfTheInitHookStartsNothing) {
  ASSERT_NO_THROW(start(config()));
  const size_t before = threads();
  init_result = -3;
  erps_task_desc descriptor = task(ready_and_waits);
  EXPECT_EQ(stask_start(&descriptor, 0), -3);
  EXPECT_EQ(descriptor.thread_id, kNotRunning);
  EXPECT_TRUE(eventually([&] { return threads() == before; })) << threads();
}

TEST_F(TaskTest, TaskThatEndedByItselfIsStillStopped) {
  ASSERT_NO_THROW(start(config()));
  const size_t before = threads();
  erps_task_desc descriptor = task(ready_and_ends);
  ASSERT_EQ(stask_start(&descriptor, 0), 0);
  EXPECT_EQ(stask_stop(&descriptor), 0);
  EXPECT_EQ(descriptor.thread_id, kNotRunning);
  EXPECT_TRUE(eventually([&] { return threads() == before; })) << threads();
}

TEST_F(TaskTest, TwoTasksRunSideBySide) {
  ASSERT_NO_THROW(start(config()));
  erps_task_desc first = task(ready_and_waits);
  erps_task_desc second = task(ready_and_waits);
  ASSERT_EQ(stask_start(&first, 0), 0);
  ASSERT_EQ(stask_start(&second, 0), 0);
  EXPECT_NE(first.thread_id, second.thread_id);
  EXPECT_EQ(stask_stop(&first), 0);
  EXPECT_EQ(stask_stop(&second), 0);
}

TEST_F(TaskTest, RealTimePriorityIsTheTasks) {
  Config c = config();
  c.realtime_priority = 10;
  ASSERT_NO_THROW(start(c));
  erps_task_desc descriptor = task(ready_and_waits);
  ASSERT_EQ(stask_start(&descriptor, 0), 0);
  EXPECT_EQ(policy, SCHED_FIFO);
  EXPECT_EQ(stask_stop(&descriptor), 0);
  EXPECT_EQ(sched_getscheduler(0), SCHED_OTHER);
}

}  // namespace
}  // namespace erps::linux_platform::test
