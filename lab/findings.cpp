#include "lab/findings.h"

#include <tuple>

namespace erps::lab {

void Findings::add(Finding finding) {
  std::string& text = finding.text;
  text = finding.where;
  const auto append = [&](const std::string& part, const char* separator) {
    if (!part.empty()) {
      text += (text.empty() ? "" : separator) + part;
    }
  };
  append(finding.key, ": ");
  append(finding.value, " = ");
  append(finding.why, ": ");
  append(finding.advice, finding.why.empty() ? ": " : "; ");
  list_.push_back(std::move(finding));
}

std::vector<Finding> Findings::sorted() const {
  std::vector<Finding> sorted = list_;
  std::stable_sort(sorted.begin(), sorted.end(), [](const Finding& a, const Finding& b) {
    return std::tie(a.file, a.line) < std::tie(b.file, b.line);
  });
  return sorted;
}

const char* severity_name(Severity severity) {
  return severity == Severity::kError ? "error" : "warning";
}

std::string to_text(const Findings& findings, const std::string& file) {
  std::string text;
  for (const Finding& finding : findings.sorted()) {
    text += finding.file.empty() ? file : finding.file;
    if (finding.line != 0) {
      text += ":" + std::to_string(finding.line);
    }
    text += std::string(": ") + severity_name(finding.severity) + ": " + finding.text + " [" +
            finding.rule + "]\n";
  }
  return text;
}

}  // namespace erps::lab
