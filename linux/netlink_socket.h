// One rtnetlink socket for requests that are answered at once.
//
// Threading: one thread at a time; each user owns a socket of its own. Cancellation is held off
// while a request is under way.
// Errors: opening throws PlatformError; requests return an errno, 0 when the kernel acknowledged.
// Nothing is logged or allocated here.
#pragma once

#include <libmnl/libmnl.h>
#include <linux/rtnetlink.h>

#include <array>
#include <cstdint>
#include <string>

namespace erps::linux_platform {

// Room for one request of ours.
class NetlinkRequest {
 public:
  NetlinkRequest(uint16_t type, uint16_t flags);

  // Appends a zeroed fixed header.
  template <typename Header>
  Header& add_header() {
    return *static_cast<Header*>(mnl_nlmsg_put_extra_header(get(), sizeof(Header)));
  }

  nlmsghdr* get() { return reinterpret_cast<nlmsghdr*>(buffer_.data()); }

 private:
  alignas(nlmsghdr) std::array<char, 2048> buffer_{};
};

class NetlinkSocket {
 public:
  explicit NetlinkSocket(int bus = NETLINK_ROUTE);
  ~NetlinkSocket();
  NetlinkSocket(const NetlinkSocket&) = delete;
  NetlinkSocket& operator=(const NetlinkSocket&) = delete;

  int fd() const { return mnl_socket_get_fd(socket_); }

  // Sends the request and waits for its acknowledgement. Returns 0 or an errno.
  int transact(NetlinkRequest& request);

  // Sends the request and hands every message of the answer to `callback` (see mnl_cb_run).
  // Returns 0 or an errno.
  int query(NetlinkRequest& request, mnl_cb_t callback, void* context);

  // The kernel's words about the last refusal, "" when it gave none.
  const char* last_error_text() const { return error_text_.data(); }

 private:
  int exchange(NetlinkRequest& request, mnl_cb_t callback, void* context);
  void keep_error_text(const nlmsghdr* message);

  mnl_socket* socket_;
  uint32_t sequence_ = 0;
  std::array<char, 160> error_text_{};
  alignas(nlmsghdr) std::array<char, 32768> buffer_{};
};

}  // namespace erps::linux_platform
