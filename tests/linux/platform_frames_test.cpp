// R-APS frames: what is heard, how it looks, what the bridge still floods.
#include <sched.h>

#include <algorithm>
#include <cstring>
#include <thread>

#include "linux/capture_mechanism.h"
#include "linux/flood_guard.h"
#include "linux/frame_socket.h"
#include "platform/field_processor.h"
#include "platform/packet_buffer.h"
#include "platform/switch_adaptation.h"
#include "tests/linux/platform_fixture.h"

namespace erps::linux_platform::test {
namespace {

constexpr auto kShortWhile = std::chrono::milliseconds(50);

class FramesTest : public PlatformTest {
 protected:
  void open_both() {
    ASSERT_EQ(adp_set_port_erps_state(1, 4), 0);
    ASSERT_EQ(adp_set_port_erps_state(2, 4), 0);
  }

  static int transmit(const Bytes& frame, uint32_t port_id) {
    return adp_transmit_frame(frame.data(), static_cast<uint16_t>(frame.size()), 0, port_id, 3);
  }
};

TEST_F(FramesTest, TaggedAndUntaggedFramesComeAsTheyWereSent) {
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  const Wire one("w1");
  const Wire two("w2");
  struct Case {
    const Wire& wire;
    uint32_t port;
    uint16_t vlan;
  };
  for (const Case& c : {Case{one, 1, 0}, Case{one, 1, 100}, Case{two, 2, 4094}, Case{two, 2, 0}}) {
    const Bytes frame = raps_frame(3, c.vlan, 11);
    ASSERT_TRUE(c.wire.send(frame));
    const auto event = receive();
    ASSERT_TRUE(event && event->type == kPacketEvent);
    EXPECT_EQ(event->event_class, 3u);
    uint32_t port_id = 0;
    uint16_t vlan = 0;
    EXPECT_EQ(take_frame(*event, &port_id, &vlan), frame);
    EXPECT_EQ(port_id, c.port);
    EXPECT_EQ(vlan, c.vlan);
  }
  EXPECT_EQ(port(1).frames_received, 2u);
  EXPECT_EQ(status().counters.frame_events, 4u);
}

TEST_F(FramesTest, HeardInEveryPortState) {
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  const Wire one("w1");
  for (const uint32_t state : {1u, 4u, 1u}) {
    ASSERT_EQ(adp_set_port_erps_state(1, state), 0);
    const Bytes frame = raps_frame(1, 10, 0, static_cast<uint8_t>(state));
    ASSERT_TRUE(one.send(frame));
    const auto event = receive();
    ASSERT_TRUE(event) << "state " << state;
    EXPECT_EQ(take_frame(*event), frame);
  }
}

TEST_F(FramesTest, OnlyRapsIsHeard) {
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  const Wire one("w1");
  Bytes other_type = raps_frame(1, 0, 11);
  other_type[12] = 0x88;
  other_type[13] = 0xB5;
  Bytes other_destination = raps_frame(1, 0, 11);
  other_destination[4] = 0x01;
  Bytes other_operation = raps_frame(1, 0, 11);
  other_operation[15] = 39;
  Bytes other_operation_tagged = raps_frame(1, 100, 11);
  other_operation_tagged[19] = 41;
  Bytes no_operation = raps_frame(1, 0, 11);
  no_operation.resize(15);
  Bytes continuity_check = raps_frame(1, 0, 11);
  const MacAddress ccm{0x01, 0x80, 0xC2, 0, 0, 0x30};
  std::copy(ccm.begin(), ccm.end(), continuity_check.begin());
  for (const Bytes& frame :
       {other_type, other_destination, other_operation, other_operation_tagged, no_operation,
        continuity_check, data_frame(kBroadcast, kHostA, 1), Bytes(14, 0xFF)}) {
    ASSERT_TRUE(one.send(frame));
  }
  const Bytes raps = raps_frame(9, 0, 11);
  ASSERT_TRUE(one.send(raps));
  const auto event = receive();
  ASSERT_TRUE(event);
  EXPECT_EQ(take_frame(*event), raps);
}

TEST_F(FramesTest, OwnFramesAndThoseThatTheBridgeFloodsOutAreNotHeard) {
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  open_both();
  const Wire one("w1");
  const Bytes frame = raps_frame(1, 100, 11);
  ASSERT_EQ(transmit(frame, 1), 0);
  EXPECT_TRUE(one.receives(frame));
  EXPECT_FALSE(receive(kShortWhile));
  EXPECT_EQ(port(1).frames_sent, 1u);
}

// Before the module asks for the rule the bridge floods R-APS like any multicast frame, and the
// node must not relay the same frame a second time.
TEST_F(FramesTest, WithoutTheRuleTheBridgeFloodsAndTheNodeHearsNothing) {
  start_platform();
  open_both();
  const Wire one("w1");
  const Wire two("w2");
  const Bytes frame = raps_frame(1, 0, 11);
  ASSERT_TRUE(one.send(frame));
  EXPECT_TRUE(two.receives(frame));
  EXPECT_FALSE(receive(kShortWhile));
}

TEST_F(FramesTest, WithTheRuleNoRapsIsFloodedAndAllElseStillIs) {
  start_platform();
  open_both();
  ASSERT_EQ(add_capture_rule(), 0);
  EXPECT_TRUE(status().capture_installed);
  const Wire one("w1");
  const Wire two("w2");
  for (const uint16_t vlan : {uint16_t{0}, uint16_t{100}}) {
    for (const uint8_t ring : {uint8_t{1}, uint8_t{239}}) {
      const Bytes raps = raps_frame(ring, vlan, 11);
      const Bytes data = data_frame(kBroadcast, kHostA, 5);
      ASSERT_TRUE(one.send(raps) && one.send(data));
      const auto event = receive();
      ASSERT_TRUE(event);
      EXPECT_EQ(take_frame(*event), raps);
      std::vector<Bytes> flooded;
      ASSERT_TRUE(eventually([&] {
        const auto more = two.take();
        flooded.insert(flooded.end(), more.begin(), more.end());
        return std::count(flooded.begin(), flooded.end(), data) == 1;
      }));
      EXPECT_EQ(std::count(flooded.begin(), flooded.end(), raps), 0);
    }
  }
}

TEST_F(FramesTest, RuleIsReplacedByTheSameEntityAndRemovedByItsNumber) {
  start_platform();
  open_both();
  ASSERT_EQ(add_capture_rule(), 0);
  ASSERT_EQ(add_capture_rule(), 0);
  EXPECT_NE(adp_fp_delete_entity_rule(20, 0, 0), 0);
  ASSERT_EQ(adp_fp_delete_entity_rule(19, 0, 0), 0);
  EXPECT_FALSE(status().capture_installed);
  EXPECT_EQ(packet_rules().find("erps"), std::string::npos);
  const Wire one("w1");
  const Wire two("w2");
  const Bytes frame = raps_frame(1, 100, 11);
  ASSERT_TRUE(one.send(frame));
  EXPECT_TRUE(two.receives(frame));
  EXPECT_FALSE(receive(kShortWhile));
}

TEST_F(FramesTest, RuleForOtherPortsLeavesThisPortAlone) {
  start_platform();
  open_both();
  adp_fp_rule_t rule{};
  rule.entity_id = 5;
  const std::array<uint32_t, 8> port_two{1u << 2};
  std::array<uint32_t, 8> mask;
  mask.fill(0xFFFFFFFF);
  const uint8_t mac[6] = {0x01, 0x19, 0xA7, 0, 0, 0};
  const uint8_t mac_mask[6] = {0xFF, 0xFF, 0xFF, 0xFF, 0xFF, 0};
  const uint16_t type[2] = {0x8902, 0xFFFF};
  const uint32_t words[2] = {0, 3};
  ASSERT_EQ(adp_fp_add_entity_action(&rule, 30, &words[0], 4, &words[1], 4), 0);
  ASSERT_EQ(adp_fp_add_entity_qualify(&rule, 13, port_two.data(), 32, mask.data(), 32), 0);
  ASSERT_EQ(adp_fp_add_entity_qualify(&rule, 7, mac, 6, mac_mask, 6), 0);
  ASSERT_EQ(adp_fp_add_entity_qualify(&rule, 29, &type[0], 2, &type[1], 2), 0);
  ASSERT_EQ(adp_fp_add_entity_rule(rule), 0);
  const Wire one("w1");
  const Wire two("w2");
  const Bytes frame = raps_frame(1, 100, 11);
  ASSERT_TRUE(one.send(frame));
  EXPECT_TRUE(two.receives(frame));
  ASSERT_TRUE(two.send(frame));
  const auto event = receive();
  ASSERT_TRUE(event);
  uint32_t port_id = 0;
  take_frame(*event, &port_id);
  EXPECT_EQ(port_id, 2u);
}

TEST_F(FramesTest, RulesThatCaptureNothingOfOursAreRefused) {
  start_platform();
  adp_fp_rule_t rule{};
  rule.entity_id = 19;
  EXPECT_NE(adp_fp_add_entity_rule(rule), 0);
  const uint32_t word = 1;
  EXPECT_NE(adp_fp_add_entity_action(&rule, 31, &word, 4, nullptr, 0), 0);
  EXPECT_NE(adp_fp_add_entity_qualify(&rule, 8, &word, 4, &word, 4), 0);
  EXPECT_NE(adp_fp_add_entity_qualify(&rule, 7, &word, 4, &word, 4), 0);
  EXPECT_NE(adp_fp_add_entity_qualify(&rule, 29, nullptr, 2, nullptr, 2), 0);
  EXPECT_NE(adp_fp_add_entity_action(nullptr, 30, &word, 4, &word, 4), 0);
}

TEST_F(FramesTest, FramesOfBothPortsComeInTheOrderOfTheirArrival) {
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  const Wire one("w1");
  const Wire two("w2");
  // One CPU hands all of them to the receiver in the order of sending; two may overtake each other.
  cpu_set_t before;
  ASSERT_EQ(sched_getaffinity(0, sizeof before, &before), 0);
  cpu_set_t one_cpu;
  CPU_ZERO(&one_cpu);
  CPU_SET(sched_getcpu(), &one_cpu);
  ASSERT_EQ(sched_setaffinity(0, sizeof one_cpu, &one_cpu), 0);
  std::vector<Bytes> sent;
  for (uint8_t i = 0; i < 60; ++i) {
    sent.push_back(raps_frame(1, 100, 11, i));
    EXPECT_TRUE((i % 5 < 2 ? one : two).send(sent.back()));
  }
  ASSERT_EQ(sched_setaffinity(0, sizeof before, &before), 0);
  for (const Bytes& frame : sent) {
    const auto event = receive();
    ASSERT_TRUE(event);
    EXPECT_EQ(take_frame(*event), frame);
  }
}

TEST_F(FramesTest, FetchingWritesNoMoreThanTheCapacity) {
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  const Wire one("w1");
  const Bytes frame = raps_frame(1, 100, 11);
  ASSERT_TRUE(one.send(frame));
  const auto event = receive();
  ASSERT_TRUE(event);
  uint32_t handle = 0;
  std::memcpy(&handle, record_of(*event) + 8, sizeof handle);
  Bytes buffer(100, 0xEE);
  uint16_t length = 7;
  uint16_t vlan = 7;
  uint32_t ingress = 7;
  EXPECT_NE(adp_receive_frame(handle + 1, buffer.data(), 100, &length, &vlan, &ingress), 0);
  EXPECT_EQ(length, 7u);
  EXPECT_EQ(buffer, Bytes(100, 0xEE));
  ASSERT_EQ(adp_receive_frame(handle, buffer.data(), 20, &length, &vlan, &ingress), 0);
  EXPECT_EQ(length, 20u);
  EXPECT_EQ(Bytes(buffer.begin(), buffer.begin() + 20), Bytes(frame.begin(), frame.begin() + 20));
  EXPECT_EQ(Bytes(buffer.begin() + 20, buffer.end()), Bytes(80, 0xEE));

  auto* packet = record_of(*event);
  skpack_release(packet);
  EXPECT_NE(adp_receive_frame(handle, buffer.data(), 100, &length, &vlan, &ingress), 0);
  skpack_release(packet);  // refused, not fatal
  skpack_release(nullptr);
  skpack_release(buffer.data());
}

TEST_F(FramesTest, FrameAsLongAsTheInterfaceAllowsIsFetchedWhole) {
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  const Wire one("w1");
  Bytes frame = raps_frame(1, 100, 11);
  frame.resize(1518);
  frame.back() = 0x5A;
  ASSERT_TRUE(one.send(frame));
  const auto event = receive();
  ASSERT_TRUE(event);
  EXPECT_EQ(take_frame(*event), frame);
}

// Whoever never gives packets back loses frames in the end, and gets them again afterwards.
TEST_F(FramesTest, PacketsThatAreNotGivenBackCostFramesNotMemory) {
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  const Wire one("w1");
  std::vector<void*> kept;
  for (int i = 0; i < 400 && port(1).frames_dropped == 0; ++i) {
    ASSERT_TRUE(one.send(raps_frame(1, 100, 11)));
    std::optional<ERPS_EVENT_MSG_T> event;
    ASSERT_TRUE(eventually([&] {
      event = receive(std::chrono::milliseconds(20));
      return event || port(1).frames_dropped > 0;
    }));
    if (event) {
      kept.push_back(record_of(*event));
    }
  }
  EXPECT_LT(kept.size(), 400u);
  EXPECT_GT(port(1).frames_dropped, 0u);
  for (void* packet : kept) {
    skpack_release(packet);
  }
  const Bytes frame = raps_frame(2, 100, 0);
  ASSERT_TRUE(one.send(frame));
  const auto event = receive();
  ASSERT_TRUE(event);
  EXPECT_EQ(take_frame(*event), frame);
}

TEST_F(FramesTest, StormIsBoundedByTheKernelAndRefusedHere) {
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  const Wire one("w1");
  const Bytes frame = raps_frame(1, 100, 11, 9);
  const auto started = std::chrono::steady_clock::now();
  for (int i = 0; i < 40000; ++i) {
    one.send(frame);
  }
  size_t heard = 0;
  while (const auto event = receive(std::chrono::milliseconds(30))) {
    skpack_release(record_of(*event));
    ++heard;
  }
  const std::chrono::duration<double> lasted = std::chrono::steady_clock::now() - started;
  double most = 0;
  for (const Budget& budget : {FloodGuard::kOfAll, FloodGuard::kBesidesFloods}) {
    most +=
        static_cast<double>(budget.burst) + lasted.count() * static_cast<double>(budget.per_second);
  }
  EXPECT_GT(heard, 50u);
  EXPECT_LE(static_cast<double>(heard), most);
  EXPECT_GT(port(1).frames_dropped, 10000u);
  EXPECT_GT(port(1).frames_refused, 100u);
  EXPECT_EQ(port(1).frames_received, heard);

  std::vector<HistoryRecord> told = history();
  std::erase_if(told,
                [](const HistoryRecord& record) { return record.kind != HistoryKind::kFlood; });
  EXPECT_GE(told.size(), 1u);
  EXPECT_LE(told.size(), 5u) << "more often than once a second";
  for (const HistoryRecord& record : told) {
    EXPECT_EQ(record.port, 1u);
    EXPECT_EQ(Bytes(record.source.begin(), record.source.end()),
              Bytes(frame.begin() + 6, frame.begin() + 12));
  }
}

// How many messages of this request and node came in at port 1.
size_t heard_of(uint8_t request, uint8_t node) {
  const auto records = history();
  return static_cast<size_t>(
      std::count_if(records.begin(), records.end(), [=](const HistoryRecord& record) {
        return record.kind == HistoryKind::kRapsReceived && record.port == 1 &&
               record.request == request && record.node_id[5] == node;
      }));
}

class ThinnedFlood : public FramesTest, public ::testing::WithParamInterface<bool> {};

// The kernel spares the task most of a source's flood; whatever else comes is heard as before, and
// the source itself when it has stopped.
TEST_P(ThinnedFlood, CostsLittleAndHidesNothingElse) {
  const bool repeats = GetParam();
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  const Wire one("w1");
  const Pump pump(queue_);
  Bytes attack = raps_frame(1, 100, 2, 9);
  uint64_t sent = 0;
  const auto flood_for = [&](std::chrono::milliseconds duration) {
    for (const auto end = std::chrono::steady_clock::now() + duration;
         std::chrono::steady_clock::now() < end;) {
      if (!repeats) {  // the end of the node ID
        attack[28] = 1;
        attack[29] = static_cast<uint8_t>(sent);
      }
      sent += one.send(attack) ? 1 : 0;
    }
  };
  for (const uint8_t known_before : {uint8_t{7}, uint8_t{9}}) {
    ASSERT_TRUE(one.send(raps_frame(1, 100, 0, known_before)));
  }
  std::this_thread::sleep_for(std::chrono::nanoseconds(FloodGuard::kProvenNs));
  flood_for(std::chrono::milliseconds(300));
  ASSERT_TRUE(one.send(raps_frame(1, 100, 11, 7)));
  flood_for(std::chrono::milliseconds(300));
  EXPECT_TRUE(eventually([] { return heard_of(11, 7) == 1; }));
  for (int repeat = 0; repeat < 3; ++repeat) {  // what floods has something else to say
    ASSERT_TRUE(one.send(raps_frame(1, 100, 11, 9)));
    flood_for(std::chrono::milliseconds(100));
  }
  EXPECT_TRUE(eventually([] { return heard_of(11, 9) == 3; })) << heard_of(11, 9);
  const PortStatus status = port(1);
  EXPECT_GT(sent, 20'000u) << "no flood";
  EXPECT_LT(status.frames_refused + status.frames_received + status.frames_dropped, sent / 4);

  std::this_thread::sleep_for(std::chrono::milliseconds(1500));
  for (int i = 0; i < 10; ++i) {
    ASSERT_TRUE(one.send(raps_frame(1, 100, 13, 9)));
  }
  EXPECT_TRUE(eventually([] { return heard_of(13, 9) == 10; })) << heard_of(13, 9);
}

INSTANTIATE_TEST_SUITE_P(Content, ThinnedFlood, ::testing::Bool(), [](const auto& repeats) {
  return std::string(repeats.param ? "Repeated" : "Varied");
});

TEST_F(FramesTest, TwoTasksSendAtOnce) {
  start_platform();
  const Wire one("w1");
  const Bytes mine = raps_frame(1, 100, 11, 1);
  const Bytes theirs = raps_frame(1, 100, 0, 2);
  constexpr size_t kFrames = 300;
  std::thread other([&] {
    for (size_t i = 0; i < kFrames; ++i) {
      EXPECT_EQ(transmit(theirs, 1), 0);
    }
  });
  for (size_t i = 0; i < kFrames; ++i) {
    EXPECT_EQ(transmit(mine, 1), 0);
  }
  other.join();
  std::vector<Bytes> arrived;
  ASSERT_TRUE(eventually([&] {
    const auto more = one.take();
    arrived.insert(arrived.end(), more.begin(), more.end());
    return arrived.size() >= 2 * kFrames;
  }));
  EXPECT_EQ(static_cast<size_t>(std::count(arrived.begin(), arrived.end(), mine)), kFrames);
  EXPECT_EQ(port(1).frames_sent, 2 * kFrames);
}

TEST_F(FramesTest, SendingOnAnInterfaceThatIsDownFailsAndWorksAgainAfterwards) {
  start_platform();
  ASSERT_EQ(add_capture_rule(), 0);
  const Bytes frame = raps_frame(1, 100, 11);
  set_up("p1", false);
  receive_all();
  EXPECT_NE(transmit(frame, 1), 0);
  EXPECT_EQ(port(1).send_failures, 1u);
  set_up("p1", true);
  ASSERT_TRUE(eventually([] { return device_carrier("p1"); }));
  receive_all();
  const Wire one("w1");
  EXPECT_EQ(transmit(frame, 1), 0);
  EXPECT_TRUE(one.receives(frame));
  ASSERT_TRUE(one.send(frame));
  const auto event = receive();
  ASSERT_TRUE(event && event->type == kPacketEvent);
  EXPECT_EQ(take_frame(*event), frame);
}

// The other mechanism, for kernels without nftables on this hook.
TEST_F(FramesTest, ClsactKeepsRapsFromTheBridgeToo) {
  const auto capture = make_clsact_capture();
  const std::vector<CaptureEntry> entries{
      {.interface = "p1", .ifindex = kernel_link("p1").ifindex, .match = {}},
      {.interface = "p2", .ifindex = kernel_link("p2").ifindex, .match = {}}};
  ASSERT_EQ(capture->probe(entries), "");
  EXPECT_EQ(output_of("tc qdisc show dev p1").find("clsact"), std::string::npos);
  ASSERT_EQ(capture->install(entries), "");

  FrameSocket socket;
  socket.open();
  const FrameMatch match;
  ASSERT_EQ(socket.listen(&match), 0);
  ASSERT_EQ(socket.bind(kernel_link("p1").ifindex), 0);
  const Wire one("w1");
  const Wire two("w2");
  const auto packet = std::make_unique<Packet>();
  for (const uint16_t vlan : {uint16_t{0}, uint16_t{100}}) {
    const Bytes raps = raps_frame(1, vlan, 11);
    const Bytes data = data_frame(kBroadcast, kHostA, vlan);
    ASSERT_TRUE(one.send(raps) && one.send(data));
    ASSERT_TRUE(eventually([&] { return socket.receive(*packet) == 0; }));
    EXPECT_EQ(Bytes(packet->frame(), packet->frame() + packet->length), raps);
    std::vector<Bytes> flooded;
    ASSERT_TRUE(eventually([&] {
      const auto more = two.take();
      flooded.insert(flooded.end(), more.begin(), more.end());
      return std::count(flooded.begin(), flooded.end(), data) == 1;
    }));
    EXPECT_EQ(std::count(flooded.begin(), flooded.end(), raps), 0);
  }
  capture->remove();
  EXPECT_EQ(output_of("tc qdisc show dev p1").find("clsact"), std::string::npos);
  const Bytes raps = raps_frame(1, 100, 11);
  ASSERT_TRUE(one.send(raps));
  EXPECT_TRUE(two.receives(raps));
}

TEST_F(FramesTest, ClsactLeavesAQdiscThatIsNotItsOwn) {
  run("tc qdisc add dev p1 clsact");
  const auto capture = make_clsact_capture();
  const std::vector<CaptureEntry> entries{
      {.interface = "p1", .ifindex = kernel_link("p1").ifindex, .match = {}}};
  ASSERT_EQ(capture->install(entries), "");
  EXPECT_NE(output_of("tc filter show dev p1 ingress").find("bpf"), std::string::npos);
  capture->remove();
  EXPECT_NE(output_of("tc qdisc show dev p1").find("clsact"), std::string::npos);
  EXPECT_EQ(output_of("tc filter show dev p1 ingress").find("bpf"), std::string::npos);
}

}  // namespace
}  // namespace erps::linux_platform::test
