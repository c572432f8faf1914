#include "lab/link_control.h"

#include <libmnl/libmnl.h>
#include <linux/if_link.h>
#include <linux/rtnetlink.h>
#include <linux/veth.h>
#include <net/if.h>

#include "lab/lab_error.h"

namespace erps::lab {

namespace {

constexpr size_t kBufferBytes = 8192;

// The kernel's explanation in an error message, if it gives one.
std::string explanation_of(const nlmsghdr* message) {
  if ((message->nlmsg_flags & NLM_F_ACK_TLVS) == 0) {
    return {};
  }
  const auto* error = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(message));
  size_t offset = sizeof *error;
  if ((message->nlmsg_flags & NLM_F_CAPPED) == 0) {
    offset += mnl_nlmsg_get_payload_len(&error->msg);
  }
  std::string text;
  const auto* attribute = static_cast<const nlattr*>(mnl_nlmsg_get_payload_offset(message, offset));
  const auto* tail = static_cast<const char*>(mnl_nlmsg_get_payload_tail(message));
  while (
      mnl_attr_ok(attribute, static_cast<int>(tail - reinterpret_cast<const char*>(attribute)))) {
    if (mnl_attr_get_type(attribute) == NLMSGERR_ATTR_MSG) {
      text = mnl_attr_get_str(attribute);
    }
    attribute = mnl_attr_next(attribute);
  }
  return text;
}

void put_identity(nlmsghdr* message, const NewInterface& interface) {
  mnl_attr_put_strz(message, IFLA_IFNAME, interface.name.c_str());
  if (!interface.address.is_zero()) {
    mnl_attr_put(message, IFLA_ADDRESS, interface.address.bytes.size(),
                 interface.address.bytes.data());
  }
}

}  // namespace

LinkControl::LinkControl() : buffer_(new char[kBufferBytes]) {
  socket_ = mnl_socket_open2(NETLINK_ROUTE, SOCK_CLOEXEC);
  if (socket_ == nullptr || mnl_socket_bind(socket_, 0, MNL_SOCKET_AUTOPID) < 0) {
    const int error = errno;
    if (socket_ != nullptr) {
      mnl_socket_close(socket_);
    }
    throw system_error("rtnetlink", error);
  }
  int one = 1;
  mnl_socket_setsockopt(socket_, NETLINK_EXT_ACK, &one, sizeof one);
}

LinkControl::~LinkControl() {
  mnl_socket_close(socket_);
}

nlmsghdr* LinkControl::begin(uint32_t index, int change_flags, uint16_t type, uint16_t flags) {
  nlmsghdr* message = mnl_nlmsg_put_header(buffer_.get());
  message->nlmsg_type = type;
  message->nlmsg_flags = static_cast<uint16_t>(NLM_F_REQUEST | NLM_F_ACK | flags);
  message->nlmsg_seq = ++sequence_;
  auto* info = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
  info->ifi_family = AF_UNSPEC;
  info->ifi_index = static_cast<int>(index);
  info->ifi_change = static_cast<unsigned int>(change_flags);
  return message;
}

void LinkControl::ask(nlmsghdr* message, const std::string& what) {
  if (mnl_socket_sendto(socket_, message, message->nlmsg_len) < 0) {
    throw system_error(what);
  }
  alignas(nlmsghdr) char answer[kBufferBytes];
  const ssize_t length = mnl_socket_recvfrom(socket_, answer, sizeof answer);
  if (length < static_cast<ssize_t>(sizeof(nlmsghdr) + sizeof(nlmsgerr))) {
    throw system_error(what);
  }
  const auto* header = reinterpret_cast<const nlmsghdr*>(answer);
  const auto* error = static_cast<const nlmsgerr*>(mnl_nlmsg_get_payload(header));
  if (header->nlmsg_type != NLMSG_ERROR || error->error != 0) {
    const std::string explanation = explanation_of(header);
    throw LabError(what + ": " + std::strerror(-error->error) +
                   (explanation.empty() ? "" : " (" + explanation + ")"));
  }
}

void LinkControl::create_bridge(const NewInterface& bridge) {
  nlmsghdr* message = begin(bridge.index, 0, RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
  put_identity(message, bridge);
  nlattr* info = mnl_attr_nest_start(message, IFLA_LINKINFO);
  mnl_attr_put_strz(message, IFLA_INFO_KIND, "bridge");
  nlattr* data = mnl_attr_nest_start(message, IFLA_INFO_DATA);
  mnl_attr_put_u32(message, IFLA_BR_STP_STATE, 0);
  mnl_attr_put_u8(message, IFLA_BR_MCAST_SNOOPING, 0);
  mnl_attr_nest_end(message, data);
  mnl_attr_nest_end(message, info);
  ask(message, "bridge " + bridge.name + " cannot be made");
}

void LinkControl::create_pair(const NewInterface& here, const NewInterface& there,
                              int there_namespace) {
  nlmsghdr* message = begin(here.index, 0, RTM_NEWLINK, NLM_F_CREATE | NLM_F_EXCL);
  put_identity(message, here);
  nlattr* info = mnl_attr_nest_start(message, IFLA_LINKINFO);
  mnl_attr_put_strz(message, IFLA_INFO_KIND, "veth");
  nlattr* data = mnl_attr_nest_start(message, IFLA_INFO_DATA);
  nlattr* peer = mnl_attr_nest_start(message, VETH_INFO_PEER);
  auto* peer_info = static_cast<ifinfomsg*>(mnl_nlmsg_put_extra_header(message, sizeof(ifinfomsg)));
  peer_info->ifi_index = static_cast<int>(there.index);
  put_identity(message, there);
  mnl_attr_put_u32(message, IFLA_NET_NS_FD, static_cast<uint32_t>(there_namespace));
  mnl_attr_nest_end(message, peer);
  mnl_attr_nest_end(message, data);
  mnl_attr_nest_end(message, info);
  ask(message, "interface " + here.name + " cannot be made");
}

void LinkControl::enslave(uint32_t index, uint32_t bridge_index) {
  nlmsghdr* message = begin(index, 0, RTM_NEWLINK, 0);
  mnl_attr_put_u32(message, IFLA_MASTER, bridge_index);
  ask(message, "interface " + std::to_string(index) + " cannot join its bridge");
}

void LinkControl::silence_ipv6(uint32_t index) {
  nlmsghdr* message = begin(index, 0, RTM_NEWLINK, 0);
  nlattr* families = mnl_attr_nest_start(message, IFLA_AF_SPEC);
  nlattr* ipv6 = mnl_attr_nest_start(message, AF_INET6);
  mnl_attr_put_u8(message, IFLA_INET6_ADDR_GEN_MODE, IN6_ADDR_GEN_MODE_NONE);
  mnl_attr_nest_end(message, ipv6);
  mnl_attr_nest_end(message, families);
  try {
    ask(message, "IPv6");
  } catch (const LabError&) {
    // A kernel without IPv6 has nothing to silence.
  }
}

void LinkControl::set_up(uint32_t index, bool up) {
  nlmsghdr* message = begin(index, IFF_UP, RTM_NEWLINK, 0);
  auto* info = static_cast<ifinfomsg*>(mnl_nlmsg_get_payload(message));
  info->ifi_flags = up ? static_cast<unsigned int>(IFF_UP) : 0;
  ask(message, "interface " + std::to_string(index) + " cannot be taken " + (up ? "up" : "down"));
}

}  // namespace erps::lab
