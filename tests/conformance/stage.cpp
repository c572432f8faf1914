#include "tests/conformance/stage.h"

#include <algorithm>
#include <cstring>
#include <map>
#include <sstream>
#include <stdexcept>

#include "erps/mgmt/server.h"
#include "erps/runtime/event_loop.h"
#include "erps/runtime/event_queue.h"
#include "erps/runtime/module.h"
#include "erps/timer/timer_task.h"
#include "tests/conformance/management_queue.h"

namespace erps::test {
namespace {

constexpr uint32_t kFrameHandle = 0x1234;
constexpr size_t kRequestHeader = 8;

std::vector<std::string> words_of(const std::string& text) {
  std::istringstream in(text);
  std::vector<std::string> words;
  for (std::string word; in >> word;) {
    while (!word.empty() && (word.back() == ',' || word.back() == ':')) {
      word.pop_back();
    }
    words.push_back(word);
  }
  return words;
}

uint32_t number(const std::string& text) {
  size_t used = 0;
  const auto value = static_cast<uint32_t>(std::stoll(text, &used, 0));
  if (used != text.size()) {
    throw std::runtime_error("\"" + text + "\" is no number");
  }
  return value;
}

uint32_t link_value(const std::string& text) {
  return text == "up" ? 1 : text == "down" ? 0 : number(text);
}

std::vector<uint8_t> bytes_of_hex(const std::string& text) {
  std::vector<uint8_t> bytes;
  for (size_t i = 0; i + 1 < text.size(); i += 2) {
    bytes.push_back(static_cast<uint8_t>(std::stoul(text.substr(i, 2), nullptr, 16)));
  }
  return bytes;
}

uint32_t node_role(const std::vector<std::string>& words) {
  for (size_t i = 0; i < words.size(); ++i) {
    if (words[i] == "owner") {
      return 1;
    }
    if (words[i] == "neighbour") {
      return 2;
    }
    if (words[i] == "role") {
      return number(words.at(i + 1));
    }
  }
  return 4;
}

uint32_t option(const std::vector<std::string>& words, const std::string& name,
                uint32_t otherwise) {
  const auto found = std::find(words.begin(), words.end(), name);
  return found == words.end() ? otherwise : number(*(found + 1));
}

bool has(const std::vector<std::string>& words, const std::string& word) {
  return std::find(words.begin(), words.end(), word) != words.end();
}

uint8_t request_code(const std::string& name) {
  static const std::map<std::string, uint8_t> kCodes = {
      {"NR", 0}, {"MS", 7}, {"SF", 11}, {"FS", 13}, {"Event", 14}};
  const auto found = kCodes.find(name);
  return found != kCodes.end() ? found->second : static_cast<uint8_t>(number(name));
}

}  // namespace

Stage::Stage(bool traced) : platform_(RecordingPlatform::instance()), traced_(traced) {
  platform_.reset();
  ModuleTest::reset_module();
  ManagementQueue::instance() = {};
  erps_event_queue = platform_.receiver_handle();
  erps_user_msgid = ManagementQueue::kId;
  platform_.set_trace(traced ? 1 : 0);
  platform_.clear_journal();
}

Stage::~Stage() {
  platform_.set_trace(0);
  for (erps_task_desc& task : erps_task_table) {
    task.thread_id = static_cast<uintptr_t>(-1);
  }
  ModuleTest::reset_module();
}

void Stage::perform(const std::string& step) {
  const Words words = words_of(step);
  testing::internal::CaptureStderr();
  bool known = false;
  try {
    known = manage(words) || command_step(words) || environment_step(words);
    if (!known && (words[0] == "frame" || words[0] == "bytes")) {
      frame_step(words, step);
      known = true;
    }
  } catch (const std::out_of_range&) {
    known = false;
  } catch (const std::invalid_argument&) {
    known = false;
  }
  collect();
  std::istringstream errors(testing::internal::GetCapturedStderr());
  for (std::string line; std::getline(errors, line);) {
    const size_t colon = line.find(':');
    const size_t close = line.find(']');
    if (!line.empty() && line[0] == '[' && colon < close && close != std::string::npos) {
      line.erase(colon, close - colon);  // its line number
    }
    effects_.push_back({"stderr " + line, false});
  }
  if (!known) {
    throw std::runtime_error("step not understood: " + step);
  }
  if (!holding_) {
    handle_events();
  }
}

std::vector<Effect> Stage::take_effects() {
  std::vector<Effect> effects;
  effects.swap(effects_);
  return effects;
}

void Stage::collect() {
  std::vector<Call> journal = platform_.journal();
  const std::vector<LogLine> log = platform_.log();
  const std::vector<TraceLine> trace = platform_.trace();
  platform_.clear_journal();

  // The trace gets what the log gets, at most 1023 characters of it.
  bool equal = traced_ ? trace.size() == log.size() : trace.empty();
  for (size_t i = 0; equal && i < trace.size(); ++i) {
    const std::string& place = trace[i].location;
    const size_t brackets = place.find("():");
    equal = trace[i].text == log[i].text.substr(0, 1023) && brackets != std::string::npos &&
            place.find_first_not_of("0123456789", brackets + 3) == std::string::npos &&
            (log[i].text.rfind('[', 0) != 0 ||
             log[i].text.rfind('[' + place.substr(0, brackets) + ':', 0) == 0);
  }
  std::vector<Effect> effects = effects_of(journal, log, &client_);
  effects_.insert(effects_.end(), effects.begin(), effects.end());
  if (!equal) {
    effects_.push_back({"a trace that differs from the log", false});
  }
}

// --- Management.

void Stage::request(uint8_t cmd, const std::vector<uint32_t>& arguments,
                    const std::vector<uint8_t>& tail) {
  std::vector<uint8_t> text(kRequestHeader + arguments.size() * 4, 0xEE);  // what is not read
  text[0] = cmd;
  for (size_t i = 0; i < arguments.size(); ++i) {
    memcpy(&text[kRequestHeader + i * 4], &arguments[i], 4);
  }
  text.insert(text.end(), tail.begin(), tail.end());
  client_.cmd = cmd;
  ManagementQueue::instance().request = text;
  announce();
}

// The event that a client posts once its request is on the queue.
void Stage::announce() {
  collect();
  dispatch(4, static_cast<uintptr_t>(client_.type));
  std::vector<Call> journal = platform_.journal();
  const std::string expected = "msgrcv(7, 1024, " + std::to_string(client_.type) + ", 2048)";
  const auto received = std::count_if(journal.begin(), journal.end(),
                                      [](const Call& call) { return call.name == "msgrcv"; });
  const bool right = received == 1 && journal.front().text() == expected;
  collect();
  if (right) {
    const auto call = std::find_if(effects_.begin(), effects_.end(),
                                   [&](const Effect& effect) { return effect.text == expected; });
    effects_.erase(call);
  }
}

bool Stage::manage(const Words& words) {
  const std::string& verb = words.at(0);
  if (verb == "ring" && words.at(2) == "ports") {
    request(2, {number(words[1]), number(words.at(3)), number(words.at(4)),
                option(words, "vlan", 100), node_role(words), option(words, "ring-role", 0)});
  } else if (verb == "sub-ring") {
    const uint32_t inter = has(words, "watching") ? 1 : option(words, "inter", 0);
    request(30, {number(words.at(3)), number(words.at(1)), option(words, "port", 0),
                 node_role(words), inter});
  } else if (verb == "enable" || verb == "disable") {
    request(0, {number(words.at(1)), verb == "enable" ? 1U : 0U});
  } else if (verb == "delete") {
    request(5, {number(words.at(1))});
  } else if (verb == "read") {
    request(3, {number(words.at(1))});
  } else if (verb == "revertive" || verb == "non-revertive") {
    request(9, {number(words.at(1)), verb == "revertive" ? 0U : 1U});
  } else if (verb == "clear") {
    request(25, {number(words.at(1))});
  } else if (verb == "fs" || verb == "ms") {
    request(verb == "fs" ? 23 : 21, {number(words.at(1)), number(words.at(3))});
  } else if (verb == "guard") {
    request(13, {number(words.at(1))});
  } else if (verb == "wtr") {
    request(15, {number(words.at(1))});
  } else if (verb == "holdoff") {
    request(19, {number(words.at(1))});
  } else if (verb == "port" && words.at(2) == "state") {
    request(33, {number(words.at(1)), number(words.at(3))});
  } else if (verb == "node") {
    const MacAddress mac = node_by_name(words.at(2));
    request(32, {number(words.at(1))}, {mac.begin(), mac.end()});
  } else if (verb == "rule") {
    const MacAddress mac = node_by_name(words.at(1));
    request(34, {}, {mac.begin(), mac.end()});
  } else if (verb == "remove" && words.at(1) == "rule") {
    request(35, {});
  } else {
    return false;
  }
  return true;
}

bool Stage::command_step(const Words& words) {
  const std::string& verb = words.at(0);
  if (verb == "command") {
    std::vector<uint32_t> arguments;
    for (size_t i = 2; i < words.size(); ++i) {
      arguments.push_back(number(words[i]));
    }
    request(static_cast<uint8_t>(number(words.at(1))), arguments);
  } else if (verb == "request") {
    std::vector<uint8_t> text(number(words.at(3)), 0);
    text.at(0) = static_cast<uint8_t>(number(words.at(1)));
    client_.cmd = text[0];
    ManagementQueue::instance().request = text;
    announce();
  } else if (verb == "client" && words.at(1) == "type") {
    client_.type = static_cast<long>(std::stoll(words.at(2), nullptr, 0));
    client_.names_type = true;
  } else if (verb == "no" && words.at(1) == "request") {
    ManagementQueue::instance().request.reset();
    announce();
  } else if (verb == "start") {
    erps_module_start();
  } else if (verb == "stop") {
    erps_module_stop();
  } else if (verb == "exit") {
    erps_exit();
  } else if (verb == "init") {
    erps_module_init();
    erps_event_queue = platform_.receiver_handle();
  } else {
    return false;
  }
  return true;
}

// --- Everything else from outside.

void Stage::dispatch(uintptr_t type, uintptr_t payload) {
  ERPS_EVENT_MSG_T event{};
  event.event_class = 3;
  event.type = type;
  event.payload = payload;
  erps_dispatch_event(&event);
}

void Stage::handle_events() {
  for (int round = 0; round < 100; ++round) {
    const std::vector<ERPS_EVENT_MSG_T> events = platform_.take_events();
    if (events.empty()) {
      return;
    }
    for (const ERPS_EVENT_MSG_T& event : events) {
      erps_dispatch_event(&event);
      collect();
    }
  }
  throw std::runtime_error("events without end");
}

bool Stage::environment_step(const Words& words) {
  const std::string& verb = words.at(0);
  if (verb == "link") {
    link(number(words.at(1)), link_value(words.at(2)));
  } else if (verb == "physical") {
    platform_.set_link(number(words.at(1)), link_value(words.at(2)));
  } else if (verb == "event") {
    dispatch(number(words.at(1)), 0);
  } else if (verb == "wait") {
    wait(words.at(1));
  } else if (verb == "hold" && words.at(1) == "events") {
    holding_ = true;
  } else if (verb == "handle" && words.at(1) == "events") {
    holding_ = false;
  } else if (verb == "broken" || verb == "mended") {
    set_broken(words, verb == "broken");
  } else if (verb == "switch" && words.at(1) == "says") {
    platform_.set_port_state_answer(number(words.at(2)), number(words.at(4)));
  } else if (verb == "nic" && words.at(1) == "is") {
    platform_.set_nic_address(node_by_name(words.at(2)));
  } else {
    return false;
  }
  return true;
}

void Stage::link(uint32_t port, uint32_t value) {
  platform_.set_link(port, value);
  uint8_t record[8] = {};
  const auto interface = static_cast<uint16_t>(port);
  const auto state = static_cast<uint16_t>(value);
  memcpy(record + 4, &interface, sizeof interface);
  memcpy(record + 6, &state, sizeof state);
  dispatch(1, reinterpret_cast<uintptr_t>(record));
}

void Stage::frame_step(const Words& words, const std::string& step) {
  const uint32_t port = number(words.at(2));
  if (words[0] == "bytes") {
    deliver(port, bytes_of_hex(words.at(3)));
    return;
  }
  FrameSpec frame;
  frame.request = request_code(words.at(3));
  frame.ring_id = static_cast<uint8_t>(option(words, "ring", 1));
  frame.vlan = has(words, "untagged") ? 0 : static_cast<uint16_t>(option(words, "vlan", 100));
  frame.sub_code = static_cast<uint8_t>(option(words, "sub", 0));
  frame.rb = has(words, "RB");
  frame.dnf = has(words, "DNF");
  frame.bpr = has(words, "BPR");
  frame.node_id = kRemoteNode;
  for (size_t i = 4; i + 1 < words.size(); ++i) {
    if (words[i] == "by") {
      frame.node_id = node_by_name(words[i + 1]);
    }
  }
  frame.source = frame.node_id;
  for (size_t i = 4; i + 1 < words.size(); ++i) {
    if (words[i] == "source") {
      frame.source = node_by_name(words[i + 1]);
    }
  }
  if (words[1] != "on") {
    throw std::runtime_error("step not understood: " + step);
  }
  deliver(port, frame.bytes());
}

// A packet event: the frame is fetched first and the buffer released last, whatever comes between.
void Stage::deliver(uint32_t port, const std::vector<uint8_t>& bytes) {
  collect();
  platform_.set_received_frame(bytes, 0, port);
  uint8_t packet[16] = {};
  const uint32_t handle = kFrameHandle;
  const auto length = static_cast<uint16_t>(bytes.size());
  memcpy(packet + 8, &handle, sizeof handle);
  memcpy(packet + 14, &length, sizeof length);
  dispatch(2, reinterpret_cast<uintptr_t>(packet));

  const size_t before = effects_.size();
  collect();
  const std::string fetched = "adp_receive_frame(4660, " + std::to_string(length) + ")";
  if (effects_.size() >= before + 2 && effects_[before].text == fetched &&
      effects_.back().text == "skpack_release(packet)") {
    effects_.pop_back();
    effects_.erase(effects_.begin() + static_cast<std::ptrdiff_t>(before));
  }
}

void Stage::wait(const std::string& time) {
  const bool seconds = time.find("ms") == std::string::npos;
  uint64_t left_ms = number(time.substr(0, time.find_first_not_of("0123456789")));
  left_ms *= seconds ? 1000 : 1;
  while (left_ms > 0) {
    const uint64_t step_ms = std::min<uint64_t>(left_ms, 1000);
    platform_.advance_ms(step_ms);
    left_ms -= step_ms;
    erps_timer_walk();
    collect();
    if (!holding_) {
      handle_events();
    }
  }
}

void Stage::set_broken(const Words& words, bool broken) {
  const std::string& what = words.at(1);
  const int result = broken ? -1 : 0;
  if (what == "state") {
    platform_.set_port_state_result(number(words.at(2)), result);
  } else if (what == "ask") {
    platform_.set_port_state_read_result(number(words.at(2)), result);
  } else if (what == "flush") {
    platform_.set_flush_result(result);
  } else if (what == "transmit") {
    platform_.set_transmit_result(result);
  } else if (what == "link") {
    platform_.set_link_result(number(words.at(2)), result);
  } else if (what == "nic") {
    platform_.set_nic_result(result);
  } else if (what == "reception") {
    platform_.set_receive_result(result);
  } else if (what == "queue") {
    platform_.set_send_result(broken ? 0 : 1);
  } else if (what == "reply") {
    ManagementQueue::instance().send_fails = broken;
  } else if (what == "capture") {
    platform_.set_rule_results(result, result, result, result);
  } else if (what == "memory") {
    platform_.fail_allocation(broken ? static_cast<int>(number(words.at(2))) : 0);
  } else if (what == "task") {
    platform_.set_task_start_result(words.at(2), result);
  } else {
    throw std::out_of_range(what);
  }
}

}  // namespace erps::test
