#include "sim/checks/inspection.h"

#include <algorithm>

#include "sim/checks/convergence.h"
#include "sim/checks/loop_checker.h"
#include "sim/checks/partition_checker.h"
#include "sim/checks/ring_watch.h"
#include "sim/checks/state_checker.h"

namespace erps::sim {

namespace {

// How long a repair takes at most: the detection of the failure, and a message's way past all
// nodes.
int64_t repair_bound_us(const Topology& topology) {
  constexpr int64_t kNodeUs = 500;
  int64_t bound = Timing{}.carrier_up_us.high;
  for (const LinkPlan& link : topology.links) {
    bound += kNodeUs + link.delay_us.high;
  }
  return bound;
}

std::string in_milliseconds(int64_t time_us) {
  return std::to_string(time_us / kMillisecondUs) + "." +
         std::to_string(time_us % kMillisecondUs / 100) + " ms";
}

}  // namespace

struct Inspection::Checkers {
  explicit Checkers(Simulation& simulation) : watch(simulation), states(simulation.topology()) {
    watch.add(states);
  }

  RingWatch watch;
  StateChecker states;
  LoopChecker loops;
  PartitionChecker partitions;
  std::vector<Finding> home;
};

Inspection::Inspection(Simulation& simulation)
    : simulation_(simulation), checkers_(std::make_unique<Checkers>(simulation)) {
  simulation.observe(checkers_->watch);
  simulation.observe(checkers_->loops);
  simulation.observe(checkers_->partitions);
}

Inspection::~Inspection() {
  simulation_.stop_observing(checkers_->watch);
  simulation_.stop_observing(checkers_->loops);
  simulation_.stop_observing(checkers_->partitions);
}

int64_t Inspection::home_bound_us() const {
  return sim::home_bound_us(simulation_.topology());
}

void Inspection::expect_home() {
  const int64_t from_us = simulation_.now_us();
  const auto reason = run_until_home(simulation_, home_bound_us());
  if (reason) {
    checkers_->home.push_back({"home", from_us, simulation_.now_us(), std::nullopt, *reason, {}});
  }
}

std::vector<Finding> Inspection::findings() {
  std::vector<Finding> findings = checkers_->home;
  const int64_t now_us = simulation_.now_us();
  for (const Spell& loop : checkers_->loops.loops().until(now_us)) {
    findings.push_back({"loop",
                        loop.from_us,
                        loop.to_us,
                        std::nullopt,
                        "frames circulate for " + in_milliseconds(loop.length_us()),
                        {}});
  }
  const int64_t bound_us = repair_bound_us(simulation_.topology());
  for (const Spell& partition : checkers_->partitions.partitions().until(now_us)) {
    if (partition.length_us() > bound_us) {
      findings.push_back({"partition",
                          partition.from_us,
                          partition.to_us,
                          std::nullopt,
                          "split for " + in_milliseconds(partition.length_us()),
                          {}});
    }
  }
  checkers_->states.collect(now_us, findings);
  std::stable_sort(findings.begin(), findings.end(), [](const Finding& one, const Finding& other) {
    return one.from_us < other.from_us;
  });
  return findings;
}

bool Inspection::clean() {
  const auto found = findings();
  return std::none_of(found.begin(), found.end(),
                      [](const Finding& finding) { return finding.is_violation(); });
}

}  // namespace erps::sim
