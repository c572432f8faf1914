#include "linux/frame_socket.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <sys/socket.h>
#include <time.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <string>

#include "linux/clock.h"
#include "linux/platform.h"

namespace erps::linux_platform {
namespace {

// A storm ends here. Until it has been told from what is meant, that waits behind it, so there is
// room for what 100,000 frames a second bring while the task that reads them waits for a processor.
constexpr int kReceiveBufferBytes = 4 * 1024 * 1024;
constexpr int kControlPriority = 7;
constexpr uint32_t kWholeFrame = 0x40000;
constexpr size_t kAddressesLength = 12;
constexpr uint16_t kVlanIdMask = 0x0FFF;

void set_option(int fd, int level, int name, int value, const char* what) {
  if (setsockopt(fd, level, name, &value, sizeof value) != 0) {
    throw PlatformError(std::string("packet socket: ") + what + ": " + std::strerror(errno));
  }
}

int attach(int fd, FilterProgram program) {
  const sock_fprog attached{.len = static_cast<unsigned short>(program.size()),
                            .filter = program.data()};
  return setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &attached, sizeof attached) == 0 ? 0 : errno;
}

// What came with a frame besides its bytes.
struct Ancillary {
  bool tagged = false;
  uint16_t tci = 0;
  uint16_t tpid = ETH_P_8021Q;
  int64_t arrival_wall_ns = 0;
};

Ancillary read_ancillary(msghdr& message) {
  Ancillary result;
  for (cmsghdr* entry = CMSG_FIRSTHDR(&message); entry != nullptr;
       entry = CMSG_NXTHDR(&message, entry)) {
    if (entry->cmsg_level == SOL_PACKET && entry->cmsg_type == PACKET_AUXDATA) {
      tpacket_auxdata data{};
      std::memcpy(&data, CMSG_DATA(entry), sizeof data);
      if ((data.tp_status & TP_STATUS_VLAN_VALID) != 0) {
        result.tagged = true;
        result.tci = data.tp_vlan_tci;
        if ((data.tp_status & TP_STATUS_VLAN_TPID_VALID) != 0) {
          result.tpid = data.tp_vlan_tpid;
        }
      }
    } else if (entry->cmsg_level == SOL_SOCKET && entry->cmsg_type == SCM_TIMESTAMPNS) {
      timespec time{};
      std::memcpy(&time, CMSG_DATA(entry), sizeof time);
      result.arrival_wall_ns = to_ns(time);
    }
  }
  return result;
}

// Puts the tag that the kernel took out back behind the addresses.
void restore_tag(Packet& packet, const Ancillary& ancillary) {
  packet.start = 0;
  uint8_t* frame = packet.frame();
  std::memmove(frame, frame + Packet::kTagLength, kAddressesLength);
  frame[kAddressesLength] = static_cast<uint8_t>(ancillary.tpid >> 8);
  frame[kAddressesLength + 1] = static_cast<uint8_t>(ancillary.tpid);
  frame[kAddressesLength + 2] = static_cast<uint8_t>(ancillary.tci >> 8);
  frame[kAddressesLength + 3] = static_cast<uint8_t>(ancillary.tci);
}

uint16_t vlan_of(Packet& packet) {
  const uint8_t* frame = packet.frame();
  const bool tagged = packet.length >= kAddressesLength + Packet::kTagLength &&
                      (frame[12] << 8 | frame[13]) == ETH_P_8021Q;
  return tagged ? static_cast<uint16_t>((frame[14] << 8 | frame[15]) & kVlanIdMask) : 0;
}

}  // namespace

void FrameSocket::open() {
  // Protocol 0 until bind(): nothing is queued before the filter is in place.
  fd_.reset(socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0));
  if (!fd_) {
    throw PlatformError(std::string("packet socket cannot be opened: ") + std::strerror(errno) +
                        (errno == EPERM ? "; it needs CAP_NET_RAW" : ""));
  }
  if (const int error = listen(nullptr); error != 0) {
    throw PlatformError(std::string("packet socket: filter: ") + std::strerror(error));
  }
  set_option(fd_.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, 1, "ignore outgoing");
  set_option(fd_.get(), SOL_PACKET, PACKET_AUXDATA, 1, "auxiliary data");
  set_option(fd_.get(), SOL_SOCKET, SO_TIMESTAMPNS, 1, "time stamps");
  set_option(fd_.get(), SOL_SOCKET, SO_PRIORITY, kControlPriority, "priority");
  // Past the system's limit, which is meant for sockets that nobody's traffic depends on.
  if (setsockopt(fd_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &kReceiveBufferBytes,
                 sizeof kReceiveBufferBytes) != 0) {
    set_option(fd_.get(), SOL_SOCKET, SO_RCVBUF, kReceiveBufferBytes, "receive buffer");
  }
}

int FrameSocket::bind(uint32_t ifindex) {
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(ifindex);
  return ::bind(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) == 0
             ? 0
             : errno;
}

int FrameSocket::listen(const FrameMatch* match) {
  const std::lock_guard lock(mutex_);
  heard_.reset();
  if (match == nullptr) {
    return attach(fd_.get(), make_filter(FrameMatch{}, 0, 0));
  }
  // What is no R-APS costs a node the least when the kernel drops it.
  heard_ = *match;
  if (match->ether_type == ETH_P_CFM) {
    heard_->opcode = kRapsOpcode;
  }
  return attach(fd_.get(), make_filter(*heard_, kWholeFrame, 0));
}

int FrameSocket::thin_out(const FloodMatch* flood) {
  const std::lock_guard lock(mutex_);
  if (!heard_) {
    return 0;
  }
  return attach(fd_.get(), flood != nullptr ? make_thinning_filter(*heard_, *flood, kWholeFrame, 0)
                                            : make_filter(*heard_, kWholeFrame, 0));
}

int FrameSocket::send(const uint8_t* frame, size_t length) const {
  return ::send(fd_.get(), frame, length, MSG_DONTWAIT | MSG_NOSIGNAL) >= 0 ? 0 : errno;
}

int FrameSocket::receive(Packet& packet) const {
  iovec buffer{.iov_base = packet.bytes.data() + Packet::kTagLength,
               .iov_len = Packet::kFrameCapacity};
  alignas(cmsghdr) std::array<char, 256> control;
  msghdr message{};
  message.msg_iov = &buffer;
  message.msg_iovlen = 1;
  message.msg_control = control.data();
  message.msg_controllen = control.size();
  const ssize_t received = recvmsg(fd_.get(), &message, MSG_DONTWAIT);
  if (received < 0) {
    return errno;
  }
  packet.start = Packet::kTagLength;
  packet.length = static_cast<uint16_t>(received);
  const Ancillary ancillary = read_ancillary(message);
  packet.arrival_wall_ns =
      ancillary.arrival_wall_ns != 0 ? ancillary.arrival_wall_ns : wall_now_ns();
  if (ancillary.tagged && packet.length >= kAddressesLength) {
    restore_tag(packet, ancillary);
    packet.length = static_cast<uint16_t>(
        std::min<size_t>(packet.length + Packet::kTagLength, Packet::kFrameCapacity));
  }
  packet.vlan = vlan_of(packet);
  return 0;
}

uint32_t FrameSocket::take_drops() const {
  tpacket_stats statistics{};
  socklen_t size = sizeof statistics;
  if (getsockopt(fd_.get(), SOL_PACKET, PACKET_STATISTICS, &statistics, &size) != 0) {
    return 0;
  }
  return statistics.tp_drops;
}

}  // namespace erps::linux_platform
