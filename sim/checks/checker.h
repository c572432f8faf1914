// What all checkers have in common.
#pragma once

#include <utility>
#include <vector>

#include "sim/checks/finding.h"

namespace erps::sim {

class Checker {
 public:
  virtual ~Checker() = default;
  // Adds all findings until now, in no order; what still lasts ends now.
  virtual void collect(int64_t now_us, std::vector<Finding>& findings) = 0;
};

// Findings of a checker. A module that is wrong is often wrong all the time: only the first ones
// are kept.
class FindingList {
 public:
  void add(Finding finding) {
    if (findings_.size() < kMost) {
      findings_.push_back(std::move(finding));
    }
  }
  void append_to(std::vector<Finding>& findings) const {
    findings.insert(findings.end(), findings_.begin(), findings_.end());
  }
  bool empty() const { return findings_.empty(); }

 private:
  static constexpr size_t kMost = 1000;
  std::vector<Finding> findings_;
};

}  // namespace erps::sim
