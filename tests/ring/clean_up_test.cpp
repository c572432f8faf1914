// However a process with simulations ends, its copies of the module do not stay behind.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <csignal>
#include <filesystem>
#include <string>

#include "tests/ring/child_process.h"

namespace {

namespace fs = std::filesystem;

struct Ended {
  std::string copy;  // the path of a copy, as printed while the process lived
  std::string rest;  // what it wrote besides
  int status = 0;
};

Ended run(const std::string& way) {
  const auto [text, status] = erps::sim::run_program(std::string(ERPS_ENDING) + " " + way);
  const size_t line = text.find('\n');
  return {text.substr(0, line), line != std::string::npos ? text.substr(line + 1) : "", status};
}

void expect_nothing_left(const Ended& ended) {
  ASSERT_THAT(ended.copy, testing::HasSubstr("erps-sim."));
  EXPECT_FALSE(fs::exists(ended.copy));
  EXPECT_FALSE(fs::exists(fs::path(ended.copy).parent_path()));
}

bool ended_by(const Ended& ended, int signal) {
  return WIFSIGNALED(ended.status) && WTERMSIG(ended.status) == signal;
}

}  // namespace

TEST(CleanUp, AtTheEnd) {
  const Ended ended = run("exit");
  EXPECT_EQ(ended.status, 0);
  expect_nothing_left(ended);
}

TEST(CleanUp, AfterCtrlC) {
  const Ended ended = run(std::to_string(SIGINT));
  EXPECT_TRUE(ended_by(ended, SIGINT));
  expect_nothing_left(ended);
}

TEST(CleanUp, AfterACrashWhichNamesTheSeed) {
  const Ended ended = run(std::to_string(SIGABRT));
  EXPECT_TRUE(ended_by(ended, SIGABRT));
  EXPECT_THAT(ended.rest, testing::HasSubstr("seed 4711"));
  expect_nothing_left(ended);
}

TEST(CleanUp, WhatAKilledProcessLeavesIsRemovedByTheNext) {
  const Ended killed = run(std::to_string(SIGKILL));
  EXPECT_TRUE(ended_by(killed, SIGKILL));
  EXPECT_TRUE(fs::exists(killed.copy));
  run("exit");
  expect_nothing_left(killed);
}
