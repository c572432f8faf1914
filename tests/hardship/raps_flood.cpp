// Sends R-APS frames out of an interface as fast as it is told, as a hostile or mad neighbour
// would.
//
//   raps_flood INTERFACE KIND SOURCE FRAMES-A-SECOND SECONDS
//
// KIND, all of them for VLAN 100:
//   normal     NR of ring 1, always the same
//   foreign    the same of ring 7
//   malformed  behind the EtherType, bytes and lengths of all sorts
//   invented   messages of ring 1 that tell no state, undefined requests and events, each of a node
//              ID that nobody has
//   valid      NR and SF of ring 1 in turns, each of a node ID that nobody has
// Ends at SIGINT, too; with one line "sent N frames in S s".
#include <arpa/inet.h>
#include <linux/if_packet.h>
#include <net/if.h>
#include <signal.h>
#include <sys/socket.h>
#include <unistd.h>

#include <array>
#include <chrono>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

namespace {

using Clock = std::chrono::steady_clock;
using Bytes = std::vector<uint8_t>;

constexpr size_t kBatch = 64;
constexpr size_t kPdu = 18;  // behind addresses, tag and EtherType

volatile sig_atomic_t interrupted = 0;

struct Order {
  std::string interface, kind;
  std::array<uint8_t, 6> source{};
  std::mt19937 random{1};  // so that a failure can be had again
  double per_second = 0;
  double seconds = 0;
};

Bytes frame_of_ring(const Order& order, uint8_t ring) {
  Bytes frame = {0x01, 0x19, 0xA7, 0x00, 0x00, ring};
  frame.insert(frame.end(), order.source.begin(), order.source.end());
  frame.insert(frame.end(), {0x81, 0x00, 0xE0, 100, 0x89, 0x02, 0x01, 40, 0, 32, 0, 0});
  frame.insert(frame.end(), order.source.begin(), order.source.end());
  frame.resize(frame.size() + 25);  // reserved, end TLV
  return frame;
}

Bytes malformed_frame(Order& order) {
  Bytes frame = frame_of_ring(order, 1);
  for (size_t at = kPdu; at < frame.size(); ++at) {
    frame[at] = static_cast<uint8_t>(order.random());
  }
  frame.resize(kPdu + order.random() % 1000, static_cast<uint8_t>(order.random()));
  return frame;
}

std::vector<Bytes> frames_of(Order& order) {
  std::vector<Bytes> frames;
  for (size_t i = 0; i < kBatch; ++i) {
    frames.push_back(order.kind == "malformed"
                         ? malformed_frame(order)
                         : frame_of_ring(order, order.kind == "foreign" ? 7 : 1));
  }
  return frames;
}

// Another request, other flags and another node ID for each frame.
void invent(Order& order, std::vector<Bytes>& frames) {
  constexpr std::array<uint8_t, 12> kTellNoState{1, 2, 3, 4, 5, 6, 8, 9, 10, 12, 14, 15};
  constexpr uint8_t kSignalFail = 11;
  for (size_t i = 0; i < frames.size(); ++i) {
    const uint32_t number = order.random();
    const uint8_t request = order.kind == "invented" ? kTellNoState[number % kTellNoState.size()]
                                                     : (i % 2 == 0 ? kSignalFail : uint8_t{0});
    frames[i][kPdu + 4] = static_cast<uint8_t>(request << 4);
    frames[i][kPdu + 5] = static_cast<uint8_t>(number & 0x60);  // DNF, BPR; never RB
    frames[i][kPdu + 6] = 0x02;
    for (size_t at = 0; at < sizeof number; ++at) {
      frames[i][kPdu + 8 + at] = static_cast<uint8_t>(number >> (8 * at));
    }
  }
}

int fail(const char* what) {
  std::perror(what);
  return 1;
}

int flood(Order& order) {
  const int fd = socket(AF_PACKET, SOCK_RAW | SOCK_CLOEXEC, 0);
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_ifindex = static_cast<int>(if_nametoindex(order.interface.c_str()));
  if (fd < 0 || address.sll_ifindex == 0 ||
      bind(fd, reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
    return fail(order.interface.c_str());
  }
  const int bypass = 1;
  setsockopt(fd, SOL_PACKET, PACKET_QDISC_BYPASS, &bypass, sizeof bypass);

  std::vector<Bytes> frames = frames_of(order);
  std::array<iovec, kBatch> vectors{};
  std::array<mmsghdr, kBatch> messages{};
  for (size_t i = 0; i < kBatch; ++i) {
    vectors[i] = {frames[i].data(), frames[i].size()};
    messages[i].msg_hdr.msg_iov = &vectors[i];
    messages[i].msg_hdr.msg_iovlen = 1;
  }
  const Clock::time_point start = Clock::now();
  const auto elapsed_s = [&] {
    return std::chrono::duration<double>(Clock::now() - start).count();
  };
  const bool invented = order.kind == "invented" || order.kind == "valid";
  uint64_t sent = 0;
  for (double now_s = 0; now_s < order.seconds && interrupted == 0; now_s = elapsed_s()) {
    if (static_cast<double>(sent) >= now_s * order.per_second) {
      std::this_thread::sleep_for(std::chrono::microseconds(100));
      continue;
    }
    if (invented) {
      invent(order, frames);
    }
    const int count = sendmmsg(fd, messages.data(), kBatch, 0);
    if (count < 0 && errno != ENOBUFS && errno != ENETDOWN) {
      return fail("sendmmsg");
    }
    sent += count > 0 ? static_cast<uint64_t>(count) : 0;
  }
  std::printf("sent %llu frames in %.3f s\n", static_cast<unsigned long long>(sent), elapsed_s());
  close(fd);
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  Order order;
  if (argc != 6 ||
      std::sscanf(argv[3], "%hhx:%hhx:%hhx:%hhx:%hhx:%hhx", &order.source[0], &order.source[1],
                  &order.source[2], &order.source[3], &order.source[4], &order.source[5]) != 6) {
    std::fprintf(stderr, "usage: raps_flood INTERFACE KIND SOURCE FRAMES-A-SECOND SECONDS\n");
    return 2;
  }
  order.interface = argv[1];
  order.kind = argv[2];
  order.per_second = std::atof(argv[4]);
  order.seconds = std::atof(argv[5]);
  signal(SIGINT, [](int) { interrupted = 1; });
  return flood(order);
}
