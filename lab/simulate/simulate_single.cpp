#include "lab/simulate/simulate_single.h"

#include <stdlib.h>
#include <unistd.h>

#include <fstream>
#include <nlohmann/json.hpp>

#include "lab/command_run.h"
#include "lab/json_report.h"
#include "lab/lab_error.h"
#include "lab/programs.h"
#include "lab/report/report_page.h"
#include "lab/simulate/campaign_report.h"
#include "lab/simulate/detailed_play.h"
#include "lab/simulate/lab_topology.h"
#include "lab/simulate/scenario_file.h"
#include "lab/simulate/script_simulation.h"
#include "lab/text_report.h"

namespace erps::lab {

namespace {

constexpr int kAllLevels = 7;
constexpr int64_t kNsPerUs = 1000;

// One simulation, however it came about.
struct Single {
  RunReport report;
  std::vector<sim::Finding> findings;
  int64_t end_us = 0;
  std::string command;  // shows it again
};

class Presenter {
 public:
  Presenter(const SimulateContext& context, const Topology& topology)
      : context_(context),
        topology_(topology),
        text_(topology, !context.arguments.json && isatty(STDOUT_FILENO) == 1 &&
                            getenv("NO_COLOR") == nullptr),
        captures_(open_directory(context.arguments.pcap)),
        watch_(topology,
               {captures_.get(), !context.arguments.report.empty(), context.arguments.log}) {}

  Watch& watch() { return watch_; }

  void begin() {
    print_seed(context_);
    if (!context_.arguments.json) {
      print(text_.heading());
    }
  }

  void step(const StepReport& step) {
    if (!context_.arguments.json) {
      print(text_.step(step));
    }
  }

  int finish(const Single& single) {
    const bool held = single.report.passed();
    if (context_.arguments.json) {
      print(json(single).dump(2) + "\n");
    } else {
      print("\n  messages: " + std::to_string(watch_.history().sent()) + " sent, " +
            std::to_string(watch_.history().received()) + " received, " +
            std::to_string(watch_.history().lost()) + " lost\n");
      std::string surprises = surprises_text(surprises_of(single));
      print((surprises.empty() ? "" : "\n") + surprises + text_.summary(single.report));
      print(held ? "" : "again: " + single.command + "\n");
    }
    if (!context_.arguments.report.empty()) {
      write_file(context_.arguments.report, page(single));
    }
    return held ? kHeld : kFailed;
  }

 private:
  static std::map<std::string, uint64_t> surprises_of(const Single& single) {
    std::map<std::string, uint64_t> counts;
    for (const sim::Finding& finding : single.findings) {
      for (const std::string& name : surprise_names(finding)) {
        ++counts[name];
      }
    }
    return counts;
  }

  nlohmann::json json(const Single& single) {
    nlohmann::json whole = nlohmann::json::parse(json_report(topology_, single.report));
    nlohmann::json findings = nlohmann::json::array();
    for (const sim::Finding& finding : single.findings) {
      findings.push_back(to_json(finding));
    }
    whole["seed"] = context_.seed;
    whole["command"] = single.command;
    whole["simulated_us"] = single.end_us;
    whole["findings"] = std::move(findings);
    whole["surprises"] = surprises_of(single);
    whole["messages"] = {{"sent", watch_.history().sent()},
                         {"received", watch_.history().received()},
                         {"lost", watch_.history().lost()}};
    return whole;
  }

  std::string page(const Single& single) const {
    ReportInput input{topology_,     watch_.recorder(), {},           single.findings,
                      context_.seed, single.command,    single.end_us};
    for (const StepReport& step : single.report.steps) {
      ReportFault fault;
      fault.text = step.text;
      fault.at_us = step.fault_ns / kNsPerUs;
      if (const auto outage_ns = longest_outage_ns(step)) {
        fault.outage_us = *outage_ns / kNsPerUs;
      }
      fault.held = step.passed();
      for (const Check& check : step.checks) {
        fault.remark += check.holds ? "" : (fault.remark.empty() ? "" : "; ") + check.found;
      }
      input.faults.push_back(std::move(fault));
    }
    return report_page(input);
  }

  const SimulateContext& context_;
  const Topology& topology_;
  const TextReport text_;
  const UniqueFd captures_;
  Watch watch_;
};

int present_case(const SimulateContext& context, sim::Case of, const Topology& topology,
                 const std::string& command) {
  Presenter presenter(context, topology);
  presenter.begin();
  of.options.log_level = context.arguments.log ? kAllLevels : -1;
  DetailedPlay play = play_in_detail(of, topology, context.module, presenter.watch());
  for (const StepReport& step : play.report.steps) {
    presenter.step(step);
  }
  return presenter.finish(
      {std::move(play.report), play.outcome.findings, play.outcome.simulated_us, command});
}

}  // namespace

std::string command_begin(const SimulateArguments& arguments) {
  std::string text = "erpslab simulate";
  text += arguments.topology.empty() ? "" : " " + shell_word(arguments.topology);
  return text + (arguments.module.empty() ? "" : " --module " + shell_word(arguments.module));
}

void print(const std::string& text) {
  std::fputs(text.c_str(), stdout);
  std::fflush(stdout);
}

void print_seed(const SimulateContext& context) {
  std::fprintf(context.arguments.json ? stderr : stdout, "seed %llu\n",
               static_cast<unsigned long long>(context.seed));
  std::fflush(stdout);
}

void write_file(const std::string& path, const std::string& text) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out << text;
  out.close();
  if (!out) {
    throw system_error(path);
  }
}

int simulate_steps(const SimulateContext& context, const Topology& topology) {
  Presenter presenter(context, topology);
  presenter.begin();
  sim::Options options;
  options.seed = context.seed;
  options.module_path = context.module;
  options.log_level = context.arguments.log ? kAllLevels : -1;
  SimulatedRun run =
      simulate_script(topology, options, context.arguments.keep_going, presenter.watch(),
                      [&](const StepReport& step) { presenter.step(step); });
  const auto checks = checks_of(run.findings, topology);
  run.report.end_checks.insert(run.report.end_checks.end(), checks.begin(), checks.end());
  return presenter.finish(
      {std::move(run.report), run.findings, run.end_us,
       command_begin(context.arguments) + " --seed " + std::to_string(context.seed)});
}

int simulate_one(const SimulateContext& context, const CaseSource& source, uint64_t number) {
  const sim::Case of = source.at(number);
  const std::string command = again_command(source, number);
  if (source.plan().topology != nullptr) {
    Topology topology = *source.plan().topology;
    topology.steps.clear();
    topology.name += ", " + of.title;
    return present_case(context, of, topology, command);
  }
  return present_case(context, of, to_topology(of), command);
}

int simulate_scenario_file(const SimulateContext& context, const Topology* topology) {
  const std::string& path = context.arguments.scenario;
  const ScenarioFile file = load_scenario(path, topology);
  std::fputs(to_text(file.findings, path).c_str(), stderr);
  if (file.findings.has_errors()) {
    return kMistaken;
  }
  SimulateContext with_seed = context;
  with_seed.seed = file.scenario.options.seed;
  const std::string command = command_begin(context.arguments) + " --scenario " + shell_word(path);
  if (topology == nullptr) {
    return present_case(with_seed, file.scenario, to_topology(file.scenario), command);
  }
  Topology without_steps = *topology;
  without_steps.steps.clear();
  return present_case(with_seed, file.scenario, without_steps, command);
}

}  // namespace erps::lab
