// The report of a run for programs: what the text says, and every event.
#pragma once

#include <string>

#include "lab/run_report.h"

namespace erps::lab {

// One JSON object, indented, with a line end.
std::string json_report(const Topology& topology, const RunReport& report);

}  // namespace erps::lab
