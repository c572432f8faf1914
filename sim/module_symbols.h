// Finds variables of a loaded module by their names, those that it does not export included.
//
// The loader knows only what a shared object exports, so the table is read from the file: a module
// that was stripped has none.
//
// Threading: none. Errors: SimError for a file that cannot be read, is no shared object of this
// machine or was stripped, and for a name that no variable or more than one has.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace erps::sim {

class ModuleSymbols {
 public:
  explicit ModuleSymbols(const std::string& path);

  struct Variable {
    std::string name;      // as in the file: mangled
    uintptr_t offset = 0;  // from where the shared object is loaded
    uintptr_t size = 0;    // in bytes
  };

  // By the name without its namespaces.
  const Variable& variable(std::string_view name) const;

 private:
  std::string path_;
  std::vector<Variable> variables_;
};

}  // namespace erps::sim
