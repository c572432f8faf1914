#include "lab/command_exec.h"

#include <dirent.h>
#include <fcntl.h>
#include <limits.h>
#include <sched.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <charconv>
#include <cstdio>
#include <fstream>
#include <sstream>

#include "lab/command_run.h"
#include "lab/lab_error.h"
#include "lab/sandbox.h"
#include "lab/unique_fd.h"

namespace erps::lab {

namespace {

// The daemons that run with this configuration file, which only a laboratory has.
std::vector<pid_t> daemons_with(const std::string& config) {
  std::vector<pid_t> found;
  DIR* directory = opendir("/proc");
  if (directory == nullptr) {
    throw system_error("/proc");
  }
  const std::string wanted = std::string("--config") + '\0' + config + '\0';
  while (const dirent* entry = readdir(directory)) {
    const std::string name = entry->d_name;
    pid_t pid = 0;
    const auto result = std::from_chars(name.data(), name.data() + name.size(), pid);
    if (result.ec != std::errc() || result.ptr != name.data() + name.size()) {
      continue;
    }
    std::ifstream in("/proc/" + name + "/cmdline", std::ios::binary);
    std::ostringstream arguments;
    arguments << in.rdbuf();
    if (arguments.str().find(wanted) != std::string::npos) {
      found.push_back(pid);
    }
  }
  closedir(directory);
  return found;
}

pid_t parent_of(pid_t pid) {
  std::ifstream in("/proc/" + std::to_string(pid) + "/status");
  for (std::string word; in >> word;) {
    pid_t parent = 0;
    if (word == "PPid:" && in >> parent) {
      return parent;
    }
  }
  return 0;
}

// The erpslab that runs a daemon: process 1 of the laboratory stands between them.
pid_t lab_of(pid_t daemon) {
  return parent_of(parent_of(daemon));
}

// The daemon of the node, in the laboratory that is meant.
pid_t find_daemon(const std::string& node, pid_t lab) {
  std::vector<pid_t> found;
  std::string labs;
  for (const pid_t daemon : daemons_with(std::string(kWorkDirectory) + "/" + node + ".toml")) {
    if (lab == 0 || lab_of(daemon) == lab) {
      found.push_back(daemon);
      labs += (labs.empty() ? "" : ", ") + std::to_string(lab_of(daemon));
    }
  }
  if (found.empty()) {
    throw LabError("no laboratory with a node " + node + " is running" +
                   (lab == 0 ? "" : " as process " + std::to_string(lab)));
  }
  if (found.size() > 1) {
    throw LabError("several laboratories with a node " + node +
                   " are running: say which with --lab; allowed: " + labs);
  }
  return found[0];
}

bool is_own_user_namespace(pid_t pid) {
  struct stat ours {};
  struct stat theirs {};
  const std::string path = "/proc/" + std::to_string(pid) + "/ns/user";
  return stat("/proc/self/ns/user", &ours) == 0 && stat(path.c_str(), &theirs) == 0 &&
         ours.st_ino == theirs.st_ino;
}

// erpsctl stands beside erpslab in a build as in an installation.
void find_our_programs() {
  char path[PATH_MAX];
  const ssize_t length = readlink("/proc/self/exe", path, sizeof path);
  const std::string own(path, length > 0 ? static_cast<size_t>(length) : 0);
  const char* others = getenv("PATH");
  setenv("PATH", (own.substr(0, own.rfind('/')) + ":" + (others == nullptr ? "" : others)).c_str(),
         1);
}

void join_namespaces_of(pid_t pid, const std::string& node) {
  const UniqueFd process(static_cast<int>(syscall(SYS_pidfd_open, pid, 0)));
  const std::string root_path = "/proc/" + std::to_string(pid) + "/root";
  const UniqueFd root(open(root_path.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
  const bool other_user = !is_own_user_namespace(pid);
  const int kinds =
      CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWNS | CLONE_NEWPID | (other_user ? CLONE_NEWUSER : 0);
  // Its root directory too, which is not that of its mount namespace in a chroot.
  if (!process.is_open() || !root.is_open() || setns(process.get(), kinds) != 0 ||
      fchdir(root.get()) != 0 || chroot(".") != 0) {
    throw LabError("node " + node + " cannot be entered: " + std::strerror(errno) +
                   "; only who runs the laboratory and root may");
  }
  // Its daemons run as root of their user namespace, and answer root only.
  if (other_user && (setresgid(0, 0, 0) != 0 || setresuid(0, 0, 0) != 0)) {
    throw system_error("node " + node + " cannot be entered as root");
  }
}

}  // namespace

int command_exec(const std::string& node, pid_t lab, const std::vector<std::string>& command) {
  if (command.empty()) {
    std::fprintf(stderr, "erpslab: exec %s what? Say a command\n", node.c_str());
    return kMistaken;
  }
  try {
    const pid_t daemon = find_daemon(node, lab);
    std::vector<std::string> copies = command;
    std::vector<char*> argv;
    argv.reserve(copies.size() + 1);
    for (std::string& argument : copies) {
      argv.push_back(argument.data());
    }
    argv.push_back(nullptr);
    find_our_programs();  // whose path the kernel tells in the mount namespace that they are in
    join_namespaces_of(daemon, node);
    const pid_t child = fork();  // only a child is in the process namespace
    if (child == 0) {
      execvp(argv[0], argv.data());
      std::fprintf(stderr, "erpslab: %s: %s\n", argv[0], std::strerror(errno));
      _exit(kCouldNotRun);
    }
    // Ctrl-C is for the command.
    signal(SIGINT, SIG_IGN);
    signal(SIGQUIT, SIG_IGN);
    int status = 0;
    if (child < 0 || waitpid(child, &status, 0) != child) {
      throw system_error(command[0]);
    }
    return WIFEXITED(status) ? WEXITSTATUS(status) : kSignalStatus + WTERMSIG(status);
  } catch (const LabError& error) {
    std::fprintf(stderr, "erpslab: %s\n", error.what());
    return kCouldNotRun;
  }
}

}  // namespace erps::lab
