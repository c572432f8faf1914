// The module, loaded from a file of its own, with all its imports led elsewhere. It is a new one
// again after reset(), which is much cheaper than to load it again.
//
// Threading: one thread. Errors: SimError when the shared object cannot be loaded, shares symbols
// among copies, or imports what a simulation cannot supply.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "sim/import_patch.h"
#include "sim/module_files.h"
#include "sim/module_variables.h"

namespace erps::sim {

class LoadedModule {
 public:
  using Call = int (*)();

  LoadedModule(const std::string& module_path, ImportLookup supplied);
  ~LoadedModule();
  LoadedModule(const LoadedModule&) = delete;
  LoadedModule& operator=(const LoadedModule&) = delete;

  // False for one that keeps more than its own variables: what its compiler added to count or to
  // check has a memory beyond this, and so has a list of what is to be destroyed at the end.
  bool can_be_reset() const { return can_be_reset_; }
  void reset();

  const std::string& path() const { return file_.path(); }
  uintptr_t load_address() const { return load_address_; }

  // The exported lifecycle.
  Call init = nullptr;
  Call start = nullptr;
  Call stop = nullptr;
  Call exit = nullptr;

 private:
  struct Unload {
    void operator()(void* handle) const;
  };

  Call find(const char* name) const;

  ModuleFile file_;
  std::unique_ptr<void, Unload> handle_;
  uintptr_t load_address_ = 0;
  bool can_be_reset_ = false;
  ModuleVariables variables_;
  std::vector<uint64_t> initial_;  // what they were when it was loaded
};

}  // namespace erps::sim
