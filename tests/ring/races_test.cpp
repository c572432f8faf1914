// ThreadSanitizer sees the tasks of a simulated module as threads.
#include <gmock/gmock.h>

#include <string>

#include "tests/ring/child_process.h"

namespace erps::sim {

namespace {

using testing::HasSubstr;
using testing::Not;

Ended simulate(const std::string& module) {
  return run_program(std::string(ERPS_TRACE_HASH) + " " + module + " 60 1");
}

}  // namespace

TEST(Races, AVariableSharedWithoutALockIsReported) {
  const Ended ended =
      simulate(std::string(ERPS_MISTAKEN_MODULES) + "/libmodule_shares_without_a_lock.so");
  EXPECT_NE(ended.status, 0);
  EXPECT_THAT(ended.text, HasSubstr("data race"));
  EXPECT_THAT(ended.text, HasSubstr("ticks_seen"));
}

TEST(Races, TheModuleHasNone) {
  const Ended ended = simulate(ERPS_MODULE);
  EXPECT_EQ(ended.status, 0);
  EXPECT_THAT(ended.text, Not(HasSubstr("ThreadSanitizer")));
}

}  // namespace erps::sim
