#include "linux/link_info.h"

#include <linux/if_bridge.h>
#include <linux/if_link.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string_view>

#include "linux/netlink_attributes.h"

namespace erps::linux_platform {
namespace {

constexpr uint32_t kLowerUp = 1u << 16;  // IFF_LOWER_UP, which <net/if.h> does not know

void parse_port_attributes(const nlattr* nest, LinkInfo& info) {
  info.is_bridge_port = true;
  for_each_nested(nest, [&](const nlattr* attribute) {
    if (mnl_attr_get_payload_len(attribute) != sizeof(uint8_t)) {
      return;
    }
    const uint8_t value = mnl_attr_get_u8(attribute);
    switch (mnl_attr_get_type(attribute)) {
      case IFLA_BRPORT_STATE:
        info.port_state = value;
        break;
      case IFLA_BRPORT_LOCKED:
        info.port_flags.locked = value != 0;
        break;
      case IFLA_BRPORT_LEARNING:
        info.port_flags.learning = value != 0;
        break;
      case IFLA_BRPORT_UNICAST_FLOOD:
        info.port_flags.flood = value != 0;
        break;
      case IFLA_BRPORT_MCAST_FLOOD:
        info.port_flags.mcast_flood = value != 0;
        break;
      case IFLA_BRPORT_BCAST_FLOOD:
        info.port_flags.bcast_flood = value != 0;
        break;
      case IFLA_BRPORT_PROXYARP:
        info.port_flags.proxy_arp = value != 0;
        break;
      default:
        break;
    }
  });
}

void parse_bridge_attributes(const nlattr* nest, LinkInfo& info) {
  for_each_nested(nest, [&](const nlattr* attribute) {
    if (mnl_attr_get_type(attribute) == IFLA_BR_STP_STATE) {
      info.stp_state = mnl_attr_get_u32(attribute);
    }
  });
}

void parse_kind(const nlattr* nest, LinkInfo& info) {
  const nlattr* data = nullptr;
  const nlattr* slave_data = nullptr;
  std::string_view kind;
  std::string_view slave_kind;
  for_each_nested(nest, [&](const nlattr* attribute) {
    switch (mnl_attr_get_type(attribute)) {
      case IFLA_INFO_KIND:
        kind = mnl_attr_get_str(attribute);
        break;
      case IFLA_INFO_SLAVE_KIND:
        slave_kind = mnl_attr_get_str(attribute);
        break;
      case IFLA_INFO_DATA:
        data = attribute;
        break;
      case IFLA_INFO_SLAVE_DATA:
        slave_data = attribute;
        break;
      default:
        break;
    }
  });
  if (kind == "bridge") {
    info.is_bridge = true;
    if (data != nullptr) {
      parse_bridge_attributes(data, info);
    }
  }
  if (slave_kind == "bridge" && slave_data != nullptr) {
    parse_port_attributes(slave_data, info);
  }
}

int keep_link(const nlmsghdr* message, void* context) {
  parse_link(message, *static_cast<LinkInfo*>(context));
  return MNL_CB_OK;
}

}  // namespace

bool LinkInfo::carrier() const {
  return (interface_flags & kLowerUp) != 0;
}

bool parse_link(const nlmsghdr* message, LinkInfo& info) {
  if (message->nlmsg_type != RTM_NEWLINK && message->nlmsg_type != RTM_DELLINK) {
    return false;
  }
  const auto* header = static_cast<const ifinfomsg*>(mnl_nlmsg_get_payload(message));
  info = LinkInfo{};
  info.removed = message->nlmsg_type == RTM_DELLINK;
  info.from_bridge = header->ifi_family == AF_BRIDGE;
  info.ifindex = static_cast<uint32_t>(header->ifi_index);
  info.interface_flags = header->ifi_flags;
  for_each_attribute_of(message, sizeof(ifinfomsg), [&](const nlattr* attribute) {
    switch (mnl_attr_get_type(attribute)) {
      case IFLA_IFNAME:
        std::strncpy(info.name.data(), mnl_attr_get_str(attribute), info.name.size() - 1);
        break;
      case IFLA_MASTER:
        info.master = mnl_attr_get_u32(attribute);
        break;
      case IFLA_LINK:
        info.peer_or_lower = mnl_attr_get_u32(attribute);
        break;
      case IFLA_ADDRESS:
        if (mnl_attr_get_payload_len(attribute) == info.address.size()) {
          std::memcpy(info.address.data(), mnl_attr_get_payload(attribute), info.address.size());
        }
        break;
      case IFLA_LINKINFO:
        parse_kind(attribute, info);
        break;
      case IFLA_PROTINFO:
        if (info.from_bridge) {
          parse_port_attributes(attribute, info);
        }
        break;
      default:
        break;
    }
  });
  return true;
}

int find_link(NetlinkSocket& socket, const char* name, LinkInfo& info) {
  NetlinkRequest request(RTM_GETLINK, 0);
  request.add_header<ifinfomsg>();
  mnl_attr_put_strz(request.get(), IFLA_IFNAME, name);
  mnl_attr_put_u32(request.get(), IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  return socket.query(request, keep_link, &info);
}

int find_link(NetlinkSocket& socket, uint32_t ifindex, LinkInfo& info) {
  NetlinkRequest request(RTM_GETLINK, 0);
  request.add_header<ifinfomsg>().ifi_index = static_cast<int>(ifindex);
  mnl_attr_put_u32(request.get(), IFLA_EXT_MASK, RTEXT_FILTER_SKIP_STATS);
  return socket.query(request, keep_link, &info);
}

const char* port_state_name(uint8_t state) {
  switch (state) {
    case BR_STATE_DISABLED:
      return "disabled";
    case BR_STATE_LISTENING:
      return "listening";
    case BR_STATE_LEARNING:
      return "learning";
    case BR_STATE_FORWARDING:
      return "forwarding";
    case BR_STATE_BLOCKING:
      return "blocking";
    default:
      return "unknown";
  }
}

}  // namespace erps::linux_platform
