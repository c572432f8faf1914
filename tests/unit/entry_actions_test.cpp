#include "erps/fsm/entry_actions.h"

#include <cstring>

#include "erps/timer/protocol_timers.h"
#include "tests/unit/entry_table.h"
#include "tests/unit/protocol_fixture.h"

namespace erps::test {
namespace {

class EntryActionsTest : public ProtocolTest {
 protected:
  static void set_remote(ERPSM_T* ring, const MacAddress& node_id) {
    memcpy(ring->remote_node_id, node_id.data(), kMacLength);
  }

  // Puts the ring into a condition. Its second port is the RPL port and a message is being
  // repeated.
  void apply(ERPSM_T* ring, const RingCondition& c) {
    ring->State = c.state;
    ring->state_entered = 0;
    ring->node_role = c.node_role;
    ring->ring_role = c.ring_role;
    ring->non_revertive = c.non_revertive;
    ring->request_port = c.request_port;
    ring->event_port = c.event_port;
    ring->flush_port = c.flush_port;
    ring->local_priority = c.local_priority;
    ring->holdoff_running = c.holdoff_running ? 1 : 0;
    set_remote(ring, c.remote_is_lower ? kLowerNode : kRemoteNode);
    set_port(port0(ring), static_cast<uint16_t>(c.links[0]), static_cast<uint16_t>(c.states[0]));
    set_port(port1(ring), static_cast<uint16_t>(c.links[1]), static_cast<uint16_t>(c.states[1]));
    erps_pkt_send_timer(&ring->raps_timer);
    platform.clear_journal();
  }

  EntryOutcome outcome_of(ERPSM_T* ring, const std::string& name) {
    enter(ring, name);
    return {steps(),
            ring->State,
            ring->state_entered == 1,
            ring->raps_timer.active == 1,
            ring->local_priority,
            ring->event_port,
            ring->flush_port};
  }

  ERPS_STATE_ENTRY_T* entry(ERPSM_T* ring, const std::string& name) {
    for (ERPS_STATE_ENTRY_T* candidate : state_entries(ring)) {
      if (candidate->name == name) {
        return candidate;
      }
    }
    return nullptr;
  }
};

class EveryEntryTest : public EntryActionsTest, public ::testing::WithParamInterface<EntryTable> {
 protected:
  // Every combination of links, port states and the ports that requests name, for one kind of
  // ring.
  void check_all_ports(ERPSM_T* ring, RingCondition c) {
    constexpr uint32_t kStates[] = {1, 4};
    constexpr int32_t kNamedPorts[][3] = {
        // request, event and flush port
        {1, -1, 2},
        {2, 1, 1},
        {1, 2, 1},
        {2, 2, 255},
    };
    const bool second_port = c.ring_role != kSubRing;
    for (uint32_t bits = 0; bits < (second_port ? 16 : 4); ++bits) {
      c.links[0] = bits & 1;
      c.states[0] = kStates[(bits >> 1) & 1];
      c.links[1] = second_port ? (bits >> 2) & 1 : 0;
      c.states[1] = second_port ? kStates[(bits >> 3) & 1] : 0;
      for (const auto& named : kNamedPorts) {
        c.request_port = static_cast<uint32_t>(named[0]);
        c.event_port = named[1];
        c.flush_port = named[2];
        apply(ring, c);
        ASSERT_EQ(outcome_of(ring, GetParam().name), expected_outcome(GetParam(), c, true))
            << describe(c);
      }
    }
  }
};

TEST_P(EveryEntryTest, does_what_its_table_says_in_every_state_role_and_mode) {
  ERPSM_T* ring = idle_ring();
  const bool compares_node_ids = GetParam().name == "RAPS_NR";
  const bool stops_holdoff = GetParam().name == "local_clear_SF";
  testing::internal::CaptureStderr();
  for (const int32_t state : {-1, 0, 1, 2, 3, 4, 5, 6}) {
    for (const uint32_t node_role : {0U, 1U, 2U, 3U, 4U, 5U, 6U}) {
      for (const uint8_t mode : {uint8_t{0}, uint8_t{1}, uint8_t{2}}) {
        for (const uint32_t ring_role : {kMajorRing, kOpenChannelRing, kSubRing}) {
          for (const bool flag : {false, true}) {
            if (flag && !compares_node_ids && !stops_holdoff) {
              continue;
            }
            RingCondition c{};
            c.state = state;
            c.node_role = node_role;
            c.non_revertive = mode;
            c.ring_role = ring_role;
            c.local_priority = node_role % 2 == 0 ? 3 : 5;  // a delay timer runs
            c.remote_is_lower = flag && compares_node_ids;
            c.holdoff_running = flag && stops_holdoff;
            check_all_ports(ring, c);
            if (HasFatalFailure()) {
              testing::internal::GetCapturedStderr();
              return;
            }
          }
        }
      }
    }
  }
  EXPECT_EQ(testing::internal::GetCapturedStderr().empty(), !stops_holdoff);
}

TEST_P(EveryEntryTest, logs_the_state_it_finds) {
  const std::string name = GetParam().name;
  const std::string function = "ERPS_" + name + "_enter_state";
  const std::string request_port = name == "FS" ? " request port = 2" : "";
  ERPSM_T* ring = idle_ring();
  for (const int32_t state : {0, 1, 5, 6}) {
    ring->State = state;
    ring->request_port = 2;
    platform.clear_journal();
    enter(ring, name);
    const std::string text = "erpsm->State = " + std::to_string(state) + request_port + "\n";
    EXPECT_EQ(logged_at(function, text), 1) << text;
    EXPECT_EQ(logged(7, text), 1) << text;
  }
}

INSTANTIATE_TEST_SUITE_P(All, EveryEntryTest, ::testing::ValuesIn(entry_tables()),
                         param_name<EntryTable>);

// --- Single rows, with the frames and calls spelled out.

TEST_F(EntryActionsTest, a_request_before_the_start_changes_nothing_not_even_the_flag) {
  ERPSM_T* ring = idle_ring({.node_role = kRplOwner});
  for (const EntryTable& table : entry_tables()) {
    for (const uint8_t flag : {uint8_t{0}, uint8_t{1}}) {
      ring->State = 0;
      ring->state_entered = flag;
      enter(ring, table.name);
      EXPECT_THAT(platform.calls(), ::testing::IsEmpty()) << table.name;
      EXPECT_EQ(ring->state_entered, flag) << table.name;
      EXPECT_EQ(ring->State, 0) << table.name;
    }
  }
}

TEST_F(EntryActionsTest, wtr_expiry_is_silent_in_idle_and_an_error_before_the_start) {
  ERPSM_T* ring = idle_ring({.node_role = kRplOwner});
  enter(ring, "WTR_expires");
  EXPECT_EQ(steps(), "");
  ring->State = 0;
  enter(ring, "WTR_expires");
  EXPECT_EQ(logged(3, "this->State != PENDING state = 0 No Action \n"), 1);
  ring->State = 6;
  enter(ring, "WTB_expires");
  EXPECT_EQ(logged(3, "this->State != PENDING \n"), 1);
}

TEST_F(EntryActionsTest, clear_in_forced_with_nothing_blocked_sends_nothing_and_starts_no_wtb) {
  ERPSM_T* ring = idle_ring({.node_role = kRplOwner});
  ring->State = 4;
  enter(ring, "clear");
  EXPECT_EQ(steps(), "-> pending");
  EXPECT_EQ(timer_count(), 0U);
}

TEST_F(EntryActionsTest, a_second_fs_in_forced_blocks_the_new_port_and_keeps_the_old_one_blocked) {
  ERPSM_T* ring = idle_ring({.ring_role = kOpenChannelRing});
  ring->State = 4;
  set_port(port0(ring), kLinkUp, kDiscarding);
  ring->request_port = 2;
  ring->flush_port = 2;
  platform.clear_journal();
  enter(ring, "FS");
  EXPECT_EQ(steps(), "block 2; FS > 1; FS > 2; repeat; flush 2; -> forced");
  EXPECT_EQ(port0(ring)->port_state, kDiscarding);
}

TEST_F(EntryActionsTest, local_sf_on_a_port_already_blocked_tells_others_not_to_flush) {
  ERPSM_T* ring = idle_ring();
  set_port(port1(ring), kLinkDown, kDiscarding);
  ring->event_port = 2;
  ring->flush_port = 2;
  platform.clear_journal();
  enter(ring, "local_SF");
  EXPECT_EQ(steps(), "SF,DNF,BPR > 1; repeat; -> protection");
}

TEST_F(EntryActionsTest, local_sf_opens_the_good_port_before_it_sends) {
  ERPSM_T* ring = idle_ring();
  set_port(port0(ring), kLinkUp, kDiscarding);
  set_port(port1(ring), kLinkDown, kForwarding);
  ring->event_port = 2;
  ring->flush_port = 2;
  platform.clear_journal();
  enter(ring, "local_SF");
  EXPECT_EQ(steps(), "block 2; unblock 1; SF,BPR > 1; repeat; flush 1; flush 2; -> protection");

  set_port(port0(ring), kLinkUp, kDiscarding);
  ring->event_port = 2;
  platform.clear_journal();
  enter(ring, "local_SF");
  EXPECT_EQ(steps(), "unblock 1; SF,DNF,BPR > 1; repeat; -> protection");
}

// A repetition that comes in between tells the others a state that holds no longer.
TEST_F(EntryActionsTest, a_node_falls_silent_before_or_after_it_opens_its_port_as_its_row_says) {
  struct Case {
    const char* name;
    int32_t state;
    uint32_t node_role;
    bool silent_first;
  };
  ERPSM_T* ring = idle_ring();
  bool touched = false;
  bool repeating = false;
  platform.on_call("adp_set_port_erps_state", [&] {
    repeating = touched ? repeating : ring->raps_timer.active == 1;
    touched = true;
  });
  for (const Case& c : {
           Case{"RAPS_SF", 1, kNoRplNode, true},
           Case{"RAPS_SF", 3, kNoRplNode, false},
           Case{"RAPS_SF", 5, kNoRplNode, false},
           Case{"RAPS_FS", 1, kNoRplNode, false},
           Case{"RAPS_FS", 2, kNoRplNode, false},
           Case{"RAPS_FS", 3, kNoRplNode, false},
           Case{"RAPS_FS", 5, kNoRplNode, false},
           Case{"RAPS_MS", 1, kNoRplNode, false},
           Case{"RAPS_MS", 5, kNoRplNode, false},
           Case{"RAPS_NR", 1, kNoRplNode, true},
           Case{"RAPS_NR", 5, kNoRplNode, true},
           Case{"RAPS_NR_RB", 1, kNoRplNode, false},
           Case{"RAPS_NR_RB", 5, kNoRplNode, false},
           Case{"RAPS_NR_RB", 5, kRplNeighbour, false},
       }) {
    RingCondition condition{};
    condition.state = c.state;
    condition.node_role = c.node_role;
    condition.links[0] = condition.links[1] = 1;
    condition.states[0] = 4;
    condition.states[1] = 1;
    condition.remote_is_lower = true;
    apply(ring, condition);
    touched = false;
    enter(ring, c.name);
    EXPECT_TRUE(touched) << c.name << " in " << c.state;
    EXPECT_EQ(repeating, !c.silent_first) << c.name << " in " << c.state;
    EXPECT_EQ(ring->raps_timer.active, 0) << c.name << " in " << c.state;
  }
}

TEST_F(EntryActionsTest, a_plain_node_hands_over_to_a_lower_node_id_only) {
  ERPSM_T* ring = idle_ring();
  set_port(port0(ring), kLinkUp, kDiscarding);
  erps_pkt_send_timer(&ring->raps_timer);
  for (const MacAddress& node_id : {kRemoteNode, kLocalNode}) {
    set_remote(ring, node_id);
    platform.clear_journal();
    enter(ring, "RAPS_NR");
    EXPECT_EQ(steps(), "-> idle");
    EXPECT_EQ(ring->raps_timer.active, 1) << "goes on sending";
  }
  set_remote(ring, kLowerNode);
  enter(ring, "RAPS_NR");
  EXPECT_EQ(steps(), "unblock 1; -> idle");
  EXPECT_EQ(ring->raps_timer.active, 0);
}

TEST_F(EntryActionsTest,
       nr_rb_in_pending_closes_the_rpl_at_the_neighbour_and_ends_waiting_at_the_owner) {
  ERPSM_T* ring = idle_ring({.node_role = kRplNeighbour});
  ring->State = 5;
  erps_pkt_send_timer(&ring->raps_timer);
  platform.clear_journal();
  enter(ring, "RAPS_NR_RB");
  EXPECT_EQ(steps(), "block 2; unblock 1; -> idle");
  EXPECT_EQ(ring->raps_timer.active, 0);

  ring->node_role = kRplOwner;
  ring->State = 5;
  enter(ring, "RAPS_NR_RB");
  EXPECT_EQ(steps(), "stop WTR; stop WTB; -> idle");
}

TEST_F(EntryActionsTest, wtb_expiry_with_the_rpl_blocked_tells_others_not_to_flush) {
  ERPSM_T* ring = idle_ring({.node_role = kRplOwner});
  ring->State = 5;
  set_port(port1(ring), kLinkUp, kDiscarding);
  platform.clear_journal();
  enter(ring, "WTB_expires");
  EXPECT_EQ(steps(), "stop WTR; NR,RB,DNF > 1; repeat; unblock 1; -> idle");
}

TEST_F(EntryActionsTest, wtr_expiry_flushes_the_ring_ports_and_wtb_expiry_the_first_port) {
  ERPSM_T* ring = idle_ring({.node_role = kRplOwner});
  ring->State = 5;
  ring->flush_port = 2;
  enter(ring, "WTR_expires");
  EXPECT_EQ(steps(), "stop WTB; block 2; NR,RB > 1; repeat; unblock 1; flush 1; flush 2; -> idle");
  ring->State = 5;
  set_port(port1(ring), kLinkUp, kForwarding);
  platform.clear_journal();
  enter(ring, "WTB_expires");
  EXPECT_EQ(steps(), "stop WTR; block 2; NR,RB > 1; repeat; unblock 1; flush 1; -> idle");
}

TEST_F(EntryActionsTest, a_non_revertive_node_stays_silent_when_its_failure_ends) {
  ERPSM_T* ring = idle_ring();
  ring->State = 2;
  ring->non_revertive = 1;
  enter(ring, "local_clear_SF");
  EXPECT_EQ(steps(), "start guard; -> pending");
  EXPECT_EQ(ring->guard_running, 1U);
}

TEST_F(EntryActionsTest,
       a_cleared_failure_in_idle_ends_the_hold_off_and_says_so_on_standard_error) {
  ERPSM_T* ring = idle_ring();
  erps_start_holdoff_timer(&ring->holdoff_timer);
  ASSERT_EQ(ring->holdoff_running, 1U);
  platform.clear_journal();
  testing::internal::CaptureStderr();
  enter(ring, "local_clear_SF");
  EXPECT_THAT(testing::internal::GetCapturedStderr(),
              ::testing::MatchesRegex(
                  "\\[ERPS_local_clear_SF_enter_state:[0-9]+\\] erps_stop_holdoff_timer\n"));
  EXPECT_EQ(steps(), "stop hold-off; -> idle");
  EXPECT_EQ(ring->holdoff_running, 0U);
  EXPECT_EQ(timer_count(), 0U);
}

TEST_F(EntryActionsTest, timers_run_or_rest_as_the_entries_leave_them) {
  ERPSM_T* ring = idle_ring({.node_role = kRplOwner});
  ring->State = 2;
  enter(ring, "RAPS_NR");
  EXPECT_EQ(ring->wtr_timer.active, 1);
  EXPECT_EQ(ring->local_priority, 5U);

  enter(ring, "RAPS_SF");
  EXPECT_EQ(ring->wtr_timer.active, 0);
  EXPECT_EQ(ring->local_priority, 0U);

  ring->State = 4;
  set_port(port0(ring), kLinkUp, kDiscarding);
  enter(ring, "clear");
  EXPECT_EQ(ring->wtb_timer.active, 1);
  EXPECT_EQ(ring->guard_timer.active, 1);
  EXPECT_EQ(ring->local_priority, 3U);
}

TEST_F(EntryActionsTest, the_table_of_functions_binds_each_name_to_its_action) {
  const std::pair<const char*, ERPS_ENTER_STATE_T> rows[] = {
      {"init", ERPS_init_enter_state},
      {"clear", ERPS_clear_enter_state},
      {"FS", ERPS_FS_enter_state},
      {"RAPS_FS", ERPS_RAPS_FS_enter_state},
      {"local_SF", ERPS_local_SF_enter_state},
      {"local_clear_SF", ERPS_local_clear_SF_enter_state},
      {"RAPS_SF", ERPS_RAPS_SF_enter_state},
      {"RAPS_MS", ERPS_RAPS_MS_enter_state},
      {"MS", ERPS_MS_enter_state},
      {"WTR_expires", ERPS_WTR_expires_enter_state},
      {"WTB_expires", ERPS_WTB_expires_enter_state},
      {"RAPS_NR_RB", ERPS_RAPS_NR_RB_enter_state},
      {"RAPS_NR", ERPS_RAPS_NR_enter_state},
  };
  ASSERT_EQ(erps_func_array.size(), std::size(rows));
  for (size_t i = 0; i < std::size(rows); ++i) {
    EXPECT_STREQ(erps_func_array.at(i).name, rows[i].first);
    EXPECT_EQ(erps_func_array.at(i).enter, rows[i].second) << rows[i].first;
  }
}

}  // namespace
}  // namespace erps::test
