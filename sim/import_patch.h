// Leads the imports of a loaded shared object to where the import table says.
#pragma once

#include <link.h>

#include <string_view>

namespace erps::sim {

// The function that an import of this name is led to, or null for one that stays as it is.
using ImportLookup = void* (*)(std::string_view name);

// Errors: SimError naming the import that is neither virtual nor allowed, a symbol that all copies
// would share, or an export that another object has captured. Nothing is undone.
void redirect_imports(const link_map& object, ImportLookup supplied);

}  // namespace erps::sim
