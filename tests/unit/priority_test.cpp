#include "erps/fsm/priority.h"

#include <optional>

#include "erps/timer/protocol_timers.h"
#include "tests/unit/protocol_fixture.h"

namespace erps::test {
namespace {

using PriorityTest = ProtocolTest;

constexpr uint32_t kUntouched = 77;  // a value that nothing writes by itself

// What each accepted request leaves behind; nothing where the field keeps its value.
struct Written {
  uint32_t request;
  std::optional<uint32_t> mach_enter;
  std::optional<uint32_t> local_priority;
};
const Written kWritten[] = {
    {0, std::nullopt, 0},   // no local request
    {1, 14, std::nullopt},  // R-APS(NR)
    {2, 13, std::nullopt},  // R-APS(NR,RB)
    {3, std::nullopt, 3},   // WTB running
    {4, 11, 0},             // WTB expires
    {5, std::nullopt, 5},   // WTR running
    {6, 9, 0},              // WTR expires
    {7, 8, 7},              // MS
    {8, 7, std::nullopt},   // R-APS(MS)
    {9, 6, std::nullopt},   // R-APS(SF)
    {10, 5, 0},             // local clear SF
    {11, 4, 11},            // local SF
    {12, 3, std::nullopt},  // R-APS(FS)
    {13, 2, 13},            // FS
    {14, 1, 0},             // Clear
    {15, std::nullopt, std::nullopt},
    {16, std::nullopt, std::nullopt},
    {UINT32_MAX, std::nullopt, std::nullopt},
};

// Which requests (in the order of kWritten) each local request in force lets pass: x accepted.
// Local clear SF (10) stands for a ring whose links are all up.
struct Accepted {
  uint32_t local_priority;
  const char* requests;
};
constexpr Accepted kAccepted[] = {
    //    0         1
    //    0123456789012345 16 2^32-1
    {0, ".xxxxxxxxx.xxx.xxx"},   // none
    {3, "....xxxxxx.xxx.xxx"},   // WTB running
    {5, "......xxxx.xxx.xxx"},   // WTR running
    {7, "........xx.xxxxxxx"},   // MS
    {11, "..........x.xx.xxx"},  // local SF
    {13, "..............xxxx"},  // FS
};

struct Decision {
  uint32_t result;
  uint32_t mach_enter;
  uint32_t local_priority;
  uint32_t current_priority;

  bool operator==(const Decision&) const = default;
};

void PrintTo(const Decision& decision, std::ostream* out) {
  *out << "result " << decision.result << ", mach_enter " << decision.mach_enter
       << ", local_priority " << decision.local_priority << ", current_priority "
       << decision.current_priority;
}

Decision decide(ERPSM_T* ring, uint32_t local_priority, uint32_t request) {
  ring->mach_enter = kUntouched;
  ring->current_priority = kUntouched;
  ring->local_priority = local_priority;
  const uint32_t result = erps_priority_logic(ring, request);
  return {result, ring->mach_enter, ring->local_priority, ring->current_priority};
}

const Written& written_by(uint32_t request) {
  for (const Written& row : kWritten) {
    if (row.request == request) {
      return row;
    }
  }
  throw std::out_of_range("no such request");
}

Decision refused(uint32_t local_priority) {
  return {0, kUntouched, local_priority, kUntouched};
}

// `current_priority` is the request offered even when another one is entered in its place.
Decision accepted(uint32_t local_priority, uint32_t request, uint32_t entered) {
  const Written& row = written_by(entered);
  return {1, row.mach_enter.value_or(kUntouched), row.local_priority.value_or(local_priority),
          request};
}

Decision accepted(uint32_t local_priority, uint32_t request) {
  return accepted(local_priority, request, request);
}

TEST_F(PriorityTest, every_request_against_every_local_request_and_all_link_states) {
  for (const uint32_t ring_role : {kMajorRing, kOpenChannelRing, kSubRing}) {
    ERPSM_T* ring = idle_ring({.id = 10 + ring_role, .ring_role = ring_role});
    for (const uint16_t link0 : {kLinkDown, kLinkUp, uint16_t{2}}) {
      for (const uint16_t link1 : {kLinkDown, kLinkUp, uint16_t{2}}) {
        port0(ring)->link_status = link0;
        port1(ring)->link_status = link1;
        const bool a_link_is_down = link0 == kLinkDown || link1 == kLinkDown;
        for (const auto& [local_priority, row] : kAccepted) {
          for (size_t i = 0; i < std::size(kWritten); ++i) {
            const uint32_t request = kWritten[i].request;
            Decision expected =
                row[i] == 'x' ? accepted(local_priority, request) : refused(local_priority);
            if (request == 10) {
              expected.current_priority = 10;
              if (expected.result == 1 && a_link_is_down && ring_role != kSubRing) {
                expected = accepted(local_priority, request, 11);
              }
            }
            EXPECT_EQ(decide(ring, local_priority, request), expected)
                << "request " << request << ", local request " << local_priority << ", ring role "
                << ring_role << ", links " << link0 << link1;
          }
        }
      }
    }
  }
}

TEST_F(PriorityTest, a_code_writes_its_row_and_nothing_else) {
  ERPSM_T* ring = idle_ring();
  for (const Written& row : kWritten) {
    ring->mach_enter = kUntouched;
    ring->local_priority = kUntouched;
    ring->current_priority = kUntouched;
    msg_2_machine(ring, row.request);
    EXPECT_EQ(ring->mach_enter, row.mach_enter.value_or(kUntouched)) << row.request;
    EXPECT_EQ(ring->local_priority, row.local_priority.value_or(kUntouched)) << row.request;
    EXPECT_EQ(ring->current_priority, kUntouched) << row.request;
  }
}

TEST_F(PriorityTest, clear_without_fs_or_ms_is_refused_and_leaves_current_priority) {
  ERPSM_T* ring = idle_ring();
  for (const uint32_t local_priority : {0U, 3U, 5U, 11U}) {
    EXPECT_EQ(decide(ring, local_priority, 14), refused(local_priority));
  }
}

TEST_F(PriorityTest, link_up_without_a_local_sf_is_refused_but_becomes_the_current_priority) {
  ERPSM_T* ring = idle_ring();
  EXPECT_EQ(decide(ring, 0, 10), (Decision{0, kUntouched, 0, 10}));
  EXPECT_EQ(decide(ring, 13, 10), (Decision{0, kUntouched, 13, 10}));
}

TEST_F(PriorityTest, link_up_while_the_other_port_is_down_enters_local_sf_again) {
  ERPSM_T* ring = idle_ring();
  port1(ring)->link_status = kLinkDown;
  EXPECT_EQ(decide(ring, 11, 10), (Decision{1, 4, 11, 10}));
}

TEST_F(PriorityTest, a_sub_ring_clears_sf_without_a_look_at_its_ports) {
  ERPSM_T* ring = idle_ring(kSubRingSpec);
  port0(ring)->link_status = kLinkDown;
  EXPECT_EQ(decide(ring, 11, 10), (Decision{1, 5, 0, 10}));
}

TEST_F(PriorityTest, fs_against_fs_and_ms) {
  ERPSM_T* ring = idle_ring();
  EXPECT_EQ(decide(ring, 13, 13), refused(13)) << "FS while FS is in force";
  EXPECT_EQ(decide(ring, 7, 13), accepted(7, 13)) << "FS while MS is in force";
  EXPECT_EQ(decide(ring, 13, 7), refused(13)) << "MS while FS is in force";
}

TEST_F(PriorityTest, remote_sf_is_refused_and_remote_fs_accepted_while_a_local_sf_is_in_force) {
  ERPSM_T* ring = idle_ring();
  EXPECT_EQ(decide(ring, 11, 9), refused(11));
  EXPECT_EQ(decide(ring, 11, 12), accepted(11, 12));
}

TEST_F(PriorityTest, wtr_expiry_while_wtr_runs_is_accepted_and_ends_the_local_request) {
  ERPSM_T* ring = idle_ring();
  EXPECT_EQ(decide(ring, 5, 6), (Decision{1, 9, 0, 6}));
  EXPECT_EQ(decide(ring, 5, 4), refused(5)) << "WTB expiry while WTR runs";
}

TEST_F(PriorityTest, starting_wtb_while_wtr_runs_leaves_wtr_running_in_force) {
  ERPSM_T* ring = idle_ring();
  ring->local_priority = 5;
  erps_start_WTB_timer(&ring->wtb_timer);
  EXPECT_EQ(ring->local_priority, 5U);
}

TEST_F(PriorityTest, received_no_request_is_accepted_again_and_again) {
  ERPSM_T* ring = idle_ring();
  for (int i = 0; i < 3; ++i) {
    EXPECT_EQ(erps_priority_logic(ring, 1), 1U);
    EXPECT_EQ(ring->local_priority, 0U);
  }
}

TEST_F(PriorityTest, says_what_it_weighs_and_what_it_enters) {
  ERPSM_T* ring = idle_ring();
  ring->mach_enter = 2;
  ring->current_priority = 77;
  ring->local_priority = 5;
  erps_priority_logic(ring, 13);
  EXPECT_EQ(logged_at("erps_priority_logic",
                      "enter msg = 13 this->current_priority = 77  this->local_priority = 5 \n"),
            1);
  EXPECT_EQ(logged_at("msg_2_machine", " enter this->mach_enter = 2\n"), 1);
}

}  // namespace
}  // namespace erps::test
