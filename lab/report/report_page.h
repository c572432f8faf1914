// The report of a simulation: one page of HTML that needs nothing besides itself.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "lab/report/recorder.h"
#include "lab/topology.h"
#include "sim/checks/finding.h"

namespace erps::lab {

// A step of the script, or a fault drawn by chance: a row of the table of outages.
struct ReportFault {
  std::string text;  // "cut n1-n2"
  int64_t at_us = 0;
  std::optional<int64_t> outage_us;  // nothing where it was not measured
  bool held = true;                  // what was expected of it
  std::string remark;
};

struct ReportInput {
  const Topology& topology;
  const Recorder& recorder;
  std::vector<ReportFault> faults;  // in the order of time
  std::vector<sim::Finding> findings;
  uint64_t seed = 0;
  std::string command;  // reproduces the run
  int64_t end_us = 0;   // when the simulation ended
};

std::string report_page(const ReportInput& input);

}  // namespace erps::lab
