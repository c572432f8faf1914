#include "erps/raps/frame.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <array>
#include <vector>

namespace erps::test {
namespace {

using raps::build;
using raps::Message;
using raps::PduView;
using ::testing::ElementsAre;
using ::testing::ElementsAreArray;

constexpr uint8_t kSource[6] = {0x02, 0x11, 0x22, 0x33, 0x44, 0x55};
constexpr uint8_t kNode[6] = {0x02, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE};
constexpr uint8_t kGuardByte = 0x5A;

Message message() {
  Message m{};
  m.ring_id = 7;
  m.vlan_id = 100;
  m.source = kSource;
  m.node_id = kNode;
  return m;
}

// Builds into a buffer that shows what was not written, and checks that nothing behind was.
std::vector<uint8_t> built(const Message& m) {
  std::array<uint8_t, 64> buffer{};
  buffer.fill(kGuardByte);
  const uint32_t length = build(m, buffer.data());
  for (size_t i = length; i < buffer.size(); ++i) {
    EXPECT_EQ(buffer[i], kGuardByte) << "written behind the frame at " << i;
  }
  return {buffer.begin(), buffer.begin() + length};
}

std::vector<uint8_t> part(const std::vector<uint8_t>& frame, size_t begin, size_t length) {
  return {frame.begin() + static_cast<ptrdiff_t>(begin),
          frame.begin() + static_cast<ptrdiff_t>(begin + length)};
}

TEST(FrameTest, a_tagged_frame_byte_by_byte) {
  Message m = message();
  m.request = 11;
  m.rb = 1;
  m.dnf = 1;
  m.bpr = 1;
  EXPECT_THAT(built(m), ElementsAreArray({
                            0x01, 0x19, 0xA7, 0x00, 0x00, 0x07,  // destination with the ring ID
                            0x02, 0x11, 0x22, 0x33, 0x44, 0x55,  // source
                            0x81, 0x00, 0xE0, 0x64,              // tag: priority 7, VLAN 100
                            0x89, 0x02,                          // EtherType
                            0x01, 0x28, 0x00, 0x20,  // MEL 0, version 1; R-APS; flags; TLV offset
                            0xB0, 0xE0,              // SF; RB, DNF, BPR
                            0x02, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE,  // node ID
                            0,    0,    0,    0,    0,    0,     // reserved
                            0,    0,    0,    0,    0,    0,     //
                            0,    0,    0,    0,    0,    0,     //
                            0,    0,    0,    0,    0,    0,     //
                            0,                                   // End TLV
                        }));
}

TEST(FrameTest, an_untagged_frame_byte_by_byte) {
  Message m = message();
  m.vlan_id = 0;
  m.request = 13;
  const std::vector<uint8_t> frame = built(m);
  ASSERT_EQ(frame.size(), 51U);
  EXPECT_THAT(part(frame, 0, 26),
              ElementsAreArray({0x01, 0x19, 0xA7, 0x00, 0x00, 0x07,  // destination
                                0x02, 0x11, 0x22, 0x33, 0x44, 0x55,  // source
                                0x89, 0x02,                          // EtherType at 12
                                0x01, 0x28, 0x00, 0x20,              // header at 14
                                0xD0, 0x00,                          // FS
                                0x02, 0xAA, 0xBB, 0xCC, 0xDD, 0xEE}));
  EXPECT_THAT(part(frame, 26, 25), ::testing::Each(0));
}

TEST(FrameTest, the_destination_carries_the_low_byte_of_the_ring_id) {
  Message m = message();
  for (const auto& [ring_id, byte] :
       {std::pair(0U, 0x00), std::pair(1U, 0x01), std::pair(255U, 0xFF), std::pair(300U, 0x2C),
        std::pair(0xFFFFFF00U, 0x00)}) {
    m.ring_id = ring_id;
    EXPECT_THAT(part(built(m), 0, 6), ElementsAre(0x01, 0x19, 0xA7, 0x00, 0x00, byte));
  }
}

TEST(FrameTest, the_vlan_is_ored_into_the_tag_without_masking) {
  struct Case {
    uint32_t vlan;
    uint8_t high, low;
  };
  Message m = message();
  for (const Case& c :
       {Case{1, 0xE0, 0x01}, Case{100, 0xE0, 0x64}, Case{4094, 0xEF, 0xFE}, Case{4096, 0xF0, 0x00},
        Case{0x1064, 0xF0, 0x64}, Case{0x12345, 0xE3, 0x45}, Case{0x10000, 0xE0, 0x00}}) {
    m.vlan_id = c.vlan;
    const std::vector<uint8_t> frame = built(m);
    EXPECT_EQ(frame.size(), 55U);
    EXPECT_THAT(part(frame, 12, 6), ElementsAre(0x81, 0x00, c.high, c.low, 0x89, 0x02)) << c.vlan;
  }
}

// Every request with every combination of flags: RB 4, DNF 2, BPR 1.
template <typename Check>
void for_each_message(Message m, const Check& check) {
  for (uint8_t request = 0; request < 16; ++request) {
    for (uint8_t flags = 0; flags < 8; ++flags) {
      m.request = request;
      m.rb = flags >> 2;
      m.dnf = (flags >> 1) & 1;
      m.bpr = flags & 1;
      check(m, flags);
    }
  }
}

TEST(FrameTest, request_and_flags_of_every_message) {
  for (const uint32_t vlan : {0U, 100U}) {
    Message any = message();
    any.vlan_id = vlan;
    for_each_message(any, [vlan](const Message& m, uint8_t flags) {
      EXPECT_THAT(part(built(m), vlan == 0 ? 18 : 22, 2), ElementsAre(m.request * 16, flags * 32));
    });
  }
}

TEST(FrameTest, only_bit_0_of_a_flag_and_the_low_half_of_a_request_count) {
  Message m = message();
  m.rb = 2;
  m.dnf = 0xFE;
  m.bpr = 4;
  m.request = 0x1B;
  EXPECT_THAT(part(built(m), 22, 2), ElementsAre(0xB0, 0x00));
  m.rb = 3;
  m.dnf = 0xFF;
  m.bpr = 5;
  EXPECT_THAT(part(built(m), 22, 2), ElementsAre(0xB0, 0xE0));
}

TEST(FrameTest, the_codes_of_the_standard) {
  Message m = message();
  for (const auto& [request, byte] :
       {std::pair(raps::kNr, 0x00), std::pair(raps::kMs, 0x70), std::pair(raps::kSf, 0xB0),
        std::pair(raps::kFs, 0xD0), std::pair(raps::kEvent, 0xE0)}) {
    m.request = request;
    EXPECT_EQ(built(m).at(22), byte);
  }
}

TEST(FrameTest, what_was_built_reads_back) {
  for_each_message(message(), [](const Message& m, uint8_t) {
    const std::vector<uint8_t> frame = built(m);
    const PduView view(&frame[18]);
    EXPECT_EQ(view.request(), m.request);
    EXPECT_EQ(view.rb(), m.rb);
    EXPECT_EQ(view.dnf(), m.dnf);
    EXPECT_EQ(view.bpr(), m.bpr);
    EXPECT_EQ(view.sub_code(), 0);
    EXPECT_THAT(std::vector<uint8_t>(view.node_id(), view.node_id() + 6), ElementsAreArray(kNode));
  });
}

TEST(FrameTest, a_reader_takes_single_bits_and_halves) {
  std::array<uint8_t, 37> pdu{};
  pdu[4] = 0xBA;
  for (int bit = 0; bit < 8; ++bit) {
    pdu[5] = static_cast<uint8_t>(1 << bit);
    const PduView view(pdu.data());
    EXPECT_EQ(view.request(), 11);
    EXPECT_EQ(view.sub_code(), raps::kInterconnectionMark);
    EXPECT_EQ(view.request_byte(), 0xBA);
    EXPECT_EQ(view.rb(), bit == 7 ? 1 : 0);
    EXPECT_EQ(view.dnf(), bit == 6 ? 1 : 0);
    EXPECT_EQ(view.bpr(), bit == 5 ? 1 : 0);
    EXPECT_EQ(view.info(), &pdu[4]);
  }
}

}  // namespace
}  // namespace erps::test
