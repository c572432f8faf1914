#include "lab/findings.h"

#include <algorithm>

namespace erps::lab {

std::string to_text(const Findings& findings, const std::string& file) {
  std::vector<Finding> sorted = findings.list();
  std::stable_sort(sorted.begin(), sorted.end(),
                   [](const Finding& a, const Finding& b) { return a.line < b.line; });
  std::string text;
  for (const Finding& finding : sorted) {
    text += file;
    if (finding.line != 0) {
      text += ":" + std::to_string(finding.line);
    }
    text += finding.severity == Severity::kError ? ": error: " : ": warning: ";
    text += finding.text + "\n";
  }
  return text;
}

}  // namespace erps::lab
