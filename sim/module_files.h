// The copies of the module on disk: a shared object that is to be loaded several times needs as
// many files. They live in a private directory for as long as the process does, so that debuggers
// find the symbols, and are reused by one simulation after the other.
//
// The directory is removed when the process ends, also by the usual signals; what a process that
// was killed left behind, the next one of the same user removes.
//
// Threading: one thread. Errors: SimError. Logs nothing, but a fatal signal prints the seed.
#pragma once

#include <string>

namespace erps::sim {

// One file of the pool, its own for the lifetime of this object.
class ModuleFile {
 public:
  // module_path: the shared object to copy.
  explicit ModuleFile(const std::string& module_path);
  ~ModuleFile();
  ModuleFile(const ModuleFile&) = delete;
  ModuleFile& operator=(const ModuleFile&) = delete;

  const std::string& path() const { return path_; }
  // An open file of the same content, the same one for all copies of a module.
  int common_file() const { return common_file_; }

 private:
  std::string module_path_;
  std::string path_;
  int common_file_;
};

}  // namespace erps::sim
