#include "tests/client/fake_module.h"

#include <errno.h>
#include <fcntl.h>
#include <stddef.h>
#include <string.h>
#include <sys/ipc.h>
#include <sys/msg.h>
#include <time.h>

#include <stdexcept>
#include <string>

namespace erps::test {

namespace {

constexpr long kTakeTickNs = 20'000'000;  // how long the thread waits before it looks for stop

[[noreturn]] void fail(const char* what) {
  throw std::runtime_error(std::string(what) + ": " + strerror(errno));
}

void put_u32(uint8_t* at, uint32_t value) {
  at[0] = static_cast<uint8_t>(value >> 24);
  at[1] = static_cast<uint8_t>(value >> 16);
  at[2] = static_cast<uint8_t>(value >> 8);
  at[3] = static_cast<uint8_t>(value);
}

}  // namespace

FakeModule::FakeModule(const Options& options) {
  if (options.queue) {
    owns_queue_ = !options.adopt_queue;
    queue_ =
        msgget(mgmt::kQueueKey,
               options.adopt_queue ? IPC_CREAT | 0666 : IPC_CREAT | IPC_EXCL | options.queue_mode);
    if (queue_ < 0) {
      fail("msgget");
    }
  }
  if (options.door) {
    mq_attr attributes{};
    attributes.mq_maxmsg = options.door_depth;
    attributes.mq_msgsize = sizeof(ERPS_EVENT_MSG_T);
    door_ =
        mq_open(mgmt::kEventQueueName, O_RDWR | O_CREAT | O_EXCL, options.door_mode, &attributes);
    if (door_ == static_cast<mqd_t>(-1)) {
      fail("mq_open");
    }
  }
  if (options.serve && options.door) {
    thread_ = std::thread([this] { run(); });
  }
}

FakeModule::~FakeModule() {
  stop_ = true;
  if (thread_.joinable()) {
    thread_.join();
  }
  if (owns_queue_) {
    remove_queue();
  }
  if (door_ != static_cast<mqd_t>(-1)) {
    mq_close(door_);
    mq_unlink(mgmt::kEventQueueName);
  }
}

void FakeModule::remove_queue() {
  if (queue_ >= 0) {
    msgctl(queue_, IPC_RMID, nullptr);
    queue_ = -1;
  }
}

void FakeModule::run() {
  while (!stop_) {
    timespec until{};
    clock_gettime(CLOCK_REALTIME, &until);
    until.tv_nsec += kTakeTickNs;
    if (until.tv_nsec >= 1'000'000'000) {
      until.tv_nsec -= 1'000'000'000;
      ++until.tv_sec;
    }
    ERPS_EVENT_MSG_T event;
    char bytes[sizeof event];
    if (mq_timedreceive(door_, bytes, sizeof bytes, nullptr, &until) !=
        static_cast<ssize_t>(sizeof bytes)) {
      continue;
    }
    memcpy(&event, bytes, sizeof event);
    {
      const std::lock_guard<std::mutex> lock(mutex_);
      events_.push_back(event);
    }
    serve(static_cast<long>(event.payload));
  }
}

bool FakeModule::take(long type, Seen* request) {
  client::QueuedMessage message;
  const ssize_t length = msgrcv(queue_, &message, sizeof message.text, type, IPC_NOWAIT);
  if (length < 0) {
    return false;
  }
  *request = Seen{message.type, {}, static_cast<size_t>(length)};
  memcpy(&request->text, message.text, sizeof request->text);
  return true;
}

void FakeModule::put(long type, const void* text, size_t length) {
  client::QueuedMessage message;
  message.type = type;
  memcpy(message.text, text, length);
  if (msgsnd(queue_, &message, length, IPC_NOWAIT) != 0) {
    fail("msgsnd");
  }
}

void FakeModule::serve(long type) {
  Seen request{};
  if (!take(type, &request)) {
    return;
  }
  Answer replaced;
  {
    const std::lock_guard<std::mutex> lock(mutex_);
    seen_.push_back(request);
    const auto found = answers_.find(request.text.cmd);
    if (found != answers_.end()) {
      replaced = found->second;
    }
    reply_[0] = request.text.cmd;
    if (!replaced) {
      built_in(request);
    }
  }
  uint32_t data_length = 0;
  memcpy(&data_length, reply_ + offsetof(mgmt::ReplyText, data_len), sizeof data_length);
  size_t length = data_length + mgmt::kReplyOverhead;
  if (replaced && !replaced(request, reply_, &length)) {
    return;
  }
  put((type & mgmt::kReplyTypeMask) | mgmt::kReplyTypeFlag, reply_, length);
}

void FakeModule::set_code(uint32_t code) {
  reply_[offsetof(mgmt::ReplyText, ret_code)] = mgmt::ret_code_of(code);
}

void FakeModule::set_number(uint32_t value) {
  const uint32_t length = sizeof value;
  memcpy(reply_ + offsetof(mgmt::ReplyText, data_len), &length, sizeof length);
  put_u32(reply_ + offsetof(mgmt::ReplyText, data), value);
  set_code(mgmt::kDone);
}

void FakeModule::set_ring(const FakeRing& ring) {
  const uint32_t length = mgmt::kRingConfBytes;
  memcpy(reply_ + offsetof(mgmt::ReplyText, data_len), &length, sizeof length);
  uint8_t* data = reply_ + offsetof(mgmt::ReplyText, data);
  for (size_t i = 0; i < ring.words.size(); ++i) {
    put_u32(data + 4 * i, ring.words[i]);
  }
  memcpy(data + mgmt::kRingConfNodeIdOffset, ring.node_id.data(), ring.node_id.size());
  set_code(mgmt::kDone);
}

uint32_t FakeModule::do_switch(const mgmt::RequestText& request, uint32_t code, uint32_t state) {
  const auto found = rings_.find(request.arg[0]);
  if (found == rings_.end()) {
    return mgmt::kNoSuchRing;
  }
  std::array<uint32_t, 24>& words = found->second.words;
  if (words[mgmt::kEnabled] != 1) {
    return mgmt::kDone;
  }
  if (words[mgmt::kPort0Id] != request.arg[1] && words[mgmt::kPort1Id] != request.arg[1]) {
    return mgmt::kNoSuchPort;
  }
  if (words[mgmt::kLocalPriority] >= code) {
    return mgmt::kDone;
  }
  words[mgmt::kLocalPriority] = words[mgmt::kCurrentPriority] = code;
  words[mgmt::kState] = state;
  const bool first = words[mgmt::kPort0Id] == request.arg[1];
  words[mgmt::kPort0State] = first ? 1 : 4;
  words[mgmt::kPort1State] = first ? 4 : 1;
  return mgmt::kDone;
}

void FakeModule::built_in(const Seen& seen) {
  const mgmt::RequestText& request = seen.text;
  const auto found = rings_.find(request.arg[0]);
  const bool known = found != rings_.end();
  switch (request.cmd) {
    case mgmt::kAddRing: {
      FakeRing ring;
      ring.words[mgmt::kRingId] = request.arg[0];
      ring.words[mgmt::kPort0Id] = request.arg[1];
      ring.words[mgmt::kPort1Id] = request.arg[2];
      ring.words[mgmt::kVlanId] = request.arg[3];
      ring.words[mgmt::kNodeRole] = request.arg[4];
      ring.words[mgmt::kRingRoleWord] = request.arg[5];
      ring.words[mgmt::kPort0Link] = ring.words[mgmt::kPort1Link] = 1;
      ring.words[mgmt::kPort0State] = ring.words[mgmt::kPort1State] = 4;
      rings_[request.arg[0]] = ring;
      set_code(mgmt::kDone);
      return;
    }
    case mgmt::kDeleteRing:
      if (known && found->second.words[mgmt::kEnabled] == 1) {
        set_code(mgmt::kRingRunning);
        return;
      }
      rings_.erase(request.arg[0]);
      set_code(known ? mgmt::kDone : mgmt::kNoSuchRing);
      return;
    case mgmt::kSetEnable:
      if (known) {
        found->second.words[mgmt::kEnabled] = request.arg[1] == 1 ? 1 : 0;
        found->second.words[mgmt::kState] = request.arg[1] == 1 ? 1 : 0;
      }
      set_code(known ? mgmt::kDone : mgmt::kNoSuchRing);
      return;
    case mgmt::kGetRing: {
      const uint32_t none = 0;
      memcpy(reply_ + offsetof(mgmt::ReplyText, data_len), &none, sizeof none);
      if (known) {
        set_ring(found->second);
      } else {
        set_code(mgmt::kNoSuchRing);
      }
      return;
    }
    case mgmt::kGetAnyRingEnabled: {
      const uint32_t one = 1;
      memcpy(reply_ + offsetof(mgmt::ReplyText, data_len), &one, sizeof one);
      uint8_t any = 0;
      for (const auto& [id, ring] : rings_) {
        any = ring.words[mgmt::kEnabled] == 1 ? 1 : any;
      }
      reply_[offsetof(mgmt::ReplyText, data)] = any;
      set_code(mgmt::kDone);
      return;
    }
    case mgmt::kSetRingRole:
    case mgmt::kModifyRingRole: {
      const bool free = known && found->second.words[mgmt::kEnabled] != 1;
      if (free) {
        found->second.words[mgmt::kRingRoleWord] = request.arg[1];
      }
      if (request.cmd == mgmt::kSetRingRole) {
        set_code(!known ? mgmt::kNoSuchRing : free ? mgmt::kDone : mgmt::kRingRunningNoChange);
      }
      return;
    }
    case mgmt::kSetRevertiveMode:
      if (known) {
        found->second.words[mgmt::kNonRevertive] = request.arg[1];
      }
      set_code(known ? mgmt::kDone : mgmt::kNoSuchRing);
      return;
    case mgmt::kAttachSubRing:
      if (!known) {
        set_code(mgmt::kNoMajorRing);
        return;
      }
      found->second.words[mgmt::kInterconnectRing] = request.arg[1];
      found->second.words[mgmt::kInterNodeRole] = request.arg[4];
      {
        FakeRing sub;
        sub.words[mgmt::kRingId] = request.arg[1];
        sub.words[mgmt::kPort0Id] = request.arg[2];
        sub.words[mgmt::kPort0State] = 4;
        sub.words[mgmt::kPort0Link] = 1;
        sub.words[mgmt::kNodeRole] = request.arg[3];
        sub.words[mgmt::kRingRoleWord] = 2;
        sub.words[mgmt::kInterconnectRing] = request.arg[0];
        sub.words[mgmt::kPort1Id] = 0xDEADBEEF;  // not written for a sub-ring: whatever was there
        rings_[request.arg[1]] = sub;
      }
      set_code(mgmt::kDone);
      return;
    case mgmt::kSetNodeId:
      if (known) {
        memcpy(found->second.node_id.data(),
               reinterpret_cast<const uint8_t*>(&request) + mgmt::kMacAtArgument1, 6);
      }
      set_code(known ? mgmt::kDone : mgmt::kNoSuchRing);
      return;
    case mgmt::kForcedSwitch:
      set_code(do_switch(request, 13, 4));
      return;
    case mgmt::kManualSwitch:
      set_code(do_switch(request, 7, 3));
      return;
    case mgmt::kClear:
      if (known && (found->second.words[mgmt::kLocalPriority] == 13 ||
                    found->second.words[mgmt::kLocalPriority] == 7)) {
        found->second.words[mgmt::kLocalPriority] = 0;
        found->second.words[mgmt::kCurrentPriority] = 14;
        found->second.words[mgmt::kState] = 5;
      }
      set_code(known ? mgmt::kDone : mgmt::kNoSuchRing);
      return;
    case mgmt::kSetGuardTime:
      guard_ms_ = request.arg[0];
      set_code(mgmt::kDone);
      return;
    case mgmt::kSetWtrTime:
      wtr_ms_ = request.arg[0];
      set_code(mgmt::kDone);
      return;
    case mgmt::kSetHoldoffTime:
      holdoff_ms_ = request.arg[0];
      set_code(mgmt::kDone);
      return;
    case mgmt::kGetGuardTime:
      set_number(guard_ms_);
      return;
    case mgmt::kGetWtrTime:
      set_number(wtr_ms_ / 60000);
      return;
    case mgmt::kGetHoldoffTime:
      set_number(holdoff_ms_);
      return;
    case mgmt::kSetPortState:
    case mgmt::kCaptureRuleAdd:
    case mgmt::kCaptureRuleDelete:
    case mgmt::kDebugSwitch:
      set_code(mgmt::kDone);
      return;
    default:
      reply_[offsetof(mgmt::ReplyText, ret_code)] = mgmt::kUnknownCommand;
  }
}

void FakeModule::answer(mgmt::Command command, Answer answer) {
  const std::lock_guard<std::mutex> lock(mutex_);
  answers_[command] = std::move(answer);
}

void FakeModule::add(uint32_t id, uint32_t port0, uint32_t port1) {
  const std::lock_guard<std::mutex> lock(mutex_);
  FakeRing ring;
  ring.words[mgmt::kRingId] = id;
  ring.words[mgmt::kPort0Id] = port0;
  ring.words[mgmt::kPort1Id] = port1;
  ring.words[mgmt::kPort0State] = ring.words[mgmt::kPort1State] = 4;
  ring.words[mgmt::kPort0Link] = ring.words[mgmt::kPort1Link] = 1;
  ring.words[mgmt::kNodeRole] = 4;
  ring.words[mgmt::kVlanId] = 100;
  ring.words[mgmt::kEnabled] = 1;
  ring.words[mgmt::kState] = 1;
  rings_[id] = ring;
}

void FakeModule::change(uint32_t id, const std::function<void(FakeRing&)>& change) {
  const std::lock_guard<std::mutex> lock(mutex_);
  change(rings_.at(id));
}

std::vector<FakeModule::Seen> FakeModule::seen() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return seen_;
}

std::vector<ERPS_EVENT_MSG_T> FakeModule::events() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return events_;
}

std::optional<FakeRing> FakeModule::ring(uint32_t id) {
  const std::lock_guard<std::mutex> lock(mutex_);
  const auto found = rings_.find(id);
  return found == rings_.end() ? std::nullopt : std::optional<FakeRing>(found->second);
}

uint32_t FakeModule::guard_ms() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return guard_ms_;
}
uint32_t FakeModule::wtr_ms() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return wtr_ms_;
}
uint32_t FakeModule::holdoff_ms() {
  const std::lock_guard<std::mutex> lock(mutex_);
  return holdoff_ms_;
}

size_t FakeModule::messages_on_queue() const {
  msqid_ds state{};
  return msgctl(queue_, IPC_STAT, &state) == 0 ? state.msg_qnum : 0;
}

size_t FakeModule::events_on_door() const {
  mq_attr attributes{};
  return mq_getattr(door_, &attributes) == 0 ? static_cast<size_t>(attributes.mq_curmsgs) : 0;
}

}  // namespace erps::test
