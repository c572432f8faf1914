// The report of a run as text for people: at most 100 columns, colour only where it is wanted.
#pragma once

#include <string>

#include "lab/run_report.h"

namespace erps::lab {

class TextReport {
 public:
  TextReport(const Topology& topology, bool colour) : topology_(topology), colour_(colour) {}

  std::string heading() const;
  std::string step(const StepReport& report) const;
  std::string summary(const RunReport& report) const;

 private:
  std::string paint(const char* code, const std::string& text) const;
  std::string verdict(bool good, bool undecided = false) const;
  std::string timeline(const StepReport& report) const;
  std::string states(const StepReport& report) const;
  std::string traffic(const StepReport& report) const;
  std::string checks(const std::vector<Check>& checks, bool undecided) const;

  const Topology& topology_;
  bool colour_;
};

}  // namespace erps::lab
