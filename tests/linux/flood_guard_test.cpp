// Which frames of a flood are let in, in times of the test's own.
#include "linux/flood_guard.h"

#include <gtest/gtest.h>

#include <optional>

#include "linux/flood_watch.h"
#include "tests/linux/platform_fixture.h"

namespace erps::linux_platform::test {
namespace {

constexpr int64_t kSecondNs = 1'000'000'000;
constexpr int64_t kFloodGapNs = kSecondNs / 100'000;  // 100,000 frames a second
constexpr uint32_t kPort = 1;
constexpr uint32_t kOtherPort = 2;
constexpr uint8_t kNoRequest = 0;
constexpr uint8_t kSignalFail = 11;

class FloodGuardTest : public ::testing::Test {
 protected:
  bool admits(const Bytes& frame, uint32_t port = kPort) {
    return guard_.admits(port, frame.data(), frame.size(), now_ns_);
  }

  // Floods the port from the node's address with frames of which no two are the same.
  void flood_varied(uint8_t node, uint32_t port, int64_t duration_ns) {
    Bytes attack = raps_frame(1, 100, kNoRequest, node);
    for (const int64_t end_ns = now_ns_ + duration_ns; now_ns_ < end_ns; now_ns_ += kFloodGapNs) {
      const auto number = static_cast<uint32_t>(now_ns_ / kFloodGapNs);
      for (size_t at = 0; at < sizeof number; ++at) {
        attack[24 + at] = static_cast<uint8_t>(number >> (8 * at));
      }
      admits(attack, port);
    }
  }

  // Sends the frame for so long; how many got in.
  int64_t flood(const Bytes& frame, int64_t duration_ns) {
    int64_t admitted = 0;
    for (const int64_t end_ns = now_ns_ + duration_ns; now_ns_ < end_ns; now_ns_ += kFloodGapNs) {
      admitted += admits(frame) ? 1 : 0;
    }
    return admitted;
  }

  // What all sources together are allowed within so many seconds, be they as many as they are, as
  // long as none of them keeps to its own budget.
  static int64_t most_within(int64_t seconds) {
    const auto within = [&](const Budget& budget) {
      return budget.burst + budget.per_second * seconds;
    };
    return within(FloodGuard::kOfAll) + within(FloodGuard::kBesidesFloods) +
           within(FloodGuard::kOfStrangers) * FloodGuard::kFirstFrames + 1;
  }

  // A source that has been heard for long enough.
  void prove(uint8_t node) {
    for (int64_t heard_ns = 0; heard_ns <= FloodGuard::kProvenNs; heard_ns += kSecondNs) {
      EXPECT_TRUE(admits(raps_frame(1, 100, kNoRequest, node)));
      now_ns_ += kSecondNs;
    }
  }

  // A frame of a source that is one of very many.
  static Bytes of_source(uint32_t number) {
    Bytes frame = raps_frame(1, 100, kSignalFail);
    frame[6] = 0x02;
    for (size_t i = 0; i < 4; ++i) {
      frame[8 + i] = static_cast<uint8_t>(number >> (8 * i));
    }
    return frame;
  }

  FloodGuard guard_;
  int64_t now_ns_ = 1000 * kSecondNs;
};

TEST_F(FloodGuardTest, WholeRingThatStartsAtOnceIsHeard) {
  for (uint32_t node = 0; node < 255; ++node) {
    for (int repeat = 0; repeat < 3; ++repeat) {
      EXPECT_TRUE(admits(of_source(node))) << "node " << node;
    }
  }
}

TEST_F(FloodGuardTest, NodeOfThirtyRingsWhoseLinksFlapTenTimesASecondIsHeard) {
  for (int flap = 0; flap < 50; ++flap, now_ns_ += kSecondNs / 10) {
    for (uint8_t ring = 1; ring <= 15; ++ring) {
      for (int repeat = 0; repeat < 3; ++repeat) {
        ASSERT_TRUE(admits(raps_frame(ring, 100, flap % 2 == 0 ? kSignalFail : kNoRequest)))
            << "flap " << flap;
      }
    }
  }
}

TEST_F(FloodGuardTest, FloodIsHeldToTheBudget) {
  const int64_t admitted = flood(raps_frame(1, 100, kSignalFail), 10 * kSecondNs);
  EXPECT_GE(admitted, 10 * FloodGuard::kOfAll.per_second);
  EXPECT_LE(admitted, most_within(10));
}

TEST_F(FloodGuardTest, FloodOfManySourcesIsHeldToTheSameBudgetAndOthersAreHeardThroughIt) {
  constexpr uint32_t kAttackers = 200;
  prove(7);
  int64_t admitted = 0;
  for (uint32_t i = 0; i < 1'000'000; ++i, now_ns_ += kFloodGapNs) {
    Bytes attack = of_source(i % kAttackers);
    attack[24] = static_cast<uint8_t>(i / kAttackers);  // never the same twice
    attack[25] = static_cast<uint8_t>(i / kAttackers >> 8);
    admitted += admits(attack) ? 1 : 0;
    if (i % 10'000 == 0) {
      EXPECT_TRUE(admits(raps_frame(1, 100, kSignalFail, 7))) << "after " << i;
    }
  }
  EXPECT_LE(admitted, most_within(10));
}

TEST_F(FloodGuardTest, FloodThatNeverRepeatsItselfCrowdsNoOtherSourceOut) {
  prove(7);
  flood_varied(66, kPort, kSecondNs);
  for (int repeat = 0; repeat < 3; ++repeat) {
    EXPECT_TRUE(admits(raps_frame(1, 100, kSignalFail, 7)));
  }
}

// Behind the blocked port of the RPL there is nobody to be heard before the failure.
TEST_F(FloodGuardTest, NodeThatWasHeardAtOnePortIsHeardThroughAFloodOfAnother) {
  prove(7);
  flood_varied(66, kOtherPort, 10 * kSecondNs);
  for (int repeat = 0; repeat < 3; ++repeat) {
    EXPECT_TRUE(admits(raps_frame(1, 100, kSignalFail, 7), kOtherPort));
    flood_varied(66, kOtherPort, kSecondNs / 100);
  }
}

TEST_F(FloodGuardTest, NodeThatWasHeardAtOnePortIsHeardThroughInventedSourcesOfAnother) {
  prove(7);
  for (uint32_t i = 0; i < 1'000'000; ++i, now_ns_ += kFloodGapNs) {
    admits(of_source(i), kOtherPort);
  }
  EXPECT_TRUE(admits(raps_frame(1, 100, kSignalFail, 7), kOtherPort));
}

TEST_F(FloodGuardTest, FloodWithANodesAddressAtOnePortLeavesItHeardAtAnother) {
  prove(7);
  for (int second = 0; second < 3; ++second) {
    EXPECT_TRUE(admits(raps_frame(1, 100, kNoRequest, 7), kOtherPort));
    now_ns_ += kSecondNs;
  }
  for (int i = 0; i < 1000; ++i) {
    flood(raps_frame(1, 100, kNoRequest, 7), kSecondNs / 1000);
    flood_varied(66, kOtherPort, kSecondNs / 1000);
  }
  EXPECT_TRUE(admits(raps_frame(1, 100, kSignalFail, 7), kOtherPort));
}

TEST_F(FloodGuardTest, NodeIsHeardThroughAFloodOfInventedOnesWithItsOwnAddress) {
  prove(7);
  for (int second = 0; second < 10; ++second) {
    flood_varied(7, kPort, kSecondNs);
    for (int repeat = 0; repeat < 3; ++repeat) {
      EXPECT_TRUE(admits(raps_frame(1, 100, kSignalFail, 7))) << second;
      EXPECT_TRUE(admits(raps_frame(1, 100, kSignalFail, 7), kOtherPort)) << second;
      flood_varied(7, kOtherPort, kSecondNs / 100);
    }
  }
}

TEST_F(FloodGuardTest, NodeThatFloodsIsTrustedNoMore) {
  const MacAddress address{0x02, 0, 0, 0, 0, 7};
  const std::vector<MacAddress> nobody;
  const std::vector<MacAddress> itself{address};
  EXPECT_EQ(guard_.trusted_nodes(kPort, address, now_ns_), nobody);
  prove(7);
  EXPECT_EQ(guard_.trusted_nodes(kPort, address, now_ns_), itself);
  flood_varied(7, kPort, kSecondNs);
  EXPECT_EQ(guard_.trusted_nodes(kPort, address, now_ns_), itself);
  flood(raps_frame(1, 100, kNoRequest, 7), kSecondNs / 10);
  EXPECT_EQ(guard_.trusted_nodes(kPort, address, now_ns_), nobody);
  EXPECT_EQ(guard_.trusted_nodes(kPort, {}, now_ns_), nobody);
  EXPECT_EQ(guard_.trusted_nodes(kOtherPort, address, now_ns_), nobody);
}

// An address that floods one port is nobody to be let in at another whatever the others do.
TEST_F(FloodGuardTest, SourceThatFloodsOnePortIsNotTrustedAtAnother) {
  const Bytes attack = raps_frame(1, 100, kNoRequest, 66);
  for (int i = 0; i < 2000; ++i) {
    flood(attack, kSecondNs / 1000);
    flood_varied(9, kOtherPort, kSecondNs / 1000);
  }
  const Bytes repeated = raps_frame(1, 100, kSignalFail, 66);
  int admitted = 0;
  for (int64_t i = 0; i < FloodGuard::kOfSource.burst; ++i) {
    admitted += admits(repeated, kOtherPort) ? 1 : 0;
  }
  EXPECT_LE(admitted, FloodGuard::kFirstFrames);
}

TEST_F(FloodGuardTest, FirstFramesOfNodesThatNobodyKnowsAreHeardThroughAFlood) {
  flood_varied(66, kPort, 10 * kSecondNs);
  for (int repeat = 0; repeat < FloodGuard::kFirstFrames; ++repeat) {
    for (uint8_t node = 1; node <= 50; ++node) {
      EXPECT_TRUE(admits(raps_frame(1, 100, kSignalFail, node))) << int{node};
    }
    flood_varied(66, kPort, kSecondNs / 100);
  }
}

TEST_F(FloodGuardTest, NodeIsHeardAlthoughNodesWithItsAddressWereInventedBefore) {
  flood_varied(7, kPort, 2 * kSecondNs);
  for (int repeat = 0; repeat < 20; ++repeat) {
    EXPECT_TRUE(admits(raps_frame(1, 100, kSignalFail, 7))) << repeat;
    flood_varied(7, kPort, kSecondNs / 100);
  }
}

TEST_F(FloodGuardTest, OtherSourcesAreHeardThroughAFlood) {
  const Bytes attack = raps_frame(1, 100, kNoRequest, 66);
  flood(attack, kSecondNs);
  for (int second = 0; second < 10; ++second) {
    EXPECT_TRUE(admits(raps_frame(1, 100, kSignalFail, 7)));
    flood(attack, kSecondNs);
  }
}

TEST_F(FloodGuardTest, FloodingNeighbourIsHeardWhenItHasSomethingElseToSay) {
  const Bytes repeated = raps_frame(1, 100, kNoRequest, 7);
  flood(repeated, kSecondNs);
  for (int second = 0; second < 10; ++second) {
    for (int repeat = 0; repeat < 3; ++repeat) {
      EXPECT_TRUE(admits(raps_frame(1, 100, kSignalFail, 7))) << "second " << second;
      flood(repeated, kSecondNs / 100);
    }
    flood(repeated, kSecondNs);
  }
}

TEST_F(FloodGuardTest, SourcesHeardBeforeAreHeardThroughAFloodOfInventedOnes) {
  EXPECT_TRUE(admits(raps_frame(1, 100, kNoRequest, 7)));
  int64_t admitted = 0;
  for (uint32_t i = 0; i < 1'000'000; ++i, now_ns_ += kFloodGapNs) {
    admitted += admits(of_source(i)) ? 1 : 0;
    if (i % 100'000 == 0) {
      EXPECT_TRUE(admits(raps_frame(1, 100, kSignalFail, 7))) << "after " << i;
    }
  }
  EXPECT_LE(admitted, static_cast<int64_t>(FloodGuard::kSources));
}

TEST_F(FloodGuardTest, SourcesThatFellSilentMakeRoomForNewOnes) {
  for (uint32_t i = 0; i < 100'000; ++i, now_ns_ += kSecondNs / 1000) {
    admits(of_source(i));
  }
  const Bytes newcomer = raps_frame(1, 100, kSignalFail, 9);
  EXPECT_FALSE(admits(newcomer));
  now_ns_ += FloodGuard::kForgettableNs;
  EXPECT_TRUE(admits(newcomer));
}

TEST_F(FloodGuardTest, FloodThatEndedIsForgotten) {
  const Bytes frame = raps_frame(1, 100, kSignalFail);
  flood(frame, kSecondNs);
  admits(frame);  // what came back meanwhile
  EXPECT_FALSE(admits(frame));
  now_ns_ += 2 * kSecondNs;
  for (int64_t i = 0; i < FloodGuard::kOfSource.burst; ++i) {
    ASSERT_TRUE(admits(frame)) << i;
  }
}

TEST_F(FloodGuardTest, ClockThatStandsStillOrJumpsFarLetsNobodyIn) {
  const Bytes frame = raps_frame(1, 100, kSignalFail);
  flood(frame, kSecondNs);
  for (int i = 0; i < 1000; ++i) {
    admits(frame);
  }
  EXPECT_FALSE(admits(frame));
  now_ns_ += int64_t{1} << 61;
  int64_t admitted = 0;
  for (int i = 0; i < 2000; ++i) {
    admitted += admits(frame) ? 1 : 0;
  }
  EXPECT_LE(admitted, FloodGuard::kOfSource.burst + most_within(0));
}

TEST_F(FloodGuardTest, ShortFramesAreOfASourceToo) {
  for (const size_t length : {size_t{0}, size_t{5}, size_t{6}, size_t{11}, size_t{12}}) {
    const Bytes frame(length, 0xA7);
    EXPECT_LE(flood(frame, kSecondNs), most_within(1)) << length;
    admits(frame);
    EXPECT_FALSE(admits(frame)) << length;
  }
}

// Which source the kernel is told to drop.
class FloodWatchTest : public ::testing::Test {
 protected:
  std::optional<FloodMatch> refused(const Bytes& frame) {
    now_ns_ += kFloodGapNs;
    return watch_.refused(frame.data(), frame.size(), now_ns_);
  }

  FloodWatch watch_;
  int64_t now_ns_ = 1000 * kSecondNs;
};

TEST_F(FloodWatchTest, FloodThatRepeatsItselfIsKnownByItsContent) {
  for (const uint16_t vlan : {uint16_t{0}, uint16_t{100}}) {
    const Bytes frame = raps_frame(1, vlan, kSignalFail, 9);
    for (int i = 1; i < FloodWatch::kMany; ++i) {
      ASSERT_FALSE(refused(frame)) << i;
    }
    const auto flood = refused(frame);
    ASSERT_TRUE(flood);
    EXPECT_EQ(flood->source, (MacAddress{0x02, 0, 0, 0, 0, 9}));
    ASSERT_TRUE(flood->content);
    EXPECT_EQ(*flood->content, (std::array<uint8_t, 8>{kSignalFail << 4, 0, 0x02, 0, 0, 0, 0, 9}));
  }
}

TEST_F(FloodWatchTest, FloodThatVariesIsKnownByItsSourceAlone) {
  Bytes frame = raps_frame(1, 100, kSignalFail, 9);
  for (int i = 1; i < FloodWatch::kMany; ++i) {
    frame[29] = static_cast<uint8_t>(i);
    ASSERT_FALSE(refused(frame));
  }
  const auto flood = refused(frame);
  ASSERT_TRUE(flood);
  EXPECT_FALSE(flood->content);
}

TEST_F(FloodWatchTest, FewFramesAndManySourcesShowNoFloodOfOne) {
  for (int second = 0; second < 10; ++second, now_ns_ += kSecondNs) {
    for (int i = 1; i < FloodWatch::kMany; ++i) {
      ASSERT_FALSE(refused(raps_frame(1, 100, kSignalFail, 9)));
    }
  }
  for (int i = 0; i < 100'000; ++i) {
    ASSERT_FALSE(refused(raps_frame(1, 100, kSignalFail, static_cast<uint8_t>(i % 200)))) << i;
  }
}

TEST_F(FloodWatchTest, ShortFramesAreLookedAtNoFurtherThanTheyReach) {
  for (const size_t length : {size_t{0}, size_t{13}, size_t{14}, size_t{25}, size_t{29}}) {
    const Bytes frame(length, 0xA7);
    for (int i = 0; i < FloodWatch::kMany; ++i) {
      if (const auto flood = refused(frame)) {
        EXPECT_FALSE(flood->content) << length;
      }
    }
  }
}

}  // namespace
}  // namespace erps::linux_platform::test
