#include "tests/lab/lab_process.h"

#include <fcntl.h>
#include <net/if.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <stdexcept>
#include <thread>

namespace erps::lab::testing {

namespace {

namespace fs = std::filesystem;
using Clock = std::chrono::steady_clock;

constexpr const char* kMarkVariable = "ERPSLAB_TEST_RUN";
constexpr std::chrono::milliseconds kPoll{5};

std::string read_file(const std::string& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

std::vector<pid_t> all_processes() {
  std::vector<pid_t> found;
  for (const auto& entry : fs::directory_iterator("/proc")) {
    const std::string name = entry.path().filename();
    pid_t pid = 0;
    const auto result = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (result.ec == std::errc() && result.ptr == name.data() + name.size()) {
      found.push_back(pid);
    }
  }
  return found;
}

std::set<std::string> namespaces_of(pid_t pid) {
  std::set<std::string> found;
  for (const char* kind : {"net", "ipc", "mnt", "pid"}) {
    char target[128];
    const std::string path = "/proc/" + std::to_string(pid) + "/ns/" + kind;
    const ssize_t length = readlink(path.c_str(), target, sizeof target);
    if (length > 0) {
      found.insert(std::string(target, static_cast<size_t>(length)));
    }
  }
  return found;
}

bool is_zombie(pid_t pid) {
  const std::string stat = read_file("/proc/" + std::to_string(pid) + "/stat");
  const size_t name_end = stat.rfind(')');
  return name_end == std::string::npos || stat.compare(name_end, 3, ") Z") == 0;
}

// Those of the namespaces that a process is in. One that has ended and waits for its parent is in
// none any more.
std::set<std::string> in_use(const std::set<std::string>& namespaces) {
  std::set<std::string> found;
  for (const pid_t pid : all_processes()) {
    for (const std::string& name : namespaces_of(pid)) {
      if (namespaces.count(name) != 0 && !is_zombie(pid)) {
        found.insert(name);
      }
    }
  }
  return found;
}

void add_lines(std::set<std::string>& traces, const char* path, const char* with) {
  std::istringstream in(read_file(path));
  for (std::string line; std::getline(in, line);) {
    if (line.find(with) != std::string::npos) {
      traces.insert(std::string(path) + ": " + line);
    }
  }
}

}  // namespace

LabProcess::LabProcess(const std::vector<std::string>& arguments, int uid) {
  static int runs = 0;
  mark_ = std::to_string(getpid()) + "." + std::to_string(++runs);
  out_path_ = "/tmp/lab-test-out." + mark_;
  err_path_ = "/tmp/lab-test-err." + mark_;
  const int out = open(out_path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  const int err = open(err_path_.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0600);
  std::vector<std::string> copies = arguments;
  std::vector<char*> argv;
  argv.reserve(copies.size() + 1);
  for (std::string& argument : copies) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  pid_ = fork();
  if (pid_ == 0) {
    for (const int number : {SIGINT, SIGTERM, SIGHUP}) {
      ::signal(number, SIG_DFL);
    }
    dup2(out, 1);
    dup2(err, 2);
    setenv(kMarkVariable, mark_.c_str(), 1);
    const auto id = static_cast<uid_t>(uid);
    if (uid >= 0 && (setresgid(id, id, id) != 0 || setresuid(id, id, id) != 0)) {
      _exit(126);
    }
    execv(argv[0], argv.data());
    _exit(127);
  }
  close(out);
  close(err);
  if (pid_ < 0) {
    throw std::runtime_error("fork");
  }
}

LabProcess::~LabProcess() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    waitpid(pid_, nullptr, 0);
  }
  unlink(out_path_.c_str());
  unlink(err_path_.c_str());
}

void LabProcess::signal(int number) const {
  kill(pid_, number);
}

LabResult LabProcess::wait(std::chrono::seconds longest) {
  const auto deadline = Clock::now() + longest;
  int status = 0;
  while (waitpid(pid_, &status, WNOHANG) != pid_) {
    if (Clock::now() > deadline) {
      kill(pid_, SIGKILL);
      waitpid(pid_, &status, 0);
      break;
    }
    std::this_thread::sleep_for(kPoll);
  }
  pid_ = -1;
  LabResult result;
  result.exited = WIFEXITED(status);
  result.status = result.exited ? WEXITSTATUS(status) : WTERMSIG(status);
  result.out = read_file(out_path_);
  result.err = read_file(err_path_);
  return result;
}

std::string LabProcess::out_so_far() const {
  return read_file(out_path_);
}

std::string LabProcess::err_so_far() const {
  return read_file(err_path_);
}

std::vector<pid_t> LabProcess::processes() const {
  const std::string mark = std::string(kMarkVariable) + "=" + mark_ + '\0';
  std::vector<pid_t> found;
  for (const pid_t pid : all_processes()) {
    const std::string environment = read_file("/proc/" + std::to_string(pid) + "/environ");
    if (environment.find(mark) != std::string::npos && !is_zombie(pid)) {
      found.push_back(pid);
    }
  }
  return found;
}

std::set<std::string> LabProcess::namespaces() const {
  std::set<std::string> found;
  const std::set<std::string> ours = namespaces_of(getpid());
  for (const pid_t pid : processes()) {
    for (const std::string& name : namespaces_of(pid)) {
      if (ours.count(name) == 0) {
        found.insert(name);
      }
    }
  }
  return found;
}

bool LabProcess::all_gone(std::chrono::seconds longest) const {
  const auto deadline = Clock::now() + longest;
  while (!processes().empty()) {
    if (Clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(kPoll);
  }
  return true;
}

std::set<std::string> still_in_use(const std::set<std::string>& namespaces,
                                   std::chrono::seconds longest) {
  const auto deadline = Clock::now() + longest;
  std::set<std::string> found = in_use(namespaces);
  while (!found.empty() && Clock::now() < deadline) {
    std::this_thread::sleep_for(kPoll);
    found = in_use(namespaces);
  }
  return found;
}

std::set<std::string> traces() {
  std::set<std::string> found;
  add_lines(found, "/proc/self/mountinfo", "erps");
  add_lines(found, "/proc/sysvipc/msg", "10552");
  for (const char* directory : {"/tmp", "/var/tmp", "/run", "/dev/shm", "/dev/mqueue", "."}) {
    std::error_code error;
    for (const auto& entry : fs::directory_iterator(directory, error)) {
      if (entry.path().filename().string().find("erps") != std::string::npos) {
        found.insert(entry.path());
      }
    }
  }
  struct if_nameindex* interfaces = if_nameindex();
  for (auto* entry = interfaces; entry != nullptr && entry->if_index != 0; ++entry) {
    found.insert(std::string("interface ") + entry->if_name);
  }
  if_freenameindex(interfaces);
  return found;
}

std::string lab_path() {
  return ERPS_LAB;
}
std::string daemon_path() {
  return ERPS_DAEMON;
}
std::string module_path() {
  return ERPS_MODULE;
}

TemporaryDirectory::TemporaryDirectory() {
  char path[] = "/tmp/lab-test-XXXXXX";
  if (mkdtemp(path) == nullptr || chmod(path, 0755) != 0) {
    throw std::runtime_error("no temporary directory");
  }
  path_ = path;
}

TemporaryDirectory::~TemporaryDirectory() {
  fs::remove_all(path_);
}

std::string TemporaryDirectory::write(const std::string& name, const std::string& text) const {
  std::string path = path_ + "/" + name;
  std::ofstream(path, std::ios::binary) << text;
  return path;
}

}  // namespace erps::lab::testing
