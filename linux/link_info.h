// What an RTM_NEWLINK or RTM_DELLINK message says about one interface.
//
// Threading: plain functions; find_link uses the caller's socket. Nothing is allocated.
#pragma once

#include <net/if.h>

#include <array>
#include <cstdint>

#include "linux/netlink_socket.h"
#include "linux/platform.h"

namespace erps::linux_platform {

// The bridge port flags that a guard sets. What is not known reads as the kernel's default.
struct PortFlags {
  bool locked = false;
  bool learning = true;
  bool flood = true;
  bool mcast_flood = true;
  bool bcast_flood = true;
  bool proxy_arp = false;

  bool operator==(const PortFlags&) const = default;
};

// A port with these flags passes nothing, whatever its state says. Proxy ARP is among them because
// it is the one flag that also keeps the bridge from flooding frames of the node's own out of the
// port; what comes in, and could be answered, stops at `locked`.
inline constexpr PortFlags kGuardFlags{.locked = true,
                                       .learning = false,
                                       .flood = false,
                                       .mcast_flood = false,
                                       .bcast_flood = false,
                                       .proxy_arp = true};

struct LinkInfo {
  bool removed = false;      // RTM_DELLINK
  bool from_bridge = false;  // an AF_BRIDGE message: it speaks about the port, not the interface
  uint32_t ifindex = 0;
  std::array<char, IFNAMSIZ> name{};
  uint32_t interface_flags = 0;  // IFF_*
  uint32_t master = 0;           // 0 none
  uint32_t peer_or_lower = 0;    // IFLA_LINK, 0 absent
  MacAddress address{};
  bool is_bridge = false;
  uint32_t stp_state = 0;       // of a bridge: 0 off, 1 kernel, 2 user
  bool is_bridge_port = false;  // port_state and port_flags are known
  uint8_t port_state = 0;       // BR_STATE_*
  PortFlags port_flags;

  bool admin_up() const { return (interface_flags & IFF_UP) != 0; }
  bool carrier() const;
  // The kernel may take up to a second to tell that the carrier of such an interface is gone.
  bool slow_carrier() const { return peer_or_lower == 0 || peer_or_lower == ifindex; }
};

// False when the message is about no interface.
bool parse_link(const nlmsghdr* message, LinkInfo& info);

// Reads one interface. Returns 0 or an errno, ENODEV when there is none.
int find_link(NetlinkSocket& socket, const char* name, LinkInfo& info);
int find_link(NetlinkSocket& socket, uint32_t ifindex, LinkInfo& info);

const char* port_state_name(uint8_t state);

}  // namespace erps::linux_platform
