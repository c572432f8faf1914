#include "linux/netlink_socket.h"

#include <linux/netlink.h>
#include <sys/socket.h>
#include <sys/time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "linux/cancel_guard.h"
#include "linux/netlink_attributes.h"
#include "linux/platform.h"

namespace erps::linux_platform {

NetlinkRequest::NetlinkRequest(uint16_t type, uint16_t flags) {
  nlmsghdr* header = mnl_nlmsg_put_header(buffer_.data());
  header->nlmsg_type = type;
  header->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | flags);
}

NetlinkSocket::NetlinkSocket(int bus) : socket_(mnl_socket_open2(bus, SOCK_CLOEXEC)) {
  if (socket_ == nullptr) {
    throw PlatformError(std::string("netlink socket cannot be opened: ") + std::strerror(errno));
  }
  if (mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID) < 0) {
    const int error = errno;
    mnl_socket_close(socket_);
    throw PlatformError(std::string("netlink socket cannot be bound: ") + std::strerror(error));
  }
  int on = 1;
  mnl_socket_setsockopt(socket_, NETLINK_EXT_ACK, &on, sizeof on);
  mnl_socket_setsockopt(socket_, NETLINK_CAP_ACK, &on, sizeof on);
  // The kernel answers within the send; the limit only keeps a task from hanging for ever.
  const timeval limit{.tv_sec = 2, .tv_usec = 0};
  setsockopt(fd(), SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

NetlinkSocket::~NetlinkSocket() {
  mnl_socket_close(socket_);
}

int NetlinkSocket::transact(NetlinkRequest& request) {
  request.get()->nlmsg_flags |= NLM_F_ACK;
  return exchange(request, nullptr, nullptr);
}

int NetlinkSocket::query(NetlinkRequest& request, mnl_cb_t callback, void* context) {
  if ((request.get()->nlmsg_flags & NLM_F_DUMP) != NLM_F_DUMP) {
    request.get()->nlmsg_flags |= NLM_F_ACK;
  }
  return exchange(request, callback, context);
}

int NetlinkSocket::exchange(NetlinkRequest& request, mnl_cb_t callback, void* context) {
  const CancelGuard guard;
  nlmsghdr* header = request.get();
  header->nlmsg_seq = ++sequence_;
  error_text_[0] = '\0';
  if (mnl_socket_sendto(socket_, header, header->nlmsg_len) < 0) {
    return errno;
  }
  const uint32_t port = mnl_socket_get_portid(socket_);
  for (;;) {
    const ssize_t received = mnl_socket_recvfrom(socket_, buffer_.data(), buffer_.size());
    if (received < 0) {
      if (errno == EINTR) {
        continue;
      }
      return errno;
    }
    const auto* first = reinterpret_cast<const nlmsghdr*>(buffer_.data());
    if (first->nlmsg_seq != sequence_) {
      continue;  // the late answer of a request that was given up
    }
    const int result = mnl_cb_run(buffer_.data(), static_cast<size_t>(received), sequence_, port,
                                  callback, context);
    if (result == MNL_CB_ERROR) {
      const int error = errno;
      keep_error_text(first);
      return error;
    }
    if (result == MNL_CB_STOP) {
      return 0;
    }
  }
}

void NetlinkSocket::keep_error_text(const nlmsghdr* message) {
  if (message->nlmsg_type != NLMSG_ERROR || (message->nlmsg_flags & NLM_F_ACK_TLVS) == 0) {
    return;
  }
  // With capped acknowledgements the attributes stand right behind the error header.
  for_each_attribute_of(message, sizeof(nlmsgerr), [&](const nlattr* attribute) {
    if (mnl_attr_get_type(attribute) == NLMSGERR_ATTR_MSG) {
      const char* text = mnl_attr_get_str(attribute);
      const size_t length =
          std::min<size_t>(mnl_attr_get_payload_len(attribute), error_text_.size() - 1);
      std::memcpy(error_text_.data(), text, length);
      error_text_[length] = '\0';
    }
  });
}

}  // namespace erps::linux_platform
