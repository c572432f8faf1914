#include "erps/ring/ring_config.h"

#include <cstring>

#include "erps/fsm/requests.h"
#include "erps/mgmt/message.h"
#include "erps/ring/ring_list.h"
#include "erps/ring/ring_start.h"
#include "erps/timer/protocol_timers.h"
#include "tests/unit/fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RingConfigTest : public ModuleTest {
 protected:
  static ERPSM_T* find(uint32_t id) { return erpsapi_erpsm_find(id); }

  // A major ring 1 on ports 1 and 2, VLAN 100, and a sub-ring 2 on port 3 attached to it.
  void attach_sub_ring() {
    ASSERT_EQ(erps_add_ring(1, 1, 2, 100, kNoRplNode, kMajorRing), 0U);
    ASSERT_EQ(erps_add_inter_sub_ring(1, 2, 3, kNoRplNode, kWatching), 0U);
  }

  int announced(const std::string& operation) const { return logged(7, operation + "  !~\n"); }
};

// --- Adding

TEST_F(RingConfigTest, AddingARingCreatesItStopped) {
  EXPECT_EQ(erps_add_ring(5, 1, 2, 100, kRplOwner, kOpenChannelRing), 0U);
  EXPECT_EQ(announced("erps_add_ring"), 1);
  ASSERT_NE(find(5), nullptr);
  EXPECT_EQ(find(5)->enable, 0);
  EXPECT_EQ(find(5)->node_role, kRplOwner);
  EXPECT_EQ(find(5)->ring_role, kOpenChannelRing);
  EXPECT_EQ(find(5)->vlan_id, 100U);
}

TEST_F(RingConfigTest, AddingWithoutMemoryIsCode22) {
  for (int nth = 1; nth <= 3; ++nth) {
    platform.fail_allocation(nth);
    EXPECT_EQ(erps_add_ring(5, 1, 2, 100, kRplOwner, kMajorRing), 22U);
    EXPECT_EQ(find(5), nullptr);
  }
}

TEST_F(RingConfigTest, AddingARunningMajorRingAgainIsCode2) {
  ERPSM_T* ring = make_running_ring();
  EXPECT_EQ(erps_add_ring(1, 8, 9, 200, kRplOwner, kMajorRing), 2U);
  EXPECT_EQ(port0(ring)->port_id, 1U);
  EXPECT_EQ(ring->vlan_id, 100U);
  EXPECT_EQ(ring->node_role, kNoRplNode);
}

TEST_F(RingConfigTest, AddingARunningRingAgainAsSubRingIsNotChecked) {
  ERPSM_T* ring = make_running_ring();
  EXPECT_EQ(erps_add_ring(1, 8, 255, 100, kRplOwner, kSubRing), 0U);
  EXPECT_EQ(port0(ring)->port_id, 8U);
  EXPECT_EQ(ring->ring_role, kSubRing);
}

TEST_F(RingConfigTest, RunningIsCheckedBeforeEqualPorts) {
  make_running_ring();
  EXPECT_EQ(erps_add_ring(1, 8, 8, 100, kNoRplNode, kMajorRing), 2U);
}

TEST_F(RingConfigTest, EqualPortsAreCode11) {
  EXPECT_EQ(erps_add_ring(1, 8, 8, 100, kNoRplNode, kMajorRing), 11U);
  EXPECT_THAT(ring_ids(), IsEmpty());
}

TEST_F(RingConfigTest, EqualPortsAreCheckedBeforeTheVlan) {
  make_ring({.id = 1, .vlan = 100});
  EXPECT_EQ(erps_add_ring(2, 8, 8, 100, kNoRplNode, kMajorRing), 11U);
}

TEST_F(RingConfigTest, SubRingPortsMayBeEqual) {
  EXPECT_EQ(erps_add_ring(1, 255, 255, 100, kNoRplNode, kSubRing), 0U);
}

TEST_F(RingConfigTest, VlanOfAnotherMajorRingIsCode9) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2, .vlan = 100});
  EXPECT_EQ(erps_add_ring(2, 3, 4, 100, kNoRplNode, kMajorRing), 9U);
  EXPECT_EQ(find(2), nullptr);
}

TEST_F(RingConfigTest, VlanOfAnOpenChannelRingIsTakenToo) {
  make_ring({.id = 1, .vlan = 100, .ring_role = kOpenChannelRing});
  EXPECT_EQ(erps_add_ring(2, 3, 4, 100, kNoRplNode, kMajorRing), 9U);
}

TEST_F(RingConfigTest, VlanOfASubRingIsAccepted) {
  make_ring({.id = 1, .port0 = 1, .port1 = 255, .vlan = 100, .ring_role = kSubRing});
  EXPECT_EQ(erps_add_ring(2, 3, 4, 100, kNoRplNode, kMajorRing), 0U);
}

TEST_F(RingConfigTest, PortOfAnotherRingIsCode12) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2, .vlan = 100});
  EXPECT_EQ(erps_add_ring(2, 1, 4, 200, kNoRplNode, kMajorRing), 12U);
  EXPECT_EQ(erps_add_ring(2, 2, 4, 200, kNoRplNode, kMajorRing), 12U);
  EXPECT_EQ(erps_add_ring(2, 3, 1, 200, kNoRplNode, kMajorRing), 12U);
  EXPECT_EQ(erps_add_ring(2, 3, 2, 200, kNoRplNode, kMajorRing), 12U);
  EXPECT_EQ(find(2), nullptr);
}

TEST_F(RingConfigTest, AbsentPortOfASubRingCountsAsAPortOfAnotherRing) {
  make_ring({.id = 1, .port0 = 1, .port1 = 255, .vlan = 100, .ring_role = kSubRing});
  EXPECT_EQ(erps_add_ring(2, 3, 255, 200, kNoRplNode, kMajorRing), 12U);
}

TEST_F(RingConfigTest, VlanIsCheckedBeforePortsOfTheSameRing) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2, .vlan = 100});
  EXPECT_EQ(erps_add_ring(2, 1, 4, 100, kNoRplNode, kMajorRing), 9U);
}

TEST_F(RingConfigTest, NewerRingsAreCheckedFirst) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2, .vlan = 100});  // same VLAN
  make_ring({.id = 2, .port0 = 3, .port1 = 4, .vlan = 200});  // same port, newer
  EXPECT_EQ(erps_add_ring(3, 3, 9, 100, kNoRplNode, kMajorRing), 12U);
}

TEST_F(RingConfigTest, RingDoesNotCollideWithItself) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2, .vlan = 100});
  EXPECT_EQ(erps_master_ring_conf_check(1, 1, 2, 100), 0U);
  EXPECT_EQ(erps_master_ring_conf_check(1, 2, 1, 100), 0U);
}

TEST_F(RingConfigTest, AddingAStoppedRingAgainRePortsItAndResetsTheRplMarker) {
  erps_add_ring(1, 1, 2, 100, kRplOwner, kMajorRing);
  erps_set_node_role(1, kRplOwner, 1);
  ASSERT_EQ(port0(find(1))->port_role, 1U);

  EXPECT_EQ(erps_add_ring(1, 7, 8, 300, kRplNeighbour, kOpenChannelRing), 0U);

  const ERPSM_T* ring = find(1);
  EXPECT_THAT(ring_ids(), ElementsAre(1U));
  EXPECT_EQ(port0(ring)->port_id, 7U);
  EXPECT_EQ(port1(ring)->port_id, 8U);
  EXPECT_EQ(port0(ring)->port_role, 0U);
  EXPECT_EQ(port1(ring)->port_role, 1U);
  EXPECT_EQ(ring->vlan_id, 300U);
  EXPECT_EQ(ring->node_role, kRplNeighbour);
  EXPECT_EQ(ring->ring_role, kOpenChannelRing);
}

TEST_F(RingConfigTest, NewVlanOfAReAddedRingReachesItsPartner) {
  attach_sub_ring();
  EXPECT_EQ(erps_add_ring(1, 1, 2, 300, kNoRplNode, kMajorRing), 0U);
  EXPECT_EQ(find(1)->vlan_id, 300U);
  EXPECT_EQ(find(2)->vlan_id, 300U);
}

TEST_F(RingConfigTest, NewVlanWithAMissingPartnerIsStoredAllTheSame) {
  erps_add_ring(1, 1, 2, 100, kNoRplNode, kMajorRing);
  erps_set_interconnect_ring_id(1, 77);
  EXPECT_EQ(erps_add_ring(1, 1, 2, 300, kNoRplNode, kMajorRing), 0U);
  EXPECT_EQ(find(1)->vlan_id, 300U);
}

// --- Attaching sub-rings

TEST_F(RingConfigTest, AttachedSubRingSharesTheVlanAndHasOnePort) {
  attach_sub_ring();
  EXPECT_EQ(announced("erps_add_inter_sub_ring"), 1);
  const ERPSM_T* sub = find(2);
  ASSERT_NE(sub, nullptr);
  EXPECT_EQ(sub->vlan_id, 100U);
  EXPECT_EQ(sub->ring_role, kSubRing);
  EXPECT_EQ(port0(sub)->port_id, 3U);
  EXPECT_EQ(port1(sub)->port_id, 255U);
  EXPECT_EQ(sub->interconnect_ring_id, 1U);
  EXPECT_EQ(sub->inter_node_role, 0U);
  EXPECT_EQ(find(1)->interconnect_ring_id, 2U);
  EXPECT_EQ(find(1)->inter_node_role, kWatching);
}

TEST_F(RingConfigTest, AttachingToAnAbsentMajorRingIsCode3) {
  EXPECT_EQ(erps_add_inter_sub_ring(1, 2, 3, kNoRplNode, 0), 3U);
  EXPECT_EQ(erps_add_inter_sub_ring(1, 1, 3, kNoRplNode, 0), 3U);
  EXPECT_THAT(ring_ids(), IsEmpty());
}

TEST_F(RingConfigTest, SubRingCheckCodesInTheirOrder) {
  EXPECT_EQ(erps_check_sub_ring_conf(4, 4, 3), 14U);
  EXPECT_EQ(erps_check_sub_ring_conf(4, 5, 3), 24U);
}

TEST_F(RingConfigTest, RingAttachedToItselfIsCode14) {
  make_ring({.id = 1});
  EXPECT_EQ(erps_add_inter_sub_ring(1, 1, 3, kNoRplNode, 0), 14U);
}

TEST_F(RingConfigTest, RunningSubRingIsCode4) {
  attach_sub_ring();
  erps_start_func(find(2), "");
  EXPECT_EQ(erps_add_inter_sub_ring(1, 2, 5, kNoRplNode, 0), 4U);
  EXPECT_EQ(port0(find(2))->port_id, 3U);
}

TEST_F(RingConfigTest, RunningIsCheckedBeforeTheRole) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2});
  make_running_ring({.id = 2, .port0 = 3, .port1 = 4, .vlan = 200});  // a running major ring
  EXPECT_EQ(erps_check_sub_ring_conf(1, 2, 5), 4U);
}

TEST_F(RingConfigTest, MajorRingAsSubRingIsCode18) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2});
  make_ring({.id = 2, .port0 = 3, .port1 = 4, .vlan = 200});
  find(2)->interconnect_ring_id = 1;
  EXPECT_EQ(erps_check_sub_ring_conf(1, 2, 5), 18U);
}

TEST_F(RingConfigTest, SubRingOfAnotherMajorRingIsCode18) {
  attach_sub_ring();
  make_ring({.id = 3, .port0 = 5, .port1 = 6, .vlan = 200});
  EXPECT_EQ(erps_add_inter_sub_ring(3, 2, 7, kNoRplNode, 0), 18U);
  EXPECT_EQ(find(2)->interconnect_ring_id, 1U);
}

TEST_F(RingConfigTest, PortOfAnotherRingForASubRingIsCode12) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2});
  EXPECT_EQ(erps_add_inter_sub_ring(1, 2, 1, kNoRplNode, 0), 12U);
  EXPECT_EQ(erps_add_inter_sub_ring(1, 2, 2, kNoRplNode, 0), 12U);
  EXPECT_EQ(find(2), nullptr);
  EXPECT_EQ(find(1)->interconnect_ring_id, 0U);
}

TEST_F(RingConfigTest, SubRingDoesNotCollideWithItself) {
  attach_sub_ring();
  EXPECT_EQ(erps_check_sub_ring_conf(1, 2, 3), 0U);
}

TEST_F(RingConfigTest, StoppedSubRingCanBeAttachedAgainOnAnotherPort) {
  attach_sub_ring();
  EXPECT_EQ(erps_add_inter_sub_ring(1, 2, 9, kRplOwner, 0), 0U);
  EXPECT_EQ(port0(find(2))->port_id, 9U);
  EXPECT_EQ(find(2)->node_role, kRplOwner);
  EXPECT_EQ(find(1)->inter_node_role, 0U);
  EXPECT_THAT(ring_ids(), ElementsAre(2U, 1U));
}

TEST_F(RingConfigTest, SubRingWithoutMemoryIsCode22AndLeavesTheMajorRing) {
  make_ring({.id = 1});
  platform.fail_allocation(1);
  EXPECT_EQ(erps_add_inter_sub_ring(1, 2, 3, kNoRplNode, kWatching), 22U);
  EXPECT_EQ(find(1)->interconnect_ring_id, 0U);
  EXPECT_EQ(find(1)->inter_node_role, 0U);
}

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
