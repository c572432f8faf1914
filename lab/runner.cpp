#include "lab/runner.h"

#include <fcntl.h>

#include <algorithm>

#include "lab/clock.h"
#include "lab/lab_error.h"
#include "lab/node_config.h"
#include "lab/sandbox.h"
#include "lab/step_checks.h"

namespace erps::lab {

namespace {

constexpr int64_t kReadyPatienceMs = 20000;
constexpr int64_t kStopPatienceMs = 5000;
// How often the daemons are asked whether their rings have settled: soon after a fault, then less
// often, so that the asking does not disturb what it asks about.
constexpr int64_t kFirstAskMs = 20;
constexpr int64_t kLongestAskMs = 250;
// Rings are settled when they are as expected twice, this far apart.
constexpr int64_t kSteadyMs = 150;
// Traffic before the first fault, from its first frame on, as a measure of the calm.
constexpr int64_t kCalmMs = 1000;
// A step during which the machine stood still is done again so often, all steps of a run together
// as well, each time when the machine has been calm for a while: what holds a virtual machine back
// comes in bursts, of seconds as a rule, and some of minutes.
constexpr size_t kMostRepeats = 8;
constexpr size_t kMostRepeatsOfAll = 12;
constexpr int64_t kCalmStallNs = 2 * kNsPerMs;
constexpr int64_t kSteadyCalmMs = 2000;
constexpr int64_t kCalmPatienceMs = 60000;
constexpr int64_t kCalmPatienceOfAllMs = 180000;

bool can_be_undone(const Step& step) {
  return step.action == Action::kCut || step.action == Action::kRestore;
}

void copy_into(int directory, const std::string& path) {
  const size_t slash = path.rfind('/');
  const UniqueFd from(open(path.c_str(), O_RDONLY | O_CLOEXEC));
  if (!from.is_open()) {
    return;  // never written
  }
  const UniqueFd to(openat(directory, path.substr(slash + 1).c_str(),
                           O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0644));
  char buffer[65536];
  for (ssize_t count; (count = read(from.get(), buffer, sizeof buffer)) > 0;) {
    if (!to.is_open() || write(to.get(), buffer, static_cast<size_t>(count)) != count) {
      throw system_error(path.substr(slash + 1) + ": cannot be kept");
    }
  }
}

}  // namespace

Runner::Runner(const Topology& topology, const RunOptions& options)
    : topology_(topology), options_(options), network_(topology), control_(topology, network_) {
  Findings none;
  outlooks_ = script_outlook(topology, none);
  for (NodeIndex node = 0; node < topology.nodes.size(); ++node) {
    const std::string config = node_config(topology, node);
    daemons_.push_back(config.empty() ? nullptr
                                      : std::make_unique<Daemon>(
                                            network_.node(node), options.programs, kWorkDirectory,
                                            topology.nodes[node].name, config));
    journals_.emplace_back(daemons_.back() ? daemons_.back()->journal_path() : std::string());
  }
}

RunReport Runner::run(const std::function<void(const StepReport&)>& step_done) {
  RunReport report;
  if (options_.capture_directory >= 0) {
    capture_ = std::make_unique<Capture>(topology_, network_, options_.capture_directory);
  }
  report.steps.push_back(start());
  step_done(report.steps.back());
  size_t next = 0;
  while (next < topology_.steps.size() && (options_.keep_going || !report.steps.back().failed())) {
    report.steps.push_back(do_step(next++));
    step_done(report.steps.back());
  }
  report.complete = next == topology_.steps.size();
  traffic_.reset();
  if (options_.hold) {
    options_.hold(report);
  }
  if (capture_) {
    capture_->stop();
  }
  report.end_checks.push_back(stop_daemons());
  save_logs();
  return report;
}

void Runner::start_daemons() {
  for (const auto& daemon : daemons_) {
    if (daemon) {
      daemon->start();
    }
  }
  const int64_t deadline_ns = mono_ns() + kReadyPatienceMs * kNsPerMs;
  try {
    for (const auto& daemon : daemons_) {
      if (daemon) {
        daemon->wait_until_ready(deadline_ns);
      }
    }
  } catch (...) {
    save_logs();
    throw;
  }
}

StepReport Runner::start() {
  start_daemons();
  StepReport report;
  report.text = "start";
  report.fault_ns = mono_ns();
  network_.raise_ring_links();
  settle(outlooks_[0], report);
  traffic_ = std::make_unique<Traffic>(topology_, network_);
  if (!topology_.streams.empty() && report.settled) {
    traffic_->begin_measurement();
    traffic_->start();
    sleep_ms(kCalmMs);
    report.traffic = traffic_->end_measurement();
    report.stream_judged = outlooks_[0].stream_judged;
  }
  collect_events(report);
  judge_step(topology_, outlooks_[0], report);
  for (size_t i = 0; report.traffic && i < report.traffic->streams.size(); ++i) {
    for (const DirectionResult& direction : report.traffic->streams[i].directions) {
      if (direction.lost != 0) {
        report.checks.push_back({"traffic flows before the first fault", false,
                                 std::to_string(direction.lost) + " of " +
                                     std::to_string(direction.sent) + " frames lost"});
      }
    }
  }
  return report;
}

StepReport Runner::do_step(size_t index) {
  for (size_t attempt = 0;; ++attempt) {
    StepReport report = try_step(index);
    report.repeated = attempt;
    report.undecided = is_undecided(outlooks_[index + 1], report);
    if (!report.undecided || attempt == kMostRepeats || repeats_ == kMostRepeatsOfAll ||
        !can_be_undone(topology_.steps[index])) {
      return report;
    }
    ++repeats_;
    if (!undo_step(index)) {
      report.undecided = false;
      return report;
    }
    wait_for_calm();
  }
}

void Runner::wait_for_calm() {
  const int64_t begun_ns = mono_ns();
  const int64_t left_ms = kCalmPatienceOfAllMs - waited_for_calm_ms_;
  traffic_->wait_for_calm(kCalmStallNs, kSteadyCalmMs, std::min(kCalmPatienceMs, left_ms));
  waited_for_calm_ms_ += (mono_ns() - begun_ns) / kNsPerMs;
}

// Back to where the rings were before the step. False when that does not come about.
bool Runner::undo_step(size_t index) {
  const Step& step = topology_.steps[index];
  StepReport ignored;
  Step undo;
  undo.action = step.action == Action::kCut ? Action::kRestore : Action::kCut;
  undo.links = step.links;
  apply(undo, ignored);
  settle(outlooks_[index], ignored);
  collect_events(ignored);
  return ignored.settled;
}

StepReport Runner::try_step(size_t index) {
  const Step& step = topology_.steps[index];
  const StepOutlook& outlook = outlooks_[index + 1];
  StepReport report;
  report.text = topology_.step_text(step);
  report.step = index;
  traffic_->begin_measurement();
  apply(step, report);
  settle(outlook, report);
  report.traffic = traffic_->end_measurement();
  report.stream_judged = outlook.stream_judged;
  collect_events(report);
  judge_step(topology_, outlook, report);
  const std::string dead = dead_daemons(outlook);
  if (!dead.empty()) {
    report.checks.push_back({"daemons run", false, dead});
  }
  return report;
}

void Runner::apply(const Step& step, StepReport& report) {
  report.fault_ns = mono_ns();
  switch (step.action) {
    case Action::kCut:
      for (const LinkIndex link : step.links) {
        network_.cut(link);
      }
      break;
    case Action::kRestore:
      for (const LinkIndex link : step.links) {
        network_.restore(link);
      }
      break;
    case Action::kForcedSwitch:
    case Action::kManualSwitch:
    case Action::kClear:
      control_.command(step);
      break;
    case Action::kKill:
      daemons_[step.node]->kill_now();
      break;
    case Action::kStart:
      daemons_[step.node]->start();
      daemons_[step.node]->wait_until_ready(mono_ns() + kReadyPatienceMs * kNsPerMs);
      break;
    case Action::kWait:
      sleep_ms(step.wait_ms);
      break;
  }
}

void Runner::ask_all(const StepOutlook& outlook, std::vector<NodeReport>& nodes) {
  nodes.assign(topology_.nodes.size(), {});
  for (NodeIndex node = 0; node < topology_.nodes.size(); ++node) {
    if (outlook.daemon_runs[node]) {
      nodes[node] = daemons_[node]->ended() ? NodeReport{false, "its daemon has ended", {}}
                                            : control_.ask(node);
    }
  }
}

void Runner::settle(const StepOutlook& outlook, StepReport& report) {
  const int64_t deadline_ns = report.fault_ns + outlook.settle_ms * kNsPerMs;
  int64_t pause_ms = kFirstAskMs;
  int64_t first_seen_ns = 0;
  do {
    sleep_ms(first_seen_ns != 0 ? kSteadyMs : pause_ms);
    pause_ms = std::min(pause_ms * 3 / 2, kLongestAskMs);
    ask_all(outlook, report.nodes);
    const int64_t now_ns = mono_ns();
    if (!rings_are_as_expected(topology_, outlook, report.nodes, nullptr)) {
      first_seen_ns = 0;
    } else if (first_seen_ns == 0) {
      first_seen_ns = now_ns;
    } else {
      report.settled = true;
      report.settled_ns = first_seen_ns;
      return;
    }
  } while (mono_ns() < deadline_ns && dead_daemons(outlook).empty());
  report.settled_ns = mono_ns();
}

void Runner::collect_events(StepReport& report) {
  report.events.resize(topology_.nodes.size());
  for (NodeIndex node = 0; node < topology_.nodes.size(); ++node) {
    for (NodeEvent& event : journals_[node].read_on()) {
      if (event.mono_ns >= report.fault_ns) {
        report.events[node].push_back(std::move(event));
      }
    }
    // A daemon records what takes its time when it is done, with the time at which it began.
    std::stable_sort(report.events[node].begin(), report.events[node].end(),
                     [](const NodeEvent& a, const NodeEvent& b) { return a.mono_ns < b.mono_ns; });
  }
}

std::string Runner::dead_daemons(const StepOutlook& outlook) {
  std::string text;
  for (NodeIndex node = 0; node < daemons_.size(); ++node) {
    if (!daemons_[node] || !outlook.daemon_runs[node]) {
      continue;
    }
    if (const auto how = daemons_[node]->ended()) {
      text += "erpsd of node " + topology_.nodes[node].name + " ended with " + *how +
              daemons_[node]->log_tail();
    }
  }
  return text;
}

Check Runner::stop_daemons() {
  for (const auto& daemon : daemons_) {
    if (daemon) {
      daemon->ask_to_stop();
    }
  }
  Check check{"daemons stop cleanly", true, "all with status 0"};
  const int64_t deadline_ns = mono_ns() + kStopPatienceMs * kNsPerMs;
  for (const auto& daemon : daemons_) {
    const std::string problem = daemon ? daemon->finish_stop(deadline_ns) : std::string();
    if (!problem.empty()) {
      check.found = check.holds ? problem : check.found + "; " + problem;
      check.holds = false;
    }
  }
  return check;
}

void Runner::save_logs() const {
  if (options_.log_directory < 0) {
    return;
  }
  for (const auto& daemon : daemons_) {
    if (daemon) {
      copy_into(options_.log_directory, daemon->log_path());
      copy_into(options_.log_directory, daemon->journal_path());
    }
  }
}

}  // namespace erps::lab
