#include "sim/checks/inspection.h"

#include <algorithm>

#include "sim/checks/convergence.h"
#include "sim/checks/frame_checker.h"
#include "sim/checks/loop_checker.h"
#include "sim/checks/partition_judge.h"
#include "sim/checks/state_checker.h"

namespace erps::sim {

namespace {

std::string in_milliseconds(int64_t time_us) {
  return std::to_string(time_us / kMillisecondUs) + "." +
         std::to_string(time_us % kMillisecondUs / 100) + " ms";
}

}  // namespace

struct Inspection::Checkers {
  explicit Checkers(Simulation& simulation)
      : bounds(bounds_of(simulation.topology(), simulation.timing())),
        watch(simulation),
        mishaps(simulation, watch, bounds.repeat_us),
        forced(watch, simulation.topology().nodes.size()),
        states(simulation.topology()),
        frames(simulation.topology()),
        partitions(bounds, mishaps, forced) {
    watch.add(mishaps);
    watch.add(forced);
    watch.add(states);
  }

  const Bounds bounds;
  RingWatch watch;
  Mishaps mishaps;
  ForcedSwitches forced;
  StateChecker states;
  FrameChecker frames;
  PartitionJudge partitions;
  LoopChecker loops;
  std::vector<Finding> home;

  // In the order in which they observe: the watch tells the others.
  std::vector<Observer*> observers() { return {&watch, &mishaps, &frames, &partitions, &loops}; }
  std::vector<Checker*> all() { return {&states, &frames, &partitions}; }
};

Inspection::Inspection(Simulation& simulation)
    : simulation_(simulation), checkers_(std::make_unique<Checkers>(simulation)) {
  for (Observer* observer : checkers_->observers()) {
    simulation.observe(*observer);
  }
}

Inspection::~Inspection() {
  for (Observer* observer : checkers_->observers()) {
    simulation_.stop_observing(*observer);
  }
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
  const int64_t now_us = simulation_.now_us();
  std::vector<Finding> findings = checkers_->home;
  for (const Spell& loop : checkers_->loops.loops().until(now_us)) {
    findings.push_back({"loop",
                        loop.from_us,
                        loop.to_us,
                        std::nullopt,
                        "frames circulate for " + in_milliseconds(loop.length_us()),
                        {}});
  }
  for (Checker* checker : checkers_->all()) {
    checker->collect(now_us, findings);
  }
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
