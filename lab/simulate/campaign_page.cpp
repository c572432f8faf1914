// The report of a campaign as a page of HTML: its counts, and its failures with the commands that
// show them again.
#include <cstdio>

#include "lab/simulate/campaign_report.h"
#include "lab/simulate/detailed_play.h"

namespace erps::lab {

namespace {

constexpr const char* kHead = R"(<!DOCTYPE html>
<html lang="en"><head><meta charset="utf-8">
<meta name="viewport" content="width=device-width, initial-scale=1">
<title>erpslab simulate</title>
<style>
:root { color-scheme: light dark; }
body { font: 16px/1.5 system-ui, sans-serif; max-width: 60rem; margin: 2rem auto; padding: 0 1rem; }
table { border-collapse: collapse; margin: 1rem 0; }
th, td { text-align: left; padding: .25rem 1rem .25rem 0; border-bottom: 1px solid #8886; vertical-align: top; }
td.number { text-align: right; font-variant-numeric: tabular-nums; }
pre, code { font: 14px/1.4 ui-monospace, monospace; }
pre { overflow-x: auto; padding: .75rem; border: 1px solid #8886; border-radius: .3rem; }
.pass { color: light-dark(#0a6b2d, #6fd08c); } .fail { color: light-dark(#a40e26, #ff8b8b); }
</style></head><body>
)";

std::string escaped(const std::string& text) {
  std::string result;
  for (const char c : text) {
    switch (c) {
      case '&':
        result += "&amp;";
        break;
      case '<':
        result += "&lt;";
        break;
      case '>':
        result += "&gt;";
        break;
      case '"':
        result += "&quot;";
        break;
      default:
        result += c;
    }
  }
  return result;
}

std::string row(const std::string& name, const std::string& value) {
  return "<tr><th scope=\"row\">" + escaped(name) + "</th><td class=\"number\">" + escaped(value) +
         "</td></tr>\n";
}

std::string hours_text(int64_t time_us) {
  char text[32];
  std::snprintf(text, sizeof text, "%.1f", static_cast<double>(time_us) / 3.6e9);
  return text;
}

std::string counts(const std::string& title, const std::map<std::string, uint64_t>& of) {
  if (of.empty()) {
    return "";
  }
  std::string text = "<h2>" + escaped(title) + "</h2><table>\n";
  for (const auto& [name, count] : of) {
    text += row(name, std::to_string(count));
  }
  return text + "</table>\n";
}

std::string failure(const CaseSource& source, const CaseResult& result) {
  std::string text = "<h3>" + escaped(result.title) + "</h3><ul>\n";
  for (const sim::Finding& finding : result.violations) {
    text += "<li>" +
            escaped(second_text(finding.from_us) + "  " + finding.check + ": " + finding.text) +
            "</li>\n";
  }
  text += "</ul><pre>" + escaped(again_command(source, result.number)) + "</pre>\n";
  if (!result.smallest.empty()) {
    text += "<details><summary>The smallest scenario that shows it</summary><pre>" +
            escaped(result.smallest) + "</pre></details>\n";
  }
  return text;
}

}  // namespace

std::string campaign_page(const CaseSource& source, const Campaign& campaign) {
  const Tally& tally = campaign.tally;
  const bool passed = tally.failed == 0 && !campaign.interrupted;
  std::string text = kHead;
  text += "<h1>Simulated campaign: <span class=\"" + std::string(passed ? "pass" : "fail") + "\">" +
          (campaign.interrupted ? "stopped before the end"
           : passed             ? "clean"
                                : std::to_string(tally.failed) + " scenarios failed") +
          "</span></h1>\n<pre>" + escaped(source.command()) + "</pre>\n<table>\n";
  text +=
      row("scenarios", std::to_string(tally.scenarios) + " of " + std::to_string(campaign.count));
  text += row("simulated hours", hours_text(tally.simulated_us));
  text += row("messages sent", std::to_string(tally.messages.sent));
  text += row("messages received", std::to_string(tally.messages.received));
  text += row("messages lost", std::to_string(tally.messages.lost));
  text += row("longest way home", second_text(tally.slowest_home_us));
  text += "</table>\n";
  std::map<std::string, uint64_t> faults;
  for (size_t kind = 0; kind < tally.faults.size(); ++kind) {
    if (tally.faults[kind] != 0) {
      faults[sim::fault_kind_name(static_cast<sim::FaultKind>(kind))] = tally.faults[kind];
    }
  }
  text += counts("Faults", faults);
  text += counts("Findings", tally.violations);
  text += counts("What the protocol does by itself", tally.surprises);
  bool first = true;
  for (const CaseResult& result : campaign.results) {
    if (!result.clean()) {
      text += std::string(first ? "<h2>Failures</h2>\n" : "") + failure(source, result);
      first = false;
    }
  }
  return text + "</body></html>\n";
}

}  // namespace erps::lab
