// What is wrong with a file, collected so that all of it is told in one go.
#pragma once

#include <algorithm>
#include <cstdint>
#include <string>
#include <utility>
#include <vector>

namespace erps::lab {

enum class Severity { kWarning, kError };

struct Finding {
  Severity severity = Severity::kError;
  std::string rule{};    // its name in docs/laboratory.md, which never changes
  std::string file{};    // empty where there is only one
  uint32_t line = 0;     // 1 is the first; 0 when the finding is about the file as a whole
  std::string where{};   // "ring 1", "node n1", "step 3"; empty: the file as a whole
  std::string key{};     // empty when it is about no key of its own
  std::string value{};   // of the key, as the file has it; empty when the key is absent
  std::string why{};     // may be empty where the advice says it
  std::string advice{};  // what is allowed, or what to do
  std::string text{};    // all of it from `where` on, in a line; composed by Findings
};

class Findings {
 public:
  void add(Finding finding);
  void error(const char* rule, uint32_t line, std::string where, std::string why,
             std::string advice = {}) {
    add({.severity = Severity::kError,
         .rule = rule,
         .line = line,
         .where = std::move(where),
         .why = std::move(why),
         .advice = std::move(advice)});
  }
  void warning(const char* rule, uint32_t line, std::string where, std::string why,
               std::string advice = {}) {
    add({.severity = Severity::kWarning,
         .rule = rule,
         .line = line,
         .where = std::move(where),
         .why = std::move(why),
         .advice = std::move(advice)});
  }

  bool has_errors() const { return count(Severity::kError) != 0; }
  bool has(const std::string& rule) const {
    return std::any_of(list_.begin(), list_.end(),
                       [&](const Finding& finding) { return finding.rule == rule; });
  }
  size_t count(Severity severity) const {
    return static_cast<size_t>(
        std::count_if(list_.begin(), list_.end(),
                      [=](const Finding& finding) { return finding.severity == severity; }));
  }
  // In the order in which they were found.
  const std::vector<Finding>& list() const { return list_; }
  // By file and line; what is about the file as a whole comes first.
  std::vector<Finding> sorted() const;

 private:
  std::vector<Finding> list_;
};

// The file could not be read at all, so nothing was checked.
inline constexpr const char* kUnreadable = "unreadable";

const char* severity_name(Severity severity);

// "ring.toml:12: error: ring 1: wtr_ms = 5: ... [wtr-range]", a line each, in the order of the
// file. `file` is the name of the file that findings without one are about.
std::string to_text(const Findings& findings, const std::string& file);

}  // namespace erps::lab
