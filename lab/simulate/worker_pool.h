// Processes that work on numbered jobs, one at a time each. The module runs as often as there are
// processors, and one that crashes takes nothing along but its own job.
//
// Threading: one thread, and none beside it: the processes are forks of this one. Errors: LabError
// when a process cannot be started. Logs nothing.
#pragma once

#include <sys/types.h>

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <vector>

#include "lab/unique_fd.h"

namespace erps::lab {

class WorkerPool {
 public:
  // Runs in a process of the pool; its answer comes back as it is.
  using Work = std::function<std::string(uint64_t job)>;

  // No scenario takes as much processor time as this: what does, never ends. Time in which the
  // machine sleeps or somebody has stopped the processes is none.
  static constexpr int64_t kLongestJobMs = 600'000;

  WorkerPool(size_t workers, Work work, int64_t longest_job_ms = kLongestJobMs);
  // Ends the processes, whatever they are doing.
  ~WorkerPool();
  WorkerPool(const WorkerPool&) = delete;
  WorkerPool& operator=(const WorkerPool&) = delete;

  bool has_idle() const;
  bool is_busy() const;
  // To a process that is idle; there must be one.
  void give(uint64_t job);

  struct Done {
    uint64_t job = 0;
    std::string answer;
    std::string death;        // how the process ended in place of answering, or empty
    bool cannot_run = false;  // it said why on standard error: the work threw
  };
  // Nothing when the time is over, or a signal came.
  std::optional<Done> wait(int longest_ms);

 private:
  struct Worker {
    pid_t pid = -1;
    UniqueFd to, from;
    std::optional<uint64_t> job;
    int64_t processor_ns = 0;  // used when it got the job
    std::string received;
  };

  void start(Worker& worker);
  [[noreturn]] void serve(int in, int out);
  // What a worker said, once it has said all of it or is dead.
  std::optional<Done> listen(Worker& worker);
  Done bury(Worker& worker);

  const Work work_;
  const int64_t longest_job_ms_;
  std::vector<Worker> workers_;
};

}  // namespace erps::lab
