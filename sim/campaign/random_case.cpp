#include "sim/campaign/random_case.h"

#include <algorithm>
#include <string>
#include <vector>

#include "sim/campaign/random_network.h"
#include "sim/simulation.h"

namespace erps::sim {

namespace {

constexpr int64_t kMinuteUs = 60 * kSecondUs;
constexpr int64_t kLongestStallUs = 2 * kSecondUs;
// Each power of ten as likely as the next.
int64_t of_any_size(Random& chance, std::initializer_list<int64_t> bounds) {
  const auto* low = bounds.begin() + chance.in({0, static_cast<int64_t>(bounds.size()) - 2});
  return chance.in({*low, *(low + 1)});
}

uint32_t share(Random& chance) {
  return static_cast<uint32_t>(of_any_size(chance, {0, 1000, 30'000, 300'000}));
}

// A port of a ring and the ring that an operator names with it.
struct RingPort {
  NodeIndex node = 0;
  uint32_t ring = 0;
  uint32_t port = 0;
};

class FaultDraw {
 public:
  FaultDraw(Random& chance, const Topology& topology) : chance_(chance), topology_(topology) {
    for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
      for (const RingConfig& ring : topology.nodes[node].rings) {
        ring_ports_.push_back({node, ring.ring, ring.port0});
        ring_ports_.push_back({node, ring.ring, ring.port1});
      }
      for (const SubRingConfig& ring : topology.nodes[node].sub_rings) {
        ring_ports_.push_back({node, ring.ring, ring.port});
      }
    }
    // Links fail in every scenario, half of the other kinds do in each.
    menu_ = {FaultKind::kCut};
    for (size_t kind = 1; kind < kFaultKinds; ++kind) {
      if (chance.in({0, 1}) == 1) {
        menu_.push_back(static_cast<FaultKind>(kind));
      }
    }
  }

  Fault draw(int64_t at_us, int64_t longest_us) {
    Fault fault;
    fault.kind = pick(menu_);
    fault.at_us = at_us;
    fault.lasts_us =
        std::min(longest_us, of_any_size(chance_, {kMillisecondUs, 100 * kMillisecondUs, kSecondUs,
                                                   10 * kSecondUs, kMinuteUs, 3 * kMinuteUs}));
    switch (fault.kind) {
      case FaultKind::kDisturbance:
        fault.raps = {share(chance_), share(chance_), share(chance_)};
        [[fallthrough]];
      case FaultKind::kCut:
      case FaultKind::kOneWay:
      case FaultKind::kSilentOneWay:
        fault.link = index_in(topology_.links.size());
        fault.end = fault.kind == FaultKind::kCut ? 0 : index_in(2);
        break;
      case FaultKind::kCrash:
      case FaultKind::kKill:
        fault.node = index_in(topology_.nodes.size());
        break;
      case FaultKind::kSlow:
        fault.node = index_in(topology_.nodes.size());
        fault.factor = static_cast<uint32_t>(chance_.in({2, 50}));
        break;
      case FaultKind::kStall:
        fault.node = index_in(topology_.nodes.size());
        fault.lasts_us = std::min(fault.lasts_us, kLongestStallUs);
        break;
      case FaultKind::kFailingCalls:
        fault.node = index_in(topology_.nodes.size());
        fault.call = pick(survivable_);
        fault.times = static_cast<uint64_t>(chance_.in({1, 10}));
        break;
      case FaultKind::kForcedSwitch:
      case FaultKind::kManualSwitch: {
        const RingPort at = pick(ring_ports_);
        fault.node = at.node;
        fault.ring = at.ring;
        fault.port = at.port;
        break;
      }
    }
    return fault;
  }

 private:
  size_t index_in(size_t count) {
    return static_cast<size_t>(chance_.in({0, static_cast<int64_t>(count) - 1}));
  }
  template <typename Item>
  Item pick(const std::vector<Item>& items) {
    return items[index_in(items.size())];
  }

  Random& chance_;
  const Topology& topology_;
  // What fails in these is made up for by a repetition. A port that cannot be blocked, or a timer
  // that cannot be had, stays as it is.
  const std::vector<std::string> survivable_{"adp_transmit_frame", "adp_receive_frame"};
  std::vector<FaultKind> menu_;
  std::vector<RingPort> ring_ports_;
};

Scenario random_scenario(Random& chance, const Topology& topology,
                         std::optional<int64_t> fault_every_us) {
  const int64_t end_us = chance.in({10, 60}) * kMinuteUs;
  const int64_t drawn_us =
      of_any_size(chance, {2 * kSecondUs, 10 * kSecondUs, kMinuteUs, 2 * kMinuteUs});
  const int64_t mean_us = fault_every_us.value_or(drawn_us);
  FaultDraw faults(chance, topology);
  Scenario scenario;
  for (int64_t at_us = chance.in({0, 2 * kMinuteUs}); at_us < end_us;
       at_us += chance.in({1, 2 * mean_us})) {
    scenario.faults.push_back(faults.draw(at_us, 3 * mean_us));
    scenario.quiet_us = std::max(scenario.quiet_us, scenario.faults.back().until_us());
  }
  scenario.quiet_us = std::max(scenario.quiet_us, end_us) + kSecondUs;
  return scenario;
}

Random chance_of(uint64_t seed, uint64_t number) {
  // Far from the streams that a simulation draws from.
  constexpr uint64_t kStream = 1'000'003;
  return {Random(seed, kStream).next(), number};
}

Case finish(Random& chance, Case drawn, uint64_t number, std::optional<int64_t> fault_every_us) {
  drawn.title = "scenario " + std::to_string(number);
  drawn.options.seed = chance.next() >> 1U;  // a TOML integer, too
  drawn.scenario = random_scenario(chance, drawn.topology, fault_every_us);
  return drawn;
}

}  // namespace

Case random_ring_case(uint64_t seed, uint64_t number, Range nodes,
                      std::optional<int64_t> fault_every_us) {
  Random chance = chance_of(seed, number);
  Case drawn;
  drawn.topology = random_network(chance, nodes);
  drawn.names = names_of(drawn.topology);
  return finish(chance, std::move(drawn), number, fault_every_us);
}

Case random_case(const Topology& topology, const Names& names, uint64_t seed, uint64_t number,
                 std::optional<int64_t> fault_every_us) {
  Random chance = chance_of(seed, number);
  Case drawn;
  drawn.topology = topology;
  drawn.names = names;
  return finish(chance, std::move(drawn), number, fault_every_us);
}

}  // namespace erps::sim
