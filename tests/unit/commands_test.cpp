#include "erps/fsm/commands.h"

#include "tests/unit/protocol_fixture.h"

namespace erps::test {
namespace {

constexpr uint32_t kDone = 0;
constexpr uint32_t kNoSuchRing = 3;
constexpr uint32_t kNoSuchPort = 23;
constexpr int32_t kUntouched = 77;

class CommandsTest : public ProtocolTest {
 protected:
  CommandsTest() { ring = commanded(idle_ring()); }

  // Marks what a command may write.
  static ERPSM_T* commanded(ERPSM_T* ring) {
    ring->request_port = kUntouched;
    ring->event_port = kUntouched;
    ring->flush_port = kUntouched;
    ring->inter_fault_port = kUntouched;
    ring->current_priority = 0;
    ring->mach_enter = 0;
    return ring;
  }

  static void expect_untouched(const ERPSM_T* ring) {
    EXPECT_EQ(ring->request_port, uint32_t{kUntouched});
    EXPECT_EQ(ring->event_port, kUntouched);
    EXPECT_EQ(ring->flush_port, kUntouched);
    EXPECT_EQ(ring->inter_fault_port, kUntouched);
    EXPECT_EQ(ring->current_priority, 0U);
    EXPECT_EQ(ring->State, 1);
  }

  ERPSM_T* ring = nullptr;
};

TEST_F(CommandsTest, no_command_finds_an_unknown_ring) {
  EXPECT_EQ(erps_cmd_fs_pro(9, 1), kNoSuchRing);
  EXPECT_EQ(erps_cmd_ms_pro(9, 1), kNoSuchRing);
  EXPECT_EQ(erps_cmd_clear_pro(9), kNoSuchRing);
  EXPECT_EQ(steps(), "");
}

TEST_F(CommandsTest, a_stopped_ring_takes_every_command_and_does_nothing) {
  ring->enable = 0;
  EXPECT_EQ(erps_cmd_fs_pro(1, 1), kDone);
  EXPECT_EQ(erps_cmd_fs_pro(1, 9), kDone) << "not even the port is looked at";
  EXPECT_EQ(erps_cmd_ms_pro(1, 1), kDone);
  EXPECT_EQ(erps_cmd_clear_pro(1), kDone);
  EXPECT_EQ(steps(), "");
  expect_untouched(ring);
}

TEST_F(CommandsTest, only_exactly_one_is_enabled) {
  ring->enable = 2;
  EXPECT_EQ(erps_cmd_fs_pro(1, 1), kDone);
  expect_untouched(ring);
}

TEST_F(CommandsTest, fs_of_a_port_that_the_ring_lacks_is_refused_and_changes_nothing) {
  EXPECT_EQ(erps_cmd_fs_pro(1, 9), kNoSuchPort);
  EXPECT_EQ(erps_cmd_ms_pro(1, 9), kNoSuchPort);
  EXPECT_EQ(steps(), "");
  expect_untouched(ring);
}

TEST_F(CommandsTest, a_ring_without_ports_has_no_such_port) {
  ERPS_PORT_T* ports = ring->port_list;
  ring->port_list = nullptr;
  EXPECT_EQ(erps_cmd_fs_pro(1, 1), kNoSuchPort);
  EXPECT_EQ(erps_cmd_ms_pro(1, 1), kNoSuchPort);
  ring->port_list = ports;
}

TEST_F(CommandsTest, forced_switch_away_from_a_port) {
  EXPECT_EQ(erps_cmd_fs_pro(1, 2), kDone);
  EXPECT_EQ(steps(), "block 2; FS > 1; repeat; unblock 1; flush 2; -> forced");
  EXPECT_EQ(ring->request_port, 2U);
  EXPECT_EQ(ring->local_priority, 13U);
  EXPECT_EQ(ring->flush_port, 255) << "named and flushed";
}

TEST_F(CommandsTest, fs_writes_no_event_port_and_ms_writes_both) {
  ring->local_priority = 13;  // both are refused: what they wrote stays
  EXPECT_EQ(erps_cmd_fs_pro(1, 1), kDone);
  EXPECT_EQ(ring->event_port, kUntouched);
  EXPECT_EQ(ring->request_port, 1U);
  EXPECT_EQ(erps_cmd_ms_pro(1, 2), kDone);
  EXPECT_EQ(ring->event_port, 2);
  EXPECT_EQ(ring->request_port, 2U);
  EXPECT_EQ(steps(), "");
}

TEST_F(CommandsTest, a_second_fs_is_refused_but_has_overwritten_the_ports) {
  ASSERT_EQ(erps_cmd_fs_pro(1, 2), kDone);
  steps();
  EXPECT_EQ(erps_cmd_fs_pro(1, 1), kDone);
  EXPECT_EQ(steps(), "");
  EXPECT_EQ(ring->request_port, 1U);
  EXPECT_EQ(ring->flush_port, 1);
  EXPECT_EQ(port1(ring)->port_state, kDiscarding);
}

TEST_F(CommandsTest, manual_switch_away_from_a_port) {
  EXPECT_EQ(erps_cmd_ms_pro(1, 2), kDone);
  EXPECT_EQ(steps(), "block 2; MS,BPR > 1; repeat; unblock 1; flush 2; -> manual");
  EXPECT_EQ(ring->local_priority, 7U);
}

TEST_F(CommandsTest, clear_ends_a_manual_switch) {
  ASSERT_EQ(erps_cmd_ms_pro(1, 2), kDone);
  steps();
  EXPECT_EQ(erps_cmd_clear_pro(1), kDone);
  EXPECT_EQ(steps(), "start guard; NR > 1; repeat; -> pending");
  EXPECT_EQ(ring->local_priority, 0U);
}

TEST_F(CommandsTest, clear_without_fs_or_ms_changes_nothing) {
  EXPECT_EQ(erps_cmd_clear_pro(1), kDone);
  EXPECT_EQ(steps(), "");
  expect_untouched(ring);
}

TEST_F(CommandsTest, ms_on_a_sub_ring_goes_on_with_the_old_request_port) {
  ERPSM_T* sub = commanded(idle_ring(kSubRingSpec));
  sub->request_port = 3;
  EXPECT_EQ(erps_cmd_ms_pro(2, 9), kDone);
  EXPECT_EQ(sub->request_port, 3U);
  EXPECT_EQ(sub->flush_port, 9) << "a sub-ring flushes its own port, and the name stays";
  EXPECT_EQ(steps(), "block 3; MS > 3; MS > 3; MS > 3; repeat; flush 3; -> manual");
}

TEST_F(CommandsTest, a_sub_ring_knows_its_second_port_for_fs_but_not_for_ms) {
  ERPSM_T* sub = commanded(idle_ring(kSubRingSpec));
  sub->local_priority = 13;  // refuse: look at what was written
  EXPECT_EQ(erps_cmd_ms_pro(2, kAbsentPort), kDone);
  EXPECT_EQ(sub->request_port, uint32_t{kUntouched});
  EXPECT_EQ(sub->event_port, kUntouched);
  EXPECT_EQ(erps_cmd_fs_pro(2, kAbsentPort), kDone);
  EXPECT_EQ(sub->request_port, kAbsentPort);
}

TEST_F(CommandsTest, only_fs_at_a_marking_node_of_a_major_ring_names_the_fault_port) {
  struct Case {
    uint32_t partner;
    uint32_t ring_role;
    uint32_t inter_node_role;
    bool named;
  };
  constexpr Case kCases[] = {
      {2, kMajorRing, 0, true},          {0, kMajorRing, 0, false}, {2, kOpenChannelRing, 0, false},
      {2, kMajorRing, kWatching, false}, {2, kMajorRing, 2, false}, {2, kSubRing, 0, false},
  };
  ring->local_priority = 13;
  for (const Case& c : kCases) {
    commanded(ring);
    ring->interconnect_ring_id = c.partner;
    ring->ring_role = c.ring_role;
    ring->inter_node_role = c.inter_node_role;
    EXPECT_EQ(erps_cmd_ms_pro(1, 1), kDone);
    EXPECT_EQ(ring->inter_fault_port, kUntouched);
    EXPECT_EQ(erps_cmd_fs_pro(1, 1), kDone);
    EXPECT_EQ(ring->inter_fault_port, c.named ? 1 : kUntouched)
        << "partner " << c.partner << ", ring role " << c.ring_role << ", interconnection role "
        << c.inter_node_role;
  }
}

TEST_F(CommandsTest, a_topology_change_sends_one_event_without_repetition) {
  erps_cmd_topo_change_pro(1);
  EXPECT_EQ(steps(), "Event,BPR > 1; Event,BPR > 2") << "BPR names the last forwarding port";
  EXPECT_EQ(ring->raps_timer.active, 0);
}

TEST_F(CommandsTest, a_topology_change_has_the_local_request_as_its_cause) {
  ring->local_priority = 5;
  erps_cmd_topo_change_pro(1);
  EXPECT_EQ(ring->tx_cause, 5U);
  EXPECT_EQ(ring->tx_request, 14);
}

TEST_F(CommandsTest, a_topology_change_of_an_unknown_ring_does_nothing) {
  erps_cmd_topo_change_pro(9);
  EXPECT_EQ(steps(), "");
}

TEST_F(CommandsTest, each_command_logs_its_name) {
  erps_cmd_fs_pro(9, 1);
  erps_cmd_ms_pro(9, 1);
  erps_cmd_clear_pro(9);
  erps_cmd_topo_change_pro(9);
  EXPECT_EQ(logged(7, "erps_cmd_fs_pro  !~\n"), 1);
  EXPECT_EQ(logged(7, "erps_cmd_ms_pro  !~\n"), 1);
  EXPECT_EQ(logged(7, "erps_cmd_clear_pro  !~\n"), 1);
  EXPECT_EQ(logged(7, "erps_cmd_topo_change_pro  !~\n"), 1);
}

}  // namespace
}  // namespace erps::test
