#include "sim/module_copy.h"

#include <map>
#include <utility>
#include <vector>

namespace erps::sim {

namespace {

using Idle = std::vector<std::unique_ptr<LoadedModule>>;

// Never unloaded: what is left of them at the end goes with the process.
Idle& idle_modules(const std::string& module_path, ImportLookup supplied) {
  static auto& idle = *new std::map<std::pair<std::string, ImportLookup>, Idle>;
  return idle[{module_path, supplied}];
}

std::unique_ptr<LoadedModule> take(const std::string& module_path, ImportLookup supplied) {
  Idle& idle = idle_modules(module_path, supplied);
  if (idle.empty()) {
    return std::make_unique<LoadedModule>(module_path, supplied);
  }
  std::unique_ptr<LoadedModule> loaded = std::move(idle.back());
  idle.pop_back();
  loaded->reset();
  return loaded;
}

}  // namespace

ModuleCopy::ModuleCopy(const std::string& module_path, ImportLookup supplied)
    : module_path_(module_path), supplied_(supplied), loaded_(take(module_path, supplied)) {}

ModuleCopy::~ModuleCopy() {
  if (loaded_->can_be_reset()) {
    idle_modules(module_path_, supplied_).push_back(std::move(loaded_));
  }
}

}  // namespace erps::sim
