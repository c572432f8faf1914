#include "sim/libc_calls.h"

#include <sys/msg.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "sim/calling_node.h"

namespace erps::sim::calls {

namespace {
constexpr int64_t kSecond = 1'000'000;
}

int gettimeofday(timeval* time, void* /*zone*/) {
  Task& task = calling_task();
  // The tick that asked already was told of a time before all expiries.
  const int64_t now_us = makes_tick_call(task, TickCall::kClock) ? task.node().clock_us() : 0;
  *time = {now_us / kSecond, now_us % kSecond};
  return 0;
}

time_t time(time_t* seconds) {
  const time_t now = preempted_node().clock_us() / kSecond;
  if (seconds != nullptr) {
    *seconds = now;
  }
  return now;
}

int select(int count, fd_set* /*read*/, fd_set* /*write*/, fd_set* /*except*/, timeval* timeout) {
  Task& task = calling_task();
  Node& node = task.node();
  IdleTicks& ticks = task.make_idle_ticks();
  makes_tick_call(task, TickCall::kSleep);
  if (count != 0 || timeout == nullptr) {
    node.world.report(task.name() + " calls select for something else than a sleep");
    errno = EINVAL;
    return -1;
  }
  node.locks.check_none_held(task, "sleeps");
  node.piece_of_work_done();
  const int64_t asked_us = timeout->tv_sec * kSecond + timeout->tv_usec;
  const bool interrupted = node.failures.strike(PlatformCall::kSleep);
  if (interrupted) {
    ticks.disturb();
  }
  ticks.end_tick(asked_us);
  const int64_t slept_us = interrupted ? node.world.failures_chance.in({0, asked_us}) : asked_us;
  ticks.sleep_until(node.world.now_us() + node.clock.lasting(slept_us) + node.pace.lateness_us());
  task.cancellation_point();
  while (!ticks.is_under_way() && node.world.now_us() < ticks.due_us()) {
    task.sleep(ticks.due_us() - node.world.now_us());
    if (!ticks.is_under_way()) {
      task.cancellation_point();
    }
  }
  ticks.begin_tick();
  errno = EINTR;
  return interrupted ? -1 : 0;
}

int pthread_mutex_lock(pthread_mutex_t* mutex) {
  Task& task = calling_task();
  if (makes_tick_call(task, TickCall::kLock, mutex)) {
    task.node().locks.lock(mutex, task);
  }
  return 0;
}

int pthread_mutex_unlock(pthread_mutex_t* mutex) {
  Task& task = calling_task();
  if (makes_tick_call(task, TickCall::kUnlock, mutex)) {
    task.node().locks.unlock(mutex, task);
  }
  return 0;
}

pthread_t pthread_self() {
  return calling_task().id();
}

int pthread_setcancelstate(int state, int* old_state) {
  const bool before = calling_task().set_cancellable(state == PTHREAD_CANCEL_ENABLE);
  if (old_state != nullptr) {
    *old_state = before ? PTHREAD_CANCEL_ENABLE : PTHREAD_CANCEL_DISABLE;
  }
  return 0;
}

void pthread_testcancel() {
  Task& task = calling_task();
  if (makes_tick_call(task, TickCall::kCancelPoint)) {
    task.cancellation_point();
  }
}

pid_t getpid() {
  constexpr pid_t kFirstPid = 1000;
  return kFirstPid + static_cast<pid_t>(calling_node().index);
}

int msgget(key_t key, int /*flags*/) {
  Node* node = able_node(PlatformCall::kOpenMessageQueue);
  errno = ENOSPC;
  return node != nullptr ? node->message_queues.open(key) : -1;
}

ssize_t msgrcv(int id, void* message, size_t capacity, long type, int flags) {
  Node& node = preempted_node();
  MessageQueue* queue = node.message_queues.find(id);
  if (queue == nullptr || (flags & IPC_NOWAIT) == 0) {
    node.world.report(node.plan.name + " waits for a message, or on a queue that does not exist");
    errno = EINVAL;
    return -1;
  }
  if (node.failures.strike(PlatformCall::kReceiveMessage)) {
    errno = EINTR;
    return -1;
  }
  const auto found = queue->find(type);
  if (found == queue->end()) {
    errno = ENOMSG;
    return -1;
  }
  if (found->text.size() > capacity && (flags & MSG_NOERROR) == 0) {
    errno = E2BIG;
    return -1;
  }
  const size_t length = std::min(found->text.size(), capacity);
  std::memcpy(message, &found->type, sizeof found->type);
  std::memcpy(static_cast<uint8_t*>(message) + sizeof found->type, found->text.data(), length);
  queue->erase(found);
  return static_cast<ssize_t>(length);
}

int msgsnd(int id, const void* message, size_t size, int /*flags*/) {
  Node& node = preempted_node();
  MessageQueue* queue = node.message_queues.find(id);
  if (queue == nullptr) {
    errno = EINVAL;
    return -1;
  }
  if (node.failures.strike(PlatformCall::kSendMessage)) {
    errno = EAGAIN;
    return -1;
  }
  QueuedMessage queued;
  std::memcpy(&queued.type, message, sizeof queued.type);
  const auto* text = static_cast<const uint8_t*>(message) + sizeof queued.type;
  queued.text.assign(text, text + size);
  queue->put(std::move(queued));
  node.message_sent();
  return 0;
}

int mq_unlink(const char* /*name*/) {
  return 0;
}

void* allocate(size_t bytes, const std::nothrow_t& /*tag*/) {
  Node* node = able_node(PlatformCall::kAllocate);
  return node != nullptr ? node->heap.allocate(bytes) : nullptr;
}

void release(void* memory) {
  Node& node = preempted_node();
  if (!node.heap.release(memory)) {
    node.world.report(node.plan.name + " releases memory that is not allocated");
  }
}

void release_sized(void* memory, size_t /*bytes*/) {
  release(memory);
}

int printf(const char* /*format*/, ...) {
  return 0;
}

int fprintf(FILE* /*file*/, const char* /*format*/, ...) {
  return 0;
}

int printf_chk(int /*flag*/, const char* /*format*/, ...) {
  return 0;
}

int fprintf_chk(FILE* /*file*/, int /*flag*/, const char* /*format*/, ...) {
  return 0;
}

int puts(const char* /*text*/) {
  return 0;
}

int fputs(const char* /*text*/, FILE* /*file*/) {
  return 0;
}

size_t fwrite(const void* /*data*/, size_t /*size*/, size_t count, FILE* /*file*/) {
  return count;
}

// What a daemon prints on standard error is a line of its log.
void perror(const char* text) {
  const std::string line = std::string(text) + ": " + std::strerror(errno);
  constexpr int kError = 3;
  Node& node = calling_node();
  if (node.world.options.log_level < kError) {
    return;
  }
  for (Observer* observer : node.world.observers) {
    observer->on_log(node.world.now_us(), node.index, kError, line);
  }
}

}  // namespace erps::sim::calls
