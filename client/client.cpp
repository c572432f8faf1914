#include "client/client.h"

#include <errno.h>
#include <stddef.h>
#include <string.h>
#include <sys/random.h>
#include <time.h>

#include <algorithm>
#include <initializer_list>

#include "client/error.h"
#include "client/event_door.h"
#include "client/limits.h"
#include "client/return_codes.h"
#include "client/words.h"

namespace erps::client {

namespace {

using Clock = std::chrono::steady_clock;

constexpr std::chrono::nanoseconds kFirstPause{20'000};
constexpr std::chrono::nanoseconds kLongestPause{2'000'000};
constexpr long kTypeBits = 0x3FFFFFFF;  // below the bit that marks replies
constexpr size_t kAbandonedKept = 64;

static_assert(offsetof(QueuedMessage, text) == sizeof(long));
static_assert(kTypeBits < mgmt::kReplyTypeFlag);

// Random, so that clients which know nothing of each other do not share a type.
long fresh_type() {
  for (;;) {
    uint32_t bits = 0;
    if (getrandom(&bits, sizeof bits, 0) != static_cast<ssize_t>(sizeof bits)) {
      throw_system_error("drawing a message type", errno);
    }
    const long type = static_cast<long>(bits) & kTypeBits;
    if (type != 0) {
      return type;
    }
  }
}

long reply_type_of(long type) {
  return (type & mgmt::kReplyTypeMask) | mgmt::kReplyTypeFlag;
}

void pause_for(std::chrono::nanoseconds duration) {
  timespec time{};
  time.tv_nsec = duration.count();
  nanosleep(&time, nullptr);
}

std::string ring_words(const char* verb, uint32_t ring) {
  return std::string(verb) + " ring " + std::to_string(ring);
}

}  // namespace

// What is asked: the command, its text, and how an operator would call it.
struct Client::Request {
  mgmt::RequestText text{};
  std::string what;

  Request(mgmt::Command command, std::string words, std::initializer_list<uint32_t> arguments = {})
      : what(std::move(words)) {
    text.cmd = command;
    size_t i = 0;
    for (const uint32_t argument : arguments) {
      text.arg[i++] = argument;
    }
  }
  void put_mac(size_t offset, const MacAddress& mac) {
    uint8_t bytes[sizeof text];
    memcpy(bytes, &text, sizeof text);
    memcpy(bytes + offset, mac.data(), mac.size());
    memcpy(&text, bytes, sizeof text);
  }
};

// A request on the queue: taken off again unless it was answered.
class Client::Ticket {
 public:
  Ticket(Client& client, const ManagementQueue& queue, const Request& request,
         Clock::time_point deadline)
      : client_(client), queue_(queue), type_(fresh_type()) {
    QueuedMessage message;
    message.type = type_;
    memcpy(message.text, &request.text, sizeof request.text);
    queue_.put(message, sizeof request.text, deadline);
  }
  ~Ticket() {
    if (!answered_ && !withdraw()) {
      client_.abandoned_.push_back(reply_type_of(type_));
    }
  }
  Ticket(const Ticket&) = delete;
  Ticket& operator=(const Ticket&) = delete;

  long type() const { return type_; }
  void answered() { answered_ = true; }
  // Takes the request off the queue; false when the module already has it.
  bool withdraw() {
    withdrawn_ = withdrawn_ || queue_.discard(type_) > 0;
    return withdrawn_;
  }

 private:
  Client& client_;
  const ManagementQueue& queue_;
  long type_;
  bool answered_ = false;
  bool withdrawn_ = false;
};

uint32_t Client::Reply::code() const {
  return code_of_ret_code(message.text[offsetof(mgmt::ReplyText, ret_code)]);
}

uint32_t Client::Reply::data_length() const {
  uint32_t value = 0;
  memcpy(&value, message.text + offsetof(mgmt::ReplyText, data_len), sizeof value);
  return value;
}

const uint8_t* Client::Reply::data() const {
  return message.text + offsetof(mgmt::ReplyText, data);
}

Client::~Client() {
  if (abandoned_.empty()) {
    return;
  }
  try {
    discard_late_replies(ManagementQueue());
  } catch (const ClientError&) {
    // The queue is gone, and the late replies with it.
  }
}

void Client::discard_late_replies(const ManagementQueue& queue) noexcept {
  std::erase_if(abandoned_, [&queue](long type) { return queue.discard(type) > 0; });
  if (abandoned_.size() > kAbandonedKept) {
    abandoned_.erase(abandoned_.begin(), abandoned_.end() - static_cast<ptrdiff_t>(kAbandonedKept));
  }
}

Client::Reply Client::ask(const Request& request) {
  const ManagementQueue queue;
  discard_late_replies(queue);
  const Clock::time_point deadline = Clock::now() + timeout_;
  Ticket ticket(*this, queue, request, deadline);
  announce_request(ticket.type(), deadline);

  const long type = reply_type_of(ticket.type());
  std::chrono::nanoseconds pause = kFirstPause;
  Reply reply;
  while (!queue.take(type, &reply.message, &reply.length)) {
    if (Clock::now() >= deadline) {
      const bool untouched = ticket.withdraw();
      // The module may have taken and answered it just now.
      if (!untouched && queue.take(type, &reply.message, &reply.length)) {
        break;
      }
      throw ClientError(ErrorKind::kTimeout,
                        request.what + ": no reply within " + std::to_string(timeout_.count()) +
                            " ms; the module " +
                            (untouched ? "did not take the request, which was withdrawn"
                                       : "took the request and may still carry it out"));
    }
    pause_for(pause);
    pause = std::min(pause + pause / 2, kLongestPause);
  }
  ticket.answered();

  if (reply.length <= offsetof(mgmt::ReplyText, ret_code)) {
    throw ClientError(ErrorKind::kMalformedReply, request.what + ": malformed reply: only " +
                                                      std::to_string(reply.length) + " bytes long");
  }
  const uint8_t command = reply.message.text[0];
  if (command != request.text.cmd) {
    throw ClientError(ErrorKind::kMalformedReply,
                      request.what + ": malformed reply: it answers command " +
                          std::to_string(command) + ", not " + std::to_string(request.text.cmd));
  }
  return reply;
}

void Client::command(const Request& request) {
  const uint32_t code = ask(request).code();
  if (code != mgmt::kDone) {
    throw Refused(request.what, code);
  }
}

void Client::check_data(const Request& request, const Reply& reply, size_t expected) const {
  const size_t behind_ret_code = reply.length - offsetof(mgmt::ReplyText, data);
  if (reply.data_length() != expected || behind_ret_code < expected) {
    throw ClientError(ErrorKind::kMalformedReply,
                      request.what + ": malformed reply: " + std::to_string(reply.data_length()) +
                          " bytes of data announced and " + std::to_string(behind_ret_code) +
                          " there, where " + std::to_string(expected) + " were due");
  }
}

uint32_t Client::read_number(const Request& request) {
  const Reply reply = ask(request);
  if (reply.code() != mgmt::kDone) {
    throw Refused(request.what, reply.code());
  }
  check_data(request, reply, sizeof(uint32_t));
  return read_u32(reply.data());
}

void Client::add_ring(const NewRing& ring) {
  command({mgmt::kAddRing,
           ring_words("add", ring.ring),
           {ring.ring, ring.port0, ring.port1, ring.control_vlan, ring.node_role, ring.ring_role}});
}

void Client::delete_ring(uint32_t ring) {
  command({mgmt::kDeleteRing, ring_words("delete", ring), {ring}});
}

void Client::enable_ring(uint32_t ring) {
  command({mgmt::kSetEnable, ring_words("enable", ring), {ring, 1}});
}

void Client::disable_ring(uint32_t ring) {
  command({mgmt::kSetEnable, ring_words("disable", ring), {ring, 0}});
}

void Client::set_ring_role(uint32_t ring, uint32_t ring_role) {
  command({mgmt::kSetRingRole, ring_words("set the role of", ring), {ring, ring_role}});
}

bool Client::modify_ring_role(uint32_t ring, uint32_t ring_role) {
  const std::string what = ring_words("modify the role of", ring);
  ask({mgmt::kModifyRingRole, what, {ring, ring_role}});
  const std::optional<RingStatus> now = read_ring(ring);
  if (!now) {
    throw Refused(what, mgmt::kNoSuchRing);
  }
  return now->ring_role == ring_role;
}

void Client::set_revertive(uint32_t ring, bool revertive) {
  command({mgmt::kSetRevertiveMode,
           ring_words("set the revertive mode of", ring),
           {ring, revertive ? 0u : 1u}});
}

void Client::attach_sub_ring(const NewSubRing& ring) {
  command({mgmt::kAttachSubRing,
           "attach sub-ring " + std::to_string(ring.ring) + " to ring " +
               std::to_string(ring.major_ring),
           {ring.major_ring, ring.ring, ring.port, ring.node_role, ring.interconnection_role}});
}

void Client::set_node_id(uint32_t ring, const MacAddress& node_id) {
  Request request{mgmt::kSetNodeId, ring_words("set the node ID of", ring), {ring}};
  request.put_mac(mgmt::kMacAtArgument1, node_id);
  command(request);
}

std::optional<RingStatus> Client::read_ring(uint32_t ring) {
  const Request request{mgmt::kGetRing, ring_words("read", ring), {ring}};
  const Reply reply = ask(request);
  if (reply.code() == mgmt::kNoSuchRing) {
    return std::nullopt;
  }
  if (reply.code() != mgmt::kDone) {
    throw Refused(request.what, reply.code());
  }
  check_data(request, reply, mgmt::kRingConfBytes);
  const RingStatus status = decode_ring_status(reply.data());
  if (status.ring_id != ring) {
    throw ClientError(
        ErrorKind::kMalformedReply,
        request.what + ": malformed reply: it is about ring " + std::to_string(status.ring_id));
  }
  return status;
}

std::vector<RingStatus> Client::read_rings() {
  std::vector<RingStatus> rings;
  for (int64_t id = kRingIdRange.min; id <= kRingIdRange.max; ++id) {
    if (const std::optional<RingStatus> ring = read_ring(static_cast<uint32_t>(id))) {
      rings.push_back(*ring);
    }
  }
  return rings;
}

bool Client::any_ring_enabled() {
  const Request request{mgmt::kGetAnyRingEnabled, "ask whether any ring is enabled"};
  const Reply reply = ask(request);
  if (reply.code() != mgmt::kDone) {
    throw Refused(request.what, reply.code());
  }
  check_data(request, reply, 1);
  return reply.data()[0] == 1;
}

void Client::set_guard_ms(uint32_t ms) {
  command({mgmt::kSetGuardTime, "set the guard time", {ms}});
}
void Client::set_wtr_ms(uint32_t ms) {
  command({mgmt::kSetWtrTime, "set the WTR time", {ms}});
}
void Client::set_holdoff_ms(uint32_t ms) {
  command({mgmt::kSetHoldoffTime, "set the hold-off time", {ms}});
}
uint32_t Client::guard_ms() {
  return read_number({mgmt::kGetGuardTime, "read the guard time"});
}
uint32_t Client::wtr_minutes() {
  return read_number({mgmt::kGetWtrTime, "read the WTR time"});
}
uint32_t Client::holdoff_ms() {
  return read_number({mgmt::kGetHoldoffTime, "read the hold-off time"});
}
TimerSettings Client::timer_settings() {
  TimerSettings settings;
  settings.guard_ms = guard_ms();
  settings.wtr_minutes = wtr_minutes();
  settings.holdoff_ms = holdoff_ms();
  return settings;
}

void Client::forced_switch(uint32_t ring, uint32_t port) {
  command({mgmt::kForcedSwitch, ring_words("forced switch of", ring), {ring, port}});
}
void Client::manual_switch(uint32_t ring, uint32_t port) {
  command({mgmt::kManualSwitch, ring_words("manual switch of", ring), {ring, port}});
}
void Client::clear(uint32_t ring) {
  command({mgmt::kClear, ring_words("clear", ring), {ring}});
}

void Client::set_port_state(uint32_t port, uint32_t state) {
  command({mgmt::kSetPortState,
           "set port " + std::to_string(port) + " " + port_state_name(state),
           {port, state}});
}

void Client::add_capture_rule(const MacAddress& destination) {
  Request request{mgmt::kCaptureRuleAdd, "add a capture rule for " + mac_text(destination)};
  request.put_mac(mgmt::kMacAtArgument0, destination);
  command(request);
}

void Client::delete_capture_rule() {
  command({mgmt::kCaptureRuleDelete, "delete the capture rule"});
}

void Client::set_debug_switch(uint32_t value) {
  command({mgmt::kDebugSwitch, "set the debug switch", {value}});
}

}  // namespace erps::client
