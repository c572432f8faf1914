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
  kick();
  {
    const std::lock_guard lock(mutex_);
    stop_ = true;
  }
  wake_.release();
  thread_.join();
}

void FlushWorker::ask(const RingPort& port) {
  count(counters_.flushes_asked);
  const std::lock_guard lock(mutex_);
  asked_[port.id] = current_cause();
  any_asked_ = true;
}

void FlushWorker::kick() {
  {
    const std::lock_guard lock(mutex_);
    if (!any_asked_) {
      return;
    }
    any_asked_ = false;
    for (size_t id = 0; id < asked_.size(); ++id) {
      if (asked_[id]) {
        started_[id] = asked_[id];
        asked_[id].reset();
      }
    }
  }
  wake_.release();
}

void FlushWorker::run() {
  for (bool stop = false; !stop;) {
    wake_.acquire();
    Requests requests;
    {
      const std::lock_guard lock(mutex_);
      requests.swap(started_);
      stop = stop_;
    }
    for (const auto& port : ports_.all()) {
      if (const auto& cause = requests[port->id]) {
        flush(*port, *cause);
      }
    }
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
