// erpslab simulate as its user sees it.
#include <gtest/gtest.h>
#include <signal.h>

#include <filesystem>
#include <fstream>
#include <iterator>
#include <nlohmann/json.hpp>
#include <sstream>
#include <thread>

#include "tests/lab/lab_process.h"
#include "tests/lab/topology_text.h"

namespace erps::lab::testing {
namespace {

using nlohmann::json;

constexpr std::chrono::seconds kLongest{60};

LabResult simulate(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), {lab_path(), "simulate"});
  return LabProcess(arguments).wait(kLongest);
}

std::string read(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

std::string output_of(const std::string& command) {
  std::string text;
  FILE* pipe = popen(command.c_str(), "r");
  char buffer[4096];
  for (size_t count; (count = fread(buffer, 1, sizeof buffer, pipe)) > 0;) {
    text.append(buffer, count);
  }
  EXPECT_EQ(pclose(pipe), 0) << command;
  return text;
}

// What must be the same however often, and in however many processes, a campaign is run.
json counts_of(const std::string& out) {
  json counts = json::parse(out);
  counts.erase("elapsed_s");
  for (json& result : counts["results"]) {
    result.erase("smallest");
    result.erase("smallest_faults");
  }
  return counts;
}

std::vector<std::string> words_of(const std::string& line) {
  std::istringstream in(line);
  return {std::istream_iterator<std::string>(in), {}};
}

// The rest of the first line that has this in it.
std::string behind(const std::string& text, const std::string& mark) {
  const size_t begin = text.find(mark);
  if (begin == std::string::npos) {
    return {};
  }
  const size_t from = begin + mark.size();
  return text.substr(from, text.find('\n', from) - from);
}

class Simulate : public ::testing::Test {
 protected:
  std::string ring(const std::string& more = "") const {
    return directory_.write("ring.toml", four_nodes() + ring_of_four() + more);
  }
  std::string in(const std::string& name) const { return directory_.path() + "/" + name; }

  const TemporaryDirectory directory_;
};

TEST_F(Simulate, AScriptSaysWhatCameOfEachStep) {
  const LabResult result =
      simulate({ring("[expect]\ncut_outage_ms = 50\nduplicates = 0\n"
                     "[[step]]\ncut = \"n2-n3\"\n[[step]]\nrestore = \"n2-n3\"\n"),
                "--seed", "7", "--json"});
  ASSERT_EQ(result.status, 0) << result.err;
  EXPECT_EQ(result.err, "seed 7\n");
  const json report = json::parse(result.out);
  EXPECT_EQ(report["seed"], 7);
  ASSERT_EQ(report["steps"].size(), 3U);
  const json& cut = report["steps"][1];
  EXPECT_EQ(cut["what"], "cut n2-n3");
  EXPECT_EQ(cut["nodes"][1]["rings"][0]["state"], "protection");
  EXPECT_EQ(cut["nodes"][1]["rings"][0]["blocked"][0]["link"], "n2-n3");
  const json& way = cut["traffic"]["directions"][0];
  EXPECT_GT(way["outage_ms"].get<double>(), 0.05);
  EXPECT_LT(way["outage_ms"].get<double>(), 10);
  EXPECT_GT(way["lost"].get<int>(), 0);
  // Lost at the file's pace for as long as the outage lasts, and one with each change on the way:
  // the link, its two carriers, its two ports, the RPL.
  EXPECT_NEAR(way["lost"].get<double>(), way["outage_ms"].get<double>() * 10, 6);
  EXPECT_EQ(report["steps"][2]["nodes"][0]["rings"][0]["state"], "idle");
  EXPECT_GT(report["messages"]["received"].get<int>(), 0);
}

TEST_F(Simulate, AnExpectationThatFailsIsStatus1AndTheSeedShowsItAgain) {
  const std::string path = ring("[expect]\ncut_outage_ms = 0.01\n[[step]]\ncut = \"n1-n2\"\n");
  const LabResult result = simulate({path});
  EXPECT_EQ(result.status, 1) << result.err;
  EXPECT_NE(result.out.find("FAIL  outage at most 0.01 ms"), std::string::npos) << result.out;
  const std::string seed = behind(result.out, "seed ");
  EXPECT_EQ(behind(result.out, "again: "), "erpslab simulate " + path + " --seed " + seed);
  EXPECT_EQ(simulate({path, "--seed", seed}).out, result.out);
}

TEST_F(Simulate, WithoutAScriptEveryLinkIsCutAndRestored) {
  const LabResult result = simulate({ring(), "--seed", "3"});
  EXPECT_EQ(result.status, 0) << result.err;
  for (const char* what :
       {"cut n1-n2", "restore n2-n3", "cut n4-n1", "n3 n4: protection, blocks n3-n4"}) {
    EXPECT_NE(result.out.find(what), std::string::npos) << what << "\n" << result.out;
  }
  EXPECT_EQ(counts_of(simulate({ring(), "--seed", "3", "--json"}).out),
            counts_of(simulate({ring(), "--seed", "3", "--json", "--every-link"}).out));
}

TEST_F(Simulate, EveryNodeIsCrashedAndRestarted) {
  const LabResult result = simulate({ring(), "--seed", "3", "--every-node", "--json"});
  EXPECT_EQ(result.status, 0) << result.out;
  const json report = json::parse(result.out);
  EXPECT_EQ(report["scenarios"], 4);
  EXPECT_EQ(report["faults"]["crash"], 4);
  EXPECT_NE(report["results"][1]["changes"][1]["states"].get<std::string>().find("n2: no power"),
            std::string::npos);
}

TEST_F(Simulate, ACampaignIsTheSameInOneProcessAndInThree) {
  const std::vector<std::string> campaign{"--rings", "2-6",         "--faults",       "random",
                                          "--seed",  "11",          "--hours",        "4",
                                          "--json",  "--scenarios", directory_.path()};
  const auto with_jobs = [&](const char* jobs) {
    std::vector<std::string> arguments = campaign;
    arguments.insert(arguments.end(), {"--jobs", jobs});
    return counts_of(simulate(arguments).out);
  };
  const json one = with_jobs("1");
  EXPECT_GE(one["simulated_hours"].get<double>(), 4);
  EXPECT_EQ(one, with_jobs("3"));
}

TEST_F(Simulate, ACampaignsReportNamesTheCommandThatPlaysAllOfItAgain) {
  const LabResult result =
      simulate({"--rings", "2-4", "--faults", "random", "--seed", "14", "--hours", "1.5", "--json",
                "--scenarios", directory_.path(), "--report", in("page.html")});
  const json whole = json::parse(result.out);
  const auto command = whole["command"].get<std::string>();
  EXPECT_NE(read(in("page.html")).find("<pre>" + command + "</pre>"), std::string::npos);
  auto words = words_of(command);
  ASSERT_GT(words.size(), 2U) << command;
  words.insert(words.end(), {"--json", "--scenarios", directory_.path()});
  EXPECT_EQ(counts_of(simulate({words.begin() + 2, words.end()}).out), counts_of(result.out));
}

TEST_F(Simulate, ACampaignThatWasStoppedGoesOn) {
  const std::vector<std::string> campaign{
      "--rings", "2-6",    "--faults", "random",      "--seed",         "12", "--hours", "30",
      "--json",  "--jobs", "1",        "--scenarios", directory_.path()};
  const json whole = counts_of(simulate(campaign).out);

  std::vector<std::string> with_state = campaign;
  with_state.insert(with_state.begin(), {lab_path(), "simulate"});
  with_state.insert(with_state.end(), {"--state", in("state")});
  LabProcess first(with_state);
  // Ended once something is done: the file is written every other second.
  const auto deadline = std::chrono::steady_clock::now() + kLongest;
  while (!std::filesystem::exists(in("state")) && std::chrono::steady_clock::now() < deadline) {
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  first.signal(SIGINT);
  const LabResult stopped = first.wait(kLongest);
  EXPECT_EQ(stopped.status, 130) << stopped.err;
  const json state = json::parse(read(in("state")));
  EXPECT_LT(state["tally"]["scenarios"], whole["count"]);

  std::vector<std::string> again = campaign;
  again.insert(again.end(), {"--state", in("state")});
  EXPECT_EQ(counts_of(simulate(again).out), whole);

  // Nor is it taken for that of another campaign.
  const LabResult other =
      simulate({"--rings", "2-6", "--faults", "random", "--seed", "13", "--state", in("state")});
  EXPECT_EQ(other.status, 3);
  EXPECT_NE(other.err.find("another campaign"), std::string::npos) << other.err;
}

TEST_F(Simulate, AFailureComesWithTheCommandThatShowsItAndASmallerScenario) {
  // A module whose WTR never ends.
  const LabResult result = simulate({ring(""), "--every-link", "--seed", "4", "--module",
                                     ERPS_LOSES_THE_END_OF_WTR, "--scenarios", directory_.path()});
  EXPECT_EQ(result.status, 1) << result.err;
  const auto command = words_of(behind(result.out, "again: "));
  ASSERT_GT(command.size(), 4U) << result.out;
  EXPECT_EQ(command[0], "erpslab");
  const LabResult again = simulate({command.begin() + 2, command.end()});
  EXPECT_EQ(again.status, 1) << again.err;
  EXPECT_NE(again.out.find("FAIL  no home finding"), std::string::npos) << again.out;

  // It needs no fault at all.
  const auto smallest = words_of(behind(result.out, ", 0 faults: "));
  ASSERT_GT(smallest.size(), 4U) << result.out;
  const LabResult replayed = simulate({smallest.begin() + 2, smallest.end()});
  EXPECT_EQ(replayed.status, 1) << replayed.err;
  EXPECT_NE(replayed.out.find("FAIL  no home finding"), std::string::npos) << replayed.out;
}

TEST_F(Simulate, AFailureOfRandomFaultsComesWithTheCommandThatDrawsThemAgain) {
  const LabResult result = simulate({"--rings", "3-4", "--faults", "random", "--fault-every",
                                     "45.5", "--hours", "0.1", "--seed", "4", "--module",
                                     ERPS_LOSES_THE_END_OF_WTR, "--scenarios", directory_.path()});
  EXPECT_EQ(result.status, 1) << result.err;
  const std::string command = behind(result.out, "again: ");
  EXPECT_NE(command.find(" --faults random --fault-every 45.5 "), std::string::npos) << command;
  const auto words = words_of(command);
  ASSERT_GT(words.size(), 4U) << result.out;
  const LabResult again = simulate({words.begin() + 2, words.end()});
  EXPECT_EQ(again.status, 1) << again.err;
  EXPECT_NE(again.out.find("FAIL"), std::string::npos) << again.out;
}

TEST_F(Simulate, ACampaignMakesTheDirectoryForItsScenarios) {
  const std::string directory = directory_.path() + "/smallest";
  const LabResult result = simulate({ring(""), "--every-link", "--seed", "4", "--module",
                                     ERPS_LOSES_THE_END_OF_WTR, "--scenarios", directory});
  EXPECT_EQ(result.status, 1) << result.err;
  EXPECT_FALSE(std::filesystem::is_empty(directory)) << result.out;
}

TEST_F(Simulate, ACampaignThatCannotWriteWhatItFindsDoesNotBegin) {
  for (const auto& [option, path] : {std::pair("--scenarios", "/nonexistent/smallest"),
                                     std::pair("--report", "/nonexistent/page.html")}) {
    const LabResult result = simulate({ring(), "--every-link", option, path});
    EXPECT_EQ(result.status, 3) << option;
    EXPECT_EQ(result.out, "") << option;
    EXPECT_NE(result.err.find(path), std::string::npos) << result.err;
  }
}

// A module that names no rings cannot be judged, whatever else it does wrong and however early:
// with the second seed it takes its lock twice before anybody looks for them.
TEST_F(Simulate, WhatCannotRunIsStatus3) {
  for (const char* module : {"/nonexistent", ERPS_LOCKS_TWICE}) {
    for (const std::vector<std::string>& seed :
         std::vector<std::vector<std::string>>{{}, {"--seed", "4"}}) {
      std::vector<std::string> arguments{ring(), "--every-link", "--module", module};
      arguments.insert(arguments.end(), seed.begin(), seed.end());
      const LabResult result = simulate(arguments);
      EXPECT_EQ(result.status, 3) << result.out;
      EXPECT_FALSE(result.err.empty());
    }
  }
}

TEST_F(Simulate, AScenarioFileIsPlayedFaultByFault) {
  const std::string scenario = directory_.write("two.toml", R"(seed = 5
[[fault]]
cut = "n1-n2"
at_s = 20
for_s = 8.5
[[fault]]
forced_switch = "n3:n2-n3"
ring = 1
at_s = 60
for_s = 10
)");
  const LabResult result = simulate({ring(), "--scenario", scenario, "--json"});
  EXPECT_EQ(result.status, 0) << result.out;
  const json report = json::parse(result.out);
  ASSERT_EQ(report["steps"].size(), 5U);
  EXPECT_EQ(report["steps"][1]["what"], "cut n1-n2 at 20.000 s");
  EXPECT_EQ(report["steps"][2]["what"], "restore n1-n2 at 28.500 s");
  EXPECT_EQ(report["steps"][3]["nodes"][2]["rings"][0]["state"], "forced");
  EXPECT_EQ(report["steps"][4]["nodes"][2]["rings"][0]["state"], "idle");
}

TEST_F(Simulate, MistakesInAScenarioFileAreToldWithTheirLines) {
  const std::string scenario = directory_.write("bad.toml", R"(seed = 5
[[fault]]
cut = "n1-n9"
at_s = 20
for_s = 8
[[fault]]
crash = "n2"
for_s = -1
)");
  const LabResult result = simulate({ring(), "--scenario", scenario});
  EXPECT_EQ(result.status, 2);
  EXPECT_NE(result.err.find("bad.toml:3: error: fault 1: cut = 'n1-n9'"), std::string::npos)
      << result.err;
  EXPECT_NE(result.err.find("allowed: n1-n2, n2-n3, n3-n4, n4-n1"), std::string::npos)
      << result.err;
  EXPECT_NE(result.err.find("bad.toml:8: error: fault 2: for_s = -1"), std::string::npos)
      << result.err;
  EXPECT_EQ(result.out, "");
}

TEST_F(Simulate, WhatDoesNotGoTogetherIsAMistake) {
  const std::string path = ring();
  const std::vector<std::vector<std::string>> wrong{
      {},
      {path, "--rings", "2-16", "--faults", "random"},
      {"--rings", "1-16", "--faults", "random"},
      {"--rings", "2-16"},
      {path, "--every-link", "--faults", "random"},
      {path, "--every-link", "--only", "4"},
      {path, "--every-link", "--pcap", in("frames")},
      {path, "--fault-every", "60"},
      {path, "--faults", "random", "--fault-every", "0"},
      {path, "--jobs", "0"}};
  for (const auto& arguments : wrong) {
    const LabResult result = simulate(arguments);
    EXPECT_EQ(result.status, 2) << result.out;
    EXPECT_FALSE(result.err.empty());
  }
}

TEST_F(Simulate, CapturesAreReadByAnIndependentDissector) {
  const LabResult result = simulate({ring("[[step]]\ncut = \"n2-n3\"\n"), "--seed", "1", "--pcap",
                                     in("frames"), "--report", in("page.html")});
  ASSERT_EQ(result.status, 0) << result.err;
  const std::string seen = output_of("tshark -r " + in("frames/n2.pcapng") + " -V 2>/dev/null");
  EXPECT_NE(seen.find("Request/State: Signal Failure"), std::string::npos) << seen;
  EXPECT_EQ(seen.find("Malformed"), std::string::npos) << seen;
  EXPECT_NE(seen.find("Jan  1, 1970"), std::string::npos) << seen;
  EXPECT_EQ(read(in("page.html")).compare(0, 15, "<!DOCTYPE html>"), 0);
}

}  // namespace
}  // namespace erps::lab::testing
