// One loaded copy of the module, with its own statics, all its imports led to the simulator.
//
// Threading: one thread. Errors: SimError when the shared object cannot be loaded, shares symbols
// among copies, or imports what a simulation cannot supply.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "sim/import_patch.h"
#include "sim/import_table.h"
#include "sim/module_files.h"

namespace erps::sim {

class ModuleCopy {
 public:
  // supplied: where its imports lead; those of a simulation unless told otherwise.
  explicit ModuleCopy(const std::string& module_path, ImportLookup supplied = virtual_import);
  ~ModuleCopy();
  ModuleCopy(const ModuleCopy&) = delete;
  ModuleCopy& operator=(const ModuleCopy&) = delete;

  // The exported lifecycle; called from tasks of the node only.
  int init() const { return init_(); }
  int start() const { return start_(); }
  int stop() const { return stop_(); }
  int exit() const { return exit_(); }

  // The file that it was loaded from, and where to.
  const std::string& path() const { return file_.path(); }
  uintptr_t load_address() const { return load_address_; }

 private:
  using Call = int (*)();
  struct Unload {
    void operator()(void* handle) const;
  };

  Call find(const char* name) const;

  ModuleFile file_;
  std::unique_ptr<void, Unload> handle_;
  uintptr_t load_address_ = 0;
  Call init_ = nullptr;
  Call start_ = nullptr;
  Call stop_ = nullptr;
  Call exit_ = nullptr;
};

}  // namespace erps::sim
