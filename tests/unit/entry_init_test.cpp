// The entry action that starts a ring.
#include <gtest/gtest.h>

#include "tests/unit/protocol_fixture.h"

namespace erps::test {
namespace {

const std::string kStops = "stop guard; stop WTR; stop WTB; ";

class InitEntryTest : public ProtocolTest {
 protected:
  // Starts a ring whose ports have these links and the states that go with them.
  std::string init(ERPSM_T* ring, uint16_t link0 = kLinkUp, uint16_t link1 = kLinkUp) {
    set_link(port0(ring), link0);
    if (!erps_is_sub_ring(ring)) {
      set_link(port1(ring), link1);
    }
    platform.clear_journal();
    enter(ring, "init");
    return steps();
  }

  void set_link(ERPS_PORT_T* port, uint16_t link) {
    set_port(port, link, link == kLinkUp ? kForwarding : kDiscarding);
  }
};

TEST_F(InitEntryTest, the_owner_blocks_the_rpl_and_waits_to_restore) {
  EXPECT_EQ(init(idle_ring({.node_role = kRplOwner})),
            kStops + "block 2; unblock 1; NR > 1; repeat; start WTR; -> pending");
}

TEST_F(InitEntryTest, only_a_revertive_owner_waits_to_restore) {
  for (const uint8_t mode : {uint8_t{1}, uint8_t{2}}) {
    ERPSM_T* ring = idle_ring({.id = 10U + mode, .node_role = kRplOwner});
    ring->non_revertive = mode;
    EXPECT_EQ(init(ring), kStops + "block 2; unblock 1; NR > 1; repeat; -> pending");
  }
}

TEST_F(InitEntryTest, the_neighbour_blocks_the_rpl) {
  EXPECT_EQ(init(idle_ring({.node_role = kRplNeighbour})),
            kStops + "block 2; unblock 1; NR > 1; repeat; -> pending");
}

TEST_F(InitEntryTest, any_other_role_opens_the_first_port_and_closes_the_second) {
  for (const uint32_t node_role : {0U, 3U, 4U, 5U, 6U, 7U}) {
    EXPECT_EQ(init(idle_ring({.id = 10 + node_role, .node_role = node_role})),
              kStops + "unblock 1; block 2; NR > 1; repeat; -> pending")
        << "node role " << node_role;
  }
}

TEST_F(InitEntryTest, the_rpl_may_be_the_first_port) {
  for (const uint32_t node_role : {kRplOwner, kRplNeighbour}) {
    ERPSM_T* ring = idle_ring({.id = 10 + node_role, .node_role = node_role});
    ring->non_revertive = 1;
    port0(ring)->port_role = 1;
    port1(ring)->port_role = 0;
    EXPECT_EQ(init(ring), kStops + "block 1; unblock 2; NR,BPR > 2; repeat; -> pending");
  }
}

TEST_F(InitEntryTest, an_open_channel_ring_sends_through_its_blocked_port_too) {
  EXPECT_EQ(init(idle_ring({.ring_role = kOpenChannelRing})),
            kStops + "unblock 1; block 2; NR > 1; NR > 2; repeat; -> pending");
}

TEST_F(InitEntryTest, runs_whatever_the_state_is_and_ends_in_pending) {
  for (const int32_t state : {-1, 0, 1, 2, 3, 4, 5, 6}) {
    ERPSM_T* ring = idle_ring({.id = static_cast<uint32_t>(10 + state)});
    ring->State = state;
    ring->state_entered = 0;
    EXPECT_EQ(init(ring), kStops + "unblock 1; block 2; NR > 1; repeat; -> pending");
    EXPECT_EQ(ring->State, 5);
    EXPECT_EQ(ring->state_entered, 1);
  }
}

TEST_F(InitEntryTest, a_link_that_is_down_takes_the_ring_on_to_protection_before_it_returns) {
  ERPSM_T* ring = idle_ring();
  EXPECT_EQ(init(ring, kLinkUp, kLinkDown), kStops +
                                                "unblock 1; block 2; NR > 1; repeat; -> pending; "
                                                "SF > 1; repeat; -> protection");
  EXPECT_EQ(ring->local_priority, 11U);
}

TEST_F(InitEntryTest, a_good_second_link_enters_local_sf_again_while_the_first_is_down) {
  EXPECT_EQ(init(idle_ring(), kLinkDown, kLinkUp),
            kStops +
                "unblock 1; block 2; repeat; -> pending; "
                "block 1; unblock 2; SF > 2; repeat; -> protection; "
                "SF > 2; repeat; -> protection");
}

TEST_F(InitEntryTest, with_both_links_down_local_sf_is_entered_once) {
  EXPECT_EQ(init(idle_ring(), kLinkDown, kLinkDown),
            kStops + "unblock 1; block 2; repeat; -> pending; block 1; repeat; -> protection");
}

TEST_F(InitEntryTest, the_owner_does_not_wait_to_restore_with_a_link_down) {
  ERPSM_T* ring = idle_ring({.node_role = kRplOwner});
  EXPECT_EQ(init(ring, kLinkUp, kLinkDown),
            kStops +
                "block 2; unblock 1; NR > 1; repeat; start WTR; -> pending; "
                "SF > 1; repeat; stop WTR; stop WTB; -> protection");
  EXPECT_EQ(ring->wtr_timer.active, 0);
}

TEST_F(InitEntryTest, a_link_lost_since_the_start_is_recorded_and_names_its_port) {
  ERPSM_T* ring = idle_ring();
  platform.set_link(2, 0);
  enter(ring, "init");
  EXPECT_EQ(steps(), kStops +
                         "unblock 1; block 2; NR > 1; repeat; -> pending; "
                         "SF,DNF,BPR > 1; repeat; -> protection");
  EXPECT_EQ(port1(ring)->link_status, 0);
}

TEST_F(InitEntryTest, a_sub_ring_looks_at_its_own_port_only) {
  EXPECT_EQ(init(idle_ring(kSubRingSpec)),
            kStops + "unblock 3; NR > 3; NR > 3; NR > 3; repeat; -> pending; post 7");
}

TEST_F(InitEntryTest, a_sub_ring_at_the_owner_blocks_its_own_port) {
  RingSpec spec = kSubRingSpec;
  spec.node_role = kRplOwner;
  EXPECT_EQ(init(idle_ring(spec)),
            kStops + "block 3; NR > 3; NR > 3; NR > 3; repeat; start WTR; -> pending; post 7");
}

TEST_F(InitEntryTest, the_ports_are_asked_for_their_links_in_order) {
  ERPSM_T* ring = idle_ring();
  ERPSM_T* sub = idle_ring(kSubRingSpec);
  enter(ring, "init");
  enter(sub, "init");
  EXPECT_THAT(platform.calls({"adp_get_phy_port_attr"}),
              ::testing::ElementsAre("adp_get_phy_port_attr(1, 11)", "adp_get_phy_port_attr(2, 11)",
                                     "adp_get_phy_port_attr(3, 11)"));
}

TEST_F(InitEntryTest, running_delay_timers_are_withdrawn) {
  ERPSM_T* ring = idle_ring({.node_role = kRplNeighbour});
  ring->local_priority = 5;
  init(ring);
  EXPECT_EQ(ring->local_priority, 0U);
}

}  // namespace
}  // namespace erps::test
