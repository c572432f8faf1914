#include "linux/task.h"

#include <sched.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "linux/background_thread.h"
#include "linux/log.h"

namespace erps::linux_platform {
namespace {

constexpr uintptr_t kNotRunning = static_cast<uintptr_t>(-1);

struct ThreadAttributes {
  ThreadAttributes() { pthread_attr_init(&attributes); }
  ~ThreadAttributes() { pthread_attr_destroy(&attributes); }
  ThreadAttributes(const ThreadAttributes&) = delete;
  ThreadAttributes& operator=(const ThreadAttributes&) = delete;

  void set_realtime(int priority) {
    const sched_param parameter{.sched_priority = priority};
    pthread_attr_setinheritsched(&attributes, PTHREAD_EXPLICIT_SCHED);
    pthread_attr_setschedpolicy(&attributes, SCHED_FIFO);
    pthread_attr_setschedparam(&attributes, &parameter);
  }

  pthread_attr_t attributes;
};

}  // namespace

int TaskTable::start(erps_task_desc& descriptor) {
  if (descriptor.entry == nullptr) {
    return -1;
  }
  {
    const std::lock_guard lock(mutex_);
    if (find(descriptor) != nullptr) {
      logf(LogLevel::kError, "task %s: is running already", descriptor.name);
      return -1;
    }
  }
  if (descriptor.init != nullptr) {
    if (const int result = descriptor.init(&descriptor); result < 0) {
      set_thread_id(descriptor, kNotRunning);
      return result;
    }
  }
  auto owned = std::make_unique<Task>();
  Task& task = *owned;
  task.table = this;
  task.descriptor = &descriptor;
  {
    const std::lock_guard lock(mutex_);
    tasks_.push_back(std::move(owned));
  }
  if (const int error = create(task); error != 0) {
    logf(LogLevel::kError, "task %s: cannot be started: %s", descriptor.name, std::strerror(error));
    set_thread_id(descriptor, kNotRunning);
    forget(&task);
    return -1;
  }
  set_thread_id(descriptor, static_cast<uintptr_t>(task.thread));
  int result = 0;
  {
    std::unique_lock lock(mutex_);
    reported_.wait(lock, [&task] { return task.reported; });
    result = task.result;
  }
  if (result < 0) {
    pthread_join(task.thread, nullptr);
    set_thread_id(descriptor, kNotRunning);
    forget(&task);
  }
  return result;
}

int TaskTable::create(Task& task) {
  const SignalBlock block;
  ThreadAttributes attributes;
  if (realtime_priority_ > 0) {
    attributes.set_realtime(realtime_priority_);
  }
  const int error = pthread_create(&task.thread, &attributes.attributes, run, &task);
  if (error == 0 && task.descriptor->name != nullptr) {
    const std::string name = std::string(task.descriptor->name).substr(0, 15);
    pthread_setname_np(task.thread, name.c_str());
  }
  return error;
}

// Not noexcept anywhere below: a cancellation unwinds through here.
void* TaskTable::run(void* argument) {
  auto* task = static_cast<Task*>(argument);
  // A task that ends or is cancelled before it reported has failed.
  struct Reporter {
    Task* task;
    ~Reporter() { task->table->report(*task, -1); }
  };
  const Reporter reporter{task};
  task->descriptor->entry(task->descriptor);
  return nullptr;
}

void TaskTable::report(Task& task, int result) {
  {
    const std::lock_guard lock(mutex_);
    if (task.reported) {
      return;
    }
    task.reported = true;
    task.result = result;
  }
  reported_.notify_all();
}

int TaskTable::notify(const erps_task_desc& descriptor, int result) {
  Task* task = nullptr;
  {
    const std::lock_guard lock(mutex_);
    task = find(descriptor);
  }
  if (task == nullptr) {
    return -1;
  }
  report(*task, result);
  return 0;
}

int TaskTable::stop(erps_task_desc& descriptor) {
  Task* task = nullptr;
  {
    const std::lock_guard lock(mutex_);
    task = find(descriptor);
  }
  if (task == nullptr) {
    return -1;
  }
  if (pthread_equal(task->thread, pthread_self()) != 0) {
    logf(LogLevel::kError, "task %s: cannot stop itself", descriptor.name);
    return -1;
  }
  pthread_cancel(task->thread);
  pthread_join(task->thread, nullptr);
  set_thread_id(descriptor, kNotRunning);
  forget(task);
  return 0;
}

// Atomic, because the task and the host may look at the word while it is written.
void TaskTable::set_thread_id(erps_task_desc& descriptor, uintptr_t id) {
  __atomic_store_n(&descriptor.thread_id, id, __ATOMIC_RELEASE);
}

TaskTable::Task* TaskTable::find(const erps_task_desc& descriptor) {
  for (const auto& task : tasks_) {
    if (task->descriptor == &descriptor) {
      return task.get();
    }
  }
  return nullptr;
}

void TaskTable::forget(const Task* task) {
  const std::lock_guard lock(mutex_);
  std::erase_if(tasks_, [task](const auto& owned) { return owned.get() == task; });
}

int probe_realtime_priority(int priority) {
  ThreadAttributes attributes;
  attributes.set_realtime(priority);
  pthread_t thread{};
  const SignalBlock block;
  const int error = pthread_create(
      &thread, &attributes.attributes, [](void*) -> void* { return nullptr; }, nullptr);
  if (error == 0) {
    pthread_join(thread, nullptr);
  }
  return error;
}

}  // namespace erps::linux_platform
