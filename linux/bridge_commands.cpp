#include "linux/bridge_commands.h"

#include <linux/if_bridge.h>
#include <linux/if_link.h>

namespace erps::linux_platform {
namespace {

nlattr* start_port_message(NetlinkRequest& request, uint32_t ifindex) {
  auto& header = request.add_header<ifinfomsg>();
  header.ifi_family = AF_BRIDGE;
  header.ifi_index = static_cast<int>(ifindex);
  return mnl_attr_nest_start(request.get(), IFLA_PROTINFO);
}

void put_flag(NetlinkRequest& request, uint16_t type, bool on) {
  mnl_attr_put_u8(request.get(), type, on ? 1 : 0);
}

}  // namespace

uint8_t discarding_state(StpOwner owner) {
  return owner == StpOwner::kUser ? BR_STATE_BLOCKING : BR_STATE_LISTENING;
}

int set_port(NetlinkSocket& socket, uint32_t ifindex, const PortFlags& flags, uint8_t state,
             bool flush) {
  NetlinkRequest request(RTM_SETLINK, 0);
  nlattr* nest = start_port_message(request, ifindex);
  put_flag(request, IFLA_BRPORT_LOCKED, flags.locked);
  put_flag(request, IFLA_BRPORT_LEARNING, flags.learning);
  put_flag(request, IFLA_BRPORT_UNICAST_FLOOD, flags.flood);
  put_flag(request, IFLA_BRPORT_MCAST_FLOOD, flags.mcast_flood);
  put_flag(request, IFLA_BRPORT_BCAST_FLOOD, flags.bcast_flood);
  put_flag(request, IFLA_BRPORT_PROXYARP, flags.proxy_arp);
  mnl_attr_put_u8(request.get(), IFLA_BRPORT_STATE, state);
  if (flush) {
    mnl_attr_put(request.get(), IFLA_BRPORT_FLUSH, 0, nullptr);
  }
  mnl_attr_nest_end(request.get(), nest);
  return socket.transact(request);
}

int flush_port(NetlinkSocket& socket, uint32_t ifindex) {
  NetlinkRequest request(RTM_SETLINK, 0);
  nlattr* nest = start_port_message(request, ifindex);
  mnl_attr_put(request.get(), IFLA_BRPORT_FLUSH, 0, nullptr);
  mnl_attr_nest_end(request.get(), nest);
  return socket.transact(request);
}

}  // namespace erps::linux_platform
