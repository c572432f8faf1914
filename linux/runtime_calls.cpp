// The calls of platform/event_queue.h, task.h and log.h.
#include <algorithm>
#include <array>
#include <atomic>
#include <cstdarg>
#include <exception>

#include "linux/cancel_guard.h"
#include "linux/failed_call.h"
#include "linux/instance.h"
#include "linux/log.h"
#include "platform/event_queue.h"
#include "platform/log.h"
#include "platform/task.h"

using erps::linux_platform::CancelGuard;
using erps::linux_platform::FailedCall;
using erps::linux_platform::Instance;
using erps::linux_platform::instance;

namespace lp = erps::linux_platform;

namespace {

constexpr int kFailed = -1;

// What the module holds of a queue. Handles are never freed: one that was closed and is used again
// is recognised, not followed into memory that is gone.
struct Handle {
  std::atomic<Instance*> owner{nullptr};  // null: closed
  std::atomic<bool> receiver{false};
};

std::array<Handle, 64>& handles() {
  static std::array<Handle, 64> table;
  return table;
}

// Takes the place that has been closed for longest, so that stale handles stay recognisable.
Handle* take_handle(Instance* owner, bool receiver) {
  static std::atomic<size_t> next{0};
  auto& table = handles();
  for (size_t tries = 0; tries < table.size(); ++tries) {
    Handle& handle = table[next.fetch_add(1) % table.size()];
    Instance* closed = nullptr;
    if (handle.owner.compare_exchange_strong(closed, owner)) {
      handle.receiver.store(receiver);
      return &handle;
    }
    if (handle.owner.load() != owner) {
      handle.owner.store(owner);  // left from a platform that has been stopped
      handle.receiver.store(receiver);
      return &handle;
    }
  }
  return nullptr;
}

// The open handle behind the pointer, or null.
Handle* find_handle(void* queue) {
  auto& table = handles();
  auto* handle = static_cast<Handle*>(queue);
  if (handle < table.data() || handle >= table.data() + table.size()) {
    return nullptr;
  }
  Instance* owner = handle->owner.load();
  return owner != nullptr && owner == instance() ? handle : nullptr;
}

void close_all(const Instance* owner) {
  for (Handle& handle : handles()) {
    if (handle.owner.load() == owner) {
      handle.owner.store(nullptr);
    }
  }
}

}  // namespace

void* equeue_make_extend(const char* name, int depth, int, int) {
  const CancelGuard guard;
  Instance* platform = instance();
  if (platform == nullptr || name == nullptr) {
    return nullptr;
  }
  close_all(platform);
  try {
    return platform->queue->open(name, depth) ? take_handle(platform, true) : nullptr;
  } catch (const std::exception& error) {
    lp::logf(lp::LogLevel::kError, "event queue %s: cannot be made: %s", name, error.what());
    platform->queue->close();
    return nullptr;
  }
}

void* equeue_open(const char* name, int) {
  Instance* platform = instance();
  return platform != nullptr && name != nullptr && platform->queue->is(name)
             ? take_handle(platform, false)
             : nullptr;
}

int equeue_recv(void* queue, ERPS_EVENT_MSG_T* message, int) {
  const Handle* handle = find_handle(queue);
  if (handle == nullptr || !handle->receiver.load() || message == nullptr) {
    return kFailed;
  }
  return handle->owner.load()->queue->receive(*message);
}

int equeue_send_ucast(void* queue, const ERPS_EVENT_MSG_T* message, int) {
  const CancelGuard guard;
  const Handle* handle = find_handle(queue);
  if (handle == nullptr || message == nullptr) {
    return kFailed;
  }
  return handle->owner.load()->queue->send(*message) ? 1 : kFailed;
}

int equeue_close(void* queue) {
  static FailedCall failure("equeue_close");
  const CancelGuard guard;
  Handle* handle = find_handle(queue);
  if (handle == nullptr) {
    return failure.tell("the queue is not open");
  }
  Instance* platform = handle->owner.load();
  if (handle->receiver.load()) {
    platform->queue->close();
  }
  handle->owner.store(nullptr);
  return 0;
}

int stask_start(erps_task_desc* task, int) {
  Instance* platform = instance();
  return platform != nullptr && task != nullptr ? platform->tasks.start(*task) : kFailed;
}

int stask_stop(erps_task_desc* task) {
  static FailedCall failure("stask_stop");
  Instance* platform = instance();
  return platform != nullptr && task != nullptr && platform->tasks.stop(*task) == 0
             ? 0
             : failure.tell("the task does not run, or is the one that calls");
}

int stask_notify_creater(erps_task_desc* task, int result) {
  static FailedCall failure("stask_notify_creater");
  const CancelGuard guard;
  Instance* platform = instance();
  return platform != nullptr && task != nullptr && platform->tasks.notify(*task, result) == 0
             ? 0
             : failure.tell("the task was not started here");
}

int Log_logging_func(int level, int, const char* label, const char* format, ...) {
  if (!lp::log_listens(level) || format == nullptr) {
    return 0;
  }
  va_list arguments;
  va_start(arguments, format);
  lp::log_write(level, label, format, arguments);
  va_end(arguments);
  return 0;
}

int sys_trace_get(void) {
  return lp::trace_on() ? 1 : 0;
}

int sys_trace_add_log(const char* location, const char* text) {
  const CancelGuard guard;
  lp::trace_add(location, text);
  return 0;
}
