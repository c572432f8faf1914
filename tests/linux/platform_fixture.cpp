#include "tests/linux/platform_fixture.h"

#include <arpa/inet.h>
#include <linux/if_ether.h>
#include <linux/if_packet.h>
#include <linux/netlink.h>
#include <linux/rtnetlink.h>
#include <net/if.h>
#include <nftables/libnftables.h>
#include <sched.h>
#include <sys/ioctl.h>
#include <sys/socket.h>
#include <sys/wait.h>

#include <algorithm>
#include <cerrno>
#include <condition_variable>
#include <cstdio>
#include <cstring>
#include <memory>
#include <mutex>

#include "erps/raps/frame.h"
#include "linux/netlink_socket.h"
#include "platform/field_processor.h"
#include "platform/packet_buffer.h"
#include "platform/switch_adaptation.h"

namespace erps::linux_platform::test {
namespace {

std::string run_and_read(const std::string& command, int& status) {
  std::string text;
  FILE* pipe = popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) {
    status = -1;
    return "popen failed";
  }
  std::array<char, 512> chunk;
  while (fgets(chunk.data(), chunk.size(), pipe) != nullptr) {
    text += chunk.data();
  }
  status = pclose(pipe);
  return text;
}

}  // namespace

void run(const std::string& command) {
  int status = 0;
  const std::string text = run_and_read(command, status);
  ASSERT_EQ(status, 0) << command << ": " << text;
}

std::string output_of(const std::string& command) {
  int status = 0;
  return run_and_read(command, status);
}

std::string packet_rules() {
  const std::unique_ptr<nft_ctx, void (*)(nft_ctx*)> context(nft_ctx_new(NFT_CTX_DEFAULT),
                                                             nft_ctx_free);
  nft_ctx_buffer_output(context.get());
  EXPECT_EQ(nft_run_cmd_from_buffer(context.get(), "list ruleset"), 0);
  return nft_ctx_get_output_buffer(context.get());
}

bool eventually(const std::function<bool()>& condition, std::chrono::milliseconds patience) {
  const auto deadline = std::chrono::steady_clock::now() + patience;
  while (!condition()) {
    if (std::chrono::steady_clock::now() > deadline) {
      return false;
    }
    std::this_thread::sleep_for(std::chrono::milliseconds(1));
  }
  return true;
}

void set_up(const std::string& interface, bool up) {
  const UniqueFd fd(socket(AF_INET, SOCK_DGRAM | SOCK_CLOEXEC, 0));
  ifreq request{};
  std::strncpy(request.ifr_name, interface.c_str(), sizeof request.ifr_name - 1);
  ASSERT_EQ(ioctl(fd.get(), SIOCGIFFLAGS, &request), 0) << interface;
  request.ifr_flags =
      static_cast<short>(up ? request.ifr_flags | IFF_UP : request.ifr_flags & ~IFF_UP);
  ASSERT_EQ(ioctl(fd.get(), SIOCSIFFLAGS, &request), 0) << interface;
}

Wire::Wire(const std::string& interface)
    : fd_(socket(AF_PACKET, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, 0)) {
  const int on = 1;
  const int buffer = 4 * 1024 * 1024;
  setsockopt(fd_.get(), SOL_PACKET, PACKET_IGNORE_OUTGOING, &on, sizeof on);
  setsockopt(fd_.get(), SOL_PACKET, PACKET_AUXDATA, &on, sizeof on);
  setsockopt(fd_.get(), SOL_SOCKET, SO_RCVBUFFORCE, &buffer, sizeof buffer);
  sockaddr_ll address{};
  address.sll_family = AF_PACKET;
  address.sll_protocol = htons(ETH_P_ALL);
  address.sll_ifindex = static_cast<int>(if_nametoindex(interface.c_str()));
  EXPECT_EQ(bind(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0)
      << interface << ": " << std::strerror(errno);
}

bool Wire::send(const Bytes& frame) const {
  return ::send(fd_.get(), frame.data(), frame.size(), MSG_DONTWAIT) ==
         static_cast<ssize_t>(frame.size());
}

std::vector<Bytes> Wire::take() const {
  std::vector<Bytes> frames;
  for (;;) {
    Bytes frame(2048);
    iovec part{.iov_base = frame.data(), .iov_len = frame.size()};
    alignas(cmsghdr) std::array<char, 128> control;
    msghdr message{};
    message.msg_iov = &part;
    message.msg_iovlen = 1;
    message.msg_control = control.data();
    message.msg_controllen = control.size();
    const ssize_t received = recvmsg(fd_.get(), &message, MSG_DONTWAIT);
    if (received < 0) {
      if (errno == ENETDOWN) {
        continue;  // told once when the interface goes down
      }
      return frames;
    }
    frame.resize(static_cast<size_t>(received));
    for (cmsghdr* entry = CMSG_FIRSTHDR(&message); entry != nullptr;
         entry = CMSG_NXTHDR(&message, entry)) {
      tpacket_auxdata data{};
      if (entry->cmsg_type != PACKET_AUXDATA) {
        continue;
      }
      std::memcpy(&data, CMSG_DATA(entry), sizeof data);
      if ((data.tp_status & TP_STATUS_VLAN_VALID) != 0) {
        const std::array<uint8_t, 4> tag{0x81, 0x00, static_cast<uint8_t>(data.tp_vlan_tci >> 8),
                                         static_cast<uint8_t>(data.tp_vlan_tci)};
        frame.insert(frame.begin() + 12, tag.begin(), tag.end());
      }
    }
    frames.push_back(std::move(frame));
  }
}

size_t Wire::count(const Bytes& frame) const {
  const auto frames = take();
  return static_cast<size_t>(std::count(frames.begin(), frames.end(), frame));
}

bool Wire::receives(const Bytes& frame, std::chrono::milliseconds patience) const {
  return eventually([&] { return count(frame) > 0; }, patience);
}

Bytes raps_frame(uint8_t ring, uint16_t vlan, uint8_t request, uint8_t node) {
  const uint8_t identity[6] = {0x02, 0, 0, 0, 0, node};
  raps::Message message{};
  message.ring_id = ring;
  message.vlan_id = vlan;
  message.request = request;
  message.source = identity;
  message.node_id = identity;
  Bytes frame(raps::kTaggedLength);
  frame.resize(raps::build(message, frame.data()));
  frame.resize(std::max<size_t>(frame.size(), 60));
  return frame;
}

Bytes data_frame(const MacAddress& to, const MacAddress& from, uint32_t number) {
  Bytes frame(60);
  std::copy(to.begin(), to.end(), frame.begin());
  std::copy(from.begin(), from.end(), frame.begin() + 6);
  frame[12] = 0x88;  // IEEE 802 local experimental EtherType
  frame[13] = 0xB5;
  std::memcpy(frame.data() + 14, &number, sizeof number);
  return frame;
}

LinkInfo kernel_link(const std::string& interface) {
  NetlinkSocket socket;
  LinkInfo info;
  EXPECT_EQ(find_link(socket, interface.c_str(), info), 0) << interface;
  return info;
}

bool device_carrier(const std::string& interface) {
  return kernel_link(interface).carrier();
}

bool guarded(const std::string& interface) {
  return kernel_link(interface).port_flags == kGuardFlags;
}

PortWatch::PortWatch()
    : fd_(socket(AF_NETLINK, SOCK_RAW | SOCK_NONBLOCK | SOCK_CLOEXEC, NETLINK_ROUTE)) {
  sockaddr_nl address{};
  address.nl_family = AF_NETLINK;
  address.nl_groups = RTMGRP_LINK;
  EXPECT_EQ(bind(fd_.get(), reinterpret_cast<const sockaddr*>(&address), sizeof address), 0);
}

std::vector<LinkInfo> PortWatch::of(const std::string& interface) {
  alignas(nlmsghdr) std::array<char, 32768> buffer;
  const auto keep = [](const nlmsghdr* message, void* list) {
    LinkInfo info;
    if (parse_link(message, info)) {
      static_cast<std::vector<LinkInfo>*>(list)->push_back(info);
    }
    return MNL_CB_OK;
  };
  for (;;) {
    const ssize_t received = recv(fd_.get(), buffer.data(), buffer.size(), MSG_DONTWAIT);
    if (received < 0) {
      break;
    }
    mnl_cb_run(buffer.data(), static_cast<size_t>(received), 0, 0, keep, &seen_);
  }
  std::vector<LinkInfo> result;
  std::copy_if(seen_.begin(), seen_.end(), std::back_inserter(result),
               [&](const LinkInfo& info) { return interface == info.name.data(); });
  return result;
}

void PlatformTest::SetUp() {
  if (unshare(CLONE_NEWNET | CLONE_NEWIPC) != 0) {
    GTEST_SKIP() << "SKIPPED: no namespaces can be made here (" << std::strerror(errno)
                 << "); run as root or with CAP_SYS_ADMIN";
  }
  build_bridge();
}

void PlatformTest::TearDown() {
  stop();
}

void PlatformTest::build_bridge() {
  run("ip link set lo up");
  run("ip link add br0 address 02:00:00:00:00:01 type bridge mcast_snooping 0");
  const auto add_port = [](const std::string& number) {
    run("ip link add p" + number + " type veth peer name w" + number);
    run("ip link set p" + number + " addrgenmode none master br0 up");
    run("ip link set w" + number + " addrgenmode none up");
  };
  add_port("1");
  add_port("2");
  run("ip link set br0 addrgenmode none up");
  ASSERT_TRUE(eventually([] { return device_carrier("p1") && device_carrier("p2"); }));
}

Config PlatformTest::config() const {
  Config configuration;
  configuration.bridge = "br0";
  configuration.ports = {{.id = 1, .interface = "p1"}, {.id = 2, .interface = "p2"}};
  configuration.log.target = LogTarget::kPlain;
  return configuration;
}

void PlatformTest::start_platform() {
  start_platform(config());
}

void PlatformTest::start_platform(const Config& configuration) {
  ASSERT_NO_THROW(start(configuration));
  make_queue();
}

void PlatformTest::make_queue() {
  queue_ = equeue_make_extend("/erps_event_queue", 256, 1, 0);
  ASSERT_NE(queue_, nullptr);
}

int PlatformTest::add_capture_rule() {
  adp_fp_rule_t rule{};
  rule.entity_id = 19;
  const uint32_t zero = 0;
  const uint32_t three = 3;
  const uint32_t six = 6;
  std::array<uint32_t, 8> ports{0xFFFFFFFE, 0xFFFFFFFF};
  std::array<uint8_t, 32> port_mask;
  port_mask.fill(0xFF);
  const uint8_t mac[6] = {0x01, 0x19, 0xA7, 0, 0, 0};
  const uint8_t mac_mask[6] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0};
  const uint16_t type = 0x8902;
  const uint16_t type_mask = 0xFFFF;
  EXPECT_EQ(adp_fp_add_entity_action(&rule, 30, &zero, 4, &three, 4), 0);
  EXPECT_EQ(adp_fp_add_entity_action(&rule, 2, &six, 4, nullptr, 0), 0);
  EXPECT_EQ(adp_fp_add_entity_action(&rule, 53, nullptr, 0, nullptr, 0), 0);
  EXPECT_EQ(adp_fp_add_entity_qualify(&rule, 13, ports.data(), 32, port_mask.data(), 32), 0);
  EXPECT_EQ(adp_fp_add_entity_qualify(&rule, 7, mac, 6, mac_mask, 6), 0);
  EXPECT_EQ(adp_fp_add_entity_qualify(&rule, 29, &type, 2, &type_mask, 2), 0);
  return adp_fp_add_entity_rule(rule);
}

std::optional<ERPS_EVENT_MSG_T> PlatformTest::receive(std::chrono::milliseconds patience) {
  std::mutex mutex;
  std::condition_variable wake;
  bool received = false;
  std::thread watchdog([&] {
    std::unique_lock lock(mutex);
    if (!wake.wait_for(lock, patience, [&] { return received; })) {
      send(kTimeoutEvent);
      received = true;
    }
  });
  ERPS_EVENT_MSG_T event{};
  const int result = equeue_recv(queue_, &event, 0);
  bool late = false;
  {
    const std::lock_guard lock(mutex);
    late = received;
    received = true;
  }
  wake.notify_one();
  watchdog.join();
  if (late && event.type != kTimeoutEvent) {
    ERPS_EVENT_MSG_T timeout{};
    equeue_recv(queue_, &timeout, 0);
  }
  EXPECT_EQ(result, 0);
  if (result != 0 || event.type == kTimeoutEvent) {
    return std::nullopt;
  }
  return event;
}

void PlatformTest::receive_all() {
  while (const auto event = receive(std::chrono::milliseconds(20))) {
    if (event->type == kPacketEvent) {
      skpack_release(record_of(*event));
    }
  }
}

bool PlatformTest::send(uintptr_t type, uintptr_t payload) {
  ERPS_EVENT_MSG_T event{};
  event.event_class = 3;
  event.type = type;
  event.payload = payload;
  return equeue_send_ucast(queue_, &event, -1) > 0;
}

uint16_t PlatformTest::link_port(const ERPS_EVENT_MSG_T& event) {
  uint16_t value = 0;
  std::memcpy(&value, record_of(event) + 4, sizeof value);
  return value;
}

uint16_t PlatformTest::link_state(const ERPS_EVENT_MSG_T& event) {
  uint16_t value = 0;
  std::memcpy(&value, record_of(event) + 6, sizeof value);
  return value;
}

Bytes PlatformTest::take_frame(const ERPS_EVENT_MSG_T& event, uint32_t* port, uint16_t* vlan) {
  auto* packet = record_of(event);
  uint32_t handle = 0;
  uint16_t announced = 0;
  std::memcpy(&handle, packet + 8, sizeof handle);
  std::memcpy(&announced, packet + 14, sizeof announced);
  Bytes frame(announced);
  uint16_t length = 0;
  uint16_t vlan_id = 0;
  uint32_t ingress = 0;
  EXPECT_EQ(adp_receive_frame(handle, frame.data(), announced, &length, &vlan_id, &ingress), 0);
  frame.resize(length);
  if (port != nullptr) {
    *port = ingress;
  }
  if (vlan != nullptr) {
    *vlan = vlan_id;
  }
  skpack_release(packet);
  return frame;
}

PortStatus PlatformTest::port(uint32_t id) {
  for (const PortStatus& status : status().ports) {
    if (status.id == id) {
      return status;
    }
  }
  ADD_FAILURE() << "no port " << id;
  return {};
}

Pump::Pump(void* queue)
    : queue_(queue), thread_([this] {
        ERPS_EVENT_MSG_T event{};
        while (equeue_recv(queue_, &event, 0) == 0 && event.type != kTimeoutEvent) {
          if (event.type == kLinkEvent) {
            ++link_events_;
          } else if (event.type == kPacketEvent) {
            skpack_release(record_of(event));
          }
        }
      }) {}

Pump::~Pump() {
  ERPS_EVENT_MSG_T event{};
  event.event_class = 3;
  event.type = kTimeoutEvent;
  equeue_send_ucast(queue_, &event, -1);
  thread_.join();
}

}  // namespace erps::linux_platform::test
