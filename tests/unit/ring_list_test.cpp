#include "erps/ring/ring_list.h"

#include <cstring>

#include "erps/ring/ring_records.h"
#include "tests/unit/fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RingListTest : public ModuleTest {
 protected:
  // The message of an equal pair of node IDs.
  int equal_node_lines() const {
    return logged_at("erps_cmp_node_id", "Error -----------local_node_id == remote_node_id\n");
  }

  static void set_node_ids(ERPSM_T* ring, const MacAddress& remote, const MacAddress& local) {
    memcpy(ring->remote_node_id, remote.data(), remote.size());
    memcpy(ring->local_node_id, local.data(), local.size());
  }
};

TEST_F(RingListTest, NoRingMeansNoHead) {
  EXPECT_EQ(erps_get_list_head(), nullptr);
  EXPECT_EQ(erpsapi_erpsm_find(1), nullptr);
  EXPECT_EQ(erps_find_ring_by_port(1), nullptr);
}

TEST_F(RingListTest, NewestRingIsFirst) {
  make_ring({.id = 5, .port0 = 1, .port1 = 2});
  make_ring({.id = 3, .port0 = 3, .port1 = 4});
  ERPSM_T* newest = make_ring({.id = 9, .port0 = 5, .port1 = 6});
  EXPECT_THAT(ring_ids(), ElementsAre(9U, 3U, 5U));
  EXPECT_EQ(erps_get_list_head(), newest);
}

TEST_F(RingListTest, RingsAreFoundByTheirFullId) {
  ERPSM_T* one = make_ring({.id = 1});
  ERPSM_T* big = make_ring({.id = 257, .port0 = 3, .port1 = 4});
  ERPSM_T* zero = make_ring({.id = 0, .port0 = 5, .port1 = 6});
  platform.clear_journal();
  EXPECT_EQ(erpsapi_erpsm_find(1), one);
  EXPECT_EQ(logged_at("erpsapi_erpsm_find", "ok this->ring_id = 1 \n"), 1);
  EXPECT_EQ(erpsapi_erpsm_find(257), big);
  EXPECT_EQ(erpsapi_erpsm_find(0), zero);
  EXPECT_EQ(erpsapi_erpsm_find(2), nullptr);
}

TEST_F(RingListTest, PortLookUpNamesRingAndPortInTheLog) {
  ERPSM_T* ring = make_ring({.id = 4, .port0 = 11, .port1 = 12});
  platform.clear_journal();
  EXPECT_EQ(erps_port_find(ring, 11), port0(ring));
  EXPECT_EQ(erps_port_find(ring, 12), port1(ring));
  EXPECT_EQ(erps_port_find(ring, 13), nullptr);
  EXPECT_GE(logged_at("erps_port_find", "ring 4 port 11\n"), 1);
}

TEST_F(RingListTest, SecondPortOfASubRingIsInvisibleToThePortLookUp) {
  ERPSM_T* ring = make_ring({.port0 = 7, .port1 = 255, .ring_role = kSubRing});
  EXPECT_EQ(erps_port_find(ring, 7), port0(ring));
  EXPECT_EQ(erps_port_find(ring, 255), nullptr);
}

TEST_F(RingListTest, SecondPortOfASubRingIsVisibleToTheRingLookUp) {
  ERPSM_T* ring = make_ring({.port0 = 7, .port1 = 255, .ring_role = kSubRing});
  EXPECT_EQ(erps_find_ring_by_port(7), ring);
  EXPECT_EQ(erps_find_ring_by_port(255), ring);
}

TEST_F(RingListTest, SharedPortFindsTheNewerRing) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2});
  ERPSM_T* newer = make_ring({.id = 2, .port0 = 3, .port1 = 2});
  EXPECT_EQ(erps_find_ring_by_port(2), newer);
  EXPECT_EQ(erps_find_ring_by_port(3), newer);
  EXPECT_NE(erps_find_ring_by_port(1), newer);
  EXPECT_EQ(erps_find_ring_by_port(4), nullptr);
}

TEST_F(RingListTest, OtherPortIsTheFirstWithAnotherId) {
  ERPSM_T* ring = make_ring({.port0 = 1, .port1 = 2});
  EXPECT_EQ(erps_other_port_find(ring, 1), port1(ring));
  EXPECT_EQ(erps_other_port_find(ring, 2), port0(ring));
  EXPECT_EQ(erps_other_port_find(ring, 99), port0(ring));
}

TEST_F(RingListTest, OtherPortIsNoneWhenBothAreTheSame) {
  ERPSM_T* ring = make_ring({.port0 = 5, .port1 = 5});
  EXPECT_EQ(erps_other_port_find(ring, 5), nullptr);
}

TEST_F(RingListTest, PortLookUpsOfARingWithoutPortsFindNothing) {
  ERPSM_T* ring = make_ring();
  erps_del_port(ring);
  EXPECT_EQ(erps_port_find(ring, 1), nullptr);
  EXPECT_EQ(erps_other_port_find(ring, 1), nullptr);
  EXPECT_EQ(erps_find_ring_by_port(1), nullptr);
}

TEST_F(RingListTest, UnlinkTakesHeadMiddleAndTail) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2});
  make_ring({.id = 2, .port0 = 3, .port1 = 4});
  make_ring({.id = 3, .port0 = 5, .port1 = 6});
  make_ring({.id = 4, .port0 = 7, .port1 = 8});

  ERPSM_T* middle = erps_ring_unlink(3);
  ASSERT_NE(middle, nullptr);
  EXPECT_EQ(middle->ring_id, 3U);
  EXPECT_NE(middle->port_list, nullptr);
  EXPECT_THAT(ring_ids(), ElementsAre(4U, 2U, 1U));
  ERPSM_T* head = erps_ring_unlink(4);
  EXPECT_THAT(ring_ids(), ElementsAre(2U, 1U));
  ERPSM_T* tail = erps_ring_unlink(1);
  EXPECT_THAT(ring_ids(), ElementsAre(2U));

  for (ERPSM_T* ring : {middle, head, tail}) {  // the fixture removes what is linked
    erps_ring_link(ring);
  }
  EXPECT_THAT(ring_ids(), ElementsAre(1U, 4U, 3U, 2U));
}

TEST_F(RingListTest, UnlinkOfAnUnknownRingIsNone) {
  EXPECT_EQ(erps_ring_unlink(1), nullptr);
  make_ring({.id = 1});
  EXPECT_EQ(erps_ring_unlink(2), nullptr);
  EXPECT_THAT(ring_ids(), ElementsAre(1U));
}

TEST_F(RingListTest, LowerRemoteNodeIdComparesAsOne) {
  ERPSM_T* ring = make_ring();
  set_node_ids(ring, {0, 0x11, 0x22, 0x33, 0x44, 0x54}, kLocalNode);
  EXPECT_EQ(erps_cmp_node_id(ring), 1U);
  set_node_ids(ring, {0, 0x10, 0xFF, 0xFF, 0xFF, 0xFF}, kLocalNode);
  EXPECT_EQ(erps_cmp_node_id(ring), 1U);
  EXPECT_EQ(equal_node_lines(), 0);
}

TEST_F(RingListTest, HigherRemoteNodeIdComparesAsZero) {
  ERPSM_T* ring = make_ring();
  set_node_ids(ring, {0, 0x11, 0x22, 0x33, 0x44, 0x56}, kLocalNode);
  EXPECT_EQ(erps_cmp_node_id(ring), 0U);
  set_node_ids(ring, {0, 0x12, 0, 0, 0, 0}, kLocalNode);
  EXPECT_EQ(erps_cmp_node_id(ring), 0U);
  EXPECT_EQ(equal_node_lines(), 0);
}

TEST_F(RingListTest, NodeIdBytesCompareUnsigned) {
  ERPSM_T* ring = make_ring();
  set_node_ids(ring, {0x7F, 0, 0, 0, 0, 0}, {0x80, 0, 0, 0, 0, 0});
  EXPECT_EQ(erps_cmp_node_id(ring), 1U);
  set_node_ids(ring, {0x80, 0, 0, 0, 0, 0}, {0x7F, 0, 0, 0, 0, 0});
  EXPECT_EQ(erps_cmp_node_id(ring), 0U);
}

TEST_F(RingListTest, EqualNodeIdsCompareAsZeroAndAreLogged) {
  ERPSM_T* ring = make_ring();
  set_node_ids(ring, kLocalNode, kLocalNode);
  EXPECT_EQ(erps_cmp_node_id(ring), 0U);
  EXPECT_EQ(equal_node_lines(), 1);
}

TEST_F(RingListTest, RingsOutsideTheListAreNotFound) {
  ERPSM_T* ring = make_ring({.id = 8});
  erps_ring_unlink(8);
  EXPECT_EQ(erpsapi_erpsm_find(8), nullptr);
  EXPECT_THAT(ring_ids(), IsEmpty());
  erps_ring_link(ring);
}

}  // namespace
}  // namespace erps::test
