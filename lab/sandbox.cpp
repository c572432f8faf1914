#include "lab/sandbox.h"

#include <fcntl.h>
#include <poll.h>
#include <sched.h>
#include <signal.h>
#include <sys/mount.h>
#include <sys/prctl.h>
#include <sys/signalfd.h>
#include <sys/stat.h>
#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cerrno>
#include <cstdio>
#include <fstream>
#include <string>

#include "lab/clock.h"
#include "lab/lab_error.h"
#include "lab/unique_fd.h"

namespace erps::lab {

namespace {

constexpr int kNamespaces = CLONE_NEWNET | CLONE_NEWIPC | CLONE_NEWNS | CLONE_NEWPID;
// A laboratory that was asked to end does so at once; this is for one that hangs.
constexpr int64_t kEndPatienceMs = 3000;
constexpr int kCouldNotRun = 3;

void write_file(const char* path, const std::string& text) {
  const UniqueFd fd(open(path, O_WRONLY | O_CLOEXEC));
  if (!fd.is_open() || write(fd.get(), text.data(), text.size()) < 0) {
    throw system_error(path);
  }
}

void enter_namespaces() {
  const uid_t uid = geteuid();
  const gid_t gid = getegid();
  if (unshare(kNamespaces) == 0) {
    return;
  }
  if (errno != EPERM) {
    throw system_error("new namespaces cannot be made");
  }
  if (unshare(CLONE_NEWUSER | kNamespaces) != 0) {
    throw LabError(
        std::string("new namespaces cannot be made: ") + std::strerror(errno) +
        "; run erpslab as root, or allow user namespaces (sysctl user.max_user_namespaces above 0 "
        "and, where they exist, kernel.unprivileged_userns_clone=1 and "
        "kernel.apparmor_restrict_unprivileged_userns=0)");
  }
  write_file("/proc/self/setgroups", "deny");
  write_file("/proc/self/uid_map", "0 " + std::to_string(uid) + " 1");
  write_file("/proc/self/gid_map", "0 " + std::to_string(gid) + " 1");
}

bool sees_shared_mount() {
  std::ifstream mounts("/proc/self/mountinfo");
  bool readable = false;
  for (std::string line; std::getline(mounts, line); readable = true) {
    if (line.find(" shared:") != std::string::npos) {
      return true;
    }
  }
  return !readable;
}

// What is mounted from here on must not show outside.
void make_mounts_private() {
  if (mount("none", "/", nullptr, MS_REC | MS_PRIVATE, nullptr) == 0) {
    return;
  }
  // In a chroot the root is a plain directory, for which the kernel cannot do it. Whoever made the
  // chroot has seen to it when none of the mounts in it is shared.
  const int error = errno;
  if (error != EINVAL || sees_shared_mount()) {
    errno = error;
    throw system_error("the mounts cannot be made private");
  }
}

void mount_private_files() {
  make_mounts_private();
  if (mount("erpslab", "/run", "tmpfs", MS_NOSUID | MS_NODEV, "mode=0755") != 0) {
    throw system_error("an empty /run cannot be mounted");
  }
  if (mkdir(kWorkDirectory, 0700) != 0) {
    throw system_error(kWorkDirectory);
  }
  // For those who look inside; a machine that forbids it (a container) can do without.
  mount("proc", "/proc", "proc", MS_NOSUID | MS_NODEV | MS_NOEXEC, nullptr);
}

// Whether the writing end of the pipe is still open somewhere.
bool is_parent_alive(int pipe_fd) {
  pollfd poller{pipe_fd, POLLIN, 0};
  return poll(&poller, 1, 0) == 0;
}

void exit_at_signal(int signal_number) {
  _exit(kSignalStatus + signal_number);
}

[[noreturn]] void be_process_one(const std::function<int()>& inside, int parent_pipe,
                                 const sigset_t& old_mask) {
  prctl(PR_SET_PDEATHSIG, SIGKILL);
  if (!is_parent_alive(parent_pipe)) {
    _exit(kCouldNotRun);  // it died before the kernel was told to tell
  }
  // Out of the terminal's foreground group: Ctrl-C reaches the outer process only, which decides.
  setsid();
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT}) {
    signal(number, exit_at_signal);
  }
  signal(SIGPIPE, SIG_IGN);
  sigprocmask(SIG_SETMASK, &old_mask, nullptr);
  int status = kCouldNotRun;
  try {
    mount_private_files();
    status = inside();
  } catch (const std::exception& error) {
    std::fprintf(stderr, "erpslab: %s\n", error.what());
  }
  std::fflush(nullptr);
  _exit(status);
}

// Waits for process 1 and hands on the signals that end a program.
int watch_over(pid_t child, int signal_fd) {
  int ended_by = 0;
  int64_t kill_at_ns = INT64_MAX;
  for (;;) {
    int status = 0;
    const pid_t ended = waitpid(child, &status, WNOHANG);
    if (ended == child) {
      if (ended_by != 0) {
        return kSignalStatus + ended_by;
      }
      if (WIFEXITED(status)) {
        return WEXITSTATUS(status);
      }
      throw LabError("the laboratory was ended by signal " + std::to_string(WTERMSIG(status)));
    }
    if (mono_ns() >= kill_at_ns) {
      kill(child, SIGKILL);
      kill_at_ns = INT64_MAX;
    }
    pollfd poller{signal_fd, POLLIN, 0};
    const int timeout_ms = kill_at_ns == INT64_MAX ? -1 : 100;
    if (poll(&poller, 1, timeout_ms) <= 0) {
      continue;
    }
    signalfd_siginfo info{};
    if (read(signal_fd, &info, sizeof info) != sizeof info) {
      continue;
    }
    if (info.ssi_signo != SIGCHLD) {
      ended_by = static_cast<int>(info.ssi_signo);
      kill(child, SIGTERM);
      kill_at_ns = mono_ns() + kEndPatienceMs * kNsPerMs;
    }
  }
}

}  // namespace

int run_in_sandbox(const std::function<int()>& inside, const std::vector<std::string>& hidden) {
  for (const std::string& path : hidden) {
    if (path.rfind("/run/", 0) == 0) {
      throw LabError(path +
                     ": lies in /run, which is empty inside the laboratory; use a copy of "
                     "it elsewhere");
    }
  }
  int parent_pipe[2];
  if (pipe2(parent_pipe, O_CLOEXEC) != 0) {
    throw system_error("pipe");
  }
  const UniqueFd read_end(parent_pipe[0]);
  UniqueFd write_end(parent_pipe[1]);
  sigset_t ours;
  sigset_t old_mask;
  sigemptyset(&ours);
  for (const int number : {SIGINT, SIGTERM, SIGHUP, SIGQUIT, SIGCHLD}) {
    sigaddset(&ours, number);
  }
  sigprocmask(SIG_BLOCK, &ours, &old_mask);
  const UniqueFd signal_fd(signalfd(-1, &ours, SFD_CLOEXEC));
  enter_namespaces();
  const pid_t child = fork();
  if (child < 0) {
    throw system_error("fork");
  }
  if (child == 0) {
    write_end.reset();
    be_process_one(inside, read_end.get(), old_mask);
  }
  return watch_over(child, signal_fd.get());
}

}  // namespace erps::lab
