// What is wrong with a topology file, collected so that all of it is told in one go.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace erps::lab {

enum class Severity { kWarning, kError };

struct Finding {
  Severity severity;
  uint32_t line;     // 1 is the first; 0 when the finding is about the file as a whole
  std::string text;  // where in the file, value, why, what is allowed
};

class Findings {
 public:
  void error(uint32_t line, std::string text) {
    list_.push_back({Severity::kError, line, std::move(text)});
  }
  void warning(uint32_t line, std::string text) {
    list_.push_back({Severity::kWarning, line, std::move(text)});
  }

  bool has_errors() const {
    for (const Finding& finding : list_) {
      if (finding.severity == Severity::kError) {
        return true;
      }
    }
    return false;
  }
  const std::vector<Finding>& list() const { return list_; }

 private:
  std::vector<Finding> list_;
};

// "ring.toml:12: error: ring 1: wtr_ms = 5: ...", a line each, in the order of the file.
std::string to_text(const Findings& findings, const std::string& file);

}  // namespace erps::lab
