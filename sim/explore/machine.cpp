#include "sim/explore/machine.h"

#include <algorithm>
#include <cstring>
#include <utility>

#include "sim/module_variables.h"
#include "sim/sim_error.h"

namespace erps::sim::explore {

namespace {

constexpr int64_t kSecond = 1'000'000;
// Ticks come in the middle of the clock's seconds.
constexpr int64_t kTickUs = 1'700'000'000 * kSecond + kSecond / 2;
constexpr int64_t kBesideTickUs = 1000;

constexpr uintptr_t kEventClass = 3;
constexpr uintptr_t kLinkChange = 1;
constexpr uintptr_t kPacket = 2;
constexpr long kMessageType = 1;

Machine* the_machine = nullptr;

}  // namespace

Machine& Machine::running() {
  return *the_machine;
}

int64_t Machine::clock_us(Half half) {
  return half == Half::kFirst ? kTickUs + kBesideTickUs : kTickUs + kSecond - kBesideTickUs;
}

Machine::Machine(const std::string& module_path, const std::vector<NodePlan>& plans)
    : plans_(plans),
      module_(module_path, machine_import),
      addresses_(RecordAddresses::of(module_)),
      platform_(std::make_unique<Platform>()) {
  if (the_machine != nullptr) {
    throw SimError("two explorations at a time in one process");
  }
  const ModuleVariables variables = variables_at(module_.load_address());
  variables_ = variables.words;
  variable_words_ = variables.count;
  initial_variables_.assign(variables_, variables_ + variable_words_);
  static_assert(sizeof(Platform) % sizeof(uint64_t) == 0);
  static_assert(offsetof(Packet, handle) == 8 && offsetof(Packet, length) == 14);
  the_machine = this;
}

Machine::~Machine() {
  // Its destructors run over the memory that it was loaded with.
  std::copy(initial_variables_.begin(), initial_variables_.end(), variables_);
  the_machine = nullptr;
}

void Machine::save(Image& image) const {
  constexpr size_t kPlatformWords = sizeof(Platform) / sizeof(uint64_t);
  image.resize(variable_words_ + kPlatformWords);
  std::memcpy(image.data(), variables_, variable_words_ * sizeof(uint64_t));
  std::memcpy(image.data() + variable_words_, platform_.get(), sizeof(Platform));
}

void Machine::load(const Image& image) {
  std::memcpy(variables_, image.data(), variable_words_ * sizeof(uint64_t));
  std::memcpy(static_cast<void*>(platform_.get()), image.data() + variable_words_,
              sizeof(Platform));
}

Outcome Machine::boot(NodeIndex node, uint32_t carriers) {
  std::memcpy(variables_, initial_variables_.data(), variable_words_ * sizeof(uint64_t));
  std::memset(static_cast<void*>(platform_.get()), 0, sizeof(Platform));
  platform_->memory.clear();
  platform_->node = node;
  platform_->carriers = carriers;
  now_us_ = clock_us(Half::kFirst);
  started_ = 0;
  if (module_.init() != 0 || module_.start() != 0) {
    violate("the module does not start");
    return finish(0);
  }
  configure();
  return finish(0);
}

void Machine::configure() {
  std::vector<SentFrame> sent;
  std::string violation;
  for (const Request& request : configuration_of(plan())) {
    bool refused = false;
    Outcome outcome = command(request, Half::kFirst, refused);
    std::move(outcome.sent.begin(), outcome.sent.end(), std::back_inserter(sent));
    violation = violation.empty() ? outcome.violation : violation;
    if (refused) {
      throw SimError(plan().name + " does not accept its configuration");
    }
  }
  outcome_.sent = std::move(sent);
  outcome_.violation = violation;
}

Outcome Machine::handle(const ERPS_EVENT_MSG_T& event, Half half) {
  event_ = event;
  now_us_ = clock_us(half);
  tasks_[0].resume();
  if (tasks_[0].ended()) {
    violate("the protocol task ends by itself");
  }
  return finish(0);
}

Outcome Machine::finish(uint32_t seconds) {
  if (packet_given_) {
    violate("a packet buffer is not given back before the next event");
    packet_given_ = false;
  }
  if (platform_->locked != 0) {
    violate("a task waits with a lock held");
  }
  if (!platform_->memory.free_memory_is_untouched()) {
    violate("the module writes to memory that it has released");
  }
  settle_times(addresses_, seconds, platform_->waiting != 0);
  return std::exchange(outcome_, {});
}

Outcome Machine::frame(uint32_t port, const std::vector<uint8_t>& bytes, Half half) {
  packet_.port = port;
  packet_.length = static_cast<uint16_t>(bytes.size());
  packet_.bytes = &bytes;
  packet_given_ = true;
  return handle({kEventClass, 0, kPacket, {}, reinterpret_cast<uintptr_t>(&packet_)}, half);
}

Outcome Machine::carrier(uint32_t port, bool up, Half half) {
  platform_->carriers = up ? platform_->carriers | 1U << port : platform_->carriers & ~(1U << port);
  link_.interface = static_cast<uint16_t>(port);
  link_.state = up ? 1 : 0;
  return handle({kEventClass, 0, kLinkChange, {}, reinterpret_cast<uintptr_t>(&link_)}, half);
}

Outcome Machine::own_event(Half half) {
  const ERPS_EVENT_MSG_T event = platform_->own[0];
  auto& own = platform_->own;
  std::copy(own.begin() + 1, own.begin() + platform_->waiting, own.begin());
  own[--platform_->waiting] = {};
  return handle(event, half);
}

Outcome Machine::tick() {
  now_us_ = kTickUs + kSecond;
  tasks_[1].resume();
  if (tasks_[1].ended()) {
    violate("the timer task ends by itself");
  }
  return finish(1);
}

Outcome Machine::command(const Request& request, Half half, bool& refused) {
  request_ = request;
  answered_ = false;
  Outcome outcome = handle(
      {kEventClass, 1, mgmt::kEventTypeConf, {}, static_cast<uintptr_t>(kMessageType)}, half);
  refused = !answered_ || ret_code_ != 0;
  return outcome;
}

void Machine::answer(const uint8_t* text, size_t length) {
  mgmt::ReplyText reply{};
  std::memcpy(&reply, text, std::min(length, sizeof reply));
  ret_code_ = reply.ret_code;
  answered_ = true;
}

void Machine::packet_back() {
  if (!packet_given_) {
    violate("a packet buffer is given back twice, or was never given out");
  }
  packet_given_ = false;
}

int Machine::start_task(erps_task_desc& description) {
  if (started_ == tasks_.size() ||
      (description.init != nullptr && description.init(&description) < 0)) {
    return -1;
  }
  RestingTask& task = tasks_[started_++];
  description.thread_id = started_;
  task.start(
      [](void* argument) {
        auto& started = *static_cast<erps_task_desc*>(argument);
        started.entry(&started);
      },
      &description);
  return task.ended() ? -1 : 0;
}

int Machine::next_event(ERPS_EVENT_MSG_T& event) {
  tasks_[0].rest();
  event = event_;
  return 0;
}

void Machine::sleep() {
  tasks_[1].rest();
}

void Machine::send(uint32_t port, const uint8_t* bytes, size_t length) {
  outcome_.sent.push_back({port, {bytes, bytes + length}});
}

void Machine::violate(const std::string& text) {
  if (outcome_.violation.empty()) {
    outcome_.violation = text;
  }
}

}  // namespace erps::sim::explore
