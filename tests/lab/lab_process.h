// Runs erpslab the way a user does and finds out what it leaves behind.
#pragma once

#include <sys/types.h>

#include <chrono>
#include <set>
#include <string>
#include <vector>

namespace erps::lab::testing {

struct LabResult {
  bool exited = false;
  int status = 0;  // exit status, or the signal that ended it
  std::string out, err;
};

// One run of erpslab. Everything that it starts carries a mark in its environment, by which it is
// found again.
class LabProcess {
 public:
  // uid: who runs it, -1: whoever runs the test.
  explicit LabProcess(const std::vector<std::string>& arguments, int uid = -1);
  ~LabProcess();
  LabProcess(const LabProcess&) = delete;
  LabProcess& operator=(const LabProcess&) = delete;

  pid_t pid() const { return pid_; }
  void signal(int number) const;
  // Waits until it has ended; a test that waits longer than this has failed.
  LabResult wait(std::chrono::seconds longest);

  std::string out_so_far() const;
  std::string err_so_far() const;

  // The processes that carry the mark, and the namespaces that they are in.
  std::vector<pid_t> processes() const;
  std::set<std::string> namespaces() const;
  // Waits until no process carries the mark; false when some still do after so long.
  bool all_gone(std::chrono::seconds longest) const;

 private:
  std::string mark_;
  std::string out_path_, err_path_;
  pid_t pid_ = -1;
};

// Waits until no process of the machine is in one of these namespaces; which ones still are.
std::set<std::string> still_in_use(const std::set<std::string>& namespaces,
                                   std::chrono::seconds longest);

// What a run could leave behind: mounts, interfaces, System V queues, and files and directories
// with "erps" in their name where temporary files live.
std::set<std::string> traces();

// erpslab, erpsd and liberps.so as the build made them.
std::string lab_path();
std::string daemon_path();
std::string module_path();

// A directory of its own that everybody may read, gone with its owner.
class TemporaryDirectory {
 public:
  TemporaryDirectory();
  ~TemporaryDirectory();
  TemporaryDirectory(const TemporaryDirectory&) = delete;
  TemporaryDirectory& operator=(const TemporaryDirectory&) = delete;
  const std::string& path() const { return path_; }
  // Writes a file into it and returns its path.
  std::string write(const std::string& name, const std::string& text) const;

 private:
  std::string path_;
};

}  // namespace erps::lab::testing
