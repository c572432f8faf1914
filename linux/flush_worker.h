// Forgets learnt addresses in the background.
//
// A flush holds the kernel's network configuration lock for about 0.3 ms a thousand entries, so the
// protocol task only asks; the flushes of an event start when it has opened its ports. Whoever
// sends messages can ask for a flush with each of them, and that lock is the whole machine's. So of
// the flushes that nothing but a message asks for, a port has a few at once, and one every
// kSpacingNs behind them: what is asked for meanwhile is forgotten then.
//
// Threading: ask() and kick() from any thread; one thread of its own does the work. Asked again
// before it started, a port is flushed once; asked while it runs, once more.
// Errors: a failed flush is logged, counted and recorded; a port that is away has nothing to
// forget.
#pragma once

#include <array>
#include <mutex>
#include <optional>
#include <thread>
#include <vector>

#include "linux/counters.h"
#include "linux/history.h"
#include "linux/inheriting_mutex.h"
#include "linux/netlink_socket.h"
#include "linux/ring_port.h"
#include "linux/token_bucket.h"
#include "linux/unique_fd.h"

namespace erps::linux_platform {

class FlushWorker {
 public:
  // Flushes of a port that only a message asks for: an honest ring needs a handful a change, and
  // traffic goes the old way for no longer than the spacing when a flood has used them up.
  static constexpr Budget kOfMessages{16, 50};
  static constexpr int64_t kSpacingNs = 1'000'000'000 / kOfMessages.per_second;

  enum class Start {
    kNow,     // they belong to a change of port states, a link, a timer or a command
    kSpaced,  // only a message asks for them
  };

  FlushWorker(const RingPorts& ports, History& history, AtomicCounters& counters);
  ~FlushWorker() { finish(); }
  FlushWorker(const FlushWorker&) = delete;
  FlushWorker& operator=(const FlushWorker&) = delete;

  // Notes the port with the calling thread's cause.
  void ask(const RingPort& port);
  // Starts the flushes that were asked for.
  void kick(Start start);
  // Finishes what was asked for and ends the thread; nothing is flushed after that.
  void finish();

 private:
  struct Request {
    Cause cause;
    Start start;
  };
  using Requests = std::array<std::optional<Request>, kMaxPort + 1>;

  void run();
  void ring_bell() const;
  // Waits for the bell, or so long when it is not negative.
  void wait(int64_t most_ns) const;
  // Moves what was started to `waiting`; true when the thread is to end.
  bool collect(Requests& waiting);
  // Flushes what may be flushed by now; how long the next of the others has to wait, or -1.
  int64_t flush_due(Requests& waiting, bool all);
  void flush(const RingPort& port, const Cause& cause);

  const RingPorts& ports_;
  History& history_;
  AtomicCounters& counters_;
  NetlinkSocket socket_;
  UniqueFd bell_;
  InheritingMutex mutex_;
  std::array<std::optional<Cause>, kMaxPort + 1> asked_;  // of the event that is being handled
  Requests started_;                                      // for the worker to take
  bool any_asked_ = false;
  bool stop_ = false;
  std::vector<TokenBucket> of_messages_;  // by port number; the worker's
  std::thread thread_;
};

}  // namespace erps::linux_platform
