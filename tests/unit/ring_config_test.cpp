#include "erps/ring/ring_config.h"

#include "erps/fsm/requests.h"
#include "erps/ring/ring_start.h"
#include "erps/timer/protocol_timers.h"
#include "tests/unit/ring_config_fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

// --- Deleting

TEST_F(RingConfigTest, DeletingAnAbsentRingIsCode3) {
  EXPECT_EQ(erps_set_del_ring(1), 3U);
  EXPECT_EQ(announced("erps_set_del_ring"), 1);
}

TEST_F(RingConfigTest, DeletingARunningRingIsCode2) {
  make_running_ring();
  EXPECT_EQ(erps_set_del_ring(1), 2U);
  EXPECT_THAT(ring_ids(), ElementsAre(1U));
}

TEST_F(RingConfigTest, DeletingAStoppedRingRemovesIt) {
  erps_stop_func(make_running_ring());
  EXPECT_EQ(erps_set_del_ring(1), 0U);
  EXPECT_THAT(ring_ids(), IsEmpty());
}

TEST_F(RingConfigTest, DeletingAMajorRingDetachesItsSubRingAndLeavesIt) {
  attach_sub_ring();
  EXPECT_EQ(erps_set_del_ring(1), 0U);
  EXPECT_THAT(ring_ids(), ElementsAre(2U));
  EXPECT_EQ(find(2)->interconnect_ring_id, 0U);
}

TEST_F(RingConfigTest, DeletingASubRingDetachesItsMajorRing) {
  attach_sub_ring();
  EXPECT_EQ(erps_set_del_ring(2), 0U);
  EXPECT_THAT(ring_ids(), ElementsAre(1U));
  EXPECT_EQ(find(1)->interconnect_ring_id, 0U);
}

TEST_F(RingConfigTest, DeletingARingWhosePartnerIsMissingSucceeds) {
  make_ring({.id = 1});
  erps_set_interconnect_ring_id(1, 99);
  EXPECT_EQ(erps_set_del_ring(1), 0U);
}

// --- Enabling

TEST_F(RingConfigTest, EnablingAnAbsentRingIsCode3) {
  EXPECT_EQ(erps_set_ring_enable(1, 1), 3U);
  EXPECT_EQ(announced("erps_set_ring_enable"), 1);
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(RingConfigTest, EnablingInstallsTheCaptureRuleAndThenStarts) {
  ERPSM_T* ring = make_ring();
  uint8_t enabled_at_rule = 0xFF;
  platform.on_call("adp_fp_add_entity_rule", [&] { enabled_at_rule = ring->enable; });
  EXPECT_EQ(erps_set_ring_enable(1, 1), 0U);
  EXPECT_EQ(enabled_at_rule, 0);
  EXPECT_EQ(ring->enable, 1);
  EXPECT_EQ(ring->State, STATE_PENDING);
  EXPECT_THAT(platform.calls({"adp_fp_add_entity_rule"}),
              ElementsAre("adp_fp_add_entity_rule(19)"));
}

TEST_F(RingConfigTest, EnablingTwiceDoesNothingTheSecondTime) {
  make_ring();
  erps_set_ring_enable(1, 1);
  platform.clear_journal();
  EXPECT_EQ(erps_set_ring_enable(1, 1), 0U);
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(RingConfigTest, DisablingAStoppedRingDoesNothing) {
  make_ring();
  platform.clear_journal();
  EXPECT_EQ(erps_set_ring_enable(1, 0), 0U);
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(RingConfigTest, AnyValueOtherThanOneStopsARunningRing) {
  ERPSM_T* ring = make_running_ring();
  EXPECT_EQ(erps_set_ring_enable(1, 2), 0U);
  EXPECT_EQ(ring->enable, 0);
  EXPECT_EQ(ring->State, STATE_INIT);
}

TEST_F(RingConfigTest, FailedCaptureRuleDoesNotStopTheRingFromStarting) {
  ERPSM_T* ring = make_ring();
  platform.set_rule_results(-1, -1, -1, -1);
  EXPECT_EQ(erps_set_ring_enable(1, 1), 0U);
  EXPECT_EQ(ring->enable, 1);
  EXPECT_EQ(logged_part("switch erps ring"), 0);
}

TEST_F(RingConfigTest, NoRingEnabledIsOneAndAnyIsZero) {
  EXPECT_EQ(erps_get_non_ring_enable(), 1U);
  make_ring({.id = 1, .port0 = 1, .port1 = 2});
  ERPSM_T* second = make_ring({.id = 2, .port0 = 3, .port1 = 4});
  EXPECT_EQ(erps_get_non_ring_enable(), 1U);
  erps_start_func(second, "");
  EXPECT_EQ(erps_get_non_ring_enable(), 0U);
  erps_stop_func(second);
  EXPECT_EQ(erps_get_non_ring_enable(), 1U);
}

// --- Setters

TEST_F(RingConfigTest, NodeRoleMovesTheRplMarker) {
  const ERPSM_T* ring = make_ring();
  erps_set_node_role(1, kRplOwner, 1);
  EXPECT_EQ(ring->node_role, kRplOwner);
  EXPECT_EQ(port0(ring)->port_role, 1U);
  EXPECT_EQ(port1(ring)->port_role, 0U);
  erps_set_node_role(1, kRplNeighbour, 0);
  EXPECT_EQ(ring->node_role, kRplNeighbour);
  EXPECT_EQ(port0(ring)->port_role, 0U);
  EXPECT_EQ(port1(ring)->port_role, 1U);
  erps_set_node_role(1, kRplNeighbour, 5);
  EXPECT_EQ(port0(ring)->port_role, 1U);
}

TEST_F(RingConfigTest, VlanRevertiveModeAndPartnerCanChangeWhileTheRingRuns) {
  const ERPSM_T* ring = make_running_ring();
  erps_set_vlan_id(1, 4000);
  EXPECT_EQ(ring->vlan_id, 4000U);
  EXPECT_EQ(erps_set_ring_revertive(1, 1), 0U);
  EXPECT_EQ(ring->non_revertive, 1);
  EXPECT_EQ(erps_set_ring_revertive(1, 0x105), 0U);
  EXPECT_EQ(ring->non_revertive, 5);  // one byte, as sent
  erps_set_interconnect_ring_id(1, 8);
  EXPECT_EQ(ring->interconnect_ring_id, 8U);
  erps_set_interconnect_attribute(1, 9, 1);
  EXPECT_EQ(ring->interconnect_ring_id, 9U);
  EXPECT_EQ(ring->inter_node_role, 1U);
}

TEST_F(RingConfigTest, InterconnectionRoleOfASubRingStays) {
  const ERPSM_T* ring = make_ring({.port1 = 255, .ring_role = kSubRing});
  erps_set_interconnect_attribute(1, 9, 1);
  EXPECT_EQ(ring->interconnect_ring_id, 9U);
  EXPECT_EQ(ring->inter_node_role, 0U);
}

TEST_F(RingConfigTest, SettersOfAnAbsentRingChangeNothing) {
  erps_set_node_role(1, kRplOwner, 1);
  erps_set_vlan_id(1, 5);
  erps_set_interconnect_ring_id(1, 5);
  erps_set_interconnect_attribute(1, 5, 1);
  EXPECT_THAT(ring_ids(), IsEmpty());
  const uint8_t mac[6] = {};
  EXPECT_EQ(erps_set_ring_revertive(1, 1), 3U);
  EXPECT_EQ(erps_set_ring_role(1, 1), 3U);
  EXPECT_EQ(erps_modify_ring_role(1, 1), 3U);
  EXPECT_EQ(erps_set_mac_addr(1, mac), 3U);
}

TEST_F(RingConfigTest, RingRoleOfAStoppedMajorRingCanBeSet) {
  const ERPSM_T* ring = make_ring();
  EXPECT_EQ(erps_set_ring_role(1, 1), 0U);
  EXPECT_EQ(ring->ring_role, 1U);
  EXPECT_EQ(erps_modify_ring_role(1, 0), 0U);
  EXPECT_EQ(ring->ring_role, 0U);
}

TEST_F(RingConfigTest, RingRoleOfASubRingIsCode27ToSetAnd25ToModify) {
  const ERPSM_T* ring = make_ring({.port1 = 255, .ring_role = kSubRing});
  EXPECT_EQ(erps_set_ring_role(1, 0), 27U);
  EXPECT_EQ(erps_modify_ring_role(1, 0), 25U);
  EXPECT_EQ(ring->ring_role, kSubRing);
}

TEST_F(RingConfigTest, RoleAndNodeIdOfARunningRingAreCode4) {
  const ERPSM_T* ring = make_running_ring({.port1 = 255, .ring_role = kSubRing});
  const uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
  EXPECT_EQ(erps_set_ring_role(1, 0), 4U);  // before 27
  EXPECT_EQ(erps_modify_ring_role(1, 0), 4U);
  EXPECT_EQ(erps_set_mac_addr(1, mac), 4U);
  EXPECT_EQ(ring->ring_role, kSubRing);
  EXPECT_EQ(bytes_of(ring->local_node_id, 6),
            std::vector<uint8_t>(kLocalNode.begin(), kLocalNode.end()));
}

TEST_F(RingConfigTest, NodeIdOfAStoppedRingCanBeSet) {
  const ERPSM_T* ring = make_ring();
  const uint8_t mac[6] = {1, 2, 3, 4, 5, 6};
  EXPECT_EQ(erps_set_mac_addr(1, mac), 0U);
  EXPECT_EQ(bytes_of(ring->local_node_id, 6), (std::vector<uint8_t>{1, 2, 3, 4, 5, 6}));
}

TEST_F(RingConfigTest, GuardTimeMovesTheWaitToBlock) {
  erps_set_guard_timer(700);
  EXPECT_EQ(erps_get_guard_timer(), 700U);
  EXPECT_EQ(guard_timer_time, 700U);
  EXPECT_EQ(WTB_timer_time, 5700U);
  erps_set_wtb_timer(9000);
  EXPECT_EQ(WTB_timer_time, 9000U);
  EXPECT_EQ(erps_get_guard_timer(), 700U);
}

TEST_F(RingConfigTest, TimesAreStoredAsGiven) {
  EXPECT_EQ(erps_get_guard_timer(), 500U);
  EXPECT_EQ(erps_get_wtr_timer(), 300'000U);
  EXPECT_EQ(erps_get_holdoff_time(), 0U);
  erps_set_wtr_timer(0xFFFFFFFFU);
  erps_set_holdoff_timer(1);
  EXPECT_EQ(erps_get_wtr_timer(), 0xFFFFFFFFU);
  EXPECT_EQ(WTR_timer_time, 0xFFFFFFFFU);
  EXPECT_EQ(erps_get_holdoff_time(), 1U);
  EXPECT_EQ(holdoff_timer_time, 1U);
}

TEST_F(RingConfigTest, PortStateGoesToTheSwitchAndItsRefusalIsIgnored) {
  EXPECT_EQ(erps_set_port_state(44, 1), 0U);
  EXPECT_EQ(announced("erps_set_port_state"), 1);
  platform.set_port_state_result(44, -1);
  EXPECT_EQ(erps_set_port_state(44, 4), 0U);
  EXPECT_THAT(platform.calls(),
              ElementsAre("adp_set_port_erps_state(44, 1)", "adp_set_port_erps_state(44, 4)"));
}

}  // namespace
}  // namespace erps::test
