#include "erps/fsm/dispatch.h"

#include <map>

#include "erps/fsm/priority.h"
#include "erps/ring/ring_start.h"
#include "tests/unit/protocol_fixture.h"

namespace erps::test {
namespace {

using ::testing::ElementsAre;

struct Row {
  uint32_t mach_enter;
  const char* name;
};
constexpr Row kRows[] = {
    {0, "init"},           {1, "clear"},       {2, "FS"},       {3, "RAPS_FS"}, {4, "local_SF"},
    {5, "local_clear_SF"}, {6, "RAPS_SF"},     {7, "RAPS_MS"},  {8, "MS"},      {9, "WTR_expires"},
    {11, "WTB_expires"},   {13, "RAPS_NR_RB"}, {14, "RAPS_NR"},
};

constexpr uint32_t kNumbersWithoutRow[] = {10, 12, 15, 16, 17, 1000, UINT32_MAX};

std::vector<std::string> entered;  // names of the entries that ran

uint32_t note_entry(ERPS_STATE_ENTRY_T* entry) {
  entered.emplace_back(entry->name);
  return 0;
}

class DispatchTest : public ProtocolTest {
 protected:
  // A ring whose entries only write down that they ran.
  ERPSM_T* noting_ring(const RingSpec& spec = {}) {
    entered.clear();
    ERPSM_T* ring = idle_ring(spec);
    for (ERPS_STATE_ENTRY_T* entry : state_entries(ring)) {
      entry->enter = note_entry;
    }
    return ring;
  }
};

TEST_F(DispatchTest, each_number_runs_the_row_of_its_name) {
  ERPSM_T* ring = noting_ring();
  for (const Row& row : kRows) {
    entered.clear();
    ring->mach_enter = row.mach_enter;
    EXPECT_EQ(ERPS_erpsm_update(ring), 0U);
    EXPECT_THAT(entered, ElementsAre(row.name)) << row.mach_enter;
  }
}

TEST_F(DispatchTest, a_number_without_a_row_runs_nothing) {
  ERPSM_T* ring = noting_ring();
  for (const uint32_t number : kNumbersWithoutRow) {
    ring->mach_enter = number;
    EXPECT_EQ(ERPS_erpsm_update(ring), 0U);
  }
  EXPECT_THAT(entered, ElementsAre());
}

TEST_F(DispatchTest, names_match_their_own_number_only_exactly_and_in_their_case) {
  for (const Row& row : kRows) {
    for (uint32_t number = 0; number < 20; ++number) {
      EXPECT_EQ(erpsm_state_mach_compare(row.name, number), number == row.mach_enter ? 1U : 0U)
          << row.name << " " << number;
    }
    const std::string name = row.name;
    for (const std::string& other : {name + " ", name.substr(1), "x" + name, std::string()}) {
      EXPECT_EQ(erpsm_state_mach_compare(other.c_str(), row.mach_enter), 0U) << other;
    }
  }
  EXPECT_EQ(erpsm_state_mach_compare("fs", 2), 0U);
  EXPECT_EQ(erpsm_state_mach_compare("LOCAL_SF", 4), 0U);
  EXPECT_EQ(erpsm_state_mach_compare("raps_nr", 14), 0U);
}

TEST_F(DispatchTest, the_nameless_entry_is_never_run) {
  ERPSM_T* ring = noting_ring();
  EXPECT_STREQ(ring->state_list->name, "");
  for (const uint32_t number : kNumbersWithoutRow) {
    EXPECT_EQ(erpsm_state_mach_compare("", number), 0U) << number;
  }
}

TEST_F(DispatchTest, an_entry_runs_with_itself_and_is_named_in_the_log) {
  ERPSM_T* ring = noting_ring();
  ERPS_STATE_ENTRY_T entry{nullptr, "FS", note_entry, ring};
  EXPECT_EQ(ERPS_change_condition(&entry), 0U);
  EXPECT_THAT(entered, ElementsAre("FS"));
  EXPECT_EQ(logged_at("ERPS_change_condition", "enter this->name = FS \n"), 1);
}

TEST_F(DispatchTest, entering_a_state_is_an_assignment_with_a_flag_and_a_line) {
  ERPSM_T* ring = idle_ring();
  const std::map<int32_t, std::string> names = {{0, "init"},    {1, "idle"},    {2, "protection"},
                                                {3, "manual"},  {4, "forced"},  {5, "pending"},
                                                {6, "notting"}, {-1, "notting"}};
  for (const auto& [state, name] : names) {
    ring->state_entered = 0;
    EXPECT_EQ(ERPS_hop_2_state(ring, state), 1U);
    EXPECT_EQ(ring->State, state);
    EXPECT_EQ(ring->state_entered, 1);
    EXPECT_EQ(logged_at("ERPS_hop_2_state", "enter new_state = " + name + "\n"), 1);
    EXPECT_EQ(steps(), "-> " + name) << "entering a state does nothing else";
  }
}

TEST_F(DispatchTest, a_request_before_the_start_touches_nothing_and_is_wiped_by_the_start) {
  ERPSM_T* ring = idle_ring();
  ring->State = 0;
  ASSERT_EQ(erps_priority_logic(ring, 13), 1U);
  ERPS_erpsm_update(ring);
  EXPECT_THAT(platform.calls(), ElementsAre());
  EXPECT_EQ(ring->State, 0);
  EXPECT_EQ(ring->mach_enter, 2U);
  EXPECT_EQ(ring->local_priority, 13U);

  erps_sm_reset(ring);
  EXPECT_EQ(ring->State, 0);
  EXPECT_EQ(ring->mach_enter, 0U);
  EXPECT_EQ(ring->local_priority, 0U);
  EXPECT_EQ(ring->current_priority, 0U);
}

TEST_F(DispatchTest, resetting_leads_to_the_init_row) {
  ERPSM_T* ring = noting_ring();
  ring->mach_enter = 4;
  erps_sm_reset(ring);
  ERPS_erpsm_update(ring);
  EXPECT_THAT(entered, ElementsAre("init"));
}

// --- The indication that waits for a sub-ring to be idle.

class WaitingIndicationTest : public DispatchTest {
 protected:
  ERPSM_T* waiting_sub_ring() {
    ERPSM_T* ring = idle_ring(kSubRingSpec);
    ring->notify_state = kMajorRingCut;
    return ring;
  }
};

TEST_F(WaitingIndicationTest, an_update_that_leaves_the_sub_ring_idle_replays_it) {
  ERPSM_T* ring = waiting_sub_ring();
  ring->mach_enter = 10;  // nothing to run
  EXPECT_EQ(ERPS_erpsm_update(ring), 0U);
  EXPECT_EQ(steps(), "block 3; MS > 3; MS > 3; MS > 3; repeat; flush 3; -> manual; unblock 3");
  EXPECT_EQ(ring->notify_state, 0);
  EXPECT_EQ(ring->request_port, 3U);
  EXPECT_EQ(ring->local_priority, 7U);
  EXPECT_EQ(ring->State, 3);
}

TEST_F(WaitingIndicationTest, it_waits_while_the_sub_ring_is_not_idle) {
  ERPSM_T* ring = waiting_sub_ring();
  ring->mach_enter = 10;
  for (const int32_t state : {0, 2, 3, 4, 5}) {
    ring->State = state;
    ERPS_erpsm_update(ring);
    EXPECT_EQ(steps(), "") << state;
    EXPECT_EQ(ring->notify_state, kMajorRingCut) << state;
  }
}

TEST_F(WaitingIndicationTest, only_the_indication_that_the_major_ring_is_cut_is_replayed) {
  ERPSM_T* ring = waiting_sub_ring();
  for (const uint8_t indication : {0, 2, 3}) {
    ring->notify_state = indication;
    erps_sub_ring_recover_proc(ring);
    EXPECT_EQ(steps(), "") << int{indication};
    EXPECT_EQ(ring->notify_state, indication);
  }
}

TEST_F(WaitingIndicationTest, a_refused_replay_is_used_up_and_moves_the_port_marks_only) {
  ERPSM_T* ring = waiting_sub_ring();
  ring->local_priority = 11;
  erps_sub_ring_recover_proc(ring);
  EXPECT_EQ(steps(), "");
  EXPECT_EQ(ring->notify_state, 0);
  EXPECT_EQ(ring->flush_port, 3);
  EXPECT_EQ(ring->request_port, 3U);
  EXPECT_EQ(ring->event_port, kNoPort);
}

TEST_F(WaitingIndicationTest, a_major_ring_has_none) {
  ERPSM_T* ring = idle_ring();
  ring->notify_state = kMajorRingCut;
  ring->mach_enter = 10;
  ERPS_erpsm_update(ring);
  EXPECT_EQ(steps(), "");
  EXPECT_EQ(ring->notify_state, kMajorRingCut);
}

TEST_F(WaitingIndicationTest, it_follows_the_row_that_made_the_sub_ring_idle) {
  ERPSM_T* ring = waiting_sub_ring();
  ring->State = 5;
  ring->mach_enter = 13;  // R-APS(NR,RB) in pending at a plain node: open the port, be idle
  ERPS_erpsm_update(ring);
  EXPECT_EQ(steps(),
            "unblock 3; -> idle; block 3; MS > 3; MS > 3; MS > 3; repeat; flush 3; -> manual; "
            "unblock 3");
}

}  // namespace
}  // namespace erps::test
