// One seed is one run in every process, wherever the kernel puts things.
#include <gmock/gmock.h>

#include <fstream>
#include <string>

#include "tests/ring/child_process.h"

namespace erps::sim {

namespace {

struct Traces {
  std::string addresses;
  std::string hashes;
};

Traces run() {
  const Ended ended =
      run_program(std::string(ERPS_TRACE_HASH) + " " + ERPS_MODULE + " 300 1 2 3 4");
  EXPECT_EQ(ended.status, 0) << ended.text;
  const size_t line = ended.text.find('\n');
  return {ended.text.substr(0, line), ended.text.substr(line + 1)};
}

}  // namespace

TEST(TwoProcesses, GiveTheSameTracesAtDifferentAddresses) {
  int randomised = 0;
  std::ifstream("/proc/sys/kernel/randomize_va_space") >> randomised;
  if (randomised != 2) {
    GTEST_SKIP() << "NOT TESTED: address randomisation is off (kernel.randomize_va_space = "
                 << randomised << "), so two processes would show nothing";
  }
  const Traces one = run();
  const Traces other = run();
  EXPECT_THAT(one.hashes, testing::HasSubstr("seed 4 hash "));
  EXPECT_NE(one.addresses, other.addresses);
  EXPECT_EQ(one.hashes, other.hashes);
}

}  // namespace erps::sim
