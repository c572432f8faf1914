// Adding rings and attaching sub-rings: which are refused, with which code, in which order.
#include "erps/ring/ring_config.h"
#include "erps/ring/ring_start.h"
#include "tests/unit/ring_config_fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RingAddingTest : public RingConfigTest {};

// --- Adding

TEST_F(RingAddingTest, AddingARingCreatesItStopped) {
  EXPECT_EQ(erps_add_ring(5, 1, 2, 100, kRplOwner, kOpenChannelRing), 0U);
  EXPECT_EQ(announced("erps_add_ring"), 1);
  ASSERT_NE(find(5), nullptr);
  EXPECT_EQ(find(5)->enable, 0);
  EXPECT_EQ(find(5)->node_role, kRplOwner);
  EXPECT_EQ(find(5)->ring_role, kOpenChannelRing);
  EXPECT_EQ(find(5)->vlan_id, 100U);
}

TEST_F(RingAddingTest, AddingWithoutMemoryIsCode22) {
  for (int nth = 1; nth <= 3; ++nth) {
    platform.fail_allocation(nth);
    EXPECT_EQ(erps_add_ring(5, 1, 2, 100, kRplOwner, kMajorRing), 22U);
    EXPECT_EQ(find(5), nullptr);
  }
}

TEST_F(RingAddingTest, AddingARunningMajorRingAgainIsCode2) {
  ERPSM_T* ring = make_running_ring();
  EXPECT_EQ(erps_add_ring(1, 8, 9, 200, kRplOwner, kMajorRing), 2U);
  EXPECT_EQ(port0(ring)->port_id, 1U);
  EXPECT_EQ(ring->vlan_id, 100U);
  EXPECT_EQ(ring->node_role, kNoRplNode);
}

TEST_F(RingAddingTest, AddingARunningRingAgainAsSubRingIsNotChecked) {
  ERPSM_T* ring = make_running_ring();
  EXPECT_EQ(erps_add_ring(1, 8, 255, 100, kRplOwner, kSubRing), 0U);
  EXPECT_EQ(port0(ring)->port_id, 8U);
  EXPECT_EQ(ring->ring_role, kSubRing);
}

TEST_F(RingAddingTest, RunningIsCheckedBeforeEqualPorts) {
  make_running_ring();
  EXPECT_EQ(erps_add_ring(1, 8, 8, 100, kNoRplNode, kMajorRing), 2U);
}

TEST_F(RingAddingTest, EqualPortsAreCode11) {
  EXPECT_EQ(erps_add_ring(1, 8, 8, 100, kNoRplNode, kMajorRing), 11U);
  EXPECT_THAT(ring_ids(), IsEmpty());
}

TEST_F(RingAddingTest, EqualPortsAreCheckedBeforeTheVlan) {
  make_ring({.id = 1, .vlan = 100});
  EXPECT_EQ(erps_add_ring(2, 8, 8, 100, kNoRplNode, kMajorRing), 11U);
}

TEST_F(RingAddingTest, SubRingPortsMayBeEqual) {
  EXPECT_EQ(erps_add_ring(1, 255, 255, 100, kNoRplNode, kSubRing), 0U);
}

TEST_F(RingAddingTest, VlanOfAnotherMajorRingIsCode9) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2, .vlan = 100});
  EXPECT_EQ(erps_add_ring(2, 3, 4, 100, kNoRplNode, kMajorRing), 9U);
  EXPECT_EQ(find(2), nullptr);
}

TEST_F(RingAddingTest, VlanOfAnOpenChannelRingIsTakenToo) {
  make_ring({.id = 1, .vlan = 100, .ring_role = kOpenChannelRing});
  EXPECT_EQ(erps_add_ring(2, 3, 4, 100, kNoRplNode, kMajorRing), 9U);
}

TEST_F(RingAddingTest, VlanOfASubRingIsAccepted) {
  make_ring({.id = 1, .port0 = 1, .port1 = 255, .vlan = 100, .ring_role = kSubRing});
  EXPECT_EQ(erps_add_ring(2, 3, 4, 100, kNoRplNode, kMajorRing), 0U);
}

TEST_F(RingAddingTest, PortOfAnotherRingIsCode12) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2, .vlan = 100});
  EXPECT_EQ(erps_add_ring(2, 1, 4, 200, kNoRplNode, kMajorRing), 12U);
  EXPECT_EQ(erps_add_ring(2, 2, 4, 200, kNoRplNode, kMajorRing), 12U);
  EXPECT_EQ(erps_add_ring(2, 3, 1, 200, kNoRplNode, kMajorRing), 12U);
  EXPECT_EQ(erps_add_ring(2, 3, 2, 200, kNoRplNode, kMajorRing), 12U);
  EXPECT_EQ(find(2), nullptr);
}

TEST_F(RingAddingTest, AbsentPortOfASubRingCountsAsAPortOfAnotherRing) {
  make_ring({.id = 1, .port0 = 1, .port1 = 255, .vlan = 100, .ring_role = kSubRing});
  EXPECT_EQ(erps_add_ring(2, 3, 255, 200, kNoRplNode, kMajorRing), 12U);
}

TEST_F(RingAddingTest, VlanIsCheckedBeforePortsOfTheSameRing) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2, .vlan = 100});
  EXPECT_EQ(erps_add_ring(2, 1, 4, 100, kNoRplNode, kMajorRing), 9U);
}

TEST_F(RingAddingTest, NewerRingsAreCheckedFirst) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2, .vlan = 100});  // same VLAN
  make_ring({.id = 2, .port0 = 3, .port1 = 4, .vlan = 200});  // same port, newer
  EXPECT_EQ(erps_add_ring(3, 3, 9, 100, kNoRplNode, kMajorRing), 12U);
}

TEST_F(RingAddingTest, RingDoesNotCollideWithItself) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2, .vlan = 100});
  EXPECT_EQ(erps_master_ring_conf_check(1, 1, 2, 100), 0U);
  EXPECT_EQ(erps_master_ring_conf_check(1, 2, 1, 100), 0U);
}

TEST_F(RingAddingTest, AddingAStoppedRingAgainRePortsItAndResetsTheRplMarker) {
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

TEST_F(RingAddingTest, NewVlanOfAReAddedRingReachesItsPartner) {
  attach_sub_ring();
  EXPECT_EQ(erps_add_ring(1, 1, 2, 300, kNoRplNode, kMajorRing), 0U);
  EXPECT_EQ(find(1)->vlan_id, 300U);
  EXPECT_EQ(find(2)->vlan_id, 300U);
}

TEST_F(RingAddingTest, NewVlanWithAMissingPartnerIsStoredAllTheSame) {
  erps_add_ring(1, 1, 2, 100, kNoRplNode, kMajorRing);
  erps_set_interconnect_ring_id(1, 77);
  EXPECT_EQ(erps_add_ring(1, 1, 2, 300, kNoRplNode, kMajorRing), 0U);
  EXPECT_EQ(find(1)->vlan_id, 300U);
}

// --- Attaching sub-rings

TEST_F(RingAddingTest, AttachedSubRingSharesTheVlanAndHasOnePort) {
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

TEST_F(RingAddingTest, AttachingToAnAbsentMajorRingIsCode3) {
  EXPECT_EQ(erps_add_inter_sub_ring(1, 2, 3, kNoRplNode, 0), 3U);
  EXPECT_EQ(erps_add_inter_sub_ring(1, 1, 3, kNoRplNode, 0), 3U);
  EXPECT_THAT(ring_ids(), IsEmpty());
}

TEST_F(RingAddingTest, SubRingCheckCodesInTheirOrder) {
  EXPECT_EQ(erps_check_sub_ring_conf(4, 4, 3), 14U);
  EXPECT_EQ(erps_check_sub_ring_conf(4, 5, 3), 24U);
}

TEST_F(RingAddingTest, RingAttachedToItselfIsCode14) {
  make_ring({.id = 1});
  EXPECT_EQ(erps_add_inter_sub_ring(1, 1, 3, kNoRplNode, 0), 14U);
}

TEST_F(RingAddingTest, RunningSubRingIsCode4) {
  attach_sub_ring();
  erps_start_func(find(2), "");
  EXPECT_EQ(erps_add_inter_sub_ring(1, 2, 5, kNoRplNode, 0), 4U);
  EXPECT_EQ(port0(find(2))->port_id, 3U);
}

TEST_F(RingAddingTest, RunningIsCheckedBeforeTheRole) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2});
  make_running_ring({.id = 2, .port0 = 3, .port1 = 4, .vlan = 200});  // a running major ring
  EXPECT_EQ(erps_check_sub_ring_conf(1, 2, 5), 4U);
}

TEST_F(RingAddingTest, MajorRingAsSubRingIsCode18) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2});
  make_ring({.id = 2, .port0 = 3, .port1 = 4, .vlan = 200});
  find(2)->interconnect_ring_id = 1;
  EXPECT_EQ(erps_check_sub_ring_conf(1, 2, 5), 18U);
}

TEST_F(RingAddingTest, SubRingOfAnotherMajorRingIsCode18) {
  attach_sub_ring();
  make_ring({.id = 3, .port0 = 5, .port1 = 6, .vlan = 200});
  EXPECT_EQ(erps_add_inter_sub_ring(3, 2, 7, kNoRplNode, 0), 18U);
  EXPECT_EQ(find(2)->interconnect_ring_id, 1U);
}

TEST_F(RingAddingTest, PortOfAnotherRingForASubRingIsCode12) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2});
  EXPECT_EQ(erps_add_inter_sub_ring(1, 2, 1, kNoRplNode, 0), 12U);
  EXPECT_EQ(erps_add_inter_sub_ring(1, 2, 2, kNoRplNode, 0), 12U);
  EXPECT_EQ(find(2), nullptr);
  EXPECT_EQ(find(1)->interconnect_ring_id, 0U);
}

TEST_F(RingAddingTest, SubRingDoesNotCollideWithItself) {
  attach_sub_ring();
  EXPECT_EQ(erps_check_sub_ring_conf(1, 2, 3), 0U);
}

TEST_F(RingAddingTest, StoppedSubRingCanBeAttachedAgainOnAnotherPort) {
  attach_sub_ring();
  EXPECT_EQ(erps_add_inter_sub_ring(1, 2, 9, kRplOwner, 0), 0U);
  EXPECT_EQ(port0(find(2))->port_id, 9U);
  EXPECT_EQ(find(2)->node_role, kRplOwner);
  EXPECT_EQ(find(1)->inter_node_role, 0U);
  EXPECT_THAT(ring_ids(), ElementsAre(2U, 1U));
}

TEST_F(RingAddingTest, SubRingWithoutMemoryIsCode22AndLeavesTheMajorRing) {
  make_ring({.id = 1});
  platform.fail_allocation(1);
  EXPECT_EQ(erps_add_inter_sub_ring(1, 2, 3, kNoRplNode, kWatching), 22U);
  EXPECT_EQ(find(1)->interconnect_ring_id, 0U);
  EXPECT_EQ(find(1)->inter_node_role, 0U);
}

}  // namespace
}  // namespace erps::test
