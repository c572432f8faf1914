#include "host/module.h"

#include <dlfcn.h>
#include <limits.h>
#include <stdlib.h>
#include <unistd.h>

#include <stdexcept>

#include "host/build_paths.h"

namespace erps::host {

std::string default_module_path() {
  char executable[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", executable, sizeof executable);
  if (length > 0) {
    const std::string path(executable, static_cast<size_t>(length));
    const std::string directory = path.substr(0, path.rfind('/'));
    for (const char* place : {"/../lib/liberps.so", "/../lib/erps/liberps.so"}) {
      if (access((directory + place).c_str(), R_OK) == 0) {
        return directory + place;
      }
    }
  }
  return kInstalledModule;
}

Module::Module(const std::string& path) : path_(path) {
  // Without a slash dlopen would search the system's directories.
  const std::string file = path.find('/') == std::string::npos ? "./" + path : path;
  handle_ = dlopen(file.c_str(), RTLD_NOW | RTLD_LOCAL);
  if (handle_ == nullptr) {
    throw std::runtime_error(std::string("loading the module: ") + dlerror());
  }
  init_ = find("erps_module_init");
  start_ = find("erps_module_start");
  stop_ = find("erps_module_stop");
  begin_ = find("erps_start");
  exit_ = find("erps_exit");
}

Module::Lifecycle Module::find(const char* name) const {
  void* symbol = dlsym(handle_, name);
  if (symbol == nullptr) {
    throw std::runtime_error(path_ + " is not the protection module: it has no " + name);
  }
  return reinterpret_cast<Lifecycle>(symbol);
}

RunningModule::RunningModule(const Module& module) : module_(module) {
  if (module_.init_() != 0) {
    throw std::runtime_error("the module refused to initialise");
  }
  if (module_.start_() != 0) {
    module_.exit_();
    throw std::runtime_error("the module's tasks could not be started");
  }
  module_.begin_();
}

RunningModule::~RunningModule() {
  module_.stop_();
  module_.exit_();
}

}  // namespace erps::host
