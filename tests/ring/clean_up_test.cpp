// However a process with simulations ends, its copies of the module do not stay behind.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <array>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <string>

namespace {

namespace fs = std::filesystem;

struct Ended {
  std::string copy;  // the path of a copy, as printed while the process lived
  std::string rest;  // what it wrote besides
  int status = 0;
};

Ended run(const std::string& way) {
  const std::string command = std::string("exec ") + ERPS_ENDING + " " + way + " 2>&1";
  FILE* output = popen(command.c_str(), "r");
  std::string text;
  std::array<char, 512> part{};
  while (fgets(part.data(), part.size(), output) != nullptr) {
    text += part.data();
  }
  Ended ended;
  ended.status = pclose(output);
  const size_t line = text.find('\n');
  ended.copy = text.substr(0, line);
  ended.rest = line != std::string::npos ? text.substr(line + 1) : "";
  return ended;
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
