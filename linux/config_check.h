// Checks a configuration against its own rules and against the kernel, changing nothing.
//
// Errors: PlatformError, naming the value, what is allowed and what to do.
#pragma once

#include "linux/link_info.h"
#include "linux/platform.h"

namespace erps::linux_platform {

// Rules that need no kernel: numbers, names, duplicates.
void check_values(const Config& config);

// The bridge exists and nobody's spanning tree runs in the kernel; every interface exists and is
// its port. Returns the bridge.
LinkInfo check_kernel(const Config& config, NetlinkSocket& socket);

}  // namespace erps::linux_platform
