#include "lab/simulate/script_simulation.h"

#include <algorithm>

#include "lab/clock.h"
#include "lab/lab_error.h"
#include "lab/simulate/node_states.h"
#include "lab/simulated_network.h"
#include "lab/step_checks.h"
#include "sim/checks/inspection.h"

namespace erps::lab {

namespace {

constexpr int64_t kNsPerUs = 1000;
// How often the rings are looked at: often at first, then less.
constexpr int64_t kFirstLooksUs = 50 * sim::kMillisecondUs;
constexpr int64_t kFirstLookUs = sim::kMillisecondUs;
constexpr int64_t kLaterLookUs = 10 * sim::kMillisecondUs;
// Rings are settled when they have been as expected for this long.
constexpr int64_t kSteadyUs = 150 * sim::kMillisecondUs;
// Traffic before the first fault, as a measure of the calm.
constexpr int64_t kCalmUs = sim::kSecondUs;

class ScriptSimulation {
 public:
  ScriptSimulation(const Topology& topology, const sim::Options& options, Watch& watch)
      : topology_(topology),
        watch_(watch),
        simulation_(to_simulated(topology), options),
        inspection_(simulation_) {
    Findings none;
    outlooks_ = script_outlook(topology, none);
    watch_.attach(simulation_);
  }

  SimulatedRun run(bool keep_going, const std::function<void(const StepReport&)>& step_done) {
    SimulatedRun run;
    RunReport& report = run.report;
    try {
      report.steps.push_back(start());
      step_done(report.steps.back());
      size_t next = 0;
      while (next < topology_.steps.size() && (keep_going || report.steps.back().passed())) {
        report.steps.push_back(do_step(next++));
        step_done(report.steps.back());
      }
      report.complete = next == topology_.steps.size();
    } catch (const sim::Violation& violation) {
      run.findings.push_back({"module",
                              simulation_.now_us(),
                              simulation_.now_us(),
                              std::nullopt,
                              violation.what(),
                              {}});
    }
    const auto found = inspection_.findings();
    run.findings.insert(run.findings.end(), found.begin(), found.end());
    run.end_us = simulation_.now_us();
    return run;
  }

 private:
  StepReport start() {
    StepReport report;
    report.text = "start";
    settle(outlooks_[0], report);
    watch_.traffic().start();
    if (!topology_.streams.empty() && report.settled) {
      watch_.traffic().begin_measurement();
      simulation_.run_for(kCalmUs);
      report.traffic = watch_.traffic().end_measurement();
      report.stream_judged = outlooks_[0].stream_judged;
    }
    report.events = watch_.history().take();
    judge_step(topology_, outlooks_[0], report);
    return report;
  }

  StepReport do_step(size_t index) {
    const Step& step = topology_.steps[index];
    const StepOutlook& outlook = outlooks_[index + 1];
    StepReport report;
    report.text = topology_.step_text(step);
    report.step = index;
    report.fault_ns = simulation_.now_us() * kNsPerUs;
    watch_.traffic().begin_measurement();
    apply(step);
    settle(outlook, report);
    report.traffic = watch_.traffic().end_measurement();
    report.stream_judged = outlook.stream_judged;
    report.events = watch_.history().take();
    judge_step(topology_, outlook, report);
    return report;
  }

  void apply(const Step& step) {
    switch (step.action) {
      case Action::kCut:
        for (const LinkIndex link : step.links) {
          simulation_.cut(link);
        }
        break;
      case Action::kRestore:
        for (const LinkIndex link : step.links) {
          simulation_.restore(link);
        }
        break;
      case Action::kForcedSwitch:
      case Action::kManualSwitch:
      case Action::kClear:
        if (!simulation_.execute(step.node, *to_request(topology_, step)).accepted()) {
          throw LabError(topology_.step_text(step) + ": the node refuses it, or does not answer");
        }
        break;
      case Action::kKill:
        simulation_.kill_module(step.node);
        break;
      case Action::kStart:
        simulation_.start_module(step.node);
        break;
      case Action::kWait:
        simulation_.run_for(step.wait_ms * sim::kMillisecondUs);
        break;
    }
  }

  void settle(const StepOutlook& outlook, StepReport& report) {
    const int64_t begin_us = simulation_.now_us();
    const int64_t deadline_us = begin_us + outlook.settle_ms * sim::kMillisecondUs;
    std::optional<int64_t> since_us;
    for (;;) {
      const int64_t now_us = simulation_.now_us();
      look(outlook, report.nodes);
      if (!rings_are_as_expected(topology_, outlook, report.nodes, nullptr)) {
        since_us.reset();
      } else if (!since_us) {
        since_us = now_us;
      } else if (now_us - *since_us >= kSteadyUs) {
        report.settled = true;
        report.settled_ns = *since_us * kNsPerUs;
        return;
      }
      if (now_us >= deadline_us) {
        report.settled_ns = now_us * kNsPerUs;
        return;
      }
      simulation_.run_for(now_us - begin_us < kFirstLooksUs ? kFirstLookUs : kLaterLookUs);
    }
  }

  void look(const StepOutlook& outlook, std::vector<NodeReport>& nodes) {
    nodes = node_states(topology_, simulation_);
    for (NodeIndex node = 0; node < nodes.size(); ++node) {
      if (!outlook.daemon_runs[node]) {
        nodes[node] = {};
      }
    }
  }

  const Topology& topology_;
  std::vector<StepOutlook> outlooks_;
  Watch& watch_;
  sim::Simulation simulation_;
  sim::Inspection inspection_;
};

}  // namespace

SimulatedRun simulate_script(const Topology& topology, const sim::Options& options, bool keep_going,
                             Watch& watch,
                             const std::function<void(const StepReport&)>& step_done) {
  return ScriptSimulation(topology, options, watch).run(keep_going, step_done);
}

}  // namespace erps::lab
