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
  // Loads it. It stays loaded until the process ends, since its texts may still be referred to.
  explicit Module(const std::string& path);
  // Stops it when it is running.
  ~Module();
  Module(const Module&) = delete;
  Module& operator=(const Module&) = delete;

  // Starts its tasks: when this returns, its queues are open.
  void start();
  // Stops its tasks and removes its event queue.
  void stop() noexcept;

 private:
  using Lifecycle = int (*)();
  Lifecycle find(const char* name) const;

  std::string path_;
  void* handle_;
  Lifecycle init_, start_, stop_, begin_, exit_;
  bool running_ = false;
};

}  // namespace erps::host
