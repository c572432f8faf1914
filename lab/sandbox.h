// Runs the laboratory as process 1 of namespaces of its own, so that nothing outlives it: when
// process 1 ends, the kernel ends every process in there, and with them go the namespaces, the
// interfaces, the queues and the file systems.
//
// Threading: run_in_sandbox is called with one thread only. Errors: LabError, with what to do, when
// the machine does not allow namespaces. Logs nothing.
#pragma once

#include <functional>
#include <string>
#include <vector>

namespace erps::lab {

// Where the laboratory keeps its files: on a file system of its own that nobody else sees.
inline constexpr const char* kWorkDirectory = "/run/erpslab";

// Exit status of a laboratory that a signal ended: 128 + the number of the signal, as shells say
// it.
inline constexpr int kSignalStatus = 128;

// Runs `inside` in a new user (unless root), network, IPC, mount and process namespace, with an
// empty /run and kWorkDirectory, and returns what it returned. SIGINT, SIGTERM, SIGHUP and SIGQUIT
// end it; if the calling process is killed, it is killed, too.
// `inside` must not need `hidden`: paths that would lie below the empty /run.
int run_in_sandbox(const std::function<int()>& inside, const std::vector<std::string>& hidden);

}  // namespace erps::lab
