// One loaded copy of the module, with its own statics, all its imports led to the simulator.
//
// Threading: one thread. Errors: SimError when the shared object cannot be loaded, shares symbols
// among copies, or imports what a simulation cannot supply.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "sim/import_table.h"
#include "sim/loaded_module.h"

namespace erps::sim {

class ModuleCopy {
 public:
  // supplied: where its imports lead; those of a simulation unless told otherwise.
  explicit ModuleCopy(const std::string& module_path, ImportLookup supplied = virtual_import);
  // What was loaded is kept for the next copy.
  ~ModuleCopy();
  ModuleCopy(const ModuleCopy&) = delete;
  ModuleCopy& operator=(const ModuleCopy&) = delete;

  // The exported lifecycle; called from tasks of the node only.
  int init() const { return loaded_->init(); }
  int start() const { return loaded_->start(); }
  int stop() const { return loaded_->stop(); }
  int exit() const { return loaded_->exit(); }

  // What it is a copy of, the file that it was loaded from, and where to.
  const std::string& module_path() const { return module_path_; }
  const std::string& path() const { return loaded_->path(); }
  uintptr_t load_address() const { return loaded_->load_address(); }

 private:
  const std::string module_path_;
  const ImportLookup supplied_;
  std::unique_ptr<LoadedModule> loaded_;
};

}  // namespace erps::sim
