#include "erps/fsm/fdb_flush.h"

#include <optional>

#include "tests/unit/protocol_fixture.h"

namespace erps::test {
namespace {

constexpr MacAddress kNodeA = {0, 0, 0, 0, 0, 0xA};
constexpr MacAddress kNodeB = {0, 0, 0, 0, 0, 0xB};
constexpr uint32_t kOwnPort = kFlushOwnPortOnly;

class FdbFlushTest : public ProtocolTest {
 protected:
  FdbFlushTest() : ring(idle_ring()) {}

  // A message arrives on port 1.
  uint32_t receive(const FrameSpec& message, uint32_t mode = kFlushCompareOtherPort) {
    return receive_on(port0(ring), message, mode);
  }
  uint32_t receive_on(ERPS_PORT_T* port, const FrameSpec& message,
                      uint32_t mode = kFlushCompareOtherPort) {
    const std::vector<uint8_t> pdu = message.pdu();
    const ERPS_PORT_T* other = port == port0(ring) ? port1(ring) : port0(ring);
    return ERPS_flush_logic(port, mode == kOwnPort ? nullptr : other, pdu.data(), mode);
  }

  uint32_t pending_flush(const FrameSpec& message, uint32_t suppress = 0) {
    const std::vector<uint8_t> pdu = message.pdu();
    return ERPS_flush_logic_ex(ring, port0(ring), 0, pdu.data(), suppress);
  }

  ERPSM_T* const ring;
};

// --- When a received (node ID, BPR) pair calls for a flush.

TEST_F(FdbFlushTest, the_same_pair_twice_flushes_once) {
  store_pair(port1(ring), kNodeB, 1);
  EXPECT_EQ(receive({.request = kSf, .node_id = kNodeA}), 1U);
  EXPECT_EQ(receive({.request = kSf, .node_id = kNodeA}), 0U);
  EXPECT_EQ(receive({.request = kFs, .node_id = kNodeA}), 0U) << "only the pair counts";
  EXPECT_EQ(receive({.request = kSf, .bpr = true, .node_id = kNodeA}), 1U) << "another BPR";
  EXPECT_EQ(receive({.request = kSf, .bpr = true, .node_id = kNodeB}), 1U) << "another node";
}

TEST_F(FdbFlushTest, an_nr_without_rb_clears_the_pair_so_the_next_sf_flushes_again) {
  store_pair(port1(ring), kNodeB, 1);
  EXPECT_EQ(receive({.request = kSf, .bpr = true, .node_id = kNodeA}), 1U);
  EXPECT_EQ(receive({.request = kNr, .bpr = true, .node_id = kNodeB}), 0U);
  EXPECT_EQ(stored_node_id(port0(ring)), MacAddress{});
  EXPECT_EQ(port0(ring)->rx_bpr, 0);
  EXPECT_EQ(receive({.request = kSf, .bpr = true, .node_id = kNodeA}), 1U);
}

TEST_F(FdbFlushTest, two_cleared_pairs_are_equal_and_the_next_sf_does_not_flush) {
  receive_on(port0(ring), {.request = kNr});
  receive_on(port1(ring), {.request = kNr});
  EXPECT_EQ(receive({.request = kSf, .node_id = kNodeA}), 0U);
  EXPECT_EQ(stored_node_id(port0(ring)), kNodeA);
}

TEST_F(FdbFlushTest, do_not_flush_stores_the_pair_without_a_flush) {
  for (const uint32_t mode : {kFlushCompareOtherPort, kOwnPort}) {
    store_pair(port0(ring), {}, 0);
    store_pair(port1(ring), kNodeB, 1);
    EXPECT_EQ(receive({.request = kSf, .dnf = true, .bpr = true, .node_id = kNodeA}, mode), 0U);
    EXPECT_EQ(stored_node_id(port0(ring)), kNodeA);
    EXPECT_EQ(port0(ring)->rx_bpr, 1);
    EXPECT_EQ(receive({.request = kSf, .bpr = true, .node_id = kNodeA}, mode), 0U)
        << "known by now";
  }
}

TEST_F(FdbFlushTest, a_new_pair_whose_old_one_equals_the_other_ports_does_not_flush) {
  store_pair(port0(ring), kNodeA, 1);
  store_pair(port1(ring), kNodeA, 1);
  EXPECT_EQ(receive({.request = kSf, .node_id = kNodeB}), 0U);
  EXPECT_EQ(stored_node_id(port0(ring)), kNodeB);
}

TEST_F(FdbFlushTest, the_old_pair_is_compared_with_the_other_port_not_the_new_one) {
  struct Case {
    MacAddress old_node;
    uint8_t old_bpr;
    MacAddress other_node;
    uint8_t other_bpr;
    uint32_t flush;
  };
  const Case cases[] = {
      {kNodeB, 0, kNodeB, 0, 0},        // the same pair on both ports
      {kNodeB, 1, kNodeB, 1, 0},        //
      {kNodeB, 0, kNodeA, 0, 1},        // the same BPR from another node, although the new
      {kNodeB, 1, kNodeA, 1, 1},        // message comes from the other port's node
      {kNodeB, 0, kNodeB, 1, 1},        // another BPR
      {kNodeB, 1, kNodeB, 0, 1},        //
      {MacAddress{}, 0, kNodeA, 0, 1},  // nothing stored yet
      {MacAddress{}, 0, kNodeA, 1, 1},  //
      {MacAddress{}, 0, MacAddress{}, 0, 0},
  };
  constexpr MacAddress kNew = {9, 9, 9, 9, 9, 9};
  for (const MacAddress& new_node : {kNodeA, kNew}) {
    for (const Case& c : cases) {
      for (const bool new_bpr : {false, true}) {
        store_pair(port0(ring), c.old_node, c.old_bpr);
        store_pair(port1(ring), c.other_node, c.other_bpr);
        EXPECT_EQ(receive({.request = kSf, .bpr = new_bpr, .node_id = new_node}), c.flush);
        EXPECT_EQ(stored_node_id(port0(ring)), new_node);
        EXPECT_EQ(port0(ring)->rx_bpr, new_bpr ? 1 : 0);
        EXPECT_EQ(stored_node_id(port1(ring)), c.other_node);
      }
    }
  }
}

TEST_F(FdbFlushTest, with_the_own_port_only_every_new_pair_flushes) {
  EXPECT_EQ(receive({.request = kSf, .node_id = kNodeA}, kOwnPort), 1U);
  EXPECT_EQ(receive({.request = kSf, .node_id = kNodeA}, kOwnPort), 0U);
  EXPECT_EQ(receive({.request = kSf, .bpr = true, .node_id = kNodeA}, kOwnPort), 1U);
  EXPECT_EQ(receive({.request = kNr, .node_id = kNodeA}, kOwnPort), 0U);
  EXPECT_EQ(stored_node_id(port0(ring)), MacAddress{});
}

TEST_F(FdbFlushTest, every_request_but_nr_without_rb_counts) {
  for (uint8_t request = 0; request < 16; ++request) {
    for (const bool rb : {false, true}) {
      store_pair(port0(ring), {}, 0);
      store_pair(port1(ring), kNodeB, 0);
      const bool clears = request == kNr && !rb;
      EXPECT_EQ(receive({.request = request, .rb = rb, .node_id = kNodeA}), clears ? 0U : 1U)
          << int{request};
      EXPECT_EQ(stored_node_id(port0(ring)), clears ? MacAddress{} : kNodeA) << int{request};
    }
  }
}

TEST_F(FdbFlushTest, a_mark_does_not_change_what_a_message_is) {
  store_pair(port0(ring), kNodeA, 1);
  EXPECT_EQ(receive({.request = kNr, .sub_code = 0xA, .node_id = kNodeB}), 0U);
  EXPECT_EQ(stored_node_id(port0(ring)), MacAddress{}) << "a marked NR still clears";
}

TEST_F(FdbFlushTest, any_byte_of_the_node_id_makes_a_pair_new) {
  for (size_t byte = 0; byte < kMacLength; ++byte) {
    MacAddress node = kNodeA;
    store_pair(port0(ring), node, 0);
    store_pair(port1(ring), kNodeB, 1);
    node.at(byte) ^= 0x80;
    EXPECT_EQ(receive({.request = kSf, .node_id = node}), 1U) << byte;
  }
}

TEST_F(FdbFlushTest, both_decisions_log_their_name) {
  receive({.request = kSf});
  pending_flush({.request = kSf});
  EXPECT_EQ(logged(7, "ERPS_flush_logic ~!\n"), 1);
  EXPECT_EQ(logged(7, "ERPS_flush_logic_ex ~!\n"), 1);
}

// --- NR,RB in pending.

TEST_F(FdbFlushTest, in_pending_only_an_nr_rb_that_allows_it_flushes_all_ring_ports) {
  ring->State = 5;
  ring->node_role = kRplNeighbour;
  for (uint8_t request = 0; request < 16; ++request) {
    for (const bool rb : {false, true}) {
      for (const bool dnf : {false, true}) {
        for (const uint32_t suppress : {0U, 1U}) {
          const bool flush = request == kNr && rb && !dnf && suppress == 0;
          EXPECT_EQ(pending_flush({.request = request, .rb = rb, .dnf = dnf}, suppress),
                    flush ? 1U : 0U)
              << int{request} << rb << dnf << suppress;
        }
      }
    }
  }
}

TEST_F(FdbFlushTest, nr_rb_flushes_in_pending_at_neighbour_and_plain_nodes_not_at_the_owner) {
  for (const int32_t state : {0, 1, 2, 3, 4, 5, 6, -1}) {
    for (uint32_t node_role = 0; node_role < 16; ++node_role) {
      ring->State = state;
      ring->node_role = node_role;
      const bool flush = state == 5 && (node_role & 6) != 0;
      EXPECT_EQ(pending_flush({.request = kNr, .rb = true}), flush ? 1U : 0U)
          << "state " << state << ", node role " << node_role;
    }
  }
  EXPECT_EQ(steps(), "") << "a decision, no action";
}

// --- Forgetting.

TEST_F(FdbFlushTest, the_named_port_is_flushed_and_named_no_more) {
  ring->flush_port = 2;
  EXPECT_EQ(ERPS_flush_FDB(ring), 0U);
  EXPECT_EQ(steps(), "flush 2");
  EXPECT_EQ(ring->flush_port, 255);
  ERPS_flush_FDB(ring);
  EXPECT_EQ(steps(), "") << "255 names no ring port";
}

TEST_F(FdbFlushTest, a_name_of_no_ring_port_flushes_nothing_and_stays) {
  for (const int32_t port : {0, 3, -1}) {
    ring->flush_port = port;
    EXPECT_EQ(ERPS_flush_FDB(ring), 0U);
    EXPECT_EQ(steps(), "");
    EXPECT_EQ(ring->flush_port, port);
  }
}

TEST_F(FdbFlushTest, a_ring_port_flush_takes_both_ports_in_order) {
  ring->flush_port = 1;
  EXPECT_EQ(ERPS_flush_FDB_ring_port(ring), 0U);
  EXPECT_EQ(steps(), "flush 1; flush 2");
  EXPECT_EQ(ring->flush_port, 1);
}

TEST_F(FdbFlushTest, a_sub_ring_flushes_its_own_port_only_whatever_is_named) {
  ERPSM_T* sub = idle_ring(kSubRingSpec);
  for (const int32_t named : {3, 255, 1, -1}) {
    sub->flush_port = named;
    EXPECT_EQ(ERPS_flush_FDB(sub), 0U);
    EXPECT_EQ(steps(), "flush 3");
    EXPECT_EQ(sub->flush_port, named);
    EXPECT_EQ(ERPS_flush_FDB_ring_port(sub), 0U);
    EXPECT_EQ(steps(), "flush 3");
  }
}

TEST_F(FdbFlushTest, a_failed_flush_does_not_keep_the_next_port_from_its_own) {
  platform.set_flush_result(-1);
  EXPECT_EQ(ERPS_flush_FDB_ring_port(ring), 0U);
  EXPECT_EQ(steps(), "flush 1; flush 2");
  ring->flush_port = 2;
  EXPECT_EQ(ERPS_flush_FDB(ring), 0U);
  EXPECT_EQ(steps(), "flush 2");
  EXPECT_EQ(ring->flush_port, 255);
}

TEST_F(FdbFlushTest, each_flush_logs_its_ports_and_its_failures) {
  platform.set_flush_result(5);
  ring->flush_port = 2;
  ERPS_flush_FDB(ring);
  EXPECT_EQ(logged(7, "ERPS_flush_FDB ~!\n"), 1);
  EXPECT_EQ(logged_at("ERPS_flush_FDB", "port_index = 2 \n"), 1);
  EXPECT_EQ(logged_at("ERPS_flush_FDB", "MAC FLASH ERROR port : 2\n"), 1);

  ERPS_flush_FDB_ring_port(ring);
  for (const std::string port : {"1", "2"}) {
    EXPECT_EQ(logged_at("ERPS_flush_FDB_ring_port", "port_index = " + port + " \n"), 1);
    EXPECT_EQ(logged_at("ERPS_flush_FDB_ring_port", "MAC FLASH ERROR port : " + port + "\n"), 1);
  }

  ERPSM_T* sub = idle_ring(kSubRingSpec);
  ERPS_flush_FDB(sub);
  EXPECT_EQ(logged_at("ERPS_flush_FDB", "SUB RING MAC FLASH ERROR port : 3\n"), 1);
  ERPS_flush_FDB_ring_port(sub);
  EXPECT_EQ(logged_at("ERPS_flush_FDB_ring_port", "SUB RING MAC FLASH ERROR port : 3\n"), 1);
}

TEST_F(FdbFlushTest, a_flush_that_works_logs_no_failure) {
  ERPS_flush_FDB_ring_port(ring);
  ERPS_flush_FDB(idle_ring(kSubRingSpec));
  EXPECT_EQ(logged_part("FLASH ERROR"), 0);
}

}  // namespace
}  // namespace erps::test
