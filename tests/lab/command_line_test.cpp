// What a user sees who gets the command line or the file wrong, and of `erpslab config`.
#include <gtest/gtest.h>

#include "tests/lab/lab_process.h"
#include "tests/lab/topology_text.h"

namespace erps::lab::testing {
namespace {

constexpr std::chrono::seconds kShort{20};

LabResult lab(std::vector<std::string> arguments) {
  arguments.insert(arguments.begin(), lab_path());
  return LabProcess(arguments).wait(kShort);
}

TEST(CommandLine, WithoutACommandItAsksForOne) {
  const LabResult result = lab({});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "erpslab: a command is needed; see erpslab --help\n");
}

TEST(CommandLine, AnUnknownCommandIsNamedAndSoAreTheOnesThereAre) {
  for (const std::string word : {"frobnicate", ""}) {
    const LabResult result = lab({word, "ring.toml"});
    EXPECT_EQ(result.status, 2);
    EXPECT_EQ(result.err, "erpslab: \"" + word +
                              "\" is no command; there are run, config, check, simulate, explore, "
                              "exec\n");
  }
}

TEST(CommandLine, AnUnknownOptionIsAMistake) {
  const LabResult result = lab({"run", "ring.toml", "--fast"});
  EXPECT_EQ(result.status, 2);
  EXPECT_NE(result.err.find("--fast"), std::string::npos) << result.err;
}

TEST(CommandLine, AMistakeInTheFileIsToldAndNothingRuns) {
  const TemporaryDirectory directory;
  const std::string path =
      directory.write("ring.toml", four_nodes() + ring_of_four("guard_ms = 1\n"));
  const LabResult result = lab({"run", path, "--erpsd", "/nonexistent"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err,
            path + ":33: error: ring 1: guard_ms = 1: allowed: 10 to 2000 ms [timer-range]\n");
  EXPECT_EQ(result.out, "");
}

TEST(CommandLine, AMissingDaemonIsNamed) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("ring.toml", four_nodes() + ring_of_four());
  const LabResult result = lab({"run", path, "--erpsd", "/nonexistent/erpsd"});
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.err, "erpslab: /nonexistent/erpsd: No such file or directory\n");
}

TEST(CommandLine, ADaemonThatEndsAtOnceIsToldWithItsLastWords) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("ring.toml", four_nodes() + ring_of_four());
  const std::string daemon =
      directory.write("erpsd", "#!/bin/sh\necho 'cannot do this' >&2\nexit 4\n");
  ASSERT_EQ(chmod(daemon.c_str(), 0755), 0);
  const LabResult result = lab({"run", path, "--erpsd", daemon, "--module", daemon});
  EXPECT_EQ(result.status, 3) << result.out << result.err;
  EXPECT_EQ(result.err,
            "erpslab: erpsd of node n1 ended with status 4 before its rings ran\n"
            "    cannot do this\n");
}

TEST(CommandLine, ConfigPrintsTheConfigurationOfANode) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("ring.toml", four_nodes() + ring_of_four());
  const LabResult result = lab({"config", path, "n4"});
  EXPECT_EQ(result.status, 0) << result.err;
  EXPECT_NE(result.out.find("node_role = \"neighbour\"\nrpl_port = 2\n"), std::string::npos)
      << result.out;
}

TEST(CommandLine, ConfigOfANodeThatIsNotThereNamesTheOthers) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("ring.toml", four_nodes() + ring_of_four());
  const LabResult result = lab({"config", path, "n9"});
  EXPECT_EQ(result.status, 2);
  EXPECT_EQ(result.err, "erpslab: no node is named n9; allowed: n1, n2, n3, n4\n");
}

}  // namespace
}  // namespace erps::lab::testing
