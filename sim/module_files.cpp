#include "sim/module_files.h"

#include <fcntl.h>
#include <unistd.h>

#include <cerrno>
#include <csignal>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <map>
#include <vector>

#include "sim/crash_cleanup.h"
#include "sim/sim_error.h"

namespace erps::sim {

namespace fs = std::filesystem;

namespace {

constexpr char kDirectoryPrefix[] = "erps-sim.";

// Directories are named after the process that made them: erps-sim.<pid>.<random>.
void remove_directories_of_the_dead(const fs::path& parent) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(parent, error)) {
    const std::string name = entry.path().filename();
    if (name.rfind(kDirectoryPrefix, 0) != 0) {
      continue;
    }
    const long pid = std::strtol(name.c_str() + std::strlen(kDirectoryPrefix), nullptr, 10);
    if (pid > 0 && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) {
      fs::remove_all(entry.path(), error);
    }
  }
}

class Pool {
 public:
  Pool() {
    const fs::path parent = fs::temp_directory_path();
    remove_directories_of_the_dead(parent);
    directory_ = parent / (kDirectoryPrefix + std::to_string(getpid()) + ".XXXXXX");
    if (mkdtemp(directory_.data()) == nullptr) {
      throw SimError("cannot make a directory for the copies of the module, " + directory_ + ": " +
                     std::strerror(errno));
    }
    clean_up_on_signals(directory_);
  }
  ~Pool() { remove_directory(); }
  Pool(const Pool&) = delete;
  Pool& operator=(const Pool&) = delete;

  std::string take(const std::string& module_path) {
    Module& module = modules_[module_path];
    if (!module.idle.empty()) {
      std::string path = module.idle.back();
      module.idle.pop_back();
      return path;
    }
    if (module.image.empty()) {
      std::ifstream file(module_path, std::ios::binary);
      module.image.assign(std::istreambuf_iterator<char>(file), {});
      if (module.image.empty()) {
        throw SimError("cannot read the module " + module_path + ": " + std::strerror(errno));
      }
    }
    std::string path = directory_ + "/" + kCopyPrefix + std::to_string(files_) + kCopySuffix;
    set_files_to_clean(++files_);
    std::ofstream copy(path, std::ios::binary);
    copy.write(module.image.data(), static_cast<std::streamsize>(module.image.size()));
    if (!copy.flush()) {
      throw SimError("cannot write " + path + ": " + std::strerror(errno));
    }
    if (module.common_file < 0) {
      module.common_file = open(path.c_str(), O_RDONLY | O_CLOEXEC);
      if (module.common_file < 0) {
        throw SimError("cannot open " + path + ": " + std::strerror(errno));
      }
    }
    return path;
  }

  int common_file(const std::string& module_path) { return modules_[module_path].common_file; }

  void give_back(const std::string& module_path, const std::string& path) {
    modules_[module_path].idle.push_back(path);
  }

 private:
  struct Module {
    std::vector<char> image;
    std::vector<std::string> idle;
    int common_file = -1;
  };

  std::string directory_;
  unsigned files_ = 0;
  std::map<std::string, Module> modules_;
};

Pool& pool() {
  static Pool the_pool;
  return the_pool;
}

}  // namespace

ModuleFile::ModuleFile(const std::string& module_path)
    : module_path_(module_path),
      path_(pool().take(module_path)),
      common_file_(pool().common_file(module_path)) {}

ModuleFile::~ModuleFile() {
  pool().give_back(module_path_, path_);
}

}  // namespace erps::sim
