// The checker of relays knows which messages a node has to pass on.
#include "sim/checks/relay_checker.h"

#include <gtest/gtest.h>

#include "tests/ring/test_network.h"

namespace erps::sim {

namespace {

constexpr uint32_t kMajorRing = 1;
constexpr uint32_t kSubRing = 2;

// Node 3 of a ladder, which has the major ring alone: a message comes in through port 1.
class Relay : public testing::Test {
 protected:
  Relay() {
    ring.ring = kMajorRing;
    ring.node_role = 4;
    ring.enabled = true;
    for (uint32_t place = 0; place < 2; ++place) {
      ring.ports[place].port = place + 1;
      ring.ports[place].present = true;
      ring.ports[place].link_up = true;
      ring.ports[place].forwarding = true;
    }
    ring.local_node_id = {2, 0, 0, 0, 0, 4};
  }

  // Whether the checker misses the message, having seen it leave through this port.
  bool is_missed(uint32_t of_ring, uint32_t out_port = 0, uint32_t sub_code = 0) {
    RelayChecker checker(topology);
    Step step;
    step.node = 3;
    step.cause = Step::Cause::kFrame;
    step.port = 1;
    step.message = {of_ring << 16U | 0xB000U, 9};
    step.before = step.after = &ring;
    checker.on_record({0, 3, RecordKind::kEvent, 0, 2, 0});
    if (out_port != 0) {
      checker.on_record({0, 3, RecordKind::kFrameSent, out_port,
                         step.message.summary | sub_code << 8U, step.message.node});
    }
    checker.on_step(step);
    std::vector<Finding> findings;
    checker.collect(0, findings);
    return !findings.empty();
  }

  const Topology topology = make_ladder({});
  RingSnapshot ring;
};

}  // namespace

TEST_F(Relay, AMessageLeavesThroughTheOtherPort) {
  for (const uint32_t of_ring : {kMajorRing, kSubRing}) {
    EXPECT_TRUE(is_missed(of_ring));
    EXPECT_TRUE(is_missed(of_ring, 1)) << "sent back";
    EXPECT_FALSE(is_missed(of_ring, 2));
    EXPECT_FALSE(is_missed(of_ring, 2, 0xA)) << "marked on the way";
  }
  EXPECT_FALSE(is_missed(9)) << "a ring that nobody has";
}

TEST_F(Relay, BlockedAndFailedPortsHoldItUp) {
  for (const uint32_t of_ring : {kMajorRing, kSubRing}) {
    for (const size_t place : {0U, 1U}) {
      ring.ports[place].forwarding = false;
      EXPECT_FALSE(is_missed(of_ring));
      ring.ports[place].forwarding = true;
    }
    ring.ports[1].link_up = false;
    EXPECT_FALSE(is_missed(of_ring));
    ring.ports[1].link_up = true;
  }
}

TEST_F(Relay, AnOpenChannelPassesBlocksButNotTheGuard) {
  ring.ring_role = 1;
  ring.ports[0].forwarding = ring.ports[1].forwarding = false;
  EXPECT_TRUE(is_missed(kMajorRing));
  EXPECT_FALSE(is_missed(kSubRing));
  ring.guard_running = true;
  EXPECT_FALSE(is_missed(kMajorRing));
}

}  // namespace erps::sim
