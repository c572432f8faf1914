#include "tests/fuzz/session.h"

#include <array>
#include <cstring>
#include <memory>
#include <string>

#include "erps/link/link_state.h"
#include "erps/mgmt/handlers.h"
#include "erps/mgmt/server.h"
#include "erps/raps/frame.h"
#include "erps/raps/transmit.h"
#include "erps/ring/ring_config.h"
#include "erps/ring/ring_list.h"
#include "erps/runtime/event_loop.h"
#include "erps/runtime/event_queue.h"
#include "erps/timer/protocol_timers.h"
#include "erps/timer/timer_task.h"
#include "tests/fuzz/fail.h"
#include "tests/fuzz/module_checks.h"

namespace erps::fuzz {

namespace {

constexpr size_t kMostEvents = 1000;  // that one event may lead to
constexpr size_t kSetUps = 16;

void add_running(uint32_t id, uint32_t port0, uint32_t port1, uint32_t vlan, uint32_t node_role,
                 uint32_t ring_role) {
  erps_add_ring(id, port0, port1, vlan, node_role, ring_role);
  erps_set_ring_enable(id, 1);
}

void add_interconnection(uint32_t inter_node_role, uint32_t sub_ring_role, uint32_t major_role) {
  add_running(1, 1, 2, 100, kNoRplNode, major_role);
  erps_add_inter_sub_ring(1, 2, 3, sub_ring_role, inter_node_role);
  erps_set_ring_enable(2, 1);
}

// The rings that an input starts with.
void set_up(size_t number) {
  switch (number) {
    case 1:
      return add_running(1, 1, 2, 100, kRplOwner, kMajorRing);
    case 2:
      return add_running(1, 1, 2, 100, kRplNeighbour, kMajorRing);
    case 3:
      return add_running(1, 1, 2, 100, kNoRplNode, kMajorRing);
    case 4:
      return add_running(1, 1, 2, 100, kRplOwner, kOpenChannelRing);
    case 5:
      return add_running(1, 1, 2, 100, kNoRplNode, kOpenChannelRing);
    case 6:
      return add_interconnection(kWatching, kNoRplNode, kMajorRing);
    case 7:
      return add_interconnection(0, kNoRplNode, kMajorRing);
    case 8:
      return add_interconnection(kWatching, kRplOwner, kOpenChannelRing);
    case 9:
      add_running(1, 1, 2, 100, kRplOwner, kMajorRing);
      return add_running(3, 5, 6, 300, kNoRplNode, kOpenChannelRing);
    case 10:
      erps_add_ring(1, 1, 2, 100, kRplOwner, kMajorRing);
      return;
    case 11:
      return add_running(300, 1, 2, 100, kRplOwner, kMajorRing);
    case 12:
      erps_add_ring(1, 1, 2, 100, kRplOwner, kMajorRing);
      erps_set_ring_revertive(1, 1);
      erps_set_ring_enable(1, 1);
      return;
    case 13:
      erps_set_holdoff_timer(1000);
      return add_running(1, 1, 2, 100, kRplOwner, kMajorRing);
    case 14:
      return add_running(1, 1, 2, 0, kNoRplNode, kMajorRing);
    case 15:
      erps_set_wtr_timer(1000);
      return add_running(1, 1, 2, 100, kRplOwner, kMajorRing);
    default:
      return;  // no ring
  }
}

// Everything that a process starts with; the rings are gone already.
void restart_module(Platform& platform) {
  platform.reset();
  guard_timer_time = 500;
  WTR_timer_time = 300'000;
  WTB_timer_time = 5500;
  holdoff_timer_time = 0;
  for (uint32_t id = 1; id <= kHoldoffEntries; ++id) {
    erps_set_holdoff_interface(id, 0);
  }
  memset(g_erps_src_mac, 0, kMacLength);
  g_erps_debug = 0;
  erps_event_queue = &platform;
  memset(&erps_user_req, 0, sizeof erps_user_req);
  memset(&erps_user_rsp, 0, sizeof erps_user_rsp);
  require(erps_user_srv_init() == 0, "the server does not start");
}

bool only_reads(uint8_t command) {
  switch (command) {
    case mgmt::kGetRing:
    case mgmt::kGetAnyRingEnabled:
    case mgmt::kGetGuardTime:
    case mgmt::kGetWtrTime:
    case mgmt::kGetHoldoffTime:
    case mgmt::kGetManualSwitch:
    case mgmt::kGetForcedSwitch:
    case mgmt::kShowRingConf:
    case mgmt::kNoReply:
      return true;
    default:
      return command >= mgmt::kCommandCount;
  }
}

void check_reply(const Message& reply, uint8_t command, long announced_type) {
  require(reply.type == ((announced_type & mgmt::kReplyTypeMask) | mgmt::kReplyTypeFlag) &&
              reply.type > 0,
          "a reply has another type than its request's");
  require(reply.text.size() >= mgmt::kReplyOverhead, "a reply is shorter than its head");
  mgmt::ReplyText text{};
  memcpy(&text, reply.text.data(), reply.text.size());
  require(text.cmd == command, "a reply answers another command");
  require(reply.text.size() == text.data_len + mgmt::kReplyOverhead,
          "a reply is not as long as its data");
  require(text.data_len == 0 || text.data_len == 1 || text.data_len == 4 ||
              text.data_len == mgmt::kRingConfBytes,
          "a reply has data of a length that no command has");
  if (command >= mgmt::kCommandCount) {
    require(text.ret_code == mgmt::kUnknownCommand, "a command is served that does not exist");
  }
}

// Values that the module treats differently, and any other.
uint32_t argument(Input& input) {
  static constexpr std::array<uint32_t, 24> kValues = {
      0,  1,   2,   3,   4,   5,   6,    11,   12,         13,         19,         63,
      64, 100, 239, 240, 255, 300, 1000, 5000, 0x7FFFFFFF, 0x80000000, 0xFFFFFFFE, 0xFFFFFFFF};
  const uint8_t choice = input.byte();
  return choice < kValues.size() ? kValues.at(choice) : choice == 0xFF ? input.word() : choice;
}

}  // namespace

Session::Session(Input& input) : input_(input), platform_(Platform::instance()) {
  restart_module(platform_);
  const uint8_t head = input_.byte();
  set_up(head % kSetUps);
  platform_.listens = head >= 0xF0;  // formatting takes longer than the rest
  handle_own_events();
}

Session::~Session() {
  platform_.failures = kNoFailure;
  platform_.reply_fails = false;
  held_ = false;
  handle_own_events();
  while (const ERPSM_T* ring = erps_get_list_head()) {
    const uint32_t id = ring->ring_id;
    require(erps_set_ring_enable(id, 0) == mgmt::kDone, "a ring cannot be stopped");
    require(erps_set_del_ring(id) == mgmt::kDone, "a ring cannot be deleted");
    const ERPSM_T* next = erps_get_list_head();
    require(next == nullptr || next->ring_id != id, "a deleted ring is still there");
  }
  handle_own_events();
  check_module();
  check_empty();
}

std::vector<uint8_t> Session::next_frame() {
  static constexpr std::array<uint8_t, 8> kRequests = {
      raps::kNr, raps::kMs, raps::kSf, raps::kFs, raps::kEvent, 1, 15, raps::kNr};
  const uint8_t what = input_.byte();  // request 3 bits, RB, DNF, BPR, mark, own source
  const uint8_t who = input_.byte();   // ring 2 bits, VLAN 2 bits, node 4 bits
  static constexpr std::array<uint8_t, 4> kRings = {1, 2, 3, 44};
  static constexpr std::array<uint32_t, 4> kVlans = {100, 300, 0, 101};
  const std::array<uint8_t, 6> node = {0x00, 0x11, 0x22,
                                       0x33, 0x44, static_cast<uint8_t>(0x50 | (who >> 4))};
  const std::array<uint8_t, 6> own = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
  raps::Message message{};
  message.ring_id = kRings.at(who & 3);
  message.vlan_id = kVlans.at((who >> 2) & 3);
  message.request = kRequests.at(what & 7);
  message.rb = (what >> 3) & 1;
  message.dnf = (what >> 4) & 1;
  message.bpr = (what >> 5) & 1;
  message.source = (what & 0x80) != 0 ? own.data() : node.data();
  message.node_id = node.data();
  std::vector<uint8_t> frame(raps::kTaggedLength);
  frame.resize(raps::build(message, frame.data()));
  if ((what & 0x40) != 0) {
    frame.at(raps::kTaggedPdu + raps::kRequestOffset) |= raps::kInterconnectionMark;
  }
  return frame;
}

void Session::short_frame() {
  const uint32_t port = input_.byte();
  const std::vector<uint8_t> frame = next_frame();
  deliver(port, frame, static_cast<uint16_t>(frame.size()));
}

void Session::patched_frame() {
  const uint32_t port = input_.byte();
  std::vector<uint8_t> frame = next_frame();
  const uint16_t announced = input_.half();
  for (unsigned patches = input_.byte() % 4; patches > 0; --patches) {
    const size_t offset = input_.byte() % frame.size();
    frame[offset] = input_.byte();
  }
  frame.resize(input_.half() % 3000);
  deliver(port, std::move(frame), announced);
}

void Session::raw_frame() {
  const uint32_t port = input_.byte();
  const uint16_t announced = input_.half();
  const uint16_t length = input_.half();
  deliver(port, input_.bytes(length), announced);
}

void Session::deliver(uint32_t port, std::vector<uint8_t> frame, uint16_t announced) {
  platform_.forget_sent();
  const ERPS_EVENT_MSG_T event = platform_.announce_frame(port, std::move(frame), announced);
  handle(event);
  require(platform_.packet_given_back(), "a packet was not given back");
  if (ports_are_distinct()) {
    for (const Platform::Sent& sent : platform_.sent()) {
      require(!sent.relayed || sent.port != port, "a frame goes back where it came from");
    }
  }
  handle_own_events();
}

void Session::request() {
  const uint8_t command = input_.byte() % (mgmt::kCommandCount + 2);
  const size_t count = input_.byte() % (mgmt::kArgumentCount + 1);
  Message message{1 + input_.byte(), {}};
  message.text.resize(offsetof(mgmt::RequestText, arg) + 4 * count);
  message.text[0] = command;
  for (size_t i = 0; i < count; ++i) {
    const uint32_t value = argument(input_);
    memcpy(&message.text[offsetof(mgmt::RequestText, arg) + 4 * i], &value, sizeof value);
  }
  serve(message, message.type);
}

void Session::raw_request() {
  Message message{static_cast<long>(input_.word()), {}};
  if (message.type == 0) {
    message.type = 1;  // the kernel takes no other
  }
  const uint16_t length = input_.half() % 1200;
  message.text = input_.bytes(length);
  if (message.text.size() < length && (length & 1) != 0) {
    message.text.resize(length);  // long ones, which inputs seldom are
  }
  const auto announced = static_cast<int32_t>(input_.byte() < 0xE0 ? message.type : input_.word());
  serve(message, announced);
}

void Session::serve(Message request, long announced_type) {
  const std::vector<RingSummary> before = summary_of_rings();
  const bool fits = request.text.size() <= mgmt::kTextCapacity;
  const bool addressed = announced_type == 0 || announced_type == request.type ||
                         (announced_type < 0 && request.type <= -announced_type);
  const bool taken = fits && addressed;
  const uint8_t command = request.text.empty() ? 0 : request.text[0];
  const bool answered = taken && command != mgmt::kNoReply && !platform_.reply_fails;
  const unsigned errors = platform_.errors_printed;

  platform_.messages().clear();
  platform_.put_request(std::move(request));
  ERPS_EVENT_MSG_T event{};
  event.event_class = 3;
  event.type = mgmt::kEventTypeConf;
  event.payload = static_cast<uintptr_t>(announced_type);
  handle(event);

  require(platform_.messages().size() == (answered || !taken ? 1U : 0U),
          "a request has not one answer, or was not left alone");
  if (answered) {
    check_reply(platform_.messages().front(), command, announced_type);
  } else if (command != mgmt::kNoReply || !taken) {
    require(platform_.errors_printed == errors + 1, "a failed queue was not reported");
  }
  if (!taken || only_reads(command)) {
    require(summary_of_rings() == before, "a request changed rings that must not");
  }
  platform_.messages().clear();
  handle_own_events();
}

void Session::link_change() {
  struct LinkRecord {
    uint32_t unused = 0;
    uint16_t interface = 0;
    uint16_t state = 0;
  };
  const auto record = std::make_unique<LinkRecord>();  // its end is watched
  const uint8_t what = input_.byte();
  record->interface = what < 0xC0 ? what & 7 : input_.half();
  record->state = what < 0x80 ? (what >> 3) & 1 : input_.half();
  if (record->interface < kPorts && (what & 0x40) == 0) {
    platform_.links.at(record->interface) = record->state;
  }
  ERPS_EVENT_MSG_T event{};
  event.event_class = 3;
  event.type = ERPS_EVENT_T_LINK_CHANGE;
  event.payload = reinterpret_cast<uintptr_t>(record.get());
  handle(event);
  handle_own_events();
}

void Session::time_passes() {
  const uint8_t what = input_.byte();
  constexpr int64_t kSecond = 1'000'000;
  if (what < 0x80) {
    platform_.advance_us(what * kSecond / 4);
  } else if (what < 0xEF) {
    platform_.advance_us((what - 0x60) * kSecond);
  } else if (what == 0xEF) {
    platform_.advance_us(3600 * kSecond);  // each message is repeated 720 times
  } else {                                 // the clock is set back
    platform_.advance_us(-int64_t{what - 0xEF} * 100 * kSecond);
  }
  erps_timer_walk();
  check_module();
  handle_own_events();
}

void Session::platform_fails() {
  platform_.failures = input_.byte();
  const uint8_t more = input_.byte();
  platform_.reply_fails = (more & 1) != 0;
  platform_.reception_fails = (more & 2) != 0;
}

void Session::handle(const ERPS_EVENT_MSG_T& event) {
  erps_dispatch_event(&event);
  check_module();
}

void Session::handle_own_events() {
  if (held_) {
    return;
  }
  ERPS_EVENT_MSG_T event{};
  for (size_t handled = 0; platform_.take_event(event); ++handled) {
    require(handled < kMostEvents, "events breed events without end");
    handle(event);
  }
}

}  // namespace erps::fuzz
