// The protection module: a shared object that finds the platform calls in this executable.
//
// Threading: one thread, the one that starts and stops the platform. Errors: std::runtime_error.
#pragma once

#include <string>

namespace erps::host {

// Where the module is when nobody says: beside this executable in ../lib, else where it is
// installed.
std::string default_module_path();

class Module {
 public:
  // Loads it and finds its calls; nothing of it runs yet. It stays loaded until the process ends,
  // since its texts may still be referred to.
  explicit Module(const std::string& path);

 private:
  friend class RunningModule;
  using Lifecycle = int (*)();
  Lifecycle find(const char* name) const;

  std::string path_;
  void* handle_;
  Lifecycle init_, start_, stop_, begin_, exit_;
};

// The module's tasks, from start to stop. The platform has to run all the while.
class RunningModule {
 public:
  // When this returns, the module's queues are open.
  explicit RunningModule(const Module& module);
  // Stops the tasks and removes the event queue.
  ~RunningModule();
  RunningModule(const RunningModule&) = delete;
  RunningModule& operator=(const RunningModule&) = delete;

 private:
  const Module& module_;
};

}  // namespace erps::host
