// Where the module's imports lead in a simulation.
//
// Every import is either virtual, led to a function of the simulator, or allowed: pure computation
// that cannot tell one run from another. Whatever is neither would make runs differ, so a module
// that needs it is not loaded.
#pragma once

#include <string_view>

namespace erps::sim {

// The simulator's function for an import, or null.
void* virtual_import(std::string_view name);

// The same for a simulation whose log nobody reads.
void* unlogged_import(std::string_view name);

bool is_allowed_import(std::string_view name);

// Whether an allowed import remembers something of the module elsewhere than in its variables.
bool keeps_books(std::string_view name);

}  // namespace erps::sim
