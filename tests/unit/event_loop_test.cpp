#include "erps/runtime/event_loop.h"

#include <cstring>
#include <memory>

#include "erps/fsm/requests.h"
#include "erps/link/link_state.h"
#include "erps/mgmt/server.h"
#include "erps/ring/ring_config.h"
#include "erps/ring/ring_records.h"
#include "erps/ring/ring_start.h"
#include "erps/timer/protocol_timers.h"
#include "tests/unit/fixture.h"
#include "tests/unit/management_client.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class EventLoopTest : public ModuleTest {
 protected:
  static void dispatch(uintptr_t type, const void* payload = nullptr) {
    ERPS_EVENT_MSG_T event{};
    event.event_class = 3;
    event.type = type;
    event.payload = reinterpret_cast<uintptr_t>(payload);
    erps_dispatch_event(&event);
  }

  // A packet buffer that announces a frame.
  static std::array<uint8_t, 32> packet(uint32_t handle, uint16_t length) {
    std::array<uint8_t, 32> buffer{};
    memcpy(&buffer[8], &handle, sizeof handle);
    memcpy(&buffer[14], &length, sizeof length);
    return buffer;
  }

  static std::array<uint8_t, 16> link_record(uint16_t interface, uint16_t state) {
    std::array<uint8_t, 16> record{};
    memcpy(&record[4], &interface, sizeof interface);
    memcpy(&record[6], &state, sizeof state);
    return record;
  }

  // A frame arrives and is announced with its length.
  void deliver(const std::vector<uint8_t>& frame, uint32_t port, uint16_t announced) {
    platform.set_received_frame(frame, 100, port);
    const std::array<uint8_t, 32> buffer = packet(77, announced);
    dispatch(2, buffer.data());
  }
};

// --- Dispatch

TEST_F(EventLoopTest, LinkChangeReadsInterfaceAndStateFromItsRecord) {
  ERPSM_T* ring = make_running_ring({.port0 = 300, .port1 = 2});
  const std::array<uint8_t, 16> down = link_record(300, 0);
  dispatch(1, down.data());  // on the stack: freeing it would end the run
  EXPECT_EQ(port0(ring)->link_status, 0);
  EXPECT_EQ(ring->State, STATE_PROTECTION);
  EXPECT_EQ(logged(7, "Receive ERPS_EVENT_T_LINK_CHANGE message, process it !~\n"), 1);
  EXPECT_THAT(platform.calls({"skpack_release"}), IsEmpty());
}

TEST_F(EventLoopTest, PacketIsFetchedProcessedAndReleased) {
  make_running_ring({.id = 9});
  deliver(FrameSpec{.ring_id = 9, .request = 11}.bytes(), 1, 55);
  EXPECT_EQ(logged(7,
                   "--------------------- Receive packet, process it !~ "
                   "---------------------\n"),
            1);
  EXPECT_EQ(logged_part("Inport: 1 RAPS TYPE : RAPS_SF"), 1);
  const std::vector<std::string> calls =
      platform.calls({"adp_receive_frame", "skpack_release", "adp_transmit_frame"});
  ASSERT_GE(calls.size(), 2U);
  EXPECT_EQ(calls.front(), "adp_receive_frame(77, 55)");
  EXPECT_EQ(calls.back(), "skpack_release(packet)");
}

TEST_F(EventLoopTest, FrameIsAsLongAsItWasFetchedWhateverWasAnnounced) {
  make_running_ring({.id = 9, .ring_role = kOpenChannelRing});
  platform.clear_journal();
  const std::vector<uint8_t> frame = FrameSpec{.ring_id = 9, .request = 14}.bytes();
  deliver(frame, 1, 100);
  EXPECT_THAT(platform.calls({"adp_receive_frame"}), ElementsAre("adp_receive_frame(77, 100)"));
  ASSERT_EQ(platform.sent_frames().size(), 1U);
  EXPECT_EQ(platform.sent_frames()[0].bytes, frame);
}

TEST_F(EventLoopTest, PacketIsReleasedWhenItsFrameIsRejected) {
  deliver(FrameSpec{.ring_id = 44}.bytes(), 1, 55);
  EXPECT_THAT(platform.calls(), ElementsAre("adp_receive_frame(77, 55)", "skpack_release(packet)"));
}

TEST_F(EventLoopTest, PacketIsReleasedWhenItsFrameCannotBeFetched) {
  const ERPSM_T* ring = make_running_ring();
  platform.set_receive_result(-1);
  deliver(FrameSpec{.request = 11}.bytes(), 1, 55);
  EXPECT_THAT(platform.calls(), ElementsAre("adp_receive_frame(77, 55)", "skpack_release(packet)"));
  EXPECT_EQ(ring->State, STATE_PENDING);
}

TEST_F(EventLoopTest, CapacityNeverExceedsTheBufferWhateverIsAnnounced) {
  deliver(std::vector<uint8_t>(60'000, 0x01), 1, 65'535);
  deliver(std::vector<uint8_t>(2048, 0x01), 1, 2048);
  EXPECT_THAT(platform.calls({"adp_receive_frame"}),
              ElementsAre("adp_receive_frame(77, 2048)", "adp_receive_frame(77, 2048)"));
}

TEST_F(EventLoopTest, BytesBehindAShortFrameReadAsZero) {
  deliver(std::vector<uint8_t>(200, 0xFF), 1, 200);
  platform.clear_journal();
  deliver(std::vector<uint8_t>(20, 0xFF), 1, 20);  // ends before the request byte
  EXPECT_EQ(logged_part("Inport: 1 RAPS TYPE : NR ..Block Port Ref:0, Need Flush Block Port Node : "
                        "00:00:00:00:00:00\n"),
            1);
}

TEST_F(EventLoopTest, EmptyFrameIsHandled) {
  deliver({}, 1, 0);
  EXPECT_EQ(platform.calls({"skpack_release"}).size(), 1U);
}

TEST_F(EventLoopTest, TopologyChangeSendsAnEventAndFreesItsBuffer) {
  const ERPSM_T* ring = make_running_ring({.id = 6});
  erps_send_cmd(7, 6, 0);
  handle_events();  // a buffer that is not freed is a leak
  EXPECT_EQ(logged(7, "Receive topology change message, process it !~\n"), 1);
  ASSERT_FALSE(platform.sent_frames().empty());
  EXPECT_EQ(platform.sent_frames()[0].bytes.at(22), 0xE0);
  EXPECT_EQ(ring->State, STATE_PENDING);
}

TEST_F(EventLoopTest, TopologyChangeOfAnUnknownRingFreesItsBufferToo) {
  erps_send_cmd(7, 6, 0);
  handle_events();
  EXPECT_THAT(platform.sent_frames(), IsEmpty());
}

TEST_F(EventLoopTest, SubRingNotificationReachesTheRing) {
  const ERPSM_T* ring = make_running_ring({.id = 6, .port1 = 255, .ring_role = kSubRing});
  erps_send_cmd(10, 6, 2);
  handle_events();
  EXPECT_EQ(logged(7, "Receive notify sub ring event message, process it !~\n"), 1);
  EXPECT_EQ(ring->notify_state, 2);
}

TEST_F(EventLoopTest, SubRingNotificationOfAnUnknownRingFreesItsBufferToo) {
  erps_send_cmd(10, 6, 1);
  handle_events();
  EXPECT_THAT(ring_ids(), IsEmpty());
}

TEST_F(EventLoopTest, ManagementEventServesTheRequestOfThatType) {
  const std::optional<std::string> refusal = enter_private_ipc_namespace();
  if (refusal) {
    GTEST_SKIP() << "MANAGEMENT QUEUE NOT TESTED: " << *refusal;
  }
  remove_management_queue();
  ASSERT_EQ(erps_user_srv_init(), 0);
  ASSERT_TRUE(send_request(31, request_text(14, {})));
  ERPS_EVENT_MSG_T event{};
  event.type = 4;
  event.payload = 31;  // a number, never followed
  erps_dispatch_event(&event);
  const std::optional<Reply> reply = take_reply(0x4000001F);
  remove_management_queue();
  ASSERT_TRUE(reply.has_value());
  EXPECT_EQ(reply->cmd, 14);
}

TEST_F(EventLoopTest, ReservedTypesAreSilent) {
  for (const uintptr_t type : {5, 6, 8}) {
    dispatch(type);
  }
  EXPECT_THAT(platform.log(), IsEmpty());
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(EventLoopTest, UnknownTypesAreLoggedAndDropped) {
  for (const uintptr_t type :
       {uintptr_t{0}, uintptr_t{9}, uintptr_t{11}, uintptr_t{4096}, ~uintptr_t{0}}) {
    platform.clear_journal();
    dispatch(type);
    EXPECT_EQ(logged(3, "UNKNOWN EVENT! Sys ERROR\r\n"), 1) << "type " << type;
    EXPECT_THAT(platform.calls(), IsEmpty());
  }
}

// --- Timer expiries

TEST_F(EventLoopTest, ExpiryOfWaitToRestoreBringsTheOwnerToIdle) {
  ERPSM_T* ring = make_running_ring({.node_role = kRplOwner});
  ASSERT_EQ(ring->State, STATE_PENDING);
  pass_ms(300'000);
  handle_events();
  EXPECT_EQ(ring->State, STATE_IDLE);
}

TEST_F(EventLoopTest, RefusedExpiryRunsNoEntry) {
  ERPSM_T* ring = make_running_ring({.node_role = kRplOwner});
  ring->wtb_timer.request = REQUEST_WTB_EXPIRES;  // while WTR runs
  platform.clear_journal();
  EXPECT_EQ(erps_timer_proc(&ring->wtb_timer), 0);
  EXPECT_EQ(ring->State, STATE_PENDING);
  EXPECT_EQ(ring->local_priority, REQUEST_WTR_RUNNING);
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(EventLoopTest, HoldoffExpiryReportsTheInterfaceThatFailed) {
  ERPSM_T* ring = make_running_ring({.id = 239});
  erps_set_holdoff_timer(400);
  erps_link_change_trigger(1, 0);
  EXPECT_EQ(port0(ring)->link_status, 1);
  EXPECT_EQ(ring->State, STATE_PENDING);
  platform.clear_journal();
  pass_ms(1000);
  handle_events();
  EXPECT_EQ(ring->holdoff_running, 0U);
  EXPECT_EQ(port0(ring)->link_status, 0);
  EXPECT_EQ(ring->State, STATE_PROTECTION);
  EXPECT_THAT(platform.calls({"adp_set_port_erps_state", "adp_del_mac_addr_by_intf"}),
              ElementsAre("adp_set_port_erps_state(1, 1)", "adp_set_port_erps_state(2, 4)",
                          "adp_del_mac_addr_by_intf(1, 2)"));
  EXPECT_EQ(logged(7, "erps_record_port_link_status \n"), 1);
  EXPECT_EQ(logged(7, "erps_topology_change \n"), 1);
}

TEST_F(EventLoopTest, HoldoffExpiryOfAMajorRingWithAPartnerRunsTheInterconnectionCall) {
  ERPSM_T* ring = make_running_ring({.id = 1});
  make_ring({.id = 2, .port0 = 3, .port1 = 255, .ring_role = kSubRing});
  erps_set_interconnect_attribute(1, 2, 0);  // marks: keeps the failed port in mind
  erps_set_holdoff_timer(400);
  erps_link_change_trigger(2, 0);
  pass_ms(1000);
  handle_events();
  EXPECT_EQ(ring->inter_fault_port, 2);
  event_types();
}

TEST_F(EventLoopTest, HoldoffExpiryOfASubRingSkipsTheInterconnectionCall) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2});
  ERPSM_T* ring = make_running_ring({.id = 2, .port0 = 3, .port1 = 255, .ring_role = kSubRing});
  ring->interconnect_ring_id = 1;
  erps_set_holdoff_timer(400);
  erps_link_change_trigger(3, 0);
  pass_ms(1000);
  platform.clear_journal();
  handle_events();
  EXPECT_EQ(ring->inter_fault_port, kNoPort);
  EXPECT_EQ(port0(ring)->link_status, 0);
  EXPECT_EQ(logged_part("erps_record_port_link_status"), 1);
  EXPECT_EQ(logged_part("erps_topology_change"), 1);
  EXPECT_THAT(event_types(), ElementsAre(7U));  // for the major ring
}

TEST_F(EventLoopTest, HoldoffExpiryOfADisabledRingIsStillHandled) {
  ERPSM_T* ring = make_running_ring();
  erps_set_holdoff_timer(400);
  erps_link_change_trigger(1, 0);
  erps_stop_func(ring);
  pass_ms(1000);
  handle_events();
  EXPECT_EQ(ring->holdoff_running, 0U);
  EXPECT_EQ(port0(ring)->link_status, 0);
  EXPECT_EQ(ring->State, STATE_INIT);
  EXPECT_EQ(ring->local_priority, REQUEST_LOCAL_SF);  // until the next start
}

TEST_F(EventLoopTest, HoldoffExpiryOfARingWithoutATableEntryIsSafe) {
  for (const uint32_t id : {0U, 240U, 300U, 0xFFFFFFFFU}) {
    ERPSM_T* ring = make_running_ring({.id = id});
    erps_start_holdoff_timer(&ring->holdoff_timer);
    pass_ms(1000);
    handle_events();
    EXPECT_EQ(ring->holdoff_running, 0U);
    EXPECT_EQ(port0(ring)->link_status, 1);
    EXPECT_EQ(port1(ring)->link_status, 1);
    erps_ring_remove(ring);
  }
}

TEST_F(EventLoopTest, QueuedExpiryOfARemovedRingDoesNothing) {
  ERPSM_T* ring = make_running_ring({.node_role = kRplOwner});
  make_running_ring({.id = 2, .port0 = 3, .port1 = 4});
  pass_ms(300'000);
  erps_ring_remove(ring);
  platform.clear_journal();
  handle_events();  // the sanitizers see a read of the dead record
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_THAT(ring_ids(), ElementsAre(2U));
}

TEST_F(EventLoopTest, QueuedExpiryOfTheOnlyRingThatIsGoneDoesNothing) {
  ERPSM_T* ring = make_running_ring({.node_role = kRplOwner});
  const ERPS_TIMER_T* timer = &ring->wtr_timer;
  erps_ring_remove(ring);
  dispatch(3, timer);
  EXPECT_THAT(ring_ids(), IsEmpty());
}

TEST_F(EventLoopTest, ExpiryOfAnEarlierRingAtTheAddressOfANewOneDoesNothing) {
  // What the queue holds when an allocation lands where a removed ring was: the address of a timer
  // of the new ring, which has not expired.
  ERPSM_T* stopped = make_ring({.id = 1});
  dispatch(3, &stopped->wtr_timer);
  dispatch(3, &stopped->holdoff_timer);
  EXPECT_EQ(stopped->State, STATE_INIT);
  EXPECT_EQ(stopped->local_priority, 0U);
  EXPECT_EQ(stopped->current_priority, 0U);

  ERPSM_T* running = make_running_ring({.id = 2, .port0 = 3, .port1 = 4, .node_role = kRplOwner});
  platform.clear_journal();
  dispatch(3, &running->wtr_timer);
  dispatch(3, &running->wtb_timer);
  dispatch(3, &running->holdoff_timer);
  EXPECT_EQ(running->State, STATE_PENDING);
  EXPECT_EQ(running->local_priority, REQUEST_WTR_RUNNING);
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(EventLoopTest, AddressInsideARingThatIsNoTimerOfItDoesNothing) {
  // An earlier ring lay elsewhere in the block that is now part of this one.
  ERPSM_T* ring = make_running_ring({.node_role = kRplOwner});
  alignas(ERPS_TIMER_T) ERPS_TIMER_T fake{};
  erps_timer_init(&fake, ring, nullptr);
  fake.request = REQUEST_FS;
  static_assert(sizeof fake <= kTxFrameCapacity - alignof(ERPS_TIMER_T));
  void* place = ring->tx_frame;
  size_t space = sizeof ring->tx_frame;
  ASSERT_NE(std::align(alignof(ERPS_TIMER_T), sizeof fake, place, space), nullptr);
  memcpy(place, static_cast<const void*>(&fake), sizeof fake);
  platform.clear_journal();
  dispatch(3, place);
  EXPECT_EQ(ring->State, STATE_PENDING);
  EXPECT_EQ(ring->local_priority, REQUEST_WTR_RUNNING);
  EXPECT_THAT(platform.calls(), IsEmpty());
}

}  // namespace
}  // namespace erps::test
