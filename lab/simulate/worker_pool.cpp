#include "lab/simulate/worker_pool.h"

#include <fcntl.h>
#include <poll.h>
#include <signal.h>
#include <stdlib.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <exception>

#include "lab/clock.h"
#include "lab/lab_error.h"

namespace erps::lab {

namespace {

// The status of a process whose work threw.
constexpr int kCannotRun = 3;

bool read_all(int fd, void* to, size_t length) {
  auto* bytes = static_cast<char*>(to);
  while (length > 0) {
    const ssize_t count = read(fd, bytes, length);
    if (count <= 0) {
      if (count < 0 && errno == EINTR) {
        continue;
      }
      return false;
    }
    bytes += count;
    length -= static_cast<size_t>(count);
  }
  return true;
}

bool write_all(int fd, const void* from, size_t length) {
  const auto* bytes = static_cast<const char*>(from);
  while (length > 0) {
    const ssize_t count = write(fd, bytes, length);
    if (count < 0) {
      if (errno == EINTR) {
        continue;
      }
      return false;
    }
    bytes += count;
    length -= static_cast<size_t>(count);
  }
  return true;
}

// 0 for a process that is gone.
int64_t processor_ns(pid_t pid) {
  clockid_t clock{};
  return clock_getcpuclockid(pid, &clock) == 0 ? clock_ns(clock) : 0;
}

std::string seconds_text(int64_t ms) {
  std::array<char, 32> text{};
  std::snprintf(text.data(), text.size(), "%g s", static_cast<double>(ms) / 1000);
  return text.data();
}

std::string death_text(int status) {
  if (WIFSIGNALED(status)) {
    return "signal " + std::to_string(WTERMSIG(status)) + " (" + strsignal(WTERMSIG(status)) + ")";
  }
  return "status " + std::to_string(WEXITSTATUS(status));
}

}  // namespace

WorkerPool::WorkerPool(size_t workers, Work work, int64_t longest_job_ms)
    : work_(std::move(work)), longest_job_ms_(longest_job_ms), workers_(workers) {
  for (Worker& worker : workers_) {
    start(worker);
  }
}

WorkerPool::~WorkerPool() {
  for (Worker& worker : workers_) {
    worker.to = {};
    if (worker.job && worker.pid > 0) {
      kill(worker.pid, SIGTERM);
    }
  }
  for (Worker& worker : workers_) {
    if (worker.pid > 0) {
      while (waitpid(worker.pid, nullptr, 0) < 0 && errno == EINTR) {
      }
    }
  }
}

void WorkerPool::start(Worker& worker) {
  std::array<int, 2> to{};
  std::array<int, 2> from{};
  if (pipe2(to.data(), O_CLOEXEC) != 0) {
    throw system_error("pipe");
  }
  UniqueFd to_read(to[0]);
  UniqueFd to_write(to[1]);
  if (pipe2(from.data(), O_CLOEXEC) != 0) {
    throw system_error("pipe");
  }
  UniqueFd from_read(from[0]);
  UniqueFd from_write(from[1]);
  std::fflush(nullptr);
  const pid_t parent = getpid();
  const pid_t pid = fork();
  if (pid < 0) {
    throw system_error("fork");
  }
  if (pid == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    signal(SIGINT, SIG_DFL);
    signal(SIGTERM, SIG_DFL);
    if (getppid() != parent) {
      _exit(1);
    }
    // Only its own: the pipes of the others have to end when the parent's ends do.
    for (Worker& other : workers_) {
      other.to = {};
      other.from = {};
    }
    to_write = {};
    from_read = {};
    serve(to_read.get(), from_write.get());
  }
  worker.pid = pid;
  worker.to = std::move(to_write);
  worker.from = std::move(from_read);
  worker.job.reset();
  worker.received.clear();
}

void WorkerPool::serve(int in, int out) {
  uint64_t job = 0;
  while (read_all(in, &job, sizeof job)) {
    std::string answer;
    try {
      answer = work_(job);
    } catch (const std::exception& error) {
      std::fprintf(stderr, "erpslab: %s\n", error.what());
      exit(kCannotRun);
    }
    const uint64_t length = answer.size();
    if (!write_all(out, &length, sizeof length) || !write_all(out, answer.data(), length)) {
      break;
    }
  }
  exit(0);
}

bool WorkerPool::has_idle() const {
  return std::any_of(workers_.begin(), workers_.end(),
                     [](const Worker& worker) { return !worker.job; });
}

bool WorkerPool::is_busy() const {
  return std::any_of(workers_.begin(), workers_.end(),
                     [](const Worker& worker) { return worker.job.has_value(); });
}

void WorkerPool::give(uint64_t job) {
  const auto idle = std::find_if(workers_.begin(), workers_.end(),
                                 [](const Worker& worker) { return !worker.job; });
  idle->job = job;
  idle->processor_ns = processor_ns(idle->pid);
  // One that has died shows when its answer is awaited.
  write_all(idle->to.get(), &job, sizeof job);
}

std::optional<WorkerPool::Done> WorkerPool::wait(int longest_ms) {
  std::vector<pollfd> polled;
  std::vector<Worker*> awaited;
  for (Worker& worker : workers_) {
    if (worker.job) {
      polled.push_back({worker.from.get(), POLLIN, 0});
      awaited.push_back(&worker);
    }
  }
  if (poll(polled.data(), polled.size(), longest_ms) < 0) {
    return std::nullopt;
  }
  for (size_t i = 0; i < awaited.size(); ++i) {
    if (polled[i].revents != 0) {
      if (auto done = listen(*awaited[i])) {
        return done;
      }
    } else if (processor_ns(awaited[i]->pid) - awaited[i]->processor_ns >
               longest_job_ms_ * kNsPerMs) {
      kill(awaited[i]->pid, SIGTERM);
      Done done = bury(*awaited[i]);
      done.death = "no end within " + seconds_text(longest_job_ms_) + " of processor time";
      return done;
    }
  }
  return std::nullopt;
}

std::optional<WorkerPool::Done> WorkerPool::listen(Worker& worker) {
  std::array<char, 65536> buffer{};
  const ssize_t count = read(worker.from.get(), buffer.data(), buffer.size());
  if (count < 0 && errno == EINTR) {
    return std::nullopt;
  }
  if (count <= 0) {
    return bury(worker);
  }
  worker.received.append(buffer.data(), static_cast<size_t>(count));
  uint64_t length = 0;
  if (worker.received.size() < sizeof length) {
    return std::nullopt;
  }
  std::memcpy(&length, worker.received.data(), sizeof length);
  if (worker.received.size() < sizeof length + length) {
    return std::nullopt;
  }
  Done done{*worker.job, worker.received.substr(sizeof length), {}, false};
  worker.received.clear();
  worker.job.reset();
  return done;
}

WorkerPool::Done WorkerPool::bury(Worker& worker) {
  Done done{*worker.job, {}, {}, false};
  int status = 0;
  while (waitpid(worker.pid, &status, 0) < 0 && errno == EINTR) {
  }
  done.death = death_text(status);
  done.cannot_run = WIFEXITED(status) && WEXITSTATUS(status) == kCannotRun;
  worker.pid = -1;
  start(worker);
  return done;
}

}  // namespace erps::lab
