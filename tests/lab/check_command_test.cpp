// erpslab check as an operator and a monitoring system use it.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>

#include "tests/lab/check_rules.h"
#include "tests/lab/lab_process.h"
#include "tests/lab/topology_text.h"

namespace erps::lab::testing {
namespace {

constexpr std::chrono::seconds kShort{20};

LabResult check(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {lab_path(), "check"});
  return LabProcess(arguments).wait(kShort);
}

const std::string kGood = four_nodes() + ring_of_four();
const std::string kRisky = four_nodes() + ring_of_four("holdoff_ms = 100\n");
const std::string kWrong = four_nodes() + ring_of_four("guard_ms = 1\nrevertive = false\n");

TEST(CheckCommand, AFileWithoutFindingIsOk) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("ring.toml", kGood);
  const LabResult result = check({path});
  EXPECT_EQ(result.status, 0);
  EXPECT_EQ(result.out, "ERPS OK - " + path + ": nothing found; 4 nodes, 4 links, 1 ring\n");
  EXPECT_EQ(result.err, "");
}

TEST(CheckCommand, ExamplesAreOk) {
  for (const char* example : {"four-node-ring", "sixteen-node-ring", "ladder"}) {
    const LabResult result = check({std::string(ERPS_EXAMPLES "/") + example + ".toml"});
    EXPECT_EQ(result.status, 0) << result.out;
  }
}

TEST(CheckCommand, TwoSubRingsOfAnExampleAreWarnedOf) {
  const LabResult result = check({std::string(ERPS_EXAMPLES "/three-rings.toml")});
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.out.find("three-rings.toml: 1 warning"), std::string::npos) << result.out;
  EXPECT_NE(result.out.find("[major-ring-shared]"), std::string::npos) << result.out;
}

TEST(CheckCommand, WarningsAreOneAndErrorsTwo) {
  const TemporaryDirectory directory;
  const LabResult warned = check({directory.write("risky.toml", kRisky)});
  EXPECT_EQ(warned.status, 1);
  EXPECT_NE(warned.out.find("ERPS WARNING - "), std::string::npos) << warned.out;
  const std::string path = directory.write("wrong.toml", kWrong);
  const LabResult refused = check({path});
  EXPECT_EQ(refused.status, 2);
  EXPECT_EQ(refused.out.substr(0, refused.out.find('\n')),
            "ERPS CRITICAL - " + path + ": 1 error, 1 warning");
  EXPECT_NE(refused.out.find(path + ":33: error: ring 1: guard_ms = 1: allowed: 10 to 2000 ms "
                                    "[timer-range]\n"),
            std::string::npos)
      << refused.out;
}

TEST(CheckCommand, WhatCannotBeCheckedIsThree) {
  const LabResult missing = check({"/nonexistent/ring.toml"});
  EXPECT_EQ(missing.status, 3);
  EXPECT_EQ(missing.out,
            "ERPS UNKNOWN - /nonexistent/ring.toml: 1 error\n"
            "/nonexistent/ring.toml: error: cannot be read: No such file or directory "
            "[unreadable]\n");
  EXPECT_EQ(documented_rules().count("unreadable"), 1U);
  const TemporaryDirectory directory;
  EXPECT_EQ(check({directory.path()}).status, 3) << "a directory is no topology file";
  EXPECT_EQ(check({}).status, 3);
  EXPECT_EQ(check({"a.toml", "b.toml"}).status, 3);
  EXPECT_EQ(check({"a.toml", "--daemon", "b.toml"}).status, 3);
  EXPECT_EQ(check({"--verbose"}).status, 3);
  EXPECT_EQ(check({"--daemon", directory.path()}).status, 3) << "no file is in it";
}

TEST(CheckCommand, JsonSaysTheSameWithStableKeys) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("wrong.toml", kWrong);
  const LabResult result = check({"--json", path});
  EXPECT_EQ(result.status, 2);
  const auto json = nlohmann::json::parse(result.out);
  EXPECT_EQ(json["status"], "critical");
  EXPECT_EQ(json["exit_status"], 2);
  EXPECT_EQ(json["summary"], "ERPS CRITICAL - " + path + ": 1 error, 1 warning");
  EXPECT_EQ(json["files"], nlohmann::json::array({path}));
  EXPECT_EQ(json["errors"], 1);
  EXPECT_EQ(json["warnings"], 1);
  ASSERT_EQ(json["findings"].size(), 2U);
  EXPECT_EQ(json["findings"][0], (nlohmann::json{
                                     {"severity", "error"},
                                     {"rule", "timer-range"},
                                     {"file", path},
                                     {"line", 33},
                                     {"where", "ring 1"},
                                     {"key", "guard_ms"},
                                     {"value", "1"},
                                     {"why", nullptr},
                                     {"advice", "allowed: 10 to 2000 ms"},
                                     {"text", "ring 1: guard_ms = 1: allowed: 10 to 2000 ms"},
                                 }));
  EXPECT_EQ(json["findings"][1]["rule"], "non-revertive");
  EXPECT_EQ(json["findings"][1]["severity"], "warning");
}

TEST(CheckCommand, JsonOfAGoodFileHasTheSameKeys) {
  const TemporaryDirectory directory;
  const LabResult result = check({directory.write("ring.toml", kGood), "--json"});
  EXPECT_EQ(result.status, 0);
  const auto json = nlohmann::json::parse(result.out);
  EXPECT_EQ(json["status"], "ok");
  EXPECT_EQ(json["errors"], 0);
  EXPECT_EQ(json["findings"], nlohmann::json::array());
}

TEST(CheckCommand, JsonOfBrokenBytesIsStillJson) {
  const TemporaryDirectory directory;
  const std::string cut_off(99, 'x');
  const std::string name = "name = \"" + cut_off + "\xc3\xa9\\u0007\"\n";
  const LabResult result = check({directory.write("odd.toml", name + kGood), "--json"});
  EXPECT_EQ(result.status, 2);
  EXPECT_TRUE(nlohmann::json::accept(result.out)) << result.out;
}

TEST(CheckCommand, ConfigurationsThatItMadeFitTogether) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("ladder", ladder());
  std::vector<std::string> arguments{"--daemon"};
  for (const char* node : {"n1", "n2", "n3", "n4", "n5", "n6"}) {
    const LabResult config = LabProcess({lab_path(), "config", path, node}).wait(kShort);
    arguments.push_back(directory.write(std::string(node) + ".toml", config.out));
  }
  const LabResult files = check(arguments);
  EXPECT_EQ(files.status, 0);
  EXPECT_EQ(files.out, "ERPS OK - 6 files: nothing found; 2 rings\n");
  EXPECT_EQ(check({"--daemon", directory.path()}).out, files.out);
}

TEST(CheckCommand, RunTellsTheSameFindingsAndRunsNothing) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("wrong.toml", kWrong);
  const LabResult checked = check({path});
  const LabResult run = LabProcess({lab_path(), "run", path}).wait(kShort);
  EXPECT_EQ(run.status, 2);
  EXPECT_EQ(run.err, checked.out.substr(checked.out.find('\n') + 1));
}

}  // namespace
}  // namespace erps::lab::testing
