#include "tests/conformance/effects.h"

#include <algorithm>
#include <array>
#include <cstdio>
#include <cstring>
#include <stdexcept>

#include "tests/unit/fixture.h"
#include "tests/unit/steps.h"

namespace erps::test {
namespace {

constexpr uint32_t kIpcNoWait = 2048;
constexpr size_t kReplyOverhead = 12;
constexpr size_t kReplyHeader = 9;
constexpr uint32_t kConfWords = 22;
constexpr uint32_t kConfBytes = 96;

struct NamedNode {
  const char* name;
  MacAddress mac;
};
constexpr std::array<NamedNode, 3> kNodes = {{
    {"own", kLocalNode},
    {"low", {0x00, 0x01, 0xFF, 0xFF, 0xFF, 0xFF}},
    {"high", {0x00, 0xAA, 0x00, 0x00, 0x00, 0x07}},
}};

std::string node_name(const MacAddress& mac) {
  for (const NamedNode& node : kNodes) {
    if (node.mac == mac) {
      return node.name;
    }
  }
  return hex_of(mac.data(), mac.size());
}

MacAddress mac_at(const std::vector<uint8_t>& bytes, size_t offset) {
  MacAddress mac{};
  std::copy_n(bytes.begin() + static_cast<std::ptrdiff_t>(offset), mac.size(), mac.begin());
  return mac;
}

// In one line, whatever is in it.
std::string visible(const std::string& text) {
  std::string out;
  for (const char c : text) {
    if (c == '\n') {
      out += "\\n";
    } else if (c == '\r') {
      out += "\\r";
    } else if (c == '\t') {
      out += "\\t";
    } else {
      out += c;
    }
  }
  return out;
}

// "[function:line]text" without the line number.
std::string without_line_number(const std::string& text) {
  const size_t colon = text.find(':');
  const size_t close = text.find(']');
  if (text.empty() || text[0] != '[' || colon == std::string::npos || close == std::string::npos ||
      close <= colon + 1 || text.find_first_not_of("0123456789", colon + 1) != close) {
    return text;
  }
  return text.substr(0, colon) + "] " + text.substr(close + 1);
}

Effect log_effect(const LogLine& line) {
  const std::string text = visible(without_line_number(line.text));
  if (line.facility == 7 && line.label == "Task entry" && line.level == 7) {
    return {"task " + text, true};
  }
  if (line.facility == 30 && line.label == "erps") {
    switch (line.level) {
      case 3:
        return {"error " + text, false};
      case 5:
        return {"notice " + text, false};
      case 7:
        return {"log " + text, true};
      default:
        break;
    }
  }
  return {"log of level " + std::to_string(line.level) + ", facility " +
              std::to_string(line.facility) + ", label " + line.label + ": " + text,
          false};
}

std::string request_name(uint8_t request) {
  switch (request) {
    case 0:
      return "NR";
    case 7:
      return "MS";
    case 11:
      return "SF";
    case 13:
      return "FS";
    case 14:
      return "Event";
    default:
      return "request " + std::to_string(request);
  }
}

// The message in words, if the frame is exactly the one that these words stand for.
std::string message_words(const std::vector<uint8_t>& frame) {
  const bool tagged = frame.size() == 55 && frame[12] == 0x81;
  const size_t pdu = tagged ? 18 : 14;
  if (frame.size() != pdu + 37) {
    return "";
  }
  FrameSpec spec;
  spec.ring_id = frame[5];
  spec.vlan = 0;
  if (tagged) {
    spec.vlan = static_cast<uint16_t>((frame[14] & 0x1F) << 8 | frame[15]);
  }
  spec.source = mac_at(frame, 6);
  spec.request = static_cast<uint8_t>(frame[pdu + 4] >> 4);
  spec.sub_code = frame[pdu + 4] & 0x0F;
  spec.rb = (frame[pdu + 5] & 0x80) != 0;
  spec.dnf = (frame[pdu + 5] & 0x40) != 0;
  spec.bpr = (frame[pdu + 5] & 0x20) != 0;
  spec.node_id = mac_at(frame, pdu + 6);
  if (spec.bytes() != frame) {
    return "";
  }
  std::string words = request_name(spec.request);
  words += spec.rb ? " RB" : "";
  words += spec.dnf ? " DNF" : "";
  words += spec.bpr ? " BPR" : "";
  words += spec.sub_code != 0 ? " sub " + std::to_string(spec.sub_code) : "";
  words += spec.ring_id != 1 ? " ring " + std::to_string(spec.ring_id) : "";
  if (spec.vlan != 100) {
    words += spec.vlan == 0 ? " untagged" : " vlan " + std::to_string(spec.vlan);
  }
  words += spec.node_id != kLocalNode ? " by " + node_name(spec.node_id) : "";
  words += spec.source != spec.node_id ? " source " + node_name(spec.source) : "";
  return words;
}

std::string posted(const Call& call) {
  ERPS_EVENT_MSG_T event{};
  if (call.bytes.size() < sizeof event) {
    return call.text();
  }
  memcpy(&event, call.bytes.data(), sizeof event);
  const uint8_t* behind = call.bytes.data() + sizeof event;
  const std::string expected = "receiver, type " + std::to_string(event.type) + ", -1";
  if (event.event_class != 3 || event.sender != pthread_self() || call.arguments != expected) {
    return call.text() + " with a wrong head";
  }
  if (event.type == 3) {
    return "post expiry of " + std::string(reinterpret_cast<const char*>(behind));
  }
  uint32_t words[4] = {};
  memcpy(words, behind, sizeof words);
  const std::string ring = " to ring " + std::to_string(words[2]);
  if (event.type == 7) {
    return (words[3] == 0 ? "post topology" : "post topology with a value") + ring;
  }
  if (event.type == 10 && words[3] == 1) {
    return "post cut" + ring;
  }
  if (event.type == 10 && words[3] == 2) {
    return "post whole" + ring;
  }
  return "post " + std::to_string(event.type) + ring;
}

uint32_t number_at(const uint8_t* bytes) {
  return uint32_t{bytes[0]} << 24 | uint32_t{bytes[1]} << 16 | uint32_t{bytes[2]} << 8 | bytes[3];
}

std::string reply_data(const uint8_t* data, uint32_t length) {
  if (length != kConfBytes) {
    return length == 0 ? "" : " data " + hex_of(data, length);
  }
  std::string text = " conf";
  for (uint32_t word = 0; word < kConfWords; ++word) {
    text += " " + std::to_string(number_at(data + size_t{word} * 4));
  }
  return text + " " + hex_of(data + 88, 6) + "+" + hex_of(data + 94, 2);
}

// What the reply's text must be beyond the parts that are shown: nothing is written but the code,
// the length, the data and the echoed command.
std::string reply_effect(const Call& call, ManagementClient* client) {
  if (call.bytes.size() < sizeof(long) + kReplyOverhead) {
    return call.text() + " of " + std::to_string(call.bytes.size()) + " bytes";
  }
  long type = 0;
  memcpy(&type, call.bytes.data(), sizeof type);
  const std::vector<uint8_t> text(call.bytes.begin() + sizeof(long), call.bytes.end());
  uint32_t length = 0;
  memcpy(&length, &text[4], sizeof length);
  std::string words = "reply " + std::to_string(static_cast<int8_t>(text[8]));
  const std::string arguments =
      "7, " + std::to_string(length + kReplyOverhead) + ", " + std::to_string(kIpcNoWait);
  if (call.arguments != arguments || length > text.size() - kReplyOverhead) {
    return words + " by " + call.text();
  }
  words += reply_data(&text[kReplyHeader], length);

  const long expected_type = (client->type & 0x7FFFFFFF) | 0x40000000;
  if (client->names_type || type != expected_type) {
    char shown[32];
    snprintf(shown, sizeof shown, " to 0x%lx", static_cast<unsigned long>(type));
    words += shown;
  }
  if (text[0] != client->cmd) {
    words += " to command " + std::to_string(text[0]);
  }
  for (size_t i = 1; i < text.size(); ++i) {
    const bool shown = i >= 4 && i < kReplyHeader + length;
    if (!shown && text[i] != client->reply_buffer.at(i)) {
      words += ", byte " + std::to_string(i) + " changed";
    }
  }
  std::copy(text.begin(), text.end(), client->reply_buffer.begin());
  return words;
}

// The calls that install the rule for an address, in order; the address is the last one's.
bool installs_rule(const std::vector<Call>& calls, std::string* mac) {
  static const std::string kPorts = "feffffffffffffff" + std::string(48, '0');
  static const std::string kAll(64, 'f');
  const std::string destination = calls[4].arguments.substr(0, 15);
  if (destination.rfind("7, ", 0) != 0) {
    return false;
  }
  *mac = destination.substr(3);
  const std::vector<std::string> expected = {
      "adp_fp_add_entity_action(30, 00000000, 4, 03000000, 4)",
      "adp_fp_add_entity_action(2, 06000000, 4, null, 0)",
      "adp_fp_add_entity_action(53, null, 0, null, 0)",
      "adp_fp_add_entity_qualify(13, " + kPorts + ", 32, " + kAll + ", 32)",
      "adp_fp_add_entity_qualify(7, " + *mac + ", 6, ffffffffff00, 6)",
      "adp_fp_add_entity_qualify(29, 0289, 2, ffff, 2)",
      "adp_fp_add_entity_rule(19)",
  };
  for (size_t i = 0; i < expected.size(); ++i) {
    if (calls[i].text() != expected[i]) {
      return false;
    }
  }
  // The platform counts actions and qualifiers in its first two bytes; the module writes the
  // entity and nothing else.
  std::vector<uint8_t> record(6268, 0);
  record[0] = 19;
  record[4] = 3;
  record[5] = 3;
  return calls[6].bytes == record;
}

std::string call_effect(const Call& call, ManagementClient* client) {
  const std::vector<std::string> arguments = split(call.arguments, ", ");
  if (call.name == "adp_set_port_erps_state") {
    const std::string& state = arguments.at(1);
    if (state == "4" || state == "1") {
      return (state == "4" ? "open " : "block ") + arguments.at(0);
    }
    return "state " + arguments.at(0) + " " + state;
  }
  if (call.name == "adp_get_port_erps_state") {
    return "ask " + call.arguments;
  }
  if (call.name == "adp_del_mac_addr_by_intf" && arguments.at(1) == "2") {
    return "flush " + arguments.at(0);
  }
  if (call.name == "adp_get_phy_port_attr" && arguments.at(1) == "11") {
    return "link? " + arguments.at(0);
  }
  if (call.name == "get_nic_address" && call.arguments == "eth0, 0") {
    return "nic";
  }
  if (call.name == "adp_transmit_frame" && arguments.at(1) == "0" && arguments.at(3) == "3" &&
      arguments.at(0) == std::to_string(call.bytes.size())) {
    const std::string words = message_words(call.bytes);
    return "send " + arguments.at(2) + ": " +
           (words.empty() ? hex_of(call.bytes.data(), call.bytes.size()) : words);
  }
  if (call.name == "adp_fp_delete_entity_rule" && call.arguments == "19, 0, 0") {
    return "uncapture";
  }
  if (call.name == "equeue_send_ucast") {
    return posted(call);
  }
  if (call.name == "msgsnd") {
    return reply_effect(call, client);
  }
  return visible(call.text());
}

}  // namespace

std::string hex_of(const uint8_t* bytes, size_t length) {
  std::string text;
  for (size_t i = 0; i < length; ++i) {
    char byte[3];
    snprintf(byte, sizeof byte, "%02x", bytes[i]);
    text += byte;
  }
  return text;
}

MacAddress node_by_name(const std::string& name) {
  for (const NamedNode& node : kNodes) {
    if (node.name == name) {
      return node.mac;
    }
  }
  if (name.size() != 12) {
    throw std::runtime_error("no node \"" + name + "\"");
  }
  MacAddress mac{};
  for (size_t i = 0; i < mac.size(); ++i) {
    mac.at(i) = static_cast<uint8_t>(std::stoul(name.substr(i * 2, 2), nullptr, 16));
  }
  return mac;
}

std::vector<Effect> effects_of(const std::vector<Call>& journal, const std::vector<LogLine>& log,
                               ManagementClient* client) {
  constexpr size_t kRuleCalls = 7;
  std::vector<Effect> effects;
  size_t log_line = 0;
  for (size_t i = 0; i < journal.size(); ++i) {
    const Call& call = journal[i];
    std::string mac;
    if (call.name == "Log_logging_func") {
      effects.push_back(log_effect(log.at(log_line++)));
    } else if (call.name == "sys_trace_add_log") {
      continue;  // compared with the log elsewhere
    } else if (call.name == "adp_fp_add_entity_action" && i + kRuleCalls <= journal.size() &&
               installs_rule({journal.begin() + static_cast<std::ptrdiff_t>(i),
                              journal.begin() + static_cast<std::ptrdiff_t>(i + kRuleCalls)},
                             &mac)) {
      effects.push_back({"capture " + mac, false});
      i += kRuleCalls - 1;
    } else {
      effects.push_back({call_effect(call, client), false});
    }
  }
  return effects;
}

std::vector<Effect> joined(const std::vector<Effect>& effects) {
  std::vector<Effect> result;
  std::vector<int> counts;
  for (const Effect& effect : effects) {
    if (!effect.debug && !result.empty() && result.back().text == effect.text) {
      ++counts.back();
    } else {
      result.push_back(effect);
      counts.push_back(1);
    }
  }
  for (size_t i = 0; i < result.size(); ++i) {
    if (counts[i] > 1) {
      result[i].text = std::to_string(counts[i]) + "x " + result[i].text;
    }
  }
  return result;
}

}  // namespace erps::test
