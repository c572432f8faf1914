// What an inspection found and no name explains, as tests look at it and print it.
#pragma once

#include <string>
#include <vector>

#include "sim/checks/inspection.h"

namespace erps::sim {

inline std::vector<Finding> violations(Inspection& inspection) {
  auto findings = inspection.findings();
  std::erase_if(findings, [](const Finding& finding) { return !finding.is_violation(); });
  return findings;
}

inline std::vector<Finding> loops_in(Inspection& inspection) {
  auto findings = inspection.findings();
  std::erase_if(findings, [](const Finding& finding) { return finding.check != "loop"; });
  return findings;
}

inline std::string text_of(const std::vector<Finding>& findings) {
  std::string text;
  for (const Finding& finding : findings) {
    text += finding.check + " " + std::to_string(finding.from_us) + ".." +
            std::to_string(finding.to_us) + ": " + finding.text + "\n";
  }
  return text;
}

}  // namespace erps::sim
