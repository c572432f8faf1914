#include "lab/packet_socket.h"

#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/ethernet.h>
#include <sys/socket.h>

#include <array>
#include <cstring>

#include "lab/clock.h"
#include "lab/lab_error.h"

namespace erps::lab {

namespace {

constexpr size_t kBatch = 64;
constexpr size_t kLongestFrame = 1600;
constexpr size_t kControlBytes = 128;

void set_option(int fd, int level, int name, int value, const char* what) {
  if (setsockopt(fd, level, name, &value, sizeof value) != 0) {
    throw system_error(what);
  }
}

void read_control(msghdr& header, ReceivedFrame& frame) {
  for (cmsghdr* control = CMSG_FIRSTHDR(&header); control != nullptr;
       control = CMSG_NXTHDR(&header, control)) {
    if (control->cmsg_level == SOL_SOCKET && control->cmsg_type == SCM_TIMESTAMPNS) {
      timespec stamp{};
      std::memcpy(&stamp, CMSG_DATA(control), sizeof stamp);
      frame.real_ns = stamp.tv_sec * kNsPerS + stamp.tv_nsec;
    } else if (control->cmsg_level == SOL_PACKET && control->cmsg_type == PACKET_AUXDATA) {
      tpacket_auxdata data{};
      std::memcpy(&data, CMSG_DATA(control), sizeof data);
      frame.has_tag = (data.tp_status & TP_STATUS_VLAN_VALID) != 0;
      frame.tag = data.tp_vlan_tci;
    }
  }
}

}  // namespace

PacketSocket::PacketSocket(const PacketSocketOptions& options)
    : fd_(socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
  if (!fd_.is_open()) {
    throw system_error("packet socket");
  }
  const int fd = fd_.get();
  if (!options.filter.empty()) {
    std::vector<sock_filter> code = options.filter;
    const sock_fprog program{static_cast<unsigned short>(code.size()), code.data()};
    if (setsockopt(fd, SOL_SOCKET, SO_ATTACH_FILTER, &program, sizeof program) != 0) {
      throw system_error("filter of a packet socket");
    }
  }
  if (options.receive_buffer_bytes > 0 &&
      setsockopt(fd, SOL_SOCKET, SO_RCVBUFFORCE, &options.receive_buffer_bytes, sizeof(int)) != 0) {
    // Without the privilege: as much as the machine gives to anybody.
    set_option(fd, SOL_SOCKET, SO_RCVBUF, options.receive_buffer_bytes, "receive buffer");
  }
  set_option(fd, SOL_SOCKET, SO_TIMESTAMPNS, 1, "time stamps of a packet socket");
  set_option(fd, SOL_PACKET, PACKET_AUXDATA, 1, "metadata of a packet socket");
  set_option(fd, SOL_PACKET, PACKET_IGNORE_OUTGOING, options.see_outgoing ? 0 : 1,
             "direction of a packet socket");
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(options.protocol);
  address.sll_ifindex = static_cast<int>(options.interface);
  if (bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    throw system_error("packet socket on interface " + std::to_string(options.interface));
  }
}

size_t PacketSocket::drain(const std::function<void(const ReceivedFrame&)>& take) {
  struct Slot {
    std::array<uint8_t, kLongestFrame> bytes;
    alignas(cmsghdr) std::array<char, kControlBytes> control;
    sockaddr_ll from;
    iovec vector;
  };
  static thread_local std::array<Slot, kBatch> slots;
  static thread_local std::array<mmsghdr, kBatch> headers;
  size_t total = 0;
  for (;;) {
    for (size_t i = 0; i < kBatch; ++i) {
      slots[i].vector = {slots[i].bytes.data(), slots[i].bytes.size()};
      headers[i] = {};
      headers[i].msg_hdr.msg_iov = &slots[i].vector;
      headers[i].msg_hdr.msg_iovlen = 1;
      headers[i].msg_hdr.msg_control = slots[i].control.data();
      headers[i].msg_hdr.msg_controllen = slots[i].control.size();
      headers[i].msg_hdr.msg_name = &slots[i].from;
      headers[i].msg_hdr.msg_namelen = sizeof slots[i].from;
    }
    const int count = recvmmsg(fd_.get(), headers.data(), kBatch, MSG_DONTWAIT, nullptr);
    if (count <= 0) {
      return total;  // nothing left, or the interface went down, which the next call gets over
    }
    for (size_t i = 0; i < static_cast<size_t>(count); ++i) {
      ReceivedFrame frame{slots[i].bytes.data(), headers[i].msg_len, 0, false, false, 0};
      frame.outgoing = slots[i].from.sll_pkttype == PACKET_OUTGOING;
      read_control(headers[i].msg_hdr, frame);
      take(frame);
    }
    total += static_cast<size_t>(count);
    if (static_cast<size_t>(count) < kBatch) {
      return total;
    }
  }
}

bool PacketSocket::send(const uint8_t* bytes, size_t length) {
  return ::send(fd_.get(), bytes, length, MSG_DONTWAIT) == static_cast<ssize_t>(length);
}

uint64_t PacketSocket::take_drops() {
  tpacket_stats statistics{};
  socklen_t length = sizeof statistics;
  if (getsockopt(fd_.get(), SOL_PACKET, PACKET_STATISTICS, &statistics, &length) != 0) {
    return 0;
  }
  return statistics.tp_drops;
}

}  // namespace erps::lab
