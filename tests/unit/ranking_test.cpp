#include "erps/raps/ranking.h"

#include <map>

#include "tests/unit/protocol_fixture.h"

namespace erps::test {
namespace {

using RankingTest = ProtocolTest;

TEST_F(RankingTest, every_received_message_makes_its_request) {
  const std::map<uint32_t, uint32_t> codes = {{7, 8}, {11, 9}, {13, 12}};
  for (uint32_t request = 0; request < 300; ++request) {
    for (const uint32_t rb : {0U, 1U}) {
      const auto found = codes.find(request);
      const uint32_t nr = rb == 1 ? 2 : 1;
      EXPECT_EQ(get_raps_priority(request, rb), request == 0           ? nr
                                                : found != codes.end() ? found->second
                                                                       : 0)
          << request << " " << rb;
    }
  }
}

TEST_F(RankingTest, tells_what_it_made) {
  get_raps_priority(11, 0);
  EXPECT_EQ(logged_at("get_raps_priority", "exit msg = 9 \n"), 1);
}

TEST_F(RankingTest, every_received_message_has_its_text) {
  const std::map<uint32_t, std::string> texts = {
      {7, "RAPS_MS"}, {11, "RAPS_SF"}, {13, "RAPS_FS"}, {14, "RAPS_EVENT"}};
  for (uint32_t request = 1; request < 40; ++request) {
    const auto found = texts.find(request);
    const std::string expected = found == texts.end() ? "Unknown" : found->second;
    EXPECT_EQ(erps_get_raps_string(request, 0), expected) << request;
    EXPECT_EQ(erps_get_raps_string(request, 1), expected) << request;
  }
  EXPECT_STREQ(erps_get_raps_string(0, 0), "NR");
  EXPECT_STREQ(erps_get_raps_string(0, 1), "NR_RB");
}

TEST_F(RankingTest, a_repeated_ms_is_one_that_already_holds_the_node_in_manual) {
  constexpr uint32_t kRepeated = 27;
  ERPSM_T* ring = idle_ring();
  const FrameSpec ms = {.request = 7, .bpr = true};
  const auto answer = [ring](const FrameSpec& message) {
    const std::vector<uint8_t> pdu = message.pdu();
    return erps_proc_repeat_ms_cmd(ring, port0(ring), pdu.data());
  };
  ring->State = 3;
  ring->current_priority = 8;
  store_pair(port0(ring), kRemoteNode, 1);
  EXPECT_EQ(answer(ms), kRepeated);

  for (uint8_t request = 0; request < 16; ++request) {
    EXPECT_EQ(answer({.request = request, .bpr = true}), request == 7 ? kRepeated : 0U);
  }
  EXPECT_EQ(answer({.request = 7, .bpr = false}), 0U) << "another BPR than stored";
  EXPECT_EQ(answer({.request = 7, .bpr = true, .node_id = kLowerNode}), 0U) << "another node";
  for (const int32_t state : {0, 1, 2, 4, 5}) {
    ring->State = state;
    EXPECT_EQ(answer(ms), 0U) << "in state " << state;
  }
  ring->State = 3;
  for (const uint32_t current : {0U, 7U, 9U, 10U}) {
    ring->current_priority = current;
    EXPECT_EQ(answer(ms), 0U) << "after request " << current;
  }
}

}  // namespace
}  // namespace erps::test
