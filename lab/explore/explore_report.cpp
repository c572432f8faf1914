#include "lab/explore/explore_report.h"

#include <array>
#include <cstdarg>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "sim/explore/scenario.h"

namespace erps::lab {

namespace {

using sim::explore::Budget;
using sim::explore::Ending;
using sim::explore::Report;
using sim::explore::Trouble;

// 15001397 -> "15,001,397"
std::string grouped(uint64_t number) {
  std::string text = std::to_string(number);
  for (size_t place = text.size(); place > 3; place -= 3) {
    text.insert(place - 3, 1, ',');
  }
  return text;
}

std::string decimal(double number, int digits) {
  std::array<char, 64> text{};
  std::snprintf(text.data(), text.size(), "%.*f", digits, number);
  return text.data();
}

std::string counted(uint32_t number, const std::string& what) {
  return std::to_string(number) + " " + what + (number == 1 ? "" : "s");
}

const char* ending_name(Ending ending) {
  switch (ending) {
    case Ending::kExhausted:
      return "exhausted";
    case Ending::kNotJudged:
      return "visited, what lasts not judged";
    case Ending::kTimeLimit:
      return "time limit";
    case Ending::kMemoryLimit:
      return "memory limit";
    case Ending::kStopped:
      return "stopped";
    case Ending::kTrouble:
      return "violation";
  }
  return "?";
}

}  // namespace

std::string budget_text(const Budget& budget) {
  std::string text = counted(budget.cuts, "cut") + " of a link, " +
                     counted(budget.strand_failures, "failure") + " of one strand, " +
                     std::to_string(budget.crashes) +
                     (budget.crashes == 1 ? " node crash" : " node crashes") + ", " +
                     counted(budget.commands, "command");
  text += budget.ticks ? ", " + counted(*budget.ticks, "tick") + " after each fault"
                       : ", ticks without end";
  return text;
}

std::string ending_text(const Report& report) {
  const std::string rest =
      report.expanded < report.states
          ? "; " + grouped(report.states - report.expanded) + " states were found and not followed"
          : std::string();
  switch (report.ending) {
    case Ending::kExhausted:
      return report.rest_is_judged
                 ? "exhausted: every state was visited"
                 : "exhausted: every state was visited, but the ticks do not suffice to demand "
                   "that the network is at rest after them";
    case Ending::kNotJudged:
      return "not exhausted: every state was visited and shows no loop, but a limit came before it "
             "was judged what lasts";
    case Ending::kTimeLimit:
      return "not exhausted: the time was up (--minutes)" + rest;
    case Ending::kMemoryLimit:
      return "not exhausted: the memory was full (--memory)" + rest;
    case Ending::kStopped:
      return "not exhausted: stopped" + rest;
    case Ending::kTrouble:
      return "a violation was found";
  }
  return "?";
}

std::string progress_text(const Report& report) {
  return grouped(report.states) + " states, " + grouped(report.states - report.expanded) +
         " of them to be followed, " + decimal(report.seconds, 0) + " s, " +
         grouped(report.bytes >> 20U) + " MiB";
}

std::string explore_text(const Report& report, const std::string& scenario_file) {
  const double rate =
      report.seconds > 0 ? static_cast<double>(report.expanded) / report.seconds : 0;
  std::string text = grouped(report.states) + " states, " + grouped(report.transitions) +
                     " transitions, at most " + grouped(report.depth) + " steps from the start\n";
  text += grouped(report.local_states) + " states of single nodes; the module handled " +
          grouped(report.reactions) + " events for them\n";
  text += decimal(report.seconds, 1) + " s, " + grouped(static_cast<uint64_t>(rate)) +
          " states a second, " + grouped(report.bytes >> 20U) + " MiB\n";
  text +=
      grouped(report.split) + " states are split for the moment though working links join them\n";
  if (report.halves_to_rest) {
    text += "left alone, the network is at rest after at most " +
            decimal(*report.halves_to_rest / 2.0, 1) + " s\n";
  }
  for (const auto& [name, surprise] : report.surprises) {
    text += "known surprise: " + name + ": " + grouped(surprise.states) +
            " states, the first one after " + grouped(surprise.first.steps.size()) + " steps\n";
  }
  text += ending_text(report) + "\n";
  if (report.violation) {
    text += "VIOLATION: " + report.violation->what + "\n";
    text += "the shortest way there has " + grouped(report.violation->steps.size()) +
            " steps: " + scenario_file + "\n";
  } else {
    text += report.ending == Ending::kExhausted ? "no violation\n" : "no violation so far\n";
  }
  return text;
}

std::string scenario_text(sim::explore::Model& model, const ExploreArguments& arguments,
                          const Trouble& trouble, const std::string& file) {
  return to_scenario(model, trouble,
                     trouble.what + "\nerpslab explore " + arguments.topology + " --replay " +
                         (file.empty() ? "FILE" : file));
}

std::string explore_json(sim::explore::Model& model, const ExploreArguments& arguments,
                         const Report& report) {
  using nlohmann::json;
  const auto trouble = [&](const Trouble& found) {
    return json{{"what", found.what},
                {"steps", found.steps.size()},
                {"scenario", scenario_text(model, arguments, found, "")}};
  };
  json surprises = json::array();
  for (const auto& [name, surprise] : report.surprises) {
    json entry = trouble(surprise.first);
    entry["name"] = name;
    entry["states"] = surprise.states;
    surprises.push_back(entry);
  }
  const Budget& budget = model.budget();
  json result{{"topology", arguments.topology},
              {"budget",
               {{"cuts", budget.cuts},
                {"strands", budget.strand_failures},
                {"crashes", budget.crashes},
                {"commands", budget.commands},
                {"ticks", budget.ticks ? json(*budget.ticks) : json(nullptr)}}},
              {"ending", ending_name(report.ending)},
              {"exhausted", report.ending == Ending::kExhausted},
              {"states", report.states},
              {"frontier", report.states - report.expanded},
              {"transitions", report.transitions},
              {"depth", report.depth},
              {"split_states", report.split},
              {"node_states", report.local_states},
              {"module_events", report.reactions},
              {"seconds", report.seconds},
              {"bytes", report.bytes},
              {"rest_is_judged", report.rest_is_judged},
              {"seconds_to_rest",
               report.halves_to_rest ? json(*report.halves_to_rest / 2.0) : json(nullptr)},
              {"surprises", surprises},
              {"violation", report.violation ? trouble(*report.violation) : json(nullptr)}};
  return result.dump(2) + "\n";
}

std::string replay_step_text(const sim::explore::ReplayStep& step) {
  const std::string number = std::to_string(step.number);
  return std::string(number.size() < 4 ? 4 - number.size() : 0, ' ') + number + "  " + step.text +
         "\n      " + step.state + (step.loop ? "; LOOP" : "") + (step.split ? "; split" : "") +
         "\n";
}

}  // namespace erps::lab
