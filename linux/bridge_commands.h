// The messages that make a bridge port discard, forward or forget.
//
// Threading: plain functions on the caller's socket. Results are errnos, 0 acknowledged. Nothing
// is allocated or logged.
//
// The port state alone does not hold: with spanning tree off the kernel turns "blocking" into
// "forwarding" at once and opens a port whose carrier returns. What holds is a set of port flags
// (the guard) that nothing but another message changes; the state comes on top.
#pragma once

#include <cstdint>

#include "linux/link_info.h"
#include "linux/netlink_socket.h"

namespace erps::linux_platform {

enum class StpOwner : uint8_t { kNobody, kUser };

// The state that a discarding port holds: "listening" while spanning tree is off, "blocking" where
// user space owns it.
uint8_t discarding_state(StpOwner owner);

// Sets the flags, then the state, in one message; `flush` forgets the learnt addresses in the same
// message. The flags hold even when the state is refused (ENETDOWN: no carrier).
int set_port(NetlinkSocket& socket, uint32_t ifindex, const PortFlags& flags, uint8_t state,
             bool flush);

// Forgets the dynamically learnt addresses of one port. Takes about 0.3 ms a thousand entries.
int flush_port(NetlinkSocket& socket, uint32_t ifindex);

}  // namespace erps::linux_platform
