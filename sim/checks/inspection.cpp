#include "sim/checks/inspection.h"

#include <algorithm>
#include <set>
#include <span>

#include "sim/checks/address_checker.h"
#include "sim/checks/convergence.h"
#include "sim/checks/flush_checker.h"
#include "sim/checks/frame_checker.h"
#include "sim/checks/loop_judge.h"
#include "sim/checks/partition_judge.h"
#include "sim/checks/relay_checker.h"
#include "sim/checks/state_checker.h"
#include "sim/checks/time_text.h"
#include "sim/checks/timer_checker.h"

namespace erps::sim {

// The one observer of all checkers. Which function of which checker is called is known when this is
// compiled: of most that happens most of them want to hear nothing.
struct Inspection::Checkers final : Observer {
  explicit Checkers(Simulation& simulation)
      : bounds(bounds_of(simulation.topology(), simulation.timing())),
        watch(simulation),
        mishaps(simulation, watch, bounds.repeat_us),
        states(simulation.topology(), &mishaps),
        frames(simulation.topology()),
        timers(simulation.topology(), watch, mishaps),
        addresses(simulation, mishaps, bounds.repeat_us),
        flushes(simulation.topology(), &simulation, &mishaps),
        relays(simulation.topology(), &mishaps),
        partitions(simulation, watch, bounds, mishaps),
        loops(simulation, watch, bounds) {
    watch.add(mishaps);
    watch.add(states);
    watch.add(timers);
    watch.add(addresses);
    if (!simulation.flushes_in_the_background()) {
      watch.add(flushes);
    }
    watch.add(relays);
    watch.add(partitions);
    watch.add(loops);
  }

  // In the order in which they observe: the watch tells the others.
  template <typename Tell>
  void each(Tell tell) {
    const auto tell_all = [&](auto&... observers) { (tell(observers), ...); };
    tell_all(watch, mishaps, states, frames, timers, addresses, flushes, relays, partitions, loops);
  }
  void on_record(const Record& record) override {
    each([&](auto& observer) { observer.on_record(record); });
  }
  void on_transmission(int64_t time_us, NodeIndex node, uint32_t port,
                       std::span<const uint8_t> bytes) override {
    each([&](auto& observer) { observer.on_transmission(time_us, node, port, bytes); });
  }
  void on_reception(int64_t time_us, NodeIndex node, uint32_t port,
                    std::span<const uint8_t> bytes) override {
    each([&](auto& observer) { observer.on_reception(time_us, node, port, bytes); });
  }
  void on_event_done(int64_t time_us, NodeIndex node) override {
    each([&](auto& observer) { observer.on_event_done(time_us, node); });
  }
  void on_forwarding(int64_t time_us, const Forwarding& forwarding) override {
    each([&](auto& observer) { observer.on_forwarding(time_us, forwarding); });
  }

  std::vector<Checker*> all() {
    return {&states, &frames, &timers, &addresses, &flushes, &relays, &partitions, &loops};
  }

  const Bounds bounds;
  RingWatch watch;
  Mishaps mishaps;
  StateChecker states;
  FrameChecker frames;
  TimerChecker timers;
  AddressChecker addresses;
  FlushChecker flushes;
  RelayChecker relays;
  PartitionJudge partitions;
  LoopJudge loops;
  std::vector<Finding> home;
};

Inspection::Inspection(Simulation& simulation)
    : simulation_(simulation), checkers_(std::make_unique<Checkers>(simulation)) {
  // A module whose records cannot be found is not judged, whatever it does before they are needed.
  simulation.records(0);
  simulation.observe(*checkers_);
}

Inspection::~Inspection() {
  simulation_.stop_observing(*checkers_);
}

int64_t Inspection::home_bound_us() const {
  return sim::home_bound_us(simulation_.topology());
}

void Inspection::expect_home() {
  const int64_t from_us = simulation_.now_us();
  auto reason = run_until_home(simulation_, home_bound_us());
  if (!reason) {
    return;
  }
  Finding finding{"home", from_us, simulation_.now_us(), std::nullopt, *reason, {}};
  // Who missed a message gets its repetition.
  std::set<std::string> names;
  for (auto missed =
           checkers_->mishaps.names_since(simulation_.now_us() - checkers_->bounds.repeat_us);
       reason && !missed.empty() && simulation_.now_us() - from_us < 3 * home_bound_us();
       missed =
           checkers_->mishaps.names_since(simulation_.now_us() - checkers_->bounds.repeat_us)) {
    names.merge(missed);
    reason = run_until_home(simulation_, checkers_->bounds.repeat_us);
  }
  finding.to_us = simulation_.now_us();
  if (reason) {
    names.clear();
    finding.text = *reason;
    for (const char* name :
         why_never_home(simulation_.topology(), checkers_->partitions.circumstances())) {
      names.insert(name);
    }
  } else {
    finding.text = "at home only after " + in_milliseconds(finding.to_us - from_us) + ", " +
                   in_milliseconds(home_bound_us()) + " are allowed; before: " + finding.text;
  }
  for (const std::string& name : names) {
    finding.surprise += (finding.surprise.empty() ? "" : "; ") + name;
  }
  checkers_->home.push_back(finding);
}

std::vector<Finding> Inspection::findings() {
  const int64_t now_us = simulation_.now_us();
  std::vector<Finding> findings = checkers_->home;
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
