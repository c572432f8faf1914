#include "client/ring_status.h"

#include <gtest/gtest.h>

#include "client/words.h"

namespace erps::client {
namespace {

// 24 words whose values tell their place apart.
std::array<uint8_t, mgmt::kRingConfBytes> numbered_status() {
  std::array<uint8_t, mgmt::kRingConfBytes> data{};
  for (uint32_t word = 0; word < 22; ++word) {
    data[4 * word + 2] = 1;
    data[4 * word + 3] = static_cast<uint8_t>(word);
  }
  const uint8_t node_id[6] = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
  std::copy(std::begin(node_id), std::end(node_id), data.begin() + mgmt::kRingConfNodeIdOffset);
  return data;
}

void set_word(std::array<uint8_t, mgmt::kRingConfBytes>& data, uint32_t word, uint32_t value) {
  for (uint32_t i = 0; i < 4; ++i) {
    data[4 * word + i] = static_cast<uint8_t>(value >> (24 - 8 * i));
  }
}

TEST(RingStatusDecoding, EveryWordLandsInItsField) {
  std::array<uint8_t, mgmt::kRingConfBytes> data = numbered_status();
  set_word(data, mgmt::kRingRoleWord, 1);
  const RingStatus ring = decode_ring_status(data.data());
  EXPECT_EQ(ring.ring_id, 0x100u);
  EXPECT_EQ(ring.state, 0x101u);
  EXPECT_EQ(ring.timer_start_s, 0x102u);
  EXPECT_EQ(ring.holdoff_start_s, 0x103u);
  EXPECT_EQ(ring.node_role, 0x104u);
  EXPECT_EQ(ring.port0.port, 0x105u);
  EXPECT_EQ(ring.port0.state, 0x106u);
  ASSERT_TRUE(ring.port1);
  EXPECT_EQ(ring.port1->port, 0x108u);
  EXPECT_EQ(ring.port1->state, 0x109u);
  EXPECT_EQ(ring.control_vlan, 0x10Bu);
  EXPECT_EQ(ring.ring_role, 1u);
  EXPECT_EQ(ring.local_request, 0x10Fu);
  EXPECT_EQ(ring.partner_ring, 0x110u);
  EXPECT_EQ(ring.interconnection_role, 0x114u);
  EXPECT_EQ(ring.last_request, 0x115u);
  EXPECT_EQ(mac_text(ring.node_id), "00:11:22:33:44:55");
}

TEST(RingStatusDecoding, FlagsCountOnlyAsOne) {
  std::array<uint8_t, mgmt::kRingConfBytes> data{};
  RingStatus ring = decode_ring_status(data.data());
  EXPECT_TRUE(ring.revertive);
  EXPECT_FALSE(ring.sending || ring.enabled || ring.guard_running || ring.holdoff_running ||
               ring.port0.link_up);
  for (const uint32_t word : {mgmt::kNonRevertive, mgmt::kSending, mgmt::kEnabled,
                              mgmt::kGuardRunning, mgmt::kHoldoffRunning, mgmt::kPort0Link}) {
    set_word(data, word, 1);
  }
  ring = decode_ring_status(data.data());
  EXPECT_FALSE(ring.revertive);
  EXPECT_TRUE(ring.sending && ring.enabled && ring.guard_running && ring.holdoff_running &&
              ring.port0.link_up);
}

TEST(RingStatusDecoding, SecondPortOfAnInterconnectionSubRingIsNotRead) {
  std::array<uint8_t, mgmt::kRingConfBytes> data = numbered_status();
  set_word(data, mgmt::kRingRoleWord, 2);
  const RingStatus ring = decode_ring_status(data.data());
  EXPECT_FALSE(ring.port1);
  EXPECT_EQ(ring.ports().size(), 1u);
}

TEST(RingStatusPorts, RplPortIsTheSecondAtOwnerAndNeighbourOnly) {
  RingStatus ring;
  ring.port0.port = 3;
  ring.port1 = PortStatus{4, kPortBlocked, true};
  for (const uint32_t role : {kOwner, kNeighbour}) {
    ring.node_role = role;
    EXPECT_EQ(ring.rpl_port(), 4u);
  }
  ring.node_role = kNoRplRole;
  EXPECT_FALSE(ring.rpl_port());
  EXPECT_EQ(ring.blocked_ports(), std::vector<uint32_t>{4});
}

TEST(RingStatusTimers, WtrIsTimedFromItsStartInWholeMinutes) {
  RingStatus ring;
  ring.local_request = kRequestWtrRunning;
  ring.timer_start_s = 1000;
  const RingTimers timers = ring.timers({500, 5, 0}, 1060);
  EXPECT_TRUE(timers.wtr.running);
  EXPECT_EQ(timers.wtr.elapsed_s, 60u);
  EXPECT_EQ(timers.wtr.remaining_s, 240u);
  EXPECT_FALSE(timers.wtb.running || timers.guard.running || timers.holdoff.running);
}

TEST(RingStatusTimers, WtrBelowAMinuteHasNoKnownRemainder) {
  RingStatus ring;
  ring.local_request = kRequestWtrRunning;
  ring.timer_start_s = 1000;
  const RingTimers timers = ring.timers({500, 0, 0}, 1003);
  EXPECT_TRUE(timers.wtr.running);
  EXPECT_EQ(timers.wtr.elapsed_s, 3u);
  EXPECT_FALSE(timers.wtr.remaining_s);
}

TEST(RingStatusTimers, WtbIsFiveSecondsBeyondTheGuardTime) {
  RingStatus ring;
  ring.local_request = kRequestWtbRunning;
  ring.timer_start_s = 1000;
  EXPECT_EQ(ring.timers({500, 5, 0}, 1002).wtb.remaining_s, 4u);
  EXPECT_EQ(ring.timers({500, 5, 0}, 1100).wtb.remaining_s, 0u);
  EXPECT_EQ(ring.timers({500, 5, 0}, 900).wtb.elapsed_s, 0u) << "the clock was set back";
}

TEST(RingStatusTimers, GuardBesideADelayTimerHasNoTimeOfItsOwn) {
  RingStatus ring;
  ring.guard_running = true;
  ring.timer_start_s = 1000;
  EXPECT_EQ(ring.timers({500, 5, 0}, 1001).guard.elapsed_s, 1u);
  ring.local_request = kRequestWtrRunning;
  EXPECT_TRUE(ring.timers({500, 5, 0}, 1001).guard.running);
  EXPECT_FALSE(ring.timers({500, 5, 0}, 1001).guard.elapsed_s);
}

TEST(RingStatusTimers, HoldoffHasItsOwnStart) {
  RingStatus ring;
  ring.holdoff_running = true;
  ring.holdoff_start_s = 2000;
  EXPECT_EQ(ring.timers({500, 5, 3000}, 2001).holdoff.remaining_s, 2u);
}

TEST(Words, EveryRequestAndStateHasTheStandardsName) {
  const char* const requests[] = {"none",        "R-APS(NR)",   "R-APS(NR,RB)", "WTB running",
                                  "WTB expires", "WTR running", "WTR expires",  "MS",
                                  "R-APS(MS)",   "R-APS(SF)",   "clear SF",     "SF",
                                  "R-APS(FS)",   "FS",          "clear"};
  for (uint32_t code = 0; code < std::size(requests); ++code) {
    EXPECT_EQ(request_name(code), requests[code]);
  }
  EXPECT_EQ(request_name(15), "unknown (15)");
  const char* const states[] = {"init",          "idle",          "protection",
                                "manual-switch", "forced-switch", "pending"};
  for (uint32_t state = 0; state < std::size(states); ++state) {
    EXPECT_EQ(state_name(state), states[state]);
  }
  EXPECT_EQ(state_name(6), "unknown (6)");
}

TEST(Words, RolesAreReadAndWrittenAlike) {
  for (const char* word : {"owner", "neighbour", "none"}) {
    EXPECT_EQ(node_role_name(node_role_of(word).value()), word);
  }
  for (const char* word : {"major", "sub-ring"}) {
    EXPECT_EQ(ring_role_name(ring_role_of(word).value()), word);
  }
  for (const char* word : {"watching", "marking"}) {
    EXPECT_EQ(interconnection_role_name(interconnection_role_of(word).value()), word);
  }
  EXPECT_EQ(interconnection_role_name(17), "marking");
  EXPECT_FALSE(node_role_of("neighbor"));
  EXPECT_FALSE(ring_role_of("sub-ring at an interconnection node"));
}

TEST(MacAddresses, OnlySixTwoDigitBytesWithColonsAreOne) {
  EXPECT_EQ(mac_text(mac_of("02:aB:00:00:00:fF").value()), "02:ab:00:00:00:ff");
  for (const char* text : {"", "02:00:00:00:00", "02:00:00:00:00:0", "02-00-00-00-00-01",
                           "02:00:00:00:00:0g", "02:00:00:00:00:01:", "0200:00:00:00:001"}) {
    EXPECT_FALSE(mac_of(text)) << text;
  }
}

}  // namespace
}  // namespace erps::client
