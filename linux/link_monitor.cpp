#include "linux/link_monitor.h"

#include <linux/ethtool.h>
#include <linux/sockios.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/timerfd.h>

#include <cerrno>
#include <cstring>

#include "linux/log.h"
#include "linux/port_keeper.h"

namespace erps::linux_platform {

LinkMonitor::LinkMonitor(RingPorts& ports, std::string bridge, int carrier_poll_ms,
                         LinkListener& listener, History& history, AtomicCounters& counters)
    : ports_(ports),
      bridge_(std::move(bridge)),
      carrier_poll_ms_(carrier_poll_ms),
      listener_(listener),
      history_(history),
      counters_(counters),
      notifications_(mnl_socket_open2(NETLINK_ROUTE, SOCK_NONBLOCK | SOCK_CLOEXEC)),
      timer_(timerfd_create(CLOCK_MONOTONIC, TFD_NONBLOCK | TFD_CLOEXEC)),
      control_(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0)) {
  if (!control_) {
    control_.reset(socket(AF_UNIX, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  }
  if (notifications_ == nullptr || !timer_ || !control_ ||
      mnl_socket_bind(notifications_.get(), RTMGRP_LINK, MNL_SOCKET_AUTOPID) < 0) {
    throw PlatformError(std::string("link notifications cannot be opened: ") +
                        std::strerror(errno));
  }
  constexpr int kBufferBytes = 4 * 1024 * 1024;
  setsockopt(netlink_fd(), SOL_SOCKET, SO_RCVBUFFORCE, &kBufferBytes, sizeof kBufferBytes);
}

void LinkMonitor::read_initial() {
  initial_ = true;
  resync();
  initial_ = false;
}

void LinkMonitor::drain() {
  bool overrun = false;
  for (;;) {
    const ssize_t received =
        mnl_socket_recvfrom(notifications_.get(), buffer_.data(), buffer_.size());
    if (received >= 0) {
      // Behind a gap nothing that is queued is known to be the last word on a link.
      if (!overrun) {
        mnl_cb_run(buffer_.data(), static_cast<size_t>(received), 0, 0, on_message, this);
      }
    } else if (errno == ENOBUFS || errno == ENOSPC) {
      overrun = true;
    } else if (errno != EINTR) {
      if (errno != EAGAIN) {
        logf(LogLevel::kError, "link notifications cannot be read: %s", std::strerror(errno));
      }
      break;
    }
  }
  if (overrun) {
    count(counters_.netlink_overruns);
    logf(LogLevel::kNotice, "link notifications were lost; reading all links again");
    resync();
  }
}

int LinkMonitor::on_message(const nlmsghdr* message, void* monitor) {
  LinkInfo info;
  if (parse_link(message, info)) {
    static_cast<LinkMonitor*>(monitor)->handle(info);
  }
  return MNL_CB_OK;
}

void LinkMonitor::handle(const LinkInfo& info) {
  if (!info.from_bridge && (info.ifindex == bridge_ifindex_ || bridge_ == info.name.data())) {
    handle_bridge(info);
    return;
  }
  RingPort* port = find_port(info);
  if (port == nullptr) {
    return;
  }
  if (!info.removed) {
    handle_port(*port, info);
  } else if (info.from_bridge) {
    leave_bridge(*port);
  } else {
    lose_port(*port);
  }
}

void LinkMonitor::handle_bridge(const LinkInfo& info) {
  if (info.removed) {
    if (info.ifindex == bridge_ifindex_) {
      logf(LogLevel::kError, "bridge %s is gone", bridge_.c_str());
      bridge_ifindex_ = 0;
      for (const auto& port : ports_.all()) {
        leave_bridge(*port);
      }
    }
    return;
  }
  if (!info.is_bridge) {
    return;
  }
  const bool appeared = bridge_ifindex_ != info.ifindex;
  bridge_ifindex_ = info.ifindex;
  if (appeared || stp_state_ != info.stp_state) {
    stp_state_ = info.stp_state;
    listener_.stp_changed(stp_state_);
  }
}

RingPort* LinkMonitor::find_port(const LinkInfo& info) {
  for (const auto& port : ports_.all()) {
    if (port->ifindex.load() == info.ifindex) {
      return port.get();
    }
  }
  if (info.removed || info.from_bridge) {
    return nullptr;
  }
  for (const auto& port : ports_.all()) {
    if (port->ifindex.load() == 0 && port->interface == info.name.data()) {
      port->ifindex.store(info.ifindex);
      if (!initial_) {
        logf(LogLevel::kNotice, "port %u: interface %s is there again", port->id,
             port->interface.c_str());
      }
      listener_.port_appeared(*port);
      return port.get();
    }
  }
  return nullptr;
}

void LinkMonitor::handle_port(RingPort& port, const LinkInfo& info) {
  if (!info.from_bridge) {
    port.slow_carrier.store(info.slow_carrier());
    arm_timer();
  }
  const bool member = bridge_ifindex_ != 0 && info.master == bridge_ifindex_ && info.is_bridge_port;
  if (!member) {
    leave_bridge(port);
    return;
  }
  const bool joined = !port.enslaved.exchange(true);
  if (joined && !initial_) {
    logf(LogLevel::kNotice, "port %u (%s): is a port of bridge %s again", port.id,
         port.interface.c_str(), bridge_.c_str());
  }
  if (!initial_) {
    const StpOwner owner = stp_state_ == 2 ? StpOwner::kUser : StpOwner::kNobody;
    if (joined || !PortKeeper::matches(port, info, owner, port.wanted.load())) {
      listener_.port_differs(port);
    }
  }
  bool up = info.admin_up() && info.carrier();
  if (up && !initial_ && !port.link_up.load()) {
    // The message may be older than a loss that the device has told meanwhile.
    up = carrier_of(port);
  }
  observe(port, up);
}

void LinkMonitor::lose_port(RingPort& port) {
  if (port.ifindex.load() == 0) {
    return;
  }
  logf(LogLevel::kError, "port %u: interface %s is gone", port.id, port.interface.c_str());
  leave_bridge(port);
  port.ifindex.store(0);
  port.slow_carrier.store(false);
  arm_timer();
  listener_.port_gone(port);
}

void LinkMonitor::leave_bridge(RingPort& port) {
  if (port.enslaved.exchange(false)) {
    logf(LogLevel::kError, "port %u (%s): is no port of bridge %s any more", port.id,
         port.interface.c_str(), bridge_.c_str());
  }
  observe(port, false);
}

void LinkMonitor::observe(RingPort& port, bool up) {
  if (port.link_up.exchange(up) == up || initial_) {
    return;
  }
  count(port.link_changes);
  HistoryRecord record = History::make(HistoryKind::kLink, port.id, Cause{});
  record.state = up ? 1 : 0;
  history_.add(record);
  logf(LogLevel::kNotice, "port %u (%s): link %s", port.id, port.interface.c_str(),
       up ? "up" : "down");

  // Two changes of a port wait at most: of a longer flap the module needs to know that the link was
  // away and how it is now.
  size_t waiting = 0;
  for (size_t i = 0; i < queue_size_; ++i) {
    waiting += queue_[(queue_head_ + i) % kQueueCapacity].port == &port ? 1 : 0;
  }
  if (waiting < 2) {
    queue_[(queue_head_ + queue_size_) % kQueueCapacity] = {&port, up};
    ++queue_size_;
    return;
  }
  for (size_t i = queue_size_; i-- > 0;) {
    if (queue_[(queue_head_ + i) % kQueueCapacity].port == &port) {
      for (size_t j = i; j + 1 < queue_size_; ++j) {
        queue_[(queue_head_ + j) % kQueueCapacity] = queue_[(queue_head_ + j + 1) % kQueueCapacity];
      }
      --queue_size_;
      return;
    }
  }
}

bool LinkMonitor::next(LinkChange& change) {
  if (queue_size_ == 0) {
    return false;
  }
  change = queue_[queue_head_];
  queue_head_ = (queue_head_ + 1) % kQueueCapacity;
  --queue_size_;
  return true;
}

void LinkMonitor::poll_devices() {
  uint64_t expirations = 0;
  [[maybe_unused]] const ssize_t ignored = read(timer_fd(), &expirations, sizeof expirations);
  drain();  // what the kernel has told already is older than what the devices say now
  for (const auto& port : ports_.all()) {
    if (port->slow_carrier.load() && port->enslaved.load()) {
      observe(*port, carrier_of(*port));
    }
  }
}

bool LinkMonitor::carrier_of(const RingPort& port) const {
  ethtool_value question{.cmd = ETHTOOL_GLINK, .data = 0};
  ifreq request{};
  // Asked for by its index: an interface that was renamed is still the port.
  request.ifr_ifindex = static_cast<int>(port.ifindex.load());
  if (ioctl(control_.get(), SIOCGIFNAME, &request) != 0) {
    return false;
  }
  request.ifr_data = reinterpret_cast<char*>(&question);
  if (ioctl(control_.get(), SIOCETHTOOL, &request) == 0) {
    return question.data != 0;
  }
  // Some drivers cannot be asked; the interface flags know as much as the kernel does.
  if (errno == EOPNOTSUPP && ioctl(control_.get(), SIOCGIFFLAGS, &request) == 0) {
    return (request.ifr_flags & IFF_UP) != 0 && (request.ifr_flags & IFF_RUNNING) != 0;
  }
  return false;
}

bool LinkMonitor::device_up(const RingPort& port) const {
  return port.enslaved.load() && carrier_of(port);
}

void LinkMonitor::resync() {
  LinkInfo info;
  if (find_link(requests_, bridge_.c_str(), info) == 0) {
    handle_bridge(info);
  } else {
    LinkInfo gone;
    gone.removed = true;
    gone.ifindex = bridge_ifindex_;
    handle_bridge(gone);
  }
  for (const auto& port : ports_.all()) {
    const uint32_t ifindex = port->ifindex.load();
    if (ifindex != 0 && find_link(requests_, ifindex, info) == ENODEV) {
      lose_port(*port);
    }
    const uint32_t now = port->ifindex.load();
    const int error = now != 0 ? find_link(requests_, now, info)
                               : find_link(requests_, port->interface.c_str(), info);
    if (error == 0) {
      handle(info);
    }
  }
}

void LinkMonitor::arm_timer() {
  bool wanted = false;
  for (const auto& port : ports_.all()) {
    wanted = wanted || port->slow_carrier.load();
  }
  wanted = wanted && carrier_poll_ms_ > 0;
  if (wanted == timer_armed_) {
    return;
  }
  timer_armed_ = wanted;
  const timespec period{.tv_sec = wanted ? carrier_poll_ms_ / 1000 : 0,
                        .tv_nsec = wanted ? carrier_poll_ms_ % 1000 * 1'000'000L : 0};
  const itimerspec setting{.it_interval = period, .it_value = period};
  timerfd_settime(timer_fd(), 0, &setting, nullptr);
}

}  // namespace erps::linux_platform
