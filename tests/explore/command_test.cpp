// erpslab explore as an operator calls it.
#include <gmock/gmock.h>
#include <sys/wait.h>

#include <array>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <nlohmann/json.hpp>

namespace {

using testing::AllOf;
using testing::HasSubstr;

struct Ended {
  int status = -1;
  std::string text;  // both outputs
};

// In a directory of its own, with a ring of two nodes.
class ExploreCommand : public testing::Test {
 protected:
  ExploreCommand() {
    std::string pattern = (std::filesystem::temp_directory_path() / "explore.XXXXXX").string();
    directory_ = mkdtemp(pattern.data());
    std::ofstream(directory_ / "ring.toml") << R"(
[[node]]
name = "n1"
[[node]]
name = "n2"
[[link]]
name = "one"
between = ["n1", "n2"]
[[link]]
name = "other"
between = ["n2", "n1"]
[[ring]]
id = 1
control_vlan = 100
nodes = ["n1", "n2"]
owner = "n1"
rpl = "other"
role = "major"
revertive = true
wtr_ms = 5000
guard_ms = 500
)";
  }
  ~ExploreCommand() override {
    std::error_code error;
    std::filesystem::remove_all(directory_, error);
  }

  Ended run(const std::string& arguments) const {
    const std::string command =
        "cd " + directory_.string() + " && " + ERPS_ERPSLAB + " explore " + arguments + " 2>&1";
    Ended ended;
    FILE* pipe = popen(command.c_str(), "r");
    if (pipe == nullptr) {
      return ended;
    }
    std::array<char, 4096> part{};
    for (size_t read = 0; (read = fread(part.data(), 1, part.size(), pipe)) > 0;) {
      ended.text.append(part.data(), read);
    }
    const int status = pclose(pipe);
    ended.status = WIFEXITED(status) ? WEXITSTATUS(status) : -1;
    return ended;
  }

  std::filesystem::path directory_;
};

TEST_F(ExploreCommand, TellsWhatWasVisited) {
  const Ended ended = run("ring.toml --module " ERPS_MODULE);
  EXPECT_EQ(0, ended.status) << ended.text;
  EXPECT_THAT(ended.text,
              AllOf(HasSubstr("2 nodes, 2 links; 1 cut of a link"),
                    HasSubstr("exhausted: every state was visited"), HasSubstr("no violation")));
}

TEST_F(ExploreCommand, AsJson) {
  const Ended ended = run("ring.toml --ticks 3 --json --module " ERPS_MODULE);
  EXPECT_EQ(0, ended.status) << ended.text;
  const auto result = nlohmann::json::parse(ended.text);
  EXPECT_TRUE(result["exhausted"]);
  EXPECT_TRUE(result["violation"].is_null());
  EXPECT_GT(result["states"].get<uint64_t>(), 1000U);
  EXPECT_EQ(0U, result["frontier"].get<uint64_t>());
  EXPECT_EQ(3U, result["budget"]["ticks"].get<uint64_t>());
}

TEST_F(ExploreCommand, AViolationIsWrittenAsAScenarioAndReplayed) {
  const std::string module =
      " --module " ERPS_MISTAKEN_MODULES "/libmodule_leaves_its_failed_port_open.so";
  const Ended found = run("ring.toml --scenario way.scenario" + module);
  EXPECT_EQ(1, found.status) << found.text;
  EXPECT_THAT(found.text, AllOf(HasSubstr("VIOLATION"), HasSubstr("way.scenario")));
  const Ended replayed = run("ring.toml --replay way.scenario" + module);
  EXPECT_EQ(1, replayed.status) << replayed.text;
  EXPECT_THAT(replayed.text, AllOf(HasSubstr("cut n1:"), HasSubstr("LOOP"),
                                   HasSubstr("notices that the carrier of port")));
}

TEST_F(ExploreCommand, WhatIsNotExhaustedEndsInThree) {
  const Ended ended = run("ring.toml --cuts 3 --minutes 0.005 --module " ERPS_MODULE);
  EXPECT_EQ(3, ended.status) << ended.text;
  EXPECT_THAT(ended.text, AllOf(HasSubstr("not exhausted: the time was up"),
                                HasSubstr("states were found and not followed"),
                                HasSubstr("no violation so far")));
}

TEST_F(ExploreCommand, MistakesOnTheCommandLineAreNamed) {
  EXPECT_EQ(2, run("ring.toml --cuts 16").status);
  EXPECT_THAT(run("ring.toml --cuts 16").text, HasSubstr("--cuts 16: 0 to 15 are possible"));
  EXPECT_THAT(run("ring.toml --ticks 0").text, HasSubstr("1 to 2000 are possible"));
  EXPECT_EQ(2, run("nowhere.toml").status);
  EXPECT_EQ(2, run("ring.toml --replay nowhere.scenario").status);
}

}  // namespace
