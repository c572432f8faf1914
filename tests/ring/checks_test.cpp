// The checkers know a loop and a partition when they see one.
#include <gtest/gtest.h>

#include "sim/checks/graph.h"
#include "sim/checks/spells.h"

namespace erps::sim {

namespace {

// A ring of four nodes, everything working and forwarding.
Forwarding ring_of_four() {
  Forwarding forwarding;
  forwarding.powered.assign(4, true);
  for (LinkIndex link = 0; link < 4; ++link) {
    const NodeIndex next = (link + 1) % 4;
    forwarding.arcs.push_back({link, link, next, true, true});
    forwarding.arcs.push_back({link, next, link, true, true});
  }
  return forwarding;
}

void block(Forwarding& forwarding, LinkIndex link) {
  forwarding.arcs[2 * link].forwards = false;
  forwarding.arcs[2 * link + 1].forwards = false;
}

}  // namespace

TEST(Checks, AnOpenRingIsALoopAndOneWithABlockIsNot) {
  Forwarding ring = ring_of_four();
  EXPECT_TRUE(has_loop(ring));
  EXPECT_FALSE(has_partition(ring));
  block(ring, 2);
  EXPECT_FALSE(has_loop(ring));
  EXPECT_FALSE(has_partition(ring));
}

TEST(Checks, OneDirectionAroundIsALoop) {
  Forwarding ring = ring_of_four();
  for (LinkIndex link = 0; link < 4; ++link) {
    ring.arcs[2 * link].forwards = false;
  }
  EXPECT_TRUE(has_loop(ring));
  ring.arcs[1].forwards = false;
  EXPECT_FALSE(has_loop(ring));
}

TEST(Checks, TwoParallelLinksAreALoopAndOneLinkIsNot) {
  Forwarding pair;
  pair.powered.assign(2, true);
  for (LinkIndex link = 0; link < 2; ++link) {
    pair.arcs.push_back({link, 0, 1, true, true});
    pair.arcs.push_back({link, 1, 0, true, true});
  }
  EXPECT_TRUE(has_loop(pair));
  block(pair, 0);
  EXPECT_FALSE(has_loop(pair));
}

TEST(Checks, TwoBlocksAreAPartitionUntilALinkIsCutToo) {
  Forwarding ring = ring_of_four();
  block(ring, 0);
  block(ring, 2);
  EXPECT_TRUE(has_partition(ring));
  for (const LinkIndex link : {LinkIndex{0}, LinkIndex{2}}) {
    ring.arcs[2 * link].works = false;
    ring.arcs[2 * link + 1].works = false;
  }
  EXPECT_FALSE(has_partition(ring));  // no block is to blame for it
}

TEST(Checks, ALinkThatForwardsOneWayOnlyJoinsNobody) {
  Forwarding ring = ring_of_four();
  block(ring, 0);
  ring.arcs[4].forwards = false;
  EXPECT_TRUE(has_partition(ring));
}

TEST(Checks, SpellsMeasureFromTheFirstToTheLastInstant) {
  Spells spells;
  spells.set(10, true);
  spells.set(15, true);
  spells.set(30, false);
  spells.set(40, true);
  EXPECT_EQ(spells.longest_us(0, 45), 20);
  EXPECT_EQ(spells.longest_us(30, 45), 5);
  EXPECT_EQ(spells.longest_us(0, 100), 60);
  EXPECT_TRUE(spells.holds());
}

}  // namespace erps::sim
