// `erpslab exec NODE COMMAND`: runs a command inside a node of a laboratory that is running.
#pragma once

#include <sys/types.h>

#include <string>
#include <vector>

namespace erps::lab {

// Joins the namespaces of the node, so that the command sees its interfaces and its erpsd, and ends
// with the laboratory at the latest. Returns the command's exit status, 128 + N when signal N ended
// it, or kCouldNotRun when there is no such node, or several. `lab` is the process ID of the
// erpslab that is meant, 0 where only one runs.
int command_exec(const std::string& node, pid_t lab, const std::vector<std::string>& command);

}  // namespace erps::lab
