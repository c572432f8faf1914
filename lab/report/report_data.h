// The data of a report, as its page's script reads them.
#pragma once

#include <string>

#include "lab/report/report_page.h"

namespace erps::lab {

// JSON without any '<', so that it can stand in a page. Text that is not UTF-8 is mended.
std::string report_data(const ReportInput& input);

}  // namespace erps::lab
