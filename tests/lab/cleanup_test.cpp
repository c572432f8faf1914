// Nothing outlives a laboratory, whenever and however it is ended.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <filesystem>
#include <thread>

#include "tests/lab/lab_process.h"
#include "tests/lab/topology_text.h"

namespace erps::lab::testing {
namespace {

constexpr std::chrono::seconds kSoon{10};
constexpr std::chrono::seconds kLongestRun{150};

enum class Since { kStart, kFirstNamespace };

struct Ending {
  int signal_number;
  int after_ms;
  // What the time counts from: the start of erpslab, whatever it has come to by then, or its first
  // namespace, so that there is something to clean up however slow the machine is.
  Since since;
};

std::string ending_name(const ::testing::TestParamInfo<Ending>& info) {
  const int number = info.param.signal_number;
  const std::string name = number == SIGINT    ? "Interrupt"
                           : number == SIGKILL ? "Kill"
                                               : "Terminate";
  return name + "After" + std::to_string(info.param.after_ms) + "Ms" +
         (info.param.since == Since::kStart ? "" : "WithNamespaces");
}

// Whether it has made a namespace before so long has passed.
bool begins(const LabProcess& lab, std::chrono::seconds longest) {
  const auto deadline = std::chrono::steady_clock::now() + longest;
  while (lab.namespaces().empty()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

class Cleanup : public ::testing::TestWithParam<Ending> {};

TEST_P(Cleanup, LeavesNothingBehind) {
  const TemporaryDirectory directory;
  const std::string path =
      directory.write("ring.toml", four_nodes() + ring_of_four() +
                                       "[[step]]\nwait_ms = 60000\n[[step]]\ncut = \"n1-n2\"\n");
  const std::set<std::string> before = traces();
  LabProcess lab({lab_path(), "run", path, "--erpsd", daemon_path(), "--module", module_path()});
  if (GetParam().since == Since::kFirstNamespace) {
    ASSERT_TRUE(begins(lab, kSoon)) << lab.err_so_far();
  }
  std::this_thread::sleep_for(std::chrono::milliseconds(GetParam().after_ms));
  const std::set<std::string> namespaces = lab.namespaces();
  lab.signal(GetParam().signal_number);
  const LabResult result = lab.wait(kSoon);
  EXPECT_TRUE(lab.all_gone(kSoon)) << "processes are left";
  EXPECT_EQ(still_in_use(namespaces, kSoon), std::set<std::string>());
  EXPECT_EQ(traces(), before);
  if (GetParam().since == Since::kFirstNamespace) {
    EXPECT_FALSE(namespaces.empty()) << "it had ended before: " << result.err;
    if (GetParam().signal_number != SIGKILL) {
      EXPECT_TRUE(result.exited);
      EXPECT_EQ(result.status, 128 + GetParam().signal_number);
    }
  }
}

// At once, while namespaces are made, while daemons start, while the ring waits to restore, and
// under traffic.
INSTANTIATE_TEST_SUITE_P(
    Moments, Cleanup,
    ::testing::Values(
        Ending{SIGINT, 0, Since::kStart}, Ending{SIGINT, 5, Since::kStart},
        Ending{SIGINT, 30, Since::kStart}, Ending{SIGINT, 100, Since::kStart},
        Ending{SIGINT, 0, Since::kFirstNamespace}, Ending{SIGINT, 100, Since::kFirstNamespace},
        Ending{SIGINT, 400, Since::kFirstNamespace}, Ending{SIGINT, 2000, Since::kFirstNamespace},
        Ending{SIGINT, 8000, Since::kFirstNamespace}, Ending{SIGKILL, 0, Since::kStart},
        Ending{SIGKILL, 5, Since::kStart}, Ending{SIGKILL, 30, Since::kStart},
        Ending{SIGKILL, 100, Since::kStart}, Ending{SIGKILL, 0, Since::kFirstNamespace},
        Ending{SIGKILL, 100, Since::kFirstNamespace}, Ending{SIGKILL, 400, Since::kFirstNamespace},
        Ending{SIGKILL, 2000, Since::kFirstNamespace},
        Ending{SIGKILL, 8000, Since::kFirstNamespace},
        Ending{SIGTERM, 400, Since::kFirstNamespace}),
    ending_name);

TEST(CleanupAfterTheEnd, ARunThatEndsByItselfLeavesNothingEither) {
  const TemporaryDirectory directory;
  const std::string path = directory.write("ring.toml", four_nodes() + ring_of_four());
  const std::set<std::string> before = traces();
  LabProcess lab({lab_path(), "run", path, "--erpsd", daemon_path(), "--module", module_path()});
  const LabResult result = lab.wait(kLongestRun);
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_TRUE(lab.all_gone(kSoon));
  EXPECT_EQ(traces(), before);
}

TEST(Unprivileged, AnOrdinaryUserRunsARingInAUserNamespace) {
  // Where an ordinary user can read them, whatever the permissions of the build tree.
  const TemporaryDirectory directory;
  const std::string path = directory.write(
      "ring.toml", four_nodes() + ring_of_four() +
                       "[expect]\nduplicates = 0\n"
                       "[[step]]\ncut = \"n2-n3\"\n[[step]]\nrestore = \"n2-n3\"\n");
  for (const std::string& program : {lab_path(), daemon_path(), module_path()}) {
    const std::filesystem::path from(program);
    std::filesystem::copy_file(from, directory.path() / from.filename());
    std::filesystem::permissions(directory.path() / from.filename(), std::filesystem::perms(0755));
  }
  constexpr int kNobody = 65534;
  LabProcess lab(
      {directory.path() + "/erpslab", "run", path, "--module", directory.path() + "/liberps.so"},
      geteuid() == 0 ? kNobody : -1);
  const LabResult result = lab.wait(kLongestRun);
  if (result.status == 3 && result.err.find("user namespaces") != std::string::npos) {
    GTEST_SKIP() << "THIS MACHINE ALLOWS NO USER NAMESPACES, NOT TESTED: " << result.err;
  }
  EXPECT_EQ(result.status, 0) << result.out << result.err;
  EXPECT_TRUE(lab.all_gone(kSoon));
}

}  // namespace
}  // namespace erps::lab::testing
