#include "linux/history_record.h"

#include <cinttypes>
#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "erps/raps/frame.h"
#include "linux/outside_door.h"

namespace erps::linux_platform {
namespace {

// Appends formatted text; a single append stays far below the local buffer.
__attribute__((format(printf, 2, 3))) void append(std::string& line, const char* format, ...) {
  char text[160];
  va_list arguments;
  va_start(arguments, format);
  vsnprintf(text, sizeof text, format, arguments);
  va_end(arguments);
  line += text;
}

std::string mac_text(const std::array<uint8_t, 6>& mac) {
  std::string text;
  append(text, "%02x:%02x:%02x:%02x:%02x:%02x", mac[0], mac[1], mac[2], mac[3], mac[4], mac[5]);
  return text;
}

// The short word of a request: NR, MS, SF, FS, EVENT.
const char* request_word(uint8_t request) {
  const char* name = raps::request_name(request, 0);
  return std::strncmp(name, "RAPS_", 5) == 0 ? name + 5 : name;
}

const char* kind_name(HistoryKind kind) {
  switch (kind) {
    case HistoryKind::kRapsReceived:
      return "raps-rx";
    case HistoryKind::kRapsSent:
      return "raps-tx";
    case HistoryKind::kPortState:
      return "port-state";
    case HistoryKind::kLink:
      return "link";
    case HistoryKind::kFlush:
      return "flush";
    case HistoryKind::kCommand:
      return "command";
    case HistoryKind::kDoorDrop:
      return "door-drop";
    case HistoryKind::kCapture:
      return "capture";
    case HistoryKind::kMalformed:
      return "raps-malformed";
    case HistoryKind::kFlood:
      return "raps-flood";
  }
  return "unknown";
}

const char* phase_name(Phase phase) {
  switch (phase) {
    case Phase::kAsked:
      return "asked";
    case Phase::kApplied:
      return "applied";
    case Phase::kFailed:
      return "failed";
  }
  return "unknown";
}

std::string cause_text(const HistoryRecord& record) {
  std::string text;
  switch (record.cause) {
    case CauseKind::kNone:
      break;
    case CauseKind::kLinkDown:
      append(text, "link down port %u", record.cause_port);
      break;
    case CauseKind::kLinkUp:
      append(text, "link up port %u", record.cause_port);
      break;
    case CauseKind::kRaps:
      append(text, "R-APS %s port %u from %s", request_word(record.cause_value), record.cause_port,
             mac_text(record.cause_node_id).c_str());
      break;
    case CauseKind::kTimer:
      text = "timer";
      break;
    case CauseKind::kCommand:
      text = "command";
      break;
    case CauseKind::kEvent:
      append(text, "event %u", record.cause_value);
      break;
    case CauseKind::kReapply:
      text = "reapply";
      break;
    case CauseKind::kStart:
      text = "start";
      break;
    case CauseKind::kStop:
      text = "stop";
      break;
  }
  return text;
}

void append_raps(std::string& line, const HistoryRecord& record) {
  append(line, ",\"ring\":%u,\"vlan\":%u,\"request\":\"%s\",\"request_code\":%u,\"sub_code\":%u",
         record.ring, record.vlan, request_word(record.request), record.request, record.sub_code);
  append(line, ",\"rb\":%d,\"dnf\":%d,\"bpr\":%d", (record.status & raps::kStatusRb) != 0,
         (record.status & raps::kStatusDnf) != 0, (record.status & raps::kStatusBpr) != 0);
  append(line, ",\"node_id\":\"%s\",\"source\":\"%s\",\"length\":%u",
         mac_text(record.node_id).c_str(), mac_text(record.source).c_str(), record.length);
}

}  // namespace

std::string to_json_line(const HistoryRecord& record) {
  std::string line;
  line.reserve(320);
  append(line, "{\"mono_ns\":%" PRId64 ",\"wall_ns\":%" PRId64 ",\"sequence\":%" PRIu64,
         record.mono_ns, record.wall_ns, record.sequence);
  append(line, ",\"kind\":\"%s\"", kind_name(record.kind));
  if (record.port != 0) {
    append(line, ",\"port\":%u", record.port);
  }
  switch (record.kind) {
    case HistoryKind::kRapsReceived:
    case HistoryKind::kRapsSent:
      append_raps(line, record);
      break;
    case HistoryKind::kPortState:
      append(line, ",\"phase\":\"%s\",\"state\":\"%s\"", phase_name(record.phase),
             record.state == 4 ? "forwarding" : "discarding");
      break;
    case HistoryKind::kLink:
      append(line, ",\"state\":\"%s\"", record.state != 0 ? "up" : "down");
      break;
    case HistoryKind::kFlush:
    case HistoryKind::kCapture:
      append(line, ",\"phase\":\"%s\"", phase_name(record.phase));
      break;
    case HistoryKind::kDoorDrop:
      append(line, ",\"reason\":\"%s\",\"length\":%u",
             verdict_text(static_cast<DoorVerdict>(record.reason)), record.length);
      break;
    case HistoryKind::kFlood:
      append(line, ",\"source\":\"%s\"", mac_text(record.source).c_str());
      break;
    case HistoryKind::kCommand:
    case HistoryKind::kMalformed:
      append(line, ",\"length\":%u", record.length);
      break;
  }
  if (record.took_ns != 0) {
    append(line, ",\"took_ns\":%" PRId64, record.took_ns);
  }
  if (record.error != 0) {
    append(line, ",\"error\":%d", record.error);
  }
  if (record.text[0] != '\0') {
    append(line, ",\"text\":\"%.*s\"", static_cast<int>(sizeof record.text), record.text);
  }
  if (const std::string cause = cause_text(record); !cause.empty()) {
    append(line, ",\"cause\":\"%s\"", cause.c_str());
  }
  line += '}';
  return line;
}

}  // namespace erps::linux_platform
