#include "tests/client/run_program.h"

#include <errno.h>
#include <fcntl.h>
#include <signal.h>
#include <string.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <stdexcept>

namespace erps::test {

namespace {

void read_available(int fd, std::string* text) {
  char buffer[4096];
  for (;;) {
    const ssize_t got = read(fd, buffer, sizeof buffer);
    if (got > 0) {
      text->append(buffer, static_cast<size_t>(got));
    } else if (got == 0 || errno != EINTR) {
      return;
    }
  }
}

}  // namespace

Running::Running(const std::vector<std::string>& arguments) {
  int out[2];
  int err[2];
  if (pipe2(out, O_CLOEXEC) != 0 || pipe2(err, O_CLOEXEC) != 0) {
    throw std::runtime_error(std::string("pipe: ") + strerror(errno));
  }
  std::vector<char*> argv;
  argv.reserve(arguments.size() + 1);
  for (const std::string& argument : arguments) {
    argv.push_back(const_cast<char*>(argument.c_str()));
  }
  argv.push_back(nullptr);
  pid_ = fork();
  if (pid_ < 0) {
    throw std::runtime_error(std::string("fork: ") + strerror(errno));
  }
  if (pid_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGKILL);
    dup2(out[1], STDOUT_FILENO);
    dup2(err[1], STDERR_FILENO);
    execvp(argv[0], argv.data());
    _exit(127);
  }
  close(out[1]);
  close(err[1]);
  out_ = out[0];
  err_ = err[0];
  fcntl(out_, F_SETFL, O_NONBLOCK);
  fcntl(err_, F_SETFL, O_NONBLOCK);
}

Running::~Running() {
  if (!ended_) {
    kill(pid_, SIGKILL);
    reap(true);
  }
  close(out_);
  close(err_);
}

void Running::signal(int number) const {
  if (!ended_) {
    kill(pid_, number);
  }
}

void Running::drain() {
  read_available(out_, &outcome_.out);
  read_available(err_, &outcome_.err);
}

bool Running::reap(bool block) {
  int status = 0;
  if (ended_) {
    return true;
  }
  if (waitpid(pid_, &status, block ? 0 : WNOHANG) != pid_) {
    return false;
  }
  ended_ = true;
  outcome_.status = WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
  drain();
  return true;
}

bool Running::wait(std::chrono::milliseconds limit) {
  return eventually(
      [this] {
        drain();
        return reap(false);
      },
      limit);
}

const std::string& Running::out() {
  drain();
  return outcome_.out;
}

const std::string& Running::err() {
  drain();
  return outcome_.err;
}

bool Running::err_contains(const std::string& text, std::chrono::milliseconds limit) {
  return eventually([&] { return err().find(text) != std::string::npos; }, limit);
}

bool Running::out_contains(const std::string& text, std::chrono::milliseconds limit) {
  return eventually([&] { return out().find(text) != std::string::npos; }, limit);
}

Outcome run_program(const std::vector<std::string>& arguments, std::chrono::milliseconds limit) {
  Running program(arguments);
  Outcome outcome;
  if (!program.wait(limit)) {
    outcome.timed_out = true;
    program.signal(SIGKILL);
    program.wait(limit);
  }
  outcome.status = program.status();
  outcome.out = program.out();
  outcome.err = program.err();
  return outcome;
}

}  // namespace erps::test
