// What happened, as numbers: the record that observers see and that the trace hash is made of.
#pragma once

#include <cstdint>
#include <string>

namespace erps::sim {

enum class RecordKind : uint32_t {
  kBoot = 1,       // the node's software starts
  kRunning,        // its configuration is done; a: refused commands
  kCrash,          // power lost
  kStopped,        // a: result of the module's stop
  kTaskStarted,    // a: task
  kTaskEnded,      // a: task, b: result
  kSignal,         // port: physical signal; a: 1 there, 0 lost
  kCarrier,        // port: detected; a: 1 up, 0 down
  kEvent,          // handed to the protocol task; a: type; of a link change port and b: 1 up,
                   // 0 down; else b: numeric payload if it has one
  kPortAsked,      // port, a: 4 forwarding, 1 discarding
  kPortApplied,    // port, a: as above
  kFlush,          // port, a: addresses forgotten
  kFrameSent,      // port, a: ring << 16 | request byte << 8 | status, b: end of the node ID
  kFrameReceived,  // port, as above
  kFrameLost,      // port of the sender, as above
  kCapture,        // a: 1 installed, 0 removed
  kCommand,        // a: command, b: first argument
  kReply,          // a: command, b: return code, kNoAnswer without one
  kProbe,          // a: probe, delivered to this node's host
  kCirculating,    // a frame was dropped that the switches had passed on too often
  kState,          // a: ring << 8 | state, kRingGone for a ring that is no more
  kTimer,          // a: ring << 8 | TimerKind, b: ms until it is due, or kTimerStopped
  kKilled,         // the module's process died; the switch goes on
  kCallFailed,     // a: PlatformCall
  kClockStep,      // a: seconds forth, or back as a negative number
  kSlowed,         // a: how many times slower than usual
  kStalled,        // a: for how many ms
};

inline constexpr uint32_t kNoAnswer = 0x100;
inline constexpr uint32_t kRingGone = 0xFF;
inline constexpr uint32_t kTimerStopped = 0xFFFFFFFF;
inline constexpr uint32_t kNoNode = 0xFFFFFFFF;

struct Record {
  int64_t time_us = 0;
  uint32_t node = kNoNode;
  RecordKind kind{};
  uint32_t port = 0;
  uint32_t a = 0;
  uint32_t b = 0;
};

// One line for people; without the node's name.
std::string to_text(const Record& record);

class TraceHash {
 public:
  void add(const Record& record) {
    mix(static_cast<uint64_t>(record.time_us));
    mix(uint64_t{record.node} << 32U | static_cast<uint32_t>(record.kind));
    mix(uint64_t{record.port} << 32U | record.a);
    mix(record.b);
  }
  uint64_t value() const { return value_; }

 private:
  // FNV-1a, a word at a time, with the high half folded in.
  void mix(uint64_t word) {
    value_ = (value_ ^ word) * 0x100000001B3U;
    value_ ^= value_ >> 32U;
  }

  uint64_t value_ = 0xCBF29CE484222325U;
};

}  // namespace erps::sim
