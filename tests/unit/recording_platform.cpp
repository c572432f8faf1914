#include "tests/unit/recording_platform.h"

#include <algorithm>
#include <cstring>
#include <ctime>

#include "tests/unit/recording_platform_internal.h"

namespace erps::test {

RecordingPlatform& RecordingPlatform::instance() {
  static RecordingPlatform platform;
  return platform;
}

RecordingPlatform::RecordingPlatform() {
  pthread_mutex_init(&mutex_, nullptr);
  pthread_condattr_t attributes;
  pthread_condattr_init(&attributes);
  pthread_condattr_setclock(&attributes, CLOCK_MONOTONIC);
  pthread_cond_init(&changed_, &attributes);
  pthread_condattr_destroy(&attributes);
}

void RecordingPlatform::reset() {
  const Guard guard(mutex_);
  settings_ = Settings();
  free_running_ = false;
  now_us_ = kStartUs;
  trace_switch_ = 0;
  failing_allocation_ = 0;
  journal_.clear();
  log_.clear();
  trace_.clear();
  sent_.clear();
  events_.clear();
}

// --- What happened.

std::vector<Call> RecordingPlatform::journal() const {
  const Guard guard(mutex_);
  return journal_;
}

std::vector<std::string> RecordingPlatform::calls() const {
  static const std::set<std::string> kListening = {"Log_logging_func", "sys_trace_add_log"};
  std::vector<std::string> result;
  for (const Call& call : journal()) {
    if (kListening.count(call.name) == 0) {
      result.push_back(call.text());
    }
  }
  return result;
}

std::vector<std::string> RecordingPlatform::calls(const std::set<std::string>& names) const {
  std::vector<std::string> result;
  for (const Call& call : journal()) {
    if (names.count(call.name) != 0) {
      result.push_back(call.text());
    }
  }
  return result;
}

std::vector<LogLine> RecordingPlatform::log() const {
  const Guard guard(mutex_);
  return log_;
}

std::vector<TraceLine> RecordingPlatform::trace() const {
  const Guard guard(mutex_);
  return trace_;
}

std::vector<SentFrame> RecordingPlatform::sent_frames() const {
  const Guard guard(mutex_);
  return sent_;
}

void RecordingPlatform::clear_journal() {
  const Guard guard(mutex_);
  journal_.clear();
  log_.clear();
  trace_.clear();
  sent_.clear();
}

void RecordingPlatform::run_free(bool free) {
  free_running_ = free;
}

void RecordingPlatform::on_call(const std::string& name, std::function<void()> action) {
  const Guard guard(mutex_);
  settings_.hooks[name] = std::move(action);
}

void RecordingPlatform::forget_actions() {
  const Guard guard(mutex_);
  settings_.hooks.clear();
}

void RecordingPlatform::record(const char* name, std::string arguments,
                               std::vector<uint8_t> bytes) {
  if (free_running()) {
    return;
  }
  std::function<void()> hook;
  {
    const Guard guard(mutex_);
    journal_.push_back({name, std::move(arguments), std::move(bytes)});
    if (!settings_.hooks.empty()) {
      hook = value_or(settings_.hooks, std::string(name), std::function<void()>());
    }
  }
  if (hook) {
    hook();
  }
}

void RecordingPlatform::record_log(int level, int facility, const char* label, std::string text) {
  if (free_running()) {
    return;
  }
  const Guard guard(mutex_);
  journal_.push_back({"Log_logging_func", text, {}});
  log_.push_back({level, facility, label, std::move(text)});
}

void RecordingPlatform::record_trace(const char* location, const char* text) {
  if (free_running()) {
    return;
  }
  const Guard guard(mutex_);
  journal_.push_back({"sys_trace_add_log", text, {}});
  trace_.push_back({location, text});
}

// --- The switch.

void RecordingPlatform::set_port_state_result(uint32_t port, int result) {
  const Guard guard(mutex_);
  settings_.port_state_results[port] = result;
}

void RecordingPlatform::set_port_state_read_result(uint32_t port, int result) {
  const Guard guard(mutex_);
  settings_.port_state_read_results[port] = result;
}

void RecordingPlatform::set_port_state_answer(uint32_t port, uint32_t state) {
  const Guard guard(mutex_);
  settings_.port_state_answers[port] = state;
}

int RecordingPlatform::port_state_set(uint32_t port, uint32_t state) {
  if (free_running()) {
    return 0;
  }
  const Guard guard(mutex_);
  const int result = value_or(settings_.port_state_results, port, 0);
  if (result == 0) {
    settings_.port_states[port] = state;
  }
  return result;
}

int RecordingPlatform::port_state_get(uint32_t port, uint32_t* state) {
  if (free_running()) {
    *state = 1;  // whatever the module asks about, it believes to be blocked
    return 0;
  }
  const Guard guard(mutex_);
  const int result = value_or(settings_.port_state_read_results, port, 0);
  if (result == 0) {
    const uint32_t last_set = value_or(settings_.port_states, port, 4U);
    *state = value_or(settings_.port_state_answers, port, last_set);
  }
  return result;
}

void RecordingPlatform::set_flush_result(int result) {
  const Guard guard(mutex_);
  settings_.flush_result = result;
}

int RecordingPlatform::flush_result() const {
  if (free_running()) {
    return 0;
  }
  const Guard guard(mutex_);
  return settings_.flush_result;
}

void RecordingPlatform::set_transmit_result(int result) {
  const Guard guard(mutex_);
  settings_.transmit_result = result;
}

int RecordingPlatform::transmit(const SentFrame& frame) {
  if (free_running()) {
    return 0;
  }
  const Guard guard(mutex_);
  sent_.push_back(frame);
  return settings_.transmit_result;
}

void RecordingPlatform::set_link(uint32_t port, uint32_t value) {
  const Guard guard(mutex_);
  settings_.links[port] = value;
}

void RecordingPlatform::set_link_result(uint32_t port, int result) {
  const Guard guard(mutex_);
  settings_.link_results[port] = result;
}

int RecordingPlatform::link_get(uint32_t port, uint32_t* value) {
  if (free_running()) {
    *value = 1;
    return 0;
  }
  const Guard guard(mutex_);
  const int result = value_or(settings_.link_results, port, 0);
  if (result == 0) {
    *value = value_or(settings_.links, port, 1U);
  }
  return result;
}

void RecordingPlatform::set_nic_address(const MacAddress& mac) {
  const Guard guard(mutex_);
  settings_.nic = mac;
}

void RecordingPlatform::set_nic_result(int result) {
  const Guard guard(mutex_);
  settings_.nic_result = result;
}

int RecordingPlatform::nic_get(uint8_t* mac) const {
  if (free_running()) {
    static constexpr MacAddress kMac = {0x00, 0x11, 0x22, 0x33, 0x44, 0x55};
    memcpy(mac, kMac.data(), kMac.size());
    return 0;
  }
  const Guard guard(mutex_);
  if (settings_.nic_result == 0) {
    memcpy(mac, settings_.nic.data(), settings_.nic.size());
  }
  return settings_.nic_result;
}

void RecordingPlatform::set_rule_results(int action, int qualifier, int add, int remove) {
  const Guard guard(mutex_);
  settings_.rule_results = {action, qualifier, add, remove};
}

int RecordingPlatform::rule_result(int which) const {
  if (free_running()) {
    return 0;
  }
  const Guard guard(mutex_);
  return settings_.rule_results.at(static_cast<size_t>(which));
}

void RecordingPlatform::set_received_frame(std::vector<uint8_t> frame, uint16_t vlan,
                                           uint32_t port) {
  const Guard guard(mutex_);
  settings_.received_frame = std::move(frame);
  settings_.received_vlan = vlan;
  settings_.received_port = port;
}

void RecordingPlatform::set_receive_result(int result) {
  const Guard guard(mutex_);
  settings_.receive_result = result;
}

int RecordingPlatform::receive(uint8_t* frame, uint16_t capacity, uint16_t* length, uint16_t* vlan,
                               uint32_t* port) {
  const Guard guard(mutex_);
  if (settings_.receive_result != 0) {
    return settings_.receive_result;
  }
  const size_t size = std::min<size_t>(settings_.received_frame.size(), capacity);
  if (size != 0) {
    memcpy(frame, settings_.received_frame.data(), size);
  }
  *length = static_cast<uint16_t>(size);
  *vlan = settings_.received_vlan;
  *port = settings_.received_port;
  return 0;
}

void RecordingPlatform::set_trace(int value) {
  trace_switch_ = value;
}

int RecordingPlatform::trace_switch() const {
  return trace_switch_.load(std::memory_order_relaxed);
}

// --- Memory and System V queue calls.

void RecordingPlatform::fail_allocation(int nth) {
  failing_allocation_ = nth;
}

bool RecordingPlatform::allocation_fails() {
  if (failing_allocation_.load(std::memory_order_relaxed) == 0) {
    return false;
  }
  return failing_allocation_.fetch_sub(1, std::memory_order_relaxed) == 1;
}

void RecordingPlatform::fail_msgget(bool fail) {
  const Guard guard(mutex_);
  settings_.msgget_fails = fail;
}

bool RecordingPlatform::msgget_fails() const {
  const Guard guard(mutex_);
  return settings_.msgget_fails;
}

void RecordingPlatform::set_mq_unlink_result(int result) {
  const Guard guard(mutex_);
  settings_.mq_unlink_result = result;
}

int RecordingPlatform::mq_unlink_result() const {
  const Guard guard(mutex_);
  return settings_.mq_unlink_result;
}

}  // namespace erps::test
