// Brings the configured rings into the module through its management queue, as any client would.
//
// Threading: one thread. Errors: std::runtime_error that names the ring and the reason.
#pragma once

#include "host/config.h"

namespace erps::host {

// Times first, then the rings and their sub-rings, and when all of them are there, enables them.
void set_up_rings(const Config& config);

}  // namespace erps::host
