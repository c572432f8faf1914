// The same file in virtual time and on real bridges: after every step each node is in the same
// state and blocks the same ports.
#include <gtest/gtest.h>

#include <nlohmann/json.hpp>
#include <set>

#include "tests/lab/lab_process.h"

namespace erps::lab::testing {
namespace {

using nlohmann::json;

// "n1 ring 1 idle n4-n1": what every node says after a step.
std::set<std::string> states_after(const json& step) {
  std::set<std::string> states;
  for (const json& node : step["nodes"]) {
    for (const json& ring : node["rings"]) {
      std::set<std::string> blocked;
      for (const json& port : ring["blocked"]) {
        blocked.insert(port["link"].get<std::string>());
      }
      std::string text = node["node"].get<std::string>() + " ring " +
                         std::to_string(ring["ring"].get<int>()) + " " +
                         ring["state"].get<std::string>();
      for (const std::string& link : blocked) {
        text += " " + link;
      }
      states.insert(text);
    }
  }
  return states;
}

TEST(SimulatedRun, HasTheStatesOfTheRealOneAfterEveryStep) {
  const std::string example = ERPS_EXAMPLES "/four-node-ring.toml";
  LabProcess real(
      {lab_path(), "run", example, "--json", "--erpsd", daemon_path(), "--module", module_path()});
  const LabResult real_result = real.wait(std::chrono::seconds(400));
  ASSERT_EQ(real_result.status, 0) << real_result.err;
  LabProcess simulated(
      {lab_path(), "simulate", example, "--json", "--seed", "1", "--module", module_path()});
  const LabResult simulated_result = simulated.wait(std::chrono::seconds(60));
  ASSERT_EQ(simulated_result.status, 0) << simulated_result.err;

  const json real_steps = json::parse(real_result.out)["steps"];
  const json simulated_steps = json::parse(simulated_result.out)["steps"];
  ASSERT_EQ(real_steps.size(), 9U);
  ASSERT_EQ(simulated_steps.size(), real_steps.size());
  for (size_t i = 0; i < real_steps.size(); ++i) {
    EXPECT_EQ(simulated_steps[i]["what"], real_steps[i]["what"]);
    EXPECT_EQ(states_after(simulated_steps[i]), states_after(real_steps[i]))
        << real_steps[i]["what"];
    EXPECT_EQ(states_after(real_steps[i]).size(), 4U);
  }
}

}  // namespace
}  // namespace erps::lab::testing
