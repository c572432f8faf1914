// The processes of a campaign: their answers, their deaths, and how long one may take.
#include "lab/simulate/worker_pool.h"

#include <gmock/gmock.h>

#include <csignal>

#include "lab/clock.h"

namespace erps::lab {

namespace {

using testing::HasSubstr;

constexpr int64_t kLongestJobMs = 400;

WorkerPool::Done do_job(WorkerPool& pool, uint64_t job) {
  pool.give(job);
  for (;;) {
    if (auto done = pool.wait(20)) {
      return *done;
    }
  }
}

WorkerPool::Done do_job(const WorkerPool::Work& work) {
  WorkerPool pool(1, work, kLongestJobMs);
  return do_job(pool, 7);
}

void use_processor_ms(int64_t duration_ms) {
  const int64_t until_ns = clock_ns(CLOCK_PROCESS_CPUTIME_ID) + duration_ms * kNsPerMs;
  while (clock_ns(CLOCK_PROCESS_CPUTIME_ID) < until_ns) {
  }
}

}  // namespace

TEST(WorkerPool, AnswersComeBackAsTheyAre) {
  const auto done =
      do_job([](uint64_t job) { return std::string(100'000, 'x') + char('0' + job); });
  EXPECT_EQ(done.job, 7u);
  EXPECT_EQ(done.answer, std::string(100'000, 'x') + "7");
  EXPECT_EQ(done.death, "");
}

TEST(WorkerPool, AJobThatNeverEndsIsEnded) {
  const auto done = do_job([](uint64_t) -> std::string {
    for (;;) {
      use_processor_ms(1000);
    }
  });
  EXPECT_EQ(done.job, 7u);
  EXPECT_EQ(done.death, "no end within 0.4 s of processor time");
  EXPECT_FALSE(done.cannot_run);
}

// As when a campaign is stopped at the terminal, or the machine sleeps.
TEST(WorkerPool, TimeInWhichAJobDoesNotRunIsNotCounted) {
  const auto done = do_job([](uint64_t) -> std::string {
    sleep_ms(2 * kLongestJobMs);
    return "done";
  });
  EXPECT_EQ(done.answer, "done");
  EXPECT_EQ(done.death, "");
}

TEST(WorkerPool, EachJobHasAllOfItsTime) {
  WorkerPool pool(
      1,
      [](uint64_t) -> std::string {
        use_processor_ms(kLongestJobMs / 4);
        return "done";
      },
      kLongestJobMs);
  for (uint64_t job = 0; job < 6; ++job) {
    const auto done = do_job(pool, job);
    EXPECT_EQ(done.job, job);
    EXPECT_EQ(done.answer, "done") << done.death;
  }
}

TEST(WorkerPool, ADeathTakesOnlyItsOwnJobAlong) {
  WorkerPool pool(1, [](uint64_t job) -> std::string {
    if (job == 1) {
      raise(SIGKILL);
    }
    return "done";
  });
  for (uint64_t job = 0; job < 3; ++job) {
    const auto done = do_job(pool, job);
    EXPECT_EQ(done.job, job);
    EXPECT_EQ(done.answer, job == 1 ? "" : "done");
    if (job == 1) {
      EXPECT_THAT(done.death, HasSubstr("signal 9"));
    }
  }
}

}  // namespace erps::lab
