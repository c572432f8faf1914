#include "erps/mgmt/capture_rules.h"

#include <algorithm>
#include <cstring>

#include "erps/ring/ring_config.h"
#include "erps/ring/ring_start.h"
#include "tests/unit/fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

const std::set<std::string> kRuleCalls = {"adp_fp_add_entity_action", "adp_fp_add_entity_qualify",
                                          "adp_fp_add_entity_rule", "adp_fp_delete_entity_rule"};
constexpr char kQualifyMac[] = "adp_fp_add_entity_qualify(7, 0119a7000000, 6, ffffffffff00, 6)";

class CaptureRulesTest : public ModuleTest {
 protected:
  // The ordered calls of one installation for this address (hexadecimal).
  static std::vector<std::string> installation(const std::string& mac) {
    return {
        "adp_fp_add_entity_action(30, 00000000, 4, 03000000, 4)",
        "adp_fp_add_entity_action(2, 06000000, 4, null, 0)",
        "adp_fp_add_entity_action(53, null, 0, null, 0)",
        "adp_fp_add_entity_qualify(13, feffffffffffffff" + std::string(48, '0') + ", 32, " +
            std::string(64, 'f') + ", 32)",
        "adp_fp_add_entity_qualify(7, " + mac + ", 6, ffffffffff00, 6)",
        "adp_fp_add_entity_qualify(29, 0289, 2, ffff, 2)",
        "adp_fp_add_entity_rule(19)",
    };
  }

  static constexpr uint8_t kMac[6] = {0x01, 0x19, 0x27, 0x00, 0x00, 0x05};
};

// Numbers are written least significant byte first on the machines that run the tests.
TEST_F(CaptureRulesTest, RuleIsBuiltOfActionsThenQualifiersInOrder) {
  EXPECT_EQ(erps_add_acl_rule(kMac), 0);
  EXPECT_EQ(platform.calls(), installation("011927000005"));
}

TEST_F(CaptureRulesTest, RuleRecordStartsClearedButForItsEntity) {
  erps_add_acl_rule(kMac);
  const std::vector<Call> calls = platform.journal();
  const auto first = std::find_if(calls.begin(), calls.end(), [](const Call& call) {
    return call.name == "adp_fp_add_entity_action";
  });
  ASSERT_NE(first, calls.end());
  std::vector<uint8_t> expected(6268, 0);
  expected[0] = 19;
  EXPECT_EQ(first->bytes, expected);
}

TEST_F(CaptureRulesTest, InstalledRecordIsTheOneThatThePlatformFilled) {
  erps_add_acl_rule(kMac);
  std::vector<uint8_t> installed;
  for (const Call& call : platform.journal()) {
    if (call.name == "adp_fp_add_entity_rule") {
      installed = call.bytes;
    }
  }
  ASSERT_EQ(installed.size(), 6268U);
  EXPECT_EQ(installed[4], 3);  // the recording platform counts actions ...
  EXPECT_EQ(installed[5], 3);  // ... and qualifiers in the record
}

TEST_F(CaptureRulesTest, AddressIsLoggedTwice) {
  erps_add_acl_rule(kMac);
  EXPECT_EQ(logged_at("erps_add_acl_rule", "mac:01:19:27:00:00:05\n"), 1);
  EXPECT_EQ(logged(7, "mac:01:19:27:00:00:05\n"), 1);
}

TEST_F(CaptureRulesTest, AddressBytesFrom80AreLoggedWithEightDigits) {
  const uint8_t mac[6] = {0x01, 0x19, 0xA7, 0x00, 0x80, 0x7F};
  erps_add_acl_rule(mac);
  EXPECT_EQ(logged_at("erps_add_acl_rule", "mac:01:19:ffffffa7:00:ffffff80:7f\n"), 1);
  EXPECT_EQ(logged(7, "mac:01:19:ffffffa7:00:ffffff80:7f\n"), 1);
}

TEST_F(CaptureRulesTest, OnlyTheInstallationResultIsReturned) {
  platform.set_rule_results(-5, -6, 0, 0);
  EXPECT_EQ(erps_add_acl_rule(kMac), 0);
  EXPECT_EQ(platform.calls(kRuleCalls).size(), 7U);
  platform.set_rule_results(0, 0, -7, 0);
  EXPECT_EQ(erps_add_acl_rule(kMac), -7);
}

TEST_F(CaptureRulesTest, DeletionNamesTheEntityAndReturnsThePlatformsResult) {
  EXPECT_EQ(erps_del_acl_rule(), 0);
  EXPECT_THAT(platform.calls(), ElementsAre("adp_fp_delete_entity_rule(19, 0, 0)"));
  platform.set_rule_results(0, 0, 0, -9);
  EXPECT_EQ(erps_del_acl_rule(), -9);
}

TEST_F(CaptureRulesTest, DebugPairDoesTheSame) {
  platform.set_rule_results(0, 0, -7, -9);
  EXPECT_EQ(erps_debug_acl_add(kMac), -7);
  EXPECT_EQ(platform.calls(), installation("011927000005"));
  platform.clear_journal();
  EXPECT_EQ(erps_debug_acl_del(), -9);
  EXPECT_THAT(platform.calls(), ElementsAre("adp_fp_delete_entity_rule(19, 0, 0)"));
}

TEST_F(CaptureRulesTest, InstallingTwiceCallsThePlatformTwiceWithTheSameEntity) {
  erps_add_acl_rule(kMac);
  erps_add_acl_rule(kMac);
  EXPECT_THAT(platform.calls({"adp_fp_add_entity_rule"}),
              ElementsAre("adp_fp_add_entity_rule(19)", "adp_fp_add_entity_rule(19)"));
}

TEST_F(CaptureRulesTest, RedirectionUsesTheGroupAddressOfAllRings) {
  platform.set_rule_results(0, 0, -7, -9);
  EXPECT_EQ(erps_raps_redir_cpu(1), -7);
  EXPECT_EQ(platform.calls(), installation("0119a7000000"));
}

TEST_F(CaptureRulesTest, RedirectionLooksAtTheLowByteOnly) {
  platform.set_rule_results(0, 0, -7, -9);
  EXPECT_EQ(erps_raps_redir_cpu(0), -9);
  EXPECT_EQ(erps_raps_redir_cpu(0x100), -9);
  EXPECT_EQ(erps_raps_redir_cpu(0x180), -7);
}

TEST_F(CaptureRulesTest, NoRingIsEnabledInAnEmptyList) {
  EXPECT_EQ(erps_non_ring_enable(), 1U);
  ERPSM_T* ring = make_ring();
  EXPECT_EQ(erps_non_ring_enable(), 1U);
  ring->enable = 2;  // only 1 counts
  EXPECT_EQ(erps_non_ring_enable(), 1U);
  ring->enable = 1;
  EXPECT_EQ(erps_non_ring_enable(), 0U);
  ring->enable = 0;
}

TEST_F(CaptureRulesTest, SwitchingActsOnlyWhileNoRingIsEnabled) {
  EXPECT_EQ(switch_enable_erps(1), 0);
  EXPECT_EQ(platform.calls(), installation("0119a7000000"));
  platform.clear_journal();
  EXPECT_EQ(switch_enable_erps(0), 0);
  EXPECT_THAT(platform.calls(), ElementsAre("adp_fp_delete_entity_rule(19, 0, 0)"));
  make_running_ring();
  EXPECT_EQ(switch_enable_erps(1), 0);
  EXPECT_EQ(switch_enable_erps(0), 0);
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(CaptureRulesTest, SwitchingOnCountsEveryNonZeroValue) {
  EXPECT_EQ(switch_enable_erps(0x100), 0);
  EXPECT_THAT(platform.calls({"adp_fp_add_entity_rule"}),
              ElementsAre("adp_fp_add_entity_rule(19)"));
}

TEST_F(CaptureRulesTest, SwitchingReportsSuccessWhateverThePlatformSays) {
  platform.set_rule_results(-1, -1, -1, -1);
  EXPECT_EQ(switch_enable_erps(1), 0);
  EXPECT_EQ(switch_enable_erps(0), 0);
}

TEST_F(CaptureRulesTest, EnablingTwoRingsAndDisablingBothLeavesTheRuleInstalled) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2});
  make_ring({.id = 2, .port0 = 3, .port1 = 4});
  erps_set_ring_enable(1, 1);
  erps_set_ring_enable(2, 1);
  erps_set_ring_enable(1, 0);
  erps_set_ring_enable(2, 0);
  EXPECT_EQ(platform.calls(kRuleCalls), installation("0119a7000000"));
  EXPECT_THAT(platform.calls({"adp_fp_add_entity_qualify"}), ::testing::Contains(kQualifyMac));
}

}  // namespace
}  // namespace erps::test
