// The module's tasks: one thread each, started and stopped through its descriptor.
//
// Threading: start() and stop() from the host's thread (one at a time for a descriptor), notify()
// from the task. Tasks run with deferred cancellation and all signals blocked.
// Errors: negative results; why a thread could not be started is logged.
#pragma once

#include <pthread.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "platform/task.h"

namespace erps::linux_platform {

class TaskTable {
 public:
  // 0: ordinary scheduling; 1 to 99: SCHED_FIFO. One of the tasks holds a lock that the other
  // waits for, so all of them run at the same priority.
  explicit TaskTable(int realtime_priority) : realtime_priority_(realtime_priority) {}
  // Every task must have been stopped.
  ~TaskTable() = default;

  int start(erps_task_desc& descriptor);
  int stop(erps_task_desc& descriptor);
  int notify(const erps_task_desc& descriptor, int result);

 private:
  struct Task {
    TaskTable* table = nullptr;
    erps_task_desc* descriptor = nullptr;
    pthread_t thread{};
    bool reported = false;
    int result = 0;
  };

  static void* run(void* task);
  static void set_thread_id(erps_task_desc& descriptor, uintptr_t id);
  int create(Task& task);
  Task* find(const erps_task_desc& descriptor);
  void forget(const Task* task);
  void report(Task& task, int result);

  const int realtime_priority_;
  std::mutex mutex_;
  std::condition_variable reported_;
  std::vector<std::unique_ptr<Task>> tasks_;
};

// Whether this process may run threads at that priority. Returns 0 or an errno.
int probe_realtime_priority(int priority);

}  // namespace erps::linux_platform
