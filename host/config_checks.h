// What has to hold between the options of a configuration file.
#pragma once

#include "host/settings.h"

namespace erps::host {

// Reports every contradiction; options that are absent or were refused already are passed over.
void check_settings(const FileSettings& file, Mistakes& mistakes);

}  // namespace erps::host
