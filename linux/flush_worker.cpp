#include "linux/flush_worker.h"

#include <cerrno>
#include <cstring>

#include "linux/background_thread.h"
#include "linux/bridge_commands.h"
#include "linux/clock.h"
#include "linux/log.h"

namespace erps::linux_platform {

FlushWorker::FlushWorker(const RingPorts& ports, History& history, AtomicCounters& counters)
    : ports_(ports), history_(history), counters_(counters) {
  thread_ = start_background_thread("erps-flush", [this] { run(); });
}

void FlushWorker::finish() {
  if (!thread_.joinable()) {
    return;
  }
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  wake_.notify_one();
  thread_.join();
}

void FlushWorker::ask(const RingPort& port) {
  count(counters_.flushes_asked);
  const std::lock_guard lock(mutex_);
  requests_[port.id] = current_cause();
  asked_ = true;
}

void FlushWorker::kick() {
  {
    const std::lock_guard lock(mutex_);
    if (!asked_) {
      return;
    }
    go_ = true;
  }
  wake_.notify_one();
}

void FlushWorker::run() {
  std::unique_lock lock(mutex_);
  for (;;) {
    wake_.wait(lock, [this] { return go_ || stop_; });
    if (!asked_ && stop_) {
      return;
    }
    Requests requests;
    requests.swap(requests_);
    asked_ = false;
    go_ = false;
    lock.unlock();
    for (const auto& port : ports_.all()) {
      if (const auto& cause = requests[port->id]) {
        flush(*port, *cause);
      }
    }
    lock.lock();
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
