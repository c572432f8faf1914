// Finds what the laboratory's commands need on this machine: the daemon, the module, a directory.
//
// Errors: LabError that names what was looked for, or the path that cannot be used.
#pragma once

#include <string>

#include "lab/unique_fd.h"

namespace erps::lab {

// Each takes what the command line says; where that is empty it looks: for erpsd beside erpslab and
// then in PATH, for liberps.so where the build or the installation puts it. The path is absolute.
std::string find_daemon(const std::string& given);
std::string find_module(const std::string& given);

// Opens a directory, which is made if it is not there. Nothing for an empty path.
UniqueFd open_directory(const std::string& path);

}  // namespace erps::lab
