#include "linux/port_keeper.h"

#include <linux/if_bridge.h>
#include <sys/timerfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>
#include <utility>

#include "linux/clock.h"
#include "linux/log.h"

namespace erps::linux_platform {
namespace {

// What others undo is applied again, but two programs that disagree about a port must not keep the
// kernel busy for ever.
constexpr int kReapplyLimit = 200;
constexpr int64_t kReapplyWindowNs = 1'000'000'000;

constexpr long kLongestRetryNs = 640'000'000;

const char* state_name(uint32_t state) {
  return state == kForwarding ? "forwarding" : "discarding";
}

// Not a link, a timer or a command: the module's own events pass on what a message told.
bool only_a_message_asks(const Cause& cause) {
  return cause.kind == CauseKind::kRaps || cause.kind == CauseKind::kEvent;
}

}  // namespace

PortKeeper::PortKeeper(RingPorts& ports, History& history, AtomicCounters& counters,
                       FlushWorker& flushes)
    : ports_(ports),
      history_(history),
      counters_(counters),
      flushes_(flushes),
      retry_timer_(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)) {
  if (!retry_timer_) {
    throw PlatformError(std::string("timer cannot be opened: ") + std::strerror(errno));
  }
}

void PortKeeper::guard_all() {
  struct Found {
    RingPort* port;
    uint32_t ifindex;
    PortFlags flags;
    uint8_t state;
  };
  std::vector<Found> guarded;
  const std::lock_guard lock(mutex_);
  const Cause cause{.kind = CauseKind::kStart};
  for (const auto& port : ports_.all()) {
    const uint32_t ifindex = port->ifindex.load();
    LinkInfo info;
    int error = find_link(socket_, ifindex, info);
    if (error == 0 && !info.is_bridge_port) {
      error = ENODEV;
    }
    HistoryRecord record = History::make(HistoryKind::kPortState, port->id, cause);
    if (error == 0) {
      error = set_port(socket_, ifindex, kGuardFlags, discarding_state(stp_owner()), true);
    }
    if (error != 0 && error != ENETDOWN) {
      const std::string reason = std::strerror(error);
      for (const Found& found : guarded) {
        set_port(socket_, found.ifindex, found.flags, found.state, false);
      }
      throw PlatformError("port " + std::to_string(port->id) + " (" + port->interface +
                          "): cannot be made discarding: " + reason +
                          (error == EPERM ? "; it needs CAP_NET_ADMIN" : ""));
    }
    guarded.push_back({port.get(), ifindex, info.port_flags, info.port_state});
    record.took_ns = mono_now_ns() - record.mono_ns;
    record.phase = Phase::kApplied;
    record.state = kDiscarding;
    history_.add(record);
  }
  for (const Found& found : guarded) {
    // A guard that is there already was left by a daemon that was killed; it is nobody's wish.
    found.port->found_guarded = found.flags == kGuardFlags;
    found.port->open_flags = found.port->found_guarded ? PortFlags{} : found.flags;
    found.port->wanted.store(kDiscarding);
    records_[found.port->id].applied = kDiscarding;
  }
}

void PortKeeper::release_all() {
  const std::lock_guard lock(mutex_);
  for (const auto& port : ports_.all()) {
    // Where an earlier daemon had blocked the port, opening it could close the ring to a loop.
    port->wanted.store(port->found_guarded ? kDiscarding : kForwarding);
    port->opening.store(false);
    apply(*port, Cause{.kind = CauseKind::kStop});
  }
}

bool PortKeeper::deferring() const {
  return in_event_ && pthread_equal(event_thread_, pthread_self()) != 0;
}

int PortKeeper::ask(RingPort& port, uint32_t state) {
  if (state != kForwarding && state != kDiscarding) {
    return EINVAL;
  }
  int error = 0;
  bool deferred = false;
  {
    const std::lock_guard lock(mutex_);
    if (port.wanted.exchange(state) != state) {
      HistoryRecord record = History::make(HistoryKind::kPortState, port.id);
      record.phase = Phase::kAsked;
      record.state = static_cast<uint8_t>(state);
      history_.add(record);
    }
    deferred = deferring();
    const bool withdrawn = state == kDiscarding && port.opening.load();
    if (withdrawn) {
      port.opening.store(false);
      --openings_;
      count(counters_.openings_withdrawn);
    }
    if (records_[port.id].applied == state || port.opening.load()) {
      return 0;
    }
    if (state == kForwarding && deferred) {
      port.opening.store(true);
      ++openings_;
      return 0;
    }
    error = apply(port, current_cause());
  }
  if (!deferred) {
    flushes_.kick(FlushWorker::Start::kNow);
  }
  return error;
}

void PortKeeper::flush(const RingPort& port) {
  flushes_.ask(port);
  const std::lock_guard lock(mutex_);
  if (!deferring()) {
    flushes_.kick(FlushWorker::Start::kNow);
  }
}

void PortKeeper::begin_event() {
  const std::lock_guard lock(mutex_);
  in_event_ = true;
  switched_ = false;
  event_thread_ = pthread_self();
}

void PortKeeper::finish_event() {
  FlushWorker::Start flushes = FlushWorker::Start::kNow;
  {
    const std::lock_guard lock(mutex_);
    in_event_ = false;
    if (openings_ > 0) {
      for (const auto& port : ports_.all()) {
        if (port->opening.load()) {
          apply(*port, current_cause());
          port->opening.store(false);
        }
      }
      openings_ = 0;
    }
    if (!switched_ && only_a_message_asks(current_cause())) {
      flushes = FlushWorker::Start::kSpaced;
    }
  }
  flushes_.kick(flushes);
}

void PortKeeper::abandon_event() {
  {
    const std::lock_guard lock(mutex_);
    in_event_ = false;
    openings_ = 0;
    for (const auto& port : ports_.all()) {
      if (port->opening.exchange(false)) {
        port->wanted.store(kDiscarding);
        logf(LogLevel::kNotice,
             "port %u (%s): stays discarding: the task ended before it finished its event",
             port->id, port->interface.c_str());
      }
    }
  }
  flushes_.kick(FlushWorker::Start::kNow);
}

int PortKeeper::apply(RingPort& port, const Cause& cause) {
  const uint32_t wanted = port.wanted.load();
  Record& kept = records_[port.id];
  kept.applied = 0;
  const uint32_t ifindex = port.ifindex.load();
  if (ifindex == 0 || !port.enslaved.load()) {
    return 0;  // applied when it is back
  }
  HistoryRecord record = History::make(HistoryKind::kPortState, port.id, cause);
  const bool discard = wanted == kDiscarding;
  // No flush in this message: it would hold up what follows, and "listening" and "blocking" hold
  // everything back until the worker has flushed. Should the carrier flap before, the kernel itself
  // forgets what was learnt on the port.
  int error = discard
                  ? set_port(socket_, ifindex, kGuardFlags, discarding_state(stp_owner()), false)
                  : set_port(socket_, ifindex, port.open_flags, BR_STATE_FORWARDING, false);
  record.took_ns = mono_now_ns() - record.mono_ns;
  if (error == ENETDOWN) {
    error = 0;  // the flags hold; the state follows when the carrier is back
  }
  record.state = static_cast<uint8_t>(wanted);
  record.phase = error == 0 ? Phase::kApplied : Phase::kFailed;
  record.error = error;
  history_.add(record);
  if (error != 0) {
    return refused(port, error);
  }
  kept.applied = wanted;
  switched_ = true;
  if (kept.refused) {
    kept.refused = false;
    logf(LogLevel::kNotice, "port %u (%s): is %s at last", port.id, port.interface.c_str(),
         state_name(wanted));
  }
  if (discard) {
    flushes_.ask(port);
  }
  return 0;
}

int PortKeeper::refused(RingPort& port, int error) {
  const std::string reason =
      *socket_.last_error_text() != '\0' ? socket_.last_error_text() : std::strerror(error);
  LinkInfo info;
  if (find_link(socket_, port.ifindex.load(), info) != 0 || !info.is_bridge_port) {
    return 0;  // it has just left the bridge; applied when it is back
  }
  count(counters_.port_state_failures);
  const bool told = std::exchange(records_[port.id].refused, true);
  if (!told) {
    retry_ns_ = kFirstRetryNs;
  }
  arm_retry();
  if (told) {
    return error;
  }
  logf(LogLevel::kError, "port %u (%s): cannot be made %s, tried again: %s%s", port.id,
       port.interface.c_str(), state_name(port.wanted.load()), reason.c_str(),
       error == EBUSY ? "; is the kernel's spanning tree on? turn it off" : "");
  return error;
}

void PortKeeper::arm_retry() {
  const itimerspec once{.it_interval = {}, .it_value = {.tv_sec = 0, .tv_nsec = retry_ns_}};
  timerfd_settime(retry_timer_.get(), 0, &once, nullptr);
}

void PortKeeper::retry() {
  uint64_t expirations = 0;
  [[maybe_unused]] const ssize_t ignored =
      read(retry_timer_.get(), &expirations, sizeof expirations);
  {
    const std::lock_guard lock(mutex_);
    retry_ns_ = std::min(2 * retry_ns_, kLongestRetryNs);
    for (const auto& port : ports_.all()) {
      if (records_[port->id].refused && !port->opening.load()) {
        apply(*port, Cause{.kind = CauseKind::kReapply});
      }
    }
  }
  flushes_.kick(FlushWorker::Start::kNow);
}

bool PortKeeper::matches(const RingPort& port, const LinkInfo& info, StpOwner owner,
                         uint32_t wanted) {
  const bool down = info.port_state == BR_STATE_DISABLED && !(info.admin_up() && info.carrier());
  if (wanted == kDiscarding) {
    return info.port_flags == kGuardFlags && (down || info.port_state == discarding_state(owner));
  }
  return info.port_flags == port.open_flags && (down || info.port_state == BR_STATE_FORWARDING);
}

bool PortKeeper::reapply_allowed(RingPort& port, Record& record) {
  const int64_t now = mono_now_ns();
  if (now - record.reapply_window_ns > kReapplyWindowNs) {
    record.reapply_window_ns = now;
    record.reapply_count = 0;
  }
  if (++record.reapply_count == kReapplyLimit) {
    logf(LogLevel::kError,
         "port %u (%s): something else keeps changing the bridge port; not applied again for a "
         "second",
         port.id, port.interface.c_str());
  }
  return record.reapply_count < kReapplyLimit;
}

void PortKeeper::check(RingPort& port) {
  {
    const std::lock_guard lock(mutex_);
    LinkInfo info;
    const uint32_t ifindex = port.ifindex.load();
    Record& record = records_[port.id];
    if (ifindex == 0 || !port.enslaved.load() || find_link(socket_, ifindex, info) != 0 ||
        !info.is_bridge_port) {
      record.applied = 0;
      return;
    }
    if (port.opening.load() || matches(port, info, stp_owner(), port.wanted.load()) ||
        !reapply_allowed(port, record)) {
      return;
    }
    count(port.reapplied);
    logf(LogLevel::kDebug, "port %u (%s): the kernel has it %s; making it %s again", port.id,
         port.interface.c_str(), port_state_name(info.port_state), state_name(port.wanted.load()));
    apply(port, Cause{.kind = CauseKind::kReapply});
  }
  flushes_.kick(FlushWorker::Start::kNow);
}

void PortKeeper::set_stp_owner(StpOwner owner) {
  owner_.store(owner, std::memory_order_relaxed);
}

}  // namespace erps::linux_platform
