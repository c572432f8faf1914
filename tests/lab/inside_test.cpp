// Looking into a network that runs: what the kernel's own tools show is what erpsctl says.
#include <gtest/gtest.h>
#include <signal.h>

#include <nlohmann/json.hpp>
#include <set>
#include <thread>

#include "tests/lab/lab_process.h"
#include "tests/lab/topology_text.h"

namespace erps::lab::testing {
namespace {

using nlohmann::json;

constexpr std::chrono::seconds kShort{20};
constexpr std::chrono::seconds kUntilIdle{60};

LabResult inside(const LabProcess& lab, const std::string& node,
                 const std::vector<std::string>& command) {
  std::vector<std::string> arguments = {lab_path(), "exec", "--lab", std::to_string(lab.pid()),
                                        node};
  arguments.insert(arguments.end(), command.begin(), command.end());
  return LabProcess(arguments).wait(kShort);
}

// The ports that the kernel keeps frames from passing, by name.
std::set<std::string> closed_by_kernel(const LabProcess& lab, const std::string& node) {
  const LabResult result = inside(lab, node, {"bridge", "-j", "-d", "link"});
  EXPECT_EQ(result.status, 0) << result.err;
  std::set<std::string> closed;
  for (const json& port : json::parse(result.out)) {
    const bool forwarding =
        port["state"] == "forwarding" && !port["locked"] && port["learning"] && port["flood"];
    const bool shut = port["state"] != "forwarding" && port["locked"] && !port["learning"] &&
                      !port["flood"] && !port["bcast_flood"] && !port["mcast_flood"];
    EXPECT_TRUE(forwarding || shut) << port.dump();
    if (shut) {
      closed.insert(port["ifname"]);
    }
  }
  return closed;
}

std::set<std::string> closed_by_erpsctl(const LabProcess& lab, const std::string& node) {
  const LabResult result = inside(lab, node, {"erpsctl", "show", "--json"});
  EXPECT_EQ(result.status, 0) << result.err;
  std::set<std::string> closed;
  const json shown = json::parse(result.out);
  for (const json& ring : shown["rings"]) {
    for (const json& port : ring["blocked_ports"]) {
      closed.insert("p" + std::to_string(port.get<int>()));
    }
  }
  return closed;
}

class Inside : public ::testing::Test {
 protected:
  // Runs a ring with a script and waits until the script is over and the network is held.
  void hold(const std::string& script) {
    const std::string path = directory_.write("ring.toml", four_nodes() + ring_of_four() + script);
    lab_ = std::make_unique<LabProcess>(std::vector<std::string>{
        lab_path(), "run", path, "--hold", "--erpsd", daemon_path(), "--module", module_path()});
    const auto deadline = std::chrono::steady_clock::now() + kUntilIdle;
    while (lab_->err_so_far().find("until Ctrl-C") == std::string::npos) {
      ASSERT_LT(std::chrono::steady_clock::now(), deadline) << lab_->err_so_far();
      std::this_thread::sleep_for(std::chrono::milliseconds(20));
    }
  }

  TemporaryDirectory directory_;
  std::unique_ptr<LabProcess> lab_;
};

TEST_F(Inside, BridgeLinkShowsTheBlockedPortsThatErpsctlNames) {
  hold("");
  EXPECT_EQ(closed_by_kernel(*lab_, "n1"), std::set<std::string>{"p2"});
  EXPECT_EQ(closed_by_kernel(*lab_, "n2"), std::set<std::string>{});
  EXPECT_EQ(closed_by_kernel(*lab_, "n4"), std::set<std::string>{"p2"});
  for (const char* node : {"n1", "n2", "n3", "n4"}) {
    EXPECT_EQ(closed_by_kernel(*lab_, node), closed_by_erpsctl(*lab_, node)) << node;
  }
  lab_->signal(SIGINT);
  EXPECT_EQ(lab_->wait(kShort).status, 128 + SIGINT);
}

TEST_F(Inside, TheSameHoldsWhileALinkIsCut) {
  hold("[[step]]\ncut = \"n3-n4\"\n");
  EXPECT_EQ(closed_by_kernel(*lab_, "n1"), std::set<std::string>{});
  EXPECT_EQ(closed_by_kernel(*lab_, "n3"), std::set<std::string>{"p2"});
  EXPECT_EQ(closed_by_kernel(*lab_, "n4"), std::set<std::string>{"p1"});
  for (const char* node : {"n1", "n2", "n3", "n4"}) {
    EXPECT_EQ(closed_by_kernel(*lab_, node), closed_by_erpsctl(*lab_, node)) << node;
  }
}

TEST_F(Inside, ACommandEndsWithTheNetwork) {
  hold("");
  LabProcess monitor({lab_path(), "exec", "--lab", std::to_string(lab_->pid()), "n1", "sh", "-c",
                      "echo started; exec ip monitor"});
  const auto deadline = std::chrono::steady_clock::now() + kShort;
  while (monitor.out_so_far() != "started\n") {
    ASSERT_LT(std::chrono::steady_clock::now(), deadline) << monitor.err_so_far();
    std::this_thread::sleep_for(std::chrono::milliseconds(5));
  }
  lab_->signal(SIGKILL);
  EXPECT_EQ(monitor.wait(kShort).status, 128 + SIGKILL);
}

TEST(InsideNothing, ANodeThatDoesNotRunIsNamed) {
  const LabResult result = LabProcess({lab_path(), "exec", "nobody", "true"}).wait(kShort);
  EXPECT_EQ(result.status, 3);
  EXPECT_EQ(result.err, "erpslab: no laboratory with a node nobody is running\n");
}

}  // namespace
}  // namespace erps::lab::testing
