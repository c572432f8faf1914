#include "sim/loaded_module.h"

#include <dlfcn.h>
#include <link.h>

#include <algorithm>

#include "sim/shared_code.h"
#include "sim/sim_error.h"

namespace erps::sim {

void LoadedModule::Unload::operator()(void* handle) const {
  dlclose(handle);
}

LoadedModule::LoadedModule(const std::string& module_path, ImportLookup supplied)
    : file_(module_path), handle_(dlopen(file_.path().c_str(), RTLD_NOW | RTLD_LOCAL)) {
  if (handle_ == nullptr) {
    throw SimError("cannot load the module " + module_path + ": " + dlerror());
  }
  const link_map* map = nullptr;
  if (dlinfo(handle_.get(), RTLD_DI_LINKMAP, &map) != 0) {
    throw SimError(std::string("cannot look into the loaded module: ") + dlerror());
  }
  load_address_ = map->l_addr;
  share_code(*map, file_.common_file());
  can_be_reset_ = !redirect_imports(*map, supplied).keeps_books;
  init = find("erps_module_init");
  start = find("erps_module_start");
  stop = find("erps_module_stop");
  exit = find("erps_exit");
  if (can_be_reset_) {
    variables_ = variables_at(load_address_);
    initial_.assign(variables_.words, variables_.words + variables_.count);
  }
}

LoadedModule::~LoadedModule() = default;

void LoadedModule::reset() {
  std::copy(initial_.begin(), initial_.end(), variables_.words);
}

LoadedModule::Call LoadedModule::find(const char* name) const {
  void* symbol = dlsym(handle_.get(), name);
  if (symbol == nullptr) {
    throw SimError(std::string("the module does not export ") + name);
  }
  return reinterpret_cast<Call>(symbol);
}

}  // namespace erps::sim
