#include "bench/random_faults.h"

namespace erps::bench {

using sim::LinkIndex;
using sim::NodeIndex;

void RandomFaults::start() {
  simulation_.at(simulation_.now_us() + period_us_, [this] { strike(); });
}

// Seven in ten hit a link, one a node, two are an operator's switch.
void RandomFaults::strike() {
  const int64_t heals_us = simulation_.now_us() + chance_.in({period_us_ / 20, period_us_ / 2});
  const size_t kind = draw(10);
  if (kind < 7) {
    strike_link(heals_us);
  } else if (kind == 7) {
    strike_node(heals_us);
  } else {
    command(heals_us);
  }
  start();
}

void RandomFaults::strike_link(int64_t heals_us) {
  const LinkIndex link = draw(simulation_.topology().links.size());
  simulation_.cut(link);
  simulation_.at(heals_us, [this, link] { simulation_.restore(link); });
}

void RandomFaults::strike_node(int64_t heals_us) {
  const NodeIndex node = draw(simulation_.topology().nodes.size());
  simulation_.crash(node);
  simulation_.at(heals_us, [this, node] { simulation_.restart(node); });
}

void RandomFaults::command(int64_t heals_us) {
  const NodeIndex node = draw(simulation_.topology().nodes.size());
  const auto& rings = simulation_.topology().nodes[node].rings;
  if (rings.empty()) {
    return;
  }
  const sim::RingConfig& ring = rings[draw(rings.size())];
  const auto code = draw(2) == 0 ? mgmt::kForcedSwitch : mgmt::kManualSwitch;
  simulation_.ask(node, sim::make_request(code, {ring.ring, ring.port0}));
  simulation_.at(heals_us, [this, node, id = ring.ring] {
    simulation_.ask(node, sim::make_request(mgmt::kClear, {id}));
  });
}

}  // namespace erps::bench
