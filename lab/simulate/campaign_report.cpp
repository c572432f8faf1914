#include "lab/simulate/campaign_report.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <nlohmann/json.hpp>

#include "lab/simulate/detailed_play.h"

namespace erps::lab {

namespace {

constexpr double kUsPerHour = 3.6e9;
constexpr size_t kMostShown = 5;  // findings of one scenario

[[gnu::format(printf, 1, 2)]] std::string formatted(const char* format, ...) {
  char text[256];
  va_list values;
  va_start(values, format);
  std::vsnprintf(text, sizeof text, format, values);
  va_end(values);
  return text;
}

std::string ms_text(int64_t time_us) {
  return formatted("%.3f ms", static_cast<double>(time_us) / 1000);
}

double hours(const Tally& tally) {
  return static_cast<double>(tally.simulated_us) / kUsPerHour;
}

int64_t worst_outage_us(const CaseResult& result) {
  int64_t worst_us = 0;
  for (const CaseChange& change : result.changes) {
    if (change.text != "start") {
      worst_us = std::max(worst_us, change.outage_us);
    }
  }
  return worst_us;
}

std::string home_text(const CaseResult& result) {
  return result.home_after_us ? "home after " + second_text(*result.home_after_us)
                              : std::string("not home");
}

std::string messages_text(const sim::Messages& messages) {
  return std::to_string(messages.sent) + " sent, " + std::to_string(messages.received) +
         " received, " + std::to_string(messages.lost) + " lost";
}

}  // namespace

std::string result_line(const CaseResult& result) {
  return formatted("%s %5llu  %-48s outage %12s  ", result.clean() ? "PASS" : "FAIL",
                   static_cast<unsigned long long>(result.number),
                   result.title.substr(0, 48).c_str(), ms_text(worst_outage_us(result)).c_str()) +
         home_text(result) + "\n";
}

std::string result_text(const CaseResult& result) {
  std::string text = "\n" + std::to_string(result.number) + "  " + result.title + "\n";
  for (const CaseChange& change : result.changes) {
    text += formatted("  %10s  %-34s outage %12s%s\n", second_text(change.at_us).c_str(),
                      change.text.c_str(), ms_text(change.outage_us).c_str(),
                      change.still_out ? ", still out" : "");
    text += "              " + change.states + "\n";
  }
  text += "  messages: " + messages_text(result.messages) + "\n";
  for (const auto& [name, count] : result.surprises) {
    text += "  seen: " + name + " (" + std::to_string(count) + ")\n";
  }
  return text + "  " + (result.clean() ? "PASS" : "FAIL") + "  " + home_text(result) +
         ", at most " + second_text(result.home_bound_us) + "\n";
}

std::string again_command(const CaseSource& source, uint64_t number) {
  return source.command_begin() + " --only " + std::to_string(number);
}

std::string failure_text(const CaseSource& source, const CaseResult& result) {
  std::string text = "\nFAIL  " + result.title + "\n";
  const sim::Names names = source.at(result.number).names;
  for (size_t i = 0; i < result.violations.size() && i < kMostShown; ++i) {
    const sim::Finding& finding = result.violations[i];
    text += "  " + second_text(finding.from_us) + "  " + finding.check + ": " +
            (finding.node ? names.nodes[*finding.node] + ": " : "") + finding.text + "\n";
  }
  if (result.violations.size() > kMostShown) {
    text += "  and " + std::to_string(result.violations.size() - kMostShown) + " more\n";
  }
  return text + "  again: " + again_command(source, result.number) + "\n";
}

std::string fault_counts(const Tally& tally) {
  std::string text;
  for (size_t kind = 0; kind < tally.faults.size(); ++kind) {
    if (tally.faults[kind] != 0) {
      text += (text.empty() ? "" : ", ") +
              std::string(sim::fault_kind_name(static_cast<sim::FaultKind>(kind))) + " " +
              std::to_string(tally.faults[kind]);
    }
  }
  return text.empty() ? "none" : text;
}

std::string surprises_text(const std::map<std::string, uint64_t>& surprises) {
  std::string text;
  for (const auto& [name, count] : surprises) {
    text += formatted("  %10llu  ", static_cast<unsigned long long>(count)) + name + "\n";
  }
  return text.empty() ? "" : "what the protocol does by itself, and how often\n" + text;
}

std::string summary_text(const Campaign& campaign) {
  const Tally& tally = campaign.tally;
  std::string text = "\nsummary\n";
  text +=
      formatted("  scenarios  %llu of %llu, %.1f simulated hours in %.1f s",
                static_cast<unsigned long long>(tally.scenarios),
                static_cast<unsigned long long>(campaign.count), hours(tally), campaign.elapsed_s);
  text += campaign.done_before != 0
              ? ", " + std::to_string(campaign.done_before) + " of them before\n"
              : "\n";
  text += "  faults     " + fault_counts(tally) + "\n";
  text += "  messages   " + messages_text(tally.messages) + "\n";
  text += "  way home   " + second_text(tally.slowest_home_us) + " at most\n";
  text += surprises_text(tally.surprises);
  for (const auto& [check, count] : tally.violations) {
    text += "FAIL  " + check + ": " + std::to_string(count) +
            (count == 1 ? " finding\n" : " findings\n");
  }
  if (campaign.interrupted) {
    return text + "stopped before the end\n";
  }
  return text + (tally.failed == 0 ? "PASS\n"
                                   : "FAIL  " + std::to_string(tally.failed) +
                                         (tally.failed == 1 ? " scenario\n" : " scenarios\n"));
}

std::string progress_text(const Progress& progress) {
  constexpr size_t kWidth = 30;
  const double share = progress.count == 0 ? 1
                                           : static_cast<double>(progress.done) /
                                                 static_cast<double>(progress.count);
  const auto full = static_cast<size_t>(share * kWidth);
  std::string text = "[" + std::string(full, '#') + std::string(kWidth - full, '.') + "]";
  text += formatted(" %3.0f %%  %llu of %llu scenarios, %.1f simulated hours, %llu failed",
                    100 * share, static_cast<unsigned long long>(progress.done),
                    static_cast<unsigned long long>(progress.count), hours(progress.tally),
                    static_cast<unsigned long long>(progress.tally.failed));
  const uint64_t now = progress.done - progress.done_before;
  if (now > 0 && progress.done < progress.count) {
    const double left_s = progress.elapsed_s / static_cast<double>(now) *
                          static_cast<double>(progress.count - progress.done);
    text += formatted(", %.0f s left", left_s);
  }
  return text;
}

nlohmann::json campaign_json(const CaseSource& source, const Campaign& campaign) {
  nlohmann::json results = nlohmann::json::array();
  for (const CaseResult& result : campaign.results) {
    nlohmann::json entry = to_json(result);
    entry["again"] = again_command(source, result.number);
    results.push_back(std::move(entry));
  }
  nlohmann::json whole = to_json(campaign.tally);
  whole["seed"] = source.plan().seed;
  whole["command"] = source.command();
  whole["count"] = campaign.count;
  whole["interrupted"] = campaign.interrupted;
  whole["elapsed_s"] = campaign.elapsed_s;
  whole["simulated_hours"] = hours(campaign.tally);
  whole["passed"] = campaign.tally.failed == 0 && !campaign.interrupted;
  whole["results"] = std::move(results);
  return whole;
}

}  // namespace erps::lab
