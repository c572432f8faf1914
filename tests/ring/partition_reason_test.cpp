// Each surprise that keeps a ring split, and what comes near it and is none.
#include "sim/checks/partition_reason.h"

#include <gmock/gmock.h>

#include "sim/checks/surprises.h"

namespace erps::sim {

namespace {

using testing::Contains;
using testing::ElementsAre;
using testing::IsEmpty;
using testing::StrEq;

constexpr uint8_t kNr = 0;
constexpr uint8_t kMs = 7;
constexpr uint8_t kSf = 11;
constexpr uint8_t kFs = 13;
constexpr uint8_t kEvent = 14;

// Four nodes, links 0-1, 1-2, 2-3 and the RPL 3-0; node 0 is the owner, node 3 the neighbour. At
// home first.
class SplitRing : public testing::Test {
 protected:
  explicit SplitRing(uint32_t holdoff_ms = 0)
      : topology(make_ring({.ring_role = 1, .holdoff_ms = holdoff_ms})) {
    now.forwarding.powered.assign(4, true);
    now.dead.assign(4, false);
    now.carriers.assign(8, true);
    for (NodeIndex node = 0; node < 4; ++node) {
      const RingConfig& config = topology.nodes[node].rings[0];
      RingSnapshot ring;
      ring.ring = config.ring;
      ring.ring_role = config.ring_role;
      ring.node_role = config.node_role;
      ring.enabled = true;
      ring.local_node_id = topology.nodes[node].address;
      const bool at_rpl = config.node_role != 4;
      ring.ports = {PortSnapshot{config.port0, true, false, true, true, 0, {}, 0},
                    PortSnapshot{config.port1, true, at_rpl, true, !at_rpl, 0, {}, 0}};
      enter(ring, RingState::kIdle);
      now.rings.push_back({ring});
    }
    say(0, kNr, true);
    for (LinkIndex link = 0; link < 4; ++link) {
      now.forwarding.arcs.push_back({link, link, (link + 1) % 4, true, true});
      now.forwarding.arcs.push_back({link, (link + 1) % 4, link, true, true});
    }
  }

  static void enter(RingSnapshot& ring, RingState state) {
    ring.state = static_cast<uint32_t>(state);
  }
  RingSnapshot& ring(NodeIndex node) { return now.rings[node][0]; }
  PortSnapshot& port(NodeIndex node, uint32_t number) {
    auto& ports = ring(node).ports;
    return ports[0].port == number ? ports[0] : ports[1];
  }
  void enter_all(RingState state) {
    for (NodeIndex node = 0; node < 4; ++node) {
      enter(ring(node), state);
      ring(node).sending = false;
    }
  }
  void set_local(NodeIndex node, RingRequest request) {
    ring(node).local_priority = static_cast<uint32_t>(request);
  }
  void say(NodeIndex node, uint8_t code, bool rb = false) {
    ring(node).sending = true;
    ring(node).tx_request = code;
    ring(node).tx_rb = rb;
  }

  void stop_carrying(LinkIndex link) {
    now.forwarding.arcs[2 * link].works = now.forwarding.arcs[2 * link + 1].works = false;
  }
  void see_failure(NodeIndex node, uint32_t number) {
    port(node, number).link_up = port(node, number).forwarding = false;
    set_local(node, RingRequest::kSf);
    enter(ring(node), RingState::kProtection);
    say(node, kSf);
  }
  // Seen and told of by both ends.
  void cut(LinkIndex link) {
    stop_carrying(link);
    now.carriers[2 * link] = now.carriers[2 * link + 1] = false;
    see_failure(link, 2);
    see_failure((link + 1) % 4, 1);
  }

  PartitionReason reason() {
    now.open.clear();
    for (const LinkPlan& link : topology.links) {
      for (const LinkEnd& end : link.ends) {
        now.open.push_back(port(end.node, end.port).forwarding);
      }
    }
    close_arcs();
    const auto rings = now.rings;
    for (NodeIndex node = 0; node < 4; ++node) {
      if (now.dead[node] || is_starting[node]) {
        now.rings[node].clear();
      }
    }
    PartitionReason found = reason_of(topology, now);
    now.rings = rings;
    return found;
  }
  std::vector<std::string> surprises() {
    const PartitionReason found = reason();
    EXPECT_FALSE(found.is_unheard);
    return {found.surprises.begin(), found.surprises.end()};
  }

  const Topology topology;
  Circumstances now;
  std::array<bool, 4> is_starting{};

 private:
  void close_arcs() {
    for (size_t i = 0; i < now.forwarding.arcs.size(); ++i) {
      Arc& arc = now.forwarding.arcs[i];
      const size_t end = i & ~size_t{1};
      arc.forwards = arc.works && now.open[end] && now.open[end + 1];
    }
  }
};

class SplitRingWithHoldoff : public SplitRing {
 protected:
  SplitRingWithHoldoff() : SplitRing(1000) {}
};

}  // namespace

TEST_F(SplitRing, LastsUntilTheFailureIsHeard) {
  cut(1);
  const PartitionReason found = reason();
  EXPECT_TRUE(found.is_unheard);
  EXPECT_THAT(found.concerned, Contains(NodeIndex{0}));
  // Nobody says it.
  ring(1).sending = ring(2).sending = false;
  EXPECT_THAT(surprises(), IsEmpty());
}

TEST_F(SplitRing, LastsWhileAModuleIsDead) {
  cut(1);
  now.dead[0] = true;
  EXPECT_THAT(surprises(), ElementsAre(surprise::kNoModule));
  // One that starts comes by itself.
  now.dead[0] = false;
  is_starting[0] = true;
  EXPECT_THAT(surprises(), IsEmpty());
}

TEST_F(SplitRing, LastsWhileNoCarrierTells) {
  stop_carrying(1);
  EXPECT_THAT(surprises(), ElementsAre(surprise::kSilentFailure));
  // The carriers do tell, and the nodes do not mind.
  now.carriers[2] = now.carriers[3] = false;
  EXPECT_THAT(surprises(), IsEmpty());
}

// Node 2 hears neither neighbour, and they hear it.
TEST_F(SplitRing, LastsWhileTheEndsWithACarrierDoNotKnow) {
  now.forwarding.arcs[2].works = now.forwarding.arcs[5].works = false;
  now.carriers[3] = now.carriers[4] = false;
  see_failure(2, 1);
  port(2, 2).link_up = port(2, 2).forwarding = false;
  EXPECT_THAT(surprises(), ElementsAre(surprise::kSilentFailure));
  // Their carriers are gone, and they do not mind.
  now.carriers[2] = now.carriers[5] = false;
  EXPECT_THAT(surprises(), IsEmpty());
}

// Node 1 knows of one failure and not of the other, and sends on: to a port whose carrier is gone.
TEST_F(SplitRing, LastsWhereANodeSendsThroughAPortWithoutACarrier) {
  now.forwarding.arcs[0].works = now.forwarding.arcs[3].works = false;
  see_failure(1, 1);
  now.carriers[1] = false;
  EXPECT_TRUE(reason().is_unheard);
  now.carriers[2] = false;
  EXPECT_THAT(surprises(), ElementsAre(surprise::kSilentFailure));
}

TEST_F(SplitRing, LastsWhileAnEventIsRepeated) {
  enter(ring(1), RingState::kPending);
  port(1, 2).forwarding = false;
  say(1, kNr);
  say(0, kEvent);
  EXPECT_THAT(surprises(), ElementsAre(surprise::kEventRepeated));
  ring(0).sending = false;
  EXPECT_THAT(surprises(), IsEmpty());
}

TEST_F(SplitRing, LastsWhileTheOwnerWaits) {
  enter_all(RingState::kPending);
  port(3, 2).forwarding = true;
  port(1, 2).forwarding = false;
  say(1, kNr);
  set_local(0, RingRequest::kWtr);
  EXPECT_THAT(surprises(), ElementsAre(surprise::kOutranked));
  // Not in pending.
  enter(ring(0), RingState::kIdle);
  EXPECT_THAT(surprises(), IsEmpty());
}

TEST_F(SplitRing, NeverComesHomeWhenItsOwnerWaitsForNothing) {
  enter_all(RingState::kPending);
  port(0, 1).forwarding = port(3, 2).forwarding = true;
  reason();
  EXPECT_THAT(why_never_home(topology, now), ElementsAre(StrEq(surprise::kNobodyWaits)));
  ring(0).revertive = false;
  EXPECT_THAT(why_never_home(topology, now), ElementsAre(StrEq(surprise::kNonRevertive)));
  enter(ring(0), RingState::kIdle);
  EXPECT_THAT(why_never_home(topology, now), IsEmpty());
}

TEST_F(SplitRing, NeverComesHomeWhenANodeHeardNoNr) {
  enter(ring(1), RingState::kProtection);
  reason();
  EXPECT_THAT(why_never_home(topology, now), ElementsAre(StrEq(surprise::kNoNr)));
  set_local(1, RingRequest::kMs);
  EXPECT_THAT(why_never_home(topology, now), ElementsAre(StrEq(surprise::kManualOutlives)));
  set_local(1, RingRequest::kSf);
  EXPECT_THAT(why_never_home(topology, now), IsEmpty());
}

TEST_F(SplitRing, LastsWhileASwitchIsForcedBesideAFailure) {
  cut(0);
  enter_all(RingState::kForced);
  port(0, 1).forwarding = port(3, 2).forwarding = true;
  port(2, 2).forwarding = false;
  set_local(2, RingRequest::kFs);
  say(2, kFs);
  EXPECT_THAT(surprises(), ElementsAre(surprise::kForcedSplit));
  // It was cleared: the command is gone and the message is not.
  set_local(2, RingRequest::kNothing);
  EXPECT_THAT(surprises(), ElementsAre(surprise::kForcedStuck));
  // That is gone, too, and nobody has told of the failure since.
  ring(2).sending = false;
  EXPECT_THAT(surprises(), ElementsAre(surprise::kForcedLeft));
  // Nobody is forced, and who blocks has no reason.
  enter_all(RingState::kIdle);
  cut(0);
  ring(0).sending = ring(1).sending = false;
  EXPECT_THAT(surprises(), IsEmpty());
}

TEST_F(SplitRing, LastsWhileAManualSwitchStands) {
  enter_all(RingState::kManual);
  port(0, 1).forwarding = port(3, 2).forwarding = true;
  port(1, 2).forwarding = false;
  set_local(1, RingRequest::kMs);
  say(1, kMs);
  port(0, 2).forwarding = false;
  set_local(0, RingRequest::kMs);
  say(0, kMs);
  EXPECT_TRUE(reason().is_unheard);  // of two that meet, both end
  ring(0).sending = ring(1).sending = false;
  EXPECT_THAT(surprises(), ElementsAre(surprise::kManualSplit));
  set_local(0, RingRequest::kNothing);
  set_local(1, RingRequest::kNothing);
  EXPECT_THAT(surprises(), Not(Contains(StrEq(surprise::kManualSplit))));
}

TEST_F(SplitRing, LastsWhileAManualSwitchThatWasClearedIsRepeated) {
  enter_all(RingState::kManual);
  port(0, 1).forwarding = port(3, 2).forwarding = true;
  enter(ring(1), RingState::kPending);
  port(1, 1).forwarding = port(1, 2).forwarding = false;
  say(1, kMs);
  EXPECT_THAT(surprises(), ElementsAre(surprise::kManualStuck));
  set_local(1, RingRequest::kMs);
  EXPECT_THAT(surprises(), Not(Contains(StrEq(surprise::kManualStuck))));
}

TEST_F(SplitRing, LastsWhileASwitchDoesNotDoAsItIsTold) {
  reason();
  now.open[2] = false;
  now.forwarding.arcs[2].forwards = now.forwarding.arcs[3].forwards = false;
  EXPECT_THAT(reason_of(topology, now).surprises, ElementsAre(StrEq(surprise::kCallFailed)));
}

TEST_F(SplitRingWithHoldoff, LastsWhenASecondFailureEndsTheHoldoffOfTheFirst) {
  stop_carrying(1);
  now.carriers[2] = now.carriers[3] = false;
  EXPECT_THAT(surprises(), ElementsAre(surprise::kHoldoffEnded));
  // It is told when the hold-off is over.
  ring(1).holdoff_running = ring(2).holdoff_running = true;
  EXPECT_THAT(surprises(), IsEmpty());
}

TEST_F(SplitRingWithHoldoff, LastsWhenTheHoldoffTellsOfALinkThatIsBack) {
  cut(3);
  see_failure(1, 2);
  for (const NodeIndex node : {0U, 3U}) {
    port(node, node == 0 ? 2 : 1).forwarding = true;
  }
  enter(ring(2), RingState::kProtection);
  EXPECT_THAT(surprises(), ElementsAre(surprise::kHoldoffLate));
  // There is no carrier: it is down.
  now.carriers[2] = false;
  EXPECT_THAT(surprises(), IsEmpty());
}

// With a single sub-ring there are no marks of another one, and a failure that is not counted is
// nothing but that.
TEST(SplitLadder, HasNoMarksToTellApart) {
  constexpr NodeIndex kWatchingNode = 1;
  const Topology topology = make_ladder({});
  const auto ring_of = [&](NodeIndex node) {
    RingSnapshot ring;
    ring.ring = topology.nodes[node].rings[0].ring;
    ring.local_node_id = topology.nodes[node].address;
    return ring;
  };
  Hearing::Rings rings(topology.nodes.size());
  rings[0] = {ring_of(0)};
  rings[0][0].sending = true;
  rings[0][0].tx_request = kSf;
  rings[kWatchingNode] = {ring_of(kWatchingNode)};
  rings[kWatchingNode][0].ports[0].rx_node_id = topology.nodes[0].address;
  const Circumstances now;
  const auto suppose_it = [&](bool (*suppose_not)(Supposition&)) {
    const Strands none(topology, {});
    Supposition suppose{topology, now, Hearing(topology, none), false, false};
    suppose.hearing.begin(rings);
    const bool is_so = suppose_not(suppose);
    EXPECT_EQ(suppose.hearing.rings != rings, is_so);
    return is_so;
  };
  EXPECT_TRUE(suppose_it(suppose_failures_counted));
  EXPECT_FALSE(suppose_it(suppose_marks_told_apart));
}

}  // namespace erps::sim
