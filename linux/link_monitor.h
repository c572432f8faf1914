// Link states of the ring ports: rtnetlink notifications, and asking the device where those may be
// late.
//
// The kernel may tell a carrier loss of a physical interface up to a second late; asking the device
// brings it out at once. So such interfaces are asked every few milliseconds.
//
// Threading: the thread that runs the protocol task's queue, except device_up(), which any thread
// may call. Nothing waits.
// Errors: opening throws PlatformError. An overrun of the netlink socket is counted and answered by
// reading every link again.
#pragma once

#include <array>
#include <functional>
#include <string>

#include "linux/counters.h"
#include "linux/history.h"
#include "linux/netlink_socket.h"
#include "linux/ring_port.h"
#include "linux/unique_fd.h"

namespace erps::linux_platform {

// What the monitor tells besides link states. All calls in the monitor's thread.
class LinkListener {
 public:
  virtual ~LinkListener() = default;
  virtual void port_appeared(RingPort& port) = 0;  // under a new interface index
  virtual void port_gone(RingPort& port) = 0;
  virtual void port_differs(RingPort& port) = 0;     // joined the bridge, or was changed there
  virtual void stp_changed(uint32_t stp_state) = 0;  // of the bridge: 0 off, 1 kernel, 2 user
};

struct LinkChange {
  RingPort* port = nullptr;
  bool up = false;
};

class LinkMonitor {
 public:
  LinkMonitor(RingPorts& ports, std::string bridge, int carrier_poll_ms, LinkListener& listener,
              History& history, AtomicCounters& counters);

  // Reads bridge and ports as they are; no link change is told for what is found here.
  void read_initial();

  int netlink_fd() const { return mnl_socket_get_fd(notifications_.get()); }
  int timer_fd() const { return timer_.get(); }

  // Reads all notifications that are there.
  void drain();
  // Asks the slow interfaces; called when timer_fd() is readable.
  void poll_devices();
  // The oldest change not told yet; false when there is none.
  bool next(LinkChange& change);

  // Link state of the port at this moment, asked of the device.
  bool device_up(const RingPort& port) const;

 private:
  static constexpr size_t kQueueCapacity = 128;  // at most two changes a port wait

  struct SocketCloser {
    void operator()(mnl_socket* socket) const { mnl_socket_close(socket); }
  };

  static int on_message(const nlmsghdr* message, void* monitor);
  void handle(const LinkInfo& info);
  void handle_bridge(const LinkInfo& info);
  void handle_port(RingPort& port, const LinkInfo& info);
  RingPort* find_port(const LinkInfo& info);
  void lose_port(RingPort& port);
  void leave_bridge(RingPort& port);
  void observe(RingPort& port, bool up);
  void resync();
  void arm_timer();
  bool carrier_of(const RingPort& port) const;

  RingPorts& ports_;
  const std::string bridge_;
  const int carrier_poll_ms_;
  LinkListener& listener_;
  History& history_;
  AtomicCounters& counters_;

  NetlinkSocket requests_;
  std::unique_ptr<mnl_socket, SocketCloser> notifications_;
  UniqueFd timer_;
  UniqueFd control_;  // for asking devices
  bool timer_armed_ = false;
  uint32_t bridge_ifindex_ = 0;
  uint32_t stp_state_ = 0;
  bool initial_ = false;

  std::array<LinkChange, kQueueCapacity> queue_{};
  size_t queue_head_ = 0;
  size_t queue_size_ = 0;
  alignas(nlmsghdr) std::array<char, 32768> buffer_{};
};

}  // namespace erps::linux_platform
