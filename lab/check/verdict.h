// What the findings of a check come to, for people, programs and monitoring.
#pragma once

#include <string>
#include <vector>

#include "lab/findings.h"

namespace erps::lab {

// The exit statuses of a monitoring plug-in.
enum class Verdict { kOk = 0, kWarning = 1, kCritical = 2, kUnknown = 3 };

struct CheckResult {
  std::string subject;             // what was checked: a file, or "3 files"
  std::string extent;              // how much it is: "4 nodes, 4 links, 1 ring"; may be empty
  std::vector<std::string> files;  // that were read
  Findings findings;
};

// Errors are critical; what could not be read leaves the whole unknown.
Verdict verdict_of(const Findings& findings);

// "1 ring", "2 rings"
std::string count_text(size_t count, const std::string& noun);

// "ERPS WARNING - ring.toml: 1 warning; 4 nodes, 4 links, 1 ring", without a line end.
std::string summary_of(const CheckResult& result);
// The summary, then the findings in the order of the file.
std::string text_of(const CheckResult& result);
std::string json_of(const CheckResult& result);

}  // namespace erps::lab
