// Reading a ring's configuration and state: 96 bytes, every word in its place.
#include <cstring>

#include "erps/ring/ring_config.h"
#include "erps/ring/ring_start.h"
#include "erps/timer/protocol_timers.h"
#include "tests/unit/fixture.h"

namespace erps::test {
namespace {

constexpr uint8_t kUntouched = 0xEE;

class RingConfigReadingTest : public ModuleTest {
 protected:
  RingConfigReadingTest() { reply.fill(kUntouched); }

  uint32_t word(size_t index) const {
    return static_cast<uint32_t>(reply[index * 4] << 24 | reply[index * 4 + 1] << 16 |
                                 reply[index * 4 + 2] << 8 | reply[index * 4 + 3]);
  }

  std::array<uint8_t, 128> reply{};
  uint32_t length = 0;
};

TEST_F(RingConfigReadingTest, AbsentRingIsCode3AndWritesNoData) {
  EXPECT_EQ(erps_get_ring_conf(1, reply.data(), &length), 3U);
  EXPECT_EQ(reply[0], kUntouched);
}

TEST_F(RingConfigReadingTest, LengthIs96AndNothingBehindIsWritten) {
  make_ring();
  EXPECT_EQ(erps_get_ring_conf(1, reply.data(), &length), 0U);
  EXPECT_EQ(length, 96U);
  for (size_t i = 96; i < reply.size(); ++i) {
    EXPECT_EQ(reply[i], kUntouched) << "byte " << i;
  }
}

TEST_F(RingConfigReadingTest, EveryWordStandsInItsPlaceMostSignificantByteFirst) {
  ERPSM_T* ring = make_ring({.id = 0x01020304, .node_role = 2, .ring_role = 1});
  ring->State = 3;
  ring->timer_start_time = 0x11223344;
  ring->holdoff_start_time = 0x55667788;
  port0(ring)->port_id = 0x0A0B0C0D;
  port0(ring)->port_state = 4;
  port0(ring)->link_status = 1;
  port1(ring)->port_id = 0x1A1B1C1D;
  port1(ring)->port_state = 1;
  port1(ring)->link_status = 0x0203;
  ring->vlan_id = 4094;
  ring->non_revertive = 1;
  ring->raps_timer.active = 1;
  ring->local_priority = 13;
  ring->interconnect_ring_id = 0x21222324;
  ring->enable = 1;
  ring->guard_running = 1;
  ring->holdoff_running = 1;
  ring->inter_node_role = 6;
  ring->current_priority = 12;

  ASSERT_EQ(erps_get_ring_conf(0x01020304, reply.data(), &length), 0U);

  EXPECT_EQ(reply[0], 1);
  EXPECT_EQ(reply[3], 4);
  const uint32_t expected[22] = {0x01020304, 3, 0x11223344, 0x55667788, 2, 0x0A0B0C0D, 4, 1,
                                 0x1A1B1C1D, 1, 0x0203,     4094,       1, 1,          1, 13,
                                 0x21222324, 1, 1,          1,          6, 12};
  for (size_t i = 0; i < 22; ++i) {
    EXPECT_EQ(word(i), expected[i]) << "word " << i;
  }
  ring->raps_timer.active = 0;  // it is not linked
  ring->enable = 0;
}

TEST_F(RingConfigReadingTest, NodeIdStandsAtByte88InTransmissionOrder) {
  ERPSM_T* ring = make_ring();
  memcpy(ring->local_node_id, kLocalNode.data(), kLocalNode.size());
  erps_get_ring_conf(1, reply.data(), &length);
  EXPECT_EQ(bytes_of(&reply[88], 6), (std::vector<uint8_t>{0x00, 0x11, 0x22, 0x33, 0x44, 0x55}));
}

TEST_F(RingConfigReadingTest, SecondPortOfASubRingIsNotReported) {
  ERPSM_T* ring = make_ring({.port0 = 9, .port1 = 255, .ring_role = kSubRing});
  port1(ring)->port_state = 4;
  erps_get_ring_conf(1, reply.data(), &length);
  EXPECT_EQ(length, 96U);
  EXPECT_EQ(word(5), 9U);
  for (size_t byte = 32; byte < 44; ++byte) {
    // Zero, or what was there before: never the absent port.
    EXPECT_TRUE(reply[byte] == 0 || reply[byte] == kUntouched) << "byte " << byte;
  }
  EXPECT_EQ(word(11), 100U);
}

TEST_F(RingConfigReadingTest, RunningRingShowsStateSendingAndDelay) {
  make_running_ring({.node_role = kRplOwner});
  erps_get_ring_conf(1, reply.data(), &length);
  EXPECT_EQ(word(1), 5U);
  EXPECT_EQ(word(2), kStartSeconds);
  EXPECT_EQ(word(6), 4U);
  EXPECT_EQ(word(9), 1U);
  EXPECT_EQ(word(14), 1U);
  EXPECT_EQ(word(15), 5U);
  EXPECT_EQ(word(17), 1U);
}

TEST_F(RingConfigReadingTest, StoppedRingNoLongerSends) {
  ERPSM_T* ring = make_running_ring();
  erps_stop_func(ring);
  erps_get_ring_conf(1, reply.data(), &length);
  EXPECT_EQ(word(1), 0U);
  EXPECT_EQ(word(14), 0U);
  EXPECT_EQ(word(17), 0U);
}

TEST_F(RingConfigReadingTest, RunningGuardAndHoldoffAreShown) {
  ERPSM_T* ring = make_running_ring();
  erps_start_guard_timer(&ring->guard_timer);
  platform.advance_ms(3000);
  erps_start_holdoff_timer(&ring->holdoff_timer);
  erps_get_ring_conf(1, reply.data(), &length);
  EXPECT_EQ(word(2), kStartSeconds);
  EXPECT_EQ(word(3), kStartSeconds + 3);
  EXPECT_EQ(word(18), 1U);
  EXPECT_EQ(word(19), 1U);
}

}  // namespace
}  // namespace erps::test
