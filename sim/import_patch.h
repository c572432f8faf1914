// Leads the imports of a loaded shared object to where the import table says.
#pragma once

#include <link.h>

#include <string_view>

namespace erps::sim {

// The function that an import of this name is led to, or null for one that stays as it is.
using ImportLookup = void* (*)(std::string_view name);

struct Redirected {
  // The object has a memory beyond its variables: that of a sanitizer or of a counter of coverage,
  // or what is to be destroyed when it is unloaded.
  bool keeps_books = false;
};

// Errors: SimError naming the import that is neither virtual nor allowed, a symbol that all copies
// would share, or an export that another object has captured. Nothing is undone.
Redirected redirect_imports(const link_map& object, ImportLookup supplied);

}  // namespace erps::sim
