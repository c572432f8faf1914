// Rings whose ports are not as they should be: deleted, or twice the same. Management refuses the
// second and never leaves the first behind; whoever calls the operations must come to no harm.
#include "erps/fsm/dispatch.h"
#include "erps/fsm/fdb_flush.h"
#include "erps/fsm/requests.h"
#include "erps/raps/interconnection.h"
#include "erps/raps/transmit.h"
#include "erps/ring/ring_records.h"
#include "tests/unit/reception_fixture.h"

namespace erps::test {
namespace {

using ::testing::IsEmpty;

constexpr RingSpec kTwiceTheSamePort = {.port0 = 1, .port1 = 1};

class OddPortsTest : public ReceptionTest {};

TEST_F(OddPortsTest, SubRingWithoutPortsKeepsItsIndication) {
  ERPSM_T* ring = idle_ring(kSubRingSpec);
  ring->notify_state = kMajorRingCut;
  ring->mach_enter = kRequestCount;  // no row
  erps_del_port(ring);
  steps();
  EXPECT_EQ(ERPS_erpsm_update(ring), 0U);
  EXPECT_EQ(steps(), "");
  EXPECT_EQ(ring->State, STATE_IDLE);
  EXPECT_EQ(ring->notify_state, kMajorRingCut);
}

TEST_F(OddPortsTest, SubRingWithoutPortsOnlyNotesAnIndication) {
  ERPSM_T* ring = idle_ring(kSubRingSpec);
  erps_del_port(ring);
  steps();
  erps_notify_sub_ring(ring->ring_id, kMajorRingCut);
  EXPECT_EQ(steps(), "");
  EXPECT_EQ(ring->State, STATE_IDLE);
  EXPECT_EQ(ring->notify_state, kMajorRingCut);
}

TEST_F(OddPortsTest, SubRingWithoutPortsSwallowsMessages) {
  ERPSM_T* ring = idle_ring(kSubRingSpec);
  erps_del_port(ring);
  steps();
  Received received({.ring_id = 2, .request = kSf}, 3);
  EXPECT_EQ(erps_sub_ring_pdu_proc(ring, received.descriptor()), 0U);
  EXPECT_EQ(steps(), "");
  EXPECT_THAT(posts(), IsEmpty());
  EXPECT_EQ(ring->State, STATE_IDLE);
}

TEST_F(OddPortsTest, SubRingWithoutPortsSendsIntoItsMajorRingOnly) {
  const RingPair pair = idle_pair(kWatching);
  erps_del_port(pair.sub);
  steps();
  erps_Tx_R_APS(pair.sub, kSf, 0, 0, ENTER_LOCAL_SF);
  EXPECT_EQ(steps(), "SF > 1; SF > 1; SF > 1; repeat");
}

TEST_F(OddPortsTest, SubRingWithoutPortsFlushesNothing) {
  ERPSM_T* ring = idle_ring(kSubRingSpec);
  erps_del_port(ring);
  steps();
  EXPECT_EQ(ERPS_flush_FDB(ring), 0U);
  EXPECT_EQ(ERPS_flush_FDB_ring_port(ring), 0U);
  EXPECT_EQ(steps(), "");
}

TEST_F(OddPortsTest, SubRingMessagesFromAMajorRingWithoutPortsAreAbsent) {
  const RingPair pair = idle_pair(kWatching);
  erps_del_port(pair.major);
  EXPECT_EQ(deliver(1, {.ring_id = 2, .request = kSf}), kRxPortAbsent);
  EXPECT_EQ(pair.sub->State, STATE_IDLE);
}

TEST_F(OddPortsTest, OwnerWithoutPortsRevertsInSilence) {
  ERPSM_T* ring = idle_ring({.node_role = kRplOwner});
  ring->State = STATE_PENDING;
  ring->flush_port = 77;
  erps_del_port(ring);
  steps();
  enter(ring, "WTB_expires");
  EXPECT_EQ(steps(), "stop WTR; repeat; -> idle");
  EXPECT_EQ(ring->flush_port, 77);
}

TEST_F(OddPortsTest, MessageHasNowhereToGoOnFromAPortThatIsBoth) {
  ERPSM_T* ring = idle_ring(kTwiceTheSamePort);
  EXPECT_EQ(deliver(1, {.request = kSf}), kRxHandled);
  EXPECT_EQ(ring->State, STATE_PROTECTION);
  EXPECT_THAT(platform.sent_frames(), IsEmpty());
}

TEST_F(OddPortsTest, NewPairOnAPortThatIsBothFlushes) {
  ERPSM_T* ring = idle_ring(kTwiceTheSamePort);
  deliver(1, {.request = kEvent});
  EXPECT_EQ(steps(), "flush 1");
  EXPECT_EQ(stored_node_id(port0(ring)), kRemoteNode);
}

TEST_F(OddPortsTest, ForeignMessageHasNowhereToGoOnFromAPortThatIsBoth) {
  idle_ring(kTwiceTheSamePort);
  EXPECT_EQ(deliver(1, {.ring_id = 7, .request = kSf}), kRxUnknownRing);
  EXPECT_THAT(platform.sent_frames(), IsEmpty());
}

TEST_F(OddPortsTest, WatchingNodeIndicatesNothingForAPortThatIsBoth) {
  ERPSM_T* ring = idle_ring(kTwiceTheSamePort);
  ring->interconnect_ring_id = 2;
  ring->inter_node_role = kWatching;
  Received received({.request = kSf}, 1);
  erps_interconnectnode_pkt_proc(ring, received.descriptor());
  erps_interconnectnode_link_proc(ring, kLinkDown, 1);
  EXPECT_THAT(posts(), IsEmpty());
  EXPECT_EQ(port0(ring)->fail_count, 0U);
}

TEST_F(OddPortsTest, WatchingNodeIndicatesNothingForAPortOfNobody) {
  ERPSM_T* ring = idle_ring();
  ring->interconnect_ring_id = 2;
  ring->inter_node_role = kWatching;
  set_port(port1(ring), kLinkDown, kDiscarding);
  Received received({.request = kSf}, 9);
  erps_interconnectnode_pkt_proc(ring, received.descriptor());
  erps_interconnectnode_link_proc(ring, kLinkDown, 9);
  EXPECT_THAT(posts(), IsEmpty());
  EXPECT_EQ(port0(ring)->fail_count + port1(ring)->fail_count, 0U);
}

TEST_F(OddPortsTest, MarkingNodeNamesThePortThatIsBothAsTheFaultyOne) {
  ERPSM_T* ring = idle_ring(kTwiceTheSamePort);
  ring->interconnect_ring_id = 2;
  ring->inter_node_role = 0;
  erps_interconnectnode_link_proc(ring, kLinkUp, 1);
  EXPECT_EQ(ring->inter_fault_port, 1);
}

}  // namespace
}  // namespace erps::test
