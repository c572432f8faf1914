#include "sim/module_copy.h"

#include <dlfcn.h>
#include <link.h>

#include "sim/shared_code.h"
#include "sim/sim_error.h"

namespace erps::sim {

void ModuleCopy::Unload::operator()(void* handle) const {
  dlclose(handle);
}

ModuleCopy::ModuleCopy(const std::string& module_path, ImportLookup supplied)
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
  redirect_imports(*map, supplied);
  init_ = find("erps_module_init");
  start_ = find("erps_module_start");
  stop_ = find("erps_module_stop");
  exit_ = find("erps_exit");
}

ModuleCopy::~ModuleCopy() = default;

ModuleCopy::Call ModuleCopy::find(const char* name) const {
  void* symbol = dlsym(handle_.get(), name);
  if (symbol == nullptr) {
    throw SimError(std::string("the module does not export ") + name);
  }
  return reinterpret_cast<Call>(symbol);
}

}  // namespace erps::sim
