// What the platform tells of a call that failed: the module passes most failures over, so a line of
// the platform's is all that an operator gets to see of them.
#include <algorithm>
#include <functional>
#include <map>
#include <sstream>
#include <string>

#include "platform/field_processor.h"
#include "platform/switch_adaptation.h"
#include "platform/task.h"
#include "tests/linux/platform_fixture.h"

namespace erps::linux_platform::test {
namespace {

using std::chrono::milliseconds;

class FailedCalls : public PlatformTest {
 protected:
  // Everything that is logged from here to the stop of the platform.
  static void listen() { ::testing::internal::CaptureStderr(); }
  static std::vector<std::string> lines() {
    stop();
    std::istringstream text(::testing::internal::GetCapturedStderr());
    std::vector<std::string> result;
    for (std::string line; std::getline(text, line);) {
      result.push_back(line);
    }
    return result;
  }
  static std::vector<std::string> with(const std::vector<std::string>& all,
                                       const std::string& text) {
    std::vector<std::string> result;
    std::copy_if(all.begin(), all.end(), std::back_inserter(result),
                 [&](const std::string& line) { return line.find(text) != std::string::npos; });
    return result;
  }
};

TEST_F(FailedCalls, EachIsToldOnceASecondWithItsReason) {
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  set_up("p1", false);
  receive_all();
  const Bytes raps = raps_frame(1, 100, 11);
  erps_task_desc unknown{};
  unknown.name = "unknown";
  uint32_t value = 0;
  uint16_t length = 0;
  uint16_t vlan = 0;
  std::array<uint8_t, 64> frame{};
  struct Case {
    std::function<int()> call;
    std::string reason;
  };
  const std::map<std::string, Case> cases{
      {"adp_set_port_erps_state",
       {[] { return adp_set_port_erps_state(9, 4); }, "port 9 is no ring port"}},
      {"adp_get_port_erps_state",
       {[&] { return adp_get_port_erps_state(9, &value); }, "port 9 is no ring port"}},
      {"adp_get_phy_port_attr", {[&] { return adp_get_phy_port_attr(9, 11, &value); }, "port 9"}},
      {"adp_del_mac_addr_by_intf", {[] { return adp_del_mac_addr_by_intf(9, 2); }, "port 9"}},
      {"adp_transmit_frame",
       {[&] {
          return adp_transmit_frame(raps.data(), static_cast<uint16_t>(raps.size()), 0, 1, 3);
        },
        "port 1 (p1): Network is down"}},
      {"adp_receive_frame",
       {[&] { return adp_receive_frame(4321, frame.data(), frame.size(), &length, &vlan, &value); },
        "no frame 4321"}},
      {"equeue_close", {[] { return equeue_close(nullptr); }, "not open"}},
      {"stask_stop", {[&] { return stask_stop(&unknown); }, "does not run"}},
      {"stask_notify_creater",
       {[&] { return stask_notify_creater(&unknown, 0); }, "was not started"}}};
  // The reasons may have been told for another test's sake less than a second ago.
  constexpr milliseconds kLongEnough{1300};
  listen();
  int64_t times = 0;
  const auto end = std::chrono::steady_clock::now() + kLongEnough;
  while (std::chrono::steady_clock::now() < end) {
    for (const auto& [name, failing] : cases) {
      EXPECT_NE(failing.call(), 0) << name;
    }
    ++times;
    std::this_thread::sleep_for(milliseconds(20));
  }
  const auto all = lines();
  for (const auto& [name, failing] : cases) {
    const auto told = with(all, name + " failed: ");
    EXPECT_GE(told.size(), 1u) << name;
    EXPECT_LE(told.size(), 2u) << name;
    EXPECT_FALSE(with(told, failing.reason).empty()) << name;
    // Whoever took the interface down knows.
    const std::string level = name == "adp_transmit_frame" ? " notice " : " error ";
    EXPECT_EQ(with(told, level).size(), told.size()) << name;
  }
  EXPECT_GT(times, 10);
  EXPECT_FALSE(with(all, " times before)").empty()) << "how often it failed meanwhile";
}

TEST_F(FailedCalls, WithoutAPlatformTheNodeAddressIsToldToo) {
  listen();
  std::array<uint8_t, 6> address{};
  EXPECT_NE(get_nic_address("eth0", 0, address.data()), 0);
  EXPECT_FALSE(with(lines(), "get_nic_address failed: the platform is not running").empty());
}

TEST_F(FailedCalls, RefusedCaptureRuleIsTold) {
  start_platform();
  listen();
  adp_fp_rule_t rule{};
  rule.entity_id = 19;
  const uint32_t nothing = 0;
  EXPECT_NE(adp_fp_add_entity_action(&rule, 999, &nothing, sizeof nothing, nullptr, 0), 0);
  EXPECT_NE(
      adp_fp_add_entity_qualify(&rule, 999, &nothing, sizeof nothing, &nothing, sizeof nothing), 0);
  EXPECT_NE(adp_fp_add_entity_rule(rule), 0);
  const auto all = lines();
  EXPECT_EQ(with(all, "action 999").size(), 1u);
  EXPECT_EQ(with(all, "qualifier 999").size(), 1u);
  EXPECT_EQ(with(all, "capture rule 19: refused").size(), 1u);
}

TEST_F(FailedCalls, PortThatTheKernelRefusesIsToldWithTheWayOut) {
  start_platform();
  ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
  run("ip link set br0 type bridge stp_state 1");
  receive_all();
  listen();
  EXPECT_NE(adp_set_port_erps_state(1, 1), 0);
  const auto told = with(lines(), "port 1 (p1): cannot be made discarding");
  ASSERT_EQ(told.size(), 1u);
  EXPECT_NE(told[0].find("spanning tree"), std::string::npos) << told[0];
}

}  // namespace
}  // namespace erps::linux_platform::test
