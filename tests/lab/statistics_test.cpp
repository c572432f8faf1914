// The arithmetic of gaps, losses, copies and orders.
#include "lab/statistics.h"

#include <gtest/gtest.h>

namespace erps::lab {
namespace {

constexpr int64_t kMs = 1000000;

class Meter : public ::testing::Test {
 protected:
  // Frames first..last arrive a millisecond apart, frame N at N ms.
  void arrive(uint64_t first, uint64_t last) {
    for (uint64_t number = first; number <= last; ++number) {
      meter_.arrived(number, at(number));
    }
  }
  DirectionResult end(uint64_t number, int64_t now_ns) {
    meter_.close(now_ns);
    return meter_.end(number);
  }
  static int64_t at(uint64_t number) { return (static_cast<int64_t>(number) + 1) * kMs; }

  DirectionMeter meter_;
};

TEST_F(Meter, AnUndisturbedStreamShowsThePaceOfTheSender) {
  meter_.begin(0, 0);
  arrive(0, 99);
  const DirectionResult result = end(100, at(99));
  EXPECT_EQ(result.sent, 100U);
  EXPECT_EQ(result.lost, 0U);
  EXPECT_EQ(result.duplicates, 0U);
  EXPECT_EQ(result.reordered, 0U);
  EXPECT_EQ(result.outage_ns, 1 * kMs);
  EXPECT_FALSE(result.still_out);
}

TEST_F(Meter, LostFramesAreCountedAndTheirGapIsTheOutage) {
  meter_.begin(0, 0);
  arrive(0, 39);
  arrive(50, 99);
  const DirectionResult result = end(100, at(99));
  EXPECT_EQ(result.lost, 10U);
  EXPECT_EQ(result.outage_ns, 11 * kMs);
  EXPECT_EQ(result.outage_from_ns, at(39));
}

TEST_F(Meter, TheLongestOfSeveralGapsCounts) {
  meter_.begin(0, 0);
  arrive(0, 9);
  arrive(15, 19);
  arrive(40, 49);
  arrive(55, 59);
  const DirectionResult result = end(60, at(59));
  EXPECT_EQ(result.outage_ns, 21 * kMs);
  EXPECT_EQ(result.outage_from_ns, at(19));
  EXPECT_EQ(result.lost, 5U + 20U + 5U);
}

TEST_F(Meter, AGapThatSpansTheBeginCountsFromTheArrivalBefore) {
  meter_.begin(0, 0);
  arrive(0, 19);
  end(20, at(19));
  meter_.begin(20, at(22));
  arrive(30, 39);
  const DirectionResult result = end(40, at(39));
  EXPECT_EQ(result.outage_ns, 11 * kMs);
  EXPECT_EQ(result.outage_from_ns, at(19));
  EXPECT_EQ(result.lost, 10U);
}

TEST_F(Meter, AGapBeforeTheMeasurementDoesNotCount) {
  meter_.begin(0, 0);
  arrive(0, 9);
  arrive(60, 69);
  end(70, at(69));
  meter_.begin(70, at(69));
  arrive(70, 79);
  EXPECT_EQ(end(80, at(79)).outage_ns, 1 * kMs);
}

TEST_F(Meter, AStreamThatNeverComesBackIsOutUntilTheEnd) {
  meter_.begin(0, 0);
  arrive(0, 9);
  const DirectionResult result = end(100, at(99));
  EXPECT_TRUE(result.still_out);
  EXPECT_EQ(result.outage_ns, 90 * kMs);
  EXPECT_EQ(result.lost, 90U);
}

TEST_F(Meter, AStreamOfWhichNothingArrivesIsOutFromBeginToEnd) {
  meter_.begin(0, 5 * kMs);
  const DirectionResult result = end(100, 105 * kMs);
  EXPECT_TRUE(result.still_out);
  EXPECT_EQ(result.outage_ns, 100 * kMs);
  EXPECT_EQ(result.lost, 100U);
}

TEST_F(Meter, APauseOfTheSenderIsNoOutage) {
  meter_.begin(0, 0);
  arrive(0, 9);
  meter_.arrived(10, 40 * kMs, 38 * kMs);  // sent 28 ms after the one before
  meter_.arrived(11, 41 * kMs, 40 * kMs);
  EXPECT_EQ(end(12, 41 * kMs).outage_ns, 2 * kMs) << "its way through the network";
}

TEST_F(Meter, ASenderThatPausesWhenTheMeasurementEndsIsNotOut) {
  meter_.begin(0, 0);
  arrive(0, 9);
  const DirectionResult result = end(10, at(9) + 7 * kMs);
  EXPECT_FALSE(result.still_out);
  EXPECT_EQ(result.outage_ns, 1 * kMs);
}

TEST_F(Meter, AFrameThatIsHeldUpInTheNetworkIsAnOutage) {
  meter_.begin(0, 0);
  arrive(0, 9);
  meter_.arrived(10, 40 * kMs, 11 * kMs);
  EXPECT_EQ(end(11, 40 * kMs).outage_ns, 29 * kMs);
}

TEST_F(Meter, WhereFramesWereLostTheWholeGapIsTheOutage) {
  meter_.begin(0, 0);
  arrive(0, 9);
  meter_.arrived(12, 40 * kMs, 38 * kMs);
  const DirectionResult result = end(13, 40 * kMs);
  EXPECT_EQ(result.outage_ns, 30 * kMs);
  EXPECT_EQ(result.lost, 2U);
}

TEST_F(Meter, EveryFurtherCopyIsADuplicate) {
  meter_.begin(0, 0);
  arrive(0, 9);
  meter_.arrived(5, at(9));
  meter_.arrived(5, at(9));
  meter_.arrived(9, at(9));
  const DirectionResult result = end(10, at(9));
  EXPECT_EQ(result.duplicates, 3U);
  EXPECT_EQ(result.reordered, 0U);
  EXPECT_EQ(result.lost, 0U);
}

TEST_F(Meter, ACopyOfAFrameOfAnEarlierMeasurementIsADuplicate) {
  meter_.begin(0, 0);
  arrive(0, 9);
  end(10, at(9));
  meter_.begin(10, at(9));
  arrive(10, 14);
  meter_.arrived(3, at(15));
  EXPECT_EQ(end(15, at(15)).duplicates, 1U);
}

TEST_F(Meter, ACopyThatArrivesBetweenTwoMeasurementsCountsInTheNext) {
  meter_.begin(0, 0);
  arrive(0, 9);
  EXPECT_EQ(end(10, at(9)).duplicates, 0U);
  meter_.arrived(3, at(10));
  meter_.begin(10, at(10));
  arrive(10, 14);
  EXPECT_EQ(end(15, at(14)).duplicates, 1U);
}

TEST_F(Meter, AGapThatBeginsAfterTheMeasurementWasClosedDoesNotCount) {
  meter_.begin(0, 0);
  arrive(0, 9);
  meter_.close(at(9));
  arrive(10, 10);
  arrive(40, 40);
  EXPECT_EQ(meter_.end(10).outage_ns, 1 * kMs);
}

TEST_F(Meter, AFirstArrivalBehindAHigherNumberIsReordered) {
  meter_.begin(0, 0);
  for (const uint64_t number : {0, 1, 4, 2, 3, 5}) {
    meter_.arrived(number, at(number));
  }
  const DirectionResult result = end(6, at(5));
  EXPECT_EQ(result.reordered, 2U);
  EXPECT_EQ(result.duplicates, 0U);
  EXPECT_EQ(result.lost, 0U);
}

TEST_F(Meter, AFrameOfTheNextMeasurementDoesNotMakeUpForALostOne) {
  meter_.begin(0, 0);
  arrive(0, 8);
  meter_.arrived(10, at(10));
  EXPECT_EQ(end(10, at(10)).lost, 1U);
  meter_.begin(10, at(10));
  arrive(11, 14);
  const DirectionResult next = end(15, at(14));
  EXPECT_EQ(next.lost, 0U) << "frame 10 arrived before its measurement began";
  EXPECT_EQ(next.sent, 5U);
}

TEST_F(Meter, IsCompleteWhenEverythingBelowHasArrived) {
  meter_.begin(0, 0);
  arrive(0, 4);
  EXPECT_TRUE(meter_.is_complete(5));
  EXPECT_FALSE(meter_.is_complete(6));
  meter_.arrived(6, at(6));
  EXPECT_FALSE(meter_.is_complete(7));
  meter_.arrived(5, at(6));
  EXPECT_TRUE(meter_.is_complete(7));
}

TEST_F(Meter, OldFramesAreForgottenWithoutHarm) {
  constexpr uint64_t kFar = 1000000;
  meter_.begin(0, 0);
  arrive(0, 99);
  end(100, at(99));
  meter_.begin(kFar, at(kFar));
  arrive(kFar, kFar + 9);
  meter_.arrived(7, at(kFar + 9));
  const DirectionResult result = end(kFar + 10, at(kFar + 9));
  EXPECT_EQ(result.lost, 0U);
  EXPECT_EQ(result.duplicates, 1U) << "a frame of long ago is no first arrival";
}

}  // namespace
}  // namespace erps::lab
