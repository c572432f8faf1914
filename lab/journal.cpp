#include "lab/journal.h"

#include <nlohmann/json.hpp>
#include <optional>
#include <sstream>

namespace erps::lab {

namespace {

using nlohmann::json;

std::string message_text(const json& record) {
  std::string text = record.value("request", "");
  for (const auto& [key, word] : {std::pair{"rb", ",RB"}, {"dnf", ",DNF"}}) {
    if (record.value(key, 0) != 0) {
      text += word;
    }
  }
  return text;
}

std::optional<EventKind> kind_of(const json& record) {
  const std::string kind = record.value("kind", "");
  const std::string state = record.value("state", "");
  const std::string phase = record.value("phase", "");
  if (kind == "link") {
    return state == "down" ? EventKind::kLinkDown : EventKind::kLinkUp;
  }
  if (kind == "raps-tx") {
    return EventKind::kSent;
  }
  if (kind == "raps-rx") {
    return EventKind::kReceived;
  }
  if (kind == "command") {
    return EventKind::kCommand;
  }
  if (phase != "applied") {
    return std::nullopt;
  }
  if (kind == "port-state") {
    return state == "forwarding" ? EventKind::kOpened : EventKind::kBlocked;
  }
  if (kind == "flush") {
    return EventKind::kFlushed;
  }
  return std::nullopt;
}

}  // namespace

const char* event_name(EventKind kind) {
  switch (kind) {
    case EventKind::kLinkDown:
      return "link-down";
    case EventKind::kLinkUp:
      return "link-up";
    case EventKind::kSent:
      return "raps-sent";
    case EventKind::kReceived:
      return "raps-received";
    case EventKind::kBlocked:
      return "blocked";
    case EventKind::kOpened:
      return "opened";
    case EventKind::kFlushed:
      return "flushed";
    case EventKind::kCommand:
      return "command";
  }
  return "unknown";
}

std::vector<NodeEvent> parse_journal(const std::string& lines) {
  std::vector<NodeEvent> events;
  std::istringstream in(lines);
  for (std::string line; std::getline(in, line);) {
    const json record = json::parse(line, nullptr, false);
    if (!record.is_object()) {
      continue;
    }
    try {
      const auto kind = kind_of(record);
      if (!kind) {
        continue;
      }
      NodeEvent event;
      event.kind = *kind;
      event.mono_ns = record.value("mono_ns", int64_t{0});
      event.port = record.value("port", 0U);
      event.cause = record.value("cause", "");
      if (*kind == EventKind::kSent || *kind == EventKind::kReceived) {
        event.ring = record.value("ring", 0U);
        event.message = message_text(record);
        event.node_id = record.value("node_id", "");
      }
      events.push_back(std::move(event));
    } catch (const json::exception&) {
      continue;  // a field of another kind: no line of the journal
    }
  }
  return events;
}

std::vector<NodeEvent> JournalReader::read_on() {
  std::ifstream in(path_, std::ios::binary);
  if (!in) {
    return {};
  }
  in.seekg(read_);
  std::ostringstream text;
  text << in.rdbuf();
  std::string lines = text.str();
  // A line that is still being written is left for the next time.
  lines.resize(lines.rfind('\n') == std::string::npos ? 0 : lines.rfind('\n') + 1);
  read_ += static_cast<std::streamoff>(lines.size());
  return parse_journal(lines);
}

}  // namespace erps::lab
