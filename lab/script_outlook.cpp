#include "lab/script_outlook.h"

#include <algorithm>

#include "lab/topology_checks.h"

namespace erps::lab {

namespace {

// R-APS messages are repeated this often; a lost one costs as much.
constexpr uint32_t kRepeatMs = 5000;
// Guard and other timers run on a one-second tick, which may come a second late.
constexpr uint32_t kTickMs = 1000;
// Above the guard time, how long a ring waits before it blocks again after a clear.
constexpr uint32_t kWtbAboveGuardMs = 5000;
// For everything that takes its time on a loaded machine.
constexpr uint32_t kMarginMs = 5000;

// What stands at one moment of the script.
class Network {
 public:
  explicit Network(const Topology& topology)
      : topology_(topology),
        is_cut_(topology.links.size()),
        daemon_runs_(topology.nodes.size(), true),
        forced_(topology.rings.size()),
        manual_(topology.rings.size()),
        known_(topology.rings.size()) {
    for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
      daemon_runs_[node] = !topology.rings_at(node).empty();
    }
  }

  const std::vector<LinkIndex>& cut() const { return cut_; }
  // Of each node, the number of the part of the network that it is in.
  std::vector<size_t> parts() const {
    std::vector<bool> usable = is_cut_;
    usable.flip();
    return components(topology_, usable);
  }
  const std::vector<bool>& daemon_runs() const { return daemon_runs_; }

  // What is wrong with doing this now, or an empty text.
  std::string apply(const Step& step) {
    switch (step.action) {
      case Action::kCut:
        return apply_cut(step);
      case Action::kRestore:
        return apply_restore(step);
      case Action::kForcedSwitch:
      case Action::kManualSwitch:
        return apply_switch(step);
      case Action::kClear:
        return apply_clear(step);
      case Action::kKill:
        if (!daemon_runs_[step.node]) {
          return "its daemon does not run at this point of the script";
        }
        daemon_runs_[step.node] = false;
        return {};
      case Action::kStart:
        if (daemon_runs_[step.node]) {
          return "its daemon runs at this point of the script";
        }
        daemon_runs_[step.node] = true;
        return {};
      case Action::kWait:
        return {};
    }
    return {};
  }

  // Killing a daemon or waiting changes nothing; anything else is derived anew.
  RingOutlook outlook(RingIndex index, const Step* step) {
    const bool passive =
        step != nullptr && (step->action == Action::kKill || step->action == Action::kWait);
    if (!passive) {
      known_[index] = derive(index, step == nullptr);
    }
    return known_[index];
  }

  void set_known(RingIndex index, const RingOutlook& outlook) { known_[index] = outlook; }

  bool daemons_complete(const Ring& ring) const {
    return std::all_of(ring.nodes.begin(), ring.nodes.end(),
                       [&](NodeIndex node) { return daemon_runs_[node]; });
  }

 private:
  std::string apply_cut(const Step& step) {
    for (const LinkIndex link : step.links) {
      if (is_cut_[link]) {
        return "link " + topology_.links[link].name + " is cut already at this point of the script";
      }
    }
    for (const LinkIndex link : step.links) {
      cut_.push_back(link);
      is_cut_[link] = true;
    }
    for (RingIndex ring = 0; ring < manual_.size(); ++ring) {
      if (!cut_links(topology_.rings[ring]).empty()) {
        manual_[ring].reset();  // a failed link outranks a manual switch, which does not come back
      }
    }
    return {};
  }

  std::string apply_restore(const Step& step) {
    for (const LinkIndex link : step.links) {
      if (!is_cut_[link]) {
        return "link " + topology_.links[link].name + " is not cut at this point of the script";
      }
      cut_.erase(std::find(cut_.begin(), cut_.end(), link));
      is_cut_[link] = false;
    }
    return {};
  }

  std::string apply_switch(const Step& step) {
    if (forced_[step.ring]) {
      return "a forced switch is in force on the ring at this point of the script";
    }
    if (step.action == Action::kForcedSwitch) {
      forced_[step.ring] = step.port;
      manual_[step.ring].reset();
      return {};
    }
    if (manual_[step.ring] || !cut_links(topology_.rings[step.ring]).empty()) {
      return "a manual switch is refused while the ring is protecting or switched already";
    }
    manual_[step.ring] = step.port;
    return {};
  }

  std::string apply_clear(const Step& step) {
    for (auto* active : {&forced_[step.ring], &manual_[step.ring]}) {
      if (*active && (*active)->node == step.node) {
        active->reset();
        return {};
      }
    }
    return "no switch was commanded at this node and ring at this point of the script";
  }

  std::vector<LinkIndex> cut_links(const Ring& ring) const {
    std::vector<LinkIndex> found;
    for (const LinkIndex link : ring.links) {
      if (is_cut_[link]) {
        found.push_back(link);
      }
    }
    return found;
  }

  // Whether the two interconnection nodes of a sub-ring have lost each other on the major ring.
  bool is_split(const Ring& sub_ring) const {
    std::vector<bool> usable(topology_.links.size());
    for (const LinkIndex link : topology_.rings[*sub_ring.major_ring].links) {
      usable[link] = !is_cut_[link];
    }
    const auto component = components(topology_, usable);
    return component[sub_ring.nodes.front()] != component[sub_ring.nodes.back()];
  }

  // `failed` are the ends of failed links, sorted.
  static RingOutlook isolated_apart(const std::vector<PortRef>& failed) {
    RingOutlook outlook{NodeState::kProtection, std::vector<PortRef>{}, {}};
    for (const PortRef& port : failed) {
      const bool alone = std::count_if(failed.begin(), failed.end(), [&](const PortRef& other) {
                           return other.node == port.node;
                         }) == 1;
      (alone ? *outlook.blocked : outlook.either).push_back(port);
    }
    return outlook;
  }

  RingOutlook derive(RingIndex index, bool at_start) const {
    const Ring& ring = topology_.rings[index];
    const auto failed = cut_links(ring);
    std::vector<PortRef> blocked;
    if (!ring.revertive) {
      return at_start ? RingOutlook{NodeState::kPending, std::nullopt, {}} : RingOutlook{};
    }
    if (forced_[index]) {
      if (!failed.empty()) {
        return {};
      }
      return {NodeState::kForced, std::vector<PortRef>{*forced_[index]}, {}};
    }
    if (!failed.empty()) {
      for (const LinkIndex link : failed) {
        for (const LinkEnd& end : topology_.links[link].ends) {
          blocked.push_back({end.node, link});
        }
      }
      std::sort(blocked.begin(), blocked.end());
      return isolated_apart(blocked);
    }
    if (manual_[index]) {
      return {NodeState::kManual, std::vector<PortRef>{*manual_[index]}, {}};
    }
    if (ring.is_open() && is_split(ring)) {
      return {NodeState::kManual, blocked, {}};  // the sub-ring stands in for its major ring
    }
    blocked.push_back({ring.owner, ring.rpl});
    if (ring.neighbour) {
      blocked.push_back({*ring.neighbour, ring.rpl});
    }
    std::sort(blocked.begin(), blocked.end());
    return {NodeState::kIdle, blocked, {}};
  }

  const Topology& topology_;
  std::vector<LinkIndex> cut_;  // in the order in which they were cut
  std::vector<bool> is_cut_;    // by LinkIndex
  std::vector<bool> daemon_runs_;
  std::vector<std::optional<PortRef>> forced_, manual_;
  std::vector<RingOutlook> known_;
};

uint32_t settle_bound_ms(const Topology& topology) {
  uint32_t bound = 0;
  for (const Ring& ring : topology.rings) {
    const uint32_t wait =
        std::max(ring.timers.wtr_ms, ring.timers.guard_ms + kWtbAboveGuardMs) + kTickMs;
    bound = std::max(bound, ring.timers.holdoff_ms + ring.timers.guard_ms + kTickMs + wait);
  }
  return bound + 2 * kRepeatMs + kMarginMs;
}

// What the file says of a step in place of what was derived.
void apply_file(const Topology& topology, const Step& step, RingIndex ring, RingOutlook& outlook) {
  const auto state = step.state.find(ring);
  if (state != step.state.end()) {
    if (outlook.state != state->second) {
      outlook.blocked.reset();
    }
    outlook.state = state->second;
  }
  if (step.blocked) {
    outlook.blocked.emplace();
    outlook.either.clear();
    for (const PortRef& port : *step.blocked) {
      if (topology.rings[ring].has_link(port.link)) {
        outlook.blocked->push_back(port);
      }
    }
  }
}

void set_bounds(const Topology& topology, const Step& step, StepOutlook& outlook) {
  const TrafficBounds& bounds = topology.bounds;
  if (step.action == Action::kCut) {
    outlook.outage_ms = bounds.cut_outage_ms;
  } else if (step.action == Action::kRestore) {
    outlook.outage_ms = bounds.restore_outage_ms;
  } else if (is_switch(step.action)) {
    outlook.outage_ms = bounds.switch_outage_ms;
  }
  if (step.outage_ms) {
    outlook.outage_ms = step.outage_ms;
  }
  if (step.duplicates) {
    outlook.duplicates = step.duplicates;
  }
}

}  // namespace

std::vector<StepOutlook> script_outlook(const Topology& topology, Findings& findings) {
  Network network(topology);
  std::vector<StepOutlook> outlooks;
  for (size_t i = 0; i <= topology.steps.size(); ++i) {
    const Step* step = i == 0 ? nullptr : &topology.steps[i - 1];
    const std::vector<size_t> before = network.parts();
    const auto what = [&] {
      return "step " + std::to_string(i) + " (" + topology.step_text(*step) + ")";
    };
    if (step != nullptr) {
      const std::string mistake = network.apply(*step);
      if (!mistake.empty()) {
        findings.error("step-impossible", step->line, what(), mistake);
      }
    }
    StepOutlook outlook;
    outlook.duplicates = topology.bounds.duplicates;
    outlook.reordered = topology.bounds.reordered;
    outlook.cut = network.cut();
    outlook.daemon_runs = network.daemon_runs();
    outlook.settle_ms = settle_bound_ms(topology);
    for (RingIndex ring = 0; ring < topology.rings.size(); ++ring) {
      RingOutlook of_ring = network.outlook(ring, step);
      if (step != nullptr) {
        const bool acts = step->action != Action::kKill && step->action != Action::kWait;
        if (acts && !network.daemons_complete(topology.rings[ring])) {
          of_ring = {};
        }
        apply_file(topology, *step, ring, of_ring);
        network.set_known(ring, of_ring);
        if (!of_ring.state) {
          const std::string id = std::to_string(topology.rings[ring].id);
          findings.error("step-outcome-unknown", step->line, what(),
                         "what ring " + id + " settles to cannot be told from the file",
                         "say it: state = { " + id + " = \"...\" }");
        }
      }
      outlook.rings.push_back(of_ring);
    }
    const std::vector<size_t> after = network.parts();
    for (const Stream& stream : topology.streams) {
      const NodeIndex a = topology.hosts[stream.hosts[0]].node;
      const NodeIndex b = topology.hosts[stream.hosts[1]].node;
      outlook.stream_judged.push_back(before[a] == before[b] && after[a] == after[b]);
    }
    if (step != nullptr) {
      set_bounds(topology, *step, outlook);
    }
    outlooks.push_back(std::move(outlook));
  }
  return outlooks;
}

}  // namespace erps::lab
