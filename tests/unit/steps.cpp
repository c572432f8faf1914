#include "tests/unit/steps.h"

#include <utility>

namespace erps::test {
namespace {

// Timers make no platform call; their log lines tell where in the order they were touched.
constexpr std::pair<const char*, const char*> kLoggedSteps[] = {
    {"[erps_start_guard_timer:", "start guard"},
    {"[erps_stop_guard_timer:", "stop guard"},
    {"[erps_start_WTR_timer:", "start WTR"},
    {"[erps_start_holdoff_timer:", "start hold-off"},
    {"[erps_stop_holdoff_timer:", "stop hold-off"},
    {"[erps_pkt_send_timer:", "repeat"},
};

// Lines "[function:line]text" whose text matters.
struct LoggedRequest {
  const char* function;
  const char* text;
  const char* step;
};
constexpr LoggedRequest kLoggedRequests[] = {
    {"[erps_priority_logic:", "]enter msg = 3 ", "start WTB"},
    {"[stop_delay_timer_priority_logic:", "]msg = 5 ", "stop WTR"},
    {"[stop_delay_timer_priority_logic:", "]msg = 3 ", "stop WTB"},
};

std::string without_newline(std::string text) {
  while (!text.empty() && (text.back() == '\n' || text.back() == ' ')) {
    text.pop_back();
  }
  return text;
}

std::string logged_step(const std::string& text) {
  for (const auto& [prefix, step] : kLoggedSteps) {
    if (text.starts_with(prefix)) {
      return step;
    }
  }
  for (const LoggedRequest& request : kLoggedRequests) {
    if (text.starts_with(request.function) && text.find(request.text) != std::string::npos) {
      return request.step;
    }
  }
  static const std::string kNewState = "enter new_state = ";
  const size_t state = text.find(kNewState);
  if (text.starts_with("[ERPS_hop_2_state:") && state != std::string::npos) {
    return "-> " + without_newline(text.substr(state + kNewState.size()));
  }
  return "";
}

std::string call_step(const Call& call) {
  const std::vector<std::string> arguments = split(call.arguments, ", ");
  if (call.name == "adp_set_port_erps_state") {
    const std::string& state = arguments.at(1);
    const std::string verb = state == "4" ? "unblock" : state == "1" ? "block" : "state " + state;
    return verb + " " + arguments.at(0);
  }
  if (call.name == "adp_del_mac_addr_by_intf") {
    return "flush " + arguments.at(0) + (arguments.at(1) == "2" ? "" : " kind " + arguments.at(1));
  }
  if (call.name == "adp_transmit_frame") {
    return message_text(call.bytes) + " > " + arguments.at(2);
  }
  if (call.name == "equeue_send_ucast") {
    return "post " + arguments.at(1).substr(std::string("type ").size());
  }
  return "";
}

std::string request_text(uint8_t request) {
  switch (request) {
    case kNr:
      return "NR";
    case kMs:
      return "MS";
    case kSf:
      return "SF";
    case kFs:
      return "FS";
    case kEvent:
      return "Event";
    default:
      return "request " + std::to_string(request);
  }
}

}  // namespace

std::string join(const std::vector<std::string>& parts, const std::string& separator) {
  std::string text;
  for (const std::string& part : parts) {
    text += (text.empty() ? "" : separator) + part;
  }
  return text;
}

std::vector<std::string> split(const std::string& text, const std::string& separator) {
  std::vector<std::string> parts;
  size_t begin = 0;
  while (begin < text.size()) {
    const size_t end = std::min(text.find(separator, begin), text.size());
    if (end > begin) {
      parts.push_back(text.substr(begin, end - begin));
    }
    begin = end + separator.size();
  }
  return parts;
}

std::string message_text(const std::vector<uint8_t>& frame) {
  const bool tagged = frame.size() > 13 && frame[12] == 0x81 && frame[13] == 0x00;
  const size_t pdu = tagged ? 18 : 14;
  if (frame.size() < pdu + 6) {
    return "short frame";
  }
  const uint8_t request = frame[pdu + 4];
  const uint8_t status = frame[pdu + 5];
  return request_text(static_cast<uint8_t>(request >> 4)) + ((status & 0x80) != 0 ? ",RB" : "") +
         ((status & 0x40) != 0 ? ",DNF" : "") + ((status & 0x20) != 0 ? ",BPR" : "") +
         ((request & 0x0F) == 0x0A ? ",marked" : "");
}

std::string steps_of(const RecordingPlatform& platform) {
  std::vector<std::string> steps;
  size_t line = 0;
  const std::vector<LogLine> log = platform.log();
  for (const Call& call : platform.journal()) {
    std::string step;
    if (call.name == "Log_logging_func") {
      const bool error = log.at(line++).level == 3;
      step = error ? "error: " + without_newline(call.arguments) : logged_step(call.arguments);
    } else {
      step = call_step(call);
    }
    if (!step.empty()) {
      steps.push_back(step);
    }
  }
  return join(steps, "; ");
}

}  // namespace erps::test
