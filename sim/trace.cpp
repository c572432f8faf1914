#include "sim/trace.h"

#include <array>
#include <cstdio>

#include "erps/raps/frame.h"
#include "sim/management.h"
#include "sim/module_records.h"
#include "sim/platform_call.h"

namespace erps::sim {

namespace {

std::string frame_text(const Record& record) {
  const uint32_t status = record.a & 0xFFU;
  const uint32_t request = record.a >> 12U & 0xFU;
  const bool marked = (record.a >> 8U & 0xFU) == raps::kInterconnectionMark;
  std::array<char, 96> text{};
  std::snprintf(text.data(), text.size(), "ring %u %s%s%s%s of ..%04x", record.a >> 16U,
                raps::request_name(request, status & raps::kStatusRb),
                (status & raps::kStatusDnf) != 0 ? " DNF" : "",
                (status & raps::kStatusBpr) != 0 ? " BPR" : "", marked ? " marked" : "", record.b);
  return text.data();
}

std::string state_text(const Record& record) {
  const uint32_t state = record.a & 0xFFU;
  return "ring " + std::to_string(record.a >> 8U) + " " +
         (state == kRingGone ? "gone" : state_name(state));
}

std::string timer_text(const Record& record) {
  const auto kind = static_cast<TimerKind>(record.a & 0xFFU);
  return "ring " + std::to_string(record.a >> 8U) + " " + timer_name(kind) +
         (record.b == kTimerStopped ? " stopped" : " " + std::to_string(record.b) + " ms");
}

const char* kind_text(RecordKind kind) {
  switch (kind) {
    case RecordKind::kBoot:
      return "boot";
    case RecordKind::kRunning:
      return "running";
    case RecordKind::kCrash:
      return "crash";
    case RecordKind::kStopped:
      return "stopped";
    case RecordKind::kTaskStarted:
      return "task started";
    case RecordKind::kTaskEnded:
      return "task ended";
    case RecordKind::kSignal:
      return "signal";
    case RecordKind::kCarrier:
      return "carrier";
    case RecordKind::kEvent:
      return "event";
    case RecordKind::kPortAsked:
      return "port asked";
    case RecordKind::kPortApplied:
      return "port applied";
    case RecordKind::kFlush:
      return "flush";
    case RecordKind::kFrameSent:
      return "sent";
    case RecordKind::kFrameReceived:
      return "received";
    case RecordKind::kFrameLost:
      return "lost";
    case RecordKind::kCapture:
      return "capture rule";
    case RecordKind::kCommand:
      return "command";
    case RecordKind::kReply:
      return "reply";
    case RecordKind::kProbe:
      return "probe";
    case RecordKind::kCirculating:
      return "frame circulates";
    case RecordKind::kState:
      return "state";
    case RecordKind::kTimer:
      return "timer";
    case RecordKind::kKilled:
      return "killed";
    case RecordKind::kCallFailed:
      return "call failed";
    case RecordKind::kClockStep:
      return "clock stepped";
    case RecordKind::kSlowed:
      return "slowed";
    case RecordKind::kStalled:
      return "stalled";
  }
  return "?";
}

}  // namespace

std::string to_text(const Record& record) {
  std::string text = kind_text(record.kind);
  if (record.port != 0) {
    text += " port " + std::to_string(record.port);
  }
  switch (record.kind) {
    case RecordKind::kFrameSent:
    case RecordKind::kFrameReceived:
    case RecordKind::kFrameLost:
      return text + " " + frame_text(record);
    case RecordKind::kState:
      return text + " " + state_text(record);
    case RecordKind::kTimer:
      return text + " " + timer_text(record);
    case RecordKind::kCallFailed:
      return text.append(" ").append(name_of(static_cast<PlatformCall>(record.a)));
    case RecordKind::kClockStep:
      return text + " " + std::to_string(static_cast<int32_t>(record.a)) + " s";
    default:
      return text + " " + std::to_string(record.a) + " " + std::to_string(record.b);
  }
}

}  // namespace erps::sim
