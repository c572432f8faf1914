#include "linux/flush_worker.h"

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "linux/background_thread.h"
#include "linux/bridge_commands.h"
#include "linux/clock.h"
#include "linux/log.h"
#include "linux/platform.h"

namespace erps::linux_platform {

FlushWorker::FlushWorker(const RingPorts& ports, History& history, AtomicCounters& counters)
    : ports_(ports),
      history_(history),
      counters_(counters),
      bell_(eventfd(0, EFD_NONBLOCK | EFD_CLOEXEC)),
      of_messages_(kMaxPort + 1, TokenBucket(kOfMessages, mono_now_ns())) {
  if (!bell_) {
    throw PlatformError(std::string("event descriptor cannot be opened: ") + std::strerror(errno));
  }
  thread_ = start_background_thread("erps-flush", [this] { run(); });
}

void FlushWorker::finish() {
  if (!thread_.joinable()) {
    return;
  }
  kick(Start::kNow);
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  ring_bell();
  thread_.join();
}

void FlushWorker::ask(const RingPort& port) {
  count(counters_.flushes_asked);
  const std::lock_guard lock(mutex_);
  asked_[port.id] = current_cause();
  any_asked_ = true;
}

void FlushWorker::kick(Start start) {
  {
    const std::lock_guard lock(mutex_);
    if (!any_asked_) {
      return;
    }
    any_asked_ = false;
    for (size_t id = 0; id < asked_.size(); ++id) {
      if (!asked_[id]) {
        continue;
      }
      const bool now = start == Start::kNow || (started_[id] && started_[id]->start == Start::kNow);
      started_[id] = Request{*asked_[id], now ? Start::kNow : Start::kSpaced};
      asked_[id].reset();
    }
  }
  ring_bell();
}

void FlushWorker::ring_bell() const {
  const uint64_t one = 1;
  [[maybe_unused]] const ssize_t ignored = write(bell_.get(), &one, sizeof one);
}

void FlushWorker::wait(int64_t most_ns) const {
  constexpr int64_t kSecondNs = 1'000'000'000;
  const timespec most{.tv_sec = most_ns / kSecondNs, .tv_nsec = most_ns % kSecondNs};
  pollfd bell{.fd = bell_.get(), .events = POLLIN, .revents = 0};
  ppoll(&bell, 1, most_ns >= 0 ? &most : nullptr, nullptr);
  uint64_t rung = 0;
  [[maybe_unused]] const ssize_t ignored = read(bell_.get(), &rung, sizeof rung);
}

bool FlushWorker::collect(Requests& waiting) {
  const std::lock_guard lock(mutex_);
  for (size_t id = 0; id < started_.size(); ++id) {
    if (started_[id]) {
      const bool now = waiting[id] && waiting[id]->start == Start::kNow;
      waiting[id] = started_[id];
      waiting[id]->start = now ? Start::kNow : waiting[id]->start;
      started_[id].reset();
    }
  }
  return stop_;
}

int64_t FlushWorker::flush_due(Requests& waiting, bool all) {
  int64_t next_ns = -1;
  for (const auto& port : ports_.all()) {
    auto& request = waiting[port->id];
    if (!request) {
      continue;
    }
    TokenBucket& of_messages = of_messages_[port->id];
    const int64_t now_ns = mono_now_ns();
    if (all || request->start == Start::kNow || of_messages.take(now_ns)) {
      flush(*port, request->cause);
      request.reset();
    } else {
      const int64_t wait_ns = of_messages.wait_ns(now_ns);
      next_ns = next_ns < 0 ? wait_ns : std::min(next_ns, wait_ns);
    }
  }
  return next_ns;
}

void FlushWorker::run() {
  Requests waiting;
  int64_t next_ns = -1;
  for (bool stop = false; !stop;) {
    wait(next_ns);
    stop = collect(waiting);
    next_ns = flush_due(waiting, stop);
  }
}

void FlushWorker::flush(const RingPort& port, const Cause& cause) {
  HistoryRecord record = History::make(HistoryKind::kFlush, port.id, cause);
  const uint32_t ifindex = port.ifindex.load(std::memory_order_relaxed);
  const bool present = ifindex != 0 && port.enslaved.load(std::memory_order_relaxed);
  const int error = present ? flush_port(socket_, ifindex) : 0;
  record.took_ns = mono_now_ns() - record.mono_ns;
  // A port that has just left took its addresses along.
  const bool failed = error != 0 && error != ENODEV && error != EINVAL && error != EOPNOTSUPP;
  record.phase = failed ? Phase::kFailed : Phase::kApplied;
  record.error = error;
  history_.add(record);
  if (failed) {
    count(counters_.flushes_failed);
    logf(LogLevel::kError, "port %u (%s): learnt addresses cannot be flushed: %s", port.id,
         port.interface.c_str(), std::strerror(error));
  } else {
    count(counters_.flushes_done);
  }
}

}  // namespace erps::linux_platform
