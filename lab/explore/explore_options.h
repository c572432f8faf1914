// The command line of erpslab explore.
#pragma once

#include <CLI/CLI.hpp>

#include "lab/explore/command_explore.h"

namespace erps::lab {

// The arguments are those of the command line once the application has parsed it.
const CLI::App* add_explore_command(CLI::App& app, ExploreArguments& arguments);

}  // namespace erps::lab
