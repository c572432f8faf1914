// Where a loaded shared object keeps its variables.
//
// Threading: one thread. Errors: SimError when the object has none.
#pragma once

#include <cstddef>
#include <cstdint>

namespace erps::sim {

struct ModuleVariables {
  uint64_t* words = nullptr;
  size_t count = 0;
};

// Without what is read-only once the object is loaded.
ModuleVariables variables_at(uintptr_t load_address);

}  // namespace erps::sim
