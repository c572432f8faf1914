// A ring of four bridges whose RPL owner n1 is flooded with R-APS frames by both of its neighbours,
// 100,000 a second, while a link is cut and restored under traffic.
#include <gtest/gtest.h>
#include <signal.h>

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <memory>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/lab/lab_process.h"
#include "tests/lab/topology_text.h"

namespace erps::lab::testing {
namespace {

using std::chrono::seconds;
using Clock = std::chrono::steady_clock;

constexpr seconds kLongestRun{280};
constexpr seconds kLongestCommand{20};
constexpr double kFloodPerSecond = 100'000;
// The machine shares its processors between the floods, four nodes and the traffic.
constexpr double kLeastPerSecond = 50'000;
// A run that shows nothing is done again so often.
constexpr int kMostRuns = 4;
// How `erpslab run` ends when nobody can tell, because this machine stood still.
constexpr int kUndecided = 4;

// Whatever n1 has to hear of the failure comes through a flood.
constexpr const char* kScript =
    "[expect]\ncut_outage_ms = 50\nduplicates = 0\n"
    "[[step]]\nwait_ms = 2000\n"
    "[[step]]\ncut = \"n2-n3\"\n"
    "[[step]]\nrestore = \"n2-n3\"\n"
    "[[step]]\nwait_ms = 1000\n";

constexpr const char* kStranger = "02:66:66:66:66:66";
constexpr const char* kOfN1 = "02:00:00:00:00:01";
constexpr const char* kOfTheNeighbours = nullptr;

struct Kind {
  const char* name;
  const char* frames;  // as raps_flood knows them
  const char* source;
};

class FrameFlood : public ::testing::Test {
 protected:
  // A run shows nothing when the laboratory measured that this machine stood still and says that
  // nobody can tell: then it is done again. It never passes for that, and what fails in it, fails.
  template <typename Run>
  void until_decided(Run run) {
    for (int i = 0; i < kMostRuns; ++i) {
      undecided_.clear();
      run();
      floods_.clear();
      lab_.reset();
      if (HasFailure() || undecided_.empty()) {
        return;
      }
      std::printf("run %d shows nothing: %s\n", i + 1, undecided_.c_str());
    }
    FAIL() << "this machine never let it be told";
  }

  void start(const std::string& script) {
    const std::string ring = swapped(ring_of_four(), "wtr_ms = 5000", "wtr_ms = 8000");
    const std::string path = directory_.write("ring.toml", four_nodes() + ring + script);
    lab_ = std::make_unique<LabProcess>(std::vector<std::string>{
        lab_path(), "run", path, "--keep-going", "--logs", directory_.path() + "/logs", "--erpsd",
        daemon_path(), "--module", module_path()});
    await("\nstart\n");
  }

  // Waits until the laboratory has printed this.
  void await(const std::string& text) {
    const auto deadline = Clock::now() + kLongestRun;
    while (lab_->out_so_far().find(text) == std::string::npos) {
      ASSERT_LT(Clock::now(), deadline) << lab_->out_so_far() << lab_->err_so_far();
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }

  std::vector<std::string> inside(const std::string& node,
                                  const std::vector<std::string>& command) const {
    std::vector<std::string> arguments = {lab_path(), "exec", "--lab", std::to_string(lab_->pid()),
                                          node};
    arguments.insert(arguments.end(), command.begin(), command.end());
    return arguments;
  }

  // n2 and n4 flood n1, for so long at most.
  void flood(const Kind& kind, seconds longest) {
    for (const auto& [node, port, address] : {std::tuple("n2", "p1", "02:00:00:00:00:02"),
                                              std::tuple("n4", "p2", "02:00:00:00:00:04")}) {
      floods_.push_back(std::make_unique<LabProcess>(inside(
          node, {RAPS_FLOOD, port, kind.frames, kind.source != nullptr ? kind.source : address,
                 std::to_string(kFloodPerSecond / 2), std::to_string(longest.count())})));
    }
  }

  bool flooded() const {
    return std::all_of(floods_.begin(), floods_.end(),
                       [](const auto& flood) { return !flood->processes().empty(); });
  }

  void end_floods() const {
    for (const auto& flood : floods_) {
      for (const pid_t process : flood->processes()) {
        kill(process, SIGINT);
      }
    }
  }

  // Waits for the end of the floods: they were some.
  void expect_flooded() {
    double per_second = 0;
    for (const auto& flood : floods_) {
      const LabResult result = flood->wait(kLongestCommand);
      unsigned long long frames = 0;
      double time_s = 0;
      ASSERT_EQ(std::sscanf(result.out.c_str(), "sent %llu frames in %lf s", &frames, &time_s), 2)
          << result.out << result.err;
      per_second += static_cast<double>(frames) / time_s;
    }
    EXPECT_GE(per_second, kLeastPerSecond);
    std::printf("%.0f frames a second\n", per_second);
  }

  // The floods have lasted until now, end, and the laboratory finds every expectation met.
  void expect_held_under_the_flood() {
    EXPECT_TRUE(flooded()) << lab_->out_so_far();
    end_floods();
    expect_flooded();
    expect_held();
  }

  void expect_held() {
    const LabResult result = lab_->wait(kLongestRun);
    if (result.exited && result.status == kUndecided) {
      undecided_ += result.out;
      return;
    }
    EXPECT_EQ(result.status, 0) << result.out << result.err;
  }

  // How long the node takes to show its rings.
  std::chrono::duration<double> time_of_answer(const std::string& node) const {
    const auto asked = Clock::now();
    const LabResult result = LabProcess(inside(node, {"erpsctl", "show"})).wait(kLongestCommand);
    EXPECT_EQ(result.status, 0) << result.err;
    return Clock::now() - asked;
  }

  TemporaryDirectory directory_;
  std::string undecided_;  // why the present run shows nothing
  std::unique_ptr<LabProcess> lab_;
  std::vector<std::unique_ptr<LabProcess>> floods_;
};

class FrameFloodOfKind : public FrameFlood, public ::testing::WithParamInterface<Kind> {};

TEST_P(FrameFloodOfKind, LinkIsProtectedInTimeAndManagementAnswers) {
  until_decided([this] {
    ASSERT_NO_FATAL_FAILURE(start(kScript));
    flood(GetParam(), kLongestRun);
    for (const char* node : {"n1", "n2", "n1"}) {
      EXPECT_LT(time_of_answer(node).count(), 1.0) << node;
    }
    // A step during which the machine stood still is done again, so nobody knows when it is over.
    ASSERT_NO_FATAL_FAILURE(await("  restore n2-n3\n"));
    expect_held_under_the_flood();
  });
}

INSTANTIATE_TEST_SUITE_P(
    Kinds, FrameFloodOfKind,
    ::testing::Values(Kind{"Foreign", "foreign", kStranger}, Kind{"OwnAddress", "normal", kOfN1},
                      Kind{"Malformed", "malformed", kStranger},
                      Kind{"Invented", "invented", kStranger},
                      Kind{"InventedByNeighbours", "invented", kOfTheNeighbours}),
    [](const auto& kind) { return std::string(kind.param.name); });

// Nobody else tells of a switch: n2 is heard through the flood that comes with its address.
TEST_F(FrameFlood, SwitchAtANodeWhoseAddressFloodsIsHeard) {
  until_decided([this] {
    ASSERT_NO_FATAL_FAILURE(
        start("[expect]\nduplicates = 0\n"
              "[[step]]\nwait_ms = 2000\n"
              "[[step]]\nforced_switch = \"n2:n2-n3\"\noutage_ms = 50\n"
              "[[step]]\nwait_ms = 1000\n"));
    flood({"InventedByNeighbours", "invented", kOfTheNeighbours}, kLongestRun);
    ASSERT_NO_FATAL_FAILURE(await("  forced switch at "));
    expect_held_under_the_flood();
  });
}

// Messages that tell a state are believed: R-APS carries no proof of who sent it. What they cannot
// do is open a failed link's ports or stop the traffic of a ring that protects, and what they did
// is over with them.
TEST_F(FrameFlood, BelievedMessagesLeaveAProtectingRingAloneAndAreOverWhenTheyEnd) {
  until_decided([this] {
    ASSERT_NO_FATAL_FAILURE(
        start("[expect]\ncut_outage_ms = 50\nduplicates = 0\n"
              "[[step]]\ncut = \"n2-n3\"\n"
              "[[step]]\nwait_ms = 8000\noutage_ms = 50\n"
              "[[step]]\nrestore = \"n2-n3\"\n"));
    ASSERT_NO_FATAL_FAILURE(await("  cut n2-n3\n"));
    flood({"Valid", "valid", kStranger}, seconds(4));
    EXPECT_LT(time_of_answer("n1").count(), 1.0);
    expect_flooded();
    expect_held();
  });
}

}  // namespace
}  // namespace erps::lab::testing
