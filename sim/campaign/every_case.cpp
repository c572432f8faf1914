#include "sim/campaign/every_case.h"

#include <algorithm>

#include "sim/checks/convergence.h"
#include "sim/simulation.h"

namespace erps::sim {

namespace {

// Between two changes: long enough for every node to have seen every repetition.
constexpr int64_t kSettledUs = 8 * kSecondUs;

class Counting {
 public:
  Counting(const Topology& topology, const Names& names, uint64_t seed)
      : topology_(topology), names_(names), seed_(seed), first_us_(home_bound_us(topology)) {
    std::vector<bool> in_ring(topology.nodes.size());
    for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
      in_ring[node] =
          !topology.nodes[node].rings.empty() || !topology.nodes[node].sub_rings.empty();
      if (in_ring[node]) {
        Fault crash;
        crash.kind = FaultKind::kCrash;
        crash.node = node;
        crashes_.push_back(crash);
      }
    }
    for (LinkIndex link = 0; link < topology.links.size(); ++link) {
      if (is_ring_port(topology.links[link].ends[0])) {
        Fault cut;
        cut.link = link;
        cuts_.push_back(cut);
      }
    }
  }

  const std::vector<Fault>& cuts() const { return cuts_; }
  const std::vector<Fault>& crashes() const { return crashes_; }

  void add_single(Fault fault) {
    fault.at_us = first_us_;
    fault.lasts_us = kSettledUs;
    add({fault});
  }

  // The second one comes `after_us` behind the first one; the first one ends first, or last.
  void add_pair(Fault one, Fault other, int64_t after_us, bool first_ends_first) {
    one.at_us = first_us_;
    other.at_us = first_us_ + after_us;
    const int64_t early_us = other.at_us + kSettledUs;
    const int64_t late_us = early_us + 2 * kSettledUs;
    one.lasts_us = (first_ends_first ? early_us : late_us) - one.at_us;
    other.lasts_us = (first_ends_first ? late_us : early_us) - other.at_us;
    add({one, other});
  }

  std::vector<Case> take() { return std::move(cases_); }

 private:
  bool is_ring_port(const LinkEnd& end) const {
    const NodePlan& node = topology_.nodes[end.node];
    return std::any_of(node.rings.begin(), node.rings.end(),
                       [&](const RingConfig& ring) {
                         return ring.port0 == end.port || ring.port1 == end.port;
                       }) ||
           std::any_of(node.sub_rings.begin(), node.sub_rings.end(),
                       [&](const SubRingConfig& ring) { return ring.port == end.port; });
  }

  void add(std::vector<Fault> faults) {
    Case counted;
    counted.topology = topology_;
    counted.names = names_;
    counted.options.seed = seed_;
    for (const Fault& fault : faults) {
      counted.title += (counted.title.empty() ? "" : ", then ") + fault_text(counted, fault);
      counted.scenario.quiet_us = std::max(counted.scenario.quiet_us, fault.until_us());
    }
    counted.scenario.faults = std::move(faults);
    cases_.push_back(std::move(counted));
  }

  const Topology& topology_;
  const Names& names_;
  const uint64_t seed_;
  const int64_t first_us_;
  std::vector<Fault> cuts_;
  std::vector<Fault> crashes_;
  std::vector<Case> cases_;
};

}  // namespace

std::vector<Case> every_case(const Topology& topology, const Names& names, uint64_t seed,
                             const EveryPlan& plan) {
  Counting counting(topology, names, seed);
  const auto& cuts = counting.cuts();
  const auto& crashes = counting.crashes();
  if (plan.links || plan.pairs) {
    for (const Fault& cut : cuts) {
      counting.add_single(cut);
    }
  }
  if (plan.nodes || plan.pairs) {
    for (const Fault& crash : crashes) {
      counting.add_single(crash);
    }
  }
  if (!plan.pairs) {
    return counting.take();
  }
  std::vector<Fault> all = cuts;
  all.insert(all.end(), crashes.begin(), crashes.end());
  for (size_t one = 0; one < all.size(); ++one) {
    for (size_t other = 0; other < all.size(); ++other) {
      const bool two_crashes = one >= cuts.size() && other >= cuts.size();
      if (one == other || two_crashes) {
        continue;
      }
      counting.add_pair(all[one], all[other], kSettledUs, true);
      counting.add_pair(all[one], all[other], kSettledUs, false);
      if (one < other) {  // at the same instant
        counting.add_pair(all[one], all[other], 0, true);
      }
    }
  }
  return counting.take();
}

}  // namespace erps::sim
