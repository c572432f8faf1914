#include "lab/simulate/detailed_play.h"

#include <algorithm>
#include <cstdio>

#include "lab/simulate/node_states.h"

namespace erps::lab {

namespace {

constexpr int64_t kNsPerUs = 1000;

// When the last thing happened that is more than a message passing by.
int64_t settled_ns(const StepReport& step) {
  int64_t last_ns = step.fault_ns;
  for (const auto& events : step.events) {
    for (const NodeEvent& event : events) {
      if (event.kind != EventKind::kSent && event.kind != EventKind::kReceived) {
        last_ns = std::max(last_ns, event.mono_ns);
      }
    }
  }
  return last_ns;
}

class Detail final : public sim::Onlooker {
 public:
  Detail(const sim::Case& of, const Topology& topology, Watch& watch)
      : case_(of), topology_(topology), watch_(watch) {}

  void on_begin(sim::Simulation& simulation) override {
    watch_.attach(simulation);
    watch_.traffic().start();
    watch_.traffic().begin_measurement();
  }

  void on_settled(sim::Simulation& simulation, const sim::Change& change) override {
    StepReport step;
    step.text = "start";
    if (change.fault) {
      const sim::Fault& fault = case_.scenario.faults[*change.fault];
      step.text = change.ends ? fault_end_text(case_, fault) : fault_text(case_, fault);
      step.text += " at " + second_text(change.at_us);
      step.step = steps_.size() - 1;
    }
    step.fault_ns = change.at_us * kNsPerUs;
    step.nodes = node_states(topology_, simulation);
    step.events = watch_.history().take();
    step.settled = true;
    step.settled_ns = settled_ns(step);
    if (!topology_.streams.empty()) {
      step.traffic = watch_.traffic().end_measurement();
      step.stream_judged.assign(topology_.streams.size(), true);
      watch_.traffic().begin_measurement();
    }
    steps_.push_back(std::move(step));
  }

  std::vector<StepReport> take() { return std::move(steps_); }

 private:
  const sim::Case& case_;
  const Topology& topology_;
  Watch& watch_;
  std::vector<StepReport> steps_;
};

}  // namespace

std::string second_text(int64_t time_us) {
  char text[32];
  std::snprintf(text, sizeof text, "%.3f s",
                static_cast<double>(time_us) / static_cast<double>(sim::kSecondUs));
  return text;
}

std::vector<Check> checks_of(const std::vector<sim::Finding>& findings, const Topology& topology) {
  std::vector<Check> checks;
  for (const sim::Finding& finding : findings) {
    if (finding.is_violation()) {
      const std::string where = finding.node ? topology.nodes[*finding.node].name + ": " : "";
      checks.push_back({"no " + finding.check + " finding", false,
                        where + finding.text + ", at " + second_text(finding.from_us)});
    }
  }
  return checks;
}

DetailedPlay play_in_detail(const sim::Case& of, const Topology& topology,
                            const std::string& module, Watch& watch) {
  Detail detail(of, topology, watch);
  DetailedPlay play;
  play.outcome = sim::play(of, module, &detail);
  play.report.steps = detail.take();
  for (size_t i = 0; i < play.report.steps.size(); ++i) {
    const sim::Change& change = play.outcome.changes[i];
    char text[48];
    std::snprintf(text, sizeof text, "%.3f ms", static_cast<double>(change.outage_us) / 1000);
    play.report.steps[i].checks.push_back(
        {"longest time without a way between two nodes", true,
         std::string(text) + (change.still_out ? ", and still without one" : "")});
  }
  play.report.end_checks = checks_of(play.outcome.findings, topology);
  if (play.outcome.home_after_us) {
    play.report.end_checks.push_back({"home", true,
                                      "after " + second_text(*play.outcome.home_after_us) +
                                          ", at most " + second_text(play.outcome.home_bound_us)});
  }
  play.report.complete = true;
  return play;
}

}  // namespace erps::lab
