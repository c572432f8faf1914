#include "lab/daemon.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <deque>
#include <fstream>

#include "lab/clock.h"
#include "lab/lab_error.h"

namespace erps::lab {

namespace {

constexpr int kReadyFd = 3;
constexpr size_t kLogTailLines = 8;
constexpr int64_t kPollMs = 2;

class FileActions {
 public:
  FileActions() { posix_spawn_file_actions_init(&actions_); }
  ~FileActions() { posix_spawn_file_actions_destroy(&actions_); }
  FileActions(const FileActions&) = delete;
  FileActions& operator=(const FileActions&) = delete;
  posix_spawn_file_actions_t* get() { return &actions_; }

 private:
  posix_spawn_file_actions_t actions_;
};

// Neither the mask nor the dispositions of the laboratory reach the daemon.
class Attributes {
 public:
  Attributes() {
    posix_spawnattr_init(&attributes_);
    sigset_t all;
    sigset_t none;
    sigfillset(&all);
    sigemptyset(&none);
    posix_spawnattr_setsigdefault(&attributes_, &all);
    posix_spawnattr_setsigmask(&attributes_, &none);
    posix_spawnattr_setflags(&attributes_, POSIX_SPAWN_SETSIGDEF | POSIX_SPAWN_SETSIGMASK);
  }
  ~Attributes() { posix_spawnattr_destroy(&attributes_); }
  Attributes(const Attributes&) = delete;
  Attributes& operator=(const Attributes&) = delete;
  posix_spawnattr_t* get() { return &attributes_; }

 private:
  posix_spawnattr_t attributes_;
};

}  // namespace

Daemon::Daemon(const NodeNamespace& space, const Programs& programs, const std::string& directory,
               const std::string& name, const std::string& config)
    : space_(space),
      programs_(programs),
      name_(name),
      config_(directory + "/" + name + ".toml"),
      journal_(directory + "/" + name + ".journal"),
      log_(directory + "/" + name + ".log") {
  std::ofstream out(config_);
  out << config;
  out.close();
  if (!out) {
    throw LabError(config_ + ": cannot be written");
  }
}

void Daemon::start() {
  int ready[2];
  if (pipe2(ready, O_CLOEXEC) != 0) {
    throw system_error("pipe");
  }
  ready_ = UniqueFd(ready[0]);
  const UniqueFd write_end(ready[1]);
  ended_.reset();
  FileActions actions;
  Attributes attributes;
  posix_spawn_file_actions_addopen(actions.get(), 0, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_addopen(actions.get(), 1, log_.c_str(), O_WRONLY | O_CREAT | O_APPEND,
                                   0600);
  posix_spawn_file_actions_adddup2(actions.get(), 1, 2);
  posix_spawn_file_actions_adddup2(actions.get(), write_end.get(), kReadyFd);
  std::string arguments[] = {programs_.erpsd, "--config",       config_,
                             "--module",      programs_.module, "--journal",
                             journal_,        "--ready-fd",     std::to_string(kReadyFd)};
  std::vector<char*> argv;
  for (std::string& argument : arguments) {
    argv.push_back(argument.data());
  }
  argv.push_back(nullptr);
  int error = 0;
  space_.run([&] {
    error = posix_spawn(&pid_, programs_.erpsd.c_str(), actions.get(), attributes.get(),
                        argv.data(), environ);
  });
  if (error != 0) {
    pid_ = -1;
    throw system_error(programs_.erpsd, error);
  }
}

void Daemon::wait_until_ready(int64_t deadline_ns) {
  for (;;) {
    const int64_t left_ns = deadline_ns - mono_ns();
    pollfd poller{ready_.get(), POLLIN, 0};
    const int result = poll(&poller, 1, static_cast<int>(std::max<int64_t>(left_ns / kNsPerMs, 0)));
    char byte = 0;
    if (result > 0 && read(ready_.get(), &byte, 1) == 1) {
      ready_.reset();
      return;
    }
    if (result > 0) {
      // It closed the descriptor unused; it may still be on its way out.
      while (!ended() && mono_ns() < deadline_ns) {
        sleep_ms(kPollMs);
      }
    }
    if (result > 0 || left_ns <= 0) {
      throw LabError("erpsd of " + space_.name() +
                     (ended_ ? " ended with " + *ended_ + " before its rings ran"
                             : std::string(" did not say in time that its rings run")) +
                     log_tail());
    }
  }
}

void Daemon::collect(int options) {
  int status = 0;
  if (pid_ > 0 && waitpid(pid_, &status, options) == pid_) {
    pid_ = -1;
    ended_ = WIFEXITED(status) ? "status " + std::to_string(WEXITSTATUS(status))
                               : "signal " + std::to_string(WTERMSIG(status));
  }
}

std::optional<std::string> Daemon::ended() {
  collect(WNOHANG);
  return ended_;
}

void Daemon::kill_now() {
  if (pid_ > 0) {
    kill(pid_, SIGKILL);
    collect(0);
    ended_.reset();
  }
}

void Daemon::ask_to_stop() {
  if (pid_ > 0) {
    kill(pid_, SIGTERM);
  }
}

std::string Daemon::finish_stop(int64_t deadline_ns) {
  if (pid_ < 0 && !ended_) {
    return {};
  }
  while (!ended() && mono_ns() < deadline_ns) {
    sleep_ms(kPollMs);
  }
  if (!ended_) {
    kill_now();
    return "erpsd of " + space_.name() + " did not stop when asked to";
  }
  return *ended_ == "status 0" ? std::string()
                               : "erpsd of " + space_.name() + " ended with " + *ended_;
}

std::string Daemon::log_tail() const {
  std::ifstream in(log_);
  std::deque<std::string> lines;
  for (std::string line; std::getline(in, line);) {
    lines.push_back(line);
    if (lines.size() > kLogTailLines) {
      lines.pop_front();
    }
  }
  std::string text;
  for (const std::string& line : lines) {
    text += "\n    " + line;
  }
  return text;
}

}  // namespace erps::lab
