#include "lab/script_hazards.h"

#include <set>

#include "client/hazards.h"

namespace erps::lab {

namespace {

class Script {
 public:
  Script(const Topology& topology, Findings& findings)
      : topology_(topology), findings_(findings), switches_(topology.rings.size()) {}

  void check() {
    for (size_t i = 0; i < topology_.steps.size(); ++i) {
      const Step& step = topology_.steps[i];
      where_ = "step " + std::to_string(i + 1) + " (" + topology_.step_text(step) + ")";
      take(step);
    }
  }

 private:
  struct Switch {
    bool forced = false;
    bool manual = false;
  };

  void warn(const Step& step, const char* rule, std::string why, std::string advice) {
    findings_.warning(rule, step.line, where_, std::move(why), std::move(advice));
  }

  void take(const Step& step) {
    switch (step.action) {
      case Action::kCut:
        for (const LinkIndex link : step.links) {
          cut_.insert(link);
          take_failure(step, link);
        }
        break;
      case Action::kRestore:
        for (const LinkIndex link : step.links) {
          cut_.erase(link);
        }
        break;
      case Action::kForcedSwitch:
      case Action::kManualSwitch:
        take_switch(step);
        break;
      case Action::kClear:
        take_clear(step);
        break;
      case Action::kKill:
      case Action::kStart:
      case Action::kWait:
        break;
    }
  }

  void take_failure(const Step& step, LinkIndex link) {
    const auto ring = topology_.ring_of_link(link);
    if (ring && switches_[*ring].manual) {
      switches_[*ring].manual = false;  // told once
      warn(step, "manual-switch-outlives-failure",
           "the manual switch outlives the failure of another link: after the repair the ring "
           "does not return to idle",
           "clear the manual switch before the link is restored");
    }
  }

  void take_switch(const Step& step) {
    const Ring& ring = topology_.rings[step.ring];
    const bool forced = step.action == Action::kForcedSwitch;
    switches_[step.ring] = {forced, !forced};
    const bool at_rpl = ring.owner == step.node || ring.neighbour == step.node;
    if (ring.role == RingRole::kMajor && at_rpl && step.port.link != ring.rpl) {
      warn(step, "switch-before-message", client::kOwnerSwitchHazard,
           "switch at another node of the ring");
    }
  }

  void take_clear(const Step& step) {
    const Ring& ring = topology_.rings[step.ring];
    const bool failed = std::any_of(ring.links.begin(), ring.links.end(),
                                    [&](LinkIndex link) { return cut_.count(link) != 0; });
    if (switches_[step.ring].forced && failed) {
      warn(step, "clear-with-failed-link", client::kClearWithFailedLinkHazard,
           "restore the link before the clear");
    }
    switches_[step.ring] = {};
  }

  const Topology& topology_;
  Findings& findings_;
  std::vector<Switch> switches_;  // in force, by RingIndex
  std::set<LinkIndex> cut_;
  std::string where_;
};

}  // namespace

void check_script(const Topology& topology, Findings& findings) {
  Script(topology, findings).check();
}

}  // namespace erps::lab
