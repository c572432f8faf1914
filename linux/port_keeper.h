// Keeps every ring port in the state that was last asked for.
//
// Blocking is applied at once. Opening is remembered and applied when the protocol task has
// finished the event in which it was asked, unless the same event blocked the port again: a ring
// that starts sets its ports forwarding and blocks one of them a moment later, and must not be a
// loop for that moment. What the kernel undoes (it opens ports whose carrier returns) is applied
// again when it says so. What the kernel refuses is tried again until it succeeds or something else
// is wanted, for the module takes its word for done.
//
// Threading: any thread; one lock that nobody holds while waiting. An opening is deferred only for
// the thread that handles an event.
// Errors: guard_all() throws PlatformError with nothing changed; ask() returns an errno. A port
// without carrier or off the bridge is no error: the wanted state is applied when it is back.
#pragma once

#include <pthread.h>

#include <array>
#include <atomic>
#include <mutex>

#include "linux/bridge_commands.h"
#include "linux/counters.h"
#include "linux/flush_worker.h"
#include "linux/history.h"
#include "linux/ring_port.h"
#include "linux/unique_fd.h"

namespace erps::linux_platform {

class PortKeeper {
 public:
  // Throws PlatformError.
  PortKeeper(RingPorts& ports, History& history, AtomicCounters& counters, FlushWorker& flushes);

  // Makes every ring port discarding, or throws and leaves them as they were.
  void guard_all();
  // Gives every ring port its own flags back, forwarding.
  void release_all();

  // 0 done or remembered, otherwise an errno. `state` is kForwarding or kDiscarding.
  int ask(RingPort& port, uint32_t state);
  // Forgets the port's learnt addresses, after the openings of the event.
  void flush(const RingPort& port);

  // The calling thread begins to handle an event, or has finished it.
  void begin_event();
  void finish_event();
  // The task went away in the middle of an event: what it had not finished opening stays shut.
  void abandon_event();

  // Compares what the kernel says about the port with what is wanted, and applies it again if it
  // differs.
  void check(RingPort& port);

  // Readable when retry() is due.
  int retry_fd() const { return retry_timer_.get(); }
  // Tries again what the kernel refused.
  void retry();

  void set_stp_owner(StpOwner owner);
  StpOwner stp_owner() const { return owner_.load(std::memory_order_relaxed); }

  // True when a port in this state is what is wanted. A port that is down stands at "disabled".
  static bool matches(const RingPort& port, const LinkInfo& info, StpOwner owner, uint32_t wanted);

 private:
  struct Record {
    uint32_t applied = 0;  // kForwarding, kDiscarding, or 0: not known to hold
    bool refused = false;  // by the kernel, when it was last tried
    int64_t reapply_window_ns = 0;
    int reapply_count = 0;
  };

  bool deferring() const;
  int apply(RingPort& port, const Cause& cause);
  int refused(RingPort& port, int error);
  void arm_retry();
  bool reapply_allowed(RingPort& port, Record& record);

  RingPorts& ports_;
  History& history_;
  AtomicCounters& counters_;
  FlushWorker& flushes_;
  std::atomic<StpOwner> owner_{StpOwner::kNobody};

  static constexpr long kFirstRetryNs = 20'000'000;
  UniqueFd retry_timer_;

  std::mutex mutex_;
  NetlinkSocket socket_;
  std::array<Record, kMaxPort + 1> records_;
  long retry_ns_ = kFirstRetryNs;
  bool in_event_ = false;
  bool switched_ = false;  // a port changed its state since the event began
  pthread_t event_thread_{};
  uint32_t openings_ = 0;  // ports whose opening waits for the end of the event
};

}  // namespace erps::linux_platform
