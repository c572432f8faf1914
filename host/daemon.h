// The life of the daemon: platform, module, rings, and back.
#pragma once

#include <string>

#include "host/config.h"

namespace erps::host {

enum ExitStatus {
  kStopped = 0,         // on SIGTERM or SIGINT; or the check passed
  kFailed = 1,          // platform or module could not be started
  kUsage = 2,           // command line or configuration file
  kAlreadyRunning = 3,  // another daemon in this IPC namespace
  kRingRefused = 4,     // a ring could not be configured
};

struct RunOptions {
  std::string module_path;
  std::string journal_path;  // "" none
  int ready_fd = -1;         // -1 none
};

// Blocks the signals that the daemon waits for; before any thread exists, so that all inherit it.
void block_signals();

// Runs until SIGTERM or SIGINT. Whatever was started is stopped again, in the opposite order, also
// when a later step fails. Returns the exit status; why it is not 0 has been logged.
ExitStatus run(const Config& config, const RunOptions& options);

}  // namespace erps::host
