#include "lab/check/verdict.h"

#include <nlohmann/json.hpp>

namespace erps::lab {

namespace {

using Json = nlohmann::ordered_json;

constexpr const char* kWords[] = {"OK", "WARNING", "CRITICAL", "UNKNOWN"};
constexpr const char* kJsonWords[] = {"ok", "warning", "critical", "unknown"};

Json text_or_null(const std::string& text) {
  return text.empty() ? Json(nullptr) : Json(text);
}

Json json_finding(const Finding& finding, const std::string& subject) {
  Json json;
  json["severity"] = severity_name(finding.severity);
  json["rule"] = finding.rule;
  json["file"] = finding.file.empty() ? subject : finding.file;
  json["line"] = finding.line == 0 ? Json(nullptr) : Json(finding.line);
  json["where"] = text_or_null(finding.where);
  json["key"] = text_or_null(finding.key);
  json["value"] = text_or_null(finding.value);
  json["why"] = text_or_null(finding.why);
  json["advice"] = text_or_null(finding.advice);
  json["text"] = finding.text;
  return json;
}

}  // namespace

Verdict verdict_of(const Findings& findings) {
  if (findings.has(kUnreadable)) {
    return Verdict::kUnknown;
  }
  if (findings.has_errors()) {
    return Verdict::kCritical;
  }
  return findings.list().empty() ? Verdict::kOk : Verdict::kWarning;
}

std::string count_text(size_t count, const std::string& noun) {
  return std::to_string(count) + " " + noun + (count == 1 ? "" : "s");
}

std::string summary_of(const CheckResult& result) {
  const size_t errors = result.findings.count(Severity::kError);
  const size_t warnings = result.findings.count(Severity::kWarning);
  std::string counts;
  if (errors != 0) {
    counts = count_text(errors, "error");
  }
  if (warnings != 0) {
    counts += (counts.empty() ? "" : ", ") + count_text(warnings, "warning");
  }
  return std::string("ERPS ") + kWords[static_cast<size_t>(verdict_of(result.findings))] + " - " +
         result.subject + ": " + (counts.empty() ? "nothing found" : counts) +
         (result.extent.empty() ? "" : "; " + result.extent);
}

std::string text_of(const CheckResult& result) {
  return summary_of(result) + "\n" + to_text(result.findings, result.subject);
}

std::string json_of(const CheckResult& result) {
  const Verdict verdict = verdict_of(result.findings);
  Json json;
  json["status"] = kJsonWords[static_cast<size_t>(verdict)];
  json["exit_status"] = static_cast<int>(verdict);
  json["summary"] = summary_of(result);
  json["files"] = result.files;
  json["errors"] = result.findings.count(Severity::kError);
  json["warnings"] = result.findings.count(Severity::kWarning);
  json["findings"] = Json::array();
  for (const Finding& finding : result.findings.sorted()) {
    json["findings"].push_back(json_finding(finding, result.subject));
  }
  // Values are quoted from files and cut off anywhere, so they may be no UTF-8.
  return json.dump(2, ' ', false, Json::error_handler_t::replace) + "\n";
}

}  // namespace erps::lab
