// How much of an outage a machine's own pauses cover.
#include "lab/pauses.h"

#include <gtest/gtest.h>

#include <utility>

namespace erps::lab {
namespace {

using Pairs = std::vector<std::pair<int64_t, int64_t>>;

Pairs as_pairs(const std::vector<Span>& spans) {
  Pairs pairs;
  pairs.reserve(spans.size());
  for (const Span& span : spans) {
    pairs.emplace_back(span.from_ns, span.to_ns);
  }
  return pairs;
}

TEST(Pauses, OfSeveralProcessorsAreCountedOnceWhereTheyOverlap) {
  EXPECT_EQ(as_pairs(merged({{50, 60}, {10, 30}, {20, 25}, {28, 40}, {40, 41}})),
            (Pairs{{10, 41}, {50, 60}}));
  EXPECT_EQ(as_pairs(merged({})), Pairs{});
}

TEST(Pauses, CountOnlyWhereTheyLieInTheSpan) {
  const std::vector<Span> pauses{{0, 10}, {20, 30}, {40, 50}, {60, 70}};
  EXPECT_EQ(covered_ns({25, 45}, pauses), 5 + 5);
  EXPECT_EQ(covered_ns({22, 24}, pauses), 2);
  EXPECT_EQ(covered_ns({10, 20}, pauses), 0);
  EXPECT_EQ(covered_ns({0, 100}, pauses), 40);
  EXPECT_EQ(covered_ns({70, 100}, pauses), 0);
  EXPECT_EQ(covered_ns({0, 100}, {}), 0);
}

TEST(Pauses, TheLongestIsFound) {
  EXPECT_EQ(longest_ns({{0, 10}, {20, 35}, {40, 41}}), 15);
  EXPECT_EQ(longest_ns({}), 0);
}

TEST(PauseLog, TellsOnceOfEachPauseThatIsNotTooShort) {
  PauseLog log;
  log.add({0, kShortestPauseNs - 1});
  log.add({1, 1 + kShortestPauseNs});
  log.add({9, 5});  // no time at all
  EXPECT_EQ(as_pairs(log.take()), (Pairs{{1, 1 + kShortestPauseNs}}));
  EXPECT_TRUE(log.take().empty());
}

}  // namespace
}  // namespace erps::lab
