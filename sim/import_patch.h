// Leads the imports of a loaded shared object to where the import table says.
#pragma once

#include <link.h>

namespace erps::sim {

// Errors: SimError naming the import that is neither virtual nor allowed, a symbol that all copies
// would share, or an export that another object has captured. Nothing is undone.
void redirect_imports(const link_map& object);

}  // namespace erps::sim
