// Forgets learnt addresses in the background.
//
// A flush holds the kernel's network configuration lock for about 0.3 ms a thousand entries, so the
// protocol task only asks; the flushes of an event start when it has opened its ports.
//
// Threading: ask() and kick() from any thread; one thread of its own does the work. Asked again
// before it started, a port is flushed once; asked while it runs, once more.
// Errors: a failed flush is logged, counted and recorded; a port that is away has nothing to
// forget.
#pragma once

#include <array>
#include <mutex>
#include <optional>
#include <semaphore>
#include <thread>

#include "linux/counters.h"
#include "linux/history.h"
#include "linux/inheriting_mutex.h"
#include "linux/netlink_socket.h"
#include "linux/ring_port.h"

namespace erps::linux_platform {

class FlushWorker {
 public:
  FlushWorker(const RingPorts& ports, History& history, AtomicCounters& counters);
  ~FlushWorker() { finish(); }
  FlushWorker(const FlushWorker&) = delete;
  FlushWorker& operator=(const FlushWorker&) = delete;

  // Notes the port with the calling thread's cause.
  void ask(const RingPort& port);
  // Starts the flushes that were asked for.
  void kick();
  // Finishes what was asked for and ends the thread; nothing is flushed after that.
  void finish();

 private:
  using Requests = std::array<std::optional<Cause>, kMaxPort + 1>;

  void run();
  void flush(const RingPort& port, const Cause& cause);

  const RingPorts& ports_;
  History& history_;
  AtomicCounters& counters_;
  NetlinkSocket socket_;
  std::counting_semaphore<> wake_{0};
  InheritingMutex mutex_;
  Requests asked_;    // of the event that is being handled
  Requests started_;  // for the worker to take
  bool any_asked_ = false;
  bool stop_ = false;
  std::thread thread_;
};

}  // namespace erps::linux_platform
