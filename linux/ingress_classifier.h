// The "clsact" qdisc of an interface and the classifiers of ours in it.
//
// Threading: one thread at a time. Results are errnos.
#pragma once

#include <cstdint>
#include <set>
#include <string>
#include <vector>

#include "linux/netlink_socket.h"

namespace erps::linux_platform {

// Ours are told from others' by their preference, ahead of those that the kernel gives out.
inline constexpr uint32_t kTrapPreference = 0x0E80;
inline constexpr uint32_t kDropPreference = 0x0E89;

class IngressClassifiers {
 public:
  // A request for one classifier at the interface's ingress; the caller appends its options.
  static NetlinkRequest make_filter_request(uint16_t type, uint16_t flags, uint32_t ifindex,
                                            uint32_t preference, uint16_t ether_type,
                                            const char* kind);

  // Makes the qdisc where there is none, then adds the classifier.
  int add(NetlinkRequest& request, uint32_t ifindex, uint32_t preference, uint16_t ether_type,
          const char* kind);
  // Removes one that an earlier process left, if it did.
  void remove_stale(uint32_t ifindex, uint32_t preference, uint16_t ether_type, const char* kind);
  // Removes the classifiers that were added here, and with `qdiscs` the qdiscs that were made here.
  void remove_all(bool qdiscs);

  // Why the last request failed, in the kernel's words if it had any.
  std::string reason(int error) const;

 private:
  struct Added {
    uint32_t ifindex;
    uint32_t preference;
    uint16_t ether_type;
    const char* kind;
  };

  NetlinkSocket socket_;
  std::vector<Added> added_;
  std::set<uint32_t> own_qdiscs_;
};

}  // namespace erps::linux_platform
