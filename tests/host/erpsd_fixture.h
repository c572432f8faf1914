// erpsd, the module and erpsctl together on a real bridge, in a network namespace of the test.
#pragma once

#include <gtest/gtest.h>
#include <signal.h>

#include <chrono>
#include <fstream>
#include <memory>
#include <nlohmann/json.hpp>
#include <sstream>
#include <string>
#include <vector>

#include "client/client.h"
#include "client/words.h"
#include "tests/client/run_program.h"
#include "tests/host/network_namespace.h"
#include "tests/host/temporary_file.h"

namespace erps::test {

using nlohmann::json;

constexpr std::chrono::seconds kLimit{15};

// Ring 1 with its RPL owner, the RPL at port 2, which is eth2.
constexpr const char* kConfig = R"(
bridge = "br0"
[timers]
wtr_ms = 1000
[[port]]
id = 1
interface = "eth1"
[[port]]
id = 2
interface = "eth2"
[[ring]]
id = 1
ports = [1, 2]
control_vlan = 100
node_role = "owner"
rpl_port = 2
)";

class ErpsdNetwork : public testing::Test {
 protected:
  void SetUp() override {
    if (!network_namespace_problem().empty()) {
      GTEST_SKIP() << "NOT TESTED, no network namespace: " << network_namespace_problem();
    }
    bridge_ = std::make_unique<TestBridge>();
  }

  std::vector<std::string> command(const std::string& config) const {
    return {ERPSD, "--config", config, "--module", MODULE, "--journal", journal_.path()};
  }

  void start() { start(config_.path()); }
  void start(const std::string& config) { start_with(command(config)); }
  // The daemon by a command line of the test's own.
  void start_with(const std::vector<std::string>& line) {
    daemon_ = std::make_unique<Running>(line);
    ASSERT_TRUE(daemon_->err_contains("ready: bridge br0", kLimit)) << daemon_->err();
  }

  void stop() {
    daemon_->signal(SIGTERM);
    ASSERT_TRUE(daemon_->wait(kLimit)) << daemon_->err();
    EXPECT_EQ(daemon_->status(), 0) << daemon_->err();
  }

  std::string journal() const {
    std::ostringstream text;
    text << std::ifstream(journal_.path()).rdbuf();
    return text.str();
  }

  TemporaryFile config_{kConfig};
  TemporaryFile journal_{""};
  std::unique_ptr<TestBridge> bridge_;
  std::unique_ptr<Running> daemon_;
};

inline bool contains(const std::string& text, const std::string& part) {
  return text.find(part) != std::string::npos;
}

// Whether the kernel lets nothing pass through a bridge port.
inline bool guarded(const char* interface) {
  return contains(shell(std::string("bridge -d link show dev ") + interface), "locked on");
}

inline json shown() {
  const Outcome outcome = run_program({ERPSCTL, "show", "--json"});
  EXPECT_EQ(outcome.status, 0) << outcome.err;
  return json::parse(outcome.out);
}

inline bool becomes(client::NodeState state) {
  client::Client client;
  return eventually([&] { return client.read_ring(1).value().state == state; }, kLimit);
}

inline bool becomes_idle() {
  return becomes(client::kStateIdle);
}

}  // namespace erps::test
