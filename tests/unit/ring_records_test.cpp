#include "erps/ring/ring_records.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>

#include "erps/fsm/entry_actions.h"
#include "erps/ring/ring_config.h"
#include "erps/ring/ring_list.h"
#include "erps/ring/ring_start.h"
#include "erps/timer/protocol_timers.h"
#include "tests/unit/fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;
using ::testing::IsEmpty;

class RingRecordsTest : public ModuleTest {
 protected:
  static std::vector<std::string> state_names(const ERPSM_T* ring) {
    std::vector<std::string> names;
    for (const ERPS_STATE_ENTRY_T* entry = ring->state_list; entry != nullptr;
         entry = entry->next) {
      names.emplace_back(entry->name);
    }
    return names;
  }
};

TEST_F(RingRecordsTest, NewRingHoldsItsArgumentsAndNothingElse) {
  const ERPSM_T* ring = erps_ring_create(7, 11, 12, 4094, kRplOwner, kOpenChannelRing);
  ASSERT_NE(ring, nullptr);
  EXPECT_EQ(ring->ring_id, 7U);
  EXPECT_EQ(ring->vlan_id, 4094U);
  EXPECT_EQ(ring->node_role, kRplOwner);
  EXPECT_EQ(ring->ring_role, kOpenChannelRing);
  EXPECT_EQ(ring->tx_interval, 5000U);

  EXPECT_EQ(ring->next, nullptr);
  EXPECT_EQ(ring->state_entered, 0);
  EXPECT_EQ(ring->State, 0);
  EXPECT_EQ(ring->mach_enter, 0U);
  EXPECT_EQ(ring->local_priority, 0U);
  EXPECT_EQ(ring->current_priority, 0U);
  EXPECT_EQ(ring->non_revertive, 0);
  EXPECT_EQ(ring->enable, 0);
  EXPECT_EQ(ring->aux_buffer, nullptr);
  EXPECT_EQ(ring->interconnect_ring_id, 0U);
  EXPECT_EQ(ring->inter_node_role, 0U);
  EXPECT_EQ(ring->inter_fault_port, 0);  // -1 from the first start on
  EXPECT_EQ(ring->event_port, 0);        // -1 from the first start on
  EXPECT_EQ(ring->flush_port, 0);
  EXPECT_EQ(ring->notify_state, 0);
  EXPECT_EQ(ring->request_port, 0U);
  EXPECT_EQ(ring->send_logic, 0U);
  EXPECT_EQ(ring->tx_cause, 0U);
  EXPECT_EQ(ring->guard_running, 0U);
  EXPECT_EQ(ring->holdoff_running, 0U);
  EXPECT_EQ(ring->tx_frame_len, 0U);
  EXPECT_EQ(ring->timer_start_time, 0U);
  EXPECT_EQ(ring->holdoff_start_time, 0U);
  EXPECT_EQ(bytes_of(ring->local_node_id, 6), std::vector<uint8_t>(6, 0));
  EXPECT_EQ(bytes_of(ring->remote_node_id, 6), std::vector<uint8_t>(6, 0));
  EXPECT_EQ(bytes_of(ring->topo_raps_info, 32), std::vector<uint8_t>(32, 0));
  EXPECT_EQ(bytes_of(ring->tx_frame, 256), std::vector<uint8_t>(256, 0));
}

TEST_F(RingRecordsTest, CreatingTouchesNoPortOfTheSwitch) {
  make_ring();
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_THAT(timers(), IsEmpty());
}

TEST_F(RingRecordsTest, PortsAreNumberedAndTheSecondIsTheRplPort) {
  const ERPSM_T* ring = make_ring({.port0 = 11, .port1 = 12});
  const ERPS_PORT_T* first = port0(ring);
  const ERPS_PORT_T* second = port1(ring);
  EXPECT_EQ(ring->port_block, first);
  EXPECT_EQ(second, first + 1);
  EXPECT_EQ(second->next, nullptr);
  EXPECT_EQ(first->port_id, 11U);
  EXPECT_EQ(second->port_id, 12U);
  EXPECT_EQ(first->port_index, 0U);
  EXPECT_EQ(second->port_index, 1U);
  EXPECT_EQ(first->port_role, 0U);
  EXPECT_EQ(second->port_role, 1U);
  for (const ERPS_PORT_T* port : {first, second}) {
    EXPECT_EQ(port->ring, ring);
    EXPECT_EQ(port->link_status, 0);
    EXPECT_EQ(port->port_state, 0);
    EXPECT_EQ(port->fail_count, 0U);
    EXPECT_EQ(port->port_buffer, nullptr);
    EXPECT_EQ(port->rx_bpr, 0);
    EXPECT_EQ(bytes_of(port->rx_node_id, 6), std::vector<uint8_t>(6, 0));
  }
}

TEST_F(RingRecordsTest, StateListHasFourteenEntriesNewestRowFirst) {
  const ERPSM_T* ring = make_ring();
  EXPECT_THAT(
      state_names(ring),
      ElementsAre("", "RAPS_NR", "RAPS_NR_RB", "WTB_expires", "WTR_expires", "MS", "RAPS_MS",
                  "RAPS_SF", "local_clear_SF", "local_SF", "RAPS_FS", "FS", "clear", "init"));
  EXPECT_EQ(ring->state_list, ring->state_block + 13);
}

TEST_F(RingRecordsTest, StateEntriesCarryTheirRowsActionAndTheirRing) {
  const ERPSM_T* ring = make_ring();
  for (size_t row = 0; row < kStateRows; ++row) {
    EXPECT_STREQ(ring->state_block[row].name, erps_func_array[row].name);
    EXPECT_EQ(ring->state_block[row].enter, erps_func_array[row].enter);
    EXPECT_EQ(ring->state_block[row].ring, ring);
  }
  EXPECT_EQ(ring->state_block[13].ring, ring);
  EXPECT_STREQ(ring->state_block[13].name, "");
}

TEST_F(RingRecordsTest, StateBlockHoldsFourteenEntries) {
  ERPS_STATE_ENTRY_T* block = erps_state_malloc();
  ASSERT_NE(block, nullptr);
  memset(static_cast<void*>(block), 0x5A, 14 * sizeof *block);  // the sanitizers watch the end
  operator delete(block);
}

TEST_F(RingRecordsTest, StateBlockIsNullWithoutMemory) {
  platform.fail_allocation(1);
  EXPECT_EQ(erps_state_malloc(), nullptr);
}

// --- Out of memory

TEST_F(RingRecordsTest, WithoutMemoryForTheRingNothingChanges) {
  make_ring({.id = 1});
  platform.clear_journal();
  platform.fail_allocation(1);
  EXPECT_EQ(make_ring({.id = 2}), nullptr);
  EXPECT_THAT(ring_ids(), ElementsAre(1U));
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(RingRecordsTest, WithoutMemoryForTheStatesTheRingIsRemovedAgain) {
  make_ring({.id = 1});
  platform.clear_journal();
  platform.fail_allocation(2);
  EXPECT_EQ(make_ring({.id = 2}), nullptr);
  EXPECT_THAT(ring_ids(), ElementsAre(1U));
  EXPECT_THAT(platform.calls(), IsEmpty());
  EXPECT_EQ(logged_part("ERPS_Create_Port_Error"), 0);
}

TEST_F(RingRecordsTest, WithoutMemoryForThePortsTheRingIsRemovedAndTheErrorLogged) {
  make_ring({.id = 1});
  platform.clear_journal();
  platform.fail_allocation(3);
  EXPECT_EQ(make_ring({.id = 2}), nullptr);
  EXPECT_THAT(ring_ids(), ElementsAre(1U));
  EXPECT_EQ(logged(3, "ERPS_Create_Port_Error\n"), 1);
  EXPECT_THAT(platform.calls(), IsEmpty());
}

TEST_F(RingRecordsTest, CreationNeedsThreeBlocks) {
  platform.fail_allocation(4);
  EXPECT_NE(make_ring({.id = 2}), nullptr);
}

TEST_F(RingRecordsTest, PortCreationWithoutMemoryLeavesNoPorts) {
  ERPSM_T* ring = make_ring();
  erps_del_port(ring);
  const uint32_t ids[2] = {1, 2};
  platform.fail_allocation(1);
  EXPECT_EQ(erps_port_create(ring, ids), 1U);
  EXPECT_EQ(ring->port_block, nullptr);
  EXPECT_EQ(ring->port_list, nullptr);
  EXPECT_EQ(erps_port_create(ring, ids), 0U);
  EXPECT_NE(ring->port_list, nullptr);
}

// --- Other ports

TEST_F(RingRecordsTest, RePortingReusesTheRecordsAndResetsTheRplMarker) {
  ERPSM_T* ring = make_ring({.id = 1, .port0 = 1, .port1 = 2});
  erps_set_node_role(1, kRplOwner, 1);
  ASSERT_EQ(port0(ring)->port_role, 1U);
  for (ERPS_PORT_T* port : {port0(ring), port1(ring)}) {
    port->rx_bpr = 1;
    memset(port->rx_node_id, 0xEE, 6);
    port->link_status = 1;
    port->port_state = 4;
    port->fail_count = 3;
  }
  const ERPS_PORT_T* block = ring->port_block;
  const uint32_t ids[2] = {21, 22};

  erps_change_port(ring, ids);

  EXPECT_EQ(ring->port_block, block);
  EXPECT_EQ(port0(ring)->port_id, 21U);
  EXPECT_EQ(port1(ring)->port_id, 22U);
  EXPECT_EQ(port0(ring)->port_role, 0U);
  EXPECT_EQ(port1(ring)->port_role, 1U);
  EXPECT_EQ(port0(ring)->port_index, 0U);
  EXPECT_EQ(port1(ring)->port_index, 1U);
  for (const ERPS_PORT_T* port : {port0(ring), port1(ring)}) {
    EXPECT_EQ(port->rx_bpr, 0);
    EXPECT_EQ(bytes_of(port->rx_node_id, 6), std::vector<uint8_t>(6, 0));
    EXPECT_EQ(port->link_status, 1);
    EXPECT_EQ(port->port_state, 4);
    EXPECT_EQ(port->ring, ring);
  }
}

TEST_F(RingRecordsTest, DeletingPortsFreesTheirBuffers) {
  ERPSM_T* ring = make_ring();
  port0(ring)->port_buffer = malloc(32);  // a leak or a double free fails the run
  port1(ring)->port_buffer = malloc(32);
  erps_del_port(ring);
  EXPECT_EQ(ring->port_list, nullptr);
  EXPECT_EQ(ring->port_block, nullptr);
  erps_del_port(ring);
  EXPECT_EQ(ring->port_list, nullptr);
}

// --- Removing

TEST_F(RingRecordsTest, RemovingTakesTheRingOffTheListWithItsBuffer) {
  make_ring({.id = 1, .port0 = 1, .port1 = 2});
  ERPSM_T* ring = make_ring({.id = 2, .port0 = 3, .port1 = 4});
  make_ring({.id = 3, .port0 = 5, .port1 = 6});
  ring->aux_buffer = malloc(64);
  erps_ring_remove(ring);
  EXPECT_THAT(ring_ids(), ElementsAre(3U, 1U));
}

TEST_F(RingRecordsTest, RemovingARingThatNeverRanTouchesNothing) {
  ERPSM_T* ring = make_ring();
  platform.clear_journal();
  erps_ring_remove(ring);
  EXPECT_EQ(erps_get_list_head(), nullptr);
  EXPECT_THAT(platform.calls(), IsEmpty());  // no link is up in its records
  EXPECT_THAT(timers(), IsEmpty());
}

TEST_F(RingRecordsTest, RemovingARingWithoutPortsAndStatesDoesNotFail) {
  ERPSM_T* ring = make_ring();
  erps_del_port(ring);
  erps_ring_remove(ring);
  EXPECT_EQ(erps_get_list_head(), nullptr);
}

TEST_F(RingRecordsTest, RemovingARunningRingStopsItFirst) {
  ERPSM_T* ring = make_running_ring();
  port1(ring)->port_state = kDiscarding;
  erps_ring_remove(ring);
  EXPECT_EQ(erps_get_list_head(), nullptr);
  EXPECT_THAT(platform.calls(),
              ElementsAre("adp_set_port_erps_state(1, 4)", "adp_set_port_erps_state(2, 4)"));
  EXPECT_THAT(timers(), IsEmpty());
}

TEST_F(RingRecordsTest, ArmedGuardAndHoldoffDoNotOutliveTheirRing) {
  ERPSM_T* ring = make_running_ring();
  erps_start_guard_timer(&ring->guard_timer);
  erps_start_holdoff_timer(&ring->holdoff_timer);
  erps_ring_remove(ring);
  EXPECT_THAT(timers(), IsEmpty());
  pass_ms(60'000);  // reads freed memory if one stayed linked
  EXPECT_THAT(platform.take_events(), IsEmpty());
}

TEST_F(RingRecordsTest, RemovalLeavesTheTimersOfOtherRings) {
  ERPSM_T* first = make_running_ring({.id = 1, .port0 = 1, .port1 = 2});
  ERPSM_T* second = make_running_ring({.id = 2, .port0 = 3, .port1 = 4});
  ASSERT_EQ(second->raps_timer.active, 1);
  erps_ring_remove(first);
  EXPECT_THAT(timers(), ElementsAre("Send Raps Timer"));
  EXPECT_EQ(second->raps_timer.active, 1);
}

TEST_F(RingRecordsTest, ReleasingARingThatIsNotInTheListFreesNothing) {
  ERPSM_T* ring = make_ring({.id = 1});
  ASSERT_EQ(erps_ring_unlink(1), ring);
  erps_release_ring(ring);
  EXPECT_EQ(ring->ring_id, 1U);  // still readable
  erps_ring_link(ring);
}

TEST_F(RingRecordsTest, RingIdsOutsideTheTableOfHoldoffsComeAndGo) {
  for (const uint32_t id : {0U, 240U, 300U, 0xFFFFFFFFU}) {
    ERPSM_T* ring = make_running_ring({.id = id});
    ASSERT_NE(ring, nullptr);
    erps_start_holdoff_timer(&ring->holdoff_timer);
    erps_ring_remove(ring);
    EXPECT_THAT(timers(), IsEmpty());
  }
}

}  // namespace
}  // namespace erps::test
